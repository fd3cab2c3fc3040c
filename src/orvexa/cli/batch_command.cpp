#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <utility>
#include <variant>

#include "orvexa/cli/batch_plan.h"
#include "orvexa/cli/batch_progress.h"
#include "orvexa/cli/batch_report.h"
#include "orvexa/cli/commands.h"
#include "orvexa/cli/interrupt.h"
#include "orvexa/cli/session.h"
#include "orvexa/cli/workflow_problems.h"
#include "orvexa/common/files.h"
#include "orvexa/common/logger.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/run_context.h"
#include "orvexa/model/workflow/results_folder.h"

namespace orvexa::cli {

namespace {

using controller::BatchFileEntry;
using controller::BatchFileFailure;
using controller::BatchFileSuccess;
using controller::Controller;

/// The call, once it is known to make sense.
BatchArguments arguments_of(const GivenWords& given) {
  BatchArguments arguments{.workflow = given.text("WORKFLOW"),
                           .inputs = given.texts("INPUT"),
                           .output_folder = given.text("--output"),
                           .resume = given.text("--resume"),
                           .failed_of = given.text("--failed-of"),
                           .dry_run = given.flag("--dry-run")};
  if (given.has("--resume") && given.has("--failed-of")) {
    throw UsageError("orvexa batch: --resume and --failed-of cannot be given together.");
  }
  if (given.flag("--captures") && given.flag("--images")) {
    throw UsageError(
        "orvexa batch: --captures and --images cannot be given together; without them a folder's captures are taken, "
        "and its images where it has no captures.");
  }
  if (given.flag("--captures")) arguments.search = FolderSearch::captures;
  if (given.flag("--images")) arguments.search = FolderSearch::images;
  if (given.has("--failed-of") && given.has("INPUT")) {
    throw UsageError("orvexa batch: with --failed-of the files come from the run folder, so no INPUT can be given.");
  }
  if (given.has("--resume") || given.has("--failed-of")) return arguments;
  if (!given.has("INPUT")) throw UsageError("orvexa batch: INPUT is missing; see orvexa batch --help.");
  if (!given.has("--output") && !arguments.dry_run) {
    throw UsageError("orvexa batch: the option -o DIR is missing; see orvexa batch --help.");
  }
  return arguments;
}

BatchOutcome run_batch(Console& console, Controller& controller, const BatchPlan& plan) {
  BatchOutcome outcome;
  outcome.taken_over = plan.earlier.entries.size();
  BatchProgress progress(console, static_cast<int>(plan.files.size()));
  const auto file_done = [&](const BatchFileEntry& entry) {
    if (const auto* failure = std::get_if<BatchFileFailure>(&entry)) {
      const std::string sentence = failure_sentence(*failure, controller.state.error.value_or(""));
      outcome.reasons[failure->file] = sentence;
      if (failure->is_interrupted) {
        progress.file_interrupted(failure->file);
      } else {
        progress.file_failed(sentence);
      }
    } else {
      const auto& success = std::get<BatchFileSuccess>(entry);
      progress.file_succeeded(success.file, operation_errors_text(success));
    }
  };
  outcome.summary = controller.run_batch_processing({
      .selected_files = plan.files,
      .output_folder = plan.output_folder,
      .progress_callback = [&](int, int, const std::string& name) { progress.file_begins(name); },
      .overlay_progress_cb = [&](const std::string& text) { progress.step(text); },
      .cancel_event = &interrupt_event(),
      .batch_file_done = file_done,
      .earlier = plan.earlier,
  });
  console.end_progress();
  outcome.seconds = progress.pace().seconds();
  outcome.is_interrupted = interrupt_event().is_set() && outcome.summary.successful_files.size() < plan.files.size();
  return outcome;
}

int report(Console& console, const BatchOutcome& outcome) {
  const std::string folder = outcome.summary.batch_folder.value_or("");
  if (console.quiet) {
    for (const BatchFileFailure& failure : outcome.summary.failed_files) {
      if (!failure.is_interrupted) console.error(outcome.reasons.at(failure.file));
    }
    for (const BatchFileSuccess& success : outcome.summary.successful_files) {
      if (!success.operation_errors.empty()) console.error(success.file + ": " + operation_errors_text(success));
    }
  }
  for (const std::string& sentence : outcome.summary.unwritten) console.error(sentence);
  if (console.json) {
    console.answer_json(batch_report_document(outcome));
  } else if (console.quiet) {
    console.answer(folder + "\n");
  } else {
    console.answer(batch_report_text(outcome));
  }
  if (outcome.is_interrupted) {
    console.error(fmt::format("Interrupted; the same workflow with --resume \"{}\" does the rest.", folder));
  }
  return outcome.exit_code();
}

/// What would be done.
void show_plan(Console& console, const Controller& controller, const BatchPlan& plan) {
  if (console.json) {
    common::Value files = common::Value::array();
    for (const common::Path& file : plan.files) files.push_back(common::path_text(file));
    console.answer_json({{"workflow_title", common::to_valid_utf8(controller.state.current_workflow->title)},
                         {"output_folder", common::path_text(plan.output_folder)},
                         {"done_before", plan.earlier.entries.size()},
                         {"files", std::move(files)}});
    return;
  }
  std::string text;
  for (const common::Path& file : plan.files) text += common::visible_text(common::path_text(file)) + "\n";
  console.answer(text);
  console.remark(fmt::format("Files to run: {}; nothing was written.", plan.files.size()));
}

int batch_command(Console& console, const GivenWords& given) {
  handle_interrupts();
  const BatchArguments arguments = arguments_of(given);
  if (!is_fit_to_run(console, arguments.workflow)) return exit_failed;

  Controller controller;
  controller.set_processing_mode("batch");
  load_workflow(controller, arguments.workflow);
  BatchPlan plan;
  try {
    console.progress("Looking for the files");
    plan = plan_batch(controller, arguments);
  } catch (const model::CancelledError&) {
    return answer_interrupted(console, "Interrupted; no batch was begun.");
  }
  for (const std::string& remark : plan.remarks) console.remark(remark);
  if (controller.state.current_workflow->result_operations.empty()) {
    console.remark("The workflow has no result operations: only its masks are applied.");
  }
  if (arguments.dry_run) {
    show_plan(console, controller, plan);
    return exit_done;
  }
  if (plan.finished_in) {
    console.remark("There is nothing left to do.");
    BatchOutcome outcome;
    outcome.summary.batch_folder = plan.finished_in->string();
    outcome.summary.workflow_title = controller.state.current_workflow->title;
    outcome.taken_over = plan.earlier.entries.size();
    return report(console, outcome);
  }
  // A run that was killed may have left the folder that it was filling.
  if (!arguments.resume.empty()) model::remove_left_over_results(arguments.resume);
  return report(console, run_batch(console, controller, plan));
}

}  // namespace

const CommandInfo& batch_command_info() {
  static const CommandInfo info{
      .name = "batch",
      .summary = "Run a workflow on many captures and write one table of all",
      .arguments = {{.name = "WORKFLOW", .help = "A workflow file", .kind = WordKind::file},
                    {.name = "INPUT",
                     .help = "Folders and files. Of a folder the captures (HDR_*.INF) directly inside it are taken, or "
                             "its image files where it has no captures",
                     .kind = WordKind::file,
                     .may_be_left_out = true,
                     .repeats = true}},
      .options = {{.name = "--output",
                   .letter = "-o",
                   .value = "DIR",
                   .help = "The folder to make the run folder in; it may be left out with --resume and --failed-of, "
                           "which make theirs beside RUN_FOLDER",
                   .kind = WordKind::folder},
                  {.name = "--captures", .help = "Of folders take captures only"},
                  {.name = "--images", .help = "Of folders take image files only"},
                  {.name = "--resume",
                   .value = "RUN_FOLDER",
                   .help = "Do what an earlier run of the same workflow did not do or failed to do, and files of INPUT "
                           "that it did not know, and write the table of both",
                   .kind = WordKind::folder},
                  {.name = "--failed-of",
                   .value = "RUN_FOLDER",
                   .help = "Run the files that failed in an earlier run, also with another workflow",
                   .kind = WordKind::folder},
                  {.name = "--dry-run", .help = "Check the workflow and list the files, and write nothing"}},
      .remarks =
          "A folder batch_results_TIME is made inside DIR: a results folder for each capture, one table of all,\n"
          "a summary and a journal. A file that fails is listed and the others go on.\n"
          "Exit codes: 0 all done; 1 some files or operations failed; 2 wrong usage; 3 nothing succeeded;\n"
          "130 interrupted: the step at work is finished and the reports are written (a second interrupt\n"
          "ends at once).\n",
      .examples = {"orvexa batch leaves.yaml captures -o results",
                   "orvexa batch leaves.yaml --resume results/batch_results_20240131154502"},
      .run = batch_command};
  return info;
}

}  // namespace orvexa::cli
