#include "model/codecs/picture_writers.h"

#include <gif_lib.h>
#include <png.h>
#include <tiffio.h>
#include <turbojpeg.h>
#include <zlib.h>

#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>

namespace orvexa::test {

namespace {

void expect(bool is_done, const char* what) {
  if (!is_done) throw std::logic_error(std::string("The test's own picture could not be written: ") + what);
}

void append(Bytes& bytes, const void* from, std::size_t size) {
  const auto* begin = static_cast<const std::byte*>(from);
  bytes.insert(bytes.end(), begin, begin + size);
}

}  // namespace

Matrix matrix(const model::Image& image) {
  Matrix rows;
  cv::Mat numbers;
  image.read_only().convertTo(numbers, CV_64F);
  for (int y = 0; y < numbers.rows; ++y) {
    const auto* row = numbers.ptr<double>(y);
    rows.emplace_back(row, row + numbers.cols * numbers.channels());
  }
  return rows;
}

model::Image read(const Bytes& bytes, int page) {
  return model::read_image(bytes, "picture", page).image;
}

std::string refusal(const Bytes& bytes, int page, const model::ImageLimits& limits) {
  try {
    (void)model::read_image(bytes, "picture", page, limits);
    return {};
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

Bytes bytes_of(const Octets& octets) {
  Bytes bytes;
  append(bytes, octets.data(), octets.size());
  return bytes;
}

Octets little_endian(std::uint32_t value, int size) {
  Octets octets;
  for (int i = 0; i < size; ++i) octets.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  return octets;
}

model::Image random_image(int height, int width, int type, unsigned seed) {
  std::mt19937 random(seed);
  cv::Mat pixels(height, width, type);
  for (int y = 0; y < height; ++y) {
    for (int i = 0; i < width * pixels.channels(); ++i) {
      const auto bits = static_cast<std::uint32_t>(random());
      if (pixels.depth() == CV_8U) pixels.ptr<std::uint8_t>(y)[i] = static_cast<std::uint8_t>(bits);
      if (pixels.depth() == CV_16U) pixels.ptr<std::uint16_t>(y)[i] = static_cast<std::uint16_t>(bits);
      if (pixels.depth() == CV_32F) pixels.ptr<float>(y)[i] = static_cast<float>(bits) / 2147483.647F - 1000.0F;
    }
  }
  return model::Image(std::move(pixels));
}

const Matrix& upright_one_to_six(int orientation) {
  static const std::array<Matrix, 8> all{{
      {{1, 2, 3}, {4, 5, 6}},    // 1: first row at the top, first column on the left
      {{3, 2, 1}, {6, 5, 4}},    // 2: top, right
      {{6, 5, 4}, {3, 2, 1}},    // 3: bottom, right
      {{4, 5, 6}, {1, 2, 3}},    // 4: bottom, left
      {{1, 4}, {2, 5}, {3, 6}},  // 5: first row on the left, first column at the top
      {{4, 1}, {5, 2}, {6, 3}},  // 6: right, top
      {{6, 3}, {5, 2}, {4, 1}},  // 7: right, bottom
      {{3, 6}, {2, 5}, {1, 4}},  // 8: left, bottom
  }};
  return all.at(static_cast<std::size_t>(orientation - 1));
}

Octets exif_block(int orientation, bool is_big_endian) {
  const auto low = static_cast<std::uint8_t>(orientation);
  if (is_big_endian) {
    return {'E', 'x',  'i', 'f',  0, 0,        // the block's name
            'M', 'M',  0,   0x2a, 0, 0, 0, 8,  // a TIFF structure, its directory at 8
            0,   1,                            // one entry:
            1,   0x12, 0,   3,    0, 0, 0, 1,  // orientation, 16-bit, one value
            0,   low,  0,   0,    0, 0, 0, 0};
  }
  return {'E',  'x', 'i', 'f', 0, 0, 'I', 'I', 0x2a, 0, 8, 0, 0, 0, 1, 0,
          0x12, 1,   3,   0,   1, 0, 0,   0,   low,  0, 0, 0, 0, 0, 0, 0};
}

// PNG

Octets png_chunk(const std::string& type, const Octets& content) {
  Octets chunk;
  const auto big_endian = [&](std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) chunk.push_back(static_cast<std::uint8_t>(value >> shift));
  };
  big_endian(static_cast<std::uint32_t>(content.size()));
  chunk.insert(chunk.end(), type.begin(), type.end());
  chunk.insert(chunk.end(), content.begin(), content.end());
  big_endian(static_cast<std::uint32_t>(crc32(0, chunk.data() + 4, static_cast<uInt>(chunk.size() - 4))));
  return chunk;
}

Bytes png(const PngPicture& picture) {
  Bytes bytes;
  png_structp writer = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(writer);
  png_set_write_fn(
      writer, &bytes,
      [](png_structp png, png_bytep from, std::size_t size) {
        append(*static_cast<Bytes*>(png_get_io_ptr(png)), from, size);
      },
      nullptr);
  png_set_IHDR(writer, info, static_cast<png_uint_32>(picture.width), static_cast<png_uint_32>(picture.height),
               picture.bits, picture.color_type, picture.is_interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  std::vector<png_color> palette;
  for (const Colour& rgb : picture.palette) palette.push_back({rgb[0], rgb[1], rgb[2]});
  if (!palette.empty()) png_set_PLTE(writer, info, palette.data(), static_cast<int>(palette.size()));
  if (!picture.palette_alpha.empty()) {
    png_set_tRNS(writer, info, picture.palette_alpha.data(), static_cast<int>(picture.palette_alpha.size()), nullptr);
  }
  if (picture.transparent_grey) {
    png_color_16 colour{};
    colour.gray = *picture.transparent_grey;
    png_set_tRNS(writer, info, nullptr, 0, &colour);
  }
  if (picture.gamma) png_set_gAMA(writer, info, *picture.gamma);
  Octets exif(picture.exif.begin() + (picture.exif.empty() ? 0 : 6), picture.exif.end());
  if (!exif.empty()) png_set_eXIf_1(writer, info, static_cast<png_uint_32>(exif.size()), exif.data());
  png_write_info(writer, info);
  std::vector<Octets> rows = picture.rows;
  std::vector<png_bytep> pointers;
  for (Octets& row : rows) pointers.push_back(row.data());
  png_write_image(writer, pointers.data());
  png_write_end(writer, info);
  png_destroy_write_struct(&writer, &info);
  return bytes;
}

// JPEG

Bytes jpeg(const cv::Mat& pixels, int subsampling, bool is_progressive) {
  const std::unique_ptr<void, decltype(&tjDestroy)> encoder(tjInitCompress(), &tjDestroy);
  const int format = pixels.channels() == 1 ? TJPF_GRAY : pixels.channels() == 3 ? TJPF_RGB : TJPF_CMYK;
  unsigned char* content = nullptr;
  unsigned long size = 0;
  constexpr int best_quality = 100;
  expect(tjCompress2(encoder.get(), pixels.ptr(), pixels.cols, static_cast<int>(pixels.step[0]), pixels.rows, format,
                     &content, &size, subsampling, best_quality, is_progressive ? TJFLAG_PROGRESSIVE : 0) == 0,
         "JPEG");
  Bytes bytes;
  append(bytes, content, size);
  tjFree(content);
  return bytes;
}

Bytes with_jpeg_segment(const Bytes& file, std::uint8_t marker, const Octets& content) {
  const std::size_t length = content.size() + 2;
  Octets segment{0xff, marker, static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length)};
  segment.insert(segment.end(), content.begin(), content.end());
  Bytes bytes(file.begin(), file.begin() + 2);
  append(bytes, segment.data(), segment.size());
  bytes.insert(bytes.end(), file.begin() + 2, file.end());
  return bytes;
}

Bytes without_jpeg_segment(const Bytes& file, std::uint8_t marker) {
  const auto at = [&](std::size_t i) { return std::to_integer<std::size_t>(file.at(i)); };
  for (std::size_t i = 2;; i += 2 + (at(i + 2) << 8 | at(i + 3))) {
    expect(at(i) == 0xff, "a JPEG without the segment");
    if (at(i + 1) != marker) continue;
    Bytes bytes = file;
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(i);
    bytes.erase(begin, begin + static_cast<std::ptrdiff_t>(2 + (at(i + 2) << 8 | at(i + 3))));
    return bytes;
  }
}

// TIFF

namespace {

struct MemoryFile {
  Bytes bytes;
  std::size_t position = 0;
};

TIFF* open_for_writing(MemoryFile& file, const std::string& mode) {
  const auto of = [](thandle_t handle) { return static_cast<MemoryFile*>(handle); };
  static const auto file_of = of;
  return TIFFClientOpen(
      "test", mode.c_str(), &file,
      [](thandle_t handle, void* to, tmsize_t size) -> tmsize_t {
        MemoryFile& f = *file_of(handle);
        const std::size_t n = std::min(static_cast<std::size_t>(size), f.bytes.size() - f.position);
        std::memcpy(to, f.bytes.data() + f.position, n);
        f.position += n;
        return static_cast<tmsize_t>(n);
      },
      [](thandle_t handle, void* from, tmsize_t size) -> tmsize_t {
        MemoryFile& f = *file_of(handle);
        f.bytes.resize(std::max(f.bytes.size(), f.position + static_cast<std::size_t>(size)));
        std::memcpy(f.bytes.data() + f.position, from, static_cast<std::size_t>(size));
        f.position += static_cast<std::size_t>(size);
        return size;
      },
      [](thandle_t handle, toff_t offset, int whence) -> toff_t {
        MemoryFile& f = *file_of(handle);
        f.position = (whence == SEEK_CUR ? f.position : whence == SEEK_END ? f.bytes.size() : 0) + offset;
        return f.position;
      },
      [](thandle_t) { return 0; }, [](thandle_t handle) -> toff_t { return file_of(handle)->bytes.size(); },
      [](thandle_t, void**, toff_t*) { return 0; }, [](thandle_t, void*, toff_t) {});
}

void write_tiles(TIFF* writer, const TiffPage& page) {
  const std::size_t samples = page.is_planar ? 1 : static_cast<std::size_t>(page.samples);
  const std::size_t pixel_bytes = samples * static_cast<std::size_t>(page.bits) / 8;
  const auto side = static_cast<std::uint32_t>(page.tile);
  const std::size_t plane_bytes = std::size_t{page.height} * page.width * pixel_bytes;
  for (int plane = 0; plane < (page.is_planar ? page.samples : 1); ++plane) {
    for (std::uint32_t y0 = 0; y0 < page.height; y0 += side) {
      for (std::uint32_t x0 = 0; x0 < page.width; x0 += side) {
        Octets tile(std::size_t{side} * side * pixel_bytes, 0xee);  // what lies outside must not matter
        for (std::uint32_t y = y0; y < std::min(page.height, y0 + side); ++y) {
          const std::uint32_t columns = std::min(side, page.width - x0);
          std::memcpy(tile.data() + (y - y0) * side * pixel_bytes,
                      page.pixels.data() + static_cast<std::size_t>(plane) * plane_bytes +
                          (std::size_t{y} * page.width + x0) * pixel_bytes,
                      columns * pixel_bytes);
        }
        expect(TIFFWriteTile(writer, tile.data(), x0, y0, 0, static_cast<std::uint16_t>(plane)) >= 0, "tile");
      }
    }
  }
}

void write_strips(TIFF* writer, const TiffPage& page) {
  const std::size_t row_bytes = static_cast<std::size_t>(TIFFScanlineSize(writer));
  Octets pixels = page.pixels;
  std::uint8_t* row = pixels.data();
  for (int plane = 0; plane < (page.is_planar ? page.samples : 1); ++plane) {
    for (std::uint32_t y = 0; y < page.height; ++y, row += row_bytes) {
      expect(row + row_bytes <= pixels.data() + pixels.size(), "too few pixels");
      expect(TIFFWriteScanline(writer, row, y, static_cast<std::uint16_t>(plane)) == 1, "row");
    }
  }
}

}  // namespace

Bytes tiff(const std::vector<TiffPage>& pages, const std::string& mode) {
  // One of the compressions has an old number, about which libtiff would warn on the standard error stream.
  const TIFFErrorHandler loud = TIFFSetWarningHandler(nullptr);
  MemoryFile file;
  TIFF* writer = open_for_writing(file, mode);
  expect(writer != nullptr, "TIFF");
  for (const TiffPage& page : pages) {
    TIFFSetField(writer, TIFFTAG_IMAGEWIDTH, page.width);
    TIFFSetField(writer, TIFFTAG_IMAGELENGTH, page.height);
    TIFFSetField(writer, TIFFTAG_BITSPERSAMPLE, page.bits);
    TIFFSetField(writer, TIFFTAG_SAMPLESPERPIXEL, page.samples);
    TIFFSetField(writer, TIFFTAG_SAMPLEFORMAT, page.sample_format);
    TIFFSetField(writer, TIFFTAG_COMPRESSION, page.compression);
    TIFFSetField(writer, TIFFTAG_PHOTOMETRIC, page.photometric);
    TIFFSetField(writer, TIFFTAG_PLANARCONFIG, page.is_planar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    TIFFSetField(writer, TIFFTAG_ORIENTATION, page.orientation);
    TIFFSetField(writer, TIFFTAG_FILLORDER, page.fill_order);
    if (page.predictor != 1) TIFFSetField(writer, TIFFTAG_PREDICTOR, page.predictor);
    if (page.compression == COMPRESSION_JPEG) TIFFSetField(writer, TIFFTAG_JPEGQUALITY, 100);
    if (page.photometric == PHOTOMETRIC_YCBCR) {
      TIFFSetField(writer, TIFFTAG_YCBCRSUBSAMPLING, page.subsampling[0], page.subsampling[1]);
    }
    if (page.is_upsampled_ycbcr) TIFFSetField(writer, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    if (!page.extra_samples.empty()) {
      TIFFSetField(writer, TIFFTAG_EXTRASAMPLES, static_cast<int>(page.extra_samples.size()),
                   page.extra_samples.data());
    }
    if (!page.palette.empty()) {
      std::array<std::vector<std::uint16_t>, 3> maps;
      for (std::size_t c = 0; c < 3; ++c) {
        for (const auto& entry : page.palette) maps[c].push_back(entry[c]);
        maps[c].resize(std::size_t{1} << page.bits);
      }
      TIFFSetField(writer, TIFFTAG_COLORMAP, maps[0].data(), maps[1].data(), maps[2].data());
    }
    if (page.tile > 0) {
      TIFFSetField(writer, TIFFTAG_TILEWIDTH, page.tile);
      TIFFSetField(writer, TIFFTAG_TILELENGTH, page.tile);
      write_tiles(writer, page);
    } else {
      if (page.rows_per_strip > 0) TIFFSetField(writer, TIFFTAG_ROWSPERSTRIP, page.rows_per_strip);
      write_strips(writer, page);
    }
    expect(TIFFWriteDirectory(writer) == 1, "directory");
  }
  TIFFClose(writer);
  TIFFSetWarningHandler(loud);
  return file.bytes;
}

// GIF

Bytes gif(const GifPicture& picture) {
  const auto color_map = [](const std::vector<Colour>& palette) -> ColorMapObject* {
    if (palette.empty()) return nullptr;
    std::vector<GifColorType> colours;
    for (const Colour& rgb : palette) colours.push_back({rgb[0], rgb[1], rgb[2]});
    ColorMapObject* map = GifMakeMapObject(static_cast<int>(colours.size()), colours.data());
    expect(map != nullptr, "a GIF's palette");
    return map;
  };
  Bytes bytes;
  int error = 0;
  GifFileType* writer = EGifOpen(
      &bytes,
      [](GifFileType* file, const GifByteType* from, int size) {
        append(*static_cast<Bytes*>(file->UserData), from, static_cast<std::size_t>(size));
        return size;
      },
      &error);
  expect(writer != nullptr, "GIF");
  EGifSetGifVersion(writer, true);
  constexpr int eight_bits = 8;
  ColorMapObject* screen_map = color_map(picture.palette);
  expect(EGifPutScreenDesc(writer, picture.width, picture.height, eight_bits, picture.background, screen_map) == GIF_OK,
         "screen");
  GifFreeMapObject(screen_map);
  for (const GifFrame& frame : picture.frames) {
    GraphicsControlBlock control{DISPOSE_DO_NOT, false, 0, frame.transparent};
    std::array<GifByteType, 4> extension{};
    EGifGCBToExtension(&control, extension.data());
    expect(EGifPutExtension(writer, GRAPHICS_EXT_FUNC_CODE, 4, extension.data()) == GIF_OK, "extension");
    ColorMapObject* map = color_map(frame.palette);
    expect(
        EGifPutImageDesc(writer, frame.left, frame.top, frame.width, frame.height, frame.is_interlaced, map) == GIF_OK,
        "frame");
    GifFreeMapObject(map);
    std::vector<int> order;
    if (frame.is_interlaced) {
      for (const auto& [first, step] : {std::pair(0, 8), std::pair(4, 8), std::pair(2, 4), std::pair(1, 2)}) {
        for (int y = first; y < frame.height; y += step) order.push_back(y);
      }
    } else {
      for (int y = 0; y < frame.height; ++y) order.push_back(y);
    }
    Octets indices = frame.indices;
    for (const int y : order) {
      expect(EGifPutLine(writer, indices.data() + y * frame.width, frame.width) == GIF_OK, "line");
    }
  }
  expect(EGifCloseFile(writer, &error) == GIF_OK, "end");
  return bytes;
}

// BMP

Bytes bmp(const BmpPicture& picture) {
  Octets header;
  const auto put = [&](std::uint32_t value, int size) {
    const Octets octets = little_endian(value, size);
    header.insert(header.end(), octets.begin(), octets.end());
  };
  if (picture.is_core) {
    put(12, 4);
    put(static_cast<std::uint32_t>(picture.width), 2);
    put(static_cast<std::uint32_t>(picture.height), 2);
    put(1, 2);
    put(static_cast<std::uint32_t>(picture.bits), 2);
  } else {
    put(40, 4);
    put(static_cast<std::uint32_t>(picture.width), 4);
    put(static_cast<std::uint32_t>(picture.height), 4);
    put(1, 2);
    put(static_cast<std::uint32_t>(picture.bits), 2);
    put(picture.compression, 4);
    put(0, 4);
    put(0, 4);
    put(0, 4);
    put(static_cast<std::uint32_t>(picture.palette.size()), 4);
    put(0, 4);
    for (const std::uint32_t mask : picture.masks) put(mask, 4);
  }
  for (const Colour& rgb : picture.palette) {
    header.insert(header.end(), {rgb[2], rgb[1], rgb[0]});
    if (!picture.is_core) header.push_back(0);
  }
  Octets file{'B', 'M'};
  const auto begin = static_cast<std::uint32_t>(14 + header.size());
  for (const std::uint32_t value : {static_cast<std::uint32_t>(begin + picture.pixels.size()), 0u, begin}) {
    const Octets octets = little_endian(value, 4);
    file.insert(file.end(), octets.begin(), octets.end());
  }
  file.insert(file.end(), header.begin(), header.end());
  file.insert(file.end(), picture.pixels.begin(), picture.pixels.end());
  return bytes_of(file);
}

const std::map<std::string, Bytes>& sample_files() {
  static const std::map<std::string, Bytes> all = [] {
    constexpr int side = 24;
    const auto octets = [](const model::Image& image) {
      const cv::Mat& pixels = image.read_only();
      return Octets(pixels.ptr(), pixels.ptr() + image.bytes());
    };
    const model::Image grey = random_image(side, side, CV_8UC1, 1);
    const model::Image grey16 = random_image(side, side, CV_16UC1, 2);
    const model::Image rgb = random_image(side, side, CV_8UC3, 3);
    const model::Image numbers = random_image(side, side, CV_32FC1, 4);
    std::vector<Colour> palette;
    Octets indices;
    for (int i = 0; i < 16; ++i)
      palette.push_back({static_cast<std::uint8_t>(16 * i), static_cast<std::uint8_t>(i), 7});
    for (int i = 0; i < side * side; ++i) indices.push_back(static_cast<std::uint8_t>(i * i % 16));
    std::vector<Octets> rgb_rows;
    for (int y = 0; y < side; ++y)
      rgb_rows.emplace_back(rgb.row<std::uint8_t>(y).begin(), rgb.row<std::uint8_t>(y).end());
    const TiffPage tiff_rgb{
        .width = side, .height = side, .samples = 3, .photometric = PHOTOMETRIC_RGB, .pixels = octets(rgb)};
    const auto tiff_with = [&](int compression) {
      TiffPage page = tiff_rgb;
      page.compression = compression;
      page.rows_per_strip = 8;
      return tiff({page});
    };
    TiffPage tiled = tiff_rgb;
    tiled.tile = 16;
    tiled.compression = COMPRESSION_LZW;
    tiled.predictor = PREDICTOR_HORIZONTAL;
    TiffPage fax{
        .width = side, .height = side, .bits = 1, .photometric = PHOTOMETRIC_MINISWHITE, .pixels = octets(grey)};
    fax.compression = COMPRESSION_CCITTFAX4;
    const TiffPage indexed{.width = side,
                           .height = side,
                           .photometric = PHOTOMETRIC_PALETTE,
                           .pixels = indices,
                           .compression = COMPRESSION_ADOBE_DEFLATE,
                           .palette = {{0, 0, 0}, {65535, 0, 0}, {0, 65535, 0}}};
    TiffPage ycbcr = tiff_rgb;
    ycbcr.photometric = PHOTOMETRIC_YCBCR;
    ycbcr.compression = COMPRESSION_JPEG;
    ycbcr.is_upsampled_ycbcr = true;
    ycbcr.subsampling = {2, 2};
    ycbcr.rows_per_strip = 16;
    return std::map<std::string, Bytes>{
        {"grey.png", model::encode_png(grey)},
        {"grey16.png", model::encode_png(grey16)},
        {"rgb.png", model::encode_png(rgb)},
        {"interlaced.png",
         png({.width = side, .height = side, .color_type = 2, .rows = rgb_rows, .is_interlaced = true})},
        {"grey.jpg", jpeg(grey.read_only(), TJSAMP_GRAY)},
        {"rgb.jpg", with_jpeg_segment(jpeg(rgb.read_only(), TJSAMP_420), 0xe1, exif_block(6, false))},
        {"progressive.jpg", jpeg(rgb.read_only(), TJSAMP_444, true)},
        {"plain.tif", tiff({tiff_rgb})},
        {"packbits.tif", tiff_with(COMPRESSION_PACKBITS)},
        {"deflate.tif", tiff_with(COMPRESSION_ADOBE_DEFLATE)},
        {"lzw_tiles.tif", tiff({tiled})},
        {"fax.tif", tiff({fax})},
        {"palette.tif", tiff({indexed})},
        {"jpeg.tif", tiff({ycbcr})},
        {"big_endian_big.tif", tiff({tiff_rgb}, "wb8")},
        {"float.tif", model::encode_tiff(numbers)},
        {"still.gif", gif({.width = side,
                           .height = side,
                           .palette = palette,
                           .frames = {{.width = side, .height = side, .indices = indices}}})},
        {"animated.gif", gif({.width = side,
                              .height = side,
                              .palette = palette,
                              .frames = {{.width = side, .height = side, .indices = indices, .is_interlaced = true},
                                         {.width = side, .height = side, .indices = indices}}})},
        {"rgb.bmp", bmp({.width = side, .height = side, .pixels = octets(rgb)})},
        {"palette.bmp", bmp({.width = side, .height = -side, .bits = 8, .palette = palette, .pixels = indices})},
        // Rows of one run of 24 pixels; a row's end after each; the picture's end at the end.
        {"runs.bmp", bmp({.width = side,
                          .height = side,
                          .bits = 8,
                          .compression = 1,
                          .palette = palette,
                          .pixels =
                              [] {
                                Octets runs;
                                for (int y = 0; y < side; ++y) {
                                  runs.insert(runs.end(), {side, static_cast<std::uint8_t>(y % 16), 0, 0});
                                }
                                runs.insert(runs.end(), {0, 1});
                                return runs;
                              }()})},
    };
  }();
  return all;
}

}  // namespace orvexa::test
