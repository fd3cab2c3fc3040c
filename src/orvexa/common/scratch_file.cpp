#include "orvexa/common/scratch_file.h"

#include <fmt/format.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace orvexa::common {

namespace {

[[noreturn]] void fail(const Path& folder, std::string_view what) {
  throw std::runtime_error(fmt::format("A scratch file in the folder \"{}\" cannot be {}.", path_text(folder), what));
}

std::string reason(int error) {
  return std::generic_category().message(error);
}

}  // namespace

ScratchFile::ScratchFile(Path folder) : _folder(std::move(folder)) {
  do {
    _left_name = _folder / fmt::format(".scratch.{}.partial", random_suffix());
    _descriptor = Descriptor(_left_name, O_RDWR | O_CREAT | O_EXCL, 0600);
  } while (!_descriptor.is_open() && (errno == EEXIST || errno == EINTR));
  if (!_descriptor.is_open()) fail(_folder, "made: " + reason(errno));
  if (::unlink(_left_name.c_str()) == 0) _left_name.clear();
}

ScratchFile::~ScratchFile() {
  if (!_left_name.empty()) ::unlink(_left_name.c_str());
}

void ScratchFile::append(std::span<const std::byte> bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t count =
        ::pwrite(_descriptor.get(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(_size + done));
    if (count < 0 && errno != EINTR) fail(_folder, "written: " + reason(errno));
    if (count > 0) done += static_cast<std::size_t>(count);
  }
  _size += bytes.size();
}

void ScratchFile::read(std::uintmax_t offset, std::span<std::byte> bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = ::pread(_descriptor.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count < 0 && errno != EINTR) fail(_folder, "read: " + reason(errno));
    if (count == 0) fail(_folder, "read: it ends before what was asked for");
    if (count < 0) continue;
    offset += static_cast<std::uintmax_t>(count);
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
}

}  // namespace orvexa::common
