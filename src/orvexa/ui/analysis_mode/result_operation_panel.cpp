#include "orvexa/ui/analysis_mode/result_operation_panel.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QScrollArea>
#include <QShortcut>
#include <QSignalBlocker>
#include <QSplitter>
#include <QStyle>
#include <QStyledItemDelegate>
#include <QVBoxLayout>
#include <algorithm>

#include "orvexa/ui/text.h"
#include "orvexa/ui/value_words.h"

namespace orvexa::ui::analysis_mode {

namespace {

constexpr int gap_px = 4;

constexpr int name_column = 0;  // the only one

/// Draws what cannot be ticked as disabled while it can still be selected, so that its reason can be read.
class OperationDelegate final : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;

 protected:
  void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override {
    QStyledItemDelegate::initStyleOption(option, index);
    if (index.data(Qt::CheckStateRole).isValid() && !index.flags().testFlag(Qt::ItemIsUserCheckable)) {
      option->state &= ~QStyle::State_Enabled;
      option->palette.setCurrentColorGroup(QPalette::Disabled);
    }
  }
};

QToolButton* make_button(const QString& name, const QString& text, const QString& tip, const QKeySequence& shortcut) {
  auto* button = new QToolButton;
  button->setObjectName(name);
  button->setText(text);
  button->setShortcut(shortcut);
  button->setToolTip(ResultOperationPanel::tr("%1 (%2)").arg(tip, shortcut.toString(QKeySequence::NativeText)));
  button->setFocusPolicy(Qt::StrongFocus);
  return button;
}

}  // namespace

ResultOperationPanel::ResultOperationPanel(Workbench& workbench, QWidget* parent) : PanelWidget(workbench, parent) {
  _hint = new QLabel;
  _hint->setObjectName("operations_hint");
  _hint->setWordWrap(true);
  _hint->hide();
  auto* split = new QSplitter(Qt::Vertical);
  split->setChildrenCollapsible(false);
  split->addWidget(make_list());
  split->addWidget(make_details());
  split->setStretchFactor(0, 1);
  split->setSizes({320, 180});

  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(gap_px, gap_px, gap_px, gap_px);
  column->setSpacing(gap_px);
  column->addLayout(make_search_row());
  column->addWidget(_hint);
  column->addWidget(split, 1);

  fill_list();
  connect(&workbench, &Workbench::capture_changed, this, [this] {
    _is_explained = false;
    _explained_capture.reset();  // or it would stay in memory beside the one that is being opened
  });
  _operations_changed = controller().events.workflow_result_operations_changed.connect([this] {
    const auto& workflow = controller().state.current_workflow;
    if (workflow) _measured = workflow->result_operations;
    list_unknown_operations();
    show_ticks();
  });
}

// ---- What it is made of ---------------------------------------------------------------------------------------------

QLayout* ResultOperationPanel::make_search_row() {
  _search = new QLineEdit;
  _search->setObjectName("find_operation");
  _search->setPlaceholderText(tr("Find a measurement"));
  _search->setAccessibleName(tr("Find a measurement"));
  _search->setToolTip(tr("Shows only the measurements whose name or summary has this text (Ctrl+Shift+F)"));
  _search->setClearButtonEnabled(true);
  _search->installEventFilter(this);
  connect(_search, &QLineEdit::textChanged, this, &ResultOperationPanel::filter);
  auto* find = new QShortcut(Qt::CTRL | Qt::SHIFT | Qt::Key_F, this);
  connect(find, &QShortcut::activated, this, [this] { _search->setFocus(Qt::ShortcutFocusReason); });

  auto* all = make_button("tick_all", tr("All"), tr("Measure everything that is listed and can be measured"),
                          Qt::CTRL | Qt::SHIFT | Qt::Key_A);
  connect(all, &QToolButton::clicked, this, [this] { tick(Which::all); });
  auto* none =
      make_button("tick_none", tr("None"), tr("Measure nothing of what is listed"), Qt::CTRL | Qt::SHIFT | Qt::Key_X);
  connect(none, &QToolButton::clicked, this, [this] { tick(Which::none); });
  auto* only = make_button("tick_selected", tr("Only the selected"), tr("Measure the selected lines and nothing else"),
                           Qt::CTRL | Qt::SHIFT | Qt::Key_Y);
  connect(only, &QToolButton::clicked, this, [this] { tick(Which::selected); });

  auto* row = new QHBoxLayout;
  row->setSpacing(gap_px);
  row->addWidget(_search, 1);
  for (QToolButton* button : {all, none, only}) row->addWidget(button);
  return row;
}

QWidget* ResultOperationPanel::make_list() {
  _list = new QTreeWidget;
  _list->setObjectName("result_operations");
  _list->setAccessibleName(tr("What is measured"));
  _list->setColumnCount(1);
  _list->setHeaderHidden(true);
  _list->header()->setSectionResizeMode(QHeaderView::Stretch);  // what is longer is cut, and whole in the tip
  _list->setSelectionMode(QAbstractItemView::ExtendedSelection);
  _list->setItemDelegate(new OperationDelegate(_list));
  _list->setIndentation(style()->pixelMetric(QStyle::PM_TreeViewIndentation) / 2 + gap_px);
  connect(_list, &QTreeWidget::itemChanged, this, [this](const QTreeWidgetItem* /*item*/, int column) {
    if (column == name_column) take_ticks_over();
  });
  connect(_list, &QTreeWidget::currentItemChanged, this, &ResultOperationPanel::show_details);
  return _list;
}

QWidget* ResultOperationPanel::make_details() {
  _name = new QLabel;
  _name->setObjectName("operation_name");
  QFont bold = _name->font();
  bold.setBold(true);
  _name->setFont(bold);
  _summary = new QLabel;
  _summary->setObjectName("operation_summary");
  _reason = new QLabel;
  _reason->setObjectName("operation_reason");
  for (QLabel* label : {_summary, _reason}) {
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
  }
  _parameters = new ResultParameters(workbench());
  _parameters->setObjectName("operation_parameters");
  connect(_parameters, &ResultParameters::edited, this, [this](const common::Value& values) {
    const Row* row = current_row();
    if (row == nullptr) return;
    const std::optional<QString> problem = workbench().edit_result_operation(row->key, values);
    _parameters->show_problem(problem.value_or(QString()));
  });

  auto* inside = new QWidget;
  auto* column = new QVBoxLayout(inside);
  column->setSpacing(gap_px);
  for (QWidget* part : std::initializer_list<QWidget*>{_name, _summary, _reason, _parameters}) column->addWidget(part);
  column->addStretch(1);
  auto* area = new QScrollArea;
  area->setWidgetResizable(true);
  area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  area->setFocusPolicy(Qt::NoFocus);
  area->setWidget(inside);
  return area;
}

void ResultOperationPanel::fill_list() {
  const QSignalBlocker quiet(_list);
  for (const auto& [category, infos] : controller().get_result_operations_by_category()) {
    auto* head = new QTreeWidgetItem(_list, {to_qt(category)});
    head->setFlags(Qt::ItemIsEnabled);
    QFont bold = _list->font();
    bold.setBold(true);
    head->setFont(name_column, bold);
    head->setExpanded(true);
    for (const model::ResultOperationInfo* info : infos) {
      auto* item = new QTreeWidgetItem(head, {to_qt(info->display_name)});
      item->setData(name_column, Qt::UserRole, to_qt(info->key));
      item->setCheckState(name_column, Qt::Unchecked);
      _rows.push_back({.key = info->key, .info = info, .item = item});
    }
  }
}

void ResultOperationPanel::list_unknown_operations() {
  const QSignalBlocker quiet(_list);
  for (const model::ResultOperationConfig& config : _measured) {
    if (std::ranges::find(_rows, config.op, &Row::key) != _rows.end()) continue;
    const bool has_head = !_rows.empty() && _rows.back().info == nullptr;
    QTreeWidgetItem* head = has_head ? _rows.back().item->parent() : new QTreeWidgetItem(_list, {tr("Unknown")});
    head->setFlags(Qt::ItemIsEnabled);
    head->setExpanded(true);
    auto* item = new QTreeWidgetItem(head, {to_qt(config.op)});
    item->setData(name_column, Qt::UserRole, to_qt(config.op));
    item->setCheckState(name_column, Qt::Checked);
    _rows.push_back({.key = config.op,
                     .item = item,
                     .is_available = false,
                     .reason = tr("This version of the program does not know it; untick it to run the workflow.")});
  }
  // One that was unticked is hidden rather than deleted: this may be called while the click on it is handled.
  if (!_rows.empty() && _rows.back().info == nullptr) filter();
}

// ---- What it shows --------------------------------------------------------------------------------------------------

void ResultOperationPanel::refresh() {
  const auto& workflow = controller().state.current_workflow;
  _has_workflow = workflow != nullptr;
  _measured = workflow ? workflow->result_operations : std::vector<model::ResultOperationConfig>();
  _hint->setText(!_has_workflow ? tr("Open a capture or a workflow to choose what is measured.")
                                : tr("Open a capture to see what can be measured on it."));
  _hint->setVisible(!_has_workflow || !controller().state.current_capture);
  list_unknown_operations();
  explain();
  show_ticks();
  show_details();
}

void ResultOperationPanel::explain() {
  const controller::AppState& state = controller().state;
  const auto& steps =
      state.current_workflow ? state.current_workflow->mask_operations : std::vector<model::MaskOperationConfig>();
  const bool is_another = !_is_explained || _explained_capture != state.current_capture || _explained_steps != steps;
  _is_explained = true;
  _explained_capture = state.current_capture;
  _explained_steps = steps;
  if (is_another) {
    _available.reset();
    if (state.current_capture && state.current_workflow) {
      _available = controller()._get_available_op_keys(*state.current_workflow);
    }
  }
  for (Row& row : _rows) {
    if (row.info == nullptr) continue;
    const model::ResultOperationConfig* config = config_of(row.key);
    const auto params = config != nullptr ? std::optional(config->params) : std::nullopt;
    if (!is_another && row.asked_about == params) continue;
    row.asked_about = params;
    row.reason.clear();
    if (is_another) row.is_available = true;
    if (!state.current_capture) continue;
    const std::optional<std::string> reason = controller().explain_availability(row.key);
    if (reason) row.reason = to_qt(*reason);
    // With other parameters it may be usable.
    const bool is_certain = reason && !reason->starts_with(controller::Controller::with_its_defaults);
    const bool is_left_out = _available && std::ranges::find(*_available, row.key) == _available->end();
    // The parameters that a reason is about can only be changed while it is ticked.
    row.is_available = !is_left_out && (!is_certain || config != nullptr);
    if (is_left_out && row.reason.isEmpty()) row.reason = tr("This capture and the mask steps do not allow it.");
  }
}

void ResultOperationPanel::show_ticks() {
  const QSignalBlocker quiet(_list);
  const QIcon warning = style()->standardIcon(QStyle::SP_MessageBoxWarning);
  for (const Row& row : _rows) {
    const model::ResultOperationConfig* config = config_of(row.key);
    const bool is_ticked = config != nullptr;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (_has_workflow && (is_ticked || row.is_available)) flags |= Qt::ItemIsUserCheckable;
    row.item->setFlags(flags);
    row.item->setCheckState(name_column, is_ticked ? Qt::Checked : Qt::Unchecked);
    QString remark = row.reason;
    if (remark.isEmpty() && is_ticked && row.info != nullptr) {
      remark = parameter_words(row.info->parameters, config->params);
    }
    row.item->setText(name_column, remark.isEmpty() ? name_of(row) : name_of(row) + '\n' + remark);
    row.item->setIcon(name_column, is_ticked && !row.reason.isEmpty() ? warning : QIcon());
    const QString summary = row.info != nullptr ? to_qt(row.info->summary) : QString();
    row.item->setToolTip(name_column, remark.isEmpty() ? summary : remark);
  }
}

void ResultOperationPanel::show_details() {
  const Row* row = current_row();
  for (QLabel* label : {_name, _summary, _reason}) label->setVisible(row != nullptr);
  _parameters->setVisible(row != nullptr);
  if (row == nullptr) {
    _parameters->show_parameters(nullptr, {}, std::nullopt);
    return;
  }
  const model::ResultOperationConfig* config = config_of(row->key);
  _name->setText(name_of(*row));
  _summary->setText(row->info != nullptr ? to_qt(row->info->summary) : QString());
  QString reason = row->reason;
  if (reason.isEmpty() && config == nullptr && row->info != nullptr && !row->info->parameters.empty()) {
    reason = tr("Tick it to change its parameters.");
  } else if (!reason.isEmpty()) {
    reason = row->is_available ? tr("Attention: %1").arg(reason) : tr("Not available: %1").arg(reason);
  }
  _reason->setText(reason);
  _reason->setVisible(!reason.isEmpty());
  _parameters->show_parameters(row->info, config != nullptr ? config->params : common::Value::object(),
                               workbench().memory().parameters(row->key));
  _parameters->setEnabled(config != nullptr);
}

void ResultOperationPanel::filter() {
  const QString wanted = _search->text().trimmed();
  for (int i = 0; i < _list->topLevelItemCount(); ++i) _list->topLevelItem(i)->setHidden(true);
  for (const Row& row : _rows) {
    QTreeWidgetItem* head = row.item->parent();
    QStringList texts{name_of(row), head->text(name_column), to_qt(row.key)};
    if (row.info != nullptr) texts << to_qt(row.info->summary);
    const bool is_here = row.info != nullptr || config_of(row.key) != nullptr;
    const bool is_shown = is_here && std::ranges::any_of(texts, [&](const QString& text) {
                            return text.contains(wanted, Qt::CaseInsensitive);
                          });
    row.item->setHidden(!is_shown);
    if (is_shown) head->setHidden(false);
  }
}

bool ResultOperationPanel::eventFilter(QObject* watched, QEvent* event) {
  if (watched == _search && event->type() == QEvent::KeyPress &&
      static_cast<QKeyEvent*>(event)->key() == Qt::Key_Down) {
    const auto first = std::ranges::find_if(_rows, [](const Row& row) { return !row.item->isHidden(); });
    if (first != _rows.end()) _list->setCurrentItem(first->item);
    _list->setFocus(Qt::OtherFocusReason);
    return true;
  }
  return PanelWidget::eventFilter(watched, event);
}

QString ResultOperationPanel::name_of(const Row& row) {
  return to_qt(row.info != nullptr ? row.info->display_name : row.key);
}

// ---- What it does ---------------------------------------------------------------------------------------------------

void ResultOperationPanel::take_ticks_over() {
  std::vector<std::string> keys;
  for (const Row& row : _rows) {
    if (row.item->checkState(name_column) == Qt::Checked) keys.push_back(row.key);
  }
  workbench().set_result_operations(keys);
  show_ticks();  // as the workflow has them now, also when nothing was changed
}

void ResultOperationPanel::tick(Which which) {
  if (!_has_workflow) return;
  {
    const QSignalBlocker quiet(_list);
    for (const Row& row : _rows) {
      const bool can_be_ticked = row.item->flags().testFlag(Qt::ItemIsUserCheckable) && row.is_available;
      const bool is_wanted = which == Which::all || (which == Which::selected && row.item->isSelected());
      if (which != Which::selected && row.item->isHidden()) continue;
      if (is_wanted && !can_be_ticked) continue;
      row.item->setCheckState(name_column, is_wanted ? Qt::Checked : Qt::Unchecked);
    }
  }
  take_ticks_over();
}

const model::ResultOperationConfig* ResultOperationPanel::config_of(const std::string& key) const {
  const auto found = std::ranges::find(_measured, key, &model::ResultOperationConfig::op);
  return found != _measured.end() ? &*found : nullptr;
}

ResultOperationPanel::Row* ResultOperationPanel::current_row() {
  QTreeWidgetItem* item = _list->currentItem();
  const auto found = std::ranges::find(_rows, item, &Row::item);
  return item != nullptr && found != _rows.end() ? &*found : nullptr;
}

}  // namespace orvexa::ui::analysis_mode
