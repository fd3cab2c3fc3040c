#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "orvexa/model/measures/region_set.h"
#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using test::mask;
using testing::ElementsAre;

/// Regions of 1, 2 and 3 pixels, in this order.
Mask three_regions() {
  return mask({"#.##.###"});
}

std::string kept(const Value& params) {
  return drawing(applied("keep_regions", three_regions(), params)).front();
}

TEST(KeepRegions, KeepsAllByDefault) {
  EXPECT_EQ(kept({}), "#.##.###");
}

TEST(KeepRegions, KeepsAreasBetweenLimits) {
  EXPECT_EQ(kept({{"min", 2}}), "..##.###");
  EXPECT_EQ(kept({{"max", 2}}), "#.##....");
  EXPECT_EQ(kept({{"min", 2}, {"max", 2}}), "..##....");
}

TEST(KeepRegions, KeepsTheLargestOrSmallestOfThem) {
  EXPECT_EQ(kept({{"n", 1}}), ".....###");
  EXPECT_EQ(kept({{"n", 2}}), "..##.###");
  EXPECT_EQ(kept({{"n", 1}, {"order", "smallest"}}), "#.......");
  EXPECT_EQ(kept({{"n", 1}, {"max", 2}}), "..##....");
  EXPECT_EQ(kept({{"n", 9}}), "#.##.###");
}

TEST(KeepRegions, PrefersTheSmallerLabelOfEqualOnes) {
  const Mask equal = mask({"#.#.#", ".....", "#.#.#"});
  EXPECT_THAT(drawing(applied("keep_regions", equal, {{"n", 2}})), ElementsAre("#.#..", ".....", "....."));
  EXPECT_THAT(drawing(applied("keep_regions", equal, {{"n", 2}, {"order", "smallest"}})),
              ElementsAre("#.#..", ".....", "....."));
}

TEST(KeepRegions, MeasuresAreasInSquareMillimetres) {
  auto header = std::make_shared<CaptureHeader>();
  header->millimetres_per_pixel = 0.1;
  const auto capture =
      test::capture("c", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(1, 8, 0)}}}}, std::move(header));
  EXPECT_THAT(drawing(applied("keep_regions", *capture, three_regions(), {{"min", 0.03}, {"unit", "mm"}})),
              ElementsAre(".....###"));
}

/// A disc of radius 6, a square of 12 x 12, a bar of 20 x 3 and an L of 3 x 3, each in its quarter.
Mask shapes() {
  cv::Mat pixels(40, 60, CV_8UC1, cv::Scalar(0));
  for (int y = -6; y <= 6; ++y) {
    for (int x = -6; x <= 6; ++x) {
      if (x * x + y * y <= 36) pixels.at<std::uint8_t>(8 + y, 8 + x) = 255;
    }
  }
  pixels(cv::Rect(30, 2, 12, 12)).setTo(255);
  pixels(cv::Rect(2, 30, 20, 3)).setTo(255);
  pixels(cv::Rect(30, 30, 1, 3)).setTo(255);
  pixels(cv::Rect(30, 32, 3, 1)).setTo(255);
  return Mask(pixels);
}

struct MeasureCase {
  const char* by;
  double disc;
  double square;
  double bar;
  double angle;
};

// circularity with skimage.measure.perimeter_crofton(directions=4): disc 113 px, perimeter 39.3026; square 44.3961; bar
// 42.5000. eccentricity by regionprops: L 0.8485, bar 0.98992. solidity on pixel corners by hand: L 5 / 7 (a square of
// 9 less the triangle (1, 0) (3, 0) (3, 2) of 2); the disc is not asked for its.
class Measures : public testing::TestWithParam<MeasureCase> {};

TEST_P(Measures, DecideWithinATenThousandth) {
  const MeasureCase& c = GetParam();
  const Mask all = shapes();
  const std::vector<std::pair<double, std::pair<int, int>>> expected{
      {c.disc, {8, 8}}, {c.square, {8, 36}}, {c.bar, {31, 10}}, {c.angle, {31, 30}}};
  for (const auto& [value, pixel] : expected) {
    if (value < 0) continue;
    const auto is_kept = [&, at = pixel](double min, double max) {
      return applied("keep_regions", all, {{"by", c.by}, {"min", min}, {"max", max}}).at(at.first, at.second);
    };
    EXPECT_TRUE(is_kept(value - 1e-4, value + 1e-4)) << value;
    EXPECT_FALSE(is_kept(value + 1e-4, 1e6)) << value;
    EXPECT_FALSE(is_kept(-100, value - 1e-4)) << value;
  }
}

INSTANTIATE_TEST_SUITE_P(KeepRegions, Measures,
                         testing::Values(MeasureCase{"area", 113, 144, 60, 5},
                                         MeasureCase{"circularity", 0.919275, 0.918083, 0.417429, -1},
                                         MeasureCase{"eccentricity", 0, 0, 0.989924, 0.848528},
                                         MeasureCase{"solidity", -1, 1, 1, 5.0 / 7}),
                         [](const auto& tested) { return std::string(tested.param.by); });

TEST(KeepRegions, MeasuresTheDistanceFromTheCentroidToAPoint) {
  // 8 columns; the point (0.5, 0.5) is at 3.5 columns and 0 rows from the first pixel's centre. Centroids: 0, 2.5, 6.
  EXPECT_EQ(kept({{"by", "distance_to_point"}, {"max", 1}}), "..##....");
  EXPECT_EQ(kept({{"by", "distance_to_point"}, {"min", 2.5}}), "#....###");
  EXPECT_EQ(kept({{"by", "distance_to_point"}, {"point", {1, 0.5}}, {"n", 1}, {"order", "smallest"}}), ".....###");
}

TEST(KeepRegions, MeasuresTheMeanOfABand) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  const auto capture =
      test::capture("c", {{"MSP", {{"NIR", test::image<float>({{nan, 9, 0.2f, 0.4f, 9, 0.8f, nan, 0.6f}})}}}});
  // Means: undefined, 0.3, 0.7 without the pixel that is no number.
  const auto kept_by_mean = [&](Value params) {
    params["by"] = "band_mean";
    return drawing(applied("keep_regions", *capture, three_regions(), params)).front();
  };
  EXPECT_EQ(kept_by_mean(Value::object()), "..##.###");
  EXPECT_EQ(kept_by_mean({{"min", 0.5}}), ".....###");
  EXPECT_EQ(kept_by_mean({{"min", 0.29}, {"max", 0.31}}), "..##....");
}

TEST(KeepRegions, MakesTheKeptOnesRegionsInRasterOrder) {
  const Mask result = applied("keep_regions", three_regions(), {{"min", 2}, {"make_regions", true}});
  ASSERT_NE(result.labels(), nullptr);
  EXPECT_THAT(result.labels()->names, ElementsAre("ROI_1", "ROI_2"));
  EXPECT_EQ(result.labels()->image.at<std::int32_t>(0, 2), 1);
  EXPECT_EQ(result.labels()->image.at<std::int32_t>(0, 7), 2);
  EXPECT_EQ(result.labels()->image.at<std::int32_t>(0, 0), 0);
  EXPECT_EQ(applied("keep_regions", three_regions(), {{"min", 2}}).labels(), nullptr);
}

TEST(KeepRegions, GivenAStepThatGrowsTheMask_ThenTheRegionsKeepTheirPixels) {
  // Of "#.##.###" the right two are kept; grown by 1 the mask has 7 of 8 pixels, the regions still 2 and 3.
  const Mask kept_ones = applied("keep_regions", three_regions(), {{"min", 2}, {"make_regions", true}});
  const Mask grown = applied("dilate", kept_ones);
  EXPECT_EQ(grown.count(), 7);
  const RegionSet regions(grown);
  ASSERT_EQ(regions.regions().size(), 2u);
  EXPECT_EQ(regions.regions()[0].area, 2);
  EXPECT_EQ(regions.regions()[1].area, 3);
}

TEST(KeepRegions, SaysWhenNoRegionIsKept) {
  EXPECT_EQ(test::note_of("keep_regions", *test::blank_capture({1, 8}), three_regions(), {{"min", 4}}),
            "no_region: none of the mask's 3 regions is kept");
  EXPECT_EQ(applied("keep_regions", Mask::empty({1, 8}), {{"make_regions", true}}).labels()->names.size(), 0u);
}

// Region 1 has 3 pixels in two pieces, region 2 has 2, region 3 lost all of its own; '#' belongs to none.
Mask drawn_regions() {
  return test::mask_of_regions({"11.22.1.#"}, 3);
}

TEST(KeepRegions, MeasuresRegionsOfAnEarlierStepWhenAsked) {
  const auto kept_of = [](Value params) {
    params["of"] = "regions";
    return drawing(applied("keep_regions", drawn_regions(), params)).front();
  };
  EXPECT_EQ(kept_of(Value::object()), "##.##.#..") << "what is in no region is not kept";
  EXPECT_EQ(kept_of({{"n", 1}}), "##....#..");
  EXPECT_EQ(kept_of({{"max", 2}}), "...##....");
  EXPECT_EQ(kept_of({{"n", 1}, {"order", "smallest"}}), "...##....") << "a region without pixels has no area";
  // The hull of region 1 is its box of 7 pixels, of which it has 3.
  EXPECT_EQ(kept_of({{"by", "solidity"}, {"max", 0.43}}), "##....#..");
  EXPECT_EQ(kept_of({{"by", "eccentricity"}, {"min", 0.5}}), "##.##.#..");
  // Centroids at columns (0 + 1 + 6) / 3 = 2.33 and 3.5; the point is at column 4.
  EXPECT_EQ(kept_of({{"by", "distance_to_point"}, {"max", 0.6}}), "...##....");
}

TEST(KeepRegions, LeavesNamesOfRegionsOrNumbersThemAnew) {
  const Value second{{"of", "regions"}, {"max", 2}};
  const Mask narrowed = applied("keep_regions", drawn_regions(), second);
  EXPECT_THAT(narrowed.labels()->names, ElementsAre("ROI_1", "ROI_2", "ROI_3"));
  EXPECT_EQ(RegionSet(narrowed).regions()[0].area, 0);
  EXPECT_EQ(RegionSet(narrowed).regions()[1].area, 2);
  Value anew = second;
  anew["make_regions"] = true;
  const Mask numbered = applied("keep_regions", drawn_regions(), anew);
  EXPECT_THAT(numbered.labels()->names, ElementsAre("ROI_1"));
  EXPECT_EQ(RegionSet(numbered).regions()[0].area, 2);
}

TEST(KeepRegions, SaysWhenThereAreNoRegionsYet) {
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(kept({{"of", "regions"}}));
            }),
            "Keep regions: there are no regions yet: put a step that makes some before it, or choose components.");
}

// Two discs that touch are one part of the mask and two regions once they are split.
TEST(KeepRegions, FiltersWhatSplitTouchingFound) {
  cv::Mat pixels(40, 80, CV_8UC1, cv::Scalar(0));
  for (int y = 0; y < 40; ++y) {
    for (int x = 0; x < 80; ++x) {
      const bool large = (x - 20) * (x - 20) + (y - 20) * (y - 20) <= 15 * 15;
      const bool small = (x - 43) * (x - 43) + (y - 20) * (y - 20) <= 10 * 10;
      if (large || small) pixels.at<std::uint8_t>(y, x) = 255;
    }
  }
  const Mask divided = applied("split_touching", Mask(pixels));
  const Mask largest = applied("keep_regions", divided, {{"of", "regions"}, {"n", 1}, {"make_regions", true}});
  EXPECT_TRUE(largest.at(20, 20));
  EXPECT_FALSE(largest.at(20, 43));
  EXPECT_THAT(largest.labels()->names, ElementsAre("ROI_1"));
}

TEST(KeepRegions, DrawsRimsOfKeptRegionsGreenAndOfOthersRed) {
  const auto picture = test::overlay_of("keep_regions", three_regions(), {{"n", 1}});
  ASSERT_TRUE(picture);
  const auto pixel = [&](int x) { return picture->read_only().at<cv::Vec3b>(0, x); };
  EXPECT_EQ(pixel(0), cv::Vec3b(230, 30, 30));
  EXPECT_EQ(pixel(1), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(pixel(5), cv::Vec3b(0, 220, 0));
}

TEST(KeepRegions, SaysWhatACaptureLacks) {
  const auto capture = test::blank_capture({1, 8});
  const auto& info = get_mask_operation("keep_regions");
  const auto lacks = [&](const Value& params) {
    return test::refusal([&] { info.check_capture(*capture, info()->validate_params(params)); });
  };
  EXPECT_EQ(lacks({}), "");
  EXPECT_EQ(lacks({{"by", "solidity"}}), "") << "it has no unit";
  for (const char* by : {"area", "distance_to_point"}) {
    const Value params{{"by", by}, {"unit", "mm"}};
    EXPECT_EQ(lacks(params), test::refusal([&] { static_cast<void>(kept(params)); }));
    EXPECT_NE(lacks(params), "");
  }
  const Value params{{"by", "band_mean"}, {"band", "MSP.NIR"}};
  EXPECT_EQ(lacks(params), test::refusal([&] { static_cast<void>(kept(params)); }));
  EXPECT_NE(lacks(params), "");
}

TEST(KeepRegions, RefusesLimitsInTheWrongOrder) {
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(kept({{"min", 3}, {"max", 2}}));
            }),
            "keep_regions: parameter \"min\" is 3.0, but it must not be above \"max\", which is 2.0.");
}

TEST(KeepRegions, RefusesWhatTheChosenMeasureDoesNotLookAt) {
  const auto refused = [](const Value& params) { return test::refusal([&] { static_cast<void>(kept(params)); }); };
  EXPECT_EQ(refused({{"by", "solidity"}, {"unit", "mm"}}),
            "keep_regions: parameter \"unit\" is \"mm\", but parameter \"by\" is \"solidity\"; choose \"area\" or "
            "\"distance_to_point\" to use it.");
  EXPECT_EQ(refused({{"point", {0.25, 0.5}}}),
            "keep_regions: parameter \"point\" is [0.25, 0.5], but parameter \"by\" is \"area\"; choose "
            "\"distance_to_point\" to use it.");
  EXPECT_EQ(
      refused({{"by", "area"}, {"band", "GRY.GRY"}}),
      "keep_regions: parameter \"band\" is \"GRY.GRY\", but parameter \"by\" is \"area\"; choose \"band_mean\" to "
      "use it.");
  EXPECT_EQ(refused({{"order", "smallest"}}),
            "keep_regions: parameter \"order\" is \"smallest\", but parameter \"n\" is 0, so all regions that fit are "
            "kept.");
  EXPECT_EQ(refused({{"order", "smallest"}, {"n", 1}}), "");
}

}  // namespace
}  // namespace orvexa::model
