#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::applied;
using test::drawing;

constexpr const char* key = "cluster_kmeans";

std::shared_ptr<CaptureSet> greys(const std::vector<std::vector<std::uint8_t>>& rows) {
  return test::capture("c", {{"GRY", {{"GRY", test::image<std::uint8_t>(rows)}}}});
}

const std::vector<std::vector<std::uint8_t>> three_groups{{10, 11, 100, 101, 102, 240}};

TEST(ClusterKmeans, KeepsTheBrightestTheLargestOrThePickedCluster) {
  const auto kept = [&](const Value& params) {
    return drawing(applied(key, *greys(three_groups), {}, params)).front();
  };
  EXPECT_EQ(kept({}), ".....#");
  EXPECT_EQ(kept({{"keep", "largest"}}), "..###.");
  EXPECT_EQ(kept({{"keep", "points"}, {"points", {{0.2, 0.5}}}}), "##....");
  EXPECT_EQ(kept({{"keep", "points"}, {"points", {{0.2, 0.5}, {0.99, 0.5}}}}), "##...#");
  // Of two clusters the last two groups lie further apart (138) than the first two (90.5).
  EXPECT_EQ(kept({{"k", 2}, {"keep", "largest"}}), "#####.");
}

TEST(ClusterKmeans, LooksOnlyAtThePixelsOfTheIncomingMask) {
  const auto capture = greys(three_groups);
  EXPECT_EQ(drawing(applied(key, *capture, test::mask({"#####."}), {{"k", 2}})).front(), "..###.");
  // The picked pixel need not be in the mask: 240 is nearest to the brighter of the centres 10.5 and 101.
  EXPECT_EQ(
      drawing(applied(key, *capture, test::mask({"#####."}), {{"k", 2}, {"keep", "points"}, {"points", {{1, 0}}}}))
          .front(),
      "..###.");
}

TEST(ClusterKmeans, GivesAnEmptyMaskWithoutContrast) {
  EXPECT_EQ(applied(key, *greys({{7, 7, 7}}), {}).count(), 0);
  EXPECT_EQ(test::note_of(key, *greys({{7, 7, 7}}), {}),
            "no_contrast: all pixels have the same values, so the mask is empty");
  EXPECT_EQ(test::note_of(key, *greys({{7, 8, 9}}), Mask::empty({1, 3})),
            "no_contrast: there is no pixel to look at, so the mask is empty");
}

TEST(ClusterKmeans, HasAsManyClustersAsThereAreValues) {
  EXPECT_EQ(drawing(applied(key, *greys({{7, 8, 7}}), {}, {{"k", 12}})).front(), ".#.");
  EXPECT_THAT(test::note_of(key, *greys({{7, 8, 7}}), {}, {{"k", 12}}),
              testing::StartsWith("kept cluster 2 of 2, darkest first; mean squared distance 0"));
}

TEST(ClusterKmeans, ComparesAllBandsOfTheCaptureOrTheNamedOnes) {
  const auto capture = test::capture("c", {{"MSP",
                                            {{"RED", test::image<std::uint8_t>({{10, 10, 200, 200}})},
                                             {"NIR", test::image<std::uint8_t>({{50, 250, 50, 50}})}}}});
  // Sums: 60, 260, 250, 250.
  EXPECT_EQ(drawing(applied(key, *capture, {})).front(), ".#..");
  EXPECT_EQ(drawing(applied(key, *capture, {}, {{"bands", {"MSP.RED"}}, {"k", 2}})).front(), "..##");
  EXPECT_EQ(drawing(applied(key, *capture, {}, {{"bands", {"RED", "MSP.RED"}}, {"k", 2}})).front(), "..##");
}

// Lab by python3-skimage: dark green (0, 100, 0) L 36.2, red (255, 0, 0) L 53.2, blue (0, 0, 255) L 32.3.
TEST(ClusterKmeans, ComparesColoursInLab) {
  cv::Mat pixels(1, 6, CV_8UC3, cv::Scalar(0, 100, 0));
  pixels.colRange(2, 4).setTo(cv::Scalar(255, 0, 0));
  pixels.colRange(4, 6).setTo(cv::Scalar(0, 0, 255));
  const auto capture = test::capture("c", {{"CLR", {{"RGB", Image(pixels)}}}});
  EXPECT_EQ(drawing(applied(key, *capture, {}, {{"space", "lab"}})).front(), "..##..") << "red is the brightest";
  EXPECT_EQ(
      drawing(applied(key, *capture, {}, {{"space", "lab"}, {"keep", "points"}, {"points", {{0.9, 0.5}}}})).front(),
      "....##");
}

TEST(ClusterKmeans, NeverKeepsWhatIsNoNumber) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const auto capture = test::capture("c", {{"GRY", {{"GRY", test::image<float>({{nan, 0.1F, 0.9F, 0.9F}})}}}});
  EXPECT_EQ(drawing(applied(key, *capture, {}, {{"k", 2}})).front(), "..##");
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(applied(key, *capture, {}, {{"keep", "points"}, {"points", {{0.1, 0.5}}}}));
            }),
            "The pixel at the point (0.1, 0.5) has a value that is not a number.");
}

TEST(ClusterKmeans, KeepsEveryPixelOfExactlyOneCluster) {
  const auto capture = test::random_capture(31, 60, 70);
  const Mask mask = test::random_mask(32, 60, 70, 0.7);
  const int k = 4;
  cv::Mat seen = cv::Mat::zeros(60, 70, CV_8UC1);
  const auto operation = get_mask_operation(key)();
  static_cast<void>(operation->apply({.image_stack = *capture, .current_mask = mask, .params = {{"k", k}}}));
  const Image overlay = operation->viz_overlay.value();
  // One picked pixel of each colour of the overlay.
  std::vector<std::vector<int>> colors;
  std::int64_t total = 0;
  for (int y = 0; y < 60; ++y) {
    for (int x = 0; x < 70; ++x) {
      const auto* rgb = overlay.row<std::uint8_t>(y).data() + 3 * x;
      const std::vector<int> color{rgb[0], rgb[1], rgb[2]};
      EXPECT_EQ(color == std::vector<int>({0, 0, 0}), !mask.at(y, x));
      if (!mask.at(y, x) || std::ranges::find(colors, color) != colors.end()) continue;
      colors.push_back(color);
      const Mask part =
          applied(key, *capture, mask, {{"k", k}, {"keep", "points"}, {"points", {{(x + 0.5) / 70, (y + 0.5) / 60}}}});
      EXPECT_TRUE(part.at(y, x));
      cv::Mat overlap;
      cv::bitwise_and(seen, part.read_only(), overlap);
      EXPECT_EQ(cv::countNonZero(overlap), 0);
      cv::bitwise_or(seen, part.read_only(), seen);
      total += part.count();
    }
  }
  EXPECT_EQ(colors.size(), 4u);
  EXPECT_EQ(total, mask.count());
}

// 60 % of the pixels are near 20, the rest near 220: a sample of 1000 finds the same two groups.
TEST(ClusterKmeans, FitsToASampleOfALargeMaskAndSaysSo) {
  cv::Mat pixels(200, 200, CV_8UC1);
  for (int y = 0; y < 200; ++y) {
    for (int x = 0; x < 200; ++x) {
      pixels.at<std::uint8_t>(y, x) = static_cast<std::uint8_t>((x < 120 ? 20 : 220) + (x * 7 + y * 3) % 9);
    }
  }
  const auto capture = test::capture("c", {{"GRY", {{"GRY", Image(pixels)}}}});
  const Value params{{"k", 2}, {"fit_pixels", 1000}};
  EXPECT_EQ(applied(key, *capture, {}, params).count(), 200 * 80);
  EXPECT_THAT(test::note_of(key, *capture, {}, params), testing::EndsWith("; centres fitted to 1000 of 40000 pixels"));
}

TEST(ClusterKmeans, RefusesWhatIsOutsideItsLimits) {
  const auto refused = [](const Value& params) {
    return test::refusal([&] { static_cast<void>(applied(key, *greys(three_groups), {}, params)); });
  };
  EXPECT_THAT(refused({{"k", 1}}), testing::HasSubstr("from 2 to 12"));
  EXPECT_THAT(refused({{"k", 13}}), testing::HasSubstr("from 2 to 12"));
  EXPECT_THAT(refused({{"fit_pixels", 999}}), testing::HasSubstr("from 1000 to"));
  EXPECT_EQ(refused({{"keep", "points"}, {"points", Value::array()}}),
            "cluster_kmeans: parameter \"points\" is empty, but at least one point has to be picked when \"keep\" is "
            "\"points\".");
  EXPECT_THAT(refused({{"space", "lab"}}), testing::HasSubstr("role R (red)"));
  EXPECT_EQ(refused({{"bands", {"NIR"}}}), "There is no band \"NIR\" in this capture; it has GRY.GRY.");
  const MaskOperationInfo& info = get_mask_operation(key);
  EXPECT_EQ(test::refusal([&] {
              info.check_capture(*greys(three_groups), info()->validate_params({{"bands", {"NIR"}}}));
            }),
            "There is no band \"NIR\" in this capture; it has GRY.GRY.");
}

// Of a million pixels 20,000 are drawn, one from each 50: four places, of which each is hit with a chance of 1 in 50.
TEST(ClusterKmeans, FindsAnObjectThatNoneOfThePixelsDrawnShows) {
  for (const cv::Point& place : {cv::Point(0, 0), cv::Point(501, 300), cv::Point(77, 640), cv::Point(999, 999)}) {
    SCOPED_TRACE(testing::Message() << place);
    cv::Mat pixels(1000, 1000, CV_8UC1, cv::Scalar(10));
    pixels.at<std::uint8_t>(place) = 200;
    const auto capture = test::capture("c", {{"GRY", {{"GRY", Image(pixels)}}}});
    const Mask mask = applied(key, *capture, {}, {{"k", 2}});
    EXPECT_EQ(mask.count(), 1);
    EXPECT_TRUE(mask.at(place.y, place.x));
    EXPECT_THAT(test::note_of(key, *capture, {}, {{"k", 2}}), testing::StartsWith("kept cluster 2 of 2, "));
  }
}

// 90,000 pixels, of which 1,000 are drawn. Two small objects, one of them with noise: a mean of 203 of its 9 values.
TEST(ClusterKmeans, FindsSeveralSmallObjectsOfSeveralValues) {
  cv::Mat pixels(300, 300, CV_8UC1, cv::Scalar(10));
  pixels.at<std::uint8_t>(250, 20) = 100;
  for (int i = 0; i < 9; ++i) pixels.at<std::uint8_t>(40 + i / 3, 100 + i % 3) = static_cast<std::uint8_t>(199 + i);
  const auto capture = test::capture("c", {{"GRY", {{"GRY", Image(pixels)}}}});
  const auto count = [&](const Value& chosen) {
    Value params{{"k", 3}, {"fit_pixels", 1000}};
    params.update(chosen);
    return applied(key, *capture, {}, params).count();
  };
  EXPECT_EQ(count({{"keep", "brightest"}}), 9);
  EXPECT_EQ(count({{"keep", "points"}, {"points", {{20.5 / 300, 250.5 / 300}}}}), 1);
  EXPECT_EQ(count({{"keep", "largest"}}), 90000 - 10);
}

TEST(ClusterKmeans, SaysThatAllPixelsAreAlikeOnlyWhenTheyAre) {
  const auto flat = test::capture("c", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(300, 300, 10)}}}});
  EXPECT_EQ(test::note_of(key, *flat, {}, {{"fit_pixels", 1000}}),
            "no_contrast: all pixels have the same values, so the mask is empty");
}

TEST(ClusterKmeans, RefusesWhatItsChoicesDoNotLookAt) {
  const auto refused = [](const Value& params) {
    return test::refusal([&] { static_cast<void>(applied(key, *test::random_capture(1, 4, 4), {}, params)); });
  };
  EXPECT_EQ(refused({{"points", {{0.25, 0.75}}}}),
            "cluster_kmeans: parameter \"points\" is [[0.25, 0.75]], but parameter \"keep\" is \"brightest\"; choose "
            "\"points\" to use it.");
  EXPECT_EQ(
      refused({{"space", "lab"}, {"bands", {"MSP.NIR"}}}),
      "cluster_kmeans: parameter \"bands\" is [\"MSP.NIR\"], but parameter \"space\" is \"lab\"; choose \"bands\" "
      "to use it.");
  EXPECT_EQ(
      refused({{"image", "CLR.RGB"}}),
      "cluster_kmeans: parameter \"image\" is \"CLR.RGB\", but parameter \"space\" is \"bands\"; choose \"lab\" to "
      "use it.");
  EXPECT_EQ(refused({{"points", {{0.5, 0.5}}}}), "") << "the default";
}

}  // namespace
}  // namespace orvexa::model
