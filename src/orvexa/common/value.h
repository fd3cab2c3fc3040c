#pragma once

#include <nlohmann/json.hpp>

namespace orvexa::common {

/// A dynamic value: parameters, scalar metrics, the content of a YAML or JSON file. Maps keep their order. On a const
/// Value use `at`, `value` and `find`, never `operator[]`: a missing key would be undefined behaviour.
using Value = nlohmann::ordered_json;

}  // namespace orvexa::common
