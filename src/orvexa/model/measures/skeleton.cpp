#include "orvexa/model/measures/skeleton.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <numbers>
#include <stdexcept>

namespace orvexa::model {

namespace {

// The eight neighbours of a pixel are the bits of a byte, clockwise from the one above: P2 to P9 of the paper.
constexpr unsigned north = 1U << 0;
constexpr unsigned north_east = 1U << 1;
constexpr unsigned east = 1U << 2;
constexpr unsigned south_east = 1U << 3;
constexpr unsigned south = 1U << 4;
constexpr unsigned south_west = 1U << 5;
constexpr unsigned west = 1U << 6;
constexpr unsigned north_west = 1U << 7;

constexpr unsigned all_neighbours = 255;
/// Neighbours of the upper left pixel of a block of 2 x 2 that stands alone.
constexpr unsigned block_corner = east | south_east | south;

constexpr bool has_all(unsigned neighbours, unsigned wanted) {
  return (neighbours & wanted) == wanted;
}

/// Which half-step takes a pixel with these neighbours off: bit 0 the first, bit 1 the second.
constexpr unsigned half_steps_of(unsigned neighbours) {
  const int count = std::popcount(neighbours);
  const unsigned next = (neighbours >> 1 | neighbours << 7) & all_neighbours;
  const int rises = std::popcount(~neighbours & next & all_neighbours);
  if (count < 2 || count > 6 || rises != 1) return 0;
  unsigned steps = 0;
  if (!has_all(neighbours, north | east | south) && !has_all(neighbours, east | south | west)) steps |= 1U;
  if (!has_all(neighbours, north | east | west) && !has_all(neighbours, north | south | west)) steps |= 2U;
  return steps;
}

/// The neighbours that a pixel of a skeleton is joined with.
constexpr unsigned joins_of(unsigned neighbours) {
  unsigned joins = neighbours & (north | east | south | west);
  if ((neighbours & (north | east)) == 0) joins |= neighbours & north_east;
  if ((neighbours & (south | east)) == 0) joins |= neighbours & south_east;
  if ((neighbours & (south | west)) == 0) joins |= neighbours & south_west;
  if ((neighbours & (north | west)) == 0) joins |= neighbours & north_west;
  return joins;
}

template <typename Function>
constexpr std::array<std::uint8_t, 256> table_of(Function function) {
  std::array<std::uint8_t, 256> table{};
  for (unsigned neighbours = 0; neighbours < table.size(); ++neighbours) {
    table[neighbours] = static_cast<std::uint8_t>(function(neighbours));
  }
  return table;
}

constexpr std::array<std::uint8_t, 256> half_steps = table_of(half_steps_of);
constexpr std::array<std::uint8_t, 256> joins = table_of(joins_of);

/// The picture with one pixel of background around it, a byte of flags each, addressed by one number.
class Grid {
 public:
  static constexpr std::uint8_t is_set = 1;

  Grid(const cv::Mat& picture, const RunContext& context)
      : _stride(static_cast<std::size_t>(picture.cols) + 2),
        _flags(_stride * (static_cast<std::size_t>(picture.rows) + 2), 0),
        _offsets{-stride(), 1 - stride(), 1, stride() + 1, stride(), stride() - 1, -1, -stride() - 1} {
    for (int y = 0; y < picture.rows; ++y) {
      context.check();
      const std::uint8_t* row = picture.ptr<std::uint8_t>(y);
      std::uint8_t* flags = _flags.data() + place({0, y});
      for (int x = 0; x < picture.cols; ++x) flags[x] = row[x] & is_set;
    }
  }

  [[nodiscard]] std::size_t place(cv::Point point) const {
    return _stride * (static_cast<std::size_t>(point.y) + 1) + static_cast<std::size_t>(point.x) + 1;
  }
  [[nodiscard]] cv::Point point(std::size_t place) const {
    return {static_cast<int>(place % _stride) - 1, static_cast<int>(place / _stride) - 1};
  }
  [[nodiscard]] std::size_t neighbour(std::size_t place, std::size_t direction) const {
    return static_cast<std::size_t>(static_cast<std::ptrdiff_t>(place) + _offsets[direction]);
  }
  /// Which of the eight are set.
  [[nodiscard]] unsigned neighbours(std::size_t place) const {
    const std::uint8_t* here = _flags.data() + place;
    unsigned found = 0;
    for (std::size_t k = 0; k < _offsets.size(); ++k) found |= (here[_offsets[k]] & 1U) << k;
    return found;
  }
  [[nodiscard]] unsigned joined(std::size_t place) const { return joins[neighbours(place)]; }

  [[nodiscard]] std::size_t size() const { return _flags.size(); }
  [[nodiscard]] bool has(std::size_t place, std::uint8_t flag) const { return (_flags[place] & flag) != 0; }
  void add(std::size_t place, std::uint8_t flag) { _flags[place] = static_cast<std::uint8_t>(_flags[place] | flag); }
  void remove(std::size_t place, std::uint8_t flag) {
    _flags[place] = static_cast<std::uint8_t>(_flags[place] & ~flag);
  }

 private:
  [[nodiscard]] std::ptrdiff_t stride() const { return static_cast<std::ptrdiff_t>(_stride); }

  std::size_t _stride;
  std::vector<std::uint8_t> _flags;
  std::array<std::ptrdiff_t, 8> _offsets;
};

using Places = std::vector<std::size_t>;

/// Calls `act(neighbour)` for each of the eight that a byte names.
template <typename Act>
void for_each_neighbour(const Grid& grid, std::size_t place, unsigned neighbours, const Act& act) {
  for (; neighbours != 0; neighbours &= neighbours - 1) {
    act(grid.neighbour(place, static_cast<std::size_t>(std::countr_zero(neighbours))));
  }
}

/// Takes the border off until nothing changes.
class Thinning {
 public:
  Thinning(Grid& grid, const RunContext& context) : _grid(grid), _context(context) {}

  void run() {
    for_each_piece(_grid.size(), _context, [&](std::size_t begin, std::size_t end) {
      for (std::size_t place = begin; place < end; ++place) {
        if (!_grid.has(place, Grid::is_set) || half_steps[_grid.neighbours(place)] == 0) continue;
        look_at(place);
      }
    });
    for (std::size_t step = 0; !_waiting[0].empty() || !_waiting[1].empty(); step = 1 - step) take_off(step);
  }

 private:
  /// Flags of the pixels that wait for a half-step.
  static constexpr std::array<std::uint8_t, 2> waits{2, 4};

  /// The pixel's neighbours are new to both half-steps.
  void look_at(std::size_t place) {
    for (std::size_t step = 0; step < waits.size(); ++step) {
      if (_grid.has(place, waits[step])) continue;
      _grid.add(place, waits[step]);
      _waiting[step].push_back(place);
    }
  }

  [[nodiscard]] bool stands_alone(std::size_t upper_left) const {
    constexpr std::size_t to_south_east = 3;
    return _grid.neighbours(upper_left) == block_corner &&
           _grid.neighbours(_grid.neighbour(upper_left, to_south_east)) == (north | north_west | west) &&
           _grid.neighbours(_grid.neighbour(upper_left, 2)) == (west | south_west | south) &&
           _grid.neighbours(_grid.neighbour(upper_left, 4)) == (north | north_east | east);
  }

  void take_off(std::size_t step) {
    Places waiting;
    waiting.swap(_waiting[step]);
    Places taken;
    for_each_piece(waiting.size(), _context, [&](std::size_t begin, std::size_t end) {
      for (std::size_t k = begin; k < end; ++k) {
        const std::size_t place = waiting[k];
        _grid.remove(place, waits[step]);
        if (!_grid.has(place, Grid::is_set)) continue;
        const bool goes = (half_steps[_grid.neighbours(place)] >> step & 1U) != 0;
        if (goes && !stands_alone(place)) taken.push_back(place);
      }
    });
    for (const std::size_t place : taken) _grid.remove(place, Grid::is_set);
    for_each_piece(taken.size(), _context, [&](std::size_t begin, std::size_t end) {
      for (std::size_t k = begin; k < end; ++k) {
        for_each_neighbour(_grid, taken[k], _grid.neighbours(taken[k]), [&](std::size_t place) { look_at(place); });
      }
    });
  }

  Grid& _grid;
  const RunContext& _context;
  std::array<Places, 2> _waiting;
};

/// Steps from an end to a junction, without the junction; empty when there is none within the length.
Places spur_of(const Grid& grid, std::size_t end, double longest) {
  Places path;
  std::size_t before = end;
  std::size_t here = end;
  double length = 0;
  while (true) {
    const unsigned joined = grid.joined(here);
    if (std::popcount(joined) >= 3) return path;
    path.push_back(here);
    std::size_t next = here;
    bool is_straight = true;
    for (std::size_t k = 0; k < 8; ++k) {
      if ((joined >> k & 1U) == 0 || grid.neighbour(here, k) == before) continue;
      next = grid.neighbour(here, k);
      is_straight = k % 2 == 0;
    }
    if (next == here) return {};  // another end
    length += is_straight ? 1 : std::numbers::sqrt2;
    if (length > longest) return {};
    before = here;
    here = next;
  }
}

void prune_spurs(Grid& grid, Places& skeleton, double longest, const RunContext& context) {
  Places spurs;
  for (const std::size_t place : skeleton) {
    if (std::popcount(grid.joined(place)) != 1) continue;
    context.check();
    const Places spur = spur_of(grid, place, longest);
    spurs.insert(spurs.end(), spur.begin(), spur.end());
  }
  for (const std::size_t place : spurs) grid.remove(place, Grid::is_set);
  std::erase_if(skeleton, [&](std::size_t place) { return !grid.has(place, Grid::is_set); });
}

/// Counts the groups of joined pixels that are, or are not, junction pixels.
class Groups {
 public:
  explicit Groups(Grid& grid) : _grid(grid) {}

  /// @return whether the pixel is the first of a new group.
  bool begins_with(std::size_t place) {
    if (_grid.has(place, is_counted)) return false;
    const bool is_junction = is_junction_pixel(place);
    reach(place);
    while (!_reached.empty()) {
      const std::size_t here = _reached.back();
      _reached.pop_back();
      for_each_neighbour(_grid, here, _grid.joined(here), [&](std::size_t next) {
        if (!_grid.has(next, is_counted) && is_junction_pixel(next) == is_junction) reach(next);
      });
    }
    return true;
  }

  [[nodiscard]] bool is_junction_pixel(std::size_t place) const { return std::popcount(_grid.joined(place)) >= 3; }

 private:
  static constexpr std::uint8_t is_counted = 8;

  void reach(std::size_t place) {
    _grid.add(place, is_counted);
    _reached.push_back(place);
  }

  Grid& _grid;
  Places _reached;
};

Skeleton measured(Grid& grid, const Places& places, const RunContext& context) {
  constexpr unsigned sides = north | east | south | west;
  Skeleton skeleton;
  skeleton.pixels.reserve(places.size());
  std::int64_t straight = 0;
  std::int64_t diagonal = 0;
  Groups groups(grid);
  for_each_piece(places.size(), context, [&](std::size_t begin, std::size_t end) {
    for (std::size_t k = begin; k < end; ++k) {
      const unsigned joined = grid.joined(places[k]);
      skeleton.pixels.push_back(grid.point(places[k]));
      straight += std::popcount(joined & sides);
      diagonal += std::popcount(joined & ~sides);
      if (std::popcount(joined) == 1) ++skeleton.ends;
      if (groups.begins_with(places[k]))
        ++(groups.is_junction_pixel(places[k]) ? skeleton.junctions : skeleton.branches);
    }
  });
  // Every join was met from both of its ends.
  skeleton.length = (static_cast<double>(straight) + static_cast<double>(diagonal) * std::numbers::sqrt2) / 2;
  return skeleton;
}

}  // namespace

Skeleton find_skeleton(const cv::Mat& picture, double prune, const RunContext& context) {
  if (picture.empty()) return {};
  if (picture.type() != CV_8UC1) throw std::invalid_argument("A skeleton is found on one 8-bit channel.");
  Grid grid(picture, context);
  Thinning(grid, context).run();
  Places places;
  for_each_piece(grid.size(), context, [&](std::size_t begin, std::size_t end) {
    for (std::size_t place = begin; place < end; ++place) {
      if (grid.has(place, Grid::is_set)) places.push_back(place);
    }
  });
  if (prune > 0) prune_spurs(grid, places, prune, context);
  return measured(grid, places, context);
}

}  // namespace orvexa::model
