#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "orvexa/common/idle_pool.h"
#include "orvexa/common/parallel.h"
#include "orvexa/model/measures/bands.h"
#include "orvexa/model/measures/region_set.h"
#include "orvexa/model/measures/statistics.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// Statistics of one plane over the whole mask and over each region, in the regions' order.
struct RegionStatistics {
  Statistics whole;
  std::vector<Statistics> regions;
};

/// The pixels of all regions as runs along the rows, found once and then read for any number of planes: every plane is
/// passed over once, however many regions there are.
class RegionPixels {
 public:
  /// @param regions  must live as long as this.
  RegionPixels(const RegionSet& regions, const RunContext& context);

  /// Pixels [x0, x1) of a row that belong to one group.
  struct Run {
    int y = 0;
    int x0 = 0;
    int x1 = 0;
    std::uint32_t group = 0;
  };

  [[nodiscard]] const RegionSet& regions() const { return _regions; }
  /// One group for each region in the regions' order, and last one for the pixels of the mask that are in no region. A
  /// mask without regions of its own has one group, which is also its whole.
  [[nodiscard]] std::size_t group_count() const;
  /// In raster order.
  [[nodiscard]] std::span<const Run> runs_of(std::size_t group) const;

  /// Tables of numbers of pixels, filled by several threads: `fill(runs, table)` adds the runs of a stripe to a table
  /// of `size` numbers that starts with zeros. Sums of whole numbers are the same in any order.
  [[nodiscard]] std::vector<std::uint32_t> count(
      std::size_t size, const RunContext& context,
      const std::function<void(std::span<const Run> runs, std::span<std::uint32_t> table)>& fill) const;

  /// Sums that are not whole numbers: `fill(runs, partial)` adds the runs of a stripe to one `Partial` a group, and the
  /// partial results of a group are added to its `Total` in the order of the stripes, whatever the number of threads.
  template <typename Partial, typename Total>
  [[nodiscard]] std::vector<Total> reduce(
      const RunContext& context,
      const std::function<void(std::span<const Run> runs, std::span<Partial> partial)>& fill) const {
    // A stripe has pixels of few of the groups: only these partial results are kept.
    struct Scratch {
      std::vector<Partial> partial;
      std::vector<std::size_t> last_stripe;  ///< of a group that has a pixel there, counted from 1
    };
    common::IdlePool<Scratch> scratches;
    std::vector<std::vector<std::pair<std::uint32_t, Partial>>> met(_runs.size());
    common::parallel_for(_runs.size(), [&](std::size_t stripe) {
      context.check();
      auto scratch = scratches.take([&] {
        return std::make_unique<Scratch>(
            Scratch{std::vector<Partial>(group_count()), std::vector<std::size_t>(group_count(), 0)});
      });
      fill(_runs[stripe], scratch->partial);
      for (const Run& run : _runs[stripe]) {
        if (std::exchange(scratch->last_stripe[run.group], stripe + 1) == stripe + 1) continue;
        met[stripe].emplace_back(run.group, std::exchange(scratch->partial[run.group], Partial{}));
      }
      scratches.give_back(std::move(scratch));
    });
    std::vector<Total> totals(group_count());
    for (const auto& stripe : met) {
      for (const auto& [group, partial] : stripe) totals[group].add(partial);
    }
    return totals;
  }

  /// How many pixels of an integer plane have their place at each of `size` places: that many numbers for each group,
  /// one group after the other.
  /// @param places  the place of each count that the plane's type can have.
  [[nodiscard]] std::vector<std::uint32_t> count_places(const Band& band, std::span<const std::uint32_t> places,
                                                        std::size_t size, const RunContext& context) const;

  /// One value a pixel of the mask, sorted by group and within a group in raster order.
  template <typename T>
  class Gathered {
   public:
    Gathered(std::unique_ptr<T[]> values, const std::vector<std::size_t>& starts)
        : _values(std::move(values)), _starts(starts) {}
    [[nodiscard]] std::span<T> of(std::size_t group) const {
      return {_values.get() + _starts[group], _starts[group + 1] - _starts[group]};
    }

   private:
    std::unique_ptr<T[]> _values;
    const std::vector<std::size_t>& _starts;
  };
  /// @param read_run  `read_run(run, out)` gives the values of a run's pixels; called by several threads.
  template <typename T, typename ReadRun>
  [[nodiscard]] Gathered<T> gather(const RunContext& context, const ReadRun& read_run) const {
    return {gathered<T>(context, read_run), _starts};
  }

  /// How often each symbol of a pixel occurs in each group but the last one of pixels in no region: `describe(group,
  /// counts)` is called once a group with the symbols in ascending order, perhaps at the same time for several groups.
  /// @param read_run  `read_run(run, out)` gives a symbol for each pixel of a run.
  /// @param none  a symbol that is not counted.
  void count_symbols(const RunContext& context, std::optional<std::uint16_t> none,
                     const std::function<void(const Run&, std::span<std::uint16_t>)>& read_run,
                     const std::function<void(std::size_t group, std::span<const ValueCount>)>& describe) const;

  /// In counts. Infinite values and NaN are invalid.
  [[nodiscard]] RegionStatistics measure(const Band& band, const RunContext& context) const;
  /// Of a height x width map of doubles; infinite values and NaN are invalid.
  [[nodiscard]] RegionStatistics measure(const cv::Mat& map, const RunContext& context) const;

 private:
  /// Not a vector: that would first set all of them to 0, in one go.
  template <typename T, typename ReadRun>
  [[nodiscard]] std::unique_ptr<T[]> gathered(const RunContext& context, const ReadRun& read_run) const {
    auto values = std::make_unique_for_overwrite<T[]>(_starts.back());
    common::parallel_for(_runs.size(), [&](std::size_t stripe) {
      context.check();
      const std::vector<Run>& runs = _runs[stripe];
      for (std::size_t k = 0; k < runs.size(); ++k) {
        read_run(runs[k],
                 std::span<T>(values.get() + _places[stripe][k], static_cast<std::size_t>(runs[k].x1 - runs[k].x0)));
      }
    });
    return values;
  }
  template <typename T, typename PlaceOf>
  [[nodiscard]] std::vector<std::uint32_t> place_table(const Band& band, std::size_t size, const PlaceOf& place_of,
                                                       const RunContext& context) const;
  template <typename T>
  [[nodiscard]] RegionStatistics measure_counts(const Band& band, const RunContext& context) const;
  template <typename ReadRun>
  [[nodiscard]] RegionStatistics measure_values(const RunContext& context, const ReadRun& read_run) const;

  const RegionSet& _regions;
  std::vector<std::vector<Run>> _runs;            ///< by stripe
  std::vector<std::vector<std::size_t>> _places;  ///< by stripe: where a run's pixels stand in a list sorted by group
  std::vector<std::size_t> _starts;               ///< of each group in that list, and its end
  std::vector<Run> _runs_by_group;
  std::vector<std::size_t> _first_run;  ///< of each group in that list, and its end
};

}  // namespace orvexa::model
