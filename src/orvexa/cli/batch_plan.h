#pragma once

#include <optional>
#include <string>
#include <vector>

#include "orvexa/cli/batch_selection.h"
#include "orvexa/controller/batch_journal.h"
#include "orvexa/controller/controller.h"

namespace orvexa::cli {

/// The call as the user gave it.
struct BatchArguments {
  std::string workflow;
  std::vector<std::string> inputs;
  std::string output_folder;
  FolderSearch search = FolderSearch::captures_else_images;
  std::string resume;     ///< run folder whose batch is gone on with
  std::string failed_of;  ///< run folder whose failed files are run again
  bool dry_run = false;
};

/// What a batch is going to do.
struct BatchPlan {
  std::vector<common::Path> files;
  common::Path output_folder;               ///< the run folder is made inside it
  controller::BatchTakeover earlier;        ///< of the run that is gone on with
  std::vector<std::string> remarks;         ///< sentences for the user
  std::optional<common::Path> finished_in;  ///< the earlier run folder, when there is nothing left to do
};

/// Reads the inputs, or the journal of the run that `--resume` or `--failed-of` names, against the loaded workflow.
/// @throws UsageError with a sentence; model::CancelledError.
[[nodiscard]] BatchPlan plan_batch(const controller::Controller& controller, const BatchArguments& arguments);

}  // namespace orvexa::cli
