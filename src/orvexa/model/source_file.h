#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace orvexa::model {

/// A file that was read, for the record of where numbers came from.
struct SourceFile {
  std::filesystem::path path;
  std::string sha256;  ///< of the bytes that were decoded, hexadecimal
  std::uintmax_t bytes = 0;
  std::optional<int> page = std::nullopt;  ///< of a multi-page file, where the name that was loaded asked for one
};

}  // namespace orvexa::model
