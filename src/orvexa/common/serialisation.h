#pragma once

#include <string>
#include <string_view>

#include "orvexa/common/files.h"
#include "orvexa/common/value.h"

namespace orvexa::common {

/// Limits on what is read from outside; more is refused with a sentence that names the limit.
struct DocumentLimits {
  std::size_t max_bytes = 16u << 20;
  int max_depth = 64;
  std::size_t max_nodes = 1'000'000;  ///< counted after aliases are expanded, so a "billion laughs" ends here
};

/// Writes a value as a YAML document (UTF-8, block style, keys in their order) in place of the file, whole or not at
/// all. Every type survives a `load_yaml`: texts that would read as a number, boolean or null are quoted, reals are
/// written in the shortest form that reads back, non-finite reals as .nan, .inf, -.inf.
/// @throws std::runtime_error when the file cannot be written.
void save_yaml(const Path& path, const Value& value);

/// The top-level value of a YAML document; null for an empty one. Plain scalars follow YAML 1.2's core schema, quoted
/// ones are texts. Aliases are expanded.
/// @throws std::runtime_error with a sentence that names the file and where there is one the line: not readable, not
/// YAML, not UTF-8, several documents, a repeated key, a key that is not a text, an alias inside its own anchor, or a
/// limit exceeded.
[[nodiscard]] Value load_yaml(const Path& path, const DocumentLimits& limits = {});

/// The two above without files; `name` stands for the file in sentences.
[[nodiscard]] std::string yaml_text(const Value& value);
[[nodiscard]] Value parse_yaml(std::string_view text, std::string_view name, const DocumentLimits& limits = {});

/// A JSON document as text, two blanks of indentation, a line feed at the end. Reals in the form of `number_text`.
/// Non-finite reals are a bug of the caller and are refused (std::invalid_argument): JSON has no word for them.
[[nodiscard]] std::string json_text(const Value& value);
[[nodiscard]] Value parse_json(std::string_view text, std::string_view name, const DocumentLimits& limits = {});

}  // namespace orvexa::common
