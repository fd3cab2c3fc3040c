#include "orvexa/ui/analysis_mode/workflow_panel.h"

namespace orvexa::ui::analysis_mode {

WorkflowPanel::WorkflowPanel(Workbench& workbench, QWidget* parent) : PanelWidget(workbench, parent) {}

void WorkflowPanel::refresh() {}

}  // namespace orvexa::ui::analysis_mode
