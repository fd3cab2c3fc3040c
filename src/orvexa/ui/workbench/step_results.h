#pragma once

#include <QImage>
#include <QObject>
#include <QString>
#include <cstdint>
#include <memory>
#include <vector>

#include "orvexa/controller/controller.h"
#include "orvexa/ui/workbench/history.h"
#include "orvexa/ui/workbench/worker.h"

namespace orvexa::ui {

/// What a mask step of the current workflow leaves of the current capture.
struct StepResult {
  std::shared_ptr<const model::CaptureSet> capture = nullptr;  ///< after the step; null until known and after a failure
  std::int64_t pixels = 0;                                     ///< that the mask still counts
  QImage thumbnail = {};                                       ///< the mask, small, white on black
  QString failure = {};  ///< a sentence; steps after a failing one have none of their own and no capture either
};

/// Keeps the pictures of the workflow's steps up to date, on a thread and a Controller of its own. Steps that did not
/// change keep their results.
class StepResults : public QObject {
  Q_OBJECT

 public:
  explicit StepResults(Mailbox::Address mailbox);
  ~StepResults() override;

  /// Capture or workflow may be another one: what is no longer true is gone at once, and the rest is worked out.
  void update(const std::shared_ptr<model::CaptureSet>& capture, const WorkflowCopy& workflow);
  /// One entry a mask step of the workflow.
  [[nodiscard]] const std::vector<StepResult>& steps() const { return _steps; }
  /// Whether steps are still being worked out.
  [[nodiscard]] bool is_working() const { return _worker.is_running(); }

 Q_SIGNALS:
  /// The entries are others than before: something was worked out or is gone.
  void changed();

 private:
  std::shared_ptr<model::CaptureSet> _capture;
  WorkflowCopy _workflow;
  std::vector<StepResult> _steps;
  struct Bench;
  std::shared_ptr<Bench> _bench;  ///< touched by the worker alone
  Worker _worker;                 ///< last, so that it ends first
};

}  // namespace orvexa::ui
