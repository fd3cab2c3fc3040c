#include "orvexa/model/measures/ordered_values.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

namespace orvexa::model {

namespace {

/// The finite values above `low` and not above `high`; with `takes_low` those equal to `low` too.
std::vector<float> values_between(const cv::Mat& plane, const Mask* mask, double low, double high, bool takes_low,
                                  const RunContext& context) {
  std::vector<std::vector<float>> found(static_cast<std::size_t>(stripe_count(plane.rows, plane.cols)));
  const int step = stripe_height(plane.cols);
  for_each_stripe(plane.rows, plane.cols, context, [&](int y0, int y1) {
    std::vector<float>& values = found[static_cast<std::size_t>(y0 / step)];
    for (int y = y0; y < y1; ++y) {
      const float* row = plane.ptr<float>(y);
      const std::uint8_t* kept = mask == nullptr ? nullptr : mask->row(y).data();
      for (int x = 0; x < plane.cols; ++x) {
        const auto value = double(row[x]);
        const bool is_above = takes_low ? value >= low : value > low;
        if ((kept == nullptr || kept[x] != 0) && is_above && value <= high) values.push_back(row[x]);
      }
    }
  });
  std::vector<float> all;
  for (std::vector<float>& values : found) {
    context.check();
    all.insert(all.end(), values.begin(), values.end());
    values = {};
  }
  return all;
}

}  // namespace

OrderedValues::OrderedValues(const Band& band, const Mask* mask, const RunContext& context)
    : _plane(band.plane(context)),
      _mask(mask),
      _histogram(masked_histogram(Band{_plane, 0, band.white, band.name, band.measurement}, mask, context)) {}

double OrderedValues::at(std::int64_t place, const RunContext& context) const {
  if (place < 0 || place >= size()) throw std::invalid_argument("There is no value at this place of the order.");
  std::size_t bin = 0;
  std::int64_t below = 0;
  while (below + _histogram.bins[bin] <= place) below += _histogram.bins[bin++];
  if (_plane.type() != PixelType::f32) return _histogram.level(bin);
  if (_histogram.max <= _histogram.min) return _histogram.min;
  const bool is_first = bin == 0;
  const bool is_last = bin + 1 == _histogram.bins.size();
  std::vector<float> values =
      values_between(_plane.read_only(), _mask, is_first ? _histogram.min : _histogram.level(bin - 1),
                     is_last ? _histogram.max : _histogram.level(bin), is_first, context);
  const auto wanted = values.begin() + static_cast<std::ptrdiff_t>(place - below);
  context.check();
  std::nth_element(values.begin(), wanted, values.end());
  context.check();
  return double(*wanted);
}

double OrderedValues::quantile(double p, const RunContext& context) const {
  const double exact = double(size() - 1) * p;
  const double nearest = std::round(exact);
  constexpr double billionth = 1e-9;
  const double position = std::abs(exact - nearest) <= billionth ? nearest : exact;
  const auto place = static_cast<std::int64_t>(std::floor(position));
  const double low = at(place, context);
  const double share = position - double(place);
  return share > 0 ? low + share * (at(place + 1, context) - low) : low;
}

}  // namespace orvexa::model
