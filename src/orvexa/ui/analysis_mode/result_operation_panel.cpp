#include "orvexa/ui/analysis_mode/result_operation_panel.h"

namespace orvexa::ui::analysis_mode {

ResultOperationPanel::ResultOperationPanel(Workbench& workbench, QWidget* parent) : PanelWidget(workbench, parent) {}

void ResultOperationPanel::refresh() {}

}  // namespace orvexa::ui::analysis_mode
