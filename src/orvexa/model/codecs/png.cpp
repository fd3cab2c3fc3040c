#include <png.h>
#include <zlib.h>

#include <bit>
#include <csetjmp>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "orvexa/model/codecs/decoder.h"

// libpng leaves its functions by longjmp when something is wrong. The functions below that call setjmp therefore hold
// no object with a destructor; what must be released lives in the Reader of their caller.

namespace orvexa::model::codecs {

namespace {

/// What libpng said last, kept in place so that nothing is allocated on its way out.
struct Complaint {
  char text[160] = "";
  bool is_data_check = false;

  void keep(const char* message) {
    std::strncpy(text, message, sizeof text - 1);
    text[sizeof text - 1] = '\0';
  }
};

[[noreturn]] void on_error(png_structp png, png_const_charp message) {
  static_cast<Complaint*>(png_get_error_ptr(png))->keep(message);
  png_longjmp(png, 1);
}

void on_warning(png_structp png, png_const_charp message) {
  // Warnings are about text, colour profiles and the like, but for one: the checksum over all pixels.
  auto* complaint = static_cast<Complaint*>(png_get_error_ptr(png));
  if (std::strstr(message, "incorrect data check") == nullptr) return;
  complaint->keep(message);
  complaint->is_data_check = true;
}

struct Reader {
  explicit Reader(std::span<const std::byte> content) : bytes(content) {
    png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &complaint, &on_error, &on_warning);
    if (png != nullptr) info = png_create_info_struct(png);
    if (info == nullptr) {
      png_destroy_read_struct(&png, nullptr, nullptr);
      throw std::bad_alloc();
    }
    png_set_read_fn(png, this, &read);
  }
  ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  static void read(png_structp png, png_bytep to, std::size_t size) {
    auto* reader = static_cast<Reader*>(png_get_io_ptr(png));
    if (size > reader->bytes.size() - reader->position) {
      reader->is_cut_off = true;
      png_error(png, "end of file");
    }
    std::memcpy(to, reader->bytes.data() + reader->position, size);
    reader->position += size;
  }

  std::span<const std::byte> bytes;
  std::size_t position = 0;
  bool is_cut_off = false;
  Complaint complaint;
  png_structp png = nullptr;
  png_infop info = nullptr;

  png_uint_32 width = 0;
  png_uint_32 height = 0;
  int bits = 0;
  int color_type = 0;
};

bool read_header(Reader& reader) {
  if (setjmp(png_jmpbuf(reader.png)) != 0) return false;
  constexpr png_uint_32 any = 0x7fffffff;  // our own limits are looked at as soon as the header is known
  constexpr png_alloc_size_t largest_chunk = 4u << 20;
  png_set_user_limits(reader.png, any, any);
  png_set_chunk_malloc_max(reader.png, largest_chunk);
  png_read_info(reader.png, reader.info);
  png_get_IHDR(reader.png, reader.info, &reader.width, &reader.height, &reader.bits, &reader.color_type, nullptr,
               nullptr, nullptr);
  return true;
}

bool read_pixels(Reader& reader, png_bytepp rows) {
  if (setjmp(png_jmpbuf(reader.png)) != 0) return false;
  png_read_image(reader.png, rows);
  png_read_end(reader.png, reader.info);
  return true;
}

bool set_transformations(Reader& reader) {
  if (setjmp(png_jmpbuf(reader.png)) != 0) return false;
  if (reader.color_type == PNG_COLOR_TYPE_PALETTE) png_set_packing(reader.png);  // indices, a byte each
  if (reader.color_type == PNG_COLOR_TYPE_GRAY && reader.bits < 8) png_set_expand_gray_1_2_4_to_8(reader.png);
  png_set_strip_alpha(reader.png);
  if (reader.bits == 16 && std::endian::native == std::endian::little) png_set_swap(reader.png);
  png_set_interlace_handling(reader.png);
  png_read_update_info(reader.png, reader.info);
  return true;
}

[[noreturn]] void refuse(const Input& input, const Reader& reader) {
  if (reader.is_cut_off) input.refuse("this PNG file is cut off.");
  input.refuse("this PNG file is damaged", reader.complaint.text);
}

int stored_orientation(Reader& reader) {
  png_bytep block = nullptr;
  png_uint_32 size = 0;
  if (png_get_eXIf_1(reader.png, reader.info, &size, &block) == 0 || block == nullptr) return 1;
  common::Bytes exif(6 + std::size_t{size});
  std::memcpy(exif.data(), "Exif\0\0", 6);
  std::memcpy(exif.data() + 6, block, size);
  return exif_orientation(exif);
}

std::vector<Colour> stored_palette(Reader& reader) {
  png_colorp entries = nullptr;
  int count = 0;
  png_get_PLTE(reader.png, reader.info, &entries, &count);
  std::vector<Colour> palette;
  palette.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) palette.push_back({entries[i].red, entries[i].green, entries[i].blue});
  return palette;
}

}  // namespace

Decoded decode_png(const Input& input) {
  Reader reader(input.bytes);
  if (!read_header(reader)) refuse(input, reader);

  input.check_size(reader.width, reader.height);
  constexpr double highest_ratio_of_deflate = 1032;
  const double row_bytes = static_cast<double>(png_get_rowbytes(reader.png, reader.info));
  const double most_rows = highest_ratio_of_deflate * static_cast<double>(input.bytes.size()) / row_bytes;
  input.check_size(reader.width, reader.height, static_cast<std::int64_t>(most_rows * reader.width));

  if (!set_transformations(reader)) refuse(input, reader);
  const int depth = reader.bits == 16 ? CV_16U : CV_8U;
  const bool is_palette = reader.color_type == PNG_COLOR_TYPE_PALETTE;
  const int channels = !is_palette && (reader.color_type & PNG_COLOR_MASK_COLOR) != 0 ? 3 : 1;
  cv::Mat pixels(static_cast<int>(reader.height), static_cast<int>(reader.width), CV_MAKETYPE(depth, channels));
  if (png_get_rowbytes(reader.png, reader.info) != pixels.step[0]) {
    input.refuse("this PNG file is damaged", "its rows have another length than its header says");
  }
  std::vector<png_bytep> rows(reader.height);
  for (int y = 0; y < pixels.rows; ++y) rows[static_cast<std::size_t>(y)] = pixels.ptr(y);
  if (!read_pixels(reader, rows.data()) || reader.complaint.is_data_check) refuse(input, reader);

  if (is_palette) pixels = expanded_palette(input, "PNG", pixels, stored_palette(reader));
  return {.pixels = upright(std::move(pixels), stored_orientation(reader))};
}

}  // namespace orvexa::model::codecs
