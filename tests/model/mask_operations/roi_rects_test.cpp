#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orvexa/model/measures/region_set.h"
#include "support/counting_event.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::blank_capture;
using test::drawing;
using testing::ElementsAre;

Value rects(const std::vector<std::vector<double>>& list) {
  return Value{{"rects", list}};
}

std::vector<std::string> region_names(const Mask& mask) {
  return mask.labels() == nullptr ? std::vector<std::string>{} : mask.labels()->names;
}

TEST(RoiRects, MakeEachRectangleARegionInDrawingOrder) {
  const auto capture = blank_capture({2, 8});
  const Mask mask = applied("roi_rects", *capture, {}, rects({{0.75, 0.5, 0.25, 1}, {0.125, 0.25, 0.25, 0.5}}));
  EXPECT_THAT(drawing(mask), ElementsAre("##...##.", ".....##."));
  EXPECT_THAT(region_names(mask), ElementsAre("ROI_1", "ROI_2"));
  EXPECT_EQ(mask.labels()->image.at<std::int32_t>(0, 5), 1);
  EXPECT_EQ(mask.labels()->image.at<std::int32_t>(0, 0), 2);
  EXPECT_EQ(mask.labels()->image.at<std::int32_t>(1, 0), 0);
}

TEST(RoiRects, GiveAnOverlapToTheLaterRectangle) {
  const auto capture = blank_capture({1, 8});
  const Mask mask = applied("roi_rects", *capture, {}, rects({{0.375, 0.5, 0.75, 1}, {0.75, 0.5, 0.5, 1}}));
  const RegionSet regions(mask);
  ASSERT_EQ(regions.regions().size(), 2u);
  EXPECT_EQ(regions.regions()[0].area, 4);
  EXPECT_EQ(regions.regions()[1].area, 4);
}

TEST(RoiRects, KeepTheNameOfARectangleOutsideTheImageAndSaySo) {
  const auto capture = blank_capture({1, 4});
  const Value params = rects({{5, 5, 1, 1}, {0.5, 0.5, 1, 1}, {-5, 0, 0.1, 0.1}});
  EXPECT_THAT(region_names(applied("roi_rects", *capture, {}, params)), ElementsAre("ROI_1", "ROI_2", "ROI_3"));
  EXPECT_EQ(test::note_of("roi_rects", *capture, {}, params),
            "outside_image: no pixel of the image is covered by ROI_1, ROI_3");
}

TEST(RoiRects, GiveAnEmptyMaskForNoRectangleAndSaySo) {
  const auto capture = blank_capture({1, 4});
  EXPECT_EQ(applied("roi_rects", *capture, {}, rects({})), Mask::empty({1, 4}));
  EXPECT_EQ(test::note_of("roi_rects", *capture, {}, rects({})),
            "no_rectangle: the list of rectangles is empty, so the mask is empty");
}

TEST(RoiRects, AreNarrowedToTheIncomingMaskWithoutLosingARegion) {
  const auto capture = blank_capture({1, 8});
  const Mask mask =
      applied("roi_rects", *capture, test::mask({"..######"}), rects({{0.125, 0.5, 0.25, 1}, {0.5, 0.5, 0.25, 1}}));
  EXPECT_THAT(drawing(mask), ElementsAre("...##..."));
  const RegionSet regions(mask);
  ASSERT_EQ(regions.regions().size(), 2u);
  EXPECT_EQ(regions.regions()[0].area, 0);
  EXPECT_EQ(regions.regions()[1].area, 2);
}

TEST(RoiRects, KeepGrowingStepsInsideTheRectangles) {
  const auto capture = blank_capture({1, 8});
  const Mask rectangles = applied("roi_rects", *capture, {}, rects({{0.125, 0.5, 0.25, 1}, {0.5, 0.5, 0.25, 1}}));
  const Mask dot = rectangles & test::mask({"...#...."});
  EXPECT_THAT(drawing(applied("dilate", *capture, dot, {{"radius", 9}})), ElementsAre("##.##..."));
}

// 600 x 1,000 pixels are three stripes of 262 rows (2^18 / 1,000).
TEST(RoiRects, CoverTheRowsOfSeveralStripes) {
  const auto capture = blank_capture({600, 1000});
  const Mask mask = applied("roi_rects", *capture, {}, rects({{0.5, 0.5, 0.5, 0.8}, {0.25, 0.5, 0.2, 0.1}}));
  // Rows 60 to 539 and columns 250 to 749; then rows 270 to 329 and columns 150 to 349, of which 100 overlap.
  EXPECT_EQ(mask.count(), 480 * 500 + 60 * 100);
  const RegionSet regions(mask);
  EXPECT_EQ(regions.regions()[0].area, 480 * 500 - 60 * 100);
  EXPECT_EQ(regions.regions()[0].box, (PixelRect{250, 60, 750, 540}));
  EXPECT_EQ(regions.regions()[1].box, (PixelRect{150, 270, 350, 330}));
}

TEST(RoiRects, GivenManyLargeRectangles_ThenTheFlagIsLookedAtForEachInEveryStripe) {
  const auto capture = blank_capture({600, 1000});
  const test::CountingEvent event;
  const auto operation = get_mask_operation("roi_rects")();
  operation->set_context({.cancel_event = &event, .progress = {}});
  const Value params = rects(std::vector<std::vector<double>>(20, {0.5, 0.5, 1, 1}));
  EXPECT_TRUE(operation->apply({.image_stack = *capture, .params = params}));
  EXPECT_GE(event.looks(), 3 * 20);
}

TEST(RoiRects, ArePickedAsRectangles) {
  const MaskOperationInfo& info = get_mask_operation("roi_rects");
  EXPECT_TRUE(info._is_roi_operation);
  ASSERT_TRUE(info.parameters.at(0).interaction);
  EXPECT_EQ(info.parameters.at(0).interaction->mode, "rects");
}

TEST(RoiRects, GivenManyOutsideTheImage_ThenTheNoteHasTheirNumberAndTheFirstTen) {
  const auto capture = blank_capture({1, 4});
  EXPECT_EQ(
      test::note_of("roi_rects", *capture, {}, rects(std::vector<std::vector<double>>(10, {5, 5, 1, 1}))),
      "outside_image: no pixel of the image is covered by ROI_1, ROI_2, ROI_3, ROI_4, ROI_5, ROI_6, ROI_7, ROI_8, "
      "ROI_9, ROI_10");
  EXPECT_EQ(test::note_of("roi_rects", *capture, {}, rects(std::vector<std::vector<double>>(1200, {5, 5, 1, 1}))),
            "outside_image: no pixel of the image is covered by 1,200 regions: ROI_1, ROI_2, ROI_3, ROI_4, ROI_5, "
            "ROI_6, ROI_7, ROI_8, ROI_9, ROI_10 and 1,190 more");
}

}  // namespace
}  // namespace orvexa::model
