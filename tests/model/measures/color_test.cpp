#include "orvexa/model/measures/color.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

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

struct DifferenceCase {
  Lab first;
  Lab second;
  double delta_e;
};

// Sharma, Wu, Dalal 2005, table 1: all 34 pairs.
TEST(DeltaE2000, GivesThePublishedDifferences) {
  const DifferenceCase cases[] = {
      {{50, 2.6772, -79.7751}, {50, 0, -82.7485}, 2.0425},
      {{50, 3.1571, -77.2803}, {50, 0, -82.7485}, 2.8615},
      {{50, 2.8361, -74.02}, {50, 0, -82.7485}, 3.4412},
      {{50, -1.3802, -84.2814}, {50, 0, -82.7485}, 1.0000},
      {{50, -1.1848, -84.8006}, {50, 0, -82.7485}, 1.0000},
      {{50, -0.9009, -85.5211}, {50, 0, -82.7485}, 1.0000},
      {{50, 0, 0}, {50, -1, 2}, 2.3669},
      {{50, -1, 2}, {50, 0, 0}, 2.3669},
      {{50, 2.49, -0.001}, {50, -2.49, 0.0009}, 7.1792},
      {{50, 2.49, -0.001}, {50, -2.49, 0.001}, 7.1792},
      {{50, 2.49, -0.001}, {50, -2.49, 0.0011}, 7.2195},
      {{50, 2.49, -0.001}, {50, -2.49, 0.0012}, 7.2195},
      {{50, -0.001, 2.49}, {50, 0.0009, -2.49}, 4.8045},
      {{50, -0.001, 2.49}, {50, 0.001, -2.49}, 4.8045},
      {{50, -0.001, 2.49}, {50, 0.0011, -2.49}, 4.7461},
      {{50, 2.5, 0}, {50, 0, -2.5}, 4.3065},
      {{50, 2.5, 0}, {73, 25, -18}, 27.1492},
      {{50, 2.5, 0}, {61, -5, 29}, 22.8977},
      {{50, 2.5, 0}, {56, -27, -3}, 31.9030},
      {{50, 2.5, 0}, {58, 24, 15}, 19.4535},
      {{50, 2.5, 0}, {50, 3.1736, 0.5854}, 1.0000},
      {{50, 2.5, 0}, {50, 3.2972, 0}, 1.0000},
      {{50, 2.5, 0}, {50, 1.8634, 0.5757}, 1.0000},
      {{50, 2.5, 0}, {50, 3.2592, 0.335}, 1.0000},
      {{60.2574, -34.0099, 36.2677}, {60.4626, -34.1751, 39.4387}, 1.2644},
      {{63.0109, -31.0961, -5.8663}, {62.8187, -29.7946, -4.0864}, 1.2630},
      {{61.2901, 3.7196, -5.3901}, {61.4292, 2.248, -4.962}, 1.8731},
      {{35.0831, -44.1164, 3.7933}, {35.0232, -40.0716, 1.5901}, 1.8645},
      {{22.7233, 20.0904, -46.694}, {23.0331, 14.973, -42.5619}, 2.0373},
      {{36.4612, 47.858, 18.3852}, {36.2715, 50.5065, 21.2231}, 1.4146},
      {{90.8027, -2.0831, 1.441}, {91.1528, -1.6435, 0.0447}, 1.4441},
      {{90.9257, -0.5406, -0.9208}, {88.6381, -0.8985, -0.7239}, 1.5381},
      {{6.7747, -0.2908, -2.4247}, {5.8714, -0.0985, -2.2286}, 0.6377},
      {{2.0776, 0.0795, -1.135}, {0.9033, -0.0636, -0.5514}, 0.9082},
  };
  for (const DifferenceCase& pair : cases) {
    EXPECT_NEAR(delta_e_2000(pair.first, pair.second), pair.delta_e, 0.5e-4 + 1e-12);
    EXPECT_NEAR(delta_e_2000(pair.second, pair.first), pair.delta_e, 0.5e-4 + 1e-12);
  }
}

// python3-skimage 0.19 deltaE_ciede2000 over colours drawn with numpy's default_rng(20000) and rounded to a tenth: far
// ones, near ones, and four blues where the rotation term counts.
TEST(DeltaE2000, AgreesWithAnIndependentLibrary) {
  const DifferenceCase cases[] = {
      {{52.7, 6.0, 40.5}, {52.7, 5.8, 42.8}, 0.866472886311},
      {{90.2, -94.2, 80.6}, {41.6, -18.9, 89.7}, 46.908927427309},
      {{2.4, -81.6, 2.3}, {2.3, -79.1, 0.1}, 1.131543030389},
      {{68.6, -74.2, 57.5}, {27.6, 73.8, 38.4}, 92.745223486128},
      {{68.4, 30.6, 29.2}, {68.3, 31.2, 31.2}, 0.939543985919},
      {{15.7, -28.4, -84.2}, {84.4, 97.3, 56.0}, 100.685613961524},
      {{5.2, 24.8, 27.5}, {6.2, 23.7, 25.5}, 1.113026766027},
      {{1.3, -45.4, 71.8}, {70.9, -91.0, 9.3}, 64.172835544236},
      {{56.6, -67.5, -69.5}, {55.8, -70.4, -69.2}, 1.085046376132},
      {{83.5, 86.8, 39.9}, {17.5, 8.6, 58.3}, 78.129566150644},
      {{22.8, 24.1, 89.4}, {22.6, 26.8, 91.7}, 1.232538851152},
      {{40.3, 3.3, 60.2}, {72.4, 64.1, -82.2}, 73.390474555025},
      {{89.9, -12.4, 61.4}, {90.9, -14.8, 60.7}, 1.587045410354},
      {{62.3, 52.4, -79.0}, {96.0, -52.3, -9.3}, 49.803293462348},
      {{80.7, -99.5, -25.0}, {78.3, -101.1, -22.1}, 2.113541297351},
      {{6.3, -57.9, 95.8}, {73.0, -75.5, 85.9}, 58.749782156638},
      {{77.8, 50.3, -53.1}, {75.1, 50.7, -56.0}, 2.232269064328},
      {{3.3, -65.0, -57.0}, {21.4, -12.6, 68.6}, 56.071367124751},
      {{97.5, -44.5, 84.0}, {96.4, -42.5, 82.9}, 0.901622829272},
      {{12.8, -99.9, -46.7}, {73.8, 61.9, 97.8}, 88.294128962779},
      {{40.0, -8.0, -70.0}, {42.0, -6.0, -60.0}, 3.455150410064},
      {{45.0, -2.0, -70.0}, {47.0, 2.0, -60.0}, 5.091788468598},
      {{50.0, 4.0, -70.0}, {52.0, 10.0, -60.0}, 7.037948495090},
      {{55.0, 10.0, -70.0}, {57.0, 18.0, -60.0}, 8.930591534157},
  };
  for (const DifferenceCase& pair : cases) {
    EXPECT_NEAR(delta_e_2000(pair.first, pair.second), pair.delta_e, 1e-9);
    EXPECT_NEAR(delta_e_2000(pair.second, pair.first), pair.delta_e, 1e-9);
  }
}

TEST(DeltaE2000, OfEqualColoursIsExactlyNothing) {
  for (const Lab& lab : {Lab{0, 0, 0}, Lab{100, 0, 0}, Lab{50, 12.3, -45.6}, Lab{1e-9, 1e-9, 0}}) {
    EXPECT_EQ(delta_e_2000(lab, lab), 0);
  }
}

// Greys have no chroma and no hue: L 50 to 51, S_L = 1 + 0.015 * 0.25 / sqrt(20.25) = 1.000833333.
TEST(DeltaE2000, OfGreysIsTheScaledDifferenceOfTheirLightness) {
  EXPECT_NEAR(delta_e_2000({50, 0, 0}, {51, 0, 0}), 1 / (1 + 0.015 * 0.25 / 4.5), 1e-15);
}

// Exactly opposite hues 0 and 180 have the mean 90, 270 and 90 the mean 180: python3-skimage 0.19.
TEST(DeltaE2000, BetweenOppositeHuesTakesHalfTheirSum) {
  EXPECT_NEAR(delta_e_2000({50, 2.49, 0}, {50, -2.49, 0}), 7.219429140428, 1e-9);
  EXPECT_NEAR(delta_e_2000({50, -2.49, 0}, {50, 2.49, 0}), 7.219429140428, 1e-9);
  EXPECT_NEAR(delta_e_2000({50, 0, -2.49}, {50, 0, 2.49}), 4.804468764556, 1e-9);
}

TEST(DeltaE2000, IsNeverLessThanTheLightnessesAloneSay) {
  std::mt19937 random(2000);
  const auto number = [&](double from, double to) {
    return from + (to - from) * static_cast<double>(random()) / static_cast<double>(std::mt19937::max());
  };
  for (int k = 0; k < 20000; ++k) {
    const Lab first{number(0, 100), number(-120, 120), number(-120, 120)};
    const double spread = k % 2 == 0 ? 120 : 3;
    const Lab second{number(0, 100), first.a + number(-spread, spread), first.b + number(-spread, spread)};
    ASSERT_GE(delta_e_2000(first, second), least_delta_e_2000(first.l, second.l) - 1e-12) << "seed 2000, case " << k;
  }
}

}  // namespace
}  // namespace orvexa::model
