#include "orvexa/model/measures/region_pixels.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace orvexa::model {

namespace {

std::size_t length(const RegionPixels::Run& run) {
  return static_cast<std::size_t>(run.x1 - run.x0);
}

template <typename T>
constexpr std::size_t bins_of = std::size_t{std::numeric_limits<T>::max()} + 1;

/// One plane of an image of whole numbers, where it lies: a channel of a colour image is not copied.
template <typename T>
class CountPlane {
 public:
  CountPlane(const Band& band, const RunContext& context)
      : _pixels(band.channel == Band::grey_channel ? band.plane(context) : band.image),
        _offset(_pixels.is_color() ? static_cast<std::size_t>(band.channel) : 0) {}

  /// From one pixel to the next.
  [[nodiscard]] std::size_t step() const { return static_cast<std::size_t>(_pixels.channels()); }
  [[nodiscard]] const T* first(const RegionPixels::Run& run) const {
    return _pixels.row<T>(run.y).data() + static_cast<std::size_t>(run.x0) * step() + _offset;
  }

 private:
  Image _pixels;
  std::size_t _offset;
};

std::vector<ValueCount> filled_bins(std::span<const std::uint32_t> bins) {
  std::vector<ValueCount> values(bins.size());
  std::size_t filled = 0;
  for (std::size_t bin = 0; bin < bins.size(); ++bin) {
    values[filled] = {static_cast<std::int32_t>(bin), bins[bin]};  // an empty bin is overwritten by the next
    filled += bins[bin] != 0 ? 1 : 0;
  }
  values.resize(filled);
  return values;
}

/// Counts symbols and forgets them again without passing over all that could occur: a bit each says which did.
class SymbolCounter {
 public:
  void add(std::uint16_t symbol) {
    ++_counts[symbol];
    _occurred[symbol >> 6U] |= std::uint64_t{1} << (symbol & 63U);
  }
  /// What was added since the last call, ascending.
  std::span<const ValueCount> take() {
    _taken.clear();
    for (std::size_t word = 0; word < _occurred.size(); ++word) {
      for (std::uint64_t bits = std::exchange(_occurred[word], 0); bits != 0; bits &= bits - 1) {
        const std::size_t symbol = 64 * word + static_cast<std::size_t>(std::countr_zero(bits));
        _taken.push_back({static_cast<std::int32_t>(symbol), _counts[symbol]});
        _counts[symbol] = 0;
      }
    }
    return _taken;
  }

 private:
  std::vector<std::uint32_t> _counts = std::vector<std::uint32_t>(65536, 0);
  std::array<std::uint64_t, 1024> _occurred{};
  std::vector<ValueCount> _taken;
};

/// Statistics of the counts of one group after the other, and of all of them together.
template <typename T>
class GroupDescriber {
 public:
  GroupDescriber(const CountPlane<T>& plane, const RunContext& context) : _plane(plane), _context(context) {}

  [[nodiscard]] Statistics describe(std::span<const RegionPixels::Run> runs) {
    std::size_t n = 0;
    for (const RegionPixels::Run& run : runs) {
      n += length(run);
      for_each_count(run, [&](T count) {
        ++_bins[count];
        _has_block[count / block] = 1;
      });
    }
    const auto blocks = static_cast<std::size_t>(std::count(_has_block.begin(), _has_block.end(), 1));
    // Where few of the bins of the blocks that occur have a count in them, a look at every bin takes longer than to
    // sort.
    return blocks * block <= 4 * n ? describe_bins() : describe_scattered(runs, n);
  }

  /// How often each count occurred in all groups described.
  [[nodiscard]] std::span<const std::uint32_t> together() const { return _together; }

 private:
  static constexpr std::size_t block = 64;

  template <typename Each>
  void for_each_count(const RegionPixels::Run& run, const Each& each) const {
    _context.check();
    const T* at = _plane.first(run);
    const std::size_t step = _plane.step();
    for (std::size_t left = length(run); left > 0; --left, at += step) each(*at);
  }

  Statistics describe_bins() {
    _counts.resize(bins_of<T>);
    std::size_t filled = 0;
    for (std::size_t first = 0; first < _bins.size(); first += block) {
      if (std::exchange(_has_block[first / block], std::uint8_t{0}) == 0) continue;
      for (std::size_t bin = first; bin < first + block; ++bin) {
        _counts[filled] = {static_cast<std::int32_t>(bin), _bins[bin]};  // the next one overwrites an empty bin
        filled += _bins[bin] != 0 ? 1 : 0;
        _together[bin] += std::exchange(_bins[bin], 0U);
      }
    }
    return describe_counts(std::span<const ValueCount>(_counts).first(filled));
  }

  Statistics describe_scattered(std::span<const RegionPixels::Run> runs, std::size_t n) {
    _has_block.fill(0);
    _values.clear();
    _values.reserve(n);
    for (const RegionPixels::Run& run : runs) {
      for_each_count(run, [&](T count) {
        _values.push_back(count);
        _bins[count] = 0;
      });
    }
    sort_counts();
    for (const std::uint16_t count : _values) ++_together[count];
    return describe_sorted(_values);
  }

  /// In two passes over the bytes, the lower one first.
  void sort_counts() {
    _others.resize(_values.size());
    std::array<std::array<std::uint32_t, 256>, 2> starts{};
    for (const std::uint16_t count : _values) {
      ++starts[0][count & 255U];
      ++starts[1][count >> 8U];
    }
    for (std::array<std::uint32_t, 256>& own : starts) std::exclusive_scan(own.begin(), own.end(), own.begin(), 0U);
    for (const std::uint16_t count : _values) _others[starts[0][count & 255U]++] = count;
    for (const std::uint16_t count : _others) _values[starts[1][count >> 8U]++] = count;
  }

  const CountPlane<T>& _plane;
  const RunContext& _context;
  std::vector<std::uint32_t> _bins = std::vector<std::uint32_t>(bins_of<T>, 0);
  std::vector<std::uint32_t> _together = std::vector<std::uint32_t>(bins_of<T>, 0);
  std::array<std::uint8_t, bins_of<T> / block> _has_block{};  ///< 1 where a count of the block occurs in the group
  std::vector<ValueCount> _counts;
  std::vector<std::uint16_t> _values;
  std::vector<std::uint16_t> _others;
};

/// Calls `each(first, last)` for stretches of small groups, so that what a task needs serves many of them.
void for_each_stretch_of_groups(std::size_t groups, const std::function<void(std::size_t, std::size_t)>& each) {
  constexpr std::size_t groups_a_task = 64;
  common::parallel_for((groups + groups_a_task - 1) / groups_a_task, [&](std::size_t task) {
    each(task * groups_a_task, std::min(groups, (task + 1) * groups_a_task));
  });
}

}  // namespace

RegionPixels::RegionPixels(const RegionSet& regions, const RunContext& context) : _regions(regions) {
  const int height = regions.shape().height;
  const int width = regions.shape().width;
  const int rows_a_stripe = stripe_height(width);
  const auto none = static_cast<std::uint32_t>(group_count() - 1);
  _runs.resize(static_cast<std::size_t>(stripe_count(height, width)));
  for_each_stripe(height, width, context, [&](int y0, int y1) {
    std::vector<Run>& runs = _runs[static_cast<std::size_t>(y0 / rows_a_stripe)];
    for (int y = y0; y < y1; ++y) {
      const std::uint8_t* row = regions.mask().row(y).data();
      const std::uint8_t* const end = row + width;
      for (const std::uint8_t* at = row; at < end;) {
        at = static_cast<const std::uint8_t*>(std::memchr(at, 255, static_cast<std::size_t>(end - at)));
        if (at == nullptr) break;
        const auto* stop = static_cast<const std::uint8_t*>(std::memchr(at, 0, static_cast<std::size_t>(end - at)));
        if (stop == nullptr) stop = end;
        int x = static_cast<int>(at - row);
        const int x1 = static_cast<int>(stop - row);
        at = stop;
        if (regions.is_single()) {
          runs.push_back({y, x, x1, 0});
          continue;
        }
        const std::int32_t* const labels = regions.label_row(y).data();
        while (x < x1) {
          const int first = x;
          const std::int32_t label = labels[x];
          while (x < x1 && labels[x] == label) ++x;
          runs.push_back({y, first, x, label == 0 ? none : static_cast<std::uint32_t>(label - 1)});
        }
      }
    }
  });

  _starts.assign(group_count() + 1, 0);
  std::int64_t in_regions = 0;
  for (std::size_t k = 0; k < regions.regions().size(); ++k) {
    _starts[k + 1] = _starts[k] + static_cast<std::size_t>(regions.regions()[k].area);
    in_regions += regions.regions()[k].area;
  }
  if (!regions.is_single()) {
    _starts.back() = _starts[group_count() - 1] + static_cast<std::size_t>(regions.whole().area - in_regions);
  }
  std::vector<std::size_t> next(_starts.begin(), _starts.end() - 1);
  for (const std::vector<Run>& runs : _runs) {
    context.check();
    std::vector<std::size_t>& places = _places.emplace_back();
    places.reserve(runs.size());
    for (const Run& run : runs) {
      places.push_back(next[run.group]);
      next[run.group] += length(run);
    }
  }

  _first_run.assign(group_count() + 1, 0);
  for (const std::vector<Run>& runs : _runs) {
    for (const Run& run : runs) ++_first_run[run.group + 1];
  }
  std::partial_sum(_first_run.begin(), _first_run.end(), _first_run.begin());
  _runs_by_group.resize(_first_run.back());
  next.assign(_first_run.begin(), _first_run.end() - 1);
  for (const std::vector<Run>& runs : _runs) {
    context.check();
    for (const Run& run : runs) _runs_by_group[next[run.group]++] = run;
  }
}

std::span<const RegionPixels::Run> RegionPixels::runs_of(std::size_t group) const {
  return std::span(_runs_by_group).subspan(_first_run[group], _first_run[group + 1] - _first_run[group]);
}

std::size_t RegionPixels::group_count() const {
  return _regions.is_single() ? 1 : _regions.regions().size() + 1;
}

std::vector<std::uint32_t> RegionPixels::count(
    std::size_t size, const RunContext& context,
    const std::function<void(std::span<const Run>, std::span<std::uint32_t>)>& fill) const {
  using Table = std::vector<std::uint32_t>;
  common::IdlePool<Table> tables;
  common::parallel_for(_runs.size(), [&](std::size_t stripe) {
    context.check();
    auto table = tables.take([&] { return std::make_unique<Table>(size, 0U); });
    fill(_runs[stripe], *table);
    tables.give_back(std::move(table));
  });
  Table total(size, 0);
  for (const auto& table : tables.all()) {
    for (std::size_t i = 0; i < size; ++i) total[i] += (*table)[i];
  }
  return total;
}

void RegionPixels::count_symbols(
    const RunContext& context, std::optional<std::uint16_t> none,
    const std::function<void(const Run&, std::span<std::uint16_t>)>& read_run,
    const std::function<void(std::size_t group, std::span<const ValueCount>)>& describe) const {
  const auto symbols = gather<std::uint16_t>(context, read_run);
  for_each_stretch_of_groups(_regions.regions().size(), [&](std::size_t first, std::size_t last) {
    SymbolCounter counter;
    for (std::size_t group = first; group < last; ++group) {
      const std::span<const std::uint16_t> own = symbols.of(group);
      for_each_piece(own.size(), context, [&](std::size_t begin, std::size_t end) {
        for (const std::uint16_t symbol : own.subspan(begin, end - begin)) {
          if (symbol != none) counter.add(symbol);
        }
      });
      describe(group, counter.take());
    }
  });
}

template <typename T, typename PlaceOf>
std::vector<std::uint32_t> RegionPixels::place_table(const Band& band, std::size_t size, const PlaceOf& place_of,
                                                     const RunContext& context) const {
  const std::size_t total = group_count() * size;
  // Neighbours are often equal, and adding to the same place again has to wait: four tables take turns.
  const std::size_t turns = total <= 1024 ? 4 : 1;
  const CountPlane<T> plane(band, context);
  const std::size_t step = plane.step();
  std::vector<std::uint32_t> table =
      count(total * turns, context, [&](std::span<const Run> runs, std::span<std::uint32_t> numbers) {
        for (const Run& run : runs) {
          std::uint32_t* own = numbers.data() + run.group * size;
          const T* at = plane.first(run);
          std::size_t left = length(run);
          if (turns == 4) {
            for (; left >= 4; left -= 4, at += 4 * step) {
              ++own[place_of(at[0])];
              ++own[total + place_of(at[step])];
              ++own[2 * total + place_of(at[2 * step])];
              ++own[3 * total + place_of(at[3 * step])];
            }
          }
          for (; left > 0; --left, at += step) ++own[place_of(*at)];
        }
      });
  for (std::size_t turn = 1; turn < turns; ++turn) {
    for (std::size_t i = 0; i < total; ++i) table[i] += table[turn * total + i];
  }
  table.resize(total);
  return table;
}

std::vector<std::uint32_t> RegionPixels::count_places(const Band& band, std::span<const std::uint32_t> places,
                                                      std::size_t size, const RunContext& context) const {
  const auto place_of = [places](auto value) { return std::size_t{places[value]}; };
  switch (band.image.type()) {
    case PixelType::u8:
      return place_table<std::uint8_t>(band, size, place_of, context);
    case PixelType::u16:
      return place_table<std::uint16_t>(band, size, place_of, context);
    case PixelType::f32:
      break;
  }
  throw std::invalid_argument("Counts have places only in an image of whole numbers.");
}

template <typename T>
RegionStatistics RegionPixels::measure_counts(const Band& band, const RunContext& context) const {
  constexpr std::size_t bin_count = bins_of<T>;
  RegionStatistics result;
  result.regions.resize(_regions.regions().size());
  // 16 MiB a thread; beyond that there are more bins than pixels to fill them.
  if (group_count() * bin_count <= std::size_t{1} << 22) {
    const auto value_itself = [](T value) { return std::size_t{value}; };
    const std::vector<std::uint32_t> table = place_table<T>(band, bin_count, value_itself, context);
    std::vector<std::uint32_t> whole(bin_count, 0);
    for (std::size_t i = 0; i < table.size(); ++i) whole[i % bin_count] += table[i];
    result.whole = describe_counts(filled_bins(whole));
    if (_regions.is_single()) {
      result.regions.front() = result.whole;
      return result;
    }
    common::parallel_for(result.regions.size(), [&](std::size_t k) {
      result.regions[k] = describe_counts(filled_bins(std::span(table).subspan(k * bin_count, bin_count)));
    });
    return result;
  }

  const CountPlane<T> plane(band, context);
  common::IdlePool<GroupDescriber<T>> describers;
  for_each_stretch_of_groups(group_count(), [&](std::size_t first, std::size_t last) {
    auto describer = describers.take([&] { return std::make_unique<GroupDescriber<T>>(plane, context); });
    for (std::size_t group = first; group < last; ++group) {
      const Statistics statistics = describer->describe(runs_of(group));
      if (group < result.regions.size()) result.regions[group] = statistics;
    }
    describers.give_back(std::move(describer));
  });
  // The counts of the whole are those of all groups, so the plane is passed over only once.
  std::vector<std::uint32_t> whole(bin_count, 0);
  for (const auto& describer : describers.all()) {
    for (std::size_t bin = 0; bin < bin_count; ++bin) whole[bin] += describer->together()[bin];
  }
  result.whole = describe_counts(filled_bins(whole));
  return result;
}

template <typename ReadRun>
RegionStatistics RegionPixels::measure_values(const RunContext& context, const ReadRun& read_run) const {
  const std::unique_ptr<double[]> values = gathered<double>(context, read_run);
  // Valid values move up within the list; the groups' places move with them.
  std::vector<std::size_t> starts = _starts;
  std::size_t kept = 0;
  for (std::size_t group = 0; group + 1 < _starts.size(); ++group) {
    starts[group] = kept;
    const double* const own = values.get() + _starts[group];
    for_each_piece(_starts[group + 1] - _starts[group], context, [&](std::size_t begin, std::size_t end) {
      for (std::size_t i = begin; i < end; ++i) {
        if (std::isfinite(own[i])) values[kept++] = own[i];
      }
    });
  }
  starts.back() = kept;

  RegionStatistics result;
  result.whole = describe_values(std::span<const double>(values.get(), kept), context);
  result.whole.n_invalid = static_cast<std::int64_t>(_starts.back() - kept);
  if (_regions.is_single()) {
    result.regions = {result.whole};
    return result;
  }
  result.regions.resize(_regions.regions().size());
  common::parallel_for(result.regions.size(), [&](std::size_t k) {
    const std::size_t n = starts[k + 1] - starts[k];
    result.regions[k] = describe_values(std::span<const double>(values.get() + starts[k], n), context);
    result.regions[k].n_invalid = static_cast<std::int64_t>(_starts[k + 1] - _starts[k] - n);
  });
  return result;
}

RegionStatistics RegionPixels::measure(const Band& band, const RunContext& context) const {
  switch (band.image.type()) {
    case PixelType::u8:
      return measure_counts<std::uint8_t>(band, context);
    case PixelType::u16:
      return measure_counts<std::uint16_t>(band, context);
    case PixelType::f32:
      break;
  }
  const Image plane = band.plane(context);
  return measure_values(context, [&](const Run& run, std::span<double> out) {
    const float* row = plane.row<float>(run.y).data();
    std::copy(row + run.x0, row + run.x1, out.begin());
  });
}

RegionStatistics RegionPixels::measure(const cv::Mat& map, const RunContext& context) const {
  return measure_values(context, [&](const Run& run, std::span<double> out) {
    const double* row = map.ptr<double>(run.y);
    std::copy(row + run.x0, row + run.x1, out.begin());
  });
}

}  // namespace orvexa::model
