// Two leaves in chlorophyll fluorescence. The five levels of each kind of tissue stand in fixed whole-number
// proportions, so that every yield is the same on all its pixels whatever their brightness.

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

constexpr Shape picture{.height = 380, .width = 560};
constexpr int white_level = 4095;  // a 12-bit camera
constexpr std::array halves{PixelRect{.x0 = 0, .y0 = 0, .x1 = 280, .y1 = 380},
                            PixelRect{.x0 = 280, .y0 = 0, .x1 = 560, .y1 = 380}};

enum Level { f0, fm, fs, fmp, f0p, level_count };
constexpr std::array<const char*, level_count> level_names{"F0", "FM", "FS", "FMP", "F0P"};

enum Tissue : std::uint8_t { none, healthy, stressed };
/// Counts at brightness 1.
constexpr std::array<std::array<int, level_count>, 3> counts{{
    {0, 0, 0, 0, 0},
    {10, 50, 15, 30, 9},   // Fv/Fm 40/50, (Fm'-Fs)/Fm' 15/30, (Fm-Fm')/Fm' 20/30
    {20, 50, 30, 40, 18},  // Fv/Fm 30/50, (Fm'-Fs)/Fm' 10/40, (Fm-Fm')/Fm' 10/40
}};

struct Yields {
  double fv_fm, phi_psii, npq, qp, ql;
};

Yields yields_of(Tissue tissue) {
  const auto& level = counts[tissue];
  const double fv = level[fm] - level[f0];
  const double quenching = double(level[fmp] - level[fs]) / (level[fmp] - level[f0p]);
  return {.fv_fm = fv / level[fm],
          .phi_psii = double(level[fmp] - level[fs]) / level[fmp],
          .npq = double(level[fm] - level[fmp]) / level[fmp],
          .qp = quenching,
          .ql = quenching * level[f0p] / level[fs]};
}

const std::array outlines{
    LeafOutline{.base = {138, 352},
                .angle_degrees = -88,
                .length_px = 322,
                .half_width_px = 104,
                .bend = 0.03,
                .lobes = 0.05,
                .lobe_count = 14,
                .fullness = 0.30},
    LeafOutline{.base = {424, 352},
                .angle_degrees = -93,
                .length_px = 316,
                .half_width_px = 98,
                .bend = -0.04,
                .lobes = 0.05,
                .lobe_count = 14,
                .fullness = 0.30},
};

/// Where the second leaf suffers: spots that run into each other.
bool is_in_spot(int y, int x) {
  struct Spot {
    double x, y, radius;
  };
  constexpr std::array spots{Spot{470, 150, 44}, Spot{446, 196, 30}, Spot{378, 250, 34}, Spot{452, 282, 20},
                             Spot{396, 112, 16}};
  const double ragged = 0.8 + 0.4 * clouds(x, y, 18, 2, 91);
  return std::any_of(spots.begin(), spots.end(), [&](const Spot& spot) {
    return std::hypot(x + 0.5 - spot.x, y + 0.5 - spot.y) < spot.radius * ragged;
  });
}

}  // namespace

Drawing draw_leaf_fluorescence() {
  const cv::Size size(picture.width, picture.height);
  cv::Mat labels(size, CV_32SC1, cv::Scalar(0));
  cv::Mat tissue(size, CV_8UC1, cv::Scalar(none));
  cv::Mat brightness(size, CV_32SC1, cv::Scalar(0));
  for (std::size_t leaf = 0; leaf < outlines.size(); ++leaf) {
    for_each_pixel_of(outlines[leaf], size, [&](int y, int x, const LeafOutline::Place& place) {
      const double light = leaf_light(place, x, y, static_cast<std::uint32_t>(300 + leaf));
      // Veins have less chlorophyll than the blade and glow less.
      labels.at<std::int32_t>(y, x) = static_cast<int>(leaf) + 1;
      tissue.at<std::uint8_t>(y, x) = leaf == 1 && is_in_spot(y, x) ? stressed : healthy;
      brightness.at<std::int32_t>(y, x) = 80 - static_cast<int>(std::lround(44 * light));
    });
  }

  Drawing drawing;
  drawing.name = "leaf_fluorescence";
  drawing.header =
      "; Two leaves in chlorophyll fluorescence, drawn by orvexa sample: Fv/Fm is 0.80, in the spots of the right one\n"
      "; 0.60. F0, FM: dark-adapted; FS, FMP, F0P: in light.\n"
      "[Capture]\nName = leaf_fluorescence\nDate = 2024-05-28\nTime = 14:05:00\nCamera = drawn by the program\n"
      "MillimetresPerPixel = 0.2\n\n[Measurement FLU]\n" +
      fmt::format("WhiteLevel = {}\n", white_level);
  for (std::size_t level = 0; level < level_count; ++level) {
    cv::Mat pixels(size, CV_16UC1);
    for (int y = 0; y < size.height; ++y) {
      for (int x = 0; x < size.width; ++x) {
        const int glow = counts[tissue.at<std::uint8_t>(y, x)][level] * brightness.at<std::int32_t>(y, x);
        // The dark box beside the leaves gives a few counts of noise.
        const int noise = static_cast<int>(12 * random_of(x, y, static_cast<std::uint32_t>(40 + level)));
        pixels.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(glow > 0 ? glow : noise);
      }
    }
    drawing.header += fmt::format("Image {0} = leaf_fluorescence_{0}.tif\n", level_names[level]);
    drawing.images.emplace_back(fmt::format("leaf_fluorescence_{}.tif", level_names[level]), Image(std::move(pixels)));
  }

  const auto facts = [&](int first_leaf, int last_leaf) {
    const auto is_of = [&](Tissue wanted) {
      return [&, wanted](int y, int x) {
        const int leaf = labels.at<std::int32_t>(y, x);
        return leaf >= first_leaf && leaf <= last_leaf && tissue.at<std::uint8_t>(y, x) == wanted;
      };
    };
    const std::int64_t healthy_pixels = count_pixels(picture, is_of(healthy));
    const std::int64_t stressed_pixels = count_pixels(picture, is_of(stressed));
    common::Value metrics = common::Value::object();
    add_area_facts(metrics, healthy_pixels + stressed_pixels, picture, picture.pixels(), 0.2);
    const auto add = [&](const char* name, double Yields::*yield) {
      add_class_facts(metrics, name,
                      {{yields_of(healthy).*yield, healthy_pixels}, {yields_of(stressed).*yield, stressed_pixels}});
    };
    add("fv_fm", &Yields::fv_fm);
    add("phi_psii", &Yields::phi_psii);
    add("npq", &Yields::npq);
    add("qp", &Yields::qp);
    add("ql", &Yields::ql);
    return metrics;
  };
  drawing.expected = {{"metrics", facts(1, 2)},
                      {"regions", {{"ROI_1", facts(1, 1)}, {"ROI_2", facts(2, 2)}}},
                      {"areas", pixels_by_label(labels, 2)}};
  drawing.labels = labels;
  return drawing;
}

Workflow leaf_fluorescence_workflow() {
  Workflow workflow;
  workflow.title = "Leaves in fluorescence";
  workflow.mask_operations = {
      mask_op("roi_rects",
              {{"rects", common::Value::array({picked_rect(halves[0], picture), picked_rect(halves[1], picture)})}}),
      mask_op("threshold_range", {{"band", "FLU.FM"}, {"low", 0.2}, {"high", 1.0}}),
  };
  workflow.result_operations = {result_op("area"), result_op("psii"), result_op("region_count")};
  return workflow;
}

}  // namespace orvexa::model::samples
