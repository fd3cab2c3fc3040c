#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/mask_operations/component_filter.h"
#include "orvexa/model/mask_operations/dependent_parameters.h"
#include "orvexa/model/mask_operations/limits.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/measures/bands.h"
#include "orvexa/model/measures/component_pictures.h"
#include "orvexa/model/measures/shape_measures.h"
#include "orvexa/model/pictures/outlines.h"
#include "orvexa/model/scale_units.h"

namespace orvexa::model {

namespace {

/// One number a component; NaN where it is undefined.
using Measures = std::vector<double>;

constexpr double undefined = std::numeric_limits<double>::quiet_NaN();

Measures areas(const Components& components, double area_of_pixel) {
  Measures result;
  for (const Components::Component& component : components.components) {
    result.push_back(component.area > 0 ? double(component.area) * area_of_pixel : undefined);
  }
  return result;
}

/// From the centroid of the pixels' centres to a point in fractions of the image.
Measures distances_to(const Components& components, double x_norm, double y_norm, double length_of_pixel) {
  const std::size_t count = components.components.size();
  std::vector<std::int64_t> sum_x(count, 0);
  std::vector<std::int64_t> sum_y(count, 0);
  for (const Components::Run& run : components.runs) {
    const auto k = static_cast<std::size_t>(run.label - 1);
    const std::int64_t n = run.x1 - run.x0;
    sum_x[k] += n * (run.x0 + run.x1 - 1) / 2;
    sum_y[k] += n * run.y;
  }
  const double point_x = x_norm * components.shape.width - 0.5;
  const double point_y = y_norm * components.shape.height - 0.5;
  Measures result;
  for (std::size_t k = 0; k < count; ++k) {
    const auto n = double(components.components[k].area);
    const double dx = double(sum_x[k]) / n - point_x;
    const double dy = double(sum_y[k]) / n - point_y;
    result.push_back(length_of_pixel * std::sqrt(dx * dx + dy * dy));
  }
  return result;
}

/// In fractions of white; values that are not finite are left out.
Measures band_means(const Components& components, const Band& band, const RunContext& context) {
  const std::size_t count = components.components.size();
  std::vector<double> sum(count, 0.0);
  std::vector<std::int64_t> n(count, 0);
  // In raster order on one thread: sums of real numbers are then the same every time.
  std::vector<double> row(static_cast<std::size_t>(components.shape.width));
  for (int y = 0; y < components.shape.height; ++y) {
    context.check();
    band.read_row(y, row);
    for (const Components::Run& run : components.runs_of_rows(y, y + 1)) {
      const auto k = static_cast<std::size_t>(run.label - 1);
      for (auto x = static_cast<std::size_t>(run.x0); x < static_cast<std::size_t>(run.x1); ++x) {
        if (!std::isfinite(row[x])) continue;
        sum[k] += row[x];
        ++n[k];
      }
    }
  }
  Measures result;
  for (std::size_t k = 0; k < count; ++k) {
    result.push_back(n[k] > 0 ? sum[k] / double(n[k]) / band.white.counts : undefined);
  }
  return result;
}

class KeepRegions final : public MaskOperation {
  void check(const Value& params) const override {
    check_limits("keep_regions", params, "min", "max");
    refuse_unless_chosen(info(), params, {"unit"}, "by", {"area", "distance_to_point"});
    refuse_unless_chosen(info(), params, {"point"}, "by", {"distance_to_point"});
    refuse_unless_chosen(info(), params, {"band"}, "by", {"band_mean"});
    if (params.at("n") == 0) {
      refuse_unused(info().key, info().parameters, params, {"order"},
                    "parameter \"n\" is 0, so all regions that fit are kept");
    }
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const Components components = find_parts(get_display_name(), *current, params, context());
    const Measures measures = measured(source, components, params);
    const std::vector<char> is_kept = chosen(measures, params);
    if (wants_overlay) viz_overlay = kept_and_rejected(components, is_kept, context());
    Mask mask(only_kept(components, is_kept, context()));
    const auto kept = std::ranges::count(is_kept, char{1});
    if (kept == 0) note = "no_region: none of the mask's " + std::to_string(is_kept.size()) + " regions is kept";
    if (!params.at("make_regions").get<bool>()) return mask;
    return mask.with_labels(region_labels(components, is_kept));
  }

  Measures measured(const ImageSource& source, const Components& components, const Value& params) {
    const auto& by = params.at("by").get_ref<const std::string&>();
    const auto& unit = params.at("unit").get_ref<const std::string&>();
    if (by == "area") {
      const double side = pixel_length(get_display_name(), unit, source);
      return areas(components, side * side);
    }
    if (is_shape(by)) {
      return measure_components(components, context(), undefined,
                                [&](const cv::Mat& picture, const Components::Component& component) {
                                  return shape_measure(by, picture, double(component.area));
                                });
    }
    if (by == "distance_to_point") {
      const Value& point = params.at("point");
      return distances_to(components, point.at(0).get<double>(), point.at(1).get<double>(),
                          pixel_length(get_display_name(), unit, source));
    }
    const Band band = find_band(source, params.at("band").get<std::string>());
    chosen_bands["band"] = band.name;
    return band_means(components, band, context());
  }

  static bool is_shape(std::string_view by) { return by == "solidity" || by == "circularity" || by == "eccentricity"; }

  [[nodiscard]] double shape_measure(std::string_view by, const cv::Mat& picture, double area) const {
    if (by == "solidity") return area / corner_hull(picture, context()).area();
    if (by == "eccentricity") return fit_ellipse(picture, context()).eccentricity;
    const double perimeter = crofton_perimeter(picture, context());
    return 4 * CV_PI * area / (perimeter * perimeter);
  }

  static std::vector<char> chosen(const Measures& measures, const Value& params) {
    std::vector<std::size_t> candidates;
    for (std::size_t k = 0; k < measures.size(); ++k) {
      if (std::isnan(measures[k])) continue;
      if (!params.at("min").is_null() && !reaches(measures[k], params.at("min").get<double>())) continue;
      if (!params.at("max").is_null() && !reaches(params.at("max").get<double>(), measures[k])) continue;
      candidates.push_back(k);
    }
    const auto n = params.at("n").get<std::size_t>();
    if (n > 0 && n < candidates.size()) {
      const double sign = params.at("order").get_ref<const std::string&>() == "largest" ? 1.0 : -1.0;
      std::ranges::stable_sort(candidates, [&](std::size_t a, std::size_t b) {
        return sign * measures[a] > sign * measures[b];  // of equal ones the smaller label stays first
      });
      candidates.resize(n);
    }
    std::vector<char> is_chosen(measures.size(), 0);
    for (const std::size_t k : candidates) is_chosen[k] = 1;
    return is_chosen;
  }

  std::shared_ptr<const RegionLabels> region_labels(const Components& components,
                                                    const std::vector<char>& is_kept) const {
    auto regions = std::make_shared<RegionLabels>();
    std::vector<std::int32_t> region_of_label{0};
    for (const char kept : is_kept) {
      if (kept != 0) regions->names.push_back("ROI_" + std::to_string(regions->names.size() + 1));
      region_of_label.push_back(kept != 0 ? static_cast<std::int32_t>(regions->names.size()) : 0);
    }
    const Shape shape = components.shape;
    regions->image.create(shape.height, shape.width, CV_32SC1);
    for_each_stripe(shape.height, shape.width, context(), [&](int y0, int y1) {
      regions->image.rowRange(y0, y1).setTo(0);
      for (const Components::Run& run : components.runs_of_rows(y0, y1)) {
        std::int32_t* row = regions->image.ptr<std::int32_t>(run.y);
        std::fill(row + run.x0, row + run.x1, region_of_label[static_cast<std::size_t>(run.label)]);
      }
    });
    return regions;
  }
};

void check_source(const ImageSource& source, const Value& params) {
  const auto& by = params.at("by").get_ref<const std::string&>();
  if (by == "band_mean") static_cast<void>(find_band(source, params.at("band").get<std::string>()));
  if (by != "area" && by != "distance_to_point") return;
  static_cast<void>(pixel_length(keep_regions_info().display_name, params.at("unit").get<std::string>(), source));
}

}  // namespace

const MaskOperationInfo& keep_regions_info() {
  static const MaskOperationInfo info{
      .key = "keep_regions",
      .display_name = "Keep regions",
      .category = "Shape of the mask",
      .summary = "Keeps the connected regions of the mask by a measure of each.",
      .description =
          "The mask is split into 8-connected regions, numbered in raster order of their first pixel, or with of = "
          "regions into those that an earlier step made, such as split_touching, in their order; pixels of no region "
          "are then removed. A region is kept when min <= measure <= max, where a limit without a value is none; with "
          "n above 0, of those only the n regions with the largest (or smallest) measure, of equal ones the smaller "
          "number first. Measures: area, in pixels or mm2; solidity, area / area of the convex hull of the pixels' "
          "corners; circularity, 4 pi area / perimeter^2 with Crofton's perimeter in 4 directions, not clamped; "
          "eccentricity, sqrt(1 - l2 / l1) with the eigenvalues l1 >= l2 of the covariance of the pixels' centres; "
          "distance_to_point, from the centroid to the point, in pixels or mm; band_mean, the mean of the band in "
          "fractions of white, without pixels that are not a number. A region whose measure is undefined is not kept. "
          "With make_regions the kept regions are measured on their own as ROI_1, ROI_2, ... in the order of their "
          "numbers; what a later step adds around them counts for the whole mask but for no region. The picture of the "
          "step shows the rims of the kept regions green and of the others red. No region left gives an empty mask "
          "with the note no_region.",
      .source =
          "A. Rosenfeld, J. L. Pfaltz, Sequential Operations in Digital Picture Processing, J. ACM 13(4), 1966, "
          "471-494; measures as in the operations area and shape_factors (ISO 9276-6)",
      .parameters = {{.name = "by",
                      .type = ParameterType::choice,
                      .default_value = "area",
                      .help = "The measure that decides.",
                      .choices = {"area", "solidity", "circularity", "eccentricity", "distance_to_point", "band_mean"}},
                     {.name = "min",
                      .type = ParameterType::real,
                      .default_value = nullptr,
                      .help = "The lowest measure that is kept; without a value there is no such limit."},
                     {.name = "max",
                      .type = ParameterType::real,
                      .default_value = nullptr,
                      .help = "The highest measure that is kept; without a value there is no such limit."},
                     {.name = "n",
                      .type = ParameterType::integer,
                      .default_value = 0,
                      .min = 0.0,
                      .max = 1000000.0,
                      .unit = "regions",
                      .help = "How many regions are kept at most; 0 keeps all that fit."},
                     {.name = "order",
                      .type = ParameterType::choice,
                      .default_value = "largest",
                      .help = "Whether the n regions with the largest or the smallest measure are kept.",
                      .choices = {"largest", "smallest"}},
                     {.name = "unit",
                      .type = ParameterType::choice,
                      .default_value = "px",
                      .help = "Unit of area and distance: pixels, or mm2 and mm by the capture's scale.",
                      .choices = {"px", "mm"}},
                     {.name = "point",
                      .type = ParameterType::point,
                      .default_value = Value::array({0.5, 0.5}),
                      .unit = "fraction of the image",
                      .help = "The point for the measure distance_to_point.",
                      .interaction = Interaction{"point"}},
                     {.name = "band",
                      .type = ParameterType::band,
                      .default_value = "",
                      .help =
                          "The band for the measure band_mean; empty means the grey of the first colour image, else "
                          "the first image."},
                     parts_parameter(),
                     {.name = "make_regions",
                      .type = ParameterType::boolean,
                      .default_value = false,
                      .help = "Makes each kept region one that is measured on its own."}},
      .needs_mask = true,
      .makes_regions = [](const Value& params) { return params.at("make_regions").get<bool>(); },
      .check_capture = check_source,
      .make = [] { return std::make_unique<KeepRegions>(); }};
  return info;
}

}  // namespace orvexa::model
