#include <gtest/gtest.h>

#include "model/codecs/picture_writers.h"

namespace orvexa::test {
namespace {

const std::vector<Colour> sixteen_colours = [] {
  std::vector<Colour> colours;
  for (int i = 0; i < 16; ++i) {
    colours.push_back(
        {static_cast<std::uint8_t>(i), static_cast<std::uint8_t>(100 + i), static_cast<std::uint8_t>(200 + i)});
  }
  return colours;
}();

/// Red of the pixels, which is their index with `sixteen_colours`.
Matrix reds(const model::Image& image) {
  Matrix rows;
  for (const std::vector<double>& row : matrix(image)) {
    rows.emplace_back();
    for (std::size_t i = 0; i < row.size(); i += 3) rows.back().push_back(row[i]);
  }
  return rows;
}

TEST(BmpReading, RowsComeFromTheBottomPaddedToFourBytes_BlueFirst) {
  const Octets pixels{3, 2, 1, 6,  5,  4,  0, 0,   // the lower row: (1,2,3) (4,5,6) and padding
                      9, 8, 7, 12, 11, 10, 0, 0};  // the upper row
  EXPECT_EQ(matrix(read(bmp({.width = 2, .height = 2, .pixels = pixels}))),
            (Matrix{{7, 8, 9, 10, 11, 12}, {1, 2, 3, 4, 5, 6}}));
  EXPECT_EQ(matrix(read(bmp({.width = 2, .height = -2, .pixels = pixels}))),
            (Matrix{{1, 2, 3, 4, 5, 6}, {7, 8, 9, 10, 11, 12}}));
}

TEST(BmpReading, TheLastRowMayLackItsPadding) {
  EXPECT_EQ(matrix(read(bmp({.width = 1, .height = 1, .pixels = {3, 2, 1}}))), (Matrix{{1, 2, 3}}));
  EXPECT_EQ(refusal(bmp({.width = 1, .height = 2, .pixels = {3, 2, 1, 0, 6, 5}})),
            "picture: this BMP file is cut off.");
}

TEST(BmpReading, PalettesOfOneTwoFourAndEightBits) {
  const auto file = [](int bits, const Octets& row) {
    return bmp({.width = 4, .height = 1, .bits = bits, .palette = sixteen_colours, .pixels = row});
  };
  EXPECT_EQ(reds(read(file(1, {0b01100000, 0, 0, 0}))), (Matrix{{0, 1, 1, 0}}));
  EXPECT_EQ(reds(read(file(2, {0b00011011, 0, 0, 0}))), (Matrix{{0, 1, 2, 3}}));
  EXPECT_EQ(reds(read(file(4, {0x01, 0x8f, 0, 0}))), (Matrix{{0, 1, 8, 15}}));
  EXPECT_EQ(reds(read(file(8, {15, 3, 2, 1}))), (Matrix{{15, 3, 2, 1}}));
  EXPECT_EQ(refusal(file(8, {16, 0, 0, 0})),
            "picture: this BMP file is damaged (a pixel has a colour that is not in the palette).");
}

TEST(BmpReading, AGreyPaletteGivesOneBandAndTheOldHeaderIsKnown) {
  EXPECT_EQ(matrix(read(bmp({.width = 3,
                             .height = 1,
                             .bits = 8,
                             .palette = {{50, 50, 50}, {9, 9, 9}, {1, 2, 3}},
                             .pixels = {0, 1, 0, 0},
                             .is_core = true}))),
            (Matrix{{50, 9, 50}}));
  EXPECT_EQ(matrix(read(bmp({.width = 1, .height = 1, .pixels = {3, 2, 1, 0}, .is_core = true}))), (Matrix{{1, 2, 3}}));
}

TEST(BmpReading, SixteenBitsAreFiveFiveFiveUnlessMasksSayOtherwise) {
  // 555: red 31, green 16, blue 1: 0x7e01. 16 of 31 is 131.6 of 255, 1 of 31 is 8.2.
  EXPECT_EQ(matrix(read(bmp({.height = 1, .bits = 16, .pixels = {0x01, 0x7e, 0, 0}}))), (Matrix{{255, 132, 8}}));
  // 565: red 16, green 63, blue 31: 0x87ff.
  EXPECT_EQ(matrix(read(bmp({.height = 1,
                             .bits = 16,
                             .compression = 3,
                             .masks = {0xf800, 0x07e0, 0x001f},
                             .pixels = {0xff, 0x87, 0, 0}}))),
            (Matrix{{132, 255, 255}}));
}

TEST(BmpReading, ThirtyTwoBitsDropTheirFourthByte) {
  EXPECT_EQ(matrix(read(bmp({.height = 1, .bits = 32, .pixels = {3, 2, 1, 77}}))), (Matrix{{1, 2, 3}}));
  // Red in the lowest byte, blue in the third, alpha declared.
  EXPECT_EQ(matrix(read(bmp({.height = 1,
                             .bits = 32,
                             .compression = 6,
                             .masks = {0xff, 0xff00, 0xff0000, 0xff000000},
                             .pixels = {1, 2, 3, 0}}))),
            (Matrix{{1, 2, 3}}));
}

TEST(BmpReading, FieldsOfMoreThanEightBitsAreKeptInSixteen) {
  // 10 bits each: red 1023, green 512, blue 1: 512 of 1023 is 32799.5 of 65535, hence 32800; 1 of 1023 is 64.06.
  const std::uint32_t pixel = 1023u << 20 | 512u << 10 | 1u;
  const model::Image image = read(bmp({.height = 1,
                                       .bits = 32,
                                       .compression = 3,
                                       .masks = {0x3ff00000, 0x000ffc00, 0x000003ff},
                                       .pixels = little_endian(pixel, 4)}));
  EXPECT_EQ(image.type(), model::PixelType::u16);
  EXPECT_EQ(matrix(image), (Matrix{{65535, 32800, 64}}));
}

TEST(BmpReading, MasksThatMakeNoSenseAreDamage) {
  const auto file = [](std::vector<std::uint32_t> masks) {
    return refusal(bmp({.height = 1, .bits = 32, .compression = 3, .masks = std::move(masks), .pixels = {1, 2, 3, 4}}));
  };
  EXPECT_EQ(file({0xff00ff, 0xff00, 0}),
            "picture: this BMP file is damaged (the bits of a colour do not lie together).");
  EXPECT_EQ(file({0xff, 0xff, 0xff00}), "picture: this BMP file is damaged (two colours share bits).");
}

TEST(BmpReading, RunsOfEightBits) {
  const auto file = [](const Octets& runs) {
    return bmp({.width = 4, .height = 3, .bits = 8, .compression = 1, .palette = sixteen_colours, .pixels = runs});
  };
  // From the bottom: four times 5; then 1 2 3 as they are (and a byte of padding), one 4; then two skipped, two 9.
  EXPECT_EQ(reds(read(file({4, 5, 0, 0, 0, 3, 1, 2, 3, 0, 1, 4, 0, 0, 0, 2, 2, 0, 2, 9, 0, 1}))),
            (Matrix{{0, 0, 9, 9}, {1, 2, 3, 4}, {5, 5, 5, 5}}));
  // An early end leaves the rest at the first colour.
  EXPECT_EQ(reds(read(file({2, 5, 0, 1}))), (Matrix{{0, 0, 0, 0}, {0, 0, 0, 0}, {5, 5, 0, 0}}));
  // Whole rows without the end mark.
  EXPECT_EQ(reds(read(file({4, 5, 0, 0, 4, 6, 0, 0, 4, 7}))), (Matrix{{7, 7, 7, 7}, {6, 6, 6, 6}, {5, 5, 5, 5}}));
  EXPECT_EQ(refusal(file({4, 5, 0, 0, 4, 6, 0, 0, 3, 7})), "picture: this BMP file is cut off.");
  EXPECT_EQ(refusal(file({5, 5, 0, 1})),
            "picture: this BMP file is damaged (a run goes on beyond the end of its row).");
  EXPECT_EQ(refusal(file({0, 2, 5, 0, 0, 1})),
            "picture: this BMP file is damaged (a run lies outside of the picture).");
  EXPECT_EQ(refusal(file({0, 0, 0, 0, 0, 0, 1, 5, 0, 1})),
            "picture: this BMP file is damaged (its runs go on beyond the last row).");
}

TEST(BmpReading, RunsOfFourBits) {
  const Octets runs{5, 0x12, 0,    0,              // 1 2 1 2 1
                    0, 5,    0x34, 0x56, 0x70, 0,  // 3 4 5 6 7 as they are, padded to two bytes
                    0, 1};
  EXPECT_EQ(reds(read(bmp(
                {.width = 5, .height = 2, .bits = 4, .compression = 2, .palette = sixteen_colours, .pixels = runs}))),
            (Matrix{{3, 4, 5, 6, 7}, {1, 2, 1, 2, 1}}));
}

TEST(BmpReading, KindsThatAreNotReadSaySo) {
  EXPECT_EQ(refusal(bmp({.height = 1, .compression = 4, .pixels = {0, 0, 0, 0}})),
            "picture: this BMP file is compressed in a way (number 4) that cannot be read.");
  EXPECT_EQ(refusal(bmp({.height = 1, .bits = 7, .pixels = {0, 0, 0, 0}})),
            "picture: this BMP file is damaged (7 bits a pixel do not go with its compression).");
  EXPECT_EQ(
      refusal(bytes_of({'B', 'M', ' ', 'i', 's', ' ', 'a', ' ', 't', 'e', 'x', 't', ' ', 'h', 'e', 'r', 'e', '.', '.'}))
          .substr(0, 33),
      "picture: this BMP file is damaged");
}

}  // namespace
}  // namespace orvexa::test
