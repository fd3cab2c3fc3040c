#include "orvexa/ui/pictures.h"

#include <algorithm>
#include <opencv2/core.hpp>
#include <stdexcept>

#include "orvexa/model/pictures/viewing.h"

namespace orvexa::ui {

namespace {

/// Height and width with this longer side, none of them 0; never larger than the original.
model::Shape small_shape(model::Shape shape, int side_px) {
  const double factor = std::min(1.0, double(side_px) / std::max(shape.height, shape.width));
  return {std::max(1, static_cast<int>(shape.height * factor)), std::max(1, static_cast<int>(shape.width * factor))};
}

/// Some of the pixels, evenly spaced: an image that can be looked at without reading all of a large one.
cv::Mat sampled(const cv::Mat& pixels, model::Shape shape) {
  cv::Mat sample(shape.height, shape.width, pixels.type());
  const std::size_t bytes = pixels.elemSize();
  for (int y = 0; y < shape.height; ++y) {
    const uchar* from = pixels.ptr(static_cast<int>(std::int64_t{y} * pixels.rows / shape.height));
    uchar* to = sample.ptr(y);
    for (int x = 0; x < shape.width; ++x, to += bytes) {
      const auto column = static_cast<std::size_t>(std::int64_t{x} * pixels.cols / shape.width);
      std::copy_n(from + column * bytes, bytes, to);
    }
  }
  return sample;
}

constexpr int samples_a_side = 4;  // of each thumbnail pixel, averaged afterwards

QImage smoothly_scaled(const QImage& picture, model::Shape shape) {
  return picture.scaled(shape.width, shape.height, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

}  // namespace

QImage mask_thumbnail(const model::Mask& mask, int side_px) {
  const cv::Mat sample = sampled(mask.read_only(), small_shape(mask.shape(), side_px * samples_a_side));
  const QImage picture(sample.data, sample.cols, sample.rows, static_cast<qsizetype>(sample.step),
                       QImage::Format_Grayscale8);
  return smoothly_scaled(picture.convertToFormat(QImage::Format_RGB32), small_shape(mask.shape(), side_px));
}

QImage image_thumbnail(const model::Image& image, int side_px) {
  const cv::Mat sample = sampled(image.read_only(), small_shape(image.shape(), side_px * samples_a_side));
  return smoothly_scaled(qt_picture(model::viewable_image(model::Image(sample))), small_shape(image.shape(), side_px));
}

QImage qt_picture(const model::Image& picture) {
  if (picture.type() != model::PixelType::u8) throw std::invalid_argument("a picture has 8 bits a channel");
  const cv::Mat& pixels = picture.read_only();
  const QImage loan(pixels.data, pixels.cols, pixels.rows, static_cast<qsizetype>(pixels.step),
                    picture.is_color() ? QImage::Format_RGB888 : QImage::Format_Grayscale8);
  return loan.convertToFormat(QImage::Format_RGB32);
}

}  // namespace orvexa::ui
