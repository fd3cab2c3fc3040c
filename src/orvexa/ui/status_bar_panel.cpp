#include "orvexa/ui/status_bar_panel.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QStyle>

#include "orvexa/common/version.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui {

namespace {

QString phase_text(controller::Phase phase) {
  switch (phase) {
    case controller::Phase::EMPTY:
      return StatusBarPanel::tr("Nothing open");
    case controller::Phase::CAPTURE_LOADED:
      return StatusBarPanel::tr("Capture open");
    case controller::Phase::WORKFLOW_READY:
      return StatusBarPanel::tr("Workflow ready");
    case controller::Phase::RESULTS_READY:
      return StatusBarPanel::tr("Results ready");
    case controller::Phase::WATCHING:
      return StatusBarPanel::tr("Watching");
    case controller::Phase::ERROR:
      break;
  }
  return StatusBarPanel::tr("Error");
}

}  // namespace

StatusBarPanel::StatusBarPanel(Workbench& workbench, QWidget* parent)
    : PanelWidget(workbench, parent),
      _text(new QLabel),
      _copy_details(new QToolButton),
      _phase(new QLabel),
      _progress(new QProgressBar),
      _cancel(new QToolButton) {
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(6, 2, 6, 2);
  row->addWidget(_text, 1);
  row->addWidget(_copy_details);
  row->addWidget(_progress);
  row->addWidget(_cancel);
  row->addWidget(_phase);

  _text->setObjectName("status_text");
  _text->setAccessibleName(tr("Status"));
  _text->setTextInteractionFlags(Qt::TextSelectableByMouse);
  // A long sentence is cut by the window rather than widening it; the whole of it is in the tip.
  _text->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  _phase->setObjectName("status_phase");
  _phase->setAccessibleName(tr("Phase"));

  _copy_details->setObjectName("copy_details");
  _copy_details->setText(tr("Copy details"));
  _copy_details->setToolTip(tr("Copy the error and what is known about it, for a report"));
  _copy_details->hide();
  connect(_copy_details, &QToolButton::clicked, this, &StatusBarPanel::copy_details);

  _progress->setObjectName("status_progress");
  _progress->setMaximumWidth(160);
  _progress->setRange(0, 0);  // how much there is to do is not known
  _progress->setTextVisible(false);
  _progress->setAccessibleName(tr("Progress"));
  _progress->hide();
  _cancel->setObjectName("status_cancel");
  _cancel->setText(tr("Cancel"));
  _cancel->setToolTip(tr("End what is running (Ctrl+.)"));
  _cancel->setShortcut(Qt::CTRL | Qt::Key_Period);
  _cancel->hide();
  connect(_cancel, &QToolButton::clicked, &workbench, &Workbench::cancel);

  connect(&workbench, &Workbench::progress_told, this, [this](const QString& text) { show_text(text, false); });
  connect(&workbench, &Workbench::batch_file_begun, this, [this](int number, int count, const QString& file) {
    _progress->setRange(0, count);
    _progress->setValue(number - 1);
    show_text(tr("%1 of %2: %3").arg(number).arg(count).arg(file), false);
  });
}

void StatusBarPanel::refresh() {
  const controller::AppState& state = controller().state;
  show_text(to_qt(state.error ? *state.error : state.message.value_or("")), state.error.has_value());
  _phase->setText(phase_text(state.phase));
  if (!state.error) return;
  QStringList details{tr("Orvexa %1").arg(to_qt(common::program_version())), tr("Error: %1").arg(to_qt(*state.error))};
  if (state.current_file) details << tr("File: %1").arg(qt_path(*state.current_file));
  if (state.current_workflow) {
    details << tr("Workflow:")
            << to_qt(state.current_workflow->to_dict().dump(2, ' ', false, common::Value::error_handler_t::replace));
  }
  _details = details.join('\n');
}

void StatusBarPanel::show_text(const QString& text, bool is_error) {
  _text->setText(text.simplified());
  _text->setToolTip(text);
  // Marked by a word and a bold face, not by colour alone.
  QFont font = this->font();
  font.setBold(is_error);
  _text->setFont(font);
  _text->setAccessibleDescription(is_error ? tr("Error") : QString());
  _copy_details->setVisible(is_error);
}

void StatusBarPanel::copy_details() {
  QGuiApplication::clipboard()->setText(_details);
}

void StatusBarPanel::show_busy(bool is_busy) {
  _progress->setRange(0, 0);
  _progress->setVisible(is_busy);
  _cancel->setVisible(is_busy);
}

}  // namespace orvexa::ui
