#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using test::mask;
using testing::ElementsAre;

/// The definition, pixel by pixel.
Mask reference(const Mask& before, const Mask& limit, double radius) {
  cv::Mat pixels = before.read_only().clone();
  const int reach = static_cast<int>(radius);
  const Shape shape = before.shape();
  for (int y = 0; y < shape.height; ++y) {
    for (int x = 0; x < shape.width; ++x) {
      int more = 0;
      for (int v = std::max(0, y - reach); v <= std::min(shape.height - 1, y + reach); ++v) {
        for (int u = std::max(0, x - reach); u <= std::min(shape.width - 1, x + reach); ++u) {
          if ((u - x) * (u - x) + (v - y) * (v - y) > radius * radius || !limit.at(v, u)) continue;
          more += before.at(v, u) ? 1 : -1;
        }
      }
      if (more != 0) pixels.at<std::uint8_t>(y, x) = more > 0 ? 255 : 0;
    }
  }
  return Mask(pixels);
}

TEST(SmoothMask, IsTheMajorityOfTheDiscInsideTheImage) {
  for (const double radius : {1.0, 1.5, 2.0, 3.7, 9.0, 40.0, 100.0}) {
    for (const auto& [height, width] : {std::pair(1, 1), std::pair(1, 70), std::pair(33, 1), std::pair(41, 29)}) {
      SCOPED_TRACE(testing::Message() << radius << " on " << height << " x " << width);
      const Mask random = test::random_mask(7, height, width, 0.5);
      EXPECT_EQ(applied("smooth_mask", random, {{"radius", radius}}),
                reference(random, Mask::full(random.shape()), radius));
    }
  }
}

TEST(SmoothMask, CountsOnlyTheRegionsOfInterestWhenAsked) {
  const Mask bounds = test::random_mask(8, 41, 29, 0.8);
  const Mask inside = (test::random_mask(9, 41, 29, 0.5) & bounds).with_bounds(bounds);
  for (const double radius : {1.0, 4.0, 11.0}) {
    EXPECT_EQ(applied("smooth_mask", inside, {{"radius", radius}, {"limit", "roi"}}),
              reference(inside, bounds, radius) & bounds);
    EXPECT_EQ(applied("smooth_mask", inside, {{"radius", radius}}),
              reference(inside, Mask::full(inside.shape()), radius) & bounds);
  }
}

TEST(SmoothMask, ChangesNothingWithRadius0OrWithoutARim) {
  const Mask random = test::random_mask(7, 20, 30, 0.5);
  EXPECT_EQ(applied("smooth_mask", random, {{"radius", 0}}), random);
  EXPECT_EQ(applied("smooth_mask", Mask::full({5, 6}), {{"radius", 3}}), Mask::full({5, 6}));
  EXPECT_EQ(applied("smooth_mask", Mask::empty({5, 6}), {{"radius", 3}}), Mask::empty({5, 6}));
}

// Half of the image is set: at its border the discs hold more of the half than of the other on one side, as inside.
TEST(SmoothMask, LeavesAStraightRimAndRemovesSpecksAndHoles) {
  const Mask half = mask({"####....", "####....", "####....", "####....", "####...."});
  EXPECT_EQ(applied("smooth_mask", half, {{"radius", 2}}), half);
  EXPECT_EQ(applied("smooth_mask", mask({".....", "..#..", "....."}), {{"radius", 1}}).count(), 0);
  EXPECT_EQ(applied("smooth_mask", mask({"#####", "##.##", "#####"}), {{"radius", 1}}), Mask::full({3, 5}));
}

// Of 2 pixels in a row a disc of radius 1 about either holds both: one set of two stays as it is.
TEST(SmoothMask, LeavesAPixelAsItIsWhenHalfOfTheDiscIsSet) {
  EXPECT_THAT(drawing(applied("smooth_mask", mask({"#."}), {{"radius", 1}})), ElementsAre("#."));
}

TEST(SmoothMask, TreatsTheMaskAndItsComplementAlike) {
  const Mask random = test::random_mask(11, 50, 40, 0.5);
  cv::Mat inverse;
  cv::bitwise_not(random.read_only(), inverse);
  cv::Mat smooth;
  cv::bitwise_not(applied("smooth_mask", random, {{"radius", 3}}).read_only(), smooth);
  EXPECT_EQ(applied("smooth_mask", Mask(inverse), {{"radius", 3}}), Mask(smooth));
}

// 70,000 pixels a row: sums along it are more than 16 bits hold.
TEST(SmoothMask, CountsRightFarAlongARow) {
  const Mask full = Mask::full({3, 70000});
  EXPECT_EQ(applied("smooth_mask", full, {{"radius", 100}}), full);
  cv::Mat pixels = full.read_only().clone();
  pixels.colRange(66000, 66101).setTo(0);
  // A gap of 101 columns in a band of 3 rows: the disc of radius 100 about its middle has rows of 199, 201 and 199
  // columns there, of which 98, 100 and 98 are set and 3 * 101 = 303 are not.
  const Mask gap = applied("smooth_mask", Mask(pixels), {{"radius", 100}});
  EXPECT_FALSE(gap.at(1, 66050));
  EXPECT_TRUE(gap.at(1, 65900));
}

TEST(SmoothMask, RefusesARadiusOutsideItsRange) {
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(applied("smooth_mask", Mask::full({2, 2}), {{"radius", 100.5}}));
            }),
            "smooth_mask: parameter \"radius\" is 100.5, but it must be a number from 0 to 100.");
}

}  // namespace
}  // namespace orvexa::model
