#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/common/value.h"

namespace orvexa::common {

/// The shortest decimal text that reads back to the same value, laid out so that it is recognised as a real number:
/// "0.125", "1.0", "1e-05", "1e+16", "nan", "inf", "-inf".
[[nodiscard]] std::string number_text(double value);

/// A scalar as the reports write it: integers in decimal, booleans as "True" / "False", reals by `number_text`, text as
/// it stands, null as "None"; lists and maps in their JSON form.
[[nodiscard]] std::string scalar_text(const Value& value);

/// What a value is, in words for a sentence: "a map", "a list", "a text", "a number", "true or false", "nothing".
[[nodiscard]] std::string_view kind_text(const Value& value);

/// A decimal integer with a comma as thousands separator: 1234567 -> "1,234,567".
[[nodiscard]] std::string grouped_integer_text(std::int64_t value);

/// The known name that is closest to `wanted` by edit distance (Levenshtein; upper and lower case count as equal), if
/// one is close enough to be meant: at most a third of `wanted`'s length away, two edits always allowed, but never all
/// characters. Of equally near names the first one.
[[nodiscard]] std::optional<std::string> nearest_name(std::string_view wanted, std::span<const std::string> known);

/// ` (did you mean "nearest"?)` or an empty text: the tail of a sentence that refuses a name.
[[nodiscard]] std::string did_you_mean(std::string_view wanted, std::span<const std::string> known);

[[nodiscard]] std::string joined(std::span<const std::string> parts, std::string_view separator);
[[nodiscard]] std::string to_lower_ascii(std::string_view text);
[[nodiscard]] std::string_view trimmed(std::string_view text);
[[nodiscard]] bool is_valid_utf8(std::string_view text);

/// The text with everything that is not valid UTF-8 replaced by U+FFFD, so that JSON and YAML can hold it.
[[nodiscard]] std::string to_valid_utf8(std::string_view text);

/// The text on one line of a terminal or log: a line feed becomes `\n`, other control characters `\x1b`, and what is
/// not UTF-8 U+FFFD, so that a file name can neither forge a line nor steer a terminal.
[[nodiscard]] std::string visible_text(std::string_view text);

/// Shell-style matching of a whole name: `*`, `?`, `[abc]`, `[a-z]`, `[!abc]`; case-sensitive; a `[` that is not closed
/// stands for itself.
[[nodiscard]] bool fnmatch(std::string_view name, std::string_view pattern);

}  // namespace orvexa::common
