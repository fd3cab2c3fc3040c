#include "orvexa/model/mask.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "support/captures.h"

namespace orvexa::model {
namespace {

std::shared_ptr<const RegionLabels> labels(Shape shape) {
  return std::make_shared<const RegionLabels>(
      RegionLabels{cv::Mat(shape.height, shape.width, CV_32SC1, cv::Scalar(1)), {"ROI_1"}});
}

TEST(Mask, CountsItsPixels) {
  EXPECT_EQ(test::mask({"#..", ".##"}).count(), 3);
  EXPECT_EQ(Mask::full({4, 7}).count(), 28);
  EXPECT_EQ(Mask::empty({4, 7}).count(), 0);
}

TEST(Mask, KnowsEachPixel) {
  const Mask mask = test::mask({"#..", ".##"});
  EXPECT_EQ(mask.shape(), (Shape{2, 3}));
  EXPECT_TRUE(mask.at(0, 0));
  EXPECT_FALSE(mask.at(0, 1));
  EXPECT_EQ(mask.row(1)[0], 0);
  EXPECT_EQ(mask.row(1)[2], 255);
}

TEST(Mask, TakesOverPixelsOrCopiesThemSoThatNobodyCanChangeIt) {
  cv::Mat own(2, 2, CV_8UC1, cv::Scalar(255));
  const void* data = own.data;
  const Mask taken(std::move(own));
  EXPECT_EQ(taken.read_only().data, data);

  cv::Mat shared(2, 2, CV_8UC1, cv::Scalar(255));
  const Mask copied(shared);
  shared.setTo(0);
  EXPECT_EQ(copied.count(), 4);
}

TEST(Mask, CopiesShareThePixels) {
  const Mask mask = Mask::full({3, 3});
  const Mask copy = mask;
  EXPECT_EQ(copy.read_only().data, mask.read_only().data);
}

TEST(Mask, HoldsNothingBut0And255) {
  for (const int strange : {1, 127, 128, 254}) {
    for (const int x : {0, 1, 2}) {
      cv::Mat pixels(3, 3, CV_8UC1, cv::Scalar(255));
      pixels.at<std::uint8_t>(2, x) = static_cast<std::uint8_t>(strange);
      EXPECT_THROW(Mask{pixels}, std::invalid_argument) << strange << " in column " << x;
    }
  }
}

TEST(Mask, RefusesOtherTypesAndNothing) {
  EXPECT_THROW(Mask(cv::Mat()), std::invalid_argument);
  EXPECT_THROW(Mask(cv::Mat(2, 2, CV_16UC1, cv::Scalar(255))), std::invalid_argument);
  EXPECT_THROW(Mask(cv::Mat(2, 2, CV_8UC3, cv::Scalar::all(255))), std::invalid_argument);
}

TEST(Mask, AndKeepsPixelsThatAreSetInBoth) {
  EXPECT_EQ(test::mask({"##..", "####"}) & test::mask({"#.#.", "..##"}), test::mask({"#...", "..##"}));
}

TEST(Mask, AndOfTwoSizesIsRefusedWithBothSizes) {
  try {
    static_cast<void>(Mask::full({2, 3}) & Mask::full({3, 2}));
    FAIL() << "no exception";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "Two masks of different sizes cannot be combined: 3 x 2 and 2 x 3 pixels.");
  }
}

TEST(Mask, AndKeepsLabelsAndBoundsOfTheLeftSideElseOfTheRight) {
  const auto left_labels = labels({2, 2});
  const auto right_labels = labels({2, 2});
  const Mask left = Mask::full({2, 2}).with_labels(left_labels).with_bounds(test::mask({"#.", ".."}));
  const Mask right = Mask::full({2, 2}).with_labels(right_labels).with_bounds(test::mask({".#", ".."}));
  EXPECT_EQ((left & right).labels(), left_labels);
  EXPECT_EQ((left & right).bounds(), test::mask({"#.", ".."}));
  EXPECT_EQ((Mask::full({2, 2}) & right).labels(), right_labels);
  EXPECT_EQ((Mask::full({2, 2}) & right).bounds(), test::mask({".#", ".."}));
  EXPECT_EQ((Mask::full({2, 2}) & Mask::full({2, 2})).labels(), nullptr);
  EXPECT_EQ((Mask::full({2, 2}) & Mask::full({2, 2})).bounds(), std::nullopt);
}

TEST(Mask, LabelsAndBoundsCostNoCopyOfThePixelsAndDoNotCountInEquality) {
  const Mask plain = Mask::full({2, 2});
  const Mask rich = plain.with_labels(labels({2, 2})).with_bounds(Mask::empty({2, 2}));
  EXPECT_EQ(rich.read_only().data, plain.read_only().data);
  EXPECT_EQ(rich, plain);
  EXPECT_EQ(plain.labels(), nullptr);  // the receiver is left as it was
  EXPECT_EQ(rich.with_labels(nullptr).labels(), nullptr);
  EXPECT_EQ(rich.with_bounds(std::nullopt).bounds(), std::nullopt);
}

TEST(Mask, BoundsCarryNoBoundsOrLabelsOfTheirOwn) {
  const Mask inner = Mask::full({2, 2}).with_labels(labels({2, 2})).with_bounds(Mask::empty({2, 2}));
  const auto bounds = Mask::full({2, 2}).with_bounds(inner).bounds();
  ASSERT_TRUE(bounds.has_value());
  EXPECT_EQ(bounds->labels(), nullptr);
  EXPECT_EQ(bounds->bounds(), std::nullopt);
}

TEST(Mask, LabelsAndBoundsOfAnotherSizeOrTypeAreRefused) {
  const Mask mask = Mask::full({2, 3});
  EXPECT_THROW(static_cast<void>(mask.with_labels(labels({3, 2}))), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(mask.with_bounds(Mask::full({3, 2}))), std::invalid_argument);
  const auto bytes = std::make_shared<const RegionLabels>(RegionLabels{cv::Mat(2, 3, CV_8UC1), {}});
  EXPECT_THROW(static_cast<void>(mask.with_labels(bytes)), std::invalid_argument);
}

TEST(Mask, EqualityLooksAtSizeAndEveryPixel) {
  EXPECT_FALSE(Mask::full({2, 3}) == Mask::full({3, 2}));
  EXPECT_FALSE(test::mask({"##", "##"}) == test::mask({"##", "#."}));
}

}  // namespace
}  // namespace orvexa::model
