#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <opencv2/imgproc.hpp>
#include <random>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;

constexpr const char* key = "grabcut";

/// A red disc on green ground with noise in both, and the disc itself.
struct Phantom {
  std::shared_ptr<CaptureSet> capture;
  Mask disc;
};

Phantom phantom(unsigned seed, int height, int width, int radius) {
  std::mt19937 random(seed);
  const auto noise = [&] { return static_cast<int>(random() % 31) - 15; };
  cv::Mat rgb(height, width, CV_8UC3);
  cv::Mat disc(height, width, CV_8UC1);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int dx = x - width / 2;
      const int dy = y - height / 2;
      const bool is_inside = dx * dx + dy * dy <= radius * radius;
      const int red = (is_inside ? 180 : 70) + noise();
      const int green = (is_inside ? 60 : 140) + noise();
      rgb.at<cv::Vec3b>(y, x) = cv::Vec3b(static_cast<std::uint8_t>(red), static_cast<std::uint8_t>(green), 60);
      disc.at<std::uint8_t>(y, x) = is_inside ? 255 : 0;
    }
  }
  return {test::capture("c", {{"CLR", {{"RGB", Image(rgb)}}}}), Mask(disc)};
}

double overlap(const Mask& a, const Mask& b) {
  const std::int64_t both = (a & b).count();
  return static_cast<double>(both) / static_cast<double>(a.count() + b.count() - both);
}

TEST(Grabcut, CutsOutWhatWasDrawn) {
  const auto [capture, disc] = phantom(1, 90, 120, 25);
  EXPECT_EQ(applied(key, *capture, {}), disc);
  EXPECT_EQ(applied(key, *capture, {}, {{"rect", {0.5, 0.5, 0.6, 0.8}}, {"seed", 7}, {"iterations", 1}}), disc);
  EXPECT_EQ(test::note_of(key, *capture, {}), "cut at full size, 120 x 90 pixels");
}

// The rectangle ends at 65 % of the width, the disc at 71 %.
TEST(Grabcut, KeepsNothingOutsideTheRectangle) {
  const auto [capture, disc] = phantom(2, 90, 120, 25);
  const Value params{{"rect", {0.35, 0.5, 0.6, 0.9}}};
  const Mask result = applied(key, *capture, {}, params);
  EXPECT_EQ(result & applied("roi_rect", *capture, {}, params), result);
  EXPECT_GE(overlap(result, disc & applied("roi_rect", *capture, {}, params)), 0.98);
}

// What lies outside the mask is drawn anew: a second disc, which the rectangle holds too.
TEST(Grabcut, LooksOnlyAtThePixelsOfTheIncomingMask) {
  const auto [capture, disc] = phantom(3, 90, 120, 20);
  cv::Mat left(90, 120, CV_8UC1, cv::Scalar(0));
  cv::circle(left, {60, 45}, 40, cv::Scalar(255), cv::FILLED);
  left.colRange(95, 120).setTo(255);
  const Mask mask(left);
  cv::Mat other = capture->find_image("CLR", "RGB")->read_only().clone();
  cv::Mat inverse;
  cv::bitwise_not(mask.read_only(), inverse);
  other.setTo(cv::Scalar(180, 60, 60), inverse);
  const auto changed = test::capture("c", {{"CLR", {{"RGB", Image(other)}}}});
  const Mask result = applied(key, *capture, mask);
  EXPECT_EQ(result, applied(key, *changed, mask));
  EXPECT_EQ(result & mask, result);
  EXPECT_GE(overlap(result, disc & mask), 0.98);
}

TEST(Grabcut, GivesTheSameForTheSameSeedAndLeavesOthersTheirRandomNumbers) {
  const auto capture = test::random_capture(5, 60, 80);
  cv::setRNGSeed(1234);
  const Mask first = applied(key, *capture, {}, {{"seed", 3}});
  const unsigned drawn = cv::theRNG().next();
  cv::setRNGSeed(1234);
  EXPECT_EQ(cv::theRNG().next(), drawn);
  EXPECT_EQ(applied(key, *capture, {}, {{"seed", 3}}), first);
}

// 180 x 240 pixels at most 64 wide: blocks of 4 x 4 pixels, 60 x 45 of them. The edge follows the blocks: at most a
// ring of 4 pixels about the circle of radius 60 is wrong, 2 pi 60 * 4 of pi 60^2 pixels = 13 %, on average half of it.
TEST(Grabcut, CutsLargePicturesInBlocksAndSaysSo) {
  const auto [capture, disc] = phantom(4, 180, 240, 60);
  EXPECT_EQ(test::note_of(key, *capture, {}, {{"working_side", 64}}), "cut at 1/4 of the size, 60 x 45 pixels");
  EXPECT_GE(overlap(applied(key, *capture, {}, {{"working_side", 64}}), disc), 0.9);
  EXPECT_EQ(test::note_of(key, *capture, {}, {{"working_side", 240}}), "cut at full size, 240 x 180 pixels");
  EXPECT_EQ(test::note_of(key, *capture, {}, {{"working_side", 239}}), "cut at 1/2 of the size, 120 x 90 pixels");
  EXPECT_EQ(applied(key, *capture, {}), disc);
}

TEST(Grabcut, NeedsPixelsInsideAndOutsideTheRectangle) {
  const auto [capture, disc] = phantom(6, 30, 40, 8);
  EXPECT_EQ(test::note_of(key, *capture, {}, {{"rect", {0.5, 0.5, 1, 1}}}),
            "no_background: fewer than 5 pixels of the incoming mask lie outside the rectangle, so the mask is empty");
  EXPECT_EQ(test::note_of(key, *capture, {}, {{"rect", {2, 2, 1, 1}}}),
            "no_foreground: fewer than 5 pixels of the incoming mask lie inside the rectangle, so the mask is empty");
  EXPECT_EQ(applied(key, *capture, {}, {{"rect", {2, 2, 1, 1}}}).count(), 0);
  EXPECT_EQ(test::note_of(key, *capture, Mask::empty({30, 40})),
            "no_foreground: the incoming mask is empty, and so is this one");
}

TEST(Grabcut, OfOneColourKeepsAllOrNothing) {
  const auto capture = test::capture("c", {{"CLR", {{"RGB", Image(cv::Mat(30, 40, CV_8UC3, cv::Scalar(9, 9, 9)))}}}});
  const auto inside = applied("roi_rect", *capture, {}, {{"rect", {0.5, 0.5, 0.8, 0.8}}}).count();
  EXPECT_THAT(applied(key, *capture, {}).count(), testing::AnyOf(0, inside));
}

TEST(Grabcut, NeverKeepsWhatIsNoNumber) {
  const auto [capture, disc] = phantom(7, 60, 80, 15);
  cv::Mat pixels;
  capture->find_image("CLR", "RGB")->read_only().convertTo(pixels, CV_32FC3, 1 / 255.0);
  for (int x = 35; x < 45; ++x) pixels.at<cv::Vec3f>(30, x)[1] = std::numeric_limits<float>::quiet_NaN();
  const Mask result = applied(key, *test::capture("c", {{"CLR", {{"RGB", Image(pixels)}}}}), {});
  for (int x = 35; x < 45; ++x) EXPECT_FALSE(result.at(30, x));
  EXPECT_GE(result.count(), disc.count() - 20);
}

// 16-bit counts of a declared white level stand for the same colours.
TEST(Grabcut, TakesColoursAsFractionsOfWhite) {
  const auto [capture, disc] = phantom(8, 60, 80, 15);
  cv::Mat pixels;
  capture->find_image("CLR", "RGB")->read_only().convertTo(pixels, CV_16UC3, 16);
  const auto deep = test::capture("c", {{"CLR", {{"RGB", Image(pixels)}}}});
  deep->measurements.at("CLR")->declared_white_level = 255 * 16;
  EXPECT_EQ(applied(key, *deep, {}), applied(key, *capture, {}));
}

TEST(Grabcut, StopsBetweenIterationsWhenItIsCancelled) {
  const auto [capture, disc] = phantom(9, 60, 80, 15);
  common::CancelEvent cancel;
  cancel.set();
  const auto operation = get_mask_operation(key)();
  operation->set_context({.cancel_event = &cancel, .progress = {}});
  EXPECT_THROW(static_cast<void>(operation->apply({.image_stack = *capture})), CancelledError);
}

TEST(Grabcut, RefusesWhatIsOutsideItsLimits) {
  const auto [capture, disc] = phantom(10, 30, 40, 8);
  const auto refused = [&, &source = *capture](const Value& params) {
    return test::refusal([&] { static_cast<void>(applied(key, source, {}, params)); });
  };
  EXPECT_THAT(refused({{"iterations", 0}}), testing::HasSubstr("from 1 to 10"));
  EXPECT_THAT(refused({{"iterations", 11}}), testing::HasSubstr("from 1 to 10"));
  EXPECT_THAT(refused({{"working_side", 63}}), testing::HasSubstr("from 64 to"));
  EXPECT_THAT(refused({{"seed", -1}}), testing::HasSubstr("from 0 to 2147483647"));
  EXPECT_THAT(refused({{"rect", {0.5, 0.5, -1, 1}}}), testing::HasSubstr("sizes not negative"));
}

// The same colours in equal parts inside and outside the rectangle: python3-opencv leaves nothing for any seed.
TEST(Grabcut, GivenNothingUnlikeTheBackground_ThenTheMaskIsEmptyAndSaysSo) {
  cv::Mat pixels(30, 40, CV_8UC3, cv::Scalar(200, 60, 60));
  pixels.colRange(20, 40).setTo(cv::Scalar(60, 200, 60));
  const auto capture = test::capture("c", {{"CLR", {{"RGB", Image(pixels)}}}});
  EXPECT_EQ(applied(key, *capture, {}).count(), 0);
  EXPECT_EQ(test::note_of(key, *capture, {}),
            "no_foreground: nothing inside the rectangle is unlike the background, so the mask is empty; cut at full "
            "size, 40 x 30 pixels");
}

}  // namespace
}  // namespace orvexa::model
