#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "orvexa/common/append_file.h"
#include "orvexa/common/ordered_map.h"
#include "orvexa/common/value.h"
#include "orvexa/controller/watch_scan.h"

namespace orvexa::controller {

/// A capture with its content and the workflow that runs on it: what is done once.
struct CaptureIdentity {
  struct File : WatchedFile {
    std::string sha256;
  };
  std::string key;            ///< made from the others by `identity_of`
  std::string name;           ///< relative to the input folder
  std::string workflow_hash;  ///< SHA-256 of the file workflow.yaml that its run writes
  std::vector<File> files;    ///< the header or ordinary image first
};

/// The key is the name and sixteen hexadecimal digits of the SHA-256 over name, contents and workflow:
/// "HDR_plot_0007.INF#5d1e0a7c9b3f2468".
[[nodiscard]] CaptureIdentity identity_of(std::vector<CaptureIdentity::File> files, std::string workflow_hash);

/// What the journal knows of one identity.
struct JournalEntry {
  CaptureIdentity identity;
  std::string capture;        ///< the capture's own name
  int number = 1;             ///< of the results folder that was free at the start: NAME, NAME_2, ...
  std::string folder;         ///< name of its results folder, once it is done
  std::size_t rows = 0;       ///< in its metrics.tsv
  int unfinished_starts = 0;  ///< runs whose end nobody wrote down
  bool is_running = false;    ///< begun and not ended
  bool is_done = false;
};

/// The memory of a watcher in its output folder: `watch_journal.jsonl`, one JSON document a line, only ever appended
/// to. A line is on the disk when the function that records it returns.
class WatchJournal {
 public:
  /// Reads what is there. A torn last line is cut off; a line in the middle that cannot be read is logged and passed
  /// over.
  /// @throws std::runtime_error with a sentence that names the file: it cannot be read or written, is no journal, or
  /// one of a newer program.
  explicit WatchJournal(const common::Path& output_dir);

  /// Null for a key that was never started.
  [[nodiscard]] const JournalEntry* find(std::string_view key) const;
  /// The entry that was last recorded for that capture and workflow, or null.
  [[nodiscard]] const JournalEntry* find_last(const std::string& name, const std::string& workflow_hash) const;
  /// Whether these files are as they were when their capture was done with that workflow; missing ones do not count.
  [[nodiscard]] bool is_known(const CaptureFiles& capture, const std::string& workflow_hash) const;
  /// Every identity in the order in which it was first recorded.
  [[nodiscard]] const common::OrderedMap<JournalEntry>& entries() const { return _entries; }
  [[nodiscard]] std::size_t done_count() const { return _done_folders.size(); }
  /// Whether the results folder of that name belongs to something done.
  [[nodiscard]] bool is_claimed(const std::string& folder) const { return _done_folders.contains(folder); }
  /// The input folder has held a header once.
  [[nodiscard]] bool takes_captures_only() const { return _takes_captures_only; }

  // What records throws model::ResultsFolderError with a sentence when it cannot be written.

  /// @param number  of the results folder that is free: `model::results_folder_path`.
  void record_started(const CaptureIdentity& identity, const std::string& capture, int number);
  /// The files are those of something done, with other stamps.
  void record_known(const CaptureIdentity& identity);
  void record_done(const std::string& key, const std::string& folder, std::size_t rows,
                   const common::Value& operation_errors);
  /// @param is_last  it is not tried again.
  void record_failed(const std::string& name, const std::string& key, const std::string& error, int attempt,
                     bool is_last);
  void record_cancelled(const std::string& key);
  void record_captures_only();

 private:
  void read(const common::Path& file);
  void take(const common::Value& line);
  void record(common::Value line);
  JournalEntry& remember(const common::Value& line);

  common::AppendFile _file;
  common::OrderedMap<JournalEntry> _entries;
  std::unordered_map<std::string, std::string> _last_keys;  ///< by name and workflow hash
  std::unordered_set<std::string> _done_folders;
  bool _takes_captures_only = false;
};

}  // namespace orvexa::controller
