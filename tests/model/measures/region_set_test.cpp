#include "orvexa/model/measures/region_set.h"

#include <gtest/gtest.h>

#include <random>

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

}  // namespace
}  // namespace orvexa::model
