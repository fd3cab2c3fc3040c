// Shapes and pictures whose answers are known by hand, through every result operation.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <ostream>

#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

using std::numbers::pi;
using std::numbers::sqrt2;

constexpr Shape frame{60, 80};

Mask drawn(const std::function<bool(int x, int y)>& is_set) {
  cv::Mat pixels(frame.height, frame.width, CV_8UC1);
  for (int y = 0; y < frame.height; ++y) {
    for (int x = 0; x < frame.width; ++x) pixels.at<std::uint8_t>(y, x) = is_set(x, y) ? 255 : 0;
  }
  return Mask(std::move(pixels));
}

std::shared_ptr<CaptureSet> one_hot_pixel() {
  cv::Mat pixels(frame.height, frame.width, CV_8UC1, cv::Scalar(0));
  pixels.at<std::uint8_t>(31, 47) = 255;
  return test::capture("hot", {{"GRY", {{"GRY", Image(pixels)}}}});
}

/// What an operation must say of a phantom.
struct Answer {
  const char* operation;
  const char* metric;
  double value;
};

struct Phantom {
  const char* name;
  Mask mask;
  std::vector<Answer> answers;
  friend void PrintTo(const Phantom& phantom, std::ostream* out) { *out << phantom.name; }
};

/// Columns 10 to 49 and rows 15 to 34.
Phantom rectangle() {
  constexpr double w = 40;
  constexpr double h = 20;
  return {"Rectangle",
          drawn([](int x, int y) { return x >= 10 && x < 50 && y >= 15 && y < 35; }),
          {{"area", "area", w * h},
           // Lines of pixels enter it h times along rows, w times along columns, w + h - 1 times along each diagonal.
           {"perimeter", "perimeter", pi / 4 * (h + w + 2 * (w + h - 1) / sqrt2)},
           {"bounding_box", "bbox_x", 10},
           {"bounding_box", "bbox_y", 15},
           {"bounding_box", "bbox_width", w},
           {"bounding_box", "bbox_height", h},
           {"bounding_box", "extent", 1},
           {"centroid", "centroid_x", 29.5},
           {"centroid", "centroid_y", 24.5},
           {"convex_hull", "hull_area", w * h},
           {"convex_hull", "solidity", 1},
           {"feret", "feret_max", std::hypot(w, h)},
           {"feret", "feret_min", h},
           {"feret", "feret_min_angle", 90},
           // w columns in a row have the variance (w^2 - 1) / 12.
           {"ellipse_fit", "major_axis", 4 * std::sqrt((w * w - 1) / 12)},
           {"ellipse_fit", "minor_axis", 4 * std::sqrt((h * h - 1) / 12)},
           {"ellipse_fit", "ellipse_angle", 0},
           {"enclosing", "min_rectangle_length", w},
           {"enclosing", "min_rectangle_width", h},
           {"enclosing", "rectangularity", 1},
           {"enclosing", "min_circle_diameter", std::hypot(w, h)},
           {"moments_hu", "hu_1", ((w * w - 1) + (h * h - 1)) / (12 * w * h)},
           {"moments_hu", "hu_3", 0},
           {"holes", "euler_number", 1},
           {"holes", "hole_count", 0},
           {"thickness", "inscribed_radius_max", 10},  // rows 24 and 25 have 10 rows to the nearest row outside
           {"symmetry", "symmetry_left_right", 1},
           {"symmetry", "symmetry_top_bottom", 1},
           {"region_count", "region_count", 1}}};
}

Phantom disc() {
  return {"Disc",
          drawn([](int x, int y) { return (x - 40) * (x - 40) + (y - 30) * (y - 30) <= 100; }),
          {{"area", "area", 317},  // lattice points of a circle of radius 10
           {"bounding_box", "bbox_width", 21},
           {"bounding_box", "bbox_height", 21},
           {"bounding_box", "extent", 317.0 / 441},
           {"centroid", "centroid_x", 40},
           {"centroid", "centroid_y", 30},
           {"ellipse_fit", "eccentricity", 0},
           {"thickness", "inscribed_radius_max", std::sqrt(101.0)},  // (10, 1) is the nearest pixel outside
           {"symmetry", "symmetry_left_right", 1},
           {"moments_hu", "hu_2", 0},
           {"holes", "euler_number", 1},
           {"region_count", "region_count", 1}}};
}

/// A square of 21 with a square hole of 9 in its middle: a band of 6.
Phantom ring() {
  const auto in_square = [](int x, int y, int half) { return std::abs(x - 40) <= half && std::abs(y - 30) <= half; };
  return {"Ring",
          drawn([=](int x, int y) { return in_square(x, y, 10) && !in_square(x, y, 4); }),
          {{"area", "area", 441 - 81},
           {"convex_hull", "hull_area", 441},
           {"convex_hull", "solidity", 360.0 / 441},
           {"holes", "euler_number", 0},
           {"holes", "hole_count", 1},
           {"holes", "hole_area", 81},
           {"centroid", "centroid_x", 40},
           {"feret", "feret_max", 21 * sqrt2},
           // In the corner of the band a pixel is 4 from both outer sides and sqrt(18) from the hole's corner.
           {"thickness", "inscribed_radius_max", 4},
           {"skeleton", "skeleton_ends", 0},
           {"symmetry", "symmetry_top_bottom", 1},
           {"region_count", "region_count", 1}}};
}

Phantom one_pixel() {
  return {"OnePixel",
          drawn([](int x, int y) { return x == 7 && y == 9; }),
          {{"area", "area", 1},
           {"perimeter", "perimeter", pi / 4 * (2 + sqrt2)},
           {"bounding_box", "bbox_x", 7},
           {"bounding_box", "extent", 1},
           {"centroid", "centroid_y", 9},
           {"convex_hull", "hull_area", 1},
           {"feret", "feret_max", sqrt2},
           {"feret", "feret_min", 1},
           {"ellipse_fit", "major_axis", 0},
           {"enclosing", "min_circle_diameter", sqrt2},
           {"enclosing", "min_rectangle_area", 1},
           {"moments_hu", "hu_1", 0},
           {"holes", "euler_number", 1},
           {"thickness", "inscribed_radius_max", 1},
           {"skeleton", "skeleton_pixels", 1},
           {"skeleton", "skeleton_length", 0},
           {"symmetry", "symmetry_left_right", 1},
           {"region_count", "region_count", 1}}};
}

Phantom full_frame() {
  return {"FullFrame",
          Mask::full(frame),
          {{"area", "area", 4800},
           {"area", "area_fraction", 1},
           {"bounding_box", "bbox_width_norm", 1},
           {"centroid", "centroid_x_norm", 0.5},
           {"centroid", "centroid_y_norm", 0.5},
           {"convex_hull", "hull_area", 4800},
           {"feret", "feret_max", 100},
           {"holes", "hole_count", 0},
           {"symmetry", "symmetry_left_right", 1},
           {"region_count", "region_count", 1}}};
}

/// Set where column and row have an even sum.
Phantom chequerboard() {
  return {"Chequerboard",
          drawn([](int x, int y) { return (x + y) % 2 == 0; }),
          {{"area", "area", 2400},
           // Every row is entered 40 times and every column 30 times; along the diagonals of even sum (70 of them) and
           // of even difference (69) all pixels are set.
           {"perimeter", "perimeter", pi / 4 * (2400 + 2400 + (70 + 69) / sqrt2)},
           {"bounding_box", "extent", 0.5},
           {"feret", "feret_max", 100},
           {"convex_hull", "hull_area", 4799},  // the two corners that are not set lose half a pixel each
           // Corners join all that is set; each of the 58 x 78 / 2 pixels inside that are not is a hole.
           {"holes", "hole_count", 2262},
           {"holes", "hole_area", 2262},
           {"holes", "euler_number", 1 - 2262},
           {"thickness", "inscribed_radius_max", 1},
           {"region_count", "region_count", 1}}};
}

class Phantoms : public testing::TestWithParam<Phantom> {};
INSTANTIATE_TEST_SUITE_P(ByHand, Phantoms,
                         testing::Values(rectangle(), disc(), ring(), one_pixel(), full_frame(), chequerboard()),
                         [](const auto& phantom) { return std::string(phantom.param.name); });

TEST_P(Phantoms, HaveTheAnswersOfPaperAndPencil) {
  for (const auto& [operation, metric, value] : GetParam().answers) {
    const auto result = test::measured(operation, *one_hot_pixel(), GetParam().mask);
    ASSERT_TRUE(result.metrics.contains(metric)) << metric << ": " << result.reasons.value(metric, "not there");
    EXPECT_NEAR(result.metrics.at(metric).get<double>(), value, 1e-9 * std::max(1.0, std::abs(value))) << metric;
  }
}

/// No phantom makes an operation fail or give a number that is none.
TEST_P(Phantoms, GoThroughEveryOperation) {
  cv::Mat color(frame.height, frame.width, CV_8UC3, cv::Scalar(10, 200, 30));
  const auto flat = [](double value) { return Image(cv::Mat(frame.height, frame.width, CV_16UC1, cv::Scalar(value))); };
  const auto capture = test::capture("phantom",
                                     {{"CLR", {{"RGB", Image(color)}}},
                                      {"MSP", {{"RED", flat(1000)}, {"NIR", flat(3000)}}},
                                      {"FLU", {{"F0", flat(200)}, {"FM", flat(1000)}}}},
                                     test::header_with_scale(0.5));
  for (const auto& [key, info] : get_available_result_operations()) {
    SCOPED_TRACE(key);
    const std::string sentence = test::refusal([&] {
      const auto result = test::measured(key, *capture, GetParam().mask);
      EXPECT_FALSE(result.metrics.empty() && result.reasons.empty());
      for (const auto& [name, value] : result.metrics.items()) {
        EXPECT_TRUE(!value.is_number_float() || std::isfinite(value.get<double>())) << name;
      }
    });
    EXPECT_TRUE(sentence.empty() || sentence.ends_with('.')) << sentence;
  }
}

// One pixel of 255 among 4800, p = 1 / 4800: mean 255 p, variance 255^2 p (1 - p), and skewness and excess kurtosis of
// a yes-or-no variable, (1 - 2p) / sqrt(p (1 - p)) and (1 - 6 p (1 - p)) / (p (1 - p)).
TEST(HotPixel, HasTheStatisticsOfOneInFourThousandEightHundred) {
  const double p = 1.0 / 4800;
  const double q = p * (1 - p);
  const auto result = test::measured("band_statistics", *one_hot_pixel());
  const auto expect = [&](const char* name, double value) {
    const double found = result.metrics.at(std::string("GRY.GRY.") + name).get<double>();
    EXPECT_NEAR(found, value, 1e-9 * std::max(1.0, std::abs(value))) << name;
  };
  expect("n", 4800);
  expect("mean", 255 * p);
  expect("sd", 255 * std::sqrt(q));
  expect("min", 0);
  expect("max", 255);
  expect("median", 0);
  expect("mad", 0);
  expect("p95", 0);
  expect("skew", (1 - 2 * p) / std::sqrt(q));
  expect("kurtosis", (1 - 6 * q) / q);
  expect("sum", 255);
  const auto bins = test::measured("histogram", *one_hot_pixel()).metrics.at("GRY.GRY.histogram.bins");
  EXPECT_EQ(bins.front(), 4799);
  EXPECT_EQ(bins.back(), 1);
  const auto centroid = test::measured("centroid", *one_hot_pixel(), std::nullopt, {{"band", "GRY.GRY"}});
  EXPECT_EQ(centroid.metrics.at("GRY.GRY.centroid_x"), 47);
  EXPECT_EQ(centroid.metrics.at("GRY.GRY.centroid_y"), 31);
}

}  // namespace
}  // namespace orvexa::model
