#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "orvexa/common/clock.h"
#include "orvexa/common/value.h"
#include "orvexa/model/entities/capture_loader.h"

namespace orvexa::controller {

/// Which files of the input folder a watcher takes: `HDR_*.INF` captures as soon as the folder has held one and
/// ordinary images before that, or always the one or the other.
enum class WatcherSearch { automatic, captures, images };

/// What a folder watcher needs to know.
struct WatcherConfig {
  std::string input_dir = {};
  std::string output_dir = {};
  std::string workflow_yaml_path = {};
  double poll_seconds = 2.0;
  WatcherSearch search = WatcherSearch::automatic;
  int retries = 2;    ///< how often a capture that failed is tried again
  bool once = false;  ///< does what is there and ends by itself
  friend bool operator==(const WatcherConfig&, const WatcherConfig&) = default;
};

/// Something that a watcher tells while it works.
struct WatcherEvent {
  enum class Kind {
    watching,    ///< it began
    taken_over,  ///< the one before it ended without saying so
    notice,      ///< what it takes from now on, or leaves alone
    incomplete,  ///< a capture lacks files and nothing arrives any more
    running,     ///< a capture is worked on
    done,        ///< its results are there; `details` has "operation_errors": {operation: sentence} and "mask_notes":
                 ///< [{"step", "op", "note"}], where there are any
    recovered,   ///< results that were complete when the watcher before this one ended
    retry,       ///< a capture failed and is tried again
    failed,      ///< a capture failed for the last time
    problem,     ///< captures wait for something: the workflow, a folder
    solved,      ///< they no longer do
    stopped      ///< it ended; `details` has the numbers of captures "done", "failed", "waiting", "incomplete"
  };
  Kind kind = Kind::notice;
  std::string file = {};    ///< the capture's name relative to the input folder; empty where there is none
  std::string folder = {};  ///< its results folder
  std::string text = {};    ///< a sentence, about the file where there is one; empty where the kind says it all
  common::Value details = common::Value::object();
  common::TimePoint time = {};
};
using WatcherEventCallback = std::function<void(const WatcherEvent&)>;

/// "watching", "taken_over", ...
[[nodiscard]] std::string_view event_name(WatcherEvent::Kind kind);
/// {"event", "time", "file", "folder", "text"} without those that are empty, and the details.
[[nodiscard]] common::Value event_document(const WatcherEvent& event);

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
  model::CaptureLoader image_loader = model::load_capture_from_image;
  WatcherSearch search = WatcherSearch::automatic;
  int retries = 2;
  bool once = false;
  WatcherEventCallback on_event = {};  ///< called on the watcher's thread; may be empty
};

using WatcherMaker = std::function<std::unique_ptr<Watcher>(const WatcherArguments&)>;

}  // namespace orvexa::controller
