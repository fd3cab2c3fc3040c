#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orvexa/model/measures/region_set.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::blank_capture;
using test::drawing;
using testing::ElementsAre;

Value grid(int rows, int cols, double margin, const char* order = "row") {
  return {{"rows", rows}, {"cols", cols}, {"margin", margin}, {"order", order}};
}

/// The label of each pixel as a digit; '.' outside the mask.
std::vector<std::string> labels_of(const Mask& mask) {
  std::vector<std::string> rows = drawing(mask);
  for (std::size_t y = 0; y < rows.size(); ++y) {
    for (std::size_t x = 0; x < rows[y].size(); ++x) {
      const int label = mask.labels()->image.at<std::int32_t>(static_cast<int>(y), static_cast<int>(x));
      EXPECT_EQ(label > 0, rows[y][x] == '#');
      if (label > 0) rows[y][x] = static_cast<char>('0' + label);
    }
  }
  return rows;
}

TEST(RoiGrid, NumbersItsCellsRowByRowOrColumnByColumn) {
  const auto capture = blank_capture({2, 6});
  EXPECT_THAT(labels_of(applied("roi_grid", *capture, {}, grid(2, 3, 0))), ElementsAre("112233", "445566"));
  EXPECT_THAT(labels_of(applied("roi_grid", *capture, {}, grid(2, 3, 0, "column"))), ElementsAre("113355", "224466"));
}

// Cells of 10 pixels lose 0.2 of them on each side: columns 2 to 7 and 12 to 17.
TEST(RoiGrid, LeavesAMarginOfACellOnEachSideOfIt) {
  EXPECT_THAT(labels_of(applied("roi_grid", *blank_capture({1, 20}), {}, grid(1, 2, 0.2))),
              ElementsAre("..111111....222222.."));
  // With 0.4 a fifth is left, the 2 columns 4 and 5 of 10; of the single row's height 0.2, with its centre, is left
  // too.
  EXPECT_THAT(labels_of(applied("roi_grid", *blank_capture({1, 20}), {}, grid(1, 2, 0.4))),
              ElementsAre("....11........22...."));
}

// 7 columns by 3: cells end at 2.33 and 4.67; the centres 0.5, 1.5 | 2.5, 3.5, 4.5 | 5.5, 6.5.
TEST(RoiGrid, GivesAPixelToTheCellOfItsCentre) {
  EXPECT_THAT(labels_of(applied("roi_grid", *blank_capture({1, 7}), {}, grid(1, 3, 0))), ElementsAre("1122233"));
}

TEST(RoiGrid, WithoutMarginCoversEveryPixelOnceWhateverTheSizes) {
  for (const int width : {1, 5, 63, 64, 65, 127, 1001}) {
    for (const int cells : {1, 2, 3, 7, 64}) {
      const Mask mask = applied("roi_grid", *blank_capture({1, width}), {}, grid(1, cells, 0));
      EXPECT_EQ(mask.count(), width);
      const RegionSet regions(mask);
      for (const Region& region : regions.regions()) {
        EXPECT_NEAR(double(region.area), double(width) / cells, 1.0) << width << " pixels, " << cells << " cells";
      }
    }
  }
}

TEST(RoiGrid, DividesTheRegionsOfInterestThatWereChosenBefore) {
  const auto capture = blank_capture({3, 12});
  const Mask tray = applied("roi_rect", *capture, {}, {{"rect", {0.5, 0.5, 8.0 / 12, 1.0 / 3}}});
  const Mask plants = (test::mask({"............", "....##.##...", "............"}) & tray).with_bounds(tray.bounds());
  EXPECT_THAT(labels_of(applied("roi_grid", *capture, tray, grid(1, 2, 0))),
              ElementsAre("............", "..11112222..", "............"));
  const Mask divided = applied("roi_grid", *capture, plants, grid(1, 2, 0));
  EXPECT_THAT(drawing(divided), ElementsAre("............", "....##.##...", "............"));
  EXPECT_EQ(divided.labels()->image.at<std::int32_t>(1, 2), 1) << "the tray is divided, not the plants' box";
  EXPECT_EQ(divided.labels()->image.at<std::int32_t>(1, 9), 2);
}

TEST(RoiGrid, GivenAFreshStart_ThenTheWholeImageIsDivided) {
  const auto capture = blank_capture({1, 8});
  const Mask left = applied("roi_rect", *capture, {}, {{"rect", {0.25, 0.5, 0.5, 1}}});
  Value params = grid(1, 2, 0);
  params["reset_mask_chain"] = true;
  EXPECT_THAT(labels_of(applied("roi_grid", *capture, left, params)), ElementsAre("11112222"));
}

TEST(RoiGrid, KeepsTheNameOfACellWithoutPixelsAndSaysSo) {
  const Mask mask = applied("roi_grid", *blank_capture({1, 2}), {}, grid(1, 3, 0));
  EXPECT_THAT(mask.labels()->names, ElementsAre("ROI_1", "ROI_2", "ROI_3"));
  EXPECT_EQ(test::note_of("roi_grid", *blank_capture({1, 2}), {}, grid(1, 3, 0)),
            "too_fine: there are fewer pixels than cells with their margins, so no pixel is in ROI_2");
}

TEST(RoiGrid, KeepsGrowingStepsInsideTheCells) {
  const auto capture = blank_capture({1, 20});
  const Mask cells = applied("roi_grid", *capture, {}, grid(1, 2, 0.2));
  EXPECT_THAT(drawing(applied("dilate", *capture, cells & test::mask({".....#.............."}), {{"radius", 30}})),
              ElementsAre("..######....######.."));
}

TEST(RoiGrid, DrawsTheRimsOfItsCellsForWhoLooks) {
  const auto capture = blank_capture({4, 8});
  const auto operation = get_mask_operation("roi_grid")();
  ASSERT_TRUE(operation->apply({.image_stack = *capture, .params = grid(1, 2, 0)}));
  ASSERT_TRUE(operation->viz_overlay);
  const cv::Mat& picture = operation->viz_overlay->read_only();
  const auto is_drawn = [&](int y, int x) { return picture.at<cv::Vec3b>(y, x) != cv::Vec3b(0, 0, 0); };
  EXPECT_TRUE(is_drawn(0, 0) && is_drawn(3, 3) && is_drawn(1, 4) && is_drawn(2, 7));
  EXPECT_FALSE(is_drawn(1, 1) || is_drawn(2, 6));
  const auto unseen = get_mask_operation("roi_grid")();
  unseen->wants_overlay = false;
  ASSERT_TRUE(unseen->apply({.image_stack = *capture, .params = grid(1, 2, 0)}));
  EXPECT_FALSE(unseen->viz_overlay);
}

TEST(RoiGrid, RefusesWhatIsOutsideItsRanges) {
  const auto refused = [](const Value& params) {
    return test::refusal([&] { static_cast<void>(applied("roi_grid", *blank_capture({2, 2}), {}, params)); });
  };
  EXPECT_EQ(refused({{"rows", 0}}), "roi_grid: parameter \"rows\" is 0, but it must be a whole number from 1 to 64.");
  EXPECT_EQ(refused({{"cols", 65}}), "roi_grid: parameter \"cols\" is 65, but it must be a whole number from 1 to 64.");
  EXPECT_EQ(refused({{"margin", 0.41}}),
            "roi_grid: parameter \"margin\" is 0.41, but it must be a number from 0 to 0.4.");
  EXPECT_EQ(refused({{"rows", 64}, {"cols", 64}, {"margin", 0.4}}), "");
}

// 64 cells on 60 columns are 15/16 of a pixel wide; the place of a centre in its cell is ((x + 8) mod 15) / 15, and
// from 0.4 to 0.6 lie 6, 7 and 8 fifteenths: 3 of 15 columns, 12 of 60. On 40 rows it is ((3 y + 4) mod 5) / 5, and 2
// fifths alone fit: 8 rows, the first of them row 1 in the third row of cells. 96 of 4,096 cells have a pixel.
TEST(RoiGrid, GivenManyCellsWithoutPixels_ThenTheNoteHasTheirNumberAndTheFirstTen) {
  EXPECT_EQ(applied("roi_grid", *blank_capture({40, 60}), {}, grid(64, 64, 0.4)).count(), 96);
  EXPECT_EQ(test::note_of("roi_grid", *blank_capture({40, 60}), {}, grid(64, 64, 0.4)),
            "too_fine: there are fewer pixels than cells with their margins, so no pixel is in 4,000 regions: ROI_1, "
            "ROI_2, ROI_3, ROI_4, ROI_5, ROI_6, ROI_7, ROI_8, ROI_9, ROI_10 and 3,990 more");
}

}  // namespace
}  // namespace orvexa::model
