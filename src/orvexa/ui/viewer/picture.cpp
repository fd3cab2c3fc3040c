#include "orvexa/ui/viewer/picture.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

#include "orvexa/model/pictures/heat_map.h"

namespace orvexa::ui::viewer {

namespace {

constexpr double lower_share = 0.005;
constexpr double upper_share = 0.995;

std::uint32_t opaque(std::uint32_t red, std::uint32_t green, std::uint32_t blue) {
  return 0xff000000u | red << 16 | green << 8 | blue;
}

/// A quantile of values whose order `value_of_rank` knows.
template <typename ValueOfRank>
double quantile(double share, std::int64_t n, const ValueOfRank& value_of_rank) {
  const double position = share * static_cast<double>(n - 1);
  const auto rank = static_cast<std::int64_t>(position);
  const double low = value_of_rank(rank);
  const double high = value_of_rank(std::min(rank + 1, n - 1));
  return low + (position - static_cast<double>(rank)) * (high - low);
}

template <typename T>
DisplayedRange range_of_counts(const model::Image& image, std::size_t bins) {
  std::vector<std::int64_t> counts(bins, 0);
  std::int64_t n = 0;
  for (int y = 0; y < image.height(); ++y) {
    const std::span<const T> row = image.row<T>(y);
    for (const T value : row) ++counts[value];
    n += static_cast<std::int64_t>(row.size());
  }
  const auto value_of_rank = [&counts](std::int64_t rank) {
    std::size_t bin = 0;
    for (std::int64_t before = counts[0]; before <= rank; before += counts[bin]) ++bin;
    return static_cast<double>(bin);
  };
  return {quantile(lower_share, n, value_of_rank), quantile(upper_share, n, value_of_rank)};
}

DisplayedRange range_of_floats(const model::Image& image) {
  std::vector<float> values;
  values.reserve(static_cast<std::size_t>(image.shape().pixels()) * static_cast<std::size_t>(image.channels()));
  for (int y = 0; y < image.height(); ++y) {
    for (const float value : image.row<float>(y)) {
      if (std::isfinite(value)) values.push_back(value);
    }
  }
  if (values.empty()) return {};
  const auto value_of_rank = [&values](std::int64_t rank) {
    const auto place = values.begin() + rank;
    std::nth_element(values.begin(), place, values.end());
    return static_cast<double>(*place);
  };
  const auto n = static_cast<std::int64_t>(values.size());
  return {quantile(lower_share, n, value_of_rank), quantile(upper_share, n, value_of_rank)};
}

Palette make_palette(ColorMap color_map) {
  Palette colors{};
  for (std::uint32_t i = 0; i < colors.size(); ++i) {
    switch (color_map) {
      case ColorMap::grey:
        colors[i] = opaque(i, i, i);
        break;
      case ColorMap::inverted_grey:
        colors[i] = opaque(255 - i, 255 - i, 255 - i);
        break;
      case ColorMap::heat: {
        const auto& [red, green, blue] = model::heat_colors()[i];
        colors[i] = opaque(red, green, blue);
        break;
      }
    }
  }
  return colors;
}

}  // namespace

DisplaySettings first_settings(const model::Image& image) {
  return {.range = image.type() == model::PixelType::u8 ? RangeMode::full : RangeMode::automatic};
}

const Palette& palette(ColorMap color_map) {
  static const std::array palettes{make_palette(ColorMap::grey), make_palette(ColorMap::inverted_grey),
                                   make_palette(ColorMap::heat)};
  return palettes[static_cast<std::size_t>(color_map)];
}

DisplayedRange automatic_range(const model::Image& image) {
  switch (image.type()) {
    case model::PixelType::u8:
      return range_of_counts<std::uint8_t>(image, 256);
    case model::PixelType::u16:
      return range_of_counts<std::uint16_t>(image, 65536);
    case model::PixelType::f32:
      break;
  }
  return range_of_floats(image);
}

}  // namespace orvexa::ui::viewer
