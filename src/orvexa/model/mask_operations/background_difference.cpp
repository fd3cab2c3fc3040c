#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "orvexa/common/files.h"
#include "orvexa/model/entities/capture_files.h"
#include "orvexa/model/mask_operations/dependent_parameters.h"
#include "orvexa/model/mask_operations/file_parameter.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/measures/bands.h"
#include "orvexa/model/measures/color.h"
#include "orvexa/model/measures/color_planes.h"

namespace orvexa::model {

namespace {

constexpr const char* key = "background_difference";
/// Makes the median absolute deviation of normal noise its standard deviation.
constexpr double mad_to_sigma = 1.4826;

bool is_delta_e(const Value& params) {
  return params.at("metric").get_ref<const std::string&>() == "delta_e_76";
}

std::vector<Band> wanted_planes(const ImageSource& source, const Value& params) {
  if (is_delta_e(params)) return find_color_planes(source, key, params.at("image").get_ref<const std::string&>()).rgb;
  return {find_band(source, params.at("band").get_ref<const std::string&>())};
}

/// The plane of an ordinary picture, which is in the counts of the band that it is compared with: what is white in that
/// one, and its reference, hold for both.
Band plane_of_picture(const Image& picture, const Band& band, const std::string& file) {
  const Image& counts = band.counts ? band.counts->image : band.image;
  if (picture.is_color() != counts.is_color()) {
    throw std::runtime_error(fmt::format("The reference {} is {}, but {} is {}.", file,
                                         picture.is_color() ? "a colour picture" : "a picture with one channel",
                                         band.name,
                                         counts.is_color() ? "of a colour picture" : "a picture with one channel"));
  }
  if (picture.type() != counts.type()) {
    throw std::runtime_error(fmt::format("The reference {} is {}, but {} is {}; both must have the same counts.", file,
                                         pixel_type_text(picture.type()), band.name, pixel_type_text(counts.type())));
  }
  Band plane = band.raw();
  plane.image = picture;
  return band.counts ? with_reference(plane, band.counts->reference) : plane;
}

/// The planes of the empty scene, in the order of the capture's.
std::vector<Band> background_planes(const std::filesystem::path& file, const std::vector<Band>& planes, Shape capture) {
  const auto background = load_capture_file(file);
  const std::string name = common::path_text(file.filename());
  expect_size_of_capture(file, background->get_shape(), capture);
  std::vector<Band> found;
  for (const Band& band : planes) {
    if (background->header) {
      try {
        found.push_back(find_band(*background, band.name));
      } catch (const std::runtime_error& missing) {
        throw std::runtime_error(fmt::format("The reference {} does not fit. {}", name, missing.what()));
      }
    } else {
      const std::string measurement = background->get_measurement_types().front();
      const Image picture = *background->find_image(measurement, background->image_names(measurement).front());
      found.push_back(plane_of_picture(picture, band, name));
    }
  }
  return found;
}

/// Type-7 median; the values are put into another order.
double median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 == 1) return *middle;
  return (*std::max_element(values.begin(), middle) + *middle) / 2;
}

class BackgroundDifference final : public MaskOperation {
  void check(const Value& params) const override {
    refuse_unless_chosen(info(), params, {"band"}, "metric", {"abs"});
    refuse_unless_chosen(info(), params, {"image"}, "metric", {"delta_e_76"});
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const std::vector<Band> planes = wanted_planes(source, params);
    for (const Band& plane : planes) chosen_bands["bands"].push_back(plane.name);
    const std::vector<Band> background = background_planes(named_file(params, "reference"), planes, source.get_shape());
    const cv::Mat differences = is_delta_e(params) ? color_distances(planes, background)
                                                   : signed_differences(planes.front(), background.front());
    std::vector<double> values = values_inside(differences, current);
    if (values.empty()) {
      note = "no_contrast: there is no pixel to look at, so the mask is empty";
      return Mask::empty(source.get_shape());
    }
    const double sigma = mad_to_sigma * deviation(values);
    const double limit = params.at("k").get<double>() * sigma;
    Mask mask = pixels_beyond(differences, limit);
    describe(params, planes, sigma, limit, mask, current);
    return mask;
  }

  /// In the values of the capture's band: counts of whole numbers stay whole, so that equal differences are equal.
  [[nodiscard]] cv::Mat signed_differences(const Band& band, const Band& background) const {
    const double scale = band.white.counts / background.white.counts;
    return map_of(band.shape(), [&](int y, std::span<double> out) {
      std::vector<double> row(out.size());
      band.read_row(y, out);
      background.read_row(y, row);
      for (std::size_t x = 0; x < out.size(); ++x) out[x] -= scale * row[x];
    });
  }

  [[nodiscard]] cv::Mat color_distances(const std::vector<Band>& planes, const std::vector<Band>& background) const {
    return map_of(planes.front().shape(), [&](int y, std::span<double> out) {
      const std::vector<Lab> here = lab_row(planes, y);
      const std::vector<Lab> there = lab_row(background, y);
      for (std::size_t x = 0; x < out.size(); ++x) out[x] = delta_e_76(here[x], there[x]);
    });
  }

  static std::vector<Lab> lab_row(const std::vector<Band>& rgb, int y) {
    const auto width = static_cast<std::size_t>(rgb.front().shape().width);
    std::vector<std::vector<double>> rows(3, std::vector<double>(width));
    for (std::size_t k = 0; k < rows.size(); ++k) rgb[k].read_normalised_row(y, rows[k]);
    // A value that is no number stays none.
    const auto cut = [](double share) { return std::isnan(share) ? share : std::clamp(share, 0.0, 1.0); };
    std::vector<Lab> colors(width);
    for (std::size_t x = 0; x < width; ++x) colors[x] = to_lab({cut(rows[0][x]), cut(rows[1][x]), cut(rows[2][x])});
    return colors;
  }

  template <typename FillRow>
  [[nodiscard]] cv::Mat map_of(Shape shape, const FillRow& fill_row) const {
    cv::Mat map(shape.height, shape.width, CV_64FC1);
    for_each_stripe(shape.height, shape.width, context(), [&](int y0, int y1) {
      for (int y = y0; y < y1; ++y) fill_row(y, std::span(map.ptr<double>(y), static_cast<std::size_t>(shape.width)));
    });
    return map;
  }

  /// Finite values of the pixels that count.
  [[nodiscard]] std::vector<double> values_inside(const cv::Mat& differences, const Mask* current) const {
    std::vector<double> values;
    values.reserve(differences.total());
    for (int y = 0; y < differences.rows; ++y) {
      context().check();
      const double* row = differences.ptr<double>(y);
      const std::uint8_t* counts = current != nullptr ? current->row(y).data() : nullptr;
      for (int x = 0; x < differences.cols; ++x) {
        if ((counts == nullptr || counts[x] != 0) && std::isfinite(row[x])) values.push_back(row[x]);
      }
    }
    return values;
  }

  /// The median absolute deviation from the median.
  [[nodiscard]] double deviation(std::vector<double>& values) const {
    const double centre = median(values);
    context().check();
    for (double& value : values) value = std::abs(value - centre);
    const double result = median(values);
    context().check();
    return result;
  }

  [[nodiscard]] Mask pixels_beyond(const cv::Mat& differences, double limit) const {
    cv::Mat pixels(differences.rows, differences.cols, CV_8UC1);
    for_each_stripe(differences.rows, differences.cols, context(), [&](int y0, int y1) {
      for (int y = y0; y < y1; ++y) {
        const double* row = differences.ptr<double>(y);
        std::uint8_t* out = pixels.ptr<std::uint8_t>(y);
        for (int x = 0; x < differences.cols; ++x) {
          out[x] = std::isfinite(row[x]) && std::abs(row[x]) > limit ? 255 : 0;
        }
      }
    });
    return Mask(std::move(pixels));
  }

  void describe(const Value& params, const std::vector<Band>& planes, double sigma, double limit, const Mask& mask,
                const Mask* current) {
    const double white = is_delta_e(params) ? 1.0 : planes.front().white.counts;
    const char* unit = is_delta_e(params) ? "Delta E 76" : "of white";
    const bool is_empty = (current != nullptr ? mask & *current : mask).count() == 0;
    if (is_empty) note = "no_contrast: no pixel differs from the background by more, so the mask is empty; ";
    note += fmt::format("sigma {:.6g} {}, limit {:.6g} {}", sigma / white, unit, limit / white, unit);
    if (sigma <= 0) note += "; sigma is 0, so every pixel that differs at all is beyond the limit";
  }
};

void check_capture(const ImageSource& source, const Value& params) {
  static_cast<void>(wanted_planes(source, params));
}

}  // namespace

const MaskOperationInfo& background_difference_info() {
  static const MaskOperationInfo info{
      .key = key,
      .display_name = "Difference from the background",
      .category = "Files",
      .summary = "Keeps the pixels that differ from a capture of the empty scene by more than its noise.",
      .description =
          "With v the value of a pixel and ref its value in the reference, a pixel is kept when |v - ref| > k sigma. "
          "sigma = 1.4826 MAD, and MAD is the median of |d - median(d)| over the differences d of the pixels inside "
          "the incoming mask, so that objects on less than half of the picture do not change it. metric abs: d = v - "
          "ref in one band, as fractions of the white level of each. metric delta_e_76: d is the distance of the two "
          "colours in CIELAB (1976), from R, G, B as sRGB fractions of white, cut to 0 to 1. sigma is 0 when more than "
          "half of the differences are equal, as in pictures drawn by a program; every pixel that differs at all is "
          "kept then, which the note says. The reference is another capture, with a band of the same name, or an "
          "ordinary picture, in the counts of the band that it is compared with (its white level and reference hold "
          "for both); it has the size of the capture's images. Pixels that are no number in one of the two are never "
          "kept and do not enter sigma. The file is named relative to the workflow file or by its absolute path; its "
          "SHA-256 is written into the record of the run.",
      .source =
          "F. R. Hampel, The influence curve and its role in robust estimation, J. Am. Stat. Assoc. 69(346), 1974, "
          "383-393, doi:10.1080/01621459.1974.10482962, for MAD; CIELAB: ISO/CIE 11664-4",
      .parameters = {{.name = "reference",
                      .type = ParameterType::file,
                      .default_value = "",
                      .help = "The empty scene: a header HDR_*.INF, or an ordinary picture."},
                     {.name = "metric",
                      .type = ParameterType::choice,
                      .default_value = "abs",
                      .help = "What is compared: the values of one band, or colours.",
                      .choices = {"abs", "delta_e_76"}},
                     {.name = "band",
                      .type = ParameterType::band,
                      .default_value = "",
                      .help = "The band that abs compares; empty means the grey of the first colour image, else the "
                              "first image."},
                     color_image_parameter(),
                     {.name = "k",
                      .type = ParameterType::real,
                      .default_value = 3.0,
                      .min = 0.0,
                      .max = 20.0,
                      .unit = "sigma",
                      .help = "How many sigma a pixel has to differ by."}},
      .check_capture = check_capture,
      .make = [] { return std::make_unique<BackgroundDifference>(); }};
  return info;
}

}  // namespace orvexa::model
