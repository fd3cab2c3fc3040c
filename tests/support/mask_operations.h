#pragma once

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>

#include "orvexa/common/parallel.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/mask_operations/registry.h"
#include "support/captures.h"
#include "support/temporary_folder.h"

namespace orvexa::test {

inline std::size_t hash_of(const cv::Mat& pixels) {
  std::size_t hash = 0;
  for (int y = 0; y < pixels.rows; ++y) {
    const std::string_view row(pixels.ptr<char>(y), pixels.elemSize() * static_cast<std::size_t>(pixels.cols));
    hash = hash * 1099511628211u + std::hash<std::string_view>{}(row);
  }
  return hash;
}

/// Each pixel is set with the given probability.
inline model::Mask random_mask(unsigned seed, int height, int width, double share) {
  std::mt19937 random(seed);
  std::bernoulli_distribution is_set(share);
  cv::Mat pixels(height, width, CV_8UC1);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) pixels.at<std::uint8_t>(y, x) = is_set(random) ? 255 : 0;
  }
  return model::Mask(std::move(pixels));
}

/// Noise from 0 to `highest` in every channel.
template <typename T>
model::Image random_image(unsigned seed, int height, int width, int channels, double highest) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> value(0.0, highest);
  cv::Mat pixels(height, width, CV_MAKETYPE(cv::DataType<T>::depth, channels));
  for (int y = 0; y < height; ++y) {
    T* row = pixels.ptr<T>(y);
    for (int i = 0; i < width * channels; ++i) row[i] = static_cast<T>(value(random));
  }
  return model::Image(std::move(pixels));
}

/// A colour picture in 8 bits, bands in 16 bits and one in float.
inline std::shared_ptr<model::CaptureSet> random_capture(unsigned seed, int height, int width) {
  return capture("noise", {{"CLR", {{"RGB", random_image<std::uint8_t>(seed, height, width, 3, 255.9)}}},
                           {"MSP",
                            {{"BLU", random_image<std::uint16_t>(seed + 1, height, width, 1, 4000)},
                             {"GRN", random_image<std::uint16_t>(seed + 2, height, width, 1, 5000)},
                             {"RED", random_image<std::uint16_t>(seed + 3, height, width, 1, 6000)},
                             {"NIR", random_image<std::uint16_t>(seed + 4, height, width, 1, 9000)},
                             {"HEAT", random_image<float>(seed + 5, height, width, 1, 1.0)}}}});
}

/// Runs an operation of the registry on a mask.
inline model::Mask applied(std::string_view key, const model::ImageSource& source,
                           const std::optional<model::Mask>& mask, const model::Value& params = {}) {
  const auto operation = model::get_mask_operation(key)();
  auto result = operation->apply({.image_stack = source, .current_mask = mask, .params = params});
  if (!result) throw std::logic_error("The operation gave no mask.");
  return *std::move(result);
}

inline bool names_a_file(const model::MaskOperationInfo& info) {
  return std::any_of(info.parameters.begin(), info.parameters.end(), [](const model::ParameterInfo& parameter) {
    return parameter.type == model::ParameterType::file;
  });
}

/// What an operation can run with: its defaults, and for a parameter that has to name a file a picture of noise of that
/// size.
inline model::Value usable_params(const model::MaskOperationInfo& info, model::Shape shape) {
  static const TemporaryFolder folder;
  model::Value params = model::Value::object();
  for (const model::ParameterInfo& parameter : info.parameters) {
    if (parameter.type != model::ParameterType::file) continue;
    const int channels = info.key == "mask_from_file" ? 1 : 3;  // labels have one
    const std::string name =
        std::to_string(shape.height) + "x" + std::to_string(shape.width) + "x" + std::to_string(channels) + ".png";
    if (!std::filesystem::exists(folder / name)) {
      const model::Image noise = random_image<std::uint8_t>(5, shape.height, shape.width, channels, 255.9);
      folder.write(name, common::as_text(model::encode_png(noise)));
    }
    params[parameter.name] = (folder / name).string();
  }
  return params;
}

/// A capture without content, for operations that look at the mask alone.
inline std::shared_ptr<model::CaptureSet> blank_capture(model::Shape shape) {
  return capture("blank", {{"GRY", {{"GRY", flat_image<std::uint8_t>(shape.height, shape.width, 0)}}}});
}

inline model::Mask applied(std::string_view key, const model::Mask& mask, const model::Value& params = {}) {
  return applied(key, *blank_capture(mask.shape()), mask, params);
}

/// The note that an operation leaves.
inline std::string note_of(std::string_view key, const model::ImageSource& source,
                           const std::optional<model::Mask>& mask, const model::Value& params = {}) {
  const auto operation = model::get_mask_operation(key)();
  static_cast<void>(operation->apply({.image_stack = source, .current_mask = mask, .params = params}));
  return operation->note;
}

/// The picture that an operation draws of its step; absent when it draws none.
inline std::optional<model::Image> overlay_of(std::string_view key, const model::Mask& mask,
                                              const model::Value& params = {}) {
  const auto capture = blank_capture(mask.shape());
  const auto operation = model::get_mask_operation(key)();
  static_cast<void>(operation->apply({.image_stack = *capture, .current_mask = mask, .params = params}));
  return operation->viz_overlay;
}

/// The sentence with which a call is refused; empty when it is not.
inline std::string refusal(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::exception& e) {
    return e.what();
  }
  return {};
}

/// Limits the threads while it lives.
class ThreadCount {
 public:
  explicit ThreadCount(int count) { common::set_thread_count(count); }
  ~ThreadCount() { common::set_thread_count(0); }
  ThreadCount(const ThreadCount&) = delete;
  ThreadCount& operator=(const ThreadCount&) = delete;
};

/// The drawing of a mask, a row a text, for readable failures.
inline std::vector<std::string> drawing(const model::Mask& mask) {
  std::vector<std::string> rows;
  for (int y = 0; y < mask.shape().height; ++y) {
    std::string row;
    for (int x = 0; x < mask.shape().width; ++x) row += mask.at(y, x) ? '#' : '.';
    rows.push_back(row);
  }
  return rows;
}

}  // namespace orvexa::test
