// Thousands of regions are measured in one pass: they may cost little more than one.
#include <gtest/gtest.h>

#include <ctime>
#include <opencv2/imgproc.hpp>

#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

constexpr Shape twelve_megapixels{3000, 4000};
constexpr int rows = 50;
constexpr int columns = 100;

/// A level of its own for each cell of the grid and the noise of a camera, one hundredth of the highest level.
Image plane_of_a_camera(std::uint64_t seed, double highest, PixelType type) {
  cv::RNG random(seed);
  cv::Mat levels(rows, columns, CV_32FC1);
  random.fill(levels, cv::RNG::UNIFORM, 0.2 * highest, 0.9 * highest);
  cv::Mat pixels;
  const cv::Size size(twelve_megapixels.width, twelve_megapixels.height);
  cv::resize(levels, pixels, size, 0, 0, cv::INTER_NEAREST);
  cv::Mat noise(pixels.size(), CV_32FC1);
  random.fill(noise, cv::RNG::NORMAL, 0, 0.01 * highest);
  pixels += noise;
  cv::Mat counts;
  pixels.convertTo(counts, type == PixelType::u8 ? CV_8U : CV_16U);
  return Image(std::move(counts));
}

Image color_picture_of_a_camera() {
  std::vector<cv::Mat> channels;
  for (const std::uint64_t seed : {1U, 2U, 3U}) {
    channels.push_back(plane_of_a_camera(seed, 255, PixelType::u8).read_only());
  }
  cv::Mat pixels;
  cv::merge(channels, pixels);
  return Image(std::move(pixels));
}

std::shared_ptr<CaptureSet> large_capture() {
  const auto band = [](std::uint64_t seed, double highest) { return plane_of_a_camera(seed, highest, PixelType::u16); };
  auto capture = test::capture("large",
                               {{"CLR", {{"RGB", color_picture_of_a_camera()}}},
                                {"MSP", {{"RED", band(4, 6000)}, {"NIR", band(5, 9000)}}},
                                {"FLU", {{"F0", band(6, 9000)}, {"FM", band(7, 9500)}}}},
                               test::header_with_scale(0.25));
  capture->measurements.at("MSP")->declared_white_level = 10000;
  return capture;
}

/// An ellipse in each cell of a grid, so that every region has a shape.
Mask ellipses() {
  const int height = twelve_megapixels.height / rows;
  const int width = twelve_megapixels.width / columns;
  cv::Mat pixels(twelve_megapixels.height, twelve_megapixels.width, CV_8UC1);
  for (int y = 0; y < pixels.rows; ++y) {
    for (int x = 0; x < pixels.cols; ++x) {
      const double dy = (y % height - 0.5 * height) / (0.47 * height);
      const double dx = (x % width - 0.5 * width) / (0.47 * width);
      pixels.at<std::uint8_t>(y, x) = dx * dx + dy * dy <= 1 ? 255 : 0;
    }
  }
  return Mask(std::move(pixels));
}

const CaptureSet& one_region() {
  static const auto capture = large_capture()->apply_mask(ellipses());
  return *capture;
}

const CaptureSet& many_regions() {
  static const auto capture = one_region().apply_mask(test::mask_of_grid(*one_region().mask, rows, columns));
  return *capture;
}

/// Processor seconds of all threads for one run. The regions are made once for all operations of a workflow.
double seconds(const std::string& key, const CaptureSet& capture, const RegionSet& regions) {
  const auto operation = get_result_operation(key)();
  const std::clock_t begin = std::clock();
  const OperationResult result = operation->run({.source_capture = capture, .regions = &regions});
  const std::clock_t end = std::clock();
  EXPECT_EQ(result.regions.size(), regions.regions().size());
  return static_cast<double>(end - begin) / CLOCKS_PER_SEC;
}

/// Processor seconds to copy the picture of the capture once: an operation that does not even look at all pixels is
/// compared with one that does, because thousands of rows have to be written in any case.
double seconds_of_a_copy() {
  const Image picture = one_region().find_image("CLR", "RGB").value();
  cv::Mat copy;
  picture.read_only().copyTo(copy);
  const std::clock_t begin = std::clock();
  picture.read_only().copyTo(copy);
  return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
}

std::vector<std::string> keys_of_single_regions() {
  std::vector<std::string> keys;
  for (const auto& [key, info] : get_available_result_operations()) {
    if (!info->needs_labels) keys.push_back(key);  // what compares regions has nothing to do for one
  }
  return keys;
}

/// How many times the cost of one region 5,000 may have: three, and half as much again for the checks of this build and
/// a machine that does other work.
double limit_of(const std::string& key) {
  // Sixteen statistics of seven planes are half a million numbers that one region does not have to write.
  const double times = key == "band_statistics" ? 4 : 3;
  return 1.5 * times;
}

class RegionCost : public testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(Registry, RegionCost, testing::ValuesIn(keys_of_single_regions()),
                         [](const auto& key) { return key.param; });

TEST_P(RegionCost, OfFiveThousandIsLittleMoreThanThatOfOne) {
  const double limit = limit_of(GetParam());
  const RegionSet whole(*one_region().mask);
  const RegionSet grid(*many_regions().mask);
  ASSERT_EQ(grid.regions().size(), std::size_t{rows} * columns);
  const double copy = seconds_of_a_copy();
  double one = std::numeric_limits<double>::infinity();
  double many = std::numeric_limits<double>::infinity();
  // A machine that does other work at the same time only makes runs longer: the shortest of a few is compared.
  for (int round = 0; round < 6; ++round) {
    one = std::min(one, seconds(GetParam(), one_region(), whole));
    many = std::min(many, seconds(GetParam(), many_regions(), grid));
    if (round > 0 && many <= limit * std::max(one, copy)) break;
  }
  EXPECT_LE(many, limit * std::max(one, copy)) << "one region " << one << " s, a copy of the picture " << copy << " s";
  RecordProperty("ratio", std::to_string(many / one));
}

}  // namespace
}  // namespace orvexa::model
