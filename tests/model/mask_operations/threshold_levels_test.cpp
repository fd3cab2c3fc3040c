// threshold_percentile, threshold_hysteresis and threshold_multiotsu.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using test::note_of;
using testing::ElementsAre;

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

template <typename T>
std::shared_ptr<CaptureSet> capture_of(const std::vector<std::vector<T>>& rows, std::optional<double> white = {}) {
  auto capture = test::capture("c", {{"MSP", {{"NIR", test::image<T>(rows)}}}});
  capture->measurements.at("MSP")->declared_white_level = white;
  return capture;
}

std::string refusal_of(std::string_view key, const Value& params) {
  return test::refusal([&] { static_cast<void>(applied(key, *capture_of<std::uint8_t>({{1, 2}}), {}, params)); });
}

// ---- Percentiles ----

TEST(ThresholdPercentile, KeepsBothPercentiles) {
  // Of 10 20 30 40 50 the percentiles 25 and 75 are 20 and 40.
  const auto capture = capture_of<std::uint8_t>({{50, 10, 40, 20, 30}});
  EXPECT_THAT(drawing(applied("threshold_percentile", *capture, {}, {{"low", 25}, {"high", 75}})),
              ElementsAre("..###"));
  EXPECT_EQ(note_of("threshold_percentile", *capture, {}, {{"low", 25}, {"high", 75}}),
            "from 20 to 40 counts (0.0784314 to 0.156863 of white) in MSP.NIR");
  EXPECT_THAT(drawing(applied("threshold_percentile", *capture, {}, {{"low", 25}, {"high", 75}, {"invert", true}})),
              ElementsAre("##..."));
}

TEST(ThresholdPercentile, LeavesOutTheDarkestTwentiethByDefault) {
  // Percentile 5 of 0..20 is at place 1.
  std::vector<std::uint8_t> counts;
  for (int i = 0; i <= 20; ++i) counts.push_back(static_cast<std::uint8_t>(i));
  EXPECT_THAT(drawing(applied("threshold_percentile", *capture_of<std::uint8_t>({counts}), {})),
              ElementsAre(".####################"));
}

TEST(ThresholdPercentile, LooksOnlyAtThePixelsOfTheIncomingMask) {
  // 10 20 30 inside: the middle is 20.
  const auto capture = capture_of<std::uint8_t>({{10, 20, 30, 200, 210}});
  EXPECT_THAT(drawing(applied("threshold_percentile", *capture, test::mask({"###.."}), {{"low", 50}})),
              ElementsAre(".##.."));
}

TEST(ThresholdPercentile, LeavesOutWhatIsNoNumber) {
  const auto capture = capture_of<float>({{nan_value, 0.1f, 0.2f, 0.3f, std::numeric_limits<float>::infinity()}});
  EXPECT_THAT(drawing(applied("threshold_percentile", *capture, {}, {{"low", 50}})), ElementsAre("..##."));
  EXPECT_THAT(drawing(applied("threshold_percentile", *capture, {}, {{"low", 50}, {"invert", true}})),
              ElementsAre(".#..."));
}

TEST(ThresholdPercentile, KeepsAllOfAFlatPictureAndNothingOfAnEmptyMask) {
  const auto flat = capture_of<std::uint8_t>({{7, 7, 7}});
  EXPECT_EQ(applied("threshold_percentile", *flat, {}).count(), 3);
  EXPECT_EQ(applied("threshold_percentile", *flat, Mask::empty({1, 3})).count(), 0);
  EXPECT_EQ(note_of("threshold_percentile", *flat, Mask::empty({1, 3})),
            "no_pixel: there is no pixel to look at in MSP.NIR, so the mask is empty");
}

TEST(ThresholdPercentile, KeepsAllBetweenItsLimits) {
  const auto capture = test::random_capture(3, 20, 30);
  for (const char* band : {"CLR.RGB", "MSP.NIR", "MSP.HEAT"}) {
    const Mask all = applied("threshold_percentile", *capture, {}, {{"band", band}, {"low", 0}, {"high", 100}});
    EXPECT_EQ(all.count(), 600) << band;
  }
  EXPECT_THAT(refusal_of("threshold_percentile", {{"low", -0.5}}), testing::HasSubstr("\"low\" is -0.5"));
  EXPECT_THAT(refusal_of("threshold_percentile", {{"high", 100.5}}), testing::HasSubstr("\"high\" is 100.5"));
  EXPECT_EQ(refusal_of("threshold_percentile", {{"low", 60}, {"high", 40}}),
            "threshold_percentile: parameter \"low\" is 60.0, but it must not be above \"high\", which is 40.0.");
}

TEST(ThresholdPercentile, NarrowsWithItsLimits) {
  const auto capture = test::random_capture(4, 25, 35);
  Mask before = Mask::full({25, 35});
  for (const double low : {0.0, 10.0, 33.3, 80.0, 100.0}) {
    const Mask kept = applied("threshold_percentile", *capture, {}, {{"band", "MSP.NIR"}, {"low", low}});
    EXPECT_EQ(kept & before, kept) << low;
    before = kept;
  }
  EXPECT_GT(before.count(), 0) << "the highest value is its own percentile";
}

// ---- Hysteresis ----

TEST(ThresholdHysteresis, KeepsPartsThatRiseAboveTheHighLevel) {
  const auto capture = capture_of<std::uint8_t>({{60, 60, 0, 60, 200, 60, 0, 51}});
  // Low 51, high 102: 51 itself is not above.
  EXPECT_THAT(drawing(applied("threshold_hysteresis", *capture, {}, {{"low", 0.2}, {"high", 0.4}})),
              ElementsAre("...###.."));
}

TEST(ThresholdHysteresis, JoinsCornersUnlessOnlySidesShallJoin) {
  const auto capture = capture_of<std::uint8_t>({{200, 0, 0}, {0, 100, 100}});
  EXPECT_THAT(drawing(applied("threshold_hysteresis", *capture, {})), ElementsAre("#..", ".##"));
  EXPECT_THAT(drawing(applied("threshold_hysteresis", *capture, {}, {{"connectivity", "4"}})),
              ElementsAre("#..", "..."));
}

TEST(ThresholdHysteresis, SeesOnlyTheIncomingMask) {
  // The bright pixel and the bridge lie outside the mask.
  const auto capture = capture_of<std::uint8_t>({{100, 100, 200, 100, 100, 200}});
  EXPECT_THAT(drawing(applied("threshold_hysteresis", *capture, test::mask({"##.###"}))), ElementsAre("...###"));
}

TEST(ThresholdHysteresis, WithEqualLevelsIsAPlainThreshold) {
  const auto capture = test::random_capture(5, 20, 30);
  const Mask kept = applied("threshold_hysteresis", *capture, {}, {{"band", "MSP.HEAT"}, {"low", 0.5}, {"high", 0.5}});
  const Mask above = applied("threshold_range", *capture, {}, {{"band", "MSP.HEAT"}, {"low", 0.5000001}, {"high", 2}});
  EXPECT_EQ(kept, above);
}

TEST(ThresholdHysteresis, KeepsNothingOfWhatIsNoNumberOrNowhereHigh) {
  EXPECT_EQ(applied("threshold_hysteresis", *capture_of<float>({{nan_value, 0.4f, 0.45f}}), {}).count(), 0);
  EXPECT_THAT(drawing(applied("threshold_hysteresis", *capture_of<float>({{nan_value, 0.4f, 0.6f}}), {})),
              ElementsAre(".##"));
  EXPECT_EQ(applied("threshold_hysteresis", *capture_of<std::uint8_t>({{200, 200}}), Mask::empty({1, 2})).count(), 0);
  EXPECT_EQ(refusal_of("threshold_hysteresis", {{"low", 0.9}}),
            "threshold_hysteresis: parameter \"low\" is 0.9, but it must not be above \"high\", which is 0.5.");
}

// ---- Several classes ----

TEST(ThresholdMultiotsu, KeepsTheClassesThatAreNamed) {
  const auto capture = capture_of<std::uint8_t>({{10, 11, 100, 101, 200, 201}});
  EXPECT_THAT(drawing(applied("threshold_multiotsu", *capture, {})), ElementsAre("....##"));
  EXPECT_THAT(drawing(applied("threshold_multiotsu", *capture, {}, {{"keep", {"1", "3"}}})), ElementsAre("##..##"));
  EXPECT_THAT(drawing(applied("threshold_multiotsu", *capture, {}, {{"keep", {"2"}}})), ElementsAre("..##.."));
  EXPECT_EQ(applied("threshold_multiotsu", *capture, {}, {{"keep", Value::array()}}).count(), 0);
  EXPECT_EQ(note_of("threshold_multiotsu", *capture, {}), "levels 11, 101 counts in MSP.NIR");
}

TEST(ThresholdMultiotsu, PartsThePixelsOfTheMaskIntoItsClasses) {
  const auto capture = test::random_capture(6, 30, 40);
  const Mask mask = test::random_mask(7, 30, 40, 0.5);
  for (const char* band : {"CLR.RGB", "MSP.NIR", "MSP.HEAT"}) {
    for (const int classes : {3, 4, 5}) {
      std::int64_t pixels = 0;
      for (int k = 1; k <= classes; ++k) {
        const Mask kept = applied("threshold_multiotsu", *capture, mask,
                                  {{"band", band}, {"classes", classes}, {"keep", {std::to_string(k)}}});
        EXPECT_GT(kept.count(), 0);
        pixels += kept.count();
      }
      EXPECT_EQ(pixels, mask.count()) << band << " " << classes;
    }
  }
}

TEST(ThresholdMultiotsu, SaysWhereThereIsNothingToPart) {
  const auto two = capture_of<std::uint8_t>({{5, 5, 9}});
  EXPECT_EQ(applied("threshold_multiotsu", *two, {}).count(), 0);
  EXPECT_EQ(
      note_of("threshold_multiotsu", *two, {}),
      "no_contrast: MSP.NIR has fewer different values than classes, so 3 classes cannot be parted and the mask is "
      "empty");
  EXPECT_EQ(note_of("threshold_multiotsu", *two, test::mask({"##."})),
            "no_contrast: MSP.NIR has the same value everywhere, so 3 classes cannot be parted and the mask is empty");
  EXPECT_EQ(note_of("threshold_multiotsu", *two, Mask::empty({1, 3})),
            "no_contrast: MSP.NIR has no pixel to look at, so 3 classes cannot be parted and the mask is empty");
}

TEST(ThresholdMultiotsu, RefusesAClassThatThereIsNot) {
  EXPECT_EQ(refusal_of("threshold_multiotsu", {{"keep", {"1", "4"}}}),
            "threshold_multiotsu: parameter \"keep\" names class 4, but \"classes\" is 3.");
  EXPECT_EQ(refusal_of("threshold_multiotsu", {{"keep", {"4"}}, {"classes", 4}}), "");
  EXPECT_THAT(refusal_of("threshold_multiotsu", {{"classes", 6}}), testing::HasSubstr("\"classes\" is 6"));
  EXPECT_THAT(refusal_of("threshold_multiotsu", {{"classes", 2}}), testing::HasSubstr("\"classes\" is 2"));
}

TEST(ThresholdMultiotsu, LeavesOutWhatIsNoNumber) {
  const auto capture = capture_of<float>({{nan_value, 0.1f, 0.5f, 0.9f}});
  EXPECT_THAT(drawing(applied("threshold_multiotsu", *capture, {}, {{"keep", {"1", "2", "3"}}})), ElementsAre(".###"));
}

// ---- All of them ----

TEST(LevelThresholds, LookAtTheSmoothedBand) {
  // Medians of three: 10 10 10 200 200 200.
  const auto capture = capture_of<std::uint8_t>({{10, 10, 200, 10, 200, 200}});
  const Value smooth{{"smooth", "median"}};
  EXPECT_THAT(drawing(applied("threshold_hysteresis", *capture, {}, smooth)), ElementsAre("...###"));
  EXPECT_THAT(drawing(applied("threshold_percentile", *capture, {}, {{"smooth", "median"}, {"low", 50}})),
              ElementsAre("...###"));
  EXPECT_EQ(note_of("threshold_multiotsu", *capture, {}, smooth).substr(0, 11), "no_contrast");
  for (const char* key : {"threshold_percentile", "threshold_hysteresis", "threshold_multiotsu"}) {
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

}  // namespace
}  // namespace orvexa::model
