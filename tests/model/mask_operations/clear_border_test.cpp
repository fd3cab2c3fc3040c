#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::blank_capture;
using test::drawing;
using test::mask;
using testing::ElementsAre;

TEST(ClearBorder, RemovesWholePartsThatTouchTheBorder) {
  const Mask parts = mask({"........#",  //
                           ".##.....#",  //
                           ".##..#...",  //
                           "#.....#..",  //
                           ".......#."});
  // The square touches the border through the corner at the left, the diagonal at the bottom.
  EXPECT_EQ(applied("clear_border", parts).count(), 0);
  const Mask inner = mask({".......", ".##....", "....#..", "......#"});
  EXPECT_THAT(drawing(applied("clear_border", inner)), ElementsAre(".......", ".##....", "....#..", "......."));
}

TEST(ClearBorder, RemovesWhatIsNearerThanTheBuffer) {
  // One pixel at column 2 of 9 and one at column 4: 2 and 4 pixels lie between them and the border.
  const Mask two = mask({".........", ".........", ".........", ".........", "..#.#....", ".........", ".........",
                         ".........", "........."});
  EXPECT_EQ(applied("clear_border", two, {{"buffer", 1}}), two);
  EXPECT_THAT(drawing(applied("clear_border", two, {{"buffer", 2}})).at(4), "....#....");
  EXPECT_THAT(drawing(applied("clear_border", two, {{"buffer", 3}})).at(4), "....#....");
  EXPECT_EQ(applied("clear_border", two, {{"buffer", 4}}).count(), 0);
  EXPECT_EQ(applied("clear_border", two, {{"buffer", 10000}}).count(), 0);
}

TEST(ClearBorder, TakesTheRimOfTheRegionsOfInterestForABorderWhenAsked) {
  const auto capture = blank_capture({5, 9});
  // Columns 2 to 6 of all rows.
  const Mask tray = applied("roi_rect", *capture, {}, {{"rect", {0.5, 0.5, 5.0 / 9, 1}}});
  const Mask parts = tray & mask({".........", "..#...#..", "....#....", ".........", "........."});
  ASSERT_TRUE(parts.bounds());
  const Value roi{{"limit", "roi"}};
  EXPECT_EQ(applied("clear_border", *capture, parts), parts);
  EXPECT_THAT(drawing(applied("clear_border", *capture, parts, roi)),
              ElementsAre(".........", ".........", "....#....", ".........", "........."));
  EXPECT_EQ(applied("clear_border", *capture, parts, {{"limit", "roi"}, {"buffer", 1}}).count(), 1)
      << "column 4 has columns 2 and 3 between it and the rim";
  EXPECT_EQ(applied("clear_border", *capture, parts, {{"limit", "roi"}, {"buffer", 2}}).count(), 0);
}

// A rim that is not straight: the pixel outside the bounds at a corner counts as beside.
TEST(ClearBorder, CountsTheRimAlongDiagonalsToo) {
  cv::Mat hole(7, 7, CV_8UC1, cv::Scalar(255));
  hole.at<std::uint8_t>(2, 2) = 0;
  const Mask dot =
      mask({".......", ".......", ".......", "...#...", ".......", ".......", "......."}).with_bounds(Mask(hole));
  EXPECT_EQ(applied("clear_border", dot, {{"limit", "roi"}}).count(), 0);
}

TEST(ClearBorder, RemovesRegionsOfAnEarlierStepWhenAsked) {
  // Region 1 touches the border, region 2 only region 1, region 3 has lost its pixels; '#' is in no region.
  const Mask regions = test::mask_of_regions({".......", "1122...", "1122...", ".....#.", "......."}, 3);
  EXPECT_EQ(applied("clear_border", regions).count(), 1) << "as one part both are removed";
  EXPECT_THAT(drawing(applied("clear_border", regions, {{"of", "regions"}})),
              ElementsAre(".......", "..##...", "..##...", ".......", "......."));
}

TEST(ClearBorder, SaysWhenNothingIsLeft) {
  EXPECT_EQ(test::note_of("clear_border", *blank_capture({1, 3}), mask({"#.#"})),
            "touches_border: all 2 parts of the mask reach the border");
  EXPECT_EQ(test::note_of("clear_border", *blank_capture({1, 3}), Mask::empty({1, 3})), "");
}

TEST(ClearBorder, IsIdempotentAndOnlyNarrows) {
  const Mask random = test::random_mask(5, 60, 80, 0.35);
  Mask before = random;
  for (const int buffer : {0, 1, 3, 9}) {
    const Mask once = applied("clear_border", random, {{"buffer", buffer}});
    EXPECT_EQ(applied("clear_border", once, {{"buffer", buffer}}), once);
    EXPECT_EQ(once & before, once) << "a wider buffer keeps no more";
    before = once;
  }
}

}  // namespace
}  // namespace orvexa::model
