#include "orvexa/ui/viewer/tile_maker.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace orvexa::ui::viewer {

namespace {

/// `value` on the way from low (0) to high (255), rounded half up. Not-a-number is 0.
std::uint8_t light(double value, const DisplayedRange& range) {
  if (!(value > range.low)) return 0;
  if (value >= range.high) return 255;
  return static_cast<std::uint8_t>((value - range.low) * 255.0 / (range.high - range.low) + 0.5);
}

/// Two rows of a level as one row of the next, each pixel the rounded mean of four.
template <int channels>
void write_half(const std::uint8_t* upper, const std::uint8_t* lower, int width, std::uint8_t* to) {
  for (int x = 0; x < width; x += 2) {
    const int next = x + 1 < width ? channels : 0;
    for (int c = 0; c < channels; ++c) {
      const int at = x * channels + c;
      *to++ = static_cast<std::uint8_t>((upper[at] + upper[at + next] + lower[at] + lower[at + next] + 2) / 4);
    }
  }
}

void write_half(int channels, const std::uint8_t* upper, const std::uint8_t* lower, int width, std::uint8_t* to) {
  if (channels == 1) {
    write_half<1>(upper, lower, width, to);
  } else {
    write_half<3>(upper, lower, width, to);
  }
}

struct Area {
  int x0;
  int y0;
  int x1;
  int y1;
};

/// What a tile covers of its level.
Area area_of(const TileKey& key, model::Shape level) {
  const int x0 = key.column * tile_side;
  const int y0 = key.row * tile_side;
  return {x0, y0, std::min(x0 + tile_side, level.width), std::min(y0 + tile_side, level.height)};
}

std::uint32_t* line_of(QImage& tile, int y) {
  return reinterpret_cast<std::uint32_t*>(tile.scanLine(y));
}

/// `share` of 65536 parts of the tint, the rest of the colour; rounded.
std::uint32_t blended(std::uint32_t color, std::uint32_t tint, std::uint32_t share) {
  std::uint32_t sum = 0xff000000u;
  for (const unsigned shift : {0u, 8u, 16u}) {
    const std::uint32_t of_color = (color >> shift & 0xffu) * (65536u - share);
    const std::uint32_t of_tint = (tint >> shift & 0xffu) * share;
    sum |= (of_color + of_tint + 32768u) >> 16 << shift;
  }
  return sum;
}

}  // namespace

model::Shape level_shape(model::Shape image, int level) {
  const int round_up = (1 << level) - 1;
  return {(image.height + round_up) >> level, (image.width + round_up) >> level};
}

int top_level(model::Shape image) {
  int level = 0;
  while (std::max(level_shape(image, level).height, level_shape(image, level).width) > tile_side) ++level;
  return level;
}

void TileMaker::take_up(const std::shared_ptr<const Picture>& picture, const model::RunContext& context) {
  if (_picture == picture) return;
  const bool is_same_image = _picture && _picture->entry == picture->entry;
  _picture.reset();  // what a cancellation leaves half made is not taken for whole
  if (!is_same_image) {
    _pixels = picture->entry->pixels();
    _automatic_range.reset();
  }
  DisplayedRange range{0, picture->white_level};
  const model::Image& base = picture->entry->base();
  if (picture->settings.range == RangeMode::manual) {
    range = {picture->settings.low, picture->settings.high};
  } else if (base.type() != _pixels->type()) {
    range = {0, _pixels->type_white_level()};  // a recipe that makes a picture for the eye
  } else if (picture->settings.range == RangeMode::automatic) {
    // The pixels that a mask took away count too, so that an image looks alike before and after a step.
    if (!_automatic_range) _automatic_range = automatic_range(base);
    range = *_automatic_range;
  }
  context.check();
  if (!is_same_image || range != _range) {
    _range = range;
    make_table();
    make_levels(context);
  }
  _picture = picture;
}

void TileMaker::make_table() {
  _table.clear();
  if (_pixels->type() == model::PixelType::f32) return;
  _table.resize(_pixels->type() == model::PixelType::u8 ? 256 : 65536);
  for (std::size_t count = 0; count < _table.size(); ++count) _table[count] = light(static_cast<double>(count), _range);
}

void TileMaker::write_span(int y, int x0, int x1, std::uint8_t* to) const {
  const auto channels = static_cast<std::size_t>(_pixels->channels());
  const std::size_t first = static_cast<std::size_t>(x0) * channels;
  const std::size_t count = static_cast<std::size_t>(x1 - x0) * channels;
  const std::uint8_t* table = _table.data();
  switch (_pixels->type()) {
    case model::PixelType::u8:
      for (const std::uint8_t value : _pixels->row<std::uint8_t>(y).subspan(first, count)) *to++ = table[value];
      break;
    case model::PixelType::u16:
      for (const std::uint16_t value : _pixels->row<std::uint16_t>(y).subspan(first, count)) *to++ = table[value];
      break;
    case model::PixelType::f32:
      for (const float value : _pixels->row<float>(y).subspan(first, count)) *to++ = light(double{value}, _range);
      break;
  }
}

void TileMaker::make_levels(const model::RunContext& context) {
  const model::Shape image = _pixels->shape();
  const int channels = _pixels->channels();
  _levels.clear();
  for (int number = 1; number <= top_level(image); ++number) {
    Level level{.shape = level_shape(image, number), .pixels = {}};
    const std::size_t bytes_a_row = static_cast<std::size_t>(level.shape.width) * static_cast<std::size_t>(channels);
    level.pixels.resize(bytes_a_row * static_cast<std::size_t>(level.shape.height));
    const model::Shape finer = level_shape(image, number - 1);
    const auto finer_bytes = static_cast<std::size_t>(finer.width) * static_cast<std::size_t>(channels);
    model::for_each_stripe(level.shape.height, level.shape.width, context, [&](int y0, int y1) {
      std::vector<std::uint8_t> rows(number == 1 ? 2 * finer_bytes : 0);
      for (int y = y0; y < y1; ++y) {
        const int upper_row = 2 * y;
        const int lower_row = std::min(upper_row + 1, finer.height - 1);
        const std::uint8_t* upper = rows.data();
        const std::uint8_t* lower = rows.data() + finer_bytes;
        if (number == 1) {
          write_span(upper_row, 0, finer.width, rows.data());
          write_span(lower_row, 0, finer.width, rows.data() + finer_bytes);
        } else {
          const std::uint8_t* pixels = _levels.back().pixels.data();
          upper = pixels + static_cast<std::size_t>(upper_row) * finer_bytes;
          lower = pixels + static_cast<std::size_t>(lower_row) * finer_bytes;
        }
        write_half(channels, upper, lower, finer.width,
                   level.pixels.data() + static_cast<std::size_t>(y) * bytes_a_row);
      }
    });
    _levels.push_back(std::move(level));
  }
}

QImage TileMaker::tile(const TileKey& key, const MaskOverlay* overlay) const {
  const auto [x0, y0, x1, y1] = area_of(key, level_shape(_pixels->shape(), key.level));
  const bool is_color = _pixels->is_color();
  const auto channels = static_cast<std::size_t>(_pixels->channels());
  const Palette& colors = palette(_picture->settings.color_map);
  QImage tile(x1 - x0, y1 - y0, QImage::Format_RGB32);
  std::vector<std::uint8_t> span(static_cast<std::size_t>(tile_side) * channels);
  for (int y = y0; y < y1; ++y) {
    const std::uint8_t* from = span.data();
    if (key.level == 0) {
      write_span(y, x0, x1, span.data());
    } else {
      const Level& level = _levels[static_cast<std::size_t>(key.level) - 1];
      from = level.pixels.data() + (static_cast<std::size_t>(y) * static_cast<std::size_t>(level.shape.width) +
                                    static_cast<std::size_t>(x0)) *
                                       channels;
    }
    std::uint32_t* to = line_of(tile, y - y0);
    for (int x = x0; x < x1; ++x, from += channels) {
      *to++ =
          is_color ? 0xff000000u | std::uint32_t{from[0]} << 16 | std::uint32_t{from[1]} << 8 | from[2] : colors[*from];
    }
  }
  if (key.layer == Layer::overlaid && overlay != nullptr) {
    if (overlay->mask && overlay->mask->shape() == _pixels->shape()) draw_mask(tile, key, *overlay);
    if (overlay->drawing && overlay->drawing->shape() == _pixels->shape() && overlay->drawing->is_color() &&
        overlay->drawing->type() == model::PixelType::u8) {
      copy_drawing(tile, key, *overlay->drawing);
    }
  }
  return tile;
}

void TileMaker::draw_mask(QImage& tile, const TileKey& key, const MaskOverlay& overlay) const {
  const model::Mask& mask = *overlay.mask;
  const auto [height, width] = mask.shape();
  const auto [x0, y0, x1, y1] = area_of(key, level_shape(mask.shape(), key.level));
  const std::uint32_t tint = overlay.color.rgb();
  const int first = x0 << key.level;
  const int last = std::min(x1 << key.level, width);
  std::vector<std::uint32_t> counts(static_cast<std::size_t>(x1 - x0));
  for (int y = y0; y < y1; ++y) {
    const int upper = y << key.level;
    const int lower = std::min((y + 1) << key.level, height);
    std::fill(counts.begin(), counts.end(), 0u);
    for (int from = upper; from < lower; ++from) {
      const std::uint8_t* row = mask.row(from).data();
      if (key.level == 0) {
        for (int x = first; x < last; ++x) counts[static_cast<std::size_t>(x - first)] = row[x] & 1u;
        continue;
      }
      for (int x = first, column = 0; x < last; ++column) {
        const int end = std::min((x0 + column + 1) << key.level, last);
        std::uint32_t count = 0;
        for (; x < end; ++x) count += row[x] & 1u;
        counts[static_cast<std::size_t>(column)] += count;
      }
    }
    std::uint32_t* to = line_of(tile, y - y0);
    for (int x = x0; x < x1; ++x, ++to) {
      const std::uint32_t count = counts[static_cast<std::size_t>(x - x0)];
      if (count == 0) continue;
      const int columns = std::min((x + 1) << key.level, width) - (x << key.level);
      const double share = overlay.opacity * count / (double(columns) * (lower - upper));
      *to = blended(*to, tint, static_cast<std::uint32_t>(std::lround(share * 65536)));
    }
  }
}

void TileMaker::copy_drawing(QImage& tile, const TileKey& key, const model::Image& drawing) const {
  const auto [x0, y0, x1, y1] = area_of(key, level_shape(drawing.shape(), key.level));
  const int first = x0 << key.level;
  const int last = std::min(x1 << key.level, drawing.width());
  for (int y = y0; y < y1; ++y) {
    std::uint32_t* to = line_of(tile, y - y0);
    for (int from = y << key.level; from < std::min((y + 1) << key.level, drawing.height()); ++from) {
      const std::uint8_t* rgb = drawing.row<std::uint8_t>(from).data() + 3 * std::ptrdiff_t{first};
      for (int x = first; x < last; ++x, rgb += 3) {
        if ((rgb[0] | rgb[1] | rgb[2]) == 0) continue;
        to[(x >> key.level) - x0] =
            0xff000000u | std::uint32_t{rgb[0]} << 16 | std::uint32_t{rgb[1]} << 8 | std::uint32_t{rgb[2]};
      }
    }
  }
}

}  // namespace orvexa::ui::viewer
