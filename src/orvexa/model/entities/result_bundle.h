#pragma once

#include <optional>
#include <string>
#include <vector>

#include "orvexa/common/ordered_map.h"
#include "orvexa/common/value.h"
#include "orvexa/model/image.h"

namespace orvexa::model {

/// A named list of records, written to `tables/<operation>_<name>.tsv`.
struct ResultTable {
  std::vector<std::string> columns;
  std::vector<std::vector<common::Value>> rows;
};

/// A picture that explains a result: something to look at and, where there are any, the numbers behind it.
struct ResultImage {
  Image picture;                 ///< 8-bit, grey or RGB
  std::optional<Image> numbers;  ///< 32-bit float
};

/// The metrics of one region; an undefined metric is not in `metrics` and stands in `reasons` with its cause.
struct RegionResult {
  common::Value metrics = common::Value::object();
  common::Value reasons = common::Value::object();
};

/// What one result operation found: over the whole final mask, and region by region.
struct OperationResult {
  /// Metric name to value; null = the operation gave none.
  common::Value metrics = common::Value::object();
  common::Value units = common::Value::object();    ///< metric name to unit, "" for none
  common::Value reasons = common::Value::object();  ///< undefined metric to the cause
  common::OrderedMap<ResultTable> tables;
  common::OrderedMap<ResultImage> images;
  common::OrderedMap<RegionResult> regions;  ///< region name to its metrics
  /// Present when the operation failed: the sentence for the user.
  std::optional<std::string> error;
  /// For the record of the run: what a band was chosen for ("ndvi", "band") to its name or a list of names.
  common::Value chosen_bands = common::Value::object();
};

using ResultMap = common::OrderedMap<OperationResult>;

/// A remark that a mask step made about its run.
struct MaskNote {
  int step = 0;  ///< position in the workflow, counted from 0
  std::string op;
  std::string text;
};

/// Results of one run by result-operation key.
struct ResultBundle {
  ResultMap results;
};

}  // namespace orvexa::model
