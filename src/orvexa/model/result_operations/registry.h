#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "orvexa/common/ordered_map.h"
#include "orvexa/model/result_operations/result_operation.h"

namespace orvexa::model {

/// Every result operation by key, in the registry's order.
[[nodiscard]] common::OrderedMap<const ResultOperationInfo*> get_available_result_operations();
/// Category to its operations; categories and operations in the registry's order, which is the order of availability.
[[nodiscard]] common::OrderedMap<std::vector<const ResultOperationInfo*>> get_operations_by_category();
/// The description of an operation, or null for an unknown key.
[[nodiscard]] const ResultOperationInfo* get_result_operation_info(std::string_view key);
/// The operation class registered under a key.
/// @throws std::invalid_argument "There is no result operation ..." with the nearest known key.
[[nodiscard]] const ResultOperationInfo& get_result_operation(std::string_view key);

/// While it lives, the registry holds the given operations instead. `on_access` is called before every access with the
/// key asked for (empty for a listing) and may throw: the registry cannot be built. For tests; not while other threads
/// look.
class ResultRegistryOverride {
 public:
  explicit ResultRegistryOverride(std::vector<const ResultOperationInfo*> operations,
                                  std::function<void(std::string_view)> on_access = {});
  ~ResultRegistryOverride();
  ResultRegistryOverride(const ResultRegistryOverride&) = delete;
  ResultRegistryOverride& operator=(const ResultRegistryOverride&) = delete;

 private:
  ResultRegistryOverride* _previous;
  std::vector<const ResultOperationInfo*> _operations;
  std::function<void(std::string_view)> _on_access;
  friend struct ResultRegistryAccess;
};

}  // namespace orvexa::model
