#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "orvexa/common/files.h"
#include "orvexa/model/codecs/image_file.h"
#include "support/temporary_folder.h"

namespace orvexa::test {

/// A capture on disk whose answers are known: 40 columns, 30 rows; the left 10 columns (300 pixels) are "leaf" with NIR
/// 3000 and RED 1000 of 4000, so an NDVI of (3000 - 1000) / (3000 + 1000) = 0.5; the rest is NIR 1000, RED 1000.
inline std::filesystem::path write_plot(const std::filesystem::path& folder, const std::string& name, int height,
                                        int width, int leaf_columns) {
  cv::Mat nir(height, width, CV_16UC1, cv::Scalar(1000));
  nir.colRange(0, leaf_columns).setTo(3000);
  const cv::Mat red(height, width, CV_16UC1, cv::Scalar(1000));
  std::filesystem::create_directories(folder);
  common::write_file_atomically(folder / (name + "_NIR.tif"), model::encode_tiff(model::Image(nir.clone())));
  common::write_file_atomically(folder / (name + "_RED.tif"), model::encode_tiff(model::Image(red.clone())));
  std::filesystem::path header = folder / ("HDR_" + name + ".INF");
  common::write_file_atomically(
      header, "[Capture]\nName = " + name +
                  "\nDate = 2019-05-21\nTime = 10:32:11\nMillimetresPerPixel = 0.5\nWhiteLevel = 4000\n"
                  "[Measurement MSP]\nImage NIR = " +
                  name + "_NIR.tif\nImage RED = " + name + "_RED.tif\n[Band NIR]\nCentreNm = 842\nWidthNm = 57\n");
  return header;
}
inline std::filesystem::path write_plot(const TemporaryFolder& folder, int height = 30, int width = 40) {
  return write_plot(folder.path(), "plot", height, width, width / 4);
}

/// Keeps the leaf of `write_plot` and measures it.
inline std::filesystem::path write_leaf_workflow(const TemporaryFolder& folder) {
  return folder.write("leaf.yaml",
                      "format: 1\n"
                      "title: Leaf\n"
                      "mask_operations:\n"
                      "  - op: threshold_range\n"
                      "    params: {band: MSP.NIR, low: 0.5, high: 1.0}\n"
                      "result_operations:\n"
                      "  - op: area\n"
                      "  - op: index_statistics\n"
                      "    params: {indices: [ndvi]}\n");
}

/// Takes many seconds on a plot of 36 megapixels, so that a signal always meets it at work.
inline std::filesystem::path write_long_workflow(const TemporaryFolder& folder) {
  return folder.write("long.yaml",
                      "mask_operations:\n"
                      "  - {op: threshold_range, params: {band: MSP.NIR, low: 0.5, high: 1.0}}\n"
                      "  - {op: open, params: {radius: 150, iterations: 10}}\n"
                      "  - {op: close, params: {radius: 150, iterations: 10}}\n"
                      "  - {op: open, params: {radius: 190, iterations: 10}}\n"
                      "result_operations:\n"
                      "  - {op: area}\n");
}

}  // namespace orvexa::test
