#include "orvexa/model/measures/scan_conversion.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace orvexa::model {

namespace {

/// Products with coordinates up to here cannot overflow, and nobody draws farther from an image.
constexpr double farthest = 1e100;
/// In pixels: a centre that lies on a side does not change its side through rounding.
constexpr double rounding = 1e-6;

double limited(double coordinate) {
  return std::clamp(coordinate, -farthest, farthest);
}

/// The first column whose centre is not left of x, from 0 to width; rows likewise.
int first_column(double x, int width) {
  return static_cast<int>(std::clamp(std::ceil(x - 0.5 - rounding), 0.0, double(width)));
}

void fill_between(double from, double to, std::uint8_t value, std::uint8_t* row, int width) {
  const int x0 = first_column(from, width);
  const int x1 = first_column(to, width);
  if (x0 < x1) std::fill(row + x0, row + x1, value);
}

std::int64_t floor_quotient(std::int64_t dividend, std::int64_t positive) {
  const std::int64_t quotient = dividend / positive;
  return dividend % positive < 0 ? quotient - 1 : quotient;
}

}  // namespace

std::vector<cv::Point2d> polygon_corners(const common::Value& points, Shape shape) {
  std::vector<cv::Point2d> corners;
  for (const common::Value& point : points) {
    corners.emplace_back(limited(point.at(0).get<double>() * shape.width),
                         limited(point.at(1).get<double>() * shape.height));
  }
  return corners;
}

void fill_polygon(std::span<const cv::Point2d> corners, int y0, int y1, std::uint8_t value, cv::Mat& pixels) {
  std::vector<std::vector<double>> crossings(static_cast<std::size_t>(std::max(0, y1 - y0)));
  for (std::size_t i = 0; i < corners.size(); ++i) {
    cv::Point2d upper = corners[i];
    cv::Point2d lower = corners[(i + 1) % corners.size()];
    if (upper.y > lower.y) std::swap(upper, lower);
    // The rows whose centre c has upper.y <= c < lower.y: a corner between two sides is crossed once, a level side
    // never.
    const int begin = std::max(y0, first_column(upper.y, y1));
    const int end = first_column(lower.y, y1);
    for (int y = begin; y < end; ++y) {
      const double share = (y + 0.5 - upper.y) / (lower.y - upper.y);
      crossings[static_cast<std::size_t>(y - y0)].push_back(upper.x + share * (lower.x - upper.x));
    }
  }
  for (int y = y0; y < y1; ++y) {
    std::vector<double>& row = crossings[static_cast<std::size_t>(y - y0)];
    std::ranges::sort(row);
    for (std::size_t i = 0; i + 1 < row.size(); i += 2) {
      fill_between(row[i], row[i + 1], value, pixels.ptr<std::uint8_t>(y), pixels.cols);
    }
  }
}

void fill_ellipse(const PickRect& box, int y0, int y1, std::uint8_t value, cv::Mat& pixels) {
  const double centre_x = limited(box.cx_norm * pixels.cols);
  const double centre_y = limited(box.cy_norm * pixels.rows);
  const double half_width = limited(box.w_norm * pixels.cols / 2);
  const double half_height = limited(box.h_norm * pixels.rows / 2);
  if (!(half_width > 0) || !(half_height > 0)) return;
  for (int y = y0; y < y1; ++y) {
    const double distance = std::max(0.0, std::abs(y + 0.5 - centre_y) - rounding) / half_height;
    if (distance > 1) continue;
    const double reach = half_width * std::sqrt(1 - distance * distance);
    fill_between(centre_x - reach, centre_x + reach + 2 * rounding, value, pixels.ptr<std::uint8_t>(y), pixels.cols);
  }
}

std::vector<PixelRow> rows_of_hull(std::span<const cv::Point> vertices) {
  std::vector<PixelRow> rows;
  if (vertices.empty()) return rows;
  const auto [top, bottom] = std::ranges::minmax(vertices, {}, &cv::Point::y);
  for (int y = top.y; y < bottom.y; ++y) rows.push_back({y, std::numeric_limits<int>::max(), 0});
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    cv::Point upper = vertices[i];
    cv::Point lower = vertices[(i + 1) % vertices.size()];
    if (upper.y > lower.y) std::swap(upper, lower);
    const std::int64_t height = lower.y - upper.y;
    const std::int64_t width = lower.x - upper.x;
    for (int y = upper.y; y < lower.y; ++y) {
      // The side is at x = side / (2 height) on the centre line of the row; column c has its centre at c + 1/2.
      const std::int64_t side = 2 * height * upper.x + width * (2 * std::int64_t{y - upper.y} + 1);
      const auto first_right_of_it = static_cast<int>(floor_quotient(side - height, 2 * height)) + 1;
      const auto first_not_left_of_it = static_cast<int>(-floor_quotient(height - side, 2 * height));
      PixelRow& row = rows[static_cast<std::size_t>(y - top.y)];
      row.x0 = std::min(row.x0, first_right_of_it);
      row.x1 = std::max(row.x1, first_not_left_of_it);
    }
  }
  std::erase_if(rows, [](const PixelRow& row) { return row.x0 >= row.x1; });
  return rows;
}

}  // namespace orvexa::model
