#pragma once

#include <QString>

#include "orvexa/common/value.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::ui {

/// A number for the eye: 6 significant digits, whole numbers with a comma between thousands; texts as they are, nothing
/// for null. The exact value is what `common::scalar_text` gives.
[[nodiscard]] QString value_words(const common::Value& value);

/// What is special about a step, in few words: the parameters that differ from their defaults, "radius 3 px, bands NIR,
/// RED". Shapes are counted. Empty when nothing differs; parameters that the description does not know are named too.
[[nodiscard]] QString parameter_words(const model::ParameterList& parameters, const common::Value& values);

}  // namespace orvexa::ui
