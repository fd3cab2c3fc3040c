#pragma once

#include <optional>
#include <string>

#include "orvexa/common/descriptor.h"
#include "orvexa/common/files.h"

namespace orvexa::controller {

/// Who holds a folder.
struct LockHolder {
  std::string host;
  long process = 0;
  std::string since;  ///< a time stamp
};

/// "process 4711 on host tray-pc since 2024-05-21T10:32:11+0200"
[[nodiscard]] std::string holder_text(const LockHolder& holder);

/// A folder that belongs to one watcher: a lock of the operating system on the file `.watch_lock` in it, which ends
/// with the process however that ends and which network file systems pass on to other hosts. The file says who holds
/// it.
class FolderLock {
 public:
  /// @throws std::runtime_error with a sentence that names the holder's host and process when another one has it, or
  /// the folder and the system's reason when it cannot be locked.
  explicit FolderLock(const common::Path& folder);
  /// Gives the folder free, and says so in the file.
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

  /// The one before, when it ended without giving the folder free.
  [[nodiscard]] const std::optional<LockHolder>& dead_holder() const { return _dead_holder; }
  /// Whether the locked file is still the one in the folder. When somebody removed it the lock keeps nobody out.
  [[nodiscard]] bool is_in_place() const;

 private:
  common::Path _path;
  common::Descriptor _file;
  std::optional<LockHolder> _dead_holder;
};

/// Who holds the folder now; absent when nobody does. Does not touch the lock.
[[nodiscard]] std::optional<LockHolder> folder_lock_holder(const common::Path& folder);

}  // namespace orvexa::controller
