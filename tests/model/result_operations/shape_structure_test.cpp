// thickness, skeleton and neighbours: what lies inside regions and between them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

using testing::ElementsAre;

std::shared_ptr<CaptureSet> blank(Shape shape, const std::shared_ptr<const CaptureHeader>& header = nullptr) {
  return test::capture("blank", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(shape.height, shape.width, 0)}}}},
                       header);
}

OperationResult of(const char* key, const Mask& mask, const Value& params = Value::object()) {
  return test::measured(key, *blank(mask.shape()), mask, params);
}

double number(const OperationResult& result, const std::string& name) {
  return result.metrics.at(name).get<double>();
}

double number(const OperationResult& result, const std::string& region, const std::string& name) {
  return result.regions.at(region).metrics.at(name).get<double>();
}

// ---- thickness ----

// A bar of 3 rows inside the image: rows 1, 2, 1 from the background, and 1 at both ends: 2 * 5 + 2 pixels of 1 and 3
// of 2.
TEST(Thickness, OfABarByHand) {
  const auto result = test::measured("thickness", *blank({5, 7}, test::header_with_scale(0.5)),
                                     test::mask({".......", ".#####.", ".#####.", ".#####.", "......."}));
  EXPECT_EQ(number(result, "inscribed_radius_max"), 2);
  EXPECT_DOUBLE_EQ(number(result, "inscribed_radius_mean"), (12 * 1 + 3 * 2) / 15.0);
  EXPECT_EQ(number(result, "inscribed_radius_median"), 1);
  EXPECT_EQ(number(result, "inscribed_radius_max_mm"), 1);
}

// Where the image cuts the bar its pixels are no nearer to the background: 1, 2, 1 down each column but the last.
TEST(Thickness, BeyondTheImageIsForeground) {
  const auto result = of("thickness", test::mask({"......", "#####.", "#####.", "#####.", "......"}));
  EXPECT_DOUBLE_EQ(number(result, "inscribed_radius_mean"), (10 * 1 + 1 * 1 + 4 * 2) / 15.0);
}

TEST(Thickness, AMaskThatFillsTheImageHasNone) {
  const auto result = of("thickness", Mask::full({4, 5}));
  EXPECT_TRUE(result.metrics.empty());
  EXPECT_EQ(result.reasons.at("inscribed_radius_max"), "The whole image is set: there is no background to measure to.");
}

// Two halves of a full image: each has the other as background. 2 columns: 2 and 1 away.
TEST(Thickness, AnotherRegionIsBackground) {
  const auto result = of("thickness", test::mask_of_regions({"1122", "1122"}));
  EXPECT_TRUE(result.metrics.empty());
  EXPECT_EQ(number(result, "ROI_1", "inscribed_radius_max"), 2);
  EXPECT_EQ(number(result, "ROI_2", "inscribed_radius_mean"), 1.5);
  EXPECT_EQ(number(result, "ROI_2", "inscribed_radius_median"), 1.5);
}

// One background pixel at the end of a row of 3001: distances 1 to 3000, too few pixels for a table of squares.
TEST(Thickness, OfALongLineInALongImage) {
  cv::Mat line(1, 3001, CV_8UC1, cv::Scalar(255));
  line.at<std::uint8_t>(0, 0) = 0;
  const auto result = of("thickness", Mask(line));
  EXPECT_EQ(number(result, "inscribed_radius_max"), 3000);
  EXPECT_NEAR(number(result, "inscribed_radius_mean"), 1500.5, 1e-9);
  EXPECT_EQ(number(result, "inscribed_radius_median"), 1500.5);
}

// ---- skeleton ----

TEST(SkeletonOperation, GivesLengthsAndCounts) {
  const Mask cross = test::mask({"..#..", "..#..", "#####", "..#..", "..#.."});
  const auto result = test::measured("skeleton", *blank({5, 5}, test::header_with_scale(0.5)), cross);
  EXPECT_EQ(result.metrics.dump(),
            R"({"skeleton_length":8.0,"skeleton_length_mm":4.0,"skeleton_branches":4,"skeleton_ends":4,)"
            R"("skeleton_junctions":1,"skeleton_pixels":9})");
}

TEST(SkeletonOperation, PrunesWhenAskedTo) {
  const Mask with_spur = test::mask({"....#....", "....#....", "#########"});
  EXPECT_EQ(number(of("skeleton", with_spur), "skeleton_ends"), 3);
  EXPECT_EQ(number(of("skeleton", with_spur, {{"prune", 2}}), "skeleton_ends"), 2);
  for (const double outside : {-1.0, 10001.0}) {
    EXPECT_FALSE(test::refusal([&] { static_cast<void>(of("skeleton", with_spur, {{"prune", outside}})); }).empty());
  }
}

// The spur is 2 px long: at 0.1 mm a pixel 0.2 mm, whose quotient by 0.1 is not exactly 2.
TEST(SkeletonOperation, TheLongestLineToPruneMayBeInMillimetres) {
  const Mask with_spur = test::mask({"....#....", "....#....", "#########"});
  const auto ends = [&](double prune) {
    return number(test::measured("skeleton", *blank({3, 9}, test::header_with_scale(0.1)), with_spur,
                                 {{"prune", prune}, {"unit", "mm"}}),
                  "skeleton_ends");
  };
  EXPECT_EQ(ends(0.2), 2);
  EXPECT_EQ(ends(0.19), 3);
  EXPECT_THAT(test::refusal([&] {
                static_cast<void>(of("skeleton", with_spur, {{"prune", 2}, {"unit", "mm"}}));
              }),
              testing::HasSubstr("declares no MillimetresPerPixel"));
}

TEST(SkeletonOperation, ThePictureShowsItInTheFullFrame) {
  const Mask mask = test::mask_of_regions({"......", ".111..", "......", "...222"});
  const auto result = of("skeleton", mask);
  const Image& picture = result.images.at("skeleton").picture;
  cv::Mat yellow;
  cv::inRange(picture.read_only(), cv::Scalar(255, 255, 0), cv::Scalar(255, 255, 0), yellow);
  EXPECT_EQ(Mask(yellow), mask);  // lines of one pixel are their own skeletons
  EXPECT_TRUE(of("skeleton", mask, {{"picture", false}}).images.empty());
}

// ---- neighbours ----

// Centroids at (0, 0), (3, 4) and (3, 0): distances 3 and 4 and 5. Pixels apart: the same, each is one pixel.
TEST(NeighboursOperation, OfThreePixelsByHand) {
  const Mask mask = test::mask_of_regions({"1..2", "....", "....", "....", "...3"});
  const auto result = test::measured("neighbours", *blank({5, 4}, test::header_with_scale(2)), mask, {{"radius", 4}});
  EXPECT_EQ(number(result, "ROI_1", "nearest_centroid_distance"), 3);
  EXPECT_EQ(number(result, "ROI_1", "nearest_centroid_distance_mm"), 6);
  EXPECT_EQ(number(result, "ROI_2", "nearest_centroid_distance"), 3);
  EXPECT_EQ(number(result, "ROI_3", "nearest_edge_distance"), 4);
  EXPECT_EQ(number(result, "ROI_1", "neighbours_within_radius"), 1);
  EXPECT_EQ(number(result, "ROI_2", "neighbours_within_radius"), 2);
  EXPECT_DOUBLE_EQ(number(result, "nearest_centroid_distance"), 10.0 / 3);
  EXPECT_DOUBLE_EQ(number(result, "neighbours_within_radius"), 4.0 / 3);
  // Expected of points at random: 1 / (2 sqrt(3 / 20)).
  EXPECT_DOUBLE_EQ(number(result, "clark_evans_index"), 10.0 / 3 * 2 * std::sqrt(3.0 / 20));
  EXPECT_EQ(result.regions.at("ROI_1").reasons.at("clark_evans_index"), "It is a number of all regions together.");
  const auto& rows = result.tables.at("nearest").rows;
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_THAT(rows[0], ElementsAre("ROI_1", "ROI_2", "ROI_2"));
  EXPECT_THAT(rows[2], ElementsAre("ROI_3", "ROI_2", "ROI_2"));
}

// 3, 4 and 5 pixels apart, which at 0.1 mm a pixel are 0.3, 0.4 and 0.5 mm.
TEST(NeighboursOperation, TheRadiusMayBeInMillimetres) {
  const Mask mask = test::mask_of_regions({"1..2", "....", "....", "....", "...3"});
  const auto within = [&](double radius) {
    return number(test::measured("neighbours", *blank({5, 4}, test::header_with_scale(0.1)), mask,
                                 {{"radius", radius}, {"unit", "mm"}}),
                  "ROI_1", "neighbours_within_radius");
  };
  EXPECT_EQ(within(0.29), 0);
  EXPECT_EQ(within(0.3), 1);
  EXPECT_EQ(within(0.5), 2);
}

TEST(NeighboursOperation, TheNearestEdgeNeedNotBelongToTheNearestCentroid) {
  // Region 1 is a pixel; region 2 a bar that ends beside it, its centroid 5.5 away; region 3 a pixel 4 away.
  const auto result =
      of("neighbours", test::mask_of_regions({"1.22222222", "..........", "..........", "..........", "3........."}));
  EXPECT_EQ(number(result, "ROI_1", "nearest_centroid_distance"), 4);
  EXPECT_EQ(number(result, "ROI_1", "nearest_edge_distance"), 2);
  EXPECT_THAT(result.tables.at("nearest").rows[0], ElementsAre("ROI_1", "ROI_3", "ROI_2"));
}

TEST(NeighboursOperation, RegionsThatTouchAreOneApartAndTheDensityIsThatOfTheGround) {
  const Mask bounds = test::mask({"####....", "####....", "........"});  // 8 pixels
  const Mask mask = test::mask_of_regions({"1122....", "1122....", "........"}).with_bounds(bounds);
  const auto result = of("neighbours", mask);
  EXPECT_EQ(number(result, "nearest_edge_distance"), 1);
  EXPECT_DOUBLE_EQ(number(result, "clark_evans_index"), 2 * 2 * std::sqrt(2.0 / 8));
}

TEST(NeighboursOperation, ARegionWithoutPixelsIsNobodysNeighbour) {
  const auto result = of("neighbours", test::mask_of_regions({"1...3"}, 4));
  EXPECT_EQ(number(result, "ROI_1", "nearest_centroid_distance"), 4);
  EXPECT_EQ(result.regions.at("ROI_2").reasons.at("nearest_edge_distance"), "The region has no pixel.");
  EXPECT_EQ(number(result, "clark_evans_index"), 4 * 2 * std::sqrt(2.0 / 5));
}

TEST(NeighboursOperation, ASingleRegionHasNobodyToCompareWith) {
  const auto result = of("neighbours", test::mask_of_regions({"11..."}));
  EXPECT_EQ(result.reasons.at("nearest_centroid_distance"), "There is no other region.");
  EXPECT_EQ(result.regions.at("ROI_1").reasons.at("clark_evans_index"), "There is no other region.");
  EXPECT_EQ(number(result, "neighbours_within_radius"), 0);
  EXPECT_TRUE(result.tables.at("nearest").rows.empty());
  EXPECT_TRUE(get_result_operation("neighbours").needs_labels);
}

// A grid of 4 x 5 regions of 10 x 8 pixels that touch: nearest centroids 8 apart; a square grid of that many points on
// 40 x 40 pixels: index 8 * 2 sqrt(20 / 1600).
TEST(NeighboursOperation, OfAGridOfRegions) {
  const auto result = of("neighbours", test::mask_of_grid(Mask::full({40, 40}), 4, 5));
  EXPECT_EQ(number(result, "nearest_centroid_distance"), 8);
  EXPECT_EQ(number(result, "nearest_edge_distance"), 1);
  EXPECT_DOUBLE_EQ(number(result, "clark_evans_index"), 16 * std::sqrt(20.0 / 1600));
}

TEST(NeighboursOperation, EdgesOfRandomRegionsAgreeWithALookAtEveryPairOfPixels) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    SCOPED_TRACE(seed);
    const Mask mask = test::mask_of_grid(test::random_mask(seed, 24, 30, seed % 2 == 0 ? 0.05 : 0.5), 3, 3);
    const auto result = of("neighbours", mask);
    const RegionSet regions(mask);
    std::vector<double> nearest(regions.regions().size(), 1e9);
    for (int y = 0; y < 24 * 30; ++y) {
      for (int other = 0; other < 24 * 30; ++other) {
        if (!mask.at(y / 30, y % 30) || !mask.at(other / 30, other % 30)) continue;
        const int a = regions.region_at(y / 30, y % 30);
        if (a == regions.region_at(other / 30, other % 30)) continue;
        double& best = nearest[static_cast<std::size_t>(a)];
        best = std::min(best, std::hypot(y / 30 - other / 30, y % 30 - other % 30));
      }
    }
    for (std::size_t k = 0; k < nearest.size(); ++k) {
      const Region& region = regions.regions()[k];
      if (region.area == 0) continue;
      EXPECT_NEAR(number(result, region.name, "nearest_edge_distance"), nearest[k], 1e-12);
    }
  }
}

}  // namespace
}  // namespace orvexa::model
