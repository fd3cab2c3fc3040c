#pragma once

#include <QString>

#include "orvexa/controller/controller.h"
#include "orvexa/model/workflow/model.h"

namespace orvexa::ui::batchprocessing_mode {

/// A workflow as people would tell it, as rich text: its title, its mask steps with the parameters that are not the
/// usual ones, what is measured, and what is wrong with it.
/// @param workflow  null for none.
[[nodiscard]] QString workflow_words(const controller::Controller& controller, const model::Workflow* workflow);

/// What keeps the workflow from being run on anything, as a sentence; empty when nothing does.
[[nodiscard]] QString workflow_obstacle(const model::Workflow* workflow);

}  // namespace orvexa::ui::batchprocessing_mode
