#include "orvexa/model/measures/auto_threshold.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <stdexcept>

namespace orvexa::model {

namespace {

constexpr std::array methods{
    AutoThresholdMethodInfo{AutoThresholdMethod::otsu, "otsu",
                            "the level with the greatest variance between the two classes",
                            "N. Otsu, A Threshold Selection Method from Gray-Level Histograms, IEEE Trans. SMC 9(1), "
                            "1979, 62-66"},
    AutoThresholdMethodInfo{AutoThresholdMethod::li, "li", "the level with the least cross entropy",
                            "C. H. Li, P. K. S. Tam, An Iterative Algorithm for Minimum Cross Entropy Thresholding, "
                            "Pattern Recognition Letters 19(8), 1998, 771-776"},
    AutoThresholdMethodInfo{AutoThresholdMethod::yen, "yen",
                            "the level with the greatest -ln(S0 S1) + 2 ln(P0 P1), where P0 and P1 are the shares of "
                            "the two classes and S0 and S1 the sums of their bins' squared shares",
                            "J.-C. Yen, F.-J. Chang, S. Chang, A New Criterion for Automatic Multilevel Thresholding, "
                            "IEEE Trans. Image Processing 4(3), 1995, 370-378"},
    AutoThresholdMethodInfo{AutoThresholdMethod::triangle, "triangle",
                            "the level farthest below the line from the histogram's peak to the end of its longer tail",
                            "G. W. Zack, W. E. Rogers, S. A. Latt, Automatic Measurement of Sister Chromatid Exchange "
                            "Frequency, J. Histochem. Cytochem. 25(7), 1977, 741-753"},
    AutoThresholdMethodInfo{AutoThresholdMethod::isodata, "isodata",
                            "the lowest level midway between the means of the two classes",
                            "T. W. Ridler, S. Calvard, Picture Thresholding Using an Iterative Selection Method, IEEE "
                            "Trans. SMC 8(8), 1978, 630-632"},
    AutoThresholdMethodInfo{AutoThresholdMethod::minimum, "minimum",
                            "the lowest point between the two peaks that are left when the histogram is smoothed with "
                            "means of three bins until it has fewer than three peaks; a peak is where counts fall "
                            "after they rose, so the highest value is none; an empty mask with the note no_two_peaks "
                            "when two are not found within 10,000 passes",
                            "J. M. S. Prewitt, M. L. Mendelsohn, The Analysis of Cell Images, Annals of the New York "
                            "Academy of Sciences 128(3), 1966, 1035-1053"},
    AutoThresholdMethodInfo{AutoThresholdMethod::mean, "mean", "the mean of the values",
                            "C. A. Glasbey, An Analysis of Histogram-Based Thresholding Algorithms, CVGIP: Graphical "
                            "Models and Image Processing 55(6), 1993, 532-537"},
    AutoThresholdMethodInfo{AutoThresholdMethod::max_entropy, "max_entropy",
                            "the level with the greatest sum of the entropies of the two classes",
                            "J. N. Kapur, P. K. Sahoo, A. K. C. Wong, A New Method for Gray-Level Picture Thresholding "
                            "Using the Entropy of the Histogram, CVGIP 29(3), 1985, 273-285"},
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

/// The lowest of the bins, the last one left out, with the greatest merit.
template <typename MeritOfNextBin>
std::size_t best_bin(std::span<const std::int64_t> counts, const MeritOfNextBin& merit_of_next_bin) {
  std::size_t best = 0;
  double greatest = -std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i + 1 < counts.size(); ++i) {
    const double merit = merit_of_next_bin(i);
    // A bin without pixels parts them as the one below it does.
    if (counts[i] > 0 && merit > greatest) {
      greatest = merit;
      best = i;
    }
  }
  return best;
}

double total(std::span<const std::int64_t> counts) {
  return double(std::accumulate(counts.begin(), counts.end(), std::int64_t{0}));
}

std::size_t yen_bin(std::span<const std::int64_t> counts) {
  const double n = total(counts);
  // From the top, so that the last bins' squares are not what rounding leaves of a difference.
  std::vector<double> squares_above(counts.size() + 1, 0.0);
  for (std::size_t i = counts.size(); i-- > 0;) {
    squares_above[i] = squares_above[i + 1] + double(counts[i]) * double(counts[i]);
  }
  double n0 = 0;
  double squares = 0;
  return best_bin(counts, [&](std::size_t i) {
    n0 += double(counts[i]);
    squares += double(counts[i]) * double(counts[i]);
    return 2 * (std::log(n0) + std::log(n - n0)) - std::log(squares) - std::log(squares_above[i + 1]);
  });
}

std::size_t max_entropy_bin(std::span<const std::int64_t> counts) {
  const auto n_log_n = [](std::int64_t count) { return count > 0 ? double(count) * std::log(double(count)) : 0.0; };
  const double n = total(counts);
  std::vector<double> logs_above(counts.size() + 1, 0.0);
  for (std::size_t i = counts.size(); i-- > 0;) logs_above[i] = logs_above[i + 1] + n_log_n(counts[i]);
  double n0 = 0;
  double logs = 0;
  return best_bin(counts, [&](std::size_t i) {
    n0 += double(counts[i]);
    logs += n_log_n(counts[i]);
    // With p = c / n0 the entropy -sum of p ln p is ln n0 - (sum of c ln c) / n0.
    return std::log(n0) - logs / n0 + std::log(n - n0) - logs_above[i + 1] / (n - n0);
  });
}

std::size_t isodata_bin(std::span<const std::int64_t> counts) {
  std::int64_t n = 0;
  std::int64_t sum = 0;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    n += counts[i];
    sum += counts[i] * static_cast<std::int64_t>(i);
  }
  std::int64_t n0 = 0;
  std::int64_t sum0 = 0;
  // Both means grow with t, so their middle falls below t + 1 first where it is not below t.
  std::size_t t = 0;
  for (; t + 2 < counts.size(); ++t) {
    n0 += counts[t];
    sum0 += counts[t] * static_cast<std::int64_t>(t);
    // (m0 + m1) / 2 < t + 1, with 2 n0 n1 multiplied out: whole numbers, so that a middle that is a level is one.
    const long double n1 = static_cast<long double>(n - n0);
    const long double means =
        static_cast<long double>(sum0) * n1 + static_cast<long double>(sum - sum0) * static_cast<long double>(n0);
    if (means < 2 * static_cast<long double>(n0) * n1 * static_cast<long double>(t + 1)) break;
  }
  return t;
}

/// Where a histogram falls after it rose, three at most.
std::vector<std::size_t> first_peaks(std::span<const double> counts) {
  std::vector<std::size_t> peaks;
  bool rises = true;
  for (std::size_t i = 0; i + 1 < counts.size() && peaks.size() < 3; ++i) {
    if (rises && counts[i + 1] < counts[i]) {
      rises = false;
      peaks.push_back(i);
    } else if (!rises && counts[i + 1] > counts[i]) {
      rises = true;
    }
  }
  return peaks;
}

std::optional<std::size_t> minimum_bin(std::span<const std::int64_t> counts, const RunContext& context) {
  constexpr int most_passes = 10000;
  std::vector<double> smooth(counts.begin(), counts.end());
  std::vector<double> next(smooth.size());
  const std::size_t last = smooth.size() - 1;
  for (int pass = 0; pass < most_passes; ++pass) {
    context.check();
    next[0] = (smooth[0] + smooth[0] + smooth[1]) / 3;
    for (std::size_t i = 1; i < last; ++i) next[i] = (smooth[i - 1] + smooth[i] + smooth[i + 1]) / 3;
    next[last] = (smooth[last - 1] + smooth[last] + smooth[last]) / 3;
    smooth.swap(next);
    const std::vector<std::size_t> peaks = first_peaks(smooth);
    if (peaks.size() > 2) continue;
    if (peaks.size() < 2) return {};
    const auto begin = smooth.begin();
    return static_cast<std::size_t>(std::min_element(begin + static_cast<std::ptrdiff_t>(peaks[0]),
                                                     begin + static_cast<std::ptrdiff_t>(peaks[1]) + 1) -
                                    begin);
  }
  return {};
}

/// @param offset  see li_bin.
std::size_t mean_bin(std::span<const std::int64_t> counts, double offset) {
  std::int64_t n = 0;
  std::int64_t sum = 0;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    n += counts[i];
    sum += counts[i] * static_cast<std::int64_t>(i);
  }
  // The mean of whole counts without its fraction; nothing lies between the two.
  if (offset == 0) return static_cast<std::size_t>(sum / n);
  return static_cast<std::size_t>(std::min(double(sum) / double(n) + offset, double(counts.size()) - 2));
}

std::optional<std::size_t> level_bin(std::span<const std::int64_t> counts, AutoThresholdMethod method, double offset,
                                     const RunContext& context) {
  switch (method) {
    case AutoThresholdMethod::otsu:
      return otsu_bin(counts);
    case AutoThresholdMethod::li:
      return li_bin(counts, offset);
    case AutoThresholdMethod::yen:
      return yen_bin(counts);
    case AutoThresholdMethod::triangle:
      return triangle_bin(counts);
    case AutoThresholdMethod::isodata:
      return isodata_bin(counts);
    case AutoThresholdMethod::minimum:
      return minimum_bin(counts, context);
    case AutoThresholdMethod::mean:
      return mean_bin(counts, offset);
    case AutoThresholdMethod::max_entropy:
      break;
  }
  return max_entropy_bin(counts);
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

std::optional<double> auto_threshold_level(const Histogram& histogram, AutoThresholdMethod method,
                                           const RunContext& context) {
  const FilledBins filled(histogram);
  if (!histogram.has_contrast() || filled.counts.size() < 2) return {};
  const bool bins_are_counts = histogram.level(0) == histogram.first;
  const auto bin = level_bin(filled.counts, method, bins_are_counts ? 0.0 : 0.5, context);
  if (!bin) return {};
  return histogram.level(filled.first + *bin);
}

std::string no_level_text(const Histogram& histogram, std::string_view what) {
  if (histogram.n == 0)
    return fmt::format("no_contrast: there is no pixel to look at in {}, so the mask is empty", what);
  if (!histogram.has_contrast()) {
    return fmt::format("no_contrast: all pixels have the same value in {}, so the mask is empty", what);
  }
  return fmt::format("no_two_peaks: the histogram of {} does not come to have two peaks, so the mask is empty", what);
}

}  // namespace orvexa::model
