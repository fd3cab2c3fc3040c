#include <fmt/format.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "orvexa/common/parallel.h"
#include "orvexa/model/codecs/decoder.h"
#include "orvexa/model/codecs/deflate_piece.h"

namespace orvexa::model {

namespace {

/// A file in memory as libtiff wants it: read from `source` or written to `written`.
struct MemoryFile {
  std::span<const std::byte> source;
  common::Bytes written;
  std::size_t position = 0;
  bool is_out_of_memory = false;
  std::string error;
  std::string warning;

  [[nodiscard]] std::size_t size() const { return written.empty() ? source.size() : written.size(); }
};

MemoryFile& file_of(thandle_t handle) {
  return *static_cast<MemoryFile*>(handle);
}

tmsize_t read_some(thandle_t handle, void* to, tmsize_t wanted) {
  MemoryFile& file = file_of(handle);
  const std::span<const std::byte> content = file.written.empty() ? file.source : file.written;
  if (wanted < 0 || file.position >= content.size()) return 0;
  const std::size_t n = std::min(static_cast<std::size_t>(wanted), content.size() - file.position);
  std::memcpy(to, content.data() + file.position, n);
  file.position += n;
  return static_cast<tmsize_t>(n);
}

tmsize_t write_some(thandle_t handle, void* from, tmsize_t size) try {
  MemoryFile& file = file_of(handle);
  const std::size_t n = static_cast<std::size_t>(size);
  if (file.written.size() < file.position + n) file.written.resize(file.position + n);
  std::memcpy(file.written.data() + file.position, from, n);
  file.position += n;
  return size;
} catch (const std::exception&) {
  file_of(handle).is_out_of_memory = true;
  return -1;
}

toff_t seek(thandle_t handle, toff_t offset, int whence) {
  MemoryFile& file = file_of(handle);
  const std::size_t base = whence == SEEK_CUR ? file.position : whence == SEEK_END ? file.size() : 0;
  file.position = base + static_cast<std::size_t>(offset);
  return file.position;
}

int close_nothing(thandle_t) {
  return 0;
}

toff_t size_of(thandle_t handle) {
  return file_of(handle).size();
}

int map_source(thandle_t handle, void** base, toff_t* size) {
  const MemoryFile& file = file_of(handle);
  *base = const_cast<std::byte*>(file.source.data());
  *size = file.source.size();
  return 1;
}

void unmap_nothing(thandle_t, void*, toff_t) {}

using Tiff = std::unique_ptr<TIFF, decltype(&TIFFClose)>;

std::string formatted(const char* format, va_list arguments) {
  char text[200];
  std::vsnprintf(text, sizeof text, format, arguments);
  return text;
}

int keep_error(TIFF*, void* user_data, const char*, const char* format, va_list arguments) {
  auto& file = *static_cast<MemoryFile*>(user_data);
  if (file.error.empty()) file.error = formatted(format, arguments);
  return 1;
}

int keep_warning(TIFF*, void* user_data, const char* module, const char* format, va_list arguments) {
  auto& file = *static_cast<MemoryFile*>(user_data);
  // An old dialect of LZW, read without loss.
  if (module != nullptr && std::strcmp(module, "LZWPreDecode") == 0) return 1;
  // A tag whose numbers lie beyond the end of the file; libtiff would go on without the palette, for instance.
  const bool is_cut_off = std::strncmp(format, "IO error", 8) == 0;
  if (is_cut_off) return keep_error(nullptr, user_data, module, format, arguments);
  if (file.warning.empty()) file.warning = formatted(format, arguments);
  return 1;
}

Tiff opened(MemoryFile& file, const char* mode) {
  const std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> options(TIFFOpenOptionsAlloc(),
                                                                                 &TIFFOpenOptionsFree);
  if (!options) throw std::bad_alloc();
  constexpr tmsize_t largest_block = tmsize_t{1} << 30;  // of libtiff's own; pixels are kept by us
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), largest_block);
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), &keep_error, &file);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), &keep_warning, &file);
  return {TIFFClientOpenExt("", mode, &file, &read_some, &write_some, &seek, &close_nothing, &size_of, &map_source,
                            &unmap_nothing, options.get()),
          &TIFFClose};
}

}  // namespace

namespace codecs {

namespace {

/// What a page says about its pixels.
struct Page {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  int bits = 1;
  int samples = 1;
  int sample_format = SAMPLEFORMAT_UINT;
  int photometric = PHOTOMETRIC_MINISBLACK;
  int compression = COMPRESSION_NONE;
  int orientation = ORIENTATION_TOPLEFT;
  bool is_planar = false;
  bool is_tiled = false;
  int colours = 1;  ///< the first samples of a pixel, without alpha
  int alpha = -1;   ///< the sample that the colours were multiplied by, if they were

  [[nodiscard]] bool is_palette() const { return photometric == PHOTOMETRIC_PALETTE; }
  [[nodiscard]] bool is_unsigned() const { return sample_format == SAMPLEFORMAT_UINT; }
  /// The depth that keeps its samples.
  [[nodiscard]] int depth() const {
    if (!is_unsigned() || bits > 16) return CV_32F;
    return bits > 8 ? CV_16U : CV_8U;
  }
};

float float_of_half(std::uint16_t half) {
  const int exponent = half >> 10 & 31;
  const int fraction = half & 1023;
  const float sign = (half & 0x8000) != 0 ? -1.0F : 1.0F;
  if (exponent == 31) {
    return fraction == 0 ? sign * std::numeric_limits<float>::infinity() : std::numeric_limits<float>::quiet_NaN();
  }
  if (exponent == 0) return sign * std::ldexp(static_cast<float>(fraction), -24);
  return sign * std::ldexp(static_cast<float>(fraction + 1024), exponent - 25);
}

/// Copies samples of libtiff's buffer as T; false where one cannot be kept exactly.
template <typename Stored>
bool convert_samples(const std::uint8_t* from, std::size_t n, float* to) {
  bool is_exact = true;
  for (std::size_t i = 0; i < n; ++i) {
    Stored value{};
    std::memcpy(&value, from + i * sizeof value, sizeof value);
    to[i] = static_cast<float>(value);
    if constexpr (std::is_integral_v<Stored>) {
      is_exact = is_exact && static_cast<double>(to[i]) == static_cast<double>(value);
    }
  }
  return is_exact;
}

bool unpack_floats(const Page& page, const std::uint8_t* from, std::size_t n, float* to) {
  if (page.sample_format == SAMPLEFORMAT_IEEEFP) {
    if (page.bits == 64) return convert_samples<double>(from, n, to);
    if (page.bits == 32) return convert_samples<float>(from, n, to);
    for (std::size_t i = 0; i < n; ++i) {
      std::uint16_t half = 0;
      std::memcpy(&half, from + 2 * i, 2);
      to[i] = float_of_half(half);
    }
    return true;
  }
  if (page.is_unsigned()) return convert_samples<std::uint32_t>(from, n, to);
  if (page.bits == 8) return convert_samples<std::int8_t>(from, n, to);
  if (page.bits == 16) return convert_samples<std::int16_t>(from, n, to);
  return convert_samples<std::int32_t>(from, n, to);
}

/// Unsigned samples of up to 16 bits, the highest bit first; widened to the full range of T unless they are indices.
template <typename T>
void unpack_bits(const Page& page, const std::uint8_t* from, std::size_t n, T* to) {
  if (page.bits == 8 * static_cast<int>(sizeof(T))) {
    std::memcpy(to, from, n * sizeof(T));
    return;
  }
  const std::uint32_t most = (1u << page.bits) - 1;
  constexpr std::uint32_t full = std::numeric_limits<T>::max();
  std::uint32_t window = 0;
  int available = 0;
  for (std::size_t i = 0; i < n; ++i) {
    for (; available < page.bits; available += 8) window = window << 8 | *from++;
    available -= page.bits;
    const std::uint32_t value = window >> available & most;
    to[i] = static_cast<T>(page.is_palette() ? value : (value * full + most / 2) / most);
  }
}

class Reader {
 public:
  explicit Reader(const Input& input) : _input(input), _tiff(nullptr, &TIFFClose) {
    _file.source = input.bytes;
    _tiff = opened(_file, "r");
    if (!_tiff) fail();
    const auto pages = TIFFNumberOfDirectories(_tiff.get());
    if (!_file.error.empty() || pages < 1) fail();
    if (static_cast<std::int64_t>(pages) > input.limits.max_pages) {
      input.refuse(fmt::format("the file has {} pages, more than the limit of {}.", pages, input.limits.max_pages));
    }
    _pages = static_cast<int>(pages);
    if (input.page >= _pages) {
      input.refuse(fmt::format("there is no page {}: pages are counted from 0, and the file has {}.", input.page,
                               _pages == 1 ? "one" : std::to_string(_pages)));
    }
    if (TIFFSetDirectory(_tiff.get(), static_cast<tdir_t>(input.page)) != 1 || !_file.error.empty()) fail();
  }

  Decoded decoded() {
    read_page();
    _file.warning.clear();  // about tags; from here on a warning is about pixels
    cv::Mat pixels = needs_colour_conversion() ? converted_by_libtiff() : from_samples(stored_samples());
    return {.pixels = upright(std::move(pixels), _page.orientation), .pages = _pages};
  }

 private:
  [[noreturn]] void fail() const {
    if (_file.is_out_of_memory) throw std::bad_alloc();
    _input.refuse("this TIFF file is cut off or damaged", _file.error.empty() ? _file.warning : _file.error);
  }

  int number(std::uint32_t tag, int absent) const {
    std::uint16_t value = 0;
    return TIFFGetFieldDefaulted(_tiff.get(), tag, &value) == 1 ? value : absent;
  }

  void read_page() {
    TIFFGetField(_tiff.get(), TIFFTAG_IMAGEWIDTH, &_page.width);
    TIFFGetField(_tiff.get(), TIFFTAG_IMAGELENGTH, &_page.height);
    _input.check_size(_page.width, _page.height);
    _page.bits = number(TIFFTAG_BITSPERSAMPLE, 1);
    _page.samples = number(TIFFTAG_SAMPLESPERPIXEL, 1);
    _page.sample_format = number(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    if (_page.sample_format == SAMPLEFORMAT_VOID) _page.sample_format = SAMPLEFORMAT_UINT;
    _page.photometric = number(TIFFTAG_PHOTOMETRIC, _page.samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    _page.compression = number(TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    _page.orientation = number(TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    _page.is_planar = number(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == PLANARCONFIG_SEPARATE;
    _page.is_tiled = TIFFIsTiled(_tiff.get()) != 0;
    if (TIFFIsCODECConfigured(static_cast<std::uint16_t>(_page.compression)) == 0) {
      _input.refuse(
          fmt::format("this TIFF file is compressed in a way (number {}) that cannot be read.", _page.compression));
    }
    check_blocks();
    if (_page.photometric == PHOTOMETRIC_YCBCR && _page.compression == COMPRESSION_JPEG && !_page.is_planar) {
      TIFFSetField(_tiff.get(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
      _page.photometric = PHOTOMETRIC_RGB;
    }
    check_samples();
    check_colours();
  }

  /// Refuses files that promise more than their bytes can hold, or blocks far larger than the picture.
  void check_blocks() const {
    TIFF* tiff = _tiff.get();
    const double planes = _page.is_planar ? _page.samples : 1;
    const double raw_bytes = _page.is_tiled ? static_cast<double>(TIFFTileSize64(tiff)) * TIFFNumberOfTiles(tiff)
                                            : static_cast<double>(TIFFVStripSize64(tiff, _page.height)) * planes;
    const double pixels = static_cast<double>(_page.width) * _page.height;
    constexpr double small_bytes = 64e6;
    const double pixel_bytes = _page.bits * _page.samples / 8.0;
    if (!(raw_bytes > 0) || raw_bytes > 4 * pixels * pixel_bytes + small_bytes) {
      _input.refuse("this TIFF file is damaged", "its tiles do not go with its size");
    }
    const double ratio = highest_ratio();
    if (ratio <= 0) return;
    const double most = pixels * ratio * static_cast<double>(_input.bytes.size()) / raw_bytes;
    _input.check_size(_page.width, _page.height, static_cast<std::int64_t>(std::min(most, pixels)));
  }

  /// How many bytes a byte of the file can stand for; 0 where nothing is known.
  [[nodiscard]] double highest_ratio() const {
    switch (_page.compression) {
      case COMPRESSION_NONE:
        return 1;
      case COMPRESSION_PACKBITS:
        return 64;  // two bytes for a run of 128
      case COMPRESSION_LZW:
        return 4096;  // a code of more than a byte for at most 4096
      case COMPRESSION_ADOBE_DEFLATE:
      case COMPRESSION_DEFLATE:
        return 1033;
      case COMPRESSION_JPEG:
        return 4096;  // a bit for a block of 64 pixels, four samples each, twice as coarse
      default:
        return 0;
    }
  }

  void check_samples() const {
    const auto refuse_type = [&](const char* type) {
      _input.refuse(
          fmt::format("this TIFF file holds {}-bit {}; 8-bit and 16-bit unsigned and floating point can be "
                      "read. Save it as one of these.",
                      _page.bits, type));
    };
    switch (_page.sample_format) {
      case SAMPLEFORMAT_UINT:
        if (_page.bits > 16 && _page.bits != 32) refuse_type("unsigned integers");
        break;
      case SAMPLEFORMAT_INT:
        if (_page.bits != 8 && _page.bits != 16 && _page.bits != 32) refuse_type("signed integers");
        break;
      case SAMPLEFORMAT_IEEEFP:
        if (_page.bits != 16 && _page.bits != 32 && _page.bits != 64) refuse_type("floating point numbers");
        break;
      default:
        refuse_type("complex numbers");
    }
    const bool is_scaled = _page.photometric == PHOTOMETRIC_MINISBLACK || _page.photometric == PHOTOMETRIC_RGB;
    if (_page.depth() == CV_32F && !is_scaled) {
      refuse_type("numbers that are not plain brightness");
    }
    if (_page.is_palette() && _page.bits > 8) refuse_type("palette indices");
  }

  void check_colours() {
    switch (_page.photometric) {
      case PHOTOMETRIC_MINISBLACK:
      case PHOTOMETRIC_MINISWHITE:
      case PHOTOMETRIC_PALETTE:
        _page.colours = 1;
        break;
      case PHOTOMETRIC_RGB:
        _page.colours = 3;
        break;
      case PHOTOMETRIC_SEPARATED:
        _page.colours = 4;
        if (number(TIFFTAG_INKSET, INKSET_CMYK) != INKSET_CMYK) {
          _input.refuse("this TIFF file holds inks other than cyan, magenta, yellow and black, which cannot be read.");
        }
        break;
      case PHOTOMETRIC_YCBCR:
        _page.colours = 3;
        if (_page.samples == 3 && _page.bits == 8) return;
        [[fallthrough]];
      default:
        _input.refuse(
            fmt::format("this TIFF file holds colours of a kind (photometric interpretation {}) that cannot "
                        "be read. Save it as grey or RGB.",
                        _page.photometric));
    }
    std::uint16_t n_extra = 0;
    std::uint16_t* extra = nullptr;
    if (TIFFGetField(_tiff.get(), TIFFTAG_EXTRASAMPLES, &n_extra, &extra) != 1) n_extra = 0;
    const int beyond = _page.samples - _page.colours;
    for (int i = 0; i < beyond; ++i) {
      // The list is about the last samples of a pixel.
      const int entry = i - (beyond - n_extra);
      const int kind = entry >= 0 ? extra[entry] : EXTRASAMPLE_UNSPECIFIED;
      if (kind == EXTRASAMPLE_UNSPECIFIED) {
        _input.refuse(
            fmt::format("this TIFF file holds {} bands; a picture has one, or three for red, green and blue. "
                        "Save each band as a file or page of its own and name them in a capture header.",
                        _page.samples));
      }
      if (kind == EXTRASAMPLE_ASSOCALPHA && !_page.is_palette()) _page.alpha = _page.colours + i;
    }
    if (beyond < 0) fail();
    if (_page.samples > CV_CN_MAX) fail();
  }

  [[nodiscard]] bool needs_colour_conversion() const { return _page.photometric == PHOTOMETRIC_YCBCR; }

  /// YCbCr that is not compressed by the usual JPEG: libtiff knows how its samples lie.
  cv::Mat converted_by_libtiff() {
    char message[1024] = "";
    TIFFRGBAImage image{};
    constexpr int stop_on_error = 1;
    if (TIFFRGBAImageBegin(&image, _tiff.get(), stop_on_error, message) != 1) {
      if (_file.error.empty()) _file.error = message;
      fail();
    }
    image.req_orientation = image.orientation;  // as stored; turned upright by us
    cv::Mat packed(static_cast<int>(_page.height), static_cast<int>(_page.width), CV_32SC1);
    const bool is_read = TIFFRGBAImageGet(&image, packed.ptr<std::uint32_t>(), _page.width, _page.height) == 1;
    TIFFRGBAImageEnd(&image);
    if (!is_read || !_file.error.empty() || !_file.warning.empty()) fail();
    cv::Mat pixels(packed.rows, packed.cols, CV_8UC3);
    for (int y = 0; y < packed.rows; ++y) {
      const auto* from = packed.ptr<std::uint32_t>(y);
      std::uint8_t* to = pixels.ptr<std::uint8_t>(y);
      for (int x = 0; x < packed.cols; ++x) {
        *to++ = static_cast<std::uint8_t>(TIFFGetR(from[x]));
        *to++ = static_cast<std::uint8_t>(TIFFGetG(from[x]));
        *to++ = static_cast<std::uint8_t>(TIFFGetB(from[x]));
      }
    }
    return pixels;
  }

  /// All samples of the page, interleaved, in the depth that keeps them.
  cv::Mat stored_samples() {
    cv::Mat samples(static_cast<int>(_page.height), static_cast<int>(_page.width),
                    CV_MAKETYPE(_page.depth(), _page.samples));
    switch (_page.depth()) {
      case CV_8U:
        read_blocks<std::uint8_t>(samples);
        break;
      case CV_16U:
        read_blocks<std::uint16_t>(samples);
        break;
      default:
        read_blocks<float>(samples);
        break;
    }
    return samples;
  }

  template <typename T>
  void read_blocks(cv::Mat& samples) {
    TIFF* tiff = _tiff.get();
    std::uint32_t block_width = _page.width;
    std::uint32_t block_height = _page.height;
    if (_page.is_tiled) {
      TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &block_width);
      TIFFGetField(tiff, TIFFTAG_TILELENGTH, &block_height);
    } else {
      TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &block_height);
      block_height = std::min(block_height, _page.height);
    }
    const tmsize_t row_bytes = _page.is_tiled ? TIFFTileRowSize(tiff) : TIFFScanlineSize(tiff);
    const std::size_t samples_in_block = _page.is_planar ? 1 : static_cast<std::size_t>(_page.samples);
    const auto needed_bits =
        static_cast<std::uint64_t>(block_width) * samples_in_block * static_cast<unsigned>(_page.bits);
    if (block_width == 0 || block_height == 0 || row_bytes < static_cast<tmsize_t>((needed_bits + 7) / 8)) fail();
    std::vector<std::uint8_t> block(static_cast<std::size_t>(row_bytes) * block_height);
    std::vector<T> row(block_width * samples_in_block);

    const int planes = _page.is_planar ? _page.samples : 1;
    for (int plane = 0; plane < planes; ++plane) {
      for (std::uint32_t y0 = 0; y0 < _page.height; y0 += block_height) {
        const std::uint32_t rows = std::min(block_height, _page.height - y0);
        for (std::uint32_t x0 = 0; x0 < _page.width; x0 += block_width) {
          read_block(x0, y0, rows, plane, row_bytes, block);
          const std::uint32_t columns = std::min(block_width, _page.width - x0);
          for (std::uint32_t y = 0; y < rows; ++y) {
            const std::uint8_t* from = block.data() + static_cast<std::size_t>(row_bytes) * y;
            T* to =
                samples.ptr<T>(static_cast<int>(y0 + y)) + std::size_t{x0} * static_cast<std::size_t>(_page.samples);
            if (!_page.is_planar) {
              unpack(from, columns * samples_in_block, to);
              continue;
            }
            unpack(from, columns, row.data());
            for (std::uint32_t x = 0; x < columns; ++x) {
              to[x * static_cast<std::size_t>(_page.samples) + static_cast<std::size_t>(plane)] = row[x];
            }
          }
        }
      }
    }
  }

  void read_block(std::uint32_t x, std::uint32_t y, std::uint32_t rows, int plane, tmsize_t row_bytes,
                  std::vector<std::uint8_t>& block) {
    TIFF* tiff = _tiff.get();
    const auto sample = static_cast<std::uint16_t>(plane);
    const auto size = static_cast<tmsize_t>(block.size());
    tmsize_t n = 0;
    tmsize_t expected = size;
    if (_page.is_tiled) {
      n = TIFFReadEncodedTile(tiff, TIFFComputeTile(tiff, x, y, 0, sample), block.data(), size);
    } else {
      expected = row_bytes * static_cast<tmsize_t>(rows);
      n = TIFFReadEncodedStrip(tiff, TIFFComputeStrip(tiff, y, sample), block.data(), size);
    }
    // Warnings of this phase say that rows were made up or bytes left out.
    if (n < expected || !_file.error.empty() || !_file.warning.empty()) fail();
  }

  template <typename T>
  void unpack(const std::uint8_t* from, std::size_t n, T* to) const {
    if constexpr (std::is_same_v<T, float>) {
      if (!unpack_floats(_page, from, n, to)) {
        _input.refuse(
            "this TIFF file holds 32-bit integers so large that they would lose digits. Save it as 8-bit, "
            "16-bit or 32-bit float.");
      }
    } else {
      unpack_bits(_page, from, n, to);
    }
  }

  cv::Mat from_samples(cv::Mat samples) {
    if (_page.alpha >= 0) divide_by_alpha(samples);
    if (_page.samples > _page.colours) {
      cv::Mat colours(samples.rows, samples.cols, CV_MAKETYPE(samples.depth(), _page.colours));
      std::vector<int> same;
      for (int c = 0; c < _page.colours; ++c) same.insert(same.end(), {c, c});
      cv::mixChannels(&samples, 1, &colours, 1, same.data(), static_cast<std::size_t>(_page.colours));
      samples = std::move(colours);
    }
    if (_page.photometric == PHOTOMETRIC_MINISWHITE) cv::bitwise_not(samples, samples);
    if (_page.photometric == PHOTOMETRIC_SEPARATED) return rgb_from_cmyk(samples, false);
    if (_page.is_palette()) return from_palette(samples);
    return samples;
  }

  /// Colours that were multiplied by alpha get their own values back, as near as their rounding allows; 0 where nothing
  /// is left of them.
  void divide_by_alpha(cv::Mat& samples) const {
    switch (samples.depth()) {
      case CV_8U:
        return divide_by_alpha<std::uint8_t>(samples);
      case CV_16U:
        return divide_by_alpha<std::uint16_t>(samples);
      default:
        return divide_by_alpha<float>(samples);
    }
  }

  template <typename T>
  void divide_by_alpha(cv::Mat& samples) const {
    for (int y = 0; y < samples.rows; ++y) {
      T* pixel = samples.ptr<T>(y);
      for (int x = 0; x < samples.cols; ++x, pixel += _page.samples) {
        const T alpha = pixel[_page.alpha];
        for (int c = 0; c < _page.colours; ++c) {
          if constexpr (std::is_same_v<T, float>) {
            pixel[c] = alpha > 0 ? pixel[c] / alpha : 0.0F;
          } else {
            constexpr std::uint64_t full = std::numeric_limits<T>::max();
            const std::uint64_t value = alpha == 0 ? 0 : (pixel[c] * full + alpha / 2) / alpha;
            pixel[c] = static_cast<T>(std::min(value, full));
          }
        }
      }
    }
  }

  cv::Mat from_palette(const cv::Mat& indices) const {
    std::array<std::uint16_t*, 3> maps{};
    if (TIFFGetField(_tiff.get(), TIFFTAG_COLORMAP, maps.data(), &maps[1], &maps[2]) != 1) {
      _input.refuse("this TIFF file is damaged", "it has no palette");
    }
    // Entries have 16 bits, but some writers left them at 8.
    const std::size_t entries = std::size_t{1} << _page.bits;
    bool is_narrow = true;
    for (const std::uint16_t* map : maps) {
      is_narrow = is_narrow && std::all_of(map, map + entries, [](std::uint16_t level) { return level < 256; });
    }
    std::vector<Colour> palette(entries);
    for (std::size_t i = 0; i < entries; ++i) {
      for (std::size_t c = 0; c < 3; ++c) {
        palette[i][c] = static_cast<std::uint8_t>(is_narrow ? maps[c][i] : maps[c][i] >> 8);
      }
    }
    return expanded_palette(_input, "TIFF", indices, palette);
  }

  const Input& _input;
  MemoryFile _file;
  Tiff _tiff;
  int _pages = 1;
  Page _page;
};

}  // namespace

Decoded decode_tiff(const Input& input) {
  return Reader(input).decoded();
}

}  // namespace codecs

namespace {

/// Differences to the pixel at the left, which is what TIFF calls the horizontal predictor.
template <typename T>
void predict_row(const T* row, std::size_t size, std::size_t channels, T* differences) {
  std::copy_n(row, channels, differences);
  for (std::size_t i = channels; i < size; ++i) differences[i] = static_cast<T>(row[i] - row[i - channels]);
}

/// Rows y0 to y1 - 1 of an integer image as they stand in the file: predicted and packed as RFC 1950 says.
common::Bytes packed_strip(const Image& image, int y0, int y1) {
  const std::size_t row_bytes = image.read_only().elemSize() * static_cast<std::size_t>(image.width());
  const auto channels = static_cast<std::size_t>(image.channels());
  std::vector<std::uint8_t> predicted(static_cast<std::size_t>(y1 - y0) * row_bytes);
  for (int y = y0; y < y1; ++y) {
    std::uint8_t* out = predicted.data() + static_cast<std::size_t>(y - y0) * row_bytes;
    if (image.type() == PixelType::u8) {
      predict_row(image.row<std::uint8_t>(y).data(), row_bytes, channels, out);
    } else {
      std::vector<std::uint16_t> differences(row_bytes / 2);
      predict_row(image.row<std::uint16_t>(y).data(), differences.size(), channels, differences.data());
      std::memcpy(out, differences.data(), row_bytes);
    }
  }
  return codecs::zlib_stream(predicted);
}

}  // namespace

common::Bytes encode_tiff(const Image& image, const RunContext& context) {
  MemoryFile file;
  const bool is_float = image.type() == PixelType::f32;
  // Offsets of the plain format have 32 bits; deflate may make noise a little larger than it was.
  constexpr std::size_t most_of_plain_format = std::size_t{7} << 29;
  const bool is_big = image.bytes() > most_of_plain_format;
  bool is_written = false;
  {
    const Tiff tiff = opened(file, is_big ? "wl8" : "wl");
    if (!tiff) throw std::runtime_error("A TIFF could not be made: " + file.error + ".");
    const int sample_bytes = image.type() == PixelType::u8 ? 1 : is_float ? 4 : 2;
    constexpr std::size_t strip_bytes = std::size_t{1} << 18;
    const std::size_t row_bytes = image.read_only().elemSize() * static_cast<std::size_t>(image.width());
    const int strip_rows = static_cast<int>(std::max<std::size_t>(1, strip_bytes / row_bytes));
    TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(image.width()));
    TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(image.height()));
    TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, 8 * sample_bytes);
    TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, image.channels());
    TIFFSetField(tiff.get(), TIFFTAG_SAMPLEFORMAT, is_float ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
    TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, image.is_color() ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff.get(), TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff.get(), TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(strip_rows));
    TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, is_float ? COMPRESSION_NONE : COMPRESSION_ADOBE_DEFLATE);
    const auto strips = static_cast<std::size_t>((image.height() + strip_rows - 1) / strip_rows);
    const auto first_row = [&](std::size_t strip) { return static_cast<int>(strip) * strip_rows; };
    const auto end_row = [&](std::size_t strip) { return std::min(image.height(), first_row(strip) + strip_rows); };
    std::vector<common::Bytes> packed(is_float ? 0 : strips);
    if (is_float) {
      file.written.reserve(image.bytes() + 4096);
    } else {
      TIFFSetField(tiff.get(), TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
      common::parallel_for(strips, [&](std::size_t strip) {
        context.check();
        packed[strip] = packed_strip(image, first_row(strip), end_row(strip));
      });
    }
    is_written = true;
    for (std::size_t strip = 0; is_written && strip < strips; ++strip) {
      context.check();
      common::Bytes content;
      if (is_float) {
        const auto* from = reinterpret_cast<const std::byte*>(image.read_only().ptr(first_row(strip)));
        content.assign(from, from + static_cast<std::size_t>(end_row(strip) - first_row(strip)) * row_bytes);
      } else {
        content = std::move(packed[strip]);
      }
      is_written = TIFFWriteRawStrip(tiff.get(), static_cast<std::uint32_t>(strip), content.data(),
                                     static_cast<tmsize_t>(content.size())) >= 0;
    }
    is_written = is_written && TIFFWriteDirectory(tiff.get()) == 1;
  }
  if (file.is_out_of_memory) throw std::bad_alloc();
  if (!is_written || !file.error.empty()) throw std::runtime_error("A TIFF could not be made: " + file.error + ".");
  return std::move(file.written);
}

}  // namespace orvexa::model
