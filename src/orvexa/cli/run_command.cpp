#include <fmt/format.h>

#include <filesystem>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/interrupt.h"
#include "orvexa/cli/mask_notes.h"
#include "orvexa/cli/run_part.h"
#include "orvexa/cli/session.h"
#include "orvexa/cli/workflow_problems.h"
#include "orvexa/common/files.h"
#include "orvexa/common/ordered_map.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/workflow/metrics_files.h"

namespace orvexa::cli {

namespace {

/// The table on the screen is short; the files in the results folder hold everything.
constexpr std::size_t rows_per_operation = 6;

constexpr const char* not_done = "Interrupted; no results were written.";

common::Value region_document(const model::RegionResult& region) {
  return {{"metrics", region.metrics}, {"reasons", region.reasons}};
}

}  // namespace

common::Value results_document(const model::ResultMap& results) {
  common::Value document = common::Value::object();
  for (const auto& [key, result] : results) {
    common::Value entry = {{"metrics", result.metrics}, {"units", result.units}, {"reasons", result.reasons}};
    if (result.error) entry["error"] = common::to_valid_utf8(*result.error);
    common::Value regions = common::Value::object();
    for (const auto& [name, region] : result.regions) regions[name] = region_document(region);
    entry["regions"] = std::move(regions);
    document[key] = std::move(entry);
  }
  return document;
}

common::OrderedMap<std::vector<std::string>> names_by_reason(const common::Value& reasons) {
  common::OrderedMap<std::vector<std::string>> names;
  for (const auto& [name, reason] : reasons.items()) names[common::scalar_text(reason)].push_back(name);
  return names;
}

/// Metrics over the whole mask: operation, metric, value, unit; undefined ones have their reason instead.
std::string results_text(const model::ResultMap& results) {
  TextTable table({false, false, true});
  for (const auto& [key, result] : results) {
    std::vector<std::vector<std::string>> rows;
    if (result.metrics.is_object()) {
      for (const auto& [name, value] : result.metrics.items()) {
        if (value.is_structured()) continue;
        rows.push_back({"", name, short_value_text(value), result.units.value(name, "")});
      }
    }
    if (rows.size() > rows_per_operation) {
      const std::size_t left_out = rows.size() - rows_per_operation;
      rows.resize(rows_per_operation);
      rows.push_back({"", fmt::format("and {} more in metrics.json", left_out)});
    }
    // Every reason once, whatever the number of metrics: an index or a band that is missing is not to be overlooked.
    for (const auto& [reason, names] : names_by_reason(result.reasons)) {
      const std::string more = names.size() > 1 ? fmt::format(" and {} more", names.size() - 1) : "";
      rows.push_back({"", names.front() + more, "-", common::visible_text(reason)});
    }
    if (!rows.empty()) rows.front().front() = key;
    for (auto& row : rows) table.add(std::move(row));
  }
  return table.text();
}

namespace {

std::size_t region_count(const model::ResultMap& results) {
  std::size_t count = 0;
  for (const auto& [key, result] : results) count = std::max(count, result.regions.size());
  return count;
}

std::string report(const std::string& folder, const std::string& capture, const model::ResultMap& results) {
  std::string text = results_text(results);
  if (!text.empty()) text = fmt::format("{}, over the whole mask:\n\n{}\n", common::visible_text(capture), text);
  if (results.empty()) text = "The workflow has no result operations: only its masks were applied.\n";
  if (const std::size_t count = region_count(results); count > 1) {
    text += fmt::format("{} regions: one row each in metrics.tsv.\n", count);
  }
  return text + fmt::format("Results: {}\n", folder);
}

int run_command(Console& console, const GivenWords& given) {
  handle_interrupts();
  expect_one_part(given);
  const std::string& workflow = given.text("WORKFLOW");
  if (!is_fit_to_run(console, workflow)) return exit_failed;

  controller::Controller controller;
  controller.set_processing_mode("batch");
  load_workflow(controller, workflow);
  console.progress("Loading " + common::path_text(given.text("CAPTURE")));
  load_capture(controller, given.text("CAPTURE"));
  if (interrupt_event().is_set()) return answer_interrupted(console, not_done);
  try {
    if (given.has("--step")) return run_step(console, controller, given);
    if (given.has("--operation")) return run_operation(console, controller, given);
  } catch (const model::CancelledError&) {
    return answer_interrupted(console, not_done);
  }

  const bool is_done = controller.generate_results_v2(
      given.text("--output"), [&](const std::string& text) { console.progress(text); }, &interrupt_event());
  console.end_progress();
  if (!is_done) {
    if (controller.state.error) throw std::runtime_error(*controller.state.error);
    return answer_interrupted(console, not_done);
  }

  for (const model::MaskNote& note : controller.state.last_mask_notes) {
    if (is_warning(note)) console.remark(note_sentence(note));
  }
  const model::ResultMap& results = controller.state.last_results.value();
  bool has_failed = false;
  for (const auto& [key, result] : results) {
    if (!result.error) continue;
    console.error(result.error->starts_with(key) ? *result.error : fmt::format("{}: {}", key, *result.error));
    has_failed = true;
  }
  const std::string folder = common::path_text(controller.state.last_saved_results_folder.value());
  const std::string& capture = controller.state.current_capture->name;
  if (console.json) {
    console.answer_json({{"capture", common::to_valid_utf8(capture)},
                         {"workflow", controller.state.current_workflow->title},
                         {"results_folder", folder},
                         {"results", results_document(results)},
                         {"mask_notes", model::mask_notes_document(controller.state.last_mask_notes)}});
  } else if (console.quiet) {
    console.answer(folder + "\n");
  } else {
    console.answer(report(folder, capture, results));
  }
  return has_failed ? exit_failed : exit_done;
}

}  // namespace

const CommandInfo& run_command_info() {
  static const CommandInfo info{
      .name = "run",
      .summary = "Run a workflow on one capture and write a results folder",
      .arguments = {{.name = "WORKFLOW", .help = "A workflow file", .kind = WordKind::file},
                    {.name = "CAPTURE",
                     .help = "A header file HDR_*.INF, or an ordinary image file",
                     .kind = WordKind::file}},
      .options =
          {{.name = "--output",
            .letter = "-o",
            .value = "DIR",
            .help = "The folder to make the results folder in",
            .kind = WordKind::folder,
            .is_required = true},
           {.name = "--step", .value = "N", .help = "Only what mask step N leaves: the mask and the images under it"},
           {.name = "--operation", .value = "N", .help = "Only what result operation N finds under all mask steps"}},
      .remarks =
          "The results folder is made inside DIR and named after the capture. It appears complete or not at all.\n"
          "Steps are counted from 1, as orvexa workflow show lists them.\n",
      .examples = {"orvexa run leaves.yaml captures/HDR_plot_0007.INF -o results",
                   "orvexa run leaves.yaml captures/HDR_plot_0007.INF -o steps --step 2"},
      .run = run_command};
  return info;
}

}  // namespace orvexa::cli
