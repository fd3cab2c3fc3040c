#include "orvexa/model/measures/region_set.h"

#include <gtest/gtest.h>

#include <random>

#include "support/counting_event.h"
#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

TEST(RegionSet, AMaskWithoutRegionsIsOneRegionOfAllItsPixels) {
  const RegionSet set(test::mask({"....", ".##.", ".#..", "...."}));
  EXPECT_TRUE(set.is_single());
  ASSERT_EQ(set.regions().size(), 1u);
  EXPECT_EQ(set.regions()[0].name, "ROI_1");
  EXPECT_EQ(set.regions()[0].area, 3);
  EXPECT_EQ(set.regions()[0].box, (PixelRect{1, 1, 3, 3}));
  EXPECT_EQ(set.whole().area, 3);
  EXPECT_EQ(set.whole().label, 0);
  EXPECT_EQ(set.region_at(1, 1), 0);
}

TEST(RegionSet, KnowsAreaAndTightBoxOfEveryRegion) {
  const RegionSet set(test::mask_of_regions({"11..2", "1..22", "...##"}));
  EXPECT_FALSE(set.is_single());
  ASSERT_EQ(set.regions().size(), 2u);
  EXPECT_EQ(set.regions()[0].area, 3);
  EXPECT_EQ(set.regions()[0].box, (PixelRect{0, 0, 2, 2}));
  EXPECT_EQ(set.regions()[1].area, 3);
  EXPECT_EQ(set.regions()[1].box, (PixelRect{3, 0, 5, 2}));
  EXPECT_EQ(set.whole().area, 8);
  EXPECT_EQ(set.whole().box, (PixelRect{0, 0, 5, 3}));
  EXPECT_EQ(set.region_at(2, 3), -1);
}

TEST(RegionSet, ARegionThatLostAllPixelsKeepsItsNameAndHasNone) {
  const RegionSet set(test::mask_of_regions({"1..3"}, 4));
  ASSERT_EQ(set.regions().size(), 4u);
  EXPECT_EQ(set.regions()[1].name, "ROI_2");
  EXPECT_EQ(set.regions()[1].area, 0);
  EXPECT_TRUE(set.regions()[1].box.is_empty());
  EXPECT_TRUE(set.crop(set.regions()[1]).empty());
  EXPECT_EQ(set.regions()[3].area, 0);
}

TEST(RegionSet, LabelsCountOnlyWhereTheMaskIsSet) {
  const Mask drawn = test::mask_of_regions({"1111", "2222"});
  const RegionSet set(test::mask({"##..", "...#"}).with_labels(drawn.labels()));
  EXPECT_EQ(set.regions()[0].area, 2);
  EXPECT_EQ(set.regions()[1].area, 1);
  EXPECT_EQ(set.regions()[1].box, (PixelRect{3, 1, 4, 2}));
}

TEST(RegionSet, KnowsTheRunsOfEachRegionInRasterOrder) {
  const RegionSet set(test::mask_of_regions({"112", "121", "#.1"}, 3));
  const auto texts = [&](const Region& region) {
    std::vector<std::string> all;
    for (const PixelRun& run : set.runs(region)) {
      all.push_back(std::to_string(run.y) + ":" + std::to_string(run.x0) + "-" + std::to_string(run.x1));
    }
    return all;
  };
  EXPECT_EQ(texts(set.regions()[0]), (std::vector<std::string>{"0:0-2", "1:0-1", "1:2-3", "2:2-3"}));
  EXPECT_EQ(texts(set.regions()[1]), (std::vector<std::string>{"0:2-3", "1:1-2"}));
  EXPECT_TRUE(texts(set.regions()[2]).empty());
  EXPECT_TRUE(set.runs(set.whole()).empty());
  EXPECT_TRUE(set.joined().runs(set.joined().regions()[0]).empty());
}

// Wide enough for several stripes: the pixels of the runs are those of the label image.
TEST(RegionSet, RunsCoverExactlyTheRegionWithAnyNumberOfThreads) {
  const Mask mask = test::mask_of_grid(test::random_mask(3, 700, 900, 0.7), 3, 4);
  for (const int threads : {1, 3}) {
    const test::ThreadCount limit(threads);
    const RegionSet set(mask);
    cv::Mat painted = cv::Mat::zeros(700, 900, CV_32SC1);
    for (const Region& region : set.regions()) {
      std::int64_t area = 0;
      for (const PixelRun& run : set.runs(region)) {
        area += run.x1 - run.x0;
        painted.row(run.y).colRange(run.x0, run.x1) = cv::Scalar(region.label);
      }
      EXPECT_EQ(area, region.area);
    }
    cv::Mat expected = cv::Mat::zeros(700, 900, CV_32SC1);
    mask.labels()->image.copyTo(expected, mask.read_only());
    EXPECT_EQ(cv::countNonZero(painted != expected), 0);
  }
}

TEST(RegionSet, ACropShowsTheRegionAlone) {
  const RegionSet set(test::mask_of_regions({"112", "121", "#.1"}));
  const cv::Mat first = set.crop(set.regions()[0]);
  EXPECT_EQ(test::drawing(Mask(first.clone())), (std::vector<std::string>{"##.", "#.#", "..#"}));
  EXPECT_EQ(test::drawing(Mask(set.crop(set.whole()).clone())), (std::vector<std::string>{"###", "###", "#.#"}));
}

TEST(RegionSet, AnEmptyMaskHasAnEmptyWhole) {
  const RegionSet set(Mask::empty({3, 4}));
  EXPECT_EQ(set.whole().area, 0);
  EXPECT_TRUE(set.whole().box.is_empty());
  EXPECT_TRUE(set.crop(set.whole()).empty());
}

TEST(RegionSet, ALabelWithoutANameIsRefused) {
  auto labels = std::make_shared<RegionLabels>();
  labels->image = cv::Mat(1, 2, CV_32SC1, cv::Scalar(2));
  labels->names = {"only one"};
  EXPECT_THROW(RegionSet(Mask::full({1, 2}).with_labels(labels)), std::logic_error);
}

// Tall enough for several stripes of a quarter of a megapixel.
TEST(RegionSet, AreasAndBoxesOfStripesAddUp) {
  const Mask noise = test::random_mask(5, 700, 1000, 0.4);
  const Mask mask = test::mask_of_grid(noise, 3, 4);
  const RegionSet set(mask);
  std::int64_t sum = 0;
  for (const Region& region : set.regions()) {
    const Mask alone = test::only_region(mask, region.label);
    EXPECT_EQ(region.area, alone.count());
    EXPECT_EQ(region.box, RegionSet(alone).whole().box);
    sum += region.area;
  }
  EXPECT_EQ(sum, set.whole().area);
}

/// 2,000 x 2,000 pixels in one region: 2,000 rows in stripes of 131 (2^18 / 2,000) are 16 stripes.
Mask one_large_region() {
  return test::mask_of_grid(Mask::full({2000, 2000}), 1, 1);
}

TEST(RegionSet, GivenOneLargeRegion_ThenTheFlagIsLookedAtInEveryStripe) {
  const test::CountingEvent event;
  const RegionSet set(one_large_region(), {.cancel_event = &event, .progress = {}});
  EXPECT_GE(event.looks(), 16);
  const int before = event.looks();
  EXPECT_EQ(cv::countNonZero(set.crop(set.regions()[0], {.cancel_event = &event, .progress = {}})), 4'000'000);
  EXPECT_GE(event.looks() - before, 16);
}

TEST(RegionSet, GivenACancellationInTheMiddle_ThenNoFurtherStripeIsLookedAt) {
  const test::ThreadCount one(1);
  const RegionSet set(one_large_region());
  for (const int looks : {0, 1, 7, 15}) {
    const test::CountingEvent event(looks);
    const RunContext context{.cancel_event = &event, .progress = {}};
    EXPECT_THROW(RegionSet(set.mask(), context), CancelledError);
    EXPECT_EQ(event.looks(), looks + 1);
    const test::CountingEvent another(looks);
    const RunContext cropping{.cancel_event = &another, .progress = {}};
    EXPECT_THROW(static_cast<void>(set.crop(set.regions()[0], cropping)), CancelledError);
    EXPECT_EQ(another.looks(), looks + 1);
  }
}

}  // namespace
}  // namespace orvexa::model
