#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <memory>
#include <optional>
#include <string>

#include "orvexa/controller/controller.h"
#include "orvexa/ui/workbench/history.h"
#include "orvexa/ui/workbench/worker.h"

namespace orvexa::ui {

/// Shows what a mask step would leave while its parameters are tuned, on a thread and a Controller of its own that hold
/// the shared capture and a copy of the workflow. The newest question cancels the older ones, and an old answer never
/// replaces a newer one.
class Previewer : public QObject {
  Q_OBJECT

 public:
  /// What is asked.
  struct Question {
    std::shared_ptr<model::CaptureSet> capture;  ///< not null
    WorkflowCopy workflow;                       ///< null = no steps before it
    int index = 0;                               ///< the step's position: those before it are run first
    std::string operation;
    common::Value params = common::Value::object();
  };
  /// What is answered: a mask, or why there is none.
  struct Answer {
    std::string operation;
    int index = 0;
    std::optional<model::Mask> mask = std::nullopt;
    std::optional<model::Image> overlay = std::nullopt;  ///< what the operation drew, black where nothing
    std::int64_t pixels = 0;
    QString note = {};     ///< a remark of the operation
    QString failure = {};  ///< a sentence; empty when there is a mask
  };

  explicit Previewer(Mailbox::Address mailbox);
  ~Previewer() override;

  void ask(const Question& question);
  /// No preview is wanted any more: the answer is gone and none comes.
  void end();
  /// The newest answer; absent when nothing was asked, and until the first answer after `end`.
  [[nodiscard]] const std::optional<Answer>& answer() const { return _answer; }

  /// After this time without an answer a person is told that work is going on.
  static constexpr int patience_ms = 50;

 Q_SIGNALS:
  /// There is another answer, or none any more.
  void answered();
  /// True when an answer takes longer than `patience_ms`, false when it came or is no longer wanted.
  void working_changed(bool is_working);

 private:
  void show_working(bool is_working);

  std::optional<Answer> _answer;
  QTimer _patience;
  bool _shows_working = false;
  struct Bench;
  std::shared_ptr<Bench> _bench;  ///< touched by the worker alone
  Worker _worker;                 ///< last, so that it ends first
};

}  // namespace orvexa::ui
