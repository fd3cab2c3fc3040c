#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "orvexa/model/measures/auto_threshold.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using test::note_of;
using testing::ElementsAre;

template <typename T>
std::shared_ptr<CaptureSet> capture_of(const std::vector<std::vector<T>>& rows, std::optional<double> white = {}) {
  auto capture = test::capture("c", {{"MSP", {{"NIR", test::image<T>(rows)}}}});
  capture->measurements.at("MSP")->declared_white_level = white;
  return capture;
}

TEST(ThresholdAuto, KeepsWhatIsAboveTheLevel) {
  const auto capture = capture_of<std::uint8_t>({{10, 11, 200, 201}});
  EXPECT_THAT(drawing(applied("threshold_auto", *capture, {})), ElementsAre("..##"));
  EXPECT_THAT(drawing(applied("threshold_auto", *capture, {}, {{"polarity", "dark"}})), ElementsAre("##.."));
  EXPECT_EQ(note_of("threshold_auto", *capture, {}), "level 11 counts (0.0431373 of white) in MSP.NIR by otsu");
}

TEST(ThresholdAuto, GivenAReference_ThenTheLevelIsOfReflectance) {
  const auto capture = capture_of<std::uint8_t>({{10, 11, 200, 201}});
  capture->measurements.at("MSP")->references.insert_or_assign(
      "NIR", std::make_shared<const Reference>(Reference{.white = {.constants = {250}}, .dark = {.constants = {0}}}));
  for (const char* filter : {"none", "median"}) {
    EXPECT_THAT(note_of("threshold_auto", *capture, {}, {{"smooth", filter}}), testing::HasSubstr(" reflectance ("));
  }
}

TEST(ThresholdAuto, LooksOnlyAtThePixelsOfTheIncomingMask) {
  // All five: 0 0 100 110 | 255 would be no better than 0 0 | ...; inside the mask only 100, 110 and 120 count.
  const auto capture = capture_of<std::uint8_t>({{0, 0, 100, 101, 120, 255}});
  EXPECT_THAT(drawing(applied("threshold_auto", *capture, test::mask({"..###."}))), ElementsAre("....#."));
}

TEST(ThresholdAuto, TakesEveryPixelWhenTheChainIsReset) {
  const auto capture = capture_of<std::uint8_t>({{0, 0, 200, 201}});
  EXPECT_THAT(drawing(applied("threshold_auto", *capture, test::mask({"##.."}), {{"reset_mask_chain", true}})),
              ElementsAre("..##"));
}

TEST(ThresholdAuto, MultipliesTheLevelByTheFactor) {
  // Level 100 (100 100 | 200 200); times 1.5 is 150, times 2 is 200: nothing is above it.
  const auto capture = capture_of<std::uint8_t>({{100, 100, 200, 200}});
  EXPECT_EQ(applied("threshold_auto", *capture, {}, {{"factor", 1.5}}).count(), 2);
  EXPECT_EQ(applied("threshold_auto", *capture, {}, {{"factor", 2}}).count(), 0);
  EXPECT_EQ(applied("threshold_auto", *capture, {}, {{"factor", 0.9}}).count(), 4);
}

TEST(ThresholdAuto, DoesNotLetRoundingOfTheFactorMoveACount) {
  // 110 * 0.7 is 76.99999999999999 in floating point; the level is 77, and 77 is not above it.
  const auto capture = capture_of<std::uint8_t>({{77, 110, 110, 110, 250, 250, 250}});
  EXPECT_EQ(note_of("threshold_auto", *capture, {}), "level 110 counts (0.431373 of white) in MSP.NIR by otsu");
  EXPECT_THAT(drawing(applied("threshold_auto", *capture, {}, {{"factor", 0.7}})), ElementsAre(".######"));
  EXPECT_THAT(drawing(applied("threshold_auto", *capture, {}, {{"factor", 0.7}, {"polarity", "dark"}})),
              ElementsAre("#......"));
}

TEST(ThresholdAuto, ClampsTheLevelInFractionsOfTheDeclaredWhite) {
  const auto capture = capture_of<std::uint16_t>({{100, 100, 2000, 3000}}, 4000);
  EXPECT_THAT(drawing(applied("threshold_auto", *capture, {}, {{"min", 0.6}})), ElementsAre("...#"));   // 2400
  EXPECT_THAT(drawing(applied("threshold_auto", *capture, {}, {{"max", 0.02}})), ElementsAre("####"));  // 80
  EXPECT_EQ(note_of("threshold_auto", *capture, {}, {{"min", 0.6}}),
            "level 2400 counts (0.6 of white) in MSP.NIR by otsu");
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(applied("threshold_auto", *capture, {}, {{"min", 0.5}, {"max", 0.25}}));
            }),
            "threshold_auto: parameter \"min\" is 0.5, but it must not be above \"max\", which is 0.25.");
}

TEST(ThresholdAuto, GivesAnEmptyMaskAndSaysSoWithoutContrast) {
  const auto flat = capture_of<std::uint8_t>({{7, 7}});
  for (const std::string& method : auto_threshold_method_names()) {
    for (const char* polarity : {"bright", "dark"}) {
      const Value params{{"method", method}, {"polarity", polarity}};
      EXPECT_EQ(applied("threshold_auto", *flat, {}, params).count(), 0);
      EXPECT_EQ(note_of("threshold_auto", *flat, {}, params),
                "no_contrast: all pixels have the same value in MSP.NIR, so the mask is empty");
    }
  }
  const auto varied = capture_of<std::uint8_t>({{7, 8}});
  EXPECT_EQ(note_of("threshold_auto", *varied, Mask::empty({1, 2})),
            "no_contrast: there is no pixel to look at in MSP.NIR, so the mask is empty");
  EXPECT_EQ(note_of("threshold_auto", *varied, test::mask({"#."})),
            "no_contrast: all pixels have the same value in MSP.NIR, so the mask is empty");
}

TEST(ThresholdAuto, LeavesOutWhatIsNoNumber) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  const auto capture = capture_of<float>({{nan, 0.1f, 0.11f, 0.9f, nan}});
  EXPECT_THAT(drawing(applied("threshold_auto", *capture, {})), ElementsAre("...#."));
  EXPECT_THAT(drawing(applied("threshold_auto", *capture, {}, {{"polarity", "dark"}})), ElementsAre(".##.."));
}

TEST(ThresholdAuto, SaysWhereTheHistogramHasNoTwoPeaks) {
  const auto capture = capture_of<std::uint8_t>({{1, 2, 2, 2, 3, 4}});
  EXPECT_EQ(applied("threshold_auto", *capture, {}, {{"method", "minimum"}}).count(), 0);
  EXPECT_EQ(note_of("threshold_auto", *capture, {}, {{"method", "minimum"}}),
            "no_two_peaks: the histogram of MSP.NIR does not come to have two peaks, so the mask is empty");
}

TEST(ThresholdAuto, LooksAtTheSmoothedBandAndTheMasksPixels) {
  // Medians over 3 x 3 (one row, replicated): 10 10 10 200 200 200 for 10 10 200 10 200 200? The windows are
  // (10 10 10) (10 10 200) (10 200 10) (200 10 200) (10 200 200) (200 200 200): 10 10 10 200 200 200.
  const auto capture = capture_of<std::uint8_t>({{10, 10, 200, 10, 200, 200}});
  EXPECT_THAT(drawing(applied("threshold_auto", *capture, {}, {{"smooth", "median"}})), ElementsAre("...###"));
  EXPECT_THAT(drawing(applied("threshold_auto", *capture, {})), ElementsAre("..#.##"));
  EXPECT_EQ(note_of("threshold_auto", *capture, test::mask({"##...."}), {{"smooth", "median"}}),
            "no_contrast: all pixels have the same value in MSP.NIR, so the mask is empty");
  EXPECT_EQ(
      test::refusal([&] {
        static_cast<void>(applied("threshold_auto", *capture, {}, {{"smooth", "bilateral"}, {"smooth_radius", 6}}));
      }),
      "threshold_auto: parameter \"smooth_radius\" is 6, but the bilateral filter's radius is from 1 to 5.");
}

TEST(ThresholdAuto, BrightAndDarkTogetherAreThePixelsOfTheMask) {
  const auto capture = test::random_capture(4, 30, 40);
  const Mask mask = test::random_mask(5, 30, 40, 0.5);
  for (const char* band : {"CLR.RGB", "MSP.NIR", "MSP.HEAT"}) {
    for (const std::string& method : auto_threshold_method_names()) {
      if (method == "minimum") continue;  // even noise need not have two peaks
      SCOPED_TRACE(std::string(band) + " " + method);
      Value params{{"band", band}, {"method", method}, {"polarity", "bright"}};
      const Mask bright = applied("threshold_auto", *capture, mask, params);
      params["polarity"] = "dark";
      const Mask dark = applied("threshold_auto", *capture, mask, params);
      EXPECT_EQ((bright & dark).count(), 0);
      EXPECT_EQ(bright.count() + dark.count(), mask.count());
      EXPECT_GT(bright.count(), 0);
      EXPECT_GT(dark.count(), 0);
    }
  }
}

// 0.196078 of 255 is 49.99989, which means the count 50: 51 to 255 lie above it, as with threshold_hysteresis.
TEST(ThresholdAuto, TakesItsLimitsForTheWholeCountsThatTheyMean) {
  cv::Mat ramp(1, 256, CV_8UC1);
  for (int x = 0; x < 256; ++x) ramp.at<std::uint8_t>(0, x) = static_cast<std::uint8_t>(x);
  const auto capture = test::capture("c", {{"MSP", {{"NIR", Image(ramp)}}}});
  const Value params{{"min", 0.196078}, {"max", 0.196078}};
  EXPECT_EQ(applied("threshold_auto", *capture, {}, params).count(), 205);
  EXPECT_EQ(
      applied("threshold_auto", *capture, {}, {{"min", 0.196078}, {"max", 0.196078}, {"polarity", "dark"}}).count(),
      51);
  EXPECT_EQ(applied("threshold_hysteresis", *capture, {}, {{"low", 0.196078}, {"high", 0.196078}}).count(), 205);
  EXPECT_EQ(note_of("threshold_auto", *capture, {}, params), "level 50 counts (0.196078 of white) in MSP.NIR by otsu");
  // 0.5 of 255 is 127.5: the last level of the background is 127.
  EXPECT_EQ(applied("threshold_auto", *capture, {}, {{"min", 0.5}, {"max", 0.5}}).count(), 128);
}

// 0.1 is 0.10000000149 as a float; it is not above itself.
TEST(ThresholdAuto, TakesItsLimitsForTheNearestFloats) {
  const auto capture = capture_of<float>({{0.0f, 0.1f, 0.10001f, 1.0f}});
  EXPECT_THAT(drawing(applied("threshold_auto", *capture, {}, {{"min", 0.1}, {"max", 0.1}})), ElementsAre("..##"));
}

}  // namespace
}  // namespace orvexa::model
