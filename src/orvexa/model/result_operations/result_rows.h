#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/entities/result_bundle.h"
#include "orvexa/model/measures/region_pixels.h"
#include "orvexa/model/measures/region_set.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::model {

/// The metrics of the whole mask or of one region while they are written down. Every name is written once a row, as a
/// value or as a reason.
class ResultRow {
 public:
  ResultRow(Value& metrics, Value& reasons, const Region& region);

  [[nodiscard]] bool is_empty() const { return _region.area == 0; }
  /// Why an empty row has no metrics: "The mask has no pixel." or "The region has no pixel."
  [[nodiscard]] std::string_view empty_reason() const;

  /// Makes room for so many metrics in all, those there are included. A name cannot be moved, so a row that grows step
  /// by step copies its names again and again.
  void expect(std::size_t count);
  /// Makes room for more metrics at once.
  void expect_more(std::size_t count) { expect(_metrics.size() + count); }

  void set(std::string name, Value value);
  /// A number that is not finite is left out with a reason.
  void set(std::string name, double value);
  void leave_out(std::string name, std::string_view reason);

 private:
  Value::object_t& _metrics;
  Value::object_t& _reasons;
  const Region& _region;
};

/// The unit of an area of a shape: `name` in pixels and, where the capture declares its scale, `<name>_mm2`.
/// @param scale  millimetres a pixel.
void add_area_units(OperationResult& result, const std::string& name, const std::optional<double>& scale);
/// Writes both, or leaves both out of an empty row.
void set_area(ResultRow& row, const std::string& name, const Value& pixels, const std::optional<double>& scale);

/// The unit of a length in the picture: `name` in pixels and, where the capture declares its scale, `<name>_mm`.
void add_length_units(OperationResult& result, const std::string& name, const std::optional<double>& scale);
/// Writes both; not for an empty row.
void set_length(ResultRow& row, const std::string& name, double pixels, const std::optional<double>& scale);
void leave_out_length(ResultRow& row, const std::string& name, std::string_view reason,
                      const std::optional<double>& scale);

/// Makes room in each row for all metrics that have a unit so far, and calls `write` for the whole mask with index -1,
/// then for each region with its index, these perhaps at the same time. Whatever the order of the calls, the rows stand
/// in the regions' order.
void write_rows(OperationResult& result, const RegionSet& regions,
                const std::function<void(const Region& region, int index, ResultRow& row)>& write);

/// The same for rows that have pixels; an empty row has everything left out that `result` has a unit for.
void write_filled_rows(OperationResult& result, const RegionSet& regions,
                       const std::function<void(const Region& region, int index, ResultRow& row)>& write);

/// What the numbers of some statistics mean.
struct StatisticsUnit {
  std::string name;    ///< "counts", "fraction of white", "" for a number without unit
  double divisor = 1;  ///< from the numbers measured to that unit
};

/// The units of these statistics alone, for whoever knows all prefixes before the first row is written.
void add_statistics_units(OperationResult& result, const std::string& prefix, const StatisticsUnit& unit);
/// Writes `<prefix>.n`, `.n_invalid`, `.mean`, `.sd`, `.cv`, `.min`, `.max`, `.median`, `.mad`, `.p5`, `.p25`, `.p75`,
/// `.p95`, `.skew`, `.kurtosis` and `.sum` with their units.
void add_statistics(OperationResult& result, const RegionSet& regions, const std::string& prefix,
                    const RegionStatistics& statistics, const StatisticsUnit& unit);
/// The same names and units, all left out for a reason.
void add_undefined_statistics(OperationResult& result, const RegionSet& regions, const std::string& prefix,
                              std::string_view reason, const StatisticsUnit& unit);

/// Leaves metrics out of the whole and of every region for one reason.
void leave_out_everywhere(OperationResult& result, const RegionSet& regions, const std::vector<std::string>& names,
                          std::string_view reason);

/// How the statistics are defined, for the description of an operation.
[[nodiscard]] const std::string& statistics_text();

}  // namespace orvexa::model
