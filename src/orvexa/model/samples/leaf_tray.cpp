// A colour picture of a tray: eight leaves on soil, a ruler below. Hue tells the leaves from everything else.

#include <algorithm>
#include <array>
#include <cmath>

#include "orvexa/model/samples/drawings.h"
#include "orvexa/model/samples/facts.h"
#include "orvexa/model/samples/painting.h"

namespace orvexa::model::samples {

namespace {

constexpr Shape picture{.height = 640, .width = 900};
constexpr double mm_per_pixel = 0.25;
/// The soil inside the tray's rim: the region of interest of the workflow.
constexpr PixelRect bed{.x0 = 56, .y0 = 46, .x1 = 844, .y1 = 570};
constexpr int rim_px = 18;

struct Leaf {
  LeafOutline outline;
  double hue;
};

const std::array leaves{
    Leaf{{.base = {96, 282}, .angle_degrees = -72, .length_px = 205, .half_width_px = 52, .bend = 0.06}, 104},
    Leaf{{.base = {276, 286},
          .angle_degrees = -84,
          .length_px = 214,
          .half_width_px = 66,
          .bend = -0.03,
          .lobes = 0.34,
          .lobe_count = 5,
          .fullness = 0.1},
         96},
    Leaf{{.base = {446, 270},
          .angle_degrees = -101,
          .length_px = 150,
          .half_width_px = 40,
          .bend = 0.08,
          .fullness = 0.35},
         112},
    Leaf{{.base = {556, 286}, .angle_degrees = -66, .length_px = 188, .half_width_px = 30, .bend = -0.10}, 88},
    Leaf{{.base = {742, 290},
          .angle_degrees = -88,
          .length_px = 222,
          .half_width_px = 78,
          .bend = 0.02,
          .lobes = 0.10,
          .lobe_count = 9,
          .fullness = 0.45},
         100},
    Leaf{{.base = {92, 404},
          .angle_degrees = 22,
          .length_px = 246,
          .half_width_px = 46,
          .bend = -0.07,
          .lobes = 0.08,
          .lobe_count = 12},
         108},
    Leaf{{.base = {420, 536},
          .angle_degrees = -38,
          .length_px = 248,
          .half_width_px = 58,
          .bend = 0.05,
          .fullness = 0.2},
         92},
    Leaf{{.base = {690, 548},
          .angle_degrees = -50,
          .length_px = 128,
          .half_width_px = 36,
          .bend = -0.05,
          .lobes = 0.22,
          .lobe_count = 3},
         84},
};

bool is_in_bed(int y, int x) {
  return x >= bed.x0 && x < bed.x1 && y >= bed.y0 && y < bed.y1;
}

cv::Vec3b soil_color(int y, int x, double shadow) {
  const double large = clouds(x, y, 90, 4, 11);
  const double fine = clouds(x, y, 7, 3, 23);
  const double crumb = smooth_step(0.62, 0.80, clouds(x, y, 14, 2, 37));
  const double value = (0.15 + 0.14 * large + 0.10 * fine + 0.10 * crumb) * (1 - 0.55 * shadow);
  return rgb_of_hsv(22 + 8 * large, 0.52 - 0.14 * crumb, value);
}

cv::Vec3b tray_color(int y, int x) {
  const int to_left = bed.x0 - x;
  const int to_top = bed.y0 - y;
  const int depth = std::max({to_left, to_top, x - bed.x1 + 1, y - bed.y1 + 1});
  const bool faces_the_light = to_left == depth || to_top == depth;
  const double rounded = std::sin(3.1 * depth / rim_px);
  return rgb_of_hsv(215, 0.08, 0.20 + 0.16 * rounded + (faces_the_light ? 0.10 : 0.0) + 0.02 * random_of(x, y, 5));
}

cv::Vec3b table_color(int y, int x) {
  const double grain = clouds(x / 6.0, y, 10, 3, 61);
  return rgb_of_hsv(34, 0.10, 0.74 + 0.10 * grain - 0.04 * (y / 640.0));
}

/// A white ruler with a line each 5 mm, longer each 10 mm: 40 pixels are 10 mm.
std::optional<cv::Vec3b> ruler_color(int y, int x) {
  if (y < 604 || y >= 630 || x < 60 || x >= 480) return std::nullopt;
  const int from_zero = x - 70;
  const bool is_long = from_zero % 40 < 2;
  const bool is_short = from_zero % 20 < 2;
  const bool is_line = from_zero >= 0 && from_zero <= 401 && ((is_long && y < 622) || (is_short && y < 614));
  return rgb_of_hsv(40, 0.03, is_line ? 0.25 : 0.95);
}

bool is_tray(int y, int x) {
  return x >= bed.x0 - rim_px && x < bed.x1 + rim_px && y >= bed.y0 - rim_px && y < bed.y1 + rim_px;
}

}  // namespace

Drawing draw_leaf_tray() {
  const cv::Size size(picture.width, picture.height);
  cv::Mat labels(size, CV_32SC1, cv::Scalar(0));
  cv::Mat shadow(size, CV_64FC1, cv::Scalar(0));
  for (const Leaf& leaf : leaves) {
    LeafOutline cast = leaf.outline;
    cast.base += cv::Point2d(7, 9);
    for_each_pixel_of(cast, size, [&](int y, int x, const LeafOutline::Place& place) {
      shadow.at<double>(y, x) = std::max(shadow.at<double>(y, x), smooth_step(0, 9, place.rim_px));
    });
  }

  cv::Mat pixels(size, CV_8UC3);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      cv::Vec3b& pixel = pixels.at<cv::Vec3b>(y, x);
      if (is_in_bed(y, x)) {
        pixel = soil_color(y, x, shadow.at<double>(y, x));
      } else if (is_tray(y, x)) {
        pixel = tray_color(y, x);
      } else {
        pixel = ruler_color(y, x).value_or(table_color(y, x));
      }
    }
  }
  int label = 0;
  for (const Leaf& leaf : leaves) {
    ++label;
    const auto seed = static_cast<std::uint32_t>(100 * label);
    for_each_pixel_of(leaf.outline, size, [&](int y, int x, const LeafOutline::Place& place) {
      const double light = leaf_light(place, x, y, seed);
      const double hue = leaf.hue + 8 * (clouds(x, y, 40, 2, seed + 50) - 0.5) - 10 * light;
      labels.at<std::int32_t>(y, x) = label;
      pixels.at<cv::Vec3b>(y, x) = rgb_of_hsv(hue, 0.78 - 0.30 * light, 0.22 + 0.52 * light);
    });
  }

  Drawing drawing;
  drawing.name = "leaf_tray";
  drawing.header =
      "; Eight leaves on a tray, drawn by orvexa sample. See expected.json for what is known about them.\n"
      "[Capture]\nName = leaf_tray\nDate = 2024-05-14\nTime = 09:30:00\nCamera = drawn by the program\n"
      "MillimetresPerPixel = 0.25\n\n[Measurement CLR]\nImage RGB = leaf_tray_RGB.png\n";
  const Image image(std::move(pixels));
  drawing.images.emplace_back("leaf_tray_RGB.png", image);

  const auto is_leaf = [&](int y, int x) { return labels.at<std::int32_t>(y, x) != 0; };
  common::Value metrics = common::Value::object();
  const std::int64_t roi_pixels = std::int64_t{bed.x1 - bed.x0} * (bed.y1 - bed.y0);
  add_area_facts(metrics, count_pixels(picture, is_leaf), picture, roi_pixels, mm_per_pixel);
  metrics["region_count"] = leaves.size();
  for (int channel = 0; channel < 3; ++channel) {
    const std::string band = std::string("CLR.RGB.") + "RGB"[channel];
    add_band_facts(metrics, band, image, channel, is_leaf);
    constexpr std::array names{"CLR.RGB.red.mean", "CLR.RGB.green.mean", "CLR.RGB.blue.mean"};
    metrics[names[static_cast<std::size_t>(channel)]] = metrics.at(band + ".mean").get<double>() / 255;
  }
  drawing.expected = {{"metrics", metrics}, {"areas", pixels_by_label(labels, label)}};
  drawing.labels = labels;
  return drawing;
}

Workflow leaf_tray_workflow() {
  Workflow workflow;
  workflow.title = "Leaves on a tray";
  workflow.mask_operations = {
      mask_op("roi_rect", {{"rect", picked_rect(bed, picture)}}),
      mask_op("threshold_hsv",
              {{"image", "CLR.RGB"}, {"hue_from", 60.0}, {"hue_to", 160.0}, {"s_min", 0.25}, {"v_min", 0.12}}),
      mask_op("remove_small", {{"min_area", 64.0}}),
  };
  workflow.result_operations = {
      result_op("area"),
      result_op("region_count"),
      result_op("perimeter"),
      result_op("shape_factors"),
      result_op("color_statistics"),
      result_op("band_statistics", {{"bands", {"CLR.RGB.R", "CLR.RGB.G", "CLR.RGB.B"}}}),
  };
  return workflow;
}

}  // namespace orvexa::model::samples
