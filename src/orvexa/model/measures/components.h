#pragma once

#include <cstdint>
#include <vector>

#include "orvexa/model/mask.h"
#include "orvexa/model/pick_geometry.h"
#include "orvexa/model/run_context.h"

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

/// Labelled stripe by stripe on several threads and joined at the seams.
/// @param connectivity  4 or 8; foreground is 8-connected unless a parameter says otherwise.
/// @param mask  CV_8UC1, not 0 = foreground; may be empty (no pixels, no components).
/// @throws std::invalid_argument for another connectivity or type.
/// Source: A. Rosenfeld, J. L. Pfaltz, Sequential Operations in Digital Picture Processing, J. ACM 13(4), 1966,
/// 471-494.
[[nodiscard]] Components label_components(const Mask& mask, int connectivity = 8, const RunContext& context = {});
[[nodiscard]] Components label_components(const cv::Mat& mask, int connectivity = 8, const RunContext& context = {});

}  // namespace orvexa::model
