#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "orvexa/model/mask_operations/dependent_parameters.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/measures/color_planes.h"
#include "orvexa/model/measures/reference_colors.h"
#include "orvexa/model/pictures/markers.h"

namespace orvexa::model {

namespace {

constexpr double rounding = 1e-9;  ///< so that a colour exactly on the limit is not decided by its last bit
constexpr const char* key = "threshold_color_distance";

/// Whether a colour is near enough to one of the references.
class Neighbourhood {
 public:
  Neighbourhood(std::vector<Lab> references, double max_delta_e, bool is_2000)
      : _references(std::move(references)), _limit(max_delta_e + rounding), _is_2000(is_2000) {}

  [[nodiscard]] bool holds(const Lab& lab) const {
    return std::ranges::any_of(_references, [&](const Lab& reference) {
      if (!_is_2000) return delta_e_76(lab, reference) <= _limit;
      return least_delta_e_2000(lab.l, reference.l) <= _limit && delta_e_2000(lab, reference) <= _limit;
    });
  }

 private:
  std::vector<Lab> _references;
  double _limit;
  bool _is_2000;
};

class ThresholdColorDistance final : public MaskOperation {
  void check(const Value& params) const override {
    refuse_unless_chosen(info(), params, {"colors"}, "reference", {"lab"});
    if (params.at("reference") == "lab") {
      check_palette(key, "colors", params.at("colors"));
    } else if (params.at("points").empty()) {
      throw std::invalid_argument(fmt::format(
          "{}: parameter \"points\" is empty, but at least one point has to be picked; for colours given by "
          "hand set \"reference\" to \"lab\".",
          key));
    }
    refuse_unless_chosen(info(), params, {"points", "radius"}, "reference", {"points"});
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const ColorPlanes planes = find_color_planes(source, key, params.at("image").get_ref<const std::string&>());
    Value& chosen = chosen_bands["bands"] = Value::array();
    for (const Band& band : planes.rgb) chosen.push_back(band.name);
    const ColorSource colors(planes.rgb);
    const auto [height, width] = source.get_shape();
    const std::vector<Lab> references = reference_colors(colors, params);
    const double limit = params.at("max_delta_e").get<double>();
    const auto& metric = params.at("metric").get_ref<const std::string&>();
    note = fmt::format(
        "difference {} (CIE {}) at most from {} of {}", limit, metric,
        references.size() == 1 ? lab_text(references.front()) : fmt::format("one of {} colours", references.size()),
        planes.name);

    const Neighbourhood near(references, limit, metric == "2000");
    cv::Mat pixels(height, width, CV_8UC1);
    for_each_stripe(height, width, context(), [&, columns = static_cast<std::size_t>(width)](int y0, int y1) {
      ColorRow row(colors);
      for (int y = y0; y < y1; ++y) {
        row.read(y);
        const std::uint8_t* counts = current != nullptr ? current->row(y).data() : nullptr;
        std::uint8_t* out = pixels.ptr<std::uint8_t>(y);
        for (std::size_t x = 0; x < columns; ++x) {
          const bool is_kept = (counts == nullptr || counts[x] != 0) && row.is_valid(x) && near.holds(row.lab(x));
          out[x] = is_kept ? 255 : 0;
        }
      }
    });
    return Mask(std::move(pixels));
  }

  /// Those given by hand, or those at the points, which are marked on the overlay.
  std::vector<Lab> reference_colors(const ColorSource& colors, const Value& params) {
    std::vector<Lab> references;
    if (params.at("reference") == "lab") {
      for (const NamedColor& color : palette_from(params.at("colors"))) references.push_back(color.lab);
      return references;
    }
    const auto [height, width] = colors.shape();
    std::vector<PixelPoint> picked;
    for (const Value& point : params.at("points")) {
      context().check();
      references.push_back(picked_color(colors, point, params.at("radius").get<int>()));
      picked.push_back(pixel_of({point.at(0).get<double>(), point.at(1).get<double>()}, height, width));
    }
    if (!wants_overlay) return references;
    cv::Mat overlay = cv::Mat::zeros(height, width, CV_8UC3);
    draw_markers(overlay, picked);
    viz_overlay = Image(std::move(overlay));
    return references;
  }
};

}  // namespace

const MaskOperationInfo& threshold_color_distance_info() {
  static const MaskOperationInfo info{
      .key = key,
      .display_name = "Threshold: colour distance",
      .category = "Thresholds",
      .summary = "Keeps the pixels whose colour is near one that was picked on the picture or given by hand.",
      .description =
          "Colours are compared in CIELAB (sRGB encoding, D65, 2 degree observer; R, G, B as fractions of white, cut "
          "to 0 to 1). A pixel is kept when its difference from one of the reference colours is at most max_delta_e, "
          "limit included. The difference is CIEDE2000 with kL = kC = kH = 1, or that of 1976, sqrt(dL^2 + da^2 + "
          "db^2). Reference colours are those at the points, each the mean in CIELAB of the valid pixels whose centres "
          "lie not farther than radius from the picked pixel's, whether the incoming mask holds them or not; or the "
          "colours given by hand. Pixels that are not a number are never kept.",
      .source =
          "ISO/CIE 11664-4 (CIELAB); ISO/CIE 11664-6 (CIEDE2000); IEC 61966-2-1 (sRGB); G. Sharma, W. Wu, E. N. Dalal, "
          "The CIEDE2000 color-difference formula, Color Research and Application 30(1), 2005, 21-30, "
          "doi:10.1002/col.20070",
      .parameters = {color_image_parameter(),
                     {.name = "reference",
                      .type = ParameterType::choice,
                      .default_value = "points",
                      .help = "Whether the reference colours are those at the points or those given by hand as lab.",
                      .choices = {"points", "lab"}},
                     {.name = "points",
                      .type = ParameterType::points,
                      .default_value = Value::array({Value::array({0.5, 0.5})}),
                      .min = 0.0,
                      .max = 1.0,
                      .unit = "fraction of the image",
                      .help = "The points whose colours are the references.",
                      .interaction = Interaction{"points"}},
                     patch_radius_parameter(),
                     {.name = "colors",
                      .type = ParameterType::palette,
                      .default_value = Value::array(),
                      .min = -200.0,
                      .max = 200.0,
                      .help = "Reference colours in CIELAB given by hand, for the reference lab."},
                     {.name = "max_delta_e",
                      .type = ParameterType::real,
                      .default_value = 15.0,
                      .min = 0.0,
                      .max = 100.0,
                      .help = "The greatest difference from a reference colour that is kept."},
                     {.name = "metric",
                      .type = ParameterType::choice,
                      .default_value = "2000",
                      .help = "The colour difference: 2000 follows the eye, 76 is the plain distance in CIELAB.",
                      .choices = {"76", "2000"}}},
      .check_capture = check_color_capture(key),
      .make = [] { return std::make_unique<ThresholdColorDistance>(); }};
  return info;
}

}  // namespace orvexa::model
