#include "orvexa/model/samples/painting.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace orvexa::model::samples {

namespace {

constexpr double pi = std::numbers::pi;

double noise(double x, double y, std::uint32_t seed) {
  const double x0 = std::floor(x);
  const double y0 = std::floor(y);
  const double tx = smooth_step(0, 1, x - x0);
  const double ty = smooth_step(0, 1, y - y0);
  const int column = static_cast<int>(x0);
  const int row = static_cast<int>(y0);
  const double top = std::lerp(random_of(column, row, seed), random_of(column + 1, row, seed), tx);
  const double bottom = std::lerp(random_of(column, row + 1, seed), random_of(column + 1, row + 1, seed), tx);
  return std::lerp(top, bottom, ty);
}

}  // namespace

// The finaliser of MurmurHash3 by A. Appleby (public domain) over a mix of the arguments.
double random_of(int x, int y, std::uint32_t seed) {
  std::uint32_t h =
      static_cast<std::uint32_t>(x) * 0x9E3779B1u ^ static_cast<std::uint32_t>(y) * 0x85EBCA77u ^ seed * 0xC2B2AE3Du;
  h ^= h >> 16;
  h *= 0x85EBCA6Bu;
  h ^= h >> 13;
  h *= 0xC2B2AE35u;
  h ^= h >> 16;
  return h / 4294967296.0;
}

double clouds(double x, double y, double size_px, int octaves, std::uint32_t seed) {
  double sum = 0;
  double weight = 1;
  double weights = 0;
  for (int octave = 0; octave < octaves; ++octave) {
    sum += weight * noise(x / size_px, y / size_px, seed + static_cast<std::uint32_t>(octave));
    weights += weight;
    weight /= 2;
    size_px /= 2;
    // Each octave is turned (by the angle of a 3-4-5 triangle), or the grid of the noise would show.
    const double turned_x = 0.8 * x - 0.6 * y;
    y = 0.6 * x + 0.8 * y;
    x = turned_x;
  }
  return sum / weights;
}

double smooth_step(double from, double to, double value) {
  const double t = std::clamp((value - from) / (to - from), 0.0, 1.0);
  return t * t * (3 - 2 * t);
}

cv::Vec3b rgb_of_hsv(double hue, double saturation, double value) {
  const auto channel = [&](double n) {
    const double k = std::fmod(n + hue / 60, 6.0);
    const double level = value - value * saturation * std::clamp(std::min(k, 4 - k), 0.0, 1.0);
    return static_cast<std::uint8_t>(std::lround(std::clamp(level, 0.0, 1.0) * 255));
  };
  return {channel(5), channel(3), channel(1)};
}

std::optional<LeafOutline::Place> LeafOutline::place_of(double x, double y) const {
  const double angle = angle_degrees * pi / 180;
  const double dx = x - base.x;
  const double dy = y - base.y;
  const double along = (dx * std::cos(angle) + dy * std::sin(angle)) / length_px;
  if (along <= 0 || along >= 1) return std::nullopt;
  const double side = dy * std::cos(angle) - dx * std::sin(angle) - bend * length_px * std::sin(pi * along);
  double half_width = half_width_px * std::pow(std::sin(pi * std::pow(along, 1 / (1 + fullness))), 0.8);
  half_width *= 1 - lobes * (0.5 + 0.5 * std::cos(2 * pi * lobe_count * along));
  if (half_width <= 0 || std::abs(side) > half_width) return std::nullopt;
  return Place{along, side / half_width, half_width - std::abs(side), std::abs(side)};
}

cv::Rect LeafOutline::box() const {
  const double reach = half_width_px + std::abs(bend) * length_px + 2;
  const double angle = angle_degrees * pi / 180;
  const cv::Point2d tip = base + cv::Point2d(std::cos(angle), std::sin(angle)) * length_px;
  const int left = static_cast<int>(std::floor(std::min(base.x, tip.x) - reach));
  const int top = static_cast<int>(std::floor(std::min(base.y, tip.y) - reach));
  const int right = static_cast<int>(std::ceil(std::max(base.x, tip.x) + reach));
  const int bottom = static_cast<int>(std::ceil(std::max(base.y, tip.y) + reach));
  return {left, top, right - left, bottom - top};
}

double leaf_light(const LeafOutline::Place& place, double x, double y, std::uint32_t seed) {
  // Two halves that fold along the midrib, one turned to the light.
  double light = 0.46 - 0.10 * place.across + 0.12 * (1 - place.across * place.across);
  light += 0.16 * (clouds(x, y, 26, 3, seed) - 0.5);
  // Side veins leave the midrib at an acute angle and fade towards the rim.
  const double vein_phase = (place.along - 0.16 * std::abs(place.across)) * 9;
  const double vein_distance = std::abs(vein_phase - std::round(vein_phase));
  light += 0.20 * (1 - smooth_step(0.04, 0.13, vein_distance)) * (1 - std::abs(place.across));
  const double midrib_half_width = 1.6 * (1.15 - place.along);
  light += 0.30 * (1 - smooth_step(midrib_half_width, midrib_half_width + 1.4, place.midrib_px));
  light -= 0.22 * (1 - smooth_step(0.0, 3.0, place.rim_px));
  return std::clamp(light, 0.0, 1.0);
}

std::vector<std::int64_t> pixels_by_label(const cv::Mat& labels, int count) {
  std::vector<std::int64_t> pixels(static_cast<std::size_t>(count), 0);
  for (int y = 0; y < labels.rows; ++y) {
    for (int x = 0; x < labels.cols; ++x) {
      const int label = labels.at<std::int32_t>(y, x);
      if (label > 0) ++pixels[static_cast<std::size_t>(label - 1)];
    }
  }
  return pixels;
}

bool labels_are_apart(const cv::Mat& labels) {
  for (int y = 0; y < labels.rows; ++y) {
    for (int x = 0; x < labels.cols; ++x) {
      const int label = labels.at<std::int32_t>(y, x);
      if (label == 0) continue;
      for (int ny = std::max(0, y - 1); ny <= std::min(labels.rows - 1, y + 1); ++ny) {
        for (int nx = std::max(0, x - 1); nx <= std::min(labels.cols - 1, x + 1); ++nx) {
          const int neighbour = labels.at<std::int32_t>(ny, nx);
          if (neighbour != 0 && neighbour != label) return false;
        }
      }
    }
  }
  return true;
}

}  // namespace orvexa::model::samples
