#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/common/files.h"

#include "support/places.h"

namespace orvexa::test {

/// A new empty folder that is removed with everything in it at the end. Its name has a blank and an umlaut on purpose.
class TemporaryFolder {
 public:
  TemporaryFolder() : _path(std::filesystem::temp_directory_path() / ("orvexa tést ü " + common::random_suffix())) {
    std::filesystem::create_directories(_path);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return _path; }
  [[nodiscard]] std::filesystem::path operator/(const std::string& name) const { return _path / name; }

  /// Writes a file and gives its path.
  std::filesystem::path write(const std::string& name, std::string_view content) const {
    const auto file = _path / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file;
  }

  /// Names of the entries, hidden ones included, sorted.
  [[nodiscard]] std::vector<std::string> entries() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(_path))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  std::filesystem::path _path;
};

inline std::string read_all(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

/// The folder of real pictures beside the project, if this machine has it. Tests that use it skip aloud without it:
/// `if (!real_data()) GTEST_SKIP() << "no folder shared/data beside the project";`
inline std::optional<std::filesystem::path> real_data() {
  const auto folder = source_folder().parent_path() / "shared" / "data";
  if (std::filesystem::is_directory(folder)) return folder;
  return std::nullopt;
}

}  // namespace orvexa::test
