#include "orvexa/model/pictures/overlay.h"

#include <numeric>
#include <stdexcept>
#include <utility>

namespace orvexa::model {

namespace {

template <typename T>
void paint(cv::Mat& picture, const Image& above) {
  const auto channels = static_cast<std::size_t>(above.channels());
  for (int y = 0; y < above.height(); ++y) {
    const std::span<const T> source = above.row<T>(y);
    T* target = picture.ptr<T>(y);
    for (std::size_t x = 0; x < source.size(); x += channels) {
      const auto pixel = source.subspan(x, channels);
      if (std::accumulate(pixel.begin(), pixel.end(), 0.0) > 0) std::copy(pixel.begin(), pixel.end(), target + x);
    }
  }
}

}  // namespace

Image painted_over(const Image& below, const Image& above) {
  if (below.shape() != above.shape() || below.type() != above.type() || below.channels() != above.channels()) {
    throw std::invalid_argument("An overlay must have the size and type of the one that it is painted over.");
  }
  cv::Mat picture = below.read_only().clone();
  switch (above.type()) {
    case PixelType::u8:
      paint<std::uint8_t>(picture, above);
      break;
    case PixelType::u16:
      paint<std::uint16_t>(picture, above);
      break;
    case PixelType::f32:
      paint<float>(picture, above);
      break;
  }
  return Image(std::move(picture));
}

}  // namespace orvexa::model
