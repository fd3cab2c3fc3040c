#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace orvexa::common {

/// One step through a UTF-8 text.
struct Utf8Step {
  char32_t code = 0;       ///< the code point; U+FFFD where the bytes are not UTF-8
  std::size_t length = 1;  ///< bytes to go on by, at least 1
  bool is_valid = false;
};

/// The code point at the beginning of a text that is not empty. Overlong forms, surrogates and code points above
/// U+10FFFF are not valid; the length is then that of the longest beginning that could have become a code point.
/// Source: The Unicode Standard 15.0, tables 3-7 and 3-8.
[[nodiscard]] Utf8Step first_code_point(std::string_view text);

/// Appends a code point (a Unicode scalar value) as UTF-8.
void append_utf8(std::string& text, char32_t code);

}  // namespace orvexa::common
