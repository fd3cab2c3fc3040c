#include "orvexa/common/append_file.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace orvexa::common {

AppendFile::AppendFile(Path file) : _file(std::move(file)) {
  struct stat status {};
  const bool is_new = ::stat(_file.c_str(), &status) != 0;
  if (!is_new && !S_ISREG(status.st_mode)) {
    throw std::runtime_error(path_text(_file) + ": cannot be written: this is not an ordinary file.");
  }
  _descriptor = Descriptor(_file, O_WRONLY | O_CREAT | O_APPEND, 0666);
  if (!_descriptor.is_open() || ::fstat(_descriptor.get(), &status) != 0) fail(errno);
  _size = static_cast<std::uintmax_t>(status.st_size);
  if (is_new) flush_folder(_file.has_parent_path() ? _file.parent_path() : Path("."));
}

void AppendFile::append(std::string_view text) {
  const std::uintmax_t size_before = _size;
  int error = 0;
  for (std::string_view rest = text; !rest.empty() && error == 0;) {
    const ssize_t count = ::write(_descriptor.get(), rest.data(), rest.size());
    if (count >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      error = errno;
    }
  }
  if (error == 0 && !_descriptor.flush_data()) error = errno;
  if (error != 0) {
    // A beginning without its end would spoil what is appended next.
    static_cast<void>(::ftruncate(_descriptor.get(), static_cast<off_t>(size_before)));
    fail(error);
  }
  _size += text.size();
}

void AppendFile::cut(std::uintmax_t bytes) {
  if (::ftruncate(_descriptor.get(), static_cast<off_t>(bytes)) != 0) fail(errno);
  _size = bytes;
}

void AppendFile::fail(int error) const {
  throw std::runtime_error(
      fmt::format("{}: cannot be written: {}.", path_text(_file), std::generic_category().message(error)));
}

}  // namespace orvexa::common
