#pragma once

#include <vector>

#include "orvexa/model/measures/bands.h"

namespace orvexa::model {

/// The planes R, G and B of the colour image that a band belongs to, named like it. The band's image must have three
/// channels.
[[nodiscard]] std::vector<Band> color_channels(const Band& band);

/// sRGB as encoded in files, 0..1.
struct Rgb {
  double r = 0;
  double g = 0;
  double b = 0;
};

/// Hue in degrees of [0, 360), saturation and value 0..1. Below `least_saturation_with_hue` the hue has no meaning.
/// Source: A. R. Smith, Color Gamut Transform Pairs, SIGGRAPH Computer Graphics 12(3), 1978, 12-19.
struct Hsv {
  double hue = 0;
  double saturation = 0;
  double value = 0;
};
inline constexpr double least_saturation_with_hue = 0.02;
[[nodiscard]] Hsv to_hsv(const Rgb& rgb);

/// CIELAB under D65 and the 2 degree observer: L 0..100, greys have a = b = 0.
struct Lab {
  double l = 0;
  double a = 0;
  double b = 0;
};
/// The light that an encoded sRGB value stands for, 0..1 (IEC 61966-2-1).
[[nodiscard]] double linear_light(double encoded);
/// Source: ISO/CIE 11664-4; primaries and white point of IEC 61966-2-1.
/// @param light  linear light of R, G, B.
[[nodiscard]] Lab lab_of_light(const Rgb& light);
[[nodiscard]] Lab to_lab(const Rgb& rgb);
/// The inverse; outside 0..1 where the colour has no sRGB value.
[[nodiscard]] Rgb to_rgb(const Lab& lab);
/// Distance in CIELAB (1976).
[[nodiscard]] double delta_e_76(const Lab& a, const Lab& b);
/// CIEDE2000 with kL = kC = kH = 1. Between hues that are exactly opposite the mean hue is half their sum, as the
/// standard has it.
/// Source: ISO/CIE 11664-6; G. Sharma, W. Wu, E. N. Dalal, The CIEDE2000 color-difference formula, Color Research and
/// Application 30(1), 2005, 21-30, doi:10.1002/col.20070.
[[nodiscard]] double delta_e_2000(const Lab& a, const Lab& b);
/// What `delta_e_2000` is at least, from the lightnesses alone and much cheaper.
[[nodiscard]] double least_delta_e_2000(double lightness_a, double lightness_b);

}  // namespace orvexa::model
