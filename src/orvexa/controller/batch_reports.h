#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "orvexa/common/clock.h"
#include "orvexa/common/files.h"
#include "orvexa/common/ordered_map.h"
#include "orvexa/common/value.h"
#include "orvexa/controller/batch_summary.h"

namespace orvexa::controller {

/// A row of the combined table of a batch: "Filename", "ROI", "Date", "Time", then metrics.
using BatchRow = common::OrderedMap<common::Value>;

/// The combined table of a batch, kept as text so that a row costs little more than its line of the file.
class BatchTable {
 public:
  BatchTable();

  void add(const BatchRow& row);
  [[nodiscard]] bool is_empty() const { return _lines.empty(); }
  /// A line of column names, then a line a row, fields separated by tabs and as they stand: nothing is quoted. The
  /// columns are the four fixed ones and every further name in order of first appearance; what a row lacks is an empty
  /// field.
  [[nodiscard]] std::string text() const;

 private:
  /// Columns only ever come at the end, so an older row lacks nothing but fields at its end.
  struct Line {
    std::string text;
    std::size_t fields = 0;
  };
  common::OrderedMap<std::size_t> _columns;  ///< name to position
  std::vector<Line> _lines;
};

/// The content of a batch summary for people.
[[nodiscard]] std::string batch_summary_text(const BatchSummary& summary, common::TimePoint generated);

/// Writes "batch_aggregated_results.txt" into the run folder, in place of an older one, with a byte-order mark for
/// spreadsheet programs; nothing for an empty table. A failure is logged and does not reach the caller, as in the next.
void write_batch_aggregated_results(const BatchTable& table, const common::Path& run_folder);
/// Writes "batch_summary.txt" into the run folder, in place of an older one.
void write_batch_summary(const BatchSummary& summary, const common::Path& run_folder);

/// Gives the reports that another run left in the same run folder (both began in the same second) names of their own,
/// "batch_summary_1.txt", so that those of this run do not replace them. Logs a warning for each.
void keep_reports_of_another_run(const common::Path& run_folder);

}  // namespace orvexa::controller
