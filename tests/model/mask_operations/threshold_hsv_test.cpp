#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;

std::shared_ptr<CaptureSet> colors(const std::vector<cv::Vec3b>& pixels) {
  cv::Mat row(1, static_cast<int>(pixels.size()), CV_8UC3);
  for (int x = 0; x < row.cols; ++x) row.at<cv::Vec3b>(0, x) = pixels[static_cast<std::size_t>(x)];
  return test::capture("c", {{"CLR", {{"RGB", Image(row)}}}});
}

// skimage.color.rgb2hsv: hues 20, 140, 260 and 340 degrees, saturation 0.75, value 200 / 255 = 0.784; then 348 degrees
// with saturation 0.0196; black; grey of value 10 / 255 = 0.0392.
const std::vector<cv::Vec3b> palette{{200, 100, 50},  {50, 200, 100}, {100, 50, 200}, {200, 50, 100},
                                     {255, 250, 251}, {0, 0, 0},      {10, 10, 10}};

std::string kept(const Value& params) {
  return drawing(applied("threshold_hsv", *colors(palette), {}, params)).front();
}

TEST(ThresholdHsv, KeepsEverythingByDefault) {
  EXPECT_EQ(kept({}), "#######");
}

// The hues above are of (200, 100, 50): 60 * (100 - 50) / 150 = 20; saturation (200 - 50) / 200 = 0.75.
TEST(ThresholdHsv, KeepsHuesFromStartToEndLimitsIncluded) {
  EXPECT_EQ(kept({{"hue_from", 20}, {"hue_to", 140}}), "##.....");
  EXPECT_EQ(kept({{"hue_from", 20.001}, {"hue_to", 139.999}}), ".......");
  EXPECT_EQ(kept({{"hue_from", 260}, {"hue_to", 260}}), "..#....");
}

TEST(ThresholdHsv, WrapsOverZeroWhenTheStartIsAboveTheEnd) {
  EXPECT_EQ(kept({{"hue_from", 340}, {"hue_to", 20}}), "#..#...");
  EXPECT_EQ(kept({{"hue_from", 341}, {"hue_to", 20}}), "#......");
  EXPECT_EQ(kept({{"hue_from", 340}, {"hue_to", 19}}), "...#...");
}

TEST(ThresholdHsv, TakesPureRedForZeroAndThreeHundredAndSixtyDegrees) {
  const auto red = colors({{255, 0, 0}});
  EXPECT_EQ(applied("threshold_hsv", *red, {}, {{"hue_from", 0}, {"hue_to", 10}}).count(), 1);
  EXPECT_EQ(applied("threshold_hsv", *red, {}, {{"hue_from", 350}, {"hue_to", 360}}).count(), 1);
  EXPECT_EQ(applied("threshold_hsv", *red, {}, {{"hue_from", 1}, {"hue_to", 359}}).count(), 0);
}

TEST(ThresholdHsv, GivesPaleAndGreyPixelsNoHue) {
  // Saturation 5 / 255 = 0.0196 is below 0.02, though its hue would be 348 degrees.
  EXPECT_EQ(kept({{"hue_from", 1}, {"hue_to", 360}}), "####...");
  EXPECT_EQ(kept({{"hue_from", 0}, {"hue_to", 360}, {"s_max", 0.02}}), "....###");
}

TEST(ThresholdHsv, LimitsSaturationAndValue) {
  EXPECT_EQ(kept({{"s_min", 0.75}, {"s_max", 0.75}}), "####...");
  EXPECT_EQ(kept({{"v_max", 10.0 / 255}}), ".....##");
  EXPECT_EQ(kept({{"v_min", 200.0 / 255}, {"v_max", 200.0 / 255}}), "####...");
  EXPECT_EQ(kept({{"v_min", 1.0}}), "....#..");
}

TEST(ThresholdHsv, TakesWhatIsBrighterThanTheDeclaredWhiteForWhite) {
  const Image image(cv::Mat(1, 1, CV_16UC3, cv::Scalar(5000, 2000, 1000)));
  const auto capture = test::capture("c", {{"CLR", {{"RGB", image}}}});
  capture->measurements.at("CLR")->declared_white_level = 4000;
  // (1, 0.5, 0.25): value 1, saturation 0.75, hue 60 * 0.25 / 0.75 = 20.
  EXPECT_EQ(applied("threshold_hsv", *capture, {},
                    {{"v_min", 1.0}, {"s_min", 0.75}, {"s_max", 0.75}, {"hue_from", 20}, {"hue_to", 20}})
                .count(),
            1);
}

TEST(ThresholdHsv, NeverKeepsWhatIsNoNumber) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const Image image(cv::Mat(1, 1, CV_32FC3, cv::Scalar(0.5, nan, 0.5)));
  EXPECT_EQ(applied("threshold_hsv", *test::capture("c", {{"CLR", {{"RGB", image}}}}), {}).count(), 0);
}

TEST(ThresholdHsv, LooksAtTheColourImageBeforeTheBandsOfTheRolesUnlessOneIsNamed) {
  const auto plane = [](std::uint8_t value) { return test::flat_image<std::uint8_t>(1, 1, value); };
  const Image red(cv::Mat(1, 1, CV_8UC3, cv::Scalar(200, 0, 0)));
  const Image green(cv::Mat(1, 1, CV_8UC3, cv::Scalar(0, 200, 0)));
  const auto capture = test::capture(
      "c",
      {{"MSP", {{"PIC", green}, {"RED", plane(0)}, {"GRN", plane(0)}, {"BLU", plane(200)}}}, {"CLR", {{"RGB", red}}}});
  const Value reds{{"hue_from", 330}, {"hue_to", 30}};
  EXPECT_EQ(applied("threshold_hsv", *capture, {}, reds).count(), 1);
  EXPECT_EQ(test::note_of("threshold_hsv", *capture, {}, reds),
            "hue, saturation and value of CLR.RGB.R, CLR.RGB.G, CLR.RGB.B");
  Value named = reds;
  named["image"] = "MSP.PIC";
  EXPECT_EQ(applied("threshold_hsv", *capture, {}, named).count(), 0);
  EXPECT_EQ(test::note_of("threshold_hsv", *capture, {}, named),
            "hue, saturation and value of MSP.PIC.R, MSP.PIC.G, MSP.PIC.B");
}

TEST(ThresholdHsv, LooksAtTheBandsOfTheRolesWithoutAColourImage) {
  const auto plane = [](std::uint8_t value) { return test::flat_image<std::uint8_t>(1, 1, value); };
  const auto capture = test::capture("c", {{"MSP", {{"RED", plane(200)}, {"GRN", plane(0)}, {"BLU", plane(0)}}}});
  const Value reds{{"hue_from", 330}, {"hue_to", 30}};
  EXPECT_EQ(applied("threshold_hsv", *capture, {}, reds).count(), 1);
  EXPECT_EQ(test::note_of("threshold_hsv", *capture, {}, reds),
            "hue, saturation and value of MSP.RED, MSP.GRN, MSP.BLU");
}

TEST(ThresholdHsv, NeedsThreeChannels) {
  const auto capture = test::capture("c", {{"MSP", {{"NIR", test::flat_image<std::uint8_t>(1, 1, 1)}}}});
  EXPECT_THAT(
      test::refusal([&] { static_cast<void>(applied("threshold_hsv", *capture, {})); }),
      testing::StartsWith("No measurement of this capture has a band for the role R (red) together with G, B: "));
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(applied("threshold_hsv", *capture, {}, {{"image", "NIR"}}));
            }),
            "threshold_hsv: MSP.NIR is a single-band image; colour needs an image with three channels.");
}

TEST(ThresholdHsv, RefusesLimitsInTheWrongOrder) {
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(kept({{"s_min", 0.5}, {"s_max", 0.25}}));
            }),
            "threshold_hsv: parameter \"s_min\" is 0.5, but it must not be above \"s_max\", which is 0.25.");
}

}  // namespace
}  // namespace orvexa::model
