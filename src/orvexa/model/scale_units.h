#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "orvexa/model/image_source.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::model {

/// The parameter `unit` of an operation whose length is in pixels or millimetres.
[[nodiscard]] ParameterInfo length_unit_parameter();
/// The parameter `unit` of an operation whose area is in pixels or square millimetres.
[[nodiscard]] ParameterInfo area_unit_parameter();

/// Length of a pixel's side in the unit ("px" or "mm"): 1 for pixels.
/// @param operation  display name, for the sentence.
/// @throws std::runtime_error for millimetres when the capture declares no scale.
[[nodiscard]] double pixel_length(std::string_view operation, std::string_view unit, const ImageSource& source);
/// A greatest length in pixels, given in the unit ("px" or "mm"), and a billionth more: what is just as long as a
/// rounded quotient is not too long.
[[nodiscard]] double longest_in_pixels(std::string_view operation, double length, std::string_view unit,
                                       const ImageSource& source);
/// Area of a pixel in the unit ("px" or "mm2").
[[nodiscard]] double pixel_area_in(std::string_view operation, std::string_view unit, const ImageSource& source);

/// `check_capture` of an operation that needs nothing but a scale, and that only where its parameter `unit` is not
/// "px".
[[nodiscard]] std::function<void(const ImageSource& source, const Value& params)> check_scale_for(
    std::string operation);

/// Whether a measured size reaches a limit; sizes in millimetres are rounded products, so a billionth does not decide.
[[nodiscard]] bool reaches(double size, double limit);

}  // namespace orvexa::model
