#include "orvexa/model/measures/band_pairs.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <numeric>
#include <span>

#include "orvexa/common/parallel.h"

namespace orvexa::model {

namespace {

/// Bits of a float that sort as its value: negative ones are turned round, the others put above them. -0 counts as 0.
std::uint32_t sortable(float value) {
  if (!std::isfinite(value)) return SortableValues::none;
  const auto bits = std::bit_cast<std::uint32_t>(value == 0 ? 0.0F : value);
  return (bits & 0x80000000U) != 0 ? ~bits : bits | 0x80000000U;
}

template <typename T>
void read_run(const Image& plane, const RegionPixels::Run& run, std::span<std::uint32_t> out) {
  const T* row = plane.row<T>(run.y).data();
  for (int x = run.x0; x < run.x1; ++x) {
    if constexpr (std::is_same_v<T, float>) {
      out[static_cast<std::size_t>(x - run.x0)] = sortable(row[x]);
    } else {
      out[static_cast<std::size_t>(x - run.x0)] = row[x];
    }
  }
}

RegionPixels::Gathered<std::uint32_t> keys_of(const Band& band, const RegionPixels& pixels, const RunContext& context) {
  const Image plane = band.plane(context);
  return pixels.gather<std::uint32_t>(context, [&](const RegionPixels::Run& run, std::span<std::uint32_t> out) {
    switch (plane.type()) {
      case PixelType::u8:
        return read_run<std::uint8_t>(plane, run, out);
      case PixelType::u16:
        return read_run<std::uint16_t>(plane, run, out);
      case PixelType::f32:
        return read_run<float>(plane, run, out);
    }
  });
}

/// Places of the keys in ascending order, by 16 bits at a time.
std::vector<std::uint32_t> sorted_places(std::span<const std::uint32_t> keys, const RunContext& context) {
  std::vector<std::uint32_t> places(keys.size());
  std::iota(places.begin(), places.end(), 0U);
  std::vector<std::uint32_t> other(keys.size());
  for (const int shift : {0, 16}) {
    std::vector<std::size_t> next(65537, 0);
    for_each_piece(keys.size(), context, [&](std::size_t begin, std::size_t end) {
      for (const std::uint32_t key : keys.subspan(begin, end - begin)) ++next[((key >> shift) & 65535U) + 1];
    });
    std::partial_sum(next.begin(), next.end(), next.begin());
    for_each_piece(keys.size(), context, [&](std::size_t begin, std::size_t end) {
      for (std::size_t k = begin; k < end; ++k) other[next[(keys[places[k]] >> shift) & 65535U]++] = places[k];
    });
    places.swap(other);
  }
  return places;
}

/// Twice the rank of each key, counted from 1: whole numbers also where equal keys share a rank.
std::vector<std::uint32_t> twice_ranks(std::span<const std::uint32_t> keys, const RunContext& context) {
  std::vector<std::uint32_t> ranks(keys.size());
  if (keys.empty()) return ranks;
  const auto extremes = std::ranges::minmax_element(keys);
  const std::uint32_t low = *extremes.min;
  const std::size_t range = std::size_t{*extremes.max} - low + 1;
  if (range <= std::max<std::size_t>(4 * keys.size(), 1024) && range <= (std::size_t{1} << 20)) {
    std::vector<std::uint32_t> counts(range, 0);
    for_each_piece(keys.size(), context, [&](std::size_t begin, std::size_t end) {
      for (const std::uint32_t key : keys.subspan(begin, end - begin)) ++counts[key - low];
    });
    // Those before, and the mean place of the equal ones: 2 (before) + count + 1.
    std::uint32_t before = 0;
    for (std::uint32_t& count : counts) {
      const std::uint32_t own = count;
      count = 2 * before + own + 1;
      before += own;
    }
    for_each_piece(keys.size(), context, [&](std::size_t begin, std::size_t end) {
      for (std::size_t k = begin; k < end; ++k) ranks[k] = counts[keys[k] - low];
    });
    return ranks;
  }
  std::vector<std::uint32_t> places;
  if (keys.size() < 65536) {
    places.resize(keys.size());
    std::iota(places.begin(), places.end(), 0U);
    std::ranges::sort(places, [&](std::uint32_t a, std::uint32_t b) { return keys[a] < keys[b]; });
  } else {
    places = sorted_places(keys, context);
  }
  for (std::size_t begin = 0; begin < places.size();) {
    std::size_t end = begin + 1;
    while (end < places.size() && keys[places[end]] == keys[places[begin]]) ++end;
    for (std::size_t k = begin; k < end; ++k) ranks[places[k]] = static_cast<std::uint32_t>(begin + end + 1);
    begin = end;
  }
  return ranks;
}

/// Pearson's coefficient of two lists given by position; `at` gives the k-th pair.
template <typename At>
double pearson_of(std::size_t n, const At& at, const RunContext& context) {
  std::array<double, 2> sums{};
  for_each_piece(n, context, [&](std::size_t begin, std::size_t end) {
    for (std::size_t k = begin; k < end; ++k) {
      const auto [a, b] = at(k);
      sums[0] += a;
      sums[1] += b;
    }
  });
  const double mean_a = sums[0] / static_cast<double>(n);
  const double mean_b = sums[1] / static_cast<double>(n);
  double squares_a = 0;
  double squares_b = 0;
  double products = 0;
  for_each_piece(n, context, [&](std::size_t begin, std::size_t end) {
    for (std::size_t k = begin; k < end; ++k) {
      const auto [a, b] = at(k);
      squares_a += (a - mean_a) * (a - mean_a);
      squares_b += (b - mean_b) * (b - mean_b);
      products += (a - mean_a) * (b - mean_b);
    }
  });
  return std::clamp(products / (std::sqrt(squares_a) * std::sqrt(squares_b)), -1.0, 1.0);
}

bool is_flat(std::span<const std::uint32_t> keys) {
  return std::ranges::all_of(keys, [&](std::uint32_t key) { return key == keys.front(); });
}

struct Pairs {
  std::vector<std::uint32_t> first;
  std::vector<std::uint32_t> second;
};

/// The pixels where both have a value.
Pairs valid_pairs(std::span<const std::uint32_t> first, std::span<const std::uint32_t> second,
                  const RunContext& context) {
  Pairs pairs;
  pairs.first.reserve(first.size());
  pairs.second.reserve(first.size());
  for_each_piece(first.size(), context, [&](std::size_t begin, std::size_t end) {
    for (std::size_t k = begin; k < end; ++k) {
      if (first[k] == SortableValues::none || second[k] == SortableValues::none) continue;
      pairs.first.push_back(first[k]);
      pairs.second.push_back(second[k]);
    }
  });
  return pairs;
}

struct TwoValues {
  double a;
  double b;
};

PairCorrelation correlation_of(const Pairs& pairs, const SortableValues& first, const SortableValues& second,
                               const RunContext& context) {
  const std::size_t n = pairs.first.size();
  PairCorrelation result{.n = static_cast<std::int64_t>(n),
                         .first_is_flat = false,
                         .second_is_flat = false,
                         .pearson = {},
                         .spearman = {}};
  if (n < 2) return result;
  result.first_is_flat = is_flat(pairs.first);
  result.second_is_flat = is_flat(pairs.second);
  if (result.first_is_flat || result.second_is_flat) return result;
  result.pearson = pearson_of(
      n,
      [&](std::size_t k) {
        return TwoValues{first.value(pairs.first[k]), second.value(pairs.second[k])};
      },
      context);
  const std::vector<std::uint32_t> ranks_a = twice_ranks(pairs.first, context);
  const std::vector<std::uint32_t> ranks_b = twice_ranks(pairs.second, context);
  result.spearman = pearson_of(
      n,
      [&](std::size_t k) {
        return TwoValues{static_cast<double>(ranks_a[k]), static_cast<double>(ranks_b[k])};
      },
      context);
  return result;
}

}  // namespace

SortableValues::SortableValues(const Band& band, const RegionPixels& pixels, const RunContext& context)
    : _is_float(band.image.type() == PixelType::f32), _keys(keys_of(band, pixels, context)) {}

double SortableValues::value(std::uint32_t key) const {
  if (!_is_float) return key;
  return std::bit_cast<float>((key & 0x80000000U) != 0 ? key & 0x7fffffffU : ~key);
}

std::vector<PairCorrelation> correlate(const SortableValues& first, const SortableValues& second,
                                       std::size_t group_count, const RunContext& context) {
  std::vector<PairCorrelation> result(group_count);
  common::parallel_for(group_count, [&](std::size_t group) {
    context.check();
    result[group] = correlation_of(valid_pairs(first.of(group), second.of(group), context), first, second, context);
  });
  return result;
}

}  // namespace orvexa::model
