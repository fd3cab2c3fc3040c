#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>

#include "orvexa/common/text.h"
#include "orvexa/model/mask_operations/dependent_parameters.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/measures/color_planes.h"
#include "orvexa/model/measures/color_rows.h"
#include "orvexa/model/measures/k_means.h"
#include "orvexa/model/pictures/markers.h"

namespace orvexa::model {

namespace {

constexpr const char* key = "cluster_kmeans";

/// What the pixels are told apart by: values of bands as fractions of white, or a colour in CIELAB.
struct FeatureSpace {
  std::vector<Band> bands;
  std::optional<ColorSource> colors;  ///< instead of the bands' values: their colours

  [[nodiscard]] std::size_t dimensions() const { return colors ? 3 : bands.size(); }
  /// L, or the mean of the bands.
  [[nodiscard]] double brightness(std::span<const double> centre) const {
    if (colors) return centre.front();
    return std::accumulate(centre.begin(), centre.end(), 0.0) / static_cast<double>(centre.size());
  }
};

FeatureSpace feature_space(const ImageSource& source, const Value& params) {
  FeatureSpace space;
  if (params.at("space") == "lab") {
    space.bands = find_color_planes(source, key, params.at("image").get<std::string>()).rgb;
    space.colors.emplace(space.bands);
    return space;
  }
  if (params.at("bands").empty()) space.bands = all_bands(source);
  for (const Value& name : params.at("bands")) {
    Band band = find_band(source, name.get<std::string>());
    const auto is_same = [&](const Band& other) { return other.name == band.name; };
    if (std::ranges::none_of(space.bands, is_same)) space.bands.push_back(std::move(band));
  }
  if (space.bands.empty()) throw std::runtime_error("This capture has no images.");
  return space;
}

/// The features of one row at a time.
class FeatureRow {
 public:
  explicit FeatureRow(const FeatureSpace& space) : _space(space) {
    if (space.colors) {
      _color = std::make_unique<ColorRow>(*space.colors);
    } else {
      const auto width = static_cast<std::size_t>(space.bands.front().shape().width);
      _rows.assign(space.bands.size(), std::vector<double>(width));
    }
  }

  void read(int y) {
    if (_color) return _color->read(y);
    for (std::size_t k = 0; k < _rows.size(); ++k) _space.bands[k].read_normalised_row(y, _rows[k]);
  }
  [[nodiscard]] bool is_valid(std::size_t x) const {
    if (_color) return _color->is_valid(x);
    return std::ranges::all_of(_rows, [x](const std::vector<double>& row) { return std::isfinite(row[x]); });
  }
  void get(std::size_t x, std::span<double> point) const {
    if (_color) {
      const Lab lab = _color->lab(x);
      std::ranges::copy(std::array{lab.l, lab.a, lab.b}, point.begin());
      return;
    }
    for (std::size_t k = 0; k < _rows.size(); ++k) point[k] = _rows[k][x];
  }

 private:
  const FeatureSpace& _space;
  std::unique_ptr<ColorRow> _color;
  std::vector<std::vector<double>> _rows;
};

/// Ranks below `n`, ascending: all of them, or one drawn from each of `wanted` equal parts. Steps of one length would
/// fall in with a pattern in the picture.
std::vector<std::int64_t> sampled_ranks(std::int64_t n, std::int64_t wanted, std::uint64_t seed) {
  std::vector<std::int64_t> ranks(static_cast<std::size_t>(std::min(n, wanted)));
  if (n <= wanted) {
    std::iota(ranks.begin(), ranks.end(), std::int64_t{0});
    return ranks;
  }
  std::mt19937_64 random(seed);
  for (std::int64_t part = 0; part < wanted; ++part) {
    const std::int64_t begin = part * n / wanted;
    const std::int64_t end = (part + 1) * n / wanted;
    ranks[static_cast<std::size_t>(part)] =
        begin + static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(end - begin));
  }
  return ranks;
}

bool holds(const PointList& points, std::span<const double> point) {
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (std::ranges::equal(points.point(i), point)) return true;
  }
  return false;
}

/// The first `most` different ones among the points.
PointList first_different(const PointList& points, std::size_t most) {
  PointList different{.dimensions = points.dimensions, .numbers = {}};
  for (std::size_t i = 0; i < points.size() && different.size() < most; ++i) {
    const auto point = points.point(i);
    if (!holds(different, point)) different.numbers.insert(different.numbers.end(), point.begin(), point.end());
  }
  return different;
}

/// Calls `pixel(features, x, y)` for every valid pixel of rows y0 to y1 - 1 inside the mask.
template <typename Pixel>
void for_valid_pixels(const FeatureSpace& space, const Mask* mask, int y0, int y1, const Pixel& pixel) {
  FeatureRow row(space);
  const auto width = static_cast<std::size_t>(space.bands.front().shape().width);
  for (int y = y0; y < y1; ++y) {
    row.read(y);
    const std::uint8_t* counts = mask != nullptr ? mask->row(y).data() : nullptr;
    for (std::size_t x = 0; x < width; ++x) {
      if ((counts == nullptr || counts[x] != 0) && row.is_valid(x)) pixel(row, x, y);
    }
  }
}

class ClusterKmeans final : public MaskOperation {
  void check(const Value& params) const override {
    if (params.at("keep") == "points" && params.at("points").empty()) {
      throw std::invalid_argument(fmt::format(
          "{}: parameter \"points\" is empty, but at least one point has to be picked when \"keep\" is \"points\".",
          key));
    }
    refuse_unless_chosen(info(), params, {"bands"}, "space", {"bands"});
    refuse_unless_chosen(info(), params, {"image"}, "space", {"lab"});
    refuse_unless_chosen(info(), params, {"points"}, "keep", {"points"});
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const FeatureSpace space = feature_space(source, params);
    Value& chosen = chosen_bands["bands"] = Value::array();
    for (const Band& band : space.bands) chosen.push_back(band.name);
    const Shape shape = source.get_shape();

    const auto seed = static_cast<std::uint64_t>(params.at("seed").get<std::int64_t>());
    const auto k = params.at("k").get<std::size_t>();
    const auto wanted = params.at("fit_pixels").get<std::int64_t>();
    PointList points = fitted_points(space, current, {.wanted = wanted, .seed = seed});
    // What a small object looks like may be in no pixel that was drawn.
    const PointList known = first_different(points, k);
    if (known.size() < k && static_cast<std::int64_t>(points.size()) >= wanted) {
      const PointList others = fitted_points(space, current, {.wanted = wanted, .seed = seed, .leaves_out = &known});
      points.numbers.insert(points.numbers.end(), others.numbers.begin(), others.numbers.end());
    }
    Clusters clusters = k_means(points, {.k = k, .seed = seed, .starts = params.at("starts").get<int>()}, context());
    if (clusters.centres.size() < 2) {
      note = fmt::format("no_contrast: {}, so the mask is empty",
                         points.size() == 0 ? "there is no pixel to look at" : "all pixels have the same values");
      return Mask::empty(shape);
    }
    sort_by_brightness(clusters.centres, space);

    std::vector<std::int64_t> counts;
    const cv::Mat labels = assigned_labels(space, current, clusters.centres, counts);
    const std::vector<char> is_kept = kept_clusters(space, clusters.centres, counts, params);
    describe(clusters, counts, is_kept, static_cast<std::int64_t>(points.size()));
    if (wants_overlay) draw_overlay(labels, params);
    return kept_pixels(labels, is_kept);
  }

  struct Draw {
    std::int64_t wanted = 0;  ///< pixels at most
    std::uint64_t seed = 0;
    const PointList* leaves_out = nullptr;  ///< pixels with one of these features are not drawn
  };

  [[nodiscard]] PointList fitted_points(const FeatureSpace& space, const Mask* mask, const Draw& draw) const {
    const auto for_pixels = [&](int y0, int y1, const auto& pixel) {
      std::vector<double> point(space.dimensions());
      for_valid_pixels(space, mask, y0, y1, [&](const FeatureRow& row, std::size_t x, int) {
        if (draw.leaves_out != nullptr) {
          row.get(x, point);
          if (holds(*draw.leaves_out, point)) return;
        }
        pixel(row, x);
      });
    };
    const auto [height, width] = space.bands.front().shape();
    const int step = stripe_height(width);
    std::vector<std::int64_t> first(static_cast<std::size_t>(stripe_count(height, width)) + 1, 0);
    for_each_stripe(height, width, context(), [&](int y0, int y1) {
      std::int64_t n = 0;
      for_pixels(y0, y1, [&](const FeatureRow&, std::size_t) { ++n; });
      first[static_cast<std::size_t>(y0 / step) + 1] = n;
    });
    std::partial_sum(first.begin(), first.end(), first.begin());

    const std::vector<std::int64_t> ranks = sampled_ranks(first.back(), draw.wanted, draw.seed);
    PointList points{.dimensions = space.dimensions(),
                     .numbers = std::vector<double>(ranks.size() * space.dimensions())};
    for_each_stripe(height, width, context(), [&](int y0, int y1) {
      std::int64_t rank = first[static_cast<std::size_t>(y0 / step)];
      auto next = std::ranges::lower_bound(ranks, rank);
      for_pixels(y0, y1, [&](const FeatureRow& row, std::size_t x) {
        if (next != ranks.end() && *next == rank) {
          const auto place = static_cast<std::size_t>(next - ranks.begin());
          row.get(x, std::span(points.numbers).subspan(place * points.dimensions, points.dimensions));
          ++next;
        }
        ++rank;
      });
    });
    return points;
  }

  /// Darkest first; equally bright ones in the order of their numbers.
  static void sort_by_brightness(PointList& centres, const FeatureSpace& space) {
    std::vector<std::vector<double>> sorted;
    for (std::size_t k = 0; k < centres.size(); ++k) {
      sorted.emplace_back(centres.point(k).begin(), centres.point(k).end());
    }
    std::ranges::sort(sorted, [&](const std::vector<double>& a, const std::vector<double>& b) {
      const double first = space.brightness(a);
      const double second = space.brightness(b);
      return first != second ? first < second : a < b;
    });
    centres.numbers.clear();
    for (const std::vector<double>& centre : sorted) {
      centres.numbers.insert(centres.numbers.end(), centre.begin(), centre.end());
    }
  }

  /// The number of each pixel's cluster, from 1; 0 where it has none.
  [[nodiscard]] cv::Mat assigned_labels(const FeatureSpace& space, const Mask* mask, const PointList& centres,
                                        std::vector<std::int64_t>& counts) const {
    const auto [height, width] = space.bands.front().shape();
    const int step = stripe_height(width);
    cv::Mat labels(height, width, CV_8UC1);
    std::vector<std::vector<std::int64_t>> partial(static_cast<std::size_t>(stripe_count(height, width)));
    for_each_stripe(height, width, context(), [&](int y0, int y1) {
      labels.rowRange(y0, y1).setTo(0);
      std::vector<std::int64_t>& own = partial[static_cast<std::size_t>(y0 / step)];
      own.assign(centres.size(), 0);
      std::vector<double> point(space.dimensions());
      for_valid_pixels(space, mask, y0, y1, [&](const FeatureRow& row, std::size_t x, int y) {
        row.get(x, point);
        const std::size_t nearest = nearest_centre(centres, point).centre;
        ++own[nearest];
        labels.ptr<std::uint8_t>(y)[x] = static_cast<std::uint8_t>(nearest + 1);
      });
    });
    counts.assign(centres.size(), 0);
    for (const std::vector<std::int64_t>& own : partial) {
      for (std::size_t k = 0; k < counts.size(); ++k) counts[k] += own[k];
    }
    return labels;
  }

  [[nodiscard]] static std::vector<char> kept_clusters(const FeatureSpace& space, const PointList& centres,
                                                       const std::vector<std::int64_t>& counts, const Value& params) {
    std::vector<char> is_kept(centres.size(), 0);
    if (params.at("keep") == "brightest") {
      is_kept.back() = 1;
    } else if (params.at("keep") == "largest") {
      is_kept[static_cast<std::size_t>(std::ranges::max_element(counts) - counts.begin())] = 1;
    } else {
      for (const Value& point : params.at("points")) is_kept[cluster_at(space, centres, point)] = 1;
    }
    return is_kept;
  }

  [[nodiscard]] static std::size_t cluster_at(const FeatureSpace& space, const PointList& centres, const Value& point) {
    const PickPoint picked{point.at(0).get<double>(), point.at(1).get<double>()};
    const auto [height, width] = space.bands.front().shape();
    const PixelPoint pixel = pixel_of(picked, height, width);
    const auto x = static_cast<std::size_t>(pixel.x);
    FeatureRow row(space);
    row.read(pixel.y);
    if (!row.is_valid(x)) {
      throw std::runtime_error(fmt::format("The pixel at the point ({}, {}) has a value that is not a number.",
                                           common::number_text(picked.x_norm), common::number_text(picked.y_norm)));
    }
    std::vector<double> features(space.dimensions());
    row.get(x, features);
    return nearest_centre(centres, features).centre;
  }

  void describe(const Clusters& clusters, const std::vector<std::int64_t>& counts, const std::vector<char>& is_kept,
                std::int64_t fitted) {
    std::string kept;
    for (std::size_t k = 0; k < is_kept.size(); ++k) {
      if (is_kept[k] != 0) kept += fmt::format("{}{}", kept.empty() ? "" : ", ", k + 1);
    }
    const std::int64_t n = std::accumulate(counts.begin(), counts.end(), std::int64_t{0});
    note = fmt::format("kept cluster {} of {}, darkest first; mean squared distance {:.6g}", kept, counts.size(),
                       clusters.inertia / static_cast<double>(fitted));
    if (fitted < n) note += fmt::format("; centres fitted to {} of {} pixels", fitted, n);
  }

  [[nodiscard]] Mask kept_pixels(const cv::Mat& labels, const std::vector<char>& is_kept) const {
    cv::Mat pixels(labels.rows, labels.cols, CV_8UC1);
    for_each_stripe(labels.rows, labels.cols, context(), [&](int y0, int y1) {
      for (int y = y0; y < y1; ++y) {
        const std::uint8_t* label = labels.ptr<std::uint8_t>(y);
        std::uint8_t* out = pixels.ptr<std::uint8_t>(y);
        for (int x = 0; x < labels.cols; ++x) {
          out[x] = label[x] != 0 && is_kept[static_cast<std::size_t>(label[x] - 1)] != 0 ? 255 : 0;
        }
      }
    });
    return Mask(std::move(pixels));
  }

  void draw_overlay(const cv::Mat& labels, const Value& params) {
    cv::Mat overlay(labels.rows, labels.cols, CV_8UC3);
    for_each_stripe(labels.rows, labels.cols, context(), [&](int y0, int y1) {
      overlay.rowRange(y0, y1).setTo(0);
      for (int y = y0; y < y1; ++y) {
        const std::uint8_t* label = labels.ptr<std::uint8_t>(y);
        std::uint8_t* rgb = overlay.ptr<std::uint8_t>(y);
        for (std::size_t x = 0; x < static_cast<std::size_t>(labels.cols); ++x) {
          if (label[x] != 0) std::ranges::copy(part_color(static_cast<std::size_t>(label[x] - 1)), rgb + 3 * x);
        }
      }
    });
    if (params.at("keep") == "points") {
      std::vector<PixelPoint> picked;
      for (const Value& point : params.at("points")) {
        picked.push_back(pixel_of({point.at(0).get<double>(), point.at(1).get<double>()}, labels.rows, labels.cols));
      }
      draw_markers(overlay, picked);
    }
    viz_overlay = Image(std::move(overlay));
  }
};

}  // namespace

const MaskOperationInfo& cluster_kmeans_info() {
  static const MaskOperationInfo info{
      .key = key,
      .display_name = "Clusters (k-means)",
      .category = "Thresholds",
      .summary = "Sorts the pixels into clusters of like values or colours and keeps some of them.",
      .description =
          "The pixels of the incoming mask are points: their values in the bands as fractions of white, or their "
          "colours in CIELAB. k centres are looked for that make the sum of squared distances of the pixels from their "
          "nearest centre small: from each of several starts by k-means++, drawn by the seed, centres move to the mean "
          "of their pixels until no pixel changes its centre (at most 300 times), and the start with the least sum is "
          "taken. Where the mask has more than fit_pixels pixels, the centres are fitted to that many, one drawn by "
          "the seed from each of as many equal parts of the mask in raster order; every pixel then belongs to its "
          "nearest centre. Where the pixels drawn have fewer different values than k, up to as many pixels with other "
          "values are added, so that a small object is not missed. The same seed gives the same clusters every time. "
          "Clusters are numbered from the darkest to the brightest by the mean of their bands, or by L. Kept is the "
          "brightest, the largest (of equal ones the darker), or every cluster whose centre is nearest to the pixel at "
          "a picked point, whether the mask holds it or not. Pixels with fewer different values than k have as many "
          "clusters; no pixel or pixels of one value give an empty mask with the note no_contrast. Pixels with a value "
          "that is not a number are never kept. The overlay shows each cluster in a colour.",
      .source =
          "S. P. Lloyd, Least squares quantization in PCM, IEEE Transactions on Information Theory 28(2), 1982, "
          "129-137, doi:10.1109/TIT.1982.1056489; D. Arthur, S. Vassilvitskii, k-means++: the advantages of careful "
          "seeding, Proc. 18th ACM-SIAM Symposium on Discrete Algorithms, 2007, 1027-1035",
      .parameters = {{.name = "space",
                      .type = ParameterType::choice,
                      .default_value = "bands",
                      .help = "Whether pixels are compared by the values of bands or by their colour in CIELAB.",
                      .choices = {"bands", "lab"}},
                     {.name = "bands",
                      .type = ParameterType::bands,
                      .default_value = Value::array(),
                      .help = "The bands to compare, such as MSP.NIR or CLR.RGB.G; none means all of the capture."},
                     color_image_parameter(),
                     {.name = "k",
                      .type = ParameterType::integer,
                      .default_value = 3,
                      .min = 2.0,
                      .max = 12.0,
                      .unit = "clusters",
                      .help = "How many clusters are made."},
                     {.name = "seed",
                      .type = ParameterType::integer,
                      .default_value = 0,
                      .min = 0.0,
                      .max = 2147483647.0,
                      .help = "The seed of the random numbers behind the starts."},
                     {.name = "starts",
                      .type = ParameterType::integer,
                      .default_value = 5,
                      .min = 1.0,
                      .max = 50.0,
                      .help = "How many starts are tried; the best one is taken."},
                     {.name = "fit_pixels",
                      .type = ParameterType::integer,
                      .default_value = 20000,
                      .min = 1000.0,
                      .max = 100000000.0,
                      .unit = "px",
                      .help = "To how many pixels at most the centres are fitted."},
                     {.name = "keep",
                      .type = ParameterType::choice,
                      .default_value = "brightest",
                      .help = "Which clusters are kept: the brightest, the largest, or those at the picked points.",
                      .choices = {"brightest", "largest", "points"}},
                     {.name = "points",
                      .type = ParameterType::points,
                      .default_value = Value::array({Value::array({0.5, 0.5})}),
                      .min = 0.0,
                      .max = 1.0,
                      .unit = "fraction of the image",
                      .help = "Points whose clusters are kept.",
                      .interaction = Interaction{"points"}}},
      .check_capture = [](const ImageSource& source,
                          const Value& params) { static_cast<void>(feature_space(source, params)); },
      .make = [] { return std::make_unique<ClusterKmeans>(); }};
  return info;
}

}  // namespace orvexa::model
