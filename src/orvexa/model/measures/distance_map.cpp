#include "orvexa/model/measures/distance_map.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <vector>

#include "orvexa/common/parallel.h"

namespace orvexa::model {

namespace {

/// Columns that one thread goes down and up at a time.
constexpr int strip_width = 256;
/// No pixel of the column is background.
constexpr std::int32_t none = std::numeric_limits<std::int32_t>::max();

/// One pixel further away than the pixel before.
std::int32_t one_more(std::int32_t distance) {
  return distance == none ? none : distance + 1;
}

/// Distances along the columns [x0, x1) to the nearest pixel that is not set.
/// @return whether there is one.
bool measure_columns(const cv::Mat& picture, int x0, int x1, const BackgroundSides& beyond, const RunContext& context,
                     cv::Mat& distances) {
  const int width = x1 - x0;
  const auto first = [width](bool is_background) {
    return std::vector<std::int32_t>(static_cast<std::size_t>(width), is_background ? 0 : none);
  };
  const std::vector<std::int32_t> above_all = first(beyond.top);
  const std::vector<std::int32_t> below_all = first(beyond.bottom);
  const std::int32_t* before = above_all.data();
  for (int y = 0; y < picture.rows; ++y) {
    if (y % strip_width == 0) context.check();
    const std::uint8_t* set = picture.ptr<std::uint8_t>(y) + x0;
    std::int32_t* here = distances.ptr<std::int32_t>(y) + x0;
    for (int x = 0; x < width; ++x) here[x] = set[x] == 0 ? 0 : one_more(before[x]);
    before = here;
  }
  before = below_all.data();
  for (int y = picture.rows - 1; y >= 0; --y) {
    if (y % strip_width == 0) context.check();
    std::int32_t* here = distances.ptr<std::int32_t>(y) + x0;
    for (int x = 0; x < width; ++x) here[x] = std::min(here[x], one_more(before[x]));
    before = here;
  }
  return std::any_of(before, before + width, [](std::int32_t distance) { return distance != none; });
}

/// The lower envelope of the parabolas (x - at)^2 + height along a row.
class Envelope {
 public:
  explicit Envelope(int width) : _width(width), _parabolas(static_cast<std::size_t>(width) + 2) {}

  void clear() { _count = 0; }

  /// @param at  greater than of any parabola before.
  void add(std::int64_t at, std::int64_t height) {
    const Parabola added{at, height, 0};
    while (_count > 0 && top().value(top().begin) > added.value(top().begin)) --_count;
    if (_count == 0) {
      _parabolas[_count++] = added;
      return;
    }
    // The last column where the parabola on top is not above the added one; not negative, because it is below at its
    // begin.
    const std::int64_t last = (at * at - top().at * top().at + height - top().height) / (2 * (at - top().at));
    if (last + 1 < _width) _parabolas[_count++] = {at, height, last + 1};
  }

  /// Writes the envelope's heights.
  /// @return the greatest of them.
  std::int64_t write(std::int32_t* row) const {
    std::int64_t greatest = 0;
    std::int64_t end = _width;
    for (std::size_t k = _count; k-- > 0;) {
      const Parabola& own = _parabolas[k];
      for (std::int64_t x = own.begin; x < end; ++x) {
        const std::int64_t height = own.value(x);
        greatest = std::max(greatest, height);
        row[x] = static_cast<std::int32_t>(height);
      }
      end = own.begin;
    }
    return greatest;
  }

 private:
  struct Parabola {
    std::int64_t at = 0;
    std::int64_t height = 0;
    std::int64_t begin = 0;  ///< the first column where it is the lowest
    [[nodiscard]] std::int64_t value(std::int64_t x) const { return (x - at) * (x - at) + height; }
  };
  [[nodiscard]] const Parabola& top() const { return _parabolas[_count - 1]; }

  std::int64_t _width;
  std::vector<Parabola> _parabolas;
  std::size_t _count = 0;
};

/// Distances along the column become squared distances in the plane.
/// @return the greatest of the row.
std::int64_t measure_row(const BackgroundSides& beyond, int width, Envelope& envelope, std::int32_t* row) {
  envelope.clear();
  if (beyond.left) envelope.add(-1, 0);
  for (int x = 0; x < width; ++x) {
    if (row[x] != none) envelope.add(x, std::int64_t{row[x]} * row[x]);
  }
  if (beyond.right) envelope.add(width, 0);
  return envelope.write(row);
}

}  // namespace

BackgroundSides background_sides(const PixelRect& box, Shape image) {
  return {.left = box.x0 > 0, .top = box.y0 > 0, .right = box.x1 < image.width, .bottom = box.y1 < image.height};
}

std::optional<cv::Mat> squared_distance_map(const cv::Mat& picture, const RunContext& context,
                                            const BackgroundSides& beyond) {
  if (picture.empty()) return {};
  if (picture.type() != CV_8UC1) throw std::invalid_argument("Distances are measured on one 8-bit channel.");
  cv::Mat distances(picture.size(), CV_32SC1);
  const int width = picture.cols;
  std::atomic<bool> has_background = beyond.left || beyond.right;
  common::parallel_for(static_cast<std::size_t>((width + strip_width - 1) / strip_width), [&](std::size_t strip) {
    const int x0 = static_cast<int>(strip) * strip_width;
    if (measure_columns(picture, x0, std::min(width, x0 + strip_width), beyond, context, distances)) {
      has_background = true;
    }
  });
  if (!has_background) return {};
  std::atomic<bool> is_too_far = false;
  for_each_stripe(picture.rows, width, context, [&](int y0, int y1) {
    Envelope envelope(width);
    for (int y = y0; y < y1; ++y) {
      if (measure_row(beyond, width, envelope, distances.ptr<std::int32_t>(y)) >= none) is_too_far = true;
    }
  });
  if (is_too_far) throw std::runtime_error("A pixel of the mask is more than 46340 pixels away from its background.");
  return distances;
}

}  // namespace orvexa::model
