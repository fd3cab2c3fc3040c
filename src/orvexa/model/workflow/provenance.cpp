#include "orvexa/model/workflow/provenance.h"

#include <fmt/core.h>
#include <jconfig.h>
#include <png.h>
#include <tiffio.h>

#include <chrono>
#include <opencv2/core/utility.hpp>
#include <system_error>

#include "orvexa/common/files.h"
#include "orvexa/common/parallel.h"
#include "orvexa/common/text.h"
#include "orvexa/common/version.h"

#define ORVEXA_TEXT_OF(token) #token
#define ORVEXA_TEXT_OF_VALUE(macro) ORVEXA_TEXT_OF(macro)

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

std::string time_text(common::TimePoint time) {
  return common::local_time_text(time, "%Y-%m-%dT%H:%M:%S%z");
}

std::string absolute_text(const std::filesystem::path& path) {
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  return common::path_text(error ? path : absolute.lexically_normal());
}

}  // namespace

Value library_versions() {
  const std::string tiff = TIFFGetVersion();  // "LIBTIFF, Version 4.5.0\nCopyright ..."
  const std::string_view mark = "Version ";
  const std::size_t begin = tiff.find(mark);
  const std::size_t end = tiff.find('\n');
  return {
      {"OpenCV", cv::getVersionString()},
      {"libpng", png_get_libpng_ver(nullptr)},
      {"libjpeg-turbo", ORVEXA_TEXT_OF_VALUE(LIBJPEG_TURBO_VERSION)},
      {"libtiff", begin == std::string::npos
                      ? tiff
                      : tiff.substr(begin + mark.size(), end == std::string::npos ? end : end - begin - mark.size())},
      {"giflib", common::built_with("giflib")},
      {"oneTBB", common::built_with("oneTBB")},
      {"yaml-cpp", common::built_with("yaml-cpp")},
      {"nlohmann-json",
       fmt::format("{}.{}.{}", NLOHMANN_JSON_VERSION_MAJOR, NLOHMANN_JSON_VERSION_MINOR, NLOHMANN_JSON_VERSION_PATCH)}};
}

Value provenance_document(const ProvenanceRecord& record) {
  Value inputs = Value::array();
  for (const SourceFile& source : record.sources) {
    inputs.push_back({{"path", absolute_text(source.path)}, {"sha256", source.sha256}, {"bytes", source.bytes}});
  }
  const auto duration = std::chrono::duration_cast<std::chrono::milliseconds>(record.finished - record.started);
  return {{"format", 1},
          {"program", {{"name", "orvexa"}, {"version", common::program_version()}, {"build", common::build_text()}}},
          {"libraries", library_versions()},
          {"capture", common::to_valid_utf8(record.capture_name)},
          {"inputs", std::move(inputs)},
          {"started", time_text(record.started)},
          {"finished", time_text(record.finished)},
          {"duration_seconds", static_cast<double>(duration.count()) / 1000},
          {"threads", common::thread_count()},
          {"mask_operations", steps_value(record.mask_steps)},
          {"result_operations", steps_value(record.result_steps)}};
}

}  // namespace orvexa::model
