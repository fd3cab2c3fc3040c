#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace orvexa::model::samples {

/// A number in [0, 1) that depends on nothing but its arguments.
[[nodiscard]] double random_of(int x, int y, std::uint32_t seed);

/// Soft clouds in [0, 1]: smooth noise whose coarsest features are `size_px` large, in `octaves` of halving size.
[[nodiscard]] double clouds(double x, double y, double size_px, int octaves, std::uint32_t seed);

/// 0 below `from`, 1 above `to`, smooth between.
[[nodiscard]] double smooth_step(double from, double to, double value);

/// An 8-bit RGB colour from hue (degrees), saturation and value (0..1).
[[nodiscard]] cv::Vec3b rgb_of_hsv(double hue, double saturation, double value);

/// The outline of a leaf: a curved midrib from base to tip, and a width along it that may have lobes.
struct LeafOutline {
  cv::Point2d base;
  double angle_degrees = 0;  ///< of the midrib's chord; 0 = to the right, 90 = down
  double length_px = 100;
  double half_width_px = 30;
  double bend = 0;      ///< how far the midrib bulges sideways, in lengths
  double lobes = 0;     ///< depth of the lobes: 0 = a smooth rim, 0.3 = deep ones
  int lobe_count = 5;   ///< on each side
  double fullness = 0;  ///< 0 = widest in the middle; above 0 = nearer the base

  /// Where a point lies in the leaf.
  struct Place {
    double along = 0;   ///< 0 at the base, 1 at the tip
    double across = 0;  ///< -1 and 1 on the rim, 0 on the midrib
    double rim_px = 0;  ///< distance to the rim across the leaf
    double midrib_px = 0;
  };
  /// Absent outside.
  [[nodiscard]] std::optional<Place> place_of(double x, double y) const;
  /// A box that holds the whole leaf.
  [[nodiscard]] cv::Rect box() const;
};

/// How light a leaf looks there, about 0 (dark rim) to 1 (vein in the light): veins, curvature, light from above left.
[[nodiscard]] double leaf_light(const LeafOutline::Place& place, double x, double y, std::uint32_t seed);

/// Calls `paint(y, x, place)` for every pixel of the picture whose centre lies in the leaf.
template <typename Paint>
void for_each_pixel_of(const LeafOutline& leaf, cv::Size picture, const Paint& paint) {
  const cv::Rect box = leaf.box() & cv::Rect({0, 0}, picture);
  for (int y = box.y; y < box.y + box.height; ++y) {
    for (int x = box.x; x < box.x + box.width; ++x) {
      if (const auto place = leaf.place_of(x + 0.5, y + 0.5)) paint(y, x, *place);
    }
  }
}

/// How many pixels of a label image have each label 1..count.
[[nodiscard]] std::vector<std::int64_t> pixels_by_label(const cv::Mat& labels, int count);

/// Whether no two pixels of different labels touch, corners included.
[[nodiscard]] bool labels_are_apart(const cv::Mat& labels);

}  // namespace orvexa::model::samples
