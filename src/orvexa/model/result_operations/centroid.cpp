#include <cmath>
#include <span>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/measures/region_pixels.h"
#include "orvexa/model/measures/shape_measures.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/region_shapes.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

struct Place {
  double x = 0;
  double y = 0;
};

/// Sums over pixels with their values as weights.
struct WeightedSums {
  std::int64_t n = 0;
  std::int64_t n_invalid = 0;
  double weight = 0;
  double x = 0;
  double y = 0;

  void add(const WeightedSums& other) {
    n += other.n;
    n_invalid += other.n_invalid;
    weight += other.weight;
    x += other.x;
    y += other.y;
  }
  void add_pixel(int column, int row, double value) {
    if (!std::isfinite(value) || value < 0) {
      ++n_invalid;
      return;
    }
    ++n;
    weight += value;
    x += value * column;
    y += value * row;
  }
};

/// Of the whole mask (first element) and of each region.
std::vector<WeightedSums> weighted_sums(const RegionSet& regions, const Band& band, const RunContext& context) {
  const RegionPixels pixels(regions, context);
  const auto groups = pixels.reduce<WeightedSums, WeightedSums>(
      context, [&](std::span<const RegionPixels::Run> runs, std::span<WeightedSums> partial) {
        std::vector<double> values(static_cast<std::size_t>(regions.shape().width));
        int read_row = -1;
        for (const RegionPixels::Run& run : runs) {
          if (run.y != read_row) band.read_row(run.y, values);
          read_row = run.y;
          WeightedSums own;
          for (int x = run.x0; x < run.x1; ++x) own.add_pixel(x, run.y, values[static_cast<std::size_t>(x)]);
          partial[run.group].add(own);
        }
      });
  WeightedSums whole;
  for (const WeightedSums& group : groups) whole.add(group);
  std::vector<WeightedSums> sums{whole};
  for (std::size_t k = 0; k < regions.regions().size(); ++k) sums.push_back(groups[k]);
  return sums;
}

/// Names and units of a position and its fractions of the image.
void add_place_units(OperationResult& result, const std::string& prefix, const std::optional<double>& scale) {
  add_length_units(result, prefix + "centroid_x", scale);
  add_length_units(result, prefix + "centroid_y", scale);
  result.units[prefix + "centroid_x_norm"] = "fraction of the image's width";
  result.units[prefix + "centroid_y_norm"] = "fraction of the image's height";
}

void set_place(ResultRow& row, const std::string& prefix, const Place& place, Shape shape,
               const std::optional<double>& scale) {
  set_length(row, prefix + "centroid_x", place.x, scale);
  set_length(row, prefix + "centroid_y", place.y, scale);
  row.set(prefix + "centroid_x_norm", (place.x + 0.5) / shape.width);
  row.set(prefix + "centroid_y_norm", (place.y + 0.5) / shape.height);
}

/// The centroid with the values of a band as weights.
struct WeightedCentroid {
  std::string prefix;  ///< of the names: "MSP.NIR."
  std::vector<WeightedSums> sums;

  void add_units(OperationResult& result, const std::optional<double>& scale) const {
    add_place_units(result, prefix, scale);
    add_length_units(result, prefix + "centroid_displacement", scale);
    result.units[prefix + "centroid_n"] = "px";
    result.units[prefix + "centroid_n_invalid"] = "px";
  }

  void write(ResultRow& row, int index, const Place& centroid, Shape shape, const std::optional<double>& scale) const {
    const WeightedSums& own = measured_of(sums, index);
    row.set(prefix + "centroid_n", Value(own.n));
    row.set(prefix + "centroid_n_invalid", Value(own.n_invalid));
    if (own.weight > 0) {
      const Place place{own.x / own.weight, own.y / own.weight};
      set_place(row, prefix, place, shape, scale);
      set_length(row, prefix + "centroid_displacement", std::hypot(place.x - centroid.x, place.y - centroid.y), scale);
      return;
    }
    constexpr std::string_view reason = "No pixel has a value above 0.";
    for (const char* name : {"centroid_x", "centroid_y", "centroid_displacement"}) {
      leave_out_length(row, prefix + name, reason, scale);
    }
    for (const char* name : {"centroid_x_norm", "centroid_y_norm"}) row.leave_out(prefix + name, reason);
  }
};

class Centroid final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult Centroid::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const std::optional<double> scale = capture.millimetres_per_pixel();
  const Shape shape = regions.shape();
  OperationResult result;
  add_place_units(result, "", scale);
  std::optional<WeightedCentroid> weighted;
  if (!params.at("band").is_null()) {
    const Band band = find_band(capture, params.at("band").get<std::string>());
    result.chosen_bands["band"] = band.name;
    weighted = WeightedCentroid{band.name + ".", weighted_sums(regions, band, context())};
    weighted->add_units(result, scale);
  }
  const std::vector<EllipseFit> fits =
      measure_rows(regions, context(), [&](const PixelRows& rows) { return fit_ellipse(rows, context()); });
  write_filled_rows(result, regions, [&](const Region& region, int index, ResultRow& row) {
    const EllipseFit& fit = measured_of(fits, index);
    const Place place{region.box.x0 + fit.centroid_x, region.box.y0 + fit.centroid_y};
    set_place(row, "", place, shape, scale);
    if (weighted) weighted->write(row, index, place, shape, scale);
  });
  return result;
}

}  // namespace

const ResultOperationInfo& centroid_info() {
  static const ResultOperationInfo info{
      .key = "centroid",
      .display_name = "Centroid",
      .category = "Shape",
      .summary = "Gives the centre of mass of the mask and of each region, on request also weighted by a band.",
      .description =
          "centroid_x and centroid_y = mean column and row of the pixels. Positions count columns and rows of pixels: "
          "the centre of the first pixel of the image is (0, 0). centroid_x_norm = (centroid_x + 0.5) / width of the "
          "image, centroid_y_norm = (centroid_y + 0.5) / height of the image, as points are picked: the middle of the "
          "image is 0.5, 0.5. With a band, as <band>.centroid_x and so on: the same with the pixels' values as weights "
          "(reflectance where the capture has a reference, else counts), <band>.centroid_displacement = distance "
          "between the two centroids, <band>.centroid_n and <band>.centroid_n_invalid = pixels that count and pixels "
          "left out because their value is below 0, infinite or not a number. Where no pixel has a value above 0, the "
          "weighted centroid is left out. Positions and the displacement appear in millimetres as <name>_mm where the "
          "capture declares its scale. A mask or region without pixels has none of them.",
      .source =
          "M.-K. Hu, Visual pattern recognition by moment invariants, IRE Trans. Information Theory 8(2), 1962, "
          "179-187, doi:10.1109/TIT.1962.1057692",
      .parameters = {{.name = "band",
                      .type = ParameterType::band,
                      .default_value = nullptr,
                      .help =
                          "The band whose values are weights of a second centroid; without a value there is none."}},
      .check_capture =
          [](const ImageSource& source, const Value& params) {
            if (!params.at("band").is_null())
              static_cast<void>(find_band(source, params.at("band").get<std::string>()));
          },
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<Centroid>(); }}};
  return info;
}

}  // namespace orvexa::model
