// area, perimeter, shape_factors, convex_hull, holes and region_count: operations on the mask alone.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "support/counting_event.h"
#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

using testing::ElementsAre;

std::shared_ptr<CaptureSet> blank(int height, int width, const std::shared_ptr<const CaptureHeader>& header = nullptr) {
  return test::capture("blank", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(height, width, 0)}}}}, header);
}

Mask rectangle_mask(Shape shape, cv::Rect rectangle) {
  cv::Mat pixels = cv::Mat::zeros(shape.height, shape.width, CV_8UC1);
  pixels(rectangle) = cv::Scalar(255);
  return Mask(std::move(pixels));
}

Mask disc_mask(int size, int radius) {
  cv::Mat pixels = cv::Mat::zeros(size, size, CV_8UC1);
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      const int dx = x - size / 2;
      const int dy = y - size / 2;
      if (dx * dx + dy * dy <= radius * radius) pixels.at<std::uint8_t>(y, x) = 255;
    }
  }
  return Mask(std::move(pixels));
}

std::vector<std::string> keys(const Value& map) {
  std::vector<std::string> names;
  for (const auto& [name, value] : map.items()) names.push_back(name);
  return names;
}

// 40 x 60 = 2400 pixels of 100 x 200 = 20000; at 0.5 mm a pixel 2400 * 0.25 = 600 mm2.
TEST(Area, CountsPixelsAndGivesFractionsAndSquareMillimetres) {
  const auto result = test::measured("area", *blank(100, 200, test::header_with_scale(0.5)),
                                     rectangle_mask({100, 200}, {10, 10, 60, 40}));
  EXPECT_EQ(result.metrics.at("area"), 2400);
  EXPECT_TRUE(result.metrics.at("area").is_number_integer());
  EXPECT_DOUBLE_EQ(result.metrics.at("area_mm2").get<double>(), 600);
  EXPECT_DOUBLE_EQ(result.metrics.at("area_fraction").get<double>(), 0.12);
  EXPECT_DOUBLE_EQ(result.metrics.at("area_fraction_of_roi").get<double>(), 0.12);
  EXPECT_EQ(result.units.at("area"), "px");
  EXPECT_EQ(result.units.at("area_mm2"), "mm²");
  EXPECT_EQ(keys(result.metrics), keys(result.units));
}

TEST(Area, WithoutADeclaredScaleThereAreNoSquareMillimetres) {
  const auto result = test::measured("area", *blank(10, 10));
  EXPECT_FALSE(result.metrics.contains("area_mm2"));
  EXPECT_FALSE(result.reasons.contains("area_mm2"));
  EXPECT_EQ(result.metrics.at("area"), 100);
}

TEST(Area, TheRegionOfInterestIsWhatItsStepsLeft) {
  const Mask bounds = rectangle_mask({10, 10}, {0, 0, 5, 4});  // 20 pixels
  const Mask mask = rectangle_mask({10, 10}, {0, 0, 5, 1}).with_bounds(bounds);
  const auto result = test::measured("area", *blank(10, 10), mask);
  EXPECT_EQ(result.metrics.at("area_fraction"), 0.05);
  EXPECT_EQ(result.metrics.at("area_fraction_of_roi"), 0.25);
}

TEST(Area, AnEmptyMaskHasAreaZeroAndNothingElse) {
  const Mask nothing = Mask::empty({10, 10}).with_bounds(Mask::empty({10, 10}));
  const auto result = test::measured("area", *blank(10, 10, test::header_with_scale(1)), nothing);
  EXPECT_THAT(keys(result.metrics), ElementsAre("area"));
  EXPECT_EQ(result.metrics.at("area"), 0);
  EXPECT_THAT(keys(result.reasons), ElementsAre("area_mm2", "area_fraction", "area_fraction_of_roi"));
  EXPECT_EQ(result.reasons.at("area_fraction"), "The mask has no pixel.");
  EXPECT_EQ(result.regions.at("ROI_1").metrics.at("area"), 0);
}

TEST(Area, RegionsAddUpToTheWholeWhereTheyCoverIt) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    const Mask mask = test::mask_of_grid(test::random_mask(seed, 40, 50, 0.3), 4, 5);
    const auto result = test::measured("area", *blank(40, 50), mask);
    std::int64_t sum = 0;
    for (const auto& [name, region] : result.regions) sum += region.metrics.at("area").get<std::int64_t>();
    EXPECT_EQ(sum, result.metrics.at("area").get<std::int64_t>()) << "seed " << seed;
    EXPECT_EQ(result.regions.size(), 20u);
  }
}

// python3-skimage on the disc of radius 50: perimeter_crofton(directions=4) 315.262, perimeter 329.706.
TEST(Perimeter, OfADiscAgreesWithAnIndependentLibrary) {
  const auto result = test::measured("perimeter", *blank(121, 121, test::header_with_scale(0.1)), disc_mask(121, 50),
                                     {{"chain", true}});
  EXPECT_NEAR(result.metrics.at("perimeter").get<double>(), 315.262052576367, 1e-9);
  EXPECT_NEAR(result.metrics.at("perimeter_chain").get<double>(), 329.7056274847714, 1e-9);
  EXPECT_NEAR(result.metrics.at("perimeter_mm").get<double>(), 31.5262052576367, 1e-9);
  EXPECT_NEAR(result.metrics.at("perimeter_chain_mm").get<double>(), 32.97056274847714, 1e-9);
}

TEST(Perimeter, TheChainIsGivenOnlyWhenAskedFor) {
  const auto result = test::measured("perimeter", *blank(9, 9), Mask::full({9, 9}));
  EXPECT_THAT(keys(result.metrics), ElementsAre("perimeter"));
}

// One pixel: 1 + 1 lines straight and 1 + 1 diagonal: pi / 4 (2 + sqrt 2).
TEST(Perimeter, EachRegionHasItsOwnAndTheWholeIsOneSet) {
  const Mask mask = test::mask_of_regions({"1.22", "....", "3.44"}, 5);
  const auto result = test::measured("perimeter", *blank(3, 4), mask);
  const double one = std::numbers::pi / 4 * (2 + std::numbers::sqrt2);
  const double two = std::numbers::pi / 4 * (3 + 2 * std::numbers::sqrt2);  // 1 + 2 straight, 2 + 2 diagonal lines
  EXPECT_NEAR(result.regions.at("ROI_1").metrics.at("perimeter").get<double>(), one, 1e-12);
  EXPECT_NEAR(result.regions.at("ROI_2").metrics.at("perimeter").get<double>(), two, 1e-12);
  EXPECT_NEAR(result.metrics.at("perimeter").get<double>(), 2 * one + 2 * two, 1e-12);
  EXPECT_TRUE(result.regions.at("ROI_5").metrics.empty());
  EXPECT_EQ(result.regions.at("ROI_5").reasons.at("perimeter"), "The region has no pixel.");
}

TEST(ShapeFactors, OfADiscAreThoseOfADisc) {
  const auto result = test::measured("shape_factors", *blank(121, 121), disc_mask(121, 50));
  // A = 7845, P = 315.262 (Crofton), hull perimeter 317.389, greatest and least Feret diameter 101.400 and 100.409.
  EXPECT_NEAR(result.metrics.at("circularity").get<double>(), 4 * std::numbers::pi * 7845 / (315.26205 * 315.26205),
              1e-6);
  EXPECT_NEAR(result.metrics.at("compactness").get<double>(), 315.26205 * 315.26205 / (4 * std::numbers::pi * 7845),
              1e-6);
  EXPECT_NEAR(result.metrics.at("roundness").get<double>(), 4 * 7845 / (std::numbers::pi * 101.400197 * 101.400197),
              1e-6);
  EXPECT_NEAR(result.metrics.at("aspect").get<double>(), 100.409163 / 101.400197, 1e-7);
  EXPECT_NEAR(result.metrics.at("convexity").get<double>(), 317.389130 / 315.262053, 1e-7);
  EXPECT_EQ(result.metrics.at("small"), false);
}

// Feret diameters of 40 x 60: the diagonal sqrt(5200) = 72.111 and the side 40; hull perimeter 200.
TEST(ShapeFactors, OfARectangleAreThoseOfItsSides) {
  const auto result = test::measured("shape_factors", *blank(100, 100), rectangle_mask({100, 100}, {3, 5, 60, 40}));
  EXPECT_NEAR(result.metrics.at("aspect").get<double>(), 40 / std::sqrt(5200.0), 1e-12);
  EXPECT_NEAR(result.metrics.at("roundness").get<double>(), 4 * 2400 / (std::numbers::pi * 5200), 1e-12);
  const double perimeter = std::numbers::pi / 4 * (100 + 2 * 99 / std::numbers::sqrt2);
  EXPECT_NEAR(result.metrics.at("convexity").get<double>(), 200 / perimeter, 1e-12);
}

TEST(ShapeFactors, AShapeUnderThirtyPixelsIsFlaggedAndNothingIsClamped) {
  const auto is_small = [](int width) {
    return test::measured("shape_factors", *blank(9, 40), rectangle_mask({9, 40}, {1, 1, width, 1}))
        .metrics.at("small");
  };
  EXPECT_EQ(is_small(29), true);
  EXPECT_EQ(is_small(30), false);
  // One pixel: 4 pi / 2.6815^2 = 1.7476.
  const auto one = test::measured("shape_factors", *blank(9, 40), rectangle_mask({9, 40}, {1, 1, 1, 1}));
  EXPECT_NEAR(one.metrics.at("circularity").get<double>(), 1.7476, 5e-5);
}

TEST(ShapeFactors, AnEmptyMaskHasNone) {
  const auto result = test::measured("shape_factors", *blank(5, 5), Mask::empty({5, 5}));
  EXPECT_TRUE(result.metrics.empty());
  EXPECT_EQ(keys(result.reasons), keys(result.units));
}

// scipy.spatial.ConvexHull of the pixels' corners: 7989 for the disc of 7845 pixels.
TEST(ConvexHull, OfADiscAgreesWithAnIndependentLibrary) {
  const auto result = test::measured("convex_hull", *blank(121, 121, test::header_with_scale(0.5)), disc_mask(121, 50));
  EXPECT_EQ(result.metrics.at("hull_area"), 7989.0);
  EXPECT_NEAR(result.metrics.at("hull_area_mm2").get<double>(), 7989 * 0.25, 1e-9);
  EXPECT_NEAR(result.metrics.at("solidity").get<double>(), 0.9819752159218926, 1e-12);
  EXPECT_EQ(result.units.at("hull_area"), "px");
  EXPECT_EQ(result.units.at("hull_area_mm2"), "mm²");
  EXPECT_EQ(result.units.at("solidity"), "");
}

TEST(ConvexHull, AConvexShapeOfPixelsIsItsOwnHull) {
  const auto result = test::measured("convex_hull", *blank(50, 50), rectangle_mask({50, 50}, {3, 5, 30, 20}));
  EXPECT_EQ(result.metrics.at("hull_area"), 600.0);
  EXPECT_EQ(result.metrics.at("solidity"), 1.0);
  EXPECT_FALSE(result.metrics.contains("hull_area_mm2"));
}

// An L of three pixels: the square of 4 without the triangle at its inner corner, 4 - 1 / 2.
TEST(ConvexHull, OfTheWholeSpansTheGapsBetweenItsRegions) {
  const Mask mask = test::mask_of_regions({"11...2", "1....2"}, 3);
  const auto result = test::measured("convex_hull", *blank(2, 6), mask);
  EXPECT_EQ(result.regions.at("ROI_1").metrics.at("hull_area"), 3.5);
  EXPECT_NEAR(result.regions.at("ROI_1").metrics.at("solidity").get<double>(), 3 / 3.5, 1e-15);
  EXPECT_EQ(result.regions.at("ROI_2").metrics.at("hull_area"), 2.0);
  EXPECT_EQ(result.metrics.at("hull_area"), 12.0);  // the frame of 6 x 2
  EXPECT_NEAR(result.metrics.at("solidity").get<double>(), 5 / 12.0, 1e-15);
  EXPECT_TRUE(result.regions.at("ROI_3").metrics.empty());
  EXPECT_EQ(result.regions.at("ROI_3").reasons.at("solidity"), "The region has no pixel.");
}

// python3-skimage: euler_number(connectivity=2) 2, label(connectivity=2) 4 parts; scipy.ndimage.binary_fill_holes adds
// 10 pixels in 2 places. By hand: around the dot in the frame 9 - 1 = 8 pixels, in the ring at the right 2.
TEST(Holes, AreCountedAndMeasuredLikeIndependentLibrariesDo) {
  const Mask mask = test::mask(
      {"#####....##", "#...#....##", "#.#.#......", "#...#..###.", "#####..#.#.", "......##.#.", ".......####"});
  const auto result = test::measured("holes", *blank(7, 11, test::header_with_scale(0.5)), mask);
  EXPECT_EQ(result.metrics.at("euler_number"), 2);
  EXPECT_EQ(result.metrics.at("hole_count"), 2);
  EXPECT_EQ(result.metrics.at("hole_area"), 10);
  EXPECT_EQ(result.metrics.at("hole_area_mm2"), 2.5);
}

// Through a gap at a corner the background would get out if it were 8-connected; the mask holds together there.
TEST(Holes, AGapAtACornerDoesNotOpenAHole) {
  const auto result = test::measured("holes", *blank(3, 3), test::mask({".##", "#.#", "###"}));
  EXPECT_EQ(result.metrics.at("hole_count"), 1);
  EXPECT_EQ(result.metrics.at("euler_number"), 0);
  const auto open = test::measured("holes", *blank(3, 3), test::mask({"###", "#..", "###"}));
  EXPECT_EQ(open.metrics.at("hole_count"), 0);
  EXPECT_EQ(open.metrics.at("hole_area"), 0);
  EXPECT_EQ(open.metrics.at("euler_number"), 1);
}

TEST(Holes, WhatAnotherRegionFillsIsAHoleOfTheOneAroundIt) {
  const Mask mask = test::mask_of_regions({"111", "121", "111"}, 2);
  const auto result = test::measured("holes", *blank(3, 3), mask);
  EXPECT_EQ(result.regions.at("ROI_1").metrics.at("hole_area"), 1);
  EXPECT_EQ(result.regions.at("ROI_2").metrics.at("hole_count"), 0);
  EXPECT_EQ(result.metrics.at("hole_count"), 0);
}

TEST(RegionCount, CountsConnectedPartsAndListsTheirAreas) {
  const Mask mask = test::mask({"##...#", "##....", "..#...", "......", "#....#"});
  const auto result = test::measured("region_count", *blank(5, 6, test::header_with_scale(2)), mask);
  EXPECT_EQ(result.metrics.at("region_count"), 4);  // the diagonal touch joins the first two
  const ResultTable& areas = result.tables.at("areas");
  EXPECT_THAT(areas.columns, ElementsAre("number", "area", "x", "y", "width", "height", "area_mm2"));
  ASSERT_EQ(areas.rows.size(), 4u);
  EXPECT_EQ(areas.rows[0], (std::vector<Value>{1, 5, 0, 0, 3, 3, 20.0}));
  EXPECT_EQ(areas.rows[1], (std::vector<Value>{2, 1, 5, 0, 1, 1, 4.0}));
  EXPECT_EQ(areas.rows[3], (std::vector<Value>{4, 1, 5, 4, 1, 1, 4.0}));
}

TEST(RegionCount, SmallPartsAreNotCounted) {
  const Mask mask = test::mask({"##...#", "##....", "..#...", "......", "#....#"});
  EXPECT_EQ(test::measured("region_count", *blank(5, 6), mask, {{"min_area", 5}}).metrics.at("region_count"), 1);
  EXPECT_EQ(test::measured("region_count", *blank(5, 6), mask, {{"min_area", 6}}).metrics.at("region_count"), 0);
}

TEST(RegionCount, ARegionCountsItsOwnPartsInTheFullFrame) {
  const auto result =
      test::measured("region_count", *blank(3, 6), test::mask_of_regions({"......", ".1.122", ".1.1.."}, 3));
  EXPECT_EQ(result.metrics.at("region_count"), 2);
  EXPECT_EQ(result.regions.at("ROI_1").metrics.at("region_count"), 2);
  EXPECT_EQ(result.regions.at("ROI_2").metrics.at("region_count"), 1);
  EXPECT_EQ(result.regions.at("ROI_3").reasons.at("region_count"), "The region has no pixel.");
  EXPECT_EQ(result.tables.at("areas").rows[0], (std::vector<Value>{1, 2, 1, 1, 1, 2}));
}

TEST(RegionCount, CountsTheRegionsThatAStepMadeWhereTheyTouch) {
  const Mask touching = test::mask_of_regions({"1122.", "11223", "....."}, 4);
  const auto result = test::measured("region_count", *blank(3, 5), touching);
  EXPECT_EQ(result.metrics.at("region_count"), 1);
  EXPECT_EQ(result.metrics.at("labelled_count"), 3) << "the fourth has no pixel";
  EXPECT_TRUE(result.regions.at("ROI_1").reasons.contains("labelled_count"));
  EXPECT_EQ(test::measured("region_count", *blank(3, 5), touching, {{"min_area", 2}}).metrics.at("labelled_count"), 2);
  const auto unlabelled = test::measured("region_count", *blank(3, 5), touching.with_labels(nullptr));
  EXPECT_FALSE(unlabelled.metrics.contains("labelled_count") || unlabelled.reasons.contains("labelled_count"));
}

// ---- One huge region ----

/// 2,000 x 2,000 pixels are 16 stripes. The regions are found, the one region is cut out, and its picture is looked at:
/// at least one look a stripe each time, whatever the number of threads.
TEST(ShapesOfOneLargeRegion, AreMeasuredWithALookAtTheFlagInEveryStripe) {
  const auto capture = blank(2000, 2000)->apply_mask(test::mask_of_grid(Mask::full({2000, 2000}), 1, 1));
  const std::vector<std::pair<std::string, Value>> operations{{"perimeter", {{"chain", true}}},
                                                              {"shape_factors", Value::object()},
                                                              {"region_count", Value::object()},
                                                              {"convex_hull", Value::object()},
                                                              {"holes", Value::object()}};
  for (const auto& [key, params] : operations) {
    const test::CountingEvent event;
    const auto operation = get_result_operation(key)();
    operation->set_context({.cancel_event = &event, .progress = {}});
    static_cast<void>(operation->run({.source_capture = *capture, .params = params}));
    EXPECT_GE(event.looks(), 4 * 16) << key << ": the whole mask is measured too";
  }
}

TEST(ShapesOfOneLargeRegion, EndAtTheNextLookOnceCancelled) {
  const test::ThreadCount one(1);
  const auto capture = blank(2000, 2000)->apply_mask(test::mask_of_grid(Mask::full({2000, 2000}), 1, 1));
  for (const char* key : {"perimeter", "shape_factors", "region_count", "convex_hull", "holes"}) {
    for (const int looks : {1, 10, 20, 40, 60}) {
      const test::CountingEvent event(looks);
      const auto operation = get_result_operation(key)();
      operation->set_context({.cancel_event = &event, .progress = {}});
      EXPECT_THROW(static_cast<void>(operation->run({.source_capture = *capture})), CancelledError) << key;
      EXPECT_EQ(event.looks(), looks + 1) << key;
    }
  }
}

}  // namespace
}  // namespace orvexa::model
