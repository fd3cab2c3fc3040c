#include "orvexa/model/measures/local_windows.h"

#include <algorithm>
#include <array>
#include <bit>
#include <bitset>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "orvexa/common/parallel.h"

namespace orvexa::model {

namespace {

constexpr double undefined = std::numeric_limits<double>::quiet_NaN();

__extension__ using Wide = __int128;

const std::uint8_t* mask_row(const Mask* mask, int y) {
  return mask == nullptr ? nullptr : mask->row(y).data();
}

template <typename T>
bool is_seen(T value, const std::uint8_t* kept, std::size_t x) {
  if (kept != nullptr && kept[x] == 0) return false;
  if constexpr (std::is_floating_point_v<T>) return std::isfinite(value);
  return true;
}

/// Runs `tile(y0, y1)` for pieces of the rows that are not much lower than the windows, because each of them begins
/// with the rows of a whole window.
void for_each_tile(const cv::Mat& plane, int radius, const RunContext& context,
                   const std::function<void(int y0, int y1)>& tile) {
  const int height = std::max(stripe_height(plane.cols), 2 * radius + 1);
  const int tiles = (plane.rows + height - 1) / height;
  common::parallel_for(static_cast<std::size_t>(tiles), [&](std::size_t i) {
    context.check();
    const int y0 = static_cast<int>(i) * height;
    tile(y0, std::min(plane.rows, y0 + height));
  });
}

// ---- Moments ----

/// Which whole numbers stand for the values of a plane: integers for themselves.
template <typename T>
class SizeClasses {
 public:
  SizeClasses(const cv::Mat& plane, const Mask* mask, const RunContext& context) {
    static_cast<void>(plane);
    static_cast<void>(mask);
    static_cast<void>(context);
  }
  [[nodiscard]] std::size_t count() const { return 1; }
  [[nodiscard]] double step(std::size_t) const { return 1; }
  [[nodiscard]] bool is_in_row(std::size_t, int) const { return true; }
  [[nodiscard]] bool holds(std::size_t, T) const { return true; }
};

/// Floats are multiples of a step that fits the largest of them. A step of all values would let a single outlier, such
/// as a mark for missing data, take the digits of every other value; so values of very different size are in different
/// classes, each with a step of its own.
template <>
class SizeClasses<float> {
 public:
  SizeClasses(const cv::Mat& plane, const Mask* mask, const RunContext& context)
      : _classes_of_row(static_cast<std::size_t>(plane.rows), 0) {
    std::vector<Exponents> of_row(_classes_of_row.size());
    for_each_stripe(plane.rows, plane.cols, context, [&](int y0, int y1) {
      for (int y = y0; y < y1; ++y) {
        of_row[static_cast<std::size_t>(y)] = exponents_in(plane.ptr<float>(y), plane.cols, mask_row(mask, y));
      }
    });
    Exponents all;
    for (const Exponents& exponents : of_row) all |= exponents;
    part(all);
    for (std::size_t exponent = 0; exponent < not_finite; ++exponent) {
      if (!all[exponent]) continue;
      const std::uint32_t bit = std::uint32_t{1} << _class_of[exponent];
      for (std::size_t y = 0; y < of_row.size(); ++y) {
        if (of_row[y][exponent]) _classes_of_row[y] |= bit;
      }
    }
  }

  [[nodiscard]] std::size_t count() const { return _largest.size(); }
  [[nodiscard]] double step(std::size_t number) const {
    constexpr int bits = 42;  // sums of 501 x 501 values then stay below 2^60
    constexpr int bias = 127;
    return std::ldexp(1.0, static_cast<int>(_largest[number]) - bias + 1 - bits);
  }
  [[nodiscard]] bool is_in_row(std::size_t number, int y) const {
    return (_classes_of_row[static_cast<std::size_t>(y)] >> number & 1) != 0;
  }
  [[nodiscard]] bool holds(std::size_t number, float value) const { return _class_of[exponent_of(value)] == number; }

 private:
  using Exponents = std::bitset<256>;
  static constexpr std::size_t not_finite = 255;
  /// Between the exponents of neighbouring classes at least, so there are 32 classes at most.
  static constexpr std::size_t gap = 8;

  /// That of the binary form: 0 for zero and for what has no exponent of its own, `not_finite` for no number.
  static std::size_t exponent_of(float value) { return std::bit_cast<std::uint32_t>(value) >> 23 & 0xff; }

  static Exponents exponents_in(const float* values, int width, const std::uint8_t* kept) {
    std::array<bool, 256> is_met{};
    for (int x = 0; x < width; ++x) {
      if (kept == nullptr || kept[x] != 0) is_met[exponent_of(values[x])] = true;
    }
    Exponents met;
    for (std::size_t exponent = 0; exponent < is_met.size(); ++exponent) met[exponent] = is_met[exponent];
    return met;
  }

  /// The largest values first. Zeros fit into any class.
  void part(const Exponents& all) {
    std::size_t above = not_finite + gap;
    for (std::size_t exponent = not_finite - 1; exponent > 0; --exponent) {
      if (!all[exponent]) continue;
      if (above - exponent >= gap) _largest.push_back(exponent);
      above = exponent;
      _class_of[exponent] = static_cast<std::uint8_t>(_largest.size() - 1);
    }
    if (_largest.empty()) _largest.push_back(1);
    _class_of[0] = static_cast<std::uint8_t>(_largest.size() - 1);
  }

  std::vector<std::size_t> _largest;           ///< the largest exponent of each class
  std::array<std::uint8_t, 256> _class_of{};   ///< by exponent
  std::vector<std::uint32_t> _classes_of_row;  ///< bit k: whether class k is met in the row
};

/// Sums over a set of pixels of one class, in steps. Squares of 16 bit fit into 64 bits, those of floats' steps do not.
template <typename T>
struct Sums {
  using Square = std::conditional_t<std::is_floating_point_v<T>, Wide, std::int64_t>;
  std::int64_t n = 0;
  std::int64_t sum = 0;
  Square squares = 0;

  void add(const Sums& other) {
    n += other.n;
    sum += other.sum;
    squares += other.squares;
  }
  void take(const Sums& other) {
    n -= other.n;
    sum -= other.sum;
    squares -= other.squares;
  }
  [[nodiscard]] WindowMoments moments(double step) const {
    if (n == 0) return {undefined, undefined};
    // The whole part apart, so that the mean of equal values is that value.
    const std::int64_t whole = sum / n;
    const double mean = double(whole) + double(sum % n) / double(n);
    const Wide spread = Wide{n} * Wide{squares} - Wide{sum} * Wide{sum};
    return {mean * step, std::sqrt(double(spread)) / double(n) * step};
  }
};

/// Moves down the rows of one tile and looks at the values of one class.
template <typename T>
class MovingSums {
 public:
  MovingSums(const cv::Mat& plane, const Mask* mask, int radius, const SizeClasses<T>& classes, std::size_t number)
      : _plane(plane),
        _mask(mask),
        _width(plane.cols),
        _radius(radius),
        _classes(classes),
        _number(number),
        _step(classes.step(number)),
        _columns(static_cast<std::size_t>(plane.cols)) {}

  [[nodiscard]] double step() const { return _step; }
  /// Whether one of the rows that the windows reach has a value of the class.
  [[nodiscard]] bool sees_any() const { return _rows > 0; }

  /// Adds a row to the sums of the columns, or takes it away; rows outside the image are none.
  template <bool adds>
  void change_row(int y) {
    if (y < 0 || y >= _plane.rows || !_classes.is_in_row(_number, y)) return;
    _rows += adds ? 1 : -1;
    const T* values = _plane.ptr<T>(y);
    const std::uint8_t* kept = mask_row(_mask, y);
    const bool is_only = _classes.count() == 1;
    const double per_value = 1 / _step;  // exact: steps are powers of two
    for (std::size_t x = 0; x < _columns.size(); ++x) {
      if (!is_seen(values[x], kept, x)) continue;
      if (!is_only && !_classes.holds(_number, values[x])) continue;
      const std::int64_t value = whole(values[x], per_value);
      const Sums<T> one{1, value, typename Sums<T>::Square{value} * value};
      if constexpr (adds) {
        _columns[x].add(one);
      } else {
        _columns[x].take(one);
      }
    }
  }

  /// Of the windows of the row.
  void moments(std::span<WindowMoments> out) const {
    const double step = _step;
    Sums<T> window = before_first();
    for (int x = 0; x < _width; ++x) {
      move_to(x, window);
      out[static_cast<std::size_t>(x)] = window.moments(step);
    }
  }

  /// The window around column -1, and from there from column to column.
  [[nodiscard]] Sums<T> before_first() const {
    Sums<T> window;
    for (int x = 0; x < std::min(_radius, _width); ++x) window.add(column(x));
    return window;
  }
  void move_to(int x, Sums<T>& window) const {
    if (x + _radius < _width) window.add(column(x + _radius));
    if (x > _radius) window.take(column(x - _radius - 1));
  }

 private:
  static std::int64_t whole(T value, double per_value) {
    if constexpr (std::is_floating_point_v<T>) {
      return std::llround(double(value) * per_value);
    } else {
      return std::int64_t{value};
    }
  }
  [[nodiscard]] const Sums<T>& column(int x) const { return _columns[static_cast<std::size_t>(x)]; }

  const cv::Mat& _plane;
  const Mask* _mask;
  int _width;
  int _radius;
  const SizeClasses<T>& _classes;
  std::size_t _number;
  double _step;
  int _rows = 0;
  std::vector<Sums<T>> _columns;
};

/// Of the pixels of several classes in one window.
template <typename T>
WindowMoments joined_moments(std::span<const Sums<T>> windows, std::span<const MovingSums<T>* const> classes) {
  std::int64_t n = 0;
  std::size_t last = 0;
  int with_values = 0;
  for (std::size_t k = 0; k < windows.size(); ++k) {
    n += windows[k].n;
    if (windows[k].squares == 0) continue;  // none, or zeros, which are zeros in any step
    last = k;
    ++with_values;
  }
  if (with_values <= 1) {
    Sums<T> window = windows[last];
    window.n = n;
    return window.moments(classes[last]->step());
  }
  double mean = 0;
  for (std::size_t k = windows.size(); k-- > 0;) mean += double(windows[k].sum) * classes[k]->step() / double(n);
  double variance = 0;
  for (std::size_t k = windows.size(); k-- > 0;) {
    if (windows[k].n == 0) continue;
    const WindowMoments own = windows[k].moments(classes[k]->step());
    const double distance = own.mean - mean;
    variance += (own.sd * own.sd + distance * distance) * (double(windows[k].n) / double(n));
  }
  return {mean, std::sqrt(variance)};
}

/// Of the windows of the row that all classes have moved to.
template <typename T>
void row_of_moments(const std::vector<MovingSums<T>>& classes, std::span<WindowMoments> out) {
  std::vector<const MovingSums<T>*> seen;
  for (const MovingSums<T>& own : classes) {
    if (own.sees_any()) seen.push_back(&own);
  }
  if (seen.empty()) {
    std::ranges::fill(out, WindowMoments{undefined, undefined});
  } else if (seen.size() == 1) {
    seen.front()->moments(out);
  } else {
    std::vector<Sums<T>> windows;
    windows.reserve(seen.size());
    for (const MovingSums<T>* own : seen) windows.push_back(own->before_first());
    for (std::size_t x = 0; x < out.size(); ++x) {
      for (std::size_t k = 0; k < seen.size(); ++k) seen[k]->move_to(static_cast<int>(x), windows[k]);
      out[x] = joined_moments<T>(windows, seen);
    }
  }
}

template <typename T>
void rows_of_moments(const cv::Mat& plane, const Mask* mask, int radius, const RunContext& context,
                     const std::function<void(int y, std::span<const WindowMoments> moments)>& row) {
  const SizeClasses<T> classes(plane, mask, context);
  for_each_tile(plane, radius, context, [&](int y0, int y1) {
    std::vector<MovingSums<T>> sums;
    for (std::size_t number = 0; number < classes.count(); ++number) {
      bool is_seen_here = false;
      for (int y = std::max(0, y0 - radius); y < std::min(plane.rows, y1 + radius); ++y) {
        is_seen_here = is_seen_here || classes.is_in_row(number, y);
      }
      if (is_seen_here) sums.emplace_back(plane, mask, radius, classes, number);
    }
    std::vector<WindowMoments> moments(static_cast<std::size_t>(plane.cols));
    for (int y = y0 - radius; y < y0 + radius; ++y) {
      for (MovingSums<T>& own : sums) own.template change_row<true>(y);
    }
    for (int y = y0; y < y1; ++y) {
      context.check();
      for (MovingSums<T>& own : sums) {
        own.template change_row<true>(y + radius);
        if (y > y0) own.template change_row<false>(y - radius - 1);
      }
      row_of_moments(sums, std::span(moments));
      row(y, moments);
    }
  });
}

// ---- Ranges ----

struct Lower {
  double operator()(double a, double b) const { return std::min(a, b); }
};
struct Higher {
  double operator()(double a, double b) const { return std::max(a, b); }
};

/// The lowest (highest) of each `window` neighbouring numbers, from the first place of the window on, by doubling what
/// a place looks at. As many numbers as there are windows are valid afterwards.
template <typename Choose>
void window_extremes(std::vector<double>& values, std::size_t window, Choose choose) {
  std::size_t seen = 1;
  for (; 2 * seen <= window; seen *= 2) {
    for (std::size_t i = 0; i + seen < values.size(); ++i) values[i] = choose(values[i], values[i + seen]);
  }
  const std::size_t rest = window - seen;
  for (std::size_t i = 0; i + rest < values.size(); ++i) values[i] = choose(values[i], values[i + rest]);
}

template <typename Choose>
void window_extremes_of_rows(std::vector<std::vector<double>>& rows, std::size_t window, Choose choose,
                             const RunContext& context) {
  const auto join = [&](std::size_t distance) {
    for (std::size_t y = 0; y + distance < rows.size(); ++y) {
      context.check();
      std::transform(rows[y].begin(), rows[y].end(), rows[y + distance].begin(), rows[y].begin(), choose);
    }
  };
  std::size_t seen = 1;
  for (; 2 * seen <= window; seen *= 2) join(seen);
  if (window > seen) join(window - seen);
}

/// The extremes of the windows around the pixels of rows y0 to y1 - 1.
/// @param nothing  what a pixel that is not seen has: it must lose against any value.
template <typename T, typename Choose>
std::vector<std::vector<double>> extremes_of_rows(const cv::Mat& plane, const Mask* mask, int radius, int y0, int y1,
                                                  double nothing, Choose choose, const RunContext& context) {
  const auto width = static_cast<std::size_t>(plane.cols);
  const auto reach = static_cast<std::size_t>(radius);
  std::vector<std::vector<double>> rows;
  std::vector<double> padded;
  for (int y = y0 - radius; y < y1 + radius; ++y) {
    context.check();
    if (y < 0 || y >= plane.rows) {
      rows.emplace_back(width, nothing);
      continue;
    }
    const T* values = plane.ptr<T>(y);
    const std::uint8_t* kept = mask_row(mask, y);
    padded.assign(width + 2 * reach, nothing);
    for (std::size_t x = 0; x < width; ++x) {
      if (is_seen(values[x], kept, x)) padded[reach + x] = double(values[x]);
    }
    window_extremes(padded, 2 * reach + 1, choose);
    rows.emplace_back(padded.begin(), padded.begin() + static_cast<std::ptrdiff_t>(width));
  }
  window_extremes_of_rows(rows, 2 * reach + 1, choose, context);
  return rows;
}

template <typename T>
void rows_of_ranges(const cv::Mat& plane, const Mask* mask, int radius, const RunContext& context,
                    const std::function<void(int y, std::span<const double> ranges)>& row) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for_each_tile(plane, radius, context, [&](int y0, int y1) {
    const auto lowest = extremes_of_rows<T>(plane, mask, radius, y0, y1, infinity, Lower{}, context);
    auto highest = extremes_of_rows<T>(plane, mask, radius, y0, y1, -infinity, Higher{}, context);
    for (int y = y0; y < y1; ++y) {
      const std::vector<double>& low = lowest[static_cast<std::size_t>(y - y0)];
      std::vector<double>& ranges = highest[static_cast<std::size_t>(y - y0)];
      for (std::size_t x = 0; x < ranges.size(); ++x) ranges[x] = ranges[x] < low[x] ? undefined : ranges[x] - low[x];
      row(y, ranges);
    }
  });
}

// ---- Entropies ----

constexpr std::size_t level_count = 256;
constexpr std::uint16_t not_seen = level_count;

/// Sums of c log2 c are whole numbers of 2^-44: the largest, 10201 log2 10201, then is 2.4e18.
constexpr double log_scale = 17592186044416.0;

/// c log2 c for each count that a window can have, and what the c-th pixel of a level adds to it.
struct CountLogs {
  std::vector<std::int64_t> of;
  std::vector<std::int64_t> step;

  explicit CountLogs(int radius) {
    const auto pixels = static_cast<std::size_t>(2 * radius + 1) * static_cast<std::size_t>(2 * radius + 1);
    of.assign(pixels + 1, 0);
    step.assign(pixels + 1, 0);
    for (std::size_t c = 2; c <= pixels; ++c) {
      of[c] = std::llround(double(c) * std::log2(double(c)) * log_scale);
      step[c] = of[c] - of[c - 1];
    }
  }
};

/// The levels of a square of the plane and what its windows reach around it, column by column.
struct LevelTile {
  cv::Rect inside;
  int rows = 0;
  std::vector<std::uint16_t> levels;

  [[nodiscard]] const std::uint16_t* column(int x) const {
    return levels.data() + static_cast<std::size_t>(x) * static_cast<std::size_t>(rows);
  }
};

template <typename T>
LevelTile levels_of(const cv::Mat& plane, double white, const Mask* mask, int radius, const cv::Rect& inside) {
  LevelTile tile{.inside = inside, .rows = inside.height + 2 * radius, .levels = {}};
  const int columns = inside.width + 2 * radius;
  tile.levels.assign(static_cast<std::size_t>(tile.rows) * static_cast<std::size_t>(columns), not_seen);
  const double per_count = double(level_count - 1) / white;
  const int x0 = std::max(0, inside.x - radius);
  const int x1 = std::min(plane.cols, inside.x + inside.width + radius);
  for (int y = std::max(0, inside.y - radius); y < std::min(plane.rows, inside.y + inside.height + radius); ++y) {
    const T* values = plane.ptr<T>(y);
    const std::uint8_t* kept = mask_row(mask, y);
    for (int x = x0; x < x1; ++x) {
      if (!is_seen(values[x], kept, static_cast<std::size_t>(x))) continue;
      const double level = std::clamp(std::floor(double(values[x]) * per_count + 0.5), 0.0, double(level_count - 1));
      tile.levels[static_cast<std::size_t>(x - inside.x + radius) * static_cast<std::size_t>(tile.rows) +
                  static_cast<std::size_t>(y - inside.y + radius)] = static_cast<std::uint16_t>(level);
    }
  }
  return tile;
}

/// Pixels that are not seen are counted like one level more, so that the loops need not ask; `bits` leaves it out.
class MovingEntropy {
 public:
  explicit MovingEntropy(const CountLogs& logs) : _logs(logs) {}

  void add(const std::uint16_t* levels, int count) {
    const std::int64_t* step = _logs.step.data();
    for (int i = 0; i < count; ++i) _sum += step[++_counts[levels[i]]];
    _n += static_cast<std::size_t>(count);
  }
  void take(const std::uint16_t* levels, int count) {
    const std::int64_t* step = _logs.step.data();
    for (int i = 0; i < count; ++i) _sum -= step[_counts[levels[i]]--];
    _n -= static_cast<std::size_t>(count);
  }
  /// log2 n - (sum of c log2 c) / n
  [[nodiscard]] double bits() const {
    const std::size_t gaps = _counts[not_seen];
    const std::size_t n = _n - gaps;
    if (n == 0) return undefined;
    return double(_logs.of[n] - (_sum - _logs.of[gaps])) / double(n) / log_scale;
  }

 private:
  const CountLogs& _logs;
  std::array<std::uint32_t, level_count + 1> _counts{};
  std::int64_t _sum = 0;
  std::size_t _n = 0;
};

/// The same for large windows: the levels of every column of the window are counted apart, and a step along the row
/// takes one column in and one out. What that costs does not depend on the radius.
class ColumnEntropy {
 public:
  ColumnEntropy(const LevelTile& tile, int radius, const CountLogs& logs)
      : _tile(tile),
        _window(2 * radius + 1),
        _logs(logs),
        _columns(tile.levels.size() / static_cast<std::size_t>(tile.rows)) {
    for (std::size_t x = 0; x < _columns.size(); ++x) {
      const std::uint16_t* levels = tile.column(static_cast<int>(x));
      for (int y = 0; y < _window; ++y) ++_columns[x][levels[y]];
    }
  }

  /// From the windows of row y - 1 to those of row y.
  void move_to(int y) {
    for (std::size_t x = 0; x < _columns.size(); ++x) {
      const std::uint16_t* levels = _tile.column(static_cast<int>(x));
      --_columns[x][levels[y - 1]];
      ++_columns[x][levels[y + _window - 1]];
    }
  }

  void bits(std::span<double> out) {
    Counts counts{};
    const auto window = static_cast<std::size_t>(_window);
    for (std::size_t x = 0; x + 1 < window; ++x) add(_columns[x], counts);
    for (std::size_t x = 0; x < out.size(); ++x) {
      add(_columns[x + window - 1], counts);
      out[x] = bits_of(counts);
      take(_columns[x], counts);
    }
  }

 private:
  using Counts = std::array<std::uint16_t, level_count + 1>;

  static void add(const Counts& column, Counts& counts) {
    for (std::size_t i = 0; i < counts.size(); ++i) counts[i] = static_cast<std::uint16_t>(counts[i] + column[i]);
  }
  static void take(const Counts& column, Counts& counts) {
    for (std::size_t i = 0; i < counts.size(); ++i) counts[i] = static_cast<std::uint16_t>(counts[i] - column[i]);
  }
  [[nodiscard]] double bits_of(const Counts& counts) const {
    const std::size_t n = static_cast<std::size_t>(_window) * static_cast<std::size_t>(_window) - counts[not_seen];
    if (n == 0) return undefined;
    const std::int64_t* of = _logs.of.data();
    std::int64_t sum = 0;
    for (std::size_t i = 0; i < level_count; ++i) sum += of[counts[i]];
    return double(of[n] - sum) / double(n) / log_scale;
  }

  const LevelTile& _tile;
  int _window;
  const CountLogs& _logs;
  std::vector<Counts> _columns;
};

/// The entropies of the windows in a tile, row by row.
void tile_entropies(const LevelTile& tile, int radius, const CountLogs& logs, const RunContext& context,
                    const std::function<void(int y, int x, std::span<const double> entropies)>& piece) {
  constexpr int least_radius_by_columns = 12;
  const cv::Rect& inside = tile.inside;
  std::vector<double> row(static_cast<std::size_t>(inside.width));
  if (radius >= least_radius_by_columns) {
    ColumnEntropy entropy(tile, radius, logs);
    for (int y = 0; y < inside.height; ++y) {
      context.check();
      if (y > 0) entropy.move_to(y);
      entropy.bits(row);
      piece(inside.y + y, inside.x, row);
    }
    return;
  }
  const int window = 2 * radius + 1;
  for (int y = 0; y < inside.height; ++y) {
    context.check();
    MovingEntropy entropy(logs);
    for (int x = 0; x < window - 1; ++x) entropy.add(tile.column(x) + y, window);
    for (int x = 0; x < inside.width; ++x) {
      entropy.add(tile.column(x + window - 1) + y, window);
      row[static_cast<std::size_t>(x)] = entropy.bits();
      entropy.take(tile.column(x) + y, window);
    }
    piece(inside.y + y, inside.x, row);
  }
}

template <typename T>
void entropies(const cv::Mat& plane, double white, const Mask* mask, int radius, const RunContext& context,
               const std::function<void(int y, int x, std::span<const double> entropies)>& piece) {
  constexpr int side = 256;
  const CountLogs logs(radius);
  const int across = (plane.cols + side - 1) / side;
  const int down = (plane.rows + side - 1) / side;
  common::parallel_for(static_cast<std::size_t>(across) * static_cast<std::size_t>(down), [&](std::size_t i) {
    context.check();
    const cv::Rect inside =
        cv::Rect(static_cast<int>(i) % across * side, static_cast<int>(i) / across * side, side, side) &
        cv::Rect(0, 0, plane.cols, plane.rows);
    const LevelTile tile = levels_of<T>(plane, white, mask, radius, inside);
    tile_entropies(tile, radius, logs, context, piece);
  });
}

std::invalid_argument wrong_plane() {
  return std::invalid_argument("Windows are looked at on one channel of 8 or 16 bits or of floats, from radius 1 on.");
}

}  // namespace

void for_each_row_of_moments(const cv::Mat& plane, const Mask* mask, int radius, const RunContext& context,
                             const std::function<void(int y, std::span<const WindowMoments> moments)>& row) {
  if (radius < 1) throw wrong_plane();
  switch (plane.type()) {
    case CV_8UC1:
      return rows_of_moments<std::uint8_t>(plane, mask, radius, context, row);
    case CV_16UC1:
      return rows_of_moments<std::uint16_t>(plane, mask, radius, context, row);
    case CV_32FC1:
      return rows_of_moments<float>(plane, mask, radius, context, row);
    default:
      throw wrong_plane();
  }
}

void for_each_row_of_ranges(const cv::Mat& plane, const Mask* mask, int radius, const RunContext& context,
                            const std::function<void(int y, std::span<const double> ranges)>& row) {
  if (radius < 1) throw wrong_plane();
  switch (plane.type()) {
    case CV_8UC1:
      return rows_of_ranges<std::uint8_t>(plane, mask, radius, context, row);
    case CV_16UC1:
      return rows_of_ranges<std::uint16_t>(plane, mask, radius, context, row);
    case CV_32FC1:
      return rows_of_ranges<float>(plane, mask, radius, context, row);
    default:
      throw wrong_plane();
  }
}

void for_each_row_of_entropies(const cv::Mat& plane, double white, const Mask* mask, int radius,
                               const RunContext& context,
                               const std::function<void(int y, int x, std::span<const double> entropies)>& piece) {
  constexpr int largest_radius = 50;
  if (radius < 1 || radius > largest_radius) throw wrong_plane();
  switch (plane.type()) {
    case CV_8UC1:
      return entropies<std::uint8_t>(plane, white, mask, radius, context, piece);
    case CV_16UC1:
      return entropies<std::uint16_t>(plane, white, mask, radius, context, piece);
    case CV_32FC1:
      return entropies<float>(plane, white, mask, radius, context, piece);
    default:
      throw wrong_plane();
  }
}

}  // namespace orvexa::model
