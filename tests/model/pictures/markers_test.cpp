#include "orvexa/model/pictures/markers.h"

#include <gtest/gtest.h>

#include <set>

namespace orvexa::model {
namespace {

int marked(const cv::Mat& rgb) {
  int count = 0;
  for (int y = 0; y < rgb.rows; ++y) {
    for (int x = 0; x < rgb.cols; ++x) count += rgb.at<cv::Vec3b>(y, x) == cv::Vec3b(255, 255, 0) ? 1 : 0;
  }
  return count;
}

// Arms of 3 pixels: 7 + 7 - 1 = 13 pixels; in the corner 4 + 4 - 1 = 7.
TEST(Markers, AreCrossesCutAtTheBorder) {
  cv::Mat rgb = cv::Mat::zeros(20, 30, CV_8UC3);
  draw_markers(rgb, std::vector<PixelPoint>{{10, 10}});
  EXPECT_EQ(marked(rgb), 13);
  EXPECT_EQ(rgb.at<cv::Vec3b>(10, 13), cv::Vec3b(255, 255, 0));
  EXPECT_EQ(rgb.at<cv::Vec3b>(7, 10), cv::Vec3b(255, 255, 0));
  draw_markers(rgb, std::vector<PixelPoint>{{29, 19}});
  EXPECT_EQ(marked(rgb), 20);
}

TEST(Markers, OfLargePicturesAreLargerAndThicker) {
  cv::Mat rgb = cv::Mat::zeros(1600, 1600, CV_8UC3);
  draw_markers(rgb, std::vector<PixelPoint>{{800, 800}});
  EXPECT_EQ(marked(rgb), 2 * 81 * 3 - 9);  // arms of 1600 / 40 = 40, 3 thick, the square in the middle once
}

TEST(Markers, PartsAreToldApartAndNeverBlack) {
  std::set<std::array<std::uint8_t, 3>> colors;
  for (std::size_t part = 0; part < 12; ++part) {
    colors.insert(part_color(part));
    EXPECT_GT(part_color(part)[0] + part_color(part)[1] + part_color(part)[2], 0);
  }
  EXPECT_EQ(colors.size(), 12u);
  EXPECT_EQ(part_color(12), part_color(0));
}

}  // namespace
}  // namespace orvexa::model
