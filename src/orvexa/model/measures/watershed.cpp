#include "orvexa/model/measures/watershed.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <utility>

namespace orvexa::model {

namespace {

using Index = std::uint32_t;

/// Rows and columns of an image with one more on each side, so that every pixel has 8 neighbours; pixels have a number.
class PaddedGrid {
 public:
  explicit PaddedGrid(const cv::Mat& image)
      : _width(static_cast<Index>(image.cols) + 2), _size(_width * (static_cast<std::size_t>(image.rows) + 2)) {}
  [[nodiscard]] std::size_t size() const { return _size; }
  [[nodiscard]] Index at(int y, int x) const {
    return (static_cast<Index>(y) + 1) * _width + static_cast<Index>(x) + 1;
  }
  [[nodiscard]] cv::Point place(Index index) const {
    return {static_cast<int>(index % _width) - 1, static_cast<int>(index / _width) - 1};
  }
  /// Beside, above and below first, then the diagonal ones. Steps back are steps forward modulo 2^32.
  [[nodiscard]] std::array<Index, 8> steps() const {
    return {Index{0} - _width,     Index{0} - 1,          1,          _width,
            Index{0} - _width - 1, Index{0} - _width + 1, _width - 1, _width + 1};
  }

 private:
  Index _width;
  std::size_t _size;
};

constexpr std::int32_t outside = -1;

/// The heights of a relief with -1 outside the mask.
std::vector<std::int32_t> padded_heights(const Relief& relief, const PaddedGrid& grid, const RunContext& context) {
  std::vector<std::int32_t> heights(grid.size(), outside);
  for_each_stripe(relief.mask.rows, relief.mask.cols, context, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      const auto* set = relief.mask.ptr<std::uint8_t>(y);
      const auto* from = relief.heights.ptr<std::int32_t>(y);
      std::int32_t* to = heights.data() + grid.at(y, 0);
      for (int x = 0; x < relief.mask.cols; ++x) to[x] = set[x] == 0 ? outside : from[x];
    }
  });
  return heights;
}

struct Summit {
  cv::Point place;
  std::int32_t height = 0;
};

/// Of the pixels of a summit the one nearest to their centroid, of equally near ones the first in raster order.
cv::Point middle_of(std::span<const Index> pixels, const PaddedGrid& grid) {
  const auto n = static_cast<std::int64_t>(pixels.size());
  std::int64_t sum_x = 0;
  std::int64_t sum_y = 0;
  for (const Index pixel : pixels) {
    const cv::Point place = grid.place(pixel);
    sum_x += place.x;
    sum_y += place.y;
  }
  // Distances from the centroid times n, in real numbers that hold them exactly for any summit of sensible size.
  const auto distance = [&](Index pixel) {
    const cv::Point place = grid.place(pixel);
    const auto dx = static_cast<double>(n * place.x - sum_x);
    const auto dy = static_cast<double>(n * place.y - sum_y);
    return std::pair(dx * dx + dy * dy, pixel);
  };
  return grid.place(*std::ranges::min_element(pixels, {}, distance));
}

/// Finds the summits of a padded relief: sets of equal height without a higher neighbour.
class SummitSearch {
 public:
  SummitSearch(const Relief& relief, const RunContext& context)
      : _grid(relief.mask),
        _steps(_grid.steps()),
        _heights(padded_heights(relief, _grid, context)),
        _state(_grid.size(), State::below),
        _context(context) {
    for_each_stripe(relief.mask.rows, relief.mask.cols, context, [&](int y0, int y1) {
      for (int y = y0; y < y1; ++y) {
        for (Index pixel = _grid.at(y, 0); pixel < _grid.at(y, relief.mask.cols); ++pixel) {
          if (_heights[pixel] != outside && is_top(pixel)) _state[pixel] = State::top;
        }
      }
    });
  }

  std::vector<Summit> summits() {
    std::vector<Summit> found;
    for_each_piece(_grid.size(), _context, [&](std::size_t begin, std::size_t end) {
      for (std::size_t pixel = begin; pixel < end; ++pixel) {
        if (_state[pixel] != State::top || !is_summit_around(static_cast<Index>(pixel))) continue;
        found.push_back({middle_of(_flat, _grid), _heights[pixel]});
      }
    });
    return found;
  }

 private:
  enum class State : std::uint8_t { below, top, seen };

  [[nodiscard]] bool is_top(Index pixel) const {
    return std::ranges::all_of(_steps, [&](Index step) { return _heights[Index(pixel + step)] <= _heights[pixel]; });
  }

  /// Gathers the pixels of one height around a top pixel that are top pixels too.
  /// @return whether none of the same height that is not one lies beside them: that would be the way up.
  bool is_summit_around(Index start) {
    bool is_summit = true;
    _flat.assign(1, start);
    _state[start] = State::seen;
    for (std::size_t k = 0; k < _flat.size(); ++k) {
      if (k % check_interval == 0) _context.check();
      for (const Index step : _steps) {
        const Index beside = _flat[k] + step;
        if (_heights[beside] != _heights[start]) continue;
        is_summit = is_summit && _state[beside] != State::below;
        if (_state[beside] != State::top) continue;
        _state[beside] = State::seen;
        _flat.push_back(beside);
      }
    }
    return is_summit;
  }

  static constexpr std::size_t check_interval = 1 << 18;

  PaddedGrid _grid;
  std::array<Index, 8> _steps;
  std::vector<std::int32_t> _heights;
  std::vector<State> _state;
  std::vector<Index> _flat;  ///< the summit being looked at
  const RunContext& _context;
};

std::int32_t component_at(const Components& components, cv::Point place) {
  const auto runs = components.runs_of_rows(place.y, place.y + 1);
  return std::ranges::lower_bound(runs, place.x + 1, {}, &Components::Run::x1)->label;
}

/// Places that were taken, by squares of the image at least as wide as the least distance.
class TakenPlaces {
 public:
  TakenPlaces(Shape shape, int min_distance)
      : _min_distance(min_distance),
        _side(std::max(min_distance, smallest_side)),
        _rows(shape.height / _side + 1),
        _columns(shape.width / _side + 1),
        _last(static_cast<std::size_t>(_rows) * static_cast<std::size_t>(_columns), none) {}

  [[nodiscard]] bool is_free(std::int32_t component, cv::Point place) const {
    const int row = place.y / _side;
    const int column = place.x / _side;
    for (int y = std::max(0, row - 1); y <= std::min(_rows - 1, row + 1); ++y) {
      for (int x = std::max(0, column - 1); x <= std::min(_columns - 1, column + 1); ++x) {
        if (is_near_one_of({x, y}, component, place)) return false;
      }
    }
    return true;
  }
  void take(std::int32_t component, cv::Point place) {
    std::size_t& last = _last[square_at({place.x / _side, place.y / _side})];
    _taken.push_back({place, component, last});
    last = _taken.size() - 1;
  }

 private:
  static constexpr int smallest_side = 8;
  static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();
  struct Taken {
    cv::Point place;
    std::int32_t component = 0;
    std::size_t before = none;  ///< in the same square
  };

  [[nodiscard]] std::size_t square_at(cv::Point square) const {
    return static_cast<std::size_t>(square.y) * static_cast<std::size_t>(_columns) + static_cast<std::size_t>(square.x);
  }
  [[nodiscard]] bool is_near_one_of(cv::Point square, std::int32_t component, cv::Point place) const {
    for (std::size_t k = _last[square_at(square)]; k != none; k = _taken[k].before) {
      const std::int64_t dx = place.x - _taken[k].place.x;
      const std::int64_t dy = place.y - _taken[k].place.y;
      const bool is_near = dx * dx + dy * dy < std::int64_t{_min_distance} * _min_distance;
      if (is_near && _taken[k].component == component) return true;
    }
    return false;
  }

  int _min_distance;
  int _side;
  int _rows;
  int _columns;
  std::vector<std::size_t> _last;  ///< of each square the place taken last
  std::vector<Taken> _taken;
};

/// Pixels that wait to be left, by height; those of one height leave in the order in which they came.
class HeightQueue {
 public:
  HeightQueue(std::size_t pixels, std::int32_t highest)
      : _next(pixels, 0), _queues(static_cast<std::size_t>(highest) + 1) {}
  void push(Index pixel, std::int32_t height) {
    Queue& queue = _queues[static_cast<std::size_t>(height)];
    if (queue.first == 0) {
      queue.first = pixel;
    } else {
      _next[queue.last] = pixel;
    }
    queue.last = pixel;
  }
  /// 0 when there is none of that height.
  Index pop(std::int32_t height) {
    Queue& queue = _queues[static_cast<std::size_t>(height)];
    const Index pixel = queue.first;
    if (pixel != 0) queue.first = pixel == queue.last ? 0 : _next[pixel];
    return pixel;
  }

 private:
  struct Queue {
    Index first = 0;  ///< number 0 is the padding's corner and never waits
    Index last = 0;
  };
  std::vector<Index> _next;
  std::vector<Queue> _queues;
};

/// Gives labels to the unlabelled pixels of the mask around a labelled one.
void flood_down(std::vector<std::int32_t>& labels, const std::vector<std::int32_t>& heights,
                const std::array<Index, 8>& steps, HeightQueue& waiting, std::int32_t highest,
                const RunContext& context) {
  constexpr std::size_t check_interval = 1 << 18;
  std::size_t left = 0;
  for (std::int32_t height = highest; height >= 0; --height) {
    for (Index pixel = waiting.pop(height); pixel != 0; pixel = waiting.pop(height)) {
      if (left++ % check_interval == 0) context.check();
      for (const Index step : steps) {
        const Index beside = pixel + step;
        if (labels[beside] != 0 || heights[beside] == outside) continue;
        labels[beside] = labels[pixel];
        waiting.push(beside, std::min(heights[beside], height));
      }
    }
    if (height % static_cast<std::int32_t>(check_interval) == 0) context.check();
  }
}

}  // namespace

std::vector<cv::Point> find_summits(const Relief& relief, const Components& components, int min_distance,
                                    const RunContext& context) {
  std::vector<Summit> summits = SummitSearch(relief, context).summits();
  std::ranges::sort(summits, [](const Summit& a, const Summit& b) {
    return std::array{-a.height, a.place.y, a.place.x} < std::array{-b.height, b.place.y, b.place.x};
  });
  TakenPlaces taken({relief.mask.rows, relief.mask.cols}, min_distance);
  std::vector<cv::Point> places;
  for_each_piece(summits.size(), context, [&](std::size_t begin, std::size_t end) {
    for (const Summit& summit : std::span(summits).subspan(begin, end - begin)) {
      const std::int32_t component = component_at(components, summit.place);
      if (!taken.is_free(component, summit.place)) continue;
      taken.take(component, summit.place);
      places.push_back(summit.place);
    }
  });
  return places;
}

cv::Mat flood_from(const std::vector<cv::Point>& seeds, const Relief& relief, const RunContext& context) {
  const PaddedGrid grid(relief.mask);
  const std::vector<std::int32_t> heights = padded_heights(relief, grid, context);
  const std::int32_t highest = std::max(0, *std::ranges::max_element(heights));
  std::vector<std::int32_t> labels(grid.size(), 0);
  {
    HeightQueue waiting(grid.size(), highest);
    for (std::size_t k = 0; k < seeds.size(); ++k) {
      const Index pixel = grid.at(seeds[k].y, seeds[k].x);
      labels[pixel] = static_cast<std::int32_t>(k) + 1;
      waiting.push(pixel, heights[pixel]);
    }
    flood_down(labels, heights, grid.steps(), waiting, highest, context);
  }
  cv::Mat result(relief.mask.size(), CV_32SC1);
  for_each_stripe(result.rows, result.cols, context, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) std::copy_n(labels.data() + grid.at(y, 0), result.cols, result.ptr<std::int32_t>(y));
  });
  return result;
}

std::vector<int> number_in_raster_order(int count, cv::Mat& labels, const RunContext& context) {
  std::vector<int> number(static_cast<std::size_t>(count) + 1, 0);
  int next = 0;
  for (int y = 0; y < labels.rows; ++y) {
    context.check();
    for (auto* label = labels.ptr<std::int32_t>(y); label != labels.ptr<std::int32_t>(y) + labels.cols; ++label) {
      if (*label == 0) continue;
      int& own = number[static_cast<std::size_t>(*label)];
      if (own == 0) own = ++next;
      *label = own;
    }
  }
  number.erase(number.begin());
  return number;
}

}  // namespace orvexa::model
