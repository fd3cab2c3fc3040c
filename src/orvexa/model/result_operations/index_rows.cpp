#include "orvexa/model/result_operations/index_rows.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "orvexa/common/text.h"
#include "orvexa/model/measures/band_roles.h"
#include "orvexa/model/pictures/heat_map.h"

namespace orvexa::model {

namespace {

constexpr const char* share_unit = "fraction of the valid pixels";

std::string share_name(const IndexJob& job) {
  return job.prefix + ".share_over_limit";
}

/// The map of an index, or why this capture has none.
struct MapOrReason {
  std::optional<IndexMap> map = std::nullopt;
  std::string reason = {};
};

MapOrReason map_of(const IndexJob& job) {
  try {
    return {.map = job.map()};
  } catch (const CancelledError&) {
    throw;
  } catch (const std::runtime_error& problem) {
    return {.reason = problem.what()};
  }
}

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

Value declared_centre(const ImageSource& source, const std::string& image) {
  const auto info = source.find_band(image);
  if (!info || !info->centre_nm) return "";
  return info->centre_nm.value();
}

/// A row for each band: what it is for, which one was taken, where it lies and where it may lie.
void add_bands(OperationResult& result, const IndexJob& job, const IndexMap& map, const ImageSource& source) {
  Value& chosen = result.chosen_bands[job.prefix];
  chosen = map.bands;
  const std::vector<std::string> roles = role_names();
  for (std::size_t k = 0; k < map.bands.size(); ++k) {
    const std::string& input = job.inputs[k];
    const bool is_role = std::ranges::find(roles, input) != roles.end();
    const std::string image = map.bands[k].substr(map.bands[k].find('.') + 1);
    result.tables["bands"].rows.push_back({job.name, input, map.bands[k], job.formula, declared_centre(source, image),
                                           is_role ? Value(get_band_role(input).from_nm) : Value(""),
                                           is_role ? Value(get_band_role(input).to_nm) : Value(""), job.source});
  }
}

}  // namespace

ParameterList index_map_parameters() {
  return {{.name = "limit",
           .type = ParameterType::real,
           .default_value = 0.4,
           .min = -1e6,
           .max = 1e6,
           .help = "Pixels above this value count for share_over_limit."},
          {.name = "map_range",
           .type = ParameterType::choice,
           .default_value = "data",
           .help = "Whether the colours of the map span the data (5 % to 95 % quantile) or fixed values, which makes "
                   "maps of several captures comparable.",
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
           .help = "The value of the last colour when the range of the map is fixed."}};
}

void check_index_map_parameters(std::string_view operation, const Value& params) {
  if (params.at("map_range") == "data") {
    refuse_unused(operation, index_map_parameters(), params, {"map_low", "map_high"},
                  "parameter \"map_range\" is \"data\"; choose \"fixed\" to use it");
  }
  const double low = params.at("map_low").get<double>();
  const double high = params.at("map_high").get<double>();
  if (low < high) return;
  throw std::invalid_argument(std::string(operation) + ": parameter \"map_low\" is " + common::number_text(low) +
                              ", but it must be below \"map_high\", which is " + common::number_text(high) + ".");
}

std::string index_rows_text(std::string_view prefix) {
  const std::string name(prefix);
  return "`" + name + ".<statistic>`: " + statistics_text() + " `" + name +
         ".share_over_limit` = valid pixels above the limit / valid pixels.";
}

OperationResult describe_indices(const std::vector<IndexJob>& jobs, const ImageSource& source, const RegionSet& regions,
                                 const Value& params, const RunContext& context) {
  const double limit = params.at("limit").get<double>();
  const bool is_fixed = params.at("map_range").get<std::string>() == "fixed";
  OperationResult result;
  result.tables["bands"].columns = {"index",          "role",         "band",       "formula",
                                    "band_centre_nm", "role_from_nm", "role_to_nm", "source"};
  const RegionPixels pixels(regions, context);
  std::size_t failures = 0;
  std::string failure;
  for (const IndexJob& job : jobs) {
    const StatisticsUnit unit{job.unit};
    const auto [found, reason] = map_of(job);
    if (!found) {
      ++failures;
      if (!failure.empty()) failure += failure.ends_with('.') ? " " : ". ";
      failure += job.name + ": " + reason;
      add_undefined_statistics(result, regions, job.prefix, reason, unit);
      result.units[share_name(job)] = share_unit;
      leave_out_everywhere(result, regions, {share_name(job)}, reason);
      continue;
    }
    const IndexMap& map = *found;
    add_bands(result, job, map, source);
    const RegionStatistics statistics = pixels.measure(map.values, context);
    add_statistics(result, regions, job.prefix, statistics, unit);
    add_share_over(result, pixels, share_name(job), map.values, limit, statistics, context);
    const HeatScale scale =
        is_fixed ? HeatScale{params.at("map_low").get<double>(), params.at("map_high").get<double>(), job.name}
                 : scale_of_data(statistics.whole, job.name);
    result.images.insert_or_assign(job.name,
                                   ResultImage{.picture = heat_map_picture(map.values, regions.mask(), scale, context),
                                               .numbers = map_numbers(map.values, regions.mask(), context)});
  }
  if (failures == jobs.size()) throw std::runtime_error(failure);
  return result;
}

}  // namespace orvexa::model
