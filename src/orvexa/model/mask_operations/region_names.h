#pragma once

#include <span>
#include <string>

namespace orvexa::model {

/// Names of regions for a note: "ROI_2, ROI_5", or of more than ten their number and the first ten: "4,000 regions:
/// ROI_1, ..., ROI_10 and 3,990 more".
[[nodiscard]] std::string names_text(std::span<const std::string> names);

}  // namespace orvexa::model
