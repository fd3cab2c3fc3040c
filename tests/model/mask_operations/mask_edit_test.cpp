#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orvexa/model/measures/region_set.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using test::mask;
using testing::ElementsAre;

/// The corners of the columns x0 to x1 - 1 of 8, over the whole height.
Value columns(double x0, double x1) {
  return Value::array({{x0 / 8, 0}, {x1 / 8, 0}, {x1 / 8, 1}, {x0 / 8, 1}});
}

std::string edited(const Value& params) {
  return drawing(applied("mask_edit", mask({"..####.."}), params)).front();
}

TEST(MaskEdit, ChangesNothingByDefault) {
  EXPECT_EQ(edited({}), "..####..");
}

TEST(MaskEdit, AddsAndRemovesWhatPolygonsCover) {
  EXPECT_EQ(edited({{"add", {columns(0, 1), columns(5, 7)}}}), "#.#####.");
  EXPECT_EQ(edited({{"remove", {columns(1, 3), columns(5, 8)}}}), "...##...");
}

TEST(MaskEdit, RemovesAfterItAdded) {
  EXPECT_EQ(edited({{"add", {columns(0, 8)}}, {"remove", {columns(3, 4)}}}), "###.####");
}

TEST(MaskEdit, JoinsPolygonsThatOverlap) {
  EXPECT_EQ(edited({{"add", {columns(0, 2), columns(1, 8)}}}), "########") << "each one alone is even-odd";
}

TEST(MaskEdit, StaysInsideTheBounds) {
  const auto capture = test::blank_capture({1, 8});
  const Mask tray = applied("roi_rect", *capture, {}, {{"rect", {0.5, 0.5, 0.75, 1}}});
  const Mask plants = applied("mask_edit", *capture, tray & mask({"..####.."}), {{"add", {columns(0, 8)}}});
  EXPECT_THAT(drawing(plants), ElementsAre(".######."));
}

TEST(MaskEdit, WithoutAMaskBeforeItOnlyRemoves) {
  const auto capture = test::blank_capture({1, 8});
  EXPECT_THAT(drawing(applied("mask_edit", *capture, {}, {{"add", {columns(0, 4)}}, {"remove", {columns(6, 9)}}})),
              ElementsAre("######.."));
}

TEST(MaskEdit, GivesWhatIsAddedToTheRegionThatWasDrawnThere) {
  const auto capture = test::blank_capture({1, 8});
  const Mask halves = applied("roi_rects", *capture, {}, {{"rects", {{0.25, 0.5, 0.5, 1}, {0.75, 0.5, 0.5, 1}}}});
  const Mask some = applied("mask_edit", *capture, halves & mask({".#......"}), {{"add", {columns(5, 8)}}});
  EXPECT_THAT(drawing(some), ElementsAre(".#...###"));
  const RegionSet regions(some);
  EXPECT_EQ(regions.regions()[0].area, 1);
  EXPECT_EQ(regions.regions()[1].area, 3);
}

TEST(MaskEdit, DrawsWhatItChanged) {
  const auto capture = test::blank_capture({1, 8});
  const auto operation = get_mask_operation("mask_edit")();
  ASSERT_TRUE(operation->apply({.image_stack = *capture,
                                .current_mask = mask({"..####.."}),
                                .params = {{"add", {columns(0, 3)}}, {"remove", {columns(5, 8)}}}}));
  ASSERT_TRUE(operation->viz_overlay);
  const auto pixel = [&](int x) { return operation->viz_overlay->read_only().at<cv::Vec3b>(0, x); };
  EXPECT_EQ(pixel(1), cv::Vec3b(40, 90, 255)) << "added";
  EXPECT_EQ(pixel(2), cv::Vec3b(0, 0, 0)) << "was there";
  EXPECT_EQ(pixel(5), cv::Vec3b(230, 30, 30)) << "removed";
  EXPECT_EQ(pixel(6), cv::Vec3b(0, 0, 0)) << "was not there";
}

TEST(MaskEdit, RefusesAPolygonOfTwoPoints) {
  EXPECT_EQ(
      test::refusal([] {
        static_cast<void>(edited({{"add", Value::parse("[[[0, 0], [1, 1]]]")}}));
      }),
      "mask_edit: parameter \"add\" is [[[0, 0], [1, 1]]], but it must be a list of polygons [[x, y], [x, y], [x, "
      "y], ...] of at least three points.");
}

}  // namespace
}  // namespace orvexa::model
