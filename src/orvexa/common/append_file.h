#pragma once

#include <cstdint>
#include <string_view>

#include "orvexa/common/descriptor.h"
#include "orvexa/common/files.h"

namespace orvexa::common {

/// A file that grows at its end, such as a journal. Made when it is not there.
class AppendFile {
 public:
  /// @throws std::runtime_error with a sentence that names the file and the system's reason, as the others.
  explicit AppendFile(Path file);

  /// Writes at the end; when it returns the text is on the disk, and when it throws nothing of it is in the file.
  void append(std::string_view text);
  /// Cuts the file after so many bytes.
  void cut(std::uintmax_t bytes);
  [[nodiscard]] std::uintmax_t size() const { return _size; }

 private:
  [[noreturn]] void fail(int error) const;

  Path _file;
  Descriptor _descriptor;
  std::uintmax_t _size = 0;
};

}  // namespace orvexa::common
