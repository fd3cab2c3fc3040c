#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>

#include "orvexa/common/text.h"
#include "orvexa/model/pictures/heat_map.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

constexpr const char* measurement = "FLU";
constexpr double invalid = std::numeric_limits<double>::quiet_NaN();

double quotient(double numerator, double denominator) {
  return denominator > 0 ? numerator / denominator : invalid;
}

/// A parameter of photosystem II as a row of data. `value` gets the images in order, as fractions of white.
struct Photochemistry {
  const char* key;
  const char* title;
  double map_high;  ///< the value of the last colour of its map; the first is 0
  std::vector<std::string> images;
  double (*value)(const std::vector<double>& v);
};

const std::vector<Photochemistry>& parameters_of_psii() {
  static const std::vector<Photochemistry> all{
      {"fv_fm", "Fv/Fm", 1, {"FM", "F0"}, [](const std::vector<double>& v) { return quotient(v[0] - v[1], v[0]); }},
      {"phi_psii",
       "Phi PSII",
       1,
       {"FMP", "FS"},
       [](const std::vector<double>& v) { return quotient(v[0] - v[1], v[0]); }},
      {"npq", "NPQ", 4, {"FM", "FMP"}, [](const std::vector<double>& v) { return quotient(v[0] - v[1], v[1]); }},
      {"qp",
       "qP",
       1,
       {"FMP", "FS", "F0P"},
       [](const std::vector<double>& v) { return quotient(v[0] - v[1], v[0] - v[2]); }},
      {"ql", "qL", 1, {"FMP", "FS", "F0P"}, [](const std::vector<double>& v) {
         return quotient(v[0] - v[1], v[0] - v[2]) * quotient(v[2], v[1]);
       }}};
  return all;
}

/// Without them nothing can be said.
void expect_needed_images(const ImageSource& source) {
  const std::vector<std::string> present = source.image_names(measurement);
  for (const char* needed : {"F0", "FM"}) {
    if (std::find(present.begin(), present.end(), needed) != present.end()) continue;
    throw std::runtime_error(std::string("psii: the measurement FLU has no image ") + needed + "; it has " +
                             (present.empty() ? "none" : common::joined(present, ", ")) + ".");
  }
}

class Psii final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
  [[nodiscard]] cv::Mat map_of(const Photochemistry& parameter, const std::vector<Band>& bands, const Band& fm,
                               double min_fm, bool leaves_out_saturated) const;
};

/// Where a row of one of the planes is at or above white.
std::vector<bool> saturated_pixels(const std::vector<Band>& planes, int y, std::size_t columns) {
  std::vector<bool> is_saturated(columns, false);
  std::vector<double> row(columns);
  for (const Band& plane : planes) {
    plane.read_normalised_row(y, row);
    for (std::size_t x = 0; x < columns; ++x) {
      if (row[x] >= 1) is_saturated[x] = true;
    }
  }
  return is_saturated;
}

/// NaN where the pixel is invalid.
cv::Mat Psii::map_of(const Photochemistry& parameter, const std::vector<Band>& bands, const Band& fm, double min_fm,
                     bool leaves_out_saturated) const {
  const auto [height, width] = fm.shape();
  const auto columns = static_cast<std::size_t>(width);
  cv::Mat map(height, width, CV_64FC1);
  // By a reference, clipped pixels are no longer white.
  std::vector<Band> recorded;
  for (const Band& band : bands) {
    if (leaves_out_saturated) recorded.push_back(band.raw());
  }
  for_each_stripe(height, width, context(), [&](int y0, int y1) {
    std::vector<double> most(columns);
    std::vector<std::vector<double>> rows(bands.size(), std::vector<double>(columns));
    std::vector<double> pixel(bands.size());
    for (int y = y0; y < y1; ++y) {
      fm.read_normalised_row(y, most);
      for (std::size_t k = 0; k < bands.size(); ++k) bands[k].read_normalised_row(y, rows[k]);
      const std::vector<bool> is_saturated = saturated_pixels(recorded, y, columns);
      double* out = map.ptr<double>(y);
      for (std::size_t x = 0; x < columns; ++x) {
        for (std::size_t k = 0; k < bands.size(); ++k) pixel[k] = rows[k][x];
        const bool is_valid = most[x] >= min_fm && !is_saturated[x];
        const double value = is_valid ? parameter.value(pixel) : invalid;
        out[x] = std::isfinite(value) ? value : invalid;
      }
    }
  });
  return map;
}

OperationResult Psii::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const double min_fm = params.at("min_fm").get<double>();
  const bool leaves_out_saturated = params.at("leave_out_saturated").get<bool>();
  expect_needed_images(capture);
  const std::vector<std::string> present = capture.image_names(measurement);
  const auto has = [&](const std::string& image) {
    return std::find(present.begin(), present.end(), image) != present.end();
  };
  const auto band_of = [&](const std::string& image) {
    return find_band(capture, std::string(measurement) + "." + image);
  };
  const Band fm = band_of("FM");

  OperationResult result;
  const RegionPixels pixels(regions, context());
  for (const Photochemistry& parameter : parameters_of_psii()) {
    const auto missing = std::find_if_not(parameter.images.begin(), parameter.images.end(), has);
    if (missing != parameter.images.end()) {
      add_undefined_statistics(result, regions, parameter.key, "The measurement FLU has no image " + *missing + ".",
                               {});
      continue;
    }
    std::vector<Band> bands;
    Value& chosen = result.chosen_bands[parameter.key] = Value::array();
    for (const std::string& image : parameter.images) {
      bands.push_back(band_of(image));
      chosen.push_back(bands.back().name);
    }
    const cv::Mat map = map_of(parameter, bands, fm, min_fm, leaves_out_saturated);
    add_statistics(result, regions, parameter.key, pixels.measure(map, context()), {});
    const HeatScale scale{0, parameter.map_high, parameter.title};
    result.images.insert_or_assign(parameter.key,
                                   ResultImage{.picture = heat_map_picture(map, regions.mask(), scale, context()),
                                               .numbers = map_numbers(map, regions.mask(), context())});
  }
  return result;
}

}  // namespace

const ResultOperationInfo& psii_info() {
  static const ResultOperationInfo info{
      .key = "psii",
      .display_name = "Photosystem II",
      .category = "Fluorescence",
      .summary = "Measures the efficiency of photosystem II from images of chlorophyll fluorescence.",
      .description =
          "From the images F0 and FM (dark-adapted minimum and maximum) and, where they are there, FS, FMP and F0P "
          "(steady state, maximum and minimum in light: Fs, Fm', F0') of the measurement FLU, pixel by pixel: fv_fm = "
          "(Fm - F0) / Fm, phi_psii = (Fm' - Fs) / Fm', npq = (Fm - Fm') / Fm', qp = (Fm' - Fs) / (Fm' - F0'), ql = qp "
          "* F0' / Fs. The images must have their dark level subtracted. A pixel is valid where Fm reaches min_fm, the "
          "denominators are above 0 and, when asked for, no image of the formula is saturated: in the file, also where "
          "the capture has a reference, its count is at or above the white level. For each, as "
          "`<parameter>.<statistic>`: " +
          statistics_text() +
          " A parameter whose image is not there is left out with its reason; F0 or FM missing is an error. The map of "
          "each spans 0 to 1, that of npq 0 to 4, so that maps of several captures are comparable; the numbers are "
          "saved as 32-bit float.",
      .source =
          "M. Kitajima, W. L. Butler, Biochim. Biophys. Acta 376(1), 1975, 105-115, doi:10.1016/0005-2728(75)90209-1 "
          "(fv_fm); B. Genty, J.-M. Briantais, N. R. Baker, Biochim. Biophys. Acta 990(1), 1989, 87-92, "
          "doi:10.1016/S0304-4165(89)80016-9 (phi_psii); W. Bilger, O. Björkman, Photosynth. Res. 25, 1990, 173-185, "
          "doi:10.1007/BF00033159 (npq); D. M. Kramer, G. Johnson, O. Kiirats, G. E. Edwards, Photosynth. Res. 79, "
          "2004, 209-218, doi:10.1023/B:PRES.0000015391.99477.0d (qp, ql)",
      .parameters = {{.name = "min_fm",
                      .type = ParameterType::real,
                      .default_value = 0.02,
                      .min = 0.0,
                      .max = 1.0,
                      .unit = "fraction of white",
                      .help = "Pixels whose Fm is below this are too dark to be valid."},
                     {.name = "leave_out_saturated",
                      .type = ParameterType::boolean,
                      .default_value = false,
                      .help = "Whether pixels whose count in the file is at or above the white level are invalid."}},
      .required_measurements = std::vector<MeasurementRequirement>{std::string(measurement)},
      .check_capture = [](const ImageSource& source, const Value&) { expect_needed_images(source); },
      .operation_class = {.make = [] { return std::make_unique<Psii>(); }}};
  return info;
}

}  // namespace orvexa::model
