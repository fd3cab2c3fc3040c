#include "orvexa/ui/workbench/step_results.h"

#include <algorithm>
#include <utility>

#include "orvexa/model/failure_text.h"
#include "orvexa/ui/pictures.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui {

namespace {

constexpr int thumbnail_px = 96;

/// How many steps at the front are the same in both, for the same files.
std::size_t equal_steps(const WorkflowCopy& a, const WorkflowCopy& b) {
  if (!a || !b || a->folder != b->folder) return 0;
  const auto& first = a->mask_operations;
  const auto& second = b->mask_operations;
  const auto [end, ignored] = std::mismatch(first.begin(), first.end(), second.begin(), second.end());
  return static_cast<std::size_t>(end - first.begin());
}

}  // namespace

struct StepResults::Bench {
  controller::Controller controller;
};

StepResults::StepResults(Mailbox::Address mailbox)
    : _bench(std::make_shared<Bench>()), _worker(std::move(mailbox), "steps") {}

StepResults::~StepResults() = default;

void StepResults::update(const std::shared_ptr<model::CaptureSet>& capture, const WorkflowCopy& workflow) {
  const std::size_t count = capture && workflow ? workflow->mask_operations.size() : 0;
  std::size_t kept = capture == _capture ? std::min(equal_steps(_workflow, workflow), _steps.size()) : 0;
  while (kept > 0 && !_steps[kept - 1].capture) --kept;  // it was never worked out, or failed: once more
  _capture = capture;
  _workflow = workflow;
  _steps.resize(kept);
  _steps.resize(count);
  _worker.drop();
  if (kept < count) {
    _worker.start([this, bench = _bench, capture, workflow, kept,
                   before = kept > 0 ? _steps[kept - 1].capture : capture](const Worker::Job& job) {
      controller::Controller& controller = bench->controller;
      controller.state.current_capture = capture;
      controller.state.current_workflow = std::make_shared<model::Workflow>(*workflow);
      std::shared_ptr<const model::CaptureSet> input = before;
      for (std::size_t i = kept; i < workflow->mask_operations.size() && input; ++i) {
        StepResult result;
        try {
          result.capture = controller._compute_mask_step(static_cast<int>(i), *input, workflow->mask_operations[i],
                                                         &job.cancel_event());
          result.pixels = result.capture->mask->count();
          result.thumbnail = mask_thumbnail(*result.capture->mask, thumbnail_px);
        } catch (const model::CancelledError&) {
          return;
        } catch (...) {
          result.failure = to_qt(model::failure_text());
        }
        input = result.capture;
        job.deliver([this, i, result = std::move(result)] {
          _steps[i] = result;
          Q_EMIT changed();
        });
      }
    });
  }
  Q_EMIT changed();
}

}  // namespace orvexa::ui
