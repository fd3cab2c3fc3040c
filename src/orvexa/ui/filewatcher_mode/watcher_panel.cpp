#include "orvexa/ui/filewatcher_mode/watcher_panel.h"

namespace orvexa::ui::filewatcher_mode {

WatcherPanel::WatcherPanel(Workbench& workbench, QWidget* parent) : PanelWidget(workbench, parent) {}

void WatcherPanel::refresh() {}

}  // namespace orvexa::ui::filewatcher_mode
