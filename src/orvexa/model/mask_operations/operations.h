#pragma once

#include "orvexa/model/mask_operations/mask_operation.h"

namespace orvexa::model {

// The descriptions of the built-in mask operations, each in the file of its key. A new one is declared here and gets
// its row in registry.cpp.
[[nodiscard]] const MaskOperationInfo& roi_rect_info();
[[nodiscard]] const MaskOperationInfo& roi_rects_info();
[[nodiscard]] const MaskOperationInfo& roi_polygon_info();
[[nodiscard]] const MaskOperationInfo& roi_ellipse_info();
[[nodiscard]] const MaskOperationInfo& roi_exclude_info();
[[nodiscard]] const MaskOperationInfo& roi_grid_info();
[[nodiscard]] const MaskOperationInfo& auto_roi_info();
[[nodiscard]] const MaskOperationInfo& threshold_range_info();
[[nodiscard]] const MaskOperationInfo& threshold_auto_info();
[[nodiscard]] const MaskOperationInfo& threshold_percentile_info();
[[nodiscard]] const MaskOperationInfo& threshold_hysteresis_info();
[[nodiscard]] const MaskOperationInfo& threshold_multiotsu_info();
[[nodiscard]] const MaskOperationInfo& threshold_adaptive_info();
[[nodiscard]] const MaskOperationInfo& threshold_sauvola_info();
[[nodiscard]] const MaskOperationInfo& texture_threshold_info();
[[nodiscard]] const MaskOperationInfo& threshold_hsv_info();
[[nodiscard]] const MaskOperationInfo& threshold_color_distance_info();
[[nodiscard]] const MaskOperationInfo& threshold_index_info();
[[nodiscard]] const MaskOperationInfo& cluster_kmeans_info();
[[nodiscard]] const MaskOperationInfo& region_grow_info();
[[nodiscard]] const MaskOperationInfo& grabcut_info();
[[nodiscard]] const MaskOperationInfo& erode_info();
[[nodiscard]] const MaskOperationInfo& dilate_info();
[[nodiscard]] const MaskOperationInfo& open_info();
[[nodiscard]] const MaskOperationInfo& close_info();
[[nodiscard]] const MaskOperationInfo& fill_holes_info();
[[nodiscard]] const MaskOperationInfo& remove_small_info();
[[nodiscard]] const MaskOperationInfo& clear_border_info();
[[nodiscard]] const MaskOperationInfo& keep_regions_info();
[[nodiscard]] const MaskOperationInfo& convex_hull_mask_info();
[[nodiscard]] const MaskOperationInfo& smooth_mask_info();
[[nodiscard]] const MaskOperationInfo& split_touching_info();
[[nodiscard]] const MaskOperationInfo& mask_edit_info();
[[nodiscard]] const MaskOperationInfo& mask_from_file_info();
[[nodiscard]] const MaskOperationInfo& background_difference_info();

}  // namespace orvexa::model
