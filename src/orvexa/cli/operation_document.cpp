#include "orvexa/cli/operation_document.h"

#include <string>

#include "orvexa/model/requirement_text.h"

namespace orvexa::cli {

namespace {

common::Value parameters_document(const model::ParameterList& parameters) {
  common::Value list = common::Value::array();
  for (const model::ParameterInfo& parameter : parameters) {
    common::Value entry = {{"name", parameter.name},
                           {"type", std::string(model::parameter_type_name(parameter.type))},
                           {"default", parameter.default_value},
                           {"allowed", model::allowed_text(parameter)}};
    if (parameter.min) entry["min"] = *parameter.min;
    if (parameter.max) entry["max"] = *parameter.max;
    if (!parameter.choices.empty()) entry["choices"] = parameter.choices;
    if (parameter.interaction) entry["picked_as"] = parameter.interaction->mode;
    entry["unit"] = parameter.unit;
    entry["help"] = parameter.help;
    list.push_back(std::move(entry));
  }
  return list;
}

model::ParameterList parameters_of(const model::MaskOperationInfo& info) {
  return info.all_parameters();
}
const model::ParameterList& parameters_of(const model::ResultOperationInfo& info) {
  return info.parameters;
}

common::Value operation_document(const auto& info, const char* kind) {
  return {{"key", info.key},
          {"kind", kind},
          {"display_name", info.display_name},
          {"category", info.category},
          {"summary", info.summary},
          {"description", info.description},
          {"source", info.source},
          {"requires", model::requirement_texts(info)},
          {"parameters", parameters_document(parameters_of(info))}};
}

}  // namespace

std::vector<common::Value> operation_documents(const controller::Controller& controller) {
  std::vector<common::Value> documents;
  for (const model::MaskOperationInfo* info : controller.get_mask_operation_infos()) {
    documents.push_back(operation_document(*info, "mask"));
  }
  for (const auto& [category, infos] : controller.get_result_operations_by_category()) {
    for (const model::ResultOperationInfo* info : infos) documents.push_back(operation_document(*info, "result"));
  }
  return documents;
}

}  // namespace orvexa::cli
