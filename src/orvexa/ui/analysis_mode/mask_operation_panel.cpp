#include "orvexa/ui/analysis_mode/mask_operation_panel.h"

namespace orvexa::ui::analysis_mode {

MaskOperationPanel::MaskOperationPanel(Workbench& workbench, QWidget* parent) : PanelWidget(workbench, parent) {}

void MaskOperationPanel::refresh() {}

}  // namespace orvexa::ui::analysis_mode
