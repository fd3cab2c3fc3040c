#pragma once

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QPushButton>
#include <QTimer>
#include <filesystem>
#include <functional>
#include <optional>

#include "orvexa/controller/watch_status.h"
#include "orvexa/ui/outcome_table.h"
#include "orvexa/ui/outside.h"
#include "orvexa/ui/panel_widget.h"
#include "orvexa/ui/path_field.h"

namespace orvexa::ui::filewatcher_mode {

/// The page of the watcher mode: which folder is watched, with which workflow, how it stands, and what became of the
/// captures that arrived.
class WatcherPanel final : public PanelWidget {
  Q_OBJECT

 public:
  explicit WatcherPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;

  using Path = std::filesystem::path;
  /// How folders are opened, and how a person is asked where to save the workflow (absent = not at all); a test puts
  /// something else in their place.
  Opener opener = open_outside;
  std::function<std::optional<Path>()> ask_where_to_save;

 protected:
  void show_busy(bool is_busy) override;

 private:
  [[nodiscard]] QWidget* make_settings();
  [[nodiscard]] QWidget* make_status();
  [[nodiscard]] QStringList missing() const;
  void show_settings();
  void show_buttons();
  void use_current_workflow();
  void start();
  void take(const controller::WatcherEvent& event);
  /// Reads the numbers that the watcher keeps in its output folder, in the background.
  void read_status();
  void show_status();

  bool _is_busy = false;
  bool _is_complete = false;                         ///< nothing was missing when the settings were last looked at
  bool _is_running = false;                          ///< as of the last refresh
  bool _was_started = false;                         ///< a person wanted it, and it is not known yet whether it runs
  std::optional<controller::WatcherConfig> _config;  ///< that it was last started with
  std::optional<controller::WatchStatus> _status;
  QString _since;    ///< when it began to watch
  QString _problem;  ///< what captures wait for, or why it did not start

  QWidget* _settings = nullptr;
  PathField* _input;
  PathField* _output;
  PathField* _workflow;
  QPushButton* _use_current;
  QDoubleSpinBox* _poll_seconds;
  QComboBox* _search;
  QLabel* _missing;
  QPushButton* _start;
  QPushButton* _stop;
  QLabel* _state;
  QLabel* _numbers;
  QLabel* _problem_text;
  OutcomeTable* _table;
  QCheckBox* _failures_only;
  QPushButton* _look;
  QPushButton* _open_results;
  QPushButton* _open_output;
  QTimer _clock;
  Worker _reader;  ///< last, so that it ends first
};

}  // namespace orvexa::ui::filewatcher_mode
