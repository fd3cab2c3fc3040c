#pragma once

#include <QCheckBox>
#include <QElapsedTimer>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QWidget>
#include <filesystem>
#include <optional>

#include "orvexa/controller/batch_summary.h"
#include "orvexa/ui/outcome_table.h"
#include "orvexa/ui/outside.h"

namespace orvexa::ui::batchprocessing_mode {

/// How far a batch is and what became of its files so far. Knows nothing but what it is told.
class BatchProgress final : public QWidget {
  Q_OBJECT

 public:
  explicit BatchProgress(QWidget* parent = nullptr);

  /// @param steps  of each file, as far as that can be foreseen.
  void begin(int count, int steps);
  void begin_file(int number, const QString& file);
  void tell_step(const QString& text);
  void end_file(const controller::BatchFileEntry& entry);
  /// @param failure  why the run did not even begin; empty when it did.
  void end(const controller::BatchSummary& summary, const QString& failure);

  /// How reports and folders are opened.
  Opener opener = open_outside;

 Q_SIGNALS:
  void cancel_wanted();
  /// A person wants to look at a capture that was worked on.
  void capture_wanted(const OutcomeTable::Outcome& outcome);
  /// Something could not be opened, in a sentence.
  void opening_failed(const QString& sentence);

 private:
  void show_remaining();
  void show_buttons();
  void open(const std::filesystem::path& path);

  int _count = 0;
  int _done = 0;
  int _remarked = 0;
  int _failed = 0;
  int _finished = 0;  ///< done or failed
  int _steps = 1;
  bool _is_running = false;
  QElapsedTimer _since_begin;
  qint64 _finished_at_ms = 0;  ///< when the last finished file was finished
  std::filesystem::path _run_folder;
  QTimer _clock;

  QLabel* _state;
  QProgressBar* _overall;
  QLabel* _remaining;
  QLabel* _file;
  QProgressBar* _file_bar;
  QPushButton* _cancel;
  OutcomeTable* _table;
  QCheckBox* _failures_only;
  QPushButton* _look;
  QPushButton* _open_results;
  QCheckBox* _open_at_end;
  QPushButton* _open_report;
  QPushButton* _open_table;
  QPushButton* _open_folder;
};

}  // namespace orvexa::ui::batchprocessing_mode
