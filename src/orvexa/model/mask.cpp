#include "orvexa/model/mask.h"

#include <cstring>
#include <stdexcept>
#include <utility>

namespace orvexa::model {

namespace {

std::string size_text(Shape shape) {
  return std::to_string(shape.width) + " x " + std::to_string(shape.height);
}

bool holds_only_0_and_255(const cv::Mat& pixels) {
  for (int y = 0; y < pixels.rows; ++y) {
    const std::uint8_t* row = pixels.ptr<std::uint8_t>(y);
    unsigned strange = 0;
    for (int x = 0; x < pixels.cols; ++x) strange |= static_cast<unsigned>(static_cast<std::uint8_t>(row[x] + 1) > 1);
    if (strange != 0) return false;
  }
  return true;
}

}  // namespace

Mask::Mask(cv::Mat pixels) {
  if (pixels.dims != 2 || pixels.empty()) throw std::invalid_argument("A mask needs at least one pixel.");
  if (pixels.type() != CV_8UC1) throw std::invalid_argument("A mask has one 8-bit channel.");
  if (!holds_only_0_and_255(pixels)) throw std::invalid_argument("A mask holds 0 and 255 and nothing else.");
  _pixels = unshared(std::move(pixels));
}

Mask Mask::full(Shape shape) {
  return Mask(cv::Mat(shape.height, shape.width, CV_8UC1, cv::Scalar(255)));
}
Mask Mask::empty(Shape shape) {
  return Mask(cv::Mat(shape.height, shape.width, CV_8UC1, cv::Scalar(0)));
}

std::int64_t Mask::count() const {
  return cv::countNonZero(_pixels);
}

Mask operator&(const Mask& a, const Mask& b) {
  if (a.shape() != b.shape()) {
    throw std::invalid_argument("Two masks of different sizes cannot be combined: " + size_text(a.shape()) + " and " +
                                size_text(b.shape()) + " pixels.");
  }
  Mask result;
  cv::bitwise_and(a._pixels, b._pixels, result._pixels);
  result._labels = a._labels ? a._labels : b._labels;
  result._bounds = a._bounds ? a._bounds : b._bounds;
  return result;
}

Mask Mask::with_labels(std::shared_ptr<const RegionLabels> labels) const {
  if (labels &&
      (labels->image.type() != CV_32SC1 || labels->image.rows != _pixels.rows || labels->image.cols != _pixels.cols)) {
    throw std::invalid_argument("Labels of regions are 32-bit and as large as their mask.");
  }
  Mask result = *this;
  result._labels = std::move(labels);
  return result;
}

std::optional<Mask> Mask::bounds() const {
  if (!_bounds) return std::nullopt;
  return *_bounds;
}

Mask Mask::with_bounds(const std::optional<Mask>& bounds) const {
  Mask result = *this;
  result._bounds.reset();
  if (bounds) {
    if (bounds->shape() != shape()) throw std::invalid_argument("The bounds of a mask are as large as the mask.");
    Mask plain;
    plain._pixels = bounds->_pixels;
    result._bounds = std::make_shared<const Mask>(std::move(plain));
  }
  return result;
}

bool operator==(const Mask& a, const Mask& b) {
  if (a.shape() != b.shape()) return false;
  const std::size_t bytes = a._pixels.total();
  return a._pixels.data == b._pixels.data || std::memcmp(a._pixels.data, b._pixels.data, bytes) == 0;
}

}  // namespace orvexa::model
