#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using test::mask;
using testing::ElementsAre;

TEST(FillHoles, FillsWhatDoesNotTouchTheBorder) {
  // scipy.ndimage.binary_fill_holes gives the same.
  EXPECT_THAT(drawing(applied("fill_holes", mask({"#####..", "#...#..", "#.#.##.", "#...#..", "#####.."}))),
              ElementsAre("#####..", "#####..", "######.", "#####..", "#####.."));
}

TEST(FillHoles, LeavesABayOpen) {
  const Mask bay = mask({"#####", "#...#", "##.##"});
  EXPECT_EQ(applied("fill_holes", bay), bay);
}

TEST(FillHoles, DoesNotLetBackgroundLeakThroughCorners) {
  // The hole touches the outside only at a corner, and background is 4-connected.
  EXPECT_THAT(drawing(applied("fill_holes", mask({".....", "..##.", ".#.#.", ".###.", "....."}))),
              ElementsAre(".....", "..##.", ".###.", ".###.", "....."));
}

TEST(FillHoles, FillsHolesUpToTheGivenArea) {
  const Mask two = mask({"########", "#.##..##", "########"});
  EXPECT_THAT(drawing(applied("fill_holes", two, {{"max_area", 1}})), ElementsAre("########", "####..##", "########"));
  EXPECT_EQ(applied("fill_holes", two, {{"max_area", 2}}), Mask::full({3, 8}));
  EXPECT_EQ(applied("fill_holes", two, {{"max_area", 0.5}}), two);
}

TEST(FillHoles, TakesSquareMillimetresByTheCapturesScale) {
  auto header = std::make_shared<CaptureHeader>();
  header->millimetres_per_pixel = 0.1;
  const auto capture =
      test::capture("c", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(3, 8, 0)}}}}, std::move(header));
  const Mask two = mask({"########", "#.##..##", "########"});
  // 0.1 mm a pixel: the holes have 0.01 and 0.02 mm2, and 2 * 0.1 * 0.1 is 0.020000000000000004.
  EXPECT_EQ(applied("fill_holes", *capture, two, {{"max_area", 0.02}, {"unit", "mm2"}}), Mask::full({3, 8}));
  EXPECT_EQ(applied("fill_holes", *capture, two, {{"max_area", 0.01}, {"unit", "mm2"}}).count(), 22);
}

TEST(FillHoles, StaysInsideTheBounds) {
  const Mask bounds = mask({"####", "####", "##.#", "####"});
  EXPECT_THAT(drawing(applied("fill_holes", mask({"####", "#..#", "#..#", "####"}).with_bounds(bounds))),
              ElementsAre("####", "####", "##.#", "####"));
}

TEST(FillHoles, LeavesAnEmptyMaskEmpty) {
  EXPECT_EQ(applied("fill_holes", Mask::empty({3, 3})), Mask::empty({3, 3}));
}

TEST(FillHoles, DrawsRimsOfFilledHolesBlueAndOfTooLargeOnesRed) {
  const auto picture =
      test::overlay_of("fill_holes", mask({"#######", "#.##..#", "#######", "......."}), {{"max_area", 1}});
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->read_only().at<cv::Vec3b>(1, 1), cv::Vec3b(40, 90, 255));
  EXPECT_EQ(picture->read_only().at<cv::Vec3b>(1, 4), cv::Vec3b(230, 30, 30));
  EXPECT_EQ(picture->read_only().at<cv::Vec3b>(0, 0), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(picture->read_only().at<cv::Vec3b>(3, 3), cv::Vec3b(0, 0, 0)) << "what reaches the border is no hole";
}

}  // namespace
}  // namespace orvexa::model
