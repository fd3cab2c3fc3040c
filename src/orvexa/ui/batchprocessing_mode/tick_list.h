#pragma once

#include <QAbstractListModel>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QSortFilterProxyModel>
#include <QToolButton>
#include <QWidget>
#include <filesystem>
#include <vector>

namespace orvexa::ui::batchprocessing_mode {

/// Files, each ticked or not.
class TickModel final : public QAbstractListModel {
  Q_OBJECT

 public:
  using Path = std::filesystem::path;
  using QAbstractListModel::QAbstractListModel;

  /// All of them ticked.
  void set_files(std::vector<Path> files);
  [[nodiscard]] const std::vector<Path>& files() const { return _files; }
  /// In the order of the files.
  [[nodiscard]] std::vector<Path> ticked() const;
  /// Ticks these and no others, without telling that a person did.
  void set_ticked(const std::vector<Path>& files);
  void set_ticks(const std::vector<int>& rows, bool is_ticked);
  /// While frozen, files can be looked at and not ticked.
  void set_frozen(bool is_frozen);

  [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
  [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
  bool setData(const QModelIndex& index, const QVariant& value, int role) override;
  [[nodiscard]] Qt::ItemFlags flags(const QModelIndex& index) const override;

 Q_SIGNALS:
  void ticks_changed();

 private:
  std::vector<Path> _files;
  std::vector<bool> _ticks;
  bool _is_frozen = false;
};

/// The list of a batch's files with a filter and buttons that tick all or none of the files shown.
class TickList final : public QWidget {
  Q_OBJECT

 public:
  explicit TickList(QWidget* parent = nullptr);
  [[nodiscard]] TickModel& model() const { return *_model; }
  /// Another list of files, all ticked; the filter goes.
  void set_files(const std::vector<std::filesystem::path>& files);
  void set_frozen(bool is_frozen);
  /// After the ticks were set from outside.
  void show_count();

 Q_SIGNALS:
  /// A person ticked or unticked something.
  void ticks_changed();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void tick_shown(bool is_ticked);

  TickModel* _model;
  QSortFilterProxyModel* _shown;
  QLineEdit* _filter;
  QToolButton* _all;
  QToolButton* _none;
  QListView* _list;
  QLabel* _count;
};

}  // namespace orvexa::ui::batchprocessing_mode
