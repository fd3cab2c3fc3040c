// Pixels that growing operations add beside the regions of a mask.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/mask_operations.h"
#include "support/operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::mask_of_regions;

std::string note(std::string_view key, const Mask& mask, const Value& params = Value::object()) {
  return test::note_of(key, *test::blank_capture(mask.shape()), mask, params);
}

constexpr const char* one_pixel = "1 pixel that was added belongs to no region.";

// A disc of radius 1 is a cross; the two crosses share the pixel in the middle: 2 * 4 - 1 pixels are added.
TEST(AddedPixels, AreCountedInTheNoteWhereNoRegionIs) {
  EXPECT_EQ(note("dilate", mask_of_regions({".....", ".1.2.", "....."})),
            "7 pixels that were added belong to no region.");
  EXPECT_EQ(note("close", mask_of_regions({"1.2"})), one_pixel);
  EXPECT_EQ(note("fill_holes", mask_of_regions({"111", "1.1", "111"})), one_pixel);
  EXPECT_EQ(note("smooth_mask", mask_of_regions({"11.22"}), {{"radius", 1}}), one_pixel);
  EXPECT_EQ(note("mask_edit", mask_of_regions({"1.2"}), {{"add", Value::parse("[[[0, 0], [1, 0], [1, 1], [0, 1]]]")}}),
            one_pixel);
  EXPECT_EQ(note("convex_hull", mask_of_regions({"1.2"}), {{"per_region", false}}), one_pixel);
}

TEST(AddedPixels, StayInNoRegion) {
  const Mask grown = applied("dilate", mask_of_regions({"1.2"}));
  EXPECT_EQ(grown, Mask::full({1, 3}));
  EXPECT_EQ(grown.labels()->image.at<std::int32_t>(0, 1), 0);
}

// 401 * 401 - 1 pixels about the one in the middle.
TEST(AddedPixels, AreCountedWithGroupedDigits) {
  cv::Mat middle = cv::Mat::zeros(401, 401, CV_8UC1);
  middle.at<std::uint8_t>(200, 200) = 255;
  auto labels = std::make_shared<RegionLabels>();
  middle.convertTo(labels->image, CV_32S, 1 / 255.0);
  labels->names = {"ROI_1"};
  EXPECT_EQ(note("dilate", Mask(middle).with_labels(labels), {{"radius", 200}, {"shape", "square"}}),
            "160,800 pixels that were added belong to no region.");
}

TEST(AddedPixels, AreNotMentionedWhereEachHasARegionOrNoneIsAddedOrThereAreNoRegions) {
  // What an earlier step took away is still marked as the region's.
  const Mask narrowed = mask_of_regions({"111"}) & test::mask({"#.#"});
  EXPECT_EQ(applied("dilate", narrowed), Mask::full({1, 3}));
  EXPECT_EQ(note("dilate", narrowed), "");
  EXPECT_EQ(note("dilate", mask_of_regions({"1#2"})), "") << "it was in no region before";
  EXPECT_EQ(note("convex_hull", mask_of_regions({"1.1"})), "") << "it belongs to the region of the hull";
  EXPECT_EQ(note("dilate", test::mask({"#.#"})), "");
}

TEST(AddedPixels, AreCountedInsideTheRegionsOfInterestAlone) {
  const Mask mask = mask_of_regions({".1..."}).with_bounds(test::mask({"###.."}));
  EXPECT_EQ(note("dilate", mask, {{"radius", 3}}), "2 pixels that were added belong to no region.");
}

TEST(AddedPixels, AreCountedBehindWhatTheOperationSays) {
  MaskOperationInfo info =
      test::fake_mask("grow", [](test::FakeMask& own, const ImageSource&, const Mask*, const Value&) {
        own.note = "grown";
        return Mask::full({1, 3});
      });
  info._preview_unconstrained = true;
  const auto operation = info();
  const auto capture = test::blank_capture({1, 3});
  static_cast<void>(operation->apply({.image_stack = *capture, .current_mask = mask_of_regions({"1.2"})}));
  EXPECT_EQ(operation->note, std::string("grown; ") + one_pixel);
}

TEST(AddedPixels, AreToldOfInTheDescriptionOfEveryOperationThatLeavesThemInNoRegion) {
  for (const char* key : {"dilate", "close", "fill_holes", "smooth_mask"}) {
    EXPECT_THAT(get_mask_operation(key).description, testing::HasSubstr(added_pixels_text())) << key;
  }
  EXPECT_THAT(get_mask_operation("erode").description, testing::Not(testing::HasSubstr(added_pixels_text())));
}

}  // namespace
}  // namespace orvexa::model
