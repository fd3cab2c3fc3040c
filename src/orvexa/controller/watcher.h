#pragma once

#include <string>

namespace orvexa::controller {

/// What a folder watcher needs to know.
struct WatcherConfig {
  std::string input_dir = {};
  std::string output_dir = {};
  std::string workflow_yaml_path = {};
  double poll_seconds = 2.0;
  friend bool operator==(const WatcherConfig&, const WatcherConfig&) = default;
};

/// Processes the captures that appear in a folder, in the background.
class FileWatcher {
 public:
  virtual ~FileWatcher() = default;
  /// Begins watching and returns.
  virtual void start() = 0;
  /// Ends watching; nothing is processed once it has returned.
  virtual void stop() = 0;
};

}  // namespace orvexa::controller
