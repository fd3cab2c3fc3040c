#include "orvexa/model/mask_operations/registry.h"

#include <stdexcept>
#include <utility>

#include "orvexa/common/text.h"
#include "orvexa/model/mask_operations/operations.h"

namespace orvexa::model {

namespace {

MaskRegistryOverride* active_override = nullptr;

/// The only list; its order is the order in menus, help and documents.
const std::vector<const MaskOperationInfo*>& built_in_operations() {
  // clang-format off
  static const std::vector<const MaskOperationInfo*> all{
      &roi_rect_info(),
      &roi_rects_info(),
      &roi_polygon_info(),
      &roi_ellipse_info(),
      &roi_exclude_info(),
      &roi_grid_info(),
      &auto_roi_info(),
      &threshold_range_info(),
      &threshold_auto_info(),
      &threshold_percentile_info(),
      &threshold_hysteresis_info(),
      &threshold_multiotsu_info(),
      &threshold_adaptive_info(),
      &threshold_sauvola_info(),
      &texture_threshold_info(),
      &threshold_hsv_info(),
      &threshold_color_distance_info(),
      &threshold_index_info(),
      &cluster_kmeans_info(),
      &region_grow_info(),
      &grabcut_info(),
      &erode_info(),
      &dilate_info(),
      &open_info(),
      &close_info(),
      &fill_holes_info(),
      &remove_small_info(),
      &clear_border_info(),
      &keep_regions_info(),
      &convex_hull_mask_info(),
      &smooth_mask_info(),
      &split_touching_info(),
      &mask_edit_info(),
      &mask_from_file_info(),
      &background_difference_info(),
  };
  // clang-format on
  return all;
}

}  // namespace

struct MaskRegistryAccess {
  static const std::vector<const MaskOperationInfo*>& operations(std::string_view wanted) {
    if (active_override == nullptr) return built_in_operations();
    if (active_override->_on_access) active_override->_on_access(wanted);
    return active_override->_operations;
  }
  static MaskRegistryOverride* exchange(MaskRegistryOverride* next) { return std::exchange(active_override, next); }
};

std::vector<const MaskOperationInfo*> get_all_mask_operation_infos() {
  return MaskRegistryAccess::operations({});
}

common::OrderedMap<const MaskOperationInfo*> get_available_mask_operations() {
  common::OrderedMap<const MaskOperationInfo*> by_key;
  for (const MaskOperationInfo* info : MaskRegistryAccess::operations({})) by_key.insert({info->key, info});
  return by_key;
}

const MaskOperationInfo* find_mask_operation(std::string_view key) {
  for (const MaskOperationInfo* info : MaskRegistryAccess::operations(key)) {
    if (info->key == key) return info;
  }
  return nullptr;
}

const MaskOperationInfo& get_mask_operation(std::string_view key) {
  std::vector<std::string> known;
  for (const MaskOperationInfo* info : MaskRegistryAccess::operations(key)) {
    if (info->key == key) return *info;
    known.push_back(info->key);
  }
  throw std::invalid_argument("There is no mask operation \"" + common::to_valid_utf8(key) + "\"" +
                              common::did_you_mean(key, known) + ".");
}

MaskRegistryOverride::MaskRegistryOverride(std::vector<const MaskOperationInfo*> operations,
                                           std::function<void(std::string_view)> on_access)
    : _previous(MaskRegistryAccess::exchange(this)),
      _operations(std::move(operations)),
      _on_access(std::move(on_access)) {}

MaskRegistryOverride::~MaskRegistryOverride() {
  MaskRegistryAccess::exchange(_previous);
}

}  // namespace orvexa::model
