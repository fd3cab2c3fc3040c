#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <vector>

#include "orvexa/model/pictures/heat_map.h"
#include "orvexa/ui/viewer/tile_maker.h"
#include "support/captures.h"

namespace orvexa::ui::viewer {
namespace {

using test::flat_image;
using test::image;

constexpr DisplaySettings full{.range = RangeMode::full};

std::shared_ptr<const Picture> picture(const model::ImageEntry& entry, const DisplaySettings& settings = full,
                                       double white_level = 255) {
  return std::make_shared<const Picture>(Picture{
      .entry = std::make_shared<const model::ImageEntry>(entry), .white_level = white_level, .settings = settings});
}

QImage tile(const std::shared_ptr<const Picture>& of, const TileKey& key = {}, const MaskOverlay* overlay = nullptr) {
  TileMaker maker;
  maker.take_up(of, {});
  return maker.tile(key, overlay);
}

/// The light of each pixel of a grey tile's row.
std::vector<int> greys(const QImage& tile, int y = 0) {
  std::vector<int> row;
  for (int x = 0; x < tile.width(); ++x) {
    EXPECT_EQ(qRed(tile.pixel(x, y)), qBlue(tile.pixel(x, y)));
    EXPECT_EQ(qRed(tile.pixel(x, y)), qGreen(tile.pixel(x, y)));
    row.push_back(qRed(tile.pixel(x, y)));
  }
  return row;
}

model::Image ramp(int width) {
  cv::Mat pixels(1, width, CV_16UC1);
  for (int x = 0; x < width; ++x) pixels.at<std::uint16_t>(0, x) = static_cast<std::uint16_t>(x);
  return model::Image(std::move(pixels));
}

TEST(AutomaticRange, LiesBetweenTheQuantilesOfTheImage) {
  // 0..1000: the ranks of 0.5 % and 99.5 % are whole numbers.
  EXPECT_EQ(automatic_range(ramp(1001)), (DisplayedRange{5, 995}));
  // 0..200: they lie at 1 and 199.
  EXPECT_EQ(automatic_range(ramp(201)), (DisplayedRange{1, 199}));
  // 0 and 100: half a per cent of the way from the one to the other.
  const DisplayedRange two = automatic_range(image<std::uint8_t>({{0, 100}}));
  EXPECT_NEAR(two.low, 0.5, 1e-12);
  EXPECT_NEAR(two.high, 99.5, 1e-12);
}

TEST(AutomaticRange, OfFloatsCountsFiniteValuesOnly) {
  cv::Mat pixels(1, 203, CV_32FC1);
  for (int x = 0; x < 201; ++x) pixels.at<float>(0, x) = static_cast<float>(200 - x) / 4;
  pixels.at<float>(0, 201) = std::numeric_limits<float>::quiet_NaN();
  pixels.at<float>(0, 202) = std::numeric_limits<float>::infinity();
  EXPECT_EQ(automatic_range(model::Image(pixels)), (DisplayedRange{0.25, 49.75}));
  EXPECT_EQ(automatic_range(flat_image(2, 2, std::numeric_limits<float>::quiet_NaN())), (DisplayedRange{0, 1}));
}

TEST(FirstSettings, ShowEightBitsAsTheyAreAndStretchTheRest) {
  EXPECT_EQ(first_settings(flat_image<std::uint8_t>(1, 1, 0)).range, RangeMode::full);
  EXPECT_EQ(first_settings(flat_image<std::uint16_t>(1, 1, 0)).range, RangeMode::automatic);
  EXPECT_EQ(first_settings(flat_image<float>(1, 1, 0)).range, RangeMode::automatic);
}

TEST(TileMaker, ShowsTheFullRangeUpToTheWhiteLevel) {
  EXPECT_EQ(greys(tile(picture(image<std::uint8_t>({{0, 1, 128, 255}})))), (std::vector{0, 1, 128, 255}));
  // A white level of 1000: 200 is a fifth of 255.
  EXPECT_EQ(greys(tile(picture(image<std::uint16_t>({{0, 200, 1000, 60000}}), full, 1000))),
            (std::vector{0, 51, 255, 255}));
  EXPECT_EQ(greys(tile(picture(image<float>({{-1.0F, 0.2F, 1.0F, 7.0F}}), full, 1))), (std::vector{0, 51, 255, 255}));
}

TEST(TileMaker, ShowsAManualRange) {
  const DisplaySettings manual{.range = RangeMode::manual, .low = 100, .high = 355};
  EXPECT_EQ(greys(tile(picture(image<std::uint16_t>({{99, 100, 101, 200, 355, 400}}), manual))),
            (std::vector{0, 0, 1, 100, 255, 255}));
  const DisplaySettings turned{.range = RangeMode::manual, .low = 100, .high = 50};
  EXPECT_EQ(greys(tile(picture(image<std::uint8_t>({{50, 100, 101}}), turned))), (std::vector{0, 0, 255}));
}

TEST(TileMaker, ShowsAnAutomaticRange) {
  // From 5 to 995: 5 + 990 / 5 = 203 is a fifth of the way.
  const QImage shown = tile(picture(ramp(1001), {.range = RangeMode::automatic}));
  EXPECT_EQ(qRed(shown.pixel(5, 0)), 0);
  EXPECT_EQ(qRed(shown.pixel(203, 0)), 51);
  EXPECT_EQ(tile(picture(ramp(1001), {.range = RangeMode::automatic}), {.column = 3}).width(), 1001 - 3 * tile_side);
}

TEST(TileMaker, ShowsAMaskedImageInTheRangeOfTheWholeImage) {
  const model::Image whole = ramp(201);  // from 1 to 199
  cv::Mat only_last(1, 201, CV_8UC1, cv::Scalar(0));
  only_last.at<std::uint8_t>(0, 200) = 255;
  only_last.at<std::uint8_t>(0, 100) = 255;
  const auto masked = model::ImageEntry::masked(whole, model::Mask(only_last));
  const std::vector<int> shown = greys(tile(picture(masked, {.range = RangeMode::automatic})));
  EXPECT_EQ(shown[100], 128);  // (100 - 1) / 198 of 255 is 127.5, rounded up
  EXPECT_EQ(shown[99], 0);
  EXPECT_EQ(shown[200], 255);
}

TEST(TileMaker, ShowsAPictureForTheEyeAsItIs) {
  const auto overlaid = model::ImageEntry::overlaid(ramp(201), test::mask({std::string(201, '.')}));
  const model::Image eye = overlaid.pixels();
  const QImage shown = tile(picture(overlaid, {.range = RangeMode::automatic}));
  for (int x = 0; x < 201; ++x) {
    EXPECT_EQ(qRed(shown.pixel(x, 0)), eye.row<std::uint8_t>(0)[static_cast<std::size_t>(3 * x)]);
  }
}

TEST(TileMaker, ShowsColoursInTheOrderRedGreenBlue) {
  cv::Mat pixels(1, 1, CV_8UC3);
  pixels.at<cv::Vec3b>(0, 0) = {10, 20, 30};
  EXPECT_EQ(tile(picture(model::Image(pixels))).pixel(0, 0), qRgb(10, 20, 30));
}

TEST(TileMaker, ShowsOneBandInTheChosenColours) {
  const model::Image two = image<std::uint8_t>({{0, 200}});
  EXPECT_EQ(greys(tile(picture(two, {.range = RangeMode::full, .color_map = ColorMap::inverted_grey}))),
            (std::vector{255, 55}));
  const auto& [red, green, blue] = model::heat_colors()[200];
  EXPECT_EQ(tile(picture(two, {.range = RangeMode::full, .color_map = ColorMap::heat})).pixel(1, 0),
            qRgb(red, green, blue));
}

TEST(TileMaker, HalvesTheImageUntilItIsOneTile) {
  EXPECT_EQ(top_level({256, 256}), 0);
  EXPECT_EQ(top_level({10, 257}), 1);
  EXPECT_EQ(top_level({3000, 4000}), 4);
  EXPECT_EQ(level_shape({5, 257}, 1), (model::Shape{3, 129}));
}

TEST(TileMaker, MakesAPixelOfACoarserLevelTheMeanOfThoseItStandsFor) {
  cv::Mat pixels(3, 2 * tile_side + 1, CV_8UC1, cv::Scalar(10));
  pixels.at<std::uint8_t>(0, 0) = 11;
  pixels.at<std::uint8_t>(1, 0) = 20;
  pixels.at<std::uint8_t>(1, 1) = 30;    // 11 + 10 + 20 + 30 = 71, a quarter is 17.75
  pixels.at<std::uint8_t>(2, 512) = 77;  // alone in its last pixel
  const auto of = picture(model::Image(pixels));
  const QImage first = tile(of, {.level = 1, .column = 0});
  EXPECT_EQ(first.size(), QSize(tile_side, 2));
  EXPECT_EQ(qRed(first.pixel(0, 0)), 18);
  EXPECT_EQ(qRed(first.pixel(1, 0)), 10);
  const QImage last = tile(of, {.level = 1, .column = 1});
  EXPECT_EQ(last.size(), QSize(1, 2));
  EXPECT_EQ(qRed(last.pixel(0, 1)), 77);
}

TEST(TileMaker, TakesTheSameImageUpInAnotherRange) {
  const auto entry = std::make_shared<const model::ImageEntry>(image<std::uint16_t>({{0, 100, 200}}));
  TileMaker maker;
  maker.take_up(std::make_shared<const Picture>(Picture{.entry = entry, .white_level = 200, .settings = full}), {});
  EXPECT_EQ(greys(maker.tile({}, nullptr)), (std::vector{0, 128, 255}));
  const DisplaySettings manual{.range = RangeMode::manual, .low = 0, .high = 510};
  maker.take_up(std::make_shared<const Picture>(Picture{.entry = entry, .settings = manual}), {});
  EXPECT_EQ(maker.range(), (DisplayedRange{0, 510}));
  EXPECT_EQ(greys(maker.tile({}, nullptr)), (std::vector{0, 50, 100}));
}

TEST(TileMaker, TintsTheMaskInTheOverlaidLayerAlone) {
  const auto of = picture(image<std::uint8_t>({{100, 100}}));
  const MaskOverlay overlay{.mask = test::mask({".#"}), .color = QColor(255, 0, 255), .opacity = 0.4};
  const QImage shown = tile(of, {.layer = Layer::overlaid}, &overlay);
  EXPECT_EQ(shown.pixel(0, 0), qRgb(100, 100, 100));
  EXPECT_EQ(shown.pixel(1, 0), qRgb(162, 60, 162));  // 0.6 * 100 + 0.4 * 255
  EXPECT_EQ(tile(of, {.layer = Layer::plain}, &overlay).pixel(1, 0), qRgb(100, 100, 100));
}

TEST(TileMaker, TintsAPixelOfACoarserLevelByTheShareOfTheMaskUnderIt) {
  const model::Image black = flat_image<std::uint8_t>(3, 2 * tile_side + 1, 0);
  cv::Mat set(3, 2 * tile_side + 1, CV_8UC1, cv::Scalar(0));
  set.at<std::uint8_t>(0, 0) = 255;    // one of four
  set.at<std::uint8_t>(2, 512) = 255;  // one of one
  const MaskOverlay overlay{.mask = model::Mask(set), .color = QColor(200, 100, 0), .opacity = 1};
  const QImage first = tile(picture(black), {.layer = Layer::overlaid, .level = 1}, &overlay);
  EXPECT_EQ(first.pixel(0, 0), qRgb(50, 25, 0));
  EXPECT_EQ(first.pixel(1, 0), qRgb(0, 0, 0));
  const QImage last = tile(picture(black), {.layer = Layer::overlaid, .level = 1, .column = 1}, &overlay);
  EXPECT_EQ(last.pixel(0, 1), qRgb(200, 100, 0));
}

TEST(TileMaker, CopiesADrawingWhereSomethingWasDrawn) {
  cv::Mat lines(3, 2 * tile_side + 1, CV_8UC3, cv::Scalar::all(0));
  lines.at<cv::Vec3b>(1, 3) = {0, 200, 0};
  const MaskOverlay overlay{.drawing = model::Image(lines)};
  const auto of = picture(flat_image<std::uint8_t>(3, 2 * tile_side + 1, 9));
  const QImage fine = tile(of, {.layer = Layer::overlaid}, &overlay);
  EXPECT_EQ(fine.pixel(3, 1), qRgb(0, 200, 0));
  EXPECT_EQ(fine.pixel(3, 0), qRgb(9, 9, 9));
  // A line that is thinner than a pixel does not fade.
  EXPECT_EQ(tile(of, {.layer = Layer::overlaid, .level = 1}, &overlay).pixel(1, 0), qRgb(0, 200, 0));
}

TEST(TileMaker, LeavesOutAMaskOfAnotherSize) {
  const MaskOverlay overlay{.mask = test::mask({"#"}), .opacity = 1};
  EXPECT_EQ(greys(tile(picture(image<std::uint8_t>({{100, 100}})), {.layer = Layer::overlaid}, &overlay)),
            (std::vector{100, 100}));
}

TEST(TileMaker, TilesOfALevelShowWhatItsPixelsShowOneByOne) {
  std::mt19937 random(7);
  cv::Mat pixels(300, 530, CV_16UC1);
  for (int y = 0; y < pixels.rows; ++y) {
    for (int x = 0; x < pixels.cols; ++x) {
      pixels.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(random() % 65536);
    }
  }
  const auto of = picture(model::Image(pixels.clone()), full, 65535);
  for (int row = 0; row < 2; ++row) {
    for (int column = 0; column < 3; ++column) {
      const QImage shown = tile(of, {.column = column, .row = row});
      for (int y = 0; y < shown.height(); ++y) {
        for (int x = 0; x < shown.width(); ++x) {
          const int count = pixels.at<std::uint16_t>(row * tile_side + y, column * tile_side + x);
          ASSERT_EQ(qRed(shown.pixel(x, y)), (count * 2 * 255 + 65535) / (2 * 65535));
        }
      }
    }
  }
}

}  // namespace
}  // namespace orvexa::ui::viewer
