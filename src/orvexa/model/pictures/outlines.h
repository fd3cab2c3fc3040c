#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

#include "orvexa/model/image.h"
#include "orvexa/model/measures/components.h"
#include "orvexa/model/pick_geometry.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// Pens of a drawing, the later one over the earlier one where lines cross.
enum class Pen : std::uint8_t {
  none = 0,      ///< draws nothing
  kept = 1,      ///< green: what counts or was chosen
  rejected = 2,  ///< red: what was left out
  changed = 3,   ///< blue: what was added
  divided = 4,   ///< yellow: lines between parts, lines of a grid
  mark = 5       ///< magenta: points that something was found from
};

/// A drawing of lines for `viz_overlay`. Lines are drawn one pixel wide and become as wide as can still be seen in the
/// whole picture when the drawing is finished: 1 pixel for each 800 of the longer side, at least 1.
class LineDrawing {
 public:
  explicit LineDrawing(Shape shape);

  /// The rim of each component: its pixels that have a 4-neighbour outside it, or lie at the border of the image.
  /// @param pens  one entry a component.
  void outline(const Components& components, const std::vector<Pen>& pens, const RunContext& context);
  /// Pixels with a label above 0 whose neighbour to the right, below or diagonally below has another one above 0.
  /// @param labels  CV_32SC1 of the drawing's size.
  void divide(const cv::Mat& labels, Pen pen, const RunContext& context);
  /// The rim of a rectangle of pixels; nothing for an empty one.
  void outline(const PixelRect& rect, Pen pen);
  /// A cross with arms of three times the lines' width.
  void cross(cv::Point centre, Pen pen);

  /// 8-bit RGB, black where nothing was drawn. Ends the drawing.
  [[nodiscard]] Image finished(const RunContext& context);

 private:
  void put(int y, int x, Pen pen);

  cv::Mat _pens;  ///< CV_8UC1: 0 or the pen
  int _width;     ///< of the finished lines
};

/// The rims of chosen components green and of the others red.
/// @param is_kept  one entry a component.
[[nodiscard]] Image kept_and_rejected(const Components& components, const std::vector<char>& is_kept,
                                      const RunContext& context);

}  // namespace orvexa::model
