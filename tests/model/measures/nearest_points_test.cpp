#include "orvexa/model/measures/nearest_points.h"

#include <gtest/gtest.h>

#include <random>
#include <tuple>

namespace orvexa::model {
namespace {

using Found = NearestPoints::Found;

double squared(const GroupedPoint& a, const GroupedPoint& b) {
  return (a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y);
}

std::vector<GroupedPoint> random_points(unsigned seed, std::size_t count, std::uint32_t groups, int size) {
  std::mt19937 random(seed);
  std::vector<GroupedPoint> points(count);
  for (GroupedPoint& point : points) {
    point.x = static_cast<double>(random() % static_cast<unsigned>(size));
    point.y = static_cast<double>(random() % static_cast<unsigned>(size));
    point.group = static_cast<std::uint32_t>(random() % groups);
  }
  return points;
}

// Small squares have many points in one place and at equal distances.
TEST(NearestPoints, AgreeWithALookAtEveryPair) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    const auto points = random_points(seed, 1 + seed * 7, 1 + seed % 9, seed % 2 == 0 ? 12 : 500);
    const NearestPoints tree(points);
    for (const GroupedPoint& from : points) {
      std::optional<Found> expected;
      std::int64_t within = 0;
      for (const GroupedPoint& other : points) {
        if (other.group == from.group) continue;
        const Found one{squared(from, other), other.group};
        if (!expected ||
            std::tie(one.squared_distance, one.group) < std::tie(expected->squared_distance, expected->group)) {
          expected = one;
        }
        if (one.squared_distance <= 25) ++within;
      }
      std::optional<Found> found;
      tree.improve(from, found);
      ASSERT_EQ(found.has_value(), expected.has_value());
      if (expected) {
        EXPECT_EQ(found->squared_distance, expected->squared_distance);
        EXPECT_EQ(found->group, expected->group);
      }
      EXPECT_EQ(tree.count_within(from, 5), within);
    }
  }
}

TEST(NearestPoints, AQuestionThatSeveralPointsAskKeepsTheBestAnswer) {
  const NearestPoints tree({{0, 0, 1}, {10, 0, 1}, {13, 0, 2}});
  std::optional<Found> best;
  tree.improve({0, 0, 1}, best);
  tree.improve({10, 0, 1}, best);
  tree.improve({0, 0, 1}, best);
  EXPECT_EQ(best.value().squared_distance, 9);
}

TEST(NearestPoints, WithoutPointsThereIsNoAnswer) {
  const NearestPoints tree({});
  std::optional<Found> found;
  tree.improve({1, 1, 0}, found);
  EXPECT_FALSE(found.has_value());
  EXPECT_EQ(tree.count_within({1, 1, 0}, 100), 0);
}

}  // namespace
}  // namespace orvexa::model
