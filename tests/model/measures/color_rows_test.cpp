#include "orvexa/model/measures/color_rows.h"

#include <gtest/gtest.h>

#include <limits>

#include "orvexa/model/measures/color_planes.h"
#include "orvexa/model/measures/reference_colors.h"
#include "support/captures.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

std::vector<Band> planes_of(const Image& image, std::optional<double> white = {}) {
  const auto capture = test::capture("c", {{"CLR", {{"RGB", image}}}});
  capture->measurements.at("CLR")->declared_white_level = white;
  return find_color_planes(*capture, "op", "").rgb;
}

void expect_near(const Lab& found, const Lab& expected) {
  EXPECT_NEAR(found.l, expected.l, 1e-12);
  EXPECT_NEAR(found.a, expected.a, 1e-12);
  EXPECT_NEAR(found.b, expected.b, 1e-12);
}

// 51 of 255, 13107 of 65535 and 0.2 are one and the same light.
TEST(ColorRows, GiveEveryTypeTheSameColour) {
  const Lab expected = to_lab({0.2, 0.4, 0.6});
  for (const auto& [depth, unit] : {std::pair(CV_8U, 51.0), std::pair(CV_16U, 13107.0)}) {
    const ColorSource colors(
        planes_of(Image(cv::Mat(2, 3, CV_MAKETYPE(depth, 3), cv::Scalar(unit, 2 * unit, 3 * unit)))));
    ColorRow row(colors);
    row.read(1);
    expect_near(row.lab(2), expected);
  }
  const ColorSource colors(planes_of(Image(cv::Mat(2, 3, CV_32FC3, cv::Scalar(0.25, 0.5, 0.75)))));
  ColorRow row(colors);
  row.read(0);
  expect_near(row.lab(0), to_lab({0.25, 0.5, 0.75}));
}

TEST(ColorRows, CutToWhatSrgbHas) {
  const ColorSource declared(planes_of(Image(cv::Mat(1, 1, CV_16UC3, cv::Scalar(5000, 2000, 0))), 4000));
  ColorRow row(declared);
  row.read(0);
  EXPECT_EQ(row.encoded(0).r, 1);
  EXPECT_EQ(row.encoded(0).g, 0.5);
  expect_near(row.lab(0), to_lab({1, 0.5, 0}));
  const ColorSource negative(planes_of(Image(cv::Mat(1, 1, CV_32FC3, cv::Scalar(-3, 0.5, 9)))));
  ColorRow other(negative);
  other.read(0);
  expect_near(other.lab(0), to_lab({0, 0.5, 1}));
}

TEST(ColorRows, SayWhichPixelsAreNumbers) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  cv::Mat pixels(1, 3, CV_32FC3, cv::Scalar::all(0.5));
  pixels.at<cv::Vec3f>(0, 0)[1] = nan;
  pixels.at<cv::Vec3f>(0, 1) = {infinity, -infinity, 0};
  const ColorSource colors(planes_of(Image(pixels)));
  ColorRow row(colors);
  row.read(0);
  EXPECT_FALSE(row.is_valid(0));
  EXPECT_FALSE(row.is_valid(1));
  EXPECT_TRUE(row.is_valid(2));
}

// A disc of radius 1 has 5 pixels, in the corner 3; black and white have L 0 and 100.
TEST(ColorRows, AverageADiscOfThePicture) {
  cv::Mat pixels(3, 3, CV_8UC3, cv::Scalar::all(0));
  pixels.at<cv::Vec3b>(1, 1) = {255, 255, 255};
  pixels.at<cv::Vec3b>(0, 0) = {255, 255, 255};
  const ColorSource colors(planes_of(Image(pixels)));
  EXPECT_NEAR(mean_lab_around(colors, {1, 1}, 0)->l, 100, 1e-10);
  EXPECT_NEAR(mean_lab_around(colors, {1, 1}, 1)->l, 100.0 / 5, 1e-10);
  EXPECT_NEAR(mean_lab_around(colors, {0, 0}, 1)->l, 100.0 / 3, 1e-10);
  EXPECT_NEAR(mean_lab_around(colors, {2, 0}, 1000)->l, 200.0 / 9, 1e-10);
}

TEST(ColorRows, LeaveWhatIsNoNumberOutOfADisc) {
  cv::Mat pixels(1, 2, CV_32FC3, cv::Scalar::all(1));
  pixels.at<cv::Vec3f>(0, 0)[0] = std::numeric_limits<float>::quiet_NaN();
  const ColorSource colors(planes_of(Image(pixels)));
  EXPECT_FALSE(mean_lab_around(colors, {0, 0}, 0).has_value());
  EXPECT_NEAR(mean_lab_around(colors, {0, 0}, 1)->l, 100, 1e-10);
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(picked_color(colors, Value({0.25, 0.5}), 0));
            }),
            "No pixel at the point (0.25, 0.5) has a valid colour.");
}

TEST(ReferenceColors, RefuseAPaletteThatNobodyCanUse) {
  const auto refused = [](const Value& palette) {
    return test::refusal([&] { check_palette("op", "palette", palette); });
  };
  const auto color = [](const std::string& name, double l) {
    return Value{{"name", name}, {"lab", Value::array({l, 0.0, 0.0})}};
  };
  EXPECT_EQ(refused(Value::array()), "op: parameter \"palette\" has 0 colours, but it must have from 1 to 64.");
  Value many = Value::array();
  for (int k = 0; k < 64; ++k) many.push_back(color(std::to_string(k), 50));
  EXPECT_EQ(refused(many), "");
  many.push_back(color("one more", 50));
  EXPECT_EQ(refused(many), "op: parameter \"palette\" has 65 colours, but it must have from 1 to 64.");
  EXPECT_EQ(refused(Value::array({color("dark", 0), color("bright", 100)})), "");
  EXPECT_EQ(refused(Value::array({color("dark", -0.5)})),
            "op: in parameter \"palette\" the colour \"dark\" has the lightness -0.5, but it must be from 0 to 100.");
  EXPECT_EQ(refused(Value::array({color("a\tb", 1)})),
            "op: in parameter \"palette\" the colour \"a\\x09b\" has a line break, a tab or another control character "
            "in its name.");
}

}  // namespace
}  // namespace orvexa::model
