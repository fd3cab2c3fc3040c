#include "orvexa/model/operation_base.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "orvexa/common/text.h"

namespace orvexa::model {

namespace {

using MaybeValue = std::optional<Value>;

// ---- Values in sentences ----

std::string short_number_text(double value) {
  std::array<char, 32> buffer{};
  const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return error == std::errc{} ? std::string(buffer.data(), end) : common::number_text(value);
}

std::string in_quotes(std::string_view text) {
  return '"' + common::to_valid_utf8(text) + '"';
}

/// A value as a person would write it; JSON has no word for a number that is not finite.
std::string value_text(const Value& value) {
  if (value.is_number_float()) return common::number_text(value.get<double>());
  if (value.is_string()) return in_quotes(value.get_ref<const std::string&>());
  if (!value.is_array()) return value.dump(-1, ' ', false, Value::error_handler_t::replace);
  constexpr std::size_t shown = 8;
  std::string text;
  for (std::size_t i = 0; i < std::min(shown, value.size()); ++i) text += (i > 0 ? ", " : "") + value_text(value.at(i));
  return "[" + text + (value.size() > shown ? ", ...]" : "]");
}

std::string range_text(const ParameterInfo& parameter) {
  if (parameter.min && parameter.max) {
    return " from " + short_number_text(*parameter.min) + " to " + short_number_text(*parameter.max);
  }
  if (parameter.min) return " of at least " + short_number_text(*parameter.min);
  if (parameter.max) return " of at most " + short_number_text(*parameter.max);
  return {};
}

std::string each_number_text(const ParameterInfo& parameter) {
  const std::string range = range_text(parameter);
  return range.empty() ? range : ", each number" + range;
}

std::string choices_text(const ParameterInfo& parameter) {
  return common::joined(parameter.choices, ", ");
}

// ---- Checks: the value in its JSON form after a conversion that loses nothing, or nothing ----

constexpr double largest_exact_integer = 9007199254740992.0;  // 2^53: beyond it reals skip whole numbers

MaybeValue to_integer(const ParameterInfo&, const Value& value) {
  if (value.is_number_unsigned() && value.get<std::uint64_t>() > std::uint64_t{INT64_MAX}) return {};
  if (value.is_number_integer()) return Value(value.get<std::int64_t>());
  if (!value.is_number_float()) return {};
  const double number = value.get<double>();
  if (!(std::abs(number) <= largest_exact_integer) || number != std::trunc(number)) return {};
  return Value(static_cast<std::int64_t>(number));
}

/// A finite real, or an integer that a real holds exactly.
std::optional<double> finite_number(const Value& value) {
  if (!value.is_number()) return {};
  const double number = value.get<double>();
  if (value.is_number_float()) return std::isfinite(number) ? std::optional(number) : std::nullopt;
  const bool is_exact = std::abs(number) <= largest_exact_integer && static_cast<std::int64_t>(number) == value;
  return is_exact ? std::optional(number) : std::nullopt;
}

MaybeValue to_real(const ParameterInfo&, const Value& value) {
  const auto number = finite_number(value);
  return number ? MaybeValue(*number) : std::nullopt;
}

MaybeValue to_boolean(const ParameterInfo&, const Value& value) {
  return value.is_boolean() ? MaybeValue(value) : std::nullopt;
}

MaybeValue to_text(const ParameterInfo&, const Value& value) {
  return value.is_string() && common::is_valid_utf8(value.get_ref<const std::string&>()) ? MaybeValue(value)
                                                                                         : std::nullopt;
}

MaybeValue to_choice(const ParameterInfo& parameter, const Value& value) {
  // A choice such as "8" may stand in a file as the number 8.
  if (!value.is_string() && !value.is_number_integer()) return {};
  std::string text = value.is_string() ? value.get<std::string>() : value.dump();
  const bool is_known = std::ranges::find(parameter.choices, text) != parameter.choices.end();
  return is_known ? MaybeValue(std::move(text)) : std::nullopt;
}

using Conversion = MaybeValue (*)(const ParameterInfo&, const Value&);

/// A list of texts without repetitions; a single text stands for a list of one.
MaybeValue to_text_list(const ParameterInfo& parameter, const Value& value, Conversion to_element) {
  if (value.is_string()) return to_text_list(parameter, Value::array({value}), to_element);
  if (!value.is_array()) return {};
  Value list = Value::array();
  for (const Value& element : value) {
    auto text = to_element(parameter, element);
    if (!text || std::ranges::find(list, *text) != list.end()) return {};
    list.push_back(*std::move(text));
  }
  return list;
}

MaybeValue to_choices(const ParameterInfo& parameter, const Value& value) {
  return to_text_list(parameter, value, to_choice);
}

MaybeValue to_bands(const ParameterInfo& parameter, const Value& value) {
  return to_text_list(parameter, value, to_text);
}

using FieldNames = std::span<const std::string_view>;

/// As many finite numbers as there are fields: from a list, or from a map with exactly these keys, each bare or with
/// the "_norm" that picked geometry has.
MaybeValue to_numbers(const Value& value, FieldNames fields) {
  if ((!value.is_array() && !value.is_object()) || value.size() != fields.size()) return {};
  Value numbers = Value::array();
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const Value* element = nullptr;
    if (value.is_array()) {
      element = &value.at(i);
    } else {
      auto found = value.find(std::string(fields[i]));
      if (found == value.end()) found = value.find(std::string(fields[i]) + "_norm");
      if (found == value.end()) return {};
      element = &*found;
    }
    const auto number = finite_number(*element);
    if (!number) return {};
    numbers.push_back(*number);
  }
  return numbers;
}

MaybeValue to_point(const ParameterInfo&, const Value& value) {
  static constexpr std::array<std::string_view, 2> fields{"x", "y"};
  return to_numbers(value, fields);
}

MaybeValue to_rect(const ParameterInfo&, const Value& value) {
  static constexpr std::array<std::string_view, 4> fields{"cx", "cy", "w", "h"};
  auto numbers = to_numbers(value, fields);
  if (numbers && (numbers->at(2).get<double>() < 0 || numbers->at(3).get<double>() < 0)) return {};
  return numbers;
}

MaybeValue to_list(const ParameterInfo& parameter, const Value& value, Conversion to_element) {
  if (!value.is_array()) return {};
  Value list = Value::array();
  for (const Value& element : value) {
    auto converted = to_element(parameter, element);
    if (!converted) return {};
    list.push_back(*std::move(converted));
  }
  return list;
}

MaybeValue to_points(const ParameterInfo& parameter, const Value& value) {
  return to_list(parameter, value, to_point);
}

MaybeValue to_polygon(const ParameterInfo& parameter, const Value& value) {
  constexpr std::size_t fewest_corners = 3;
  auto points = to_points(parameter, value);
  return points && points->size() >= fewest_corners ? points : std::nullopt;
}

MaybeValue to_polygons(const ParameterInfo& parameter, const Value& value) {
  return to_list(parameter, value, to_polygon);
}

MaybeValue to_rects(const ParameterInfo& parameter, const Value& value) {
  return to_list(parameter, value, to_rect);
}

MaybeValue to_palette_entry(const ParameterInfo& parameter, const Value& value) {
  static constexpr std::array<std::string_view, 3> fields{"L", "a", "b"};
  if (!value.is_object() || value.size() != 2 || !value.contains("name") || !value.contains("lab")) return {};
  const auto name = to_text(parameter, value.at("name"));
  const auto lab = to_numbers(value.at("lab"), fields);
  if (!name || name->get_ref<const std::string&>().empty() || !lab) return {};
  return Value{{"name", *name}, {"lab", *lab}};
}

MaybeValue to_palette(const ParameterInfo& parameter, const Value& value) {
  auto palette = to_list(parameter, value, to_palette_entry);
  if (!palette) return {};
  std::vector<std::string> names;
  for (const Value& entry : *palette) {
    const auto& name = entry.at("name").get_ref<const std::string&>();
    if (std::ranges::find(names, name) != names.end()) return {};
    names.push_back(name);
  }
  return palette;
}

// ---- Spellings on the command line: a value that the check above then looks at, or nothing ----

MaybeValue number_from(std::string_view text) {
  const char* const end = text.data() + text.size();
  std::int64_t integer = 0;
  if (const auto [last, error] = std::from_chars(text.data(), end, integer); error == std::errc{} && last == end) {
    return Value(integer);
  }
  double real = 0;
  if (const auto [last, error] = std::from_chars(text.data(), end, real); error == std::errc{} && last == end) {
    return Value(real);
  }
  return {};
}

MaybeValue boolean_from(std::string_view text) {
  const std::string word = common::to_lower_ascii(text);
  if (word == "true") return Value(true);
  if (word == "false") return Value(false);
  return {};
}

MaybeValue json_from(std::string_view text) {
  Value value = Value::parse(text, nullptr, false);
  return value.is_discarded() ? std::nullopt : MaybeValue(std::move(value));
}

MaybeValue text_from(std::string_view text) {
  if (text.starts_with('"')) {
    if (auto value = json_from(text)) return value;
  }
  return Value(std::string(text));
}

/// The parts between separators, each trimmed and read; an empty text has no parts.
MaybeValue list_from(std::string_view text, char separator, MaybeValue (*element_from)(std::string_view)) {
  if (text.starts_with('[') || text.starts_with('{') || text.starts_with('"')) return json_from(text);
  Value list = Value::array();
  if (text.empty()) return list;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    auto element = element_from(common::trimmed(text.substr(begin, end - begin)));
    if (!element) return {};
    list.push_back(*std::move(element));
    begin = end + 1;
  }
  return list;
}

MaybeValue plain_text_from(std::string_view text) {
  return text.empty() ? std::nullopt : MaybeValue(std::string(text));
}

MaybeValue texts_from(std::string_view text) {
  return list_from(text, ',', plain_text_from);
}

MaybeValue numbers_from(std::string_view text) {
  return list_from(text, ',', number_from);
}

MaybeValue lists_of_numbers_from(std::string_view text) {
  return list_from(text, ';', numbers_from);
}

MaybeValue lists_of_points_from(std::string_view text) {
  return list_from(text, '|', lists_of_numbers_from);
}

// ---- The table: all that is known about a kind of parameter, one row each ----

struct TypeRow {
  ParameterType type;
  std::string_view name;
  Conversion converted;                    ///< JSON form
  MaybeValue (*parsed)(std::string_view);  ///< spelling on the command line
  std::string (*allowed)(const ParameterInfo&);
};

constexpr std::array type_table{
    TypeRow{ParameterType::integer, "integer", to_integer, number_from,
            [](const ParameterInfo& p) { return "a whole number" + range_text(p); }},
    TypeRow{ParameterType::real, "real", to_real, number_from,
            [](const ParameterInfo& p) { return "a number" + range_text(p); }},
    TypeRow{ParameterType::boolean, "boolean", to_boolean, boolean_from,
            [](const ParameterInfo&) { return std::string("true or false"); }},
    TypeRow{ParameterType::text, "text", to_text, text_from,
            [](const ParameterInfo&) { return std::string("a text"); }},
    TypeRow{ParameterType::choice, "choice", to_choice, text_from,
            [](const ParameterInfo& p) { return "one of " + choices_text(p); }},
    TypeRow{ParameterType::choices, "choices", to_choices, texts_from,
            [](const ParameterInfo& p) { return "a list without repetitions of " + choices_text(p); }},
    TypeRow{ParameterType::band, "band", to_text, text_from,
            [](const ParameterInfo&) { return std::string("the name of a band, such as MSP.NIR"); }},
    TypeRow{ParameterType::bands, "bands", to_bands, texts_from,
            [](const ParameterInfo&) {
              return std::string("a list without repetitions of names of bands, such as MSP.NIR");
            }},
    TypeRow{ParameterType::point, "point", to_point, numbers_from,
            [](const ParameterInfo& p) { return "a point [x, y]" + each_number_text(p); }},
    TypeRow{ParameterType::points, "points", to_points, lists_of_numbers_from,
            [](const ParameterInfo& p) { return "a list of points [x, y]" + each_number_text(p); }},
    TypeRow{ParameterType::rect, "rect", to_rect, numbers_from,
            [](const ParameterInfo& p) {
              return "a rectangle [cx, cy, w, h] of centre and size, sizes not negative" + each_number_text(p);
            }},
    TypeRow{ParameterType::rects, "rects", to_rects, lists_of_numbers_from,
            [](const ParameterInfo& p) {
              return "a list of rectangles [cx, cy, w, h] of centre and size, sizes not negative" + each_number_text(p);
            }},
    TypeRow{ParameterType::expression, "expression", to_text, text_from,
            [](const ParameterInfo&) { return std::string("an expression of band names, such as (NIR - RED) / NIR"); }},
    TypeRow{ParameterType::file, "file", to_text, text_from,
            [](const ParameterInfo&) { return std::string("the path of a file"); }},
    TypeRow{ParameterType::palette, "palette", to_palette, json_from,
            [](const ParameterInfo& p) {
              return "a list of colours {\"name\": \"...\", \"lab\": [L, a, b]} with different names" +
                     each_number_text(p);
            }},
    TypeRow{ParameterType::polygons, "polygons", to_polygons, lists_of_points_from,
            [](const ParameterInfo& p) {
              return "a list of polygons [[x, y], [x, y], [x, y], ...] of at least three points" + each_number_text(p);
            }},
};

constexpr bool rows_stand_in_the_order_of_the_enumeration() {
  for (std::size_t i = 0; i < type_table.size(); ++i) {
    if (static_cast<std::size_t>(type_table[i].type) != i) return false;
  }
  return type_table.size() == static_cast<std::size_t>(ParameterType::polygons) + 1;
}
static_assert(rows_stand_in_the_order_of_the_enumeration());

const TypeRow& row_of(ParameterType type) {
  return type_table.at(static_cast<std::size_t>(type));
}

// ---- Checking ----

bool is_within_range(const ParameterInfo& parameter, const Value& value) {
  if (value.is_structured()) {
    return std::ranges::all_of(value, [&](const Value& element) { return is_within_range(parameter, element); });
  }
  if (!value.is_number()) return true;
  const double number = value.get<double>();
  return number >= parameter.min.value_or(number) && number <= parameter.max.value_or(number);
}

std::string nearest_choice(const ParameterInfo& parameter, const Value& value) {
  return value.is_string() ? common::did_you_mean(value.get_ref<const std::string&>(), parameter.choices)
                           : std::string();
}

Value checked(std::string_view operation, const ParameterInfo& parameter, const Value& value) {
  if (value.is_null()) return parameter.default_value;
  auto converted = row_of(parameter.type).converted(parameter, value);
  if (!converted || !is_within_range(parameter, *converted)) {
    throw std::invalid_argument(fmt::format("{}: parameter \"{}\" is {}, but it must be {}{}.", operation,
                                            parameter.name, value_text(value), allowed_text(parameter),
                                            nearest_choice(parameter, value)));
  }
  return *std::move(converted);
}

void refuse_unknown_names(std::string_view operation, std::span<const ParameterInfo> parameters, const Value& raw) {
  std::vector<std::string> known;
  for (const ParameterInfo& parameter : parameters) known.push_back(parameter.name);
  for (const auto& [name, value] : raw.items()) {
    if (std::ranges::find(known, name) != known.end()) continue;
    throw std::invalid_argument(fmt::format(
        "{}: there is no parameter {}{}; {}.", operation, in_quotes(name), common::did_you_mean(name, known),
        known.empty() ? std::string("this operation has none") : "its parameters are " + common::joined(known, ", ")));
  }
}

}  // namespace

std::string_view parameter_type_name(ParameterType type) {
  return row_of(type).name;
}

std::string allowed_text(const ParameterInfo& parameter) {
  const std::string allowed = row_of(parameter.type).allowed(parameter);
  return parameter.default_value.is_null() ? allowed + ", or null for no value" : allowed;
}

Value validate_parameters(std::string_view operation, std::span<const ParameterInfo> parameters, const Value& raw) {
  if (!raw.is_object() && !raw.is_null()) {
    throw std::invalid_argument(
        fmt::format("{}: parameters must be a map of names to values, not {}.", operation, value_text(raw)));
  }
  if (raw.is_object()) refuse_unknown_names(operation, parameters, raw);
  Value validated = Value::object();
  for (const ParameterInfo& parameter : parameters) {
    const auto given = raw.find(parameter.name);
    validated[parameter.name] = given == raw.end() ? parameter.default_value : checked(operation, parameter, *given);
  }
  return validated;
}

void refuse_unused(std::string_view operation, std::span<const ParameterInfo> parameters, const Value& params,
                   std::initializer_list<std::string_view> unused, std::string_view why) {
  for (const ParameterInfo& parameter : parameters) {
    if (std::ranges::find(unused, parameter.name) == unused.end()) continue;
    const Value& value = params.at(parameter.name);
    if (value == parameter.default_value) continue;
    throw std::invalid_argument(
        fmt::format("{}: parameter \"{}\" is {}, but {}.", operation, parameter.name, value_text(value), why));
  }
}

Value default_parameters(std::span<const ParameterInfo> parameters) {
  Value defaults = Value::object();
  for (const ParameterInfo& parameter : parameters) defaults[parameter.name] = parameter.default_value;
  return defaults;
}

Value parse_parameter_text(const ParameterInfo& parameter, std::string_view text) {
  const std::string_view spelling = common::trimmed(text);
  if (parameter.default_value.is_null() && spelling == "null") return nullptr;
  const auto refused = [&] {
    return std::invalid_argument(fmt::format("Parameter \"{}\" is given as {}, but it must be {}{}.", parameter.name,
                                             in_quotes(text), allowed_text(parameter),
                                             nearest_choice(parameter, Value(std::string(spelling)))));
  };
  const auto value = row_of(parameter.type).parsed(spelling);
  if (!value) throw refused();
  auto converted = row_of(parameter.type).converted(parameter, *value);
  if (!converted) throw refused();
  return *std::move(converted);
}

}  // namespace orvexa::model
