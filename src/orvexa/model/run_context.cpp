#include "orvexa/model/run_context.h"

#include <algorithm>
#include <cstddef>
#include <opencv2/core/utility.hpp>

#include "orvexa/common/parallel.h"

namespace orvexa::model {

namespace {

constexpr int stripe_pixels = 1 << 18;

}  // namespace

int stripe_height(int width) {
  return std::max(1, stripe_pixels / std::max(1, width));
}

int stripe_count(int height, int width) {
  return (height + stripe_height(width) - 1) / stripe_height(width);
}

void for_each_stripe(int height, int width, const RunContext& context, const std::function<void(int, int)>& rows) {
  // The stripes are the parallelism: threads of OpenCV inside them would be more than the caller allowed.
  static const bool is_opencv_alone = (cv::setNumThreads(1), true);
  static_cast<void>(is_opencv_alone);
  const int step = stripe_height(width);
  common::parallel_for(static_cast<std::size_t>(stripe_count(height, width)), [&](std::size_t stripe) {
    context.check();
    const int y0 = static_cast<int>(stripe) * step;
    rows(y0, std::min(height, y0 + step));
  });
}

void for_each_piece(std::size_t count, const RunContext& context,
                    const std::function<void(std::size_t, std::size_t)>& piece) {
  for (std::size_t begin = 0; begin < count; begin += stripe_pixels) {
    context.check();
    piece(begin, std::min(count, begin + stripe_pixels));
  }
}

}  // namespace orvexa::model
