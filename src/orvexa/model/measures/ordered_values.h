#pragma once

#include <cstdint>

#include "orvexa/model/measures/histogram.h"

namespace orvexa::model {

/// The values of a band inside a mask in their order, without a copy of them: what is asked for is looked up in the
/// histogram, and in float among the values of one bin. Values that are not finite are left out.
class OrderedValues {
 public:
  /// @param mask  null = every pixel; must outlive this.
  OrderedValues(const Band& band, const Mask* mask, const RunContext& context);

  [[nodiscard]] std::int64_t size() const { return _histogram.n; }
  /// The exact value at a place of the order, 0 <= place < size().
  [[nodiscard]] double at(std::int64_t place, const RunContext& context) const;
  /// Type 7: linear between the order statistics around (size() - 1) p. A place within a billionth of a whole one is
  /// that one. There must be a value.
  /// Source: R. J. Hyndman, Y. Fan, Sample quantiles in statistical packages, The American Statistician 50(4), 1996,
  /// 361-365.
  /// @param p  0 to 1.
  [[nodiscard]] double quantile(double p, const RunContext& context) const;

 private:
  Image _plane;
  const Mask* _mask;
  Histogram _histogram;
};

}  // namespace orvexa::model
