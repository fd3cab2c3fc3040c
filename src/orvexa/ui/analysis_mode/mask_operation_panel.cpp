#include "orvexa/ui/analysis_mode/mask_operation_panel.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QScrollBar>
#include <QShortcut>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <utility>

#include "orvexa/model/failure_text.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui::analysis_mode {

namespace {

constexpr int key_role = Qt::UserRole;
constexpr const char* preview_choice = "mask_operation/preview";
constexpr const char* logarithmic_choice = "mask_operation/logarithmic";

/// Whether all words stand in what is known about an operation. Methods are looked for by their names ("otsu"), which
/// stand among the choices of a parameter.
bool fits(const model::MaskOperationInfo& info, const QStringList& words) {
  QString text = to_qt(info.display_name + ' ' + info.key + ' ' + info.category + ' ' + info.summary);
  for (const model::ParameterInfo& parameter : info.parameters) {
    for (const std::string& choice : parameter.choices) text += ' ' + to_qt(choice);
  }
  return std::all_of(words.begin(), words.end(),
                     [&text](const QString& word) { return text.contains(word, Qt::CaseInsensitive); });
}

/// Checked and completed, or nothing when something is wrong with them; the sentence then says what.
std::optional<Value> checked(const model::MaskOperationInfo& info, const Value& values, QString* sentence = nullptr) {
  try {
    return info()->validate_params(values);
  } catch (...) {
    if (sentence != nullptr) *sentence = to_qt(model::failure_text());
    return std::nullopt;
  }
}

/// A number of a parameter that may have none, or may hold what somebody typed.
std::optional<double> number_of(const Value& params, std::string_view name) {
  const auto found = params.find(std::string(name));
  if (found == params.end() || !found->is_number()) return std::nullopt;
  return found->get<double>();
}

QLabel* wrapping_label(const QString& object_name) {
  auto* label = new QLabel;
  label->setObjectName(object_name);
  label->setWordWrap(true);
  label->setTextInteractionFlags(Qt::TextSelectableByMouse);
  return label;
}

}  // namespace

MaskOperationPanel::MaskOperationPanel(Workbench& workbench, QWidget* parent)
    : PanelWidget(workbench, parent),
      _context(workbench),
      _living_workbench(&workbench),
      _title(wrapping_label("mask_title")),
      _search(new QLineEdit),
      _list(new QTreeWidget),
      _reason(wrapping_label("mask_reason")),
      _area(new QScrollArea),
      _summary(wrapping_label("mask_summary")),
      _histogram(new HistogramView),
      _histogram_box(new QWidget),
      _logarithmic(new QCheckBox(tr("Lo&garithmic"))),
      _preview(new QCheckBox(tr("&Preview"))),
      _answer(wrapping_label("mask_answer")),
      _apply(new QPushButton(tr("Apply"))),
      _save(new QPushButton(tr("Save changes"))),
      _cancel(new QPushButton(tr("Cancel"))),
      _histogram_worker(workbench.mailbox(), "histogram") {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(6, 6, 6, 6);
  column->addWidget(_title);
  column->addWidget(_search);
  column->addWidget(_list, 1);
  column->addWidget(_reason);
  column->addWidget(_area, 3);
  column->addWidget(_answer);
  auto* buttons = new QHBoxLayout;
  column->addLayout(buttons);
  buttons->addWidget(_preview);
  buttons->addStretch(1);
  for (QPushButton* one : {_cancel, _save, _apply}) buttons->addWidget(one);

  build_list();
  build_operation_area();
  connect_workbench();
  choose_nothing();
}

void MaskOperationPanel::build_list() {
  QFont bold = font();
  bold.setBold(true);
  _title->setFont(bold);
  _search->setObjectName("mask_search");
  _search->setPlaceholderText(tr("Search the mask operations"));
  _search->setToolTip(tr("Show the operations that have these words (Ctrl+Shift+M)"));
  _search->setAccessibleName(tr("Search the mask operations"));
  _search->setClearButtonEnabled(true);
  _search->installEventFilter(this);
  auto* key = new QShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_M), this);
  connect(key, &QShortcut::activated, this, [this] {
    _search->setFocus();
    _search->selectAll();
  });
  connect(_search, &QLineEdit::textChanged, this, &MaskOperationPanel::filter_list);

  _list->setObjectName("mask_list");
  _list->setAccessibleName(tr("Mask operations"));
  _list->setHeaderHidden(true);
  _list->setIndentation(14);
  _list->setMinimumHeight(90);
  for (const model::MaskOperationInfo* info : controller().get_mask_operation_infos()) {
    const QString category = to_qt(info->category);
    const QList<QTreeWidgetItem*> found = _list->findItems(category, Qt::MatchExactly);
    QTreeWidgetItem* parent = found.isEmpty() ? nullptr : found.front();
    if (parent == nullptr) {
      parent = new QTreeWidgetItem(_list, QStringList(category));
      parent->setFont(0, bold);
      parent->setFlags(Qt::ItemIsEnabled);
      parent->setExpanded(true);
    }
    auto* item = new QTreeWidgetItem(parent, QStringList(to_qt(info->display_name)));
    item->setData(0, key_role, to_qt(info->key));
    item->setToolTip(0, to_qt(info->summary));
  }
  connect(_list, &QTreeWidget::currentItemChanged, this, [this] {
    const std::string chosen = current_key();
    if (!chosen.empty()) choose(chosen);
  });
  _reason->setAccessibleName(tr("Why the operation cannot be used"));
}

void MaskOperationPanel::build_operation_area() {
  auto* content = new QWidget;
  auto* column = new QVBoxLayout(content);
  column->setContentsMargins(0, 0, 6, 0);
  column->addWidget(_summary);
  column->addWidget(_histogram_box);
  auto* box = new QVBoxLayout(_histogram_box);
  box->setContentsMargins(0, 0, 0, 0);
  box->addWidget(_histogram);
  box->addWidget(_logarithmic);
  column->addStretch(1);
  _area->setObjectName("mask_area");
  _area->setWidgetResizable(true);
  _area->setFrameShape(QFrame::NoFrame);
  _area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  _area->setFocusPolicy(Qt::NoFocus);
  _area->setWidget(content);

  _logarithmic->setObjectName("histogram_logarithmic");
  _logarithmic->setToolTip(tr("Show small counts larger (Alt+G)"));
  _logarithmic->setChecked(workbench().memory().choice(logarithmic_choice, true).toBool());
  _histogram->set_logarithmic(_logarithmic->isChecked());
  connect(_logarithmic, &QCheckBox::toggled, this, [this](bool is_on) {
    workbench().memory().remember_choice(logarithmic_choice, is_on);
    _histogram->set_logarithmic(is_on);
  });
  connect(_histogram, &HistogramView::limit_moved, this, &MaskOperationPanel::take_limit);

  _preview->setObjectName("mask_preview");
  _preview->setToolTip(tr("Show in the image what the step would leave (Alt+P)"));
  _preview->setChecked(workbench().memory().choice(preview_choice, true).toBool());
  connect(_preview, &QCheckBox::toggled, this, [this](bool is_on) {
    workbench().memory().remember_choice(preview_choice, is_on);
    if (is_on) {
      ask_preview();
    } else {
      end_preview();
    }
  });
  _answer->setAccessibleName(tr("What the preview leaves"));
  // Room for two lines, so that nothing moves when the answer comes.
  _answer->setMinimumHeight(2 * fontMetrics().lineSpacing() + 2);
  _answer->setAlignment(Qt::AlignBottom | Qt::AlignLeft);

  _apply->setObjectName("mask_apply");
  _apply->setToolTip(tr("Add the step to the workflow (Ctrl+Return)"));
  _save->setObjectName("mask_save");
  _save->setToolTip(tr("Change the step of the workflow (Ctrl+Return)"));
  _cancel->setObjectName("mask_cancel");
  _cancel->setToolTip(tr("Leave the step as it is (Escape)"));
  connect(_apply, &QPushButton::clicked, this, &MaskOperationPanel::apply);
  connect(_save, &QPushButton::clicked, this, &MaskOperationPanel::apply);
  connect(_cancel, &QPushButton::clicked, this, &MaskOperationPanel::end_edit);
  for (const Qt::Key enter : {Qt::Key_Return, Qt::Key_Enter}) {
    auto* key = new QShortcut(QKeySequence(Qt::CTRL | enter), this);
    connect(key, &QShortcut::activated, this, [this] {
      QPushButton* button = _edit ? _save : _apply;
      if (button->isEnabled()) button->click();
    });
  }
  auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
  escape->setContext(Qt::WidgetWithChildrenShortcut);
  connect(escape, &QShortcut::activated, this, [this] {
    if (_edit) {
      end_edit();
    } else {
      choose_nothing();
    }
  });
}

void MaskOperationPanel::connect_workbench() {
  Workbench& bench = workbench();
  connect(&bench, &Workbench::capture_changed, this, [this] {
    _are_reasons_stale = true;
    _is_preview_stale = true;
    _histogram_worker.drop();
    _histogram_question.reset();
    _histogram->set_data(std::nullopt);
  });
  connect(&bench, &Workbench::workflow_changed, this, [this] {
    _are_reasons_stale = true;
    _is_preview_stale = true;
  });
  connect(&bench, &Workbench::busy_changed, this, [this](bool is_busy) {
    if (!is_busy) _is_preview_stale = true;  // whoever ran ended it
  });
  connect(&bench, &Workbench::step_edit_wanted, this, &MaskOperationPanel::begin_edit);
  connect(&bench.previewer(), &Previewer::answered, this, &MaskOperationPanel::show_answer);
  connect(&bench.previewer(), &Previewer::working_changed, this, [this](bool is_working) {
    if (is_working) _answer->setText(tr("Working..."));
  });
  connect(&bench.step_results(), &StepResults::changed, this, &MaskOperationPanel::update_histogram);
  _mask_added = controller().events.mask_operation_added.connect([this](const std::shared_ptr<model::CaptureSet>&) {
    if (_edit) return;
    // The same operation on top of itself is rarely what comes next.
    choose_nothing();
    _list->setFocus();
  });
}

// ---- The list -------------------------------------------------------------------------------------------------------

QTreeWidgetItem* MaskOperationPanel::item_of(const std::string& key) const {
  for (int i = 0; i < _list->topLevelItemCount(); ++i) {
    QTreeWidgetItem* category = _list->topLevelItem(i);
    for (int k = 0; k < category->childCount(); ++k) {
      if (category->child(k)->data(0, key_role).toString() == to_qt(key)) return category->child(k);
    }
  }
  return nullptr;
}

std::string MaskOperationPanel::current_key() const {
  const QTreeWidgetItem* item = _list->currentItem();
  return item == nullptr ? std::string() : from_qt(item->data(0, key_role).toString());
}

void MaskOperationPanel::filter_list(const QString& text) {
  const QStringList words = text.split(' ', Qt::SkipEmptyParts);
  for (const model::MaskOperationInfo* info : controller().get_mask_operation_infos()) {
    item_of(info->key)->setHidden(!fits(*info, words));
  }
  for (int i = 0; i < _list->topLevelItemCount(); ++i) {
    QTreeWidgetItem* category = _list->topLevelItem(i);
    bool has_any = false;
    for (int k = 0; k < category->childCount(); ++k) has_any = has_any || !category->child(k)->isHidden();
    category->setHidden(!has_any);
  }
}

bool MaskOperationPanel::eventFilter(QObject* watched, QEvent* event) {
  if (watched != _search || event->type() != QEvent::KeyPress) return PanelWidget::eventFilter(watched, event);
  const auto* key = static_cast<QKeyEvent*>(event);
  const bool is_plain = (key->modifiers() & ~Qt::KeypadModifier) == 0;
  if (!is_plain || (key->key() != Qt::Key_Down && key->key() != Qt::Key_Return && key->key() != Qt::Key_Enter)) {
    return false;
  }
  // To the first operation that was found.
  for (QTreeWidgetItemIterator each(_list, QTreeWidgetItemIterator::NotHidden); *each != nullptr; ++each) {
    if ((*each)->parent() == nullptr) continue;
    _list->setCurrentItem(*each);
    _list->setFocus();
    break;
  }
  return true;
}

void MaskOperationPanel::update_reasons() {
  _are_reasons_stale = false;
  _reasons.clear();
  for (const model::MaskOperationInfo* info : controller().get_mask_operation_infos()) {
    const std::optional<std::string> reason = controller().explain_mask_availability(info->key);
    QTreeWidgetItem* item = item_of(info->key);
    QFont face = font();
    face.setItalic(reason.has_value());
    item->setFont(0, face);
    item->setForeground(0, palette().brush(reason ? QPalette::Disabled : QPalette::Active, QPalette::Text));
    item->setToolTip(0, reason ? to_qt(info->summary + '\n' + *reason) : to_qt(info->summary));
    item->setData(0, Qt::AccessibleDescriptionRole, reason ? tr("Not available: %1").arg(to_qt(*reason)) : QString());
    if (reason) _reasons[info->key] = to_qt(*reason);
  }
}

void MaskOperationPanel::show_reason() {
  const auto found = _chosen == nullptr ? _reasons.end() : _reasons.find(_chosen->key);
  const bool is_shown = !_edit && found != _reasons.end();
  _reason->setText(is_shown ? found->second : QString());
  _reason->setVisible(is_shown);
}

// ---- The chosen operation -------------------------------------------------------------------------------------------

void MaskOperationPanel::choose(const std::string& key) {
  if (workbench().is_busy() || (_chosen != nullptr && _chosen->key == key && !_edit)) return;
  _edit.reset();
  const model::MaskOperationInfo& info = controller().get_mask_operation_class(key);
  const std::optional<Value> last = workbench().memory().parameters(key);
  const bool is_last_right = last && checked(info, *last);
  open_form(info, is_last_right ? *last : Value::object());
}

void MaskOperationPanel::choose_nothing() {
  _edit.reset();
  _list->setCurrentItem(nullptr);
  close_form();
}

void MaskOperationPanel::open_form(const model::MaskOperationInfo& info, const Value& values) {
  close_form();
  _chosen = &info;
  _context.set_operation(info.key);
  _context.update();
  _form = new ParameterForm(info.all_parameters(), _context);
  _form->set_values(values);
  std::optional<Value> last = workbench().memory().parameters(info.key);
  if (last && !checked(info, *last)) last.reset();
  _form->set_last_used(std::move(last));
  auto* column = static_cast<QVBoxLayout*>(_area->widget()->layout());
  column->insertWidget(column->count() - 1, _form);  // above the stretch
  connect(_form, &ParameterForm::edited, this, &MaskOperationPanel::values_changed);

  _summary->setText(to_qt(info.summary));
  _summary->setToolTip(to_qt(info.description));
  _histogram_box->setVisible(histogram_limits(info.key) != nullptr);
  _histogram->set_data(std::nullopt);
  const bool is_edit = _edit.has_value();
  _title->setVisible(is_edit);
  if (is_edit) {
    _title->setText(tr("Edit step %1: %2").arg(_edit->index + 1).arg(to_qt(info.display_name)));
  }
  _search->setVisible(!is_edit);
  _list->setVisible(!is_edit);
  _area->show();
  _area->verticalScrollBar()->setValue(0);
  _preview->show();
  _answer->show();
  _apply->setVisible(!is_edit);
  _save->setVisible(is_edit);
  _cancel->setVisible(is_edit);
  show_reason();
  // The list becomes smaller when the operation takes its room.
  QTimer::singleShot(0, this, [this] {
    if (_list->currentItem() != nullptr) _list->scrollToItem(_list->currentItem());
  });
  values_changed();
}

void MaskOperationPanel::close_form() {
  if (_form != nullptr) {
    _form->disconnect(this);
    _form->setParent(nullptr);
    _form->deleteLater();  // it may be what is telling
    _form = nullptr;
  }
  _chosen = nullptr;
  _histogram_worker.drop();
  _histogram_question.reset();
  _title->hide();
  _search->show();
  _list->show();
  _area->hide();
  _preview->hide();
  _answer->hide();
  for (QPushButton* button : {_apply, _save, _cancel}) button->hide();
  show_reason();
  end_preview();
}

void MaskOperationPanel::begin_edit(int index) {
  if (workbench().is_busy()) return;
  const auto& workflow = controller().state.current_workflow;
  if (!workflow || index < 0 || std::cmp_greater_equal(index, workflow->mask_operations.size())) return;
  const model::MaskOperationConfig step = workflow->mask_operations[static_cast<std::size_t>(index)];
  const auto known = controller().get_available_mask_operations();
  const auto found = known.find(step.op);
  if (found == known.end()) {
    workbench().tell_error(tr("Step %1 cannot be edited: there is no mask operation \"%2\"; remove the step or correct "
                              "its name in the file.")
                               .arg(index + 1)
                               .arg(to_qt(step.op)));
    return;
  }
  _list->setCurrentItem(nullptr);
  _edit = Edit{.index = index, .operation = step.op};
  open_form(*found->second, step.params);
  _form->focus_first();
}

void MaskOperationPanel::end_edit() {
  choose_nothing();
  _list->setFocus();
}

void MaskOperationPanel::values_changed() {
  if (_chosen == nullptr) return;
  if (check_values()) {
    ask_preview();
    update_histogram();
  }
  show_limits();
}

bool MaskOperationPanel::check_values() {
  QString sentence;
  const bool is_right = checked(*_chosen, _form->values(), &sentence).has_value();
  _form->show_problem(sentence);
  if (!is_right && !_answer->text().isEmpty()) _answer->setText(tr("The preview shows the values before."));
  const bool lacks_mask = _chosen->needs_mask && step_index() == 0;
  _apply->setEnabled(is_right && !lacks_mask);
  _save->setEnabled(is_right);
  return is_right;
}

void MaskOperationPanel::apply() {
  if (_chosen == nullptr || workbench().is_busy()) return;
  _form->finish_typing();
  if (!check_values()) return;
  const Value values = _form->values();
  if (!_edit) {
    workbench().apply_mask(_chosen->key, values);
    return;
  }
  const std::optional<QString> wrong = workbench().edit_mask(_edit->index, values);
  if (!wrong) {
    end_edit();
  } else if (_form != nullptr) {
    _form->show_problem(*wrong);
  }
}

// ---- Preview and histogram ------------------------------------------------------------------------------------------

int MaskOperationPanel::step_index() const {
  if (_edit) return _edit->index;
  const auto& workflow = controller().state.current_workflow;
  return workflow ? static_cast<int>(workflow->mask_operations.size()) : 0;
}

void MaskOperationPanel::ask_preview() {
  if (_chosen == nullptr || !isVisible() || !_preview->isChecked() || workbench().is_busy()) return;
  const Value values = _form->values();
  if (!checked(*_chosen, values)) return;
  _is_preview_stale = false;
  workbench().preview(step_index(), _chosen->key, values);
}

void MaskOperationPanel::end_preview() {
  _answer->clear();
  if (_living_workbench) _living_workbench->previewer().end();
}

void MaskOperationPanel::show_answer() {
  const std::optional<Previewer::Answer>& answer = workbench().previewer().answer();
  if (!answer || _chosen == nullptr || answer->operation != _chosen->key) {
    _answer->clear();
    return;
  }
  if (!answer->failure.isEmpty()) {
    _answer->setText(tr("No preview: %1").arg(answer->failure));
    return;
  }
  const double percent =
      _image_pixels == 0 ? 0 : 100 * static_cast<double>(answer->pixels) / static_cast<double>(_image_pixels);
  QString text = tr("%1 pixels, %2 %").arg(grouped(answer->pixels), QString::number(percent, 'f', 1));
  if (!answer->note.isEmpty()) text += "; " + answer->note;
  _answer->setText(text);
}

void MaskOperationPanel::update_histogram() {
  const HistogramLimits* limits = _chosen == nullptr ? nullptr : histogram_limits(_chosen->key);
  if (limits == nullptr || workbench().is_busy()) return;
  const std::optional<Value> params = checked(*_chosen, _form->values());
  if (!params) return;
  const auto& capture = controller().state.current_capture;
  if (!capture) {
    _histogram_question.reset();
    _histogram->set_data(std::nullopt, tr("Open a capture to see its histogram."));
    return;
  }
  HistogramQuestion question{.capture = capture, .before = nullptr, .limits = limits, .params = *params};
  if (const int index = step_index(); index > 0) {
    const std::vector<StepResult>& steps = workbench().step_results().steps();
    const auto place = static_cast<std::size_t>(index - 1);
    if (place >= steps.size() || !steps[place].capture) {
      const bool failed = place < steps.size() && !workbench().step_results().is_working();
      _histogram_question.reset();
      _histogram_worker.drop();
      _histogram->set_data(std::nullopt, failed ? tr("There is no histogram because a step before fails.") : QString());
      return;
    }
    question.before = steps[place].capture;
  }
  if (_histogram_question && is_same_histogram(*_histogram_question, question)) return;
  _histogram_question = question;
  _histogram_worker.start([this, question = std::move(question)](const Worker::Job& job) {
    std::optional<HistogramData> counted;
    QString reason;
    try {
      counted = make_histogram(question, {.cancel_event = &job.cancel_event(), .progress = {}});
    } catch (const model::CancelledError&) {
      return;
    } catch (...) {
      reason = to_qt(model::failure_text());
    }
    job.deliver([this, counted = std::move(counted), reason] {
      _histogram->set_data(counted, reason);
      show_limits();
    });
  });
}

void MaskOperationPanel::show_limits() {
  const HistogramLimits* limits = _chosen == nullptr ? nullptr : histogram_limits(_chosen->key);
  if (limits == nullptr) return;
  const Value values = _form->values();
  const std::optional<HistogramData>& shown = _histogram->data();
  const auto limit_of = [&](std::string_view name) {
    std::optional<double> value = number_of(values, name);
    if (value && limits->axis == HistogramLimits::Axis::percentiles_of_band) {
      value = shown ? std::optional(shown->value_at_percent(*value)) : std::nullopt;
    }
    return HistogramView::Limit{.name = parameter_label(std::string(name)), .value = value};
  };
  HistogramView::Kept kept = HistogramView::Kept::unknown;
  if (limits->kept == HistogramLimits::Kept::between) {
    const bool is_inverted = values.value("invert", Value(false)) == Value(true);
    kept = is_inverted ? HistogramView::Kept::outside : HistogramView::Kept::between;
  } else if (limits->kept == HistogramLimits::Kept::above_low) {
    kept = HistogramView::Kept::above_low;
  }
  _histogram->set_limits({limit_of(limits->low), limit_of(limits->high)}, kept);
}

void MaskOperationPanel::take_limit(int limit, double value) {
  const HistogramLimits* limits = _chosen == nullptr ? nullptr : histogram_limits(_chosen->key);
  const std::optional<HistogramData>& shown = _histogram->data();
  if (limits == nullptr || !shown) return;
  if (limits->axis == HistogramLimits::Axis::percentiles_of_band) {
    // The lower limit takes the whole bin that it stands on in, and so does the upper one.
    const double edge = shown->is_of_counts ? (limit == 0 ? -0.5 : 0.5) * shown->step : 0.0;
    value = std::round(10 * shown->percent_below(value + edge)) / 10;
  }
  _form->edit(std::string(limit == 0 ? limits->low : limits->high), value);
}

// ---- The panel ------------------------------------------------------------------------------------------------------

void MaskOperationPanel::refresh() {
  const controller::AppState& state = controller().state;
  _image_pixels = state.current_capture ? state.current_capture->get_shape().pixels() : 0;
  _context.update();
  if (_form != nullptr) _form->update_context();
  if (_edit) {
    // The step may be gone, or another one may stand in its place.
    const auto& workflow = state.current_workflow;
    const auto place = static_cast<std::size_t>(_edit->index);
    const bool is_there =
        workflow && place < workflow->mask_operations.size() && workflow->mask_operations[place].op == _edit->operation;
    if (!is_there) choose_nothing();
  }
  if (_are_reasons_stale && isVisible()) update_reasons();
  show_reason();
  if (_chosen == nullptr) return;
  check_values();
  update_histogram();
  show_limits();
  if (_is_preview_stale) ask_preview();
}

void MaskOperationPanel::showEvent(QShowEvent* event) {
  PanelWidget::showEvent(event);
  if (workbench().is_busy()) return;
  _is_preview_stale = true;
  refresh();
}

void MaskOperationPanel::hideEvent(QHideEvent* event) {
  PanelWidget::hideEvent(event);
  end_preview();
}

}  // namespace orvexa::ui::analysis_mode
