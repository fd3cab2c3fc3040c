#include "orvexa/model/measures/color_rows.h"

#include <algorithm>
#include <utility>

namespace orvexa::model {

namespace {

std::vector<double> light_of_counts(const Band& band) {
  if (band.image.type() == PixelType::f32) return {};
  std::vector<double> light(band.image.type() == PixelType::u8 ? 256 : 65536);
  for (std::size_t count = 0; count < light.size(); ++count) {
    light[count] = linear_light(std::clamp(static_cast<double>(count) / band.white.counts, 0.0, 1.0));
  }
  return light;
}

}  // namespace

ColorSource::ColorSource(std::vector<Band> rgb) : _rgb(std::move(rgb)) {
  for (std::size_t k = 0; k < _lights.size(); ++k) _lights[k] = light_of_counts(_rgb.at(k));
}

ColorRow::ColorRow(const ColorSource& colors) : _colors(colors) {
  for (std::vector<double>& row : _rows) row.resize(static_cast<std::size_t>(colors.shape().width));
}

void ColorRow::read(int y) {
  if (y == _y) return;
  for (std::size_t k = 0; k < _rows.size(); ++k) _colors._rgb[k].read_row(y, _rows[k]);
  _y = y;
}

double ColorRow::share(std::size_t k, std::size_t x) const {
  return std::clamp(_rows[k][x] / _colors._rgb[k].white.counts, 0.0, 1.0);
}

double ColorRow::light(std::size_t k, std::size_t x) const {
  const std::vector<double>& of_count = _colors._lights[k];
  return of_count.empty() ? linear_light(share(k, x)) : of_count[static_cast<std::size_t>(_rows[k][x])];
}

std::optional<Lab> mean_lab_around(const ColorSource& colors, const PixelPoint& centre, int radius) {
  const auto [height, width] = colors.shape();
  ColorRow row(colors);
  Lab sum;
  int n = 0;
  for (int y = std::max(0, centre.y - radius); y <= std::min(height - 1, centre.y + radius); ++y) {
    row.read(y);
    const int dy = y - centre.y;
    for (int x = std::max(0, centre.x - radius); x <= std::min(width - 1, centre.x + radius); ++x) {
      const int dx = x - centre.x;
      const auto column = static_cast<std::size_t>(x);
      if (dx * dx + dy * dy > radius * radius || !row.is_valid(column)) continue;
      const Lab lab = row.lab(column);
      sum = {sum.l + lab.l, sum.a + lab.a, sum.b + lab.b};
      ++n;
    }
  }
  if (n == 0) return {};
  return Lab{sum.l / n, sum.a / n, sum.b / n};
}

}  // namespace orvexa::model
