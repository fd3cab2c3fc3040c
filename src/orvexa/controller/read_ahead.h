#pragma once

#include <exception>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "orvexa/common/cancel.h"
#include "orvexa/common/files.h"
#include "orvexa/controller/watch_scan.h"
#include "orvexa/model/entities/capture_loader.h"

namespace orvexa::controller {

using common::Path;

/// Loads at most one capture on a thread of its own while its owner works on another one. Loaders are never called at
/// the same time through this: whatever comes next waits for the one that runs. Logs nothing, so the order of log lines
/// is that of whoever asks.
class ReadAhead {
 public:
  ReadAhead() = default;
  /// Waits for a loader that runs.
  ~ReadAhead();
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  /// Begins to load a file; what was loaded before and not taken is dropped first. Does nothing where only one thread
  /// may be used, or where the system gives none.
  /// @param cancel_event  may be null; must live until the file is taken or dropped. Once set nothing is begun.
  void begin(const Path& file, model::CaptureLoader load, const common::CancelEvent* cancel_event = nullptr);

  /// What was loaded for this file. Absent, and dropped, when it was another file, or when one of the files of the
  /// capture is not the one that was read: its size, its time or its inode differs.
  /// @throws what the loader threw for this file.
  [[nodiscard]] std::optional<std::shared_ptr<model::CaptureSet>> take(const Path& file);

  /// Ends without a result.
  void drop();

 private:
  struct PartOfCapture {
    Path file;
    std::optional<FileStamp> stamp;  ///< as it was before the capture was read
  };
  struct Loaded {
    std::vector<PartOfCapture> parts;
    std::shared_ptr<model::CaptureSet> capture;
    std::exception_ptr failure;
    bool is_begun = false;
  };
  static std::vector<PartOfCapture> parts_of(const Path& file);

  std::mutex _mutex;
  Path _file;
  std::future<Loaded> _loading;  ///< its destructor waits
};

}  // namespace orvexa::controller
