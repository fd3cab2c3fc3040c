#include "orvexa/model/measures/k_means.h"

#include <algorithm>
#include <limits>
#include <random>

#include "orvexa/common/parallel.h"

namespace orvexa::model {

namespace {

constexpr int most_improvements = 300;
constexpr std::size_t points_a_piece = std::size_t{1} << 14;

std::size_t piece_count(const PointList& points) {
  return (points.size() + points_a_piece - 1) / points_a_piece;
}

/// Calls `piece(number, begin, end)` on several threads.
template <typename Piece>
void for_pieces(const PointList& points, const RunContext& context, const Piece& piece) {
  common::parallel_for(piece_count(points), [&](std::size_t number) {
    context.check();
    piece(number, number * points_a_piece, std::min(points.size(), (number + 1) * points_a_piece));
  });
}

double squared_distance(const double* a, const double* b, std::size_t dimensions) {
  double sum = 0;
  for (std::size_t d = 0; d < dimensions; ++d) sum += (a[d] - b[d]) * (a[d] - b[d]);
  return sum;
}

/// From 0 to below 1; the distributions of the standard library differ between libraries.
double uniform(std::mt19937_64& random) {
  return static_cast<double>(random() >> 11) * 0x1p-53;
}

void append(PointList& list, std::span<const double> point) {
  list.numbers.insert(list.numbers.end(), point.begin(), point.end());
}

/// A point drawn with a probability that is proportional to its weight.
std::size_t drawn(const std::vector<double>& weights, double total, std::mt19937_64& random) {
  const double target = uniform(random) * total;
  double sum = 0;
  std::size_t last = 0;
  for (std::size_t i = 0; i < weights.size(); ++i) {
    if (weights[i] <= 0) continue;
    sum += weights[i];
    last = i;
    if (sum > target) break;
  }
  return last;
}

PointList start_centres(const PointList& points, std::size_t k, std::mt19937_64& random, const RunContext& context) {
  PointList centres{.dimensions = points.dimensions, .numbers = {}};
  const auto first = static_cast<std::size_t>(uniform(random) * static_cast<double>(points.size()));
  append(centres, points.point(std::min(first, points.size() - 1)));
  std::vector<double> distances(points.size(), std::numeric_limits<double>::infinity());
  while (centres.size() < k) {
    const auto newest = centres.point(centres.size() - 1);
    for_pieces(points, context, [&](std::size_t, std::size_t begin, std::size_t end) {
      for (std::size_t i = begin; i < end; ++i) {
        distances[i] = std::min(distances[i], squared_distance(points.point(i).data(), newest.data(), newest.size()));
      }
    });
    double total = 0;
    for (const double distance : distances) total += distance;
    if (!(total > 0)) break;
    append(centres, points.point(drawn(distances, total, random)));
  }
  return centres;
}

/// What one piece of the points says about the centres.
struct Sums {
  std::vector<double> numbers;
  std::vector<std::int64_t> counts;
  double inertia = 0;
  bool has_changed = false;
  double farthest_distance = -1;
  std::size_t farthest = 0;
};

class Improvement {
 public:
  Improvement(const PointList& points, PointList centres)
      : _points(points), _centres(std::move(centres)), _labels(points.size(), _centres.size()) {}

  [[nodiscard]] Clusters run(const RunContext& context) {
    for (int i = 0; i < most_improvements; ++i) {
      assign(context);
      if (!_sums.has_changed) break;
      move_centres();
    }
    assign(context);
    return {_centres, _sums.inertia};
  }

 private:
  void assign(const RunContext& context) {
    std::vector<Sums> pieces(piece_count(_points));
    for_pieces(_points, context,
               [&](std::size_t number, std::size_t begin, std::size_t end) { pieces[number] = assigned(begin, end); });
    _sums = std::move(pieces.front());
    for (std::size_t number = 1; number < pieces.size(); ++number) add(pieces[number]);
  }

  [[nodiscard]] Sums assigned(std::size_t begin, std::size_t end) {
    Sums sums{.numbers = std::vector<double>(_centres.numbers.size(), 0.0),
              .counts = std::vector<std::int64_t>(_centres.size(), 0)};
    for (std::size_t i = begin; i < end; ++i) {
      const auto point = _points.point(i);
      const NearestCentre nearest = nearest_centre(_centres, point);
      sums.has_changed = sums.has_changed || nearest.centre != _labels[i];
      _labels[i] = nearest.centre;
      sums.inertia += nearest.squared_distance;
      ++sums.counts[nearest.centre];
      for (std::size_t d = 0; d < point.size(); ++d) sums.numbers[nearest.centre * point.size() + d] += point[d];
      if (nearest.squared_distance > sums.farthest_distance) {
        sums.farthest_distance = nearest.squared_distance;
        sums.farthest = i;
      }
    }
    return sums;
  }

  void add(const Sums& piece) {
    for (std::size_t i = 0; i < _sums.numbers.size(); ++i) _sums.numbers[i] += piece.numbers[i];
    for (std::size_t k = 0; k < _sums.counts.size(); ++k) _sums.counts[k] += piece.counts[k];
    _sums.inertia += piece.inertia;
    _sums.has_changed = _sums.has_changed || piece.has_changed;
    if (piece.farthest_distance > _sums.farthest_distance) {
      _sums.farthest_distance = piece.farthest_distance;
      _sums.farthest = piece.farthest;
    }
  }

  void move_centres() {
    const std::size_t dimensions = _centres.dimensions;
    bool is_farthest_taken = false;
    for (std::size_t k = 0; k < _centres.size(); ++k) {
      const auto begin = k * dimensions;
      if (_sums.counts[k] > 0) {
        for (std::size_t d = 0; d < dimensions; ++d) {
          _centres.numbers[begin + d] = _sums.numbers[begin + d] / static_cast<double>(_sums.counts[k]);
        }
      } else if (!is_farthest_taken) {
        // One at a time: after the next assignment another point is the farthest.
        std::ranges::copy(_points.point(_sums.farthest), _centres.numbers.begin() + static_cast<std::ptrdiff_t>(begin));
        is_farthest_taken = true;
      }
    }
  }

  const PointList& _points;
  PointList _centres;
  std::vector<std::size_t> _labels;
  Sums _sums;
};

}  // namespace

NearestCentre nearest_centre(const PointList& centres, std::span<const double> point) {
  NearestCentre nearest{.centre = 0, .squared_distance = std::numeric_limits<double>::infinity()};
  for (std::size_t k = 0; k < centres.size(); ++k) {
    const double distance = squared_distance(centres.point(k).data(), point.data(), point.size());
    if (distance < nearest.squared_distance) nearest = {k, distance};
  }
  return nearest;
}

Clusters k_means(const PointList& points, const KMeansSettings& settings, const RunContext& context) {
  Clusters best{.centres = {.dimensions = points.dimensions, .numbers = {}}, .inertia = 0};
  if (points.size() == 0) return best;
  std::mt19937_64 random(settings.seed);
  for (int start = 0; start < settings.starts; ++start) {
    Clusters found = Improvement(points, start_centres(points, settings.k, random, context)).run(context);
    if (start == 0 || found.inertia < best.inertia) best = std::move(found);
  }
  return best;
}

}  // namespace orvexa::model
