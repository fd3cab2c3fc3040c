#include "orvexa/ui/batchprocessing_mode/batch_panel.h"

namespace orvexa::ui::batchprocessing_mode {

BatchPanel::BatchPanel(Workbench& workbench, QWidget* parent) : PanelWidget(workbench, parent) {}

void BatchPanel::refresh() {}

}  // namespace orvexa::ui::batchprocessing_mode
