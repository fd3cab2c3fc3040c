#include "orvexa/model/pictures/outlines.h"

#include <algorithm>
#include <array>
#include <opencv2/imgproc.hpp>

namespace orvexa::model {

namespace {

constexpr int pixels_a_line_width = 800;

const cv::Vec3b& color_of(std::uint8_t pen) {
  static const std::array<cv::Vec3b, 6> colors{cv::Vec3b(0, 0, 0),     cv::Vec3b(0, 220, 0),   cv::Vec3b(230, 30, 30),
                                               cv::Vec3b(40, 90, 255), cv::Vec3b(255, 220, 0), cv::Vec3b(255, 0, 255)};
  return colors.at(pen);
}

/// Calls `covered(x0, x1)` for the parts of [x0, x1) that runs of the label in another row lie beside.
template <typename Covered>
void for_each_covered_part(std::span<const Components::Run> row, const Components::Run& run, const Covered& covered) {
  const auto first = std::ranges::lower_bound(row, run.x0 + 1, {}, &Components::Run::x1);
  for (auto other = first; other != row.end() && other->x0 < run.x1; ++other) {
    if (other->label == run.label) covered(std::max(run.x0, other->x0), std::min(run.x1, other->x1));
  }
}

/// Calls `rim(x0, x1)` for the parts of a run that no run of its label in the other row lies beside.
template <typename Rim>
void for_each_bare_part(std::span<const Components::Run> row, const Components::Run& run, const Rim& rim) {
  int from = run.x0;
  for_each_covered_part(row, run, [&](int x0, int x1) {
    if (x0 > from) rim(from, x0);
    from = x1;
  });
  if (run.x1 > from) rim(from, run.x1);
}

bool differ(std::int32_t a, std::int32_t b) {
  return a > 0 && b > 0 && a != b;
}

}  // namespace

LineDrawing::LineDrawing(Shape shape)
    : _pens(shape.height, shape.width, CV_8UC1, cv::Scalar(0)),
      _width(std::max(1, std::max(shape.height, shape.width) / pixels_a_line_width)) {}

void LineDrawing::put(int y, int x, Pen pen) {
  if (y < 0 || x < 0 || y >= _pens.rows || x >= _pens.cols) return;
  std::uint8_t& at = _pens.at<std::uint8_t>(y, x);
  at = std::max(at, static_cast<std::uint8_t>(pen));
}

void LineDrawing::outline(const Components& components, const std::vector<Pen>& pens, const RunContext& context) {
  const Shape shape = components.shape;
  for_each_stripe(shape.height, shape.width, context, [&](int y0, int y1) {
    for (const Components::Run& run : components.runs_of_rows(y0, y1)) {
      std::uint8_t* row = _pens.ptr<std::uint8_t>(run.y);
      const auto pen = static_cast<std::uint8_t>(pens[static_cast<std::size_t>(run.label - 1)]);
      if (pen == 0) continue;
      const auto paint = [&](int from, int to) { std::fill(row + from, row + to, pen); };
      paint(run.x0, run.x0 + 1);
      paint(run.x1 - 1, run.x1);
      for (const int y : {run.y - 1, run.y + 1}) {
        if (y < 0 || y >= shape.height) {
          paint(run.x0, run.x1);
        } else {
          for_each_bare_part(components.runs_of_rows(y, y + 1), run, paint);
        }
      }
    }
  });
}

void LineDrawing::divide(const cv::Mat& labels, Pen pen, const RunContext& context) {
  for_each_stripe(labels.rows, labels.cols, context, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      const auto* here = labels.ptr<std::int32_t>(y);
      const auto* below = y + 1 < labels.rows ? labels.ptr<std::int32_t>(y + 1) : here;
      for (int x = 0; x < labels.cols; ++x) {
        const int left = std::max(0, x - 1);
        const int right = std::min(labels.cols - 1, x + 1);
        if (differ(here[x], here[right]) || differ(here[x], below[left]) || differ(here[x], below[x]) ||
            differ(here[x], below[right])) {
          put(y, x, pen);
        }
      }
    }
  });
}

void LineDrawing::outline(const PixelRect& rect, Pen pen) {
  if (rect.is_empty()) return;
  for (int x = rect.x0; x < rect.x1; ++x) {
    put(rect.y0, x, pen);
    put(rect.y1 - 1, x, pen);
  }
  for (int y = rect.y0; y < rect.y1; ++y) {
    put(y, rect.x0, pen);
    put(y, rect.x1 - 1, pen);
  }
}

void LineDrawing::cross(cv::Point centre, Pen pen) {
  const int arm = 3 * _width;
  for (int d = -arm; d <= arm; ++d) {
    put(centre.y + d, centre.x, pen);
    put(centre.y, centre.x + d, pen);
  }
}

Image LineDrawing::finished(const RunContext& context) {
  cv::Mat picture(_pens.size(), CV_8UC3);
  const cv::Mat brush = cv::Mat::ones(_width, _width, CV_8UC1);
  for_each_stripe(_pens.rows, _pens.cols, context, [&](int y0, int y1) {
    // The filter looks at the rows above and below the stripe by itself; of pens that meet the later one stays.
    cv::Mat wide;
    if (_width > 1) {
      cv::dilate(_pens.rowRange(y0, y1), wide, brush);
    } else {
      wide = _pens.rowRange(y0, y1);
    }
    for (int y = y0; y < y1; ++y) {
      const auto* pens = wide.ptr<std::uint8_t>(y - y0);
      auto* colors = picture.ptr<cv::Vec3b>(y);
      for (int x = 0; x < _pens.cols; ++x) colors[x] = color_of(pens[x]);
    }
  });
  return Image(std::move(picture));
}

Image kept_and_rejected(const Components& components, const std::vector<char>& is_kept, const RunContext& context) {
  std::vector<Pen> pens;
  pens.reserve(is_kept.size());
  for (const char kept : is_kept) pens.push_back(kept != 0 ? Pen::kept : Pen::rejected);
  LineDrawing drawing(components.shape);
  drawing.outline(components, pens, context);
  return drawing.finished(context);
}

}  // namespace orvexa::model
