#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "orvexa/common/text.h"
#include "orvexa/model/mask_operations/band_parameter.h"
#include "orvexa/model/mask_operations/dependent_parameters.h"
#include "orvexa/model/mask_operations/local_threshold.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/rectangles.h"
#include "orvexa/model/mask_operations/value_range.h"
#include "orvexa/model/measures/auto_threshold.h"
#include "orvexa/model/measures/components.h"
#include "orvexa/model/measures/role_bands.h"
#include "orvexa/model/measures/smoothing.h"
#include "orvexa/model/measures/spectral_indices.h"
#include "orvexa/model/measures/statistics.h"
#include "orvexa/model/pictures/outlines.h"

namespace orvexa::model {

namespace {

constexpr const char* no_index = "none";

bool is_index_wanted(const Value& params) {
  return params.at("index") != no_index;
}

RoleBands named_bands(const Value& params) {
  if (is_index_wanted(params)) {
    return role_bands("auto_roi", params.at("bands"), std::vector{params.at("index").get<std::string>()});
  }
  if (params.at("bands").empty()) return {};
  throw std::invalid_argument(
      "auto_roi: parameter \"bands\" names bands for an index, but parameter \"index\" is \"none\".");
}

/// What is looked at: the values of a band or of an index.
struct Looked {
  std::string name;
  std::optional<Band> band;
  cv::Mat values;

  [[nodiscard]] Histogram histogram(const Mask* mask, const RunContext& context) const {
    return band ? masked_histogram(*band, mask, context) : masked_histogram(values, mask, context);
  }
  void read_row(int y, std::vector<double>& row) const {
    if (band) return band->read_row(y, row);
    std::copy_n(values.ptr<double>(y), row.size(), row.begin());
  }
};

/// The values of the pixels that are at most `width` pixels away from the image's border and in the mask.
std::vector<double> border_values(const Looked& looked, const Mask* mask, int width, const RunContext& context) {
  const int rows = looked.values.rows;
  const int columns = looked.values.cols;
  std::vector<double> row(static_cast<std::size_t>(columns));
  std::vector<double> found;
  for (int y = 0; y < rows; ++y) {
    context.check();
    looked.read_row(y, row);
    const bool is_whole = y < width || y >= rows - width;
    for (int x = 0; x < columns; ++x) {
      if (!is_whole && x == width) x = std::max(x, columns - width);
      const double value = row[static_cast<std::size_t>(x)];
      if ((mask == nullptr || mask->at(y, x)) && std::isfinite(value)) found.push_back(value);
    }
  }
  return found;
}

PixelRect joined(const PixelRect& a, const PixelRect& b) {
  if (a.is_empty()) return b;
  return {std::min(a.x0, b.x0), std::min(a.y0, b.y0), std::max(a.x1, b.x1), std::max(a.y1, b.y1)};
}

PixelRect padded(const PixelRect& box, double padding, Shape shape) {
  const int dx = static_cast<int>(std::floor(padding * shape.width + 0.5));
  const int dy = static_cast<int>(std::floor(padding * shape.height + 0.5));
  return {std::max(0, box.x0 - dx), std::max(0, box.y0 - dy), std::min(shape.width, box.x1 + dx),
          std::min(shape.height, box.y1 + dy)};
}

class AutoRoi final : public MaskOperation {
  void check(const Value& params) const override {
    check_smoothing("auto_roi", params);
    static_cast<void>(named_bands(params));
    if (is_index_wanted(params) && params.at("smooth") != "none") {
      throw std::invalid_argument(
          "auto_roi: parameter \"smooth\" filters a band, but with parameter \"index\" an index is looked at.");
    }
    refuse_unless_chosen(info(), params, {"band"}, "index", {no_index});
    refuse_unless_chosen(info(), params, {"threshold", "polarity"}, "method", {"largest", "union"});
    refuse_unless_chosen(info(), params, {"border", "k"}, "method", {"border_background"});
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const Looked looked = looked_at(source, params);
    auto objects = params.at("method") == "border_background" ? unlike_the_border(looked, current, params)
                                                              : beyond_the_level(looked, current, params);
    if (!objects) return Mask::empty(source.get_shape());
    if (current != nullptr) cv::bitwise_and(*objects, current->read_only(), *objects);
    const Components components = label_components(*objects, 8, context());
    const std::int64_t looked_at_pixels = current != nullptr ? current->count() : source.get_shape().pixels();
    const std::vector<char> is_chosen =
        chosen(components, params.at("min_fraction").get<double>() * double(looked_at_pixels),
               params.at("method") == "largest");
    return box_of(components, is_chosen, params.at("padding").get<double>());
  }

  Looked looked_at(const ImageSource& source, const Value& params) {
    if (is_index_wanted(params)) {
      const SpectralIndex& index = get_spectral_index(params.at("index").get_ref<const std::string&>());
      IndexMap map = compute_index(source, index, context(), named_bands(params));
      chosen_bands[index.key] = map.bands;
      return {.name = fmt::format("{} of {}", index.key, common::joined(map.bands, ", ")),
              .band = std::nullopt,
              .values = std::move(map.values)};
    }
    Band band = smoothed(find_band(source, params.at("band").get<std::string>()), params, context());
    chosen_bands["band"] = band.name;
    const cv::Mat values = band.image.read_only();
    const std::string name = band.name;
    return {.name = name, .band = std::move(band), .values = values};
  }

  std::optional<cv::Mat> beyond_the_level(const Looked& looked, const Mask* current, const Value& params) {
    const Histogram histogram = looked.histogram(current, context());
    const auto& method = params.at("threshold").get_ref<const std::string&>();
    const auto level = auto_threshold_level(histogram, auto_threshold_method(method), context());
    if (!level) {
      note = no_level_text(histogram, looked.name);
      return {};
    }
    note = fmt::format("level {:.6g} of {} by {}", *level, looked.name, method);
    return pixels_within(looked.values, keeps_bright(params) ? values_above(*level) : values_up_to(*level), context());
  }

  std::optional<cv::Mat> unlike_the_border(const Looked& looked, const Mask* current, const Value& params) {
    const int smaller_side = std::min(looked.values.rows, looked.values.cols);
    const int width = std::max(1, static_cast<int>(std::floor(params.at("border").get<double>() * smaller_side + 0.5)));
    const std::vector<double> border = border_values(looked, current, width, context());
    if (border.empty()) {
      note = fmt::format("no_contrast: the border of the image has no pixel to look at in {}, so the mask is empty",
                         looked.name);
      return {};
    }
    const Statistics background = describe_values(border, context());
    const double distance = params.at("k").get<double>() * background.mad;
    note = fmt::format("background {:.6g} +- {:.6g} of {}", background.median, distance, looked.name);
    const double reach = distance + (looked.band ? 0 : rounding_of_map(std::abs(background.median)));
    return pixels_within(looked.values,
                         {.low = background.median - reach, .high = background.median + reach, .is_inverted = true},
                         context());
  }

  static std::vector<char> chosen(const Components& components, double min_area, bool only_largest) {
    std::vector<char> is_chosen(components.components.size(), 0);
    std::size_t largest = 0;
    for (std::size_t k = 0; k < is_chosen.size(); ++k) {
      const auto area = double(components.components[k].area);
      is_chosen[k] = area >= min_area && !only_largest ? 1 : 0;
      if (components.components[k].area > components.components[largest].area) largest = k;
    }
    const bool has_largest = !is_chosen.empty() && double(components.components[largest].area) >= min_area;
    if (only_largest && has_largest) is_chosen[largest] = 1;
    return is_chosen;
  }

  Mask box_of(const Components& components, const std::vector<char>& is_chosen, double padding) {
    PixelRect box;
    for (std::size_t k = 0; k < is_chosen.size(); ++k) {
      if (is_chosen[k] != 0) box = joined(box, components.components[k].box);
    }
    const auto count = std::ranges::count(is_chosen, char{1});
    if (count > 0) {
      box = padded(box, padding, components.shape);
      note += fmt::format("; columns {} to {} and rows {} to {} around {} of {} parts", box.x0, box.x1 - 1, box.y0,
                          box.y1 - 1, count, is_chosen.size());
    } else {
      note =
          fmt::format("no_region: none of {} parts is large enough ({}), so the mask is empty", is_chosen.size(), note);
    }
    if (wants_overlay) viz_overlay = drawn(components, is_chosen, box);
    cv::Mat pixels(components.shape.height, components.shape.width, CV_8UC1, cv::Scalar(0));
    pixels(cv_rect(box)).setTo(255);
    return Mask(std::move(pixels));
  }

  [[nodiscard]] Image drawn(const Components& components, const std::vector<char>& is_chosen,
                            const PixelRect& box) const {
    std::vector<Pen> pens;
    pens.reserve(is_chosen.size());
    for (const char chosen_part : is_chosen) pens.push_back(chosen_part != 0 ? Pen::kept : Pen::rejected);
    LineDrawing drawing(components.shape);
    drawing.outline(components, pens, context());
    drawing.outline(box, Pen::divided);
    return drawing.finished(context());
  }
};

std::vector<std::string> index_keys_and_none() {
  std::vector<std::string> keys{no_index};
  for (const SpectralIndex& index : spectral_indices()) keys.push_back(index.key);
  return keys;
}

void check_looked_at(const ImageSource& source, const Value& params) {
  if (!is_index_wanted(params)) return check_band(source, params);
  const SpectralIndex& index = get_spectral_index(params.at("index").get_ref<const std::string&>());
  static_cast<void>(index_bands(source, index, named_bands(params)));
}

ParameterList own_parameters() {
  return {band_parameter(),
          {.name = "index",
           .type = ParameterType::choice,
           .default_value = no_index,
           .help = "A spectral index to look at instead of the band.",
           .choices = index_keys_and_none()},
          role_bands_parameter(),
          {.name = "method",
           .type = ParameterType::choice,
           .default_value = "largest",
           .help = "Whether the box is that of the largest part, of all parts, or of what differs from the border.",
           .choices = {"largest", "union", "border_background"}},
          {.name = "threshold",
           .type = ParameterType::choice,
           .default_value = "otsu",
           .help = "How the level of largest and union is chosen, as in threshold_auto.",
           .choices = auto_threshold_method_names()},
          polarity_parameter(),
          {.name = "border",
           .type = ParameterType::real,
           .default_value = 0.02,
           .min = 0.0,
           .max = 0.25,
           .unit = "fraction of the smaller side",
           .help = "Width of the border that border_background looks at, at least one pixel."},
          {.name = "k",
           .type = ParameterType::real,
           .default_value = 5.0,
           .min = 0.0,
           .max = 50.0,
           .unit = "MAD",
           .help = "How far from the border's median the background reaches in border_background."},
          {.name = "min_fraction",
           .type = ParameterType::real,
           .default_value = 0.001,
           .min = 0.0,
           .max = 1.0,
           .unit = "fraction of the pixels looked at",
           .help = "The smallest part that counts."},
          {.name = "padding",
           .type = ParameterType::real,
           .default_value = 0.02,
           .min = 0.0,
           .max = 0.5,
           .unit = "fraction of the image",
           .help = "What is added to the box on each side, of the image's width and height."}};
}

}  // namespace

const MaskOperationInfo& auto_roi_info() {
  static const MaskOperationInfo info{
      .key = "auto_roi",
      .display_name = "Region of interest: found",
      .category = "Regions of interest",
      .summary = "Finds the objects in one band or index and keeps the rectangle around them.",
      .description =
          std::string(
              "Objects are the pixels of the incoming mask on one side of a level that is found as in threshold_auto "
              "(largest, union), or those with |v - m| > k MAD, where m and MAD are the median and the median absolute "
              "deviation, not scaled, of the pixels of the mask near the image's border (border_background). They are "
              "split into 8-connected parts; one with fewer than min_fraction of the pixels looked at (the incoming "
              "mask, or the image) does not count. The box of the largest part, of equal ones the first in raster "
              "order, or of all parts together (union, border_background) is widened by padding, rounded to pixels and "
              "cut off at the image's border; everything inside is kept. Values without contrast (of an index: none "
              "farther apart than rounding, 1e-12) give an empty mask with the note no_contrast, no part that counts "
              "one with the note no_region. The overlay shows chosen parts in green, the others in red and the "
              "rectangle in yellow. Pixels that are not a number belong to no part. Steps that grow a mask stay inside "
              "the rectangle. ") +
          smoothing_text(),
      .source =
          "Levels as threshold_auto, indices as index_statistics; A. Rosenfeld, J. L. Pfaltz, Sequential "
          "Operations in Digital Picture Processing, J. ACM 13(4), 1966, 471-494",
      .parameters = with_smoothing(own_parameters()),
      ._is_roi_operation = true,
      ._requires_accumulated_mask = true,
      .check_capture = check_looked_at,
      .make = [] { return std::make_unique<AutoRoi>(); }};
  return info;
}

}  // namespace orvexa::model
