#include "orvexa/controller/batch_summary.h"

#include <utility>

namespace orvexa::controller {

using common::Value;

namespace {

Value operation_errors_value(const common::OrderedMap<std::string>& operation_errors) {
  Value map = Value::object();
  for (const auto& [operation, error] : operation_errors) map[operation] = error;
  return map;
}

}  // namespace

Value BatchSummary::to_value() const {
  Value successful = Value::array();
  for (const BatchFileSuccess& entry : successful_files) {
    successful.push_back({{"file", entry.file},
                          {"output_folder", entry.output_folder},
                          {"operation_errors", operation_errors_value(entry.operation_errors)}});
  }
  Value failed = Value::array();
  for (const BatchFileFailure& entry : failed_files) {
    failed.push_back({{"file", entry.file}, {"error", entry.error}});
  }
  Value map{{"total_files", total_files},
            {"successful_files", std::move(successful)},
            {"failed_files", std::move(failed)},
            {"errors", errors}};
  if (batch_folder) map["batch_folder"] = *batch_folder;
  if (workflow_title) map["workflow_title"] = *workflow_title;
  return map;
}

}  // namespace orvexa::controller
