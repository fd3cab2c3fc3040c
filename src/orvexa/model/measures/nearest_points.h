#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// A point of a group of points.
struct GroupedPoint {
  double x = 0;
  double y = 0;
  std::uint32_t group = 0;
};

/// Points sorted into a tree, to be asked for the nearest one of another group: in about the logarithm of their number,
/// however unequal the groups are. Questions may be asked by several threads.
/// Source: J. H. Friedman, J. L. Bentley, R. A. Finkel, An algorithm for finding best matches in logarithmic expected
/// time, ACM Transactions on Mathematical Software 3(3), 1977, 209-226, doi:10.1145/355744.355745.
class NearestPoints {
 public:
  explicit NearestPoints(std::vector<GroupedPoint> points, const RunContext& context = {});

  struct Found {
    double squared_distance = 0;
    std::uint32_t group = 0;
  };
  /// The nearest point of another group than the asking one; of several groups at the same distance the first.
  /// @param best  the answer so far, for a question that several points ask together.
  void improve(const GroupedPoint& from, std::optional<Found>& best) const;

  /// How many points of other groups are not farther away than that.
  [[nodiscard]] std::int64_t count_within(const GroupedPoint& from, double distance) const;

 private:
  /// A part of the points with the box around them. The left child follows its parent.
  struct Node {
    double x0 = 0;
    double y0 = 0;
    double x1 = 0;
    double y1 = 0;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::size_t right = 0;  ///< the other child; 0 = a leaf
    std::optional<std::uint32_t> only_group;

    [[nodiscard]] double squared_distance(const GroupedPoint& from) const;
    [[nodiscard]] bool lies_within(const GroupedPoint& from, double squared_distance) const;
  };

  void build(std::size_t begin, std::size_t end, const RunContext& context);
  [[nodiscard]] std::int64_t others(const Node& node, std::uint32_t group) const;

  std::vector<GroupedPoint> _points;
  std::vector<Node> _nodes;
};

}  // namespace orvexa::model
