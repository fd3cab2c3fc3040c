// Plots seen from above in several bands: plants on soil. Every kind of surface reflects the bands in fixed
// whole-number proportions, so that brightness may vary from pixel to pixel while every ratio of bands stays exactly
// the same.

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

/// Counts that are white: reflectance 1 is 10,000.
constexpr int white_level = 10'000;

enum Surface : std::uint8_t { soil, vigorous, weak, stone, panel };
enum BandIndex { blue, green, red, edge, nir, band_count };
constexpr std::array<const char*, band_count> band_names{"BLU", "GRN", "RED", "EDG", "NIR"};
constexpr std::array<int, band_count> centres_nm{475, 560, 668, 717, 842};
constexpr std::array<int, band_count> widths_nm{32, 27, 16, 12, 57};

/// Reflectance in percent at brightness 100; a pixel's counts are this times its brightness.
constexpr std::array<std::array<int, band_count>, 5> percents{{
    {10, 15, 20, 22, 25},  // soil: NDVI 5 / 45
    {4, 10, 6, 15, 45},    // vigorous plant: NDVI 39 / 51, GNDVI 35 / 55
    {5, 12, 10, 16, 30},   // weak plant: NDVI 20 / 40, GNDVI 18 / 42
    {30, 30, 30, 30, 30},  // stone: NDVI 0
    {50, 50, 50, 50, 50},  // reference panel
}};

double normalised_difference(Surface surface, BandIndex a, BandIndex b) {
  const auto& percent = percents[surface];
  return double(percent[a] - percent[b]) / double(percent[a] + percent[b]);
}

struct Plant {
  cv::Point2d centre;
  double radius_px;
  Surface vigour;
};

/// A picture of surfaces and brightness.
class Ground {
 public:
  Ground(Shape shape, std::uint32_t seed)
      : _size(shape.width, shape.height),
        _seed(seed),
        _surface(_size, CV_8UC1, cv::Scalar(soil)),
        _brightness(_size, CV_32SC1),
        _labels(_size, CV_32SC1, cv::Scalar(0)) {
    for (int y = 0; y < _size.height; ++y) {
      for (int x = 0; x < _size.width; ++x) {
        const double light = 0.55 * clouds(x, y, 60, 3, seed) + 0.45 * clouds(x, y, 6, 3, seed + 9);
        set(y, x, soil, 60 + 60 * light);
      }
    }
  }

  void add_stone(cv::Point2d centre, double radius) {
    for_each_near(centre, radius * 1.4, [&](int y, int x, double dx, double dy) {
      const double bulge = 0.75 + 0.5 * clouds(x, y, radius, 2, _seed + 70);
      const double r = std::hypot(dx, dy * 1.25) / (radius * bulge);
      if (r < 1) set(y, x, stone, 75 + 45 * (1 - r) - 12 * (dx + dy) / radius);
    });
  }

  void add_panel(cv::Rect box) {
    for (int y = box.y; y < box.y + box.height; ++y) {
      for (int x = box.x; x < box.x + box.width; ++x) set(y, x, panel, 100);
    }
  }

  /// A rosette of leaves round a heart, with a soft shadow on the soil below it.
  void add(const Plant& plant) {
    ++_plants;
    const std::uint32_t seed = _seed + 131 * static_cast<std::uint32_t>(_plants);
    for_each_near(plant.centre + cv::Point2d(3, 4), plant.radius_px, [&](int y, int x, double dx, double dy) {
      if (_surface.at<std::uint8_t>(y, x) != soil) return;
      const double shade = 1 - smooth_step(0.55, 1.0, std::hypot(dx, dy) / plant.radius_px);
      auto& brightness = _brightness.at<std::int32_t>(y, x);
      brightness = std::max(20, static_cast<int>(brightness * (1 - 0.5 * shade)));
    });
    const int leaves = 7 + static_cast<int>(4 * random_of(1, 0, seed));
    const double turn = 360 * random_of(2, 0, seed);
    for (int leaf = 0; leaf < leaves; ++leaf) {
      // The outer ring first, a smaller inner one over it.
      const bool is_inner = leaf >= (leaves + 1) / 2;
      const double length = plant.radius_px * (is_inner ? 0.62 : 0.96) * (0.85 + 0.15 * random_of(3, leaf, seed));
      const LeafOutline outline{.base = plant.centre,
                                .angle_degrees = turn + leaf * 360 * 0.382 + 14 * random_of(4, leaf, seed),
                                .length_px = length,
                                .half_width_px = length * 0.24,
                                .bend = 0.10 * (random_of(5, leaf, seed) - 0.5),
                                .lobes = 0.06,
                                .lobe_count = 4,
                                .fullness = -0.25};
      for_each_pixel_of(outline, _size, [&](int y, int x, const LeafOutline::Place& place) {
        const double light = leaf_light(place, x, y, seed + static_cast<std::uint32_t>(leaf));
        set(y, x, plant.vigour, 58 + 66 * light + (is_inner ? 10 : 0) + 12 * place.along);
        _labels.at<std::int32_t>(y, x) = _plants;
      });
    }
    const double heart = std::max(2.0, plant.radius_px * 0.12);
    for_each_near(plant.centre, heart, [&](int y, int x, double dx, double dy) {
      set(y, x, plant.vigour, 118 - 20 * std::hypot(dx, dy) / heart);
      _labels.at<std::int32_t>(y, x) = _plants;
    });
  }

  [[nodiscard]] Image band(BandIndex index) const {
    cv::Mat counts(_size, CV_16UC1);
    for (int y = 0; y < _size.height; ++y) {
      for (int x = 0; x < _size.width; ++x) {
        counts.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(percents[_surface.at<std::uint8_t>(y, x)][index] *
                                                                    _brightness.at<std::int32_t>(y, x));
      }
    }
    return Image(std::move(counts));
  }

  /// Red, green and blue as a camera would show them: brightened, with the usual exponent 1 / 2.2.
  [[nodiscard]] Image preview() const {
    cv::Mat colors(_size, CV_8UC3);
    const std::array<Image, 3> bands{band(red), band(green), band(blue)};
    for (int y = 0; y < _size.height; ++y) {
      for (int x = 0; x < _size.width; ++x) {
        for (int channel = 0; channel < 3; ++channel) {
          const auto index = static_cast<std::size_t>(channel);
          const double reflectance =
              double(bands[index].row<std::uint16_t>(y)[static_cast<std::size_t>(x)]) / white_level;
          const double level = std::pow(std::min(1.0, 1.9 * reflectance), 1 / 2.2);
          colors.at<cv::Vec3b>(y, x)[channel] = static_cast<std::uint8_t>(std::lround(255 * level));
        }
      }
    }
    return Image(std::move(colors));
  }

  [[nodiscard]] const cv::Mat& labels() const { return _labels; }
  [[nodiscard]] Shape shape() const { return {_size.height, _size.width}; }
  [[nodiscard]] int plants() const { return _plants; }

  /// What is known about the plants inside a rectangle.
  [[nodiscard]] common::Value facts(const PixelRect& box, std::int64_t roi_pixels, std::optional<double> mm_per_pixel,
                                    const std::vector<BandIndex>& bands) const {
    const auto is_plant = [&](int y, int x) {
      return x >= box.x0 && x < box.x1 && y >= box.y0 && y < box.y1 && _labels.at<std::int32_t>(y, x) != 0;
    };
    const auto is_of = [&](Surface wanted) {
      return [this, &is_plant, wanted](int y, int x) {
        return is_plant(y, x) && _surface.at<std::uint8_t>(y, x) == wanted;
      };
    };
    const std::int64_t vigorous_pixels = count_pixels(shape(), is_of(vigorous));
    const std::int64_t weak_pixels = count_pixels(shape(), is_of(weak));
    common::Value metrics = common::Value::object();
    add_area_facts(metrics, vigorous_pixels + weak_pixels, shape(), roi_pixels, mm_per_pixel);
    metrics["region_count"] = plants_in(box);
    add_class_facts(metrics, "ndvi",
                    {{normalised_difference(vigorous, nir, red), vigorous_pixels},
                     {normalised_difference(weak, nir, red), weak_pixels}});
    add_class_facts(metrics, "gndvi",
                    {{normalised_difference(vigorous, nir, green), vigorous_pixels},
                     {normalised_difference(weak, nir, green), weak_pixels}});
    for (const BandIndex index : bands) {
      add_band_facts(metrics, std::string("MSP.") + band_names[index], band(index), 0, is_plant);
    }
    return metrics;
  }

 private:
  void set(int y, int x, Surface surface, double brightness) {
    _surface.at<std::uint8_t>(y, x) = surface;
    _brightness.at<std::int32_t>(y, x) = static_cast<int>(std::lround(brightness));
  }

  template <typename Visit>
  void for_each_near(cv::Point2d centre, double radius, const Visit& visit) {
    const int reach = static_cast<int>(radius) + 2;
    for (int y = std::max(0, int(centre.y) - reach); y <= std::min(_size.height - 1, int(centre.y) + reach); ++y) {
      for (int x = std::max(0, int(centre.x) - reach); x <= std::min(_size.width - 1, int(centre.x) + reach); ++x) {
        const double dx = x + 0.5 - centre.x;
        const double dy = y + 0.5 - centre.y;
        if (dx * dx + dy * dy <= radius * radius) visit(y, x, dx, dy);
      }
    }
  }

  [[nodiscard]] int plants_in(const PixelRect& box) const {
    int found = 0;
    const cv::Mat part = _labels(cv::Rect(box.x0, box.y0, box.x1 - box.x0, box.y1 - box.y0));
    for (int plant = 1; plant <= _plants; ++plant) found += cv::countNonZero(part == plant) > 0 ? 1 : 0;
    return found;
  }

  cv::Size _size;
  std::uint32_t _seed;
  cv::Mat _surface;
  cv::Mat _brightness;
  cv::Mat _labels;
  int _plants = 0;
};

std::string band_sections(const std::vector<BandIndex>& bands) {
  std::string text;
  for (const BandIndex band : bands) {
    text +=
        fmt::format("\n[Band {}]\nCentreNm = {}\nWidthNm = {}\n", band_names[band], centres_nm[band], widths_nm[band]);
  }
  return text;
}

std::string image_lines(const std::string& name, const std::vector<BandIndex>& bands) {
  std::string text;
  for (const BandIndex band : bands) text += fmt::format("Image {0} = {1}_{0}.tif\n", band_names[band], name);
  return text;
}

common::Value names_of(const std::vector<BandIndex>& bands) {
  common::Value names = common::Value::array();
  for (const BandIndex band : bands) names.push_back(std::string("MSP.") + band_names[band]);
  return names;
}

const std::vector<BandIndex> five_bands{blue, green, red, edge, nir};
const std::vector<BandIndex> three_bands{green, red, nir};

constexpr Shape plot_shape{.height = 480, .width = 640};
constexpr double plot_mm_per_pixel = 2.0;
constexpr std::array plot_rows{PixelRect{.x0 = 20, .y0 = 30, .x1 = 620, .y1 = 170},
                               PixelRect{.x0 = 20, .y0 = 170, .x1 = 620, .y1 = 310},
                               PixelRect{.x0 = 20, .y0 = 310, .x1 = 620, .y1 = 450}};

constexpr Shape series_shape{.height = 120, .width = 160};
constexpr double series_mm_per_pixel = 5.0;

}  // namespace

Drawing draw_plot_five_bands() {
  Ground ground(plot_shape, 4);
  for (int i = 0; i < 46; ++i) {
    ground.add_stone({640 * random_of(i, 1, 8), 480 * random_of(i, 2, 8)},
                     2.5 + 6 * random_of(i, 3, 8) * random_of(i, 4, 8));
  }
  ground.add_panel({582, 5, 34, 20});
  ground.add_panel({22, 455, 34, 20});
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 6; ++column) {
      const int number = 6 * row + column;
      const bool is_vigorous = row == 0 || (row == 2 && column % 2 == 0);
      ground.add({.centre = {70 + 100.0 * column + 6 * (random_of(number, 1, 77) - 0.5),
                             100 + 140.0 * row + 10 * (random_of(number, 2, 77) - 0.5)},
                  .radius_px = (is_vigorous ? 43 : 34) + 3 * random_of(number, 3, 77),
                  .vigour = is_vigorous ? vigorous : weak});
    }
  }

  Drawing drawing;
  drawing.name = "plot_five_bands";
  drawing.header = fmt::format(
      "; Three rows of six plants, drawn by orvexa sample: the first row vigorous, the second weak, the third in "
      "turn.\n"
      "[Capture]\nName = {0}\nDate = 2024-05-21\nTime = 10:32:11\nCamera = drawn by the program\n"
      "MillimetresPerPixel = {1}\n\n[Measurement CLR]\nImage RGB = {0}_RGB.png\n\n"
      "[Measurement MSP]\nWhiteLevel = {2}\n{3}{4}",
      drawing.name, plot_mm_per_pixel, white_level, image_lines(drawing.name, five_bands), band_sections(five_bands));
  drawing.images.emplace_back(drawing.name + "_RGB.png", ground.preview());
  for (const BandIndex band : five_bands) {
    drawing.images.emplace_back(fmt::format("{}_{}.tif", drawing.name, band_names[band]), ground.band(band));
  }

  std::int64_t roi_pixels = 0;
  for (const PixelRect& row : plot_rows) roi_pixels += std::int64_t{row.x1 - row.x0} * (row.y1 - row.y0);
  const PixelRect all{.x0 = plot_rows[0].x0, .y0 = plot_rows[0].y0, .x1 = plot_rows[2].x1, .y1 = plot_rows[2].y1};
  common::Value regions = common::Value::object();
  for (std::size_t row = 0; row < plot_rows.size(); ++row) {
    regions[fmt::format("ROI_{}", row + 1)] = ground.facts(plot_rows[row], roi_pixels, plot_mm_per_pixel, five_bands);
  }
  drawing.expected = {{"metrics", ground.facts(all, roi_pixels, plot_mm_per_pixel, five_bands)},
                      {"regions", regions},
                      {"areas", pixels_by_label(ground.labels(), ground.plants())}};
  drawing.labels = ground.labels();
  return drawing;
}

Workflow plot_five_bands_workflow() {
  common::Value rects = common::Value::array();
  for (const PixelRect& row : plot_rows) rects.push_back(picked_rect(row, plot_shape));
  Workflow workflow;
  workflow.title = "Plants in rows";
  workflow.mask_operations = {
      mask_op("roi_rects", {{"rects", rects}}),
      mask_op("threshold_index", {{"index", "ndvi"}, {"low", 0.3}, {"method", "none"}}),
  };
  workflow.result_operations = {
      result_op("area"),
      result_op("region_count"),
      result_op("index_statistics", {{"indices", {"ndvi", "gndvi"}}}),
      result_op("band_statistics", {{"bands", names_of(five_bands)}}),
  };
  return workflow;
}

Drawing draw_series_plot(const std::string& name, int number) {
  const auto seed = static_cast<std::uint32_t>(1000 + 31 * number);
  Ground ground(series_shape, seed);
  const int plants = 2 + static_cast<int>(5 * random_of(number, 0, 501));
  for (int plant = 0; plant < plants; ++plant) {
    const int column = plant % 3;
    const int row = plant / 3;
    ground.add({.centre = {28.0 + 52 * column + 3 * random_of(number, plant, 502), 30.0 + 58 * row},
                .radius_px = 15 + 7 * random_of(number, plant, 503),
                .vigour = random_of(number, plant, 504) < 0.7 ? vigorous : weak});
  }

  Drawing drawing;
  drawing.name = name;
  const int minutes = 6 * 60 + number - 1;
  drawing.header = fmt::format(
      "[Capture]\nName = {0}\nDate = 2024-06-{1:02}\nTime = {2:02}:{3:02}:00\nCamera = drawn by the program\n"
      "MillimetresPerPixel = {4}\n\n[Measurement MSP]\nWhiteLevel = {5}\n{6}{7}",
      name, 1 + minutes / 1440 % 30, minutes / 60 % 24, minutes % 60, series_mm_per_pixel, white_level,
      image_lines(name, three_bands), band_sections(three_bands));
  for (const BandIndex band : three_bands) {
    drawing.images.emplace_back(fmt::format("{}_{}.tif", name, band_names[band]), ground.band(band));
  }
  const PixelRect all{.x0 = 0, .y0 = 0, .x1 = series_shape.width, .y1 = series_shape.height};
  drawing.expected = {{"metrics", ground.facts(all, series_shape.pixels(), series_mm_per_pixel, {})},
                      {"areas", pixels_by_label(ground.labels(), ground.plants())}};
  drawing.labels = ground.labels();
  return drawing;
}

Workflow series_workflow() {
  Workflow workflow;
  workflow.title = "Plants of a series";
  workflow.mask_operations = {mask_op("threshold_index", {{"index", "ndvi"}, {"low", 0.3}, {"method", "none"}})};
  workflow.result_operations = {
      result_op("area"),
      result_op("region_count"),
      result_op("index_statistics", {{"indices", {"ndvi", "gndvi"}}}),
  };
  return workflow;
}

}  // namespace orvexa::model::samples
