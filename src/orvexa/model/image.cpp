#include "orvexa/model/image.h"

#include <cstring>
#include <stdexcept>
#include <utility>

namespace orvexa::model {

cv::Mat unshared(cv::Mat pixels) {
  const bool is_only_owner = pixels.u != nullptr && pixels.u->refcount == 1;
  if (!is_only_owner || !pixels.isContinuous()) pixels = pixels.clone();
  return pixels;
}

Image::Image(cv::Mat pixels) {
  if (pixels.dims != 2 || pixels.empty()) throw std::invalid_argument("An image needs at least one pixel.");
  if (pixels.channels() != 1 && pixels.channels() != 3) {
    throw std::invalid_argument("An image has one channel or three, not " + std::to_string(pixels.channels()) + ".");
  }
  if (pixels.depth() != CV_8U && pixels.depth() != CV_16U && pixels.depth() != CV_32F) {
    throw std::invalid_argument("An image is 8-bit, 16-bit or 32-bit float.");
  }
  _pixels = unshared(std::move(pixels));
}

PixelType Image::type() const {
  switch (_pixels.depth()) {
    case CV_8U:
      return PixelType::u8;
    case CV_16U:
      return PixelType::u16;
    default:
      return PixelType::f32;
  }
}

double Image::type_white_level() const {
  switch (type()) {
    case PixelType::u8:
      return 255.0;
    case PixelType::u16:
      return 65535.0;
    case PixelType::f32:
      break;
  }
  return 1.0;
}

void Image::expect_type(int depth) const {
  if (_pixels.depth() != depth) throw std::logic_error("Image::row asked for another type than the image has.");
}

bool operator==(const Image& a, const Image& b) {
  if (a.shape() != b.shape() || a._pixels.type() != b._pixels.type()) return false;
  return a._pixels.data == b._pixels.data || std::memcmp(a._pixels.data, b._pixels.data, a.bytes()) == 0;
}

std::string pixel_type_text(PixelType type) {
  switch (type) {
    case PixelType::u8:
      return "8-bit";
    case PixelType::u16:
      return "16-bit";
    case PixelType::f32:
      break;
  }
  return "32-bit float";
}

}  // namespace orvexa::model
