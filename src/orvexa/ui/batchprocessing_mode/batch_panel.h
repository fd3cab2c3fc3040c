#pragma once

#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QTextBrowser>
#include <filesystem>
#include <optional>
#include <vector>

#include "orvexa/ui/batchprocessing_mode/batch_progress.h"
#include "orvexa/ui/batchprocessing_mode/tick_list.h"
#include "orvexa/ui/panel_widget.h"
#include "orvexa/ui/path_field.h"

namespace orvexa::ui::batchprocessing_mode {

/// The page of the batch mode: which files, which workflow, where to, and how far it is. While it runs there is only
/// looking and cancelling.
class BatchPanel final : public PanelWidget {
  Q_OBJECT

 public:
  explicit BatchPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;
  /// How reports and folders are opened; a test puts something else in its place.
  void set_opener(const Opener& opener) { _progress->opener = opener; }

 protected:
  void show_busy(bool is_busy) override;

 private:
  using Path = std::filesystem::path;
  [[nodiscard]] QWidget* make_input();
  [[nodiscard]] QWidget* make_order();
  void take_input_folder(const std::optional<Path>& folder);
  void show_input();
  void show_order();
  /// What keeps the batch from starting, as sentences that say what to do.
  [[nodiscard]] QStringList obstacles() const;
  void start();
  void end(const controller::BatchSummary& summary);
  void look_at(const OutcomeTable::Outcome& outcome);
  void look_for_failing_step();

  std::optional<Path> _listed_folder;  ///< whose files are in the list
  bool _is_listed = false;             ///< otherwise what was found is another list also for the same folder
  bool _lists_images = false;
  bool _has_begun = false;
  struct Look {
    Path file;
    QString sentence;
  };
  std::optional<Look> _look;  ///< at a capture that is being opened in the analysis mode

  QWidget* _input = nullptr;
  PathField* _input_folder;
  QRadioButton* _captures;
  QRadioButton* _images;
  QPushButton* _again;
  QLabel* _input_sentence;
  TickList* _files;
  QWidget* _order = nullptr;
  QTextBrowser* _workflow;
  QPushButton* _open_workflow;
  QPushButton* _edit_workflow;
  PathField* _output_folder;
  QLabel* _missing;
  QPushButton* _start;
  BatchProgress* _progress;
};

}  // namespace orvexa::ui::batchprocessing_mode
