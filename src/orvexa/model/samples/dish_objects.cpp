// Seeds and beads in a dish, none touching another, with dust between them.

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "orvexa/model/samples/drawings.h"
#include "orvexa/model/samples/facts.h"
#include "orvexa/model/samples/painting.h"

namespace orvexa::model::samples {

namespace {

constexpr Shape picture{.height = 600, .width = 600};
constexpr double mm_per_pixel = 0.1;
const cv::Point2d dish_centre{300, 300};
constexpr double dish_radius = 276;
constexpr int object_count = 26;
constexpr int dust_count = 40;

/// An ellipse; a bead has a hole in its middle.
struct Object {
  cv::Point2d centre;
  double long_half = 0;
  double short_half = 0;
  double angle = 0;  ///< radians
  bool is_bead = false;

  /// Whether the point lies nowhere near, shadow included.
  [[nodiscard]] bool is_far_from(double x, double y) const {
    return std::abs(x - centre.x) > 1.5 * long_half + 8 || std::abs(y - centre.y) > 1.5 * long_half + 8;
  }
  /// Below 1 inside, 1 on the rim.
  [[nodiscard]] double distance(double x, double y) const {
    const double dx = x - centre.x;
    const double dy = y - centre.y;
    const double along = dx * std::cos(angle) + dy * std::sin(angle);
    const double across = dy * std::cos(angle) - dx * std::sin(angle);
    return std::hypot(along / long_half, across / short_half);
  }
};

/// Tries places in a fixed order and keeps those that are free.
std::vector<Object> place_objects() {
  std::vector<Object> objects;
  for (int attempt = 0; static_cast<int>(objects.size()) < object_count; ++attempt) {
    const int number = static_cast<int>(objects.size());
    const auto random = [&](int what) { return random_of(attempt, what, 900); };
    Object object;
    object.is_bead = number % 4 == 3;
    object.long_half = object.is_bead ? 17 + 6 * random(0) : 20 + 14 * random(0);
    object.short_half = object.is_bead ? object.long_half : object.long_half * (0.55 + 0.25 * random(1));
    object.angle = 3.14 * random(2);
    const double radius = (dish_radius - 62) * std::sqrt(random(3));
    const double direction = 6.283 * random(4);
    object.centre = dish_centre + cv::Point2d(std::cos(direction), std::sin(direction)) * radius;
    const bool is_free = std::none_of(objects.begin(), objects.end(), [&](const Object& other) {
      return cv::norm(other.centre - object.centre) < other.long_half + object.long_half + 8;
    });
    if (is_free) objects.push_back(object);
  }
  return objects;
}

cv::Vec3b bytes_of(double r, double g, double b) {
  const auto byte = [](double level) { return static_cast<std::uint8_t>(std::lround(std::clamp(level, 0.0, 255.0))); };
  return {byte(r), byte(g), byte(b)};
}

/// Grey 70 to 118: well below every object.
cv::Vec3b ground_color(int y, int x, double shadow) {
  const double r = std::hypot(x + 0.5 - dish_centre.x, y + 0.5 - dish_centre.y);
  double level = 88 + 12 * (clouds(x, y, 120, 3, 71) - 0.5) + 4 * (random_of(x, y, 72) - 0.5);
  if (r < dish_radius) level += 6;
  // The glass rim: a bright line between two dark ones.
  const double rim = std::abs(r - dish_radius);
  if (rim < 7)
    level += 16 * std::cos(rim * 0.75) + 4 * std::cos(std::atan2(y - dish_centre.y, x - dish_centre.x) + 2.3);
  level = std::clamp(level * (1 - 0.22 * shadow), 70.0, 118.0);
  return bytes_of(level * 0.94, level, level * 1.10);
}

}  // namespace

Drawing draw_dish_objects() {
  const std::vector<Object> objects = place_objects();
  const cv::Size size(picture.width, picture.height);
  cv::Mat labels(size, CV_32SC1, cv::Scalar(0));
  cv::Mat pixels(size, CV_8UC3);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      double shadow = 0;
      for (const Object& object : objects) {
        if (object.is_far_from(x, y)) continue;
        shadow = std::max(shadow, 1 - smooth_step(0.75, 1.25, object.distance(x + 0.5 - 5, y + 0.5 - 6)));
      }
      pixels.at<cv::Vec3b>(y, x) = ground_color(y, x, shadow);
      for (std::size_t i = 0; i < objects.size(); ++i) {
        const Object& object = objects[i];
        if (object.is_far_from(x, y)) continue;
        const double r = object.distance(x + 0.5, y + 0.5);
        if (r > 1) continue;
        labels.at<std::int32_t>(y, x) = static_cast<int>(i) + 1;  // a bead's hole belongs to it
        if (object.is_bead && r < 0.36) continue;
        // A rounded body, lit from above left; the level is its grey, 165 to 240.
        const double height = std::sqrt(1 - r * r);
        const double slope = ((x - object.centre.x) + (y - object.centre.y)) / (2 * object.long_half);
        const double grain = clouds(x, y, 9, 2, static_cast<std::uint32_t>(700 + i)) - 0.5;
        const double level = std::clamp(172 + 46 * height - 26 * slope + 12 * grain, 165.0, 240.0);
        pixels.at<cv::Vec3b>(y, x) = object.is_bead ? bytes_of(level * 0.86, level * 1.02, level * 1.12)
                                                    : bytes_of(level * 1.10, level, level * 0.70);
      }
    }
  }
  for (int i = 0; i < dust_count; ++i) {
    const int x0 = static_cast<int>(60 + 480 * random_of(i, 1, 41));
    const int y0 = static_cast<int>(60 + 480 * random_of(i, 2, 41));
    const cv::Rect speck(x0, y0, 1 + i % 3, 1 + i % 2);
    const cv::Rect around(speck.x - 3, speck.y - 3, speck.width + 6, speck.height + 6);
    if (cv::countNonZero(labels(around)) == 0) pixels(speck).setTo(cv::Scalar(190, 190, 186));
  }

  Drawing drawing;
  drawing.name = "dish_objects";
  drawing.header =
      "; Seeds and beads in a dish, drawn by orvexa sample: none touches another, and dust lies between them.\n"
      "[Capture]\nName = dish_objects\nDate = 2024-06-03\nTime = 11:47:30\nCamera = drawn by the program\n"
      "MillimetresPerPixel = 0.1\n\n[Measurement CLR]\nImage RGB = dish_objects_RGB.png\n";
  const Image image(std::move(pixels));
  drawing.images.emplace_back("dish_objects_RGB.png", image);
  const auto is_object = [&](int y, int x) { return labels.at<std::int32_t>(y, x) != 0; };
  common::Value metrics = common::Value::object();
  add_area_facts(metrics, count_pixels(picture, is_object), picture, picture.pixels(), mm_per_pixel);
  metrics["region_count"] = object_count;
  add_band_facts(metrics, "CLR.RGB.grey", image, 3, is_object);
  drawing.expected = {{"metrics", metrics}, {"areas", pixels_by_label(labels, object_count)}};
  drawing.labels = labels;
  return drawing;
}

Workflow dish_objects_workflow() {
  Workflow workflow;
  workflow.title = "Objects in a dish";
  workflow.mask_operations = {
      mask_op("threshold_auto", {{"band", "CLR.RGB.grey"}, {"method", "otsu"}, {"polarity", "bright"}}),
      mask_op("fill_holes"),
      mask_op("remove_small", {{"min_area", 64.0}}),
  };
  workflow.result_operations = {
      result_op("region_count"),
      result_op("area"),
      result_op("perimeter"),
      result_op("shape_factors"),
      result_op("band_statistics", {{"bands", {"CLR.RGB.grey"}}}),
      result_op("histogram", {{"bands", {"CLR.RGB.grey"}}}),
  };
  return workflow;
}

}  // namespace orvexa::model::samples
