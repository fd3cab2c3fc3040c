#pragma once

#include <QKeySequence>
#include <QLineEdit>
#include <QToolButton>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

namespace orvexa::ui {

/// A line for a folder or file: typed, chosen in a dialog, taken from those used last, or dropped.
class PathField final : public QWidget {
  Q_OBJECT

 public:
  using Path = std::filesystem::path;
  enum class Kind { folder, file };
  struct Description {
    Kind kind = Kind::folder;
    QString object_name;         ///< "batch_input"; the line is "batch_input_edit", the button "batch_input_choose"
    QString name;                ///< for the dialog's title and for people who do not see: "Folder with captures"
    QString hint = {};           ///< in the empty line
    QString files = {};          ///< which files the dialog offers: "Workflows (*.yaml *.yml)"
    QKeySequence shortcut = {};  ///< of the dialog
    std::function<std::vector<Path>()> recent = {};  ///< the newest first; absent = there is no such list
  };

  explicit PathField(const Description& description, QWidget* parent = nullptr);

  /// What was chosen last; absent for nothing.
  [[nodiscard]] const std::optional<Path>& path() const { return _path; }
  /// Shows another path without telling anybody.
  void set_path(const std::optional<Path>& path);
  /// The dialog; absent when it was closed without a choice.
  [[nodiscard]] std::optional<Path> ask();

 Q_SIGNALS:
  /// Somebody chose another path; absent when the line was emptied.
  void path_chosen(const std::optional<std::filesystem::path>& path);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

 private:
  void take_typed();
  void choose(const std::optional<Path>& path);
  void fill_menu();

  const Description _description;
  std::optional<Path> _path;
  QLineEdit* _edit;
  QToolButton* _button;
};

}  // namespace orvexa::ui
