#pragma once

#include "orvexa/model/result_operations/result_operation.h"

namespace orvexa::model {

// One description an operation, each defined in the file of that operation's name.
const ResultOperationInfo& area_info();

}  // namespace orvexa::model
