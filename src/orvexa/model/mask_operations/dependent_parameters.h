#pragma once

#include <initializer_list>
#include <string_view>

#include "orvexa/model/mask_operations/mask_operation.h"

namespace orvexa::model {

/// Refuses parameters that are looked at only with some choices of another one, while that has a different choice,
/// unless they have their defaults.
/// @param params  completed and each checked.
/// @param by  a parameter of type choice.
/// @param users  its choices with which the parameters are looked at.
/// @throws std::invalid_argument with a sentence such as: roi_exclude: parameter "points" is [[0.1, 0.2]], but
/// parameter "shape" is "rect"; choose "polygon" to use it.
void refuse_unless_chosen(const MaskOperationInfo& info, const Value& params,
                          std::initializer_list<std::string_view> unused, std::string_view by,
                          std::initializer_list<std::string_view> users);

}  // namespace orvexa::model
