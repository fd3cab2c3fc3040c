#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvexa/model/mask.h"
#include "orvexa/model/pick_geometry.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// Connected components, numbered 1.. in the raster order of their first pixel (top to bottom, left to right), as runs
/// along the rows: nothing is kept a pixel.
struct Components {
  struct Component {
    std::int64_t area = 0;
    PixelRect box;
  };
  /// Pixels [x0, x1) of row y.
  struct Run {
    int y = 0;
    int x0 = 0;
    int x1 = 0;
    std::int32_t label = 0;
  };

  Shape shape;                         ///< of the mask that they lie in
  std::vector<Component> components;   ///< component k at [k - 1]
  std::vector<Run> runs;               ///< of all components, in raster order
  std::vector<std::size_t> row_begin;  ///< where the runs of a row begin; one more for the end

  /// Whether the component reaches the border of the mask. A part of the background that does not is a hole.
  [[nodiscard]] bool touches_border(const Component& component) const {
    const PixelRect& box = component.box;
    return box.x0 == 0 || box.y0 == 0 || box.x1 == shape.width || box.y1 == shape.height;
  }
  /// The runs of rows y0 to y1 - 1.
  [[nodiscard]] std::span<const Run> runs_of_rows(int y0, int y1) const {
    const std::size_t begin = row_begin[static_cast<std::size_t>(y0)];
    return std::span(runs).subspan(begin, row_begin[static_cast<std::size_t>(y1)] - begin);
  }
  /// A picture of the mask's size with the number of the component at each pixel, CV_32SC1, 0 where there is none.
  [[nodiscard]] cv::Mat label_image(const RunContext& context = {}) const;
};

/// Labelled stripe by stripe on several threads and joined at the seams.
/// @param connectivity  4 or 8; foreground is 8-connected unless a parameter says otherwise.
/// @param mask  CV_8UC1 of 0 and 255; may be empty (no pixels, no components).
/// @throws std::invalid_argument for another connectivity or type.
/// Source: A. Rosenfeld, J. L. Pfaltz, Sequential Operations in Digital Picture Processing, J. ACM 13(4), 1966,
/// 471-494.
[[nodiscard]] Components label_components(const Mask& mask, int connectivity = 8, const RunContext& context = {});
[[nodiscard]] Components label_components(const cv::Mat& mask, int connectivity = 8, const RunContext& context = {});
/// The same for pixels given as runs in raster order, not touching within a row, inside a mask of that shape; their
/// labels do not matter.
[[nodiscard]] Components label_runs(Shape shape, std::vector<Components::Run> runs, int connectivity,
                                    const RunContext& context = {});
/// The same for the pixels that are not set.
[[nodiscard]] Components label_background(const cv::Mat& mask, int connectivity, const RunContext& context = {});

}  // namespace orvexa::model
