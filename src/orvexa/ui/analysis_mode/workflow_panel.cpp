#include "orvexa/ui/analysis_mode/workflow_panel.h"

#include <QHBoxLayout>
#include <QShortcut>
#include <QSignalBlocker>
#include <QStyle>
#include <QVBoxLayout>
#include <algorithm>
#include <initializer_list>
#include <utility>

#include "orvexa/model/workflow/model.h"
#include "orvexa/ui/analysis_mode/step_delegate.h"
#include "orvexa/ui/text.h"
#include "orvexa/ui/value_words.h"

namespace orvexa::ui::analysis_mode {

namespace {

constexpr int gap_px = 4;

QToolButton* make_button(const QString& name, const QString& text, const QString& tip) {
  auto* button = new QToolButton;
  button->setObjectName(name);
  button->setText(text);
  button->setToolTip(tip);
  button->setFocusPolicy(Qt::StrongFocus);
  return button;
}

/// "1,200 px (3.4 %)".
QString pixels_text(const StepResult& result) {
  const double share = 100.0 * double(result.pixels) / double(result.capture->mask->shape().pixels());
  return WorkflowPanel::tr("%1 px (%2 %)").arg(grouped(result.pixels), QString::number(share, 'g', 3));
}

/// "CLR" of "Raw Images > CLR".
std::string measurement_of(const std::string& context) {
  const std::size_t mark = context.rfind(" > ");
  return mark == std::string::npos ? std::string() : context.substr(mark + 3);
}

}  // namespace

WorkflowPanel::WorkflowPanel(Workbench& workbench, QWidget* parent)
    : PanelWidget(workbench, parent), _pages(new QStackedLayout), _hint(new QLabel), _problems(new QLabel) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(gap_px, gap_px, gap_px, gap_px);
  column->setSpacing(gap_px);
  column->addLayout(make_title_row());
  _hint->setObjectName("workflow_hint");
  _hint->setWordWrap(true);
  _hint->setAlignment(Qt::AlignCenter);
  _hint->setMargin(gap_px * 4);
  _pages->addWidget(_hint);
  _pages->addWidget(make_list());
  column->addLayout(_pages, 1);
  _problems->setObjectName("workflow_problems");
  _problems->setWordWrap(true);
  _problems->setTextInteractionFlags(Qt::TextSelectableByMouse);
  _problems->hide();
  column->addWidget(_problems);
  column->addLayout(make_action_row());

  connect(&workbench, &Workbench::capture_changed, this, [this] {
    const QSignalBlocker quiet(_list);
    _list->setCurrentRow(-1);
    _looks_for_failure = true;
    _wants_image = false;
    _shown_capture.reset();
    _shown_context.clear();
  });
  connect(&workbench.step_results(), &StepResults::changed, this, [this] {
    const std::size_t count = this->workbench().step_results().steps().size();
    if (count != 0 && count != _steps.size()) return;  // a refresh is about to follow
    show_steps();
    select_failing_step();
    renew_image();
  });
  _image_selected = controller().events.image_selected.connect(
      [this](const std::string& context, const std::string& image, const model::ImageEntry&) {
        _viewer_context = context;
        _viewer_image = image;
      });
  update_buttons();
  show_steps();
}

// ---- What it is made of ---------------------------------------------------------------------------------------------

QLayout* WorkflowPanel::make_title_row() {
  _title = new QLineEdit;
  _title->setObjectName("workflow_title");
  _title->setPlaceholderText(tr("Title of the workflow"));
  _title->setAccessibleName(tr("Title of the workflow"));
  _title->setToolTip(tr("Title of the workflow; Return takes it over"));
  connect(_title, &QLineEdit::editingFinished, this, &WorkflowPanel::commit_title);

  auto* begin = make_button("new_workflow", tr("New"), tr("Begin a new workflow (Ctrl+N)"));
  connect(begin, &QToolButton::clicked, this, [this] { workbench().new_workflow(); });
  auto* load = make_button("load_workflow", tr("Open\u2026"), tr("Open a workflow from a file (Ctrl+Shift+O)"));
  connect(load, &QToolButton::clicked, this, &WorkflowPanel::load_wanted);
  _save = make_button("save_workflow", tr("Save"), tr("Save the workflow (Ctrl+S)"));
  connect(_save, &QToolButton::clicked, this, [this] {
    commit_title();
    Q_EMIT save_wanted();
  });

  auto* row = new QHBoxLayout;
  row->setSpacing(gap_px);
  row->addWidget(_title, 1);
  for (QToolButton* button : {begin, load, _save}) row->addWidget(button);
  return row;
}

QWidget* WorkflowPanel::make_list() {
  _list = new QListWidget;
  _list->setObjectName("workflow_steps");
  _list->setAccessibleName(tr("Steps of the workflow"));
  _list->setItemDelegate(new StepDelegate(_list));
  _list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  _list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
  _list->setUniformItemSizes(true);
  connect(_list, &QListWidget::currentRowChanged, this, [this] {
    _looks_for_failure = false;
    update_buttons();
    show_image_of_step();
  });
  // A click on the step that is selected already brings its image back.
  connect(_list, &QListWidget::itemClicked, this, [this] {
    if (_viewer_context != _shown_context) show_image_of_step();
  });
  connect(_list, &QListWidget::itemDoubleClicked, this, &WorkflowPanel::edit_step);
  using Action = void (WorkflowPanel::*)();
  for (const auto& [key, action] :
       std::initializer_list<std::pair<Qt::Key, Action>>{{Qt::Key_Return, &WorkflowPanel::edit_step},
                                                         {Qt::Key_Enter, &WorkflowPanel::edit_step},
                                                         {Qt::Key_Delete, &WorkflowPanel::remove_step}}) {
    auto* shortcut = new QShortcut(QKeySequence(key), _list);
    shortcut->setContext(Qt::WidgetShortcut);
    connect(shortcut, &QShortcut::activated, this, action);
  }
  return _list;
}

QLayout* WorkflowPanel::make_action_row() {
  _edit = make_button("edit_step", tr("Edit"), tr("Change the parameters of the selected step (Return in the list)"));
  connect(_edit, &QToolButton::clicked, this, &WorkflowPanel::edit_step);
  _remove = make_button("remove_step", tr("Remove"), tr("Take the selected step out (Delete in the list)"));
  connect(_remove, &QToolButton::clicked, this, &WorkflowPanel::remove_step);
  _undo = make_button("undo", tr("Undo"), QString());
  _undo->setIcon(style()->standardIcon(QStyle::SP_ArrowBack));
  connect(_undo, &QToolButton::clicked, this, [this] { workbench().undo(); });
  _redo = make_button("redo", tr("Redo"), QString());
  _redo->setIcon(style()->standardIcon(QStyle::SP_ArrowForward));
  connect(_redo, &QToolButton::clicked, this, [this] { workbench().redo(); });
  for (QToolButton* button : {_undo, _redo}) button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);

  auto* row = new QHBoxLayout;
  row->setSpacing(gap_px);
  row->addWidget(_edit);
  row->addWidget(_remove);
  row->addStretch(1);
  row->addWidget(_undo);
  row->addWidget(_redo);
  return row;
}

// ---- What it shows --------------------------------------------------------------------------------------------------

void WorkflowPanel::refresh() {
  const controller::AppState& state = controller().state;
  const QString title = state.current_workflow ? to_qt(state.current_workflow->title) : QString();
  if (title != _title_of_workflow) _title->setText(title);  // else somebody may be typing another
  _title_of_workflow = title;
  _title->setEnabled(state.current_workflow != nullptr);
  const auto& file = workbench().workflow_file();
  _save->setEnabled(state.current_workflow != nullptr);
  _save->setToolTip(file ? tr("Save the workflow to %1 (Ctrl+S)").arg(qt_path(*file))
                         : tr("Save the workflow to a file (Ctrl+S)"));
  _hint->setText(!state.current_workflow ? tr("There is no workflow. Open a capture or a workflow, or begin a new one.")
                                         : tr("No step yet: every pixel counts. Add a step under \"Mask step\"."));
  read_steps();
  show_history();
  show_steps();
  select_failing_step();
  renew_image();
}

void WorkflowPanel::read_steps() {
  _steps.clear();
  _other_problems.clear();
  const auto& workflow = controller().state.current_workflow;
  if (!workflow) return;
  const auto infos = controller().get_available_mask_operations();
  for (const model::MaskOperationConfig& config : workflow->mask_operations) {
    const auto info = infos.find(config.op);
    const bool is_known = info != infos.end();
    _steps.push_back(
        {.name = to_qt(is_known ? info->second->display_name : config.op),
         .words = parameter_words(is_known ? info->second->all_parameters() : model::ParameterList(), config.params),
         .problem = {}});
  }
  for (const model::WorkflowProblem& problem : model::check_workflow(*workflow)) {
    if (problem.place && problem.place->is_mask) {
      QString& text = _steps[problem.place->index].problem;
      text = text.isEmpty() ? to_qt(problem.text) : text + ' ' + to_qt(problem.text);
    } else {
      _other_problems.push_back(tr("%1: %2").arg(to_qt(problem.step), to_qt(problem.text)));
    }
  }
}

void WorkflowPanel::show_history() {
  const History& history = workbench().history();
  const auto* undo = history.undo_step();
  const auto* redo = history.redo_step();
  _undo->setEnabled(undo != nullptr);
  _redo->setEnabled(redo != nullptr);
  _undo->setToolTip(undo != nullptr ? tr("Undo: %1 (Ctrl+Z)").arg(undo->text)
                                    : tr("There is nothing to undo (Ctrl+Z)"));
  _redo->setToolTip(redo != nullptr ? tr("Redo: %1 (Ctrl+Shift+Z)").arg(redo->text)
                                    : tr("There is nothing to redo (Ctrl+Shift+Z)"));
}

void WorkflowPanel::show_steps() {
  const std::vector<StepResult>& results = workbench().step_results().steps();
  const int count = static_cast<int>(_steps.size());
  {
    const QSignalBlocker quiet(_list);
    while (_list->count() > count) delete _list->takeItem(_list->count() - 1);
    while (_list->count() < count) _list->addItem(new QListWidgetItem);
  }
  QStringList sentences;
  bool is_reached = true;
  for (int row = 0; row < count; ++row) {
    const auto place = static_cast<std::size_t>(row);
    const Step& step = _steps[place];
    const StepResult* result = place < results.size() ? &results[place] : nullptr;
    const QString failure = !step.problem.isEmpty() ? step.problem : result != nullptr ? result->failure : QString();
    QString pixels;
    if (result != nullptr) {
      pixels = result->capture      ? pixels_text(*result)
               : !failure.isEmpty() ? tr("Failed")
               : !is_reached        ? tr("Not reached")
                                    : QString(QChar(0x2026));
    } else if (!failure.isEmpty()) {
      pixels = tr("Wrong");
    }
    if (!failure.isEmpty()) {
      is_reached = false;
      sentences << tr("Step %1, %2: %3").arg(row + 1).arg(step.name, failure);
    }
    const QString title = tr("%1. %2").arg(row + 1).arg(step.name);
    const QString about = failure.isEmpty() ? step.words : failure;
    QStringList parts;
    for (const QString& part : {pixels, about}) {
      if (!part.isEmpty()) parts << part;
    }
    const QString line = parts.join(failure.isEmpty() ? QStringLiteral("  \u00b7  ") : QStringLiteral(": "));
    QListWidgetItem& item = *_list->item(row);
    item.setText(line.isEmpty() ? title : tr("%1, %2").arg(title, line));
    item.setData(StepDelegate::title_role, title);
    item.setData(StepDelegate::line_role, line);
    item.setData(StepDelegate::is_failing_role, !failure.isEmpty());
    item.setData(StepDelegate::thumbnail_role, result != nullptr ? result->thumbnail : QImage());
    item.setToolTip(line);
  }
  for (const QString& problem : _other_problems) sentences << problem;
  _problems->setText(sentences.join('\n'));
  _problems->setVisible(!sentences.isEmpty());
  _pages->setCurrentIndex(count > 0 ? 1 : 0);
  update_buttons();
}

void WorkflowPanel::select_failing_step() {
  if (!_looks_for_failure) return;
  for (int row = 0; row < _list->count(); ++row) {
    if (!_list->item(row)->data(StepDelegate::is_failing_role).toBool()) continue;
    _list->setCurrentRow(row);
    _list->scrollToItem(_list->item(row));
    _looks_for_failure = false;
    return;
  }
}

void WorkflowPanel::renew_image() {
  if (_wants_image) {
    show_image_of_step();
    return;
  }
  if (!_shown_capture || _viewer_context != _shown_context || workbench().is_busy()) return;
  const int row = _list->currentRow();
  if (row >= 0) {
    const std::vector<StepResult>& results = workbench().step_results().steps();
    const bool is_known = std::cmp_less(row, results.size()) && results[static_cast<std::size_t>(row)].capture;
    if (is_known && results[static_cast<std::size_t>(row)].capture != _shown_capture) show_image_of_step();
  } else if (const auto& capture = controller().state.current_capture) {
    // The step is gone, and no other one is left.
    show_image(*capture, "Raw Images");
    _shown_capture.reset();
  }
}

void WorkflowPanel::show_image_of_step() {
  const int row = _list->currentRow();
  const std::vector<StepResult>& results = workbench().step_results().steps();
  _wants_image = row >= 0;
  if (!_wants_image || workbench().is_busy() || std::cmp_greater_equal(row, results.size())) return;
  const std::shared_ptr<const model::CaptureSet>& capture = results[static_cast<std::size_t>(row)].capture;
  if (!capture || capture->measurements.empty()) return;
  _wants_image = false;

  _shown_capture = capture;
  show_image(*capture, QStringLiteral("Mask %1: %2").arg(row + 1).arg(_steps[static_cast<std::size_t>(row)].name));
}

void WorkflowPanel::show_image(const model::CaptureSet& capture, const QString& stage) {
  auto measurement = capture.measurements.find(measurement_of(_viewer_context));
  if (measurement == capture.measurements.end()) measurement = capture.measurements.begin();
  const model::ImageMap& images = measurement->second->images;
  auto image = images.find(_viewer_image);
  if (image == images.end()) {
    image = std::find_if(images.begin(), images.end(), [](const auto& entry) { return entry.second.is_array(); });
  }
  if (image == images.end()) return;
  _shown_context = from_qt(stage) + " > " + measurement->first;
  controller().show_image_in_viewer_without_refresh(image->second, _shown_context, measurement->first, image->first);
}

void WorkflowPanel::update_buttons() {
  const bool has_step = _list->currentRow() >= 0;
  _edit->setEnabled(has_step);
  _remove->setEnabled(has_step);
}

// ---- What it does ---------------------------------------------------------------------------------------------------

void WorkflowPanel::commit_title() {
  if (workbench().is_busy() || _title->text() == _title_of_workflow) return;
  workbench().set_title(_title->text());
}

void WorkflowPanel::edit_step() {
  if (_list->currentRow() >= 0) workbench().want_edit(_list->currentRow());
}

void WorkflowPanel::remove_step() {
  if (_list->currentRow() >= 0) workbench().remove_mask(_list->currentRow());
}

}  // namespace orvexa::ui::analysis_mode
