#include "orvexa/ui/panel_widget.h"

#include <QMetaObject>
#include <algorithm>

namespace orvexa::ui {

namespace {

/// "FilePanel" -> "file_panel".
std::string snake_case(std::string_view mixed_case) {
  std::string text;
  for (const char letter : mixed_case) {
    const bool is_capital = letter >= 'A' && letter <= 'Z';
    if (is_capital && !text.empty()) text += '_';
    text += is_capital ? static_cast<char>(letter - 'A' + 'a') : letter;
  }
  return text;
}

}  // namespace

PanelWidget::PanelWidget(Workbench& workbench, QWidget* parent) : QWidget(parent), _workbench(workbench) {
  connect(&workbench, &Workbench::busy_changed, this, [this](bool is_busy) { show_busy(is_busy); });
}

PanelWidget::~PanelWidget() {
  for (QObject* part : findChildren<QObject*>()) part->disconnect(this);
}

std::string PanelWidget::class_name() const {
  const std::string full_name = metaObject()->className();
  return full_name.substr(full_name.rfind(':') + 1);
}

std::string PanelWidget::module_path() const {
  const std::string full_name = metaObject()->className();
  std::string path;
  for (const char letter : full_name.substr(0, full_name.rfind(':') + 1)) {
    if (letter != ':') {
      path += letter;
    } else if (!path.ends_with('.')) {
      path += '.';
    }
  }
  return path + snake_case(class_name());
}

void PanelWidget::setEnabled(bool enabled) {
  _is_allowed = enabled;
  update_enabled();
}

void PanelWidget::show_busy(bool is_busy) {
  _is_busy = is_busy;
  update_enabled();
}

void PanelWidget::update_enabled() {
  const bool is_enabled = _is_allowed && !_is_busy;
  if (!is_enabled) {
    // A disabled widget hands the keyboard on to the next one, which is about to be disabled as well, so that people
    // would find it in a place that they never chose. It comes back to where it was instead.
    QWidget* focus = window()->focusWidget();
    if (focus != nullptr && isAncestorOf(focus)) {
      _had_focus = focus;
      focus->clearFocus();
    }
  }
  QWidget::setEnabled(is_enabled);
  if (is_enabled && _had_focus) {
    if (window()->focusWidget() == nullptr && _had_focus->isVisible()) _had_focus->setFocus(Qt::OtherFocusReason);
    _had_focus.clear();
  }
}

}  // namespace orvexa::ui
