#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "orvexa/common/ordered_map.h"
#include "orvexa/common/value.h"
#include "orvexa/model/entities/result_bundle.h"

namespace orvexa::controller {

/// A file of a batch whose results were written.
struct BatchFileSuccess {
  std::string file;           ///< as it was given
  std::string output_folder;  ///< its results folder
  /// Result operation to the sentence that says why it failed; the others of the file are there.
  common::OrderedMap<std::string> operation_errors;
  /// What its mask steps remarked, such as a picture without contrast. Not part of the map.
  std::vector<model::MaskNote> mask_notes = {};
};

/// A file of a batch without results.
struct BatchFileFailure {
  std::string file;
  std::string error;
  bool is_interrupted = false;  ///< nothing is wrong with it: a cancellation met it at work. Not part of the map
};

using BatchFileEntry = std::variant<BatchFileSuccess, BatchFileFailure>;

/// What became of a batch. Files that a cancellation left out are in neither list.
struct BatchSummary {
  int total_files = 0;
  std::vector<BatchFileSuccess> successful_files;
  std::vector<BatchFileFailure> failed_files;
  std::vector<std::string> errors;            ///< of the run as a whole: no workflow, cancelled
  std::optional<std::string> batch_folder;    ///< absent when the run was refused
  std::optional<std::string> workflow_title;  ///< likewise
  /// Each once: log lines about a report or a line of the journal that could not be written, and about rows that are
  /// missing from the table. They change nothing of the run's result and are not part of the map.
  std::vector<std::string> unwritten;

  /// The summary as a map with these names as keys, in this order; absent fields are left out.
  [[nodiscard]] common::Value to_value() const;
};

/// Number of the file being worked on (from 1), number of files, name of the file.
using BatchProgressCallback = std::function<void(int current, int total, const std::string& filename)>;
/// Gets a copy of a file's entry as soon as the file is done.
using BatchFileCallback = std::function<void(const BatchFileEntry&)>;

}  // namespace orvexa::controller
