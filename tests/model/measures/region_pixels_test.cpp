#include "orvexa/model/measures/region_pixels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "orvexa/model/measures/bands.h"
#include "support/counting_event.h"
#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

/// The pixels of a mask one by one, as the slow way to the same statistics.
Statistics slow(const Band& band, const Mask& mask) {
  std::vector<double> values;
  std::int64_t n_invalid = 0;
  std::vector<double> row(static_cast<std::size_t>(band.shape().width));
  for (int y = 0; y < band.shape().height; ++y) {
    band.read_row(y, row);
    for (int x = 0; x < band.shape().width; ++x) {
      if (!mask.at(y, x)) continue;
      const double value = row[static_cast<std::size_t>(x)];
      if (std::isfinite(value)) {
        values.push_back(value);
      } else {
        ++n_invalid;
      }
    }
  }
  Statistics statistics = describe_values(values, {});
  statistics.n_invalid = n_invalid;
  return statistics;
}

void expect_same(const Statistics& a, const Statistics& b) {
  EXPECT_EQ(a.n, b.n);
  EXPECT_EQ(a.n_invalid, b.n_invalid);
  EXPECT_EQ(a.min, b.min);
  EXPECT_EQ(a.max, b.max);
  EXPECT_EQ(a.median, b.median);
  EXPECT_EQ(a.mad, b.mad);
  EXPECT_EQ(a.p5, b.p5);
  EXPECT_EQ(a.p95, b.p95);
  EXPECT_NEAR(a.mean, b.mean, 1e-12 * std::abs(a.mean));
  EXPECT_NEAR(a.sd, b.sd, 1e-11 * std::abs(a.sd));
  EXPECT_NEAR(a.skew, b.skew, 1e-9);
  EXPECT_NEAR(a.kurtosis, b.kurtosis, 1e-9);
}

void expect_agrees(const ImageSource& source, const Mask& mask) {
  const RegionSet regions(mask);
  const RegionPixels pixels(regions, {});
  for (const Band& band : all_bands(source)) {
    SCOPED_TRACE(band.name);
    const RegionStatistics statistics = pixels.measure(band, {});
    expect_same(statistics.whole, slow(band, mask));
    ASSERT_EQ(statistics.regions.size(), regions.regions().size());
    for (const Region& region : regions.regions()) {
      const Mask alone = regions.is_single() ? mask : test::only_region(mask, region.label);
      SCOPED_TRACE(region.name);
      expect_same(statistics.regions[static_cast<std::size_t>(region.label) - 1], slow(band, alone));
    }
  }
}

TEST(RegionPixels, OneRegionAgreesWithTheSlowWay) {
  expect_agrees(*test::random_capture(1, 60, 70), test::random_mask(2, 60, 70, 0.5));
}

TEST(RegionPixels, AFewRegionsAgreeWithTheSlowWay) {
  expect_agrees(*test::random_capture(3, 60, 70), test::mask_of_grid(test::random_mask(4, 60, 70, 0.7), 3, 4));
}

// More than 64 regions of a 16-bit plane take the way through sorted pixels; the wide ones a table, the others a sort.
TEST(RegionPixels, ManyRegionsAgreeWithTheSlowWay) {
  expect_agrees(*test::random_capture(5, 90, 80), test::mask_of_grid(test::random_mask(6, 90, 80, 0.8), 10, 9));
  const auto flat = test::capture("flat", {{"GRY", {{"GRY", test::flat_image<std::uint16_t>(90, 80, 777)}}}});
  expect_agrees(*flat, test::mask_of_grid(Mask::full({90, 80}), 10, 9));
}

TEST(RegionPixels, PixelsInNoRegionCountForTheWholeAlone) {
  const auto capture = test::capture("c", {{"GRY", {{"GRY", test::image<std::uint8_t>({{1, 2, 3, 100}})}}}});
  const RegionSet regions(test::mask_of_regions({"122#"}));
  const RegionStatistics s = RegionPixels(regions, {}).measure(all_bands(*capture).front(), {});
  EXPECT_EQ(s.whole.sum, 106);
  EXPECT_EQ(s.regions[0].sum, 1);
  EXPECT_EQ(s.regions[1].sum, 5);
}

TEST(RegionPixels, ValuesThatAreNoNumbersAreLeftOutAndCountedWhereTheyLie) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinite = std::numeric_limits<float>::infinity();
  const auto capture =
      test::capture("c", {{"GRY", {{"GRY", test::image<float>({{nan, 2, 3, infinite, nan, 7, 8, -infinite}})}}}});
  const RegionSet regions(test::mask_of_regions({"111223#."}));
  const RegionStatistics s = RegionPixels(regions, {}).measure(all_bands(*capture).front(), {});
  EXPECT_EQ(s.whole.n, 4);
  EXPECT_EQ(s.whole.n_invalid, 3);
  EXPECT_EQ(s.whole.sum, 20);
  EXPECT_EQ(s.regions[0].n, 2);
  EXPECT_EQ(s.regions[0].n_invalid, 1);
  EXPECT_EQ(s.regions[0].sum, 5);
  EXPECT_EQ(s.regions[1].n, 0);
  EXPECT_EQ(s.regions[1].n_invalid, 2);
  EXPECT_EQ(s.regions[2].sum, 7);
}

TEST(RegionPixels, TheGreyOfAColourImageIsReadAsItsBandSays) {
  cv::Mat color(1, 2, CV_8UC3);
  color.at<cv::Vec3b>(0, 0) = {10, 20, 30};    // 2.99 + 11.74 + 3.42 = 18.15
  color.at<cv::Vec3b>(0, 1) = {200, 100, 50};  // 59.8 + 58.7 + 5.7 = 124.2
  const auto capture = test::capture("c", {{"CLR", {{"RGB", Image(color)}}}});
  const RegionSet regions(Mask::full({1, 2}));
  EXPECT_EQ(RegionPixels(regions, {}).measure(find_band(*capture, "CLR.RGB.grey"), {}).whole.sum, 18 + 124);
}

TEST(RegionPixels, ACancelledRunStops) {
  common::CancelEvent event;
  event.set();
  const RegionSet regions(Mask::full({4, 4}));
  EXPECT_THROW(RegionPixels(regions, {.cancel_event = &event, .progress = {}}), CancelledError);
}

// 1,000 x 1,000 pixels are 4 stripes (of 262 rows) and 4 pieces of a list.
TEST(RegionPixels, GivenOneLargeRegion_ThenTheFlagIsLookedAtInEveryStripeOfEveryPass) {
  const test::CountingEvent event;
  const RunContext context{.cancel_event = &event, .progress = {}};
  const RegionSet regions(test::mask_of_grid(Mask::full({1000, 1000}), 1, 1), context);
  const RegionPixels pixels(regions, context);
  const int before = event.looks();
  EXPECT_GE(before, 3 * 4) << "regions, runs, places";
  const cv::Mat map(1000, 1000, CV_64FC1, cv::Scalar(0.5));
  EXPECT_EQ(pixels.measure(map, context).regions[0].n, 1'000'000);
  // Gathered, those that are no numbers left out, then sums and deviations for the whole and for the region.
  EXPECT_GE(event.looks() - before, 6 * 4);
}

// 70 groups of 65,536 counts are more than a table holds, so that the counts are gathered into lists.
TEST(RegionPixels, GivenALargeRegionAmongMany_ThenTheFlagIsLookedAtInEveryPieceOfItsList) {
  auto labels = std::make_shared<RegionLabels>();
  labels->image = cv::Mat(1000, 1000, CV_32SC1, cv::Scalar(1));
  for (int k = 1; k <= 70; ++k) {
    labels->names.push_back(std::to_string(k));
    labels->image.at<std::int32_t>(0, k) = k;
  }
  const RegionSet regions(Mask::full({1000, 1000}).with_labels(labels));
  const RegionPixels pixels(regions, {});
  const auto capture = test::capture("c", {{"GRY", {{"GRY", test::flat_image<std::uint16_t>(1000, 1000, 7)}}}});
  const test::CountingEvent event;
  const auto found = pixels.measure(find_band(*capture, "GRY.GRY"), RunContext{.cancel_event = &event, .progress = {}});
  EXPECT_EQ(found.regions[0].n, 1'000'000 - 69);
  // Gathered, then counted once: 69 lists of one pixel and four pieces of the large one.
  EXPECT_GE(event.looks(), 4 + 69 + 4);
}

}  // namespace
}  // namespace orvexa::model
