// bounding_box, centroid, ellipse_fit, feret, enclosing, moments_hu and symmetry: operations on the mask alone, but for
// the weights of a centroid.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <opencv2/imgproc.hpp>

#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

std::shared_ptr<CaptureSet> blank(int height, int width, const std::shared_ptr<const CaptureHeader>& header = nullptr) {
  return test::capture("blank", {{"GRY", {{"GRY", test::flat_image<std::uint8_t>(height, width, 0)}}}}, header);
}

OperationResult of(const char* key, const Mask& mask, const Value& params = Value::object()) {
  return test::measured(key, *blank(mask.shape().height, mask.shape().width), mask, params);
}

double number(const OperationResult& result, const std::string& name) {
  return result.metrics.at(name).get<double>();
}

Mask rectangle_mask(Shape shape, cv::Rect rectangle) {
  cv::Mat pixels = cv::Mat::zeros(shape.height, shape.width, CV_8UC1);
  pixels(rectangle) = cv::Scalar(255);
  return Mask(std::move(pixels));
}

Mask one_pixel() {
  return rectangle_mask({7, 9}, {4, 2, 1, 1});
}

/// Pixels whose centres lie in a bar of that length and width about the middle, turned by an angle that is counted
/// counter-clockwise as the picture is looked at.
Mask bar_mask(int size, double length, double width, double degrees) {
  const double radians = degrees * std::numbers::pi / 180;
  cv::Mat pixels = cv::Mat::zeros(size, size, CV_8UC1);
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      const double dx = x - (size - 1) / 2.0;
      const double dy = (size - 1) / 2.0 - y;  // up
      const double along = dx * std::cos(radians) + dy * std::sin(radians);
      const double aside = dy * std::cos(radians) - dx * std::sin(radians);
      if (std::abs(along) <= length / 2 && std::abs(aside) <= width / 2) pixels.at<std::uint8_t>(y, x) = 255;
    }
  }
  return Mask(std::move(pixels));
}

Mask disc_mask(int size, int radius) {
  cv::Mat pixels = cv::Mat::zeros(size, size, CV_8UC1);
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      const int dx = x - size / 2;
      const int dy = y - size / 2;
      if (dx * dx + dy * dy <= radius * radius) pixels.at<std::uint8_t>(y, x) = 255;
    }
  }
  return Mask(std::move(pixels));
}

// ---- bounding_box ----

// 60 x 40 at (10, 20) of 200 x 100: 10 / 200, 20 / 100, 60 / 200, 40 / 100; at 0.5 mm a pixel 30 x 20 mm at (5, 10).
TEST(BoundingBox, IsGivenInPixelsFractionsAndMillimetres) {
  const auto result = test::measured("bounding_box", *blank(100, 200, test::header_with_scale(0.5)),
                                     rectangle_mask({100, 200}, {10, 20, 60, 40}));
  EXPECT_EQ(result.metrics.dump(),
            R"({"bbox_x":10,"bbox_x_mm":5.0,"bbox_y":20,"bbox_y_mm":10.0,"bbox_width":60,"bbox_width_mm":30.0,)"
            R"("bbox_height":40,"bbox_height_mm":20.0,)"
            R"("bbox_x_norm":0.05,"bbox_y_norm":0.2,"bbox_width_norm":0.3,"bbox_height_norm":0.4,"extent":1.0})");
}

TEST(BoundingBox, OfRegionsIsThatOfTheirOwnPixelsInTheFullFrame) {
  const auto result = of("bounding_box", test::mask_of_regions({"....", ".11.", "...1", "2..."}));
  const Value& one = result.regions.at("ROI_1").metrics;
  EXPECT_EQ(one.at("bbox_x"), 1);
  EXPECT_EQ(one.at("bbox_y"), 1);
  EXPECT_EQ(one.at("bbox_width"), 3);
  EXPECT_EQ(one.at("bbox_height"), 2);
  EXPECT_EQ(one.at("extent"), 0.5);  // 3 of 6
  EXPECT_EQ(result.regions.at("ROI_2").metrics.at("bbox_y"), 3);
  EXPECT_DOUBLE_EQ(number(result, "extent"), 4.0 / 12);  // 4 columns, rows 1 to 3
}

// ---- centroid ----

// Columns 1, 2 and rows 3: mean 1.5 and 3; of 4 x 5 the fractions 2 / 4 and 3.5 / 5.
TEST(Centroid, IsTheMeanOfThePixelsCentres) {
  const auto result = of("centroid", test::mask({"....", "....", "....", ".##.", "...."}));
  EXPECT_DOUBLE_EQ(number(result, "centroid_x"), 1.5);
  EXPECT_DOUBLE_EQ(number(result, "centroid_y"), 3);
  EXPECT_DOUBLE_EQ(number(result, "centroid_x_norm"), 0.5);
  EXPECT_DOUBLE_EQ(number(result, "centroid_y_norm"), 0.7);
  EXPECT_EQ(result.metrics.size(), 4u);
}

// Weights 1 and 3 at columns 0 and 4, row 0 and 0: 12 / 4 = 3, 1 away from the middle of 2 and 2 apart in y for the
// rest.
TEST(Centroid, WithABandItsValuesAreWeights) {
  const Image weights = test::image<float>({{1, 9, 9, 9, 3}});
  const auto capture = test::capture("c", {{"MSP", {{"NIR", weights}}}}, test::header_with_scale(2));
  const auto result = test::measured("centroid", *capture, test::mask({"#...#"}), {{"band", "NIR"}});
  EXPECT_DOUBLE_EQ(number(result, "centroid_x"), 2);
  EXPECT_DOUBLE_EQ(number(result, "centroid_x_mm"), 4);
  EXPECT_EQ(result.units.at("centroid_y_mm"), "mm");
  EXPECT_DOUBLE_EQ(number(result, "MSP.NIR.centroid_x"), 3);
  EXPECT_DOUBLE_EQ(number(result, "MSP.NIR.centroid_x_mm"), 6);
  EXPECT_DOUBLE_EQ(number(result, "MSP.NIR.centroid_y"), 0);
  EXPECT_DOUBLE_EQ(number(result, "MSP.NIR.centroid_x_norm"), 0.7);
  EXPECT_DOUBLE_EQ(number(result, "MSP.NIR.centroid_displacement"), 1);
  EXPECT_DOUBLE_EQ(number(result, "MSP.NIR.centroid_displacement_mm"), 2);
  EXPECT_EQ(result.metrics.at("MSP.NIR.centroid_n"), 2);
  EXPECT_EQ(result.metrics.at("MSP.NIR.centroid_n_invalid"), 0);
  EXPECT_EQ(result.chosen_bands.at("band"), "MSP.NIR");
}

TEST(Centroid, WeightsThatAreNoneAreLeftOutAndCounted) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinite = std::numeric_limits<float>::infinity();
  const auto capture =
      test::capture("c", {{"MSP", {{"NIR", test::image<float>({{nan, 2, -1, infinite}, {0, 0, 0, nan}})}}}});
  const auto result = test::measured("centroid", *capture, test::mask_of_regions({"1111", "2222"}), {{"band", "NIR"}});
  const Value& one = result.regions.at("ROI_1").metrics;
  EXPECT_DOUBLE_EQ(one.at("MSP.NIR.centroid_x").get<double>(), 1);
  EXPECT_EQ(one.at("MSP.NIR.centroid_n"), 1);
  EXPECT_EQ(one.at("MSP.NIR.centroid_n_invalid"), 3);
  const RegionResult& two = result.regions.at("ROI_2");
  EXPECT_EQ(two.reasons.at("MSP.NIR.centroid_x"), "No pixel has a value above 0.");
  EXPECT_EQ(two.reasons.at("MSP.NIR.centroid_displacement"), "No pixel has a value above 0.");
  EXPECT_EQ(two.metrics.at("MSP.NIR.centroid_n"), 3);
}

TEST(Centroid, ABandThatTheCaptureLacksIsSaidBeforeTheRunAndByIt) {
  const auto capture = blank(3, 3);
  const auto& info = get_result_operation("centroid");
  const Value params{{"band", "NIR"}};
  const std::string sentence = test::refusal([&] { info.check_capture(*capture, params); });
  EXPECT_FALSE(sentence.empty());
  EXPECT_EQ(test::refusal([&] { static_cast<void>(test::measured("centroid", *capture, {}, params)); }), sentence);
  info.check_capture(*capture, default_parameters(info.parameters));
}

// ---- ellipse_fit ----

// 60 x 40: variances (60^2 - 1) / 12 and (40^2 - 1) / 12 of the pixels' centres.
TEST(EllipseOperation, OfARectangle) {
  const auto result = test::measured("ellipse_fit", *blank(100, 100, test::header_with_scale(0.1)),
                                     rectangle_mask({100, 100}, {3, 5, 60, 40}));
  EXPECT_NEAR(number(result, "major_axis"), 4 * std::sqrt(3599.0 / 12), 1e-11);
  EXPECT_NEAR(number(result, "minor_axis"), 4 * std::sqrt(1599.0 / 12), 1e-11);
  EXPECT_NEAR(number(result, "eccentricity"), std::sqrt(1 - 1599.0 / 3599), 1e-12);
  EXPECT_EQ(number(result, "ellipse_angle"), 0);
  EXPECT_NEAR(number(result, "major_axis_mm"), 0.4 * std::sqrt(3599.0 / 12), 1e-12);
  const auto upright = of("ellipse_fit", rectangle_mask({100, 100}, {3, 5, 40, 60}));
  EXPECT_NEAR(number(upright, "ellipse_angle"), 90, 1e-9);
}

TEST(EllipseOperation, AnglesAreCountedCounterClockwiseFromTheXAxis) {
  for (const double degrees : {10.0, 45.0, 80.0, 100.0, 135.0, 170.0}) {
    const auto result = of("ellipse_fit", bar_mask(151, 120, 21, degrees));
    EXPECT_NEAR(number(result, "ellipse_angle"), degrees, 0.3);
  }
  // Two pixels, the upper one to the right.
  EXPECT_NEAR(number(of("ellipse_fit", test::mask({".#", "#."})), "ellipse_angle"), 45, 1e-12);
  EXPECT_NEAR(number(of("ellipse_fit", test::mask({"#.", ".#"})), "ellipse_angle"), 135, 1e-12);
}

TEST(EllipseOperation, EqualAxesHaveNoAngleAndOnePixelNoEccentricity) {
  const auto disc = of("ellipse_fit", disc_mask(121, 50));
  EXPECT_EQ(disc.reasons.at("ellipse_angle"), "The axes are equal.");
  EXPECT_NEAR(number(disc, "eccentricity"), 0, 1e-6);
  const auto pixel = of("ellipse_fit", one_pixel());
  EXPECT_EQ(pixel.metrics.at("major_axis"), 0);
  EXPECT_EQ(pixel.reasons.at("eccentricity"), "A single pixel has no axes.");
  EXPECT_EQ(pixel.reasons.at("ellipse_angle"), "The axes are equal.");
}

// ---- feret ----

// 60 x 40: both diagonals are sqrt(5200) long; the lesser angle is that which rises to the right, atan(40 / 60). Across
// it the two other corners lie 2 * 60 * 40 / sqrt(5200) apart. The least diameter is the side 40, upright, and 60
// across.
TEST(Feret, OfARectangle) {
  const auto result = test::measured("feret", *blank(100, 100, test::header_with_scale(0.5)),
                                     rectangle_mask({100, 100}, {3, 5, 60, 40}));
  EXPECT_NEAR(number(result, "feret_max"), std::sqrt(5200.0), 1e-12);
  EXPECT_NEAR(number(result, "feret_max_mm"), std::sqrt(5200.0) / 2, 1e-12);
  EXPECT_NEAR(number(result, "feret_max_angle"), std::atan(40.0 / 60) * 180 / std::numbers::pi, 1e-12);
  EXPECT_NEAR(number(result, "feret_max_across"), 4800 / std::sqrt(5200.0), 1e-12);
  EXPECT_NEAR(number(result, "feret_min"), 40, 1e-12);
  EXPECT_NEAR(number(result, "feret_min_angle"), 90, 1e-12);
  EXPECT_NEAR(number(result, "feret_min_across"), 60, 1e-12);
}

TEST(Feret, OfOnePixelIsThatOfASquareOfSideOne) {
  const auto result = of("feret", one_pixel());
  EXPECT_NEAR(number(result, "feret_max"), std::numbers::sqrt2, 1e-15);
  EXPECT_NEAR(number(result, "feret_max_angle"), 45, 1e-12);
  EXPECT_NEAR(number(result, "feret_min"), 1, 1e-15);
  EXPECT_EQ(number(result, "feret_min_angle"), 0);
}

// The bar's diagonal is atan(21 / 120) = 9.9 degrees off its long side, so only the least diameter has the bar's angle.
// One pixel more or less at both ends is a degree.
TEST(Feret, AnglesAreCountedCounterClockwiseFromTheXAxis) {
  for (const double degrees : {20.0, 60.0, 110.0, 150.0}) {
    const auto result = of("feret", bar_mask(151, 120, 21, degrees));
    EXPECT_NEAR(number(result, "feret_min_angle"), std::fmod(degrees + 90, 180), 1.5) << degrees;
    EXPECT_NEAR(std::abs(number(result, "feret_max_angle") - degrees), 9.9, 1.5) << degrees;
  }
}

/// The pixels of a picture that have a colour.
Mask drawn(const ResultImage& image, const cv::Scalar& color) {
  cv::Mat where;
  cv::inRange(image.picture.read_only(), color, color, where);
  return Mask(where);
}

const cv::Scalar yellow(255, 255, 0);
const cv::Scalar cyan(0, 255, 255);

// Columns 2 to 7 of row 1: the corners are at 1.5 and 7.5, and the least diameter stands upright.
TEST(Feret, ThePictureShowsTheDiametersInTheFullFrame) {
  const auto result = of("feret", rectangle_mask({5, 12}, {2, 1, 6, 1}));
  const ResultImage& image = result.images.at("diameters");
  EXPECT_EQ(image.picture.shape(), (Shape{5, 12}));
  const Mask greatest = drawn(image, yellow);
  EXPECT_GE(greatest.count(), 6);
  const cv::Rect box = cv::boundingRect(greatest.read_only());
  EXPECT_NEAR(box.x, 1.5, 0.6);
  EXPECT_NEAR(box.x + box.width - 1, 7.5, 0.6);
  EXPECT_TRUE(of("feret", one_pixel(), {{"picture", false}}).images.empty());
}

// ---- enclosing ----

// The hull of the pixels (1, 0) and (0, 1) has the corners (1, 0), (2, 0), (2, 1), (1, 2), (0, 2), (0, 1). Along its
// slanted edges it is 2 sqrt(2) x sqrt(2) = 4, upright 2 x 2 = 4 as well.
TEST(Enclosing, OfSeveralRectanglesOfTheSameAreaTheOneWithTheShortestLongerSide) {
  const auto result = of("enclosing", test::mask({".#", "#."}));
  EXPECT_NEAR(number(result, "min_rectangle_length"), 2, 1e-12);
  EXPECT_NEAR(number(result, "min_rectangle_width"), 2, 1e-12);
  EXPECT_NEAR(number(result, "min_rectangle_angle"), 0, 1e-12);
  EXPECT_NEAR(number(result, "rectangularity"), 0.5, 1e-12);
  EXPECT_NEAR(number(result, "min_rectangle_x"), 0.5, 1e-12);
  EXPECT_NEAR(number(result, "min_rectangle_y"), 0.5, 1e-12);
}

// 60 x 40 from (3, 5): the circle through its corners, centre 3 + 30 - 0.5 and 5 + 20 - 0.5.
TEST(Enclosing, OfARectangle) {
  const auto result = test::measured("enclosing", *blank(100, 100, test::header_with_scale(0.5)),
                                     rectangle_mask({100, 100}, {3, 5, 60, 40}));
  EXPECT_NEAR(number(result, "min_rectangle_length"), 60, 1e-12);
  EXPECT_NEAR(number(result, "min_rectangle_width"), 40, 1e-12);
  EXPECT_NEAR(number(result, "min_rectangle_width_mm"), 20, 1e-12);
  EXPECT_NEAR(number(result, "min_rectangle_area_mm2"), 600, 1e-9);
  EXPECT_EQ(number(result, "min_rectangle_angle"), 0);
  EXPECT_NEAR(number(result, "rectangularity"), 1, 1e-12);
  EXPECT_NEAR(number(result, "min_rectangle_x"), 32.5, 1e-12);
  EXPECT_NEAR(number(result, "min_rectangle_y"), 24.5, 1e-12);
  EXPECT_NEAR(number(result, "min_rectangle_y_mm"), 12.25, 1e-12);
  EXPECT_NEAR(number(result, "min_circle_x_mm"), 16.25, 1e-11);
  EXPECT_NEAR(number(result, "min_circle_diameter"), std::sqrt(5200.0), 1e-11);
  EXPECT_NEAR(number(result, "min_circle_x"), 32.5, 1e-11);
  EXPECT_NEAR(number(result, "min_circle_y"), 24.5, 1e-11);
}

TEST(Enclosing, TheLongerSideOfATurnedBarHasItsAngle) {
  for (const double degrees : {20.0, 70.0, 110.0, 160.0}) {
    const auto result = of("enclosing", bar_mask(151, 120, 21, degrees));
    EXPECT_NEAR(number(result, "min_rectangle_angle"), degrees, 1.5);
    EXPECT_NEAR(number(result, "min_rectangle_length"), 121, 2);
    EXPECT_NEAR(number(result, "min_rectangle_width"), 22, 2);
  }
}

// Nothing may stick out, and a circle through two or three corners can be no smaller than the greatest diameter.
TEST(Enclosing, HoldsEveryCornerOfRandomPixels) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    const Mask mask = test::random_mask(seed, 4 + static_cast<int>(seed % 20), 25, seed % 2 == 0 ? 0.05 : 0.3);
    if (mask.count() == 0) continue;
    const auto result = of("enclosing", mask);
    const double x = number(result, "min_circle_x");
    const double y = number(result, "min_circle_y");
    double farthest = 0;
    for (int row = 0; row < mask.shape().height; ++row) {
      for (int column = 0; column < mask.shape().width; ++column) {
        if (!mask.at(row, column)) continue;
        farthest = std::max(farthest, std::hypot(std::abs(column - x) + 0.5, std::abs(row - y) + 0.5));
      }
    }
    EXPECT_NEAR(2 * farthest, number(result, "min_circle_diameter"), 1e-9);
    const auto feret = of("feret", mask);
    EXPECT_GE(2 * farthest, number(feret, "feret_max") - 1e-9);
    EXPECT_LE(2 * farthest, number(feret, "feret_max") * 2 / std::sqrt(3.0) + 1e-9);  // Jung's theorem
    EXPECT_GE(number(result, "min_rectangle_width"), number(feret, "feret_min") - 1e-9);
    EXPECT_LE(number(result, "rectangularity"), 1 + 1e-12);
  }
}

TEST(Enclosing, ThePictureShowsRectangleAndCircle) {
  const auto result = of("enclosing", rectangle_mask({40, 60}, {20, 15, 12, 6}));
  const ResultImage& image = result.images.at("shapes");
  EXPECT_GT(drawn(image, yellow).count(), 30);  // about the perimeter, 36
  EXPECT_GT(drawn(image, cyan).count(), 20);
  EXPECT_TRUE(of("enclosing", one_pixel(), {{"picture", false}}).images.empty());
}

// ---- moments_hu ----

// 2 x 1 pixels: n20 = (2 * 0.25) / 4 = 0.125, all others 0: hu_1 = 0.125, hu_2 = 0.125^2.
TEST(MomentsHu, OfTwoPixelsByHand) {
  const auto result = of("moments_hu", test::mask({"....", ".##.", "...."}));
  EXPECT_NEAR(number(result, "hu_1"), 0.125, 1e-15);
  EXPECT_NEAR(number(result, "hu_2"), 0.015625, 1e-15);
  for (const char* name : {"hu_3", "hu_4", "hu_5", "hu_6", "hu_7"}) EXPECT_NEAR(number(result, name), 0, 1e-15);
}

// Pixels (0,0), (1,0), (0,1): centroid 1/3, 1/3. mu20 = mu02 = 2/3, mu11 = -1/3, mu30 = 2 (-1/3)^3 + (2/3)^3 = 2/9,
// mu21 = (1/9)(-1/3) + (4/9)(-1/3) + (1/9)(2/3) = -1/9. With n = 3: n20 = 2/27, n11 = -1/27; third order over 3^2.5.
TEST(MomentsHu, OfThreePixelsByHand) {
  const auto result = of("moments_hu", test::mask({"##", "#."}));
  const double third = std::pow(3.0, 2.5);
  const double e30 = 2.0 / 9 / third;
  const double e21 = -1.0 / 9 / third;
  EXPECT_NEAR(number(result, "hu_1"), 4.0 / 27, 1e-15);
  EXPECT_NEAR(number(result, "hu_2"), 4.0 / 729, 1e-15);
  EXPECT_NEAR(number(result, "hu_3"), 2 * (e30 - 3 * e21) * (e30 - 3 * e21), 1e-15);
  EXPECT_NEAR(number(result, "hu_4"), 2 * (e30 + e21) * (e30 + e21), 1e-15);
}

TEST(MomentsHu, AMirrorChangesTheSignOfTheLastOnly) {
  for (unsigned seed = 0; seed < 10; ++seed) {
    const Mask mask = test::random_mask(seed, 20, 31, 0.3);
    cv::Mat mirrored;
    cv::flip(mask.read_only(), mirrored, 1);
    const auto a = of("moments_hu", mask);
    const auto b = of("moments_hu", Mask(mirrored));
    for (const char* name : {"hu_1", "hu_2", "hu_3", "hu_4", "hu_5", "hu_6"}) {
      EXPECT_NEAR(number(a, name), number(b, name), 1e-9 * std::abs(number(a, name))) << name;
    }
    EXPECT_NEAR(number(a, "hu_7"), -number(b, "hu_7"), 1e-6 * std::abs(number(a, "hu_7")));
    EXPECT_NE(number(a, "hu_7"), 0);
  }
}

// ---- symmetry ----

// Row "###.": about column 1 it is its own mirror. An L of 3 + 1: centroid of columns (0 + 1 + 2 + 0) / 4 = 0.75, twice
// 1.5, to 2 (half up): column x meets 2 - x; row 1 has one pixel that meets an empty one: 3 in both, 5 in either. Rows
// (0 + 0 + 0 + 1) / 4 = 0.25, twice 0.5, to 1: row 0 meets row 1: only column 0 is in both: 2 of 6.
TEST(Symmetry, IsTheOverlapWithTheMirrorPicture) {
  const auto line = of("symmetry", test::mask({"###."}));
  EXPECT_EQ(number(line, "symmetry_left_right"), 1);
  EXPECT_EQ(number(line, "symmetry_top_bottom"), 1);
  const auto corner = of("symmetry", test::mask({".....", ".###.", ".#..."}));
  EXPECT_DOUBLE_EQ(number(corner, "symmetry_left_right"), 3.0 / 5);
  EXPECT_DOUBLE_EQ(number(corner, "symmetry_top_bottom"), 2.0 / 6);
}

TEST(Symmetry, OfADiscIsOne) {
  const auto result = of("symmetry", disc_mask(121, 50));
  EXPECT_EQ(number(result, "symmetry_left_right"), 1);
  EXPECT_EQ(number(result, "symmetry_top_bottom"), 1);
}

// The mirror line lies 50 pixels off the picture's middle: half of the columns have no partner in the picture at all.
TEST(Symmetry, TheMirrorPictureMayReachBeyondTheFrame) {
  cv::Mat pixels = cv::Mat::zeros(1, 9, CV_8UC1);
  pixels.colRange(5, 9) = cv::Scalar(255);
  pixels.at<std::uint8_t>(0, 0) = 255;  // columns 0, 5 to 8: mean 5.2, twice 10.4, to 10
  const auto result = of("symmetry", Mask(pixels));
  EXPECT_DOUBLE_EQ(number(result, "symmetry_left_right"), 1.0 / 9);  // 5 meets 5; 6, 7, 8, 0 meet 4, 3, 2, 10
}

}  // namespace
}  // namespace orvexa::model
