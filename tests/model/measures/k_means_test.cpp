#include "orvexa/model/measures/k_means.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

PointList line(std::vector<double> numbers) {
  return {.dimensions = 1, .numbers = std::move(numbers)};
}

std::vector<double> sorted(PointList centres) {
  std::ranges::sort(centres.numbers);
  return centres.numbers;
}

// Groups 0, 1 and 10, 11, 12: means 0.5 and 11, squared distances 2 * 0.25 + 1 + 0 + 1 = 2.5.
TEST(KMeans, FindsTheMeansOfTheGroups) {
  const Clusters clusters = k_means(line({0, 10, 1, 11, 12}), {.k = 2}, {});
  EXPECT_EQ(sorted(clusters.centres), (std::vector<double>{0.5, 11}));
  EXPECT_NEAR(clusters.inertia, 2.5, 1e-15);
}

TEST(KMeans, OfNoPointOrOneValueHasAsManyCentresAsThereAreValues) {
  EXPECT_EQ(k_means(line({}), {.k = 3}, {}).centres.size(), 0u);
  EXPECT_EQ(sorted(k_means(line({7, 7, 7}), {.k = 3}, {}).centres), std::vector<double>{7});
  const Clusters two = k_means(line({7, 8, 7, 8}), {.k = 12}, {});
  EXPECT_EQ(sorted(two.centres), (std::vector<double>{7, 8}));
  EXPECT_EQ(two.inertia, 0);
}

TEST(KMeans, WithAsManyCentresAsValuesHasNoInertia) {
  const Clusters clusters = k_means(line({5, 1, 3, 1, 9}), {.k = 4}, {});
  EXPECT_EQ(sorted(clusters.centres), (std::vector<double>{1, 3, 5, 9}));
  EXPECT_EQ(clusters.inertia, 0);
}

TEST(KMeans, TakesTheFirstOfEquallyNearCentres) {
  const NearestCentre nearest = nearest_centre(line({4, 0, 2}), std::vector<double>{3});
  EXPECT_EQ(nearest.centre, 0u);
  EXPECT_EQ(nearest.squared_distance, 1);
}

/// 3 clouds of 20000 points in the plane.
PointList clouds(unsigned seed) {
  std::mt19937 random(seed);
  PointList points{.dimensions = 2, .numbers = {}};
  for (int i = 0; i < 60000; ++i) {
    for (int d = 0; d < 2; ++d) {
      const double noise = static_cast<double>(random()) / static_cast<double>(std::mt19937::max());
      points.numbers.push_back((i % 3) * (d == 0 ? 3.0 : -2.0) + noise);
    }
  }
  return points;
}

TEST(KMeans, GivesTheSameWithAnyNumberOfThreadsAndEveryTime) {
  const PointList points = clouds(5);
  std::optional<Clusters> first;
  for (const int threads : {1, 2, 3, 7, 1}) {
    const test::ThreadCount limit(threads);
    const Clusters clusters = k_means(points, {.k = 5, .seed = 77, .starts = 2}, {});
    if (!first) first = clusters;
    EXPECT_EQ(clusters.centres.numbers, first->centres.numbers);
    EXPECT_EQ(clusters.inertia, first->inertia);
  }
}

// A uniform cloud of side 1 has the variance 1 / 12 along each axis.
TEST(KMeans, FindsCloudsWhateverTheSeed) {
  const PointList points = clouds(6);
  for (const std::uint64_t seed : {0u, 1u, 2u, 99u}) {
    const Clusters clusters = k_means(points, {.k = 3, .seed = seed}, {});
    EXPECT_NEAR(clusters.inertia / static_cast<double>(points.size()), 2.0 / 12, 0.005) << "seed " << seed;
  }
}

TEST(KMeans, MoreCentresLeaveLessInertia) {
  const PointList points = clouds(7);
  double before = std::numeric_limits<double>::infinity();
  for (std::size_t k = 1; k <= 6; ++k) {
    const double inertia = k_means(points, {.k = k}, {}).inertia;
    EXPECT_LT(inertia, before) << k;
    before = inertia;
  }
}

// cv2.kmeans (OpenCV 4.6, 50 attempts, no tolerance) of these 40 numbers, numpy's default_rng(3).normal(0, 1, (20, 2))
// rounded to hundredths, as points of the plane: compactness.
TEST(KMeans, ReachesTheInertiaOfAnIndependentProgram) {
  const PointList points{
      .dimensions = 2,
      .numbers = {2.04,  -2.56, 0.42,  -0.57, -0.45, -0.22, -2.02, -0.23, -0.87, 3.32,  0.23,  -0.35, -0.28, -0.67,
                  -1.06, -0.39, 0.48,  -0.24, 0.96,  -0.2,  0.02,  1.55,  0.55,  -0.51, -0.18, 0.54,  1.94,  -0.27,
                  -0.24, 1.0,   -0.89, -0.29, 0.88,  0.58,  0.09,  0.67,  -2.83, 1.02,  -0.96, -1.67}};
  const std::pair<std::size_t, double> expected[] = {{2u, 33.938900}, {3u, 23.383933}, {4u, 16.820180}, {6u, 6.513278}};
  for (const auto& [k, inertia] : expected) {
    EXPECT_NEAR(k_means(points, {.k = k, .starts = 50}, {}).inertia, inertia, 1e-4) << k;
  }
}

TEST(KMeans, StopsWhenItIsCancelled) {
  common::CancelEvent event;
  event.set();
  EXPECT_THROW(static_cast<void>(k_means(clouds(8), {}, {.cancel_event = &event, .progress = {}})), CancelledError);
}

}  // namespace
}  // namespace orvexa::model
