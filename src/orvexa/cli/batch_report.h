#pragma once

#include <map>
#include <string>
#include <vector>

#include "orvexa/cli/batch_pace.h"
#include "orvexa/controller/batch_summary.h"

namespace orvexa::cli {

/// What a batch came to, for the eye and for programs.
struct BatchOutcome {
  controller::BatchSummary summary;
  std::map<std::string, std::string> reasons;  ///< file that failed to the sentence that names it and says why
  std::size_t taken_over = 0;                  ///< files that an earlier run did
  bool is_interrupted = false;
  double seconds = 0;

  [[nodiscard]] std::size_t not_reached() const;
  [[nodiscard]] bool has_operation_errors() const;
  [[nodiscard]] int exit_code() const;
};

/// A sentence that names the file and says why it failed.
/// @param load_error  what the controller's state said of the last file that could not be loaded.
[[nodiscard]] std::string failure_sentence(const controller::BatchFileFailure& failure, const std::string& load_error);

/// What the operations that failed say, one after another; empty when none did.
[[nodiscard]] std::string operation_errors_text(const controller::BatchFileSuccess& success);

/// Failures, operation errors, warnings about masks, and a table of the numbers.
[[nodiscard]] std::string batch_report_text(const BatchOutcome& outcome);

/// The summary map, with what else `BatchOutcome` knows.
[[nodiscard]] common::Value batch_report_document(const BatchOutcome& outcome);

}  // namespace orvexa::cli
