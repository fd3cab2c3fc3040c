#include "orvexa/controller/run_record.h"

#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"
#include "orvexa/common/version.h"
#include "orvexa/controller/batch_journal.h"
#include "orvexa/model/workflow/provenance.h"

namespace orvexa::controller {

using common::Path;
using common::Value;

namespace {

constexpr std::uintmax_t max_record_bytes = 16u << 20;

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error("provenance.json: " + what);
}

const Value& entry(const Value& map, std::string_view key, bool (Value::*is_kind)() const noexcept,
                   std::string_view kind) {
  const auto found = map.find(key);
  if (found == map.end()) fail(fmt::format("the entry \"{}\" is missing.", key));
  if (!((*found).*is_kind)()) {
    fail(fmt::format("the entry \"{}\" must be {}; it is {}.", key, kind, common::kind_text(*found)));
  }
  return *found;
}

std::string text(const Value& map, std::string_view key) {
  return entry(map, key, &Value::is_string, "a text").get<std::string>();
}

const Value& map_at(const Value& map, std::string_view key) {
  return entry(map, key, &Value::is_object, "a map");
}

/// A list whose elements are maps.
const Value& maps_at(const Value& map, std::string_view key) {
  const Value& list = entry(map, key, &Value::is_array, "a list");
  for (const Value& element : list) {
    if (!element.is_object()) fail(fmt::format("\"{}\" must hold maps; it holds {}.", key, common::kind_text(element)));
  }
  return list;
}

RecordedInput input_from(const Value& map) {
  RecordedInput input{.path = text(map, "path"), .sha256 = text(map, "sha256")};
  if (input.path.empty() || input.path.filename().empty()) fail("the \"path\" of an input is no path of a file.");
  if (map.contains("page")) {
    const Value& page = entry(map, "page", &Value::is_number_integer, "a whole number");
    constexpr int max_page = 1'000'000;
    if (page < 0 || page > max_page) fail("the \"page\" of an input is no page's number.");
    input.page = page.get<int>();
  }
  return input;
}

std::vector<RecordedStep> steps_from(const Value& list) {
  std::vector<RecordedStep> steps;
  for (const Value& step : list) {
    if (!step.contains("params")) fail("a step has no \"params\".");
    steps.push_back({.op = text(step, "op"), .params = step.at("params"), .bands = map_at(step, "bands")});
  }
  return steps;
}

RunRecord record_from(const Value& document) {
  if (!document.is_object()) fail(fmt::format("it must be a map; it is {}.", common::kind_text(document)));
  if (document.contains("part")) {
    fail(fmt::format("only {} ran; name the results folder of a whole run.", text(document, "part")));
  }
  RunRecord record{.capture = text(document, "capture")};
  for (const Value& input : maps_at(document, "inputs")) record.inputs.push_back(input_from(input));
  if (record.inputs.empty()) fail("it names no inputs.");
  if (document.contains("files")) {
    for (const Value& file : maps_at(document, "files")) record.files.push_back(input_from(file));
  }
  const Value& program = map_at(document, "program");
  record.versions["orvexa"] = text(program, "version");
  record.versions["build"] = text(program, "build");
  for (const auto& [library, version] : map_at(document, "libraries").items()) {
    record.versions[library] = common::scalar_text(version);
  }
  record.mask_steps = steps_from(maps_at(document, "mask_operations"));
  record.result_steps = steps_from(maps_at(document, "result_operations"));
  return record;
}

}  // namespace

RunRecord read_run_record(const Path& results_folder) {
  std::error_code unknown;
  const std::string name = common::path_text(results_folder);
  if (!std::filesystem::is_directory(results_folder, unknown)) {
    throw std::runtime_error(name + ": there is no such folder.");
  }
  const Path file = results_folder / "provenance.json";
  if (!std::filesystem::exists(file, unknown)) {
    if (std::filesystem::exists(results_folder / batch_journal_name, unknown)) {
      throw std::runtime_error(name + ": this is the folder of a batch; name a results folder inside it.");
    }
    throw std::runtime_error(name + ": this is no results folder; it has no provenance.json.");
  }
  const std::string content = common::read_text_file(file, max_record_bytes);
  try {
    return record_from(common::parse_json(content, "provenance.json"));
  } catch (const std::runtime_error& failure) {
    throw std::runtime_error(fmt::format("{}: {}", name, failure.what()));
  }
}

Value versions_now() {
  Value versions = {{"orvexa", common::program_version()}, {"build", common::build_text()}};
  const Value libraries = model::library_versions();
  for (const auto& [library, version] : libraries.items()) {
    versions[library] = common::scalar_text(version);
  }
  return versions;
}

}  // namespace orvexa::controller
