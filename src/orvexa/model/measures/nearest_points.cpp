#include "orvexa/model/measures/nearest_points.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

namespace orvexa::model {

namespace {

constexpr std::size_t leaf_size = 12;

double squared_distance_of(const GroupedPoint& a, const GroupedPoint& b) {
  const double dx = a.x - b.x;
  const double dy = a.y - b.y;
  return dx * dx + dy * dy;
}

/// Nodes that are still to be looked at, the root first. A tree of halves is never deeper than 64.
class Waiting {
 public:
  [[nodiscard]] bool is_empty() const { return _count == 0; }
  void add(std::size_t node) { _nodes.at(_count++) = node; }
  std::size_t take() { return _nodes.at(--_count); }

 private:
  std::array<std::size_t, 128> _nodes{};
  std::size_t _count = 1;
};

}  // namespace

double NearestPoints::Node::squared_distance(const GroupedPoint& from) const {
  const double dx = std::max({0.0, x0 - from.x, from.x - x1});
  const double dy = std::max({0.0, y0 - from.y, from.y - y1});
  return dx * dx + dy * dy;
}

bool NearestPoints::Node::lies_within(const GroupedPoint& from, double squared_distance) const {
  const double dx = std::max(from.x - x0, x1 - from.x);
  const double dy = std::max(from.y - y0, y1 - from.y);
  return dx * dx + dy * dy <= squared_distance;
}

NearestPoints::NearestPoints(std::vector<GroupedPoint> points, const RunContext& context) : _points(std::move(points)) {
  if (_points.empty()) return;
  _nodes.reserve(4 * (_points.size() / leaf_size + 1));
  build(0, _points.size(), context);
}

void NearestPoints::build(std::size_t begin, std::size_t end, const RunContext& context) {
  if (end - begin > 1000) context.check();
  const GroupedPoint& first = _points[begin];
  Node node{.x0 = first.x,
            .y0 = first.y,
            .x1 = first.x,
            .y1 = first.y,
            .begin = begin,
            .end = end,
            .right = 0,
            .only_group = first.group};
  for (std::size_t k = begin; k < end; ++k) {
    const GroupedPoint& point = _points[k];
    node.x0 = std::min(node.x0, point.x);
    node.y0 = std::min(node.y0, point.y);
    node.x1 = std::max(node.x1, point.x);
    node.y1 = std::max(node.y1, point.y);
    if (point.group != first.group) node.only_group.reset();
  }
  const std::size_t own = _nodes.size();
  _nodes.push_back(node);
  if (end - begin <= leaf_size) return;
  const std::size_t middle = begin + (end - begin) / 2;
  const auto place = [&](std::size_t k) { return _points.begin() + static_cast<std::ptrdiff_t>(k); };
  // In an order without ties, so that the tree is the same with every library.
  if (node.x1 - node.x0 >= node.y1 - node.y0) {
    std::nth_element(place(begin), place(middle), place(end), [](const GroupedPoint& a, const GroupedPoint& b) {
      return std::tie(a.x, a.y, a.group) < std::tie(b.x, b.y, b.group);
    });
  } else {
    std::nth_element(place(begin), place(middle), place(end), [](const GroupedPoint& a, const GroupedPoint& b) {
      return std::tie(a.y, a.x, a.group) < std::tie(b.y, b.x, b.group);
    });
  }
  build(begin, middle, context);
  _nodes[own].right = _nodes.size();
  build(middle, end, context);
}

void NearestPoints::improve(const GroupedPoint& from, std::optional<Found>& best) const {
  if (_nodes.empty()) return;
  const auto is_worth_a_look = [&](std::size_t k) {
    const Node& node = _nodes[k];
    return node.only_group != from.group && (!best || node.squared_distance(from) <= best->squared_distance);
  };
  Waiting waiting;
  while (!waiting.is_empty()) {
    const std::size_t k = waiting.take();
    if (!is_worth_a_look(k)) continue;
    const Node& node = _nodes[k];
    if (node.right == 0) {
      for (std::size_t i = node.begin; i < node.end; ++i) {
        const GroupedPoint& point = _points[i];
        if (point.group == from.group) continue;
        const Found found{squared_distance_of(from, point), point.group};
        if (!best || std::tie(found.squared_distance, found.group) < std::tie(best->squared_distance, best->group)) {
          best = found;
        }
      }
      continue;
    }
    // The nearer child is looked at first.
    std::size_t near = k + 1;
    std::size_t far = node.right;
    if (_nodes[far].squared_distance(from) < _nodes[near].squared_distance(from)) std::swap(near, far);
    waiting.add(far);
    waiting.add(near);
  }
}

std::int64_t NearestPoints::others(const Node& node, std::uint32_t group) const {
  if (node.only_group == group) return 0;
  return std::count_if(_points.begin() + static_cast<std::ptrdiff_t>(node.begin),
                       _points.begin() + static_cast<std::ptrdiff_t>(node.end),
                       [group](const GroupedPoint& point) { return point.group != group; });
}

std::int64_t NearestPoints::count_within(const GroupedPoint& from, double distance) const {
  if (_nodes.empty()) return 0;
  const double limit = distance * distance;
  std::int64_t count = 0;
  Waiting waiting;
  while (!waiting.is_empty()) {
    const std::size_t k = waiting.take();
    const Node& node = _nodes[k];
    if (node.squared_distance(from) > limit) continue;
    if (node.lies_within(from, limit)) {
      count += others(node, from.group);
    } else if (node.right != 0) {
      waiting.add(k + 1);
      waiting.add(node.right);
    } else {
      count += std::count_if(_points.begin() + static_cast<std::ptrdiff_t>(node.begin),
                             _points.begin() + static_cast<std::ptrdiff_t>(node.end), [&](const GroupedPoint& point) {
                               return point.group != from.group && squared_distance_of(from, point) <= limit;
                             });
    }
  }
  return count;
}

}  // namespace orvexa::model
