#pragma once

#include "orvexa/model/image.h"

namespace orvexa::model {

/// A picture of what several steps drew: `below`, and over it the pixels of `above` whose channels add up to more than
/// 0. Both are left as they are.
/// @throws std::invalid_argument when size, type or number of channels differ.
[[nodiscard]] Image painted_over(const Image& below, const Image& above);

}  // namespace orvexa::model
