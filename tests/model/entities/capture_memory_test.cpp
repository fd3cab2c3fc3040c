#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "orvexa/model/entities/capture_set.h"
#include "support/base_images.h"
#include "support/counting_allocator.h"

namespace orvexa::model {
namespace {

using test::CountingAllocator;

/// Everything the program holds from malloc, arrays included; 0 where a sanitizer has a malloc of its own.
std::int64_t malloc_bytes() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<std::int64_t>(info.uordblks + info.hblkhd);
}

constexpr int height = 4000;
constexpr int width = 5000;
constexpr std::int64_t pixels = std::int64_t{height} * width;

std::shared_ptr<CaptureSet> capture_of_ten_bands() {
  auto measurement = std::make_shared<BaseMeasurement>();
  for (int band = 0; band < 10; ++band) {
    measurement->images.insert_or_assign("B" + std::to_string(band),
                                         Image(cv::Mat(height, width, CV_16UC1, cv::Scalar(100 * band + 1))));
  }
  MeasurementMap measurements;
  measurements.insert_or_assign("MSP", std::move(measurement));
  return std::make_shared<CaptureSet>(
      CaptureSet::Arguments{.name = "large", .header = nullptr, .measurements = std::move(measurements), .bands = {}});
}

/// The mask of one step: a frame that gets narrower from step to step.
Mask step_mask(int step) {
  cv::Mat mask(height, width, CV_8UC1, cv::Scalar(0));
  mask(cv::Rect(step, step, width - 2 * step, height - 2 * step)).setTo(255);
  return Mask(std::move(mask));
}

TEST(CaptureMemory, TheCountersNoticeACopyOfOneBand) {
  const CountingAllocator arrays;
  const Image band(cv::Mat(height, width, CV_16UC1, cv::Scalar(1)));
  const std::int64_t arrays_before = arrays.live_bytes();
  const std::int64_t all_before = malloc_bytes();
  {
    const cv::Mat copy = band.read_only().clone();
    EXPECT_EQ(arrays.live_bytes() - arrays_before, 2 * pixels);
    if (all_before != 0) {
      EXPECT_GE(malloc_bytes() - all_before, 2 * pixels);
    }
  }
  EXPECT_EQ(arrays.live_bytes(), arrays_before);
}

TEST(CaptureMemory, TenStepsOnTenLargeBandsCostAMaskEachAndNoCopyOfAnyImage) {
  const CountingAllocator arrays;
  const auto capture = capture_of_ten_bands();
  EXPECT_EQ(arrays.live_bytes(), 10 * 2 * pixels);
  const auto hashes = test::base_image_hashes(*capture);
  const std::int64_t arrays_before = arrays.live_bytes();
  const std::int64_t all_before = malloc_bytes();

  // Every step's capture stays alive, as it does in the cached chain of an editing session.
  std::vector<std::shared_ptr<CaptureSet>> chain{capture};
  for (int step = 1; step <= 10; ++step) {
    chain.push_back(chain.back()->apply_mask(step_mask(step), {"step", {{"number", step}}}));
    // The limit is 1.1 byte a pixel a step, in whole numbers: 11 / 10.
    EXPECT_LE(arrays.live_bytes() - arrays_before, step * pixels * 11 / 10) << "after step " << step;
    if (all_before != 0) {
      EXPECT_LE(malloc_bytes() - all_before, step * pixels * 11 / 10) << "after step " << step;
    }
  }

  EXPECT_EQ(chain.back()->measurements.at("MSP")->masks.size(), 10u);
  EXPECT_EQ(chain.back()->mask->count(), std::int64_t{width - 20} * (height - 20));
  EXPECT_EQ(test::base_image_hashes(*capture), hashes);

  // Looking at a masked image makes it, and nothing of it stays.
  const std::int64_t before_looking = arrays.live_bytes();
  {
    const Image shown = chain.back()->measurements.at("MSP")->images.at("B3").pixels();
    EXPECT_EQ(shown.row<std::uint16_t>(9)[2500], 0);
    EXPECT_EQ(shown.row<std::uint16_t>(10)[2500], 301);
    EXPECT_EQ(arrays.live_bytes() - before_looking, 2 * pixels);
  }
  EXPECT_EQ(arrays.live_bytes(), before_looking);
}

}  // namespace
}  // namespace orvexa::model
