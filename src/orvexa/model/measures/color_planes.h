#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::model {

/// The colour that an operation looks at.
struct ColorPlanes {
  std::vector<Band> rgb;  ///< R, G, B
  std::string name;       ///< "CLR.RGB", or "MSP.RGB" for bands of roles: the prefix of its metrics
};

/// The parameter `image` of operations on colour.
[[nodiscard]] ParameterInfo color_image_parameter();

/// The channels of the named image. For an empty name those of the first colour image of CLR, else of the capture's
/// first colour image, else the bands of the roles R, G and B of one measurement.
/// @param operation  its key, for sentences.
/// @throws std::runtime_error with a sentence when the capture has no such image or it is a single-band one.
[[nodiscard]] ColorPlanes find_color_planes(const ImageSource& source, std::string_view operation,
                                            std::string_view image);

/// For the description of an operation with that parameter: what looks for the image as a run does.
[[nodiscard]] std::function<void(const ImageSource& source, const Value& params)> check_color_capture(
    std::string operation);

}  // namespace orvexa::model
