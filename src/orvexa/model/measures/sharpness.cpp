#include "orvexa/model/measures/sharpness.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <span>

namespace orvexa::model {

namespace {

constexpr int blur_radius = 5;
/// Rows above and below that a row needs: Sobel's neighbour and the blur around it.
constexpr int margin = blur_radius + 1;

/// Sums of the pixels of one group.
struct Sums {
  std::int64_t n = 0;
  double laplacian = 0;
  double laplacian_squares = 0;
  std::array<double, 2> edges{};  ///< along columns, along rows
  std::array<double, 2> lost{};   ///< by blurring
  void add(const Sums& other) {
    n += other.n;
    laplacian += other.laplacian;
    laplacian_squares += other.laplacian_squares;
    for (std::size_t axis = 0; axis < 2; ++axis) {
      edges.at(axis) += other.edges.at(axis);
      lost.at(axis) += other.lost.at(axis);
    }
  }
};

/// Rows [y0 - margin, y1 + margin) of a band in counts, mirrored at the image's border (d c b a | a b c d), as doubles.
cv::Mat block_of(const Band& band, int y0, int y1) {
  const auto [height, width] = band.shape();
  cv::Mat block(y1 - y0 + 2 * margin, width, CV_64FC1);
  for (int row = 0; row < block.rows; ++row) {
    const int y = cv::borderInterpolate(y0 - margin + row, height, cv::BORDER_REFLECT);
    band.read_row(y, std::span(block.ptr<double>(row), static_cast<std::size_t>(width)));
  }
  return block;
}

/// A picture of the same size: mean of 11 pixels along an axis, without a value where one of them has none. (A running
/// sum, as a box filter keeps it, would never get rid of a NaN again.)
cv::Mat blurred(const cv::Mat& block, bool along_rows) {
  static const cv::Mat mean_of_11(1, 2 * blur_radius + 1, CV_64FC1, cv::Scalar(1.0 / (2 * blur_radius + 1)));
  static const cv::Mat itself(1, 1, CV_64FC1, cv::Scalar(1));
  cv::Mat out;
  cv::sepFilter2D(block, out, CV_64F, along_rows ? mean_of_11 : itself, along_rows ? itself : mean_of_11, {-1, -1}, 0,
                  cv::BORDER_REFLECT);
  return out;
}

cv::Mat sobel(const cv::Mat& block, bool along_rows) {
  cv::Mat out;
  cv::Sobel(block, out, CV_64F, along_rows ? 1 : 0, along_rows ? 0 : 1, 3, 1, 0, cv::BORDER_REFLECT);
  return out;
}

/// What is worked out for the rows of a block.
struct Maps {
  explicit Maps(const cv::Mat& block)
      : counts(block),
        edges{sobel(block, false), sobel(block, true)},
        edges_of_blurred{sobel(blurred(block, false), false), sobel(blurred(block, true), true)} {}

  void add_pixel(int row, int x, Sums& sums) const {
    const double* here = counts.ptr<double>(row);
    const double laplacian =
        counts.ptr<double>(row - 1)[x] + counts.ptr<double>(row + 1)[x] + here[x - 1] + here[x + 1] - 4 * here[x];
    std::array<double, 2> sharp{};
    std::array<double, 2> blurry{};
    for (std::size_t axis = 0; axis < 2; ++axis) {
      sharp.at(axis) = std::abs(edges.at(axis).ptr<double>(row)[x]);
      blurry.at(axis) = std::abs(edges_of_blurred.at(axis).ptr<double>(row)[x]);
    }
    if (!std::isfinite(laplacian + sharp[0] + sharp[1] + blurry[0] + blurry[1])) return;
    ++sums.n;
    sums.laplacian += laplacian;
    sums.laplacian_squares += laplacian * laplacian;
    for (std::size_t axis = 0; axis < 2; ++axis) {
      sums.edges.at(axis) += sharp.at(axis);
      sums.lost.at(axis) += std::max(0.0, sharp.at(axis) - blurry.at(axis));
    }
  }

  cv::Mat counts;
  std::array<cv::Mat, 2> edges;
  std::array<cv::Mat, 2> edges_of_blurred;
};

Sharpness sharpness_of(const Sums& sums) {
  Sharpness sharpness{.n = sums.n, .laplacian_variance = 0, .blur_effect = {}};
  if (sums.n == 0) return sharpness;
  const auto n = static_cast<double>(sums.n);
  const double mean = sums.laplacian / n;
  sharpness.laplacian_variance = std::max(0.0, sums.laplacian_squares / n - mean * mean);
  if (sums.edges[0] <= 0 || sums.edges[1] <= 0) return sharpness;
  sharpness.blur_effect =
      std::max((sums.edges[0] - sums.lost[0]) / sums.edges[0], (sums.edges[1] - sums.lost[1]) / sums.edges[1]);
  return sharpness;
}

void add_runs(const Band& band, std::span<const RegionPixels::Run> runs, std::span<Sums> partial) {
  if (runs.empty()) return;
  const auto [height, width] = band.shape();
  const int y0 = runs.front().y;
  const Maps maps(block_of(band, y0, runs.back().y + 1));
  for (const RegionPixels::Run& run : runs) {
    if (run.y == 0 || run.y == height - 1) continue;
    for (int x = std::max(run.x0, 1); x < std::min(run.x1, width - 1); ++x) {
      maps.add_pixel(run.y - y0 + margin, x, partial[run.group]);
    }
  }
}

}  // namespace

RegionSharpness measure_sharpness(const Band& band, const RegionPixels& pixels, const RunContext& context) {
  const std::vector<Sums> groups = pixels.reduce<Sums, Sums>(
      context,
      [&](std::span<const RegionPixels::Run> runs, std::span<Sums> partial) { add_runs(band, runs, partial); });
  RegionSharpness result;
  Sums whole;
  for (const Sums& sums : groups) whole.add(sums);
  result.whole = sharpness_of(whole);
  for (std::size_t k = 0; k < pixels.regions().regions().size(); ++k) result.regions.push_back(sharpness_of(groups[k]));
  return result;
}

}  // namespace orvexa::model
