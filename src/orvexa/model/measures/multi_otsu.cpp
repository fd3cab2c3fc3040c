#include "orvexa/model/measures/multi_otsu.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <utility>

namespace orvexa::model {

namespace {

constexpr long double nothing = -std::numeric_limits<long double>::infinity();

/// The filled bins with running sums, so that any class is known at once.
class FilledLevels {
 public:
  explicit FilledLevels(const Histogram& histogram) : _n{0}, _sum{0} {
    std::size_t first = 0;
    while (first < histogram.bins.size() && histogram.bins[first] == 0) ++first;
    for (std::size_t bin = first; bin < histogram.bins.size(); ++bin) {
      const std::int64_t count = histogram.bins[bin];
      if (count == 0) continue;
      _bins.push_back(bin);
      _n.push_back(_n.back() + count);
      _sum.push_back(_sum.back() + count * static_cast<std::int64_t>(bin - first));
    }
  }
  [[nodiscard]] std::size_t size() const { return _bins.size(); }
  [[nodiscard]] std::size_t bin(std::size_t level) const { return _bins[level]; }
  /// n m^2 of levels [begin, end): between the classes the variance is greatest where the sum of these is.
  [[nodiscard]] long double merit(std::size_t begin, std::size_t end) const {
    const auto sum = static_cast<long double>(_sum[end] - _sum[begin]);
    return sum * sum / static_cast<long double>(_n[end] - _n[begin]);
  }

 private:
  std::vector<std::size_t> _bins;
  std::vector<std::int64_t> _n;
  std::vector<std::int64_t> _sum;
};

/// The best way to part levels [i, size) into one class more, for each i.
struct Stage {
  std::vector<long double> merit;  ///< `nothing` where there are too few levels
  std::vector<std::size_t> cut;    ///< where the first class ends; the lowest of the best ones
};

/// Places [begin, end) whose best cuts are known to lie in [low, high].
struct Piece {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::size_t low = 0;
  std::size_t high = 0;
};

/// The best cut never moves back when the first level moves on, so the cut of the place in the middle bounds the cuts
/// on both sides: n log n instead of n^2.
Stage next_stage(const FilledLevels& levels, const Stage& rest, const RunContext& context) {
  const std::size_t size = levels.size();
  Stage stage{.merit = std::vector<long double>(size + 1, nothing), .cut = std::vector<std::size_t>(size + 1, size)};
  std::vector<Piece> pieces{{0, size, 1, size}};
  while (!pieces.empty()) {
    context.check();
    const Piece piece = pieces.back();
    pieces.pop_back();
    if (piece.begin >= piece.end) continue;
    const std::size_t middle = piece.begin + (piece.end - piece.begin) / 2;
    std::size_t best = std::max(piece.low, middle + 1);
    for (std::size_t cut = best; cut <= piece.high; ++cut) {
      if (rest.merit[cut] == nothing) break;  // fewer levels than classes from here on
      const long double merit = levels.merit(middle, cut) + rest.merit[cut];
      if (merit > stage.merit[middle]) {
        stage.merit[middle] = merit;
        best = cut;
      }
    }
    stage.cut[middle] = best;
    // A place without any way to part it bounds only those behind it, which have none either.
    const bool is_parted = stage.merit[middle] != nothing;
    pieces.push_back({piece.begin, middle, piece.low, is_parted ? best : piece.high});
    if (is_parted) pieces.push_back({middle + 1, piece.end, best, piece.high});
  }
  return stage;
}

}  // namespace

std::optional<std::vector<double>> multi_otsu_levels(const Histogram& histogram, int classes,
                                                     const RunContext& context) {
  if (classes < 2) throw std::invalid_argument("There are at least 2 classes.");
  const FilledLevels levels(histogram);
  if (levels.size() < static_cast<std::size_t>(classes)) return {};
  Stage last{.merit = std::vector<long double>(levels.size() + 1, nothing), .cut = {}};
  for (std::size_t i = 0; i < levels.size(); ++i) last.merit[i] = levels.merit(i, levels.size());
  std::vector<Stage> stages{std::move(last)};  // of 1, 2, ... classes
  for (int k = 2; k <= classes; ++k) stages.push_back(next_stage(levels, stages.back(), context));
  std::vector<double> found;
  std::size_t begin = 0;
  for (std::size_t k = stages.size() - 1; k > 0; --k) {
    begin = stages[k].cut[begin];
    found.push_back(histogram.level(levels.bin(begin - 1)));
  }
  return found;
}

}  // namespace orvexa::model
