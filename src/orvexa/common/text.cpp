#include "orvexa/common/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <numeric>

#include "orvexa/common/json_writer.h"
#include "orvexa/common/utf8.h"

namespace orvexa::common {

namespace {

std::size_t edit_distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

/// Code points; a byte that is not UTF-8 becomes a number of its own above all of them, so that it equals only itself.
std::u32string code_points(std::string_view text) {
  std::u32string result;
  while (!text.empty()) {
    const Utf8Step step = first_code_point(text);
    if (step.is_valid) {
      result += step.code;
      text.remove_prefix(step.length);
    } else {
      result += static_cast<char32_t>(0x110000 + static_cast<unsigned char>(text.front()));
      text.remove_prefix(1);
    }
  }
  return result;
}

/// Where a bracket expression that opens at `open` ends (the position of its `]`), or npos when it is not closed. A `]`
/// right after `[` or `[!` is a member.
std::size_t bracket_end(std::u32string_view pattern, std::size_t open) {
  std::size_t i = open + 1;
  if (i < pattern.size() && pattern[i] == U'!') ++i;
  if (i < pattern.size() && pattern[i] == U']') ++i;
  return pattern.find(U']', i);
}

/// @param members  what stands between the brackets.
bool bracket_matches(std::u32string_view members, char32_t c) {
  const bool is_negated = members.starts_with(U'!');
  if (is_negated) members.remove_prefix(1);
  bool is_member = false;
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (i + 2 < members.size() && members[i + 1] == U'-') {
      is_member = is_member || (members[i] <= c && c <= members[i + 2]);
      i += 2;
    } else {
      is_member = is_member || members[i] == c;
    }
  }
  return is_member != is_negated;
}

/// Length of the pattern element at `at` if it matches the character, 0 if it does not.
std::size_t matching_element(std::u32string_view pattern, std::size_t at, char32_t c) {
  if (pattern[at] == U'?') return 1;
  if (pattern[at] == U'[') {
    const std::size_t end = bracket_end(pattern, at);
    if (end != std::u32string_view::npos) {
      return bracket_matches(pattern.substr(at + 1, end - at - 1), c) ? end + 1 - at : 0;
    }
  }
  return pattern[at] == c ? 1 : 0;
}

}  // namespace

std::string number_text(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  // Shortest digits that read back, as d.ddde[+-]xx, then laid out anew: plain between 1e-4 and 1e16.
  std::array<char, 32> buffer{};
  const auto end =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::scientific).ptr;
  std::string_view text(buffer.data(), static_cast<std::size_t>(end - buffer.data()));
  std::string sign;
  if (text.front() == '-') {
    sign = "-";
    text.remove_prefix(1);
  }
  const std::size_t e = text.find('e');
  std::string digits(1, text.front());
  if (e > 2) digits += text.substr(2, e - 2);
  std::string_view exponent_digits = text.substr(e + 1);
  if (exponent_digits.front() == '+') exponent_digits.remove_prefix(1);
  int exponent = 0;
  std::from_chars(exponent_digits.data(), exponent_digits.data() + exponent_digits.size(), exponent);

  if (exponent < -4 || exponent >= 16) {
    const std::string fraction = digits.size() > 1 ? "." + digits.substr(1) : "";
    return fmt::format("{}{}{}e{}{:02}", sign, digits.front(), fraction, exponent < 0 ? '-' : '+', std::abs(exponent));
  }
  if (exponent < 0) return sign + "0." + std::string(static_cast<std::size_t>(-exponent - 1), '0') + digits;
  const auto whole = static_cast<std::size_t>(exponent) + 1;
  if (digits.size() <= whole) return sign + digits + std::string(whole - digits.size(), '0') + ".0";
  return sign + digits.substr(0, whole) + "." + digits.substr(whole);
}

std::string scalar_text(const Value& value) {
  if (value.is_null()) return "None";
  if (value.is_boolean()) return value.get<bool>() ? "True" : "False";
  if (value.is_string()) return value.get<std::string>();
  std::string text;
  append_json(text, value, {.allows_non_finite = true});
  return text;
}

std::string_view kind_text(const Value& value) {
  switch (value.type()) {
    case Value::value_t::object:
      return "a map";
    case Value::value_t::array:
      return "a list";
    case Value::value_t::string:
      return "a text";
    case Value::value_t::boolean:
      return "true or false";
    case Value::value_t::number_integer:
    case Value::value_t::number_unsigned:
    case Value::value_t::number_float:
      return "a number";
    default:
      return "nothing";
  }
}

std::string grouped_integer_text(std::int64_t value) {
  std::string text = std::to_string(value);
  const std::size_t first_digit = value < 0 ? 1 : 0;
  for (std::size_t at = text.size(); at > first_digit + 3;) {
    at -= 3;
    text.insert(at, 1, ',');
  }
  return text;
}

std::optional<std::string> nearest_name(std::string_view wanted, std::span<const std::string> known) {
  const std::string wanted_lower = to_lower_ascii(wanted);
  std::optional<std::string> nearest;
  std::size_t allowed = std::max<std::size_t>(2, wanted.size() / 3);
  for (const std::string& name : known) {
    const std::size_t distance = edit_distance(wanted_lower, to_lower_ascii(name));
    const bool shares_something = distance < std::max(wanted.size(), name.size());
    if (!shares_something || distance > allowed) continue;
    nearest = name;
    if (distance == 0) break;
    allowed = distance - 1;
  }
  return nearest;
}

std::string did_you_mean(std::string_view wanted, std::span<const std::string> known) {
  const auto nearest = nearest_name(wanted, known);
  return nearest ? fmt::format(" (did you mean \"{}\"?)", *nearest) : std::string();
}

std::string joined(std::span<const std::string> parts, std::string_view separator) {
  return fmt::format("{}", fmt::join(parts.begin(), parts.end(), separator));
}

std::string to_lower_ascii(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n\f\v";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool is_valid_utf8(std::string_view text) {
  while (!text.empty()) {
    const Utf8Step step = first_code_point(text);
    if (!step.is_valid) return false;
    text.remove_prefix(step.length);
  }
  return true;
}

std::string to_valid_utf8(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const Utf8Step step = first_code_point(text);
    append_utf8(result, step.code);
    text.remove_prefix(step.length);
  }
  return result;
}

std::string visible_text(std::string_view text) {
  std::string visible;
  visible.reserve(text.size());
  for (const char c : text) {
    if (c == '\n') {
      visible += "\\n";
    } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
      visible += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    } else {
      visible += c;
    }
  }
  return to_valid_utf8(visible);
}

bool fnmatch(std::string_view name, std::string_view pattern) {
  const std::u32string text = code_points(name);
  const std::u32string wanted = code_points(pattern);
  std::size_t i = 0;
  std::size_t p = 0;
  // Going back to the last star alone is enough: an earlier star could only take what the later one can take as well.
  std::size_t star = std::u32string::npos;
  std::size_t star_text = 0;
  while (i < text.size()) {
    if (p < wanted.size() && wanted[p] == U'*') {
      star = p++;
      star_text = i;
      continue;
    }
    const std::size_t element = p < wanted.size() ? matching_element(wanted, p, text[i]) : 0;
    if (element > 0) {
      p += element;
      ++i;
    } else if (star != std::u32string::npos) {
      p = star + 1;
      i = ++star_text;
    } else {
      return false;
    }
  }
  while (p < wanted.size() && wanted[p] == U'*') ++p;
  return p == wanted.size();
}

}  // namespace orvexa::common
