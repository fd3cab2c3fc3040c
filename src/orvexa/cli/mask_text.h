#pragma once

#include <string>

#include "orvexa/common/value.h"
#include "orvexa/model/mask.h"

namespace orvexa::cli {

/// "1,234 of 307,200 pixels (0.401693 %)"
[[nodiscard]] std::string mask_text(const model::Mask& mask);
/// {"pixels", "fraction"}; the fraction is that of the image.
[[nodiscard]] common::Value mask_document(const model::Mask& mask);

}  // namespace orvexa::cli
