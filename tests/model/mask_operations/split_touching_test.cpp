#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orvexa/model/measures/components.h"
#include "orvexa/model/measures/region_set.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::mask;
using testing::ElementsAre;

struct Disc {
  int x;
  int y;
  int radius;
};

Mask discs(Shape shape, const std::vector<Disc>& all) {
  cv::Mat pixels(shape.height, shape.width, CV_8UC1, cv::Scalar(0));
  for (const Disc& disc : all) {
    for (int y = 0; y < shape.height; ++y) {
      for (int x = 0; x < shape.width; ++x) {
        const int dx = x - disc.x;
        const int dy = y - disc.y;
        if (dx * dx + dy * dy <= disc.radius * disc.radius) pixels.at<std::uint8_t>(y, x) = 255;
      }
    }
  }
  return Mask(std::move(pixels));
}

std::vector<std::int64_t> areas(const Mask& divided) {
  std::vector<std::int64_t> result;
  const RegionSet regions(divided);
  for (const Region& region : regions.regions()) result.push_back(region.area);
  return result;
}

int label_at(const Mask& divided, int y, int x) {
  return divided.labels()->image.at<std::int32_t>(y, x);
}

TEST(SplitTouching, DividesTwoDiscsAtTheirNeckAndKeepsTheMask) {
  // Equal discs 30 apart with radius 18: the picture is the same mirrored at the column between them.
  const Mask two = discs({60, 100}, {{33, 30, 18}, {63, 30, 18}});
  const Mask divided = applied("split_touching", two);
  EXPECT_EQ(divided, two);
  EXPECT_THAT(divided.labels()->names, ElementsAre("ROI_1", "ROI_2"));
  const auto found = areas(divided);
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0] + found[1], two.count());
  // The neck is the column 48, where the two are equally near; it is all that may be on either side.
  for (int y = 0; y < 60; ++y) {
    for (int x = 0; x < 100; ++x) {
      if (!two.at(y, x)) {
        EXPECT_EQ(label_at(divided, y, x), 0);
      } else if (x != 48) {
        EXPECT_EQ(label_at(divided, y, x), x < 48 ? 1 : 2) << x << ", " << y;
      }
    }
  }
}

TEST(SplitTouching, FindsEveryDiscOfAChain) {
  std::vector<Disc> chain;
  for (int k = 0; k < 7; ++k) chain.push_back({20 + 22 * k, 40 + (k % 2) * 9, 13});
  const Mask mask_of_chain = discs({90, 180}, chain);
  EXPECT_EQ(areas(applied("split_touching", mask_of_chain)).size(), 7u);
}

TEST(SplitTouching, LeavesASingleConvexPartWhole) {
  for (const Mask& one : {discs({60, 60}, {{30, 30, 20}}), discs({9, 9}, {{4, 4, 0}})}) {
    EXPECT_THAT(areas(applied("split_touching", one)), ElementsAre(one.count()));
  }
  // A bar has a ridge all along, which is one summit.
  cv::Mat bar(40, 220, CV_8UC1, cv::Scalar(0));
  bar(cv::Rect(10, 10, 200, 21)).setTo(255);
  for (const double sigma : {0.0, 1.0, 3.0}) {
    EXPECT_THAT(areas(applied("split_touching", Mask(bar), {{"sigma", sigma}})), ElementsAre(200 * 21)) << sigma;
  }
}

TEST(SplitTouching, MakesSeparatePartsRegionsHoweverNearTheyAre) {
  const Mask dots = mask({"#.#.#", ".....", "#...."});
  const Mask divided = applied("split_touching", dots, {{"min_distance", 500}});
  EXPECT_THAT(areas(divided), ElementsAre(1, 1, 1, 1));
  EXPECT_EQ(label_at(divided, 0, 0), 1);
  EXPECT_EQ(label_at(divided, 0, 4), 3);
  EXPECT_EQ(label_at(divided, 2, 0), 4);
}

TEST(SplitTouching, NumbersRegionsByTheirFirstPixelAndNotByTheirHeight) {
  // The larger disc has the higher summit but begins lower.
  const Mask two = discs({70, 90}, {{20, 20, 12}, {44, 40, 22}});
  const Mask divided = applied("split_touching", two);
  ASSERT_EQ(divided.labels()->names.size(), 2u);
  EXPECT_EQ(label_at(divided, 20, 20), 1);
  EXPECT_EQ(label_at(divided, 40, 44), 2);
}

TEST(SplitTouching, SplitsLessWithALargerDistance) {
  const Mask pair = discs({60, 100}, {{33, 30, 18}, {63, 30, 18}});
  EXPECT_EQ(areas(applied("split_touching", pair, {{"min_distance", 30}})).size(), 2u);
  EXPECT_EQ(areas(applied("split_touching", pair, {{"min_distance", 31}})).size(), 1u);
  const Mask random = test::random_mask(3, 90, 120, 0.85);
  std::size_t before = random.shape().pixels();
  for (const int distance : {1, 3, 10, 40, 500}) {
    const std::size_t regions = areas(applied("split_touching", random, {{"min_distance", distance}})).size();
    EXPECT_LE(regions, before);
    before = regions;
  }
  EXPECT_EQ(before, label_components(random).components.size());
}

TEST(SplitTouching, GivesEveryPixelARegionAndEveryRegionAPixel) {
  for (unsigned seed = 1; seed <= 8; ++seed) {
    SCOPED_TRACE(seed);
    const Mask random = test::random_mask(seed, 47, 61, 0.3 + 0.08 * seed);
    const Mask divided = applied("split_touching", random, {{"min_distance", 3}});
    cv::Mat labelled;
    cv::compare(divided.labels()->image, 0, labelled, cv::CMP_GT);
    EXPECT_EQ(Mask(labelled), random);
    for (const std::int64_t area : areas(divided)) EXPECT_GT(area, 0);
    // Seeds spread through 8 neighbours: a region is one piece.
    const Components parts = label_components(random);
    EXPECT_GE(divided.labels()->names.size(), parts.components.size());
    for (std::size_t k = 1; k <= divided.labels()->names.size(); ++k) {
      cv::Mat one;
      cv::compare(divided.labels()->image, double(k), one, cv::CMP_EQ);
      EXPECT_EQ(label_components(one).components.size(), 1u);
    }
  }
}

TEST(SplitTouching, GivenAMaskWithoutARimOrWithoutPixels_ThenItIsOneRegionOrNone) {
  EXPECT_THAT(areas(applied("split_touching", Mask::full({20, 30}))), ElementsAre(600));
  const Mask nothing = applied("split_touching", Mask::empty({20, 30}));
  ASSERT_NE(nothing.labels(), nullptr);
  EXPECT_TRUE(nothing.labels()->names.empty());
}

TEST(SplitTouching, SaysHowManyRegionsItMade) {
  EXPECT_EQ(
      test::note_of("split_touching", *test::blank_capture({60, 100}), discs({60, 100}, {{33, 30, 18}, {63, 30, 18}})),
      "1 connected part divided into 2 regions");
  EXPECT_EQ(test::note_of("split_touching", *test::blank_capture({1, 3}), mask({"#.#"})),
            "2 connected parts divided into 2 regions");
}

TEST(SplitTouching, DrawsRimsLinesAndSeeds) {
  const Mask pair = discs({60, 100}, {{33, 30, 18}, {63, 30, 18}});
  const auto capture = test::blank_capture(pair.shape());
  const auto operation = get_mask_operation("split_touching")();
  ASSERT_TRUE(operation->apply({.image_stack = *capture, .current_mask = pair}));
  ASSERT_TRUE(operation->viz_overlay);
  const cv::Mat& picture = operation->viz_overlay->read_only();
  EXPECT_EQ(picture.at<cv::Vec3b>(30, 15), cv::Vec3b(0, 220, 0)) << "the left rim";
  EXPECT_EQ(picture.at<cv::Vec3b>(30, 33), cv::Vec3b(255, 0, 255)) << "the left seed";
  EXPECT_EQ(picture.at<cv::Vec3b>(30, 63), cv::Vec3b(255, 0, 255)) << "the right seed";
  const cv::Vec3b line(255, 220, 0);
  EXPECT_TRUE(picture.at<cv::Vec3b>(28, 47) == line || picture.at<cv::Vec3b>(28, 48) == line) << "the neck";
}

TEST(SplitTouching, RefusesWhatIsOutsideItsRanges) {
  const auto refused = [](const Value& params) {
    return test::refusal([&] { static_cast<void>(applied("split_touching", Mask::full({2, 2}), params)); });
  };
  EXPECT_EQ(refused({{"min_distance", 0}}),
            "split_touching: parameter \"min_distance\" is 0, but it must be a whole number from 1 to 500.");
  EXPECT_EQ(refused({{"sigma", 21}}),
            "split_touching: parameter \"sigma\" is 21, but it must be a number from 0 to 20.");
  EXPECT_EQ(refused({{"min_distance", 500}, {"sigma", 20}}), "");
}

}  // namespace
}  // namespace orvexa::model
