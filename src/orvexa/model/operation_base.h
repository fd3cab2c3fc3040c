#pragma once

#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/common/value.h"

namespace orvexa::model {

using common::Value;

/// Kinds of parameters, shared by both registries. Their JSON forms:
/// integer 3 | real 0.5 | boolean true | text, choice, band, expression, file "..." | choices, bands ["...", ...] |
/// point [x, y] | points [[x, y], ...] | rect [cx, cy, w, h] (fractions of the image, centre and size) |
/// rects [[cx, cy, w, h], ...] | palette [{"name": "...", "lab": [L, a, b]}, ...] |
/// polygons [[[x, y], ...], ...] of at least three points each
enum class ParameterType {
  integer,
  real,
  boolean,
  text,
  choice,
  choices,
  band,
  bands,
  point,
  points,
  rect,
  rects,
  expression,
  file,
  palette,
  polygons
};

[[nodiscard]] std::string_view parameter_type_name(ParameterType type);

/// How a parameter is picked on the image. `mode` is "rect", "point", "points", "rects", "circle" or "polygon".
struct Interaction {
  std::string mode;
  friend bool operator==(const Interaction&, const Interaction&) = default;
};

/// A parameter as a row of data: validation, editors, the command line and the manual all read it.
struct ParameterInfo {
  std::string name;
  ParameterType type = ParameterType::text;
  Value default_value;
  std::optional<double> min = std::nullopt;  ///< inclusive; of each number for lists
  std::optional<double> max = std::nullopt;  ///< inclusive
  std::string unit = {};
  std::string help = {};                  ///< a sentence
  std::vector<std::string> choices = {};  ///< for choice and choices
  std::optional<Interaction> interaction = std::nullopt;
};

using ParameterList = std::vector<ParameterInfo>;

/// Completes and checks parameters against their description: fills in defaults, converts what loses nothing (3.0 for
/// an integer, 3 for a real, a single text for a list of texts), in the description's order.
/// @param raw  a map, or null for none.
/// @throws std::invalid_argument with a sentence that names the operation, the parameter, the value and what is
/// allowed; for an unknown parameter, the nearest known name.
[[nodiscard]] Value validate_parameters(std::string_view operation, std::span<const ParameterInfo> parameters,
                                        const Value& raw);

/// Refuses parameters that nothing would look at because of another one, unless they have their defaults.
/// @param params  completed and checked.
/// @param why  what follows "but": "parameter \"profile\" is \"none\"; choose \"line\" to use it".
/// @throws std::invalid_argument with a sentence that names the operation and the first of them with its value.
void refuse_unused(std::string_view operation, std::span<const ParameterInfo> parameters, const Value& params,
                   std::initializer_list<std::string_view> unused, std::string_view why);

/// {name: default value} in the description's order.
[[nodiscard]] Value default_parameters(std::span<const ParameterInfo> parameters);

/// A parameter's value from its spelling on the command line ("0.5", "true", "otsu", "ndvi,gndvi", "0.5,0.5,1,1",
/// "0.1,0.2;0.3,0.4", polygons with " | " between them, or JSON). Where the default is null, null means no value (and
/// "null" in quotes the text). Not yet checked against its range.
/// @throws std::invalid_argument with a sentence when the text is not of that type.
[[nodiscard]] Value parse_parameter_text(const ParameterInfo& parameter, std::string_view text);

/// What is allowed, in words, for help and error sentences: "a whole number from 0 to 200", "one of otsu, triangle,
/// li"; with ", or null for no value" where that is the default.
[[nodiscard]] std::string allowed_text(const ParameterInfo& parameter);

}  // namespace orvexa::model
