#include "orvexa/model/measures/multi_otsu.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace orvexa::model {
namespace {

Histogram histogram_of(const std::vector<int>& values) {
  Histogram histogram;
  histogram.bins.resize(256);
  for (const int value : values) ++histogram.bins[static_cast<std::size_t>(value)];
  histogram.n = static_cast<std::int64_t>(values.size());
  if (values.empty()) return histogram;
  histogram.min = std::ranges::min(values);
  histogram.max = std::ranges::max(values);
  return histogram;
}

TEST(MultiOtsuLevels, AreTheLastLevelsOfTheClasses) {
  const auto levels = multi_otsu_levels(histogram_of({10, 11, 100, 101, 200, 201}), 3);
  ASSERT_TRUE(levels);
  EXPECT_EQ(*levels, (std::vector<double>{11, 101}));
}

TEST(MultiOtsuLevels, AreTheLowestOfEquallyGoodOnes) {
  // 0 1 2 3: 0 | 1 2 | 3 has 0 + 4.5 + 9 = 13.5, 0 1 | 2 | 3 has 0.5 + 4 + 9 = 13.5, 0 | 1 | 2 3 has 1 + 12.5 = 13.5.
  const auto levels = multi_otsu_levels(histogram_of({0, 1, 2, 3}), 3);
  ASSERT_TRUE(levels);
  EXPECT_EQ(*levels, (std::vector<double>{0, 1}));
}

TEST(MultiOtsuLevels, AreAbsentForFewerLevelsThanClasses) {
  EXPECT_FALSE(multi_otsu_levels(histogram_of({}), 3));
  EXPECT_FALSE(multi_otsu_levels(histogram_of({7, 7, 9}), 3));
  EXPECT_EQ(multi_otsu_levels(histogram_of({7, 8, 9}), 3), (std::vector<double>{7, 8}));
  EXPECT_THROW(static_cast<void>(multi_otsu_levels(histogram_of({1}), 1)), std::invalid_argument);
}

/// Sum over the classes of n m^2, for every way to part the levels.
double greatest_merit(const std::vector<int>& values, std::size_t from, int classes) {
  if (from >= values.size()) return -1e300;
  const auto merit = [&](std::size_t begin, std::size_t end) {
    double sum = 0;
    for (std::size_t i = begin; i < end; ++i) sum += values[i];
    return sum * sum / double(end - begin);
  };
  if (classes == 1) return merit(from, values.size());
  double greatest = -1e300;
  for (std::size_t end = from + 1; end < values.size(); ++end) {
    if (values[end] == values[end - 1]) continue;
    greatest = std::max(greatest, merit(from, end) + greatest_merit(values, end, classes - 1));
  }
  return greatest;
}

TEST(MultiOtsuLevels, HaveTheGreatestVarianceOfAllWaysToPart) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    std::vector<int> values;
    for (int i = 0; i < 24; ++i) values.push_back(static_cast<int>(random() % (6 + seed * 4)));
    std::ranges::sort(values);
    for (const int classes : {2, 3, 4, 5}) {
      const auto levels = multi_otsu_levels(histogram_of(values), classes);
      ASSERT_TRUE(levels);
      double merit = 0;
      double low = -1;
      for (std::size_t k = 0; k <= levels->size(); ++k) {
        const double high = k < levels->size() ? levels->at(k) : 255;
        double sum = 0;
        double n = 0;
        for (const int value : values) {
          if (value <= low || value > high) continue;
          sum += value;
          ++n;
        }
        ASSERT_GT(n, 0);
        merit += sum * sum / n;
        low = high;
      }
      EXPECT_NEAR(merit, greatest_merit(values, 0, classes), 1e-9 * merit) << classes;
    }
  }
}

TEST(MultiOtsuLevels, CopeWithEveryLevelOfSixteenBits) {
  Histogram histogram;
  histogram.bins.assign(65536, 3);
  histogram.n = 3 * 65536;
  histogram.max = 65535;
  // Equal counts are parted into equal classes.
  const auto levels = multi_otsu_levels(histogram, 4);
  ASSERT_TRUE(levels);
  EXPECT_EQ(*levels, (std::vector<double>{16383, 32767, 49151}));
}

}  // namespace
}  // namespace orvexa::model
