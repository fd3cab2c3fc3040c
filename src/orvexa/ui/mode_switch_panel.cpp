#include "orvexa/ui/mode_switch_panel.h"

#include <QHBoxLayout>
#include <QToolButton>
#include <array>

#include "orvexa/ui/text.h"

namespace orvexa::ui {

namespace {

struct Mode {
  const char* name;  ///< of the Controller
  const char* text;
  const char* tip;
  const char* shortcut;
};
constexpr std::array modes{
    Mode{"analysis", QT_TRANSLATE_NOOP("orvexa::ui::ModeSwitchPanel", "Analysis"),
         QT_TRANSLATE_NOOP("orvexa::ui::ModeSwitchPanel", "Work on one capture"), "Ctrl+1"},
    Mode{"batch", QT_TRANSLATE_NOOP("orvexa::ui::ModeSwitchPanel", "Batch"),
         QT_TRANSLATE_NOOP("orvexa::ui::ModeSwitchPanel", "Run the workflow on many captures"), "Ctrl+2"},
    Mode{"watcher", QT_TRANSLATE_NOOP("orvexa::ui::ModeSwitchPanel", "Watcher"),
         QT_TRANSLATE_NOOP("orvexa::ui::ModeSwitchPanel", "Run a workflow on whatever arrives in a folder"), "Ctrl+3"}};

}  // namespace

ModeSwitchPanel::ModeSwitchPanel(Workbench& workbench, QWidget* parent)
    : PanelWidget(workbench, parent), _buttons(new QButtonGroup(this)) {
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(0);
  for (const Mode& mode : modes) {
    auto* button = new QToolButton;
    button->setObjectName(QString("mode_") + mode.name);
    button->setText(tr(mode.text));
    button->setCheckable(true);
    button->setShortcut(QKeySequence(mode.shortcut));
    button->setToolTip(tr("%1 (%2)").arg(tr(mode.tip), QKeySequence(mode.shortcut).toString(QKeySequence::NativeText)));
    button->setAccessibleDescription(tr(mode.tip));
    _buttons->addButton(button);
    row->addWidget(button);
    connect(button, &QToolButton::clicked, this,
            [this, name = std::string(mode.name)] { this->workbench().set_mode(name); });
  }
  refresh();
}

void ModeSwitchPanel::refresh() {
  const std::string& mode = controller().state.processing_mode;
  if (auto* button = findChild<QToolButton*>("mode_" + to_qt(mode))) button->setChecked(true);
}

}  // namespace orvexa::ui
