#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>

#include "orvexa/model/measures/band_pairs.h"
#include "orvexa/model/measures/profiles.h"
#include "orvexa/model/pictures/line_plot.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"
#include "orvexa/model/result_operations/wanted_bands.h"

namespace orvexa::model {

namespace {

class BandCorrelation final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
  void check(const Value& params) const override;
  void add_pair(OperationResult& result, const RegionSet& regions, const WantedBand& first, const WantedBand& second,
                const std::vector<PairCorrelation>* whole, const std::vector<PairCorrelation>* each) const;
  void add_profile(OperationResult& result, const CaptureSet& capture, const RegionSet& regions,
                   const std::vector<Band>& bands, const Value& params) const;
};

struct PairNames {
  explicit PairNames(const std::string& prefix)
      : n(prefix + ".n"),
        n_invalid(prefix + ".n_invalid"),
        pearson(prefix + ".pearson"),
        spearman(prefix + ".spearman") {}
  std::string n;
  std::string n_invalid;
  std::string pearson;
  std::string spearman;
};

std::string reason_of(const PairCorrelation& pair, const std::string& first, const std::string& second) {
  if (pair.n < 2) return "Fewer than two pixels have a value in both.";
  return "All values of " + (pair.first_is_flat ? first : second) + " are equal.";
}

void write_pair(ResultRow& row, const PairNames& names, const PairCorrelation& pair, std::int64_t area,
                const std::string& first, const std::string& second) {
  row.expect_more(4);
  row.set(names.n, Value(pair.n));
  row.set(names.n_invalid, Value(area - pair.n));
  if (pair.pearson && pair.spearman) {
    row.set(names.pearson, *pair.pearson);
    row.set(names.spearman, *pair.spearman);
    return;
  }
  const std::string reason = reason_of(pair, first, second);
  row.leave_out(names.pearson, reason);
  row.leave_out(names.spearman, reason);
}

void BandCorrelation::add_pair(OperationResult& result, const RegionSet& regions, const WantedBand& first,
                               const WantedBand& second, const std::vector<PairCorrelation>* whole,
                               const std::vector<PairCorrelation>* each) const {
  const PairNames names("correlation." + first.name + "." + second.name);
  result.units[names.n] = "px";
  result.units[names.n_invalid] = "px";
  result.units[names.pearson] = "";
  result.units[names.spearman] = "";
  if (whole == nullptr) {
    leave_out_everywhere(result, regions, {names.n, names.n_invalid, names.pearson, names.spearman},
                         first.band ? second.reason : first.reason);
    return;
  }
  write_rows(result, regions, [&](const Region& region, int index, ResultRow& row) {
    if (row.is_empty()) {
      for (const auto* name : {&names.n, &names.n_invalid, &names.pearson, &names.spearman}) {
        row.leave_out(*name, row.empty_reason());
      }
      return;
    }
    const PairCorrelation& pair =
        index < 0 || each == nullptr ? whole->front() : each->at(static_cast<std::size_t>(index));
    write_pair(row, names, pair, region.area, first.name, second.name);
  });
}

// ---- Profiles ----

PickPoint point_of(const Value& value) {
  return {value.at(0).get<double>(), value.at(1).get<double>()};
}

ResultTable table_of(const Profile& profile, const std::vector<Band>& bands) {
  ResultTable table;
  table.columns = {"distance_px"};
  if (!profile.pixels.empty()) table.columns.emplace_back("pixels");
  for (const Band& band : bands) table.columns.push_back(band.name);
  for (std::size_t k = 0; k < profile.distances.size(); ++k) {
    std::vector<Value> row{profile.distances[k]};
    if (!profile.pixels.empty()) row.emplace_back(profile.pixels[k]);
    for (const std::vector<double>& values : profile.values) {
      row.push_back(std::isfinite(values[k]) ? Value(values[k]) : Value(""));
    }
    table.rows.push_back(std::move(row));
  }
  return table;
}

/// In fractions of white, so that bands of different depths can be seen side by side.
Image plot_of(const Profile& profile, const std::vector<Band>& bands, const std::string& title) {
  std::vector<PlotLine> lines;
  for (std::size_t band = 0; band < bands.size(); ++band) {
    lines.push_back({bands[band].name, profile.values[band]});
    for (double& value : lines.back().values) value /= bands[band].white.counts;
  }
  const double last = profile.distances.empty() ? 1 : profile.distances.back();
  return line_plot(lines, {.title = title + ", fraction of white",
                           .along = "distance in pixels",
                           .from = profile.distances.empty() ? 0 : profile.distances.front(),
                           .to = last,
                           .is_filled = false});
}

void BandCorrelation::add_profile(OperationResult& result, const CaptureSet& capture, const RegionSet& regions,
                                  const std::vector<Band>& bands, const Value& params) const {
  const auto kind = params.at("profile").get<std::string>();
  if (kind == "none" || bands.empty()) return;
  const Value& points = params.at("points");
  const Shape shape = capture.get_shape();
  std::optional<int> samples;
  if (!params.at("samples").is_null()) samples = params.at("samples").get<int>();
  std::optional<Place> centre;
  if (kind == "radial") {
    centre = centroid_of(regions.mask(), context());
    if (!centre) return;  // an empty mask has no profile, as its metrics say
    if (!points.empty()) centre = place_of(point_of(points.at(0)), shape);
  }
  const auto profile_of = [&](const std::vector<Band>& measured) {
    if (centre) return radial_profile(measured, regions.mask(), *centre, samples, context());
    return line_profile(measured, regions.mask(), place_of(point_of(points.at(0)), shape),
                        place_of(point_of(points.at(1)), shape), params.at("line_width").get<int>(), samples,
                        context());
  };
  std::vector<Band> raw_bands;
  raw_bands.reserve(bands.size());
  for (const Band& band : bands) raw_bands.push_back(band.raw());
  const Profile in_counts = profile_of(raw_bands);
  result.tables["profile"] = table_of(in_counts, raw_bands);
  const bool has_reference = std::ranges::any_of(bands, [](const Band& band) { return band.counts != nullptr; });
  const Profile shown = has_reference ? profile_of(bands) : in_counts;
  result.images.insert_or_assign(
      "profile",
      ResultImage{.picture = plot_of(shown, bands, centre ? "Radial profile" : "Profile along a line"), .numbers = {}});
}

void BandCorrelation::check(const Value& params) const {
  const auto kind = params.at("profile").get<std::string>();
  const std::size_t points = params.at("points").size();
  const auto refused = [&](const std::string& why) {
    return std::invalid_argument("band_correlation: parameter \"points\" has " + std::to_string(points) +
                                 " points, but " + why + ".");
  };
  if (kind == "none" && points != 0) throw refused("without a profile there is nothing to pick; choose line or radial");
  if (kind == "line" && points != 2) throw refused("a line profile has two, its ends");
  if (kind == "radial" && points > 1) throw refused("a radial profile has one, its centre, or none for the centroid");
  const ParameterList& parameters = info().parameters;
  if (kind != "line") {
    refuse_unused("band_correlation", parameters, params, {"line_width"}, "only a line profile has a width");
  }
  if (kind == "none") refuse_unused("band_correlation", parameters, params, {"samples"}, "no profile is chosen");
}

/// @throws std::runtime_error when there are fewer than two.
std::vector<Band> at_least_two(const std::vector<WantedBand>& wanted) {
  std::vector<Band> bands;
  for (const WantedBand& band : wanted) {
    if (band.band) bands.push_back(*band.band);
  }
  if (bands.size() >= 2) return bands;
  for (const WantedBand& band : wanted) {
    if (!band.band) throw std::runtime_error("band_correlation: two planes are needed. " + band.reason);
  }
  throw std::runtime_error("band_correlation: two planes are needed, and there is only " + bands.at(0).name + ".");
}

void check_capture(const ImageSource& source, const Value& params) {
  OperationResult forgotten;
  static_cast<void>(at_least_two(wanted_bands(source, params.at("bands"), forgotten)));
}

OperationResult BandCorrelation::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  OperationResult result;
  const std::vector<WantedBand> wanted = wanted_bands(capture, params.at("bands"), result);
  const std::vector<Band> bands = at_least_two(wanted);
  // The whole is measured as a region of its own: ranks within it are others than within its parts.
  const RegionSet joined = regions.joined();
  const RegionPixels whole(joined, context());
  std::optional<RegionPixels> parts;
  if (!regions.is_single()) parts.emplace(regions, context());
  const std::size_t count = regions.regions().size();
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    std::optional<SortableValues> first;
    std::optional<SortableValues> first_parts;
    if (wanted[i].band) first.emplace(*wanted[i].band, whole, context());
    if (wanted[i].band && parts) first_parts.emplace(*wanted[i].band, *parts, context());
    for (std::size_t j = i + 1; j < wanted.size(); ++j) {
      if (!first || !wanted[j].band) {
        add_pair(result, regions, wanted[i], wanted[j], nullptr, nullptr);
        continue;
      }
      const auto in_whole = correlate(*first, SortableValues(*wanted[j].band, whole, context()), 1, context());
      std::vector<PairCorrelation> in_parts;
      if (parts) {
        in_parts = correlate(*first_parts, SortableValues(*wanted[j].band, *parts, context()), count, context());
      }
      add_pair(result, regions, wanted[i], wanted[j], &in_whole, parts ? &in_parts : nullptr);
    }
  }
  add_profile(result, capture, regions, bands, params);
  return result;
}

}  // namespace

const ResultOperationInfo& band_correlation_info() {
  static const ResultOperationInfo info{
      .key = "band_correlation",
      .display_name = "Correlation and profiles of images",
      .category = "Intensity",
      .summary = "Says how the values of two images go together, and draws values along a line or around a point.",
      .description =
          "For every pair of the chosen planes A and B, as `correlation.<A>.<B>.<metric>`: pearson = covariance / (sd "
          "of A x sd of B), spearman = the same of the ranks, where equal values share the mean of their ranks. n = "
          "pixels where both are finite numbers, n_invalid = the other pixels; pixels are left out pair by pair. "
          "Neither coefficient is defined for fewer than two pixels or where all values of a plane are equal. A chosen "
          "plane that the capture lacks is left out with its reason; fewer than two planes are an error. A profile of "
          "the whole mask is given as the table `profile` in the counts of the file and as a plot in fractions of "
          "white. Where the capture has a reference, the coefficients and the plot are those of reflectance. Along a "
          "line: samples from the first picked point to the second, both included and evenly spaced, each the mean "
          "over line_width values one pixel apart across the line, interpolated bilinearly; a value that needs a pixel "
          "outside the mask or without a finite number is left out, and a sample without any is empty. Radial: means "
          "over rings of equal width around the centroid of the mask or the picked point out to the farthest pixel of "
          "the mask, at the distance of the middle of each ring, with its number of pixels.",
      .source =
          "K. Pearson, Note on regression and inheritance in the case of two parents, Proc. R. Soc. Lond. 58, "
          "1895, 240-242, doi:10.1098/rspl.1895.0041; C. Spearman, The proof and measurement of association "
          "between two things, Am. J. Psychol. 15(1), 1904, 72-101, doi:10.2307/1412159",
      .parameters = {bands_parameter(),
                     {.name = "profile",
                      .type = ParameterType::choice,
                      .default_value = "none",
                      .help = "Whether values are also given along a line or around a point.",
                      .choices = {"none", "line", "radial"}},
                     {.name = "points",
                      .type = ParameterType::points,
                      .default_value = Value::array(),
                      .min = -1.0,
                      .max = 2.0,
                      .unit = "fraction of the image",
                      .help = "The two ends of the line, or the centre of the rings (none: the centroid of the mask).",
                      .interaction = Interaction{"points"}},
                     {.name = "samples",
                      .type = ParameterType::integer,
                      .default_value = nullptr,
                      .min = 2,
                      .max = 100000,
                      .help = "Number of samples along the line or of rings; without a value about one a pixel."},
                     {.name = "line_width",
                      .type = ParameterType::integer,
                      .default_value = 1,
                      .min = 1,
                      .max = 1000,
                      .unit = "px",
                      .help = "Over how many pixels across the line a sample is the mean."},
                     each_region_parameter()},
      .check_capture = check_capture,
      .operation_class = {.make = [] { return std::make_unique<BandCorrelation>(); }}};
  return info;
}

}  // namespace orvexa::model
