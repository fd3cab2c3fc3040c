#include "orvexa/model/measures/pixel_rows.h"

#include <gtest/gtest.h>

#include "orvexa/model/measures/components.h"
#include "orvexa/model/measures/region_set.h"
#include "orvexa/model/measures/shape_measures.h"
#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

std::string runs_of(const PixelRows& rows) {
  std::string text;
  rows.for_each_run({}, [&](int y, int x0, int x1) {
    text += std::to_string(y) + ":" + std::to_string(x0) + "-" + std::to_string(x1) + " ";
  });
  return text;
}

TEST(PixelRows, OfAPictureAndOfRunsAreTheSame) {
  EXPECT_EQ(runs_of(test::mask({"##.#", "....", ".###"}).read_only()), "0:0-2 0:3-4 2:1-4 ");
  const std::vector<PixelRun> runs{{7, 10, 12}, {7, 13, 14}, {9, 11, 14}};
  EXPECT_EQ(runs_of({runs, {10, 7}}), "0:0-2 0:3-4 2:1-4 ");
  EXPECT_EQ(runs_of(cv::Mat()), "");
}

// What is measured from a region's runs and from its picture: in whole numbers, so equal to the last bit.
TEST(PixelRows, ShapesAreTheSameFromBoth) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    SCOPED_TRACE(seed);
    const RegionSet set(test::mask_of_grid(test::random_mask(seed, 30, 40, 0.3), 2, 2));
    for (const Region& region : set.regions()) {
      const cv::Mat picture = set.crop(region);
      EXPECT_EQ(runs_of(set.rows(region)), runs_of(picture));
      EXPECT_EQ(corner_hull(set.rows(region)).vertices, corner_hull(picture).vertices);
      EXPECT_EQ(fit_ellipse(set.rows(region)).major_axis, fit_ellipse(picture).major_axis);
      EXPECT_EQ(hu_moments(set.rows(region)), hu_moments(picture));
    }
  }
}

bool is_one_run(const std::vector<std::string>& rows) {
  const RegionSet set(test::mask_of_regions(rows));
  return is_one_run_a_row(set.runs(set.regions().front()));
}

TEST(PixelRows, OneRunARowIsAskedForWithItsTouchingNeighbours) {
  EXPECT_TRUE(is_one_run({"1"}));
  EXPECT_TRUE(is_one_run({".11", "11.", ".1."}));
  EXPECT_TRUE(is_one_run({"11..", "..11"}));     // over a corner
  EXPECT_FALSE(is_one_run({"11...", "...11"}));  // past it
  EXPECT_FALSE(is_one_run({"1.1", "111"}));
  EXPECT_FALSE(is_one_run({"1", ".", "1"}));
  EXPECT_FALSE(is_one_run_a_row({}));
}

TEST(PixelRows, OneRunARowIsOnePartWithoutHoles) {
  int one_run = 0;
  for (unsigned seed = 0; seed < 3000; ++seed) {
    const Mask mask = test::mask_of_grid(test::random_mask(seed, 4, 5, 0.6), 1, 1);
    const RegionSet set(mask);
    if (!is_one_run_a_row(set.runs(set.regions().front()))) continue;
    ++one_run;
    const cv::Mat picture = set.crop(set.regions().front());
    EXPECT_EQ(label_components(picture, 8).components.size(), 1u);
    const Components background = label_background(picture, 4);
    for (const auto& part : background.components) EXPECT_TRUE(background.touches_border(part));
  }
  EXPECT_GT(one_run, 50);
}

}  // namespace
}  // namespace orvexa::model
