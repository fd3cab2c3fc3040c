#include "orvexa/model/samples/facts.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace orvexa::model::samples {

namespace {

std::int64_t level_of(const Image& image, int channel, int y, int x) {
  const auto at = [&](int c) -> std::int64_t {
    const auto index =
        static_cast<std::size_t>(x) * static_cast<std::size_t>(image.channels()) + static_cast<std::size_t>(c);
    return image.type() == PixelType::u8 ? image.row<std::uint8_t>(y)[index] : image.row<std::uint16_t>(y)[index];
  };
  constexpr int grey = 3;
  if (channel != grey) return at(channel);
  return (299 * at(0) + 587 * at(1) + 114 * at(2) + 500) / 1000;  // rounded half up
}

}  // namespace

void add_area_facts(common::Value& metrics, std::int64_t area, Shape image, std::int64_t roi_pixels,
                    std::optional<double> mm_per_pixel) {
  const auto pixels = static_cast<double>(area);
  metrics["area"] = area;
  if (mm_per_pixel) metrics["area_mm2"] = pixels * *mm_per_pixel * *mm_per_pixel;
  metrics["area_fraction"] = pixels / static_cast<double>(image.pixels());
  metrics["area_fraction_of_roi"] = pixels / static_cast<double>(roi_pixels);
}

void add_band_facts(common::Value& metrics, const std::string& name, const Image& image, int channel,
                    const Counts& counts) {
  std::int64_t n = 0;
  std::int64_t sum = 0;
  std::int64_t least = std::numeric_limits<std::int64_t>::max();
  std::int64_t greatest = 0;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      if (!counts(y, x)) continue;
      const std::int64_t level = level_of(image, channel, y, x);
      ++n;
      sum += level;
      least = std::min(least, level);
      greatest = std::max(greatest, level);
    }
  }
  if (n == 0) throw std::logic_error("No pixel of the drawing counts for " + name + ".");
  metrics[name + ".n"] = n;
  metrics[name + ".mean"] = static_cast<double>(sum) / static_cast<double>(n);
  metrics[name + ".min"] = least;
  metrics[name + ".max"] = greatest;
}

void add_class_facts(common::Value& metrics, const std::string& name, const std::vector<ClassValue>& classes) {
  std::int64_t n = 0;
  double sum = 0;
  double least = std::numeric_limits<double>::infinity();
  double greatest = -least;
  for (const ClassValue& one : classes) {
    if (one.pixels == 0) continue;
    n += one.pixels;
    sum += one.value * static_cast<double>(one.pixels);
    least = std::min(least, one.value);
    greatest = std::max(greatest, one.value);
  }
  metrics[name + ".n"] = n;
  metrics[name + ".n_invalid"] = 0;
  metrics[name + ".mean"] = sum / static_cast<double>(n);
  metrics[name + ".min"] = least;
  metrics[name + ".max"] = greatest;
}

std::int64_t count_pixels(Shape shape, const Counts& counts) {
  std::int64_t n = 0;
  for (int y = 0; y < shape.height; ++y) {
    for (int x = 0; x < shape.width; ++x) n += counts(y, x) ? 1 : 0;
  }
  return n;
}

common::Value picked_rect(const PixelRect& rect, Shape image) {
  const double width = image.width;
  const double height = image.height;
  return common::Value::array({(rect.x0 + rect.x1) / (2 * width), (rect.y0 + rect.y1) / (2 * height),
                               (rect.x1 - rect.x0) / width, (rect.y1 - rect.y0) / height});
}

}  // namespace orvexa::model::samples
