// texture_glcm and texture_lbp
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

double number(const OperationResult& result, const std::string& name) {
  return result.metrics.at(name).get<double>();
}

/// Counts are levels: the white level is the number of levels.
std::shared_ptr<CaptureSet> levels(const Image& image, double white = 8) {
  const auto capture = test::capture("c", {{"GRY", {{"GRY", image}}}});
  capture->measurements.at("GRY")->declared_white_level = white;
  return capture;
}

OperationResult glcm(const Image& image, const std::optional<Mask>& mask = {}, int distance = 1) {
  return test::measured("texture_glcm", *levels(image), mask, {{"levels", 8}, {"distance", distance}});
}

// ---- texture_glcm ----

/// The example of Haralick's paper. Its matrices, pairs taken both ways: 0 degrees {4 2 1 0, 2 4 0 0, 1 0 6 1, 0 0 1 2}
/// of 24, 90 degrees {6 0 2 0, 0 4 2 0, 2 2 2 2, 0 0 2 0} of 24, the diagonals {2 1 3 0, 1 2 1 0, 3 1 0 2, 0 0 2 0} and
/// {4 1 0 0, 1 2 2 0, 0 2 4 1, 0 0 1 0} of 18.
const Image example = test::image<std::uint8_t>({{0, 0, 1, 1}, {0, 0, 1, 1}, {0, 2, 2, 2}, {2, 2, 3, 3}});

TEST(TextureGlcm, OfTheExampleOfThePaperHasTheFeaturesOfItsMatrices) {
  const auto result = glcm(example);
  EXPECT_EQ(result.metrics.at("GRY.GRY.glcm.pairs"), 42);
  EXPECT_EQ(result.metrics.at("GRY.GRY.glcm.n"), 16);
  // (2 * 2 * 1 + 2 * 1 * 4 + 2 * 1 * 1) / 24 = 14 / 24; (16 + 4 + 4) / 24; (2 + 24 + 2 + 4) / 18; (2 + 4 + 2) / 18
  EXPECT_NEAR(number(result, "GRY.GRY.glcm.contrast.mean"), (14.0 / 24 + 24.0 / 24 + 32.0 / 18 + 8.0 / 18) / 4, 1e-15);
  EXPECT_NEAR(number(result, "GRY.GRY.glcm.contrast.range"), 32.0 / 18 - 8.0 / 18, 1e-15);
  // Sums of squares: 84, 80, 38, 48
  EXPECT_NEAR(number(result, "GRY.GRY.glcm.asm.mean"), (84.0 / 576 + 80.0 / 576 + 38.0 / 324 + 48.0 / 324) / 4, 1e-15);
  EXPECT_NEAR(number(result, "GRY.GRY.glcm.energy.range"), std::sqrt(48.0 / 324) - std::sqrt(38.0 / 324), 1e-15);
  // |i - j|: (4 + 4 + 2) / 24, (8 + 4 + 4) / 24, (2 + 12 + 2 + 4) / 18, 8 / 18
  EXPECT_NEAR(number(result, "GRY.GRY.glcm.dissimilarity.mean"), (10.0 / 24 + 16.0 / 24 + 20.0 / 18 + 8.0 / 18) / 4,
              1e-15);
  // Halves for steps of 1, fifths for steps of 2: (16 + 3 + 0.4) / 24, (12 + 4 + 0.8) / 24, (4 + 4 + 1.2) / 18,
  // (10 + 4) / 18
  EXPECT_NEAR(number(result, "GRY.GRY.glcm.homogeneity.mean"), (19.4 / 24 + 16.8 / 24 + 9.2 / 18 + 14.0 / 18) / 4,
              1e-15);
}

TEST(TextureGlcm, PairsStayWithinARegionAndTheWholeTakesThoseAcross) {
  const Image image = test::image<std::uint8_t>({{0, 0, 7, 7}, {0, 0, 7, 7}});
  const auto result = glcm(image, test::mask_of_regions({"1122", "1122"}));
  for (const char* region : {"ROI_1", "ROI_2"}) {
    EXPECT_EQ(result.regions.at(region).metrics.at("GRY.GRY.glcm.pairs"), 6);  // 2 + 2 + 1 + 1
    EXPECT_EQ(result.regions.at(region).metrics.at("GRY.GRY.glcm.contrast.mean"), 0.0);
    EXPECT_EQ(result.regions.at(region).metrics.at("GRY.GRY.glcm.asm.mean"), 1.0);
    EXPECT_EQ(result.regions.at(region).metrics.at("GRY.GRY.glcm.entropy.mean"), 0.0);
    EXPECT_EQ(result.regions.at(region).reasons.at("GRY.GRY.glcm.correlation.mean"),
              "All levels of the pairs in some direction are equal.");
  }
  EXPECT_EQ(result.metrics.at("GRY.GRY.glcm.pairs"), 16);                           // 6 + 4 + 3 + 3
  EXPECT_NEAR(number(result, "GRY.GRY.glcm.contrast.range"), 49.0 / 3 - 0, 1e-14);  // 90 degrees: no step
}

TEST(TextureGlcm, WithoutAPairInSomeDirectionSaysSo) {
  const auto one = glcm(test::image<std::uint8_t>({{3}}));
  EXPECT_EQ(one.metrics.at("GRY.GRY.glcm.pairs"), 0);
  EXPECT_EQ(one.reasons.at("GRY.GRY.glcm.contrast.mean"), "There is no pair of pixels in some direction.");
  const auto row = glcm(test::image<std::uint8_t>({{3, 4, 5}}));
  EXPECT_EQ(row.metrics.at("GRY.GRY.glcm.pairs"), 2);
  EXPECT_TRUE(row.reasons.contains("GRY.GRY.glcm.contrast.mean"));
  EXPECT_EQ(glcm(example, {}, 4).metrics.at("GRY.GRY.glcm.pairs"), 0);
  EXPECT_EQ(glcm(example, {}, 64).metrics.at("GRY.GRY.glcm.pairs"), 0);
}

// Two apart: columns (1, 1), (0, 1), (0, 1), (1, 1) ... of the example; the corners of each 3 x 3 in the diagonals.
TEST(TextureGlcm, ADistanceIsSoManyColumnsRowsOrBoth) {
  EXPECT_EQ(glcm(example, {}, 2).metrics.at("GRY.GRY.glcm.pairs"), 8 + 8 + 4 + 4);
  EXPECT_EQ(glcm(example, {}, 3).metrics.at("GRY.GRY.glcm.pairs"), 4 + 4 + 1 + 1);
}

TEST(TextureGlcm, APixelWithoutANumberHasNoPairs) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const Image image = test::image<float>({{1, 2, 3}, {4, nan, 6}, {7, 0, 1}});
  const auto result = glcm(image);
  EXPECT_EQ(result.metrics.at("GRY.GRY.glcm.n"), 8);
  EXPECT_EQ(result.metrics.at("GRY.GRY.glcm.n_invalid"), 1);
  EXPECT_EQ(result.metrics.at("GRY.GRY.glcm.pairs"), 20 - 8);  // 6 + 6 + 4 + 4, and the middle is in 8
}

// With low = 1 / 4 and high = 3 / 4 of white 8, counts 2 to 6 are 8 levels of half a count: 3 -> 2 and 5 -> 6.
TEST(TextureGlcm, LevelsLieBetweenLowAndHigh) {
  const auto capture = levels(test::image<float>({{0, 3}, {5, 8}}));
  const auto result = test::measured("texture_glcm", *capture, {}, {{"levels", 8}, {"low", 0.25}, {"high", 0.75}});
  // Levels {0 2, 6 7}: steps 2 and 1; 6 - 2 = 4; 6 and 5; 7.
  EXPECT_NEAR(number(result, "GRY.GRY.glcm.dissimilarity.mean"), (1.5 + 4 + 5.5 + 7) / 4, 1e-15);
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(test::measured("texture_glcm", *capture, {}, {{"low", 1}, {"high", 1}}));
            }),
            "texture_glcm: parameter \"low\" is 1.0, but it must be below \"high\", which is 1.0.");
}

TEST(TextureGlcm, WithAllLevelsEveryEightBitCountIsItsOwn) {
  const auto capture = test::capture("c", {{"GRY", {{"GRY", test::image<std::uint8_t>({{0, 255}, {254, 1}})}}}});
  const auto result = test::measured("texture_glcm", *capture, {}, {{"levels", 256}});
  // 0-255 and 254-1; 0-254 and 255-1; 254-255; 0-1
  EXPECT_NEAR(number(result, "GRY.GRY.glcm.dissimilarity.mean"), ((255.0 + 253) / 2 + 254 + 1 + 1) / 4, 1e-12);
  EXPECT_THAT(test::refusal([&] {
                static_cast<void>(test::measured("texture_glcm", *capture, {}, {{"levels", 257}}));
              }),
              testing::HasSubstr("from 8 to 256"));
}

// ---- texture_lbp ----

std::string pattern_of(const Image& image) {
  const auto result = test::measured("texture_lbp", *test::capture("c", {{"GRY", {{"GRY", image}}}}));
  for (const auto& [name, value] : result.metrics.items()) {
    if (value.is_number_float() && value == 1.0) return name.substr(std::string("GRY.GRY.lbp.").size());
  }
  return "several";
}

TEST(TextureLbp, CountsTheNeighboursThatAreNotDarker) {
  EXPECT_EQ(pattern_of(test::flat_image<std::uint8_t>(3, 3, 77)), "uniform_8");
  EXPECT_EQ(pattern_of(test::image<std::uint8_t>({{1, 1, 1}, {1, 9, 1}, {1, 1, 1}})), "uniform_0");
  // East is darker, so are both diagonals beside it; five remain.
  EXPECT_EQ(pattern_of(test::image<std::uint8_t>({{5, 5, 1}, {5, 5, 1}, {5, 5, 1}})), "uniform_5");
  // A bright corner: interpolated 0.5 * 4 - 0.207 * 8 = 0.34 above the middle, its neighbours below it.
  EXPECT_EQ(pattern_of(test::image<std::uint8_t>({{9, 1, 1}, {1, 5, 1}, {1, 1, 1}})), "uniform_1");
  EXPECT_EQ(pattern_of(test::image<std::uint8_t>({{9, 1, 9}, {1, 5, 1}, {9, 1, 9}})), "other");
}

// With equal values a rest of rounding would make neighbours darker.
TEST(TextureLbp, AFlatPictureOfAnyValueIsFlat) {
  for (const float value : {0.1F, 0.3F, 1e-7F, 12345.678F, -0.7F}) {
    EXPECT_EQ(pattern_of(test::flat_image<float>(4, 5, value)), "uniform_8") << value;
  }
}

TEST(TextureLbp, OnlyPixelsWithAllNeighboursInTheRegionHaveAPattern) {
  const auto capture = test::capture("c", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(3, 6, 1)}}}});
  const auto result = test::measured("texture_lbp", *capture, test::mask_of_regions({"111222", "111222", "11122."}));
  EXPECT_EQ(result.regions.at("ROI_1").metrics.at("GRY.GRY.lbp.n"), 1);
  EXPECT_EQ(result.regions.at("ROI_1").metrics.at("GRY.GRY.lbp.n_invalid"), 8);
  EXPECT_EQ(result.regions.at("ROI_2").metrics.at("GRY.GRY.lbp.n"), 0);
  EXPECT_EQ(result.regions.at("ROI_2").reasons.at("GRY.GRY.lbp.other"),
            "No pixel has all its neighbours in the region.");
  EXPECT_EQ(result.metrics.at("GRY.GRY.lbp.n"), 3) << "columns 1 to 3 of the middle row";
}

TEST(TextureLbp, APixelBesideNoNumberHasNoPattern) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const auto capture =
      test::capture("c", {{"GRY", {{"GRY", test::image<float>({{nan, 1, 1, 1}, {1, 1, 1, 1}, {1, 1, 1, 1}})}}}});
  EXPECT_EQ(test::measured("texture_lbp", *capture).metrics.at("GRY.GRY.lbp.n"), 1);
}

}  // namespace
}  // namespace orvexa::model
