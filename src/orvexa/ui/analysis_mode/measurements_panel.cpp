#include "orvexa/ui/analysis_mode/measurements_panel.h"

namespace orvexa::ui::analysis_mode {

MeasurementsPanel::MeasurementsPanel(Workbench& workbench, QWidget* parent) : PanelWidget(workbench, parent) {}

void MeasurementsPanel::refresh() {}

}  // namespace orvexa::ui::analysis_mode
