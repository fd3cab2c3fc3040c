#include "orvexa/model/pictures/viewing.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <memory>
#include <mutex>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "orvexa/model/run_context.h"

namespace orvexa::model {

namespace {

void expect_same_size(const Image& image, const Mask& mask) {
  if (image.shape() == mask.shape()) return;
  throw std::invalid_argument("A mask of " + std::to_string(mask.shape().width) + " x " +
                              std::to_string(mask.shape().height) + " pixels does not fit an image of " +
                              std::to_string(image.width()) + " x " + std::to_string(image.height()) + ".");
}

template <typename T, int channels>
void mask_row(const T* from, const std::uint8_t* mask, int width, T* to) {
  for (int x = 0; x < width; ++x) {
    for (int c = 0; c < channels; ++c) to[channels * x + c] = mask[x] != 0 ? from[channels * x + c] : T{0};
  }
}

template <typename T>
void mask_rows(const Image& image, const Mask& mask, cv::Mat& pixels) {
  for_each_stripe(image.height(), image.width(), {}, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      const T* from = image.row<T>(y).data();
      if (image.is_color()) {
        mask_row<T, 3>(from, mask.row(y).data(), image.width(), pixels.ptr<T>(y));
      } else {
        mask_row<T, 1>(from, mask.row(y).data(), image.width(), pixels.ptr<T>(y));
      }
    }
  });
}

using Counts = std::vector<std::int64_t>;

/// Adds up one histogram a stripe. Whole numbers, so the order of the stripes does not matter.
template <typename T, typename Count>
Counts counted(const Image& image, std::size_t bins, const Count& count) {
  Counts total(bins, 0);
  std::mutex mutex;
  for_each_stripe(image.height(), image.width(), {}, [&](int y0, int y1) {
    Counts part(bins, 0);
    for (int y = y0; y < y1; ++y) {
      for (const T value : image.row<T>(y)) count(value, part);
    }
    const std::lock_guard lock(mutex);
    for (std::size_t i = 0; i < bins; ++i) total[i] += part[i];
  });
  return total;
}

/// The bin that holds the value of a rank (counted from 0), and how many values lie in the bins before it.
std::pair<std::size_t, std::int64_t> bin_of_rank(std::span<const std::int64_t> bins, std::int64_t rank) {
  std::int64_t before = 0;
  std::size_t bin = 0;
  while (before + bins[bin] <= rank) before += bins[bin++];
  return {bin, before};
}

/// A whole number that orders as the finite float does.
std::uint32_t ordered_key(float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  return (bits & 0x80000000u) != 0 ? ~bits : bits | 0x80000000u;
}

float value_of_key(std::uint32_t key) {
  return std::bit_cast<float>((key & 0x80000000u) != 0 ? key & 0x7fffffffu : ~key);
}

constexpr std::size_t half_range = 65536;

/// Values by rank among the finite values of a picture.
class Ranks {
 public:
  explicit Ranks(const Image& image) : _image(image) {
    if (image.type() == PixelType::u16) {
      _bins = counted<std::uint16_t>(image, half_range, [](std::uint16_t value, Counts& bins) { ++bins[value]; });
    } else {
      _bins = counted<float>(image, half_range, [](float value, Counts& bins) {
        if (std::isfinite(value)) ++bins[ordered_key(value) >> 16];
      });
    }
    for (const std::int64_t n : _bins) _n += n;
  }

  [[nodiscard]] std::int64_t n() const { return _n; }

  [[nodiscard]] double quantile(double share) const {
    const double position = share * static_cast<double>(_n - 1);
    const auto rank = static_cast<std::int64_t>(position);
    const double low = value(rank);
    const double high = value(std::min(rank + 1, _n - 1));
    return low + (position - static_cast<double>(rank)) * (high - low);
  }

 private:
  [[nodiscard]] double value(std::int64_t rank) const {
    const auto [bin, before] = bin_of_rank(_bins, rank);
    if (_image.type() == PixelType::u16) return static_cast<double>(bin);
    if (_fine_bin != bin) {
      // The first pass knows the upper half of the value's bits; one more pass over its bin finds the lower half.
      _fine = counted<float>(_image, half_range, [upper = static_cast<std::uint32_t>(bin)](float value, Counts& bins) {
        const std::uint32_t key = ordered_key(value);
        if (key >> 16 == upper && std::isfinite(value)) ++bins[key & 0xffffu];
      });
      _fine_bin = bin;
    }
    const std::size_t lower = bin_of_rank(_fine, rank - before).first;
    return static_cast<double>(value_of_key(static_cast<std::uint32_t>(bin << 16 | lower)));
  }

  const Image& _image;
  Counts _bins;
  std::int64_t _n = 0;
  mutable Counts _fine;
  mutable std::size_t _fine_bin = half_range;
};

/// Writes rows of a picture as 8-bit RGB.
class Viewer {
 public:
  explicit Viewer(const Image& image) : _image(image) {
    if (image.type() == PixelType::u8) return;
    const Ranks ranks(image);
    if (ranks.n() > 0) {
      _low = ranks.quantile(0.005);
      _high = ranks.quantile(0.995);
    }
    _scale = _high > _low ? 255.0 / (_high - _low) : 0.0;
    if (image.type() == PixelType::u16) {
      _table.resize(half_range);
      for (std::size_t count = 0; count < half_range; ++count) _table[count] = level(static_cast<double>(count));
    }
  }

  void write_row(int y, std::uint8_t* rgb) const {
    switch (_image.type()) {
      case PixelType::u8: {
        if (!_image.is_color()) return write<std::uint8_t>(y, rgb, [](std::uint8_t count) { return count; });
        const std::span<const std::uint8_t> row = _image.row<std::uint8_t>(y);
        std::memcpy(rgb, row.data(), row.size());
        return;
      }
      case PixelType::u16:
        return write<std::uint16_t>(y, rgb, [table = _table.data()](std::uint16_t count) { return table[count]; });
      case PixelType::f32:
        return write<float>(y, rgb, [this](float value) { return level(static_cast<double>(value)); });
    }
  }

 private:
  [[nodiscard]] std::uint8_t level(double value) const {
    if (!(value > _low)) return 0;
    if (value >= _high) return 255;
    const double place = (value - _low) * _scale + 0.5;  // cut below: the nearest level
    return static_cast<std::uint8_t>(place);
  }

  template <typename T, typename Level>
  void write(int y, std::uint8_t* rgb, const Level& level_of) const {
    const std::span<const T> row = _image.row<T>(y);
    if (_image.is_color()) {
      for (std::size_t i = 0; i < row.size(); ++i) rgb[i] = level_of(row[i]);
      return;
    }
    for (std::size_t x = 0; x < row.size(); ++x) {
      const std::uint8_t grey = level_of(row[x]);
      rgb[3 * x] = grey;
      rgb[3 * x + 1] = grey;
      rgb[3 * x + 2] = grey;
    }
  }

  Image _image;
  double _low = 0;
  double _high = 0;
  double _scale = 0;
  std::vector<std::uint8_t> _table;
};

using Levels = std::array<std::uint8_t, 256>;

/// 0.4 of the tint and 0.6 of each level of the picture; fifths have no ties to round.
constexpr Levels make_blended(unsigned tint) {
  Levels levels{};
  for (unsigned level = 0; level < levels.size(); ++level) {
    levels[level] = static_cast<std::uint8_t>((2 * tint + 3 * level + 2) / 5);
  }
  return levels;
}
constexpr std::array<Levels, 3> blended{make_blended(overlay_tint[0]), make_blended(overlay_tint[1]),
                                        make_blended(overlay_tint[2])};

/// One row of a mask with the row above and the one below (null beyond the picture).
void tint_row(const std::uint8_t* above, const std::uint8_t* row, const std::uint8_t* below, int width,
              std::uint8_t* rgb) {
  const std::uint8_t* const end = row + width;
  const auto next = [end](const std::uint8_t* from, int value) {
    const void* found = from == end ? nullptr : std::memchr(from, value, static_cast<std::size_t>(end - from));
    return found == nullptr ? end : static_cast<const std::uint8_t*>(found);
  };
  const bool is_rim = above == nullptr || below == nullptr;
  for (const std::uint8_t* at = next(row, 255); at != end; at = next(at, 255)) {
    const std::ptrdiff_t first = at - row;
    at = next(at, 0);
    const std::ptrdiff_t last = at - row - 1;
    for (std::ptrdiff_t x = first; x <= last; ++x) {
      const bool is_inside = !is_rim && x > first && x < last && (above[x] & below[x]) != 0;
      std::uint8_t* pixel = rgb + 3 * x;
      for (std::size_t c = 0; c < 3; ++c) pixel[c] = is_inside ? blended[c][pixel[c]] : overlay_tint[c];
    }
  }
}

}  // namespace

Image masked_image(const Image& image, const Mask& mask) {
  expect_same_size(image, mask);
  cv::Mat pixels(image.height(), image.width(), image.read_only().type());
  switch (image.type()) {
    case PixelType::u8:
      mask_rows<std::uint8_t>(image, mask, pixels);
      break;
    case PixelType::u16:
      mask_rows<std::uint16_t>(image, mask, pixels);
      break;
    case PixelType::f32:
      mask_rows<float>(image, mask, pixels);
      break;
  }
  return Image(std::move(pixels));
}

Image viewable_image(const Image& image) {
  if (image.type() == PixelType::u8 && image.is_color()) return image;
  const Viewer viewer(image);
  cv::Mat pixels(image.height(), image.width(), CV_8UC3);
  for_each_stripe(image.height(), image.width(), {}, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) viewer.write_row(y, pixels.ptr<std::uint8_t>(y));
  });
  return Image(std::move(pixels));
}

std::function<void(int, std::uint8_t*)> overlay_rows(const Image& image, const Mask& mask) {
  expect_same_size(image, mask);
  return [viewer = std::make_shared<const Viewer>(image), mask](int y, std::uint8_t* rgb) {
    const auto [height, width] = mask.shape();
    viewer->write_row(y, rgb);
    tint_row(y > 0 ? mask.row(y - 1).data() : nullptr, mask.row(y).data(),
             y + 1 < height ? mask.row(y + 1).data() : nullptr, width, rgb);
  };
}

Image overlay_image(const Image& image, const Mask& mask) {
  const auto write_row = overlay_rows(image, mask);
  cv::Mat pixels(image.height(), image.width(), CV_8UC3);
  for_each_stripe(image.height(), image.width(), {}, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) write_row(y, pixels.ptr<std::uint8_t>(y));
  });
  return Image(std::move(pixels));
}

Image mask_picture(const Mask& mask) {
  return Image(mask.read_only());
}

}  // namespace orvexa::model
