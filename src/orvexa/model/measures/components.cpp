#include "orvexa/model/measures/components.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace orvexa::model {

namespace {

using Run = Components::Run;

enum class Side { set, not_set };

/// Runs that turn out to be one component (union-find with path halving). The root of a component is its first run.
class Forest {
 public:
  explicit Forest(std::size_t size) : _parent(size) { std::iota(_parent.begin(), _parent.end(), 0U); }
  std::size_t root(std::size_t node) {
    while (_parent[node] != node) {
      const std::uint32_t above = _parent[_parent[node]];
      _parent[node] = above;
      node = above;
    }
    return node;
  }
  void join(std::size_t a, std::size_t b) {
    a = root(a);
    b = root(b);
    _parent[std::max(a, b)] = static_cast<std::uint32_t>(std::min(a, b));
  }

 private:
  std::vector<std::uint32_t> _parent;
};

void append_runs(const std::uint8_t* row, int y, int width, Side side, std::vector<Run>& runs) {
  const std::uint8_t* const end = row + width;
  const auto next = [end](const std::uint8_t* from, int value) {
    const void* found = from == end ? nullptr : std::memchr(from, value, static_cast<std::size_t>(end - from));
    return found == nullptr ? end : static_cast<const std::uint8_t*>(found);
  };
  const int wanted = side == Side::set ? 255 : 0;
  for (const std::uint8_t* at = next(row, wanted); at != end; at = next(at, wanted)) {
    const std::uint8_t* const stop = next(at, 255 - wanted);
    runs.push_back({y, static_cast<int>(at - row), static_cast<int>(stop - row), 0});
    at = stop;
  }
}

/// The runs of all rows, found on several threads.
void find_runs(const cv::Mat& mask, Side side, const RunContext& context, Components& found) {
  const int height = mask.rows;
  const int step = stripe_height(mask.cols);
  std::vector<std::vector<Run>> stripes(static_cast<std::size_t>(stripe_count(height, mask.cols)));
  std::vector<std::size_t>& row_end = found.row_begin;
  row_end.assign(static_cast<std::size_t>(height) + 1, 0);
  for_each_stripe(height, mask.cols, context, [&](int y0, int y1) {
    std::vector<Run>& runs = stripes[static_cast<std::size_t>(y0 / step)];
    for (int y = y0; y < y1; ++y) {
      append_runs(mask.ptr<std::uint8_t>(y), y, mask.cols, side, runs);
      row_end[static_cast<std::size_t>(y) + 1] = runs.size();  // in the stripe
    }
  });
  std::size_t total = 0;
  for (const std::vector<Run>& runs : stripes) total += runs.size();
  found.runs.reserve(total);
  for (int y = 0; y < height; ++y) {
    std::vector<Run>& runs = stripes[static_cast<std::size_t>(y / step)];
    if (y % step == 0) {
      total = found.runs.size();
      found.runs.insert(found.runs.end(), runs.begin(), runs.end());
      runs = {};
    }
    row_end[static_cast<std::size_t>(y) + 1] += total;
  }
}

/// Joins the runs [here, here_end) with those of the row above, [above, here), that touch them.
/// @param reach  1 where corners join, else 0.
void join_rows(std::span<const Run> runs, std::size_t above, std::size_t here, std::size_t here_end, int reach,
               Forest& forest) {
  const std::size_t above_end = here;
  while (above < above_end && here < here_end) {
    const Run& upper = runs[above];
    const Run& lower = runs[here];
    if (upper.x0 < lower.x1 + reach && lower.x0 < upper.x1 + reach) forest.join(above, here);
    // The one that ends first touches nothing further: after it comes a gap.
    if (upper.x1 < lower.x1) {
      ++above;
    } else {
      ++here;
    }
  }
}

/// Numbers the roots in their order and adds every run to its component.
void number(Forest& forest, Components& found) {
  for (std::size_t k = 0; k < found.runs.size(); ++k) {
    Run& run = found.runs[k];
    const std::size_t root = forest.root(k);
    const PixelRect box{run.x0, run.y, run.x1, run.y + 1};
    if (root == k) {
      found.components.push_back({.area = 0, .box = box});
      run.label = static_cast<std::int32_t>(found.components.size());
    } else {
      run.label = found.runs[root].label;
    }
    Components::Component& component = found.components[static_cast<std::size_t>(run.label - 1)];
    component.area += run.x1 - run.x0;
    component.box = {std::min(component.box.x0, box.x0), component.box.y0, std::max(component.box.x1, box.x1), box.y1};
  }
}

void expect_connectivity(int connectivity) {
  if (connectivity != 4 && connectivity != 8) throw std::invalid_argument("Connectivity is 4 or 8.");
}

void join_and_number(int connectivity, const RunContext& context, Components& found) {
  Forest forest(found.runs.size());
  const int reach = connectivity == 8 ? 1 : 0;
  for (std::size_t y = 1; y + 1 < found.row_begin.size(); ++y) {
    context.check();
    join_rows(found.runs, found.row_begin[y - 1], found.row_begin[y], found.row_begin[y + 1], reach, forest);
  }
  number(forest, found);
}

Components label(const cv::Mat& mask, int connectivity, Side side, const RunContext& context) {
  expect_connectivity(connectivity);
  Components found;
  found.shape = {mask.rows, mask.cols};
  if (mask.empty()) {
    found.row_begin.assign(static_cast<std::size_t>(mask.rows) + 1, 0);
    return found;
  }
  if (mask.type() != CV_8UC1) throw std::invalid_argument("Components are labelled on one 8-bit channel.");
  find_runs(mask, side, context, found);
  join_and_number(connectivity, context, found);
  return found;
}

}  // namespace

cv::Mat Components::label_image(const RunContext& context) const {
  cv::Mat labels = cv::Mat(shape.height, shape.width, CV_32SC1);
  for_each_stripe(shape.height, shape.width, context, [&](int y0, int y1) {
    labels.rowRange(y0, y1).setTo(0);
    for (const Run& run : runs_of_rows(y0, y1)) {
      std::int32_t* row = labels.ptr<std::int32_t>(run.y);
      std::fill(row + run.x0, row + run.x1, run.label);
    }
  });
  return labels;
}

Components label_components(const cv::Mat& mask, int connectivity, const RunContext& context) {
  return label(mask, connectivity, Side::set, context);
}

Components label_components(const Mask& mask, int connectivity, const RunContext& context) {
  return label(mask.read_only(), connectivity, Side::set, context);
}

Components label_runs(Shape shape, std::vector<Run> runs, int connectivity, const RunContext& context) {
  expect_connectivity(connectivity);
  Components found;
  found.shape = shape;
  found.runs = std::move(runs);
  found.row_begin.assign(static_cast<std::size_t>(shape.height) + 1, 0);
  for (const Run& run : found.runs) ++found.row_begin[static_cast<std::size_t>(run.y) + 1];
  std::inclusive_scan(found.row_begin.begin(), found.row_begin.end(), found.row_begin.begin());
  join_and_number(connectivity, context, found);
  return found;
}

Components label_background(const cv::Mat& mask, int connectivity, const RunContext& context) {
  return label(mask, connectivity, Side::not_set, context);
}

}  // namespace orvexa::model
