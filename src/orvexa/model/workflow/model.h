#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvexa/common/value.h"

namespace orvexa::model {

using common::Value;

/// The version of the workflow file format that this program writes. Files without a version are older and are read.
inline constexpr int workflow_format = 1;

/// One step of a workflow: the registry key of an operation and its parameters. What a file held is kept as it was,
/// even an unknown operation, a bad value or a further entry (`others`), so that nothing is lost by loading and saving.
struct OperationConfig {
  std::string op;
  Value params = Value::object();
  Value others = Value::object();
  friend bool operator==(const OperationConfig&, const OperationConfig&) = default;
};

struct MaskOperationConfig : OperationConfig {};
struct ResultOperationConfig : OperationConfig {};

/// An ordered chain of mask operations and the result operations that follow. A value: a copy shares nothing.
class Workflow {
 public:
  Workflow() = default;
  /// From named entries: `title`, `format`, `mask_operations`, `result_operations`, `outputs`; all optional.
  /// A format that this program does not know is kept with all it brings, and `check_workflow` names it.
  /// @throws std::invalid_argument with a sentence when the entries are not a map, one of them is unknown (in a newer
  /// format it is kept), a list is not a list, or a step has no `op`.
  explicit Workflow(const Value& entries);
  /// The same from the map of `to_dict()`.
  static Workflow from_dict(const Value& map);

  /// The format of the file, a whole number; anything else only where a file had it. An older one becomes the current.
  Value format = workflow_format;
  std::string title;
  std::vector<MaskOperationConfig> mask_operations;
  std::vector<ResultOperationConfig> result_operations;
  /// Which outputs a run writes, among "masks", "overlays", "images", "numbers"; absent = all. Kept as the file has it.
  std::optional<Value> outputs;
  /// Not a part of the content but the folder of the file: what parameters name is relative to it. Empty means the
  /// current folder.
  std::filesystem::path folder = {};
  /// Further entries of a file in a newer format, as they were.
  Value others = Value::object();

  /// The content of a workflow file: {"format", "title", "mask_operations": [{"op", "params"}], "result_operations":
  /// [...]}, "outputs" where there are any, and `others`.
  [[nodiscard]] Value to_dict() const;

  /// The same content, wherever it lies.
  friend bool operator==(const Workflow& a, const Workflow& b);
};

/// An empty workflow.
[[nodiscard]] std::shared_ptr<Workflow> new_workflow(const std::string& title);
[[nodiscard]] MaskOperationConfig mask_op(const std::string& op_name, const Value& params = Value::object());
[[nodiscard]] ResultOperationConfig result_op(const std::string& key, const Value& params = Value::object());

/// Where a step stands in a workflow.
struct StepPlace {
  bool is_mask = false;   ///< else a result operation
  std::size_t index = 0;  ///< in its list, from 0
};

/// A thing that is wrong with a workflow, named with its step.
struct WorkflowProblem {
  std::string step;  ///< "mask step 2 (erode)", "result operation 1 (area)", "outputs", "format"
  std::string text;  ///< a sentence
  std::optional<StepPlace> place = std::nullopt;  ///< absent when it is of no step
};

/// Everything in a workflow that would make a run fail whatever the capture: a newer format, unknown operations (with
/// the nearest known key), bad parameters, files that are not there, result operations that stand twice,
/// unknown outputs, a mask operation that needs a mask as the first step.
[[nodiscard]] std::vector<WorkflowProblem> check_workflow(const Workflow& workflow);

}  // namespace orvexa::model
