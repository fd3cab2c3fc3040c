#include "orvexa/cli/batch_plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <utility>

#include "orvexa/cli/command_info.h"
#include "orvexa/cli/interrupt.h"
#include "orvexa/common/files.h"
#include "orvexa/common/text.h"

namespace orvexa::cli {

namespace {

namespace fs = std::filesystem;
using common::Path;
using common::path_text;
using controller::BatchJournal;

/// Without a separator at its end, which would hide its name and its parent.
Path whole_path(const std::string& folder) {
  const Path path = fs::absolute(folder).lexically_normal();
  return path.has_filename() ? path : path.parent_path();
}

BatchJournal journal_of(const Path& run_folder) try {
  return controller::read_batch_journal(run_folder);
} catch (const std::runtime_error& failure) {
  throw UsageError(failure.what());
}

/// Inputs that the earlier run did not know.
void add_new_files(controller::BatchResumption& resumption, const std::vector<Path>& inputs) {
  std::set<Path> known(resumption.earlier.selection.begin(), resumption.earlier.selection.end());
  for (const Path& input : inputs) {
    const Path file = fs::absolute(input).lexically_normal();
    if (!known.insert(file).second) continue;
    resumption.to_do.push_back(file);
    resumption.earlier.selection.push_back(file);
  }
}

BatchPlan plan_of_resumption(const controller::Controller& controller, const BatchArguments& arguments) {
  const Path run_folder = whole_path(arguments.resume);
  const BatchJournal journal = journal_of(run_folder);
  try {
    controller::expect_same_workflow(journal, *controller.state.current_workflow);
  } catch (const std::runtime_error& failure) {
    throw UsageError(failure.what());
  }
  controller::BatchResumption resumption = controller::plan_batch_resumption(journal, &interrupt_event());
  BatchPlan plan;
  if (!arguments.inputs.empty()) {
    BatchSelection selection = select_batch_files(controller, arguments.inputs, arguments.search);
    add_new_files(resumption, selection.files);
    plan.remarks = std::move(selection.remarks);
  }
  for (const Path& file : resumption.changed) {
    plan.remarks.push_back(
        fmt::format("{}: its files changed or its results are gone, so it is done again.", path_text(file)));
  }
  plan.remarks.push_back(fmt::format("{} of {} files are done already.", resumption.earlier.entries.size(),
                                     resumption.earlier.selection.size()));
  plan.files = std::move(resumption.to_do);
  plan.earlier = std::move(resumption.earlier);
  plan.output_folder = run_folder.parent_path();
  // A run that died after its last file has no reports yet.
  if (plan.files.empty() && fs::exists(run_folder / "batch_summary.txt")) plan.finished_in = run_folder;
  return plan;
}

BatchPlan plan_of_failed_files(const BatchArguments& arguments) {
  const Path run_folder = whole_path(arguments.failed_of);
  BatchPlan plan;
  plan.files = controller::failed_files(journal_of(run_folder));
  plan.output_folder = run_folder.parent_path();
  if (plan.files.empty()) {
    plan.remarks.push_back(fmt::format("{}: no file of this batch failed.", path_text(run_folder)));
    plan.finished_in = run_folder;
  }
  return plan;
}

BatchPlan plan_of_inputs(const controller::Controller& controller, const BatchArguments& arguments) {
  BatchSelection selection = select_batch_files(controller, arguments.inputs, arguments.search);
  BatchPlan plan;
  plan.files = std::move(selection.files);
  plan.remarks = std::move(selection.remarks);
  return plan;
}

}  // namespace

BatchPlan plan_batch(const controller::Controller& controller, const BatchArguments& arguments) {
  BatchPlan plan;
  if (!arguments.resume.empty()) {
    plan = plan_of_resumption(controller, arguments);
  } else if (!arguments.failed_of.empty()) {
    plan = plan_of_failed_files(arguments);
  } else {
    plan = plan_of_inputs(controller, arguments);
  }
  if (!arguments.output_folder.empty()) plan.output_folder = arguments.output_folder;
  return plan;
}

}  // namespace orvexa::cli
