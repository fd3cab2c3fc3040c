#include "orvexa/model/measures/shape_measures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <numbers>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>

namespace orvexa::model {

namespace {

std::int64_t cross(cv::Point origin, cv::Point a, cv::Point b) {
  return std::int64_t{a.x - origin.x} * (b.y - origin.y) - std::int64_t{a.y - origin.y} * (b.x - origin.x);
}

std::int64_t dot(cv::Point origin, cv::Point a, cv::Point b) {
  return std::int64_t{a.x - origin.x} * (b.x - origin.x) + std::int64_t{a.y - origin.y} * (b.y - origin.y);
}

std::int64_t squared_distance(cv::Point a, cv::Point b) {
  const std::int64_t dx = a.x - b.x;
  const std::int64_t dy = a.y - b.y;
  return dx * dx + dy * dy;
}

/// -1, 0, 1 as a is less than, as good as equal to, or greater than b (both not negative).
int compare(double a, double b) {
  if (std::abs(a - b) <= 1e-12 * std::max(a, b)) return 0;
  return a < b ? -1 : 1;
}

/// Whether the first of two lists of numbers comes first, the earlier numbers deciding before the later ones.
bool comes_first(std::initializer_list<double> a, std::initializer_list<double> b) {
  for (const auto *left = a.begin(), *right = b.begin(); left != a.end(); ++left, ++right) {
    const int order = compare(*left, *right);
    if (order != 0) return order < 0;
  }
  return false;
}

struct Range {
  std::int64_t low = 0;
  std::int64_t high = 0;
  [[nodiscard]] double size() const { return static_cast<double>(high - low); }
};

/// How far the corners reach along the vector from a to b and to its side, in multiples of its length, from a.
struct Reach {
  Range along;
  Range aside;
  cv::Point farthest_aside;  ///< where |aside| is greatest

  Reach(const std::vector<cv::Point>& vertices, cv::Point a, cv::Point b) : farthest_aside(a) {
    std::int64_t farthest = 0;
    for (const cv::Point& corner : vertices) {
      const std::int64_t forward = dot(a, b, corner);
      const std::int64_t sideways = cross(a, b, corner);
      along = {std::min(along.low, forward), std::max(along.high, forward)};
      aside = {std::min(aside.low, sideways), std::max(aside.high, sideways)};
      if (std::abs(sideways) > farthest) {
        farthest = std::abs(sideways);
        farthest_aside = corner;
      }
    }
  }
};

/// A point that is given by corners as the position of pixel centres.
cv::Point2d position(double x, double y) {
  return {x - 0.5, y - 0.5};
}

cv::Point2d position(cv::Point corner) {
  return position(corner.x, corner.y);
}

bool holds(const EnclosingCircle& circle, cv::Point2d point) {
  return std::hypot(point.x - circle.centre.x, point.y - circle.centre.y) <= circle.radius * (1 + 1e-12);
}

EnclosingCircle circle_of(cv::Point2d a, cv::Point2d b) {
  return {.radius = std::hypot(a.x - b.x, a.y - b.y) / 2, .centre = {(a.x + b.x) / 2, (a.y + b.y) / 2}};
}

/// Through three points that are not in a line.
EnclosingCircle circle_of(cv::Point2d a, cv::Point2d b, cv::Point2d c) {
  const double bx = b.x - a.x;
  const double by = b.y - a.y;
  const double cx = c.x - a.x;
  const double cy = c.y - a.y;
  const double twice = 2 * (bx * cy - by * cx);
  const double x = (cy * (bx * bx + by * by) - by * (cx * cx + cy * cy)) / twice;
  const double y = (bx * (cx * cx + cy * cy) - cx * (bx * bx + by * by)) / twice;
  return {.radius = std::hypot(x, y), .centre = {a.x + x, a.y + y}};
}

/// Of points [0, count) with two more on the circle.
EnclosingCircle circle_with(const std::vector<cv::Point2d>& points, std::size_t count, cv::Point2d a, cv::Point2d b) {
  EnclosingCircle circle = circle_of(a, b);
  for (std::size_t k = 0; k < count; ++k) {
    if (!holds(circle, points[k])) circle = circle_of(a, b, points[k]);
  }
  return circle;
}

EnclosingCircle circle_with(const std::vector<cv::Point2d>& points, std::size_t count, cv::Point2d a) {
  EnclosingCircle circle{.radius = 0, .centre = a};
  for (std::size_t k = 0; k < count; ++k) {
    if (!holds(circle, points[k])) circle = circle_with(points, k, a, points[k]);
  }
  return circle;
}

// Sums of the first, second and third powers of the whole numbers from 0 to below k, for negative k as well: a
// difference of two is the sum over a run.
std::int64_t sum_of_numbers(std::int64_t k) {
  return k * (k - 1) / 2;
}

std::int64_t sum_of_squares(std::int64_t k) {
  return (k - 1) * k * (2 * k - 1) / 6;
}

double sum_of_cubes(std::int64_t k) {
  const auto root = static_cast<double>(sum_of_numbers(k));
  return root * root;
}

/// Number and sums of the coordinates of the set pixels.
struct FirstMoments {
  std::int64_t n = 0;
  std::int64_t x = 0;
  std::int64_t y = 0;
};

FirstMoments first_moments(const PixelRows& pixels, const RunContext& context) {
  FirstMoments sums;
  pixels.for_each_run(context, [&](int y, int x0, int x1) {
    sums.n += x1 - x0;
    sums.x += sum_of_numbers(x1) - sum_of_numbers(x0);
    sums.y += std::int64_t{x1 - x0} * y;
  });
  if (sums.n == 0) throw std::invalid_argument("A set without pixels has no shape.");
  return sums;
}

/// Sums of x^p y^q over the pixels; [p][q].
struct Moments {
  std::array<std::array<double, 4>, 4> m{};
  double& operator()(std::size_t p, std::size_t q) { return m.at(p).at(q); }
};

/// About the whole pixel at (near_x, near_y).
Moments moments_about(const PixelRows& pixels, std::int64_t near_x, std::int64_t near_y, const RunContext& context) {
  Moments sums;
  pixels.for_each_run(context, [&](int y, int x0, int x1) {
    const std::int64_t a = x0 - near_x;
    const std::int64_t b = x1 - near_x;
    const std::array<double, 4> powers{
        static_cast<double>(b - a), static_cast<double>(sum_of_numbers(b) - sum_of_numbers(a)),
        static_cast<double>(sum_of_squares(b) - sum_of_squares(a)), sum_of_cubes(b) - sum_of_cubes(a)};
    const auto v = static_cast<double>(y - near_y);
    for (std::size_t p = 0; p < powers.size(); ++p) {
      double power = powers.at(p);
      for (std::size_t q = 0; p + q < powers.size(); ++q, power *= v) sums(p, q) += power;
    }
  });
  return sums;
}

/// The same about a point that lies (rx, ry) further, which is the centroid.
Moments central(Moments m, double rx, double ry) {
  const double n = m(0, 0);
  Moments c;
  c(0, 0) = n;
  c(2, 0) = m(2, 0) - n * rx * rx;
  c(1, 1) = m(1, 1) - n * rx * ry;
  c(0, 2) = m(0, 2) - n * ry * ry;
  c(3, 0) = m(3, 0) - 3 * rx * m(2, 0) + 2 * n * rx * rx * rx;
  c(2, 1) = m(2, 1) - 2 * rx * m(1, 1) - ry * m(2, 0) + 2 * n * rx * rx * ry;
  c(1, 2) = m(1, 2) - 2 * ry * m(1, 1) - rx * m(0, 2) + 2 * n * rx * ry * ry;
  c(0, 3) = m(0, 3) - 3 * ry * m(0, 2) + 2 * n * ry * ry * ry;
  return c;
}

/// The pixels of both rows where one is read from the right, so that column x meets column sum - x.
std::int64_t mirrored_overlap(const std::uint8_t* row, int width, std::int64_t sum) {
  std::int64_t both = 0;
  const std::int64_t first = std::max<std::int64_t>(0, sum - (width - 1));
  const std::int64_t last = std::min<std::int64_t>(width - 1, sum);
  for (std::int64_t x = first; x <= last; ++x) both += row[x] & row[sum - x] & 1;
  return both;
}

std::int64_t overlap(const std::uint8_t* a, const std::uint8_t* b, int width) {
  std::int64_t both = 0;
  for (int x = 0; x < width; ++x) both += a[x] & b[x] & 1;
  return both;
}

}  // namespace

double direction_degrees(double dx, double dy) {
  const double degrees = std::atan2(0.0 - dy, dx) * 180 / std::numbers::pi;
  if (degrees < 0) return degrees + 180 < 180 ? degrees + 180 : 0.0;
  return degrees < 180 ? degrees : degrees - 180;
}

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

CornerHull corner_hull(const PixelRows& pixels, const RunContext& context) {
  // On the line between two rows of pixels only the outermost corners of the pixels that touch it can be on the hull.
  std::vector<cv::Point> left;
  std::vector<cv::Point> right;
  constexpr std::size_t rows_of_most_regions = 128;
  for (std::vector<cv::Point>* side : {&left, &right}) side->reserve(rows_of_most_regions);
  const auto add = [&](int y, int x0, int x1) {
    if (left.empty() || left.back().y < y) {
      left.emplace_back(x0, y);
      right.emplace_back(x1, y);
    } else {
      left.back().x = std::min(left.back().x, x0);
      right.back().x = std::max(right.back().x, x1);
    }
  };
  PixelRun row{-1, 0, 0};  // the row that is being read, from its first pixel to its last
  const auto add_row = [&] {
    if (row.x1 == 0) return;
    add(row.y, row.x0, row.x1);
    add(row.y + 1, row.x0, row.x1);
  };
  pixels.for_each_run(context, [&](int y, int x0, int x1) {
    if (y == row.y) {
      row.x1 = x1;
      return;
    }
    add_row();
    row = {y, x0, x1};
  });
  add_row();
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
FeretDiameter CornerHull::greatest_feret() const {
  std::int64_t longest = 0;
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    for (std::size_t j = i + 1; j < vertices.size(); ++j) {
      longest = std::max(longest, squared_distance(vertices[i], vertices[j]));
    }
  }
  const double length = std::sqrt(static_cast<double>(longest));
  std::optional<FeretDiameter> best;
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    for (std::size_t j = i + 1; j < vertices.size(); ++j) {
      const cv::Point& a = vertices[i];
      const cv::Point& b = vertices[j];
      if (squared_distance(a, b) != longest) continue;
      const FeretDiameter own{.length = length,
                              .direction = direction_degrees(b.x - a.x, b.y - a.y),
                              .across = Reach(vertices, a, b).aside.size() / length,
                              .from = position(a),
                              .to = position(b)};
      if (!best || comes_first({own.across, own.direction}, {best->across, best->direction})) best = own;
    }
  }
  return best.value();
}

FeretDiameter CornerHull::least_feret() const {
  std::optional<FeretDiameter> best;
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    const cv::Point& a = vertices[i];
    const cv::Point& b = vertices[(i + 1) % vertices.size()];
    const Reach reach(vertices, a, b);
    const double edge = std::sqrt(static_cast<double>(squared_distance(a, b)));
    const cv::Point& far = reach.farthest_aside;
    const double foot = static_cast<double>(dot(a, b, far)) / (edge * edge);
    const FeretDiameter own{.length = reach.aside.size() / edge,
                            .direction = direction_degrees(b.y - a.y, a.x - b.x),
                            .across = reach.along.size() / edge,
                            .from = position(far),
                            .to = position(a.x + foot * (b.x - a.x), a.y + foot * (b.y - a.y))};
    if (!best || comes_first({own.length, own.across, own.direction}, {best->length, best->across, best->direction})) {
      best = own;
    }
  }
  return best.value();
}

EnclosingRectangle CornerHull::least_rectangle() const {
  std::optional<EnclosingRectangle> best;
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    const cv::Point& a = vertices[i];
    const cv::Point& b = vertices[(i + 1) % vertices.size()];
    const Reach reach(vertices, a, b);
    const auto squared = static_cast<double>(squared_distance(a, b));
    const double along = reach.along.size() / std::sqrt(squared);
    const double aside = reach.aside.size() / std::sqrt(squared);
    const double dx = b.x - a.x;
    const double dy = b.y - a.y;
    EnclosingRectangle own{
        .length = std::max(along, aside), .width = std::min(along, aside), .centre = {}, .corners = {}};
    const double direction = direction_degrees(dx, dy);
    const double other = direction < 90 ? direction + 90 : direction - 90;
    own.direction = compare(along, aside) == 0 ? std::min(direction, other) : along > aside ? direction : other;
    if (best && !comes_first({own.length * own.width, own.length, own.direction},
                             {best->length * best->width, best->length, best->direction})) {
      continue;
    }
    // From a: `forward` edges ahead and `sideways` edges to the side.
    const auto corner = [&](std::int64_t forward, std::int64_t sideways) {
      const double u = static_cast<double>(forward) / squared;
      const double v = static_cast<double>(sideways) / squared;
      return position(a.x + u * dx - v * dy, a.y + u * dy + v * dx);
    };
    own.corners = {corner(reach.along.low, reach.aside.low), corner(reach.along.high, reach.aside.low),
                   corner(reach.along.high, reach.aside.high), corner(reach.along.low, reach.aside.high)};
    own.centre = (own.corners[0] + own.corners[2]) / 2;
    best = own;
  }
  return best.value();
}

EnclosingCircle CornerHull::least_circle() const {
  std::vector<cv::Point2d> points;
  points.reserve(vertices.size());
  for (const cv::Point& corner : vertices) points.push_back(position(corner));
  // In an order that has nothing to do with the shape the expected time is linear; the seed makes it the same every
  // time.
  std::mt19937_64 random(1991);
  for (std::size_t k = points.size(); k > 1; --k) std::swap(points[k - 1], points[random() % k]);
  EnclosingCircle circle{.radius = 0, .centre = points.at(0)};
  for (std::size_t k = 1; k < points.size(); ++k) {
    if (!holds(circle, points[k])) circle = circle_with(points, k, points[k]);
  }
  return circle;
}

double CornerHull::max_feret() const {
  return vertices.empty() ? 0 : greatest_feret().length;
}

double CornerHull::min_feret() const {
  return vertices.empty() ? 0 : least_feret().length;
}

EllipseFit fit_ellipse(const PixelRows& pixels, const RunContext& context) {
  std::int64_t n = 0;
  std::int64_t sum_x = 0;
  std::int64_t sum_y = 0;
  std::int64_t sum_xx = 0;
  std::int64_t sum_yy = 0;
  std::int64_t sum_xy = 0;
  pixels.for_each_run(context, [&](int y, int x0, int x1) {
    const std::int64_t run_n = x1 - x0;
    const std::int64_t run_x = sum_of_numbers(x1) - sum_of_numbers(x0);
    n += run_n;
    sum_x += run_x;
    sum_y += run_n * y;
    sum_xx += sum_of_squares(x1) - sum_of_squares(x0);
    sum_yy += run_n * y * y;
    sum_xy += run_x * y;
  });
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
  const double mean = (var_x + var_y) / 2;
  double cov = static_cast<double>(sum_xy) / count - rest_x * rest_y;
  if (std::abs(cov) <= 1e-12 * mean) cov = 0;  // rounding would turn 0 degrees into 180
  const double half_range = std::hypot((var_x - var_y) / 2, cov);
  const double larger = std::max(0.0, mean + half_range);
  const double smaller = std::max(0.0, mean - half_range);
  fit.major_axis = 4 * std::sqrt(larger);
  fit.minor_axis = 4 * std::sqrt(smaller);
  fit.eccentricity = larger > 0 ? std::sqrt(1 - smaller / larger) : 0;
  fit.has_direction = half_range > 1e-12 * mean;
  // The eigenvector of the larger eigenvalue has half the angle of (var_x - var_y, 2 cov).
  const double half_angle = std::atan2(2 * cov, var_x - var_y) / 2;
  if (fit.has_direction) fit.direction = direction_degrees(std::cos(half_angle), std::sin(half_angle));
  return fit;
}

std::array<double, 7> hu_moments(const PixelRows& pixels, const RunContext& context) {
  const FirstMoments first = first_moments(pixels, context);
  const std::int64_t near_x = (first.x + first.n / 2) / first.n;
  const std::int64_t near_y = (first.y + first.n / 2) / first.n;
  const auto n = static_cast<double>(first.n);
  Moments mu =
      central(moments_about(pixels, near_x, near_y, context), static_cast<double>(first.x - near_x * first.n) / n,
              static_cast<double>(first.y - near_y * first.n) / n);
  const double second = n * n;
  const double third = second * std::sqrt(n);
  const double e20 = mu(2, 0) / second;
  const double e11 = mu(1, 1) / second;
  const double e02 = mu(0, 2) / second;
  const double e30 = mu(3, 0) / third;
  const double e21 = mu(2, 1) / third;
  const double e12 = mu(1, 2) / third;
  const double e03 = mu(0, 3) / third;
  const double a = e30 + e12;
  const double b = e21 + e03;
  const double c = e30 - 3 * e12;
  const double d = 3 * e21 - e03;
  return {e20 + e02,
          (e20 - e02) * (e20 - e02) + 4 * e11 * e11,
          c * c + d * d,
          a * a + b * b,
          c * a * (a * a - 3 * b * b) + d * b * (3 * a * a - b * b),
          (e20 - e02) * (a * a - b * b) + 4 * e11 * a * b,
          d * a * (a * a - 3 * b * b) - c * b * (3 * a * a - b * b)};
}

MirrorAgreement mirror_agreement(const cv::Mat& picture, const RunContext& context) {
  const FirstMoments sums = first_moments(picture, context);
  // Twice the centroid to the nearest whole number, half rounded up: column x meets column sum_x - x.
  const std::int64_t sum_x = (4 * sums.x + sums.n) / (2 * sums.n);
  const std::int64_t sum_y = (4 * sums.y + sums.n) / (2 * sums.n);
  std::int64_t both_sides = 0;
  std::int64_t both_ends = 0;
  for (int y = 0; y < picture.rows; ++y) {
    context.check();
    const std::uint8_t* row = picture.ptr<std::uint8_t>(y);
    both_sides += mirrored_overlap(row, picture.cols, sum_x);
    const std::int64_t other = sum_y - y;
    if (other < 0 || other >= picture.rows) continue;
    both_ends += overlap(row, picture.ptr<std::uint8_t>(static_cast<int>(other)), picture.cols);
  }
  const auto share = [&](std::int64_t both) {
    return static_cast<double>(both) / static_cast<double>(2 * sums.n - both);
  };
  return {.left_right = share(both_sides), .top_bottom = share(both_ends)};
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
