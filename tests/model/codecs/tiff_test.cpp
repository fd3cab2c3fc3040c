#include <gtest/gtest.h>
#include <tiffio.h>

#include <cstring>
#include <limits>

#include "model/codecs/picture_writers.h"
#include "support/captures.h"

namespace orvexa::test {
namespace {

using model::encode_tiff;
using model::PixelType;

template <typename T>
Octets octets(const std::vector<T>& values) {
  Octets bytes(values.size() * sizeof(T));
  std::memcpy(bytes.data(), values.data(), bytes.size());
  return bytes;
}

Octets octets(const model::Image& image) {
  const auto* begin = image.read_only().ptr();
  return {begin, begin + image.bytes()};
}

struct Size {
  int height;
  int width;
};

TEST(TiffWriting, WhatIsWrittenIsReadBackToTheBit) {
  unsigned seed = 0;
  for (const int type : {CV_8UC1, CV_8UC3, CV_16UC1, CV_16UC3, CV_32FC1, CV_32FC3}) {
    for (const Size& size : {Size{1, 1}, Size{1, 29}, Size{31, 1}, Size{17, 3}, Size{300, 700}}) {
      SCOPED_TRACE(testing::Message() << "type " << type << ", " << size.height << " x " << size.width);
      const model::Image image = random_image(size.height, size.width, type, ++seed);
      const Bytes file = encode_tiff(image);
      EXPECT_EQ(read(file), image);
      EXPECT_EQ(encode_tiff(image), file) << "not the same every time";
    }
  }
}

TEST(TiffWriting, NumbersThatAreNoneAreKept) {
  constexpr float infinite = std::numeric_limits<float>::infinity();
  const model::Image image =
      orvexa::test::image<float>({{std::numeric_limits<float>::quiet_NaN(), infinite, -infinite, -0.0F, 1e-40F}});
  EXPECT_EQ(read(encode_tiff(image)), image);
}

TEST(TiffReading, EveryLayoutAndCompressionGivesTheSamePixels) {
  for (const int type : {CV_8UC1, CV_8UC3, CV_16UC3, CV_32FC1}) {
    const model::Image image = random_image(37, 53, type, 11);
    TiffPage page{.width = 53,
                  .height = 37,
                  .bits = static_cast<int>(8 * image.read_only().elemSize1()),
                  .samples = image.channels(),
                  .photometric = image.is_color() ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK,
                  .pixels = octets(image),
                  .sample_format = image.type() == PixelType::f32 ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT};
    for (const int compression : {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_DEFLATE,
                                  COMPRESSION_PACKBITS, COMPRESSION_ZSTD, COMPRESSION_LZMA}) {
      for (const int tile : {0, 16, 64}) {
        for (const char* mode : {"wl", "wb", "wl8", "wb8"}) {
          SCOPED_TRACE(testing::Message() << type << " compression " << compression << " tile " << tile << " " << mode);
          page.compression = compression;
          page.tile = tile;
          page.rows_per_strip = compression == COMPRESSION_LZW ? 5 : 0;
          EXPECT_EQ(read(tiff({page}, mode)), image);
        }
      }
    }
  }
}

TEST(TiffReading, PredictorsAreUndone) {
  for (const int type : {CV_8UC3, CV_16UC1, CV_32FC1}) {
    const model::Image image = random_image(9, 21, type, 3);
    const bool is_float = image.type() == PixelType::f32;
    const TiffPage page{.width = 21,
                        .height = 9,
                        .bits = static_cast<int>(8 * image.read_only().elemSize1()),
                        .samples = image.channels(),
                        .photometric = image.is_color() ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK,
                        .pixels = octets(image),
                        .sample_format = is_float ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT,
                        .compression = COMPRESSION_LZW,
                        .predictor = is_float ? PREDICTOR_FLOATINGPOINT : PREDICTOR_HORIZONTAL};
    SCOPED_TRACE(type);
    EXPECT_EQ(read(tiff({page}, "wl")), image);
    // The predictor of floats stores their bytes in a fixed order, which libtiff's writer of big-endian files turns
    // round.
    if (!is_float) {
      EXPECT_EQ(read(tiff({page}, "wb")), image);
    }
  }
}

TEST(TiffReading, PlanesAreBroughtTogether) {
  // Two by two: red 1 2 3 4, green 11 12 13 14, blue 21 22 23 24.
  TiffPage page{.width = 2,
                .height = 2,
                .samples = 3,
                .photometric = PHOTOMETRIC_RGB,
                .pixels = {1, 2, 3, 4, 11, 12, 13, 14, 21, 22, 23, 24},
                .is_planar = true};
  const Matrix expected{{1, 11, 21, 2, 12, 22}, {3, 13, 23, 4, 14, 24}};
  EXPECT_EQ(matrix(read(tiff({page}))), expected);
  page.tile = 16;
  page.compression = COMPRESSION_LZW;
  EXPECT_EQ(matrix(read(tiff({page}))), expected);
}

TEST(TiffReading, NarrowSamplesAreWidenedToTheWholeRange) {
  const auto read_row = [](int bits, std::uint32_t width, const Octets& row) {
    return matrix(read(tiff({{.width = width, .bits = bits, .pixels = row}})));
  };
  EXPECT_EQ(read_row(1, 4, {0b01100000}), (Matrix{{0, 255, 255, 0}}));
  EXPECT_EQ(read_row(2, 4, {0b00011011}), (Matrix{{0, 85, 170, 255}}));
  EXPECT_EQ(read_row(4, 4, {0x01, 0x8f}), (Matrix{{0, 17, 136, 255}}));
  // 12 bits over 16: 4095 is all, 2048 * 65535 / 4095 = 32775.5, 1 is 16.004.
  const model::Image deep = read(tiff({{.width = 3, .bits = 12, .pixels = {0xff, 0xf8, 0x00, 0x00, 0x10}}}));
  EXPECT_EQ(deep.type(), PixelType::u16);
  EXPECT_EQ(matrix(deep), (Matrix{{65535, 32776, 16}}));
}

TEST(TiffReading, WhereZeroIsWhiteItIsTurnedRound) {
  const auto page = [](int bits, Octets row) {
    return TiffPage{.width = 2, .bits = bits, .photometric = PHOTOMETRIC_MINISWHITE, .pixels = std::move(row)};
  };
  EXPECT_EQ(matrix(read(tiff({page(8, {0, 250})}))), (Matrix{{255, 5}}));
  EXPECT_EQ(matrix(read(tiff({page(16, octets<std::uint16_t>({0, 65000}))}))), (Matrix{{65535, 535}}));
  EXPECT_EQ(matrix(read(tiff({page(1, {0b01000000})}))), (Matrix{{255, 0}}));
}

TEST(TiffReading, FaxPagesOfBothFillOrders) {
  TiffPage page{.width = 16,
                .height = 2,
                .bits = 1,
                .photometric = PHOTOMETRIC_MINISWHITE,
                .pixels = {0b11110000, 0b00001111, 0b00000000, 0b11000011},
                .compression = COMPRESSION_CCITTFAX4};
  const Matrix expected{{0, 0, 0, 0, 255, 255, 255, 255, 255, 255, 255, 255, 0, 0, 0, 0},
                        {255, 255, 255, 255, 255, 255, 255, 255, 0, 0, 255, 255, 255, 255, 0, 0}};
  EXPECT_EQ(matrix(read(tiff({page}))), expected);
  page.fill_order = FILLORDER_LSB2MSB;
  EXPECT_EQ(matrix(read(tiff({page}))), expected);
}

TEST(TiffReading, OtherFloatsBecomeThirtyTwoBits) {
  const auto page = [](int bits, Octets row) {
    return TiffPage{.width = 4, .bits = bits, .pixels = std::move(row), .sample_format = SAMPLEFORMAT_IEEEFP};
  };
  const model::Image doubles = read(tiff({page(64, octets<double>({0.5, -2.25, 1e300, 0.1}))}));
  EXPECT_EQ(doubles.type(), PixelType::f32);
  EXPECT_EQ(matrix(doubles), (Matrix{{0.5, -2.25, std::numeric_limits<double>::infinity(), double(0.1F)}}));
  // IEEE 754 half precision: 1.5; -2; the smallest, 2^-24; the largest, 65504.
  EXPECT_EQ(matrix(read(tiff({page(16, octets<std::uint16_t>({0x3e00, 0xc000, 0x0001, 0x7bff}))}, "wb"))),
            (Matrix{{1.5, -2, 1.0 / 16777216, 65504}}));
  const model::Image special = read(tiff({page(16, octets<std::uint16_t>({0x7c00, 0xfc00, 0x7e00, 0x8000}))}));
  EXPECT_EQ(special.row<float>(0)[0], std::numeric_limits<float>::infinity());
  EXPECT_EQ(special.row<float>(0)[1], -std::numeric_limits<float>::infinity());
  EXPECT_TRUE(std::isnan(special.row<float>(0)[2]));
  EXPECT_EQ(special.row<float>(0)[3], 0.0F);
}

TEST(TiffReading, SignedAndWideIntegersBecomeFloatWhereNothingIsLost) {
  EXPECT_EQ(matrix(read(tiff({{.width = 2, .pixels = {0x80, 0x7f}, .sample_format = SAMPLEFORMAT_INT}}))),
            (Matrix{{-128, 127}}));
  EXPECT_EQ(
      matrix(read(tiff(
          {{.width = 2, .bits = 16, .pixels = octets<std::int16_t>({-32768, 9}), .sample_format = SAMPLEFORMAT_INT}}))),
      (Matrix{{-32768, 9}}));
  EXPECT_EQ(matrix(read(tiff({{.width = 2, .bits = 32, .pixels = octets<std::uint32_t>({16777216, 4294967040u})}}))),
            (Matrix{{16777216, 4294967040.0}}));
  const std::string lossy =
      "picture: this TIFF file holds 32-bit integers so large that they would lose digits. Save it as 8-bit, 16-bit or "
      "32-bit float.";
  EXPECT_EQ(refusal(tiff({{.bits = 32, .pixels = octets<std::uint32_t>({16777217})}})), lossy);
  EXPECT_EQ(
      refusal(tiff({{.bits = 32, .pixels = octets<std::int32_t>({-16777217}), .sample_format = SAMPLEFORMAT_INT}})),
      lossy);
}

TEST(TiffReading, ComplexNumbersAreRefused) {
  EXPECT_EQ(refusal(tiff({{.bits = 64, .pixels = octets<float>({1, 2}), .sample_format = SAMPLEFORMAT_COMPLEXIEEEFP}})),
            "picture: this TIFF file holds 64-bit complex numbers; 8-bit and 16-bit unsigned and floating point can be "
            "read. Save it as one of these.");
}

TEST(TiffReading, PalettesAreExpanded) {
  const TiffPage page{.width = 3,
                      .photometric = PHOTOMETRIC_PALETTE,
                      .pixels = {2, 0, 1},
                      .palette = {{0x1234, 0, 0xffff}, {0x0100, 0x0200, 0x0300}, {0, 0xff00, 0}}};
  EXPECT_EQ(matrix(read(tiff({page}))), (Matrix{{0, 255, 0, 0x12, 0, 255, 1, 2, 3}}));
  const TiffPage four_bits{
      .width = 3, .bits = 4, .photometric = PHOTOMETRIC_PALETTE, .pixels = {0x20, 0x10}, .palette = page.palette};
  EXPECT_EQ(matrix(read(tiff({four_bits}))), (Matrix{{0, 255, 0, 0x12, 0, 255, 1, 2, 3}}));
}

TEST(TiffReading, PalettesOfEightBitNumbersAreNotDarkened) {
  EXPECT_EQ(matrix(read(tiff({{.width = 2,
                               .photometric = PHOTOMETRIC_PALETTE,
                               .pixels = {1, 0},
                               .palette = {{1, 2, 3}, {250, 251, 252}}}}))),
            (Matrix{{250, 251, 252, 1, 2, 3}}));
}

TEST(TiffReading, APaletteWhoseUsedColoursAreGreyGivesOneBand) {
  EXPECT_EQ(matrix(read(tiff({{.width = 2,
                               .photometric = PHOTOMETRIC_PALETTE,
                               .pixels = {2, 0},
                               .palette = {{0x1010, 0x1010, 0x1010}, {0xff00, 0, 0}, {0x8080, 0x8080, 0x8080}}}}))),
            (Matrix{{0x80, 0x10}}));
}

TEST(TiffReading, AlphaIsDropped) {
  EXPECT_EQ(matrix(read(tiff({{.width = 2,
                               .samples = 4,
                               .photometric = PHOTOMETRIC_RGB,
                               .pixels = {10, 20, 30, 0, 40, 50, 60, 128},
                               .extra_samples = {EXTRASAMPLE_UNASSALPHA}}}))),
            (Matrix{{10, 20, 30, 40, 50, 60}}));
  EXPECT_EQ(matrix(read(tiff({{.width = 2,
                               .bits = 16,
                               .samples = 2,
                               .pixels = octets<std::uint16_t>({1000, 0, 2000, 65535}),
                               .extra_samples = {EXTRASAMPLE_UNASSALPHA}}}))),
            (Matrix{{1000, 2000}}));
}

TEST(TiffReading, ColoursThatWereMultipliedByAlphaGetTheirOwnValuesBack) {
  // Alpha 128 of 255: 64 was 64 * 255 / 128 = 127.5, rounded up; 128 was 255. Alpha 0: nothing is known, 0.
  EXPECT_EQ(matrix(read(tiff({{.width = 2,
                               .samples = 4,
                               .photometric = PHOTOMETRIC_RGB,
                               .pixels = {64, 128, 0, 128, 0, 0, 0, 0},
                               .extra_samples = {EXTRASAMPLE_ASSOCALPHA}}}))),
            (Matrix{{128, 255, 0, 0, 0, 0}}));
  EXPECT_EQ(matrix(read(tiff({{.width = 1,
                               .bits = 32,
                               .samples = 2,
                               .pixels = octets<float>({0.25F, 0.5F}),
                               .sample_format = SAMPLEFORMAT_IEEEFP,
                               .extra_samples = {EXTRASAMPLE_ASSOCALPHA}}}))),
            (Matrix{{0.5}}));
}

TEST(TiffReading, BandsThatAreNoPictureAreRefusedWithAWayOut) {
  const std::string rest =
      " bands; a picture has one, or three for red, green and blue. Save each band as a file or page of its own and "
      "name them in a capture header.";
  EXPECT_EQ(refusal(tiff({{.samples = 4,
                           .photometric = PHOTOMETRIC_RGB,
                           .pixels = {1, 2, 3, 4},
                           .extra_samples = {EXTRASAMPLE_UNSPECIFIED}}})),
            "picture: this TIFF file holds 4" + rest);
  EXPECT_EQ(refusal(tiff({{.samples = 6, .pixels = {1, 2, 3, 4, 5, 6}}})), "picture: this TIFF file holds 6" + rest);
}

TEST(TiffReading, InkBecomesLight) {
  // C 55, K 127: 200 * 128 / 255 = 100.4. No ink: 255. All black: 0. M 255: green 0.
  EXPECT_EQ(matrix(read(tiff({{.width = 4,
                               .samples = 4,
                               .photometric = PHOTOMETRIC_SEPARATED,
                               .pixels = {55, 55, 55, 127, 0, 0, 0, 0, 0, 0, 0, 255, 0, 255, 0, 0}}}))),
            (Matrix{{100, 100, 100, 255, 255, 255, 0, 0, 0, 255, 0, 255}}));
  // 16-bit: C 32768: 65535 - 32768 = 32767 of red left.
  EXPECT_EQ(matrix(read(tiff({{.bits = 16,
                               .samples = 4,
                               .photometric = PHOTOMETRIC_SEPARATED,
                               .pixels = octets<std::uint16_t>({32768, 0, 65535, 0})}}))),
            (Matrix{{32767, 65535, 0}}));
}

TEST(TiffReading, JpegInsideBecomesRgb) {
  Octets pixels;
  for (int i = 0; i < 32 * 32; ++i) pixels.insert(pixels.end(), {200, 30, 40});
  TiffPage page{.width = 32,
                .height = 32,
                .samples = 3,
                .photometric = PHOTOMETRIC_YCBCR,
                .pixels = pixels,
                .compression = COMPRESSION_JPEG,
                .rows_per_strip = 16,
                .is_upsampled_ycbcr = true,
                .subsampling = {2, 2}};
  for (const int tile : {0, 16}) {
    page.tile = tile;
    const model::Image image = read(tiff({page}));
    EXPECT_EQ(image.shape(), (model::Shape{32, 32}));
    for (const std::vector<double>& row : matrix(image)) {
      for (std::size_t i = 0; i < row.size(); i += 3) {
        EXPECT_NEAR(row[i], 200, 2);
        EXPECT_NEAR(row[i + 1], 30, 2);
        EXPECT_NEAR(row[i + 2], 40, 2);
      }
    }
  }
}

TEST(TiffReading, LumaAndChromaWithoutJpegBecomeRgb) {
  // Cb = Cr = 128 is grey: R = G = B = Y.
  EXPECT_EQ(matrix(read(tiff({{.width = 2,
                               .height = 1,
                               .samples = 3,
                               .photometric = PHOTOMETRIC_YCBCR,
                               .pixels = {10, 128, 128, 200, 128, 128}}}))),
            (Matrix{{10, 10, 10, 200, 200, 200}}));
}

TEST(TiffReading, TheOrientationTagIsHonoured) {
  for (int orientation = 1; orientation <= 8; ++orientation) {
    SCOPED_TRACE(orientation);
    EXPECT_EQ(matrix(read(tiff({{.width = 3, .height = 2, .pixels = {1, 2, 3, 4, 5, 6}, .orientation = orientation}}))),
              upright_one_to_six(orientation));
    const Octets colours{1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5, 5, 5, 6, 6, 6};
    const model::Image image = read(tiff({{.width = 3,
                                           .height = 2,
                                           .samples = 3,
                                           .photometric = PHOTOMETRIC_RGB,
                                           .pixels = colours,
                                           .orientation = orientation}}));
    cv::Mat red;
    cv::extractChannel(image.read_only(), red, 0);
    EXPECT_EQ(matrix(model::Image(red)), upright_one_to_six(orientation));
  }
}

TEST(TiffReading, EveryPageHasItsOwnTypeAndSize) {
  const Bytes file = tiff({{.width = 2, .pixels = {1, 2}},
                           {.width = 1, .height = 2, .bits = 16, .pixels = octets<std::uint16_t>({300, 400})},
                           {.samples = 3, .photometric = PHOTOMETRIC_RGB, .pixels = {5, 6, 7}},
                           {.bits = 32, .pixels = octets<float>({0.5F}), .sample_format = SAMPLEFORMAT_IEEEFP}});
  EXPECT_EQ(model::read_image(file, "picture", 2).pages, 4);
  EXPECT_EQ(matrix(read(file, 0)), (Matrix{{1, 2}}));
  EXPECT_EQ(matrix(read(file, 1)), (Matrix{{300}, {400}}));
  EXPECT_EQ(matrix(read(file, 2)), (Matrix{{5, 6, 7}}));
  EXPECT_EQ(matrix(read(file, 3)), (Matrix{{0.5}}));
  EXPECT_EQ(refusal(file, 4), "picture: there is no page 4: pages are counted from 0, and the file has 4.");
  EXPECT_EQ(refusal(file, -1), "picture: pages are counted from 0, so there is no page -1.");
  EXPECT_EQ(refusal(file, 0, {.max_pages = 3}), "picture: the file has 4 pages, more than the limit of 3.");
}

TEST(TiffReading, APageWithoutPixelsDoesNotHideTheOthers) {
  const Bytes file = tiff({{.width = 2, .pixels = {1, 2}}, {.samples = 5, .pixels = {1, 2, 3, 4, 5}}});
  EXPECT_EQ(matrix(read(file, 0)), (Matrix{{1, 2}}));
  EXPECT_NE(refusal(file, 1), "");
}

TEST(TiffReading, OfACutFileAWholePageIsReadAtMost) {
  const Bytes file = tiff({{.width = 2, .pixels = {1, 2}},
                           {.photometric = PHOTOMETRIC_PALETTE, .pixels = {0}, .palette = {{0x1010, 0x1010, 0x1010}}}});
  for (std::size_t size = 0; size < file.size(); ++size) {
    SCOPED_TRACE(size);
    const Bytes part(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_NE(refusal(part, 1), "");
    if (refusal(part, 0).empty()) {
      EXPECT_EQ(matrix(read(part, 0)), (Matrix{{1, 2}}));
    }
  }
}

}  // namespace
}  // namespace orvexa::test
