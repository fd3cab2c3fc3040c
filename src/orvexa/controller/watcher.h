#pragma once

#include <functional>
#include <memory>
#include <string>

#include "orvexa/model/entities/capture_loader.h"

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
class Watcher {
 public:
  virtual ~Watcher() = default;
  /// Begins watching and returns.
  virtual void start() = 0;
  /// Ends watching; nothing is processed once it has returned.
  virtual void stop() = 0;
};

/// What a watcher is made from.
struct WatcherArguments {
  std::string input_dir = {};
  std::string output_dir = {};
  std::string workflow_yaml_path = {};
  model::CaptureLoader capture_loader = {};
  double poll_seconds = 2.0;
};

using WatcherMaker = std::function<std::unique_ptr<Watcher>(const WatcherArguments&)>;

}  // namespace orvexa::controller
