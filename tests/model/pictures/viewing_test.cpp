#include "orvexa/model/pictures/viewing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "orvexa/common/parallel.h"
#include "support/captures.h"

namespace orvexa::test {
namespace {

using model::mask_picture;
using model::masked_image;
using model::overlay_image;
using model::viewable_image;
using Rgb = cv::Vec3b;

TEST(MaskedImage, IsZeroOutsideOfTheMaskInEveryType) {
  const model::Mask mask = orvexa::test::mask({"#.", ".#"});
  EXPECT_EQ(masked_image(image<std::uint8_t>({{1, 2}, {3, 4}}), mask), image<std::uint8_t>({{1, 0}, {0, 4}}));
  EXPECT_EQ(masked_image(image<std::uint16_t>({{1000, 2}, {3, 65535}}), mask),
            image<std::uint16_t>({{1000, 0}, {0, 65535}}));
  EXPECT_EQ(masked_image(image<Rgb>({{{1, 2, 3}, {4, 5, 6}}, {{7, 8, 9}, {10, 11, 12}}}), mask),
            image<Rgb>({{{1, 2, 3}, {0, 0, 0}}, {{0, 0, 0}, {10, 11, 12}}}));
  EXPECT_EQ(masked_image(image<cv::Vec3w>({{{1000, 2, 3}, {4, 5, 6}}, {{7, 8, 9}, {10, 11, 12}}}), mask),
            image<cv::Vec3w>({{{1000, 2, 3}, {0, 0, 0}}, {{0, 0, 0}, {10, 11, 12}}}));
}

TEST(MaskedImage, WhatIsNoNumberOutsideBecomesZeroToo) {
  constexpr float none = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(masked_image(image<float>({{none, 0.5F}}), mask({".#"})), image<float>({{0.0F, 0.5F}}));
}

TEST(MaskedImage, NeedsAMaskOfItsSize) {
  EXPECT_THROW((void)masked_image(flat_image<std::uint8_t>(2, 3, 1), mask({"##", "##", "##"})), std::invalid_argument);
  EXPECT_THROW((void)overlay_image(flat_image<std::uint8_t>(2, 3, 1), mask({"##", "##", "##"})), std::invalid_argument);
}

TEST(ViewableImage, EightBitsStayAsTheyAre) {
  EXPECT_EQ(viewable_image(image<std::uint8_t>({{0, 9, 255}})), image<Rgb>({{{0, 0, 0}, {9, 9, 9}, {255, 255, 255}}}));
  const model::Image colour = image<Rgb>({{{1, 2, 3}, {4, 5, 6}}});
  EXPECT_EQ(viewable_image(colour), colour);
}

TEST(ViewableImage, SixteenBitsAreStretchedBetweenTheirQuantiles) {
  // 1001 values 0, 10, ..., 10000: the 0.5 % quantile is the value of rank 5, 50; the 99.5 % one is 9950. So
  // 50 -> 0, 9950 -> 255, 5000 -> (4950 / 9900) 255 = 127.5, rounded up; 1040 -> (990 / 9900) 255 = 25.5 -> 26.
  cv::Mat pixels(1, 1001, CV_16UC1);
  for (int i = 0; i <= 1000; ++i) pixels.at<std::uint16_t>(0, i) = static_cast<std::uint16_t>(10 * i);
  const model::Image seen = viewable_image(model::Image(pixels));
  const auto level = [&](int i) { return seen.row<std::uint8_t>(0)[3 * static_cast<std::size_t>(i)]; };
  EXPECT_EQ(level(0), 0);
  EXPECT_EQ(level(5), 0);
  EXPECT_EQ(level(6), 0);  // 10 / 9900 * 255 = 0.26
  EXPECT_EQ(level(7), 1);  // 0.52
  EXPECT_EQ(level(104), 26);
  EXPECT_EQ(level(500), 128);
  EXPECT_EQ(level(995), 255);
  EXPECT_EQ(level(1000), 255);
}

TEST(ViewableImage, QuantilesLieBetweenTwoValuesAsType7Says) {
  // Two values 1000 and 3000: quantiles 1000 + 0.005 * 2000 = 1010 and 2990. Both lie outside of them.
  EXPECT_EQ(viewable_image(image<std::uint16_t>({{1000, 3000}})), image<Rgb>({{{0, 0, 0}, {255, 255, 255}}}));
  // Three: ranks 0.01 and 1.99 of 0, 100, 300 give 1 and 298: 100 -> 99 / 297 * 255 = 85.
  EXPECT_EQ(viewable_image(image<float>({{0, 100, 300}})), image<Rgb>({{{0, 0, 0}, {85, 85, 85}, {255, 255, 255}}}));
}

TEST(ViewableImage, AllChannelsAreStretchedAlike) {
  EXPECT_EQ(viewable_image(image<cv::Vec3f>({{{0, 100, 300}}})), image<Rgb>({{{0, 85, 255}}}));
}

TEST(ViewableImage, WhatIsNoNumberIsBlackAndDoesNotCount) {
  constexpr float none = std::numeric_limits<float>::quiet_NaN();
  constexpr float infinite = std::numeric_limits<float>::infinity();
  EXPECT_EQ(viewable_image(image<float>({{none, 0, infinite, 100, 300, -infinite}})),
            image<Rgb>({{{0, 0, 0}, {0, 0, 0}, {255, 255, 255}, {85, 85, 85}, {255, 255, 255}, {0, 0, 0}}}));
  EXPECT_EQ(viewable_image(image<float>({{none, none}})), image<Rgb>({{{0, 0, 0}, {0, 0, 0}}}));
}

TEST(ViewableImage, NegativeNumbersComeBeforePositiveOnes) {
  // -300, -100, 0 is the case of 0, 200, 300: quantiles -298 and -1; -100 -> 198 / 297 * 255 = 170.
  EXPECT_EQ(viewable_image(image<float>({{-100, 0, -300}})),
            image<Rgb>({{{170, 170, 170}, {255, 255, 255}, {0, 0, 0}}}));
}

TEST(ViewableImage, AFlatPictureIsBlackAndAFewBrightPixelsOnItAreWhite) {
  EXPECT_EQ(viewable_image(flat_image<std::uint16_t>(1, 2, 500)), image<Rgb>({{{0, 0, 0}, {0, 0, 0}}}));
  cv::Mat pixels(1, 1000, CV_16UC1, cv::Scalar(500));
  pixels.at<std::uint16_t>(0, 7) = 501;
  const model::Image seen = viewable_image(model::Image(pixels));
  EXPECT_EQ(seen.row<std::uint8_t>(0)[21], 255);
  EXPECT_EQ(seen.row<std::uint8_t>(0)[24], 0);
}

TEST(ViewableImage, QuantilesOfFloatsAreExact) {
  // Against sorting, on values whose upper bits are often equal.
  std::mt19937 random(3);
  cv::Mat pixels(50, 81, CV_32FC1);
  std::vector<double> sorted;
  for (int y = 0; y < pixels.rows; ++y) {
    for (int x = 0; x < pixels.cols; ++x) {
      pixels.at<float>(y, x) = 1.0F + static_cast<float>(random() % 1000) * 1e-6F - (random() % 2 == 0 ? 2.0F : 0.0F);
      sorted.push_back(static_cast<double>(pixels.at<float>(y, x)));
    }
  }
  std::sort(sorted.begin(), sorted.end());
  const auto quantile = [&](double share) {
    const double position = share * static_cast<double>(sorted.size() - 1);
    const auto k = static_cast<std::size_t>(position);
    return sorted[k] + (position - std::floor(position)) * (sorted[k + 1] - sorted[k]);
  };
  const double low = quantile(0.005);
  const double high = quantile(0.995);
  const model::Image seen = viewable_image(model::Image(pixels.clone()));
  for (int y = 0; y < pixels.rows; ++y) {
    for (int x = 0; x < pixels.cols; ++x) {
      const double wanted = std::floor(
          std::clamp((static_cast<double>(pixels.at<float>(y, x)) - low) / (high - low), 0.0, 1.0) * 255 + 0.5);
      EXPECT_EQ(seen.row<std::uint8_t>(y)[static_cast<std::size_t>(3 * x)], wanted);
    }
  }
}

TEST(ViewableImage, DoesNotDependOnTheNumberOfThreads) {
  std::mt19937 random(9);
  cv::Mat pixels(1500, 700, CV_32FC1);
  for (int y = 0; y < pixels.rows; ++y) {
    for (int x = 0; x < pixels.cols; ++x) pixels.at<float>(y, x) = static_cast<float>(random()) - 1e9F;
  }
  const model::Image numbers(pixels);
  common::set_thread_count(1);
  const model::Image alone = viewable_image(numbers);
  common::set_thread_count(7);
  EXPECT_EQ(viewable_image(numbers), alone);
  common::set_thread_count(0);
}

TEST(OverlayImage, TintsTheInsideDrawsTheOutlineAndLeavesTheRest) {
  const model::Image grey = flat_image<std::uint8_t>(5, 6, 100);
  const model::Image drawn = overlay_image(grey, mask({"......",  //
                                                       ".####.",  //
                                                       ".####.",  //
                                                       ".####.",  //
                                                       "......"}));
  const Rgb rest{100, 100, 100};
  const Rgb line{255, 0, 255};
  // 0.6 * 100 + 0.4 * 255 = 162 for red and blue, 60 for green.
  const Rgb tint{162, 60, 162};
  EXPECT_EQ(drawn, image<Rgb>({{rest, rest, rest, rest, rest, rest},
                               {rest, line, line, line, line, rest},
                               {rest, line, tint, tint, line, rest},
                               {rest, line, line, line, line, rest},
                               {rest, rest, rest, rest, rest, rest}}));
}

TEST(OverlayImage, TheEdgeOfThePictureIsOutlineAndASingleDiagonalNeighbourIsNot) {
  const Rgb line{255, 0, 255};
  // 0.6 * 2 = 1.2 and 0.4 * 255 = 102: 103.2 -> 103; green 1.2 -> 1.
  const Rgb tint{103, 1, 103};
  EXPECT_EQ(overlay_image(flat_image<std::uint8_t>(3, 3, 2), model::Mask::full({3, 3})),
            image<Rgb>({{line, line, line}, {line, tint, line}, {line, line, line}}));
  // The middle pixel has all four neighbours; that a corner is missing does not make it outline.
  EXPECT_EQ(overlay_image(flat_image<std::uint8_t>(3, 3, 2), mask({".##", "###", "###"})).row<std::uint8_t>(1)[3], 103);
}

TEST(OverlayImage, StretchesSixteenBitsFirst) {
  const model::Image numbers = image<std::uint16_t>({{1000, 1000, 3000}});
  const model::Image drawn = overlay_image(numbers, mask({"..#"}));
  EXPECT_EQ(drawn, image<Rgb>({{{0, 0, 0}, {0, 0, 0}, {255, 0, 255}}}));
}

TEST(OverlayImage, LeavesTheImageAlone) {
  const model::Image colour = image<Rgb>({{{1, 2, 3}, {4, 5, 6}}});
  (void)overlay_image(colour, mask({"##"}));
  EXPECT_EQ(colour, image<Rgb>({{{1, 2, 3}, {4, 5, 6}}}));
}

TEST(MaskPicture, IsTheMaskInGrey) {
  EXPECT_EQ(mask_picture(mask({"#.", ".#"})), image<std::uint8_t>({{255, 0}, {0, 255}}));
}

}  // namespace
}  // namespace orvexa::test
