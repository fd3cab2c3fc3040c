#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "orvexa/common/cancel.h"
#include "orvexa/controller/folder_watch.h"
#include "orvexa/controller/watcher.h"

namespace orvexa::controller {

/// Watches a folder on a thread of its own: takes each capture that is complete and runs a workflow file on it, each
/// exactly once, also over restarts. See FolderWatch for how, and docs/results.md for what it writes.
class FileWatcher final : public Watcher {
 public:
  /// @throws std::invalid_argument with a sentence when `poll_seconds` is not above 0 or longer than a day, `retries`
  /// is negative, or there is no loader.
  explicit FileWatcher(WatcherArguments arguments);
  /// Stops.
  ~FileWatcher() override;
  FileWatcher(const FileWatcher&) = delete;
  FileWatcher& operator=(const FileWatcher&) = delete;

  /// @throws std::runtime_error with a sentence as FolderWatch does; std::logic_error when it runs.
  void start() override;
  /// Cancels what runs and waits for it. Nothing half-written is left, and the output folder is free.
  void stop() override;

 private:
  void run();

  const WatcherArguments _arguments;
  std::unique_ptr<common::CancelEvent> _cancel_event;
  std::unique_ptr<FolderWatch> _watch;  ///< of the thread while it runs
  std::mutex _mutex;                    ///< guards the flag below
  bool _is_stopping = false;
  std::condition_variable _wake;
  std::thread _thread;
};

}  // namespace orvexa::controller
