#include "orvexa/controller/results_verification.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "orvexa/common/logger.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"
#include "orvexa/controller/run_record.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/model/mask_operations/registry.h"
#include "orvexa/model/result_operations/registry.h"

namespace orvexa::controller {

namespace {

namespace fs = std::filesystem;

/// A folder for what is computed anew, away from the results, which may lie where nothing can be written.
class TemporaryPlace {
 public:
  TemporaryPlace() : _path(fs::temp_directory_path() / ("orvexa-verify-" + common::random_suffix())) {
    std::error_code failure;
    fs::create_directory(_path, failure);
    if (failure) {
      throw std::runtime_error(fmt::format("{}: the folder for the computation cannot be made: {}.",
                                           common::path_text(_path), failure.message()));
    }
  }
  ~TemporaryPlace() {
    std::error_code ignored;
    fs::remove_all(_path, ignored);
  }
  TemporaryPlace(const TemporaryPlace&) = delete;
  TemporaryPlace& operator=(const TemporaryPlace&) = delete;

  [[nodiscard]] const Path& path() const { return _path; }

 private:
  Path _path;
};

/// Where an input lies now: images keep their place beside the header.
Path place_now(const RecordedInput& input, const RunRecord& record, const std::optional<Path>& folder) {
  if (!folder) return input.path;
  return (*folder / input.path.lexically_relative(record.inputs.front().path.parent_path())).lexically_normal();
}

CheckedInput checked_input(const Path& path, const RecordedInput& input) {
  std::error_code unknown;
  const std::string name = common::path_text(path);
  if (!fs::exists(path, unknown))
    return {.path = path, .problem = name + ": this input is missing.", .is_there = false};
  try {
    if (common::sha256_hex(common::read_file(path)) == input.sha256) return {.path = path};
  } catch (const std::exception& failure) {
    return {.path = path, .problem = failure.what()};
  }
  return {.path = path, .problem = name + ": this input has changed since the run."};
}

/// The file's path as the loaders take it, with its page.
Path loadable(const Path& path, const RecordedInput& input) {
  return input.page ? Path(path) += fmt::format("[{}]", *input.page) : path;
}

/// Puts the completed parameters of the record into a step, so that a default that has changed since does not matter,
/// and names what the workflow file says otherwise.
void take_recorded_params(model::OperationConfig& step, const RecordedStep& recorded,
                          const std::optional<model::ParameterList>& parameters, const std::string& place,
                          std::vector<Difference>& differences) {
  if (!parameters || !step.params.is_object() || !recorded.params.is_object()) return;
  for (const auto& [name, value] : step.params.items()) {
    Value completed;
    try {
      completed = model::validate_parameters(step.op, *parameters, {{name, value}}).at(name);
    } catch (const std::invalid_argument&) {
      return;  // it could not be completed when it ran, and will fail in the same way
    }
    const auto there = recorded.params.find(name);
    if (there != recorded.params.end() && *there == completed) continue;
    differences.push_back({.file = "workflow.yaml",
                           .place = fmt::format("{}.params.{}", place, name),
                           .text = fmt::format("is {}, but provenance.json has {}", common::json_line(completed),
                                               there == recorded.params.end() ? "none" : common::json_line(*there))});
    return;
  }
  step.params = recorded.params;
}

std::optional<model::ParameterList> parameters_of(const model::MaskOperationConfig& step) {
  const model::MaskOperationInfo* const info = model::find_mask_operation(step.op);
  return info == nullptr ? std::nullopt : std::optional(info->all_parameters());
}

std::optional<model::ParameterList> parameters_of(const model::ResultOperationConfig& step) {
  const model::ResultOperationInfo* const info = model::get_result_operation_info(step.op);
  return info == nullptr ? std::nullopt : std::optional(info->parameters);
}

void take_recorded_steps(auto& steps, const std::vector<RecordedStep>& recorded, const std::string& list,
                         std::vector<Difference>& differences) {
  std::set<std::string> measured;
  std::size_t next = 0;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    // A result operation that stands there again is not run, and not recorded, again.
    if (list == "result_operations" && !measured.insert(steps[i].op).second) continue;
    const std::string place = fmt::format("{}[{}]", list, i);
    if (next == recorded.size() || recorded[next].op != steps[i].op) {
      differences.push_back({.file = "workflow.yaml",
                             .place = place,
                             .text = fmt::format("is {}, but provenance.json has {}", steps[i].op,
                                                 next == recorded.size() ? "no such step" : recorded[next].op)});
      return;
    }
    take_recorded_params(steps[i], recorded[next++], parameters_of(steps[i]), place, differences);
  }
  if (next < recorded.size()) {
    differences.push_back({.file = "workflow.yaml",
                           .place = list,
                           .text = fmt::format("has {} steps, but provenance.json has {}", next, recorded.size())});
  }
}

void compare_bands(const std::vector<RecordedStep>& found, const std::vector<RecordedStep>& expected,
                   const std::string& list, std::vector<Difference>& differences) {
  for (std::size_t i = 0; i < std::min(found.size(), expected.size()); ++i) {
    const std::string place = fmt::format("{}[{}].bands", list, i);
    for (Difference& difference : compare_values("provenance.json", found[i].bands, expected[i].bands)) {
      difference.place = place + (difference.place.empty() ? "" : "." + difference.place);
      differences.push_back(std::move(difference));
    }
  }
}

std::vector<OtherVersion> other_versions(const Value& recorded) {
  std::vector<OtherVersion> others;
  const Value now = versions_now();
  for (const auto& [name, version] : recorded.items()) {
    const std::string version_now = now.value(name, "none");
    if (version != version_now) {
      others.push_back({.name = name, .recorded = version.get<std::string>(), .now = version_now});
    }
  }
  return others;
}

std::vector<CheckedInput> checked_inputs(const RunRecord& record, const VerificationRequest& request,
                                         const model::RunContext& context) {
  std::vector<CheckedInput> inputs;
  for (const RecordedInput& input : record.inputs) {
    context.check();
    const Path path = place_now(input, record, request.inputs_folder);
    if (context.progress) {
      context.progress(fmt::format("Checking input {} of {}", inputs.size() + 1, record.inputs.size()));
    }
    inputs.push_back(checked_input(path, input));
  }
  // What parameters name is no part of the capture: workflow.yaml has its absolute path.
  for (const RecordedInput& file : record.files) {
    context.check();
    inputs.push_back(checked_input(file.path, file));
  }
  return inputs;
}

}  // namespace

bool Verification::is_equal() const {
  return failure.empty() && comparison.differences.empty() &&
         std::ranges::all_of(inputs, [](const CheckedInput& input) { return input.problem.empty(); });
}

Verification Controller::verify_results(const VerificationRequest& request) const {
  common::logger.info("Controller.verify_results: Verifying " + common::path_text(request.results_folder));
  const model::RunContext context{.cancel_event = request.cancel_event, .progress = request.progress_cb};
  const RunRecord record = read_run_record(request.results_folder);
  Verification result{.capture = record.capture,
                      .inputs = checked_inputs(record, request, context),
                      .other_versions = other_versions(record.versions)};
  if (const auto missing = std::ranges::count(result.inputs, false, &CheckedInput::is_there); missing > 0) {
    result.failure = fmt::format("The results cannot be computed anew: {} of {} inputs {} missing.", missing,
                                 result.inputs.size(), missing == 1 ? "is" : "are");
    common::logger.error("Controller.verify_results: " + result.failure);
    return result;
  }
  std::vector<Difference> differences;
  try {
    const auto workflow = std::make_shared<model::Workflow>(
        model::Workflow::from_dict(common::load_yaml(request.results_folder / "workflow.yaml")));
    take_recorded_steps(workflow->mask_operations, record.mask_steps, "mask_operations", differences);
    take_recorded_steps(workflow->result_operations, record.result_steps, "result_operations", differences);

    const Path capture_file = loadable(result.inputs.front().path, record.inputs.front());
    const CaptureLoadResult loaded = _do_load_capture(capture_file);
    const TemporaryPlace place;
    const model::RunOutput output = executor->run_and_save({.capture = loaded.capture_set,
                                                            .wf = workflow,
                                                            .output_base_dir = place.path(),
                                                            .capture_name = record.capture,
                                                            .progress_cb = request.progress_cb,
                                                            .cancel_event = request.cancel_event});
    const RunRecord again = read_run_record(output.results_folder);
    compare_bands(record.mask_steps, again.mask_steps, "mask_operations", differences);
    compare_bands(record.result_steps, again.result_steps, "result_operations", differences);
    if (context.progress) context.progress("Comparing the results");
    result.comparison = compare_results(request.results_folder, output.results_folder, context);
  } catch (const model::CancelledError&) {
    throw;
  } catch (...) {
    result.failure = model::failure_text();
    common::logger.error("Controller.verify_results: " + result.failure);
  }
  auto& all = result.comparison.differences;
  all.insert(all.begin(), differences.begin(), differences.end());
  return result;
}

}  // namespace orvexa::controller
