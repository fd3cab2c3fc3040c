#include "orvexa/ui/analysis_mode/analysis_page.h"

#include <QHBoxLayout>

#include "orvexa/ui/analysis_mode/file_panel.h"
#include "orvexa/ui/analysis_mode/image_viewer_panel.h"
#include "orvexa/ui/analysis_mode/mask_operation_panel.h"
#include "orvexa/ui/analysis_mode/measurements_panel.h"
#include "orvexa/ui/analysis_mode/result_operation_panel.h"
#include "orvexa/ui/analysis_mode/results_panel.h"
#include "orvexa/ui/analysis_mode/workflow_panel.h"

namespace orvexa::ui::analysis_mode {

namespace {

/// A splitter whose parts cannot be made to vanish by accident.
QSplitter* splitter(Qt::Orientation orientation, std::initializer_list<QWidget*> parts, const QList<int>& sizes) {
  auto* made = new QSplitter(orientation);
  made->setChildrenCollapsible(false);
  for (QWidget* part : parts) made->addWidget(part);
  made->setSizes(sizes);
  return made;
}

}  // namespace

AnalysisPage::AnalysisPage(Workbench& workbench, QWidget* parent)
    : QWidget(parent),
      _workbench(workbench),
      _results(new ResultsPanel(workbench)),
      _workflow(new WorkflowPanel(workbench)) {
  auto* files = new FilePanel(workbench);
  auto* measurements = new MeasurementsPanel(workbench);
  auto* viewer = new ImageViewerPanel(workbench);
  auto* mask_operation = new MaskOperationPanel(workbench);
  auto* result_operations = new ResultOperationPanel(workbench);

  auto* adding = new QTabWidget;
  adding->setObjectName("adding_tabs");
  adding->setAccessibleName(tr("What to add to the workflow"));
  adding->addTab(mask_operation, tr("Mask step"));
  adding->addTab(result_operations, tr("Measure"));
  connect(&workbench, &Workbench::step_edit_wanted, adding,
          [adding, mask_operation] { adding->setCurrentWidget(mask_operation); });

  _left = splitter(Qt::Vertical, {files, measurements}, {350, 450});
  _middle = splitter(Qt::Vertical, {viewer, _results}, {600, 220});
  _right = splitter(Qt::Vertical, {_workflow, adding}, {240, 560});
  _columns = splitter(Qt::Horizontal, {_left, _middle, _right}, {280, 780, 360});
  _columns->setStretchFactor(1, 1);
  _middle->setStretchFactor(0, 1);
  auto* page = new QHBoxLayout(this);
  page->setContentsMargins(0, 0, 0, 0);
  page->addWidget(_columns);

  for (QSplitter* part : {_columns, _left, _middle, _right}) {
    part->setObjectName(part == _columns ? "columns" : part == _left ? "left" : part == _middle ? "middle" : "right");
    part->restoreState(workbench.memory().layout("analysis/" + part->objectName()));
  }
  for (PanelWidget* panel : std::initializer_list<PanelWidget*>{files, measurements, viewer, mask_operation, _workflow,
                                                                result_operations, _results}) {
    workbench.controller().register_panel(*panel);
  }
}

void AnalysisPage::remember_layout() {
  for (const QSplitter* part : {_columns, _left, _middle, _right}) {
    _workbench.memory().remember_layout("analysis/" + part->objectName(), part->saveState());
  }
}

}  // namespace orvexa::ui::analysis_mode
