#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"
#include "orvexa/model/result_operations/wanted_bands.h"

namespace orvexa::model {

namespace {

class BandStatistics final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult BandStatistics::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const bool in_fractions = params.at("unit").get<std::string>() == "fraction";
  OperationResult result;
  const RegionPixels pixels(regions, context());
  const std::vector<WantedBand> wanted = wanted_bands(capture, params.at("bands"), result);
  StatisticsUnit unit{in_fractions ? "fraction of white" : "counts"};
  for (const WantedBand& band : wanted) add_statistics_units(result, band.name, unit);
  for (const auto& [name, band, reason] : wanted) {
    context().check();
    if (!band) {
      add_undefined_statistics(result, regions, name, reason, unit);
      continue;
    }
    if (in_fractions) unit.divisor = band->white.counts;
    add_statistics(result, regions, name, pixels.measure(in_fractions ? *band : band->raw(), context()), unit);
  }
  return result;
}

}  // namespace

const ResultOperationInfo& band_statistics_info() {
  static const ResultOperationInfo info{
      .key = "band_statistics",
      .display_name = "Statistics of the images",
      .category = "Intensity",
      .summary = "Describes the values of each image inside the mask and inside each region.",
      .description =
          "For every chosen plane, as `<measurement>.<image>[.<channel>].<statistic>`: " + statistics_text() +
          " Values are counts as the file holds them or, when asked for, fractions of the white level (the declared "
          "one, else the greatest count of the type, 1 for float); the unit stands beside each value. Where the "
          "capture has a reference, fractions are reflectance and pixels without one are invalid; counts are always "
          "those of the file. A chosen plane that the capture lacks is left out with its reason; when it lacks all of "
          "them, that is an error.",
      .source =
          "R. J. Hyndman, Y. Fan, Sample quantiles in statistical packages, The American Statistician 50(4), 1996, "
          "361-365, doi:10.1080/00031305.1996.10473566",
      .parameters = {bands_parameter(),
                     {.name = "unit",
                      .type = ParameterType::choice,
                      .default_value = "counts",
                      .help = "Whether values are counts as the file holds them or fractions of the white level.",
                      .choices = {"counts", "fraction"}},
                     each_region_parameter()},
      .check_capture = check_wanted_bands,
      .operation_class = {.make = [] { return std::make_unique<BandStatistics>(); }}};
  return info;
}

}  // namespace orvexa::model
