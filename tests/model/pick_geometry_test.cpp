#include "orvexa/model/pick_geometry.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace orvexa::model {
namespace {

TEST(PickGeometry, TheWholeImageIsEveryPixel) {
  EXPECT_EQ(pixels_of({0.5, 0.5, 1, 1}, 61, 97), (PixelRect{0, 0, 97, 61}));
  EXPECT_EQ(pixels_of({0.5, 0.5, 1, 1}, 1, 1), (PixelRect{0, 0, 1, 1}));
}

// A user who draws from one pixel border to another gets exactly those pixels back, whichever way the desktop
// computed centre and size.
TEST(PickGeometry, EveryWholePixelRectangleOfAnImageComesBackAsItWasDrawn) {
  constexpr int width = 97;
  constexpr int height = 61;
  long rectangles = 0;
  long wrong = 0;
  for (int x0 = 0; x0 < width; ++x0) {
    for (int x1 = x0 + 1; x1 <= width; ++x1) {
      for (int y0 = 0; y0 < height; ++y0) {
        for (int y1 = y0 + 1; y1 <= height; ++y1) {
          const PickRect from_sums{(x0 + x1) / (2.0 * width), (y0 + y1) / (2.0 * height), (x1 - x0) / double(width),
                                   (y1 - y0) / double(height)};
          const double left = double(x0) / width;
          const double top = double(y0) / height;
          const double w = double(x1) / width - left;
          const double h = double(y1) / height - top;
          const PickRect from_corners{left + w / 2, top + h / 2, w, h};
          const PixelRect drawn{x0, y0, x1, y1};
          rectangles += 2;
          wrong += pixels_of(from_sums, height, width) != drawn;
          wrong += pixels_of(from_corners, height, width) != drawn;
        }
      }
    }
  }
  EXPECT_EQ(rectangles, 2L * (97 * 98 / 2) * (61 * 62 / 2));
  EXPECT_EQ(wrong, 0);
}

TEST(PickGeometry, PartsOfAPixelCountAsTheWholePixel) {
  EXPECT_EQ(pixels_of({0.5, 0.5, 0.5, 0.5}, 10, 10), (PixelRect{2, 2, 8, 8}));         // 2.5 to 7.5
  EXPECT_EQ(pixels_of({0.2, 0.2, 0.2 + 4e-6, 0.2}, 10, 10), (PixelRect{0, 1, 4, 3}));  // 0.99998 to 3.00002
  EXPECT_EQ(pixels_of({0.2, 0.2, 0.2 + 1e-9, 0.2}, 10, 10), (PixelRect{1, 1, 3, 3}));  // within the tolerance
}

TEST(PickGeometry, WhatLiesOutsideIsClipped) {
  EXPECT_EQ(pixels_of({0, 1, 1, 1}, 10, 20), (PixelRect{0, 5, 10, 10}));
  EXPECT_EQ(pixels_of({0.5, 0.5, 1e300, 1e300}, 10, 20), (PixelRect{0, 0, 20, 10}));
  EXPECT_EQ(pixels_of({0.5, 0.5, std::numeric_limits<double>::max(), 1}, 10, 20), (PixelRect{0, 0, 20, 10}));
}

TEST(PickGeometry, WhollyOutsideIsEmpty) {
  EXPECT_TRUE(pixels_of({-1, 0.5, 0.5, 0.5}, 10, 20).is_empty());
  EXPECT_TRUE(pixels_of({0.5, 2, 0.5, 0.5}, 10, 20).is_empty());
  EXPECT_TRUE(pixels_of({1e300, 0.5, 1, 1}, 10, 20).is_empty());
  EXPECT_TRUE(pixels_of({-1e300, 0.5, 1, 1}, 10, 20).is_empty());
  EXPECT_TRUE(pixels_of({1.25, 0.5, 0.5, 1}, 10, 20).is_empty());  // touches the right border from outside
}

TEST(PickGeometry, ARectangleWithoutSizeOnAPixelBorderIsEmpty) {
  EXPECT_TRUE(pixels_of({0.5, 0.5, 0, 0}, 10, 20).is_empty());
}

TEST(PickGeometry, NumbersThatAreNotFiniteOrNegativeSizesAreRefused) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_THROW(static_cast<void>(pixels_of({nan, 0.5, 1, 1}, 10, 20)), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(pixels_of({0.5, infinity, 1, 1}, 10, 20)), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(pixels_of({0.5, 0.5, -infinity, 1}, 10, 20)), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(pixels_of({0.5, 0.5, 1, nan}, 10, 20)), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(pixels_of({0.5, 0.5, -0.1, 1}, 10, 20)), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(pixels_of({0.5, 0.5, 1, -1e-9}, 10, 20)), std::invalid_argument);
}

// Columns are 0.05 wide, rows 0.1 high: 0.29 lies in column 5.8, on the border 0.3 begins column 6.
TEST(PickGeometry, APointLiesInThePixelThatItIsIn) {
  EXPECT_EQ(pixel_of({0, 0}, 10, 20), (PixelPoint{0, 0}));
  EXPECT_EQ(pixel_of({0.29, 0.29}, 10, 20), (PixelPoint{5, 2}));
  EXPECT_EQ(pixel_of({0.3, 0.3}, 10, 20), (PixelPoint{6, 3})) << "0.3 * 10 is a rounding below 3";
  EXPECT_EQ(pixel_of({1, 1}, 10, 20), (PixelPoint{19, 9}));
  EXPECT_EQ(pixel_of({0.5, 0.5}, 1, 1), (PixelPoint{0, 0}));
}

TEST(PickGeometry, APointOutsideTheImageIsRefused) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(static_cast<void>(pixel_of({-1e-9, 0.5}, 10, 20)), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(pixel_of({0.5, 1.0000001}, 10, 20)), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(pixel_of({nan, 0.5}, 10, 20)), std::invalid_argument);
}

}  // namespace
}  // namespace orvexa::model
