#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/measures/spectral_indices.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

/// The parameters of operations that describe maps of indices: limit, map_range, map_low, map_high.
[[nodiscard]] ParameterList index_map_parameters();
/// @throws std::invalid_argument when map_low is not below map_high.
void check_index_map_parameters(std::string_view operation, const Value& params);
/// What the metrics of an index are, for the description of an operation.
[[nodiscard]] std::string index_rows_text(std::string_view prefix);

/// An index that is to be described.
struct IndexJob {
  std::string name;                 ///< for sentences, the map and the table: "ndvi"
  std::string prefix;               ///< of its metrics
  std::string formula;              ///< for the table
  std::string source;               ///< for the table
  std::vector<std::string> inputs;  ///< what its bands are for, in the order of the map's bands
  std::string unit;                 ///< of its values
  std::function<IndexMap()> map;    ///< throws std::runtime_error where the capture has none
};

/// Statistics, share over the limit and heat map of each index, the table `bands` of what was chosen for it. An index
/// that cannot be computed is left out with its reason.
/// @throws std::runtime_error with all reasons when none can.
[[nodiscard]] OperationResult describe_indices(const std::vector<IndexJob>& jobs, const ImageSource& source,
                                               const RegionSet& regions, const Value& params,
                                               const RunContext& context);

}  // namespace orvexa::model
