#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvexa::common {

using Path = std::filesystem::path;
using Bytes = std::vector<std::byte>;

/// The whole content of an ordinary file (not a device or a pipe: they may have no end).
/// @throws std::runtime_error with a sentence that names the file: not there, a folder, not ordinary, not readable,
/// larger than `max_bytes`.
[[nodiscard]] Bytes read_file(const Path& file, std::uintmax_t max_bytes = std::uintmax_t{8} << 30);
[[nodiscard]] std::string read_text_file(const Path& file, std::uintmax_t max_bytes);

/// A file that appears whole or not at all: it is written to a uniquely named hidden sibling, and `commit()` flushes,
/// checks, fsyncs and renames it over the target. Without `commit()` the destructor removes the sibling and the target
/// is untouched.
/// @throws std::runtime_error from the constructor, `write` and `commit`, with a sentence that names the target file
/// and the system's reason (for example a full disk or a folder that may not be written to). A target that is a folder
/// or a device is refused; of a link the file it points to is replaced; a file that is replaced keeps its permissions.
class AtomicFile {
 public:
  explicit AtomicFile(Path target);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  void write(std::string_view text);
  void write(std::span<const std::byte> bytes);
  void commit();

 private:
  Path _target;
  Path _temporary;
  int _descriptor = -1;
};

void write_file_atomically(const Path& target, std::string_view text);
void write_file_atomically(const Path& target, std::span<const std::byte> bytes);

/// Flushes a folder's entries to disk, so that a rename inside it survives a power cut.
void flush_folder(const Path& folder);

/// A name made safe as a single path component: path separators, control characters and characters that some file
/// systems refuse become `_`; leading dots and trailing dots and blanks go; never empty, at most 120 bytes of UTF-8.
[[nodiscard]] std::string safe_file_name(std::string_view name);

/// Eight random lower-case hexadecimal digits for names of temporary files.
[[nodiscard]] std::string random_suffix();

/// The path as UTF-8 text for messages, JSON and YAML (invalid bytes replaced).
[[nodiscard]] std::string path_text(const Path& path);

/// SHA-256 of the bytes, 64 lower-case hexadecimal digits (FIPS 180-4).
[[nodiscard]] std::string sha256_hex(std::span<const std::byte> bytes);

[[nodiscard]] std::span<const std::byte> as_byte_span(std::string_view text);
[[nodiscard]] std::string_view as_text(std::span<const std::byte> bytes);

}  // namespace orvexa::common
