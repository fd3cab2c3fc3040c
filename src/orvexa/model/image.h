#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <utility>

namespace orvexa::model {

/// Height and width of an image or mask, in pixels.
struct Shape {
  int height = 0;
  int width = 0;
  [[nodiscard]] std::int64_t pixels() const { return std::int64_t{height} * width; }
  friend bool operator==(const Shape&, const Shape&) = default;
};

enum class PixelType { u8, u16, f32 };

/// An immutable picture: height x width (one channel) or height x width x 3 (RGB order); 8-bit or 16-bit unsigned or
/// 32-bit float. Copies share the pixels, so an Image may cross threads uncopied.
class Image {
 public:
  /// Takes the pixels over. They are copied only when somebody else still holds them, so that nobody can change an
  /// Image from outside.
  /// @throws std::invalid_argument for another type, channel count or an empty Mat.
  explicit Image(cv::Mat pixels);

  /// A 32-bit float picture that is worked out when its pixels are first read, once for all copies; its size and type
  /// are known before. What only needs some rows of it, or another order, asks whoever made it (see `Band`).
  /// @param fill_row  fills row y, channels interleaved; called on one thread, in order.
  [[nodiscard]] static Image deferred(Shape shape, int channels,
                                      std::function<void(int y, std::span<float> row)> fill_row);

  [[nodiscard]] Shape shape() const { return _deferred ? deferred_shape() : Shape{_pixels.rows, _pixels.cols}; }
  [[nodiscard]] int height() const { return shape().height; }
  [[nodiscard]] int width() const { return shape().width; }
  [[nodiscard]] int channels() const { return CV_MAT_CN(mat_type()); }
  [[nodiscard]] bool is_color() const { return channels() == 3; }
  [[nodiscard]] PixelType type() const;
  /// 255, 65535 or 1.0: the count that is white where nothing else was declared.
  [[nodiscard]] double type_white_level() const;
  [[nodiscard]] std::size_t bytes() const {
    return static_cast<std::size_t>(shape().pixels()) * static_cast<std::size_t>(CV_ELEM_SIZE(mat_type()));
  }

  /// One row, channels interleaved: width() * channels() values.
  /// @throws std::logic_error when T is not the image's own type.
  template <typename T>
  [[nodiscard]] std::span<const T> row(int y) const {
    expect_type(cv::DataType<T>::depth);
    return {read_only().ptr<T>(y), static_cast<std::size_t>(width()) * static_cast<std::size_t>(channels())};
  }

  /// For library calls inside the model; OpenCV cannot promise constness, the caller must.
  [[nodiscard]] const cv::Mat& read_only() const { return _deferred ? deferred_pixels() : _pixels; }

  /// Same shape, type and bits.
  friend bool operator==(const Image& a, const Image& b);

 private:
  struct Deferred;
  explicit Image(std::shared_ptr<Deferred> pixels) : _deferred(std::move(pixels)) {}
  void expect_type(int depth) const;
  [[nodiscard]] int mat_type() const { return _deferred ? deferred_type() : _pixels.type(); }
  [[nodiscard]] Shape deferred_shape() const;
  [[nodiscard]] int deferred_type() const;
  [[nodiscard]] const cv::Mat& deferred_pixels() const;

  cv::Mat _pixels;
  std::shared_ptr<Deferred> _deferred;  ///< null for pixels that are there
};

/// "8-bit", "16-bit", "32-bit float".
[[nodiscard]] std::string pixel_type_text(PixelType type);

/// The Mat itself when nobody else holds its pixels, otherwise a deep copy: what makes Image and Mask immutable.
[[nodiscard]] cv::Mat unshared(cv::Mat pixels);

}  // namespace orvexa::model
