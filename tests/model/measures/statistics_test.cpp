#include "orvexa/model/measures/statistics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <vector>

#include "orvexa/common/parallel.h"

namespace orvexa::model {
namespace {

std::vector<ValueCount> counted(const std::vector<double>& values) {
  std::map<std::int32_t, std::int64_t> counts;
  for (const double value : values) ++counts[static_cast<std::int32_t>(value)];
  std::vector<ValueCount> rows;
  for (const auto& [value, count] : counts) rows.push_back({value, count});
  return rows;
}

std::vector<std::uint16_t> sorted(const std::vector<double>& values) {
  std::vector<std::uint16_t> counts;
  for (const double value : values) counts.push_back(static_cast<std::uint16_t>(value));
  std::sort(counts.begin(), counts.end());
  return counts;
}

/// Slow and obvious: sort, then read off.
struct Reference {
  explicit Reference(std::vector<double> values) : sorted(std::move(values)) {
    std::sort(sorted.begin(), sorted.end());
    long double sum = 0;
    for (const double v : sorted) sum += v;
    mean = static_cast<double>(sum / static_cast<long double>(sorted.size()));
    std::vector<double> deviations;
    for (const double v : sorted) deviations.push_back(std::abs(v - quantile(0.5)));
    std::sort(deviations.begin(), deviations.end());
    mad = (deviations[(deviations.size() - 1) / 2] + deviations[deviations.size() / 2]) / 2;
  }
  [[nodiscard]] double quantile(double p) const {
    const double place = static_cast<double>(sorted.size() - 1) * p;
    const auto low = static_cast<std::size_t>(std::floor(place + 1e-9));
    const double share = std::max(0.0, place - static_cast<double>(low));
    return sorted[low] + share * (sorted[std::min(low + 1, sorted.size() - 1)] - sorted[low]);
  }
  [[nodiscard]] double moment(int power) const {
    long double sum = 0;
    for (const double v : sorted) sum += std::pow(static_cast<long double>(v) - mean, power);
    return static_cast<double>(sum / static_cast<long double>(sorted.size()));
  }
  std::vector<double> sorted;
  double mean = 0;
  double mad = 0;
};

void expect_agrees(const Statistics& s, const Reference& reference) {
  const double size = std::max(std::abs(reference.sorted.front()), std::abs(reference.sorted.back()));
  const double tolerance = 1e-12 * std::max(size, 1e-300);
  EXPECT_EQ(s.n, static_cast<std::int64_t>(reference.sorted.size()));
  EXPECT_EQ(s.min, reference.sorted.front());
  EXPECT_EQ(s.max, reference.sorted.back());
  EXPECT_NEAR(s.mean, reference.mean, tolerance);
  EXPECT_NEAR(s.sd, std::sqrt(reference.moment(2)), 10 * tolerance);
  EXPECT_NEAR(s.median, reference.quantile(0.5), tolerance);
  EXPECT_NEAR(s.mad, reference.mad, tolerance);
  EXPECT_NEAR(s.p5, reference.quantile(0.05), tolerance);
  EXPECT_NEAR(s.p25, reference.quantile(0.25), tolerance);
  EXPECT_NEAR(s.p75, reference.quantile(0.75), tolerance);
  EXPECT_NEAR(s.p95, reference.quantile(0.95), tolerance);
  if (reference.sorted.front() == reference.sorted.back()) {
    EXPECT_EQ(s.sd, 0);
    return;
  }
  EXPECT_NEAR(s.skew, reference.moment(3) / std::pow(reference.moment(2), 1.5), 1e-8);
  EXPECT_NEAR(s.kurtosis, reference.moment(4) / std::pow(reference.moment(2), 2) - 3, 1e-8);
}

// python3-numpy and scipy: mean, std, median, median(|x - median|), percentile [5, 25, 75, 95], stats.skew and
// stats.kurtosis of these digits of pi.
TEST(Statistics, AgreesWithNumpyAndScipy) {
  const std::vector<double> digits{3, 1, 4, 1, 5, 9, 2, 6, 5, 3, 5, 8, 9, 7, 9, 3, 2, 3, 8, 4, 6};
  for (const Statistics& s :
       {describe_values(digits, {}), describe_counts(counted(digits)), describe_sorted(sorted(digits))}) {
    EXPECT_EQ(s.n, 21);
    EXPECT_EQ(s.sum, 103);
    EXPECT_NEAR(s.mean, 4.904761904761905, 1e-14);
    EXPECT_NEAR(s.sd, 2.5802318445988703, 1e-14);
    EXPECT_EQ(s.median, 5);
    EXPECT_EQ(s.mad, 2);
    EXPECT_EQ(s.p5, 1);
    EXPECT_EQ(s.p25, 3);
    EXPECT_EQ(s.p75, 7);
    EXPECT_EQ(s.p95, 9);
    EXPECT_NEAR(s.skew, 0.22166518924228013, 1e-13);
    EXPECT_NEAR(s.kurtosis, -1.1619462242647893, 1e-13);
  }
}

// By hand: of 1, 2, 3, 4 the 25 % quantile lies (4 - 1) * 0.25 = 0.75 after the first, so it is 1.75; the deviations
// from the median 2.5 are 1.5, 0.5, 0.5, 1.5 with median 1.
TEST(Statistics, QuantilesLieBetweenOrderStatistics) {
  const std::vector<double> values{4, 2, 1, 3};
  for (const Statistics& s :
       {describe_values(values, {}), describe_counts(counted(values)), describe_sorted(sorted(values))}) {
    EXPECT_EQ(s.p25, 1.75);
    EXPECT_EQ(s.median, 2.5);
    EXPECT_EQ(s.mad, 1);
    EXPECT_EQ(s.sd, std::sqrt(1.25));
    EXPECT_EQ(s.skew, 0);
  }
}

TEST(Statistics, OneNumberIsAllOfThemAndHasNoSpread) {
  for (const Statistics& s :
       {describe_values(std::vector<double>{7}, {}), describe_counts(counted({7})), describe_sorted(sorted({7}))}) {
    EXPECT_EQ(s.n, 1);
    for (const double value : {s.mean, s.min, s.max, s.median, s.p5, s.p25, s.p75, s.p95, s.sum}) EXPECT_EQ(value, 7);
    EXPECT_EQ(s.sd, 0);
    EXPECT_EQ(s.mad, 0);
  }
}

TEST(Statistics, NoNumbersGiveACountOfZero) {
  EXPECT_EQ(describe_values({}, {}).n, 0);
  EXPECT_EQ(describe_counts({}).n, 0);
  EXPECT_EQ(describe_sorted({}).n, 0);
}

TEST(Statistics, EqualNumbersHaveExactlyNoSpread) {
  const std::vector<double> values(1000, 0.1);
  const Statistics s = describe_values(values, {});
  EXPECT_EQ(s.mean, 0.1);
  EXPECT_EQ(s.sd, 0);
  EXPECT_EQ(s.mad, 0);
}

TEST(Statistics, AllWaysMatchTheSlowReferenceOnRandomNumbers) {
  for (unsigned seed = 0; seed < 120; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const std::size_t n = 1 + random() % (seed < 60 ? 150 : 5000);
    const unsigned range = seed % 3 == 0 ? 4 : seed % 3 == 1 ? 300 : 65536;
    std::vector<double> values(n);
    for (double& value : values) value = static_cast<double>(random() % range);
    const Reference reference(values);
    expect_agrees(describe_values(values, {}), reference);
    expect_agrees(describe_counts(counted(values)), reference);
    expect_agrees(describe_sorted(sorted(values)), reference);
    EXPECT_EQ(describe_sorted(sorted(values)).kurtosis, describe_counts(counted(values)).kurtosis);
  }
}

TEST(Statistics, StrangeDistributionsAreStillExact) {
  std::mt19937 random(7);
  std::normal_distribution<double> normal;
  std::vector<double> with_outlier(3000);
  for (double& value : with_outlier) value = normal(random);
  with_outlier[5] = 1e12;  // squeezes all others into one bin
  expect_agrees(describe_values(with_outlier, {}), Reference(with_outlier));
  std::vector<double> mostly_equal(3000, 0.25);
  for (std::size_t i = 0; i < 200; ++i) mostly_equal[i * 7] = normal(random);
  expect_agrees(describe_values(mostly_equal, {}), Reference(mostly_equal));
  std::vector<double> tiny(500);
  for (double& value : tiny) value = 1e-310 * static_cast<double>(random() % 1000);
  EXPECT_EQ(describe_values(tiny, {}).median, Reference(tiny).quantile(0.5));
  std::vector<double> huge{-1.7e308, 1.7e308, 3, 4, 5};
  EXPECT_EQ(describe_values(huge, {}).median, 4);
}

TEST(Statistics, ManyNumbersGiveTheSameWithAnyNumberOfThreads) {
  std::mt19937 random(3);
  std::normal_distribution<double> normal;
  std::vector<double> values(700'000);
  for (double& value : values) value = normal(random);
  const Statistics alone = [&] {
    common::set_thread_count(1);
    return describe_values(values, {});
  }();
  expect_agrees(alone, Reference(values));
  for (const int threads : {2, 3, 7}) {
    common::set_thread_count(threads);
    const Statistics together = describe_values(values, {});
    EXPECT_EQ(together.mean, alone.mean);
    EXPECT_EQ(together.sd, alone.sd);
    EXPECT_EQ(together.skew, alone.skew);
    EXPECT_EQ(together.kurtosis, alone.kurtosis);
    EXPECT_EQ(together.mad, alone.mad);
    EXPECT_EQ(together.p95, alone.p95);
  }
  common::set_thread_count(0);
}

}  // namespace
}  // namespace orvexa::model
