#include "orvexa/model/pictures/heat_map.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <utility>

#include "orvexa/model/measures/color.h"

namespace orvexa::model {

namespace {

std::uint8_t eight_bits(double share) {
  return static_cast<std::uint8_t>(std::lround(std::clamp(share, 0.0, 1.0) * 255));
}

std::array<std::array<std::uint8_t, 3>, 256> make_colors() {
  constexpr Lab dark_blue{15, 22, -43};
  constexpr Lab light_yellow{91, -8, 72};
  std::array<std::array<std::uint8_t, 3>, 256> colors{};
  for (std::size_t k = 0; k < colors.size(); ++k) {
    const double share = static_cast<double>(k) / static_cast<double>(colors.size() - 1);
    const auto between = [&](double from, double to) { return from + share * (to - from); };
    const Rgb rgb = to_rgb({between(dark_blue.l, light_yellow.l), between(dark_blue.a, light_yellow.a),
                            between(dark_blue.b, light_yellow.b)});
    colors[k] = {eight_bits(rgb.r), eight_bits(rgb.g), eight_bits(rgb.b)};
  }
  return colors;
}

const cv::Scalar black(0, 0, 0);
constexpr int font = cv::FONT_HERSHEY_SIMPLEX;

/// Lengths of the strip beside a map; all grow with the map so that the text can be read when it is shown smaller.
struct StripLayout {
  explicit StripLayout(int map_height, const std::string& title)
      : unit(std::max(1, map_height / 400)), font_scale(0.4 * unit) {
    const int title_width = cv::getTextSize(title, font, font_scale, unit, nullptr).width;
    width = std::max(90 * unit, title_width + 2 * margin());
    height = std::max(map_height, 140 * unit);
  }
  int unit;
  double font_scale;
  int width = 0;
  int height = 0;
  [[nodiscard]] int margin() const { return 8 * unit; }
  [[nodiscard]] int bar_width() const { return 16 * unit; }
  [[nodiscard]] int bar_top() const { return 26 * unit; }
  [[nodiscard]] int bar_bottom() const { return height - 10 * unit; }
};

void draw_strip(cv::Mat& canvas, int left, const StripLayout& layout, const HeatScale& scale) {
  const auto put = [&](const std::string& text, int x, int y) {
    cv::putText(canvas, text, {x, y}, font, layout.font_scale, black, layout.unit, cv::LINE_8);
  };
  put(scale.title, left + layout.margin(), 14 * layout.unit);
  const int top = layout.bar_top();
  const int bottom = layout.bar_bottom();
  const int x0 = left + layout.margin();
  const int x1 = x0 + layout.bar_width();
  for (int y = top; y <= bottom; ++y) {
    const auto color = heat_colors()[static_cast<std::size_t>(std::lround(255.0 * (bottom - y) / (bottom - top)))];
    canvas(cv::Rect(x0, y, x1 - x0, 1)) = cv::Scalar(color[0], color[1], color[2]);
  }
  constexpr int ticks = 5;
  for (int k = 0; k < ticks; ++k) {
    const double share = static_cast<double>(k) / (ticks - 1);
    const int y = bottom - static_cast<int>(std::lround(share * (bottom - top)));
    cv::line(canvas, {x1, y}, {x1 + 3 * layout.unit, y}, black, layout.unit, cv::LINE_8);
    put(fmt::format("{:.3g}", scale.low + share * (scale.high - scale.low)), x1 + 6 * layout.unit, y + 4 * layout.unit);
  }
}

void expect_same_size(const cv::Mat& values, const Mask& mask) {
  if (values.type() != CV_64FC1 || mask.shape() != Shape{values.rows, values.cols}) {
    throw std::invalid_argument("A map of numbers is as large as its mask.");
  }
}

}  // namespace

const std::array<std::array<std::uint8_t, 3>, 256>& heat_colors() {
  static const auto colors = make_colors();
  return colors;
}

Image heat_map_picture(const cv::Mat& values, const Mask& mask, const HeatScale& scale, const RunContext& context) {
  expect_same_size(values, mask);
  if (!(scale.low < scale.high)) throw std::invalid_argument("The scale of a heat map begins below its end.");
  const StripLayout layout(values.rows, scale.title);
  const cv::Scalar white(255, 255, 255);
  cv::Mat canvas(layout.height, values.cols + layout.width, CV_8UC3);
  canvas.rowRange(values.rows, layout.height).setTo(white);
  const auto& colors = heat_colors();
  const double steps = static_cast<double>(colors.size() - 1) / (scale.high - scale.low);
  for_each_stripe(values.rows, values.cols, context, [&](int y0, int y1) {
    canvas(cv::Rect(values.cols, y0, layout.width, y1 - y0)).setTo(white);
    for (int y = y0; y < y1; ++y) {
      const double* value = values.ptr<double>(y);
      const std::uint8_t* set = mask.row(y).data();
      std::uint8_t* out = canvas.ptr<std::uint8_t>(y);
      for (int x = 0; x < values.cols; ++x, out += 3) {
        const bool has_value = set[x] != 0 && std::isfinite(value[x]);
        const double place = has_value ? std::clamp((value[x] - scale.low) * steps, 0.0, 255.0) + 0.5 : 0;
        const auto& color = has_value ? colors[static_cast<std::size_t>(place)] : no_value_color;
        out[0] = color[0];
        out[1] = color[1];
        out[2] = color[2];
      }
    }
  });
  draw_strip(canvas, values.cols, layout, scale);
  return Image(std::move(canvas));
}

Image map_numbers(const cv::Mat& values, const Mask& mask, const RunContext& context) {
  expect_same_size(values, mask);
  cv::Mat numbers(values.rows, values.cols, CV_32FC1);
  for_each_stripe(values.rows, values.cols, context, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      const double* value = values.ptr<double>(y);
      const std::uint8_t* set = mask.row(y).data();
      float* out = numbers.ptr<float>(y);
      for (int x = 0; x < values.cols; ++x) {
        const bool has_value = set[x] != 0 && std::isfinite(value[x]);
        out[x] = has_value ? static_cast<float>(value[x]) : std::numeric_limits<float>::quiet_NaN();
      }
    }
  });
  return Image(std::move(numbers));
}

}  // namespace orvexa::model
