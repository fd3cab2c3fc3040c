#include "orvexa/model/reference.h"

#include <gtest/gtest.h>

#include <cmath>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/measures/spectral_indices.h"
#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();

std::shared_ptr<const Reference> reference(ReferenceLevel white, ReferenceLevel dark, double reflectance = 1.0) {
  return std::make_shared<const Reference>(Reference{std::move(white), std::move(dark), reflectance});
}

ReferenceLevel constant(double counts) {
  return {.constants = {counts}};
}

ReferenceLevel picture(Image image) {
  return {.picture = std::move(image)};
}

/// A capture MSP of RED and NIR with references for both.
std::shared_ptr<CaptureSet> calibrated_plot(const Image& red, const Image& nir,
                                            const std::shared_ptr<const Reference>& of_both) {
  auto capture = test::capture("plot", {{"MSP", {{"RED", red}, {"NIR", nir}}}});
  capture->measurements.at("MSP")->references.insert_or_assign("RED", of_both);
  capture->measurements.at("MSP")->references.insert_or_assign("NIR", of_both);
  return capture;
}

std::vector<double> row_of(const Band& band, int y) {
  std::vector<double> values(static_cast<std::size_t>(band.shape().width));
  band.read_row(y, values);
  return values;
}

std::vector<float> pixels_of(const Image& image) {
  std::vector<float> all;
  for (int y = 0; y < image.height(); ++y)
    all.insert(all.end(), image.row<float>(y).begin(), image.row<float>(y).end());
  return all;
}

TEST(Reference, MakesReflectanceOfCountsBetweenDarkAndWhite) {
  // (600 - 100) / (1100 - 100) = 0.5; below dark is negative and above white more than 1: nothing is cut.
  const Image counts = test::image<std::uint16_t>({{100, 600, 1100}, {50, 1600, 350}});
  const Image found = reflectance_image(counts, reference(constant(1100), constant(100)));
  EXPECT_EQ(found, test::image<float>({{0.0f, 0.5f, 1.0f}, {-0.05f, 1.5f, 0.25f}}));
}

TEST(Reference, MultipliesByTheReflectanceOfThePanel) {
  const Image found =
      reflectance_image(test::image<std::uint8_t>({{100, 50}}), reference(constant(100), constant(0), 0.98));
  EXPECT_EQ(found, test::image<float>({{0.98f, 0.49f}}));
}

TEST(Reference, TakesPicturesPixelByPixelAndMakesPixelsInvalidWhereWhiteIsNotAboveDark) {
  const Image counts = test::image<std::uint16_t>({{500, 500, 500, 500}});
  const Image white = test::image<std::uint16_t>({{1000, 2000, 100, 99}});
  const Image dark = test::image<std::uint16_t>({{0, 100, 100, 100}});
  const std::vector<float> found = pixels_of(reflectance_image(counts, reference(picture(white), picture(dark))));
  EXPECT_EQ(found[0], 0.5f);
  EXPECT_EQ(found[1], static_cast<float>(400.0 / 1900.0));
  EXPECT_TRUE(std::isnan(found[2])) << "white = dark";
  EXPECT_TRUE(std::isnan(found[3])) << "white < dark";
}

TEST(Reference, GivenNoNumberInAPictureOrInTheReference_ThenThePixelIsInvalid) {
  const Image counts = test::image<float>({{not_a_number, 1.0f, 1.0f, 1.0f}});
  const Image white = test::image<float>({{2.0f, not_a_number, 2.0f, 2.0f}});
  const Image dark = test::image<float>({{0.0f, 0.0f, not_a_number, 0.0f}});
  const std::vector<float> found = pixels_of(reflectance_image(counts, reference(picture(white), picture(dark))));
  EXPECT_TRUE(std::isnan(found[0]) && std::isnan(found[1]) && std::isnan(found[2]));
  EXPECT_EQ(found[3], 0.5f);
}

TEST(Reference, OfAColourImageHasAConstantForEachChannelOrOneForAll) {
  const Image counts(cv::Mat(1, 1, CV_8UC3, cv::Scalar(100, 50, 20)));
  const Image each = reflectance_image(counts, reference({.constants = {200, 100, 80}}, constant(0)));
  EXPECT_EQ(pixels_of(each), (std::vector<float>{0.5f, 0.5f, 0.25f}));
  const Image shading = test::image<std::uint8_t>({{200}});
  const Image all = reflectance_image(counts, reference(picture(shading), constant(0)));
  EXPECT_EQ(pixels_of(all), (std::vector<float>{0.5f, 0.25f, 0.1f}));
}

TEST(CalibratedBand, IsTheSameByRowAsPlaneAndAsImage) {
  const auto capture = calibrated_plot(test::random_image<std::uint16_t>(1, 9, 31, 1, 4000),
                                       test::random_image<std::uint16_t>(2, 9, 31, 1, 4000),
                                       reference(picture(test::random_image<std::uint16_t>(3, 9, 31, 1, 4000)),
                                                 picture(test::random_image<std::uint16_t>(4, 9, 31, 1, 900))));
  const Band band = find_band(*capture, "NIR");
  EXPECT_EQ(band.image.type(), PixelType::f32);
  EXPECT_EQ(band.white.counts, 1.0);
  EXPECT_TRUE(band.white.is_declared);
  const Image plane = band.plane();
  int invalid = 0;
  for (int y = 0; y < 9; ++y) {
    const std::vector<double> row = row_of(band, y);
    for (std::size_t x = 0; x < row.size(); ++x) {
      const float of_plane = plane.row<float>(y)[x];
      const float of_image = band.image.row<float>(y)[x];
      ASSERT_EQ(std::isnan(row[x]), std::isnan(of_plane));
      ASSERT_EQ(std::isnan(row[x]), std::isnan(of_image));
      if (std::isnan(row[x])) {
        ++invalid;
        continue;
      }
      EXPECT_EQ(row[x], double(of_plane));
      EXPECT_EQ(row[x], double(of_image));
    }
  }
  EXPECT_GT(invalid, 0) << "the noise has pixels with white below dark";
  EXPECT_LT(invalid, 9 * 31 / 2);
}

TEST(CalibratedBand, KeepsTheCountsOfTheFile) {
  const Image red = test::image<std::uint16_t>({{10, 20}});
  const auto capture = calibrated_plot(red, red, reference(constant(100), constant(0)));
  const Band raw = find_band(*capture, "RED").raw();
  EXPECT_EQ(raw.image, red);
  EXPECT_EQ(raw.white.counts, 65535);
  EXPECT_FALSE(raw.white.is_declared);
  EXPECT_EQ(row_of(raw, 0), (std::vector<double>{10, 20}));
  EXPECT_EQ(capture->find_image("MSP", "RED"), red);
}

TEST(CalibratedBand, IsReflectanceForIndicesThatNeedIt) {
  // EVI2 = 2.5 (N - R) / (N + 2.4 R + 1) with N = (1000 - 100) / 2000 = 0.45 and R = (220 - 100) / 2000 = 0.06.
  const auto capture = calibrated_plot(test::image<std::uint16_t>({{220}}), test::image<std::uint16_t>({{1000}}),
                                       reference(constant(2100), constant(100)));
  const double found = compute_index(*capture, get_spectral_index("evi2"), {}).values.at<double>(0, 0);
  EXPECT_NEAR(found, 2.5 * (0.45 - 0.06) / (0.45 + 2.4 * 0.06 + 1), 1e-7);  // reflectance is a 32-bit float
}

TEST(CalibratedBand, IsInvalidInIndicesWhereTheReferenceHasNoMeaning) {
  const auto capture =
      calibrated_plot(test::image<std::uint16_t>({{220, 220}}), test::image<std::uint16_t>({{1000, 1000}}),
                      reference(picture(test::image<std::uint16_t>({{2100, 100}})), constant(100)));
  const cv::Mat found = compute_index(*capture, get_spectral_index("ndvi"), {}).values;
  EXPECT_NEAR(found.at<double>(0, 0), (0.45 - 0.06) / (0.45 + 0.06), 1e-7);
  EXPECT_TRUE(std::isnan(found.at<double>(0, 1)));
}

TEST(CalibratedBand, IsReflectanceForThresholds) {
  const Image counts = test::image<std::uint16_t>({{100, 599, 600, 1100, 1200}});
  const auto capture = calibrated_plot(counts, counts, reference(constant(1100), constant(100)));
  const Value params{{"band", "MSP.RED"}, {"low", 0.5}, {"high", 1.0}};
  EXPECT_EQ(test::drawing(test::applied("threshold_range", *capture, std::nullopt, params)),
            (std::vector<std::string>{"..##."}));
}

TEST(CalibratedBand, StatisticsAreReflectanceAsFractionsAndTheFilesCountsElse) {
  // The second pixel has white = dark: no reflectance, but a count.
  const Image counts = test::image<std::uint16_t>({{600, 500}});
  const auto capture =
      calibrated_plot(counts, counts, reference(picture(test::image<std::uint16_t>({{1100, 100}})), constant(100)));
  const Value bands = Value::array({"MSP.RED"});
  const OperationResult raw = test::measured("band_statistics", *capture, std::nullopt, {{"bands", bands}});
  EXPECT_EQ(raw.metrics.at("MSP.RED.mean"), 550.0);
  EXPECT_EQ(raw.metrics.at("MSP.RED.n_invalid"), 0);
  const OperationResult share =
      test::measured("band_statistics", *capture, std::nullopt, {{"bands", bands}, {"unit", "fraction"}});
  EXPECT_EQ(share.metrics.at("MSP.RED.mean"), 0.5);
  EXPECT_EQ(share.metrics.at("MSP.RED.n"), 1);
  EXPECT_EQ(share.metrics.at("MSP.RED.n_invalid"), 1);
}

TEST(CalibratedBand, StaysReflectanceUnderAMask) {
  const Image counts = test::image<std::uint16_t>({{600, 500}});
  const auto capture = calibrated_plot(counts, counts, reference(constant(1100), constant(100)));
  const auto masked = capture->apply_mask(test::mask({"#."}));
  EXPECT_EQ(row_of(find_band(*masked, "RED"), 0), (std::vector<double>{0.5, double(0.4f)}));
  EXPECT_EQ(row_of(find_band(masked->image_stack(), "RED"), 0), (std::vector<double>{0.5, double(0.4f)}));
}

TEST(DeferredImage, IsWorkedOutOnceForAllCopiesAndOnlyWhenItIsRead) {
  int calls = 0;
  const Image image = Image::deferred({2, 3}, 1, [&calls](int y, std::span<float> row) {
    ++calls;
    for (float& value : row) value = static_cast<float>(y);
  });
  const Image copy = image;
  EXPECT_EQ(image.shape(), (Shape{2, 3}));
  EXPECT_EQ(image.type(), PixelType::f32);
  EXPECT_EQ(image.bytes(), 24u);
  EXPECT_FALSE(image.is_color());
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(copy, test::image<float>({{0, 0, 0}, {1, 1, 1}}));
  EXPECT_EQ(image.row<float>(1)[2], 1.0f);
  EXPECT_EQ(calls, 2) << "a call a row";
}

}  // namespace
}  // namespace orvexa::model
