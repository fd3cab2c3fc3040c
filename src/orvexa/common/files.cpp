#include "orvexa/common/files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cassert>
#include <cerrno>
#include <random>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "orvexa/common/descriptor.h"
#include "orvexa/common/text.h"
#include "orvexa/common/utf8.h"

namespace orvexa::common {

namespace {

namespace fs = std::filesystem;

std::string reason(int error) {
  return std::generic_category().message(error);
}

[[noreturn]] void fail(const Path& file, std::string_view what) {
  throw std::runtime_error(fmt::format("{}: {}.", path_text(file), what));
}

[[noreturn]] void fail_reading(const Path& file, int error) {
  if (error == ENOENT) fail(file, "there is no such file");
  fail(file, "cannot be read: " + reason(error));
}

Path folder_of(const Path& file) {
  const Path folder = file.parent_path();
  return folder.empty() ? Path(".") : folder;
}

[[noreturn]] void fail_writing(const Path& file, int error) {
  std::error_code ignored;
  if (error == ENOENT && !fs::exists(folder_of(file), ignored)) {
    fail(file, "cannot be written: there is no folder " + path_text(folder_of(file)));
  }
  fail(file, "cannot be written: " + reason(error));
}

/// Some file systems have nothing to flush and say so.
bool is_flush_failure(int error) {
  return error != EINVAL && error != ENOSYS && error != ENOTSUP;
}

template <typename Container>
Container read_whole(const Path& file, std::uintmax_t max_bytes) {
  // Not blocking: opening a pipe that nobody writes to would wait for ever.
  const Descriptor descriptor(file, O_RDONLY | O_NONBLOCK);
  if (!descriptor.is_open()) fail_reading(file, errno);
  struct stat status {};
  if (::fstat(descriptor.get(), &status) != 0) fail_reading(file, errno);
  if (S_ISDIR(status.st_mode)) fail(file, "this is a folder, not a file");
  if (!S_ISREG(status.st_mode)) fail(file, "this is not an ordinary file");
  const auto refuse_size = [&] {
    fail(file, fmt::format("the file is larger than {} bytes, the most that is read of it",
                           grouped_integer_text(static_cast<std::int64_t>(max_bytes))));
  };
  const auto size = static_cast<std::uintmax_t>(status.st_size);
  if (size > max_bytes) refuse_size();
  // One byte more than the file is said to have: the read that fills all but this byte is followed by one that finds
  // the end, and a file that grows meanwhile is noticed.
  Container content(static_cast<std::size_t>(size) + 1, typename Container::value_type{});
  std::size_t filled = 0;
  for (;;) {
    if (filled == content.size()) content.resize(content.size() + content.size() / 2 + 4096);
    const ssize_t count = ::read(descriptor.get(), content.data() + filled, content.size() - filled);
    if (count < 0) {
      if (errno == EINTR) continue;
      fail_reading(file, errno);
    }
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
    if (filled > max_bytes) refuse_size();
  }
  content.resize(filled);
  return content;
}

/// Characters that at least one common file system refuses in a name.
bool is_refused_in_names(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) ||
         std::u32string_view(U"/\\<>:\"|?*").find(code) != std::u32string_view::npos;
}

}  // namespace

Bytes read_file(const Path& file, std::uintmax_t max_bytes) {
  return read_whole<Bytes>(file, max_bytes);
}

std::string read_text_file(const Path& file, std::uintmax_t max_bytes) {
  return read_whole<std::string>(file, max_bytes);
}

AtomicFile::AtomicFile(Path target) : _target(std::move(target)) {
  if (!_target.has_filename()) fail(_target, "cannot be written: this is not the name of a file");
  std::error_code ignored;
  // A link stays a link: what it points to is what gets replaced.
  if (fs::is_symlink(fs::symlink_status(_target, ignored))) {
    std::error_code failure;
    const Path pointed_to = fs::weakly_canonical(_target, failure);
    if (!failure) _target = pointed_to;
  }
  struct stat status {};
  const bool exists = ::stat(_target.c_str(), &status) == 0;
  if (exists && S_ISDIR(status.st_mode)) fail(_target, "cannot be written: there is a folder of that name");
  if (exists && !S_ISREG(status.st_mode)) fail(_target, "cannot be written: this is not an ordinary file");
  do {
    _temporary = folder_of(_target) /
                 fmt::format(".{}.{}.partial", safe_file_name(_target.filename().string()), random_suffix());
    _descriptor = ::open(_temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  } while (_descriptor < 0 && (errno == EEXIST || errno == EINTR));
  if (_descriptor < 0) fail_writing(_target, errno);
  // A file that others may not read stays so; where the mode cannot be kept, the new file has the usual one.
  if (exists) static_cast<void>(::fchmod(_descriptor, status.st_mode & 07777));
}

AtomicFile::~AtomicFile() {
  if (_descriptor >= 0) ::close(_descriptor);
  if (!_temporary.empty()) ::unlink(_temporary.c_str());
}

void AtomicFile::write(std::string_view text) {
  write(as_byte_span(text));
}

void AtomicFile::write(std::span<const std::byte> bytes) {
  assert(_descriptor >= 0);
  while (!bytes.empty()) {
    const ssize_t count = ::write(_descriptor, bytes.data(), bytes.size());
    if (count < 0) {
      if (errno == EINTR) continue;
      fail_writing(_target, errno);
    }
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
}

void AtomicFile::commit() {
  assert(_descriptor >= 0);
  while (::fsync(_descriptor) != 0) {
    if (errno == EINTR) continue;
    if (is_flush_failure(errno)) fail_writing(_target, errno);
    break;
  }
  // After EINTR the descriptor is closed all the same.
  if (::close(std::exchange(_descriptor, -1)) != 0 && errno != EINTR) fail_writing(_target, errno);
  if (::rename(_temporary.c_str(), _target.c_str()) != 0) fail_writing(_target, errno);
  _temporary.clear();
  flush_folder(folder_of(_target));
}

void write_file_atomically(const Path& target, std::string_view text) {
  write_file_atomically(target, as_byte_span(text));
}

void write_file_atomically(const Path& target, std::span<const std::byte> bytes) {
  AtomicFile file(target);
  file.write(bytes);
  file.commit();
}

void flush_folder(const Path& folder) {
  const Descriptor descriptor(folder, O_RDONLY | O_DIRECTORY);
  // A folder that one may write to but not list cannot be opened, and so not be flushed.
  if (!descriptor.is_open() && errno == EACCES) return;
  if (!descriptor.is_open() || (::fsync(descriptor.get()) != 0 && is_flush_failure(errno))) {
    fail(folder, "the folder cannot be flushed to disk: " + reason(errno));
  }
}

std::string safe_file_name(std::string_view name) {
  constexpr std::size_t max_bytes = 120;
  std::string safe;
  while (!name.empty()) {
    const Utf8Step step = first_code_point(name);
    std::string next;
    append_utf8(next, is_refused_in_names(step.code) ? U'_' : step.code);
    name.remove_prefix(step.length);
    if (safe.empty() && next == ".") continue;
    if (safe.size() + next.size() > max_bytes) break;
    safe += next;
  }
  while (!safe.empty() && (safe.back() == '.' || safe.back() == ' ')) safe.pop_back();
  return safe.empty() ? "_" : safe;
}

std::string random_suffix() {
  std::random_device device;
  return fmt::format("{:08x}", device() & 0xFFFFFFFFu);
}

std::string path_text(const Path& path) {
  return to_valid_utf8(path.native());
}

std::string sha256_hex(std::span<const std::byte> bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("The SHA-256 of a file cannot be computed: the crypto library refuses it.");
  }
  return fmt::format("{:02x}", fmt::join(digest.begin(), digest.begin() + length, ""));
}

std::span<const std::byte> as_byte_span(std::string_view text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

std::string_view as_text(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace orvexa::common
