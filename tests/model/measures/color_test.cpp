#include "orvexa/model/measures/color.h"

#include <gtest/gtest.h>

#include <cmath>

namespace orvexa::model {
namespace {

Rgb of_counts(int r, int g, int b) {
  return {r / 255.0, g / 255.0, b / 255.0};
}

// python3-skimage 0.19: rgb2lab(c / 255) and rgb2hsv(c / 255) with the hue times 360. skimage rounds the matrix of
// sRGB to six digits and the white to five, which is worth up to 0.01 in Lab.
struct ColorCase {
  Rgb rgb;
  Lab lab;
  Hsv hsv;
};

TEST(Color, AgreesWithAnIndependentLibrary) {
  const ColorCase cases[] = {
      {of_counts(255, 0, 0), {53.2405879, 80.0923082, 67.2027510}, {0, 1, 1}},
      {of_counts(0, 255, 0), {87.7350995, -86.1830297, 83.1797032}, {120, 1, 1}},
      {of_counts(0, 0, 255), {32.2956726, 79.1855909, -107.857300}, {240, 1, 1}},
      {of_counts(12, 34, 56), {12.6561728, 0.121390211, -16.8316476}, {210, 0.785714286, 0.219607843}},
      {of_counts(200, 150, 20), {65.0778339, 8.41132325, 66.2329998}, {43.3333333, 0.9, 0.784313725}},
      {of_counts(90, 160, 60), {59.5627302, -40.6997091, 44.1996779}, {102, 0.625, 0.627450980}},
  };
  for (const ColorCase& expected : cases) {
    const Lab lab = to_lab(expected.rgb);
    EXPECT_NEAR(lab.l, expected.lab.l, 0.02);
    EXPECT_NEAR(lab.a, expected.lab.a, 0.02);
    EXPECT_NEAR(lab.b, expected.lab.b, 0.02);
    const Hsv hsv = to_hsv(expected.rgb);
    EXPECT_NEAR(hsv.hue, expected.hsv.hue, 1e-6);
    EXPECT_NEAR(hsv.saturation, expected.hsv.saturation, 1e-8);
    EXPECT_NEAR(hsv.value, expected.hsv.value, 1e-8);
  }
}

TEST(Color, GreysHaveNoColour) {
  for (const double grey : {0.0, 0.001, 0.2, 0.5, 1.0}) {
    const Lab lab = to_lab({grey, grey, grey});
    EXPECT_NEAR(lab.a, 0, 1e-10);
    EXPECT_NEAR(lab.b, 0, 1e-10);
    EXPECT_EQ(to_hsv({grey, grey, grey}).saturation, 0);
  }
  EXPECT_NEAR(to_lab({1, 1, 1}).l, 100, 1e-10);
  EXPECT_EQ(to_lab({0, 0, 0}).l, 0);
}

TEST(Color, LabAndBackIsTheSameColour) {
  for (int r = 0; r <= 255; r += 51) {
    for (int g = 0; g <= 255; g += 51) {
      for (int b = 0; b <= 255; b += 51) {
        const Rgb rgb = to_rgb(to_lab(of_counts(r, g, b)));
        EXPECT_NEAR(rgb.r * 255, r, 1e-4);
        EXPECT_NEAR(rgb.g * 255, g, 1e-4);
        EXPECT_NEAR(rgb.b * 255, b, 1e-4);
      }
    }
  }
}

}  // namespace
}  // namespace orvexa::model
