#include "orvexa/model/measures/local_binary_pattern.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <span>

#include "orvexa/model/measures/same_region.h"

namespace orvexa::model {

namespace {

/// Three rows of a band that move down with the pixel that is looked at.
class ThreeRows {
 public:
  explicit ThreeRows(const Band& band)
      : _band(band), _rows(3, std::vector<double>(static_cast<std::size_t>(band.shape().width))) {}

  /// Makes `y` the row in the middle; rows outside the image are not touched.
  void move_to(int y) {
    if (y == _middle) return;
    if (y == _middle + 1) {
      std::rotate(_rows.begin(), _rows.begin() + 1, _rows.end());
      read(y + 1);
    } else {
      for (int row = y - 1; row <= y + 1; ++row) read_into(row, row - y + 1);
    }
    _middle = y;
  }
  /// -1, 0, 1 = above, itself, below.
  [[nodiscard]] const double* row(int dy) const {
    const int place = dy + 1;
    return _rows[static_cast<std::size_t>(place)].data();
  }

 private:
  void read(int y) { read_into(y, 2); }
  void read_into(int y, int place) {
    if (y >= 0 && y < _band.shape().height) _band.read_row(y, _rows[static_cast<std::size_t>(place)]);
  }

  const Band& _band;
  std::vector<std::vector<double>> _rows;
  int _middle = -9;
};

/// What the neighbour in a diagonal is above the pixel itself. Differences first: where all are equal it is exactly 0.
double diagonal(double corner, double beside, double over) {
  constexpr double d = std::numbers::sqrt2 / 2;
  return d * d * corner + d * (1 - d) * (beside + over);
}

/// The pattern of the pixel in column x; the number of patterns when a value is not finite.
std::size_t pattern_at(const ThreeRows& rows, std::size_t x) {
  const double centre = rows.row(0)[x];
  const auto above_centre = [&](int dy, std::size_t column) { return rows.row(dy)[column] - centre; };
  const double east = above_centre(0, x + 1);
  const double west = above_centre(0, x - 1);
  const double north = above_centre(-1, x);
  const double south = above_centre(1, x);
  const std::array<double, 8> around{
      east, diagonal(above_centre(-1, x + 1), east, north), north, diagonal(above_centre(-1, x - 1), north, west),
      west, diagonal(above_centre(1, x - 1), west, south),  south, diagonal(above_centre(1, x + 1), south, east)};
  double sum = 0;
  unsigned bits = 0;
  unsigned count = 0;
  for (std::size_t k = 0; k < around.size(); ++k) {
    sum += around[k];
    if (around[k] >= 0) {
      bits |= 1U << k;
      ++count;
    }
  }
  if (!std::isfinite(sum)) return lbp_patterns;
  const unsigned turned = ((bits << 1U) | (bits >> 7U)) & 255U;
  unsigned changes = 0;
  for (unsigned differing = bits ^ turned; differing != 0; differing &= differing - 1) ++changes;
  return changes <= 2 ? count : lbp_patterns - 1;
}

bool has_neighbours(const SameRegion& same, const std::array<SameRegion::Row, 3>& rows, int x, std::int32_t label) {
  return std::ranges::all_of(rows, [&](const SameRegion::Row& row) {
    return same.holds(row, x - 1, label) && same.holds(row, x, label) && same.holds(row, x + 1, label);
  });
}

}  // namespace

PatternCounts count_patterns(const Band& band, const RegionPixels& pixels, const RunContext& context) {
  const SameRegion same(pixels.regions());
  const bool has_regions = !pixels.regions().is_single();
  // A table for the whole, then one for each group.
  const std::size_t size = lbp_patterns * (1 + (has_regions ? pixels.group_count() : 0));
  const std::vector<std::uint32_t> table =
      pixels.count(size, context, [&](std::span<const RegionPixels::Run> runs, std::span<std::uint32_t> counts) {
        ThreeRows rows(band);
        for (const RegionPixels::Run& run : runs) {
          rows.move_to(run.y);
          const std::array<SameRegion::Row, 3> around{same.row(run.y - 1), same.row(run.y), same.row(run.y + 1)};
          const std::int32_t label = around[1].label == nullptr ? 0 : around[1].label[run.x0];
          for (int x = run.x0; x < run.x1; ++x) {
            if (!has_neighbours(same, around, x, 0)) continue;
            const std::size_t pattern = pattern_at(rows, static_cast<std::size_t>(x));
            if (pattern == lbp_patterns) continue;
            ++counts[pattern];
            if (has_regions && has_neighbours(same, around, x, label)) {
              ++counts[lbp_patterns * (1 + run.group) + pattern];
            }
          }
        }
      });
  PatternCounts result;
  const auto first = table.begin() + lbp_patterns;
  result.whole.assign(table.begin(), first);
  if (!has_regions) {
    result.regions = result.whole;
  } else {
    result.regions.assign(first, first + static_cast<std::ptrdiff_t>(lbp_patterns * pixels.regions().regions().size()));
  }
  return result;
}

}  // namespace orvexa::model
