#pragma once

#include <QSplitter>
#include <QTabWidget>
#include <QWidget>

#include "orvexa/ui/workbench/workbench.h"

namespace orvexa::ui::analysis_mode {

class ResultsPanel;
class WorkflowPanel;

/// The panels of the analysis mode and how they share the window: files and images at the left, the viewer in the
/// middle with the results below it, the workflow at the right with what is being added to it below.
class AnalysisPage final : public QWidget {
  Q_OBJECT

 public:
  explicit AnalysisPage(Workbench& workbench, QWidget* parent = nullptr);
  /// Keeps how large the parts are.
  void remember_layout();
  [[nodiscard]] ResultsPanel& results_panel() { return *_results; }
  [[nodiscard]] WorkflowPanel& workflow_panel() { return *_workflow; }

 private:
  Workbench& _workbench;
  ResultsPanel* _results;
  WorkflowPanel* _workflow;
  QSplitter* _columns;
  QSplitter* _left;
  QSplitter* _middle;
  QSplitter* _right;
};

}  // namespace orvexa::ui::analysis_mode
