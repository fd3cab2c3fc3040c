#pragma once

#include <opencv2/core.hpp>

#include <array>
#include <cstdint>
#include <string_view>

#include "orvexa/model/entities/result_bundle.h"
#include "orvexa/model/image_source.h"
#include "orvexa/model/mask.h"
#include "orvexa/model/operation_base.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// The parameter `picture` of operations that draw what they measured.
/// @param what  is drawn: "the diameters".
[[nodiscard]] ParameterInfo shape_picture_parameter(std::string_view what);

/// A picture of the whole frame that explains measures of shapes: the capture's default image as `overlay_image` shows
/// it with the mask, and lines over it. Positions are those of pixel centres: the first one is (0, 0). What lies
/// outside the frame is not drawn.
class ShapePicture {
 public:
  using Color = std::array<std::uint8_t, 3>;  ///< R G B

  /// @throws std::runtime_error when the capture has no image.
  ShapePicture(const ImageSource& source, const Mask& mask, const RunContext& context);

  /// Lines are one pixel wide for each 1000 pixels of the frame's longer side, and at least one.
  void draw_line(cv::Point2d from, cv::Point2d to, const Color& color);
  void draw_circle(cv::Point2d centre, double radius, const Color& color);
  void draw_pixel(cv::Point pixel, const Color& color);

  [[nodiscard]] ResultImage take() &&;

 private:
  /// The pixels whose centres lie between two positions of a row.
  void fill_row(int y, double from, double to, const Color& color);

  cv::Mat _pixels;
  int _thickness;
};

}  // namespace orvexa::model
