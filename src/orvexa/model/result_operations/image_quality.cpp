#include <algorithm>
#include <array>
#include <cmath>

#include "orvexa/model/measures/sharpness.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"
#include "orvexa/model/result_operations/wanted_bands.h"

namespace orvexa::model {

namespace {

class ImageQuality final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

/// A metric of a plane: what follows `<plane>.quality.`, and its unit.
struct MetricRow {
  const char* name;
  const char* unit;
};
enum Metric : std::size_t {
  n,
  n_invalid,
  saturated,
  zero,
  snr,
  snr_db,
  entropy,
  sharpness_n,
  laplacian_variance,
  blur_effect,
  metric_count
};
constexpr std::array<MetricRow, metric_count> metric_rows{{{"n", "px"},
                                                           {"n_invalid", "px"},
                                                           {"saturated_share", "fraction of the valid pixels"},
                                                           {"zero_share", "fraction of the valid pixels"},
                                                           {"snr", ""},
                                                           {"snr_db", "dB"},
                                                           {"entropy", "bit"},
                                                           {"sharpness_n", "px"},
                                                           {"laplacian_variance", "(fraction of white)²"},
                                                           {"blur_effect", ""}}};

/// What is counted of the values of a group.
struct Shares {
  std::int64_t saturated = 0;
  std::int64_t zero = 0;
  double entropy = 0;  ///< bits
};

/// Symbols of an image of whole numbers are its counts. Those of a float image: 0 for 0 and less, 1 to 4096 for equal
/// bins up to the white level, 4097 for the white level and more.
constexpr double float_bins = 4096;
constexpr std::uint16_t float_white = 4097;
constexpr std::uint16_t not_a_number = 4098;

std::uint16_t symbol_of(double fraction) {
  if (!std::isfinite(fraction)) return not_a_number;
  if (fraction <= 0) return 0;
  if (fraction >= 1) return float_white;
  return static_cast<std::uint16_t>(1 + std::min(float_bins - 1, std::floor(fraction * float_bins)));
}

class Symbols {
 public:
  explicit Symbols(const Band& band) : _band(band), _is_float(band.image.type() == PixelType::f32) {}

  [[nodiscard]] std::optional<std::uint16_t> none() const {
    return _is_float ? std::optional(not_a_number) : std::nullopt;
  }
  [[nodiscard]] bool is_saturated(std::int32_t symbol) const {
    return _is_float ? symbol == float_white : symbol >= _band.white.counts;
  }
  /// @param plane  of the band
  void read(const Image& plane, const RegionPixels::Run& run, std::span<std::uint16_t> out) const {
    switch (plane.type()) {
      case PixelType::u8:
        return copy(plane.row<std::uint8_t>(run.y), run, out);
      case PixelType::u16:
        return copy(plane.row<std::uint16_t>(run.y), run, out);
      case PixelType::f32:
        break;
    }
    const float* counts = plane.row<float>(run.y).data();
    for (int x = run.x0; x < run.x1; ++x) {
      out[static_cast<std::size_t>(x - run.x0)] = symbol_of(double{counts[x]} / _band.white.counts);
    }
  }

  [[nodiscard]] Shares shares(std::span<const ValueCount> counts) const {
    Shares shares;
    std::int64_t total = 0;
    for (const ValueCount& symbol : counts) {
      total += symbol.count;
      if (symbol.value == 0) shares.zero += symbol.count;
      if (is_saturated(symbol.value)) shares.saturated += symbol.count;
    }
    for (const ValueCount& symbol : counts) {
      const double share = static_cast<double>(symbol.count) / static_cast<double>(total);
      shares.entropy -= share * std::log2(share);
    }
    shares.entropy = std::max(0.0, shares.entropy);  // and not -0
    return shares;
  }

 private:
  template <typename T>
  static void copy(std::span<const T> row, const RegionPixels::Run& run, std::span<std::uint16_t> out) {
    std::copy(row.begin() + run.x0, row.begin() + run.x1, out.begin());
  }

  const Band& _band;
  bool _is_float;
};

struct RegionShares {
  Shares whole;
  std::vector<Shares> regions;
};

RegionShares measure_shares(const Band& band, const RegionPixels& pixels, const RunContext& context) {
  const Symbols symbols(band);
  const Image plane = band.plane(context);
  RegionShares result;
  const std::vector<std::uint32_t> table =
      pixels.count(65536, context, [&](std::span<const RegionPixels::Run> runs, std::span<std::uint32_t> counts) {
        std::vector<std::uint16_t> read;
        for (const RegionPixels::Run& run : runs) {
          read.resize(static_cast<std::size_t>(run.x1 - run.x0));
          symbols.read(plane, run, read);
          for (const std::uint16_t symbol : read) ++counts[symbol];
        }
      });
  std::vector<ValueCount> whole;
  for (std::size_t symbol = 0; symbol < table.size(); ++symbol) {
    if (table[symbol] != 0 && symbol != symbols.none())
      whole.push_back({static_cast<std::int32_t>(symbol), table[symbol]});
  }
  result.whole = symbols.shares(whole);
  if (pixels.regions().is_single()) {
    result.regions = {result.whole};
    return result;
  }
  result.regions.resize(pixels.regions().regions().size());
  pixels.count_symbols(
      context, symbols.none(),
      [&](const RegionPixels::Run& run, std::span<std::uint16_t> out) { symbols.read(plane, run, out); },
      [&](std::size_t group, std::span<const ValueCount> counts) { result.regions[group] = symbols.shares(counts); });
  return result;
}

void write_noise(ResultRow& row, std::span<const std::string> names, const Statistics& statistics) {
  const char* reason = nullptr;
  if (statistics.sd == 0) {
    reason = "All values are equal.";
  } else if (statistics.mean <= 0) {
    reason = "The mean is not above 0.";
  }
  if (reason != nullptr) {
    row.leave_out(names[snr], reason);
    row.leave_out(names[snr_db], reason);
    return;
  }
  row.set(names[snr], statistics.mean / statistics.sd);
  row.set(names[snr_db], 20 * std::log10(statistics.mean / statistics.sd));
}

void write_quality(ResultRow& row, std::span<const std::string> names, double white, const Statistics& statistics,
                   const Shares& shares, const Sharpness& sharpness) {
  row.expect_more(names.size());
  row.set(names[n], Value(statistics.n));
  row.set(names[n_invalid], Value(statistics.n_invalid));
  row.set(names[sharpness_n], Value(sharpness.n));
  if (statistics.n == 0) {
    for (const std::size_t metric : {saturated, zero, snr, snr_db, entropy}) {
      row.leave_out(names[metric], "No pixel has a valid value.");
    }
  } else {
    const auto count = static_cast<double>(statistics.n);
    row.set(names[saturated], static_cast<double>(shares.saturated) / count);
    row.set(names[zero], static_cast<double>(shares.zero) / count);
    row.set(names[entropy], shares.entropy);
    write_noise(row, names, statistics);
  }
  if (sharpness.n == 0) {
    row.leave_out(names[laplacian_variance], "No pixel has valid neighbours on all sides.");
    row.leave_out(names[blur_effect], "No pixel has valid neighbours on all sides.");
    return;
  }
  row.set(names[laplacian_variance], sharpness.laplacian_variance / (white * white));
  if (sharpness.blur_effect) {
    row.set(names[blur_effect], *sharpness.blur_effect);
  } else {
    row.leave_out(names[blur_effect], "There is no difference between neighbours in some direction.");
  }
}

OperationResult ImageQuality::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  OperationResult result;
  const RegionPixels pixels(regions, context());
  for (const auto& [name, band, reason] : wanted_bands(capture, params.at("bands"), result)) {
    std::vector<std::string> names;
    for (const MetricRow& metric : metric_rows) {
      names.push_back(name + ".quality." + metric.name);
      result.units[names.back()] = metric.unit;
    }
    if (!band) {
      leave_out_everywhere(result, regions, names, reason);
      continue;
    }
    // What the camera recorded is judged: by a reference, clipped pixels are no longer white.
    const Band recorded = band->raw();
    const double white = recorded.white.counts;
    const RegionStatistics statistics = pixels.measure(recorded, context());
    const RegionShares shares = measure_shares(recorded, pixels, context());
    const RegionSharpness sharpness = measure_sharpness(recorded, pixels, context());
    write_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
      if (row.is_empty()) {
        for (const std::string& metric : names) row.leave_out(metric, row.empty_reason());
      } else if (index < 0) {
        write_quality(row, names, white, statistics.whole, shares.whole, sharpness.whole);
      } else {
        const auto k = static_cast<std::size_t>(index);
        write_quality(row, names, white, statistics.regions[k], shares.regions[k], sharpness.regions[k]);
      }
    });
  }
  return result;
}

}  // namespace

const ResultOperationInfo& image_quality_info() {
  static const ResultOperationInfo info{
      .key = "image_quality",
      .display_name = "Image quality",
      .category = "Intensity",
      .summary = "Says how sharp, noisy, saturated and rich in grey levels each image is.",
      .description =
          "For every chosen plane, as `<plane>.quality.<metric>`, from the counts of the file, also where the capture "
          "has a reference: saturated_share and zero_share = valid pixels at or above the white level (the declared "
          "one, else the greatest count of the type, 1 for float), and at or below 0, / valid pixels. snr = mean / sd "
          "of the counts and snr_db = 20 log10(snr): the ratio of EMVA 1288 where the region shows an evenly lit, even "
          "surface and the dark level is subtracted. entropy = - sum of p log2 p over the counts that occur (Shannon); "
          "a float image is put into 4096 equal bins from 0 to white, with bins of their own for what is at or below 0 "
          "and at or above white. laplacian_variance = variance (of the population) of above + below + left + right - "
          "4 centre, in squared fractions of white (Pech-Pacheco et al.). blur_effect, from 0 = sharp to 1 = blurred, "
          "= (sum of e - sum of max(0, e - b)) / sum of e, where e are the absolute Sobel differences and b those of "
          "the picture after a mean of 11 pixels, along rows and along columns, the greater one (Crété et al.). Both "
          "take the neighbours from the image, also from outside the region, mirror it at its border for the mean, and "
          "look at the sharpness_n pixels that are not at the image's border and have finite values all around. What "
          "is undefined (no valid pixel, no spread, no difference) says why.",
      .source =
          "J. L. Pech-Pacheco, G. Cristóbal, J. Chamorro-Martínez, J. Fernández-Valdivia, Diatom autofocusing in "
          "brightfield microscopy: a comparative study, ICPR 2000, vol. 3, 314-317, doi:10.1109/ICPR.2000.903548; F. "
          "Crété, T. Dolmiere, P. Ladret, M. Nicolas, The blur effect: perception and estimation with a new "
          "no-reference perceptual blur metric, SPIE 6492, 2007, 64920I, doi:10.1117/12.702790; C. E. Shannon, A "
          "mathematical theory of communication, Bell Syst. Tech. J. 27, 1948, 379-423, "
          "doi:10.1002/j.1538-7305.1948.tb01338.x; EMVA Standard 1288",
      .parameters = {bands_parameter(), each_region_parameter()},
      .check_capture = check_wanted_bands,
      .operation_class = {.make = [] { return std::make_unique<ImageQuality>(); }}};
  return info;
}

}  // namespace orvexa::model
