#include <gtest/gtest.h>

#include "model/codecs/picture_writers.h"

namespace orvexa::test {
namespace {

const std::vector<Colour> four_colours{{10, 20, 30}, {40, 50, 60}, {70, 80, 90}, {100, 110, 120}};

TEST(GifReading, IndicesBecomeTheColoursOfThePalette) {
  const Bytes file = gif({.width = 2,
                          .height = 2,
                          .palette = four_colours,
                          .frames = {{.width = 2, .height = 2, .indices = {0, 1, 2, 3}}}});
  const model::ImageFile read = model::read_image(file, "picture");
  EXPECT_EQ(matrix(read.image), (Matrix{{10, 20, 30, 40, 50, 60}, {70, 80, 90, 100, 110, 120}}));
  EXPECT_EQ(read.pages, 1);
}

TEST(GifReading, UsedColoursThatAreAllGreyGiveOneBand) {
  const std::vector<Colour> palette{{7, 7, 7}, {1, 2, 3}, {9, 9, 9}, {1, 1, 0}};
  EXPECT_EQ(matrix(read(gif({.width = 3, .palette = palette, .frames = {{.width = 3, .indices = {2, 0, 2}}}}))),
            (Matrix{{9, 7, 9}}));
}

TEST(GifReading, TheFirstFrameLiesOnItsScreenAndTransparencyShowsTheBackground) {
  // A screen of 4 x 2 in background colour 3; a frame of 2 x 1 at (1, 1) whose first pixel is transparent. The
  // background and the frame's pixels are greys but for the last one, (1, 2, 3) of the frame's own palette.
  const std::vector<Colour> palette{{0, 0, 0}, {1, 1, 1}, {2, 2, 2}, {200, 200, 200}};
  const GifPicture picture{.width = 4,
                           .height = 2,
                           .background = 3,
                           .palette = palette,
                           .frames = {{.left = 1,
                                       .top = 1,
                                       .width = 2,
                                       .height = 1,
                                       .indices = {0, 1},
                                       .transparent = 0,
                                       .palette = {{9, 9, 9}, {1, 2, 3}}}}};
  EXPECT_EQ(matrix(read(gif(picture))), (Matrix{{200, 200, 200, 200, 200, 200, 200, 200, 200, 200, 200, 200},
                                                {200, 200, 200, 200, 200, 200, 1, 2, 3, 200, 200, 200}}));
}

TEST(GifReading, WithoutAScreenPaletteTheBackgroundIsBlack) {
  const GifPicture picture{.width = 2, .frames = {{.width = 1, .indices = {1}, .palette = {{9, 9, 9}, {77, 77, 77}}}}};
  EXPECT_EQ(matrix(read(gif(picture))), (Matrix{{77, 0}}));
}

TEST(GifReading, InterlacedRowsFindTheirPlace) {
  for (const int height : {1, 2, 3, 5, 8, 9, 21}) {
    Octets indices;
    std::vector<Colour> palette(32);
    Matrix expected;
    for (int y = 0; y < height; ++y) {
      indices.push_back(static_cast<std::uint8_t>(y));
      palette[static_cast<std::size_t>(y)] = {static_cast<std::uint8_t>(y), 100, 200};
      expected.push_back({double(y), 100, 200});
    }
    EXPECT_EQ(matrix(read(gif({.width = 1,
                               .height = height,
                               .palette = palette,
                               .frames = {{.height = height, .indices = indices, .is_interlaced = true}}}))),
              expected);
  }
}

TEST(GifReading, AnAnimationGivesItsFirstFrameAndTheNumberOfFrames) {
  const model::ImageFile read = model::read_image(
      gif({.width = 1, .palette = four_colours, .frames = {{.indices = {1}}, {.indices = {2}}, {.indices = {3}}}}),
      "picture");
  EXPECT_EQ(matrix(read.image), (Matrix{{40, 50, 60}}));
  EXPECT_EQ(read.pages, 3);
}

TEST(GifReading, MoreFramesThanTheLimitAreRefused) {
  const Bytes file =
      gif({.width = 1, .palette = four_colours, .frames = {{.indices = {1}}, {.indices = {2}}, {.indices = {3}}}});
  EXPECT_EQ(refusal(file, 0, {.max_pages = 2}), "picture: the animation has more frames than the limit of 2.");
}

TEST(GifReading, AFrameOutsideOfItsScreenIsDamage) {
  EXPECT_EQ(
      refusal(gif(
          {.width = 2, .height = 2, .palette = four_colours, .frames = {{.left = 1, .width = 2, .indices = {0, 0}}}})),
      "picture: this GIF file is damaged (its first frame lies outside of its screen).");
}

TEST(GifReading, WithoutAnyPaletteOrFrameThereIsNoPicture) {
  EXPECT_EQ(refusal(gif({.width = 2, .height = 2, .palette = four_colours})),
            "picture: this GIF file has no picture in it.");
}

}  // namespace
}  // namespace orvexa::test
