#include "orvexa/model/workflow/provenance.h"

#include <fmt/core.h>

#include <chrono>
#include <opencv2/core/utility.hpp>
#include <system_error>
#include <utility>

#include "orvexa/common/files.h"
#include "orvexa/common/parallel.h"
#include "orvexa/common/text.h"
#include "orvexa/common/version.h"
#include "orvexa/model/codecs/codec_versions.h"
#include "orvexa/model/workflow/parameter_files.h"

namespace orvexa::model {

using common::Value;

namespace {

Value steps_value(const std::vector<StepRecord>& steps) {
  Value list = Value::array();
  for (const StepRecord& step : steps) {
    Value entry = {{"op", step.op}, {"params", step.params}};
    if (!step.chosen_bands.is_null()) entry["bands"] = step.chosen_bands;
    list.push_back(std::move(entry));
  }
  return list;
}

std::string absolute_text(const std::filesystem::path& path) {
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  return common::path_text(error ? path : absolute.lexically_normal());
}

Value level_value(const ReferenceLevel& level) {
  if (!level.file) return level.constants.size() == 1 ? Value(level.constants.front()) : Value(level.constants);
  Value value = {{"path", absolute_text(level.file->path)}, {"sha256", level.file->sha256}};
  if (level.file->page) value["page"] = *level.file->page;
  return value;
}

Value files_value(const std::vector<SourceFile>& files) {
  Value list = Value::array();
  for (const SourceFile& source : files) {
    Value file = {{"path", absolute_text(source.path)}, {"sha256", source.sha256}, {"bytes", source.bytes}};
    if (source.page) file["page"] = *source.page;
    list.push_back(std::move(file));
  }
  return list;
}

}  // namespace

ProvenanceRecord begun_record(const CaptureSet& capture, const Workflow& workflow, std::string capture_name) {
  ProvenanceRecord record{.capture_name = std::move(capture_name),
                          .sources = capture.sources,
                          .references = reference_records(capture),
                          .started = common::now()};
  record.files = hashed_parameter_files(workflow);
  if (!record.files.empty()) record.workflow_sha256 = workflow_sha256(workflow);
  return record;
}

std::vector<ReferenceRecord> reference_records(const ImageSource& capture) {
  std::vector<ReferenceRecord> records;
  for (const std::string& measurement : capture.get_measurement_types()) {
    for (const std::string& image : capture.image_names(measurement)) {
      if (auto reference = capture.reference(measurement, image)) {
        records.push_back({.image = fmt::format("{}.{}", measurement, image), .reference = std::move(reference)});
      }
    }
  }
  return records;
}

Value references_document(const std::vector<ReferenceRecord>& references) {
  Value list = Value::array();
  for (const ReferenceRecord& record : references) {
    list.push_back({{"image", record.image},
                    {"white", level_value(record.reference->white)},
                    {"dark", level_value(record.reference->dark)},
                    {"reflectance", record.reference->reflectance}});
  }
  return list;
}

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
  const auto duration = std::chrono::duration_cast<std::chrono::milliseconds>(record.finished - record.started);
  Value document = {
      {"format", 1},
      {"program", {{"name", "orvexa"}, {"version", common::program_version()}, {"build", common::build_text()}}},
      {"libraries", library_versions()},
      {"capture", common::to_valid_utf8(record.capture_name)}};
  if (!record.part.empty()) document["part"] = record.part;
  document["inputs"] = files_value(record.sources);
  if (!record.references.empty()) document["references"] = references_document(record.references);
  if (!record.files.empty()) {
    document["files"] = files_value(record.files);
    document["workflow_sha256"] = record.workflow_sha256;
  }
  document.update({{"started", common::time_stamp_text(record.started)},
                   {"finished", common::time_stamp_text(record.finished)},
                   {"duration_seconds", static_cast<double>(duration.count()) / 1000},
                   {"threads", common::thread_count()},
                   {"mask_operations", steps_value(record.mask_steps)},
                   {"result_operations", steps_value(record.result_steps)}});
  return document;
}

}  // namespace orvexa::model
