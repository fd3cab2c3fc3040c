#pragma once

#include <string>

#include "orvexa/model/entities/result_bundle.h"

namespace orvexa::cli {

/// Whether a note says why pixels are missing: it begins with a code such as "no_contrast: ".
[[nodiscard]] bool is_warning(const model::MaskNote& note);

/// "mask step 1 (threshold_auto): no_contrast: all pixels have the same value in MSP.RED, so the mask is empty."
[[nodiscard]] std::string note_sentence(const model::MaskNote& note);

}  // namespace orvexa::cli
