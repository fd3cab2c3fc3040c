#include "orvexa/ui/path_field.h"

#include <QDragEnterEvent>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QMenu>
#include <QMimeData>
#include <QUrl>

#include "orvexa/ui/text.h"

namespace orvexa::ui {

namespace {

/// What lies on this machine and is of the kind; absent for anything else.
std::optional<std::filesystem::path> dropped_path(const QMimeData& data, PathField::Kind kind) {
  if (data.urls().isEmpty() || !data.urls().front().isLocalFile()) return std::nullopt;
  const std::filesystem::path path = path_from_qt(data.urls().front().toLocalFile());
  std::error_code unknown;
  if (std::filesystem::is_directory(path, unknown) != (kind == PathField::Kind::folder)) return std::nullopt;
  return path;
}

}  // namespace

PathField::PathField(const Description& description, QWidget* parent)
    : QWidget(parent), _description(description), _edit(new QLineEdit), _button(new QToolButton) {
  setObjectName(description.object_name);
  setAcceptDrops(true);
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 0, 0, 0);
  row->addWidget(_edit, 1);
  row->addWidget(_button);

  _edit->setObjectName(description.object_name + "_edit");
  _edit->setAccessibleName(description.name);
  _edit->setPlaceholderText(description.hint);
  _edit->setAcceptDrops(false);  // they come to the whole field, as paths rather than addresses
  _edit->installEventFilter(this);
  connect(_edit, &QLineEdit::editingFinished, this, &PathField::take_typed);

  _button->setObjectName(description.object_name + "_choose");
  _button->setText(tr("Choose…"));
  _button->setAccessibleName(tr("Choose: %1").arg(description.name));
  _button->setFocusPolicy(Qt::StrongFocus);
  _button->setShortcut(description.shortcut);
  QString tip = description.name;
  if (!description.shortcut.isEmpty()) {
    tip = tr("%1 (%2)").arg(tip, description.shortcut.toString(QKeySequence::NativeText));
  }
  connect(_button, &QToolButton::clicked, this, [this] {
    if (const auto path = ask()) choose(path);
  });
  if (description.recent) {
    auto* menu = new QMenu(this);
    menu->setObjectName(description.object_name + "_recent");
    menu->setToolTipsVisible(true);
    _button->setMenu(menu);
    _button->setPopupMode(QToolButton::MenuButtonPopup);
    connect(menu, &QMenu::aboutToShow, this, &PathField::fill_menu);
    tip += '\n' + tr("Used last: the arrow, or Alt+Down in the line");
  }
  _button->setToolTip(tip);
  setFocusProxy(_edit);
}

void PathField::set_path(const std::optional<Path>& path) {
  _path = path;
  const QString text = path ? qt_path(*path) : QString();
  if (_edit->text() != text) _edit->setText(text);  // sets the cursor to the end, which says most about a long path
  _edit->setToolTip(text);
}

std::optional<PathField::Path> PathField::ask() {
  const QString begin = _path ? qt_path(*_path) : QString();
  const QString text = _description.kind == Kind::folder
                           ? QFileDialog::getExistingDirectory(window(), _description.name, begin)
                           : QFileDialog::getOpenFileName(window(), _description.name, begin, _description.files);
  if (text.isEmpty()) return std::nullopt;
  return path_from_qt(text);
}

void PathField::take_typed() {
  const QString text = _edit->text().trimmed();
  const std::optional<Path> typed = text.isEmpty() ? std::nullopt : std::optional(path_from_qt(text));
  if (typed != _path) choose(typed);
}

void PathField::choose(const std::optional<Path>& path) {
  set_path(path);
  Q_EMIT path_chosen(path);
}

void PathField::fill_menu() {
  QMenu* menu = _button->menu();
  menu->clear();
  for (const Path& path : _description.recent()) {
    const QString text = qt_path(path);
    QAction* action = menu->addAction(menu->fontMetrics().elidedText(text, Qt::ElideMiddle, 480).replace('&', "&&"));
    action->setToolTip(text);
    connect(action, &QAction::triggered, this, [this, path] { choose(path); });
  }
  if (menu->isEmpty()) menu->addAction(tr("Nothing was used yet"))->setEnabled(false);
}

bool PathField::eventFilter(QObject* watched, QEvent* event) {
  if (watched == _edit && event->type() == QEvent::KeyPress) {
    const auto& key = *static_cast<QKeyEvent*>(event);
    if (key.key() == Qt::Key_Down && key.modifiers() == Qt::AltModifier && _button->menu() != nullptr) {
      _button->showMenu();
      return true;
    }
    if (key.key() == Qt::Key_Escape && _edit->isModified()) {
      set_path(_path);
      return true;
    }
  }
  return QWidget::eventFilter(watched, event);
}

void PathField::dragEnterEvent(QDragEnterEvent* event) {
  if (dropped_path(*event->mimeData(), _description.kind)) event->acceptProposedAction();
}

void PathField::dropEvent(QDropEvent* event) {
  const auto path = dropped_path(*event->mimeData(), _description.kind);
  if (!path) return;
  event->acceptProposedAction();
  choose(path);
}

}  // namespace orvexa::ui
