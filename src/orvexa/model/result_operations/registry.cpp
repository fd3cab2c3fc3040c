#include "orvexa/model/result_operations/registry.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "orvexa/common/text.h"
#include "orvexa/model/result_operations/operations.h"

namespace orvexa::model {

namespace {

/// The only list; its order is the order of menus, help, documents and availability.
const std::vector<const ResultOperationInfo*>& built_in_operations() {
  // clang-format off
  static const std::vector<const ResultOperationInfo*> all{
      &area_info(),
      &bounding_box_info(),
      &centroid_info(),
      &perimeter_info(),
      &shape_factors_info(),
      &convex_hull_info(),
      &ellipse_fit_info(),
      &feret_info(),
      &enclosing_info(),
      &moments_hu_info(),
      &holes_info(),
      &thickness_info(),
      &skeleton_info(),
      &symmetry_info(),
      &region_count_info(),
      &neighbours_info(),
      &band_statistics_info(),
      &histogram_info(),
      &image_quality_info(),
      &band_correlation_info(),
      &texture_glcm_info(),
      &texture_lbp_info(),
      &color_statistics_info(),
      &color_difference_info(),
      &color_classes_info(),
      &index_statistics_info(),
      &custom_index_info(),
      &psii_info(),
  };
  // clang-format on
  return all;
}

}  // namespace

struct ResultRegistryAccess {
  static inline ResultRegistryOverride* current = nullptr;

  static const std::vector<const ResultOperationInfo*>& operations(std::string_view key) {
    if (current == nullptr) return built_in_operations();
    if (current->_on_access) current->_on_access(key);
    return current->_operations;
  }

  static const ResultOperationInfo* find(std::string_view key,
                                         const std::vector<const ResultOperationInfo*>& operations) {
    for (const ResultOperationInfo* info : operations) {
      if (info->key == key) return info;
    }
    return nullptr;
  }
};

common::OrderedMap<const ResultOperationInfo*> get_available_result_operations() {
  common::OrderedMap<const ResultOperationInfo*> by_key;
  for (const ResultOperationInfo* info : ResultRegistryAccess::operations({})) by_key.insert_or_assign(info->key, info);
  return by_key;
}

common::OrderedMap<std::vector<const ResultOperationInfo*>> get_operations_by_category() {
  common::OrderedMap<std::vector<const ResultOperationInfo*>> by_category;
  for (const ResultOperationInfo* info : ResultRegistryAccess::operations({})) {
    by_category[info->category].push_back(info);
  }
  return by_category;
}

const ResultOperationInfo* get_result_operation_info(std::string_view key) {
  return ResultRegistryAccess::find(key, ResultRegistryAccess::operations(key));
}

const ResultOperationInfo& get_result_operation(std::string_view key) {
  const auto& operations = ResultRegistryAccess::operations(key);
  if (const ResultOperationInfo* info = ResultRegistryAccess::find(key, operations)) return *info;
  std::vector<std::string> known;
  known.reserve(operations.size());
  for (const ResultOperationInfo* info : operations) known.push_back(info->key);
  throw std::invalid_argument("There is no result operation \"" + std::string(key) + "\"" +
                              common::did_you_mean(key, known) + ".");
}

ResultRegistryOverride::ResultRegistryOverride(std::vector<const ResultOperationInfo*> operations,
                                               std::function<void(std::string_view)> on_access)
    : _previous(std::exchange(ResultRegistryAccess::current, this)),
      _operations(std::move(operations)),
      _on_access(std::move(on_access)) {}

ResultRegistryOverride::~ResultRegistryOverride() {
  ResultRegistryAccess::current = _previous;
}

}  // namespace orvexa::model
