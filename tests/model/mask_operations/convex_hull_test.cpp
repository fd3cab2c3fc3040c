#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orvexa/model/measures/shape_measures.h"
#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using test::mask;
using testing::ElementsAre;

const Value whole{{"per_region", false}};

// The hull of the L has the corners (0, 0), (1, 0), (3, 2), (3, 3) and (0, 3): of the side x - y = 1 from (1, 0) to
// (3, 2) the centre (1.5, 1.5) lies inside, (1.5, 0.5) and (2.5, 1.5) lie on it.
TEST(ConvexHullMask, AddsPixelsWithTheirCentreInsideTheHull) {
  EXPECT_THAT(drawing(applied("convex_hull", mask({"#....", "#....", "###.."}))),
              ElementsAre("#....", "##...", "###.."));
}

TEST(ConvexHullMask, GivesEachPartAHullOfItsOwnOrTheWholeMaskOne) {
  const Mask two = mask({"#.#...#", "###...#", "......."});
  EXPECT_THAT(drawing(applied("convex_hull", two)), ElementsAre("###...#", "###...#", "......."));
  EXPECT_THAT(drawing(applied("convex_hull", two, whole)), ElementsAre("#######", "#######", "......."));
}

TEST(ConvexHullMask, LeavesRectanglesAndDiamondsAsTheyAre) {
  for (const int radius : {0, 1, 2, 5, 13}) {
    cv::Mat diamond(40, 40, CV_8UC1, cv::Scalar(0));
    for (int y = -radius; y <= radius; ++y) {
      diamond.row(19 + y).colRange(20 - radius + std::abs(y), 21 + radius - std::abs(y)).setTo(255);
    }
    EXPECT_EQ(applied("convex_hull", Mask(diamond)), Mask(diamond)) << radius;
  }
  EXPECT_EQ(applied("convex_hull", Mask::full({5, 7})), Mask::full({5, 7}));
  EXPECT_EQ(applied("convex_hull", Mask::empty({5, 7})), Mask::empty({5, 7}));
  EXPECT_EQ(applied("convex_hull", Mask::empty({5, 7}), whole), Mask::empty({5, 7}));
}

// In doubled coordinates every centre is a whole point; inside it lies on the same hand of all sides.
TEST(ConvexHullMask, IsExactlyTheCentresInTheHullOfTheMeasurement) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    const Mask random = test::random_mask(seed, 37, 53, 0.01);
    const std::vector<cv::Point> hull = corner_hull(random.read_only()).vertices;
    const Mask filled = applied("convex_hull", random, whole);
    for (int y = 0; y < 37; ++y) {
      for (int x = 0; x < 53; ++x) {
        bool is_inside = !hull.empty();
        for (std::size_t i = 0; i < hull.size(); ++i) {
          const cv::Point a = hull[i] * 2;
          const cv::Point b = hull[(i + 1) % hull.size()] * 2;
          const cv::Point centre(2 * x + 1, 2 * y + 1);
          is_inside = is_inside && (b.x - a.x) * (centre.y - a.y) - (b.y - a.y) * (centre.x - a.x) < 0;
        }
        ASSERT_EQ(filled.at(y, x), is_inside) << x << ", " << y;
      }
    }
  }
}

TEST(ConvexHullMask, GivenRegions_ThenEachHasAHullAndWhatItAddsBelongsToIt) {
  const Mask regions = test::mask_of_regions({"1.1.2.2",  //
                                              ".....2.",  //
                                              "1.1...."});
  const Mask filled = applied("convex_hull", regions);
  EXPECT_THAT(drawing(filled), ElementsAre("###.###", "###..#.", "###...."));
  const RegionSet set(filled);
  ASSERT_EQ(set.regions().size(), 2u);
  EXPECT_EQ(set.regions()[0].area, 9);
  EXPECT_EQ(set.regions()[1].area, 4);
}

TEST(ConvexHullMask, GivesAnOverlapOfHullsToTheLaterRegionAndLeavesOldPixelsWhereTheyBelong) {
  const Mask regions = test::mask_of_regions({"1.2.1.2"});
  const Mask filled = applied("convex_hull", regions);
  EXPECT_EQ(filled, Mask::full({1, 7}));
  std::vector<int> labels;
  for (int x = 0; x < 7; ++x) labels.push_back(filled.labels()->image.at<std::int32_t>(0, x));
  EXPECT_THAT(labels, ElementsAre(1, 1, 2, 2, 1, 2, 2));
}

TEST(ConvexHullMask, StaysInsideTheBounds) {
  const auto capture = test::blank_capture({1, 8});
  const Mask without = applied("roi_exclude", *capture, {}, {{"rect", {0.5, 0.5, 0.25, 1}}});
  EXPECT_THAT(drawing(applied("convex_hull", *capture, without & mask({"#......#"}), whole)), ElementsAre("###..###"));
}

TEST(ConvexHullMask, OnlyAddsAndFillsEveryHole) {
  const Mask random = test::random_mask(3, 60, 80, 0.5);
  const Mask filled = applied("convex_hull", random);
  EXPECT_EQ(filled & random, random);
  EXPECT_EQ(applied("fill_holes", filled), filled);
}

}  // namespace
}  // namespace orvexa::model
