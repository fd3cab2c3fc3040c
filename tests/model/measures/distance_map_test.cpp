#include "orvexa/model/measures/distance_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <opencv2/core.hpp>

#include "support/captures.h"
#include "support/counting_event.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

/// A picture with a rim of background on the chosen sides, and the distances of its inner part by looking at every
/// pair.
std::optional<cv::Mat> by_every_pair(const cv::Mat& picture, const BackgroundSides& beyond) {
  cv::Mat framed;
  cv::copyMakeBorder(picture, framed, beyond.top ? 1 : 0, beyond.bottom ? 1 : 0, beyond.left ? 1 : 0,
                     beyond.right ? 1 : 0, cv::BORDER_CONSTANT, cv::Scalar(0));
  std::vector<cv::Point> background;
  for (int y = 0; y < framed.rows; ++y) {
    for (int x = 0; x < framed.cols; ++x) {
      if (framed.at<std::uint8_t>(y, x) == 0) {
        background.emplace_back(x - (beyond.left ? 1 : 0), y - (beyond.top ? 1 : 0));
      }
    }
  }
  if (background.empty()) return {};
  cv::Mat distances(picture.size(), CV_32SC1);
  for (int y = 0; y < picture.rows; ++y) {
    for (int x = 0; x < picture.cols; ++x) {
      int nearest = std::numeric_limits<int>::max();
      for (const cv::Point& at : background) {
        nearest = std::min(nearest, (at.x - x) * (at.x - x) + (at.y - y) * (at.y - y));
      }
      distances.at<std::int32_t>(y, x) = nearest;
    }
  }
  return distances;
}

void expect_same(const std::optional<cv::Mat>& found, const std::optional<cv::Mat>& expected) {
  ASSERT_EQ(found.has_value(), expected.has_value());
  if (!found) return;
  ASSERT_EQ(found->type(), CV_32SC1);
  ASSERT_EQ(found->size(), expected->size());
  EXPECT_EQ(cv::countNonZero(*found != *expected), 0) << *found << "\n" << *expected;
}

cv::Mat rows(const std::vector<std::vector<std::int32_t>>& numbers) {
  cv::Mat map(static_cast<int>(numbers.size()), static_cast<int>(numbers.front().size()), CV_32SC1);
  for (std::size_t y = 0; y < numbers.size(); ++y) {
    std::copy(numbers[y].begin(), numbers[y].end(), map.ptr<std::int32_t>(static_cast<int>(y)));
  }
  return map;
}

TEST(DistanceMap, ByHand) {
  const auto found = squared_distance_map(test::mask({"####.", "#####", "#####"}).read_only());
  // To the one pixel at (4, 0): dx^2 + dy^2.
  expect_same(found, rows({{16, 9, 4, 1, 0}, {17, 10, 5, 2, 1}, {20, 13, 8, 5, 4}}));
}

TEST(DistanceMap, APictureWithoutBackgroundHasNone) {
  EXPECT_FALSE(squared_distance_map(Mask::full({3, 4}).read_only()).has_value());
  EXPECT_FALSE(squared_distance_map(Mask::full({1, 1}).read_only()).has_value());
  EXPECT_FALSE(squared_distance_map(cv::Mat()).has_value());
}

TEST(DistanceMap, WithBackgroundBeyondASideItHas) {
  const cv::Mat full = Mask::full({2, 3}).read_only();
  expect_same(squared_distance_map(full, {}, {.left = true}), rows({{1, 4, 9}, {1, 4, 9}}));
  expect_same(squared_distance_map(full, {}, {.right = true}), rows({{9, 4, 1}, {9, 4, 1}}));
  expect_same(squared_distance_map(full, {}, {.top = true}), rows({{1, 1, 1}, {4, 4, 4}}));
  expect_same(squared_distance_map(full, {}, {.bottom = true}), rows({{4, 4, 4}, {1, 1, 1}}));
}

TEST(DistanceMap, EqualsBruteForceOnRandomPictures) {
  for (unsigned seed = 0; seed < 120; ++seed) {
    SCOPED_TRACE(seed);
    const int height = 1 + static_cast<int>(seed % 17);
    const int width = 1 + static_cast<int>(seed * 7 % 23);
    const double share = seed % 3 == 0 ? 0.5 : seed % 3 == 1 ? 0.9 : 0.99;
    const Mask mask = test::random_mask(seed, height, width, share);
    const BackgroundSides beyond{
        .left = (seed & 1) != 0, .top = (seed & 2) != 0, .right = (seed & 4) != 0, .bottom = (seed & 8) != 0};
    expect_same(squared_distance_map(mask.read_only(), {}, beyond), by_every_pair(mask.read_only(), beyond));
  }
}

TEST(DistanceMap, OfATightBoxAreThoseInTheImage) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    SCOPED_TRACE(seed);
    cv::Mat image = cv::Mat::zeros(24, 30, CV_8UC1);
    // One box inside, the others on a side or in a corner of the image.
    const PixelRect box{static_cast<int>(seed % 2) * 4, static_cast<int>(seed / 2 % 2) * 5,
                        30 - static_cast<int>(seed / 4 % 2) * 6, 24 - static_cast<int>(seed / 8 % 2) * 3};
    const cv::Rect part(box.x0, box.y0, box.x1 - box.x0, box.y1 - box.y0);
    test::random_mask(seed, part.height, part.width, 0.97).read_only().copyTo(image(part));
    const auto whole = squared_distance_map(image);
    const auto cut = squared_distance_map(image(part), {}, background_sides(box, {24, 30}));
    ASSERT_TRUE(whole.has_value());
    expect_same(cut, cv::Mat((*whole)(part)));
  }
}

// Wider than several strips of columns, higher than several stripes: one background pixel, distances by hand.
TEST(DistanceMap, IsTheSameWithAnyNumberOfThreads) {
  cv::Mat picture = Mask::full({900, 1100}).read_only().clone();
  picture.at<std::uint8_t>(700, 300) = 0;
  for (const int threads : {1, 2, 5}) {
    const test::ThreadCount limit(threads);
    const auto found = squared_distance_map(picture);
    ASSERT_TRUE(found.has_value());
    for (int y = 0; y < picture.rows; ++y) {
      for (int x = 0; x < picture.cols; ++x) {
        ASSERT_EQ(found->at<std::int32_t>(y, x), (x - 300) * (x - 300) + (y - 700) * (y - 700)) << x << " " << y;
      }
    }
  }
}

TEST(DistanceMap, ADistanceThatNoNumberHoldsIsSaid) {
  cv::Mat line(1, 46342, CV_8UC1, cv::Scalar(255));
  line.at<std::uint8_t>(0, 0) = 0;
  EXPECT_EQ(test::refusal([&] { static_cast<void>(squared_distance_map(line)); }),
            "A pixel of the mask is more than 46340 pixels away from its background.");
  const auto shorter = squared_distance_map(line.colRange(0, 46341));
  ASSERT_TRUE(shorter.has_value());
  EXPECT_EQ(shorter->at<std::int32_t>(0, 46340), 46340 * 46340);
}

TEST(DistanceMap, AnotherTypeIsRefusedAndACancelledRunStops) {
  EXPECT_THROW(static_cast<void>(squared_distance_map(cv::Mat(2, 2, CV_32FC1))), std::invalid_argument);
  common::CancelEvent event;
  event.set();
  EXPECT_THROW(
      static_cast<void>(squared_distance_map(Mask::full({9, 9}).read_only(), {.cancel_event = &event, .progress = {}})),
      CancelledError);
}

}  // namespace
}  // namespace orvexa::model
