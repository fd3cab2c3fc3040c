#include "orvexa/model/measures/named_expressions.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <stdexcept>
#include <utility>

#include "orvexa/common/text.h"
#include "orvexa/model/measures/bands.h"

namespace orvexa::model {

namespace {

bool is_letter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// Metrics and files are named by it.
bool is_good_name(std::string_view name) {
  return !name.empty() && name.size() <= 60 && is_letter(name.front()) &&
         std::ranges::all_of(name, [](char c) { return is_letter(c) || (c >= '0' && c <= '9') || c == '_'; });
}

/// The parts between semicolons and line breaks that are not blank.
std::vector<std::string_view> entries_of(std::string_view text) {
  std::vector<std::string_view> entries;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find_first_of(";\n", begin), text.size());
    const std::string_view entry = common::trimmed(text.substr(begin, end - begin));
    if (!entry.empty()) entries.push_back(entry);
    begin = end + 1;
  }
  return entries;
}

}  // namespace

std::vector<NamedExpression> named_expressions(std::string_view operation, std::string_view parameter,
                                               std::string_view text) {
  std::vector<NamedExpression> expressions;
  std::set<std::string> names;
  for (const std::string_view entry : entries_of(text)) {
    const auto refused = [&](const std::string& why) {
      return std::invalid_argument(fmt::format("{}: parameter \"{}\" holds \"{}\", but {}.", operation, parameter,
                                               common::visible_text(entry.substr(0, Expression::max_length)), why));
    };
    const std::size_t equals = entry.find('=');
    if (equals == std::string_view::npos) {
      throw refused("an entry is a name and an expression: NAME = EXPRESSION, such as ratio = N / R");
    }
    const std::string name(common::trimmed(entry.substr(0, equals)));
    if (!is_good_name(name)) {
      throw refused(
          "the name before the equals sign begins with a letter and holds up to 60 letters, digits and underscores");
    }
    if (!names.insert(common::to_lower_ascii(name)).second) {
      throw refused(fmt::format("the name {} is there already", name));
    }
    try {
      expressions.push_back({name, Expression(common::trimmed(entry.substr(equals + 1)))});
    } catch (const std::invalid_argument& wrong) {
      throw std::invalid_argument(fmt::format("{}: {}: {}", operation, name, wrong.what()));
    }
  }
  if (expressions.empty()) {
    throw std::invalid_argument(fmt::format(
        "{}: parameter \"{}\" is empty, but at least one expression has to be named, such as ratio = N / R.", operation,
        parameter));
  }
  return expressions;
}

RoleUser role_user(std::string name, const Expression& expression) {
  RoleUser user{.name = std::move(name), .roles = {}};
  const std::vector<std::string> known = role_names();
  std::ranges::copy_if(expression.names(), std::back_inserter(user.roles),
                       [&](const std::string& band) { return std::ranges::find(known, band) != known.end(); });
  return user;
}

const std::string& expression_text() {
  static const std::string text =
      "An expression holds numbers, bands, + - * / ^ (power, from right to left: -2^2 = -4), parentheses, sqrt(x), "
      "abs(x), min(x, y, ...) and max(x, y, ...); at most 1000 bytes and 64 parentheses inside each other. A band is "
      "MEASUREMENT.IMAGE[.channel], the bare name of an image that one measurement has, or a role (B, G, R, RE, RE2, "
      "N, R531, R570); a name with other characters than letters, digits, underscores and dots stands in double "
      "quotes. Roles are taken from one measurement. Bands are fractions of white. A pixel has no value where a band "
      "has none, a denominator is 0, a root or power is not a real number, or a step overflows; a sum that cancels but "
      "for rounding is 0. An expression needs reflectance (a declared white level) when its value depends on the scale "
      "of the bands, that is, when multiplying all bands by a factor changes it, and it holds a number other than 0 "
      "that is not an exponent: (N - R) / (N + R + 0.16) and 2 * G - R do, 2.5 * (N - R) / (N + R) and N - R do not.";
  return text;
}

}  // namespace orvexa::model
