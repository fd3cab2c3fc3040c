#include "orvexa/model/measures/ordered_values.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

Image with_gaps(unsigned seed, int height, int width) {
  const Image noise = test::random_image<float>(seed, height, width, 1, 1.2);
  cv::Mat pixels = noise.read_only().clone();
  for (int i = 0; i < height * width; i += 5) pixels.at<float>(i / width, i % width) = nan_value;
  for (int i = 2; i < height * width; i += 17) pixels.at<float>(i / width, i % width) *= -1;
  return Image(pixels);
}

TEST(OrderedValues, AreThoseOfASortedList) {
  const Mask mask = test::random_mask(4, 40, 50, 0.6);
  const std::vector<Image> images{test::random_image<std::uint8_t>(1, 40, 50, 1, 20), with_gaps(3, 40, 50),
                                  test::random_image<std::uint16_t>(2, 40, 50, 1, 65535.9)};
  for (const Image& image : images) {
    const Band band{image, 0, {}, "T.I", "T"};
    for (const Mask* seen_by : {static_cast<const Mask*>(nullptr), &mask}) {
      std::vector<double> sorted;
      std::vector<double> row(50);
      for (int y = 0; y < 40; ++y) {
        band.read_row(y, row);
        for (int x = 0; x < 50; ++x) {
          const double value = row[static_cast<std::size_t>(x)];
          if (std::isfinite(value) && (seen_by == nullptr || seen_by->at(y, x))) sorted.push_back(value);
        }
      }
      std::ranges::sort(sorted);
      const OrderedValues values(band, seen_by, {});
      ASSERT_EQ(values.size(), static_cast<std::int64_t>(sorted.size()));
      for (std::size_t i = 0; i < sorted.size(); i += 13) {
        ASSERT_EQ(values.at(static_cast<std::int64_t>(i), {}), sorted[i]) << i;
      }
      EXPECT_EQ(values.quantile(0, {}), sorted.front());
      EXPECT_EQ(values.quantile(1, {}), sorted.back());
    }
  }
}

TEST(OrderedValues, HaveQuantilesBetweenTheOrderStatistics) {
  const Image image = test::image<std::uint8_t>({{10, 20, 40, 80, 160}});
  const OrderedValues values(Band{image, 0, {}, "T.I", "T"}, nullptr, {});
  EXPECT_EQ(values.quantile(0.25, {}), 20);
  EXPECT_EQ(values.quantile(0.125, {}), 15);  // place 0.5
  EXPECT_EQ(values.quantile(0.9, {}), 80 + 0.6 * 80);
  // 0.05 * 20 is a little above 1 in floating point; the place is 1.
  std::vector<std::uint8_t> counts;
  for (int i = 0; i <= 20; ++i) counts.push_back(static_cast<std::uint8_t>(i));
  const OrderedValues many(Band{test::image<std::uint8_t>({counts}), 0, {}, "T.I", "T"}, nullptr, {});
  for (int i = 0; i <= 20; ++i) EXPECT_EQ(many.quantile(5.0 * i / 100, {}), i);
  EXPECT_THROW(static_cast<void>(values.at(5, {})), std::invalid_argument);
}

TEST(OrderedValues, OfAFlatFloatPictureAreItsValue) {
  const Image flat = test::flat_image<float>(3, 4, 0.3f);
  const OrderedValues values(Band{flat, 0, {}, "T.I", "T"}, nullptr, {});
  EXPECT_EQ(values.quantile(0.37, {}), double(0.3f));
}

}  // namespace
}  // namespace orvexa::model
