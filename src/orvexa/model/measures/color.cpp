#include "orvexa/model/measures/color.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace orvexa::model {

namespace {

// From the chromaticities of IEC 61966-2-1: R (0.64, 0.33), G (0.30, 0.60), B (0.15, 0.06), white D65 (0.3127, 0.3290).
constexpr double x_of[3] = {0.4123907993, 0.3575843394, 0.1804807884};
constexpr double y_of[3] = {0.2126390059, 0.7151686788, 0.0721923154};
constexpr double z_of[3] = {0.0193308187, 0.1191947798, 0.9505321522};
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

}  // namespace orvexa::model
