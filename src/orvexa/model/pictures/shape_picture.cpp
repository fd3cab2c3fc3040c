#include "orvexa/model/pictures/shape_picture.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <string>
#include <utility>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/pictures/viewing.h"

namespace orvexa::model {

namespace {

/// Bits of a coordinate behind the point.
constexpr int fine_bits = 4;

int fine(double coordinate) {
  return static_cast<int>(std::lround(coordinate * (1 << fine_bits)));
}

cv::Point fine(cv::Point2d position) {
  return {fine(position.x), fine(position.y)};
}

cv::Scalar scalar(const ShapePicture::Color& color) {
  return {double(color[0]), double(color[1]), double(color[2])};
}

}  // namespace

ParameterInfo shape_picture_parameter(std::string_view what) {
  return {.name = "picture",
          .type = ParameterType::boolean,
          .default_value = true,
          .help = "Whether a picture with " + std::string(what) + " over the mask is made."};
}

ShapePicture::ShapePicture(const ImageSource& source, const Mask& mask, const RunContext& context) {
  context.check();
  const Image image = find_band(source, "").image;
  _pixels = cv::Mat(image.height(), image.width(), CV_8UC3);
  const auto write_row = overlay_rows(image, mask);
  for_each_stripe(image.height(), image.width(), context, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) write_row(y, _pixels.ptr<std::uint8_t>(y));
  });
  _thickness = std::max(1, (std::max(image.height(), image.width()) + 500) / 1000);
}

void ShapePicture::draw_line(cv::Point2d from, cv::Point2d to, const Color& color) {
  const double length = std::hypot(to.x - from.x, to.y - from.y);
  if (_thickness == 1 || length == 0) {
    cv::line(_pixels, fine(from), fine(to), scalar(color), _thickness, cv::LINE_8, fine_bits);
    return;
  }
  // A rectangle is drawn many times as fast as a thick line with round ends. The filling draws its rim as well.
  const double half = (_thickness - 1) / 2.0;
  const cv::Point2d along = (to - from) * (half / length);
  const cv::Point2d aside(-along.y, along.x);
  const std::array<cv::Point, 4> corners{fine(from - along - aside), fine(to + along - aside), fine(to + along + aside),
                                         fine(from - along + aside)};
  cv::fillConvexPoly(_pixels, corners, scalar(color), cv::LINE_8, fine_bits);
}

void ShapePicture::draw_circle(cv::Point2d centre, double radius, const Color& color) {
  // Row by row between an outer and an inner circle: hardly more than the pixels that change.
  const double outer = radius + _thickness / 2.0;
  const double inner = std::max(0.0, radius - _thickness / 2.0);
  const int first = std::max(0, static_cast<int>(std::ceil(centre.y - outer)));
  const int last = std::min(_pixels.rows - 1, static_cast<int>(std::floor(centre.y + outer)));
  for (int y = first; y <= last; ++y) {
    const double dy = y - centre.y;
    const double reach = std::sqrt(std::max(0.0, outer * outer - dy * dy));
    const double gap = std::abs(dy) < inner ? std::sqrt(inner * inner - dy * dy) : 0.0;
    fill_row(y, centre.x - reach, centre.x - gap, color);
    fill_row(y, centre.x + gap, centre.x + reach, color);
  }
}

void ShapePicture::fill_row(int y, double from, double to, const Color& color) {
  const int first = std::max(0, static_cast<int>(std::ceil(from)));
  const int last = std::min(_pixels.cols - 1, static_cast<int>(std::floor(to)));
  for (int x = first; x <= last; ++x) draw_pixel({x, y}, color);
}

void ShapePicture::draw_pixel(cv::Point pixel, const Color& color) {
  std::copy(color.begin(), color.end(), _pixels.ptr<std::uint8_t>(pixel.y, pixel.x));
}

ResultImage ShapePicture::take() && {
  return {.picture = Image(std::move(_pixels)), .numbers = std::nullopt};
}

}  // namespace orvexa::model
