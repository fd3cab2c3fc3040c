#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;
using testing::ElementsAre;

template <typename T>
std::string kept(const std::vector<T>& values, const Value& params, std::optional<double> white = {}) {
  const auto capture = test::capture("c", {{"MSP", {{"NIR", test::image<T>({values})}}}});
  capture->measurements.at("MSP")->declared_white_level = white;
  return drawing(applied("threshold_range", *capture, {}, params)).front();
}

TEST(ThresholdRange, KeepsBothLimits) {
  EXPECT_EQ(kept<std::uint8_t>({50, 51, 102, 103}, {{"low", 0.2}, {"high", 0.4}}), ".##.");
}

TEST(ThresholdRange, KeepsEverythingFromBlackToWhiteByDefault) {
  EXPECT_EQ(kept<std::uint8_t>({0, 128, 255}, {}), "###");
  EXPECT_EQ(kept<std::uint16_t>({0, 4095, 4096}, {}, 4095), "##.");
}

TEST(ThresholdRange, MeetsEveryCountThatIsGivenAsAFraction) {
  for (const double white : {255.0, 4095.0, 10000.0, 65535.0}) {
    const auto count_step = std::max(1.0, std::floor(white / 251));
    std::vector<std::uint16_t> counts;
    for (double count = 0; count <= white; count += count_step) counts.push_back(static_cast<std::uint16_t>(count));
    const auto capture = test::capture("c", {{"MSP", {{"NIR", test::image<std::uint16_t>({counts})}}}});
    capture->measurements.at("MSP")->declared_white_level = white;
    for (std::size_t i = 0; i < counts.size(); ++i) {
      const double exact = counts[i] / white;
      const double six_decimals = std::round(exact * 1e6) / 1e6;
      for (const double fraction : {exact, six_decimals}) {
        const Mask mask = applied("threshold_range", *capture, {}, {{"low", fraction}, {"high", fraction}});
        ASSERT_EQ(mask.count(), 1) << counts[i] << " of " << white << " as " << fraction;
        ASSERT_TRUE(mask.at(0, static_cast<int>(i)));
      }
    }
  }
}

TEST(ThresholdRange, ComparesFloatsInTheirOwnType) {
  // 0.1f is 0.100000001490116, a little above 0.1; the limit is rounded like the pixel.
  EXPECT_EQ(kept<float>({0.1f, 0.2f, std::nextafter(0.2f, 1.0f)}, {{"low", 0.1}, {"high", 0.2}}), "##.");
  EXPECT_EQ(kept<float>({-3.0f, 700.0f}, {{"low", -5}, {"high", 1000}}), "##");
}

TEST(ThresholdRange, KeepsTheOutsideWhenInverted) {
  EXPECT_EQ(kept<std::uint8_t>({50, 51, 102, 103}, {{"low", 0.2}, {"high", 0.4}, {"invert", true}}), "#..#");
  EXPECT_EQ(kept<std::uint8_t>({0, 255}, {{"low", 2}, {"high", 3}, {"invert", true}}), "##");
}

TEST(ThresholdRange, NeverKeepsWhatIsNoNumber) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  constexpr float infinity = std::numeric_limits<float>::infinity();
  EXPECT_EQ(kept<float>({nan, infinity, -infinity, 0.5f}, {}), "...#");
  EXPECT_EQ(kept<float>({nan, infinity, -infinity, 0.5f}, {{"low", 2}, {"high", 3}, {"invert", true}}), "...#");
}

TEST(ThresholdRange, MayLieOutsideWhatTheTypeHolds) {
  EXPECT_EQ(kept<std::uint8_t>({0, 255}, {{"low", -10}, {"high", 10}}), "##");
  EXPECT_EQ(kept<std::uint8_t>({0, 255}, {{"low", 2}, {"high", 10}}), "..");
  EXPECT_EQ(kept<std::uint8_t>({0, 255}, {{"low", -10}, {"high", -2}}), "..");
  EXPECT_EQ(kept<float>({0.0f}, {{"low", -1e300}, {"high", 1e300}}), "#");
}

TEST(ThresholdRange, MatchesAnObviousComparisonOfRawCounts) {
  // cv2.inRange(image, 1000, 3000) on raw counts is what a user compares with.
  const auto capture = test::random_capture(3, 60, 50);
  const Mask mask = applied("threshold_range", *capture, {},
                            {{"band", "MSP.NIR"}, {"low", 1000.0 / 65535}, {"high", 3000.0 / 65535}});
  const Image nir = *capture->find_image("MSP", "NIR");
  for (int y = 0; y < 60; ++y) {
    for (int x = 0; x < 50; ++x) {
      const int count = nir.row<std::uint16_t>(y)[static_cast<std::size_t>(x)];
      ASSERT_EQ(mask.at(y, x), count >= 1000 && count <= 3000) << count;
    }
  }
}

TEST(ThresholdRange, LooksAtTheChosenPlaneOfAColourImage) {
  cv::Mat pixels(1, 2, CV_8UC3);
  pixels.at<cv::Vec3b>(0, 0) = {200, 0, 0};
  pixels.at<cv::Vec3b>(0, 1) = {0, 0, 200};
  const auto capture = test::capture("c", {{"CLR", {{"RGB", Image(pixels)}}}});
  EXPECT_THAT(drawing(applied("threshold_range", *capture, {}, {{"band", "RGB.R"}, {"low", 0.5}})), ElementsAre("#."));
  EXPECT_THAT(drawing(applied("threshold_range", *capture, {}, {{"band", "RGB.B"}, {"low", 0.5}})), ElementsAre(".#"));
  // Grey: 0.299 * 200 = 59.8 -> 60 and 0.114 * 200 = 22.8 -> 23.
  EXPECT_THAT(drawing(applied("threshold_range", *capture, {}, {{"low", 60.0 / 255}})), ElementsAre("#."));
}

TEST(ThresholdRange, IsNarrowedToTheIncomingMask) {
  const auto capture = test::capture("c", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(1, 3, 9)}}}});
  EXPECT_THAT(drawing(applied("threshold_range", *capture, test::mask({"#.#"}))), ElementsAre("#.#"));
  EXPECT_THAT(drawing(applied("threshold_range", *capture, test::mask({"#.#"}), {{"reset_mask_chain", true}})),
              ElementsAre("###"));
}

TEST(ThresholdRange, RefusesLimitsInTheWrongOrder) {
  const auto capture = test::random_capture(1, 2, 2);
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(applied("threshold_range", *capture, {}, {{"low", 0.5}, {"high", 0.25}}));
            }),
            "threshold_range: parameter \"low\" is 0.5, but it must not be above \"high\", which is 0.25.");
}

TEST(ThresholdRange, NamesWhatTheCaptureHasWhenABandIsMissing) {
  const auto capture = test::capture("c", {{"MSP", {{"NIR", test::flat_image<std::uint8_t>(1, 1, 1)}}}});
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(applied("threshold_range", *capture, {}, {{"band", "RED"}}));
            }),
            "There is no band \"RED\" in this capture; it has MSP.NIR.");
}

TEST(ThresholdRange, LooksAtTheSmoothedBand) {
  // Medians of three: 10 10 10 90 90 90; Gaussian means keep fractions of counts: 0 0 255 0 0 with sigma 0.2 (radius 1,
  // exp(-12.5) = 3.7e-6) has 255 * 3.7e-6 = 0.00095 beside the point, which is more than nothing.
  EXPECT_EQ(kept<std::uint8_t>({10, 10, 90, 10, 90, 90}, {{"low", 0.2}, {"smooth", "median"}}), "...###");
  const Value gaussian{{"low", 3e-6}, {"high", 1}, {"smooth", "gaussian"}, {"smooth_sigma", 0.2}};
  EXPECT_EQ(kept<std::uint8_t>({0, 0, 255, 0, 0}, gaussian), ".###.");
  EXPECT_EQ(test::refusal([] {
              static_cast<void>(kept<std::uint8_t>({1}, {{"smooth", "bilateral"}, {"smooth_radius", 9}}));
            }),
            "threshold_range: parameter \"smooth_radius\" is 9, but the bilateral filter's radius is from 1 to 5.");
}

}  // namespace
}  // namespace orvexa::model
