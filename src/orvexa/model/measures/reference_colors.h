#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/measures/color_rows.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::model {

/// A colour that somebody gave a name.
struct NamedColor {
  std::string name;
  Lab lab;
};

/// From a checked parameter of type palette.
[[nodiscard]] std::vector<NamedColor> palette_from(const Value& palette);
/// Checks what the kind of parameter leaves open.
/// @throws std::invalid_argument with a sentence for a list without colours or with more than 64, a lightness outside
/// 0..100, and a name with a control character, which could not stand in a table.
void check_palette(std::string_view operation, std::string_view parameter, const Value& palette);

/// The formula of a colour difference.
using ColorDifference = double (*)(const Lab& a, const Lab& b);

/// The parameter `radius` of operations whose reference colour is picked on the picture.
[[nodiscard]] ParameterInfo patch_radius_parameter();
/// The colour at a picked point: the mean in CIELAB of the pixels around it.
/// @param point  a checked parameter of type point with numbers from 0 to 1.
/// @throws std::runtime_error with a sentence when no pixel there has a valid colour.
[[nodiscard]] Lab picked_color(const ColorSource& colors, const Value& point, int radius);

/// "L 53.2, a 80.1, b 67.2"
[[nodiscard]] std::string lab_text(const Lab& lab);

}  // namespace orvexa::model
