// threshold_adaptive, threshold_sauvola and texture_threshold.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using testing::ElementsAre;

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

template <typename T>
std::shared_ptr<CaptureSet> capture_of(const std::vector<std::vector<T>>& rows) {
  return test::capture("c", {{"MSP", {{"NIR", test::image<T>(rows)}}}});
}

std::string refusal_of(std::string_view key, const Value& params) {
  return test::refusal([&] { static_cast<void>(applied(key, *capture_of<std::uint8_t>({{1, 2}}), {}, params)); });
}

// ---- Local mean ----

TEST(ThresholdAdaptive, KeepsWhatIsAboveTheMeanOfItsWindow) {
  // Means of three, two at the ends: (10 + 40) / 2 = 25, 20, 30, 20, 25: above are 40 and 40.
  const auto capture = capture_of<std::uint8_t>({{10, 40, 10, 40, 10}});
  EXPECT_THAT(drawing(applied("threshold_adaptive", *capture, {}, {{"window", 3}})), ElementsAre(".#.#."));
  EXPECT_THAT(drawing(applied("threshold_adaptive", *capture, {}, {{"window", 3}, {"polarity", "dark"}})),
              ElementsAre("#.#.#"));
}

TEST(ThresholdAdaptive, TakesTheOffsetFromTheMean) {
  // Windows 10 40 | 10 40 10 | 40 10 10 | 10 10 40 | 10 40 have the means 25, 20, 20, 20, 25. With 10.2 counts less
  // (0.04): 14.8, 9.8, 9.8, 9.8, 14.8: all but the first.
  const auto capture = capture_of<std::uint8_t>({{10, 40, 10, 10, 40}});
  EXPECT_THAT(drawing(applied("threshold_adaptive", *capture, {}, {{"window", 3}, {"offset", 0.04}})),
              ElementsAre(".####"));
  EXPECT_THAT(drawing(applied("threshold_adaptive", *capture, {}, {{"window", 3}, {"offset", -0.08}})),
              ElementsAre("....."));  // 40 against 20 + 20.4 and 25 + 20.4
}

TEST(ThresholdAdaptive, DoesNotLetRoundingDecideAboutAFlatPicture) {
  for (const char* method : {"mean", "gaussian"}) {
    for (const int window : {3, 5, 51}) {
      SCOPED_TRACE(testing::Message() << method << " " << window);
      const Value bright{{"method", method}, {"window", window}};
      const Value dark{{"method", method}, {"window", window}, {"polarity", "dark"}};
      const auto eight = test::capture("c", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(9, 12, 201)}}}});
      EXPECT_EQ(applied("threshold_adaptive", *eight, {}, bright).count(), 0);
      EXPECT_EQ(applied("threshold_adaptive", *eight, {}, dark).count(), 108);
      const auto real = test::capture("c", {{"GRY", {{"GRY", test::flat_image<float>(9, 12, 0.7f)}}}});
      EXPECT_EQ(applied("threshold_adaptive", *real, {}, bright).count(), 0);
      EXPECT_EQ(applied("threshold_adaptive", *real, {}, dark).count(), 108);
    }
  }
  // An offset of 0.2 is 51 counts of 255, which 0.2 * 255 is not in floating point.
  const auto step = capture_of<std::uint8_t>({{51, 51, 51}});
  EXPECT_EQ(applied("threshold_adaptive", *step, {}, {{"window", 3}, {"offset", -0.2}}).count(), 0);
}

TEST(ThresholdAdaptive, SeesOnlyTheIncomingMask) {
  // Beside 250 both 40 lie below their means; inside the mask their windows are 10 40 and 40 10.
  const auto capture = capture_of<std::uint8_t>({{10, 40, 250, 40, 10}});
  for (const char* method : {"mean", "gaussian"}) {
    EXPECT_THAT(
        drawing(applied("threshold_adaptive", *capture, test::mask({"##.##"}), {{"method", method}, {"window", 3}})),
        ElementsAre(".#.#."));
    EXPECT_THAT(drawing(applied("threshold_adaptive", *capture, {}, {{"method", method}, {"window", 3}})),
                ElementsAre("..#.."));
  }
}

TEST(ThresholdAdaptive, LeavesOutWhatIsNoNumber) {
  const auto capture = capture_of<float>({{nan_value, 0.1f, 0.4f, nan_value, 0.3f}});
  for (const char* method : {"mean", "gaussian"}) {
    EXPECT_THAT(drawing(applied("threshold_adaptive", *capture, {}, {{"method", method}, {"window", 3}})),
                ElementsAre("..#.."));
    EXPECT_THAT(
        drawing(applied("threshold_adaptive", *capture, {}, {{"method", method}, {"window", 3}, {"polarity", "dark"}})),
        ElementsAre(".#..#"));
  }
}

TEST(ThresholdAdaptive, TakesWindowsOfAnOddSideFromItsLimits) {
  const auto capture = test::random_capture(2, 20, 30);
  for (const char* method : {"mean", "gaussian"}) {
    for (const int window : {3, 501}) {
      const Mask bright = applied("threshold_adaptive", *capture, {}, {{"method", method}, {"window", window}});
      const Mask dark =
          applied("threshold_adaptive", *capture, {}, {{"method", method}, {"window", window}, {"polarity", "dark"}});
      EXPECT_EQ((bright & dark).count(), 0);
      EXPECT_EQ(bright.count() + dark.count(), 600);
      EXPECT_GT(bright.count(), 0);
    }
  }
  for (const char* key : {"threshold_adaptive", "threshold_sauvola"}) {
    EXPECT_EQ(refusal_of(key, {{"window", 10}}),
              std::string(key) + ": parameter \"window\" is 10, but it must be an odd number.");
    EXPECT_THAT(refusal_of(key, {{"window", 1}}), testing::HasSubstr("\"window\" is 1,"));
    EXPECT_THAT(refusal_of(key, {{"window", 503}}), testing::HasSubstr("\"window\" is 503"));
  }
}

// ---- Sauvola, Niblack ----

TEST(ThresholdSauvola, ComparesWithTheFormula) {
  // Window of all three: m = 120, s = sqrt((60^2 + 60^2) / 3) = 48.99, r = 127.5: t = 120 (1 + k (0.3842 - 1)); k = 0.2
  // gives 105.2, k = 1 gives 46.1. (At the ends the window has two: 60 120 has m = 90, s = 30, t = 90 (1 - 0.2 *
  // 0.7647) = 76.2; 120 180 has m = 150, t = 127.1.)
  const auto capture = capture_of<std::uint8_t>({{60, 120, 180}});
  EXPECT_THAT(drawing(applied("threshold_sauvola", *capture, {}, {{"window", 3}})), ElementsAre(".##"));
  // k = 1: t = 90 * 30 / 127.5 = 21.2 at the left end.
  EXPECT_THAT(drawing(applied("threshold_sauvola", *capture, {}, {{"window", 3}, {"k", 1}})), ElementsAre("###"));
  // r = 0.05 is 12.75 counts: t = 120 (1 + 0.2 (3.842 - 1)) = 188.2 in the middle, 114.4 and 190.6 at the ends.
  EXPECT_THAT(drawing(applied("threshold_sauvola", *capture, {}, {{"window", 3}, {"r", 0.05}})), ElementsAre("..."));
}

TEST(ThresholdSauvola, OfNiblackTakesDeviationsFromTheMean) {
  // Left end: 90 - 30 k, middle: 120 - 48.99 k, right end: 150 - 30 k; with k = 1: 60 (not above), 71.0, 120.
  const auto capture = capture_of<std::uint8_t>({{60, 120, 180}});
  EXPECT_THAT(drawing(applied("threshold_sauvola", *capture, {}, {{"window", 3}, {"variant", "niblack"}, {"k", 1}})),
              ElementsAre(".##"));
  EXPECT_THAT(drawing(applied("threshold_sauvola", *capture, {}, {{"window", 3}, {"variant", "niblack"}, {"k", 0}})),
              ElementsAre("..#"));  // 120 is not above its mean 120
}

TEST(ThresholdSauvola, SeesOnlyTheIncomingMaskAndNumbers) {
  const auto capture = capture_of<std::uint8_t>({{60, 120, 250}});
  EXPECT_THAT(drawing(applied("threshold_sauvola", *capture, test::mask({"##."}), {{"window", 3}})),
              ElementsAre(".#."));  // 76.2 for both, as above
  const auto gaps = capture_of<float>({{60 / 255.0f, 120 / 255.0f, nan_value}});
  EXPECT_THAT(drawing(applied("threshold_sauvola", *gaps, {}, {{"window", 3}})), ElementsAre(".#."));
  EXPECT_THAT(drawing(applied("threshold_sauvola", *gaps, {}, {{"window", 3}, {"polarity", "dark"}})),
              ElementsAre("#.."));
}

TEST(ThresholdSauvola, OfAFlatPictureKeepsItAll) {
  // s = 0: t = m (1 - k), which lies below every value but 0.
  const auto flat = test::capture("c", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(5, 6, 77)}}}});
  EXPECT_EQ(applied("threshold_sauvola", *flat, {}).count(), 30);
  EXPECT_EQ(applied("threshold_sauvola", *flat, {}, {{"variant", "niblack"}}).count(), 0);
}

// ---- Texture ----

TEST(TextureThreshold, KeepsPixelsByTheSpreadOfTheirWindow) {
  // Windows: 10 10 | 10 10 10 | 10 10 60 | 10 60 60 | 60 60: sd 0 0 23.57 23.57 0 counts, 0.0924 of white.
  const auto capture = capture_of<std::uint8_t>({{10, 10, 10, 60, 60}});
  const Value params{{"radius", 1}, {"low", 0.09}, {"high", 0.095}};
  EXPECT_THAT(drawing(applied("texture_threshold", *capture, {}, params)), ElementsAre("..##."));
  EXPECT_THAT(drawing(applied("texture_threshold", *capture, {}, {{"radius", 1}, {"low", 0}, {"high", 0}})),
              ElementsAre("##..#"));
}

TEST(TextureThreshold, KeepsPixelsByTheRangeOfTheirWindow) {
  // Ranges 0 51 51 0 .. in counts: 51 is 0.2 of white, and limits belong to what is kept.
  const auto capture = capture_of<std::uint8_t>({{10, 10, 61, 61, 61}});
  const Value params{{"measure", "range"}, {"radius", 1}, {"low", 0.2}, {"high", 0.2}};
  EXPECT_THAT(drawing(applied("texture_threshold", *capture, {}, params)), ElementsAre(".##.."));
}

TEST(TextureThreshold, KeepsPixelsByTheEntropyOfTheirWindow) {
  // Two values alike: 1 bit; three different ones: log2 3 = 1.585; two of one and one of another: 0.918.
  const auto capture = capture_of<std::uint8_t>({{10, 20, 30, 30, 30}});
  const auto kept = [&](double low, double high) {
    return drawing(applied("texture_threshold", *capture, {},
                           {{"measure", "entropy"}, {"radius", 1}, {"low", low}, {"high", high}}));
  };
  EXPECT_THAT(kept(1, 1), ElementsAre("#...."));
  EXPECT_THAT(kept(1.58, 1.59), ElementsAre(".#..."));
  EXPECT_THAT(kept(0.918, 0.919), ElementsAre("..#.."));
  EXPECT_THAT(kept(0, 0), ElementsAre("...##"));
}

TEST(TextureThreshold, SeesOnlyTheIncomingMaskAndNumbers) {
  const auto capture = capture_of<std::uint8_t>({{10, 10, 200, 10, 10}});
  for (const char* measure : {"sd", "range", "entropy"}) {
    EXPECT_EQ(
        applied("texture_threshold", *capture, test::mask({"##.##"}), {{"measure", measure}, {"radius", 2}}).count(),
        0);
    EXPECT_EQ(applied("texture_threshold", *capture, {}, {{"measure", measure}, {"radius", 2}}).count(), 5);
    const auto gaps = capture_of<float>({{0.1f, 0.1f, nan_value, 0.1f, 0.5f}});
    EXPECT_THAT(drawing(applied("texture_threshold", *gaps, {}, {{"measure", measure}, {"radius", 1}})),
                ElementsAre("...##"));
    EXPECT_THAT(drawing(applied("texture_threshold", *gaps, {}, {{"measure", measure}, {"radius", 1}, {"low", 0}})),
                ElementsAre("##.##"));
  }
}

TEST(TextureThreshold, TakesItsLimits) {
  const auto capture = test::random_capture(2, 20, 30);
  for (const char* measure : {"sd", "range", "entropy"}) {
    for (const int radius : {1, 50}) {
      const Mask all =
          applied("texture_threshold", *capture, {}, {{"measure", measure}, {"radius", radius}, {"low", 0}});
      EXPECT_EQ(all.count(), 600);
    }
  }
  EXPECT_THAT(refusal_of("texture_threshold", {{"radius", 0}}), testing::HasSubstr("\"radius\" is 0"));
  EXPECT_THAT(refusal_of("texture_threshold", {{"radius", 51}}), testing::HasSubstr("\"radius\" is 51"));
  EXPECT_EQ(refusal_of("texture_threshold", {{"low", 0.5}, {"high", 0.4}}),
            "texture_threshold: parameter \"low\" is 0.5, but it must not be above \"high\", which is 0.4.");
}

TEST(LocalThresholds, LookAtTheSmoothedBandAndSayWhatTheyLack) {
  // Medians of three make the row flat: nothing is above its mean, and nothing is rough.
  const auto capture = capture_of<std::uint8_t>({{10, 10, 200, 10, 10}});
  EXPECT_EQ(applied("threshold_adaptive", *capture, {}, {{"window", 3}, {"smooth", "median"}}).count(), 0);
  EXPECT_EQ(applied("texture_threshold", *capture, {}, {{"radius", 1}, {"smooth", "median"}}).count(), 0);
  EXPECT_EQ(applied("threshold_sauvola", *capture, {}, {{"variant", "niblack"}, {"smooth", "median"}}).count(), 0);
  for (const char* key : {"threshold_adaptive", "threshold_sauvola", "texture_threshold"}) {
    EXPECT_EQ(
        refusal_of(key, {{"smooth", "bilateral"}, {"smooth_radius", 6}}),
        std::string(key) + ": parameter \"smooth_radius\" is 6, but the bilateral filter's radius is from 1 to 5.");
    const MaskOperationInfo& info = get_mask_operation(key);
    EXPECT_EQ(test::refusal([&] {
                info.check_capture(*capture, info()->validate_params({{"band", "MSP.RED"}}));
              }),
              refusal_of(key, {{"band", "MSP.RED"}}));
  }
}

// Noise of 60 x 80 pixels, once with a pixel at column 30 and row 20 that marks missing data: windows with a reach of 5
// that do not hold it know nothing of it.
TEST(LocalThresholds, GivenAMarkForMissingData_ThenWindowsThatDoNotSeeItDecideAsWithoutIt) {
  const Image noise = test::random_image<float>(12, 60, 80, 1, 1.0);
  cv::Mat pixels = noise.read_only().clone();
  pixels.at<float>(20, 30) = -3.4028235e38f;
  const auto clean = test::capture("c", {{"MSP", {{"NIR", noise}}}});
  const auto marked = test::capture("c", {{"MSP", {{"NIR", Image(pixels)}}}});
  const std::vector<std::pair<std::string, Value>> steps{
      {"threshold_adaptive", {{"window", 11}}},
      {"threshold_sauvola", {{"window", 11}}},
      {"threshold_sauvola", {{"window", 11}, {"variant", "niblack"}}},
      {"texture_threshold", {{"radius", 5}, {"low", 0.28}}},  // that of even noise is 1 / sqrt(12) = 0.289
  };
  for (const auto& [key, params] : steps) {
    SCOPED_TRACE(key + " " + params.dump());
    const Mask expected = applied(key, *clean, {}, params);
    const Mask found = applied(key, *marked, {}, params);
    EXPECT_GT(expected.count(), 1000);
    EXPECT_LT(expected.count(), 4600);
    for (int y = 0; y < 60; ++y) {
      for (int x = 0; x < 80; ++x) {
        if (std::abs(y - 20) > 5 || std::abs(x - 30) > 5) {
          ASSERT_EQ(found.at(y, x), expected.at(y, x)) << x << ", " << y;
        }
      }
    }
  }
}

TEST(ThresholdSauvola, RefusesTheRangeThatNiblackDoesNotHave) {
  EXPECT_EQ(
      refusal_of("threshold_sauvola", {{"variant", "niblack"}, {"r", 0.25}}),
      "threshold_sauvola: parameter \"r\" is 0.25, but parameter \"variant\" is \"niblack\"; choose \"sauvola\" to "
      "use it.");
  EXPECT_EQ(refusal_of("threshold_sauvola", {{"variant", "niblack"}, {"r", 0.5}}), "");
}

}  // namespace
}  // namespace orvexa::model
