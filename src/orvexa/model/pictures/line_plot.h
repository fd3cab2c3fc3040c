#pragma once

#include <string>
#include <vector>

#include "orvexa/model/image.h"

namespace orvexa::model {

/// One line of a plot.
struct PlotLine {
  std::string name;            ///< for the legend, ASCII
  std::vector<double> values;  ///< evenly spaced along the axis; NaN interrupts the line
};

struct PlotAxes {
  std::string title;       ///< ASCII
  std::string along;       ///< what the horizontal axis says
  double from = 0;         ///< at the first value
  double to = 1;           ///< at the last value
  bool is_filled = false;  ///< the area down to 0 is filled, for counts
};

/// An 8-bit RGB picture of 720 x 440 pixels: lines over an axis, the vertical axis from the least to the greatest value
/// (from 0 for filled ones), five numbers beside each axis, and a legend where there are several lines. Where there are
/// more values than columns, a column shows the range of its values.
[[nodiscard]] Image line_plot(const std::vector<PlotLine>& lines, const PlotAxes& axes);

}  // namespace orvexa::model
