#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>

#include "orvexa/common/text.h"
#include "orvexa/model/measures/glcm.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"
#include "orvexa/model/result_operations/wanted_bands.h"

namespace orvexa::model {

namespace {

class TextureGlcm final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
  void check(const Value& params) const override;
};

constexpr double undefined = std::numeric_limits<double>::quiet_NaN();

struct FeatureRow {
  const char* name;
  const char* unit;
  double (*number)(const CooccurrenceFeatures&);
};

constexpr std::array feature_rows{
    FeatureRow{"contrast", "levels²", [](const CooccurrenceFeatures& f) { return f.contrast; }},
    FeatureRow{"dissimilarity", "levels", [](const CooccurrenceFeatures& f) { return f.dissimilarity; }},
    FeatureRow{"homogeneity", "", [](const CooccurrenceFeatures& f) { return f.homogeneity; }},
    FeatureRow{"asm", "", [](const CooccurrenceFeatures& f) { return f.asm_; }},
    FeatureRow{"energy", "", [](const CooccurrenceFeatures& f) { return f.energy; }},
    FeatureRow{"entropy", "bit", [](const CooccurrenceFeatures& f) { return f.entropy; }},
    FeatureRow{"correlation", "", [](const CooccurrenceFeatures& f) { return f.correlation.value_or(undefined); }}};

/// The metrics of one plane.
struct Names {
  explicit Names(const std::string& band)
      : n(band + ".glcm.n"), n_invalid(band + ".glcm.n_invalid"), pairs(band + ".glcm.pairs") {
    for (std::size_t k = 0; k < feature_rows.size(); ++k) {
      means.at(k) = band + ".glcm." + feature_rows[k].name + ".mean";
      ranges.at(k) = band + ".glcm." + feature_rows[k].name + ".range";
    }
  }
  void add_units(OperationResult& result) const {
    result.units[n] = "px";
    result.units[n_invalid] = "px";
    result.units[pairs] = "pairs";
    for (std::size_t k = 0; k < feature_rows.size(); ++k) {
      result.units[means.at(k)] = feature_rows[k].unit;
      result.units[ranges.at(k)] = feature_rows[k].unit;
    }
  }
  [[nodiscard]] std::vector<std::string> all() const {
    std::vector<std::string> names{n, n_invalid, pairs};
    names.insert(names.end(), means.begin(), means.end());
    names.insert(names.end(), ranges.begin(), ranges.end());
    return names;
  }

  std::string n;
  std::string n_invalid;
  std::string pairs;
  std::array<std::string, feature_rows.size()> means;
  std::array<std::string, feature_rows.size()> ranges;
};

void write_features(ResultRow& row, const Names& names, const DirectionFeatures& directions) {
  const bool has_pairs = std::ranges::all_of(directions, [](const auto& features) { return features.pairs > 0; });
  const bool has_correlation =
      std::ranges::all_of(directions, [](const auto& features) { return features.correlation.has_value(); });
  for (std::size_t k = 0; k < feature_rows.size(); ++k) {
    const bool is_correlation = k + 1 == feature_rows.size();
    if (!has_pairs || (is_correlation && !has_correlation)) {
      const char* reason = has_pairs ? "All levels of the pairs in some direction are equal."
                                     : "There is no pair of pixels in some direction.";
      row.leave_out(names.means.at(k), reason);
      row.leave_out(names.ranges.at(k), reason);
      continue;
    }
    std::array<double, glcm_directions> values{};
    double sum = 0;
    for (std::size_t direction = 0; direction < glcm_directions; ++direction) {
      values.at(direction) = feature_rows[k].number(directions.at(direction));
      sum += values.at(direction);
    }
    const auto [least, most] = std::ranges::minmax(values);
    row.set(names.means.at(k), sum / glcm_directions);
    row.set(names.ranges.at(k), most - least);
  }
}

void TextureGlcm::check(const Value& params) const {
  const double low = params.at("low").get<double>();
  const double high = params.at("high").get<double>();
  if (low < high) return;
  throw std::invalid_argument("texture_glcm: parameter \"low\" is " + common::number_text(low) +
                              ", but it must be below \"high\", which is " + common::number_text(high) + ".");
}

OperationResult TextureGlcm::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const GlcmSettings settings{.distance = params.at("distance").get<int>(),
                              .levels = params.at("levels").get<int>(),
                              .low = params.at("low").get<double>(),
                              .high = params.at("high").get<double>()};
  OperationResult result;
  const RegionPixels pixels(regions, context());
  for (const auto& [name, band, reason] : wanted_bands(capture, params.at("bands"), result)) {
    const Names names(name);
    names.add_units(result);
    if (!band) {
      leave_out_everywhere(result, regions, names.all(), reason);
      continue;
    }
    const RegionTexture texture = measure_glcm(*band, pixels, settings, context());
    write_rows(result, regions, [&](const Region& region, int index, ResultRow& row) {
      if (row.is_empty()) {
        for (const std::string& metric : names.all()) row.leave_out(metric, row.empty_reason());
        return;
      }
      const auto k = static_cast<std::size_t>(index);
      const std::int64_t invalid = index < 0 ? texture.invalid_in_whole : texture.invalid[k];
      const DirectionFeatures& directions = index < 0 ? texture.whole : texture.regions[k];
      std::int64_t pairs = 0;
      for (const CooccurrenceFeatures& features : directions) pairs += features.pairs;
      row.expect_more(names.all().size());
      row.set(names.n, Value(region.area - invalid));
      row.set(names.n_invalid, Value(invalid));
      row.set(names.pairs, Value(pairs));
      write_features(row, names, directions);
    });
  }
  return result;
}

}  // namespace

const ResultOperationInfo& texture_glcm_info() {
  static const ResultOperationInfo info{
      .key = "texture_glcm",
      .display_name = "Texture: co-occurrence of grey levels",
      .category = "Texture",
      .summary = "Describes texture by how often grey levels stand at a distance from each other.",
      .description =
          "Each plane is put into equal levels between low and high (fractions of white: the declared white level, "
          "else the greatest count of the type, 1 for float); what is below or above belongs to the first or last "
          "level. P(i, j) is the share of the pairs of pixels with levels i and j, each pair taken both ways, for the "
          "four directions 0, 45, 90 and 135 degrees; a pair is `distance` columns, rows, or columns and rows apart "
          "(diagonals, as Haralick counts distance). Only pairs with both pixels valid and in the same region count "
          "(for the whole: both in the mask). `<plane>.glcm.<feature>.mean` and `.range` over the four directions: "
          "contrast = sum of P (i - j)^2, dissimilarity = sum of P |i - j|, homogeneity = sum of P / (1 + (i - j)^2), "
          "asm = sum of P^2 (angular second moment), energy = sqrt(asm), entropy = - sum of P log2 P, correlation = "
          "covariance / variance of the levels. n = valid pixels, n_invalid = pixels that are not a finite number, "
          "pairs = pairs of all directions. Where a direction has no pair nothing is defined but these; correlation "
          "needs levels that differ in every direction.",
      .source =
          "R. M. Haralick, K. Shanmugam, I. Dinstein, Textural features for image classification, IEEE Trans. "
          "Syst. Man Cybern. SMC-3(6), 1973, 610-621, doi:10.1109/TSMC.1973.4309314",
      .parameters = {bands_parameter(),
                     {.name = "distance",
                      .type = ParameterType::integer,
                      .default_value = 1,
                      .min = 1,
                      .max = 64,
                      .unit = "px",
                      .help = "How far the pixels of a pair are apart."},
                     {.name = "levels",
                      .type = ParameterType::integer,
                      .default_value = 32,
                      .min = 8,
                      .max = 256,
                      .help = "Number of equal grey levels."},
                     {.name = "low",
                      .type = ParameterType::real,
                      .default_value = 0.0,
                      .min = -1e6,
                      .max = 1e6,
                      .unit = "fraction of white",
                      .help = "Where the first level begins."},
                     {.name = "high",
                      .type = ParameterType::real,
                      .default_value = 1.0,
                      .min = -1e6,
                      .max = 1e6,
                      .unit = "fraction of white",
                      .help = "Where the last level ends."},
                     each_region_parameter()},
      .check_capture = check_wanted_bands,
      .operation_class = {.make = [] { return std::make_unique<TextureGlcm>(); }}};
  return info;
}

}  // namespace orvexa::model
