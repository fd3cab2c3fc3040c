#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "orvexa/common/descriptor.h"
#include "orvexa/common/files.h"

namespace orvexa::common {

/// What would fill the memory and may wait on the disk instead: a file without a name that is gone with this object,
/// also after a crash.
class ScratchFile {
 public:
  /// @param folder  where there is room for it.
  /// @throws std::runtime_error with a sentence that names the folder and the system's reason, as the others.
  explicit ScratchFile(Path folder);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  /// When it throws, what was appended before is still there and nothing of these bytes.
  void append(std::span<const std::byte> bytes);
  /// Fills `bytes` with those from `offset` on. A range that reaches beyond the end is an error.
  void read(std::uintmax_t offset, std::span<std::byte> bytes) const;
  [[nodiscard]] std::uintmax_t size() const { return _size; }

 private:
  Path _folder;
  Path _left_name;  ///< on a file system that keeps the name of an open file
  Descriptor _descriptor;
  std::uintmax_t _size = 0;
};

}  // namespace orvexa::common
