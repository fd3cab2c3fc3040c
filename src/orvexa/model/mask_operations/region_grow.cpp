#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <stdexcept>

#include "orvexa/model/mask_operations/band_parameter.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/value_range.h"
#include "orvexa/model/measures/bands.h"
#include "orvexa/model/measures/components.h"
#include "orvexa/model/measures/smoothing.h"
#include "orvexa/model/pictures/markers.h"

namespace orvexa::model {

namespace {

constexpr const char* key = "region_grow";
constexpr std::size_t most_points = 1000;

using Pixels = std::vector<PixelPoint>;

/// The values of a plane of any type, in counts.
class PlaneValues {
 public:
  explicit PlaneValues(const Image& plane) : _plane(plane) {}
  [[nodiscard]] double at(const PixelPoint& pixel) const {
    const cv::Mat& mat = _plane.read_only();
    switch (_plane.type()) {
      case PixelType::u8:
        return mat.ptr<std::uint8_t>(pixel.y)[pixel.x];
      case PixelType::u16:
        return mat.ptr<std::uint16_t>(pixel.y)[pixel.x];
      case PixelType::f32:
        break;
    }
    return double{mat.ptr<float>(pixel.y)[pixel.x]};
  }

 private:
  const Image& _plane;
};

/// 255 where pixels hang together with a seed through values within the tolerance of the seed's own.
cv::Mat grown_from_values(const Band& band, const cv::Mat& allowed, const Pixels& seeds, double tolerance,
                          const RunContext& context) {
  const PlaneValues values(band.image);
  std::map<double, Pixels> seeds_of_value;
  for (const PixelPoint& seed : seeds) seeds_of_value[values.at(seed)].push_back(seed);
  cv::Mat grown = cv::Mat::zeros(allowed.rows, allowed.cols, CV_8UC1);
  for (const auto& [value, own] : seeds_of_value) {
    cv::Mat near =
        pixels_within(band.image.read_only(), {.low = value - tolerance, .high = value + tolerance}, context);
    cv::bitwise_and(near, allowed, near);
    const Components parts = label_components(near, 8, context);
    std::vector<char> is_wanted(parts.components.size() + 1, 0);
    for (const PixelPoint& seed : own) {
      for (const Components::Run& run : parts.runs_of_rows(seed.y, seed.y + 1)) {
        if (run.x0 <= seed.x && seed.x < run.x1) is_wanted[static_cast<std::size_t>(run.label)] = 1;
      }
    }
    for_each_piece(parts.runs.size(), context, [&](std::size_t begin, std::size_t end) {
      for (std::size_t i = begin; i < end; ++i) {
        const Components::Run& run = parts.runs[i];
        if (is_wanted[static_cast<std::size_t>(run.label)] == 0) continue;
        std::uint8_t* row = grown.ptr<std::uint8_t>(run.y);
        std::fill(row + run.x0, row + run.x1, std::uint8_t{255});
      }
    });
  }
  return grown;
}

/// Pixels that wait, the most promising first and of equally promising ones the one that came first.
class WaitingPixels {
 public:
  void push(const PixelPoint& pixel, std::size_t step) {
    _steps[step].pixels.push_back(pixel);
    _lowest = std::min(_lowest, step);
  }
  [[nodiscard]] bool pop(PixelPoint& pixel) {
    for (; _lowest < _steps.size(); ++_lowest) {
      Step& step = _steps[_lowest];
      if (step.next < step.pixels.size()) {
        pixel = step.pixels[step.next++];
        return true;
      }
      step.pixels.clear();
      step.next = 0;
    }
    return false;
  }

  static constexpr std::size_t step_count = 256;

 private:
  struct Step {
    Pixels pixels;
    std::size_t next = 0;
  };
  std::array<Step, step_count> _steps;
  std::size_t _lowest = step_count;
};

/// Regions that grow side by side, each by its own mean.
class GrowingRegions {
 public:
  GrowingRegions(const Band& band, const cv::Mat& allowed, double tolerance)
      : _values(band.image),
        _allowed(allowed),
        _tolerance(tolerance),
        _regions(cv::Mat::zeros(allowed.rows, allowed.cols, CV_16UC1)),
        _is_waiting(cv::Mat::zeros(allowed.rows, allowed.cols, CV_8UC1)) {}

  [[nodiscard]] cv::Mat grown(const Pixels& seeds, const RunContext& context) {
    std::vector<PixelPoint> starts;
    for (const PixelPoint& seed : seeds) {
      if (region_at(seed) != 0) continue;  // picked twice
      _means.push_back({});
      take(seed, static_cast<std::uint16_t>(_means.size()));
      starts.push_back(seed);
    }
    for (const PixelPoint& start : starts) meet_neighbours(start);
    PixelPoint pixel;
    for (std::size_t looked_at = 0; _waiting.pop(pixel); ++looked_at) {
      if (looked_at % pixels_between_checks == 0) context.check();
      _is_waiting.ptr<std::uint8_t>(pixel.y)[pixel.x] = 0;
      const std::uint16_t region = nearest_region(pixel);
      if (region == 0) continue;
      take(pixel, region);
      meet_neighbours(pixel);
    }
    cv::Mat grown;
    cv::compare(_regions, 0, grown, cv::CMP_GT);
    return grown;
  }

 private:
  static constexpr std::size_t pixels_between_checks = std::size_t{1} << 18;
  struct Mean {
    double sum = 0;
    std::int64_t n = 0;
    [[nodiscard]] double value() const { return sum / static_cast<double>(n); }
  };

  [[nodiscard]] std::uint16_t region_at(const PixelPoint& pixel) const {
    return _regions.ptr<std::uint16_t>(pixel.y)[pixel.x];
  }
  [[nodiscard]] double distance(double value, std::uint16_t region) const {
    return std::abs(value - _means[region - std::size_t{1}].value());
  }

  void take(const PixelPoint& pixel, std::uint16_t region) {
    _regions.ptr<std::uint16_t>(pixel.y)[pixel.x] = region;
    Mean& mean = _means[region - std::size_t{1}];
    mean.sum += _values.at(pixel);
    ++mean.n;
  }

  /// Calls `use` for the pixels around one, row by row.
  template <typename Use>
  void for_each_neighbour(const PixelPoint& pixel, const Use& use) const {
    for (int y = std::max(0, pixel.y - 1); y <= std::min(_allowed.rows - 1, pixel.y + 1); ++y) {
      for (int x = std::max(0, pixel.x - 1); x <= std::min(_allowed.cols - 1, pixel.x + 1); ++x) {
        if (x != pixel.x || y != pixel.y) use(PixelPoint{x, y});
      }
    }
  }

  /// The region beside a pixel whose mean is nearest to its value, if it is near enough; of equally near ones the
  /// first.
  [[nodiscard]] std::uint16_t nearest_region(const PixelPoint& pixel) const {
    const double value = _values.at(pixel);
    std::uint16_t nearest = 0;
    double least = std::numeric_limits<double>::infinity();
    for_each_neighbour(pixel, [&](const PixelPoint& neighbour) {
      const std::uint16_t region = region_at(neighbour);
      if (region == 0) return;
      const double difference = distance(value, region);
      if (difference < least || (difference == least && region < nearest)) {
        least = difference;
        nearest = region;
      }
    });
    return least <= _tolerance ? nearest : std::uint16_t{0};
  }

  void meet_neighbours(const PixelPoint& pixel) {
    const std::uint16_t region = region_at(pixel);
    for_each_neighbour(pixel, [&](const PixelPoint& neighbour) {
      std::uint8_t& is_waiting = _is_waiting.ptr<std::uint8_t>(neighbour.y)[neighbour.x];
      if (is_waiting != 0 || region_at(neighbour) != 0) return;
      if (_allowed.ptr<std::uint8_t>(neighbour.y)[neighbour.x] == 0) return;
      const double difference = distance(_values.at(neighbour), region);
      if (!(difference <= _tolerance)) return;  // nor what is not a number
      const double share = _tolerance > 0 ? difference / _tolerance : 0;
      _waiting.push(neighbour, static_cast<std::size_t>(share * (WaitingPixels::step_count - 1)));
      is_waiting = 1;
    });
  }

  PlaneValues _values;
  cv::Mat _allowed;
  double _tolerance;
  cv::Mat _regions;     ///< CV_16UC1: the region of each pixel, from 1
  cv::Mat _is_waiting;  ///< CV_8UC1
  WaitingPixels _waiting;
  std::vector<Mean> _means;
};

class RegionGrow final : public MaskOperation {
  void check(const Value& params) const override {
    check_smoothing(key, params);
    const std::size_t count = params.at("points").size();
    if (count >= 1 && count <= most_points) return;
    throw std::invalid_argument(
        fmt::format("{}: parameter \"points\" has {} points, but it must have from 1 to {}.", key, count, most_points));
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const Band band = find_band(source, params.at("band").get<std::string>());
    chosen_bands["band"] = band.name;
    const Band plane = smoothed(band, params, context());
    const auto [height, width] = plane.shape();
    Pixels points;
    for (const Value& point : params.at("points")) {
      points.push_back(pixel_of({point.at(0).get<double>(), point.at(1).get<double>()}, height, width));
    }
    if (wants_overlay) draw_overlay(plane.shape(), points);
    const cv::Mat allowed = current != nullptr ? current->read_only() : Mask::full(plane.shape()).read_only();
    const Pixels seeds = usable_seeds(plane, allowed, points);
    if (seeds.empty()) return Mask::empty(plane.shape());
    // In a float image too: there the difference of two values is rounded.
    const double tolerance = params.at("tolerance").get<double>() * plane.white.counts + rounding_in_counts(plane);
    if (params.at("mode") == "running_mean")
      return Mask(GrowingRegions(plane, allowed, tolerance).grown(seeds, context()));
    return Mask(grown_from_values(plane, allowed, seeds, tolerance, context()));
  }

  /// Those inside the mask with a value; the note says what became of the others.
  [[nodiscard]] Pixels usable_seeds(const Band& plane, const cv::Mat& allowed, const Pixels& points) {
    const PlaneValues values(plane.image);
    Pixels seeds;
    for (const PixelPoint& point : points) {
      if (allowed.at<std::uint8_t>(point.y, point.x) != 0 && std::isfinite(values.at(point))) seeds.push_back(point);
    }
    if (seeds.size() == points.size()) {
      note = fmt::format("grown from {} in {}", seeds.size() == 1 ? "1 point" : fmt::format("{} points", seeds.size()),
                         plane.name);
    } else {
      note = fmt::format("unusable_seed: {} of {} points lie outside the incoming mask or have no value in {}{}",
                         points.size() - seeds.size(), points.size(), plane.name,
                         seeds.empty() ? ", so the mask is empty" : "");
    }
    return seeds;
  }

  void draw_overlay(const Shape& shape, const Pixels& points) {
    cv::Mat overlay = cv::Mat::zeros(shape.height, shape.width, CV_8UC3);
    draw_markers(overlay, points);
    viz_overlay = Image(std::move(overlay));
  }
};

}  // namespace

const MaskOperationInfo& region_grow_info() {
  static const MaskOperationInfo info{
      .key = key,
      .display_name = "Grow from points",
      .category = "Thresholds",
      .summary = "Keeps what hangs together with picked points and has values like theirs.",
      .description =
          "From each point a region grows over the pixels of the incoming mask, 8-connected; the result has the pixels "
          "of all regions. With seed_value a region has every pixel that is connected with its point through pixels "
          "whose values differ from the point's own by at most the tolerance, limit included, each region on its own. "
          "With running_mean the regions grow side by side and the value is the mean of the region's pixels so far, "
          "beginning with the point: when a pixel joins, its neighbours (rows from above, columns from the left) that "
          "are in no region and differ from the region's mean by at most the tolerance begin to wait; of those that "
          "wait the one comes next whose difference was least when it began to wait, in 256 steps of the tolerance, of "
          "equal ones the first; it joins the region beside it whose mean is nearest to its value now, of equally near "
          "ones that of the earlier point, when the difference is at most the tolerance, and else waits again when "
          "another neighbour joins. The tolerance is a fraction of white; a difference within a millionth of white of "
          "it equals it. Points outside the incoming mask or on a pixel that is not a number do not grow and are "
          "counted in the note unusable_seed. The overlay marks the points. " +
          std::string(smoothing_text()),
      .source =
          "R. Adams, L. Bischof, Seeded region growing, IEEE Transactions on Pattern Analysis and Machine Intelligence "
          "16(6), 1994, 641-647, doi:10.1109/34.295913",
      .parameters =
          with_smoothing({band_parameter(),
                          {.name = "points",
                           .type = ParameterType::points,
                           .default_value = Value::array({Value::array({0.5, 0.5})}),
                           .min = 0.0,
                           .max = 1.0,
                           .unit = "fraction of the image",
                           .help = "The points to grow from, from 1 to 1000 of them.",
                           .interaction = Interaction{"points"}},
                          {.name = "tolerance",
                           .type = ParameterType::real,
                           .default_value = 0.1,
                           .min = 0.0,
                           .max = 1.0,
                           .unit = "fraction of white",
                           .help = "By how much a value may differ from that of the point or from the mean."},
                          {.name = "mode",
                           .type = ParameterType::choice,
                           .default_value = "seed_value",
                           .help = "Whether values are compared with the point's own or with the region's mean so far.",
                           .choices = {"seed_value", "running_mean"}}}),
      .check_capture = check_band,
      .make = [] { return std::make_unique<RegionGrow>(); }};
  return info;
}

}  // namespace orvexa::model
