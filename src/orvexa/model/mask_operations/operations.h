#pragma once

#include "orvexa/model/mask_operations/mask_operation.h"

namespace orvexa::model {

/// The descriptions of the built-in mask operations, each in the file of its key. A new one is declared here and gets
/// its row in registry.cpp.

}  // namespace orvexa::model
