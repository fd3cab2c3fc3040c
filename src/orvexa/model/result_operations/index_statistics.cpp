#include <algorithm>
#include <optional>
#include <stdexcept>

#include "orvexa/common/text.h"
#include "orvexa/model/measures/role_bands.h"
#include "orvexa/model/measures/spectral_indices.h"
#include "orvexa/model/pictures/heat_map.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

class IndexStatistics final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
  void check(const Value& params) const override;
};

std::vector<std::string> all_keys() {
  std::vector<std::string> keys;
  for (const SpectralIndex& index : spectral_indices()) keys.push_back(index.key);
  return keys;
}

RoleBands named_bands(const Value& params) {
  return role_bands("index_statistics", params.at("bands"), params.at("indices").get<std::vector<std::string>>());
}

/// The map of an index, or why this capture has none.
struct MapOrReason {
  std::optional<IndexMap> map = std::nullopt;
  std::string reason = {};
};

MapOrReason map_of(const CaptureSet& capture, const SpectralIndex& index, const RoleBands& named,
                   const RunContext& context) {
  try {
    return {.map = compute_index(capture, index, context, named)};
  } catch (const CancelledError&) {
    throw;
  } catch (const std::runtime_error& problem) {
    return {.reason = problem.what()};
  }
}

std::string share_name(const SpectralIndex& index) {
  return index.key + ".share_over_limit";
}

constexpr const char* share_unit = "fraction of the valid pixels";

void add_share_over(OperationResult& result, const RegionPixels& pixels, const std::string& name, const cv::Mat& map,
                    double limit, const RegionStatistics& statistics, const RunContext& context) {
  const std::vector<std::uint32_t> over = pixels.count(
      pixels.group_count(), context, [&](std::span<const RegionPixels::Run> runs, std::span<std::uint32_t> table) {
        for (const RegionPixels::Run& run : runs) {
          const double* value = map.ptr<double>(run.y);
          // NaN is not above anything.
          table[run.group] += static_cast<std::uint32_t>(
              std::count_if(value + run.x0, value + run.x1, [&](double v) { return v > limit; }));
        }
      });
  std::int64_t over_in_all = 0;
  for (const std::uint32_t count : over) over_in_all += count;
  result.units[name] = share_unit;
  write_rows(result, pixels.regions(), [&](const Region&, int index, ResultRow& row) {
    const auto k = static_cast<std::size_t>(index);
    const std::int64_t n = index < 0 ? statistics.whole.n : statistics.regions[k].n;
    const std::int64_t count = index < 0 ? over_in_all : over[k];
    if (row.is_empty()) {
      row.leave_out(name, row.empty_reason());
    } else if (n == 0) {
      row.leave_out(name, "No pixel has a valid value.");
    } else {
      row.set(name, static_cast<double>(count) / static_cast<double>(n));
    }
  });
}

/// From the 5 % to the 95 % quantile, so that a few strange pixels do not take all colours.
HeatScale scale_of_data(const Statistics& whole, const std::string& title) {
  if (whole.n == 0) return {0, 1, title};
  if (whole.p5 < whole.p95) return {whole.p5, whole.p95, title};
  return {whole.median - 0.5, whole.median + 0.5, title};
}

void IndexStatistics::check(const Value& params) const {
  if (params.at("indices").empty()) {
    throw std::invalid_argument(
        "index_statistics: parameter \"indices\" is empty, but at least one index has to be named.");
  }
  static_cast<void>(named_bands(params));
  const double low = params.at("map_low").get<double>();
  const double high = params.at("map_high").get<double>();
  if (!(low < high)) {
    throw std::invalid_argument("index_statistics: parameter \"map_low\" is " + common::number_text(low) +
                                ", but it must be below \"map_high\", which is " + common::number_text(high) + ".");
  }
}

OperationResult IndexStatistics::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const double limit = params.at("limit").get<double>();
  const auto map_range = params.at("map_range").get<std::string>();
  const RoleBands named = named_bands(params);
  OperationResult result;
  ResultTable& bands = result.tables["bands"];
  bands.columns = {"index", "role", "band", "formula"};
  const RegionPixels pixels(regions, context());
  std::size_t failures = 0;
  std::string failure;
  for (const Value& key : params.at("indices")) {
    const SpectralIndex& index = get_spectral_index(key.get<std::string>());
    const auto [found, reason] = map_of(capture, index, named, context());
    if (!found) {
      ++failures;
      if (!failure.empty()) failure += failure.ends_with('.') ? " " : ". ";
      failure += index.key + ": " + reason;
      add_undefined_statistics(result, regions, index.key, reason, {});
      result.units[share_name(index)] = share_unit;
      leave_out_everywhere(result, regions, {share_name(index)}, reason);
      continue;
    }
    const IndexMap& map = *found;
    result.chosen_bands[index.key] = map.bands;
    for (std::size_t k = 0; k < map.bands.size(); ++k) {
      bands.rows.push_back({index.key, index.roles[k], map.bands[k], index.formula});
    }
    const RegionStatistics statistics = pixels.measure(map.values, context());
    add_statistics(result, regions, index.key, statistics, {});
    add_share_over(result, pixels, share_name(index), map.values, limit, statistics, context());
    const HeatScale scale = map_range == "fixed" ? HeatScale{params.at("map_low").get<double>(),
                                                             params.at("map_high").get<double>(), index.key}
                                                 : scale_of_data(statistics.whole, index.key);
    result.images.insert_or_assign(
        index.key, ResultImage{.picture = heat_map_picture(map.values, regions.mask(), scale, context()),
                               .numbers = map_numbers(map.values, regions.mask(), context())});
  }
  if (failures == params.at("indices").size()) throw std::runtime_error(failure);
  return result;
}

std::string description() {
  std::string text =
      "For every index, as `<index>.<statistic>`: " + statistics_text() +
      " `<index>.share_over_limit` = valid pixels above the limit / valid pixels. Pixels where the formula has no "
      "finite value (such as a denominator of 0) are invalid. Bands are fractions of white; each index takes all its "
      "bands from one measurement, those named for its roles first, else by wavelength where the header declares it, "
      "else by name, and the table `bands` says which. An index whose band is missing, or that depends on the scale "
      "while no white level is declared, is left out with its reason; when none can be computed, that is an error. The "
      "heat map has no colour outside the mask; its numbers are saved as 32-bit float.";
  for (const SpectralIndex& index : spectral_indices()) {
    text += " " + index.key + " = " + index.formula + ".";
  }
  return text;
}

}  // namespace

const ResultOperationInfo& index_statistics_info() {
  static const ResultOperationInfo info{
      .key = "index_statistics",
      .display_name = "Spectral indices",
      .category = "Spectral",
      .summary = "Describes spectral indices inside the mask and inside each region and draws their maps.",
      .description = description(),
      .source =
          "Each index has its own published source, which stands in the list of indices; ndvi: J. W. Rouse et al., "
          "Third ERTS Symposium, NASA SP-351, 1974, 309-317",
      .parameters = {{.name = "indices",
                      .type = ParameterType::choices,
                      .default_value = Value::array({"ndvi"}),
                      .help = "The indices to compute.",
                      .choices = all_keys()},
                     role_bands_parameter(),
                     {.name = "limit",
                      .type = ParameterType::real,
                      .default_value = 0.4,
                      .min = -1e6,
                      .max = 1e6,
                      .help = "Pixels above this value count for share_over_limit."},
                     {.name = "map_range",
                      .type = ParameterType::choice,
                      .default_value = "data",
                      .help =
                          "Whether the colours of the map span the data (5 % to 95 % quantile) or fixed values, which "
                          "makes maps of several captures comparable.",
                      .choices = {"data", "fixed"}},
                     {.name = "map_low",
                      .type = ParameterType::real,
                      .default_value = -1.0,
                      .min = -1e6,
                      .max = 1e6,
                      .help = "The value of the first colour when the range of the map is fixed."},
                     {.name = "map_high",
                      .type = ParameterType::real,
                      .default_value = 1.0,
                      .min = -1e6,
                      .max = 1e6,
                      .help = "The value of the last colour when the range of the map is fixed."},
                     each_region_parameter()},
      .required_measurements = std::vector<MeasurementRequirement>{std::vector<std::string>{"MSP", "CLR"}},
      .operation_class = {.make = [] { return std::make_unique<IndexStatistics>(); }}};
  return info;
}

}  // namespace orvexa::model
