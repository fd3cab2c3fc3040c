#include "orvexa/model/pictures/overlay.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/captures.h"

namespace orvexa::test {
namespace {

using model::painted_over;

model::Image rgb_row(const std::vector<cv::Vec3b>& row) {
  cv::Mat pixels(1, static_cast<int>(row.size()), CV_8UC3);
  for (int x = 0; x < pixels.cols; ++x) pixels.at<cv::Vec3b>(0, x) = row[static_cast<std::size_t>(x)];
  return model::Image(std::move(pixels));
}

TEST(PaintedOver, TakesPixelsOfTheUpperPictureOnlyWhereAChannelIsNotBlackAndThenWhole) {
  const model::Image below = rgb_row({{1, 2, 3}, {4, 5, 6}, {7, 8, 9}});
  const model::Image above = rgb_row({{0, 0, 0}, {0, 0, 1}, {255, 255, 255}});
  EXPECT_EQ(painted_over(below, above), rgb_row({{1, 2, 3}, {0, 0, 1}, {255, 255, 255}}));
  EXPECT_EQ(below, rgb_row({{1, 2, 3}, {4, 5, 6}, {7, 8, 9}}));
  EXPECT_EQ(above, rgb_row({{0, 0, 0}, {0, 0, 1}, {255, 255, 255}}));
}

TEST(PaintedOver, WorksInTheTypeOfThePictures) {
  EXPECT_EQ(painted_over(image<std::uint16_t>({{7, 7}}), image<std::uint16_t>({{0, 40000}})),
            image<std::uint16_t>({{7, 40000}}));
  EXPECT_EQ(painted_over(image<float>({{7, 7, 7}}), image<float>({{0, .25, -1}})), image<float>({{7, .25, 7}}));
}

TEST(PaintedOver, RefusesPicturesThatDoNotFit) {
  const model::Image below = rgb_row({{1, 2, 3}, {4, 5, 6}});
  EXPECT_THROW(static_cast<void>(painted_over(below, rgb_row({{1, 2, 3}}))), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(painted_over(below, image<std::uint8_t>({{1, 2}}))), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(painted_over(image<std::uint16_t>({{1}}), image<std::uint8_t>({{1}}))),
               std::invalid_argument);
}

}  // namespace
}  // namespace orvexa::test
