#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;

constexpr const char* key = "threshold_color_distance";

std::shared_ptr<CaptureSet> colors(const std::vector<cv::Vec3b>& pixels) {
  cv::Mat row(1, static_cast<int>(pixels.size()), CV_8UC3);
  for (int x = 0; x < row.cols; ++x) row.at<cv::Vec3b>(0, x) = pixels[static_cast<std::size_t>(x)];
  return test::capture("c", {{"CLR", {{"RGB", Image(row)}}}});
}

Value by_hand(double l, double a, double b, double max_delta_e, const char* metric) {
  return {{"reference", "lab"},
          {"colors", {{{"name", "one"}, {"lab", {l, a, b}}}}},
          {"max_delta_e", max_delta_e},
          {"metric", metric}};
}

std::string kept(const CaptureSet& capture, const Value& params) {
  return drawing(applied(key, capture, {}, params)).front();
}

// Lab of the counts by python3-skimage: red (53.24, 80.09, 67.20), (250, 10, 10) (52.48, 78.27, 63.81), green
// (87.74, -86.18, 83.18), grey 128 (53.585, 0, 0), grey 138 (57.478, 0, 0).
const std::vector<cv::Vec3b> palette{{255, 0, 0}, {250, 10, 10}, {0, 255, 0}, {128, 128, 128}, {138, 138, 138}};

TEST(ThresholdColorDistance, KeepsWhatIsNearThePickedColour) {
  const auto capture = colors(palette);
  // The first of five pixels; skimage: the second is 3.93 away by the formula of 1976.
  EXPECT_EQ(kept(*capture, {{"points", {{0.1, 0.5}}}, {"metric", "76"}, {"max_delta_e", 3.9}}), "#....");
  EXPECT_EQ(kept(*capture, {{"points", {{0.1, 0.5}}}, {"metric", "76"}, {"max_delta_e", 3.95}}), "##...");
  EXPECT_EQ(kept(*capture, {{"points", {{0.1, 0.5}, {0.9, 0.5}}}, {"max_delta_e", 0}}), "#...#");
}

TEST(ThresholdColorDistance, LooksAtTheMiddleOfThePictureByDefault) {
  EXPECT_EQ(kept(*colors(palette), {}), "..#..");
}

// Greys 53.585 and 57.478 differ by 3.893 in lightness, and by 3.893 / (1 + 0.015 * 30.60 / sqrt(20 + 30.60)) = 3.657
// by CIEDE2000: the mean lightness is 55.532, and (55.532 - 50)^2 = 30.60.
TEST(ThresholdColorDistance, TellsTheTwoFormulasApart) {
  const auto capture = colors({{128, 128, 128}, {138, 138, 138}});
  const Value picked{{"points", {{0.25, 0.5}}}};
  const auto with = [&](const char* metric, double limit) {
    Value params = picked;
    params["metric"] = metric;
    params["max_delta_e"] = limit;
    return kept(*capture, params);
  };
  EXPECT_EQ(with("76", 3.88), "#.");
  EXPECT_EQ(with("76", 3.91), "##");
  EXPECT_EQ(with("2000", 3.65), "#.");
  EXPECT_EQ(with("2000", 3.68), "##");
}

// White is L = 100, a = b = 0, so a reference of L 90 is exactly 10 away by the formula of 1976.
TEST(ThresholdColorDistance, TakesColoursGivenByHandAndIncludesTheLimit) {
  const auto capture = colors({{255, 255, 255}, {0, 0, 0}});
  EXPECT_EQ(kept(*capture, by_hand(90, 0, 0, 10, "76")), "#.");
  EXPECT_EQ(kept(*capture, by_hand(90, 0, 0, 9.999, "76")), "..");
  EXPECT_EQ(kept(*capture, by_hand(50, 0, 0, 50, "76")), "##");
  EXPECT_EQ(kept(*capture, by_hand(0, 0, 0, 100, "2000")), "##") << "the whole range of greys";
}

TEST(ThresholdColorDistance, KeepsMoreWithAGreaterDifference) {
  const auto capture = test::random_capture(3, 40, 50);
  for (const char* metric : {"76", "2000"}) {
    std::optional<Mask> smaller;
    for (const double limit : {0.0, 5.0, 20.0, 60.0, 100.0}) {
      const Mask larger = applied(key, *capture, {}, {{"metric", metric}, {"max_delta_e", limit}});
      if (smaller) {
        EXPECT_EQ(*smaller & larger, *smaller);
        EXPECT_GT(larger.count(), smaller->count());
      }
      smaller = larger;
    }
  }
}

TEST(ThresholdColorDistance, ReadsThePickedColourAlsoOutsideTheMask) {
  const Value params{{"points", {{0.1, 0.5}}}, {"max_delta_e", 10}};
  EXPECT_EQ(drawing(applied(key, *colors(palette), test::mask({".####"}), params)).front(), ".#...");
  EXPECT_EQ(applied(key, *colors(palette), Mask::empty({1, 5}), params).count(), 0);
}

// Radius 1 about the middle of black, white, black: L = 100 / 3.
TEST(ThresholdColorDistance, AveragesAroundThePoint) {
  const auto capture = colors({{0, 0, 0}, {255, 255, 255}, {0, 0, 0}});
  EXPECT_EQ(kept(*capture, {{"radius", 1}, {"metric", "76"}, {"max_delta_e", 34}}), "#.#");
  EXPECT_EQ(kept(*capture, {{"radius", 0}, {"metric", "76"}, {"max_delta_e", 34}}), ".#.");
  EXPECT_EQ(test::note_of(key, *capture, {}, {{"radius", 1}}),
            "difference 15 (CIE 2000) at most from L 33.33, a 0, b 0 of CLR.RGB");
}

TEST(ThresholdColorDistance, MarksThePointsOnItsOverlay) {
  const auto capture = test::random_capture(3, 40, 50);
  const auto operation = get_mask_operation(key)();
  static_cast<void>(operation->apply({.image_stack = *capture, .params = {{"points", {{0.5, 0.5}}}}}));
  ASSERT_TRUE(operation->viz_overlay);
  const auto row = operation->viz_overlay->row<std::uint8_t>(20);
  EXPECT_EQ(std::vector<int>(row.begin() + 75, row.begin() + 78), (std::vector<int>{255, 255, 0}));
  EXPECT_EQ(row[0], 0);
}

TEST(ThresholdColorDistance, NeverKeepsWhatIsNoNumberNorTakesItForAReference) {
  cv::Mat pixels(1, 2, CV_32FC3, cv::Scalar::all(0.5));
  pixels.at<cv::Vec3f>(0, 0)[2] = std::numeric_limits<float>::quiet_NaN();
  const auto capture = test::capture("c", {{"CLR", {{"RGB", Image(pixels)}}}});
  EXPECT_EQ(kept(*capture, {{"points", {{0.75, 0.5}}}, {"max_delta_e", 100}}), ".#");
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(applied(key, *capture, {}, {{"points", {{0.25, 0.5}}}}));
            }),
            "No pixel at the point (0.25, 0.5) has a valid colour.");
}

TEST(ThresholdColorDistance, RefusesParametersThatNameNoColour) {
  const auto refused = [](const Value& params) {
    return test::refusal([&] { static_cast<void>(kept(*colors(palette), params)); });
  };
  EXPECT_EQ(refused({{"points", Value::array()}}),
            "threshold_color_distance: parameter \"points\" is empty, but at least one point has to be picked; for "
            "colours given by hand set \"reference\" to \"lab\".");
  EXPECT_EQ(refused({{"reference", "lab"}}),
            "threshold_color_distance: parameter \"colors\" has 0 colours, but it must have from 1 to 64.");
  EXPECT_THAT(refused({{"points", {{1.01, 0.5}}}}), testing::HasSubstr("each number from 0 to 1"));
  EXPECT_THAT(refused({{"max_delta_e", 100.1}}), testing::HasSubstr("a number from 0 to 100"));
  EXPECT_THAT(refused({{"max_delta_e", -0.1}}), testing::HasSubstr("a number from 0 to 100"));
  EXPECT_THAT(refused({{"radius", 1001}}), testing::HasSubstr("from 0 to 1000"));
}

TEST(ThresholdColorDistance, NeedsThreeChannels) {
  const auto capture = test::capture("c", {{"MSP", {{"NIR", test::flat_image<std::uint8_t>(1, 1, 1)}}}});
  const MaskOperationInfo& info = get_mask_operation(key);
  const Value named{{"image", "NIR"}};
  const std::string sentence =
      "threshold_color_distance: MSP.NIR is a single-band image; colour needs an image with three channels.";
  EXPECT_EQ(test::refusal([&] { static_cast<void>(applied(key, *capture, {}, named)); }), sentence);
  EXPECT_EQ(test::refusal([&] { info.check_capture(*capture, info()->validate_params(named)); }), sentence);
}

TEST(ThresholdColorDistance, RefusesWhatTheChosenReferenceDoesNotLookAt) {
  const auto refused = [](const Value& params) {
    return test::refusal([&] { static_cast<void>(kept(*colors(palette), params)); });
  };
  Value params = by_hand(50, 0, 0, 10, "76");
  EXPECT_EQ(refused(params), "");
  params["points"] = Value::array({Value::array({0.25, 0.5})});
  EXPECT_EQ(refused(params),
            "threshold_color_distance: parameter \"points\" is [[0.25, 0.5]], but parameter \"reference\" is \"lab\"; "
            "choose \"points\" to use it.");
  params["points"] = Value::array({Value::array({0.5, 0.5})});
  params["radius"] = 2;
  EXPECT_THAT(refused(params),
              testing::HasSubstr("parameter \"radius\" is 2, but parameter \"reference\" is \"lab\";"));
  params["radius"] = 0;
  params["reference"] = "points";
  EXPECT_THAT(refused(params), testing::StartsWith("threshold_color_distance: parameter \"colors\" is "));
  EXPECT_THAT(refused(params),
              testing::EndsWith(", but parameter \"reference\" is \"points\"; choose \"lab\" to use it."));
}

}  // namespace
}  // namespace orvexa::model
