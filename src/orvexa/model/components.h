#pragma once

#include <cstdint>
#include <vector>

#include "orvexa/model/mask.h"
#include "orvexa/model/pick_geometry.h"

namespace orvexa::model {

/// Connected components of a mask, numbered 1.. in the raster order of their first pixel (top to bottom, left to
/// right).
struct Components {
  cv::Mat labels;  ///< height x width, CV_32SC1, 0 = background
  struct Component {
    std::int64_t area = 0;
    PixelRect box;
  };
  std::vector<Component> components;  ///< component k at [k - 1]
};

/// @param connectivity  4 or 8; foreground is 8-connected unless a parameter says otherwise.
[[nodiscard]] Components label_components(const Mask& mask, int connectivity = 8);
[[nodiscard]] Components label_components(const cv::Mat& mask, int connectivity = 8);

}  // namespace orvexa::model
