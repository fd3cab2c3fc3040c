#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "orvexa/common/ordered_map.h"
#include "orvexa/common/value.h"
#include "orvexa/model/entities/capture_set.h"
#include "orvexa/model/entities/result_bundle.h"

namespace orvexa::model {

/// What the files of numbers are made from.
struct MetricsReport {
  std::string capture_name = {};
  std::string date = {};
  std::string time = {};
  std::string workflow_title = {};
  ResultBundle bundle = {};
  common::OrderedMap<RegionResult> regions = {};  ///< each region's metrics and reasons over all operations
  std::vector<MaskNote> mask_notes = {};
};

/// Takes metrics that are not finite numbers out of a result and gives them a reason instead: no file has a word for
/// them.
void drop_values_that_are_no_numbers(OperationResult& result);

/// Every region's metrics and reasons over all operations, in the operations' order.
/// @param names  the regions, in order; a region that no operation speaks of has empty maps.
/// A metric that two operations name alike is kept for the later one as "<operation>.<metric>".
[[nodiscard]] common::OrderedMap<RegionResult> gather_regions(const std::vector<std::string>& names,
                                                              const ResultBundle& bundle);

/// [{"step", "op", "note"}, ...], as they stand in metrics.json.
[[nodiscard]] common::Value mask_notes_document(const std::vector<MaskNote>& notes);

/// The content of metrics.json:
/// {"format": 1, "capture", "date", "time", "workflow": title,
///  "results": {operation: {"metrics", "units", "reasons", "error": sentence or null}},
///  "regions": {region: {"metrics", "reasons"}}, "mask_notes": [{"step", "op", "note"}]}
[[nodiscard]] common::Value metrics_document(const MetricsReport& report);

/// The content of metrics.tsv: columns Capture, Region, Date, Time and every scalar metric, operation by operation and
/// within one in the order of its units, wherever it is undefined; one row a region; an undefined metric is an empty
/// field; lists are left out. UTF-8, line feeds.
[[nodiscard]] std::string metrics_table(const MetricsReport& report);

/// A named table of a result operation as tab-separated text with a header line.
[[nodiscard]] std::string table_text(const ResultTable& table);

}  // namespace orvexa::model
