#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "orvexa/common/append_file.h"
#include "orvexa/controller/watch_journal.h"

namespace orvexa::controller {

/// The numbers of a results folder, as its metrics.tsv has them.
struct MetricsRows {
  std::vector<std::string> columns;
  std::vector<std::vector<std::string>> rows;  ///< one a region
};
/// Without columns and rows where the run wrote no numbers.
[[nodiscard]] MetricsRows read_metrics_rows(const common::Path& results_folder);

/// The running table of a watcher, `watch_table.tsv`: the rows of every results folder that the journal calls done, in
/// the journal's order, the capture's key as first column `Key`. It holds nothing of its own and is made anew from the
/// results folders whenever it is torn, lacks a row or lacks a column.
class WatchTable {
 public:
  /// @throws std::runtime_error with a sentence that names the file, as the other.
  WatchTable(common::Path output_dir, const WatchJournal& journal);

  /// Adds the rows of something done.
  void add(const JournalEntry& entry, const MetricsRows& metrics);

  /// Captures whose rows went when the table was made anew: their results folder, or its metrics.tsv, is gone.
  [[nodiscard]] std::size_t gone() const { return _gone; }

 private:
  /// Whether the file has every row that the journal promises, each whole.
  [[nodiscard]] bool is_whole();
  void rebuild();
  [[nodiscard]] std::string row_text(const std::string& key, const MetricsRows& metrics, std::size_t row) const;

  common::Path _output_dir;
  const WatchJournal& _journal;
  std::vector<std::string> _columns;  ///< without the key
  std::size_t _gone = 0;
  std::optional<common::AppendFile> _file;
};

}  // namespace orvexa::controller
