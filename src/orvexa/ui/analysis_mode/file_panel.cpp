#include "orvexa/ui/analysis_mode/file_panel.h"

namespace orvexa::ui::analysis_mode {

FilePanel::FilePanel(Workbench& workbench, QWidget* parent) : PanelWidget(workbench, parent) {}

void FilePanel::refresh() {}

}  // namespace orvexa::ui::analysis_mode
