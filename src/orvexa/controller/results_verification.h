#pragma once

#include <optional>
#include <string>
#include <vector>

#include "orvexa/common/cancel.h"
#include "orvexa/common/files.h"
#include "orvexa/controller/results_comparison.h"
#include "orvexa/model/workflow/executor.h"

namespace orvexa::controller {

struct VerificationRequest {
  common::Path results_folder;
  /// Where the capture's files lie now; absent = where they lay when the run read them.
  std::optional<common::Path> inputs_folder = std::nullopt;
  model::ProgressCallback progress_cb = {};  ///< may be empty
  const common::CancelEvent* cancel_event = nullptr;
};

/// An input file of the run as it is found now.
struct CheckedInput {
  common::Path path;         ///< where it was looked for
  std::string problem = {};  ///< a sentence when it is not what the run read; empty when it is
  bool is_there = true;
};

/// A version that is another one than when the results were made.
struct OtherVersion {
  std::string name;  ///< "orvexa", "build", "OpenCV", ...
  std::string recorded;
  std::string now;
};

/// What became of the attempt to find the same results again.
struct Verification {
  std::string capture = {};
  std::vector<CheckedInput> inputs = {};
  std::vector<OtherVersion> other_versions = {};
  /// Why nothing could be computed: a sentence; empty when it was.
  std::string failure = {};
  FolderComparison comparison = {};

  /// Every input is what the run read and every result was found again.
  [[nodiscard]] bool is_equal() const;
};

}  // namespace orvexa::controller
