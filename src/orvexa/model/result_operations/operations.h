#pragma once

#include "orvexa/model/result_operations/result_operation.h"

namespace orvexa::model {

// One description an operation, each defined in the file of that operation's name.
const ResultOperationInfo& area_info();
const ResultOperationInfo& bounding_box_info();
const ResultOperationInfo& centroid_info();
const ResultOperationInfo& perimeter_info();
const ResultOperationInfo& shape_factors_info();
const ResultOperationInfo& convex_hull_info();
const ResultOperationInfo& ellipse_fit_info();
const ResultOperationInfo& feret_info();
const ResultOperationInfo& enclosing_info();
const ResultOperationInfo& moments_hu_info();
const ResultOperationInfo& holes_info();
const ResultOperationInfo& thickness_info();
const ResultOperationInfo& skeleton_info();
const ResultOperationInfo& symmetry_info();
const ResultOperationInfo& region_count_info();
const ResultOperationInfo& neighbours_info();
const ResultOperationInfo& band_statistics_info();
const ResultOperationInfo& histogram_info();
const ResultOperationInfo& image_quality_info();
const ResultOperationInfo& band_correlation_info();
const ResultOperationInfo& texture_glcm_info();
const ResultOperationInfo& texture_lbp_info();
const ResultOperationInfo& color_statistics_info();
const ResultOperationInfo& color_difference_info();
const ResultOperationInfo& color_classes_info();
const ResultOperationInfo& index_statistics_info();
const ResultOperationInfo& custom_index_info();
const ResultOperationInfo& psii_info();

}  // namespace orvexa::model
