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
  cv::line(_pixels, fine(from), fine(to), scalar(color), _thickness, cv::LINE_8, fine_bits);
}

void ShapePicture::draw_circle(cv::Point2d centre, double radius, const Color& color) {
  cv::circle(_pixels, fine(centre), fine(radius), scalar(color), _thickness, cv::LINE_8, fine_bits);
}

void ShapePicture::draw_pixel(cv::Point pixel, const Color& color) {
  std::copy(color.begin(), color.end(), _pixels.ptr<std::uint8_t>(pixel.y, pixel.x));
}

ResultImage ShapePicture::take() && {
  return {.picture = Image(std::move(_pixels)), .numbers = std::nullopt};
}

}  // namespace orvexa::model
