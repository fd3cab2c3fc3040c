#pragma once

#include <filesystem>
#include <string>

#include "support/captures.h"
#include "ui/support/desktop.h"

namespace orvexa::test {

/// A grey picture of 100 x 80 pixels, dark (10) with a bright (200) block of 40 x 30 = 1,200 pixels.
inline model::Image block_image() {
  cv::Mat pixels(80, 100, CV_8UC1, cv::Scalar(10));
  pixels(cv::Rect(20, 10, 40, 30)).setTo(200);
  return model::Image(std::move(pixels));
}

/// A capture of that picture as measurement GRY, whose pixels are 0.5 mm wide.
inline std::filesystem::path write_block_capture(const TemporaryFolder& folder) {
  common::write_file_atomically(folder / "block.png", model::encode_png(block_image()));
  return folder.write("HDR_block.INF",
                      "[Capture]\nName = block\nDate = 2024-05-21\nTime = 10:32:11\nMillimetresPerPixel = 0.5\n"
                      "[Measurement GRY]\nImage GRY = block.png\n");
}

}  // namespace orvexa::test
