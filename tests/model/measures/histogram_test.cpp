#include "orvexa/model/measures/histogram.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

Band band_of(const Image& image, int channel = 0) {
  return {.image = image, .channel = channel, .white = {}, .name = "T.I", .measurement = "T"};
}

TEST(MaskedHistogram, CountsWholeNumbersExactly) {
  const Image image = test::image<std::uint16_t>({{0, 7, 7}, {65535, 300, 7}});
  const Histogram histogram = masked_histogram(band_of(image), nullptr, {});
  ASSERT_EQ(histogram.bins.size(), 65536u);
  EXPECT_EQ(histogram.bins[0], 1);
  EXPECT_EQ(histogram.bins[7], 3);
  EXPECT_EQ(histogram.bins[300], 1);
  EXPECT_EQ(histogram.bins[65535], 1);
  EXPECT_EQ(histogram.n, 6);
  EXPECT_EQ(histogram.n_invalid, 0);
  EXPECT_EQ(histogram.min, 0);
  EXPECT_EQ(histogram.max, 65535);
  EXPECT_EQ(histogram.level(300), 300);
}

TEST(MaskedHistogram, LooksOnlyAtThePixelsOfTheMask) {
  const Image image = test::image<std::uint8_t>({{1, 2, 3, 4}});
  const Mask mask = test::mask({".##."});
  const Histogram histogram = masked_histogram(band_of(image), &mask, {});
  EXPECT_EQ(histogram.n, 2);
  EXPECT_EQ(histogram.min, 2);
  EXPECT_EQ(histogram.max, 3);
  EXPECT_TRUE(histogram.has_contrast());
  const Mask none = Mask::empty({1, 4});
  EXPECT_FALSE(masked_histogram(band_of(image), &none, {}).has_contrast());
  const Mask other_size = Mask::full({2, 2});
  EXPECT_THROW(static_cast<void>(masked_histogram(band_of(image), &other_size, {})), std::invalid_argument);
}

TEST(MaskedHistogram, OfTheGreyOfAColourImageRoundsHalfUp) {
  // 0.299 * 0 + 0.587 * 0 + 0.114 * 250 = 28.5, rounded half up 29; 0.299 * 10 + 0.587 * 20 + 0.114 * 30 = 18.15 -> 18.
  cv::Mat pixels(1, 2, CV_8UC3);
  pixels.at<cv::Vec3b>(0, 0) = {0, 0, 250};
  pixels.at<cv::Vec3b>(0, 1) = {10, 20, 30};
  const Histogram histogram = masked_histogram(band_of(Image(pixels), Band::grey_channel), nullptr, {});
  ASSERT_EQ(histogram.bins.size(), 256u);
  EXPECT_EQ(histogram.bins[29], 1);
  EXPECT_EQ(histogram.bins[18], 1);
}

TEST(MaskedHistogram, HasOneBinACountForOneChannelOfAColourImage) {
  cv::Mat pixels(1, 1, CV_16UC3);
  pixels.at<cv::Vec3w>(0, 0) = {10, 2000, 30};
  EXPECT_EQ(masked_histogram(band_of(Image(pixels), 1), nullptr, {}).bins[2000], 1);
}

TEST(MaskedHistogram, OfFloatsHas4096BinsBetweenLowestAndHighestFiniteValue) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  constexpr float infinity = std::numeric_limits<float>::infinity();
  const Image image = test::image<float>({{0.0f, 4096.0f, 1.0f, 1.5f, nan, infinity, -infinity}});
  const Histogram histogram = masked_histogram(band_of(image), nullptr, {});
  ASSERT_EQ(histogram.bins.size(), 4096u);
  EXPECT_EQ(histogram.n, 4);
  EXPECT_EQ(histogram.n_invalid, 3);
  EXPECT_EQ(histogram.min, 0);
  EXPECT_EQ(histogram.max, 4096);
  // Bins of width 1, right edges included: 0 and 1 lie in (0, 1] with the lowest value, 1.5 in (1, 2].
  EXPECT_EQ(histogram.bins[0], 2);
  EXPECT_EQ(histogram.bins[1], 1);
  EXPECT_EQ(histogram.bins[4095], 1);
  EXPECT_EQ(histogram.level(0), 1.0);
}

TEST(MaskedHistogram, PutsAValueIntoAHigherBinExactlyWhenItIsAboveALevel) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    const double scale = std::pow(10.0, int(seed) - 10);
    const Image image = test::random_image<float>(seed, 20, 50, 1, scale);
    const Histogram histogram = masked_histogram(band_of(image), nullptr, {});
    ASSERT_EQ(std::accumulate(histogram.bins.begin(), histogram.bins.end(), std::int64_t{0}), 1000);
    std::int64_t above = 1000;
    for (std::size_t bin = 0; bin < histogram.bins.size(); ++bin) {
      above -= histogram.bins[bin];
      if (bin % 64 != 0) continue;
      std::int64_t counted = 0;
      for (int y = 0; y < 20; ++y) {
        for (const float value : image.row<float>(y)) counted += double(value) > histogram.level(bin) ? 1 : 0;
      }
      ASSERT_EQ(counted, above) << "bin " << bin;
    }
  }
}

TEST(MaskedHistogram, OfAFlatFloatImageHasNoContrast) {
  const Histogram histogram = masked_histogram(band_of(test::flat_image<float>(2, 3, 0.25f)), nullptr, {});
  EXPECT_FALSE(histogram.has_contrast());
  EXPECT_EQ(histogram.n, 6);
  EXPECT_EQ(histogram.bins[0], 6);
}

TEST(MaskedHistogram, OfAMapOfDoublesLeavesOutWhatIsNoNumber) {
  const cv::Mat values = (cv::Mat_<double>(1, 3) << -1.0, std::nan(""), 1.0);
  const Histogram histogram = masked_histogram(values, nullptr, {});
  EXPECT_EQ(histogram.n, 2);
  EXPECT_EQ(histogram.n_invalid, 1);
  EXPECT_EQ(histogram.min, -1);
  EXPECT_EQ(histogram.max, 1);
  EXPECT_THROW(static_cast<void>(masked_histogram(cv::Mat(1, 1, CV_8UC1), nullptr, {})), std::invalid_argument);
}

TEST(MaskedHistogram, CountsEveryValueOfTheWidestRangeOnce) {
  constexpr double largest = std::numeric_limits<double>::max();
  const cv::Mat values = (cv::Mat_<double>(1, 3) << -largest, 0.0, largest);
  const Histogram histogram = masked_histogram(values, nullptr, {});
  EXPECT_EQ(histogram.bins.front(), 1);
  EXPECT_EQ(std::accumulate(histogram.bins.begin(), histogram.bins.end(), std::int64_t{0}), 3);
}

TEST(MaskedHistogram, IsTheSameWithAnyNumberOfThreads) {
  const Band band = band_of(test::random_image<float>(5, 700, 1500, 1, 1.0));
  const Mask mask = test::random_mask(6, 700, 1500, 0.5);
  std::optional<Histogram> first;
  for (const int threads : {1, 2, 3, 7}) {
    const test::ThreadCount limit(threads);
    const Histogram histogram = masked_histogram(band, &mask, {});
    if (!first) first = histogram;
    EXPECT_EQ(histogram.bins, first->bins) << threads << " threads";
    EXPECT_EQ(histogram.step, first->step);
  }
}

TEST(MaskedHistogram, OfAMapThatDiffersByRoundingAloneHasNoContrast) {
  const auto has_contrast = [](double first, double second) {
    const cv::Mat values = (cv::Mat_<double>(1, 3) << first, std::nan(""), second);
    return masked_histogram(values, nullptr, {}).has_contrast();
  };
  EXPECT_FALSE(has_contrast(1.0 / 3, 1.0 / 3 + 1e-15));
  EXPECT_FALSE(has_contrast(-0.5, -0.5 + 0.9e-12));
  EXPECT_TRUE(has_contrast(-0.5, -0.5 + 1.1e-12));
  // Above 1 it is that part of the greatest magnitude: of a million 1e-6.
  EXPECT_FALSE(has_contrast(1e6, 1e6 + 0.5e-6));
  EXPECT_FALSE(has_contrast(-1e6, -1e6 + 0.5e-6));
  EXPECT_TRUE(has_contrast(1e6, 1e6 + 2e-6));
  constexpr double largest = std::numeric_limits<double>::max();
  EXPECT_TRUE(has_contrast(-largest, largest));
}

TEST(MaskedHistogram, OfAnImageHasContrastAsSoonAsTwoValuesDiffer) {
  EXPECT_TRUE(masked_histogram(band_of(test::image<float>({{0.0f, 1e-20f}})), nullptr, {}).has_contrast());
  EXPECT_TRUE(masked_histogram(band_of(test::image<std::uint8_t>({{7, 8}})), nullptr, {}).has_contrast());
}

}  // namespace
}  // namespace orvexa::model
