#pragma once

#include <QImage>
#include <QLabel>
#include <QTabBar>
#include <QTreeWidget>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "orvexa/model/entities/image_entry.h"
#include "orvexa/ui/panel_widget.h"

namespace orvexa::ui::analysis_mode {

/// The images of the current capture as it is, after each mask step, and as results: a tab each, by measurement. What
/// is chosen here is shown by the viewer. The first part of an image's context text is the tab, the second the
/// measurement: "Raw Images > CLR".
class MeasurementsPanel final : public PanelWidget, public controller::SelectsDefaultImage {
  Q_OBJECT

 public:
  explicit MeasurementsPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;
  /// The first colour image of the capture, else its first image.
  void auto_select_default_image() override;

 private:
  struct Entry {
    QString measurement;
    QString name;
    QString facts;  ///< size, type, white level
    model::ImageEntry image;
  };
  struct Tab {
    QString title;
    /// What the entries were made from; they are the same where it is.
    std::shared_ptr<const void> source = nullptr;
    std::vector<Entry> entries = {};
    QString sentence = {};   ///< why there are no entries yet or any more
    bool is_coming = false;  ///< they are being worked out
  };
  struct Choice {
    QString tab;
    QString measurement;
    QString name;
    friend bool operator==(const Choice&, const Choice&) = default;
  };

  void clear();
  [[nodiscard]] std::vector<Tab> tabs_now() const;
  void show_tabs(std::vector<Tab> tabs);
  void show_images_of_tab();
  void mark_choice();
  /// Shows the chosen image again when its pixels are others now, or one like it when it is gone.
  void keep_choice(bool is_changed);
  [[nodiscard]] const Entry* find(const Choice& choice) const;
  [[nodiscard]] const Tab* find_tab(const QString& title) const;
  [[nodiscard]] const Tab* shown_tab() const;
  void choose(const Choice& choice);
  void choose_in_tab();
  void choose_in_tree();
  /// Somebody shows an image.
  void follow(const QString& context, const QString& name);
  void want_pictures();

  std::vector<Tab> _tabs;
  std::optional<Choice> _chosen;
  bool _is_own_change = false;                              ///< tabs and tree are changed by the panel, not by a person
  std::shared_ptr<const void> _results_source;              ///< another one after each run
  std::map<std::pair<QString, QString>, QImage> _pictures;  ///< by context and name

  QTabBar* _tab_bar;
  QLabel* _sentence;
  QTreeWidget* _tree;
  controller::EventConnection _image_selected;
  Worker _worker;  ///< last, so that it ends first
};

}  // namespace orvexa::ui::analysis_mode
