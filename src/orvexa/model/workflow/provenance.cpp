#include "orvexa/model/workflow/provenance.h"

#include <fmt/core.h>

#include <chrono>
#include <opencv2/core/utility.hpp>
#include <system_error>

#include "orvexa/common/files.h"
#include "orvexa/common/parallel.h"
#include "orvexa/common/text.h"
#include "orvexa/common/version.h"
#include "orvexa/model/codecs/codec_versions.h"

namespace orvexa::model {

using common::Value;

namespace {

Value steps_value(const std::vector<StepRecord>& steps) {
  Value list = Value::array();
  for (const StepRecord& step : steps) {
    list.push_back({{"op", step.op}, {"params", step.params}, {"bands", step.chosen_bands}});
  }
  return list;
}

std::string absolute_text(const std::filesystem::path& path) {
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  return common::path_text(error ? path : absolute.lexically_normal());
}

}  // namespace

Value library_versions() {
  Value versions{{"OpenCV", cv::getVersionString()}};
  versions.update(codec_versions());
  versions["oneTBB"] = common::built_with("oneTBB");
  versions["yaml-cpp"] = common::built_with("yaml-cpp");
  versions["nlohmann-json"] =
      fmt::format("{}.{}.{}", NLOHMANN_JSON_VERSION_MAJOR, NLOHMANN_JSON_VERSION_MINOR, NLOHMANN_JSON_VERSION_PATCH);
  return versions;
}

Value provenance_document(const ProvenanceRecord& record) {
  Value inputs = Value::array();
  for (const SourceFile& source : record.sources) {
    Value input = {{"path", absolute_text(source.path)}, {"sha256", source.sha256}, {"bytes", source.bytes}};
    if (source.page) input["page"] = *source.page;
    inputs.push_back(std::move(input));
  }
  const auto duration = std::chrono::duration_cast<std::chrono::milliseconds>(record.finished - record.started);
  return {{"format", 1},
          {"program", {{"name", "orvexa"}, {"version", common::program_version()}, {"build", common::build_text()}}},
          {"libraries", library_versions()},
          {"capture", common::to_valid_utf8(record.capture_name)},
          {"inputs", std::move(inputs)},
          {"started", common::time_stamp_text(record.started)},
          {"finished", common::time_stamp_text(record.finished)},
          {"duration_seconds", static_cast<double>(duration.count()) / 1000},
          {"threads", common::thread_count()},
          {"mask_operations", steps_value(record.mask_steps)},
          {"result_operations", steps_value(record.result_steps)}};
}

}  // namespace orvexa::model
