#pragma once

#include <span>
#include <string>
#include <vector>

#include "orvexa/common/files.h"
#include "orvexa/model/entities/capture_set.h"

namespace orvexa::test {

/// "MSP.NIR <sha256 of its pixels>" for every base image. Operations must never write into them, and OpenCV cannot
/// promise it: `const auto before = base_image_hashes(*c); ...; EXPECT_EQ(base_image_hashes(*c), before);`
inline std::vector<std::string> base_image_hashes(const model::CaptureSet& capture) {
  std::vector<std::string> hashes;
  for (const auto& [measurement_name, measurement] : capture.measurements) {
    for (const auto& [image_name, entry] : measurement->images) {
      if (!entry.is_array()) continue;
      const cv::Mat& pixels = entry.base().read_only();
      const auto bytes = std::as_bytes(std::span(pixels.data, entry.base().bytes()));
      hashes.push_back(measurement_name + "." + image_name + " " + common::sha256_hex(bytes));
    }
  }
  return hashes;
}

}  // namespace orvexa::test
