#pragma once

#include <opencv2/core.hpp>

#include <memory>
#include <vector>

#include "orvexa/model/mask_operations/mask_operation.h"

namespace orvexa::model {

/// A set of offsets that is symmetric in both directions and has no gaps: row dy holds the columns
/// -half_widths[|dy|] to half_widths[|dy|].
struct StructuringElement {
  std::vector<int> half_widths;
  [[nodiscard]] int radius() const { return static_cast<int>(half_widths.size()) - 1; }
};

/// dx^2 + dy^2 <= r^2; r >= 0 in pixels need not be whole.
[[nodiscard]] StructuringElement disc_element(double radius);
/// |dx| <= r and |dy| <= r.
[[nodiscard]] StructuringElement square_element(double radius);

enum class MorphologyStep { erosion, dilation };

/// The steps one after another, each with the same element. Outside the limit is foreground for erosion and background
/// for dilation, and the result lies inside it. Exact; the work grows with the radius, not with its square, because a
/// row is widened once for all rows that need it, 64 pixels at a time.
/// @param mask  CV_8UC1 of 0 and 255.
/// @param limit  of the same size and type; empty = the image is the limit.
/// Source: J. Serra, Image Analysis and Mathematical Morphology, Academic Press 1982.
[[nodiscard]] cv::Mat morphology(const cv::Mat& mask, const std::vector<MorphologyStep>& steps,
                                 const StructuringElement& element, const cv::Mat& limit, const RunContext& context);

/// What the four operations share: parameters radius, unit, shape, iterations and limit.
struct MorphologyOperation {
  const char* key;
  const char* display_name;
  const char* summary;
  const char* definition;  ///< sentences for the description
  bool grows = false;
  std::vector<MorphologyStep> steps;  ///< each of them `iterations` times
};
[[nodiscard]] MaskOperationInfo morphology_info(const MorphologyOperation& operation);

}  // namespace orvexa::model
