#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

using testing::ElementsAre;

std::shared_ptr<CaptureSet> two(const Image& a, const Image& b) {
  return test::capture("c", {{"MSP", {{"A", a}, {"B", b}}}});
}

double number(const Value& metrics, const std::string& name) {
  return metrics.at("correlation.MSP.A.MSP.B." + name).get<double>();
}

// Deviations (-1.5 -.5 .5 1.5) and (-.5 -1.5 1.5 .5): products 3, squares 5 and 5. The values are their own ranks.
TEST(BandCorrelation, IsCovarianceOverStandardDeviations) {
  const auto result = test::measured(
      "band_correlation", *two(test::image<std::uint8_t>({{1, 2, 3, 4}}), test::image<std::uint16_t>({{2, 1, 4, 3}})));
  EXPECT_NEAR(number(result.metrics, "pearson"), 0.6, 1e-15);
  EXPECT_NEAR(number(result.metrics, "spearman"), 0.6, 1e-15);
  EXPECT_EQ(result.metrics.at("correlation.MSP.A.MSP.B.n"), 4);
  EXPECT_EQ(result.metrics.size(), 4u);
}

// Ranks 1.5 1.5 3 and 1 2.5 2.5: products .5 - .25 + .5, squares 1.5 and 1.5.
TEST(BandCorrelation, EqualValuesShareTheirRank) {
  const auto result = test::measured(
      "band_correlation", *two(test::image<std::uint8_t>({{1, 1, 2}}), test::image<float>({{-1, 0.5F, 0.5F}})));
  EXPECT_NEAR(number(result.metrics, "spearman"), 0.5, 1e-15);
}

TEST(BandCorrelation, RanksSeeOnlyTheOrder) {
  const auto result = test::measured(
      "band_correlation", *two(test::image<float>({{-3, -1, 0, 2, 5}}), test::image<float>({{-27, -1, 0, 8, 125}})));
  EXPECT_NEAR(number(result.metrics, "spearman"), 1, 1e-15);
  EXPECT_LT(number(result.metrics, "pearson"), 0.95);
}

// More pixels than are sorted by comparison, values of both signs and many equal ones.
TEST(BandCorrelation, RanksOfManyPixelsAreRanks) {
  const Image noise = test::random_image<float>(1, 300, 300, 1, 1.0);
  cv::Mat a = noise.read_only() - 0.5F;
  cv::Mat(a.rowRange(0, 100)).setTo(-0.25F);
  const auto same = test::measured("band_correlation", *two(Image(a.clone()), Image(cv::Mat(a * 4))));
  EXPECT_NEAR(number(same.metrics, "spearman"), 1, 1e-14);
  const auto opposite = test::measured("band_correlation", *two(Image(a.clone()), Image(cv::Mat(a * -2))));
  EXPECT_NEAR(number(opposite.metrics, "spearman"), -1, 1e-14);
}

TEST(BandCorrelation, APixelWithoutANumberIsLeftOutOfThePairsItIsIn) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const auto capture = test::capture("c", {{"MSP",
                                            {{"A", test::image<float>({{1, 2, 3, 4, nan}})},
                                             {"B", test::image<float>({{2, 1, 4, 3, 9}})},
                                             {"C", test::image<float>({{nan, 1, 2, 3, 4}})}}}});
  const auto result = test::measured("band_correlation", *capture);
  EXPECT_EQ(result.metrics.at("correlation.MSP.A.MSP.B.n"), 4);
  EXPECT_EQ(result.metrics.at("correlation.MSP.A.MSP.B.n_invalid"), 1);
  EXPECT_NEAR(number(result.metrics, "pearson"), 0.6, 1e-15);
  EXPECT_EQ(result.metrics.at("correlation.MSP.A.MSP.C.n"), 3);
  EXPECT_EQ(result.metrics.size(), 12u);
}

TEST(BandCorrelation, WhatIsNotDefinedSaysWhy) {
  const auto capture = two(test::image<std::uint8_t>({{1, 2, 3, 5}}), test::image<std::uint8_t>({{7, 7, 7, 8}}));
  const auto result = test::measured("band_correlation", *capture, test::mask_of_regions({"1112"}));
  const auto reason = [&](const char* region) {
    return result.regions.at(region).reasons.at("correlation.MSP.A.MSP.B.spearman");
  };
  EXPECT_EQ(reason("ROI_1"), "All values of MSP.B are equal.");
  EXPECT_EQ(reason("ROI_2"), "Fewer than two pixels have a value in both.");
  EXPECT_TRUE(result.metrics.contains("correlation.MSP.A.MSP.B.pearson"));
}

TEST(BandCorrelation, OneImageAloneIsRefused) {
  const auto capture = test::capture("c", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(2, 2, 1)}}}});
  EXPECT_EQ(test::refusal([&] { static_cast<void>(test::measured("band_correlation", *capture)); }),
            "band_correlation: two planes are needed, and there is only GRY.GRY.");
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(test::measured("band_correlation", *capture, {}, {{"bands", {"GRY", "NIR"}}}));
            }),
            "band_correlation: two planes are needed. There is no band \"NIR\" in this capture; it has GRY.GRY.");
}

// ---- Profiles ----

std::vector<Value> column(const OperationResult& result, std::size_t place) {
  std::vector<Value> values;
  for (const auto& row : result.tables.at("profile").rows) values.push_back(row.at(place));
  return values;
}

const Image ramp = test::image<std::uint8_t>({{10, 20, 30, 40, 50}, {11, 21, 31, 41, 51}, {12, 22, 32, 42, 52}});

// The middle of the first pixel of five is at 0.1, that of the last at 0.9; of three rows the middle one is at 0.5.
TEST(Profile, AlongALineHasASampleForEachPixel) {
  const auto result = test::measured("band_correlation", *two(ramp, ramp), {},
                                     {{"profile", "line"}, {"points", {{0.1, 0.5}, {0.9, 0.5}}}});
  EXPECT_THAT(result.tables.at("profile").columns, ElementsAre("distance_px", "MSP.A", "MSP.B"));
  EXPECT_THAT(column(result, 0), ElementsAre(0.0, 1.0, 2.0, 3.0, 4.0));
  EXPECT_THAT(column(result, 1), ElementsAre(11.0, 21.0, 31.0, 41.0, 51.0));
  EXPECT_TRUE(result.images.at("profile").picture.is_color());
}

TEST(Profile, AlongALineIsInterpolatedAndTheMeanAcrossItsWidth) {
  const auto result =
      test::measured("band_correlation", *two(ramp, ramp), {},
                     {{"profile", "line"}, {"points", {{0.9, 0.5}, {0.1, 0.5}}}, {"samples", 3}, {"line_width", 3}});
  EXPECT_THAT(column(result, 1), ElementsAre(51.0, 31.0, 11.0));
  const auto between = test::measured("band_correlation", *two(ramp, ramp), {},
                                      {{"profile", "line"}, {"points", {{0.2, 1.0 / 3}, {0.4, 1.0 / 3}}}});
  // Half-way between columns and between the rows 0 and 1: 15.5 and 25.5.
  EXPECT_NEAR(column(between, 1)[0].get<double>(), 15.5, 1e-12);
  EXPECT_NEAR(column(between, 1)[1].get<double>(), 25.5, 1e-12);
}

TEST(Profile, ASampleThatNeedsAPixelOutsideTheMaskIsEmpty) {
  const auto result = test::measured("band_correlation", *two(ramp, ramp), test::mask({"####.", "###..", "#####"}),
                                     {{"profile", "line"}, {"points", {{0.1, 0.5}, {1.1, 0.5}}}});
  EXPECT_THAT(column(result, 1), ElementsAre(11.0, 21.0, 31.0, "", "", ""));
}

// (10 - 5) / (55 - 5) = 0.1 ... (50 - 5) / 50 = 0.9 of B as reflectance; the second pixel has white = dark.
TEST(Profile, GivenAReference_ThenTheTableHasTheCountsOfTheFile) {
  const Image row = test::image<std::uint8_t>({{10, 20, 30, 40, 50}});
  const auto capture = two(row, row);
  capture->measurements.at("MSP")->references.insert_or_assign(
      "B", std::make_shared<const Reference>(Reference{
               .white = {.picture = test::image<std::uint8_t>({{55, 5, 55, 55, 55}})}, .dark = {.constants = {5}}}));
  for (const Value& params : {Value{{"profile", "line"}, {"points", {{0.1, 0.5}, {0.9, 0.5}}}},
                              Value{{"profile", "radial"}, {"points", {{0.1, 0.5}}}, {"samples", 5}}}) {
    SCOPED_TRACE(params.dump());
    const auto result = test::measured("band_correlation", *capture, {}, params);
    const std::size_t first = result.tables.at("profile").columns.size() - 2;
    EXPECT_THAT(column(result, first), ElementsAre(10.0, 20.0, 30.0, 40.0, 50.0));
    EXPECT_THAT(column(result, first + 1), ElementsAre(10.0, 20.0, 30.0, 40.0, 50.0));
    EXPECT_EQ(result.metrics.at("correlation.MSP.A.MSP.B.n"), 4) << "coefficients are those of reflectance";
  }
}

// Around the middle pixel: itself, then its eight neighbours, of which the far ones are 1.41 away.
TEST(Profile, AroundTheCentroidIsTheMeanOfRings) {
  const Image image = test::image<std::uint8_t>({{1, 2, 3}, {4, 90, 6}, {7, 8, 9}});
  const auto result = test::measured("band_correlation", *two(image, image), {}, {{"profile", "radial"}});
  EXPECT_THAT(column(result, 0), ElementsAre(0.5, 1.5));
  EXPECT_THAT(column(result, 1), ElementsAre(1, 8));
  EXPECT_THAT(column(result, 2), ElementsAre(90.0, 5.0));
  // About the first pixel the farthest is 2.83 away: two rings of 1.41 hold 1 + 2 and the other 6 (1.414... belongs to
  // the second).
  const auto corner = test::measured("band_correlation", *two(image, image), {},
                                     {{"profile", "radial"}, {"points", {{1.0 / 6, 1.0 / 6}}}, {"samples", 2}});
  EXPECT_THAT(column(corner, 1), ElementsAre(3, 6));
}

TEST(Profile, ParametersThatDoNotGoTogetherAreRefused) {
  const auto refused = [](const Value& params) {
    return test::refusal([&] { static_cast<void>(test::measured("band_correlation", *two(ramp, ramp), {}, params)); });
  };
  EXPECT_EQ(refused({{"profile", "line"}, {"points", Value::array({{0.1, 0.5}})}}),
            "band_correlation: parameter \"points\" has 1 points, but a line profile has two, its ends.");
  EXPECT_THAT(refused({{"points", Value::array({{0.1, 0.5}})}}), testing::HasSubstr("choose line or radial"));
  EXPECT_THAT(refused({{"samples", 3}}), testing::HasSubstr("no profile is chosen"));
  EXPECT_THAT(refused({{"profile", "radial"}, {"line_width", 3}}), testing::HasSubstr("only a line profile"));
}

}  // namespace
}  // namespace orvexa::model
