#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "orvexa/model/image.h"

namespace orvexa::model {

/// Regions drawn or found by an operation. `image` is height x width of 32-bit labels: 0 = no region, k = `names[k-1]`.
/// A label counts at a pixel only where the mask that carries the labels is set, so later steps narrow regions without
/// touching the label image, and a region that lost all pixels keeps its name.
struct RegionLabels {
  cv::Mat image;
  std::vector<std::string> names;
};

/// An immutable mask: height x width, 8-bit, 0 or 255 and nothing else. It may carry regions (labels) and bounds: what
/// the region-of-interest steps so far left, inside which growing operations stay. Copies share the pixels.
class Mask {
 public:
  /// @param pixels  CV_8UC1 of 0 and 255. Taken over; copied only when somebody else still holds it.
  /// @throws std::invalid_argument for another type, an empty Mat, or another value than 0 and 255.
  explicit Mask(cv::Mat pixels);

  /// Every pixel set, or none.
  static Mask full(Shape shape);
  static Mask empty(Shape shape);

  [[nodiscard]] Shape shape() const { return {_pixels.rows, _pixels.cols}; }
  /// How many pixels are set.
  [[nodiscard]] std::int64_t count() const;
  [[nodiscard]] std::span<const std::uint8_t> row(int y) const {
    return {_pixels.ptr<std::uint8_t>(y), static_cast<std::size_t>(_pixels.cols)};
  }
  [[nodiscard]] bool at(int y, int x) const { return _pixels.at<std::uint8_t>(y, x) != 0; }
  [[nodiscard]] const cv::Mat& read_only() const { return _pixels; }

  /// Pixels set in both; labels and bounds are those of the left side, or of the right side where the left has none.
  /// @throws std::invalid_argument when the sizes differ.
  friend Mask operator&(const Mask& a, const Mask& b);

  [[nodiscard]] const std::shared_ptr<const RegionLabels>& labels() const { return _labels; }
  [[nodiscard]] Mask with_labels(std::shared_ptr<const RegionLabels> labels) const;
  /// The bounds as a mask without bounds or labels of its own; absent = the whole image.
  [[nodiscard]] std::optional<Mask> bounds() const;
  [[nodiscard]] Mask with_bounds(const std::optional<Mask>& bounds) const;

  /// Same size and same pixels; labels and bounds are not looked at.
  friend bool operator==(const Mask& a, const Mask& b);

 private:
  Mask() = default;
  cv::Mat _pixels;
  std::shared_ptr<const RegionLabels> _labels;
  std::shared_ptr<const Mask> _bounds;
};

}  // namespace orvexa::model
