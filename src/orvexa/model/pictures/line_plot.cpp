#include "orvexa/model/pictures/line_plot.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <utility>

namespace orvexa::model {

namespace {

constexpr int width = 720;
constexpr int height = 440;
/// Of the area inside the axes.
constexpr int left = 80;
constexpr int right = 700;
constexpr int top = 40;
constexpr int bottom = 385;

constexpr int font = cv::FONT_HERSHEY_SIMPLEX;
const cv::Scalar black(0, 0, 0);
const cv::Scalar light(225, 225, 225);

/// Told apart also by people who confuse red and green: blue, orange, green, pink, sky, vermilion, yellow, black of
/// M. Okabe and K. Ito's set.
cv::Scalar color_of(std::size_t line) {
  static const std::array<cv::Scalar, 8> colors{
      cv::Scalar(0, 114, 178),  cv::Scalar(230, 159, 0), cv::Scalar(0, 158, 115),  cv::Scalar(204, 121, 167),
      cv::Scalar(86, 180, 233), cv::Scalar(213, 94, 0),  cv::Scalar(240, 228, 66), cv::Scalar(0, 0, 0)};
  return colors.at(line % colors.size());
}

struct Range {
  double low = 0;
  double high = 1;
};

/// Of all finite values; never empty.
Range range_of(const std::vector<PlotLine>& lines, bool begins_at_zero) {
  Range range{std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
  for (const PlotLine& line : lines) {
    for (const double value : line.values) {
      if (!std::isfinite(value)) continue;
      range.low = std::min(range.low, value);
      range.high = std::max(range.high, value);
    }
  }
  if (range.low > range.high) return {};
  if (begins_at_zero) range.low = std::min(0.0, range.low);
  if (range.low == range.high) return {range.low - 0.5, range.high + 0.5};
  return range;
}

int column_of(std::size_t place, std::size_t count) {
  if (count < 2) return (left + right) / 2;
  return left +
         static_cast<int>(std::lround(static_cast<double>(place) * (right - left) / static_cast<double>(count - 1)));
}

int row_of(double value, const Range& range) {
  return bottom - static_cast<int>(std::lround((value - range.low) / (range.high - range.low) * (bottom - top)));
}

void put(cv::Mat& canvas, const std::string& text, int x, int y) {
  cv::putText(canvas, text, {x, y}, font, 0.4, black, 1, cv::LINE_8);
}

int text_width(const std::string& text) {
  return cv::getTextSize(text, font, 0.4, 1, nullptr).width;
}

void draw_axes(cv::Mat& canvas, const PlotAxes& axes, const Range& range) {
  constexpr int ticks = 5;
  for (int k = 0; k < ticks; ++k) {
    const double share = static_cast<double>(k) / (ticks - 1);
    const int x = left + static_cast<int>(std::lround(share * (right - left)));
    const int y = bottom - static_cast<int>(std::lround(share * (bottom - top)));
    cv::line(canvas, {x, top}, {x, bottom}, light, 1, cv::LINE_8);
    cv::line(canvas, {left, y}, {right, y}, light, 1, cv::LINE_8);
    const std::string along = fmt::format("{:.4g}", axes.from + share * (axes.to - axes.from));
    const std::string up = fmt::format("{:.4g}", range.low + share * (range.high - range.low));
    put(canvas, along, x - text_width(along) / 2, bottom + 18);
    put(canvas, up, left - 6 - text_width(up), y + 4);
  }
  cv::rectangle(canvas, {left, top}, {right, bottom}, black, 1, cv::LINE_8);
  put(canvas, axes.title, left, 16);
  put(canvas, axes.along, (left + right - text_width(axes.along)) / 2, bottom + 38);
}

void draw_line(cv::Mat& canvas, const PlotLine& line, const cv::Scalar& color, const Range& range, bool is_filled) {
  const std::size_t count = line.values.size();
  for (std::size_t k = 0; k < count; ++k) {
    const double value = line.values[k];
    if (!std::isfinite(value)) continue;
    const cv::Point here(column_of(k, count), row_of(value, range));
    if (is_filled) cv::line(canvas, here, {here.x, row_of(std::max(0.0, range.low), range)}, color, 1, cv::LINE_8);
    const bool goes_on = k > 0 && std::isfinite(line.values[k - 1]);
    const cv::Point before = goes_on ? cv::Point(column_of(k - 1, count), row_of(line.values[k - 1], range)) : here;
    cv::line(canvas, before, here, color, 1, cv::LINE_8);
  }
}

void draw_legend(cv::Mat& canvas, const std::vector<PlotLine>& lines) {
  int y = top + 16;
  for (std::size_t k = 0; k < lines.size() && y < bottom; ++k, y += 16) {
    const int x = right - 30 - text_width(lines[k].name);
    cv::line(canvas, {x, y - 4}, {x + 16, y - 4}, color_of(k), 2, cv::LINE_8);
    put(canvas, lines[k].name, x + 22, y);
  }
}

}  // namespace

Image line_plot(const std::vector<PlotLine>& lines, const PlotAxes& axes) {
  cv::Mat canvas(height, width, CV_8UC3, cv::Scalar(255, 255, 255));
  const Range range = range_of(lines, axes.is_filled);
  draw_axes(canvas, axes, range);
  for (std::size_t k = 0; k < lines.size(); ++k) draw_line(canvas, lines[k], color_of(k), range, axes.is_filled);
  if (lines.size() > 1) draw_legend(canvas, lines);
  return Image(std::move(canvas));
}

}  // namespace orvexa::model
