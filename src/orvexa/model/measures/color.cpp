#include "orvexa/model/measures/color.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

namespace orvexa::model {

namespace {

// From the chromaticities of IEC 61966-2-1: R (0.64, 0.33), G (0.30, 0.60), B (0.15, 0.06), white D65 (0.3127, 0.3290).
constexpr double x_of[3] = {0.41239079926595923, 0.357584339383878, 0.1804807884018343};
constexpr double y_of[3] = {0.21263900587151022, 0.715168678767756, 0.07219231536073371};
constexpr double z_of[3] = {0.01933081871559185, 0.11919477979462612, 0.9505321522496607};
// The white of these rounded rows, so that greys come out without colour.
constexpr double white_x = x_of[0] + x_of[1] + x_of[2];
constexpr double white_y = y_of[0] + y_of[1] + y_of[2];
constexpr double white_z = z_of[0] + z_of[1] + z_of[2];
// ISO/CIE 11664-4: the cube root gives way to a straight line below (6/29)^3.
constexpr double knee = 6.0 / 29;

double compressed(double t) {
  return t > knee * knee * knee ? std::cbrt(t) : t / (3 * knee * knee) + 4.0 / 29;
}

double expanded(double f) {
  return f > knee ? f * f * f : 3 * knee * knee * (f - 4.0 / 29);
}

double encoded_light(double light) {
  return light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

// ---- CIEDE2000. Hues are directions in the plane of a' and b', which spares most of the angles. ----

struct Direction {
  double a = 0;
  double b = 0;
  [[nodiscard]] double length() const { return std::sqrt(a * a + b * b); }
};

/// sqrt(C^7 / (C^7 + 25^7))
double chroma_weight(double chroma) {
  constexpr double power_of_25 = 6103515625.0;
  const double cube = chroma * chroma * chroma;
  const double power = cube * cube * chroma;
  return std::sqrt(power / (power + power_of_25));
}

/// S_L of the mean of two lightnesses.
double lightness_scale(double first, double second) {
  const double from_middle = (first + second) / 2 - 50;
  const double square = from_middle * from_middle;
  return 1 + 0.015 * square / std::sqrt(20 + square);
}

/// Whether the hue is below 180 degrees.
bool is_in_lower_half(const Direction& hue) {
  return hue.b > 0 || (hue.b == 0 && hue.a > 0);
}

/// The direction of the mean hue, of length 1: half way along the smaller arc between the two; the hue of one where the
/// other is grey.
Direction mean_hue(const Direction& first, double first_chroma, const Direction& second, double second_chroma) {
  if (first_chroma == 0 && second_chroma == 0) return {1, 0};
  if (first_chroma == 0) return {second.a / second_chroma, second.b / second_chroma};
  if (second_chroma == 0) return {first.a / first_chroma, first.b / first_chroma};
  const Direction sum{first.a / first_chroma + second.a / second_chroma,
                      first.b / first_chroma + second.b / second_chroma};
  const double length = sum.length();
  if (length > 0) return {sum.a / length, sum.b / length};
  // Opposite hues h and h + 180: half their sum is h + 90, where h is the one below 180.
  const bool first_is_lower = is_in_lower_half(first);
  const Direction& lower = first_is_lower ? first : second;
  const double chroma = first_is_lower ? first_chroma : second_chroma;
  return {-lower.b / chroma, lower.a / chroma};
}

/// 2 sqrt(C1 C2) sin(dh / 2), without the angle: the cross product is C1 C2 sin dh and the root C1 C2 (1 + cos dh).
double hue_difference(const Direction& first, double first_chroma, const Direction& second, double second_chroma) {
  const double cross = first.a * second.b - first.b * second.a;
  const double dot = first.a * second.a + first.b * second.b;
  const double product = first_chroma * second_chroma;
  if (dot >= 0) return product > 0 ? cross * std::sqrt(2 / (product + dot)) : 0;
  const double magnitude = std::sqrt(std::max(0.0, 2 * (product - dot)));
  const bool turns_back = cross < 0 || (cross == 0 && !is_in_lower_half(first));
  return turns_back ? -magnitude : magnitude;
}

/// T: cosines of the mean hue less 30 degrees, of twice it, of three times it plus 6 and of four times it less 63.
double hue_weight(const Direction& hue) {
  constexpr double cos_30 = 0.8660254037844387;
  constexpr double cos_6 = 0.9945218953682733;
  constexpr double sin_6 = 0.10452846326765347;
  constexpr double cos_63 = 0.4539904997395468;
  constexpr double sin_63 = 0.8910065241883679;
  const double cos_1 = hue.a;
  const double sin_1 = hue.b;
  const double cos_2 = cos_1 * cos_1 - sin_1 * sin_1;
  const double sin_2 = 2 * sin_1 * cos_1;
  const double cos_3 = cos_2 * cos_1 - sin_2 * sin_1;
  const double sin_3 = sin_2 * cos_1 + cos_2 * sin_1;
  const double cos_4 = cos_2 * cos_2 - sin_2 * sin_2;
  const double sin_4 = 2 * sin_2 * cos_2;
  return 1 - 0.17 * (cos_1 * cos_30 + sin_1 * 0.5) + 0.24 * cos_2 + 0.32 * (cos_3 * cos_6 - sin_3 * sin_6) -
         0.20 * (cos_4 * cos_63 + sin_4 * sin_63);
}

/// delta theta, in radians.
double rotation_angle(const Direction& hue) {
  const double degrees = std::atan2(hue.b, hue.a) * 180 / std::numbers::pi;
  const double from_blue = ((degrees < 0 ? degrees + 360 : degrees) - 275) / 25;
  return std::numbers::pi / 6 * std::exp(-from_blue * from_blue);
}

}  // namespace

std::vector<Band> color_channels(const Band& band) {
  const std::string image_name = band.name.substr(0, band.name.rfind('.'));
  std::vector<Band> planes(3, band);
  for (std::size_t channel = 0; channel < planes.size(); ++channel) {
    planes[channel].channel = static_cast<int>(channel);
    planes[channel].name = image_name + "." + "RGB"[channel];
  }
  return planes;
}

Hsv to_hsv(const Rgb& rgb) {
  const double greatest = std::max({rgb.r, rgb.g, rgb.b});
  const double chroma = greatest - std::min({rgb.r, rgb.g, rgb.b});
  if (!(greatest > 0) || !(chroma > 0)) return {0, 0, greatest};
  double sixth = 0;
  if (greatest == rgb.r) {
    sixth = (rgb.g - rgb.b) / chroma;
  } else if (greatest == rgb.g) {
    sixth = 2 + (rgb.b - rgb.r) / chroma;
  } else {
    sixth = 4 + (rgb.r - rgb.g) / chroma;
  }
  return {60 * (sixth < 0 ? sixth + 6 : sixth), chroma / greatest, greatest};
}

double linear_light(double encoded) {
  return encoded <= 0.04045 ? encoded / 12.92 : std::pow((encoded + 0.055) / 1.055, 2.4);
}

Lab lab_of_light(const Rgb& light) {
  const double x = compressed((x_of[0] * light.r + x_of[1] * light.g + x_of[2] * light.b) / white_x);
  const double y = compressed((y_of[0] * light.r + y_of[1] * light.g + y_of[2] * light.b) / white_y);
  const double z = compressed((z_of[0] * light.r + z_of[1] * light.g + z_of[2] * light.b) / white_z);
  return {116 * y - 16, 500 * (x - y), 200 * (y - z)};
}

Lab to_lab(const Rgb& rgb) {
  return lab_of_light({linear_light(rgb.r), linear_light(rgb.g), linear_light(rgb.b)});
}

Rgb to_rgb(const Lab& lab) {
  const double y = (lab.l + 16) / 116;
  const double light_x = white_x * expanded(y + lab.a / 500);
  const double light_y = white_y * expanded(y);
  const double light_z = white_z * expanded(y - lab.b / 200);
  // The inverse of the rows above, by Cramer's rule.
  const double m00 = y_of[1] * z_of[2] - y_of[2] * z_of[1];
  const double m01 = y_of[2] * z_of[0] - y_of[0] * z_of[2];
  const double m02 = y_of[0] * z_of[1] - y_of[1] * z_of[0];
  const double determinant = x_of[0] * m00 + x_of[1] * m01 + x_of[2] * m02;
  const double m10 = x_of[2] * z_of[1] - x_of[1] * z_of[2];
  const double m11 = x_of[0] * z_of[2] - x_of[2] * z_of[0];
  const double m12 = x_of[1] * z_of[0] - x_of[0] * z_of[1];
  const double m20 = x_of[1] * y_of[2] - x_of[2] * y_of[1];
  const double m21 = x_of[2] * y_of[0] - x_of[0] * y_of[2];
  const double m22 = x_of[0] * y_of[1] - x_of[1] * y_of[0];
  return {encoded_light((m00 * light_x + m10 * light_y + m20 * light_z) / determinant),
          encoded_light((m01 * light_x + m11 * light_y + m21 * light_z) / determinant),
          encoded_light((m02 * light_x + m12 * light_y + m22 * light_z) / determinant)};
}

double delta_e_76(const Lab& a, const Lab& b) {
  return std::sqrt((a.l - b.l) * (a.l - b.l) + (a.a - b.a) * (a.a - b.a) + (a.b - b.b) * (a.b - b.b));
}

double delta_e_2000(const Lab& a, const Lab& b) {
  const double g = 0.5 * (1 - chroma_weight((std::hypot(a.a, a.b) + std::hypot(b.a, b.b)) / 2));
  const Direction first{(1 + g) * a.a, a.b};
  const Direction second{(1 + g) * b.a, b.b};
  const double first_chroma = first.length();
  const double second_chroma = second.length();
  const double chroma = (first_chroma + second_chroma) / 2;
  const Direction hue = mean_hue(first, first_chroma, second, second_chroma);

  const double lightness_step = (b.l - a.l) / lightness_scale(a.l, b.l);
  const double chroma_step = (second_chroma - first_chroma) / (1 + 0.045 * chroma);
  const double hue_step =
      hue_difference(first, first_chroma, second, second_chroma) / (1 + 0.015 * chroma * hue_weight(hue));
  const double rotation = -std::sin(2 * rotation_angle(hue)) * 2 * chroma_weight(chroma);
  return std::sqrt(std::max(0.0, lightness_step * lightness_step + chroma_step * chroma_step + hue_step * hue_step +
                                     rotation * chroma_step * hue_step));
}

double least_delta_e_2000(double lightness_a, double lightness_b) {
  // What chroma and hue add is never negative: their product is weighted by less than 2.
  return std::abs(lightness_b - lightness_a) / lightness_scale(lightness_a, lightness_b);
}

}  // namespace orvexa::model
