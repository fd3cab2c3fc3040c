#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <utility>

namespace orvexa::common {

/// An open file or folder that is closed at the end.
class Descriptor {
 public:
  Descriptor() = default;
  Descriptor(const std::filesystem::path& path, int flags, mode_t mode = 0)
      : _number(::open(path.c_str(), flags | O_CLOEXEC, mode)) {}
  ~Descriptor() {
    if (_number >= 0) ::close(_number);
  }
  Descriptor(Descriptor&& other) noexcept : _number(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(_number, other._number);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] bool is_open() const { return _number >= 0; }
  [[nodiscard]] int get() const { return _number; }
  /// Whether the path still leads to what is open: another process may have removed, renamed or replaced it.
  [[nodiscard]] bool is_at(const std::filesystem::path& path) const {
    struct stat opened {};
    struct stat there {};
    return ::fstat(_number, &opened) == 0 && ::lstat(path.c_str(), &there) == 0 && opened.st_dev == there.st_dev &&
           opened.st_ino == there.st_ino;
  }
  /// Brings what was written to the disk; some file systems have nothing to flush and say so.
  /// @return  false with the reason in errno.
  [[nodiscard]] bool flush_data() const {
    while (::fdatasync(_number) != 0) {
      if (errno == EINTR) continue;
      return errno == EINVAL || errno == ENOSYS || errno == ENOTSUP;
    }
    return true;
  }
  [[nodiscard]] int release() { return std::exchange(_number, -1); }
  /// Some file systems report a failed write only here.
  [[nodiscard]] bool close() { return ::close(release()) == 0; }

 private:
  int _number = -1;
};

}  // namespace orvexa::common
