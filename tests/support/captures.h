#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "orvexa/model/entities/capture_set.h"

namespace orvexa::test {

/// An image from rows of counts: `image<std::uint8_t>({{1, 2}, {3, 4}})`.
template <typename T>
model::Image image(const std::vector<std::vector<T>>& rows) {
  cv::Mat pixels(static_cast<int>(rows.size()), static_cast<int>(rows.front().size()), cv::traits::Type<T>::value);
  for (int y = 0; y < pixels.rows; ++y) {
    for (int x = 0; x < pixels.cols; ++x) {
      pixels.at<T>(y, x) = rows[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)];
    }
  }
  return model::Image(std::move(pixels));
}

template <typename T>
model::Image flat_image(int height, int width, T value) {
  return model::Image(cv::Mat(height, width, cv::DataType<T>::type, cv::Scalar::all(double(value))));
}

/// A mask from a drawing: '#' is set, anything else is not.
inline model::Mask mask(const std::vector<std::string>& rows) {
  cv::Mat pixels(static_cast<int>(rows.size()), static_cast<int>(rows.front().size()), CV_8UC1);
  for (int y = 0; y < pixels.rows; ++y) {
    for (int x = 0; x < pixels.cols; ++x) {
      pixels.at<std::uint8_t>(y, x) = rows[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)] == '#' ? 255 : 0;
    }
  }
  return model::Mask(std::move(pixels));
}

/// A capture of measurements and their images: `capture("plot", {{"MSP", {{"RED", red}, {"NIR", nir}}}})`.
inline std::shared_ptr<model::CaptureSet> capture(
    const std::string& name,
    const std::vector<std::pair<std::string, std::vector<std::pair<std::string, model::Image>>>>& measurements,
    std::shared_ptr<const model::CaptureHeader> header = nullptr, model::BandMap bands = {}) {
  model::MeasurementMap map;
  for (const auto& [measurement_name, images] : measurements) {
    auto measurement = std::make_shared<model::BaseMeasurement>();
    for (const auto& [image_name, pixels] : images) measurement->images.insert_or_assign(image_name, pixels);
    map.insert_or_assign(measurement_name, std::move(measurement));
  }
  return std::make_shared<model::CaptureSet>(model::CaptureSet::Arguments{
      .name = name, .header = std::move(header), .measurements = std::move(map), .bands = std::move(bands)});
}

}  // namespace orvexa::test
