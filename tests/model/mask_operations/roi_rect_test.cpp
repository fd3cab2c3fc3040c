#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::blank_capture;
using test::drawing;
using testing::ElementsAre;

Value rect(double cx, double cy, double w, double h) {
  return Value{{"rect", Value::array({cx, cy, w, h})}};
}

TEST(RoiRect, KeepsTheWholeImageByDefault) {
  EXPECT_EQ(applied("roi_rect", *blank_capture({3, 4}), {}), Mask::full({3, 4}));
}

TEST(RoiRect, CoversThePixelsThatItTouches) {
  // 4 columns: from 0.25 to 0.75 are columns 1 and 2; 4 rows: from 0.2 to 0.6 touches rows 0.8 to 2.4, that is 0 to 2.
  EXPECT_THAT(drawing(applied("roi_rect", *blank_capture({4, 4}), {}, rect(0.5, 0.4, 0.5, 0.4))),
              ElementsAre(".##.", ".##.", ".##.", "...."));
}

TEST(RoiRect, IsCutOffAtTheImagesBorder) {
  EXPECT_THAT(drawing(applied("roi_rect", *blank_capture({2, 4}), {}, rect(1.0, 0.0, 0.5, 1.0))),
              ElementsAre("...#", "...."));
}

TEST(RoiRect, WhollyOutsideGivesAnEmptyMaskAndSaysSo) {
  const auto capture = blank_capture({2, 4});
  EXPECT_EQ(applied("roi_rect", *capture, {}, rect(3, 3, 1, 1)), Mask::empty({2, 4}));
  EXPECT_EQ(test::note_of("roi_rect", *capture, {}, rect(3, 3, 1, 1)),
            "outside_image: the rectangle covers no pixel of the image, so the mask is empty");
  EXPECT_EQ(test::note_of("roi_rect", *capture, {}, rect(0.5, 0.5, 1, 1)), "");
}

TEST(RoiRect, BecomesTheBoundsOfWhatFollows) {
  const auto capture = blank_capture({3, 6});
  const Mask left = applied("roi_rect", *capture, {}, rect(1.0 / 3, 0.5, 2.0 / 3, 1));
  ASSERT_TRUE(left.bounds());
  EXPECT_THAT(drawing(*left.bounds()), ElementsAre("####..", "####..", "####.."));
  // A second one narrows both.
  const Mask middle = applied("roi_rect", *capture, left, rect(2.0 / 3, 0.5, 2.0 / 3, 1));
  EXPECT_THAT(drawing(middle), ElementsAre("..##..", "..##..", "..##.."));
  EXPECT_THAT(drawing(*middle.bounds()), ElementsAre("..##..", "..##..", "..##.."));
  // Something small grows inside them and no further.
  const Mask dot = middle & test::mask({"......", "..#...", "......"});
  EXPECT_THAT(drawing(applied("dilate", *capture, dot, {{"radius", 3}})), ElementsAre("..##..", "..##..", "..##.."));
}

TEST(RoiRect, StartsAfreshWhenTheChainIsReset) {
  const auto capture = blank_capture({1, 4});
  Value params = rect(0.75, 0.5, 0.5, 1);
  params["reset_mask_chain"] = true;
  const Mask result = applied("roi_rect", *capture, test::mask({"##.."}), params);
  EXPECT_THAT(drawing(result), ElementsAre("..##"));
}

TEST(RoiRect, IsPickedAsARectangleAndPreviewedWithoutTheChain) {
  const MaskOperationInfo& info = get_mask_operation("roi_rect");
  EXPECT_TRUE(info._is_roi_operation);
  ASSERT_TRUE(info.parameters.at(0).interaction);
  EXPECT_EQ(info.parameters.at(0).interaction->mode, "rect");
}

}  // namespace
}  // namespace orvexa::model
