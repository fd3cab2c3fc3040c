// Tiles of known reflectance under a lamp that lights the middle more than the corners, with pictures of a white panel
// and of darkness. Every count is dark + k * light with a whole k, and white is dark + 32 * light at a panel that
// reflects a half, so that the reflectance of a tile is exactly k / 64 wherever it lies.

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

constexpr Shape picture{.height = 300, .width = 400};
constexpr double mm_per_pixel = 0.5;

/// Reflectance in 64ths.
struct Surface {
  int red = 0;
  int nir = 0;
};
constexpr Surface table_top{6, 8};
constexpr std::array tiles{Surface{4, 24},  Surface{8, 32},  Surface{12, 40}, Surface{16, 48},
                           Surface{20, 30}, Surface{24, 24}, Surface{32, 32}, Surface{40, 40},
                           Surface{5, 45},  Surface{6, 26},  Surface{10, 50}, Surface{28, 56}};
constexpr int tiles_a_row = 4;
constexpr int tile_width = 70;
constexpr int tile_height = 70;

/// The tile at a pixel, counted from 1; 0 beside them.
int tile_at(int y, int x) {
  const int column = x / 100;
  const int row = y / 100;
  const bool is_inside = x % 100 >= 15 && x % 100 < 15 + tile_width && y % 100 >= 15 && y % 100 < 15 + tile_height;
  return is_inside ? row * tiles_a_row + column + 1 : 0;
}

/// Counts that a reflectance of one 64th adds: 52 in the middle, about a quarter of that in the corners, with the grain
/// of the sensor. 0 at a dead pixel.
int light_at(int y, int x) {
  if (random_of(x, y, 71) < 0.0005) return 0;
  const double dx = (x - 0.5 * picture.width) / (0.5 * picture.width);
  const double dy = (y - 0.5 * picture.height) / (0.5 * picture.height);
  return 52 - static_cast<int>(std::lround(18 * (dx * dx + dy * dy))) - static_cast<int>(3 * random_of(x, y, 72));
}

int dark_at(int y, int x) {
  return 60 + 2 * (x % 7) + static_cast<int>(8 * random_of(x, y, 73));
}

template <typename CountOf>
Image drawn(const CountOf& count_of) {
  cv::Mat pixels(picture.height, picture.width, CV_16UC1);
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) {
      pixels.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(dark_at(y, x) + count_of(y, x));
    }
  }
  return Image(std::move(pixels));
}

Surface surface_at(int y, int x) {
  const int tile = tile_at(y, x);
  return tile == 0 ? table_top : tiles[static_cast<std::size_t>(tile - 1)];
}

}  // namespace

Drawing draw_reflectance_tiles() {
  Drawing drawing;
  drawing.name = "reflectance_tiles";
  drawing.header = fmt::format(
      "; Twelve tiles of known reflectance under uneven light, drawn by orvexa sample. The white panel reflects a "
      "half.\n"
      "[Capture]\nName = {0}\nDate = 2024-06-03\nTime = 09:20:00\nCamera = drawn by the program\n"
      "MillimetresPerPixel = {1}\n\n[Measurement MSP]\nImage RED = {0}_RED.tif\nImage NIR = {0}_NIR.tif\n\n"
      "[Reference MSP]\nDark = {0}_dark.tif\nReflectance = 0.5\n\n"
      "[Reference MSP.RED]\nWhite = {0}_white.tif\n\n[Reference MSP.NIR]\nWhite = {0}_white.tif\n",
      drawing.name, mm_per_pixel);
  const auto add = [&](const char* name, Image image) {
    drawing.images.emplace_back(drawing.name + "_" + name + ".tif", std::move(image));
  };
  add("RED", drawn([](int y, int x) { return surface_at(y, x).red * light_at(y, x); }));
  add("NIR", drawn([](int y, int x) { return surface_at(y, x).nir * light_at(y, x); }));
  add("white", drawn([](int y, int x) { return 32 * light_at(y, x); }));
  add("dark", drawn([](int, int) { return 0; }));

  drawing.labels = cv::Mat(picture.height, picture.width, CV_32SC1, cv::Scalar(0));
  std::vector<std::int64_t> areas(tiles.size(), 0);
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) {
      const int tile = light_at(y, x) > 0 ? tile_at(y, x) : 0;
      drawing.labels.at<std::int32_t>(y, x) = tile;
      if (tile > 0) ++areas[static_cast<std::size_t>(tile - 1)];
    }
  }

  std::int64_t area = 0;
  for (const std::int64_t pixels : areas) area += pixels;
  common::Value metrics = common::Value::object();
  add_area_facts(metrics, area, picture, picture.pixels(), mm_per_pixel);
  metrics["region_count"] = tiles.size();
  const auto add_facts = [&](const char* name, double (*value)(double red, double nir)) {
    std::vector<ClassValue> classes;
    for (std::size_t k = 0; k < tiles.size(); ++k) {
      classes.push_back({value(tiles[k].red / 64.0, tiles[k].nir / 64.0), areas[k]});
    }
    add_class_facts(metrics, name, classes);
  };
  add_facts("MSP.RED", [](double red, double) { return red; });
  add_facts("MSP.NIR", [](double, double nir) { return nir; });
  add_facts("ndvi", [](double red, double nir) { return (nir - red) / (nir + red); });
  add_facts("evi2", [](double red, double nir) { return 2.5 * (nir - red) / (nir + 2.4 * red + 1); });
  drawing.expected = {{"metrics", metrics}, {"areas", areas}};
  return drawing;
}

Workflow reflectance_tiles_workflow() {
  Workflow workflow;
  workflow.title = "Reflectance of tiles";
  workflow.mask_operations = {mask_op("threshold_range", {{"band", "MSP.NIR"}, {"low", 0.3}, {"high", 1.0}})};
  workflow.result_operations = {result_op("area"), result_op("region_count"),
                                result_op("band_statistics", {{"unit", "fraction"}}),
                                result_op("index_statistics", {{"indices", common::Value::array({"ndvi", "evi2"})}})};
  return workflow;
}

}  // namespace orvexa::model::samples
