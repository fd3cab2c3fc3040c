#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/common/clock.h"
#include "orvexa/common/files.h"
#include "orvexa/common/ordered_map.h"
#include "orvexa/common/scratch_file.h"
#include "orvexa/common/value.h"
#include "orvexa/controller/batch_summary.h"

namespace orvexa::controller {

/// A row of the combined table of a batch: "Filename", "ROI", "Date", "Time", then metrics.
using BatchRow = common::OrderedMap<common::Value>;

/// The combined table of a batch. Its rows wait on the disk, so that a batch of any length needs no more memory than a
/// short one; where that fails, which is logged once, they wait in memory.
class BatchTable {
 public:
  /// @param folder  where rows may wait; empty = in memory.
  explicit BatchTable(const common::Path& folder = {});

  void add(const BatchRow& row);
  [[nodiscard]] bool is_empty() const { return _row_count == 0; }
  /// Hands out the text, piece by piece: a line of column names, then a line a row, fields separated by tabs and as
  /// they stand: nothing is quoted. The columns are the four fixed ones and every further name in order of first
  /// appearance; what a row lacks is an empty field. A piece ends where a line ends.
  /// @throws std::runtime_error when rows cannot be read back.
  void write(const std::function<void(std::string_view piece)>& out) const;

 private:
  /// Columns only ever come at the end, so an older row lacks nothing but fields at its end.
  struct Line {
    std::size_t fields = 0;
    std::string text;
  };
  void wait_on_disk(const Line& line);
  [[nodiscard]] Line line_on_disk(std::uintmax_t& offset) const;

  common::OrderedMap<std::size_t> _columns;  ///< name to position
  std::size_t _row_count = 0;
  std::unique_ptr<common::ScratchFile> _on_disk;  ///< the first lines, those after them:
  std::vector<Line> _lines;
};

/// The content of a batch summary for people.
[[nodiscard]] std::string batch_summary_text(const BatchSummary& summary, common::TimePoint generated);

/// Writes "batch_aggregated_results.txt" into the run folder, in place of an older one, with a byte-order mark for
/// spreadsheet programs; nothing for an empty table.
/// @return  the line that was logged when it could not be written, as the next.
std::optional<std::string> write_batch_aggregated_results(const BatchTable& table, const common::Path& run_folder);
/// Writes "batch_summary.txt" into the run folder, in place of an older one.
std::optional<std::string> write_batch_summary(const BatchSummary& summary, const common::Path& run_folder);

/// Gives the reports that another run left in the same run folder (both began in the same second) names of their own,
/// "batch_summary_1.txt", so that those of this run do not replace them. Logs a warning for each.
void keep_reports_of_another_run(const common::Path& run_folder);

}  // namespace orvexa::controller
