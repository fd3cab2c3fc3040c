#include "orvexa/model/pictures/shape_picture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "orvexa/model/pictures/viewing.h"
#include "support/captures.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

constexpr ShapePicture::Color green{0, 255, 0};

/// The pixels that were drawn on a black picture.
cv::Mat drawn(Shape shape, const std::function<void(ShapePicture&)>& draw) {
  ShapePicture picture(*test::blank_capture(shape), Mask::empty(shape), {});
  draw(picture);
  const ResultImage image = std::move(picture).take();
  EXPECT_EQ(image.picture.shape(), shape);
  EXPECT_EQ(image.picture.type(), PixelType::u8);
  EXPECT_FALSE(image.numbers.has_value());
  cv::Mat where;
  cv::inRange(image.picture.read_only(), cv::Scalar(0, 255, 0), cv::Scalar(0, 255, 0), where);
  return where;
}

TEST(ShapePicture, ShowsTheMaskOverTheImageAsOverlaysDo) {
  const auto capture = test::random_capture(3, 20, 30);
  const Mask mask = test::random_mask(4, 20, 30, 0.4);
  const ResultImage image = ShapePicture(*capture, mask, {}).take();
  EXPECT_EQ(image.picture, overlay_image(capture->find_image("CLR", "RGB").value(), mask));
}

TEST(ShapePicture, ALineInASmallFrameIsOnePixelWide) {
  const cv::Mat where = drawn({9, 12}, [](ShapePicture& picture) { picture.draw_line({2, 4}, {8, 4}, green); });
  EXPECT_EQ(cv::boundingRect(where), cv::Rect(2, 4, 7, 1));
  EXPECT_EQ(cv::countNonZero(where), 7);
}

// 3000 pixels wide: lines are 3 pixels wide, so the line of row 20 covers rows 19 to 21.
TEST(ShapePicture, LinesAreWiderInALargeFrame) {
  const cv::Mat where = drawn({40, 3000}, [](ShapePicture& picture) {
    picture.draw_line({100, 20}, {200, 20}, green);
  });
  EXPECT_EQ(cv::boundingRect(where), cv::Rect(99, 19, 103, 3));
  EXPECT_EQ(cv::countNonZero(where), 309);
  const cv::Mat slanted = drawn({300, 3000}, [](ShapePicture& picture) {
    picture.draw_line({100, 50}, {220, 140}, green);
  });
  for (int y = 0; y < slanted.rows; ++y) {
    for (int x = 0; x < 400; ++x) {
      // Along and beside the line, whose direction is (0.8, 0.6).
      const double along = (x - 100) * 0.8 + (y - 50) * 0.6;
      const double aside = std::abs((y - 50) * 0.8 - (x - 100) * 0.6);
      const bool is_drawn = slanted.at<std::uint8_t>(y, x) != 0;
      if (along >= 0 && along <= 150 && aside <= 1) {
        EXPECT_TRUE(is_drawn) << x << " " << y;
      }
      if (along < -2 || along > 152 || aside > 2.2) {
        EXPECT_FALSE(is_drawn) << x << " " << y;
      }
    }
  }
}

// Pixels whose centres are at most half a line's width from the circle.
TEST(ShapePicture, ACircleIsTheRingAroundItsRadius) {
  for (const int width : {200, 3000}) {
    const double half = width == 200 ? 0.5 : 1.5;
    const cv::Mat where = drawn({120, width}, [](ShapePicture& picture) {
      picture.draw_circle({60.3, 50.6}, 30.2, green);
    });
    for (int y = 0; y < where.rows; ++y) {
      for (int x = 0; x < 150; ++x) {
        const double off = std::abs(std::hypot(x - 60.3, y - 50.6) - 30.2);
        if (std::abs(off - half) < 1e-9) continue;
        EXPECT_EQ(where.at<std::uint8_t>(y, x) != 0, off < half) << x << " " << y;
      }
    }
  }
}

TEST(ShapePicture, WhatLiesOutsideTheFrameIsNotDrawn) {
  const cv::Mat where = drawn({10, 10}, [](ShapePicture& picture) {
    picture.draw_circle({4.5, 4.5}, 40, green);
    picture.draw_circle({-100, -100}, 5, green);
    picture.draw_line({-50, 3}, {60, 3}, green);
  });
  EXPECT_EQ(cv::countNonZero(where), 10);
}

}  // namespace
}  // namespace orvexa::model
