// roi_polygon, roi_ellipse and roi_exclude.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::blank_capture;
using test::drawing;
using testing::ElementsAre;

Value points(const std::vector<std::vector<double>>& corners) {
  return Value{{"points", corners}};
}

std::vector<std::string> drawn(std::string_view key, Shape shape, const Value& params) {
  return drawing(applied(key, *blank_capture(shape), {}, params));
}

TEST(RoiPolygon, IsTheWholeImageByDefault) {
  EXPECT_EQ(applied("roi_polygon", *blank_capture({3, 5}), {}), Mask::full({3, 5}));
}

// In pixels the corners are (0, 0), (6, 0) and (0, 6). The centre (x + 1/2, y + 1/2) is inside where x + y + 1 < 6; on
// the long side, x + y = 5, it belongs to what is on its right.
TEST(RoiPolygon, KeepsPixelsWhoseCentreIsInside) {
  EXPECT_THAT(drawn("roi_polygon", {6, 6}, points({{0, 0}, {1, 0}, {0, 1}})),
              ElementsAre("#####.", "####..", "###...", "##....", "#.....", "......"));
  EXPECT_THAT(drawn("roi_polygon", {6, 6}, points({{1, 1}, {1, 0}, {0, 1}})),
              ElementsAre(".....#", "....##", "...###", "..####", ".#####", "######"));
}

TEST(RoiPolygon, DoesNotDependOnTheDirectionOrTheFirstCorner) {
  const std::vector<std::vector<double>> corners{{0.1, 0.13}, {0.83, 0.27}, {0.61, 0.93}, {0.37, 0.51}};
  const auto capture = blank_capture({31, 47});
  const Mask expected = applied("roi_polygon", *capture, {}, points(corners));
  EXPECT_GT(expected.count(), 0);
  auto turned = corners;
  std::rotate(turned.begin(), turned.begin() + 2, turned.end());
  EXPECT_EQ(applied("roi_polygon", *capture, {}, points(turned)), expected);
  std::reverse(turned.begin(), turned.end());
  EXPECT_EQ(applied("roi_polygon", *capture, {}, points(turned)), expected);
}

// The five points of a star in one stroke: rays from its middle cross two sides.
TEST(RoiPolygon, LeavesAHoleWhereItOverlapsItself) {
  std::vector<std::vector<double>> star;
  for (int k = 0; k < 5; ++k) {
    const double angle = 2 * CV_PI * 2 * k / 5;
    star.push_back({0.5 + 0.5 * std::sin(angle), 0.5 - 0.5 * std::cos(angle)});
  }
  const Mask mask = applied("roi_polygon", *blank_capture({101, 101}), {}, points(star));
  EXPECT_FALSE(mask.at(50, 50));
  EXPECT_TRUE(mask.at(10, 50)) << "in the point at the top";
}

// Two rectangles with a common side through pixel centres: 2.5 of 6 columns.
TEST(RoiPolygon, SharesNoPixelWithANeighbourAndLeavesNoGap) {
  const double side = 2.5 / 6;
  EXPECT_THAT(drawn("roi_polygon", {1, 6}, points({{0, 0}, {side, 0}, {side, 1}, {0, 1}})), ElementsAre("##...."));
  EXPECT_THAT(drawn("roi_polygon", {1, 6}, points({{1, 0}, {side, 0}, {side, 1}, {1, 1}})), ElementsAre("..####"));
}

TEST(RoiPolygon, IsCutOffAtTheImage) {
  EXPECT_THAT(drawn("roi_polygon", {2, 4}, points({{-9, -9}, {0.5, -9}, {0.5, 9}, {-9, 9}})),
              ElementsAre("##..", "##.."));
  EXPECT_THAT(
      drawn("roi_polygon", {2, 4}, points({{-1e300, -1e300}, {1e300, -1e300}, {1e300, 1e300}, {-1e300, 1e300}})),
      ElementsAre("####", "####"));
}

TEST(RoiPolygon, GivenOneOutsideTheImageOrWithoutArea_ThenTheMaskIsEmptyAndSaysSo) {
  for (const auto& corners : {points({{2, 2}, {3, 2}, {3, 3}}), points({{0.1, 0.1}, {0.9, 0.9}, {0.1, 0.1}})}) {
    EXPECT_EQ(applied("roi_polygon", *blank_capture({2, 4}), {}, corners), Mask::empty({2, 4}));
    EXPECT_EQ(test::note_of("roi_polygon", *blank_capture({2, 4}), {}, corners),
              "outside_image: the polygon covers no pixel of the image, so the mask is empty");
  }
}

TEST(RoiPolygon, NeedsThreePoints) {
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(drawn("roi_polygon", {2, 2}, points({{0, 0}, {1, 1}})));
            }),
            "roi_polygon: parameter \"points\" has 2 points, but a polygon needs at least three.");
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(drawn("roi_polygon", {2, 2}, points({{0, 0}})));
            }),
            "roi_polygon: parameter \"points\" has 1 point, but a polygon needs at least three.");
}

TEST(RoiPolygon, KeepsGrowingStepsInside) {
  const auto capture = blank_capture({1, 8});
  const Mask half = applied("roi_polygon", *capture, {}, points({{0, 0}, {0.5, 0}, {0.5, 1}, {0, 1}}));
  EXPECT_THAT(drawing(applied("dilate", *capture, half & test::mask({"..#....."}), {{"radius", 9}})),
              ElementsAre("####...."));
}

// (x - 3)^2 / 9 + (y - 2)^2 / 4 <= 1 at the centres: of row 0, y - 2 = -1.5 and |x - 3| <= 3 sqrt(1 - 2.25 / 4) = 1.98.
// Of row 1, |x - 3| <= 3 sqrt(1 - 0.25 / 4) = 2.90.
TEST(RoiEllipse, TouchesTheSidesOfItsBox) {
  EXPECT_THAT(drawn("roi_ellipse", {4, 6}, {}), ElementsAre(".####.", "######", "######", ".####."));
}

// A circle of radius 5 about the centre of pixel (5, 5) has 12 pixels exactly on it, such as 3 and 4 away.
TEST(RoiEllipse, OfAWholeRadiusAboutAPixelIsTheDiscOfThatRadius) {
  const Mask mask = applied("roi_ellipse", *blank_capture({11, 11}), {}, {{"rect", {0.5, 0.5, 10.0 / 11, 10.0 / 11}}});
  EXPECT_EQ(mask.count(), 81);
  for (int y = 0; y < 11; ++y) {
    for (int x = 0; x < 11; ++x) EXPECT_EQ(mask.at(y, x), (x - 5) * (x - 5) + (y - 5) * (y - 5) <= 25) << x << y;
  }
}

TEST(RoiEllipse, GivenNoPixelInsideIt_ThenTheMaskIsEmptyAndSaysSo) {
  for (const Value& rect : {Value{0.5, 0.5, 0, 0}, Value{0.5, 0.5, 1, 0}, Value{3, 3, 1, 1}, Value{1e300, 0, 1, 1}}) {
    EXPECT_EQ(applied("roi_ellipse", *blank_capture({4, 4}), {}, {{"rect", rect}}).count(), 0);
    EXPECT_EQ(test::note_of("roi_ellipse", *blank_capture({4, 4}), {}, {{"rect", rect}}),
              "outside_image: the ellipse covers no pixel of the image, so the mask is empty");
  }
  EXPECT_EQ(applied("roi_ellipse", *blank_capture({4, 4}), {}, {{"rect", {0, 0, 1e308, 1e308}}}).count(), 16);
}

TEST(RoiExclude, ExcludesNothingUntilAShapeIsGiven) {
  const std::string note = "The shape covers no pixel of the image, so nothing is excluded.";
  for (const char* shape : {"rect", "ellipse", "polygon"}) {
    EXPECT_EQ(applied("roi_exclude", *blank_capture({2, 3}), {}, {{"shape", shape}}), Mask::full({2, 3}));
    EXPECT_EQ(test::note_of("roi_exclude", *blank_capture({2, 3}), {}, {{"shape", shape}}), note);
  }
}

TEST(RoiExclude, IsTheComplementOfWhatTheShapeKeeps) {
  const auto capture = blank_capture({23, 31});
  const Value rect{0.4, 0.55, 0.37, 0.61};
  const Value corners = points({{0.1, 0.13}, {0.83, 0.27}, {0.61, 0.93}}).at("points");
  const auto sum = [&](const Value& excluded, const char* key, const Value& kept) {
    const Mask without = applied("roi_exclude", *capture, {}, excluded);
    const Mask with = applied(key, *capture, {}, kept);
    EXPECT_EQ((without & with).count(), 0) << key;
    EXPECT_GT(with.count(), 0) << key;
    return without.count() + with.count();
  };
  EXPECT_EQ(sum({{"rect", rect}}, "roi_rect", {{"rect", rect}}), 23 * 31);
  EXPECT_EQ(sum({{"shape", "ellipse"}, {"rect", rect}}, "roi_ellipse", {{"rect", rect}}), 23 * 31);
  EXPECT_EQ(sum({{"shape", "polygon"}, {"points", corners}}, "roi_polygon", {{"points", corners}}), 23 * 31);
}

TEST(RoiExclude, GivenTheWholeImage_ThenTheMaskIsEmptyAndSaysSo) {
  EXPECT_EQ(test::note_of("roi_exclude", *blank_capture({2, 3}), {}, {{"rect", {0.5, 0.5, 1, 1}}}),
            "excluded: the shape covers the whole image, so the mask is empty");
}

TEST(RoiExclude, KeepsGrowingStepsOut) {
  const auto capture = blank_capture({1, 8});
  const Mask halves = applied("roi_exclude", *capture, {}, {{"rect", {0.5, 0.5, 0.25, 1}}});
  EXPECT_THAT(drawing(applied("dilate", *capture, halves & test::mask({"..#....."}), {{"radius", 9}})),
              ElementsAre("###..###"));
}

TEST(RoiExclude, RefusesTwoPointsForAPolygon) {
  const Value two = points({{0, 0}, {1, 1}}).at("points");
  EXPECT_EQ(
      test::refusal([&] {
        static_cast<void>(applied("roi_exclude", *blank_capture({2, 2}), {}, {{"shape", "polygon"}, {"points", two}}));
      }),
      "roi_exclude: parameter \"points\" has 2 points, but a polygon needs at least three.");
}

// 600 x 1,000 pixels are three stripes of 262 rows.
TEST(RoiShapes, CoverTheRowsOfSeveralStripes) {
  const auto capture = blank_capture({600, 1000});
  const Value half = points({{0.25, 0.1}, {0.75, 0.1}, {0.75, 0.9}, {0.25, 0.9}});
  EXPECT_EQ(applied("roi_polygon", *capture, {}, half).count(), 480 * 500);
}

TEST(RoiShapes, ArePickedOnTheImage) {
  const auto mode = [](const char* key, std::size_t parameter) {
    return get_mask_operation(key).parameters.at(parameter).interaction.value().mode;
  };
  EXPECT_EQ(mode("roi_polygon", 0), "points");
  EXPECT_EQ(mode("roi_ellipse", 0), "rect");
  EXPECT_EQ(mode("roi_exclude", 1), "rect");
  EXPECT_EQ(mode("roi_exclude", 2), "points");
}

TEST(RoiExclude, RefusesAShapeThatIsNotTheChosenOne) {
  const auto refused = [](const Value& params) {
    return test::refusal([&] { static_cast<void>(applied("roi_exclude", *blank_capture({2, 2}), {}, params)); });
  };
  const Value corners = points({{0, 0}, {1, 0}, {0, 1}}).at("points");
  for (const char* shape : {"rect", "ellipse"}) {
    EXPECT_EQ(refused({{"shape", shape}, {"points", corners}}),
              std::string("roi_exclude: parameter \"points\" is [[0.0, 0.0], [1.0, 0.0], [0.0, 1.0]], but parameter "
                          "\"shape\" is \"") +
                  shape + "\"; choose \"polygon\" to use it.");
  }
  EXPECT_EQ(refused({{"shape", "polygon"}, {"points", corners}, {"rect", {0.5, 0.5, 0.5, 0.5}}}),
            "roi_exclude: parameter \"rect\" is [0.5, 0.5, 0.5, 0.5], but parameter \"shape\" is \"polygon\"; choose "
            "\"rect\" or \"ellipse\" to use it.");
  EXPECT_EQ(refused({{"shape", "polygon"}, {"points", corners}, {"rect", {0.5, 0.5, 0, 0}}}), "") << "the default";
}

}  // namespace
}  // namespace orvexa::model
