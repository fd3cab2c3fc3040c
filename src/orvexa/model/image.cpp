#include "orvexa/model/image.h"

#include <cstring>
#include <mutex>
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

struct Image::Deferred {
  Shape shape;
  int channels = 1;
  std::function<void(int, std::span<float>)> fill_row;
  std::once_flag is_made = {};
  cv::Mat pixels = {};
};

Image Image::deferred(Shape shape, int channels, std::function<void(int, std::span<float>)> fill_row) {
  if (shape.height < 1 || shape.width < 1) throw std::invalid_argument("An image needs at least one pixel.");
  if (channels != 1 && channels != 3) {
    throw std::invalid_argument("An image has one channel or three, not " + std::to_string(channels) + ".");
  }
  auto made = std::make_shared<Deferred>();
  made->shape = shape;
  made->channels = channels;
  made->fill_row = std::move(fill_row);
  return Image(std::move(made));
}

Shape Image::deferred_shape() const {
  return _deferred->shape;
}

int Image::deferred_type() const {
  return CV_MAKETYPE(CV_32F, _deferred->channels);
}

const cv::Mat& Image::deferred_pixels() const {
  Deferred& own = *_deferred;
  // On one thread: a thread that waits here may be in the middle of a parallel loop, and must not be given work of
  // another one that would wait here again.
  std::call_once(own.is_made, [&own, type = deferred_type()] {
    cv::Mat pixels(own.shape.height, own.shape.width, type);
    const auto length = static_cast<std::size_t>(own.shape.width) * static_cast<std::size_t>(own.channels);
    for (int y = 0; y < own.shape.height; ++y) own.fill_row(y, {pixels.ptr<float>(y), length});
    own.pixels = std::move(pixels);
  });
  return own.pixels;
}

PixelType Image::type() const {
  switch (CV_MAT_DEPTH(mat_type())) {
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
  if (CV_MAT_DEPTH(mat_type()) != depth)
    throw std::logic_error("Image::row asked for another type than the image has.");
}

bool operator==(const Image& a, const Image& b) {
  if (a.shape() != b.shape() || a.mat_type() != b.mat_type()) return false;
  const cv::Mat& left = a.read_only();
  const cv::Mat& right = b.read_only();
  return left.data == right.data || std::memcmp(left.data, right.data, a.bytes()) == 0;
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
