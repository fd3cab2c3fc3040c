#include "orvexa/model/pictures/heat_map.h"

#include <gtest/gtest.h>

#include <cmath>

#include "orvexa/model/measures/color.h"
#include "support/captures.h"

namespace orvexa::model {
namespace {

using Color = std::array<std::uint8_t, 3>;

Color at(const Image& picture, int y, int x) {
  const auto row = picture.row<std::uint8_t>(y);
  const auto k = static_cast<std::size_t>(3 * x);
  return {row[k], row[k + 1], row[k + 2]};
}

Lab lab_of(const Color& color) {
  return to_lab({color[0] / 255.0, color[1] / 255.0, color[2] / 255.0});
}

// The line runs from Lab (15, 22, -43) to (91, -8, 72), which are sqrt(76^2 + 30^2 + 115^2) = 141.07 apart: 0.553 a
// step of 255. Rounding to 8 bits moves a colour by up to about 0.4.
TEST(HeatColors, AreEquallyFarApartForTheEyeAndEverLighter) {
  const auto& colors = heat_colors();
  EXPECT_NEAR(delta_e_76(lab_of(colors.front()), {15, 22, -43}), 0, 0.5);
  EXPECT_NEAR(delta_e_76(lab_of(colors.back()), {91, -8, 72}), 0, 0.5);
  for (std::size_t k = 16; k < colors.size(); ++k) {
    EXPECT_NEAR(delta_e_76(lab_of(colors[k]), lab_of(colors[k - 16])), 16 * 0.553, 1.2) << k;
    EXPECT_GT(lab_of(colors[k]).l, lab_of(colors[k - 16]).l) << k;
  }
}

TEST(HeatMap, ShowsLowAndHighInTheFirstAndLastColourAndWhatLiesBeyondToo) {
  const cv::Mat values = (cv::Mat_<double>(1, 5) << -3, 0, 0.5, 1, 9);
  const Image picture = heat_map_picture(values, Mask::full({1, 5}), {0, 1, "x"}, {});
  EXPECT_EQ(at(picture, 0, 0), heat_colors().front());
  EXPECT_EQ(at(picture, 0, 1), heat_colors().front());
  EXPECT_EQ(at(picture, 0, 2), heat_colors()[128]);  // 127.5 rounds up
  EXPECT_EQ(at(picture, 0, 3), heat_colors().back());
  EXPECT_EQ(at(picture, 0, 4), heat_colors().back());
}

TEST(HeatMap, PixelsOutsideTheMaskOrWithoutANumberAreGrey) {
  const cv::Mat values = (cv::Mat_<double>(1, 3) << 0.2, std::nan(""), 0.7);
  const Mask mask = test::mask({"##."});
  const Image picture = heat_map_picture(values, mask, {0, 1, "x"}, {});
  EXPECT_NE(at(picture, 0, 0), no_value_color);
  EXPECT_EQ(at(picture, 0, 1), no_value_color);
  EXPECT_EQ(at(picture, 0, 2), no_value_color);
  const Image numbers = map_numbers(values, mask, {});
  EXPECT_EQ(numbers.row<float>(0)[0], 0.2F);
  EXPECT_TRUE(std::isnan(numbers.row<float>(0)[1]));
  EXPECT_TRUE(std::isnan(numbers.row<float>(0)[2]));
}

TEST(HeatMap, EvenTheSmallestMapHasRoomForItsBarAndNumbers) {
  for (const Shape shape : {Shape{1, 1}, Shape{1, 300}, Shape{300, 1}, Shape{900, 700}}) {
    const cv::Mat values(shape.height, shape.width, CV_64FC1, cv::Scalar(0.5));
    const Image picture = heat_map_picture(values, Mask::full(shape), {0, 1, "ndvi"}, {});
    EXPECT_GE(picture.height(), std::max(shape.height, 140));
    EXPECT_GE(picture.width(), shape.width + 90);
    // The bar: its lowest row has the first colour and its highest the last one.
    int first = 0;
    int last = 0;
    int ink = 0;
    for (int y = 0; y < picture.height(); ++y) {
      for (int x = shape.width; x < picture.width(); ++x) {
        first += at(picture, y, x) == heat_colors().front() ? 1 : 0;
        last += at(picture, y, x) == heat_colors().back() ? 1 : 0;
        ink += at(picture, y, x) == Color{0, 0, 0} ? 1 : 0;
      }
    }
    EXPECT_GE(first, 16);
    EXPECT_GE(last, 16);
    EXPECT_GE(ink, 100);  // title, ticks and numbers
  }
}

TEST(HeatMap, AScaleWithoutExtentIsRefused) {
  const cv::Mat values(1, 1, CV_64FC1, cv::Scalar(0.5));
  EXPECT_THROW(static_cast<void>(heat_map_picture(values, Mask::full({1, 1}), {1, 1, "x"}, {})), std::invalid_argument);
}

}  // namespace
}  // namespace orvexa::model
