#include "orvexa/ui/plots/histogram_data.h"

#include <QCoreApplication>
#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/measures/histogram.h"
#include "orvexa/model/measures/role_bands.h"
#include "orvexa/model/measures/smoothing.h"
#include "orvexa/model/measures/spectral_indices.h"

namespace orvexa::ui {

using common::Value;

namespace {

using Axis = HistogramLimits::Axis;
using Kept = HistogramLimits::Kept;

constexpr std::array limits_table{
    HistogramLimits{"threshold_range", Axis::band, "low", "high", Kept::between},
    HistogramLimits{"threshold_hysteresis", Axis::band, "low", "high", Kept::above_low},
    HistogramLimits{"threshold_auto", Axis::band, "min", "max", Kept::unknown},
    HistogramLimits{"threshold_percentile", Axis::percentiles_of_band, "low", "high", Kept::between},
    HistogramLimits{"threshold_index", Axis::index, "low", "high", Kept::between},
};

/// Parameters that choose which values are looked at.
constexpr std::array choosing_values{"band",         "index",         "expression",   "bands",           "smooth",
                                     "smooth_sigma", "smooth_radius", "smooth_range", "reset_mask_chain"};

/// Adds the bins of a histogram to those of the data, wherever the middles of its own lie.
void add_bins(const model::Histogram& histogram, double unit, const HistogramData& data,
              std::vector<std::int64_t>& bins) {
  const double half = data.is_of_counts ? 0.0 : 0.5;
  const auto last_bin = static_cast<double>(bins.size() - 1);
  for (std::size_t i = 0; i < histogram.bins.size(); ++i) {
    if (histogram.bins[i] == 0) continue;
    const double middle = (histogram.first + (static_cast<double>(i) + half) * histogram.step) / unit;
    const double bin = std::clamp(std::floor((middle - data.first) / data.step), 0.0, last_bin);
    bins[static_cast<std::size_t>(bin)] += histogram.bins[i];
  }
}

/// @param unit  values that are 1 on the axis.
void fill(HistogramData& data, const model::Histogram& whole, const model::Histogram& inside, double unit) {
  data.step = whole.step / unit;
  if (data.is_of_counts) {
    // From half a count below the lowest to half a count above the highest.
    data.first = (whole.min - 0.5 * whole.step) / unit;
    data.whole.assign(static_cast<std::size_t>(std::llround((whole.max - whole.min) / whole.step)) + 1, 0);
  } else {
    const bool has_width = whole.n > 0 && whole.step > 0 && whole.max > whole.min;
    if (!has_width) data.step = 1e-3;
    data.first = (has_width ? whole.first : whole.min - 0.5 * data.step * unit) / unit;
    data.whole.assign(has_width ? whole.bins.size() : 1, 0);
  }
  data.inside.assign(data.whole.size(), 0);
  add_bins(whole, unit, data, data.whole);
  add_bins(inside, unit, data, data.inside);
}

cv::Mat index_values(const HistogramQuestion& question, const model::RunContext& context) {
  const Value& params = question.params;
  const auto& index = params.at("index").get_ref<const std::string&>();
  if (index != "custom") {
    const std::array keys{index};
    const model::RoleBands named = model::role_bands(question.limits->operation, params.at("bands"), keys);
    return model::compute_index(*question.capture, model::get_spectral_index(index), context, named).values;
  }
  if (!params.at("expression").is_string()) throw std::invalid_argument("There is no expression yet.");
  const model::Expression expression(params.at("expression").get_ref<const std::string&>());
  // Names that are no roles are bands of their own; only roles can have bands named for them.
  const std::array users{model::RoleUser{.name = index, .roles = expression.names()}};
  const model::RoleBands named = model::role_bands(question.limits->operation, params.at("bands"), users);
  return model::compute_index(*question.capture, expression, context, named).values;
}

}  // namespace

double HistogramData::snapped(double value) const {
  if (is_of_counts) {
    const double bin = std::clamp(std::floor((value - first) / step), 0.0, static_cast<double>(whole.size() - 1));
    // A limit within a millionth of white of a count means that count.
    return std::round((first + (bin + 0.5) * step) * 1e6) / 1e6;
  }
  const double span = step * static_cast<double>(whole.size());
  const double digits = std::pow(10.0, std::ceil(-std::log10(span / 500)));
  return std::round(value * digits) / digits;
}

double HistogramData::percent_below(double value) const {
  const auto n = static_cast<double>(std::accumulate(inside.begin(), inside.end(), std::int64_t{0}));
  if (n == 0) return 0;
  const double place = std::clamp((value - first) / step, 0.0, static_cast<double>(inside.size()));
  const auto whole_bins = static_cast<std::size_t>(place);
  auto below = static_cast<double>(
      std::accumulate(inside.begin(), inside.begin() + static_cast<std::ptrdiff_t>(whole_bins), std::int64_t{0}));
  if (whole_bins < inside.size()) {
    below += (place - static_cast<double>(whole_bins)) * static_cast<double>(inside[whole_bins]);
  }
  return 100 * below / n;
}

double HistogramData::value_at_percent(double percent) const {
  const auto n = static_cast<double>(std::accumulate(inside.begin(), inside.end(), std::int64_t{0}));
  if (n == 0) return (first + last()) / 2;
  const double wanted = n * percent / 100;
  double below = 0;
  for (std::size_t i = 0; i < inside.size(); ++i) {
    const auto here = static_cast<double>(inside[i]);
    if (here > 0 && below + here >= wanted) {
      return first + step * (static_cast<double>(i) + std::max(0.0, wanted - below) / here);
    }
    below += here;
  }
  return last();
}

const HistogramLimits* histogram_limits(std::string_view operation) {
  const auto* found = std::find_if(limits_table.begin(), limits_table.end(),
                                   [operation](const HistogramLimits& row) { return row.operation == operation; });
  return found == limits_table.end() ? nullptr : found;
}

bool is_same_histogram(const HistogramQuestion& a, const HistogramQuestion& b) {
  if (a.capture != b.capture || a.before != b.before || a.limits != b.limits) return false;
  return std::all_of(choosing_values.begin(), choosing_values.end(),
                     [&](const char* name) { return a.params.value(name, Value()) == b.params.value(name, Value()); });
}

HistogramData make_histogram(const HistogramQuestion& question, const model::RunContext& context) {
  HistogramData data;
  const Value& params = question.params;
  const bool has_mask = question.before && question.before->mask && !params.value("reset_mask_chain", false);
  const model::Mask* mask = has_mask ? &*question.before->mask : nullptr;
  if (question.limits->axis == Axis::index) {
    data.name = params.at("index").get<std::string>();
    const cv::Mat values = index_values(question, context);
    const model::Histogram whole = model::masked_histogram(values, nullptr, context);
    fill(data, whole, mask == nullptr ? whole : model::masked_histogram(values, mask, context), 1);
    return data;
  }
  const model::Band unfiltered = model::find_band(*question.capture, params.at("band").get<std::string>());
  const model::Band band = model::smoothed(unfiltered, params, context);
  data.name = band.name;
  data.unit = QCoreApplication::translate("histogram", "fraction of white");
  data.is_of_counts = band.image.type() != model::PixelType::f32;
  const model::Histogram whole = model::masked_histogram(band, nullptr, context);
  fill(data, whole, mask == nullptr ? whole : model::masked_histogram(band, mask, context), band.white.counts);
  return data;
}

}  // namespace orvexa::ui
