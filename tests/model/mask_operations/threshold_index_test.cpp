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

// With otsu the level of the four values would lie above 0.2 and leave only the first pixel.
TEST(ThresholdIndex, LooksForNoLevelBesidesLimitsUnlessAMethodIsNamed) {
  EXPECT_EQ(kept({{"low", -0.5}}, test::mask({"###.#"})), "###..");
  EXPECT_EQ(kept({{"high", 0.5}}, test::mask({"###.#"})), ".##.#");
  EXPECT_EQ(note_of("threshold_index", *plot(), {}, {{"low", -0.5}}), "ndvi of MSP.NIR, MSP.RED");
  EXPECT_EQ(kept({{"low", 0.1}, {"method", "otsu"}}, test::mask({"###.."})), "#....");
  EXPECT_EQ(kept({{"low", 0.1}, {"method", nullptr}}, test::mask({"###.."})), "##...");
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
  EXPECT_EQ(kept({{"low", 0.1}, {"high", 0.5}, {"polarity", "dark"}, {"method", "otsu"}}, test::mask({"###.."})),
            ".#...");
}

TEST(ThresholdIndex, GivesAnEmptyMaskAndSaysSoWithoutContrast) {
  EXPECT_EQ(kept({}, test::mask({"...#."})), ".....");
  EXPECT_EQ(note_of("threshold_index", *plot(), test::mask({"...#."})),
            "no_contrast: ndvi of MSP.NIR, MSP.RED has no valid pixel to look at, so the mask is empty");
  EXPECT_EQ(note_of("threshold_index", *plot(), test::mask({"#...."})),
            "no_contrast: ndvi of MSP.NIR, MSP.RED has the same value everywhere, so the mask is empty");
}

TEST(ThresholdIndex, RefusesASideWithoutALevel) {
  for (const Value& params : {Value{{"method", "none"}, {"polarity", "dark"}},
                              Value{{"low", 0.1}, {"polarity", "dark"}}, Value{{"high", 0.1}, {"polarity", "dark"}}}) {
    EXPECT_EQ(test::refusal([&] { static_cast<void>(kept(params)); }),
              "threshold_index: parameter \"polarity\" is \"dark\", but without a method in effect there is no level "
              "whose side could be chosen; name one, such as otsu.");
  }
}

TEST(ThresholdIndex, RefusesLimitsInTheWrongOrder) {
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(kept({{"low", 0.5}, {"high", 0.25}}));
            }),
            "threshold_index: parameter \"low\" is 0.5, but it must not be above \"high\", which is 0.25.");
}

// (30 - 10) / (30 + 10) = 0.5 with the named band where the customary one gives 0.8.
TEST(ThresholdIndex, TakesTheBandThatIsNamedForARole) {
  const auto capture = test::capture("c", {{"MSP",
                                            {{"RED", test::image<std::uint16_t>({{10}})},
                                             {"NIR", test::image<std::uint16_t>({{90}})},
                                             {"NIR2", test::image<std::uint16_t>({{30}})}}}});
  const auto operation = get_mask_operation("threshold_index")();
  const auto mask =
      operation->apply({.image_stack = *capture, .params = {{"bands", {"N=MSP.NIR2"}}, {"low", 0.49}, {"high", 0.51}}});
  EXPECT_EQ(drawing(*mask).front(), "#");
  EXPECT_EQ(operation->note, "ndvi of MSP.NIR2, MSP.RED");
  EXPECT_EQ(operation->chosen_bands, (Value{{"ndvi", {"MSP.NIR2", "MSP.RED"}}}));
}

TEST(ThresholdIndex, RefusesABandForARoleThatItsIndexDoesNotUse) {
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(kept({{"bands", {"G=MSP.GRN"}}}));
            }),
            "threshold_index: parameter \"bands\" holds \"G=MSP.GRN\", but no chosen index uses the role G: ndvi uses "
            "N, R.");
}

TEST(ThresholdIndex, SaysWhichBandIsMissing) {
  EXPECT_THAT(
      test::refusal([] {
        static_cast<void>(kept({{"index", "gndvi"}}));
      }),
      testing::StartsWith("No measurement of this capture has a band for the role G (green) together with N: "));
}

// N / R of the pixels: 9, 1.5, 1, 0 / 0, 1 / 9.
TEST(ThresholdIndex, OfAnExpressionKeepsItsValues) {
  const Value ratio{{"index", "custom"}, {"expression", "N / R"}, {"low", 1.0}};
  EXPECT_EQ(kept(ratio), "###..");
  EXPECT_EQ(note_of("threshold_index", *plot(), {}, ratio), "custom of MSP.NIR, MSP.RED");
  EXPECT_EQ(kept({{"index", "custom"}, {"expression", "MSP.RED - NIR"}, {"low", 0.0}}), "..###");
  EXPECT_EQ(kept({{"index", "custom"}, {"expression", "N / R"}, {"bands", {"N=MSP.RED", "R=MSP.NIR"}}, {"low", 1.0}}),
            "..#.#");
}

TEST(ThresholdIndex, AnExpressionAndTheIndexCustomNeedEachOther) {
  const auto refused = [](const Value& params) { return test::refusal([&] { static_cast<void>(kept(params)); }); };
  EXPECT_EQ(refused({{"index", "custom"}}),
            "threshold_index: parameter \"index\" is \"custom\", so parameter \"expression\" has to say what is "
            "calculated, such as (N - R) / (N + R).");
  EXPECT_EQ(refused({{"expression", "N / R"}}),
            "threshold_index: parameter \"expression\" has a value, but parameter \"index\" is \"ndvi\"; choose "
            "\"custom\" to use the expression.");
  EXPECT_EQ(refused({{"index", "custom"}, {"expression", "N /"}}),
            "threshold_index: The expression \"N /\" ends too early at character 4: expected a number, a band or a "
            "parenthesis.");
  EXPECT_EQ(refused({{"index", "custom"}, {"expression", "N + 1"}}),
            "needs reflectance: WhiteLevel or a reference is not declared");
}

// Of G = 3 R the index is (3 R - R) / (3 R + R) = 0.5; in floating point some of the 85 are a little less, some a
// little more.
TEST(ThresholdIndex, GivenAnIndexThatIsALimitButForRounding_ThenEveryPixelIsKept) {
  cv::Mat red(1, 85, CV_8UC1);
  cv::Mat green(1, 85, CV_8UC1);
  for (int x = 0; x < 85; ++x) {
    red.at<std::uint8_t>(0, x) = static_cast<std::uint8_t>(x + 1);
    green.at<std::uint8_t>(0, x) = static_cast<std::uint8_t>(3 * (x + 1));
  }
  const auto capture = test::capture("c", {{"MSP", {{"RED", Image(red)}, {"GRN", Image(green)}}}});
  const auto count = [&](const char* limit, double value) {
    return applied("threshold_index", *capture, {}, {{"index", "ngrdi"}, {limit, value}}).count();
  };
  EXPECT_EQ(count("low", 0.5), 85);
  EXPECT_EQ(count("high", 0.5), 85);
  EXPECT_EQ(count("low", 0.50000001), 0);
  EXPECT_EQ(count("high", 0.49999999), 0);
}

// Of a grey picture G / (R + G + B) is 1/3 everywhere, with two values one rounding apart.
TEST(ThresholdIndex, GivenAnIndexThatDiffersByRoundingAlone_ThenThereIsNoContrast) {
  cv::Mat grey(15, 17, CV_8UC3);
  for (int i = 0; i < 255; ++i) grey.at<cv::Vec3b>(i / 17, i % 17) = cv::Vec3b::all(static_cast<std::uint8_t>(i + 1));
  const auto capture = test::capture("c", {{"CLR", {{"RGB", Image(grey)}}}});
  for (const char* method : {"otsu", "li", "mean"}) {
    const Value params{{"index", "gcc"}, {"method", method}};
    EXPECT_EQ(applied("threshold_index", *capture, {}, params).count(), 0) << method;
    EXPECT_THAT(note_of("threshold_index", *capture, {}, params),
                testing::MatchesRegex("no_contrast: gcc of .* has the same value everywhere, so the mask is empty"));
  }
}

}  // namespace
}  // namespace orvexa::model
