#include "orvexa/model/measures/auto_threshold.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>

namespace orvexa::model {

namespace {

constexpr std::array methods{
    AutoThresholdMethodInfo{AutoThresholdMethod::otsu, "otsu",
                            "the level with the greatest variance between the two classes",
                            "N. Otsu, A Threshold Selection Method from Gray-Level Histograms, IEEE Trans. SMC 9(1), "
                            "1979, 62-66"},
    AutoThresholdMethodInfo{AutoThresholdMethod::triangle, "triangle",
                            "the level farthest below the line from the histogram's peak to the end of its longer tail",
                            "G. W. Zack, W. E. Rogers, S. A. Latt, Automatic Measurement of Sister Chromatid Exchange "
                            "Frequency, J. Histochem. Cytochem. 25(7), 1977, 741-753"},
    AutoThresholdMethodInfo{AutoThresholdMethod::li, "li", "the level with the least cross entropy",
                            "C. H. Li, P. K. S. Tam, An Iterative Algorithm for Minimum Cross Entropy Thresholding, "
                            "Pattern Recognition Letters 19(8), 1998, 771-776"},
};

/// The filled part of a histogram, counted from its first filled bin.
struct FilledBins {
  explicit FilledBins(const Histogram& histogram) {
    const auto is_filled = [](std::int64_t count) { return count > 0; };
    const auto begin = std::ranges::find_if(histogram.bins, is_filled);
    const auto end = std::find_if(histogram.bins.rbegin(), histogram.bins.rend(), is_filled).base();
    if (begin >= end) return;
    first = static_cast<std::size_t>(begin - histogram.bins.begin());
    counts = {begin, end};
  }
  std::size_t first = 0;
  std::span<const std::int64_t> counts;
};

std::size_t otsu_bin(std::span<const std::int64_t> counts) {
  std::int64_t n = 0;
  std::int64_t sum = 0;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    n += counts[i];
    sum += counts[i] * static_cast<std::int64_t>(i);
  }
  std::size_t best = 0;
  long double greatest = -1;
  std::int64_t n0 = 0;
  std::int64_t sum0 = 0;
  for (std::size_t i = 0; i + 1 < counts.size(); ++i) {
    n0 += counts[i];
    sum0 += counts[i] * static_cast<std::int64_t>(i);
    // n0 n1 (m0 - m1)^2 with the means' denominators multiplied out: whole numbers as long as possible, so that
    // mirrored histograms are judged alike.
    const long double n1 = static_cast<long double>(n - n0);
    const long double difference =
        static_cast<long double>(sum0) * n1 - static_cast<long double>(sum - sum0) * static_cast<long double>(n0);
    const long double variance = difference * difference / (static_cast<long double>(n0) * n1);
    if (variance > greatest) {
      greatest = variance;
      best = i;
    }
  }
  return best;
}

std::size_t triangle_bin(std::span<const std::int64_t> counts) {
  const auto last = static_cast<std::int64_t>(counts.size()) - 1;
  const std::int64_t peak = std::ranges::max_element(counts) - counts.begin();
  const bool tail_is_above = peak < last - peak;
  const std::int64_t width = tail_is_above ? last - peak : peak;
  const std::int64_t height = counts[static_cast<std::size_t>(peak)];
  const auto bin_from_tail = [&](std::int64_t i) { return tail_is_above ? last - i : i; };
  // The level must leave something above it, so the last bin is none.
  const std::int64_t begin = tail_is_above ? 1 : 0;
  std::int64_t best = begin;
  std::int64_t farthest = 0;
  for (std::int64_t i = begin; i < width; ++i) {
    // Distance below the line from (0, 0) to (width, height), times the line's length.
    const std::int64_t distance = height * i - width * counts[static_cast<std::size_t>(bin_from_tail(i))];
    if (i == begin || distance > farthest) {
      farthest = distance;
      best = i;
    }
  }
  return static_cast<std::size_t>(bin_from_tail(best));
}

/// @param offset  value of bin 0 in bins: 0 for whole counts, 0.5 where a bin stands for a range.
std::size_t li_bin(std::span<const std::int64_t> counts, double offset) {
  std::vector<double> n(counts.size() + 1, 0.0);
  std::vector<double> sum(counts.size() + 1, 0.0);
  for (std::size_t i = 0; i < counts.size(); ++i) {
    n[i + 1] = n[i] + double(counts[i]);
    sum[i + 1] = sum[i] + double(counts[i]) * (double(i) + offset);
  }
  // Background is bins 0..t. Both means grow with t and the next level with the means, so the levels move one way only
  // and end.
  const std::size_t highest = counts.size() - 2;
  const auto bin_at = [&](double level) {
    return static_cast<std::size_t>(std::clamp(std::floor(level - offset), 0.0, double(highest)));
  };
  std::size_t t = bin_at(sum.back() / n.back());
  while (true) {
    const double background = sum[t + 1] / n[t + 1];
    const double foreground = (sum.back() - sum[t + 1]) / (n.back() - n[t + 1]);
    if (background <= 0) return t;  // only the lowest value is left below
    const std::size_t next = bin_at((background - foreground) / (std::log(background) - std::log(foreground)));
    if (next == t) return t;
    t = next;
  }
}

}  // namespace

std::span<const AutoThresholdMethodInfo> auto_threshold_methods() {
  return methods;
}

std::vector<std::string> auto_threshold_method_names() {
  std::vector<std::string> names;
  names.reserve(methods.size());
  for (const AutoThresholdMethodInfo& info : methods) names.emplace_back(info.name);
  return names;
}

AutoThresholdMethod auto_threshold_method(std::string_view name) {
  const auto found = std::ranges::find(methods, name, &AutoThresholdMethodInfo::name);
  if (found == methods.end()) {
    throw std::invalid_argument("There is no threshold method \"" + std::string(name) + "\".");
  }
  return found->method;
}

std::optional<double> auto_threshold_level(const Histogram& histogram, AutoThresholdMethod method) {
  const FilledBins filled(histogram);
  if (!histogram.has_contrast() || filled.counts.size() < 2) return {};
  switch (method) {
    case AutoThresholdMethod::otsu:
      return histogram.level(filled.first + otsu_bin(filled.counts));
    case AutoThresholdMethod::triangle:
      return histogram.level(filled.first + triangle_bin(filled.counts));
    case AutoThresholdMethod::li:
      break;
  }
  const bool bins_are_counts = histogram.level(0) == histogram.first;
  return histogram.level(filled.first + li_bin(filled.counts, bins_are_counts ? 0.0 : 0.5));
}

}  // namespace orvexa::model
