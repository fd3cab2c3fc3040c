#include "orvexa/ui/analysis_mode/measurements_panel.h"

#include <QAction>
#include <QHeaderView>
#include <QPainter>
#include <QPixmap>
#include <QSignalBlocker>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "orvexa/common/logger.h"
#include "orvexa/common/text.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/ui/pictures.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui::analysis_mode {

namespace {

constexpr int picture_px = 40;
constexpr int name_role = Qt::UserRole;
constexpr int measurement_role = Qt::UserRole + 1;

/// Context texts are read by other panels and are not translated.
constexpr const char* raw_title = "Raw Images";
constexpr const char* results_title = "Results";
const QString separator = QStringLiteral(" > ");

QIcon squared(const QImage& picture) {
  QPixmap square(picture_px, picture_px);
  square.fill(Qt::transparent);
  QPainter painter(&square);
  painter.drawImage((square.width() - picture.width()) / 2, (square.height() - picture.height()) / 2, picture);
  painter.end();
  return square;
}

QString facts_text(const model::Image& image) {
  const model::Shape shape = image.shape();
  const QString size = MeasurementsPanel::tr("%1 × %2").arg(shape.width).arg(shape.height);
  const QString type = to_qt(model::pixel_type_text(image.type()));
  return image.is_color() ? MeasurementsPanel::tr("%1, %2 colour").arg(size, type)
                          : MeasurementsPanel::tr("%1, %2").arg(size, type);
}

QString white_text(const model::WhiteLevel& white) {
  const QString counts = to_qt(white.counts == static_cast<double>(static_cast<std::int64_t>(white.counts))
                                   ? common::grouped_integer_text(static_cast<std::int64_t>(white.counts))
                                   : common::number_text(white.counts));
  return white.is_declared ? MeasurementsPanel::tr("white %1").arg(counts)
                           : MeasurementsPanel::tr("white %1 (of the type)").arg(counts);
}

}  // namespace

MeasurementsPanel::MeasurementsPanel(Workbench& workbench, QWidget* parent)
    : PanelWidget(workbench, parent),
      _tab_bar(new QTabBar),
      _sentence(new QLabel),
      _tree(new QTreeWidget),
      _worker(workbench.mailbox(), "measurements") {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(6, 6, 6, 6);
  column->addWidget(_tab_bar);
  column->addWidget(_sentence);
  column->addWidget(_tree, 1);

  _tab_bar->setObjectName("measurement_tabs");
  _tab_bar->setAccessibleName(tr("Stages of the images"));
  _tab_bar->setToolTip(tr("The images as they are, after each mask step, and as results (Ctrl+PgUp, Ctrl+PgDown)"));
  _tab_bar->setExpanding(false);
  _tab_bar->setUsesScrollButtons(true);
  _tab_bar->setElideMode(Qt::ElideNone);
  _tab_bar->setDrawBase(true);
  connect(_tab_bar, &QTabBar::currentChanged, this, [this] {
    if (!_is_own_change) choose_in_tab();
  });
  for (const auto& [keys, step] : {std::pair("Ctrl+PgDown", 1), std::pair("Ctrl+PgUp", -1)}) {
    auto* action = new QAction(this);
    action->setShortcut(QKeySequence(keys));
    connect(action, &QAction::triggered, this, [this, by = step] {
      const int count = _tab_bar->count();
      if (count > 0) _tab_bar->setCurrentIndex((_tab_bar->currentIndex() + by + count) % count);
    });
    addAction(action);
  }

  _sentence->setObjectName("measurement_sentence");
  _sentence->setWordWrap(true);
  _sentence->setMargin(6);

  _tree->setObjectName("measurement_images");
  _tree->setAccessibleName(tr("Images by measurement"));
  _tree->setToolTip(tr("The arrow keys and clicks show an image"));
  _tree->setHeaderHidden(true);
  _tree->setRootIsDecorated(false);
  _tree->setItemsExpandable(false);
  _tree->setIndentation(8);
  _tree->setIconSize({picture_px, picture_px});
  _tree->setTextElideMode(Qt::ElideRight);
  connect(_tree, &QTreeWidget::currentItemChanged, this, [this] {
    if (!_is_own_change) choose_in_tree();
  });
  connect(_tree, &QTreeWidget::itemActivated, this, &MeasurementsPanel::choose_in_tree);
  connect(_tree, &QTreeWidget::itemClicked, this, &MeasurementsPanel::choose_in_tree);

  connect(&workbench, &Workbench::capture_changed, this, &MeasurementsPanel::clear);
  connect(&workbench, &Workbench::results_ended, this, [this] { _results_source = std::make_shared<int>(); });
  // Told while a worker runs it waits for the refresh at the end.
  connect(&workbench.step_results(), &StepResults::changed, this, [this] {
    if (!this->workbench().is_busy()) refresh();
  });
  _image_selected = controller().events.image_selected.connect(
      [this](const std::string& context, const std::string& name, const model::ImageEntry&) {
        follow(to_qt(context), to_qt(name));
      });
  clear();
}

void MeasurementsPanel::clear() {
  _worker.drop();
  _chosen.reset();
  _pictures.clear();
  show_tabs({});
}

// ---- What there is --------------------------------------------------------------------------------------------------

std::vector<MeasurementsPanel::Tab> MeasurementsPanel::tabs_now() const {
  const controller::AppState& state = controller().state;
  std::vector<Tab> tabs;
  const auto& capture = state.current_capture;
  if (!capture) return tabs;
  const auto entries_of = [&](const model::CaptureSet& shown) {
    std::vector<Entry> entries;
    for (const auto& [type, measurement] : shown.measurements) {
      for (const auto& [name, entry] : measurement->images) {
        if (!entry.is_array()) continue;
        entries.push_back({.measurement = to_qt(type),
                           .name = to_qt(name),
                           .facts = facts_text(entry.base()) + ", " + white_text(capture->white_level(type, name)),
                           .image = entry});
      }
    }
    return entries;
  };
  tabs.push_back({.title = raw_title, .source = capture, .entries = entries_of(*capture)});

  const std::vector<StepResult>& steps = workbench().step_results().steps();
  const auto operations = controller().get_available_mask_operations();
  const std::size_t count = state.current_workflow ? state.current_workflow->mask_operations.size() : 0;
  bool has_failed = false;
  for (std::size_t i = 0; i < count; ++i) {
    const std::string& key = state.current_workflow->mask_operations[i].op;
    const auto operation = operations.find(key);
    const std::string& name = operation != operations.end() ? operation->second->display_name : key;
    Tab tab{.title = QString("Mask %1: %2").arg(i + 1).arg(to_qt(name))};
    const StepResult step = i < steps.size() ? steps[i] : StepResult{};
    if (step.capture) {
      tab.source = step.capture;
      tab.entries = entries_of(*step.capture);
    } else if (!step.failure.isEmpty()) {
      tab.sentence = tr("%1 Change the step or remove it.").arg(step.failure);
      has_failed = true;
    } else {
      tab.is_coming = !has_failed;
      tab.sentence = has_failed ? tr("A step before this one fails, so there is nothing to see here.")
                                : tr("This step is being worked out…");
    }
    tabs.push_back(std::move(tab));
  }

  if (state.last_results) {
    Tab tab{.title = results_title, .source = _results_source};
    const auto results = controller().get_available_result_operations();
    for (const auto& [key, result] : *state.last_results) {
      const auto operation = results.find(key);
      const QString name = to_qt(operation != results.end() ? operation->second->display_name : key);
      for (const auto& [image_name, image] : result.images) {
        const model::Image& shown = image.numbers ? *image.numbers : image.picture;
        tab.entries.push_back(
            {.measurement = name, .name = to_qt(image_name), .facts = facts_text(shown), .image = shown});
      }
    }
    if (!tab.entries.empty()) tabs.push_back(std::move(tab));
  }
  return tabs;
}

const MeasurementsPanel::Tab* MeasurementsPanel::find_tab(const QString& title) const {
  const auto tab = std::find_if(_tabs.begin(), _tabs.end(), [&](const Tab& other) { return other.title == title; });
  return tab != _tabs.end() ? &*tab : nullptr;
}

const MeasurementsPanel::Tab* MeasurementsPanel::shown_tab() const {
  const int shown = _tab_bar->currentIndex();
  return shown >= 0 && std::cmp_less(shown, _tabs.size()) ? &_tabs[static_cast<std::size_t>(shown)] : nullptr;
}

const MeasurementsPanel::Entry* MeasurementsPanel::find(const Choice& choice) const {
  const Tab* tab = find_tab(choice.tab);
  if (tab == nullptr) return nullptr;
  const auto entry = std::find_if(tab->entries.begin(), tab->entries.end(), [&](const Entry& other) {
    return other.measurement == choice.measurement && other.name == choice.name;
  });
  return entry != tab->entries.end() ? &*entry : nullptr;
}

// ---- Showing --------------------------------------------------------------------------------------------------------

void MeasurementsPanel::refresh() {
  std::vector<Tab> tabs = tabs_now();
  const auto is_same = [](const Tab& a, const Tab& b) {
    return a.title == b.title && a.source == b.source && a.sentence == b.sentence;
  };
  if (std::equal(tabs.begin(), tabs.end(), _tabs.begin(), _tabs.end(), is_same)) return;
  const Tab* before = _chosen ? find_tab(_chosen->tab) : nullptr;
  const std::shared_ptr<const void> source_before = before != nullptr ? before->source : nullptr;
  for (const Tab& tab : tabs) {
    const Tab* other = find_tab(tab.title);
    if (other != nullptr && other->source == tab.source) continue;
    std::erase_if(_pictures,
                  [&](const auto& picture) { return picture.first.first.startsWith(tab.title + separator); });
  }
  show_tabs(std::move(tabs));
  const Tab* after = _chosen ? find_tab(_chosen->tab) : nullptr;
  keep_choice(after == nullptr || after->source != source_before || after->entries.empty());
}

void MeasurementsPanel::show_tabs(std::vector<Tab> tabs) {
  const bool was_own_change = std::exchange(_is_own_change, true);
  const Tab* shown = shown_tab();
  const QString title = shown != nullptr ? shown->title : QString();
  _tabs = std::move(tabs);
  while (_tab_bar->count() > static_cast<int>(_tabs.size())) _tab_bar->removeTab(_tab_bar->count() - 1);
  for (int i = 0; std::cmp_less(i, _tabs.size()); ++i) {
    const Tab& tab = _tabs[static_cast<std::size_t>(i)];
    const QString text = QString(tab.title).replace('&', "&&");
    if (i == _tab_bar->count()) _tab_bar->addTab(text);
    if (_tab_bar->tabText(i) != text) _tab_bar->setTabText(i, text);
    if (tab.title == title) _tab_bar->setCurrentIndex(i);
  }
  _tab_bar->setVisible(!_tabs.empty());
  show_images_of_tab();
  _is_own_change = was_own_change;
}

void MeasurementsPanel::show_images_of_tab() {
  const bool was_own_change = std::exchange(_is_own_change, true);
  const Tab* tab = shown_tab();
  _tree->clear();
  QString sentence;
  if (tab == nullptr) {
    sentence = tr("No capture is open. Choose one in the list of files.");
  } else {
    sentence = tab->sentence;
    QTreeWidgetItem* group = nullptr;
    for (const Entry& entry : tab->entries) {
      if (group == nullptr || group->text(0) != entry.measurement) {
        group = new QTreeWidgetItem(_tree, {entry.measurement});
        group->setFlags(Qt::ItemIsEnabled);
        group->setExpanded(true);
      }
      auto* item = new QTreeWidgetItem(group, {entry.name + '\n' + entry.facts});
      item->setData(0, name_role, entry.name);
      item->setData(0, measurement_role, entry.measurement);
      item->setToolTip(0, tab->title + separator + entry.measurement + ": " + entry.name + '\n' + entry.facts);
      const auto picture = _pictures.find({tab->title + separator + entry.measurement, entry.name});
      item->setIcon(0, squared(picture != _pictures.end() ? picture->second : QImage()));
    }
  }
  _sentence->setText(sentence);
  _sentence->setVisible(!sentence.isEmpty());
  _tree->setVisible(tab != nullptr && !tab->entries.empty());
  mark_choice();
  want_pictures();
  _is_own_change = was_own_change;
}

void MeasurementsPanel::mark_choice() {
  const bool was_own_change = std::exchange(_is_own_change, true);
  const Tab* tab = shown_tab();
  for (QTreeWidgetItemIterator item(_tree); *item != nullptr; ++item) {
    const bool is_chosen = tab != nullptr && _chosen && tab->title == _chosen->tab &&
                           (*item)->data(0, name_role) == _chosen->name &&
                           (*item)->data(0, measurement_role) == _chosen->measurement;
    QFont font = _tree->font();
    font.setBold(is_chosen || (*item)->parent() == nullptr);
    (*item)->setFont(0, font);
    if (is_chosen) _tree->setCurrentItem(*item);
  }
  _is_own_change = was_own_change;
}

void MeasurementsPanel::want_pictures() {
  struct Wish {
    QString context;
    QString name;
    model::ImageEntry image;
  };
  std::vector<Wish> wishes;
  if (const Tab* tab = shown_tab()) {
    for (const Entry& entry : tab->entries) {
      const QString context = tab->title + separator + entry.measurement;
      if (!_pictures.contains({context, entry.name})) wishes.push_back({context, entry.name, entry.image});
    }
  }
  if (wishes.empty()) {
    _worker.drop();
    return;
  }
  _worker.start([this, wishes = std::move(wishes)](const Worker::Job& job) {
    for (const Wish& wish : wishes) {
      if (job.cancel_event().is_set()) return;
      QImage picture;
      try {
        picture = image_thumbnail(wish.image.pixels(), picture_px);
      } catch (...) {
        common::logger.error("No small picture of an image: " + model::failure_text());
        continue;
      }
      job.deliver([this, context = wish.context, name = wish.name, picture] {
        _pictures[{context, name}] = picture;
        const Tab* tab = shown_tab();
        for (QTreeWidgetItemIterator item(_tree); tab != nullptr && *item != nullptr; ++item) {
          if ((*item)->data(0, name_role) == name &&
              tab->title + separator + (*item)->data(0, measurement_role).toString() == context) {
            (*item)->setIcon(0, squared(picture));
          }
        }
      });
    }
  });
}

// ---- Choosing -------------------------------------------------------------------------------------------------------

void MeasurementsPanel::choose(const Choice& choice) {
  const Entry* entry = workbench().is_busy() ? nullptr : find(choice);
  if (entry == nullptr) return;
  const Entry shown = *entry;  // whoever is told may have the tabs made anew
  const std::string context = from_qt(choice.tab + separator + choice.measurement);
  controller::AppState& state = controller().state;
  state.selected_image_context = context;
  state.selected_image_name = from_qt(choice.name);
  controller().show_image_in_viewer_without_refresh(shown.image, context, from_qt(choice.measurement),
                                                    from_qt(choice.name));
}

void MeasurementsPanel::follow(const QString& context, const QString& name) {
  const qsizetype cut = context.indexOf(separator);
  if (cut < 0) return;
  _chosen = Choice{.tab = context.left(cut), .measurement = context.mid(cut + separator.size()), .name = name};
  const bool was_own_change = std::exchange(_is_own_change, true);
  const Tab* tab = find_tab(_chosen->tab);
  if (tab != nullptr && tab != shown_tab()) {
    _tab_bar->setCurrentIndex(static_cast<int>(tab - _tabs.data()));
    show_images_of_tab();
  } else {
    mark_choice();
  }
  _is_own_change = was_own_change;
}

void MeasurementsPanel::choose_in_tab() {
  show_images_of_tab();
  const Tab* tab = shown_tab();
  if (tab == nullptr || tab->entries.empty()) return;
  // The same image as before in its other stage, where there is one.
  Choice choice{.tab = tab->title, .measurement = tab->entries.front().measurement, .name = tab->entries.front().name};
  if (_chosen && find({tab->title, _chosen->measurement, _chosen->name}) != nullptr) {
    choice = {tab->title, _chosen->measurement, _chosen->name};
  }
  choose(choice);
  controller().refresh_only_status();
}

void MeasurementsPanel::choose_in_tree() {
  const QTreeWidgetItem* item = _tree->currentItem();
  const Tab* tab = shown_tab();
  if (item == nullptr || item->parent() == nullptr || tab == nullptr) return;
  const Choice choice{tab->title, item->data(0, measurement_role).toString(), item->data(0, name_role).toString()};
  if (choice == _chosen) return;  // a click has moved the selection here already
  choose(choice);
  controller().refresh_only_status();
}

void MeasurementsPanel::auto_select_default_image() {
  refresh();
  const Tab* raw = find_tab(raw_title);
  if (raw == nullptr || raw->entries.empty()) return;
  const auto colour = std::find_if(raw->entries.begin(), raw->entries.end(),
                                   [](const Entry& entry) { return entry.image.base().is_color(); });
  const Entry& chosen = colour != raw->entries.end() ? *colour : raw->entries.front();
  choose({raw->title, chosen.measurement, chosen.name});
}

void MeasurementsPanel::keep_choice(bool is_changed) {
  if (!_chosen || !is_changed) return;
  const Tab* tab = find_tab(_chosen->tab);
  Choice choice = *_chosen;
  if (find(choice) == nullptr) {
    if (tab != nullptr && tab->is_coming) return;
    choice.tab = raw_title;
    if (find(choice) == nullptr) return;
  }
  // Nobody asked for it, so what the status line says stays.
  const std::optional<std::string> message = controller().state.message;
  choose(choice);
  controller().state.message = message;
}

}  // namespace orvexa::ui::analysis_mode
