#include <gtest/gtest.h>
#include <turbojpeg.h>

#include "model/codecs/picture_writers.h"
#include "support/captures.h"

namespace orvexa::test {
namespace {

/// Cells of 16 x 16 equal pixels. At the best quality a flat cell survives JPEG exactly in grey: its only coefficient
/// is 8 (v - 128), divided by 1.
cv::Mat cells(const std::vector<std::vector<cv::Scalar>>& values, int type) {
  constexpr int side = 16;
  cv::Mat pixels(static_cast<int>(values.size()) * side, static_cast<int>(values.front().size()) * side, type);
  for (int y = 0; y < static_cast<int>(values.size()); ++y) {
    for (int x = 0; x < static_cast<int>(values.front().size()); ++x) {
      pixels(cv::Rect(x * side, y * side, side, side)) =
          values[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)];
    }
  }
  return pixels;
}

/// The middle pixel of each cell.
Matrix middles(const model::Image& image) {
  constexpr std::size_t side = 16;
  const Matrix all = matrix(image);
  const auto channels = static_cast<std::size_t>(image.channels());
  Matrix rows;
  for (std::size_t y = side / 2; y < all.size(); y += side) {
    rows.emplace_back();
    for (std::size_t x = side / 2; x < static_cast<std::size_t>(image.width()); x += side) {
      for (std::size_t c = 0; c < channels; ++c) rows.back().push_back(all[y][x * channels + c]);
    }
  }
  return rows;
}

const cv::Mat one_to_six = cells({{1, 2, 3}, {4, 5, 6}}, CV_8UC1);

TEST(JpegReading, GreyStaysOneBand) {
  const model::Image image = read(jpeg(one_to_six, TJSAMP_GRAY));
  EXPECT_EQ(image.shape(), (model::Shape{32, 48}));
  EXPECT_EQ(image.channels(), 1);
  EXPECT_EQ(middles(image), (Matrix{{1, 2, 3}, {4, 5, 6}}));
}

TEST(JpegReading, ColoursAreRed_Green_BlueWhateverTheSubsampling) {
  const cv::Mat pixels = cells({{{200, 30, 40}, {10, 220, 60}, {50, 70, 240}}}, CV_8UC3);
  for (const int subsampling : {TJSAMP_444, TJSAMP_422, TJSAMP_420, TJSAMP_440, TJSAMP_411}) {
    for (const bool is_progressive : {false, true}) {
      const Matrix found = middles(read(jpeg(pixels, subsampling, is_progressive)));
      const Matrix wanted{{200, 30, 40, 10, 220, 60, 50, 70, 240}};
      // Rounding of YCbCr and back moves a level by one or two.
      for (std::size_t i = 0; i < 9; ++i) EXPECT_NEAR(found[0][i], wanted[0][i], 2) << subsampling << " " << i;
    }
  }
}

TEST(JpegReading, TheOrientationOfExifIsHonoured) {
  for (int orientation = 1; orientation <= 8; ++orientation) {
    for (const bool is_big_endian : {true, false}) {
      SCOPED_TRACE(orientation);
      const Bytes file = with_jpeg_segment(jpeg(one_to_six, TJSAMP_GRAY), 0xe1, exif_block(orientation, is_big_endian));
      EXPECT_EQ(middles(read(file)), upright_one_to_six(orientation));
    }
  }
}

TEST(JpegReading, ABrokenExifBlockIsNoReasonToRefuseThePixels) {
  const Bytes whole = jpeg(one_to_six, TJSAMP_GRAY);
  const Matrix as_stored = upright_one_to_six(1);
  EXPECT_EQ(middles(read(with_jpeg_segment(whole, 0xe1, exif_block(9, true)))), as_stored);
  EXPECT_EQ(middles(read(with_jpeg_segment(whole, 0xe1, {'E', 'x', 'i', 'f', 0, 0}))), as_stored);
  EXPECT_EQ(middles(read(with_jpeg_segment(whole, 0xe1, {'E', 'x', 'i', 'f', 0, 0, 'M', 'M', 0, 42, 255, 255}))),
            as_stored);
}

// R = 255 (1 - C)(1 - K). Adobe's programs store 255 - C and so on, hence R = C' K' / 255. Greys, so that the way
// through YCCK is exact: C' = M' = Y' = 200, K' = 128: 200 * 128 / 255 = 100.39; 90 and 255: 90; 255 and 37: 37; 0: 0.
TEST(JpegReading, InkWithTheAdobeMarkerIsStoredInverted) {
  const cv::Mat pixels =
      cells({{{200, 200, 200, 128}, {90, 90, 90, 255}}, {{255, 255, 255, 37}, {0, 0, 0, 255}}}, CV_8UC4);
  const model::Image image = read(jpeg(pixels, TJSAMP_444));
  EXPECT_EQ(middles(image), (Matrix{{100, 100, 100, 90, 90, 90}, {37, 37, 37, 0, 0, 0}}));
}

// Without the marker four channels are plain ink. The file was made as YCCK: luma = 255 - the grey, both chromas 128,
// which are now taken for C, M, Y. First cell, 55 128 128 128: R = 200 * 127 / 255 = 99.6; G = B = 127 * 127 / 255 =
// 63.25. Second cell, 255 128 128 0: R = 0; G = B = 127.
TEST(JpegReading, InkWithoutTheAdobeMarkerIsStoredAsInk) {
  const cv::Mat pixels = cells({{{200, 200, 200, 128}, {0, 0, 0, 0}}}, CV_8UC4);
  const model::Image image = read(without_jpeg_segment(jpeg(pixels, TJSAMP_444), 0xee));
  EXPECT_EQ(middles(image), (Matrix{{100, 63, 63, 0, 127, 127}}));
}

TEST(JpegReading, AFileThatEndsInItsHeaderIsCutOff) {
  // On eight bytes the library's own look at the header reports success and no size.
  EXPECT_EQ(refusal(bytes_of({0xff, 0xd8, 0xff, 0xe0, 0x00, 0x10, 'J', 'F'})).substr(0, 32),
            "picture: this JPEG file is cut o");
}

TEST(JpegReading, AFileWithoutItsEndMarkIsCutOff) {
  Bytes file = jpeg(one_to_six, TJSAMP_GRAY);
  file.resize(file.size() - 2);
  EXPECT_EQ(refusal(file), "picture: this JPEG file is cut off (Premature end of JPEG file).");
}

}  // namespace
}  // namespace orvexa::test
