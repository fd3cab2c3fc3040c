#include "orvexa/model/measures/local_windows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "orvexa/model/measures/bands.h"
#include "support/counting_event.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

/// What a window sees, by looking at every pixel of it.
std::vector<double> seen_values(const Image& image, const Mask* mask, int radius, int y, int x) {
  std::vector<double> seen;
  std::vector<double> row(static_cast<std::size_t>(image.width()));
  for (int v = std::max(0, y - radius); v <= std::min(image.height() - 1, y + radius); ++v) {
    Band{image, 0, {}, "T.I", "T"}.read_row(v, row);
    for (int u = std::max(0, x - radius); u <= std::min(image.width() - 1, x + radius); ++u) {
      const double value = row[static_cast<std::size_t>(u)];
      if (std::isfinite(value) && (mask == nullptr || mask->at(v, u))) seen.push_back(value);
    }
  }
  return seen;
}

WindowMoments moments_of(const std::vector<double>& values) {
  double sum = 0;
  for (const double value : values) sum += value;
  const double mean = sum / double(values.size());
  double squares = 0;
  for (const double value : values) squares += (value - mean) * (value - mean);
  return {mean, std::sqrt(squares / double(values.size()))};
}

double entropy_of(const std::vector<double>& values, double white) {
  std::array<int, 256> counts{};
  for (const double value : values) {
    ++counts.at(static_cast<std::size_t>(std::clamp(std::floor(value / white * 255 + 0.5), 0.0, 255.0)));
  }
  double bits = 0;
  for (const int count : counts) {
    const double p = double(count) / double(values.size());
    if (count > 0) bits -= p * std::log2(p);
  }
  return bits;
}

struct Found {
  cv::Mat mean, sd, range, entropy;
};

Found looked_at(const Image& image, const Mask* mask, int radius, const RunContext& context = {}) {
  Found found;
  for (cv::Mat* map : {&found.mean, &found.sd, &found.range, &found.entropy}) {
    map->create(image.height(), image.width(), CV_64FC1);
  }
  const cv::Mat& plane = image.read_only();
  for_each_row_of_moments(plane, mask, radius, context, [&](int y, std::span<const WindowMoments> row) {
    for (std::size_t x = 0; x < row.size(); ++x) {
      found.mean.at<double>(y, static_cast<int>(x)) = row[x].mean;
      found.sd.at<double>(y, static_cast<int>(x)) = row[x].sd;
    }
  });
  for_each_row_of_ranges(plane, mask, radius, context, [&](int y, std::span<const double> row) {
    std::ranges::copy(row, found.range.ptr<double>(y));
  });
  for_each_row_of_entropies(
      plane, image.type_white_level(), mask, radius, context,
      [&](int y, int x, std::span<const double> row) { std::ranges::copy(row, found.entropy.ptr<double>(y) + x); });
  return found;
}

void expect_slow_results(const Image& image, const Mask* mask, int radius) {
  const Found found = looked_at(image, mask, radius);
  const double white = image.type_white_level();
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      SCOPED_TRACE(testing::Message() << "row " << y << " column " << x);
      const std::vector<double> seen = seen_values(image, mask, radius, y, x);
      if (seen.empty()) {
        ASSERT_TRUE(std::isnan(found.mean.at<double>(y, x)) && std::isnan(found.sd.at<double>(y, x)));
        ASSERT_TRUE(std::isnan(found.range.at<double>(y, x)) && std::isnan(found.entropy.at<double>(y, x)));
        continue;
      }
      const WindowMoments expected = moments_of(seen);
      const auto [lowest, highest] = std::ranges::minmax(seen);
      ASSERT_NEAR(found.mean.at<double>(y, x), expected.mean, 1e-11 * white);
      ASSERT_NEAR(found.sd.at<double>(y, x), expected.sd, 1e-11 * white);
      ASSERT_EQ(found.range.at<double>(y, x), highest - lowest);
      ASSERT_NEAR(found.entropy.at<double>(y, x), entropy_of(seen, white), 1e-11);
    }
  }
}

Image with_gaps(unsigned seed, int height, int width) {
  const Image noise = test::random_image<float>(seed, height, width, 1, 1.2);
  cv::Mat pixels = noise.read_only().clone();
  for (int i = 0; i < height * width; i += 5) pixels.at<float>(i / width, i % width) = nan_value;
  for (int i = 2; i < height * width; i += 17) pixels.at<float>(i / width, i % width) *= -1;
  return Image(pixels);
}

TEST(LocalWindows, EqualTheirDefinitionsInEveryTypeWithAndWithoutAMask) {
  for (const int radius : {1, 2, 6, 30}) {
    const std::vector<Image> images{test::random_image<std::uint8_t>(1, 19, 27, 1, 255.9),
                                    test::random_image<std::uint16_t>(2, 19, 27, 1, 65535.9), with_gaps(3, 19, 27)};
    const Mask mask = test::random_mask(4, 19, 27, 0.3);
    for (const Image& image : images) {
      SCOPED_TRACE(testing::Message() << "radius " << radius << ", " << pixel_type_text(image.type()));
      expect_slow_results(image, nullptr, radius);
      expect_slow_results(image, &mask, radius);
    }
  }
}

TEST(LocalWindows, EqualTheirDefinitionsWhereTilesMeet) {
  // Tiles of moments are 4 rows high here (2^18 / 60000), those of entropies 256 wide.
  const Image wide = test::random_image<std::uint8_t>(5, 9, 60000, 1, 255.9);
  const Found found = looked_at(wide, nullptr, 1);
  for (int y = 0; y < 9; ++y) {
    for (int x = 0; x<60000; x += x % 256> 1 && x % 256 < 254 ? 91 : 1) {
      const std::vector<double> seen = seen_values(wide, nullptr, 1, y, x);
      ASSERT_NEAR(found.sd.at<double>(y, x), moments_of(seen).sd, 1e-9);
      ASSERT_EQ(found.range.at<double>(y, x), std::ranges::max(seen) - std::ranges::min(seen));
      ASSERT_NEAR(found.entropy.at<double>(y, x), entropy_of(seen, 255), 1e-11);
    }
  }
}

TEST(LocalWindows, OfEqualValuesHaveThatValueAndNoSpreadWhateverCameBefore) {
  // A row of huge values, then values that a running sum of doubles would have lost (1e30 + 0.1 - 1e30 = 0).
  cv::Mat pixels(12, 12, CV_32FC1, cv::Scalar(0.1f));
  pixels.row(0).setTo(3e4f);
  const Found found = looked_at(Image(pixels), nullptr, 1);
  for (int y = 2; y < 12; ++y) {
    EXPECT_NEAR(found.mean.at<double>(y, 5), double(0.1f), 3e4 / 4e12);  // well within steps of 2^-42 of the largest
    EXPECT_EQ(found.mean.at<double>(y, 5), found.mean.at<double>(2, 0));
    EXPECT_EQ(found.sd.at<double>(y, 5), 0);
    EXPECT_EQ(found.range.at<double>(y, 5), 0);
    EXPECT_EQ(found.entropy.at<double>(y, 5), 0);
  }
}

TEST(LocalWindows, AreExactForTheLargestWindowOfTheLargestValues) {
  // 251001 values of 65535 and 65534 in turns: a variance of 1/4 beside squares of 4e9.
  cv::Mat pixels(501, 501, CV_16UC1);
  for (int i = 0; i < 501 * 501; ++i) {
    pixels.at<std::uint16_t>(i / 501, i % 501) = static_cast<std::uint16_t>(65535 - i % 2);
  }
  double mean = 0;
  double sd = 0;
  for_each_row_of_moments(pixels, nullptr, 250, {}, [&](int y, std::span<const WindowMoments> row) {
    if (y != 250) return;
    mean = row[250].mean;
    sd = row[250].sd;
  });
  const double share = 125500.0 / 251001.0;  // of 65534
  EXPECT_NEAR(mean, 65535 - share, 1e-10);
  EXPECT_NEAR(sd, std::sqrt(share * (1 - share)), 1e-12);
}

TEST(LocalWindows, OfOnePixelAreThatPixel) {
  const Image one = test::image<std::uint8_t>({{200}});
  const Found found = looked_at(one, nullptr, 50);
  EXPECT_EQ(found.mean.at<double>(0, 0), 200);
  EXPECT_EQ(found.sd.at<double>(0, 0), 0);
  EXPECT_EQ(found.range.at<double>(0, 0), 0);
  EXPECT_EQ(found.entropy.at<double>(0, 0), 0);
}

TEST(LocalWindows, EndOnceCancelled) {
  const Image image = test::random_image<std::uint8_t>(7, 300, 300, 1, 255.9);
  for (const int looks : {0, 1, 5}) {
    const test::CountingEvent cancel(looks);
    EXPECT_THROW(static_cast<void>(looked_at(image, nullptr, 2, {.cancel_event = &cancel, .progress = {}})),
                 CancelledError);
  }
}

TEST(LocalWindows, RefuseOtherPlanesAndRadii) {
  const cv::Mat color(3, 3, CV_8UC3, cv::Scalar::all(0));
  const cv::Mat grey(3, 3, CV_8UC1, cv::Scalar(0));
  EXPECT_THROW(for_each_row_of_moments(color, nullptr, 1, {}, [](int, auto) {}), std::invalid_argument);
  EXPECT_THROW(for_each_row_of_ranges(grey, nullptr, 0, {}, [](int, auto) {}), std::invalid_argument);
  EXPECT_THROW(for_each_row_of_entropies(grey, 255, nullptr, 51, {}, [](int, int, auto) {}), std::invalid_argument);
}

constexpr float no_data = -3.4028235e38f;

/// Expects equal moments wherever no window reaches one of the places.
void expect_the_same_elsewhere(const Image& image, const Image& with_outliers, const std::vector<cv::Point>& places,
                               int radius) {
  const Found expected = looked_at(image, nullptr, radius);
  const Found found = looked_at(with_outliers, nullptr, radius);
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      const bool sees_one = std::ranges::any_of(places, [&](const cv::Point& place) {
        return std::abs(place.x - x) <= radius && std::abs(place.y - y) <= radius;
      });
      if (sees_one) continue;
      ASSERT_EQ(found.mean.at<double>(y, x), expected.mean.at<double>(y, x)) << x << ", " << y;
      ASSERT_EQ(found.sd.at<double>(y, x), expected.sd.at<double>(y, x)) << x << ", " << y;
    }
  }
}

TEST(LocalWindows, GivenOneOutlier_ThenWindowsThatDoNotSeeItAreExactlyAsWithoutIt) {
  const Image noise = test::random_image<float>(8, 60, 80, 1, 1.0);
  cv::Mat pixels = noise.read_only().clone();
  pixels.row(7).setTo(0);  // zeros have no size of their own
  const Image image(pixels.clone());
  pixels.at<float>(20, 30) = no_data;
  const Image with_outlier(pixels);
  for (const int radius : {1, 5, 25}) {
    SCOPED_TRACE(radius);
    expect_the_same_elsewhere(image, with_outlier, {{30, 20}}, radius);
    // In a window of n pixels the others, 1 at most, are nothing beside it: mean v / n, sd |v| sqrt(n - 1) / n.
    const Found found = looked_at(with_outlier, nullptr, radius);
    const double n = double(seen_values(image, nullptr, radius, 20, 30).size());
    EXPECT_NEAR(found.mean.at<double>(20, 30) / double(no_data), 1 / n, 1e-15);
    EXPECT_NEAR(found.sd.at<double>(20, 30) / -double(no_data), std::sqrt(n - 1) / n, 1e-14);
  }
}

TEST(LocalWindows, GivenOutliersOfSeveralSizes_ThenEachWindowIsRightByWhatItSees) {
  const Image noise = test::random_image<float>(9, 40, 50, 1, 1.0);
  cv::Mat pixels = noise.read_only().clone();
  pixels.at<float>(10, 10) = no_data;
  pixels.at<float>(12, 14) = 1e20f;
  pixels.at<float>(30, 30) = 65535.0f;
  pixels.at<float>(5, 40) = 1e-30f;
  const Image with_outliers(pixels);
  expect_the_same_elsewhere(noise, with_outliers, {{10, 10}, {14, 12}, {30, 30}, {40, 5}}, 3);
  const Found found = looked_at(with_outliers, nullptr, 3);
  for (const cv::Point& place : {cv::Point(12, 11), cv::Point(16, 12), cv::Point(31, 31), cv::Point(40, 5)}) {
    const WindowMoments expected = moments_of(seen_values(with_outliers, nullptr, 3, place.y, place.x));
    EXPECT_NEAR(found.mean.at<double>(place.y, place.x) / expected.mean, 1, 1e-11) << place;
    EXPECT_NEAR(found.sd.at<double>(place.y, place.x) / expected.sd, 1, 1e-11) << place;
  }
}

TEST(LocalWindows, GivenAHalfWithoutData_ThenFlatWindowsInItHaveItsValueAndTheOtherHalfIsAsWithoutIt) {
  const Image noise = test::random_image<float>(10, 30, 40, 1, 1.0);
  cv::Mat pixels = noise.read_only().clone();
  pixels.colRange(0, 20).setTo(no_data);
  const Found expected = looked_at(noise, nullptr, 4);
  const Found found = looked_at(Image(pixels), nullptr, 4);
  for (int y = 0; y < 30; ++y) {
    EXPECT_EQ(found.mean.at<double>(y, 15), double(no_data));
    EXPECT_EQ(found.sd.at<double>(y, 15), 0);
    EXPECT_EQ(found.mean.at<double>(y, 24), expected.mean.at<double>(y, 24));
    EXPECT_EQ(found.sd.at<double>(y, 24), expected.sd.at<double>(y, 24));
  }
}

TEST(LocalWindows, OfZerosAndOfTheSmallestFloatsAreRight) {
  cv::Mat pixels(3, 6, CV_32FC1, cv::Scalar(0));
  constexpr float smallest = std::numeric_limits<float>::denorm_min();
  pixels.colRange(3, 6).setTo(smallest);
  const Found found = looked_at(Image(pixels), nullptr, 1);
  EXPECT_EQ(found.mean.at<double>(1, 0), 0);
  EXPECT_EQ(found.sd.at<double>(1, 0), 0);
  EXPECT_EQ(found.mean.at<double>(1, 5), double(smallest));
  EXPECT_DOUBLE_EQ(found.mean.at<double>(1, 2), double(smallest) / 3);  // three of nine
}

}  // namespace
}  // namespace orvexa::model
