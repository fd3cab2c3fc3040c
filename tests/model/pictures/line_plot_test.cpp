#include "orvexa/model/pictures/line_plot.h"

#include <gtest/gtest.h>

#include <cmath>

namespace orvexa::model {
namespace {

int pixels_of_color(const Image& picture, cv::Scalar color) {
  cv::Mat is_color;
  cv::inRange(picture.read_only(), color, color, is_color);
  return cv::countNonZero(is_color);
}

const cv::Scalar first_color(0, 114, 178);

TEST(LinePlot, HasALineFromTheFirstValueToTheLast) {
  const Image picture = line_plot({{"a", {0, 1}}}, {.title = "T", .along = "x", .from = 0, .to = 1});
  EXPECT_EQ(picture.shape(), (Shape{440, 720}));
  EXPECT_EQ(picture.read_only().at<cv::Vec3b>(385, 80), cv::Vec3b(0, 114, 178)) << "0 is the lower left corner";
  EXPECT_EQ(picture.read_only().at<cv::Vec3b>(40, 700), cv::Vec3b(0, 114, 178)) << "1 the upper right one";
}

TEST(LinePlot, AFilledOneCoversTheAreaBelowIt) {
  const std::vector<double> flat{2, 2, 2};
  const int line = pixels_of_color(line_plot({{"a", flat}}, {}), first_color);
  std::vector<double> many(1000, 2);
  const int area =
      pixels_of_color(line_plot({{"a", many}}, {.title = {}, .along = {}, .is_filled = true}), first_color);
  EXPECT_EQ(line, 621);
  EXPECT_EQ(area, 621 * 346);
}

TEST(LinePlot, ValuesThatAreNoneInterruptItAndNothingIsDrawnOfNothing) {
  const double nan = std::nan("");
  const Image broken = line_plot({{"a", {1, 2, nan, 2, 1}}}, {});
  EXPECT_EQ(pixels_of_color(Image(broken.read_only().colRange(300, 480).clone()), first_color), 0);
  EXPECT_EQ(pixels_of_color(line_plot({{"a", {nan, nan}}}, {}), first_color), 0);
}

}  // namespace
}  // namespace orvexa::model
