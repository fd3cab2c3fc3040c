#include "orvexa/model/requirement_text.h"

#include <variant>

#include "orvexa/common/text.h"
#include "orvexa/model/mask_operations/registry.h"

namespace orvexa::model {

std::string measurement_requirement_text(const std::vector<MeasurementRequirement>& required) {
  // Alternatives in the first place are the whole requirement.
  if (const auto* alternatives = std::get_if<std::vector<std::string>>(&required.front())) {
    return "one of the measurements " + common::joined(*alternatives, ", ");
  }
  std::vector<std::string> names;
  for (const MeasurementRequirement& requirement : required) {
    if (const auto* name = std::get_if<std::string>(&requirement)) names.push_back(*name);
  }
  return (names.size() == 1 ? "the measurement " : "the measurements ") + common::joined(names, ", ");
}

std::string mask_requirement_text(const std::vector<std::string>& patterns) {
  if (patterns.size() == 1 && patterns.front() == "*") return "a mask step";
  return "one of the mask steps " + common::joined(patterns, ", ");
}

std::string region_requirement_text() {
  std::vector<std::string> makers;
  for (const MaskOperationInfo* info : get_all_mask_operation_infos()) {
    if (info->makes_regions) makers.push_back(info->key);
  }
  return "regions made by a mask step: " + common::joined(makers, " or ");
}

std::vector<std::string> requirement_texts(const MaskOperationInfo& info) {
  std::vector<std::string> texts;
  if (info.needs_mask) texts.emplace_back("a mask made by an earlier step");
  return texts;
}

std::vector<std::string> requirement_texts(const ResultOperationInfo& info) {
  std::vector<std::string> texts;
  if (info.required_measurements && !info.required_measurements->empty()) {
    texts.push_back(measurement_requirement_text(*info.required_measurements));
  }
  const auto& patterns = info.operation_class._requires_mask_operation;
  if (patterns && !patterns->empty()) texts.push_back(mask_requirement_text(*patterns));
  if (info.needs_labels) texts.push_back(region_requirement_text());
  return texts;
}

}  // namespace orvexa::model
