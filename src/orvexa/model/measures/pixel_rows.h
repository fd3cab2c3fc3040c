#pragma once

#include <opencv2/core.hpp>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// Pixels [x0, x1) of row y.
struct PixelRun {
  int y = 0;
  int x0 = 0;
  int x1 = 0;
};

/// A set of pixels to be read row by row, as a picture or as a list of runs; it owns neither. What is measured from
/// runs costs nothing for the pixels between and within them.
class PixelRows {
 public:
  /// @param picture  CV_8UC1 of 0 and 255.
  PixelRows(const cv::Mat& picture) : _picture(picture) {}
  /// @param runs  in raster order; they must live as long as this.
  /// @param origin  the pixel that becomes (0, 0).
  PixelRows(std::span<const PixelRun> runs, cv::Point origin) : _runs(runs), _origin(origin) {}

  /// Calls `act(y, x0, x1)` for each run in raster order, with looks at the cancellation flag in between.
  template <typename Act>
  void for_each_run(const RunContext& context, const Act& act) const {
    for (int y = 0; y < _picture.rows; ++y) {
      context.check();
      for_each_run_of_row(_picture.ptr<std::uint8_t>(y), _picture.cols, [&](int x0, int x1) { act(y, x0, x1); });
    }
    for_each_piece(_runs.size(), context, [&](std::size_t begin, std::size_t end) {
      for (const PixelRun& run : _runs.subspan(begin, end - begin)) {
        act(run.y - _origin.y, run.x0 - _origin.x, run.x1 - _origin.x);
      }
    });
  }

 private:
  template <typename Act>
  static void for_each_run_of_row(const std::uint8_t* row, int width, const Act& act) {
    const std::uint8_t* const end = row + width;
    const std::uint8_t* at = row;
    while (at < end) {
      at = static_cast<const std::uint8_t*>(std::memchr(at, 255, static_cast<std::size_t>(end - at)));
      if (at == nullptr) return;
      const auto* stop = static_cast<const std::uint8_t*>(std::memchr(at, 0, static_cast<std::size_t>(end - at)));
      if (stop == nullptr) stop = end;
      act(static_cast<int>(at - row), static_cast<int>(stop - row));
      at = stop;
    }
  }

  cv::Mat _picture;
  std::span<const PixelRun> _runs;
  cv::Point _origin;
};

/// Whether every row from the first to the last has exactly one run, and each touches the one above over a side or a
/// corner: then the set is one 8-connected part without holes.
[[nodiscard]] inline bool is_one_run_a_row(std::span<const PixelRun> runs) {
  for (std::size_t k = 1; k < runs.size(); ++k) {
    const PixelRun& above = runs[k - 1];
    const PixelRun& here = runs[k];
    if (here.y != above.y + 1 || here.x0 > above.x1 || above.x0 > here.x1) return false;
  }
  return !runs.empty();
}

}  // namespace orvexa::model
