#include "orvexa/model/reference.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace orvexa::model {

namespace {

template <typename T>
void widen_row(const Image& image, int y, std::size_t channels, std::span<double> out) {
  const std::span<const T> values = image.row<T>(y);
  if (values.size() == out.size()) {
    std::copy(values.begin(), values.end(), out.begin());
    return;
  }
  for (std::size_t i = 0; i < out.size(); ++i) out[i] = values[i / channels];  // one channel for all
}

/// A row of counts as doubles; a picture of one channel stands for each of `channels`.
void read_counts(const Image& image, int y, std::size_t channels, std::span<double> out) {
  switch (image.type()) {
    case PixelType::u8:
      return widen_row<std::uint8_t>(image, y, channels, out);
    case PixelType::u16:
      return widen_row<std::uint16_t>(image, y, channels, out);
    case PixelType::f32:
      return widen_row<float>(image, y, channels, out);
  }
}

void read_level(const ReferenceLevel& level, int y, std::size_t channels, std::span<double> out) {
  if (level.picture) return read_counts(*level.picture, y, channels, out);
  const std::size_t given = level.constants.size();
  for (std::size_t i = 0; i < out.size(); ++i) out[i] = level.constants[given == 1 ? 0 : i % channels];
}

}  // namespace

void fill_reflectance_row(const Image& counts, const Reference& reference, int y, std::span<float> row) {
  const auto channels = static_cast<std::size_t>(counts.channels());
  std::vector<double> buffer(3 * row.size());
  const std::span<double> value(buffer.data(), row.size());
  const std::span<double> white(buffer.data() + row.size(), row.size());
  const std::span<double> dark(buffer.data() + 2 * row.size(), row.size());
  read_counts(counts, y, channels, value);
  read_level(reference.white, y, channels, white);
  read_level(reference.dark, y, channels, dark);
  for (std::size_t i = 0; i < row.size(); ++i) {
    const double range = white[i] - dark[i];
    row[i] = range > 0 && std::isfinite(range)
                 ? static_cast<float>(reference.reflectance * (value[i] - dark[i]) / range)
                 : std::numeric_limits<float>::quiet_NaN();
  }
}

Image reflectance_image(const Image& counts, std::shared_ptr<const Reference> reference) {
  return Image::deferred(counts.shape(), counts.channels(),
                         [counts, reference = std::move(reference)](int y, std::span<float> row) {
                           fill_reflectance_row(counts, *reference, y, row);
                         });
}

}  // namespace orvexa::model
