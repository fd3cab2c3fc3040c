#pragma once

#include <string>

#include "orvexa/common/value.h"

namespace orvexa::common {

struct JsonStyle {
  /// Two blanks of indentation a level, lists of numbers on one line; otherwise everything on one line.
  bool is_indented = false;
  /// Non-finite reals are written as nan, inf, -inf (no JSON, for people only); otherwise they are refused.
  bool allows_non_finite = false;
};

/// Appends a value in JSON form; reals by `number_text`, bytes that are not UTF-8 replaced by U+FFFD.
/// @throws std::invalid_argument for a non-finite real that is not allowed, binary data, or more than 64 levels.
void append_json(std::string& text, const Value& value, const JsonStyle& style);

/// Appends what JSON and YAML write alike: null, booleans, integers and finite reals (by `number_text`).
/// @return whether the value is one of these; otherwise nothing is appended.
[[nodiscard]] bool append_plain_scalar(std::string& text, const Value& value);

/// A text as a JSON string with its quotes. YAML's double-quoted scalars understand it too.
[[nodiscard]] std::string json_quoted(std::string_view text);

}  // namespace orvexa::common
