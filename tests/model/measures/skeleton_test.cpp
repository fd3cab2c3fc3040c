#include "orvexa/model/measures/skeleton.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numbers>

#include "orvexa/model/measures/components.h"
#include "support/captures.h"
#include "support/counting_event.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using testing::ElementsAre;

Skeleton skeleton_of(const std::vector<std::string>& rows, double prune = 0) {
  return find_skeleton(test::mask(rows).read_only(), prune);
}

std::vector<std::string> drawing(const Skeleton& skeleton, Shape shape) {
  std::vector<std::string> rows(static_cast<std::size_t>(shape.height),
                                std::string(static_cast<std::size_t>(shape.width), '.'));
  for (const cv::Point& pixel : skeleton.pixels) {
    rows[static_cast<std::size_t>(pixel.y)][static_cast<std::size_t>(pixel.x)] = '#';
  }
  return rows;
}

/// The half-steps as the paper writes them, every pixel looked at in each of them.
cv::Mat thinned_by_the_paper(cv::Mat picture) {
  const auto at = [&](int y, int x) {
    return y >= 0 && x >= 0 && y < picture.rows && x < picture.cols && picture.at<std::uint8_t>(y, x) != 0 ? 1 : 0;
  };
  bool has_changed = true;
  while (has_changed) {
    has_changed = false;
    for (const int step : {0, 1}) {
      std::vector<cv::Point> gone;
      for (int y = 0; y < picture.rows; ++y) {
        for (int x = 0; x < picture.cols; ++x) {
          if (at(y, x) == 0) continue;
          const int p[8] = {at(y - 1, x), at(y - 1, x + 1), at(y, x + 1), at(y + 1, x + 1),
                            at(y + 1, x), at(y + 1, x - 1), at(y, x - 1), at(y - 1, x - 1)};
          int count = 0;
          int rises = 0;
          for (int k = 0; k < 8; ++k) {
            count += p[k];
            rises += p[k] == 0 && p[(k + 1) % 8] == 1 ? 1 : 0;
          }
          const bool first = p[0] * p[2] * p[4] == 0 && p[2] * p[4] * p[6] == 0;
          const bool second = p[0] * p[2] * p[6] == 0 && p[0] * p[4] * p[6] == 0;
          if (count >= 2 && count <= 6 && rises == 1 && (step == 0 ? first : second)) gone.emplace_back(x, y);
        }
      }
      // A block of four that stands alone: its upper left pixel stays.
      std::erase_if(gone, [&](cv::Point point) {
        int around = 0;
        for (int dy = -1; dy <= 2; ++dy) {
          for (int dx = -1; dx <= 2; ++dx) around += at(point.y + dy, point.x + dx);
        }
        return around == 4 && at(point.y, point.x + 1) + at(point.y + 1, point.x) + at(point.y + 1, point.x + 1) == 3;
      });
      for (const cv::Point& point : gone) picture.at<std::uint8_t>(point) = 0;
      has_changed = has_changed || !gone.empty();
    }
  }
  return picture;
}

TEST(Skeleton, OfNothingIsNothingAndOfOnePixelItself) {
  const Skeleton none = skeleton_of({"...", "..."});
  EXPECT_TRUE(none.pixels.empty());
  EXPECT_EQ(none.branches + none.ends + none.junctions, 0);
  EXPECT_TRUE(find_skeleton(cv::Mat(), 0).pixels.empty());
  const Skeleton one = skeleton_of({"#"});
  EXPECT_THAT(one.pixels, ElementsAre(cv::Point(0, 0)));
  EXPECT_EQ(one.length, 0);
  EXPECT_EQ(one.branches, 1);
  EXPECT_EQ(one.ends, 0);
}

TEST(Skeleton, ABlockThatStandsAloneKeepsOnePixel) {
  EXPECT_THAT(skeleton_of({"....", ".##.", ".##.", "...."}).pixels, ElementsAre(cv::Point(1, 1)));
}

TEST(Skeleton, EqualsThePapersHalfStepsOnRandomPixels) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    const double share = seed % 4 == 0 ? 0.5 : seed % 4 == 1 ? 0.7 : seed % 4 == 2 ? 0.9 : 0.98;
    const Mask mask = test::random_mask(seed, 5 + static_cast<int>(seed % 30), 33, share);
    const Skeleton found = find_skeleton(mask.read_only(), 0);
    const Mask expected(thinned_by_the_paper(mask.read_only().clone()));
    EXPECT_EQ(drawing(found, mask.shape()), test::drawing(expected));
  }
}

TEST(Skeleton, NoPartOfASetVanishesOrFallsApart) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    const Mask mask = test::random_mask(seed, 40, 50, 0.2 + 0.013 * seed);
    cv::Mat lines = cv::Mat::zeros(40, 50, CV_8UC1);
    for (const cv::Point& pixel : find_skeleton(mask.read_only(), 0).pixels) lines.at<std::uint8_t>(pixel) = 255;
    EXPECT_EQ(label_components(lines).components.size(), label_components(mask).components.size());
  }
}

// A row of 5 is its own skeleton: 4 steps. On the diagonal 4 steps of sqrt(2).
TEST(Skeleton, LengthsCountOneOverASideAndTheRootOfTwoOverACorner) {
  const Skeleton row = skeleton_of({"#####"});
  EXPECT_EQ(row.length, 4);
  EXPECT_EQ(row.ends, 2);
  EXPECT_EQ(row.branches, 1);
  EXPECT_EQ(row.junctions, 0);
  const Skeleton diagonal = skeleton_of({"#....", ".#...", "..#..", "...#.", "....#"});
  EXPECT_DOUBLE_EQ(diagonal.length, 4 * std::numbers::sqrt2);
  EXPECT_EQ(diagonal.ends, 2);
}

// Four arms of 3 pixels meet in one: 12 steps.
TEST(Skeleton, ACrossHasOneJunctionAndFourBranches) {
  const std::vector<std::string> cross{"...#...", "...#...", "...#...", "#######", "...#...", "...#...", "...#..."};
  const Skeleton found = skeleton_of(cross);
  EXPECT_EQ(drawing(found, {7, 7}), cross);
  EXPECT_EQ(found.junctions, 1);
  EXPECT_EQ(found.branches, 4);
  EXPECT_EQ(found.ends, 4);
  EXPECT_EQ(found.length, 12);
}

// A rhombus of 8 pixels: 8 diagonal steps, no end, one closed branch.
TEST(Skeleton, AClosedLineIsOneBranchWithoutEnds) {
  const Skeleton ring = skeleton_of({"..#..", ".#.#.", "#...#", ".#.#.", "..#.."});
  EXPECT_EQ(ring.branches, 1);
  EXPECT_EQ(ring.ends, 0);
  EXPECT_EQ(ring.junctions, 0);
  EXPECT_DOUBLE_EQ(ring.length, 8 * std::numbers::sqrt2);
}

// A row of 9 with a spur of 2 pixels in its middle: the spur is 2 long. Pruned by less it stays.
TEST(Skeleton, PruningTakesShortLinesFromEndsOffAndNoOthers) {
  const std::vector<std::string> with_spur{"....#....", "....#....", "#########"};
  EXPECT_EQ(skeleton_of(with_spur, 1.9).ends, 3);
  const Skeleton pruned = skeleton_of(with_spur, 2);
  EXPECT_EQ(drawing(pruned, {3, 9}), (std::vector<std::string>{".........", ".........", "#########"}));
  EXPECT_EQ(pruned.length, 8);
  EXPECT_EQ(pruned.junctions, 0);
  EXPECT_EQ(pruned.branches, 1);
  // A line without a junction is no spur, however short.
  EXPECT_EQ(skeleton_of({"###"}, 10000).length, 2);
}

TEST(Skeleton, ACancelledRunStops) {
  common::CancelEvent event;
  event.set();
  EXPECT_THROW(
      static_cast<void>(find_skeleton(Mask::full({9, 9}).read_only(), 0, {.cancel_event = &event, .progress = {}})),
      CancelledError);
  EXPECT_THROW(static_cast<void>(find_skeleton(cv::Mat(2, 2, CV_32FC1), 0)), std::invalid_argument);
}

}  // namespace
}  // namespace orvexa::model
