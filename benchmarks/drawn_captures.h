#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <opencv2/core.hpp>
#include <utility>
#include <vector>

#include "orvexa/model/entities/capture_set.h"

namespace orvexa::benchmarks {

/// The sizes that benchmarks are run at: a rate that holds for only one size is not a rate. At 1, 12 and 24 megapixels
/// the rows of discs are a multiple of eight, so that the same share of each picture is disc.
inline model::Shape shape_of(std::int64_t megapixels) {
  switch (megapixels) {
    case 1:
      return {1600, 625};
    case 12:
      return {3200, 3750};
    case 24:
      return {4800, 5000};
    default:
      return {1500, 2000};  // 3 megapixels
  }
}

/// Discs in rows and columns, 200 pixels apart; the eight ones along each column take radii of 40 to 75 in turn.
inline constexpr int disc_spacing = 200;
inline int disc_count(model::Shape shape) {
  return (shape.height / disc_spacing) * (shape.width / disc_spacing);
}

/// The middle of the first disc, as fractions of the picture.
inline std::array<double, 2> first_disc(model::Shape shape) {
  return {(disc_spacing / 2 + 0.5) / shape.width, (disc_spacing / 2 + 0.5) / shape.height};
}

/// A drawn tray of bright discs on dark ground with the noise of a camera (sigma 2, fixed seed): measurement CLR with a
/// colour image, and MSP with the 16-bit bands BLU, GRN, RED and NIR.
inline std::shared_ptr<model::CaptureSet> drawn_capture(model::Shape shape) {
  cv::RNG random(20190521);
  cv::Mat noise(shape.height, shape.width, CV_16SC3);
  random.fill(noise, cv::RNG::NORMAL, 0, 2);
  cv::Mat color(shape.height, shape.width, CV_8UC3);
  struct SpectralBand {
    const char* name;
    int ground;
    int leaf;
  };
  constexpr std::array<SpectralBand, 4> bands{
      {{"BLU", 9000, 2500}, {"GRN", 11000, 6000}, {"RED", 12000, 3000}, {"NIR", 15000, 40000}}};
  std::vector<cv::Mat> planes;
  for (std::size_t b = 0; b < bands.size(); ++b) planes.emplace_back(shape.height, shape.width, CV_16UC1);
  for (int y = 0; y < shape.height; ++y) {
    for (int x = 0; x < shape.width; ++x) {
      const int dx = x % disc_spacing - disc_spacing / 2;
      const int dy = y % disc_spacing - disc_spacing / 2;
      const int radius = 40 + 5 * (y / disc_spacing % 8);
      const bool is_leaf = dx * dx + dy * dy <= radius * radius && y / disc_spacing < shape.height / disc_spacing &&
                           x / disc_spacing < shape.width / disc_spacing;
      const cv::Vec3s grain = noise.at<cv::Vec3s>(y, x);
      const int shade = 8 * dx / disc_spacing;
      const cv::Vec3i tint = is_leaf ? cv::Vec3i(90, 170, 60) : cv::Vec3i(70, 55, 45);
      for (int c = 0; c < 3; ++c) {
        color.at<cv::Vec3b>(y, x)[c] = cv::saturate_cast<std::uint8_t>(tint[c] + shade + grain[c]);
      }
      for (std::size_t b = 0; b < bands.size(); ++b) {
        const int counts = (is_leaf ? bands[b].leaf : bands[b].ground) + 40 * grain[static_cast<int>(b) % 3];
        planes[b].at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(counts);
      }
    }
  }
  model::MeasurementMap measurements;
  auto clr = std::make_shared<model::BaseMeasurement>();
  clr->images.insert_or_assign("RGB", model::Image(std::move(color)));
  auto msp = std::make_shared<model::BaseMeasurement>();
  for (std::size_t b = 0; b < bands.size(); ++b) {
    msp->images.insert_or_assign(bands[b].name, model::Image(std::move(planes[b])));
  }
  measurements.insert_or_assign("CLR", std::move(clr));
  measurements.insert_or_assign("MSP", std::move(msp));
  auto header = std::make_shared<model::CaptureHeader>();
  header->name = "tray";
  header->white_level = 65535;
  return std::make_shared<model::CaptureSet>(model::CaptureSet::Arguments{
      .name = "tray", .header = std::move(header), .measurements = std::move(measurements), .bands = {}});
}

}  // namespace orvexa::benchmarks
