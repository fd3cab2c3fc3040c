#include "orvexa/model/image.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <utility>

#include "support/captures.h"

namespace orvexa::model {
namespace {

TEST(Image, TakesOverPixelsThatNobodyElseHolds) {
  cv::Mat pixels(3, 5, CV_16UC1, cv::Scalar(7));
  const void* data = pixels.data;
  const Image image(std::move(pixels));
  EXPECT_EQ(image.read_only().data, data);
}

TEST(Image, CopiesPixelsThatSomebodyElseStillHolds) {
  cv::Mat pixels(3, 5, CV_16UC1, cv::Scalar(7));
  const Image image(pixels);
  pixels.setTo(9);
  EXPECT_EQ(image.row<std::uint16_t>(2)[4], 7);
}

TEST(Image, CopiesPixelsOfABufferThatItCannotOwn) {
  std::uint8_t buffer[6] = {1, 2, 3, 4, 5, 6};
  const Image image(cv::Mat(2, 3, CV_8UC1, buffer));
  buffer[0] = 99;
  EXPECT_EQ(image.row<std::uint8_t>(0)[0], 1);
}

TEST(Image, APartOfALargerMatBecomesContiguous) {
  cv::Mat large(4, 4, CV_8UC1, cv::Scalar(0));
  large.at<std::uint8_t>(1, 2) = 5;
  const Image part(large(cv::Rect(1, 1, 2, 2)));
  EXPECT_TRUE(part.read_only().isContinuous());
  EXPECT_EQ(part, test::image<std::uint8_t>({{0, 5}, {0, 0}}));
}

TEST(Image, CopiesShareThePixels) {
  const Image image = test::flat_image<float>(2, 2, 0.5f);
  const Image copy = image;
  EXPECT_EQ(copy.read_only().data, image.read_only().data);
}

TEST(Image, SaysItsShapeTypeAndBytes) {
  const Image image(cv::Mat(2, 5, CV_16UC3, cv::Scalar::all(1)));
  EXPECT_EQ(image.shape(), (Shape{2, 5}));
  EXPECT_EQ(image.height(), 2);
  EXPECT_EQ(image.width(), 5);
  EXPECT_EQ(image.channels(), 3);
  EXPECT_TRUE(image.is_color());
  EXPECT_EQ(image.type(), PixelType::u16);
  EXPECT_EQ(image.bytes(), 60u);  // 2 x 5 pixels of 3 channels of 2 bytes
  EXPECT_EQ(image.row<std::uint16_t>(1).size(), 15u);
  EXPECT_EQ((Shape{100'000, 100'000}).pixels(), 10'000'000'000);
}

TEST(Image, EachTypeHasItsOwnWhite) {
  EXPECT_EQ(test::flat_image<std::uint8_t>(1, 1, 0).type_white_level(), 255.0);
  EXPECT_EQ(test::flat_image<std::uint16_t>(1, 1, 0).type_white_level(), 65535.0);
  EXPECT_EQ(test::flat_image<float>(1, 1, 0).type_white_level(), 1.0);
  EXPECT_EQ(pixel_type_text(PixelType::u8), "8-bit");
  EXPECT_EQ(pixel_type_text(PixelType::u16), "16-bit");
  EXPECT_EQ(pixel_type_text(PixelType::f32), "32-bit float");
}

TEST(Image, ReadingRowsAsAnotherTypeIsABug) {
  const Image image = test::flat_image<std::uint16_t>(1, 1, 3);
  EXPECT_THROW(static_cast<void>(image.row<std::uint8_t>(0)), std::logic_error);
  EXPECT_THROW(static_cast<void>(image.row<float>(0)), std::logic_error);
}

TEST(Image, RefusesWhatIsNotAPicture) {
  EXPECT_THROW(Image(cv::Mat()), std::invalid_argument);
  EXPECT_THROW(Image(cv::Mat(0, 5, CV_8UC1)), std::invalid_argument);
  EXPECT_THROW(Image(cv::Mat(2, 2, CV_8UC2)), std::invalid_argument);
  EXPECT_THROW(Image(cv::Mat(2, 2, CV_8UC4)), std::invalid_argument);
  EXPECT_THROW(Image(cv::Mat(2, 2, CV_32SC1)), std::invalid_argument);
  EXPECT_THROW(Image(cv::Mat(2, 2, CV_64FC1)), std::invalid_argument);
  const int sizes[] = {2, 2, 2};
  EXPECT_THROW(Image(cv::Mat(3, sizes, CV_8UC1)), std::invalid_argument);
}

TEST(Image, EqualMeansSameShapeTypeAndBits) {
  EXPECT_EQ(test::image<std::uint8_t>({{1, 2}}), test::image<std::uint8_t>({{1, 2}}));
  EXPECT_FALSE(test::image<std::uint8_t>({{1, 2}}) == test::image<std::uint8_t>({{1, 3}}));
  EXPECT_FALSE(test::image<std::uint8_t>({{1, 2}}) == test::image<std::uint8_t>({{1}, {2}}));
  EXPECT_FALSE(test::image<std::uint8_t>({{1}}) == test::image<std::uint16_t>({{1}}));
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(test::image<float>({{nan}}), test::image<float>({{nan}}));
}

}  // namespace
}  // namespace orvexa::model
