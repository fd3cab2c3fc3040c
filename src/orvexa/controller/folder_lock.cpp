#include "orvexa/controller/folder_lock.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "orvexa/common/clock.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"

namespace orvexa::controller {

using common::Path;
using common::Value;

namespace {

constexpr const char* lock_name = ".watch_lock";

struct flock whole_file(short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

std::string host_name() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? common::to_valid_utf8(name.data()) : "unknown";
}

std::optional<LockHolder> read_holder(int descriptor) {
  std::array<char, 4096> buffer{};
  const ssize_t count = ::pread(descriptor, buffer.data(), buffer.size(), 0);
  if (count <= 0) return std::nullopt;
  try {
    const Value document = common::parse_json({buffer.data(), static_cast<std::size_t>(count)}, lock_name);
    return LockHolder{.host = document.at("host").get<std::string>(),
                      .process = document.at("process").get<long>(),
                      .since = document.at("since").get<std::string>()};
  } catch (const std::exception&) {
    return std::nullopt;  // torn by the end of its writer
  }
}

std::runtime_error lock_error(const Path& folder, int error) {
  return std::runtime_error(fmt::format("The folder \"{}\" cannot be locked for a watcher: {}.",
                                        common::path_text(folder), std::generic_category().message(error)));
}

}  // namespace

std::string holder_text(const LockHolder& holder) {
  return fmt::format("process {} on host {} since {}", holder.process, holder.host, holder.since);
}

FolderLock::FolderLock(const Path& folder) : _path(folder / lock_name), _file(_path, O_RDWR | O_CREAT, 0666) {
  if (!_file.is_open()) throw lock_error(folder, errno);
  // A lock of the open file, not of the process: a second watcher of this process is refused too.
  struct flock lock = whole_file(F_WRLCK);
  if (::fcntl(_file.get(), F_OFD_SETLK, &lock) != 0) {
    if (errno != EAGAIN && errno != EACCES) throw lock_error(folder, errno);
    const auto holder = read_holder(_file.get());
    throw std::runtime_error(fmt::format("The folder \"{}\" already has a watcher: {}.", common::path_text(folder),
                                         holder ? holder_text(*holder) : "another process"));
  }
  _dead_holder = read_holder(_file.get());
  const std::string text = common::json_line(
      {{"host", host_name()}, {"process", ::getpid()}, {"since", common::time_stamp_text(common::now())}});
  if (::ftruncate(_file.get(), 0) != 0 ||
      ::pwrite(_file.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
    throw lock_error(folder, errno);
  }
}

FolderLock::~FolderLock() {
  // The file stays: removing it would let a third one lock a file that the second one has open.
  static_cast<void>(::ftruncate(_file.get(), 0));
}

bool FolderLock::is_in_place() const {
  return _file.is_at(_path);
}

std::optional<LockHolder> folder_lock_holder(const Path& folder) {
  const common::Descriptor file(folder / lock_name, O_RDONLY);
  if (!file.is_open()) return std::nullopt;
  struct flock lock = whole_file(F_WRLCK);
  if (::fcntl(file.get(), F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) return std::nullopt;
  return read_holder(file.get()).value_or(LockHolder{.host = "unknown", .process = 0, .since = "unknown"});
}

}  // namespace orvexa::controller
