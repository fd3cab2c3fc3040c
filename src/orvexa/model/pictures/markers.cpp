#include "orvexa/model/pictures/markers.h"

#include <algorithm>

namespace orvexa::model {

namespace {

constexpr std::array<std::array<std::uint8_t, 3>, 12> part_colors{{{31, 120, 180},
                                                                   {51, 160, 44},
                                                                   {227, 26, 28},
                                                                   {255, 127, 0},
                                                                   {106, 61, 154},
                                                                   {177, 89, 40},
                                                                   {166, 206, 227},
                                                                   {178, 223, 138},
                                                                   {251, 154, 153},
                                                                   {253, 191, 111},
                                                                   {202, 178, 214},
                                                                   {255, 255, 153}}};

}  // namespace

void draw_markers(cv::Mat& rgb, std::span<const PixelPoint> points) {
  const int arm = std::max(3, std::min(rgb.rows, rgb.cols) / 40);
  const int half = arm / 40;
  const cv::Rect picture(0, 0, rgb.cols, rgb.rows);
  const cv::Scalar color(marker_color[0], marker_color[1], marker_color[2]);
  for (const PixelPoint& point : points) {
    rgb(cv::Rect(point.x - arm, point.y - half, 2 * arm + 1, 2 * half + 1) & picture).setTo(color);
    rgb(cv::Rect(point.x - half, point.y - arm, 2 * half + 1, 2 * arm + 1) & picture).setTo(color);
  }
}

const std::array<std::uint8_t, 3>& part_color(std::size_t part) {
  return part_colors[part % part_colors.size()];
}

}  // namespace orvexa::model
