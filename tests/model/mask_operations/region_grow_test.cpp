#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using testing::ElementsAre;

constexpr const char* key = "region_grow";

std::shared_ptr<CaptureSet> greys(const std::vector<std::vector<std::uint8_t>>& rows) {
  return test::capture("c", {{"GRY", {{"GRY", test::image<std::uint8_t>(rows)}}}});
}

/// Fractions of the image that lie in the middle of a pixel.
Value pixel(int x, int y, int width, int height) {
  return Value::array({(x + 0.5) / width, (y + 0.5) / height});
}

// From 100 with a tolerance of 10 counts: 90 and 110 belong, 89 and 111 do not; the 105 at the right is not connected.
TEST(RegionGrow, KeepsWhatIsConnectedThroughLikeValues) {
  const auto capture = greys({{100, 110, 111, 105}, {89, 90, 200, 200}});
  const Value params{{"points", {pixel(0, 0, 4, 2)}}, {"tolerance", 10.0 / 255}};
  EXPECT_THAT(drawing(applied(key, *capture, {}, params)), ElementsAre("##..", ".#.."));
}

TEST(RegionGrow, GrowsOverCorners) {
  const auto capture = greys({{10, 200}, {200, 10}});
  EXPECT_THAT(drawing(applied(key, *capture, {}, {{"points", {pixel(0, 0, 2, 2)}}})), ElementsAre("#.", ".#"));
}

TEST(RegionGrow, GrowsOnlyThroughTheIncomingMask) {
  const auto capture = greys({{10, 10, 10, 10, 10}});
  const Value params{{"points", {pixel(0, 0, 5, 1)}}};
  EXPECT_THAT(drawing(applied(key, *capture, test::mask({"##.##"}), params)), ElementsAre("##..."));
}

TEST(RegionGrow, OfSeveralPointsEachGrowsByItself) {
  const auto capture = greys({{10, 12, 100, 102, 200}});
  const Value params{{"points", {pixel(0, 0, 5, 1), pixel(3, 0, 5, 1)}}, {"tolerance", 0.01}};
  for (const char* mode : {"seed_value", "running_mean"}) {
    Value with = params;
    with["mode"] = mode;
    EXPECT_THAT(drawing(applied(key, *capture, {}, with)), ElementsAre("####.")) << mode;
  }
}

// A ramp in steps of 4 with a tolerance of 5 counts. Of the seed: 0 and 4. Of the mean: after 0 and 4 it is 2, and 8 is
// 6 away. With a tolerance of 7: 0, 4 (mean 2), 8 (mean 4), then 12 is 8 away.
TEST(RegionGrow, ARunningMeanFollowsARampALittle) {
  const auto capture = greys({{0, 4, 8, 12, 16, 20}});
  const auto kept = [&](const char* mode, double counts) {
    return drawing(applied(key, *capture, {},
                           {{"points", {pixel(0, 0, 6, 1)}}, {"mode", mode}, {"tolerance", counts / 255}}))
        .front();
  };
  EXPECT_EQ(kept("seed_value", 5), "##....");
  EXPECT_EQ(kept("running_mean", 5), "##....");
  EXPECT_EQ(kept("seed_value", 7), "##....");
  EXPECT_EQ(kept("running_mean", 7), "###...");
  EXPECT_EQ(kept("seed_value", 8), "###...");
}

// The nearest value joins first: from 50, the 52 (mean 51) and then the 45, 6 away with a tolerance of 5, does not; had
// 45 come first (mean 47.5), both would belong.
TEST(RegionGrow, TakesTheMostAlikeOfThePixelsThatWait) {
  const auto capture = greys({{45, 50, 52}});
  EXPECT_EQ(drawing(applied(key, *capture, {},
                            {{"points", {pixel(1, 0, 3, 1)}}, {"mode", "running_mean"}, {"tolerance", 5.0 / 255}}))
                .front(),
            ".##");
}

// Two points on one ground share it, and what neither of them likes stays out.
TEST(RegionGrow, RegionsOfARunningMeanGrowSideBySide) {
  const auto capture = greys({{100, 100, 100, 100, 180, 100}});
  EXPECT_EQ(drawing(applied(key, *capture, {},
                            {{"points", {pixel(0, 0, 6, 1), pixel(3, 0, 6, 1), pixel(0, 0, 6, 1)}},
                             {"mode", "running_mean"},
                             {"tolerance", 0.2}}))
                .front(),
            "####..");
}

TEST(RegionGrow, WithoutToleranceKeepsEqualValues) {
  const auto capture = greys({{7, 7, 8, 7}, {7, 9, 9, 9}});
  for (const char* mode : {"seed_value", "running_mean"}) {
    EXPECT_THAT(
        drawing(applied(key, *capture, {}, {{"points", {pixel(0, 0, 4, 2)}}, {"mode", mode}, {"tolerance", 0}})),
        ElementsAre("##..", "#..."))
        << mode;
  }
}

TEST(RegionGrow, WithAllToleranceKeepsAllThatIsConnected) {
  const auto capture = test::random_capture(41, 30, 40);
  const Mask mask = test::random_mask(42, 30, 40, 0.9);
  cv::Mat with_middle = mask.read_only().clone();
  with_middle.at<std::uint8_t>(15, 20) = 255;
  const Mask allowed(with_middle);
  const Mask by_value = applied(key, *capture, allowed, {{"tolerance", 1}});
  EXPECT_EQ(by_value, applied(key, *capture, allowed, {{"tolerance", 1}, {"mode", "running_mean"}}));
  EXPECT_GT(by_value.count(), allowed.count() - 10) << "hardly a pixel of a dense mask stands alone";
}

TEST(RegionGrow, KeepsMoreWithAGreaterTolerance) {
  const auto capture = test::random_capture(43, 40, 50);
  std::optional<Mask> smaller;
  for (const double tolerance : {0.0, 0.05, 0.2, 0.5, 1.0}) {
    const Mask larger = applied(key, *capture, {}, {{"tolerance", tolerance}});
    if (smaller) {
      EXPECT_EQ(*smaller & larger, *smaller);
    }
    smaller = larger;
  }
  EXPECT_EQ(smaller->count(), 40 * 50);
}

TEST(RegionGrow, SaysWhichPointsCannotGrow) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const auto capture = test::capture("c", {{"GRY", {{"GRY", test::image<float>({{0.5F, nan, 0.5F, 0.5F}})}}}});
  const Value three{{"points", {pixel(0, 0, 4, 1), pixel(1, 0, 4, 1), pixel(2, 0, 4, 1)}}};
  for (const char* mode : {"seed_value", "running_mean"}) {
    Value params = three;
    params["mode"] = mode;
    EXPECT_EQ(drawing(applied(key, *capture, test::mask({".###"}), params)).front(), "..##");
    EXPECT_EQ(test::note_of(key, *capture, test::mask({".###"}), params),
              "unusable_seed: 2 of 3 points lie outside the incoming mask or have no value in GRY.GRY");
  }
  EXPECT_EQ(test::note_of(key, *capture, {}, {{"points", {pixel(1, 0, 4, 1)}}}),
            "unusable_seed: 1 of 1 points lie outside the incoming mask or have no value in GRY.GRY, so the mask is "
            "empty");
  EXPECT_EQ(test::note_of(key, *capture, {}, {{"points", {pixel(0, 0, 4, 1)}}}), "grown from 1 point in GRY.GRY");
}

// A hot pixel stops the growth in the raw picture of one row; the median of three by three pixels does not know it.
TEST(RegionGrow, LooksAtTheFilteredBandWhenAsked) {
  const auto capture = greys({{10, 10, 250, 10, 10}, {10, 10, 250, 10, 10}});
  const Value raw{{"points", {pixel(0, 0, 5, 2)}}};
  EXPECT_THAT(drawing(applied(key, *capture, {}, raw)), ElementsAre("##...", "##..."));
  Value filtered = raw;
  filtered["smooth"] = "median";
  filtered["smooth_radius"] = 1;
  EXPECT_THAT(drawing(applied(key, *capture, {}, filtered)), ElementsAre("#####", "#####"));
  EXPECT_THAT(test::refusal([&] {
                static_cast<void>(applied(key, *capture, {}, {{"smooth", "bilateral"}, {"smooth_radius", 50}}));
              }),
              testing::HasSubstr("the bilateral filter's radius"));
}

TEST(RegionGrow, MarksItsPoints) {
  const auto capture = test::random_capture(44, 40, 50);
  const auto operation = get_mask_operation(key)();
  static_cast<void>(operation->apply({.image_stack = *capture, .params = {{"points", {pixel(10, 5, 50, 40)}}}}));
  ASSERT_TRUE(operation->viz_overlay);
  const auto row = operation->viz_overlay->row<std::uint8_t>(5);
  EXPECT_EQ(std::vector<int>(row.begin() + 30, row.begin() + 33), (std::vector<int>{255, 255, 0}));
}

TEST(RegionGrow, DrawsNothingThatNobodyWants) {
  const auto operation = get_mask_operation(key)();
  operation->wants_overlay = false;
  ASSERT_TRUE(operation->apply({.image_stack = *test::random_capture(44, 40, 50)}));
  EXPECT_FALSE(operation->viz_overlay);
}

TEST(RegionGrow, RefusesWhatIsOutsideItsLimits) {
  const auto refused = [](const Value& params) {
    return test::refusal([&] { static_cast<void>(applied(key, *greys({{1, 2}}), {}, params)); });
  };
  EXPECT_EQ(refused({{"points", Value::array()}}),
            "region_grow: parameter \"points\" has 0 points, but it must have from 1 to 1000.");
  EXPECT_EQ(refused({{"points", Value::array_t(1001, Value::array({0.5, 0.5}))}}),
            "region_grow: parameter \"points\" has 1001 points, but it must have from 1 to 1000.");
  EXPECT_EQ(refused({{"points", Value::array_t(1000, Value::array({0.5, 0.5}))}}), "");
  EXPECT_THAT(refused({{"tolerance", 1.01}}), testing::HasSubstr("a number from 0 to 1"));
  EXPECT_THAT(refused({{"points", {{0.5, 1.5}}}}), testing::HasSubstr("each number from 0 to 1"));
  EXPECT_EQ(refused({{"band", "NIR"}}), "There is no band \"NIR\" in this capture; it has GRY.GRY.");
}

// 0.6 and 0.4 as floats are 0.60000002 and 0.40000001: their differences from 0.5 are the tolerance but for rounding.
TEST(RegionGrow, IncludesTheToleranceInFloatsToo) {
  const auto kept = [](float neighbour, const char* mode) {
    const auto capture = test::capture("c", {{"GRY", {{"GRY", test::image<float>({{0.5f, neighbour}})}}}});
    return applied(key, *capture, {}, {{"points", {pixel(0, 0, 2, 1)}}, {"tolerance", 0.1}, {"mode", mode}}).count();
  };
  for (const char* mode : {"seed_value", "running_mean"}) {
    EXPECT_EQ(kept(0.6f, mode), 2) << mode;
    EXPECT_EQ(kept(0.4f, mode), 2) << mode;
    EXPECT_EQ(kept(0.60001f, mode), 1) << mode;
    EXPECT_EQ(kept(0.39999f, mode), 1) << mode;
  }
}

}  // namespace
}  // namespace orvexa::model
