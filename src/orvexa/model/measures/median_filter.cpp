#include "orvexa/model/measures/median_filter.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <vector>

#include "orvexa/common/parallel.h"

namespace orvexa::model {

namespace {

/// The rank of a pixel that does not count.
constexpr std::uint32_t no_rank = std::numeric_limits<std::uint32_t>::max();

/// A square of the plane with what its windows reach around it, each pixel as the rank of its value among the different
/// values of the tile.
template <typename T>
struct RankedTile {
  cv::Rect inside;       ///< in the plane
  int columns = 0;       ///< of the tile with its surroundings
  std::vector<T> value;  ///< of each rank
  std::vector<std::uint32_t> ranks;

  [[nodiscard]] std::uint32_t rank_at(int y, int x) const {
    return ranks[static_cast<std::size_t>(y) * static_cast<std::size_t>(columns) + static_cast<std::size_t>(x)];
  }
};

std::uint32_t ordered_bits(float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value == 0.0f ? 0.0f : value);  // -0 equals 0
  constexpr std::uint32_t sign = 0x80000000u;
  return (bits & sign) != 0 ? ~bits : bits | sign;
}

void rank(const std::vector<std::uint16_t>& pixels, RankedTile<std::uint16_t>& tile) {
  std::vector<std::uint32_t> rank_of(std::size_t{std::numeric_limits<std::uint16_t>::max()} + 1, no_rank);
  for (const std::uint16_t pixel : pixels) rank_of[pixel] = 0;
  for (std::size_t value = 0; value < rank_of.size(); ++value) {
    if (rank_of[value] == no_rank) continue;
    rank_of[value] = static_cast<std::uint32_t>(tile.value.size());
    tile.value.push_back(static_cast<std::uint16_t>(value));
  }
  for (std::size_t i = 0; i < pixels.size(); ++i) tile.ranks[i] = rank_of[pixels[i]];
}

void rank(const std::vector<float>& pixels, RankedTile<float>& tile) {
  std::vector<std::uint64_t> ordered;
  ordered.reserve(pixels.size());
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    if (std::isfinite(pixels[i])) ordered.push_back(std::uint64_t{ordered_bits(pixels[i])} << 32U | i);
  }
  std::ranges::sort(ordered);
  std::fill(tile.ranks.begin(), tile.ranks.end(), no_rank);
  std::uint64_t previous = 0;
  for (const std::uint64_t key : ordered) {
    const auto i = static_cast<std::size_t>(key & std::numeric_limits<std::uint32_t>::max());
    if (tile.value.empty() || key >> 32U != previous) tile.value.push_back(pixels[i]);
    previous = key >> 32U;
    tile.ranks[i] = static_cast<std::uint32_t>(tile.value.size() - 1);
  }
}

template <typename T>
RankedTile<T> ranked(const cv::Mat& plane, const cv::Rect& inside, int radius) {
  const int rows = inside.height + 2 * radius;
  RankedTile<T> tile{.inside = inside, .columns = inside.width + 2 * radius, .value = {}, .ranks = {}};
  std::vector<T> pixels;
  pixels.reserve(static_cast<std::size_t>(rows) * static_cast<std::size_t>(tile.columns));
  for (int y = 0; y < rows; ++y) {
    const T* row = plane.ptr<T>(std::clamp(inside.y - radius + y, 0, plane.rows - 1));
    for (int x = 0; x < tile.columns; ++x) {
      pixels.push_back(row[std::clamp(inside.x - radius + x, 0, plane.cols - 1)]);
    }
  }
  tile.ranks.resize(pixels.size());
  rank(pixels, tile);
  return tile;
}

/// How often each rank occurs, and each block of ranks.
struct RankHistogram {
  std::vector<std::uint16_t> ranks;
  std::vector<std::uint16_t> blocks;
  int n = 0;
  int below = 0;  ///< how many lie in blocks below the pivot block

  RankHistogram(std::size_t rank_count, std::size_t block_count) : ranks(rank_count), blocks(block_count) {}

  void change(std::uint32_t rank, unsigned shift, std::size_t pivot, int by) {
    if (rank == no_rank) return;
    const std::size_t block = rank >> shift;
    const auto step = static_cast<std::uint16_t>(by);  // unsigned arithmetic goes round: adding 65535 takes one away
    ranks[rank] = static_cast<std::uint16_t>(ranks[rank] + step);
    blocks[block] = static_cast<std::uint16_t>(blocks[block] + step);
    n += by;
    below += block < pivot ? by : 0;
  }
};

/// The medians of one tile. A band of rows is filtered at once: the rows of the plane that all their windows have in
/// common are counted in one histogram, what a window has besides in one of its own.
template <typename T>
class TileMedian {
 public:
  TileMedian(const RankedTile<T>& tile, int radius, int rows_at_once)
      : _tile(tile),
        _radius(radius),
        _shift(static_cast<unsigned>(std::bit_width(tile.value.size())) / 2),
        _block_count((tile.value.size() >> _shift) + 1) {
    const std::size_t padded = _block_count << _shift;
    _histograms.assign(static_cast<std::size_t>(rows_at_once) + 1, RankHistogram(padded, _block_count));
  }

  void filter(const cv::Mat& plane, cv::Mat& result, const RunContext& context) {
    if (_tile.value.empty()) return copy(plane, result);
    const int rows_at_once = static_cast<int>(_histograms.size()) - 1;
    for (int y = 0; y < _tile.inside.height; y += rows_at_once) {
      context.check();
      filter_rows(y, std::min(rows_at_once, _tile.inside.height - y), plane, result);
    }
  }

 private:
  void copy(const cv::Mat& plane, cv::Mat& result) const {
    cv::Mat out = result(_tile.inside);
    plane(_tile.inside).copyTo(out);
  }

  /// Rows [begin, end) of the tile's surroundings that histogram `which` counts; 0 is the common one.
  void change_column(int x, int y, int count, int by) {
    const int window = 2 * _radius;
    const int common_begin = y + count - 1;
    const int common_end = y + window + 1;
    change_rows(_histograms[0], x, common_begin, common_end, by);
    for (int j = 0; j < count; ++j) {
      RankHistogram& own = _histograms[static_cast<std::size_t>(j) + 1];
      change_rows(own, x, y + j, std::min(common_begin, common_end), by);
      change_rows(own, x, common_end, y + j + window + 1, by);
    }
  }
  void change_rows(RankHistogram& histogram, int x, int begin, int end, int by) {
    for (int y = begin; y < end; ++y) histogram.change(_tile.rank_at(y, x), _shift, _pivot, by);
  }

  void filter_rows(int y, int count, const cv::Mat& plane, cv::Mat& result) {
    const int window = 2 * _radius + 1;
    const int width = _tile.inside.width;
    for (int x = 0; x < window; ++x) change_column(x, y, count, 1);
    for (int x = 0; x < width; ++x) {
      for (int j = 0; j < count; ++j) {
        const int row = _tile.inside.y + y + j;
        const int column = _tile.inside.x + x;
        const bool does_count = _tile.rank_at(y + j + _radius, x + _radius) != no_rank;
        result.at<T>(row, column) =
            does_count ? median(_histograms[static_cast<std::size_t>(j) + 1]) : plane.at<T>(row, column);
      }
      change_column(x, y, count, -1);
      if (x + 1 < width) change_column(x + window, y, count, 1);
    }
    // The histograms are emptied by what is still in them, which is less than all their places.
    for (int x = width; x < width - 1 + window; ++x) change_column(x, y, count, -1);
  }

  T median(const RankHistogram& own) {
    const RankHistogram& common = _histograms[0];
    const int wanted = (common.n + own.n) / 2;
    const auto in_block = [&](std::size_t block) { return common.blocks[block] + own.blocks[block]; };
    int below = common.below + own.below;
    std::size_t block = _pivot;
    while (below > wanted) below -= in_block(--block);
    while (below + in_block(block) <= wanted) below += in_block(block++);
    move_pivot(block);
    std::size_t rank = block << _shift;
    for (;; ++rank) {
      below += common.ranks[rank] + own.ranks[rank];
      if (below > wanted) return _tile.value[rank];
    }
  }

  /// Neighbouring windows have their medians in blocks nearby: the search goes on where the last one ended.
  void move_pivot(std::size_t block) {
    if (block == _pivot) return;
    for (RankHistogram& histogram : _histograms) {
      for (std::size_t k = _pivot; k < block; ++k) histogram.below += histogram.blocks[k];
      for (std::size_t k = block; k < _pivot; ++k) histogram.below -= histogram.blocks[k];
    }
    _pivot = block;
  }

  const RankedTile<T>& _tile;
  int _radius;
  unsigned _shift;
  std::size_t _block_count;
  std::size_t _pivot = 0;
  std::vector<RankHistogram> _histograms;
};

/// A column step changes 2 (2 radius + 2 - k) pixels for k rows together and 2 (k - 1) for each of them: least where k
/// is about the root of the window's height.
int rows_filtered_at_once(int radius) {
  return std::max(1, static_cast<int>(std::sqrt(2.0 * radius + 1)));
}

/// Squares of the plane, one after another or side by side.
void for_each_square(const cv::Mat& plane, int side, const RunContext& context,
                     const std::function<void(const cv::Rect& inside)>& filter) {
  const int across = (plane.cols + side - 1) / side;
  const int down = (plane.rows + side - 1) / side;
  common::parallel_for(static_cast<std::size_t>(across) * static_cast<std::size_t>(down), [&](std::size_t i) {
    context.check();
    const cv::Rect square(static_cast<int>(i) % across * side, static_cast<int>(i) / across * side, side, side);
    filter(square & cv::Rect(0, 0, plane.cols, plane.rows));
  });
}

template <typename T>
cv::Mat median_of_ranks(const cv::Mat& plane, int radius, const RunContext& context) {
  constexpr int side = 256;
  cv::Mat result(plane.rows, plane.cols, plane.type());
  for_each_square(plane, side, context, [&](const cv::Rect& inside) {
    const RankedTile<T> tile = ranked<T>(plane, inside, radius);
    context.check();
    TileMedian<T>(tile, radius, rows_filtered_at_once(radius)).filter(plane, result, context);
  });
  return result;
}

cv::Mat library_median(const cv::Mat& plane, int radius, const RunContext& context) {
  // Each square is filtered with what its windows reach around it, so it should be much larger than those.
  constexpr int side = 1024;
  cv::Mat result(plane.rows, plane.cols, plane.type());
  for_each_square(plane, side, context, [&](const cv::Rect& inside) {
    const cv::Rect seen =
        cv::Rect(inside.x - radius, inside.y - radius, inside.width + 2 * radius, inside.height + 2 * radius) &
        cv::Rect(0, 0, plane.cols, plane.rows);
    cv::Mat filtered;
    cv::medianBlur(plane(seen), filtered, 2 * radius + 1);
    filtered(inside - seen.tl()).copyTo(result(inside));
  });
  return result;
}

}  // namespace

cv::Mat median_filtered(const cv::Mat& plane, int radius, const RunContext& context) {
  if (radius < 1 || radius > largest_median_radius) {
    throw std::invalid_argument("A median's radius is from 1 to 100 pixels.");
  }
  switch (plane.type()) {
    case CV_8UC1:
      return library_median(plane, radius, context);
    case CV_16UC1:
      return median_of_ranks<std::uint16_t>(plane, radius, context);
    case CV_32FC1:
      return median_of_ranks<float>(plane, radius, context);
    default:
      throw std::invalid_argument("Medians are taken on one channel of 8 or 16 bits or of floats.");
  }
}

}  // namespace orvexa::model
