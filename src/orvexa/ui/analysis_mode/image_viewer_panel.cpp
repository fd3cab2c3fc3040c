#include "orvexa/ui/analysis_mode/image_viewer_panel.h"

namespace orvexa::ui::analysis_mode {

ImageViewerPanel::ImageViewerPanel(Workbench& workbench, QWidget* parent) : PanelWidget(workbench, parent) {}

void ImageViewerPanel::refresh() {}

}  // namespace orvexa::ui::analysis_mode
