#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using test::mask;
using testing::ElementsAre;

TEST(RemoveSmall, KeepsPartsOfAtLeastTheGivenArea) {
  const Mask parts = mask({"#.##.###", "........", "#......."});
  EXPECT_THAT(drawing(applied("remove_small", parts, {{"min_area", 2}})),
              ElementsAre("..##.###", "........", "........"));
  EXPECT_THAT(drawing(applied("remove_small", parts, {{"min_area", 3}})),
              ElementsAre(".....###", "........", "........"));
  EXPECT_EQ(applied("remove_small", parts, {{"min_area", 0}}), parts);
}

TEST(RemoveSmall, JoinsCornersUnlessFourNeighboursAreAskedFor) {
  const Mask diagonal = mask({"#..", ".#.", "..#"});
  EXPECT_EQ(applied("remove_small", diagonal, {{"min_area", 3}}), diagonal);
  EXPECT_EQ(applied("remove_small", diagonal, {{"min_area", 3}, {"connectivity", 4}}).count(), 0);
}

TEST(RemoveSmall, RemovesPartsUnder64PixelsByDefault) {
  cv::Mat pixels(20, 40, CV_8UC1, cv::Scalar(0));
  pixels(cv::Rect(1, 1, 8, 8)).setTo(255);   // 64 pixels
  pixels(cv::Rect(20, 1, 9, 7)).setTo(255);  // 63 pixels
  EXPECT_EQ(applied("remove_small", Mask(pixels)).count(), 64);
}

TEST(RemoveSmall, TakesSquareMillimetresByTheCapturesScale) {
  auto header = std::make_shared<CaptureHeader>();
  header->millimetres_per_pixel = 0.1;
  const auto capture =
      test::capture("c", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(1, 8, 0)}}}}, std::move(header));
  const Mask parts = mask({"#.##.###"});
  // Three pixels are 0.03 mm2, in floating point 0.030000000000000006.
  EXPECT_THAT(drawing(applied("remove_small", *capture, parts, {{"min_area", 0.03}, {"unit", "mm2"}})),
              ElementsAre(".....###"));
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(applied("remove_small", parts, {{"unit", "mm2"}}));
            }),
            "Remove small parts: sizes in millimetres need a scale, and this capture's header declares no "
            "MillimetresPerPixel.");
}

}  // namespace
}  // namespace orvexa::model
