#pragma once

#include <string>
#include <string_view>

#include "orvexa/common/files.h"
#include "orvexa/common/value.h"

namespace orvexa::common {

/// Limits on what is read from outside; more is refused with a sentence that names the limit.
struct DocumentLimits {
  /// Of the text, and again of its scalars after aliases are expanded.
  std::size_t max_bytes = 16u << 20;
  /// Lists and maps inside each other.
  int max_depth = 64;
  /// Scalars, lists and maps, counted after aliases are expanded (what an anchor names counts once more), so a
  /// "billion laughs" ends here.
  std::size_t max_nodes = 1'000'000;
};

/// Writes a value as a YAML document (UTF-8, block style, keys in their order; lists of numbers and empty lists and
/// maps on one line) in place of the file, whole or not at all. Every type survives a `load_yaml`: texts that would
/// read as a number, boolean or null are quoted (also those that an older YAML would take for one: yes, 0123,
/// 2024-01-02), reals are written in the shortest form that reads back, non-finite reals as .nan, .inf, -.inf. Bytes
/// that are not UTF-8 become U+FFFD.
/// @throws std::runtime_error when the file cannot be written; std::invalid_argument for a value that `load_yaml` would
/// not read back: more levels, nodes or bytes than its limits, or binary data.
void save_yaml(const Path& path, const Value& value);

/// The top-level value of a YAML document; null for an empty one. Plain scalars follow YAML 1.2's core schema, quoted
/// ones are texts; the core schema's tags (!!str, !!int, ...) are honoured, other tags refused. Aliases are expanded. A
/// merge key (a plain `<<`) is refused: it is no part of YAML 1.2. An integer is int64 or, above it, uint64; one
/// outside both and a real outside the range of double are refused rather than changed. A byte order mark is skipped.
/// @throws std::runtime_error with a sentence that names the file and where there is one the line: not readable, not
/// YAML, not UTF-8, a control character, several documents, a repeated key, a key that is not a text, an alias inside
/// its own anchor, or a limit exceeded.
[[nodiscard]] Value load_yaml(const Path& path, const DocumentLimits& limits = {});

/// The two above without files; `name` stands for the file in sentences.
[[nodiscard]] std::string yaml_text(const Value& value);
[[nodiscard]] Value parse_yaml(std::string_view text, std::string_view name, const DocumentLimits& limits = {});

/// A JSON document as text, two blanks of indentation, lists of numbers on one line, a line feed at the end. Reals in
/// the form of `number_text`. Bytes that are not UTF-8 become U+FFFD.
/// @throws std::invalid_argument for what only a bug of the caller can put there: non-finite reals (JSON has no word
/// for them), binary data, or more levels than `DocumentLimits` allows.
[[nodiscard]] std::string json_text(const Value& value);
/// The same on one line, without the line feed.
[[nodiscard]] std::string json_line(const Value& value);
/// Integers, reals and limits as for `load_yaml`.
/// @throws std::runtime_error with a sentence that names the file and the line: not JSON, not UTF-8, a repeated key, or
/// a limit exceeded.
[[nodiscard]] Value parse_json(std::string_view text, std::string_view name, const DocumentLimits& limits = {});

}  // namespace orvexa::common
