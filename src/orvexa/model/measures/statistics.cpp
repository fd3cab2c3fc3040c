#include "orvexa/model/measures/statistics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <utility>
#include <vector>

namespace orvexa::model {

namespace {

constexpr std::array<int, 5> percents{5, 25, 50, 75, 95};

/// Where a quantile lies among n ordered numbers: between `rank` and `rank + 1`, `share` of the way. In whole numbers,
/// so that a quantile that is an order statistic is exactly that.
struct QuantilePlace {
  std::size_t rank;
  double share;
};

QuantilePlace quantile_place(std::size_t n, int percent) {
  const std::size_t hundredfold = (n - 1) * static_cast<std::size_t>(percent);
  return {hundredfold / 100, static_cast<double>(hundredfold % 100) / 100};
}

double between(double low, double high, double share) {
  return share > 0 ? low + share * (high - low) : low;
}

struct CentralSums {
  double second = 0;
  double third = 0;
  double fourth = 0;
  void add(double deviation, double times) {
    const double square = deviation * deviation;
    second += times * square;
    third += times * square * deviation;
    fourth += times * square * square;
  }
  void add(const CentralSums& other) {
    second += other.second;
    third += other.third;
    fourth += other.fourth;
  }
};

void set_moments(Statistics& statistics, const CentralSums& sums) {
  if (statistics.min == statistics.max) return;
  const auto n = static_cast<double>(statistics.n);
  const double variance = sums.second / n;
  statistics.sd = std::sqrt(variance);
  statistics.skew = sums.third / n / (variance * statistics.sd);
  statistics.kurtosis = sums.fourth / n / (variance * variance) - 3;
}

void set_quantiles(Statistics& statistics, const std::array<double, percents.size()>& quantiles) {
  statistics.p5 = quantiles[0];
  statistics.p25 = quantiles[1];
  statistics.median = quantiles[2];
  statistics.p75 = quantiles[3];
  statistics.p95 = quantiles[4];
}

/// Median of |2 value - twice_median| over the counts, which is twice the median absolute deviation: everything stays
/// a whole number. Walks outwards from the median on both sides.
double median_absolute_deviation(std::span<const ValueCount> values, std::int64_t n, std::int64_t twice_median) {
  const auto deviation = [&](const ValueCount& v) { return std::abs(2 * std::int64_t{v.value} - twice_median); };
  auto above = std::partition_point(values.begin(), values.end(),
                                    [&](const ValueCount& v) { return 2 * std::int64_t{v.value} <= twice_median; });
  auto below = above;  // one past the next one to take on the lower side
  const std::int64_t low_rank = (n - 1) / 2;
  const std::int64_t high_rank = n / 2;
  std::int64_t passed = 0;
  std::int64_t low = -1;
  while (true) {
    const bool takes_below =
        below != values.begin() && (above == values.end() || deviation(*std::prev(below)) <= deviation(*above));
    const ValueCount& next = takes_below ? *--below : *above++;
    passed += next.count;
    if (low < 0 && passed > low_rank) low = deviation(next);
    if (passed > high_rank) return static_cast<double>(low + deviation(next)) / 4;
  }
}

/// The same of sorted counts. Those below the median, read downwards, and the others have rising deviations: how many
/// of the first belong to the smallest deviations is searched by halving.
double median_absolute_deviation(std::span<const std::uint16_t> sorted, std::int64_t twice_median) {
  const auto middle = static_cast<std::size_t>(
      std::partition_point(sorted.begin(), sorted.end(),
                           [&](std::uint16_t value) { return 2 * std::int64_t{value} <= twice_median; }) -
      sorted.begin());
  const auto below = [&](std::size_t k) { return twice_median - 2 * std::int64_t{sorted[middle - 1 - k]}; };
  const auto above = [&](std::size_t k) { return 2 * std::int64_t{sorted[middle + k]} - twice_median; };
  const auto deviation_of_rank = [&](std::size_t rank) {
    const std::size_t taken = rank + 1;  // from both sides together
    std::size_t fewest = taken - std::min(taken, sorted.size() - middle);
    std::size_t most = std::min(taken, middle);
    while (fewest < most) {
      const std::size_t half = fewest + (most - fewest) / 2;
      if (below(half) < above(taken - half - 1)) {
        fewest = half + 1;
      } else {
        most = half;
      }
    }
    return std::max(fewest > 0 ? below(fewest - 1) : 0, fewest < taken ? above(taken - fewest - 1) : 0);
  };
  const std::size_t n = sorted.size();
  return static_cast<double>(deviation_of_rank((n - 1) / 2) + deviation_of_rank(n / 2)) / 4;
}

/// From the exact sum and the extremes of n counts.
void set_level(Statistics& statistics, std::int64_t sum, std::int32_t lowest, std::int32_t highest) {
  statistics.sum = static_cast<double>(sum);
  statistics.mean = statistics.sum / static_cast<double>(statistics.n);
  statistics.min = lowest;
  statistics.max = highest;
}

/// @param at  the count at a rank and the one after it, asked in ascending order.
/// @returns twice the median, a whole number.
template <typename At>
std::int64_t set_quantiles_of_counts(Statistics& statistics, const At& at) {
  std::array<double, percents.size()> quantiles{};
  std::int64_t twice_median = 0;
  for (std::size_t k = 0; k < percents.size(); ++k) {
    const auto [rank, share] = quantile_place(static_cast<std::size_t>(statistics.n), percents[k]);
    const auto [low, next] = at(rank);
    const std::int32_t high = share > 0 ? next : low;
    quantiles[k] = between(low, high, share);
    if (percents[k] == 50) twice_median = std::int64_t{low} + high;
  }
  set_quantiles(statistics, quantiles);
  return twice_median;
}

/// Access to a list by position; a type with a name, because `order_statistics` calls itself with it.
struct ValuesOf {
  std::span<const double> values;
  double operator()(std::size_t i) const { return values[i]; }
};

/// The numbers of given ranks (ascending, 0 = the smallest) among `at(0)` ... `at(n - 1)`, found by counting into bins
/// and looking only into the bins that hold a wanted rank, again in the same way.
/// @param lowest, highest  the extremes of all n numbers.
template <typename At>
std::vector<double> order_statistics(std::size_t n, const At& at, double lowest, double highest,
                                     std::span<const std::size_t> ranks, const RunContext& context) {
  if (lowest == highest || ranks.empty()) return std::vector<double>(ranks.size(), lowest);
  const std::size_t bin_count = std::clamp<std::size_t>(n / 4, 2, std::size_t{1} << 16);
  const double scale = static_cast<double>(bin_count) / (highest - lowest);
  std::vector<double> found;
  found.reserve(ranks.size());
  constexpr std::size_t small = 64;
  if (n <= small || !std::isfinite(scale) || scale <= 0) {
    std::vector<double> sorted(n);
    for (std::size_t i = 0; i < n; ++i) sorted[i] = at(i);
    std::sort(sorted.begin(), sorted.end());
    for (const std::size_t rank : ranks) found.push_back(sorted[rank]);
    return found;
  }
  const auto bin_of = [&](double value) {
    return std::min(bin_count - 1, static_cast<std::size_t>((value - lowest) * scale));
  };

  // A stripe of a picture one pixel wide is a stretch of the list.
  const int length = static_cast<int>(n);
  const auto stretch = static_cast<std::size_t>(stripe_height(1));
  const auto stretches = static_cast<std::size_t>(stripe_count(length, 1));
  std::vector<std::vector<std::uint32_t>> counts(stretches);
  const auto count_stretch = [&](int begin, int end) {
    std::vector<std::uint32_t>& bins = counts[static_cast<std::size_t>(begin) / stretch];
    bins.resize(bin_count);
    for (int i = begin; i < end; ++i) ++bins[bin_of(at(static_cast<std::size_t>(i)))];
  };
  for_each_stripe(length, 1, context, count_stretch);
  for (std::size_t k = 1; k < stretches; ++k) {
    for (std::size_t bin = 0; bin < bin_count; ++bin) counts[0][bin] += counts[k][bin];
  }

  struct Wanted {
    std::size_t before;              ///< numbers in lower bins
    std::vector<std::size_t> ranks;  ///< within the bin
  };
  std::vector<Wanted> wanted;
  std::vector<std::uint8_t> slot_of_bin(bin_count, 0);  // 1.. = place in `wanted` + 1
  std::size_t before = 0;
  std::size_t next = 0;
  for (std::size_t bin = 0; bin < bin_count && next < ranks.size(); ++bin) {
    const std::size_t after = before + counts[0][bin];
    if (ranks[next] < after) {
      wanted.push_back({before, {}});
      slot_of_bin[bin] = static_cast<std::uint8_t>(wanted.size());
      while (next < ranks.size() && ranks[next] < after) wanted.back().ranks.push_back(ranks[next++] - before);
    }
    before = after;
  }

  std::vector<std::vector<std::vector<double>>> collected(stretches);
  const auto collect_stretch = [&](int begin, int end) {
    auto& slots = collected[static_cast<std::size_t>(begin) / stretch];
    slots.resize(wanted.size());
    for (int i = begin; i < end; ++i) {
      const double value = at(static_cast<std::size_t>(i));
      const std::uint8_t slot = slot_of_bin[bin_of(value)];
      if (slot != 0) slots[slot - 1U].push_back(value);
    }
  };
  for_each_stripe(length, 1, context, collect_stretch);

  for (std::size_t k = 0; k < wanted.size(); ++k) {
    std::size_t size = 0;
    for (const auto& slots : collected) size += slots[k].size();
    std::vector<double> inside;
    inside.reserve(size);
    double low = highest;
    double high = lowest;
    for (auto& slots : collected) {
      context.check();
      for (const double value : slots[k]) {
        low = std::min(low, value);
        high = std::max(high, value);
      }
      inside.insert(inside.end(), slots[k].begin(), slots[k].end());
      slots[k] = {};
    }
    const auto part = order_statistics(inside.size(), ValuesOf{inside}, low, high, wanted[k].ranks, context);
    found.insert(found.end(), part.begin(), part.end());
  }
  return found;
}

}  // namespace

Statistics describe_counts(std::span<const ValueCount> values) {
  Statistics statistics;
  if (values.empty()) return statistics;
  std::int64_t sum = 0;
  for (const ValueCount& v : values) {
    statistics.n += v.count;
    sum += v.count * v.value;
  }
  set_level(statistics, sum, values.front().value, values.back().value);
  CentralSums sums;
  for (const ValueCount& v : values) sums.add(v.value - statistics.mean, static_cast<double>(v.count));
  set_moments(statistics, sums);

  auto at = values.begin();
  std::int64_t passed = at->count;  // numbers up to and with `*at`
  const std::int64_t twice_median = set_quantiles_of_counts(statistics, [&](std::size_t rank) {
    while (passed <= static_cast<std::int64_t>(rank)) passed += (++at)->count;
    const bool next_is_higher = passed == static_cast<std::int64_t>(rank) + 1 && std::next(at) != values.end();
    return std::pair(at->value, next_is_higher ? std::next(at)->value : at->value);
  });
  statistics.mad = median_absolute_deviation(values, statistics.n, twice_median);
  return statistics;
}

Statistics describe_sorted(std::span<const std::uint16_t> sorted) {
  Statistics statistics;
  if (sorted.empty()) return statistics;
  statistics.n = static_cast<std::int64_t>(sorted.size());
  set_level(statistics, std::accumulate(sorted.begin(), sorted.end(), std::int64_t{0}), sorted.front(), sorted.back());
  CentralSums sums;
  for (std::size_t k = 0; k < sorted.size();) {
    const std::size_t first = k;
    while (k < sorted.size() && sorted[k] == sorted[first]) ++k;
    sums.add(sorted[first] - statistics.mean, static_cast<double>(k - first));
  }
  set_moments(statistics, sums);

  const std::int64_t twice_median = set_quantiles_of_counts(statistics, [&](std::size_t rank) {
    return std::pair<std::int32_t, std::int32_t>(sorted[rank], sorted[std::min(rank + 1, sorted.size() - 1)]);
  });
  statistics.mad = median_absolute_deviation(sorted, twice_median);
  return statistics;
}

Statistics describe_values(std::span<const double> values, const RunContext& context) {
  Statistics statistics;
  if (values.empty()) return statistics;
  const std::size_t n = values.size();
  statistics.n = static_cast<std::int64_t>(n);

  struct Part {
    double sum = 0;
    double min = 0;
    double max = 0;
    CentralSums central;
  };
  const int length = static_cast<int>(n);
  const auto stretch = static_cast<std::size_t>(stripe_height(1));
  std::vector<Part> parts(static_cast<std::size_t>(stripe_count(length, 1)));
  for_each_stripe(length, 1, context, [&](int begin, int end) {
    Part& part = parts[static_cast<std::size_t>(begin) / stretch];
    const auto own = values.subspan(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin));
    part.min = part.max = own.front();
    for (const double value : own) {
      part.sum += value;
      part.min = std::min(part.min, value);
      part.max = std::max(part.max, value);
    }
  });
  statistics.min = parts.front().min;
  statistics.max = parts.front().max;
  for (const Part& part : parts) {
    statistics.sum += part.sum;
    statistics.min = std::min(statistics.min, part.min);
    statistics.max = std::max(statistics.max, part.max);
  }
  statistics.mean = statistics.min == statistics.max ? statistics.min : statistics.sum / static_cast<double>(n);
  for_each_stripe(length, 1, context, [&](int begin, int end) {
    CentralSums& sums = parts[static_cast<std::size_t>(begin) / stretch].central;
    for (int i = begin; i < end; ++i) sums.add(values[static_cast<std::size_t>(i)] - statistics.mean, 1);
  });
  CentralSums sums;
  for (const Part& part : parts) sums.add(part.central);
  set_moments(statistics, sums);

  std::vector<std::size_t> ranks;
  for (const int percent : percents) {
    const std::size_t rank = quantile_place(n, percent).rank;
    ranks.push_back(rank);
    ranks.push_back(std::min(rank + 1, n - 1));
  }
  std::sort(ranks.begin(), ranks.end());
  ranks.erase(std::unique(ranks.begin(), ranks.end()), ranks.end());
  const auto ordered = order_statistics(n, ValuesOf{values}, statistics.min, statistics.max, ranks, context);
  const auto of_rank = [&](std::size_t rank) {
    return ordered[static_cast<std::size_t>(std::lower_bound(ranks.begin(), ranks.end(), rank) - ranks.begin())];
  };
  std::array<double, percents.size()> quantiles{};
  for (std::size_t k = 0; k < percents.size(); ++k) {
    const auto [rank, share] = quantile_place(n, percents[k]);
    quantiles[k] = between(of_rank(rank), of_rank(std::min(rank + 1, n - 1)), share);
  }
  set_quantiles(statistics, quantiles);

  const double median = statistics.median;
  const std::array<std::size_t, 2> middle{(n - 1) / 2, n / 2};
  const auto deviations = order_statistics(
      n, [&](std::size_t i) { return std::abs(values[i] - median); }, 0,
      std::max(median - statistics.min, statistics.max - median), middle, context);
  statistics.mad = between(deviations[0], deviations[1], 0.5);
  return statistics;
}

}  // namespace orvexa::model
