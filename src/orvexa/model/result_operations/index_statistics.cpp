#include <fmt/format.h>

#include <stdexcept>

#include "orvexa/common/text.h"
#include "orvexa/model/measures/band_roles.h"
#include "orvexa/model/measures/role_bands.h"
#include "orvexa/model/result_operations/index_rows.h"
#include "orvexa/model/result_operations/operations.h"

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

/// A capture is good enough when it has the bands of one index.
void check_capture(const ImageSource& source, const Value& params) {
  const RoleBands named = named_bands(params);
  std::string reasons;
  for (const Value& key : params.at("indices")) {
    const SpectralIndex& index = get_spectral_index(key.get<std::string>());
    try {
      static_cast<void>(index_bands(source, index, named));
      return;
    } catch (const std::runtime_error& missing) {
      if (!reasons.empty()) reasons += reasons.ends_with('.') ? " " : ". ";
      reasons += index.key + ": " + missing.what();
    }
  }
  throw std::runtime_error(reasons);
}

void IndexStatistics::check(const Value& params) const {
  if (params.at("indices").empty()) {
    throw std::invalid_argument(
        "index_statistics: parameter \"indices\" is empty, but at least one index has to be named.");
  }
  static_cast<void>(named_bands(params));
  check_index_map_parameters("index_statistics", params);
}

OperationResult IndexStatistics::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const RoleBands named = named_bands(params);
  std::vector<IndexJob> jobs;
  for (const Value& key : params.at("indices")) {
    const SpectralIndex& index = get_spectral_index(key.get<std::string>());
    jobs.push_back(
        {.name = index.key,
         .prefix = index.key,
         .formula = index.formula,
         .source = index.source,
         .inputs = index.roles,
         .unit = {},
         .map = [this, &capture, &index, &named] { return compute_index(capture, index, context(), named); }});
  }
  return describe_indices(jobs, capture, regions, params, context());
}

std::string description() {
  std::string text =
      "For every index, as " + index_rows_text("<index>") +
      " Pixels where the formula has no finite value (such as a denominator of 0) are invalid. Bands are fractions of "
      "white; each index takes all its bands from one measurement, those named for its roles first, else by wavelength "
      "where the header declares it, else by name, and the table `bands` says which. An image with a role's name whose "
      "declared centre lies outside the role's range is not taken; one named by hand is. An index whose band is "
      "missing, or that needs reflectance because it depends on the scale of the bands while no white level is "
      "declared, is left out with its reason; exr and exgr are of photographs and take the greatest count of the type "
      "for "
      "white there. When no index can be computed, that is an error. The heat map has no colour "
      "outside the mask; its numbers are saved as 32-bit float. The roles, with the centre that is preferred and the "
      "centres that are allowed:";
  for (const BandRole& role : band_roles()) {
    text += fmt::format(" {} ({}) {:g} nm, {:g} to {:g};", role.name, role.meaning, role.centre_nm, role.from_nm,
                        role.to_nm);
  }
  text.back() = '.';
  text += " The indices:";
  for (const SpectralIndex& index : spectral_indices()) {
    text += " " + index.key + " = " + index.formula + (index.needs_reflectance ? " (needs reflectance)." : ".");
  }
  return text;
}

ParameterList parameters() {
  ParameterList all{{.name = "indices",
                     .type = ParameterType::choices,
                     .default_value = Value::array({"ndvi"}),
                     .help = "The indices to compute.",
                     .choices = all_keys()},
                    role_bands_parameter()};
  for (ParameterInfo& parameter : index_map_parameters()) all.push_back(std::move(parameter));
  all.push_back(each_region_parameter());
  return all;
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
          "Each index has its own published source, which stands in the list of indices and in the table `bands`; "
          "ndvi: J. W. Rouse et al., Third ERTS Symposium, NASA SP-351, 1974, 309-317",
      .parameters = parameters(),
      .required_measurements = std::vector<MeasurementRequirement>{std::vector<std::string>{"MSP", "CLR"}},
      .check_capture = check_capture,
      .operation_class = {.make = [] { return std::make_unique<IndexStatistics>(); }}};
  return info;
}

}  // namespace orvexa::model
