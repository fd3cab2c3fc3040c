#pragma once

#include "orvexa/common/value.h"

namespace orvexa::model {

/// The libraries that read and write pictures, by name with their versions.
[[nodiscard]] common::Value codec_versions();

}  // namespace orvexa::model
