#include "orvexa/model/mask_operations/local_threshold.h"

#include <fmt/format.h>

#include <stdexcept>

namespace orvexa::model {

ParameterInfo window_parameter(int default_side) {
  return {.name = "window",
          .type = ParameterType::integer,
          .default_value = default_side,
          .min = 3.0,
          .max = 501.0,
          .unit = "px",
          .help = "Side of the square window around each pixel, an odd number."};
}

void check_window(std::string_view operation, const Value& params) {
  const int side = params.at("window").get<int>();
  if (side % 2 == 1) return;
  throw std::invalid_argument(
      fmt::format("{}: parameter \"window\" is {}, but it must be an odd number.", operation, side));
}

int window_radius(const Value& params) {
  return params.at("window").get<int>() / 2;
}

ParameterInfo polarity_parameter() {
  return {.name = "polarity",
          .type = ParameterType::choice,
          .default_value = "bright",
          .help = "Whether the pixels above their level are kept (bright) or those that are not above it (dark).",
          .choices = {"bright", "dark"}};
}

bool keeps_bright(const Value& params) {
  return params.at("polarity") == "bright";
}

const char* window_precision_text() {
  return "The sums behind mean and standard deviation of a window are exact; floats are first rounded to multiples of "
         "2^-42 of the largest magnitude that counts. Where magnitudes leave a gap of 2^8 or more, those below the gap "
         "have a largest of their own, so that an outlier changes only the windows that see it. ";
}

std::string window_text() {
  return "A window sees the pixels of the incoming mask that lie in the image and are a number, and nothing else: at "
         "the border and at the edge of the mask it has fewer pixels. Bright keeps v > t, dark v <= t; a value closer "
         "than 1e-12 of white (with gaussian 1e-9) to its level equals it. Pixels that are not a number are never "
         "kept. " +
         std::string(window_precision_text());
}

}  // namespace orvexa::model
