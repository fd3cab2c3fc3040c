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

TEST(RemoveSmall, DrawsRimsOfKeptPartsGreenAndOfRemovedOnesRed) {
  const auto picture = test::overlay_of("remove_small", mask({"#..##"}), {{"min_area", 2}});
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->read_only().at<cv::Vec3b>(0, 0), cv::Vec3b(230, 30, 30));
  EXPECT_EQ(picture->read_only().at<cv::Vec3b>(0, 1), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(picture->read_only().at<cv::Vec3b>(0, 3), cv::Vec3b(0, 220, 0));
}

TEST(RemoveSmall, SaysWhenACaptureLacksTheScale) {
  const auto capture = test::blank_capture({1, 8});
  for (const char* key : {"remove_small", "fill_holes"}) {
    const auto& info = get_mask_operation(key);
    EXPECT_NO_THROW(info.check_capture(*capture, info()->validate_params({})));
    const Value params{{"unit", "mm2"}};
    const std::string sentence = test::refusal([&] { info.check_capture(*capture, info()->validate_params(params)); });
    EXPECT_THAT(sentence, testing::HasSubstr("sizes in millimetres need a scale"));
    EXPECT_EQ(sentence, test::refusal([&] { static_cast<void>(applied(key, mask({"#......."}), params)); }));
  }
  for (const char* key : {"erode", "dilate", "open", "close"}) {
    const auto& info = get_mask_operation(key);
    EXPECT_NO_THROW(info.check_capture(*capture, info()->validate_params({})));
    const Value params{{"unit", "mm"}};
    const std::string sentence = test::refusal([&] { info.check_capture(*capture, info()->validate_params(params)); });
    EXPECT_THAT(sentence, testing::HasSubstr("sizes in millimetres need a scale"));
    EXPECT_EQ(sentence, test::refusal([&] { static_cast<void>(applied(key, mask({"#......."}), params)); }));
  }
}

}  // namespace
}  // namespace orvexa::model
