#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>

#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

OperationResult quality(const Image& image, const std::optional<Mask>& mask = {}) {
  return test::measured("image_quality", *test::capture("c", {{"GRY", {{"GRY", image}}}}), mask);
}

double number(const Value& metrics, const std::string& name) {
  return metrics.at("GRY.GRY.quality." + name).get<double>();
}

// Mean 2, standard deviation 1: 2 / 1, 20 log10 2; two values equally often are one bit.
TEST(ImageQuality, NoiseAndEntropyAreThoseOfTheDefinitions) {
  const auto result = quality(test::image<std::uint8_t>({{1, 3, 3, 1}}));
  EXPECT_EQ(number(result.metrics, "snr"), 2);
  EXPECT_NEAR(number(result.metrics, "snr_db"), 6.020599913279624, 1e-14);
  EXPECT_EQ(number(result.metrics, "entropy"), 1);
  EXPECT_EQ(result.units.at("GRY.GRY.quality.entropy"), "bit");
}

TEST(ImageQuality, SaturatedIsTheWhiteLevelAndMoreAndZeroIsZero) {
  const auto capture = test::capture("c", {{"GRY", {{"GRY", test::image<std::uint16_t>({{0, 4095, 5000, 4094, 0}})}}}});
  capture->measurements.at("GRY")->declared_white_level = 4095;
  const auto result = test::measured("image_quality", *capture);
  EXPECT_EQ(number(result.metrics, "saturated_share"), 0.4);
  EXPECT_EQ(number(result.metrics, "zero_share"), 0.4);
  const auto eight = quality(test::image<std::uint8_t>({{255, 254}}));
  EXPECT_EQ(number(eight.metrics, "saturated_share"), 0.5);
}

// Half of the pixels at white and half at the reference's dark level, in 20 rows: mean (4095 + 100) / 2 = 2097.5,
// standard deviation (4095 - 100) / 2 = 1997.5. As reflectance none would be white, 0.5 * 3995 / 3900 = 0.512, and half
// of them 0. Of the 18 x 18 inner pixels 18 have the Laplacian -3995, 18 have 3995 and the others 0.
TEST(ImageQuality, GivenAReference_ThenTheCountsOfTheFileAreJudged) {
  cv::Mat pixels(20, 20, CV_16UC1, cv::Scalar(100));
  pixels.rowRange(0, 10).setTo(4095);
  for (const bool has_reference : {false, true}) {
    SCOPED_TRACE(has_reference);
    const auto capture = test::capture("c", {{"GRY", {{"GRY", Image(pixels)}}}});
    capture->measurements.at("GRY")->declared_white_level = 4095;
    if (has_reference) {
      capture->measurements.at("GRY")->references.insert_or_assign(
          "GRY", std::make_shared<const Reference>(
                     Reference{.white = {.constants = {4000}}, .dark = {.constants = {100}}, .reflectance = 0.5}));
    }
    const auto result = test::measured("image_quality", *capture);
    EXPECT_EQ(number(result.metrics, "saturated_share"), 0.5);
    EXPECT_EQ(number(result.metrics, "zero_share"), 0);
    EXPECT_NEAR(number(result.metrics, "snr"), 2097.5 / 1997.5, 1e-14);
    EXPECT_EQ(number(result.metrics, "entropy"), 1);
    EXPECT_NEAR(number(result.metrics, "laplacian_variance"), 3995.0 * 3995.0 / 9 / (4095.0 * 4095.0), 1e-14);
  }
}

TEST(ImageQuality, GivenAPixelWithoutReflectance_ThenItsCountIsLookedAtAllTheSame) {
  const auto capture = test::capture("c", {{"GRY", {{"GRY", test::image<std::uint8_t>({{255, 7}})}}}});
  // White is not above dark in the second pixel.
  capture->measurements.at("GRY")->references.insert_or_assign(
      "GRY", std::make_shared<const Reference>(
                 Reference{.white = {.picture = test::image<std::uint8_t>({{200, 0}})}, .dark = {.constants = {0}}}));
  const auto result = test::measured("image_quality", *capture);
  EXPECT_EQ(result.metrics.at("GRY.GRY.quality.n"), 2);
  EXPECT_EQ(result.metrics.at("GRY.GRY.quality.n_invalid"), 0);
  EXPECT_EQ(number(result.metrics, "saturated_share"), 0.5);
}

TEST(ImageQuality, OfAFloatImageCountsWhatLiesBesidesTheRangeAndLeavesOutWhatIsNoNumber) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const auto result = quality(test::image<float>({{-0.5F, 0, 0.25F, 1, 2, nan}}));
  EXPECT_EQ(result.metrics.at("GRY.GRY.quality.n"), 5);
  EXPECT_EQ(result.metrics.at("GRY.GRY.quality.n_invalid"), 1);
  EXPECT_EQ(number(result.metrics, "saturated_share"), 0.4);
  EXPECT_EQ(number(result.metrics, "zero_share"), 0.4);
  EXPECT_NEAR(number(result.metrics, "entropy"), 2 * 0.4 * std::log2(2.5) + 0.2 * std::log2(5), 1e-14);
}

// The inner pixels are -4 * 10 and +10: mean -15, variance 25^2.
TEST(ImageQuality, TheLaplacianLooksAtPixelsThatHaveNeighboursOnAllSides) {
  const auto result = quality(test::image<std::uint8_t>({{0, 0, 0, 0}, {0, 10, 0, 0}, {0, 0, 0, 0}}));
  EXPECT_EQ(result.metrics.at("GRY.GRY.quality.sharpness_n"), 2);
  EXPECT_NEAR(number(result.metrics, "laplacian_variance"), 625.0 / (255 * 255), 1e-15);
}

TEST(ImageQuality, BlurringRaisesTheBlurEffectAndLowersTheVarianceOfTheLaplacian) {
  const Image sharp = test::random_image<std::uint8_t>(1, 60, 80, 1, 255.9);
  double blur = -1;
  double variance = 1e9;
  for (const double sigma : {0.01, 1.0, 2.0, 4.0}) {
    cv::Mat pixels;
    cv::GaussianBlur(sharp.read_only(), pixels, {}, sigma);
    const auto result = quality(Image(pixels));
    EXPECT_GT(number(result.metrics, "blur_effect"), blur) << sigma;
    EXPECT_LT(number(result.metrics, "laplacian_variance"), variance) << sigma;
    blur = number(result.metrics, "blur_effect");
    variance = number(result.metrics, "laplacian_variance");
  }
  EXPECT_LT(blur, 1);
}

TEST(ImageQuality, WhatAFlatPictureLacksSaysWhy) {
  const auto result = quality(test::flat_image<std::uint8_t>(5, 5, 9));
  EXPECT_EQ(number(result.metrics, "entropy"), 0);
  EXPECT_EQ(number(result.metrics, "laplacian_variance"), 0);
  EXPECT_EQ(result.reasons.at("GRY.GRY.quality.snr"), "All values are equal.");
  EXPECT_EQ(result.reasons.at("GRY.GRY.quality.blur_effect"),
            "There is no difference between neighbours in some direction.");
  const auto thin = quality(test::flat_image<std::uint8_t>(2, 9, 9));
  EXPECT_EQ(thin.reasons.at("GRY.GRY.quality.laplacian_variance"), "No pixel has valid neighbours on all sides.");
}

// A NaN takes away its own neighbours and the 11 pixels of the blur, and no more.
TEST(ImageQuality, OneNumberThatIsNoneDoesNotSpread) {
  cv::Mat pixels = test::random_image<float>(2, 40, 50, 1, 1.0).read_only().clone();
  pixels.at<float>(20, 25) = std::numeric_limits<float>::quiet_NaN();
  const auto result = quality(Image(pixels));
  // Without a value: along rows the 11 + 2 columns of the 3 rows of Sobel, along columns likewise; the square of both
  // is counted once: 2 * 3 * 13 - 9.
  EXPECT_EQ(result.metrics.at("GRY.GRY.quality.sharpness_n"), 38 * 48 - (2 * 3 * 13 - 9));
}

TEST(ImageQuality, RegionsTakeTheNeighboursOfTheImage) {
  const Image image = test::random_image<std::uint8_t>(3, 20, 20, 1, 255.9);
  const Mask mask = test::mask_of_grid(Mask::full({20, 20}), 2, 2);
  const auto result = quality(image, mask);
  std::int64_t n = 0;
  for (const auto& [name, region] : result.regions) n += region.metrics.at("GRY.GRY.quality.sharpness_n").get<int>();
  EXPECT_EQ(n, 18 * 18);
}

}  // namespace
}  // namespace orvexa::model
