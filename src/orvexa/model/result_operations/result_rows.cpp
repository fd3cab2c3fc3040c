#include "orvexa/model/result_operations/result_rows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "orvexa/common/parallel.h"

namespace orvexa::model {

namespace {

/// Which unit a statistic has, and what it needs to be defined.
enum class Kind { pixels, value, ratio, shape };

struct StatisticRow {
  std::string_view name;
  Kind kind;
  double (*number)(const Statistics&);
};

constexpr std::string_view no_spread = "All values are equal.";

constexpr std::array statistic_rows{
    StatisticRow{"n", Kind::pixels, [](const Statistics& s) { return static_cast<double>(s.n); }},
    StatisticRow{"n_invalid", Kind::pixels, [](const Statistics& s) { return static_cast<double>(s.n_invalid); }},
    StatisticRow{"mean", Kind::value, [](const Statistics& s) { return s.mean; }},
    StatisticRow{"sd", Kind::value, [](const Statistics& s) { return s.sd; }},
    StatisticRow{"cv", Kind::ratio, [](const Statistics& s) { return s.sd / s.mean; }},
    StatisticRow{"min", Kind::value, [](const Statistics& s) { return s.min; }},
    StatisticRow{"max", Kind::value, [](const Statistics& s) { return s.max; }},
    StatisticRow{"median", Kind::value, [](const Statistics& s) { return s.median; }},
    StatisticRow{"mad", Kind::value, [](const Statistics& s) { return s.mad; }},
    StatisticRow{"p5", Kind::value, [](const Statistics& s) { return s.p5; }},
    StatisticRow{"p25", Kind::value, [](const Statistics& s) { return s.p25; }},
    StatisticRow{"p75", Kind::value, [](const Statistics& s) { return s.p75; }},
    StatisticRow{"p95", Kind::value, [](const Statistics& s) { return s.p95; }},
    StatisticRow{"skew", Kind::shape, [](const Statistics& s) { return s.skew; }},
    StatisticRow{"kurtosis", Kind::shape, [](const Statistics& s) { return s.kurtosis; }},
    StatisticRow{"sum", Kind::value, [](const Statistics& s) { return s.sum; }},
};

std::string joined_name(const std::string& prefix, std::string_view name) {
  std::string full;
  full.reserve(prefix.size() + 1 + name.size());
  full.append(prefix).append(1, '.').append(name);
  return full;
}

void write_statistic(ResultRow& row, std::string name, const StatisticRow& statistic, const Statistics& s,
                     const StatisticsUnit& unit) {
  if (row.is_empty()) return row.leave_out(std::move(name), row.empty_reason());
  const double number = statistic.number(s);
  if (statistic.kind == Kind::pixels) return row.set(std::move(name), Value(static_cast<std::int64_t>(number)));
  if (s.n == 0) return row.leave_out(std::move(name), "No pixel has a valid value.");
  switch (statistic.kind) {
    case Kind::value:
      return row.set(std::move(name), number / unit.divisor);
    case Kind::ratio:
      if (s.mean == 0) return row.leave_out(std::move(name), "The mean is 0.");
      return row.set(std::move(name), number);
    default:
      if (s.min == s.max) return row.leave_out(std::move(name), no_spread);
      return row.set(std::move(name), number);
  }
}

}  // namespace

// A row has a hundred names at most and each is written once, so they are appended without a look whether they are
// there already: thousands of regions would feel it.
ResultRow::ResultRow(Value& metrics, Value& reasons, const Region& region)
    : _metrics(metrics.get_ref<Value::object_t&>()), _reasons(reasons.get_ref<Value::object_t&>()), _region(region) {}

std::string_view ResultRow::empty_reason() const {
  return _region.label == 0 ? "The mask has no pixel." : "The region has no pixel.";
}

void ResultRow::expect(std::size_t count) {
  if (_metrics.capacity() < count) _metrics.reserve(std::max(count, 2 * _metrics.capacity()));
}

void ResultRow::set(std::string name, Value value) {
  _metrics.emplace_back(std::move(name), std::move(value));
}

void ResultRow::set(std::string name, double value) {
  if (!std::isfinite(value)) return leave_out(std::move(name), "The result is not a finite number.");
  _metrics.emplace_back(std::move(name), value);
}

void ResultRow::leave_out(std::string name, std::string_view reason) {
  _reasons.emplace_back(std::move(name), reason);
}

void add_area_units(OperationResult& result, const std::string& name, const std::optional<double>& scale) {
  result.units[name] = "px";
  if (scale) result.units[name + "_mm2"] = "mm²";
}

void set_area(ResultRow& row, const std::string& name, const Value& pixels, const std::optional<double>& scale) {
  if (row.is_empty()) {
    row.leave_out(name, row.empty_reason());
    if (scale) row.leave_out(name + "_mm2", row.empty_reason());
    return;
  }
  row.set(name, pixels);
  if (scale) row.set(name + "_mm2", pixels.get<double>() * *scale * *scale);
}

void add_length_units(OperationResult& result, const std::string& name, const std::optional<double>& scale) {
  result.units[name] = "px";
  if (scale) result.units[name + "_mm"] = "mm";
}

void set_length(ResultRow& row, const std::string& name, double pixels, const std::optional<double>& scale) {
  row.set(name, pixels);
  if (scale) row.set(name + "_mm", pixels * *scale);
}

void leave_out_length(ResultRow& row, const std::string& name, std::string_view reason,
                      const std::optional<double>& scale) {
  row.leave_out(name, reason);
  if (scale) row.leave_out(name + "_mm", reason);
}

void write_rows(OperationResult& result, const RegionSet& regions,
                const std::function<void(const Region&, int, ResultRow&)>& write) {
  const std::size_t expected = result.units.size();
  ResultRow whole(result.metrics, result.reasons, regions.whole());
  whole.expect(expected);
  write(regions.whole(), -1, whole);
  const std::vector<Region>& all = regions.regions();
  for (const Region& region : all) result.regions.try_emplace(region.name);
  if (result.regions.size() != all.size()) throw std::logic_error("Two regions have the same name.");
  // Rows of thousands of regions are many small texts: they are written side by side, each into its own place.
  common::parallel_for(all.size(), [&](std::size_t k) {
    RegionResult& own = result.regions.find(all[k].name).value();
    ResultRow row(own.metrics, own.reasons, all[k]);
    row.expect(expected);
    write(all[k], static_cast<int>(k), row);
  });
}

void write_filled_rows(OperationResult& result, const RegionSet& regions,
                       const std::function<void(const Region&, int, ResultRow&)>& write) {
  std::vector<std::string> names;
  for (const auto& [name, unit] : result.units.items()) names.push_back(name);
  write_rows(result, regions, [&](const Region& region, int index, ResultRow& row) {
    if (!row.is_empty()) return write(region, index, row);
    for (const std::string& name : names) row.leave_out(name, row.empty_reason());
  });
}

void add_statistics_units(OperationResult& result, const std::string& prefix, const StatisticsUnit& unit) {
  for (const StatisticRow& statistic : statistic_rows) {
    const bool has_unit = statistic.kind == Kind::value;
    result.units[joined_name(prefix, statistic.name)] =
        has_unit ? unit.name : std::string(statistic.kind == Kind::pixels ? "px" : "");
  }
}

void add_statistics(OperationResult& result, const RegionSet& regions, const std::string& prefix,
                    const RegionStatistics& statistics, const StatisticsUnit& unit) {
  add_statistics_units(result, prefix, unit);
  write_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
    const Statistics& s = index < 0 ? statistics.whole : statistics.regions[static_cast<std::size_t>(index)];
    for (const StatisticRow& statistic : statistic_rows) {
      write_statistic(row, joined_name(prefix, statistic.name), statistic, s, unit);
    }
  });
}

void add_undefined_statistics(OperationResult& result, const RegionSet& regions, const std::string& prefix,
                              std::string_view reason, const StatisticsUnit& unit) {
  add_statistics_units(result, prefix, unit);
  std::vector<std::string> names;
  names.reserve(statistic_rows.size());
  for (const StatisticRow& statistic : statistic_rows) names.push_back(joined_name(prefix, statistic.name));
  leave_out_everywhere(result, regions, names, reason);
}

void leave_out_everywhere(OperationResult& result, const RegionSet& regions, const std::vector<std::string>& names,
                          std::string_view reason) {
  write_rows(result, regions, [&](const Region&, int, ResultRow& row) {
    for (const std::string& name : names) row.leave_out(name, reason);
  });
}

const std::string& statistics_text() {
  static const std::string text =
      "n = pixels with a valid value, n_invalid = pixels left out (not a number, infinite or without meaning), mean, "
      "sd (of the population: divided by n), cv = sd / mean, min, max, median, mad = median of |value - median| (not "
      "scaled), p5, p25, p75, p95 = quantiles of type 7 (linear between order statistics, Hyndman & Fan 1996), skew = "
      "m3 / sd^3, kurtosis = m4 / sd^4 - 3 (excess), sum. A mask or region without pixels has none of them; skew and "
      "kurtosis need values that differ, cv a mean that is not 0; what is left out says why.";
  return text;
}

}  // namespace orvexa::model
