#pragma once

#include <optional>
#include <string>
#include <vector>

#include "orvexa/common/files.h"
#include "orvexa/common/value.h"

namespace orvexa::controller {

/// A file that a run read, as its provenance.json has it.
struct RecordedInput {
  common::Path path;
  std::string sha256;
  std::optional<int> page = std::nullopt;  ///< of a multi-page file, where one was asked for
};

/// A step of a run with the parameters that it had, completed.
struct RecordedStep {
  std::string op;
  common::Value params = common::Value::object();
  common::Value bands = common::Value::object();  ///< that it chose
};

/// What a results folder says about the run that made it.
struct RunRecord {
  std::string capture;
  std::vector<RecordedInput> inputs = {};            ///< the file that was loaded first; never empty
  std::vector<RecordedInput> files = {};             ///< that parameters name
  common::Value versions = common::Value::object();  ///< of program, build and libraries, by name
  std::vector<RecordedStep> mask_steps = {};
  std::vector<RecordedStep> result_steps = {};
};

/// From `provenance.json` of a results folder.
/// @throws std::runtime_error with a sentence that names the folder or the file: no results folder, not readable, or an
/// entry that is missing or of another kind.
[[nodiscard]] RunRecord read_run_record(const common::Path& results_folder);

/// What this program would record as `RunRecord::versions`.
[[nodiscard]] common::Value versions_now();

}  // namespace orvexa::controller
