#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "orvexa/common/files.h"

namespace orvexa::controller {

/// What tells two states of a file apart without reading it.
struct FileStamp {
  std::uintmax_t bytes = 0;
  std::int64_t modified_ns = 0;  ///< since 1970, UTC
  std::uint64_t inode = 0;
  friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

/// Absent when there is no ordinary file of that name. Links are followed.
[[nodiscard]] std::optional<FileStamp> stamp_of(const common::Path& file);

/// A file that a watcher may take: a header `HDR_*.INF` or an ordinary image directly inside its input folder. Hidden
/// files are none.
struct FoundFile {
  std::string name;
  FileStamp stamp;
  bool is_header = false;
};

/// By time of modification, then by name.
/// @throws std::runtime_error with a sentence that names the folder and the system's reason.
[[nodiscard]] std::vector<FoundFile> find_files_to_watch(const common::Path& folder);

/// Whether there is a header now; false for a folder that cannot be read.
[[nodiscard]] bool holds_header(const common::Path& folder);

struct WatchedFile {
  std::string name;  ///< relative to the input folder
  FileStamp stamp;
  friend bool operator==(const WatchedFile&, const WatchedFile&) = default;
};

/// The files of one capture as they are now.
struct CaptureFiles {
  std::vector<WatchedFile> files;    ///< the header or ordinary image first; each once
  std::vector<std::string> missing;  ///< names of files that are not there
  friend bool operator==(const CaptureFiles&, const CaptureFiles&) = default;
};

/// The files of a folder as they are at one look: the system, which may be far away, is asked once for each.
class FolderStamps {
 public:
  /// @param found  what that look at the folder has found already.
  explicit FolderStamps(common::Path folder, const std::vector<FoundFile>& found = {});
  [[nodiscard]] const common::Path& folder() const { return _folder; }
  /// As `stamp_of`, by the name relative to the folder.
  [[nodiscard]] std::optional<FileStamp> of(const std::string& name);

 private:
  common::Path _folder;
  std::unordered_map<std::string, std::optional<FileStamp>> _stamps;
};

/// @param named  as `model::files_named_by` gives them.
[[nodiscard]] CaptureFiles capture_files(FolderStamps& stamps, const FoundFile& main_file,
                                         const std::vector<std::string>& named);

}  // namespace orvexa::controller
