#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "orvexa/model/codecs/decoder.h"

// Source: Microsoft, Bitmap Storage (BITMAPFILEHEADER, BITMAPCOREHEADER, BITMAPINFOHEADER, BITMAPV4HEADER,
// BITMAPV5HEADER) and Bitmap Compression.

namespace orvexa::model::codecs {

namespace {

constexpr std::size_t file_header_bytes = 14;
constexpr std::size_t core_header_bytes = 12;
constexpr std::size_t info_header_bytes = 40;
constexpr std::size_t os2_header_bytes = 64;

enum class Compression : std::uint32_t { none = 0, rle8 = 1, rle4 = 2, bit_fields = 3, alpha_bit_fields = 6 };

struct Header {
  std::int64_t width = 0;
  std::int64_t height = 0;
  bool is_top_down = false;
  int bits = 0;
  Compression compression = Compression::none;
  std::size_t pixels_at = 0;
  std::array<std::uint32_t, 3> masks{};  // R G B of 16-bit and 32-bit pixels
  std::vector<Colour> palette;

  [[nodiscard]] bool is_run_length() const {
    return compression == Compression::rle8 || compression == Compression::rle4;
  }
};

class Reader {
 public:
  explicit Reader(const Input& input) : _input(input) { read_header(); }

  cv::Mat pixels() const {
    if (_header.bits <= 8) return from_palette();
    if (_header.bits == 24) return from_bytes(3, {2, 1, 0});
    if (_header.bits == 32) {
      // Whole bytes, the usual case.
      std::array<int, 3> offsets{};
      bool is_bytewise = true;
      for (std::size_t c = 0; c < 3; ++c) {
        offsets[c] = std::countr_zero(_header.masks[c]) / 8;
        is_bytewise = is_bytewise && offsets[c] < 4 && _header.masks[c] == 0xffu << (8 * offsets[c]);
      }
      if (is_bytewise) return from_bytes(4, offsets);
    }
    const bool is_deep = std::any_of(_header.masks.begin(), _header.masks.end(),
                                     [](std::uint32_t mask) { return std::popcount(mask) > 8; });
    return is_deep ? from_bit_fields<std::uint16_t>() : from_bit_fields<std::uint8_t>();
  }

 private:
  [[noreturn]] void damaged(const std::string& cause) const { _input.refuse("this BMP file is damaged", cause); }
  [[noreturn]] void cut_off() const { _input.refuse("this BMP file is cut off."); }

  std::uint32_t number(std::size_t at, std::size_t size) const {
    if (at > _input.bytes.size() || size > _input.bytes.size() - at) cut_off();
    std::uint32_t value = 0;
    for (std::size_t i = size; i-- > 0;) value = value << 8 | std::to_integer<std::uint32_t>(_input.bytes[at + i]);
    return value;
  }
  std::uint32_t u16(std::size_t at) const { return number(at, 2); }
  std::uint32_t u32(std::size_t at) const { return number(at, 4); }

  void read_header() {
    _header.pixels_at = u32(10);
    const std::size_t header_bytes = u32(file_header_bytes);
    const bool is_core = header_bytes == core_header_bytes;
    if (!is_core && (header_bytes < info_header_bytes || header_bytes > 256)) {
      damaged(fmt::format("its header of {} bytes is of no known kind", header_bytes));
    }
    std::size_t palette_at = file_header_bytes + header_bytes;
    std::uint32_t entries = 0;
    if (is_core) {
      _header.width = u16(18);
      _header.height = u16(20);
      _header.bits = static_cast<int>(u16(24));
    } else {
      _header.width = static_cast<std::int32_t>(u32(18));
      const std::int64_t height = static_cast<std::int32_t>(u32(22));
      _header.is_top_down = height < 0;
      _header.height = _header.is_top_down ? -height : height;
      _header.bits = static_cast<int>(u16(28));
      read_compression(u32(30), header_bytes);
      entries = u32(46);
      if (has_bit_fields()) {
        for (std::size_t c = 0; c < 3; ++c) _header.masks[c] = u32(54 + 4 * c);
        if (header_bytes == info_header_bytes) {
          palette_at += _header.compression == Compression::alpha_bit_fields ? 16 : 12;
        }
      }
    }
    if (!has_bit_fields() && _header.bits == 16) _header.masks = {0x7c00, 0x03e0, 0x001f};
    if (!has_bit_fields() && _header.bits == 32) _header.masks = {0xff0000, 0x00ff00, 0x0000ff};
    check_bits();
    check_size();
    if (_header.bits <= 8) read_palette(palette_at, entries, is_core ? 3 : 4);
  }

  [[nodiscard]] bool has_bit_fields() const {
    return _header.compression == Compression::bit_fields || _header.compression == Compression::alpha_bit_fields;
  }

  void read_compression(std::uint32_t code, std::size_t header_bytes) {
    const bool is_os2 = header_bytes == os2_header_bytes;
    const bool is_known = code <= 2 || (!is_os2 && (code == 3 || code == 6));
    if (!is_known) {
      _input.refuse(fmt::format("this BMP file is compressed in a way (number {}) that cannot be read.", code));
    }
    _header.compression = static_cast<Compression>(code);
  }

  void check_bits() const {
    constexpr std::array known{1, 2, 4, 8, 16, 24, 32};
    bool is_possible = std::find(known.begin(), known.end(), _header.bits) != known.end();
    if (_header.compression == Compression::rle8) is_possible = _header.bits == 8;
    if (_header.compression == Compression::rle4) is_possible = _header.bits == 4;
    if (has_bit_fields()) is_possible = _header.bits == 16 || _header.bits == 32;
    if (!is_possible) damaged(fmt::format("{} bits a pixel do not go with its compression", _header.bits));
    if (_header.bits != 16 && _header.bits != 32) return;
    std::uint32_t all = 0;
    for (const std::uint32_t mask : _header.masks) {
      const std::uint32_t field = mask == 0 ? 0 : mask >> std::countr_zero(mask);
      if ((field & (field + 1)) != 0) damaged("the bits of a colour do not lie together");
      if ((all & mask) != 0) damaged("two colours share bits");
      all |= mask;
    }
    if (_header.bits == 16 && all > 0xffff) damaged("a colour lies outside of its pixel");
  }

  void check_size() const {
    _input.check_size(_header.width, _header.height);
    const auto file_bytes = static_cast<std::int64_t>(_input.bytes.size());
    if (_header.is_run_length()) {
      constexpr std::int64_t most_pixels_a_byte = 255 * 255 / 4;  // four bytes can skip 255 columns and 255 rows
      _input.check_size(_header.width, _header.height, most_pixels_a_byte * file_bytes);
      return;
    }
    _input.check_size(_header.width, _header.height, 8 * file_bytes / _header.bits);
    const std::int64_t last_row = (_header.width * _header.bits + 7) / 8;
    const std::int64_t end =
        static_cast<std::int64_t>(_header.pixels_at) + row_bytes() * (_header.height - 1) + last_row;
    if (end > file_bytes) cut_off();
  }

  /// Rows are padded to whole groups of four bytes.
  [[nodiscard]] std::int64_t row_bytes() const { return (_header.width * _header.bits + 31) / 32 * 4; }

  void read_palette(std::size_t at, std::uint32_t entries, std::size_t entry_bytes) {
    const std::uint32_t most = 1u << _header.bits;
    std::size_t count = entries == 0 ? most : std::min(entries, most);
    if (_header.pixels_at > at) count = std::min(count, (_header.pixels_at - at) / entry_bytes);
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint32_t bgr = number(at + i * entry_bytes, 3);
      _header.palette.push_back({static_cast<std::uint8_t>(bgr >> 16), static_cast<std::uint8_t>(bgr >> 8 & 0xff),
                                 static_cast<std::uint8_t>(bgr & 0xff)});
    }
  }

  [[nodiscard]] int width() const { return static_cast<int>(_header.width); }
  [[nodiscard]] int height() const { return static_cast<int>(_header.height); }
  /// Where in the picture the file's row `row` belongs.
  [[nodiscard]] int picture_row(int row) const { return _header.is_top_down ? row : height() - 1 - row; }

  [[nodiscard]] const std::uint8_t* stored_row(int row) const {
    return reinterpret_cast<const std::uint8_t*>(_input.bytes.data()) + _header.pixels_at +
           static_cast<std::size_t>(row) * static_cast<std::size_t>(row_bytes());
  }

  [[nodiscard]] cv::Mat from_bytes(int pixel_bytes, std::array<int, 3> offsets) const {
    cv::Mat pixels(height(), width(), CV_8UC3);
    for (int row = 0; row < height(); ++row) {
      const std::uint8_t* from = stored_row(row);
      std::uint8_t* to = pixels.ptr<std::uint8_t>(picture_row(row));
      for (int x = 0; x < width(); ++x, from += pixel_bytes, to += 3) {
        to[0] = from[offsets[0]];
        to[1] = from[offsets[1]];
        to[2] = from[offsets[2]];
      }
    }
    return pixels;
  }

  template <typename T>
  [[nodiscard]] cv::Mat from_bit_fields() const {
    cv::Mat pixels(height(), width(), CV_MAKETYPE(cv::DataType<T>::depth, 3));
    const int pixel_bytes = _header.bits / 8;
    for (int row = 0; row < height(); ++row) {
      const std::uint8_t* from = stored_row(row);
      T* to = pixels.ptr<T>(picture_row(row));
      for (int x = 0; x < width(); ++x, from += pixel_bytes) {
        std::uint32_t pixel = from[0] | static_cast<std::uint32_t>(from[1]) << 8;
        if (pixel_bytes == 4)
          pixel |= static_cast<std::uint32_t>(from[2]) << 16 | static_cast<std::uint32_t>(from[3]) << 24;
        for (const std::uint32_t mask : _header.masks) *to++ = widened<T>(pixel, mask);
      }
    }
    return pixels;
  }

  /// A field of a pixel over the full range of T.
  template <typename T>
  static T widened(std::uint32_t pixel, std::uint32_t mask) {
    if (mask == 0) return 0;
    const int shift = std::countr_zero(mask);
    const std::uint64_t most = mask >> shift;
    const std::uint64_t value = (pixel & mask) >> shift;
    return static_cast<T>((value * std::numeric_limits<T>::max() + most / 2) / most);
  }

  [[nodiscard]] cv::Mat from_palette() const {
    return expanded_palette(_input, "BMP", _header.is_run_length() ? run_length_indices() : packed_indices(),
                            _header.palette);
  }

  [[nodiscard]] cv::Mat packed_indices() const {
    cv::Mat indices(height(), width(), CV_8UC1);
    const int per_byte = 8 / _header.bits;
    const unsigned mask = (1u << _header.bits) - 1;
    for (int row = 0; row < height(); ++row) {
      const std::uint8_t* from = stored_row(row);
      std::uint8_t* to = indices.ptr<std::uint8_t>(picture_row(row));
      for (int x = 0; x < width(); ++x) {
        const int shift = 8 - _header.bits * (x % per_byte + 1);
        to[x] = static_cast<std::uint8_t>(static_cast<unsigned>(from[x / per_byte]) >> shift & mask);
      }
    }
    return indices;
  }

  /// Pixels that the runs skip have index 0.
  [[nodiscard]] cv::Mat run_length_indices() const {
    cv::Mat indices(height(), width(), CV_8UC1, cv::Scalar(0));
    const bool is_nibbles = _header.compression == Compression::rle4;
    std::size_t at = _header.pixels_at;
    const auto next = [&] { return static_cast<std::uint8_t>(number(at++, 1)); };
    int x = 0;
    int row = 0;
    const auto put = [&](unsigned index) {
      if (row >= height()) damaged("its runs go on beyond the last row");
      // Writers of four-bit runs fill up the last byte of a row of odd length.
      if (x < width()) {
        indices.ptr<std::uint8_t>(picture_row(row))[x] = static_cast<std::uint8_t>(index);
      } else if (!is_nibbles || x > width()) {
        damaged("a run goes on beyond the end of its row");
      }
      ++x;
    };
    const auto nibble = [](std::uint8_t byte, int i) { return i % 2 == 0 ? byte >> 4u : byte & 15u; };
    while (true) {
      if (row == height() - 1 && x >= width() && at >= _input.bytes.size()) return indices;  // the end mark is missing
      const int count = next();
      const std::uint8_t code = next();
      if (count > 0) {
        for (int i = 0; i < count; ++i) put(is_nibbles ? nibble(code, i) : code);
        continue;
      }
      if (code == 1) return indices;
      if (code == 0) {
        x = 0;
        ++row;
        if (row == height() && at >= _input.bytes.size()) return indices;
      } else if (code == 2) {
        x += next();
        row += next();
        if (x > width() || row > height()) damaged("a run lies outside of the picture");
      } else {
        const std::size_t begin = at;
        std::uint8_t byte = 0;
        for (int i = 0; i < code; ++i) {
          if (!is_nibbles || i % 2 == 0) byte = next();
          put(is_nibbles ? nibble(byte, i) : byte);
        }
        if ((at - begin) % 2 != 0) ++at;
      }
    }
  }

  const Input& _input;
  Header _header;
};

}  // namespace

Decoded decode_bmp(const Input& input) {
  return {.pixels = Reader(input).pixels()};
}

}  // namespace orvexa::model::codecs
