#include "orvexa/ui/analysis_mode/results_panel.h"

namespace orvexa::ui::analysis_mode {

ResultsPanel::ResultsPanel(Workbench& workbench, QWidget* parent) : PanelWidget(workbench, parent) {}

void ResultsPanel::refresh() {}

}  // namespace orvexa::ui::analysis_mode
