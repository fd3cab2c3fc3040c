// band_statistics, histogram, color_statistics, index_statistics and psii: operations on the pixels' values.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "orvexa/model/pictures/heat_map.h"
#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

double number(const OperationResult& result, const std::string& name) {
  return result.metrics.at(name).get<double>();
}
double number(const RegionResult& result, const std::string& name) {
  return result.metrics.at(name).get<double>();
}

std::shared_ptr<CaptureSet> grey(const Image& image) {
  return test::capture("c", {{"GRY", {{"GRY", image}}}});
}

Image rgb(const std::vector<std::vector<cv::Vec3b>>& rows) {
  cv::Mat pixels(static_cast<int>(rows.size()), static_cast<int>(rows.front().size()), CV_8UC3);
  for (int y = 0; y < pixels.rows; ++y) {
    for (int x = 0; x < pixels.cols; ++x) {
      pixels.at<cv::Vec3b>(y, x) = rows[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)];
    }
  }
  return Image(std::move(pixels));
}

// ---- band_statistics ----

// The digits of pi as in the test of the statistics themselves, where numpy and scipy gave the values.
const Image digits = test::image<std::uint8_t>({{3, 1, 4, 1, 5, 9, 2, 6, 5, 3, 5, 8, 9, 7, 9, 3, 2, 3, 8, 4, 6}});

TEST(BandStatistics, DescribeEveryPlaneInCounts) {
  const auto result = test::measured("band_statistics", *grey(digits));
  EXPECT_EQ(result.metrics.at("GRY.GRY.n"), 21);
  EXPECT_EQ(result.metrics.at("GRY.GRY.n_invalid"), 0);
  EXPECT_NEAR(number(result, "GRY.GRY.mean"), 4.904761904761905, 1e-14);
  EXPECT_NEAR(number(result, "GRY.GRY.sd"), 2.5802318445988703, 1e-14);
  EXPECT_NEAR(number(result, "GRY.GRY.cv"), 2.5802318445988703 / 4.904761904761905, 1e-14);
  EXPECT_EQ(number(result, "GRY.GRY.median"), 5);
  EXPECT_EQ(number(result, "GRY.GRY.mad"), 2);
  EXPECT_EQ(number(result, "GRY.GRY.p5"), 1);
  EXPECT_EQ(number(result, "GRY.GRY.p95"), 9);
  EXPECT_NEAR(number(result, "GRY.GRY.skew"), 0.22166518924228013, 1e-13);
  EXPECT_NEAR(number(result, "GRY.GRY.kurtosis"), -1.1619462242647893, 1e-13);
  EXPECT_EQ(number(result, "GRY.GRY.sum"), 103);
  EXPECT_EQ(result.units.at("GRY.GRY.mean"), "counts");
  EXPECT_EQ(result.units.at("GRY.GRY.skew"), "");
  EXPECT_EQ(result.units.at("GRY.GRY.n"), "px");
  EXPECT_EQ(result.metrics.size(), 16u);
  EXPECT_EQ(result.units.size(), 16u);
}

TEST(BandStatistics, FractionsOfWhiteAreCountsDividedByTheWhiteLevel) {
  const auto capture = grey(digits);
  capture->measurements.at("GRY")->declared_white_level = 10;
  const auto result = test::measured("band_statistics", *capture, {}, {{"unit", "fraction"}});
  EXPECT_NEAR(number(result, "GRY.GRY.mean"), 0.4904761904761905, 1e-15);
  EXPECT_NEAR(number(result, "GRY.GRY.mad"), 0.2, 1e-15);
  EXPECT_NEAR(number(result, "GRY.GRY.skew"), 0.22166518924228013, 1e-13);
  EXPECT_EQ(result.units.at("GRY.GRY.sd"), "fraction of white");
}

TEST(BandStatistics, OnlyTheChosenPlanesAreLookedAtAndEachOnce) {
  const auto capture = test::random_capture(1, 5, 6);
  const auto all = test::measured("band_statistics", *capture);
  EXPECT_EQ(all.metrics.size(), 8u * 16u);
  EXPECT_TRUE(all.metrics.contains("CLR.RGB.G.mean"));
  EXPECT_FALSE(all.metrics.contains("CLR.RGB.grey.mean"));
  const auto two = test::measured("band_statistics", *capture, {}, {{"bands", {"MSP.NIR", "CLR.RGB", "NIR"}}});
  EXPECT_EQ(two.metrics.size(), 2u * 16u);
  EXPECT_TRUE(two.metrics.contains("CLR.RGB.grey.mean"));
  EXPECT_EQ(two.chosen_bands.at("bands"), Value({"MSP.NIR", "CLR.RGB.grey"}));
}

TEST(BandStatistics, GivenOneBandOfTwoThatIsMissing_ThenTheOtherIsMeasuredAndItsMetricsHaveTheReason) {
  const auto result = test::measured("band_statistics", *grey(digits), test::mask_of_regions({"1.3.................."}),
                                     {{"bands", {"MSP.NIR", "GRY.GRY"}}});
  const std::string reason = "There is no band \"MSP.NIR\" in this capture; it has GRY.GRY.";
  EXPECT_EQ(result.metrics.size(), 16u);
  EXPECT_TRUE(result.metrics.contains("GRY.GRY.mean"));
  EXPECT_EQ(result.reasons.size(), 16u);
  EXPECT_EQ(result.reasons.at("MSP.NIR.n"), reason);
  EXPECT_EQ(result.units.at("MSP.NIR.mean"), "counts");
  EXPECT_EQ(result.regions.at("ROI_1").reasons.at("MSP.NIR.sum"), reason);
  EXPECT_TRUE(result.regions.at("ROI_1").metrics.contains("GRY.GRY.sum"));
  EXPECT_EQ(result.chosen_bands.at("bands"), Value::array({"GRY.GRY"}));
}

TEST(BandStatistics, GivenThatAllBandsAreMissing_ThenTheErrorNamesEachOfThem) {
  EXPECT_EQ(
      test::refusal([] {
        static_cast<void>(test::measured("band_statistics", *grey(digits), {}, {{"bands", {"MSP.NIR", "MSP.RED"}}}));
      }),
      "There is no band \"MSP.NIR\" in this capture; it has GRY.GRY. "
      "There is no band \"MSP.RED\" in this capture; it has GRY.GRY.");
}

TEST(BandStatistics, AMissingBandIsAnErrorThatNamesIt) {
  EXPECT_THAT(test::refusal([] {
                static_cast<void>(test::measured("band_statistics", *grey(digits), {}, {{"bands", {"MSP.NIR"}}}));
              }),
              HasSubstr("MSP.NIR"));
}

TEST(BandStatistics, EqualValuesHaveNoSkewAndZeroesNoVariationAndSaySo) {
  const auto result = test::measured("band_statistics", *grey(test::flat_image<std::uint8_t>(3, 3, 0)));
  EXPECT_EQ(number(result, "GRY.GRY.sd"), 0);
  EXPECT_EQ(result.reasons.at("GRY.GRY.skew"), "All values are equal.");
  EXPECT_EQ(result.reasons.at("GRY.GRY.kurtosis"), "All values are equal.");
  EXPECT_EQ(result.reasons.at("GRY.GRY.cv"), "The mean is 0.");
  EXPECT_FALSE(result.metrics.contains("GRY.GRY.skew"));
}

TEST(BandStatistics, AnEmptyRegionHasReasonsAndNoZeroes) {
  const auto result =
      test::measured("band_statistics", *grey(digits), test::mask_of_regions({"1.3.................."}));
  EXPECT_EQ(number(result.regions.at("ROI_1"), "GRY.GRY.mean"), 3);
  EXPECT_TRUE(result.regions.at("ROI_2").metrics.empty());
  EXPECT_EQ(result.regions.at("ROI_2").reasons.size(), 16u);
  EXPECT_EQ(result.regions.at("ROI_2").reasons.at("GRY.GRY.n"), "The region has no pixel.");
}

TEST(BandStatistics, ARegionOfInvalidPixelsSaysHowMany) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const auto result = test::measured("band_statistics", *grey(test::image<float>({{nan, nan}})));
  EXPECT_EQ(result.metrics.at("GRY.GRY.n"), 0);
  EXPECT_EQ(result.metrics.at("GRY.GRY.n_invalid"), 2);
  EXPECT_EQ(result.reasons.at("GRY.GRY.mean"), "No pixel has a valid value.");
}

// ---- histogram ----

// Bins of 0..255 in 4: [0, 63.75), [63.75, 127.5), [127.5, 191.25), [191.25, 255].
TEST(Histogram, HasEqualBinsFromZeroToWhiteWhateverTheDataAre) {
  const auto capture = grey(test::image<std::uint8_t>({{0, 63, 64, 127, 128, 191, 192, 255}}));
  const auto result = test::measured("histogram", *capture, {}, {{"bins", 4}});
  EXPECT_EQ(result.metrics.at("GRY.GRY.histogram.bins"), Value({2, 2, 2, 2}));
  EXPECT_EQ(result.metrics.at("GRY.GRY.histogram.underflow"), 0);
  EXPECT_EQ(result.metrics.at("GRY.GRY.histogram.overflow"), 0);
  const ResultTable& table = result.tables.at("GRY.GRY");
  EXPECT_TRUE(result.images.at("GRY.GRY").picture.is_color()) << "the plot";
  EXPECT_THAT(table.columns, ElementsAre("from", "to", "count", "fraction"));
  EXPECT_EQ(table.rows[1], (std::vector<Value>{63.75, 127.5, 2, 0.25}));
}

TEST(Histogram, WithTheDefaultEveryEightBitCountHasItsBin) {
  std::vector<std::uint8_t> all(256);
  for (std::size_t k = 0; k < all.size(); ++k) all[k] = static_cast<std::uint8_t>(k);
  const auto result = test::measured("histogram", *grey(test::image<std::uint8_t>({all})));
  EXPECT_EQ(result.metrics.at("GRY.GRY.histogram.bins"), Value(std::vector<int>(256, 1)));
}

TEST(Histogram, WhatLiesOutsideTheRangeOrIsNoNumberIsCountedApart) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const auto capture = grey(test::image<float>({{-0.1F, 0.0F, 0.49F, 0.5F, 1.0F, 1.1F, nan}}));
  const auto result = test::measured("histogram", *capture, {}, {{"bins", 2}});
  EXPECT_EQ(result.metrics.at("GRY.GRY.histogram.bins"), Value({2, 2}));
  EXPECT_EQ(result.metrics.at("GRY.GRY.histogram.underflow"), 1);
  EXPECT_EQ(result.metrics.at("GRY.GRY.histogram.overflow"), 1);
  EXPECT_EQ(result.metrics.at("GRY.GRY.histogram.n"), 6);
  EXPECT_EQ(result.metrics.at("GRY.GRY.histogram.n_invalid"), 1);
}

TEST(Histogram, ADeclaredWhiteLevelIsItsEnd) {
  const auto capture = grey(test::image<std::uint16_t>({{0, 2047, 2048, 4095, 4096}}));
  capture->measurements.at("GRY")->declared_white_level = 4095;
  const auto result = test::measured("histogram", *capture, {}, {{"bins", 2}});
  EXPECT_EQ(result.metrics.at("GRY.GRY.histogram.bins"), Value({2, 2}));
  EXPECT_EQ(result.metrics.at("GRY.GRY.histogram.overflow"), 1);
}

TEST(Histogram, GivenOneBandOfTwoThatIsMissing_ThenTheOtherIsCountedAndItsMetricsHaveTheReason) {
  const auto result = test::measured("histogram", *grey(digits), {}, {{"bands", {"GRY.GRY", "MSP.NIR"}}, {"bins", 2}});
  EXPECT_EQ(result.metrics.at("GRY.GRY.histogram.n"), 21);
  EXPECT_EQ(result.tables.size(), 1u);
  for (const char* name : {"n", "n_invalid", "underflow", "overflow", "bins"}) {
    const std::string metric = std::string("MSP.NIR.histogram.") + name;
    EXPECT_EQ(result.reasons.at(metric), "There is no band \"MSP.NIR\" in this capture; it has GRY.GRY.") << metric;
    EXPECT_EQ(result.regions.at("ROI_1").reasons.at(metric), result.reasons.at(metric));
    EXPECT_EQ(result.units.at(metric), "px");
  }
}

TEST(Histogram, EveryRegionHasItsOwnAndTheyAddUp) {
  const auto capture = grey(test::random_image<std::uint16_t>(1, 30, 40, 1, 65535.9));
  const Mask mask = test::mask_of_grid(test::random_mask(2, 30, 40, 0.6), 3, 3);
  const auto result = test::measured("histogram", *capture, mask, {{"bins", 16}});
  std::vector<int> sum(16, 0);
  for (const auto& [name, region] : result.regions) {
    const Value& bins = region.metrics.at("GRY.GRY.histogram.bins");
    for (std::size_t k = 0; k < 16; ++k) sum[k] += bins.at(k).get<int>();
  }
  EXPECT_EQ(result.metrics.at("GRY.GRY.histogram.bins"), Value(sum));
}

TEST(Histogram, MoreNumbersThanAnybodyCanReadAreRefused) {
  const Mask mask = test::mask_of_grid(Mask::full({20, 20}), 20, 20);
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(test::measured("histogram", *grey(test::flat_image<std::uint8_t>(20, 20, 1)), mask,
                                               {{"bins", 65536}}));
            }),
            "histogram: 400 regions with 65,536 bins each are more than the 16,777,216 numbers a band may have; choose "
            "fewer bins, or only the whole mask with each_region: false.");
  EXPECT_EQ(test::measured("histogram", *grey(test::flat_image<std::uint8_t>(20, 20, 1)), mask,
                           {{"bins", 65536}, {"each_region", false}})
                .metrics.at("GRY.GRY.histogram.n"),
            400);
}

// ---- color_statistics ----

// python3-skimage rgb2lab and rgb2hsv over these six pixels, numpy mean and std, and the mean of exp(i hue) over the
// five whose saturation is 0.02 or more (the grey one has no hue).
TEST(ColorStatistics, AgreeWithAnIndependentLibrary) {
  const Image image =
      rgb({{{90, 160, 60}, {200, 150, 20}, {12, 34, 56}}, {{200, 30, 40}, {128, 128, 128}, {210, 20, 90}}});
  const auto result = test::measured("color_statistics", *test::capture("c", {{"CLR", {{"RGB", image}}}}));
  EXPECT_NEAR(number(result, "CLR.RGB.red.mean"), 0.54901961, 1e-8);
  EXPECT_NEAR(number(result, "CLR.RGB.green.sd"), 0.23489072, 1e-8);
  EXPECT_NEAR(number(result, "CLR.RGB.blue.mean"), 0.25751634, 1e-8);
  EXPECT_NEAR(number(result, "CLR.RGB.saturation.mean"), 0.67757937, 1e-8);
  EXPECT_NEAR(number(result, "CLR.RGB.saturation.sd"), 0.31738076, 1e-8);
  EXPECT_NEAR(number(result, "CLR.RGB.value.mean"), 0.62352941, 1e-8);
  EXPECT_NEAR(number(result, "CLR.RGB.value.sd"), 0.21199455, 1e-8);
  EXPECT_NEAR(number(result, "CLR.RGB.hue.mean"), 24.721107420588556, 1e-9);
  EXPECT_NEAR(number(result, "CLR.RGB.hue.resultant_length"), 0.3474490423076351, 1e-12);
  EXPECT_EQ(number(result, "CLR.RGB.hue.n"), 5);
  EXPECT_EQ(number(result, "CLR.RGB.hue.n_invalid"), 1);
  EXPECT_NEAR(number(result, "CLR.RGB.lab_l.mean"), 46.6246549, 0.01);
  EXPECT_NEAR(number(result, "CLR.RGB.lab_a.mean"), 16.85819034, 0.01);
  EXPECT_NEAR(number(result, "CLR.RGB.lab_b.mean"), 24.40676237, 0.01);
  EXPECT_NEAR(number(result, "CLR.RGB.lab_a.sd"), 38.58186899, 0.01);
  EXPECT_EQ(number(result, "CLR.RGB.color.n"), 6);
  EXPECT_EQ(result.metrics.size(), result.units.size());
}

// Hues 350, 10, 355, 5: their mean direction is 0, not 180; resultant length (2 cos 10 + 2 cos 5) / 4 = 0.990501.
// With R = 240, least = 120: hue = 60 (G - B) / 120, so G - B = -20, 20, -10, 10.
TEST(ColorStatistics, TheMeanHueGoesRoundTheCircle) {
  const Image image = rgb({{{240, 120, 140}, {240, 140, 120}, {240, 120, 130}, {240, 130, 120}}});
  const auto result = test::measured("color_statistics", *test::capture("c", {{"CLR", {{"RGB", image}}}}));
  const double mean = number(result, "CLR.RGB.hue.mean");
  EXPECT_NEAR(std::min(mean, 360 - mean), 0, 1e-9);
  EXPECT_NEAR(number(result, "CLR.RGB.hue.resultant_length"), 0.9905012255519767, 1e-12);
}

TEST(ColorStatistics, OppositeHuesHaveNoMeanAndGreysHaveNone) {
  const Image opposite = rgb({{{200, 0, 0}, {0, 200, 200}}});
  const auto cancelled = test::measured("color_statistics", *test::capture("c", {{"CLR", {{"RGB", opposite}}}}));
  EXPECT_EQ(cancelled.reasons.at("CLR.RGB.hue.mean"), "The hues cancel each other: they have no mean direction.");
  const Image greys = rgb({{{7, 7, 7}, {200, 200, 200}}});
  const auto none = test::measured("color_statistics", *test::capture("c", {{"CLR", {{"RGB", greys}}}}));
  EXPECT_EQ(none.reasons.at("CLR.RGB.hue.mean"), "No pixel is coloured enough to have a hue.");
  EXPECT_EQ(number(none, "CLR.RGB.hue.n"), 0);
}

TEST(ColorStatistics, AFlatColourHasExactlyNoSpread) {
  const auto capture =
      test::capture("c", {{"CLR", {{"RGB", Image(cv::Mat(700, 800, CV_8UC3, cv::Scalar(12, 99, 45)))}}}});
  const auto result = test::measured("color_statistics", *capture);
  for (const char* name : {"red", "green", "blue", "saturation", "value", "lab_l", "lab_a", "lab_b"}) {
    EXPECT_EQ(number(result, std::string("CLR.RGB.") + name + ".sd"), 0) << name;
  }
}

TEST(ColorStatistics, WithoutAColourImageTheBandsOfTheRolesAreTaken) {
  const auto one = [](std::uint16_t value) { return test::image<std::uint16_t>({{value}}); };
  const auto capture = test::capture("c", {{"MSP", {{"BLU", one(1000)}, {"GRN", one(2000)}, {"RED", one(4000)}}}});
  capture->measurements.at("MSP")->declared_white_level = 10000;
  const auto result = test::measured("color_statistics", *capture);
  EXPECT_NEAR(number(result, "MSP.RGB.red.mean"), 0.4, 1e-15);
  EXPECT_NEAR(number(result, "MSP.RGB.hue.mean"), 20, 1e-10);  // 60 (0.2 - 0.1) / (0.4 - 0.1)
  EXPECT_EQ(result.chosen_bands.at("image"), Value({"MSP.RED", "MSP.GRN", "MSP.BLU"}));
}

TEST(ColorStatistics, ASingleBandImageIsRefused) {
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(test::measured("color_statistics", *grey(digits), {}, {{"image", "GRY.GRY"}}));
            }),
            "color_statistics: GRY.GRY is a single-band image; colour needs an image with three channels.");
}

// ---- index_statistics ----

std::shared_ptr<CaptureSet> plot() {
  return test::capture("plot", {{"MSP",
                                 {{"RED", test::image<std::uint16_t>({{600, 3000, 0, 1000}})},
                                  {"NIR", test::image<std::uint16_t>({{4500, 1000, 0, 3000}})}}}});
}

// NDVI of the four pixels: 3900 / 5100 = 0.764706, -0.5, none, 0.5. Mean of the three (0.764706) / 3 = 0.254902; above
// the limit 0.4 lie two of three.
TEST(IndexStatistics, DescribeTheIndexOverTheValidPixels) {
  const auto result = test::measured("index_statistics", *plot());
  EXPECT_NEAR(number(result, "ndvi.mean"), 0.7647058823529411 / 3, 1e-15);
  EXPECT_EQ(result.metrics.at("ndvi.n"), 3);
  EXPECT_EQ(result.metrics.at("ndvi.n_invalid"), 1);
  EXPECT_NEAR(number(result, "ndvi.share_over_limit"), 2.0 / 3, 1e-15);
  EXPECT_NEAR(number(result, "ndvi.median"), 0.5, 1e-15);
  EXPECT_EQ(result.metrics.size(), 17u);
  EXPECT_EQ(result.chosen_bands.at("ndvi"), Value({"MSP.NIR", "MSP.RED"}));
  const ResultTable& bands = result.tables.at("bands");
  EXPECT_THAT(bands.columns, ElementsAre("index", "role", "band", "formula", "band_centre_nm", "role_from_nm",
                                         "role_to_nm", "source"));
  std::vector<Value> first = bands.rows[0];
  EXPECT_THAT(first.back().get<std::string>(), HasSubstr("NASA SP-351"));
  first.pop_back();
  EXPECT_EQ(first, (std::vector<Value>{"ndvi", "N", "MSP.NIR", "(N - R) / (N + R)", "", 760.0, 900.0}));
}

TEST(IndexStatistics, TheMapHasTheNumbersAndNothingOutsideTheMask) {
  const auto result = test::measured("index_statistics", *plot(), test::mask({"##.."}));
  const ResultImage& map = result.images.at("ndvi");
  ASSERT_TRUE(map.numbers.has_value());
  const auto numbers = map.numbers->row<float>(0);
  EXPECT_NEAR(numbers[0], 0.764706F, 1e-6);
  EXPECT_EQ(numbers[1], -0.5F);
  EXPECT_TRUE(std::isnan(numbers[2]));
  EXPECT_TRUE(std::isnan(numbers[3]));
  EXPECT_TRUE(map.picture.is_color());
}

TEST(IndexStatistics, AFixedRangeMakesMapsComparable) {
  const auto result =
      test::measured("index_statistics", *plot(), {}, {{"map_range", "fixed"}, {"map_low", -0.5}, {"map_high", 0.5}});
  const auto row = result.images.at("ndvi").picture.row<std::uint8_t>(0);
  const auto color_at = [&](std::size_t x) { return std::array{row[3 * x], row[3 * x + 1], row[3 * x + 2]}; };
  EXPECT_EQ(color_at(1), heat_colors().front());
  EXPECT_EQ(color_at(3), heat_colors().back());
}

TEST(IndexStatistics, GivenOneIndexOfTwoThatCannotBeComputed_ThenTheOtherIsMeasuredAndItsMetricsHaveTheReason) {
  const auto result = test::measured("index_statistics", *plot(), test::mask_of_regions({"12.."}),
                                     {{"indices", {"savi", "ndvi", "gndvi"}}});
  EXPECT_NEAR(number(result.regions.at("ROI_2"), "ndvi.mean"), -0.5, 1e-15);
  EXPECT_EQ(result.metrics.size(), 17u);
  EXPECT_EQ(result.reasons.at("savi.mean"), "needs reflectance: WhiteLevel or a reference is not declared");
  EXPECT_THAT(result.reasons.at("gndvi.n").get<std::string>(), HasSubstr("role G (green)"));
  for (const char* index : {"savi", "gndvi"}) {
    const std::string metric = std::string(index) + ".share_over_limit";
    EXPECT_EQ(result.reasons.at(metric), result.reasons.at(std::string(index) + ".mean"));
    EXPECT_EQ(result.regions.at("ROI_1").reasons.at(metric), result.reasons.at(metric));
    EXPECT_EQ(result.units.at(metric), result.units.at("ndvi.share_over_limit"));
    EXPECT_FALSE(result.images.contains(index));
  }
  EXPECT_TRUE(result.images.contains("ndvi"));
  EXPECT_EQ(result.tables.at("bands").rows.size(), 2u) << "N and R of ndvi";
}

TEST(IndexStatistics, GivenThatNoIndexCanBeComputed_ThenTheErrorNamesEachOfThem) {
  const auto refused = [](const Value& indices) {
    return test::refusal([&] {
      static_cast<void>(test::measured("index_statistics", *plot(), {}, {{"indices", indices}}));
    });
  };
  EXPECT_THAT(refused({"gndvi"}), testing::AllOf(testing::StartsWith("gndvi: "), HasSubstr("role G (green)")));
  EXPECT_THAT(refused({"savi", "gndvi"}),
              testing::StartsWith("savi: needs reflectance: WhiteLevel or a reference is not declared. gndvi: No "));
}

// With the named band (1800 - 600) / 2400 = 0.5 and (1800 - 900) / 2700 = 1 / 3.
TEST(IndexStatistics, ABandNamedForARoleServesEveryIndexThatUsesIt) {
  const auto one = [](std::uint16_t value) { return test::image<std::uint16_t>({{value}}); };
  const auto capture =
      test::capture("c", {{"MSP", {{"RED", one(600)}, {"GRN", one(900)}, {"NIR", one(4500)}, {"NIR2", one(1800)}}}});
  const auto result = test::measured("index_statistics", *capture, {},
                                     {{"indices", {"ndvi", "gndvi"}}, {"bands", {"N=MSP.NIR2", "R=MSP.RED"}}});
  EXPECT_NEAR(number(result, "ndvi.mean"), 0.5, 1e-15);
  EXPECT_NEAR(number(result, "gndvi.mean"), 1.0 / 3, 1e-15);
  EXPECT_EQ(result.chosen_bands.at("ndvi"), Value({"MSP.NIR2", "MSP.RED"}));
  EXPECT_EQ(result.chosen_bands.at("gndvi"), Value({"MSP.NIR2", "MSP.GRN"}));
  EXPECT_EQ(result.tables.at("bands").rows[0][2], "MSP.NIR2");
}

TEST(IndexStatistics, AnIndexOfReflectanceNeedsADeclaredWhiteLevel) {
  const Value params{{"indices", {"savi"}}};
  EXPECT_EQ(test::refusal([&] { static_cast<void>(test::measured("index_statistics", *plot(), {}, params)); }),
            "savi: needs reflectance: WhiteLevel or a reference is not declared");
  const auto capture = plot();
  capture->measurements.at("MSP")->declared_white_level = 10000;
  const auto result = test::measured("index_statistics", *capture, test::mask({"#..."}), params);
  EXPECT_NEAR(number(result, "savi.mean"), 0.579208, 5e-7);  // 1.5 * 0.39 / 1.01
}

TEST(IndexStatistics, ParametersThatContradictEachOtherAreRefused) {
  const auto refused = [](const Value& params) {
    return test::refusal([&] { static_cast<void>(test::measured("index_statistics", *plot(), {}, params)); });
  };
  EXPECT_EQ(refused({{"indices", Value::array()}}),
            "index_statistics: parameter \"indices\" is empty, but at least one index has to be named.");
  EXPECT_EQ(refused({{"map_range", "fixed"}, {"map_low", 0.5}, {"map_high", 0.5}}),
            "index_statistics: parameter \"map_low\" is 0.5, but it must be below \"map_high\", which is 0.5.");
  EXPECT_EQ(
      refused({{"map_low", -0.5}, {"map_high", 0.5}}),
      "index_statistics: parameter \"map_low\" is -0.5, but parameter \"map_range\" is \"data\"; choose \"fixed\" to "
      "use it.");
  EXPECT_THAT(refused({{"indices", {"ndvj"}}}), HasSubstr("ndvj"));
  EXPECT_EQ(refused({{"bands", {"B=MSP.BLU"}}}),
            "index_statistics: parameter \"bands\" holds \"B=MSP.BLU\", but no chosen index uses the role B: ndvi uses "
            "N, R.");
  EXPECT_EQ(refused({{"bands", {"N=MSP.NIX"}}}),
            "ndvi: There is no band \"MSP.NIX\" in this capture (did you mean \"MSP.NIR\"?); it has MSP.RED, MSP.NIR.");
  EXPECT_THAT(refused({{"indices", {"ndvi", "ndvi"}}}), HasSubstr("without repetitions"));
}

// ---- psii ----

Image level(double value) {
  return test::flat_image<float>(2, 2, static_cast<float>(value));
}

std::shared_ptr<CaptureSet> leaf(const std::vector<std::pair<std::string, Image>>& images) {
  return test::capture("leaf", {{"FLU", images}});
}

// F0 = 0.125, Fm = 0.625, Fs = 0.25, Fm' = 0.5, F0' = 0.1: Fv/Fm = 0.5 / 0.625 = 0.8; (0.5 - 0.25) / 0.5 = 0.5;
// (0.625 - 0.5) / 0.5 = 0.25; qP = 0.25 / 0.4 = 0.625; qL = 0.625 * 0.1 / 0.25 = 0.25.
TEST(Psii, GivesTheValuesOfTheFormulas) {
  const auto result = test::measured(
      "psii",
      *leaf(
          {{"F0", level(0.125)}, {"FM", level(0.625)}, {"FS", level(0.25)}, {"FMP", level(0.5)}, {"F0P", level(0.1)}}));
  EXPECT_NEAR(number(result, "fv_fm.mean"), 0.8, 1e-7);
  EXPECT_NEAR(number(result, "phi_psii.mean"), 0.5, 1e-7);
  EXPECT_NEAR(number(result, "npq.mean"), 0.25, 1e-7);
  EXPECT_NEAR(number(result, "qp.mean"), 0.625, 1e-7);
  EXPECT_NEAR(number(result, "ql.mean"), 0.25, 1e-7);
  EXPECT_EQ(result.metrics.at("fv_fm.n"), 4);
  EXPECT_NEAR(result.images.at("fv_fm").numbers->row<float>(1)[1], 0.8F, 1e-6);
  EXPECT_NEAR(result.images.at("npq").numbers->row<float>(0)[1], 0.25F, 1e-6);
  EXPECT_EQ(result.images.size(), 5u) << "a map with its colour bar for each";
}

TEST(Psii, WhatItsImagesDoNotGiveIsLeftOutWithTheReason) {
  const auto result = test::measured("psii", *leaf({{"F0", level(0.1)}, {"FM", level(0.5)}, {"FMP", level(0.4)}}));
  EXPECT_TRUE(result.metrics.contains("fv_fm.mean"));
  EXPECT_TRUE(result.metrics.contains("npq.mean"));
  EXPECT_EQ(result.reasons.at("phi_psii.mean"), "The measurement FLU has no image FS.");
  EXPECT_EQ(result.reasons.at("ql.n"), "The measurement FLU has no image FS.");
  EXPECT_EQ(result.regions.at("ROI_1").reasons.at("qp.sd"), "The measurement FLU has no image FS.");
  EXPECT_EQ(result.units.at("phi_psii.n"), "px");
}

TEST(Psii, WithoutF0OrFmThereIsAnError) {
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(test::measured("psii", *leaf({{"F0", level(0.1)}, {"FS", level(0.2)}})));
            }),
            "psii: the measurement FLU has no image FM; it has F0, FS.");
  EXPECT_EQ(test::refusal([] { static_cast<void>(test::measured("psii", *grey(digits))); }),
            "psii: the measurement FLU has no image F0; it has none.");
}

// White is 1 for float: Fm = 0.01 is below 0.02 and Fm = 0 has no quotient.
TEST(Psii, PixelsThatAreTooDarkAreInvalid) {
  const auto capture =
      leaf({{"F0", test::image<float>({{0.1F, 0.005F, 0.0F}})}, {"FM", test::image<float>({{0.5F, 0.01F, 0.0F}})}});
  const auto usual = test::measured("psii", *capture);
  EXPECT_EQ(usual.metrics.at("fv_fm.n"), 1);
  EXPECT_EQ(usual.metrics.at("fv_fm.n_invalid"), 2);
  const auto all = test::measured("psii", *capture, {}, {{"min_fm", 0}});
  EXPECT_EQ(all.metrics.at("fv_fm.n"), 2);
}

TEST(Psii, SaturatedPixelsAreInvalidWhenAskedFor) {
  const auto capture =
      leaf({{"F0", test::image<std::uint8_t>({{50, 60}})}, {"FM", test::image<std::uint8_t>({{200, 255}})}});
  EXPECT_EQ(test::measured("psii", *capture).metrics.at("fv_fm.n"), 2);
  const auto result = test::measured("psii", *capture, {}, {{"leave_out_saturated", true}});
  EXPECT_EQ(result.metrics.at("fv_fm.n"), 1);
  EXPECT_NEAR(number(result, "fv_fm.mean"), 0.75, 1e-12);
}

// 16 pixels, of which the upper 8 of FM are at the white level of the file; as reflectance they are 0.5 * 3995 / 3900 =
// 0.512. The others have Fv/Fm (2100 - 1100) / (2100 - 100) = 0.5 with the reference, which takes the dark level away,
// and (2100 - 1100) / 2100 without.
TEST(Psii, GivenAReference_ThenSaturatedPixelsAreStillThoseAtTheWhiteLevelOfTheFile) {
  cv::Mat fm(4, 4, CV_16UC1, cv::Scalar(2100));
  fm.rowRange(0, 2).setTo(4095);
  for (const bool has_reference : {false, true}) {
    SCOPED_TRACE(has_reference);
    const auto capture = leaf({{"F0", test::flat_image<std::uint16_t>(4, 4, 1100)}, {"FM", Image(fm)}});
    BaseMeasurement& flu = *capture->measurements.at("FLU");
    flu.declared_white_level = 4095;
    const auto panel = std::make_shared<const Reference>(
        Reference{.white = {.constants = {4000}}, .dark = {.constants = {100}}, .reflectance = 0.5});
    if (has_reference) {
      for (const char* image : {"F0", "FM"}) flu.references.insert_or_assign(image, panel);
    }
    EXPECT_EQ(test::measured("psii", *capture).metrics.at("fv_fm.n"), 16);
    const auto result = test::measured("psii", *capture, {}, {{"leave_out_saturated", true}});
    EXPECT_EQ(result.metrics.at("fv_fm.n"), 8);
    EXPECT_NEAR(number(result, "fv_fm.mean"), has_reference ? 0.5 : 1000.0 / 2100.0, 1e-7);
  }
}

}  // namespace
}  // namespace orvexa::model
