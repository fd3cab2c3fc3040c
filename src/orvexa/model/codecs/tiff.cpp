#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "orvexa/model/codecs/decoder.h"

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

}  // namespace

namespace {

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

int keep_warning(TIFF*, void* user_data, const char*, const char* format, va_list arguments) {
  auto& file = *static_cast<MemoryFile*>(user_data);
  if (file.warning.empty()) file.warning = formatted(format, arguments);
  return 1;
}

Tiff opened(MemoryFile& file, const char* mode) {
  const std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> options(TIFFOpenOptionsAlloc(),
                                                                                 &TIFFOpenOptionsFree);
  if (!options) throw std::bad_alloc();
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), &keep_error, &file);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), &keep_warning, &file);
  return {TIFFClientOpenExt("", mode, &file, &read_some, &write_some, &seek, &close_nothing, &size_of, &map_source,
                            &unmap_nothing, options.get()),
          &TIFFClose};
}

}  // namespace

common::Bytes encode_tiff(const Image& image) {
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
    if (!is_float) {
      TIFFSetField(tiff.get(), TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
      TIFFSetField(tiff.get(), TIFFTAG_ZIPQUALITY, 1);
    }
    if (is_float) file.written.reserve(image.bytes() + 4096);
    is_written = true;
    std::vector<std::byte> strip;  // libtiff applies the predictor in place, so it gets a copy
    for (int y = 0; is_written && y < image.height(); y += strip_rows) {
      const std::size_t rows = static_cast<std::size_t>(std::min(strip_rows, image.height() - y));
      const auto* from = reinterpret_cast<const std::byte*>(image.read_only().ptr(y));
      strip.assign(from, from + rows * row_bytes);
      is_written = TIFFWriteEncodedStrip(tiff.get(), static_cast<std::uint32_t>(y / strip_rows), strip.data(),
                                         static_cast<tmsize_t>(strip.size())) >= 0;
    }
    is_written = is_written && TIFFWriteDirectory(tiff.get()) == 1;
  }
  if (file.is_out_of_memory) throw std::bad_alloc();
  if (!is_written || !file.error.empty()) throw std::runtime_error("A TIFF could not be made: " + file.error + ".");
  return std::move(file.written);
}

}  // namespace orvexa::model
