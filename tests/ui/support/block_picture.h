#pragma once

#include <utility>

#include "orvexa/model/image.h"

namespace orvexa::test {

/// A dark picture of 60 x 80 pixels with a bright block of 20 x 30 = 600 pixels.
inline model::Image block_picture() {
  cv::Mat pixels(60, 80, CV_8UC1, cv::Scalar(20));
  pixels(cv::Rect(10, 15, 30, 20)).setTo(200);
  return model::Image(std::move(pixels));
}

}  // namespace orvexa::test
