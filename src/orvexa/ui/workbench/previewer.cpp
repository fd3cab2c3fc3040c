#include "orvexa/ui/workbench/previewer.h"

#include <utility>

#include "orvexa/model/failure_text.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui {

struct Previewer::Bench {
  controller::Controller controller;
  WorkflowCopy workflow;  ///< the one whose first steps the controller has
  int index = -1;

  /// Makes the controller's workflow the steps before the previewed one. Its cache of their masks is kept while the
  /// same step of the same workflow is tuned.
  void stand_before(const Question& question) {
    if (controller.state.current_capture == question.capture && workflow == question.workflow &&
        index == question.index) {
      return;
    }
    workflow = question.workflow;
    index = question.index;
    auto steps_before = std::make_shared<model::Workflow>(workflow ? *workflow : model::Workflow());
    steps_before->mask_operations.resize(static_cast<std::size_t>(index));
    steps_before->result_operations.clear();
    controller.state.current_capture = question.capture;
    controller.state.current_workflow = std::move(steps_before);
    controller.clear_intermediate_results_cache();
  }
};

Previewer::Previewer(Mailbox::Address mailbox)
    : _bench(std::make_shared<Bench>()), _worker(std::move(mailbox), "preview") {
  _patience.setSingleShot(true);
  _patience.setInterval(patience_ms);
  connect(&_patience, &QTimer::timeout, this, [this] { show_working(true); });
}

Previewer::~Previewer() = default;

void Previewer::ask(const Question& question) {
  if (!_patience.isActive() && !_shows_working) _patience.start();
  _worker.start([this, bench = _bench, question](const Worker::Job& job) {
    Answer answer{.operation = question.operation, .index = question.index};
    try {
      bench->stand_before(question);
      auto preview = bench->controller.run_next_step_preview(question.operation, question.params, &job.cancel_event());
      answer.mask = std::move(preview.mask);
      answer.overlay = std::move(preview.operation->viz_overlay);
      answer.note = to_qt(preview.operation->note);
      if (answer.mask) {
        answer.pixels = answer.mask->count();
      } else {
        answer.failure = tr("This operation gives no mask here.");
      }
    } catch (const model::CancelledError&) {
      return;
    } catch (...) {
      answer.failure = to_qt(model::failure_text());
    }
    job.deliver([this, answer = std::move(answer)] {
      _answer = answer;
      show_working(false);
      Q_EMIT answered();
    });
  });
}

void Previewer::end() {
  _worker.drop();
  show_working(false);
  if (!_answer) return;
  _answer.reset();
  Q_EMIT answered();
}

void Previewer::show_working(bool is_working) {
  _patience.stop();
  if (_shows_working == is_working) return;
  _shows_working = is_working;
  Q_EMIT working_changed(is_working);
}

}  // namespace orvexa::ui
