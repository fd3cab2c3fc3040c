#include "orvexa/model/workflow/executor.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <new>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "orvexa/common/clock.h"
#include "orvexa/common/files.h"
#include "orvexa/common/parallel.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/model/mask_operations/registry.h"
#include "orvexa/model/measures/region_set.h"
#include "orvexa/model/pictures/viewing.h"
#include "orvexa/model/result_operations/registry.h"
#include "orvexa/model/run_context.h"
#include "orvexa/model/workflow/metrics_files.h"
#include "orvexa/model/workflow/parameter_files.h"
#include "orvexa/model/workflow/provenance.h"
#include "orvexa/model/workflow/results_folder.h"

namespace orvexa::model {

using common::OrderedMap;
using common::Path;

namespace {

void report(const ProgressCallback& progress, const std::string& text) {
  if (progress) progress(text);
}

/// What a mask step made, for whoever wants to keep it.
struct MaskStep {
  std::size_t index;
  const MaskOperation& operation;
  const Mask& mask;
};

/// Runs the first `count` mask steps: each gets the mask of the one before it.
Mask run_mask_steps(const CaptureSet& capture, const Workflow& workflow, std::size_t count, const RunContext& context,
                    const std::function<void(const MaskStep&)>& keep) {
  const ImageStack images = capture.image_stack();
  std::optional<Mask> mask;
  for (std::size_t index = 0; index < count; ++index) {
    const MaskOperationConfig& step = workflow.mask_operations[index];
    context.check();
    report(context.progress, fmt::format("Mask {} of {}: {}", index + 1, count, step.op));
    try {
      const auto operation = get_mask_operation(step.op)();
      operation->set_context(context);
      operation->wants_overlay = false;
      mask = operation->apply({.image_stack = images,
                               .current_mask = mask,
                               .params = resolved_mask_params(step.op, step.params, workflow.folder)});
      if (!mask) throw std::runtime_error("It gave no mask.");
      context.check();
      keep({index, *operation, *mask});
    } catch (const CancelledError&) {
      throw;
    } catch (...) {
      throw std::runtime_error(fmt::format("Mask step {} ({}) failed: {}", index + 1, step.op, failure_text()));
    }
  }
  return mask ? *mask : Mask::full(images.get_shape());
}

/// Ends a run that cannot succeed before it has made anything. What is wrong with a result operation is not a reason:
/// it becomes that operation's error.
void expect_workflow_can_run(const Workflow& workflow) {
  std::vector<std::string> problems;
  for (const WorkflowProblem& problem : check_workflow(workflow)) {
    if (!problem.place || problem.place->is_mask) problems.push_back(problem.step + ": " + problem.text);
  }
  if (!problems.empty()) throw std::runtime_error(common::joined(problems, " "));
}

std::string listed(const std::vector<std::string>& names, std::string_view last_separator) {
  std::string text;
  for (std::size_t index = 0; index < names.size(); ++index) {
    if (index > 0) text += index + 1 == names.size() ? last_separator : ", ";
    text += names[index];
  }
  return text;
}

/// @throws std::runtime_error with a sentence when the capture lacks a measurement, or the workflow a mask operation,
/// that the result operation declares to need.
void expect_requirements(const ResultOperationInfo& info, const CaptureSet& capture, const Workflow& workflow) {
  const auto has = [&](const std::string& measurement) { return capture.measurements.contains(measurement); };
  const auto lacks = [&](const std::string& wanted) {
    return std::runtime_error(fmt::format("{} needs the measurement {}; this capture has {}.", info.key, wanted,
                                          listed(capture.get_measurement_types(), " and ")));
  };
  if (info.required_measurements && !info.required_measurements->empty()) {
    if (const auto* choice = std::get_if<std::vector<std::string>>(&info.required_measurements->front())) {
      if (std::none_of(choice->begin(), choice->end(), has)) throw lacks(listed(*choice, " or "));
    } else {
      for (const MeasurementRequirement& requirement : *info.required_measurements) {
        const auto* name = std::get_if<std::string>(&requirement);
        if (name != nullptr && !has(*name)) throw lacks(*name);
      }
    }
  }
  const auto& patterns = info.operation_class._requires_mask_operation;
  if (!patterns || patterns->empty()) return;
  for (const MaskOperationConfig& step : workflow.mask_operations) {
    for (const std::string& pattern : *patterns) {
      if (common::fnmatch(step.op, pattern)) return;
    }
  }
  throw std::runtime_error(
      fmt::format("{} needs a mask made by {}; the workflow has no such step.", info.key, listed(*patterns, " or ")));
}

/// Measures; whatever goes wrong but a cancellation ends up under `error`. `record` gets the completed parameters.
OperationResult run_result_operation(const ResultOperationConfig& step, const CaptureSet& masked,
                                     const Workflow& workflow, const RegionSet& regions, const RunContext& context,
                                     StepRecord& record) {
  OperationResult result;
  try {
    const ResultOperationInfo& info = get_result_operation(step.op);
    const auto operation = info();
    operation->set_context(context);
    const Value params = resolved_result_params(step.op, step.params, workflow.folder);
    record.params = operation->validate_params(params);
    expect_requirements(info, masked, workflow);
    result = operation->run({.source_capture = masked, .params = params, .regions = &regions});
    drop_values_that_are_no_numbers(result);
    record.chosen_bands = result.chosen_bands;
  } catch (const CancelledError&) {
    throw;
  } catch (...) {
    result = {};
    result.error = failure_text();
  }
  return result;
}

ResultBundle run_result_operations(const CaptureSet& masked, const Workflow& workflow, const RegionSet& regions,
                                   const RunContext& context, std::vector<StepRecord>& records) {
  ResultBundle bundle;
  const auto& steps = workflow.result_operations;
  for (std::size_t index = 0; index < steps.size(); ++index) {
    const ResultOperationConfig& step = steps[index];
    context.check();
    report(context.progress, fmt::format("Result {} of {}: {}", index + 1, steps.size(), step.op));
    auto earlier = bundle.results.find(step.op);
    if (earlier != bundle.results.end()) {
      std::optional<std::string>& error = earlier.value().error;
      error = (error ? *error + " " : "") +
              fmt::format("{} stands in the workflow more than once; only the first one was measured.", step.op);
      continue;
    }
    records.push_back({.op = step.op, .params = step.params});
    bundle.results.insert({step.op, run_result_operation(step, masked, workflow, regions, context, records.back())});
    context.check();
  }
  return bundle;
}

/// A file of a run: how its content is made, and how large it may become.
struct OutputFile {
  std::vector<Path> paths;  ///< the same content goes to each
  std::uintmax_t largest_bytes = 0;
  std::function<common::Bytes(const RunContext&)> content;
};

/// Everything a run found.
struct RunFindings {
  std::vector<std::pair<std::string, Mask>> step_masks;  ///< operation and its accumulated mask
  Mask final_mask;
  RegionSet regions;
  MetricsReport report;
};

bool wants(const Workflow& workflow, std::string_view output) {
  if (!workflow.outputs) return true;
  return std::any_of(workflow.outputs->begin(), workflow.outputs->end(),
                     [&](const Value& chosen) { return chosen.is_string() && chosen.get<std::string>() == output; });
}

/// What an uncompressed file of so many bytes may need at most once encoded.
std::uintmax_t encoded_at_most(std::int64_t bytes) {
  constexpr std::uintmax_t headers = 4096;
  return static_cast<std::uintmax_t>(bytes) + static_cast<std::uintmax_t>(bytes) / 64 + headers;
}

OutputFile text_file(Path path, std::string text) {
  const std::uintmax_t size = text.size();
  return {.paths = {std::move(path)}, .largest_bytes = size, .content = [text = std::move(text)](const RunContext&) {
            const auto bytes = common::as_byte_span(text);
            return common::Bytes(bytes.begin(), bytes.end());
          }};
}

OutputFile mask_file(std::vector<Path> paths, const Mask& mask) {
  const std::uintmax_t size = encoded_at_most(mask.shape().pixels() / 8 + mask.shape().height);
  return {.paths = std::move(paths), .largest_bytes = size, .content = [mask](const RunContext& context) {
            return encode_mask_png(mask, context);
          }};
}

OutputFile tiff_file(Path path, const Image& image) {
  return {.paths = {std::move(path)},
          .largest_bytes = encoded_at_most(static_cast<std::int64_t>(image.bytes())),
          .content = [image](const RunContext& context) { return encode_tiff(image, context); }};
}

template <typename T>
Image region_numbers(const RegionSet& regions, const RunContext& context) {
  const Shape shape = regions.shape();
  cv::Mat numbers(shape.height, shape.width, cv::DataType<T>::type);
  for_each_stripe(shape.height, shape.width, context, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      const std::uint8_t* mask = regions.mask().row(y).data();
      const std::int32_t* labels = regions.label_row(y).data();
      T* out = numbers.ptr<T>(y);
      for (int x = 0; x < shape.width; ++x) out[x] = mask[x] != 0 ? static_cast<T>(labels[x]) : T{0};
    }
  });
  return Image(std::move(numbers));
}

/// The number of the region at each pixel, 0 where there is none: 16-bit as long as the numbers fit.
Image region_image(const RegionSet& regions, const RunContext& context) {
  const bool fits = regions.regions().size() <= std::numeric_limits<std::uint16_t>::max();
  return fits ? region_numbers<std::uint16_t>(regions, context) : region_numbers<float>(regions, context);
}

void add_masks(const RunFindings& found, std::vector<OutputFile>& files) {
  const Path folder = "masks";
  for (std::size_t index = 0; index < found.step_masks.size(); ++index) {
    const auto& [op, mask] = found.step_masks[index];
    std::vector<Path> paths{folder / fmt::format("{:02}_{}.png", index, common::safe_file_name(op))};
    if (index + 1 == found.step_masks.size()) paths.push_back(folder / "final.png");
    files.push_back(mask_file(std::move(paths), mask));
  }
  if (found.step_masks.empty()) files.push_back(mask_file({folder / "final.png"}, found.final_mask));
  if (!found.regions.is_single()) {
    files.push_back({.paths = {folder / "regions.tif"},
                     .largest_bytes = encoded_at_most(found.final_mask.shape().pixels() * 4),
                     .content = [&found](const RunContext& context) {
                       return encode_tiff(region_image(found.regions, context), context);
                     }});
  }
}

void add_overlays(const CaptureSet& capture, const RunFindings& found, std::vector<OutputFile>& files) {
  FileNames names;
  for (const auto& [measurement_name, measurement] : capture.measurements) {
    for (const auto& [image_name, image] : measurement->images) {
      if (!image.is_array()) continue;
      files.push_back(
          {.paths = {Path("overlays") / (names.unique(fmt::format("{}_{}", measurement_name, image_name)) + ".png")},
           .largest_bytes = encoded_at_most(found.final_mask.shape().pixels() * 3),
           .content = [base = image.base(), mask = found.final_mask](const RunContext& context) {
             return encode_rgb_png(base.shape(), overlay_rows(base, mask), context);
           }});
    }
  }
}

void add_images(const ResultBundle& bundle, std::vector<OutputFile>& files) {
  FileNames names;
  for (const auto& [operation, result] : bundle.results) {
    for (const auto& [image_name, image] : result.images) {
      const Path path = Path("images") / names.unique(fmt::format("{}_{}", operation, image_name));
      files.push_back(
          {.paths = {Path(path) += ".png"},
           .largest_bytes = encoded_at_most(static_cast<std::int64_t>(image.picture.bytes())),
           .content = [picture = image.picture](const RunContext& context) { return encode_png(picture, context); }});
      if (image.numbers) files.push_back(tiff_file(Path(path) += ".tif", *image.numbers));
    }
  }
}

void add_numbers(const MetricsReport& report, std::vector<OutputFile>& files) {
  files.push_back(text_file("metrics.json", common::json_text(metrics_document(report))));
  files.push_back(text_file("metrics.tsv", metrics_table(report)));
  FileNames names;
  for (const auto& [operation, result] : report.bundle.results) {
    for (const auto& [table_name, table] : result.tables) {
      files.push_back(text_file(Path("tables") / (names.unique(fmt::format("{}_{}", operation, table_name)) + ".tsv"),
                                table_text(table)));
    }
  }
}

std::vector<OutputFile> output_files(const CaptureSet& capture, const Workflow& workflow, const RunFindings& found) {
  std::vector<OutputFile> files;
  // The slowest come first, so that no thread is left with one of them at the end.
  if (wants(workflow, "overlays")) add_overlays(capture, found, files);
  if (wants(workflow, "images")) add_images(found.report.bundle, files);
  if (wants(workflow, "masks")) add_masks(found, files);
  if (wants(workflow, "numbers")) add_numbers(found.report, files);
  files.push_back(text_file("workflow.yaml", common::yaml_text(with_resolved_files(workflow).to_dict())));
  return files;
}

/// Encodes and writes side by side; a thread holds one encoded file at a time.
void write_files(ResultsFolder& folder, const std::vector<OutputFile>& files, const RunContext& context) {
  std::uintmax_t needed = 1 << 16;  // the provenance, which is not written yet, and the folders
  for (const OutputFile& file : files) needed += file.largest_bytes * file.paths.size();
  folder.expect_free_space(needed);
  common::parallel_for(files.size(), [&](std::size_t index) {
    context.check();
    const common::Bytes content = files[index].content(context);
    for (const Path& path : files[index].paths) folder.write(path, content, context);
  });
}

RunOutput run_and_save_checked(const Executor::Run& run) {
  const CaptureSet& capture = *run.capture;
  const Workflow& workflow = *run.wf;
  const RunContext context{.cancel_event = run.cancel_event, .progress = run.progress_cb};
  context.check();
  expect_workflow_can_run(workflow);
  ProvenanceRecord record = begun_record(capture, workflow, run.capture_name);
  // Made before the work, so that a folder that cannot be written to is known before minutes were spent.
  ResultsFolder folder(run.output_base_dir, run.capture_name);

  std::vector<std::pair<std::string, Mask>> step_masks;
  std::vector<MaskNote> notes;
  const Mask final_mask =
      run_mask_steps(capture, workflow, workflow.mask_operations.size(), context, [&](const MaskStep& step) {
        const MaskOperationConfig& config = workflow.mask_operations[step.index];
        step_masks.emplace_back(config.op, step.mask);
        if (!step.operation.note.empty()) {
          notes.push_back({.step = static_cast<int>(step.index), .op = config.op, .text = step.operation.note});
        }
        record.mask_steps.push_back(
            {.op = config.op,
             .params = step.operation.validate_params(resolved_mask_params(config.op, config.params, workflow.folder)),
             .chosen_bands = step.operation.chosen_bands});
      });

  RunFindings found{.step_masks = std::move(step_masks),
                    .final_mask = final_mask,
                    .regions = RegionSet(final_mask, context),
                    .report = {.capture_name = common::to_valid_utf8(run.capture_name),
                               .workflow_title = workflow.title,
                               .mask_notes = std::move(notes)}};
  if (capture.header) {
    std::tie(found.report.date, found.report.time) = capture.header->get_capture_name_and_time();
  }
  const auto masked = capture.apply_mask(final_mask);
  found.report.bundle = run_result_operations(*masked, workflow, found.regions, context, record.result_steps);
  std::vector<std::string> region_names;
  for (const Region& region : found.regions.regions()) region_names.push_back(region.name);
  found.report.regions = gather_regions(region_names, found.report.bundle);

  context.check();
  report(context.progress, "Saving results");
  write_files(folder, output_files(capture, workflow, found), context);
  record.finished = common::now();
  folder.write("provenance.json", common::as_byte_span(common::json_text(provenance_document(record))), context);
  context.check();

  RunOutput output;
  for (const auto& [name, region] : found.report.regions) output.region_metrics.insert({name, region.metrics});
  output.bundle = std::move(found.report.bundle);
  output.mask_notes = std::move(found.report.mask_notes);
  output.results_folder = folder.publish();
  return output;
}

}  // namespace

Mask Executor::build_mask(const CaptureSet& capture, const Workflow& workflow, std::optional<int> until_index,
                          const common::CancelEvent* cancel_event) {
  std::size_t count = workflow.mask_operations.size();
  if (until_index) {
    if (*until_index < 0 || static_cast<std::size_t>(*until_index) >= count) {
      throw std::out_of_range(
          fmt::format("The workflow has no mask step with index {}: it has {}.", *until_index, count));
    }
    count = static_cast<std::size_t>(*until_index) + 1;
  }
  return run_mask_steps(capture, workflow, count, {.cancel_event = cancel_event, .progress = {}},
                        [](const MaskStep&) {});
}

RunOutput Executor::run_and_save(const Run& run) {
  if (!run.capture) throw std::invalid_argument("There is no capture to run the workflow on.");
  if (!run.wf) throw std::invalid_argument("There is no workflow to run.");
  try {
    return run_and_save_checked(run);
  } catch (const std::bad_alloc&) {
    throw std::runtime_error(
        fmt::format("There is not enough memory for the results of \"{}\".", common::to_valid_utf8(run.capture_name)));
  } catch (const cv::Exception&) {
    throw std::runtime_error(failure_text());
  }
}

}  // namespace orvexa::model
