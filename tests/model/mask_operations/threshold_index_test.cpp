#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using test::note_of;

/// NDVI of the pixels: (90 - 10) / 100 = 0.8, (60 - 40) / 100 = 0.2, (50 - 50) / 100 = 0, 0 / 0 undefined,
/// (10 - 90) / 100 = -0.8.
std::shared_ptr<CaptureSet> plot() {
  return test::capture("c", {{"MSP",
                              {{"RED", test::image<std::uint16_t>({{10, 40, 50, 0, 90}})},
                               {"NIR", test::image<std::uint16_t>({{90, 60, 50, 0, 10}})}}}});
}

std::string kept(const Value& params, const std::optional<Mask>& mask = {}) {
  return drawing(applied("threshold_index", *plot(), mask, params)).front();
}

TEST(ThresholdIndex, KeepsValuesBetweenLimits) {
  EXPECT_EQ(kept({{"method", "none"}, {"low", 0.1}, {"high", 0.5}}), ".#...");
  EXPECT_EQ(kept({{"method", "none"}, {"low", 0.0}}), "###..");
  EXPECT_EQ(kept({{"method", "none"}, {"high", 0.0}}), "..#.#");
  EXPECT_EQ(note_of("threshold_index", *plot(), {}, {{"method", "none"}}), "ndvi of MSP.NIR, MSP.RED");
}

TEST(ThresholdIndex, NeverKeepsAnUndefinedIndex) {
  EXPECT_EQ(kept({{"method", "none"}}), "###.#");
}

TEST(ThresholdIndex, FindsALevelInsideTheIncomingMask) {
  // Inside the mask 0.8, 0.2 and 0: between 0.2 and 0.8 the classes are farthest apart: 2 * 1 * 0.7^2 = 0.98 against
  // 1 * 2 * 0.5^2 = 0.5.
  EXPECT_EQ(kept({}, test::mask({"###.."})), "#....");
  EXPECT_EQ(kept({{"polarity", "dark"}}, test::mask({"###.."})), ".##..");
  EXPECT_THAT(note_of("threshold_index", *plot(), test::mask({"###.."})),
              testing::MatchesRegex("level 0\\.2[0-9]* of ndvi of MSP.NIR, MSP.RED by otsu"));
}

TEST(ThresholdIndex, AppliesLimitsBesidesTheLevel) {
  EXPECT_EQ(kept({{"low", 0.1}, {"high", 0.5}, {"polarity", "dark"}}, test::mask({"###.."})), ".#...");
}

TEST(ThresholdIndex, GivesAnEmptyMaskAndSaysSoWithoutContrast) {
  EXPECT_EQ(kept({}, test::mask({"...#."})), ".....");
  EXPECT_EQ(note_of("threshold_index", *plot(), test::mask({"...#."})),
            "no_contrast: ndvi of MSP.NIR, MSP.RED has no valid pixel to look at, so the mask is empty");
  EXPECT_EQ(note_of("threshold_index", *plot(), test::mask({"#...."})),
            "no_contrast: ndvi of MSP.NIR, MSP.RED has the same value everywhere, so the mask is empty");
}

TEST(ThresholdIndex, RefusesASideWithoutALevel) {
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(kept({{"method", "none"}, {"polarity", "dark"}}));
            }),
            "threshold_index: parameter \"polarity\" is \"dark\", but without a method there is no level whose side "
            "could be chosen; give a method, or the limits low and high.");
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(kept({{"low", 0.5}, {"high", 0.25}}));
            }),
            "threshold_index: parameter \"low\" is 0.5, but it must not be above \"high\", which is 0.25.");
}

TEST(ThresholdIndex, SaysWhichBandIsMissing) {
  EXPECT_THAT(
      test::refusal([] {
        static_cast<void>(kept({{"index", "gndvi"}}));
      }),
      testing::StartsWith("No measurement of this capture has a band for the role G (green) together with N: "));
}

}  // namespace
}  // namespace orvexa::model
