#include <gtest/gtest.h>
#include <zlib.h>

#include <random>

#include "model/codecs/picture_writers.h"
#include "support/captures.h"

namespace orvexa::test {
namespace {

using model::encode_mask_png;
using model::encode_png;

constexpr int grey = 0;
constexpr int rgb = 2;
constexpr int palette = 3;
constexpr int grey_alpha = 4;
constexpr int rgb_alpha = 6;

struct Size {
  int height;
  int width;
};
const std::vector<Size> odd_sizes{{1, 1}, {1, 29}, {31, 1}, {17, 3}, {3, 17}, {64, 100}};

TEST(PngWriting, WhatIsWrittenIsReadBackToTheBit) {
  unsigned seed = 0;
  for (const int type : {CV_8UC1, CV_8UC3, CV_16UC1, CV_16UC3}) {
    for (const Size& size : odd_sizes) {
      SCOPED_TRACE(testing::Message() << "type " << type << ", " << size.height << " x " << size.width);
      const model::Image image = random_image(size.height, size.width, type, ++seed);
      EXPECT_EQ(read(encode_png(image)), image);
    }
  }
}

TEST(PngWriting, IsTheSameFileEveryTime) {
  const model::Image image = random_image(40, 50, CV_8UC3, 1);
  EXPECT_EQ(encode_png(image), encode_png(image));
}

TEST(PngWriting, RefusesFloat) {
  EXPECT_THROW((void)encode_png(flat_image<float>(2, 2, 0.5F)), std::invalid_argument);
}

TEST(PngWriting, AMaskIsOneBitAPixelAndIsReadBack) {
  std::mt19937 random(7);
  for (int width = 1; width <= 18; ++width) {
    SCOPED_TRACE(width);
    cv::Mat pixels(5, width, CV_8UC1);
    for (int y = 0; y < pixels.rows; ++y) {
      for (int x = 0; x < width; ++x) pixels.at<std::uint8_t>(y, x) = random() % 2 == 0 ? 0 : 255;
    }
    const model::Mask mask(pixels.clone());
    const Bytes file = encode_mask_png(mask);
    constexpr std::size_t bit_depth_at = 24;  // signature 8, length 4, name 4, width 4, height 4
    EXPECT_EQ(std::to_integer<int>(file.at(bit_depth_at)), 1);
    EXPECT_EQ(std::to_integer<int>(file.at(bit_depth_at + 1)), grey);
    EXPECT_EQ(read(file), model::Image(pixels.clone()));
  }
}

TEST(PngReading, NarrowGreyIsWidenedToTheWholeRange) {
  // 1 bit: 0 1 1 0; 2 bits: 0 1 2 3; 4 bits: 0 1 8 15.
  EXPECT_EQ(matrix(read(png({.width = 4, .bits = 1, .rows = {{0b01100000}}}))), (Matrix{{0, 255, 255, 0}}));
  EXPECT_EQ(matrix(read(png({.width = 4, .bits = 2, .rows = {{0b00011011}}}))), (Matrix{{0, 85, 170, 255}}));
  EXPECT_EQ(matrix(read(png({.width = 4, .bits = 4, .rows = {{0x01, 0x8f}}}))), (Matrix{{0, 17, 136, 255}}));
}

TEST(PngReading, SixteenBitsAreKept) {
  const model::Image image = read(png({.width = 2, .bits = 16, .rows = {{0x01, 0x02, 0xff, 0xfe}}}));
  EXPECT_EQ(image.type(), model::PixelType::u16);
  EXPECT_EQ(matrix(image), (Matrix{{258, 65534}}));
}

TEST(PngReading, AlphaIsDroppedAndColoursUnderItAreKept) {
  EXPECT_EQ(matrix(read(png({.width = 2, .color_type = rgb_alpha, .rows = {{10, 20, 30, 0, 40, 50, 60, 128}}}))),
            (Matrix{{10, 20, 30, 40, 50, 60}}));
  EXPECT_EQ(matrix(read(png({.width = 2, .color_type = grey_alpha, .rows = {{10, 0, 20, 255}}}))), (Matrix{{10, 20}}));
  const model::Image deep =
      read(png({.width = 1, .bits = 16, .color_type = grey_alpha, .rows = {{0x12, 0x34, 0x00, 0x00}}}));
  EXPECT_EQ(deep.type(), model::PixelType::u16);
  EXPECT_EQ(matrix(deep), (Matrix{{0x1234}}));
  EXPECT_EQ(matrix(read(png({.width = 2, .rows = {{7, 9}}, .transparent_grey = 7}))), (Matrix{{7, 9}}));
}

TEST(PngReading, GammaIsNotApplied) {
  EXPECT_EQ(matrix(read(png({.width = 3, .rows = {{1, 100, 200}}, .gamma = 0.25}))), (Matrix{{1, 100, 200}}));
}

TEST(PngReading, APaletteIsExpanded) {
  const PngPicture picture{.width = 3,
                           .bits = 2,
                           .color_type = palette,
                           .rows = {{0b10000100}},  // 2 0 1
                           .palette = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}},
                           .palette_alpha = {0, 255, 9}};
  EXPECT_EQ(matrix(read(png(picture))), (Matrix{{7, 8, 9, 1, 2, 3, 4, 5, 6}}));
}

TEST(PngReading, APaletteWhoseUsedColoursAreGreyGivesOneBand) {
  PngPicture picture{
      .width = 3, .color_type = palette, .rows = {{0, 2, 0}}, .palette = {{5, 5, 5}, {9, 0, 0}, {200, 200, 200}}};
  EXPECT_EQ(matrix(read(png(picture))), (Matrix{{5, 200, 5}}));
  picture.rows = {{0, 1, 0}};
  EXPECT_EQ(matrix(read(png(picture))), (Matrix{{5, 5, 5, 9, 0, 0, 5, 5, 5}}));
}

TEST(PngReading, AColourThatThePaletteDoesNotHaveIsDamage) {
  // Written by hand, since libpng's writer refuses it: 1 x 1, 8-bit palette of two colours, index 2.
  const Octets scanline{0, 2};
  Octets packed(64);
  uLongf size = packed.size();
  ASSERT_EQ(compress(packed.data(), &size, scanline.data(), scanline.size()), Z_OK);
  packed.resize(size);
  Octets file{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  for (const Octets& chunk :
       {png_chunk("IHDR", {0, 0, 0, 1, 0, 0, 0, 1, 8, 3, 0, 0, 0}), png_chunk("PLTE", {1, 1, 1, 2, 2, 2}),
        png_chunk("IDAT", packed), png_chunk("IEND", {})}) {
    file.insert(file.end(), chunk.begin(), chunk.end());
  }
  EXPECT_EQ(refusal(bytes_of(file)),
            "picture: this PNG file is damaged (a pixel has a colour that is not in the palette).");
}

TEST(PngReading, AnInterlacedPictureIsTheSamePicture) {
  for (const auto& [height, width] : {std::pair(1, 1), std::pair(3, 2), std::pair(9, 11), std::pair(16, 33)}) {
    const model::Image image = random_image(height, width, CV_8UC3, 5);
    PngPicture picture{.width = width, .height = height, .color_type = rgb, .is_interlaced = true};
    for (int y = 0; y < height; ++y) {
      picture.rows.emplace_back(image.row<std::uint8_t>(y).begin(), image.row<std::uint8_t>(y).end());
    }
    EXPECT_EQ(read(png(picture)), image);
  }
}

TEST(PngReading, TheOrientationOfExifIsHonoured) {
  for (int orientation = 1; orientation <= 8; ++orientation) {
    for (const bool is_big_endian : {true, false}) {
      SCOPED_TRACE(orientation);
      const PngPicture picture{
          .width = 3, .height = 2, .rows = {{1, 2, 3}, {4, 5, 6}}, .exif = exif_block(orientation, is_big_endian)};
      EXPECT_EQ(matrix(read(png(picture))), upright_one_to_six(orientation));
    }
  }
}

TEST(PngReading, AWrongChecksumIsDamage) {
  Bytes file = png({.width = 3, .rows = {{1, 2, 3}}});
  constexpr std::size_t after_header = 33;        // signature 8, header chunk 25
  file.at(after_header + 10) ^= std::byte{0x40};  // inside the pixels' chunk
  EXPECT_TRUE(refusal(file).starts_with("picture: this PNG file is damaged (IDAT: ")) << refusal(file);
}

TEST(PngReading, AWrongSumOverAllPixelsIsDamageThoughEveryChunkIsWhole) {
  const Octets scanline{0, 77};
  Octets packed(64);
  uLongf size = packed.size();
  ASSERT_EQ(compress(packed.data(), &size, scanline.data(), scanline.size()), Z_OK);
  packed.resize(size);
  packed.back() ^= 1;  // the last byte of the stream's Adler-32
  Octets file{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  for (const Octets& chunk :
       {png_chunk("IHDR", {0, 0, 0, 1, 0, 0, 0, 1, 8, 0, 0, 0, 0}), png_chunk("IDAT", packed), png_chunk("IEND", {})}) {
    file.insert(file.end(), chunk.begin(), chunk.end());
  }
  EXPECT_EQ(refusal(bytes_of(file)), "picture: this PNG file is damaged (IDAT: incorrect data check).");
}

}  // namespace
}  // namespace orvexa::test
