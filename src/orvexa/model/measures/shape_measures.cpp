#include "orvexa/model/measures/shape_measures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>
#include <stdexcept>

namespace orvexa::model {

namespace {

/// Calls `run(x0, x1)` for each run of set pixels of a row.
template <typename Run>
void for_each_run(const std::uint8_t* row, int width, Run run) {
  const std::uint8_t* const end = row + width;
  const std::uint8_t* at = row;
  while (at < end) {
    at = static_cast<const std::uint8_t*>(std::memchr(at, 255, static_cast<std::size_t>(end - at)));
    if (at == nullptr) return;
    const auto* stop = static_cast<const std::uint8_t*>(std::memchr(at, 0, static_cast<std::size_t>(end - at)));
    if (stop == nullptr) stop = end;
    run(static_cast<int>(at - row), static_cast<int>(stop - row));
    at = stop;
  }
}

std::int64_t cross(cv::Point origin, cv::Point a, cv::Point b) {
  return std::int64_t{a.x - origin.x} * (b.y - origin.y) - std::int64_t{a.y - origin.y} * (b.x - origin.x);
}

std::int64_t squared_distance(cv::Point a, cv::Point b) {
  const std::int64_t dx = a.x - b.x;
  const std::int64_t dy = a.y - b.y;
  return dx * dx + dy * dy;
}

}  // namespace

std::int64_t pixel_area(const cv::Mat& picture) {
  return picture.empty() ? 0 : cv::countNonZero(picture);
}

double crofton_perimeter(const cv::Mat& picture, const RunContext& context) {
  const auto width = static_cast<std::size_t>(picture.cols);
  // Rows with one background pixel on either side, so that the loop below has no special cases.
  std::vector<std::uint8_t> above(width + 2, 0);
  std::vector<std::uint8_t> here(width + 2, 0);
  std::int64_t straight = 0;
  std::int64_t diagonal = 0;
  for (int y = 0; y < picture.rows; ++y) {
    context.check();
    std::memcpy(here.data() + 1, picture.ptr<std::uint8_t>(y), width);
    std::int32_t entered_straight = 0;
    std::int32_t entered_diagonal = 0;
    for (std::size_t x = 1; x <= width; ++x) {
      const int set = here[x] & 1;
      entered_straight += (set & ~here[x - 1]) + (set & ~above[x]);
      entered_diagonal += (set & ~above[x - 1]) + (set & ~above[x + 1]);
    }
    straight += entered_straight;
    diagonal += entered_diagonal;
    std::swap(above, here);
  }
  return std::numbers::pi / 4 * (static_cast<double>(straight) + static_cast<double>(diagonal) / std::numbers::sqrt2);
}

double chain_perimeter(const cv::Mat& picture, const RunContext& context) {
  const auto width = static_cast<std::size_t>(picture.cols);
  // weight_class[straight neighbours][diagonal neighbours] of a border pixel: 1 = length 1, 2 = sqrt(2), 3 = the mean
  // of both, 0 = none.
  static constexpr int weight_class[5][5] = {
      {0, 0, 2, 0, 0}, {0, 3, 3, 2, 0}, {1, 1, 1, 0, 0}, {1, 1, 1, 0, 0}, {0, 0, 0, 0, 0}};
  std::int64_t counts[4] = {0, 0, 0, 0};
  // The last three rows of the picture and of its border, with one background pixel on either side. A row of the border
  // is known once the row of the picture below it is read, and is counted once the border's next row is known.
  using Rows = std::array<std::vector<std::uint8_t>, 3>;
  const std::vector<std::uint8_t> blank(width + 2, 0);
  Rows rows{blank, blank, blank};
  Rows border{blank, blank, blank};
  const auto move_up = [&](Rows& three) {
    std::rotate(three.begin(), three.begin() + 1, three.end());
    three[2] = blank;
  };
  for (int y = 0; y < picture.rows + 2; ++y) {
    context.check();
    move_up(rows);
    move_up(border);
    if (y < picture.rows) std::memcpy(rows[2].data() + 1, picture.ptr<std::uint8_t>(y), width);
    for (std::size_t x = 1; x <= width; ++x) {
      const int inner = rows[0][x] & rows[2][x] & rows[1][x - 1] & rows[1][x + 1];
      border[2][x] = static_cast<std::uint8_t>(rows[1][x] & ~inner & 1);
    }
    for (std::size_t x = 1; x <= width; ++x) {
      if (border[1][x] == 0) continue;
      const int side = border[0][x] + border[2][x] + border[1][x - 1] + border[1][x + 1];
      const int corner = border[0][x - 1] + border[0][x + 1] + border[2][x - 1] + border[2][x + 1];
      ++counts[weight_class[side][corner]];
    }
  }
  return static_cast<double>(counts[1]) + static_cast<double>(counts[2]) * std::numbers::sqrt2 +
         static_cast<double>(counts[3]) * (1 + std::numbers::sqrt2) / 2;
}

CornerHull corner_hull(const cv::Mat& picture, const RunContext& context) {
  // On the line between two rows of pixels only the outermost corners of the pixels that touch it can be on the hull.
  std::vector<cv::Point> left;
  std::vector<cv::Point> right;
  const auto add = [&](int y, int x0, int x1) {
    if (!left.empty() && left.back().y == y) {
      left.back().x = std::min(left.back().x, x0);
      right.back().x = std::max(right.back().x, x1);
    } else {
      left.emplace_back(x0, y);
      right.emplace_back(x1, y);
    }
  };
  for (int y = 0; y < picture.rows; ++y) {
    context.check();
    int first = picture.cols;
    int last = -1;
    for_each_run(picture.ptr<std::uint8_t>(y), picture.cols, [&](int x0, int x1) {
      first = std::min(first, x0);
      last = x1;
    });
    if (last < 0) continue;
    add(y, first, last);
    add(y + 1, first, last);
  }
  CornerHull hull;
  if (left.empty()) return hull;
  // Down the left side, then up the right side; a vertex that is not a left turn (y points down) is not on the hull.
  std::vector<cv::Point>& vertices = hull.vertices;
  const auto push = [&vertices](cv::Point corner, std::size_t fixed) {
    while (vertices.size() >= fixed + 2 && cross(vertices[vertices.size() - 2], vertices.back(), corner) >= 0) {
      vertices.pop_back();
    }
    vertices.push_back(corner);
  };
  for (const cv::Point& corner : left) push(corner, 0);
  const std::size_t bottom = vertices.size();
  for (auto corner = right.rbegin(); corner != right.rend(); ++corner) push(*corner, bottom);
  return hull;
}

double CornerHull::area() const {
  std::int64_t twice = 0;
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    const cv::Point& a = vertices[i];
    const cv::Point& b = vertices[(i + 1) % vertices.size()];
    twice += std::int64_t{a.x} * b.y - std::int64_t{b.x} * a.y;
  }
  return static_cast<double>(std::abs(twice)) / 2;
}

double CornerHull::perimeter() const {
  double length = 0;
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    length += std::sqrt(static_cast<double>(squared_distance(vertices[i], vertices[(i + 1) % vertices.size()])));
  }
  return length;
}

// A hull on whole coordinates below n has at most of the order of n^(2/3) vertices, so that looking at every pair is
// cheap and leaves nothing to get wrong.
double CornerHull::max_feret() const {
  std::int64_t longest = 0;
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    for (std::size_t j = i + 1; j < vertices.size(); ++j) {
      longest = std::max(longest, squared_distance(vertices[i], vertices[j]));
    }
  }
  return std::sqrt(static_cast<double>(longest));
}

double CornerHull::min_feret() const {
  double least = 0;
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    const cv::Point& a = vertices[i];
    const cv::Point& b = vertices[(i + 1) % vertices.size()];
    std::int64_t farthest = 0;
    for (const cv::Point& corner : vertices) farthest = std::max(farthest, std::abs(cross(a, b, corner)));
    const double distance = static_cast<double>(farthest) / std::sqrt(static_cast<double>(squared_distance(a, b)));
    if (i == 0 || distance < least) least = distance;
  }
  return least;
}

EllipseFit fit_ellipse(const cv::Mat& picture, const RunContext& context) {
  std::int64_t n = 0;
  std::int64_t sum_x = 0;
  std::int64_t sum_y = 0;
  std::int64_t sum_xx = 0;
  std::int64_t sum_yy = 0;
  std::int64_t sum_xy = 0;
  // Sums over 0..k-1: k(k-1)/2 and (k-1)k(2k-1)/6.
  const auto first_powers = [](std::int64_t k) { return k * (k - 1) / 2; };
  const auto second_powers = [](std::int64_t k) { return (k - 1) * k * (2 * k - 1) / 6; };
  for (int y = 0; y < picture.rows; ++y) {
    context.check();
    std::int64_t row_n = 0;
    std::int64_t row_x = 0;
    for_each_run(picture.ptr<std::uint8_t>(y), picture.cols, [&](int x0, int x1) {
      row_n += x1 - x0;
      row_x += first_powers(x1) - first_powers(x0);
      sum_xx += second_powers(x1) - second_powers(x0);
    });
    n += row_n;
    sum_x += row_x;
    sum_y += row_n * y;
    sum_yy += row_n * y * y;
    sum_xy += row_x * y;
  }
  if (n == 0) throw std::invalid_argument("A set without pixels has no shape.");
  const auto count = static_cast<double>(n);
  // About the whole pixel nearest to the centroid, where the sums are still whole numbers and nothing cancels.
  const std::int64_t near_x = (sum_x + n / 2) / n;
  const std::int64_t near_y = (sum_y + n / 2) / n;
  sum_xx += near_x * (near_x * n - 2 * sum_x);
  sum_yy += near_y * (near_y * n - 2 * sum_y);
  sum_xy += near_x * near_y * n - near_x * sum_y - near_y * sum_x;
  const double rest_x = static_cast<double>(sum_x - near_x * n) / count;
  const double rest_y = static_cast<double>(sum_y - near_y * n) / count;
  EllipseFit fit;
  fit.centroid_x = static_cast<double>(near_x) + rest_x;
  fit.centroid_y = static_cast<double>(near_y) + rest_y;
  const double var_x = static_cast<double>(sum_xx) / count - rest_x * rest_x;
  const double var_y = static_cast<double>(sum_yy) / count - rest_y * rest_y;
  const double cov = static_cast<double>(sum_xy) / count - rest_x * rest_y;
  const double mean = (var_x + var_y) / 2;
  const double half_range = std::hypot((var_x - var_y) / 2, cov);
  const double larger = std::max(0.0, mean + half_range);
  const double smaller = std::max(0.0, mean - half_range);
  fit.major_axis = 4 * std::sqrt(larger);
  fit.minor_axis = 4 * std::sqrt(smaller);
  fit.eccentricity = larger > 0 ? std::sqrt(1 - smaller / larger) : 0;
  return fit;
}

double ShapeMeasures::solidity() const {
  return static_cast<double>(area) / hull_area;
}

double ShapeMeasures::circularity() const {
  return 4 * std::numbers::pi * static_cast<double>(area) / (perimeter * perimeter);
}

ShapeMeasures measure_shape(const cv::Mat& picture, const RunContext& context) {
  ShapeMeasures measures;
  measures.ellipse = fit_ellipse(picture, context);
  measures.area = pixel_area(picture);
  measures.perimeter = crofton_perimeter(picture, context);
  const CornerHull hull = corner_hull(picture, context);
  measures.hull_area = hull.area();
  measures.hull_perimeter = hull.perimeter();
  measures.max_feret = hull.max_feret();
  measures.min_feret = hull.min_feret();
  return measures;
}

}  // namespace orvexa::model
