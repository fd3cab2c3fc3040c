#include "orvexa/model/measures/shape_measures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "support/captures.h"
#include "support/counting_event.h"

namespace orvexa::model {
namespace {

cv::Mat picture(const std::vector<std::string>& rows) {
  return test::mask(rows).read_only().clone();
}

cv::Mat disc(int radius, int hole_radius = -1) {
  const int size = 2 * radius + 1;
  cv::Mat pixels = cv::Mat::zeros(size, size, CV_8UC1);
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      const int squared = (x - radius) * (x - radius) + (y - radius) * (y - radius);
      const bool in_hole = hole_radius >= 0 && squared <= hole_radius * hole_radius;
      if (squared <= radius * radius && !in_hole) pixels.at<std::uint8_t>(y, x) = 255;
    }
  }
  return pixels;
}

cv::Mat rectangle(int height, int width) {
  return {height, width, CV_8UC1, cv::Scalar(255)};
}

cv::Mat blob() {
  return picture({"##......", "##...#..", "##..##..", "##.###..", "######..", "#####...", ".....##."});
}

// Oracle of the table below: python3-skimage 0.19 (perimeter_crofton(m, directions=4), perimeter(m), regionprops(m)
// axes and eccentricity) and scipy.spatial.ConvexHull over the four corners of every pixel (volume = area, area =
// perimeter, greatest pairwise distance, least width over the hull's edges), each on the picture padded by two pixels.
struct OracleCase {
  const char* name;
  cv::Mat picture;
  std::int64_t area;
  double crofton, chain, hull_area, hull_perimeter, max_feret, min_feret, major, minor, eccentricity;
};

class ShapeOracle : public testing::TestWithParam<OracleCase> {};

TEST_P(ShapeOracle, AgreesWithIndependentLibraries) {
  const OracleCase& expected = GetParam();
  const ShapeMeasures shape = measure_shape(expected.picture);
  EXPECT_EQ(shape.area, expected.area);
  EXPECT_NEAR(shape.perimeter, expected.crofton, 1e-9);
  EXPECT_NEAR(chain_perimeter(expected.picture), expected.chain, 1e-9);
  EXPECT_NEAR(shape.hull_area, expected.hull_area, 1e-9);
  EXPECT_NEAR(shape.hull_perimeter, expected.hull_perimeter, 1e-9);
  EXPECT_NEAR(shape.max_feret, expected.max_feret, 1e-9);
  EXPECT_NEAR(shape.min_feret, expected.min_feret, 1e-9);
  EXPECT_NEAR(shape.ellipse.major_axis, expected.major, 1e-9);
  EXPECT_NEAR(shape.ellipse.minor_axis, expected.minor, 1e-9);
  EXPECT_NEAR(shape.ellipse.eccentricity, expected.eccentricity, 1e-9);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, ShapeOracle,
    testing::Values(
        OracleCase{"Disc", disc(50), 7845, 315.262052576367, 329.7056274847714, 7989, 317.38913029381604,
                   101.40019723846694, 100.40916292848974, 99.94333639997438, 99.94333639997438, 0},
        OracleCase{"Rectangle", rectangle(40, 60), 2400, 188.5011690591644, 196, 2400, 200, 72.11102550927978, 40,
                   69.2724091299463, 46.17358552246078, 0.7454595357375622},
        OracleCase{"Ring", disc(20, 10), 940, 192.91135543168843, 203.4802307403552, 1313, 128.95514870035026,
                   41.400483088968905, 40.60654986442325, 44.76891018495912, 44.76891018495912, 0},
        OracleCase{"OnePixel", rectangle(1, 1), 1, 2.681517061334488, 0, 1, 4, std::numbers::sqrt2, 1, 0, 0, 0},
        OracleCase{"BlobOfTwoParts", blob(), 27, 28.576536490168763, 21.65685424949238, 41, 25.321144652803234,
                   9.899494936611665, 6.27571632442189, 8.5121303362941, 5.9161158931682944, 0.7189886919599092}),
    [](const auto& shape) { return std::string(shape.param.name); });

// By hand: along one row of 60 pixels the variance of the columns is (60^2 - 1) / 12, so the rectangle of 40 x 60 has
// axes 4 sqrt(3599 / 12) = 69.2724 and 4 sqrt(1599 / 12) = 46.1736; its diagonal is sqrt(40^2 + 60^2) = 72.1110.
TEST(ShapeMeasures, ARectangleHasTheAnswersOfItsFormulas) {
  const ShapeMeasures shape = measure_shape(rectangle(40, 60));
  EXPECT_NEAR(shape.ellipse.major_axis, 4 * std::sqrt(3599.0 / 12), 1e-12);
  EXPECT_NEAR(shape.ellipse.minor_axis, 4 * std::sqrt(1599.0 / 12), 1e-12);
  EXPECT_EQ(shape.max_feret, std::sqrt(5200.0));
  EXPECT_EQ(shape.solidity(), 1);
  EXPECT_EQ(shape.ellipse.centroid_x, 29.5);
  EXPECT_EQ(shape.ellipse.centroid_y, 19.5);
  // Crofton: 40 horizontal and 60 vertical lines, 99 lines on either diagonal, each entered once.
  EXPECT_NEAR(shape.perimeter, std::numbers::pi / 4 * (40 + 60 + 2 * 99 / std::numbers::sqrt2), 1e-12);
}

TEST(ShapeMeasures, ADiscHasTheCircularityOfADisc) {
  EXPECT_NEAR(measure_shape(disc(50)).circularity(), 0.992, 5e-4);
}

TEST(ShapeMeasures, TheRimOfAHoleCounts) {
  const double outer = crofton_perimeter(disc(20));
  const double hole = crofton_perimeter(disc(10));
  // The hole's rim seen from the ring: the same lines cross it, from the other side.
  EXPECT_NEAR(crofton_perimeter(disc(20, 10)), outer + hole, 1e-9);
}

TEST(ShapeMeasures, ASetWithoutPixelsHasNoShape) {
  const cv::Mat nothing = cv::Mat::zeros(3, 4, CV_8UC1);
  EXPECT_EQ(pixel_area(nothing), 0);
  EXPECT_EQ(pixel_area(cv::Mat()), 0);
  EXPECT_EQ(crofton_perimeter(nothing), 0);
  EXPECT_EQ(chain_perimeter(nothing), 0);
  EXPECT_TRUE(corner_hull(nothing).vertices.empty());
  EXPECT_THROW(static_cast<void>(measure_shape(nothing)), std::invalid_argument);
}

TEST(ShapeMeasures, ALineOfOnePixelWidthHasNoWidthInItsMoments) {
  for (const cv::Mat& line : {rectangle(1, 37), rectangle(37, 1)}) {
    const EllipseFit fit = fit_ellipse(line);
    EXPECT_NEAR(fit.major_axis, 4 * std::sqrt((37.0 * 37 - 1) / 12), 1e-12);
    EXPECT_EQ(fit.minor_axis, 0);
    EXPECT_EQ(fit.eccentricity, 1);
  }
}

cv::Mat random_picture(std::mt19937& random, int height, int width) {
  cv::Mat pixels = cv::Mat::zeros(height, width, CV_8UC1);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) pixels.at<std::uint8_t>(y, x) = random() % 3 == 0 ? 255 : 0;
  }
  pixels.at<std::uint8_t>(height / 2, width / 2) = 255;
  return pixels;
}

TEST(ShapeMeasures, EndWithoutAResultOnceCancelled) {
  const cv::Mat picture(3, 4, CV_8UC1, cv::Scalar(255));
  common::CancelEvent event;
  const RunContext context{.cancel_event = &event, .progress = {}};
  EXPECT_EQ(measure_shape(picture, context).area, 12);
  EXPECT_GT(chain_perimeter(picture, context), 0);
  event.set();
  EXPECT_THROW(static_cast<void>(crofton_perimeter(picture, context)), CancelledError);
  EXPECT_THROW(static_cast<void>(chain_perimeter(picture, context)), CancelledError);
  EXPECT_THROW(static_cast<void>(corner_hull(picture, context)), CancelledError);
  EXPECT_THROW(static_cast<void>(fit_ellipse(picture, context)), CancelledError);
  EXPECT_THROW(static_cast<void>(measure_shape(picture, context)), CancelledError);
}

TEST(ShapeMeasures, LookAtTheFlagInEveryRow) {
  const cv::Mat picture(500, 4, CV_8UC1, cv::Scalar(255));
  const auto looks = [&](const auto& measure) {
    const test::CountingEvent event;
    static_cast<void>(measure(picture, RunContext{.cancel_event = &event, .progress = {}}));
    return event.looks();
  };
  EXPECT_GE(looks(crofton_perimeter), 500);
  EXPECT_GE(looks(chain_perimeter), 500);
  EXPECT_GE(looks(corner_hull), 500);
  EXPECT_GE(looks(fit_ellipse), 500);
}

TEST(ShapeMeasures, AQuarterTurnChangesNothing) {
  for (unsigned seed = 0; seed < 50; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const cv::Mat before = random_picture(random, 1 + static_cast<int>(seed % 13), 1 + static_cast<int>(seed % 17));
    cv::Mat after;
    cv::rotate(before, after, cv::ROTATE_90_CLOCKWISE);
    const ShapeMeasures a = measure_shape(before);
    const ShapeMeasures b = measure_shape(after);
    EXPECT_EQ(a.area, b.area);
    EXPECT_DOUBLE_EQ(a.perimeter, b.perimeter);
    EXPECT_DOUBLE_EQ(chain_perimeter(before), chain_perimeter(after));
    EXPECT_EQ(a.hull_area, b.hull_area);
    EXPECT_NEAR(a.hull_perimeter, b.hull_perimeter, 1e-12);
    EXPECT_EQ(a.max_feret, b.max_feret);
    EXPECT_NEAR(a.min_feret, b.min_feret, 1e-12);
    EXPECT_NEAR(a.ellipse.major_axis, b.ellipse.major_axis, 1e-12);
    EXPECT_NEAR(a.ellipse.minor_axis, b.ellipse.minor_axis, 1e-6);
  }
}

// The slow way: every corner of every pixel, a hull by gift wrapping, all pairs of corners.
TEST(ShapeMeasures, TheHullHoldsEveryCornerAndIsMadeOfCorners) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const cv::Mat pixels = random_picture(random, 1 + static_cast<int>(seed % 11), 1 + static_cast<int>(seed % 7));
    std::vector<cv::Point> corners;
    for (int y = 0; y < pixels.rows; ++y) {
      for (int x = 0; x < pixels.cols; ++x) {
        if (pixels.at<std::uint8_t>(y, x) == 0) continue;
        for (int k = 0; k < 4; ++k) corners.emplace_back(x + k % 2, y + k / 2);
      }
    }
    const CornerHull hull = corner_hull(pixels);
    double longest = 0;
    for (const cv::Point& a : corners) {
      for (const cv::Point& b : corners) longest = std::max(longest, std::hypot(a.x - b.x, a.y - b.y));
      for (std::size_t i = 0; i < hull.vertices.size(); ++i) {
        const cv::Point& from = hull.vertices[i];
        const cv::Point& to = hull.vertices[(i + 1) % hull.vertices.size()];
        EXPECT_LE((to.x - from.x) * (a.y - from.y) - (to.y - from.y) * (a.x - from.x), 0);
      }
    }
    for (const cv::Point& vertex : hull.vertices) {
      EXPECT_NE(std::find(corners.begin(), corners.end(), vertex), corners.end());
    }
    EXPECT_NEAR(hull.max_feret(), longest, 1e-12);
  }
}

}  // namespace
}  // namespace orvexa::model
