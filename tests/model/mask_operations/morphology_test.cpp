#include "orvexa/model/mask_operations/morphology.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using testing::ElementsAre;

Mask complement(const Mask& mask) {
  cv::Mat pixels;
  cv::bitwise_not(mask.read_only(), pixels);
  return Mask(pixels);
}

Value element(double radius, const char* shape = "disc", int iterations = 1) {
  return {{"radius", radius}, {"shape", shape}, {"iterations", iterations}};
}

namespace reference {

std::vector<cv::Point> offsets(const Value& params) {
  const double radius = params.at("radius").get<double>();
  const bool is_disc = params.at("shape") == "disc";
  const int reach = static_cast<int>(radius);
  std::vector<cv::Point> result;
  for (int dy = -reach; dy <= reach; ++dy) {
    for (int dx = -reach; dx <= reach; ++dx) {
      if (!is_disc || dx * dx + dy * dy <= radius * radius) result.emplace_back(dx, dy);
    }
  }
  return result;
}

/// The definition, offset by offset: each pixel that is `wanted` makes the pixels of the image under its element so.
Mask spread(const Mask& mask, bool wanted, const Value& params) {
  const std::vector<cv::Point> element = offsets(params);
  const cv::Rect image(0, 0, mask.shape().width, mask.shape().height);
  cv::Mat pixels = mask.read_only().clone();
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      if (mask.at(y, x) != wanted) continue;
      for (const cv::Point& offset : element) {
        const cv::Point at = cv::Point(x, y) + offset;
        if (image.contains(at)) pixels.at<std::uint8_t>(at) = wanted ? 255 : 0;
      }
    }
  }
  return Mask(pixels);
}

Mask repeated(Mask mask, bool wanted, const Value& params) {
  for (int i = 0; i < params.at("iterations").get<int>(); ++i) mask = spread(mask, wanted, params);
  return mask;
}

Mask dilate(const Mask& mask, const Value& params) {
  return repeated(mask, true, params);
}
Mask erode(const Mask& mask, const Value& params) {
  return repeated(mask, false, params);
}

}  // namespace reference

TEST(DiscElement, HoldsTheOffsetsWithinTheRadius) {
  // 1, 5, 13, 29, 49 and 81 pixels for the radii 0 to 5 (Gauss's circle problem).
  const std::vector<int> sizes{1, 5, 13, 29, 49, 81};
  for (int radius = 0; radius <= 5; ++radius) {
    const StructuringElement disc = disc_element(radius);
    int count = -(2 * disc.half_widths[0] + 1);
    for (const int half_width : disc.half_widths) count += 2 * (2 * half_width + 1);
    EXPECT_EQ(count, sizes[static_cast<std::size_t>(radius)]) << radius;
  }
}

TEST(DiscElement, TakesRadiiThatAreNotWhole) {
  EXPECT_THAT(disc_element(1.5).half_widths, ElementsAre(1, 1));  // 1 + 1 <= 2.25: a square of 3
  EXPECT_THAT(disc_element(0.99).half_widths, ElementsAre(0));
  EXPECT_THAT(disc_element(0.6 / 0.2).half_widths, ElementsAre(3, 2, 2, 0));  // 2.9999999999999996 is meant as 3
}

TEST(Morphology, MatchesTheDefinitionOnRandomMasks) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    const double share = seed % 3 == 0 ? 0.03 : seed % 3 == 1 ? 0.5 : 0.97;
    // Widths on both sides of one and two words of 64 pixels.
    const Mask mask = test::random_mask(seed, 1 + int(seed * 7) % 23, 1 + int(seed * 29) % 150, share);
    const Value params = element(seed % 10, seed % 4 == 3 ? "square" : "disc", 1 + int(seed) % 2);
    SCOPED_TRACE(testing::Message() << "seed " << seed << " " << params.dump());
    EXPECT_EQ(applied("dilate", mask, params), reference::dilate(mask, params));
    EXPECT_EQ(applied("erode", mask, params), reference::erode(mask, params));
    EXPECT_EQ(applied("open", mask, params), reference::dilate(reference::erode(mask, params), params));
    EXPECT_EQ(applied("close", mask, params), reference::erode(reference::dilate(mask, params), params));
  }
}

TEST(Morphology, MatchesTheDefinitionAcrossStripsAndForLargeRadii) {
  // 300 rows are three strips of 128; radius 70 reaches over a whole word.
  const Mask mask = test::random_mask(1, 300, 200, 0.0005);
  for (const double radius : {3.0, 70.0}) {
    const Value params = element(radius);
    EXPECT_EQ(applied("dilate", mask, params), reference::dilate(mask, params)) << radius;
    EXPECT_EQ(applied("erode", complement(mask), params), reference::erode(complement(mask), params)) << radius;
  }
}

TEST(Morphology, MatchesTheDefinitionForEveryColumnAtTheBorders) {
  // A single pixel in each column of a row of two words, so that its run is cut off by either border or neither.
  for (int radius = 0; radius <= 70; radius += radius < 12 ? 1 : 29) {
    const Value params = element(radius, "square");
    for (int column = 0; column < 130; ++column) {
      cv::Mat pixels(1, 130, CV_8UC1, cv::Scalar(0));
      pixels.at<std::uint8_t>(0, column) = 255;
      const Mask dot{pixels};
      ASSERT_EQ(applied("dilate", dot, params), reference::dilate(dot, params)) << radius << " at " << column;
    }
  }
}

TEST(Morphology, WithRadiusZeroChangesNothing) {
  const Mask mask = test::random_mask(2, 20, 70, 0.5);
  for (const char* key : {"erode", "dilate", "open", "close"}) EXPECT_EQ(applied(key, mask, element(0)), mask) << key;
}

TEST(Morphology, WithARadiusLargerThanTheImageReachesEverything) {
  const Mask dot = test::mask({"...", ".#.", "..."});
  EXPECT_EQ(applied("dilate", dot, element(200)), Mask::full({3, 3}));
  EXPECT_EQ(applied("erode", complement(dot), element(200)), Mask::empty({3, 3}));
}

TEST(Erode, TakesTheOutsideOfTheImageForForeground) {
  EXPECT_EQ(applied("erode", Mask::full({3, 3}), element(1)), Mask::full({3, 3}));
  EXPECT_THAT(drawing(applied("erode", test::mask({"###.", "###.", "###."}), element(1))),
              ElementsAre("##..", "##..", "##.."));
}

TEST(Dilate, TakesTheOutsideOfTheImageForBackground) {
  EXPECT_EQ(applied("dilate", Mask::empty({3, 3}), element(5)), Mask::empty({3, 3}));
  EXPECT_THAT(drawing(applied("dilate", test::mask({"#...", "....", "...."}), element(1))),
              ElementsAre("##..", "#...", "...."));
}

TEST(Dilate, GrowsBeyondTheIncomingMaskInsideItsBounds) {
  const Mask bounds = test::mask({".####"});
  const Mask mask = test::mask({"..#.."}).with_bounds(bounds);
  EXPECT_THAT(drawing(applied("dilate", mask, element(5))), ElementsAre(".####"));
  EXPECT_TRUE(get_mask_operation("dilate")._preview_unconstrained);
  EXPECT_FALSE(get_mask_operation("erode")._preview_unconstrained);
}

TEST(Open, RemovesWhatIsNarrowerThanTheElement) {
  EXPECT_THAT(drawing(applied("open", test::mask({".....#.", ".###...", ".######", ".###..."}), element(1, "square"))),
              ElementsAre(".......", ".###...", ".###...", ".###..."));
}

TEST(Close, FillsWhatIsNarrowerThanTheElement) {
  EXPECT_THAT(drawing(applied("close", test::mask({"###.###", "###.###", "###.###"}), element(1, "square"))),
              ElementsAre("#######", "#######", "#######"));
}

TEST(Close, StaysInsideTheBounds) {
  const Mask bounds = test::mask({"#####.#"});
  EXPECT_THAT(drawing(applied("close", test::mask({"#.#.#.#"}).with_bounds(bounds), element(1, "square"))),
              ElementsAre("#####.#"));
}

// The limit. Every mask here is cut off by the bounds on its right.

Value within(const char* limit, int iterations = 1) {
  return {{"radius", 1}, {"shape", "square"}, {"iterations", iterations}, {"limit", limit}};
}

TEST(Erode, GivenTheRegionsOfInterestAsLimit_ThenTheMaskIsNotErodedWhereTheyCutIt) {
  const Mask mask = test::mask({".###..", ".###..", ".###.."}).with_bounds(test::mask({"####..", "####..", "####.."}));
  EXPECT_THAT(drawing(applied("erode", mask, within("image"))), ElementsAre("..#...", "..#...", "..#..."));
  EXPECT_THAT(drawing(applied("erode", mask, within("roi"))), ElementsAre("..##..", "..##..", "..##.."));
  EXPECT_THAT(drawing(applied("erode", mask, within("roi", 2))), ElementsAre("...#..", "...#..", "...#.."));
}

TEST(Open, GivenTheRegionsOfInterestAsLimit_ThenAStripAlongTheirRimIsNotTooNarrow) {
  const Mask mask = test::mask({"#.##..", "..##..", "..##.."}).with_bounds(test::mask({"####..", "####..", "####.."}));
  EXPECT_THAT(drawing(applied("open", mask, within("image"))), ElementsAre("......", "......", "......"));
  EXPECT_THAT(drawing(applied("open", mask, within("roi"))), ElementsAre("..##..", "..##..", "..##.."));
}

TEST(Dilate, GivenTheRegionsOfInterestAsLimit_ThenItDoesNotGrowRoundThroughTheOutside) {
  // Two chambers with a wall of one pixel between them, which several steps would cross.
  const Mask mask = test::mask({"#....", "....."}).with_bounds(test::mask({"##.##", "....."}));
  EXPECT_THAT(drawing(applied("dilate", mask, within("image", 4))), ElementsAre("##.##", "....."));
  EXPECT_THAT(drawing(applied("dilate", mask, within("roi", 4))), ElementsAre("##...", "....."));
}

TEST(Close, GivenTheRegionsOfInterestAsLimit_ThenAGapAtTheirRimIsFilled) {
  const Mask mask = test::mask({"###...", "###...", "###..."}).with_bounds(test::mask({"####..", "####..", "####.."}));
  // Grown to four columns; in the image the erosion takes the fourth back, at the limit nothing erodes it.
  EXPECT_THAT(drawing(applied("close", mask, within("image"))), ElementsAre("###...", "###...", "###..."));
  EXPECT_THAT(drawing(applied("close", mask, within("roi"))), ElementsAre("####..", "####..", "####.."));
}

TEST(Morphology, GivenTheRegionsOfInterestAsLimitAndNone_ThenTheImageIsTheLimit) {
  const Mask mask = test::random_mask(3, 30, 90, 0.7);
  for (const char* key : {"erode", "dilate", "open", "close"}) {
    EXPECT_EQ(applied(key, mask, within("roi")), applied(key, mask, within("image"))) << key;
  }
}

TEST(Morphology, WithALimitMatchesTheDefinitionOnTheLimitAlone) {
  // Where the limit is a rectangle it is the same as working on the picture of that rectangle alone.
  for (unsigned seed = 0; seed < 20; ++seed) {
    const cv::Rect roi(3 + static_cast<int>(seed) * 4, 2, 60, 20);
    cv::Mat bounds = cv::Mat::zeros(30, 150, CV_8UC1);
    bounds(roi).setTo(255);
    const Mask limit{bounds};
    const Mask mask = (test::random_mask(seed, 30, 150, seed % 2 == 0 ? 0.1 : 0.9) & limit).with_bounds(limit);
    const Mask alone{mask.read_only()(roi).clone()};
    Value params = element(1 + seed % 4, seed % 3 == 0 ? "square" : "disc", 1 + int(seed) % 2);
    for (const char* key : {"erode", "dilate", "open", "close"}) {
      const Mask expected = applied(key, alone, params);
      Value limited = params;
      limited["limit"] = "roi";
      const Mask result = applied(key, mask, limited);
      EXPECT_EQ(Mask(result.read_only()(roi).clone()), expected) << key << ", seed " << seed;
      EXPECT_EQ(result.count(), expected.count()) << key << ", seed " << seed;
    }
  }
}

TEST(Morphology, RefusesAnotherLimit) {
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(applied("erode", Mask::full({1, 3}), {{"limit", "ROI"}}));
            }),
            "erode: parameter \"limit\" is \"ROI\", but it must be one of image, roi (did you mean \"roi\"?).");
}

TEST(Morphology, ObeysItsLaws) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    const Mask mask = test::random_mask(seed, 20 + int(seed), 90, seed % 2 == 0 ? 0.1 : 0.9);
    const Value params = element(1 + seed % 5, seed % 3 == 0 ? "square" : "disc", 1 + int(seed) % 3);
    SCOPED_TRACE(testing::Message() << "seed " << seed << " " << params.dump());
    EXPECT_EQ(applied("erode", complement(mask), params), complement(applied("dilate", mask, params))) << "dual";
    const Mask opened = applied("open", mask, params);
    const Mask closed = applied("close", mask, params);
    EXPECT_EQ(applied("open", opened, params), opened) << "opening twice is opening once";
    EXPECT_EQ(applied("close", closed, params), closed) << "closing twice is closing once";
    EXPECT_EQ(opened & mask, opened) << "opening adds nothing";
    EXPECT_EQ(closed & mask, mask) << "closing loses nothing";
  }
}

TEST(Morphology, TakesMillimetresByTheCapturesScale) {
  auto header = std::make_shared<CaptureHeader>();
  header->millimetres_per_pixel = 0.2;
  const auto capture =
      test::capture("c", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(1, 9, 0)}}}}, std::move(header));
  const Mask dot = test::mask({"....#...."});
  EXPECT_THAT(drawing(applied("dilate", *capture, dot, {{"radius", 0.6}, {"unit", "mm"}})), ElementsAre(".#######."));
  EXPECT_THAT(drawing(applied("dilate", *capture, dot, {{"radius", 0.59}, {"unit", "mm"}})), ElementsAre("..#####.."));
}

TEST(Morphology, RefusesMillimetresWithoutAScaleAndAMissingMask) {
  const auto capture = test::blank_capture({1, 3});
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(applied("erode", *capture, Mask::full({1, 3}), {{"unit", "mm"}}));
            }),
            "Erode: sizes in millimetres need a scale, and this capture's header declares no MillimetresPerPixel.");
  EXPECT_EQ(test::refusal([&] { static_cast<void>(applied("erode", *capture, {})); }),
            "Erode needs a mask to work on: put a step that makes one before it.");
}

}  // namespace
}  // namespace orvexa::model
