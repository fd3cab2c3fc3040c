#pragma once

#include <cstddef>

#include "orvexa/model/entities/capture_set.h"

namespace orvexa::controller {

/// How many masks the measurements of a capture carry together; whoever drops such a capture says so.
[[nodiscard]] inline std::size_t applied_mask_count(const model::CaptureSet& capture) {
  std::size_t count = 0;
  for (const auto& [name, measurement] : capture.measurements) count += measurement->masks.size();
  return count;
}

}  // namespace orvexa::controller
