#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "orvexa/common/files.h"
#include "orvexa/common/value.h"

namespace orvexa::controller {

/// How a watcher stands, as `watch_status.json` in its output folder says it. Times are time stamps.
struct WatchStatus {
  struct Failed {
    std::string file;
    std::string error;
    friend bool operator==(const Failed&, const Failed&) = default;
  };
  struct Incomplete {
    std::string file;
    std::vector<std::string> missing;
    friend bool operator==(const Incomplete&, const Incomplete&) = default;
  };

  std::string input_folder;
  std::string workflow_file;
  double poll_seconds = 0;
  std::string running_since;
  std::optional<std::string> stopped;  ///< absent while it runs, and when it ended without saying so
  std::string last_poll;
  std::string takes;                  ///< "captures" or "images"
  std::optional<std::string> notice;  ///< a sentence about what it leaves alone
  std::size_t done = 0;               ///< everything in the journal
  std::size_t done_since_start = 0;
  std::size_t with_operation_errors = 0;  ///< of those done since the start: an operation of the workflow failed
  std::optional<std::string> last_operation_error;  ///< with its file and operation in front
  std::size_t results_gone = 0;        ///< captures without rows in the table, because their results folder is gone
  std::size_t waiting = 0;             ///< seen and neither done nor failed, the incomplete ones too
  std::vector<Incomplete> incomplete;  ///< they lack files and nothing arrives any more
  std::vector<Failed> failed;          ///< not tried again before the next start
  std::vector<std::string> problems;   ///< what captures wait for now
  std::optional<std::string> last_error;
  std::optional<std::string> last_error_time;
  friend bool operator==(const WatchStatus&, const WatchStatus&) = default;
};

/// The content of the file: the members by their names, with "format" first.
[[nodiscard]] common::Value status_document(const WatchStatus& status);

/// Replaces the file, whole or not at all.
void write_watch_status(const common::Path& output_dir, const WatchStatus& status);

/// @throws std::runtime_error with a sentence that names the file: there is none, or it cannot be read.
[[nodiscard]] WatchStatus read_watch_status(const common::Path& output_dir);

}  // namespace orvexa::controller
