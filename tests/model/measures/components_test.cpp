#include "orvexa/model/measures/components.h"

#include <gtest/gtest.h>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

using test::mask;

bool operator==(const Components::Component& a, const Components::Component& b) {
  return a.area == b.area && a.box == b.box;
}

TEST(LabelComponents, NumbersInTheRasterOrderOfFirstPixels) {
  const Components found = label_components(mask({
      "..#.#",
      "#.#.#",
      "#.###",
  }));
  // First pixels: (row 0, column 2) and (row 1, column 0); the right arm joins the first at the bottom.
  ASSERT_EQ(found.components.size(), 2u);
  EXPECT_EQ(found.components[0].area, 7);
  EXPECT_EQ(found.components[0].box, (PixelRect{2, 0, 5, 3}));
  EXPECT_EQ(found.components[1].area, 2);
  EXPECT_EQ(found.components[1].box, (PixelRect{0, 1, 1, 3}));
  const cv::Mat labels = found.label_image();
  EXPECT_EQ(labels.at<std::int32_t>(0, 4), 1);
  EXPECT_EQ(labels.at<std::int32_t>(2, 0), 2);
  EXPECT_EQ(labels.at<std::int32_t>(0, 0), 0);
}

TEST(LabelComponents, JoinsCornersOnlyWithEightNeighbours) {
  const Mask diagonal = mask({"#.", ".#"});
  EXPECT_EQ(label_components(diagonal, 8).components.size(), 1u);
  EXPECT_EQ(label_components(diagonal, 4).components.size(), 2u);
  EXPECT_THROW(static_cast<void>(label_components(diagonal, 6)), std::invalid_argument);
}

TEST(LabelComponents, OfNothingAreNone) {
  EXPECT_TRUE(label_components(Mask::empty({3, 4})).components.empty());
  EXPECT_TRUE(label_components(cv::Mat()).components.empty());
  EXPECT_EQ(label_components(Mask::full({3, 4})).components.size(), 1u);
}

TEST(LabelComponents, HaveTheirRunsInRasterOrderWithTheRowsTheyBeginIn) {
  const Components found = label_components(mask({
      "##.#",
      "....",
      "#.##",
  }));
  EXPECT_EQ(found.shape, (Shape{3, 4}));
  EXPECT_EQ(found.row_begin, (std::vector<std::size_t>{0, 2, 2, 4}));
  ASSERT_EQ(found.runs_of_rows(0, 3).size(), 4u);
  const Components::Run& last = found.runs_of_rows(2, 3)[1];
  EXPECT_EQ((std::vector{last.y, last.x0, last.x1, last.label}), (std::vector{2, 2, 4, 4}));
}

struct Flooded {
  std::vector<Components::Component> components;
  cv::Mat labels;
};

/// Flood fill from each pixel in raster order: slow and obvious.
Flooded flooded(const Mask& mask, int connectivity) {
  const Shape shape = mask.shape();
  Flooded result;
  result.labels = cv::Mat(shape.height, shape.width, CV_32SC1, cv::Scalar(0));
  for (int y = 0; y < shape.height; ++y) {
    for (int x = 0; x < shape.width; ++x) {
      if (!mask.at(y, x) || result.labels.at<std::int32_t>(y, x) != 0) continue;
      Components::Component component{.area = 0, .box = {x, y, x + 1, y + 1}};
      const auto label = static_cast<std::int32_t>(result.components.size() + 1);
      std::vector<std::pair<int, int>> open{{y, x}};
      result.labels.at<std::int32_t>(y, x) = label;
      while (!open.empty()) {
        const auto [cy, cx] = open.back();
        open.pop_back();
        ++component.area;
        component.box = {std::min(component.box.x0, cx), std::min(component.box.y0, cy),
                         std::max(component.box.x1, cx + 1), std::max(component.box.y1, cy + 1)};
        for (int dy = -1; dy <= 1; ++dy) {
          for (int dx = -1; dx <= 1; ++dx) {
            if (connectivity == 4 && dx != 0 && dy != 0) continue;
            const int ny = cy + dy;
            const int nx = cx + dx;
            if (ny < 0 || nx < 0 || ny >= shape.height || nx >= shape.width) continue;
            if (!mask.at(ny, nx) || result.labels.at<std::int32_t>(ny, nx) != 0) continue;
            result.labels.at<std::int32_t>(ny, nx) = label;
            open.emplace_back(ny, nx);
          }
        }
      }
      result.components.push_back(component);
    }
  }
  return result;
}

void expect_same(const Components& actual, const Flooded& expected) {
  ASSERT_EQ(actual.components.size(), expected.components.size());
  for (std::size_t i = 0; i < actual.components.size(); ++i) {
    ASSERT_TRUE(actual.components[i] == expected.components[i]) << "component " << i + 1;
  }
  EXPECT_EQ(cv::norm(actual.label_image(), expected.labels, cv::NORM_INF), 0);
}

TEST(LabelComponents, MatchAFloodFillOnRandomMasks) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    const Mask noise = test::random_mask(seed, 1 + int(seed) % 13, 1 + int(seed * 7) % 31, 0.3 + 0.01 * (seed % 40));
    const Mask rest(cv::Mat(255 - noise.read_only()));
    for (const int connectivity : {4, 8}) {
      expect_same(label_components(noise, connectivity), flooded(noise, connectivity));
      expect_same(label_background(noise.read_only(), connectivity), flooded(rest, connectivity));
    }
  }
}

TEST(LabelRuns, GiveTheComponentsOfThePictureTheyWereTakenFrom) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    SCOPED_TRACE(seed);
    const Mask mask = test::random_mask(seed, 20, 31, 0.4);
    for (const int connectivity : {4, 8}) {
      const Components expected = label_components(mask, connectivity);
      std::vector<Components::Run> runs = expected.runs;
      for (Components::Run& run : runs) run.label = 0;
      const Components found = label_runs(mask.shape(), std::move(runs), connectivity);
      EXPECT_EQ(cv::countNonZero(found.label_image() != expected.label_image()), 0);
      EXPECT_EQ(found.components.size(), expected.components.size());
      EXPECT_EQ(found.row_begin, expected.row_begin);
    }
  }
  EXPECT_TRUE(label_runs({3, 4}, {}, 8).components.empty());
  EXPECT_THROW(static_cast<void>(label_runs({3, 4}, {}, 6)), std::invalid_argument);
}

TEST(LabelComponents, AreJoinedAtTheSeamsOfStripesWithAnyNumberOfThreads) {
  // 9 rows of 120,000 pixels are stripes of 2 rows: most components lie across a seam.
  const Mask noise = test::random_mask(3, 9, 120'000, 0.45);
  ASSERT_EQ(stripe_count(9, 120'000), 5);
  for (const int connectivity : {4, 8}) {
    const Flooded expected = flooded(noise, connectivity);
    for (const int threads : {1, 2, 3, 7}) {
      SCOPED_TRACE(testing::Message() << connectivity << " neighbours, " << threads << " threads");
      const test::ThreadCount limit(threads);
      expect_same(label_components(noise, connectivity), expected);
    }
  }
}

TEST(LabelComponents, EndOnceCancelled) {
  common::CancelEvent cancel;
  cancel.set();
  EXPECT_THROW(static_cast<void>(label_components(Mask::full({3, 3}), 8, {.cancel_event = &cancel, .progress = {}})),
               CancelledError);
}

}  // namespace
}  // namespace orvexa::model
