// Writes PNG files: rows are filtered, compressed and checked stripe by stripe on several threads. Where a stripe ends
// depends on the picture's size alone, so a picture is the same file whatever the number of threads.
#include <isa-l/crc.h>
#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "orvexa/model/codecs/deflate_piece.h"
#include "orvexa/model/codecs/image_file.h"

namespace orvexa::model {

namespace {

enum class ColourType : std::uint8_t { grey = 0, rgb = 2 };
enum class Filter : std::uint8_t { sub = 1, up = 2 };

struct Layout {
  Shape shape;
  std::uint8_t bits = 8;
  ColourType colour_type = ColourType::grey;
  std::size_t row_bytes = 0;
};

void append(common::Bytes& to, std::span<const std::byte> bytes) {
  to.insert(to.end(), bytes.begin(), bytes.end());
}

void append_number(common::Bytes& to, std::uint32_t number) {
  for (const int shift : {24, 16, 8, 0}) to.push_back(static_cast<std::byte>(number >> shift & 0xff));
}

void append_chunk(common::Bytes& to, std::string_view type, std::span<const std::byte> content) {
  append_number(to, static_cast<std::uint32_t>(content.size()));
  const std::size_t checked = to.size();
  append(to, common::as_byte_span(type));
  append(to, content);
  append_number(to,
                crc32_gzip_refl(0, reinterpret_cast<const std::uint8_t*>(to.data() + checked), to.size() - checked));
}

/// A stretch of the file: its rows as one chunk of pixels.
struct Stripe {
  common::Bytes chunk;
  uLong adler = 0;  ///< of its filtered rows
  std::size_t filtered_bytes = 0;
};

/// Writes the filtered bytes of a row, without the byte that names the filter.
using WriteRow = std::function<void(int y, std::uint8_t* filtered)>;

Stripe make_stripe(const Layout& layout, Filter filter, int y0, int y1, const WriteRow& write_row) {
  const std::size_t line = layout.row_bytes + 1;
  std::vector<std::uint8_t> filtered(static_cast<std::size_t>(y1 - y0) * line);
  for (int y = y0; y < y1; ++y) {
    std::uint8_t* out = filtered.data() + static_cast<std::size_t>(y - y0) * line;
    *out = static_cast<std::uint8_t>(filter);
    write_row(y, out + 1);
  }
  common::Bytes packed;
  if (y0 == 0) packed = {std::byte{0x78}, std::byte{0x01}};  // RFC 1950: deflate, a window of 32 KiB, quickest level
  append(packed, codecs::deflate_piece(filtered, y1 == layout.shape.height));
  Stripe stripe;
  stripe.adler = codecs::adler32(filtered);
  stripe.filtered_bytes = filtered.size();
  append_chunk(stripe.chunk, "IDAT", packed);
  return stripe;
}

common::Bytes png_of(const Layout& layout, Filter filter, const RunContext& context, const WriteRow& write_row) {
  const auto [height, width] = layout.shape;
  std::vector<Stripe> stripes(static_cast<std::size_t>(stripe_count(height, width)));
  const int step = stripe_height(width);
  for_each_stripe(height, width, context, [&](int y0, int y1) {
    stripes[static_cast<std::size_t>(y0 / step)] = make_stripe(layout, filter, y0, y1, write_row);
  });

  std::size_t pixel_bytes = 0;
  for (const Stripe& stripe : stripes) pixel_bytes += stripe.chunk.size();
  common::Bytes file;
  file.reserve(pixel_bytes + 128);
  constexpr std::string_view signature = "\x89PNG\r\n\x1a\n";
  append(file, common::as_byte_span(signature));
  common::Bytes header;
  append_number(header, static_cast<std::uint32_t>(width));
  append_number(header, static_cast<std::uint32_t>(height));
  // Bits, colours, deflate, filters a row, not interlaced.
  for (const unsigned byte : {unsigned{layout.bits}, static_cast<unsigned>(layout.colour_type), 0U, 0U, 0U}) {
    header.push_back(static_cast<std::byte>(byte));
  }
  append_chunk(file, "IHDR", header);
  uLong adler = 1;
  for (Stripe& stripe : stripes) {
    append(file, stripe.chunk);
    adler = adler32_combine(adler, stripe.adler, static_cast<z_off_t>(stripe.filtered_bytes));
    stripe.chunk = {};
  }
  common::Bytes sum;
  append_number(sum, static_cast<std::uint32_t>(adler));
  append_chunk(file, "IDAT", sum);
  append_chunk(file, "IEND", {});
  return file;
}

/// Differences to the pixel at the left, of `bytes` bytes a pixel.
void filter_sub(const std::uint8_t* row, std::size_t size, std::size_t bytes, std::uint8_t* filtered) {
  std::memcpy(filtered, row, bytes);
  for (std::size_t i = bytes; i < size; ++i) filtered[i] = static_cast<std::uint8_t>(row[i] - row[i - bytes]);
}

/// Eight pixels a byte, the leftmost highest; what is beyond the end is 0.
void pack_row(std::span<const std::uint8_t> pixels, std::uint8_t* packed) {
  for (std::size_t x = 0; x < pixels.size(); x += 8) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, pixels.data() + x, std::min<std::size_t>(8, pixels.size() - x));
    // The product gathers the lowest bits of the eight bytes in the highest byte, the first one highest.
    *packed++ = static_cast<std::uint8_t>(((eight & 0x0101010101010101u) * 0x8040201008040201u) >> 56);
  }
}

}  // namespace

common::Bytes encode_png(const Image& image, const RunContext& context) {
  if (image.type() == PixelType::f32) throw std::invalid_argument("A PNG cannot hold 32-bit float pixels.");
  const bool is_deep = image.type() == PixelType::u16;
  const cv::Mat& pixels = image.read_only();
  const std::size_t pixel_bytes = pixels.elemSize();
  const std::size_t row_bytes = pixel_bytes * static_cast<std::size_t>(image.width());
  const Layout layout{.shape = image.shape(),
                      .bits = static_cast<std::uint8_t>(is_deep ? 16 : 8),
                      .colour_type = image.is_color() ? ColourType::rgb : ColourType::grey,
                      .row_bytes = row_bytes};
  return png_of(layout, Filter::sub, context, [&](int y, std::uint8_t* filtered) {
    if (!is_deep) return filter_sub(pixels.ptr<std::uint8_t>(y), row_bytes, pixel_bytes, filtered);
    std::vector<std::uint8_t> high_byte_first(row_bytes);
    const auto* row = pixels.ptr<std::uint16_t>(y);
    for (std::size_t i = 0; i < row_bytes / 2; ++i) {
      high_byte_first[2 * i] = static_cast<std::uint8_t>(row[i] >> 8);
      high_byte_first[2 * i + 1] = static_cast<std::uint8_t>(row[i] & 0xff);
    }
    filter_sub(high_byte_first.data(), row_bytes, pixel_bytes, filtered);
  });
}

common::Bytes encode_rgb_png(Shape shape, const std::function<void(int y, std::uint8_t* rgb)>& write_row,
                             const RunContext& context) {
  constexpr std::size_t pixel_bytes = 3;
  const std::size_t row_bytes = pixel_bytes * static_cast<std::size_t>(shape.width);
  const Layout layout{.shape = shape, .colour_type = ColourType::rgb, .row_bytes = row_bytes};
  return png_of(layout, Filter::sub, context, [&](int y, std::uint8_t* filtered) {
    std::vector<std::uint8_t> row(row_bytes);
    write_row(y, row.data());
    filter_sub(row.data(), row_bytes, pixel_bytes, filtered);
  });
}

common::Bytes encode_mask_png(const Mask& mask, const RunContext& context) {
  const auto row_bytes = static_cast<std::size_t>((mask.shape().width + 7) / 8);
  const Layout layout{.shape = mask.shape(), .bits = 1, .row_bytes = row_bytes};
  std::vector<std::uint8_t> bits(static_cast<std::size_t>(mask.shape().height) * row_bytes);
  const auto row_of_bits = [&](int y) { return bits.data() + static_cast<std::size_t>(y) * row_bytes; };
  for_each_stripe(mask.shape().height, mask.shape().width, context, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) pack_row(mask.row(y), row_of_bits(y));
  });
  return png_of(layout, Filter::up, context, [&](int y, std::uint8_t* filtered) {
    const std::uint8_t* row = row_of_bits(y);
    if (y == 0) {
      std::copy(row, row + row_bytes, filtered);
      return;
    }
    const std::uint8_t* above = row_of_bits(y - 1);
    for (std::size_t i = 0; i < row_bytes; ++i) filtered[i] = static_cast<std::uint8_t>(row[i] - above[i]);
  });
}

}  // namespace orvexa::model
