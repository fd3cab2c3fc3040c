#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "orvexa/model/result_operations/registry.h"
#include "support/captures.h"

namespace orvexa::test {

/// Runs an operation of the registry on a capture, masked when there is a mask.
inline model::OperationResult measured(std::string_view key, const model::CaptureSet& source,
                                       const std::optional<model::Mask>& mask = std::nullopt,
                                       const model::Value& params = model::Value::object()) {
  const auto operation = model::get_result_operation(key)();
  if (!mask) return operation->run({.source_capture = source, .params = params});
  return operation->run({.source_capture = *source.apply_mask(*mask), .params = params});
}

/// A mask with regions from a drawing: a digit is a pixel of that region, '#' is set and in no region. The regions are
/// "ROI_1" to the highest digit, or to `count`.
inline model::Mask mask_of_regions(const std::vector<std::string>& rows, int count = 0) {
  const int height = static_cast<int>(rows.size());
  const int width = static_cast<int>(rows.front().size());
  cv::Mat pixels = cv::Mat::zeros(height, width, CV_8UC1);
  auto labels = std::make_shared<model::RegionLabels>();
  labels->image = cv::Mat::zeros(height, width, CV_32SC1);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const char at = rows[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)];
      if (at == '#' || (at >= '1' && at <= '9')) pixels.at<std::uint8_t>(y, x) = 255;
      if (at >= '1' && at <= '9') labels->image.at<std::int32_t>(y, x) = at - '0';
      if (at >= '1' && at <= '9') count = std::max(count, at - '0');
    }
  }
  for (int k = 1; k <= count; ++k) labels->names.push_back("ROI_" + std::to_string(k));
  return model::Mask(std::move(pixels)).with_labels(std::move(labels));
}

/// A mask cut into a grid of regions as equal as they can be.
inline model::Mask mask_of_grid(const model::Mask& mask, int rows, int columns) {
  auto labels = std::make_shared<model::RegionLabels>();
  const auto [height, width] = mask.shape();
  labels->image.create(height, width, CV_32SC1);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int row = static_cast<int>(std::int64_t{y} * rows / height);
      const int column = static_cast<int>(std::int64_t{x} * columns / width);
      labels->image.at<std::int32_t>(y, x) = row * columns + column + 1;
    }
  }
  for (int k = 1; k <= rows * columns; ++k) labels->names.push_back("ROI_" + std::to_string(k));
  return mask.with_labels(std::move(labels));
}

/// One region of a mask alone, as a mask without regions.
inline model::Mask only_region(const model::Mask& mask, int label) {
  cv::Mat pixels;
  cv::compare(mask.labels()->image, label, pixels, cv::CMP_EQ);
  cv::bitwise_and(pixels, mask.read_only(), pixels);
  return model::Mask(std::move(pixels));
}

/// A header that declares a scale.
inline std::shared_ptr<const model::CaptureHeader> header_with_scale(double millimetres_per_pixel) {
  model::CaptureHeader header;
  header.millimetres_per_pixel = millimetres_per_pixel;
  return std::make_shared<const model::CaptureHeader>(header);
}

/// The whole result as text, to compare runs byte by byte.
inline std::string text_of(const model::OperationResult& result) {
  model::Value all{{"metrics", result.metrics}, {"units", result.units}, {"reasons", result.reasons}};
  for (const auto& [name, region] : result.regions) {
    all["regions"][name] = {{"metrics", region.metrics}, {"reasons", region.reasons}};
  }
  for (const auto& [name, table] : result.tables) all["tables"][name] = {{"c", table.columns}, {"r", table.rows}};
  std::string text = all.dump();
  for (const auto& [name, image] : result.images) {
    for (const auto& pixels : {std::optional(image.picture), image.numbers}) {
      if (!pixels) continue;
      const cv::Mat& mat = pixels->read_only();
      text.append(name).append(reinterpret_cast<const char*>(mat.data), mat.total() * mat.elemSize());
    }
  }
  return text;
}

}  // namespace orvexa::test
