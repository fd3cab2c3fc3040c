#pragma once

#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "orvexa/common/ordered_map.h"
#include "orvexa/model/mask_operations/mask_operation.h"

namespace orvexa::model {

/// Every mask operation, in the order of menus, help and documents.
[[nodiscard]] std::vector<const MaskOperationInfo*> get_all_mask_operation_infos();
/// The same, looked up by key.
[[nodiscard]] common::OrderedMap<const MaskOperationInfo*> get_available_mask_operations();
/// The operation class registered under a key.
/// @throws std::invalid_argument "There is no mask operation ..." with the nearest known key.
[[nodiscard]] const MaskOperationInfo& get_mask_operation(std::string_view key);
/// The same, or null for an unknown key.
[[nodiscard]] const MaskOperationInfo* find_mask_operation(std::string_view key);

/// While it lives, the registry holds the given operations instead. `on_access` is called before every access with the
/// key asked for (empty for a listing) and may throw: the registry cannot be built. For tests; not while other threads
/// look.
class MaskRegistryOverride {
 public:
  explicit MaskRegistryOverride(std::vector<const MaskOperationInfo*> operations,
                                std::function<void(std::string_view)> on_access = {});
  ~MaskRegistryOverride();
  MaskRegistryOverride(const MaskRegistryOverride&) = delete;
  MaskRegistryOverride& operator=(const MaskRegistryOverride&) = delete;

 private:
  MaskRegistryOverride* _previous;
  std::vector<const MaskOperationInfo*> _operations;
  std::function<void(std::string_view)> _on_access;
  friend struct MaskRegistryAccess;
};

}  // namespace orvexa::model
