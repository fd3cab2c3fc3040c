#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QShortcut>
#include <QTableWidget>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <array>
#include <utility>

#include "orvexa/ui/editors/editor_makers.h"
#include "orvexa/ui/editors/number_box.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui::editors {

namespace {

using model::ParameterType;

// ---- Values of picked geometry --------------------------------------------------------------------------------------

/// The numbers of a point or rectangle, which a file may also hold as a map.
Value numbers_of(const Value& value, std::size_t count) {
  Value numbers = Value::array();
  if (value.is_structured()) {
    for (const Value& number : value) numbers.push_back(number);
  }
  while (numbers.size() < count) numbers.push_back(nullptr);
  return numbers;
}

Value list_of(const Value& value) {
  return value.is_array() ? value : Value::array();
}

Value place_of(const model::PickRect& rect) {
  return Value::array({rect.cx_norm, rect.cy_norm, rect.w_norm, rect.h_norm});
}

/// What was picked, as the points or rectangles of a list.
Value places_of(const controller::PickGeometry& geometry) {
  Value places = Value::array();
  if (const auto* point = std::get_if<model::PickPoint>(&geometry)) {
    places.push_back(Value::array({point->x_norm, point->y_norm}));
  } else if (const auto* points = std::get_if<model::PickPoints>(&geometry)) {
    for (const auto& [x, y] : points->points) places.push_back(Value::array({x, y}));
  } else if (const auto* rect = std::get_if<model::PickRect>(&geometry)) {
    places.push_back(place_of(*rect));
  } else if (const auto* rects = std::get_if<model::PickRects>(&geometry)) {
    for (const model::PickRect& one : rects->rects) places.push_back(place_of(one));
  }
  return places;
}

QStringList names_of_numbers(bool is_rect) {
  if (!is_rect) return {"x", "y"};
  return {ParameterEditor::tr("centre x"), ParameterEditor::tr("centre y"), ParameterEditor::tr("width"),
          ParameterEditor::tr("height")};
}

// ---- Parts ----------------------------------------------------------------------------------------------------------

QToolButton* button(const QString& text, const QString& tip) {
  auto* made = new QToolButton;
  made->setText(text);
  made->setToolTip(tip);
  made->setFocusPolicy(Qt::StrongFocus);
  return made;
}

QToolButton* pick_button(const QString& text, const QString& what) {
  return button(text, ParameterEditor::tr("Draw %1 on the image (Ctrl+P); Enter accepts, Escape cancels").arg(what));
}

/// A key that works while the focus is in the editor.
template <typename Action>
void add_key(const QKeySequence& key, QWidget& editor, Action action) {
  auto* shortcut = new QShortcut(key, &editor);
  shortcut->setContext(Qt::WidgetWithChildrenShortcut);
  QObject::connect(shortcut, &QShortcut::activated, &editor, action);
}

/// Numbers (and names) in rows that can be typed over.
class Table final : public QTableWidget {
 public:
  explicit Table(const QStringList& columns) : QTableWidget(0, static_cast<int>(columns.size())) {
    setHorizontalHeaderLabels(columns);
    horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    horizontalHeader()->setMinimumSectionSize(30);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 6);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setTabKeyNavigation(false);  // so that Tab leaves the table
    setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::SelectedClicked |
                    QAbstractItemView::EditKeyPressed | QAbstractItemView::AnyKeyPressed);
    constexpr int rows_shown = 4;
    setFixedHeight(horizontalHeader()->sizeHint().height() + rows_shown * verticalHeader()->defaultSectionSize() +
                   2 * frameWidth() + 2);
  }

  /// Six decimals are a hundredth of a pixel of the largest pictures; the value keeps all.
  void set_cell(int row, int column, const Value& value) {
    QString text = number_text_of(value);
    if (value.is_number_float()) text = number_text_of(QString::number(value.get<double>(), 'f', 6).toDouble());
    if (item(row, column) == nullptr) setItem(row, column, new QTableWidgetItem);
    item(row, column)->setText(text);
    item(row, column)->setToolTip(number_text_of(value));
  }

  [[nodiscard]] std::size_t current() const { return static_cast<std::size_t>(std::max(currentRow(), 0)); }
};

// ---- One point or rectangle -----------------------------------------------------------------------------------------

class PlaceEditor final : public ParameterEditor {
 public:
  PlaceEditor(const model::ParameterInfo& info, EditorContext& context) : ParameterEditor(info, context) {
    set_large();
    const bool is_rect = info.type == ParameterType::rect;
    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(0, 0, 0, 0);
    const QStringList names = names_of_numbers(is_rect);
    static constexpr std::array<const char*, 4> parts_of_rect{"cx", "cy", "w", "h"};
    static constexpr std::array<const char*, 2> parts_of_point{"x", "y"};
    for (int i = 0; i < names.size(); ++i) {
      auto* box = new NumberBox(info);
      const auto place = static_cast<std::size_t>(i);
      name_control(*box, is_rect ? parts_of_rect.at(place) : parts_of_point.at(place), names[i]);
      auto* label = new QLabel(names[i]);
      label->setBuddy(box);
      grid->addWidget(label, i / 2, 2 * (i % 2), Qt::AlignRight | Qt::AlignVCenter);
      grid->addWidget(box, i / 2, 2 * (i % 2) + 1);
      _boxes.push_back(box);
      connect(box, &NumberBox::edited, this, [this, place, box] {
        Value numbers = numbers_of(value(), _boxes.size());
        numbers.at(place) = box->value();
        take(numbers);
      });
    }
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(3, 1);
    setFocusProxy(_boxes.front());
    if (info.interaction) {
      _pick = pick_button(tr("Draw"), is_rect ? tr("the rectangle") : tr("the point"));
      name_control(*_pick, "pick");
      grid->addWidget(_pick, grid->rowCount(), 1, Qt::AlignLeft);
      connect(_pick, &QToolButton::clicked, this, [this] { pick_place(); });
      add_key(Qt::CTRL | Qt::Key_P, *this, [this] { pick_place(); });
    }
  }

 private:
  void show_value(const Value& value) override {
    const Value numbers = numbers_of(value, _boxes.size());
    for (std::size_t i = 0; i < _boxes.size(); ++i) _boxes[i]->set_value(numbers.at(i));
  }
  void show_context() override {
    if (_pick != nullptr) _pick->setEnabled(context().can_pick());
  }
  void pick_place() {
    if (context().can_pick()) pick(*info().interaction, 0);
  }
  void take_picked(const controller::PickGeometry& geometry) override {
    const Value places = places_of(geometry);
    if (places.empty()) return;
    show_value(places.back());
    take(places.back());
    _pick->setFocus();
  }

  std::vector<NumberBox*> _boxes;
  QToolButton* _pick = nullptr;
};

// ---- Lists: rows of numbers, with buttons to add, remove and clear --------------------------------------------------

class PlacesEditor final : public ParameterEditor {
 public:
  PlacesEditor(const model::ParameterInfo& info, EditorContext& context)
      : ParameterEditor(info, context),
        _is_rects(info.type == ParameterType::rects),
        _table(new Table(names_of_numbers(_is_rects))),
        _pick(pick_button(tr("Draw"), _is_rects ? tr("rectangles") : tr("points"))),
        _add(button(tr("Add"), tr("Add a row to type numbers into (Ins)"))),
        _remove(button(tr("Remove"), tr("Remove the selected row (Del)"))),
        _clear(button(tr("Clear"), tr("Remove all rows (Ctrl+Del)"))) {
    set_large();
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(_table);
    auto* row = new QHBoxLayout;
    column->addLayout(row);
    for (QToolButton* one : {_pick, _add, _remove, _clear}) row->addWidget(one);
    row->addStretch(1);
    name_control(*_table);
    name_control(*_pick, "pick");
    name_control(*_add, "add");
    name_control(*_remove, "remove");
    name_control(*_clear, "clear");
    setFocusProxy(_table);
    _pick->setVisible(info.interaction.has_value());
    connect(_table, &QTableWidget::cellChanged, this, &PlacesEditor::take_cell);
    connect(_pick, &QToolButton::clicked, this, [this] { pick_places(); });
    connect(_add, &QToolButton::clicked, this, [this] { add(); });
    connect(_remove, &QToolButton::clicked, this, [this] { remove(); });
    connect(_clear, &QToolButton::clicked, this, [this] { change(Value::array(), 0); });
    add_key(Qt::CTRL | Qt::Key_P, *this, [this] { pick_places(); });
    add_key(Qt::Key_Insert, *this, [this] { add(); });
    add_key(Qt::Key_Delete, *this, [this] { remove(); });
    add_key(Qt::CTRL | Qt::Key_Delete, *this, [this] { change(Value::array(), 0); });
  }

 private:
  [[nodiscard]] std::size_t width() const { return _is_rects ? 4 : 2; }

  void show_value(const Value& value) override {
    const Value list = list_of(value);
    _table->setRowCount(static_cast<int>(list.size()));
    for (std::size_t row = 0; row < list.size(); ++row) {
      const Value numbers = numbers_of(list.at(row), width());
      for (std::size_t i = 0; i < width(); ++i) {
        _table->set_cell(static_cast<int>(row), static_cast<int>(i), numbers.at(i));
      }
    }
    _remove->setEnabled(!list.empty());
    _clear->setEnabled(!list.empty());
  }
  void show_context() override { _pick->setEnabled(context().can_pick()); }

  /// A person made the list this one.
  void change(const Value& list, std::size_t row) {
    if (list == value()) return;
    _is_changing = true;
    show_value(list);
    _is_changing = false;
    if (!list.empty()) _table->setCurrentCell(static_cast<int>(std::min(row, list.size() - 1)), 0);
    take(list);
  }

  void take_cell(int row, int column) {
    if (_is_changing) return;
    Value list = list_of(value());
    if (std::cmp_greater_equal(row, list.size())) return;
    Value numbers = numbers_of(list.at(static_cast<std::size_t>(row)), width());
    numbers.at(static_cast<std::size_t>(column)) = number_from_text(_table->item(row, column)->text(), false);
    list.at(static_cast<std::size_t>(row)) = numbers;
    take(list);
  }

  void add() {
    Value list = list_of(value());
    list.push_back(_is_rects ? Value::array({0.5, 0.5, 0.1, 0.1}) : Value::array({0.5, 0.5}));
    change(list, list.size() - 1);
    _table->setFocus();
  }

  void remove() {
    Value list = list_of(value());
    const std::size_t row = _table->current();
    if (row >= list.size()) return;
    list.erase(row);
    change(list, row);
  }

  /// What was drawn joins what was drawn before, but not the default, which nobody drew.
  [[nodiscard]] Value drawn_before() const {
    return value() == info().default_value ? Value::array() : list_of(value());
  }

  void pick_places() {
    if (info().interaction && context().can_pick()) pick(*info().interaction, static_cast<int>(drawn_before().size()));
  }

  void take_picked(const controller::PickGeometry& geometry) override {
    Value list = drawn_before();
    const Value places = places_of(geometry);
    for (const Value& place : places) list.push_back(place);
    change(list, list.empty() ? 0 : list.size() - 1);
    _pick->setFocus();
  }

  bool _is_rects;
  bool _is_changing = false;
  Table* _table;
  QToolButton* _pick;
  QToolButton* _add;
  QToolButton* _remove;
  QToolButton* _clear;
};

// ---- Polygons: one of them is chosen and its corners are edited -----------------------------------------------------

class PolygonsEditor final : public ParameterEditor {
 public:
  PolygonsEditor(const model::ParameterInfo& info, EditorContext& context)
      : ParameterEditor(info, context),
        _chosen(new QComboBox),
        _table(new Table(names_of_numbers(false))),
        _pick(pick_button(tr("Draw"), tr("the corners of one more polygon"))),
        _add(button(tr("Add"), tr("Add a corner to type numbers into (Ins)"))),
        _remove(button(tr("Remove"), tr("Remove the selected corner (Del)"))),
        _remove_polygon(button(tr("Remove polygon"), tr("Remove the polygon that is shown (Ctrl+Del)"))) {
    set_large();
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    auto* top = new QHBoxLayout;
    top->addWidget(_chosen, 1);
    top->addWidget(_pick);
    column->addLayout(top);
    column->addWidget(_table);
    auto* row = new QHBoxLayout;
    column->addLayout(row);
    for (QToolButton* one : {_add, _remove, _remove_polygon}) row->addWidget(one);
    row->addStretch(1);
    name_control(*_chosen, "chosen", tr("polygon to edit"));
    name_control(*_table);
    name_control(*_pick, "pick");
    name_control(*_add, "add");
    name_control(*_remove, "remove");
    name_control(*_remove_polygon, "remove_polygon");
    _chosen->setPlaceholderText(tr("no polygon"));
    setFocusProxy(_chosen);
    connect(_chosen, &QComboBox::activated, this, [this] { show_corners(list_of(value())); });
    connect(_table, &QTableWidget::cellChanged, this, &PolygonsEditor::take_cell);
    connect(_pick, &QToolButton::clicked, this, [this] { pick_polygon(); });
    connect(_add, &QToolButton::clicked, this, [this] { add(); });
    connect(_remove, &QToolButton::clicked, this, [this] { remove(); });
    connect(_remove_polygon, &QToolButton::clicked, this, [this] { remove_polygon(); });
    add_key(Qt::CTRL | Qt::Key_P, *this, [this] { pick_polygon(); });
    add_key(Qt::Key_Insert, *this, [this] { add(); });
    add_key(Qt::Key_Delete, *this, [this] { remove(); });
    add_key(Qt::CTRL | Qt::Key_Delete, *this, [this] { remove_polygon(); });
  }

 private:
  static constexpr std::size_t fewest_corners = 3;

  [[nodiscard]] std::size_t chosen() const { return static_cast<std::size_t>(std::max(_chosen->currentIndex(), 0)); }

  void show_value(const Value& value) override {
    const Value polygons = list_of(value);
    const std::size_t before = chosen();
    _chosen->clear();
    for (std::size_t i = 0; i < polygons.size(); ++i) {
      _chosen->addItem(tr("Polygon %1: %2 corners").arg(i + 1).arg(polygons.at(i).size()));
    }
    _chosen->setCurrentIndex(static_cast<int>(std::min(before + 1, polygons.size())) - 1);
    _remove_polygon->setEnabled(!polygons.empty());
    show_corners(polygons);
  }

  void show_corners(const Value& polygons) {
    const Value corners = chosen() < polygons.size() ? list_of(polygons.at(chosen())) : Value::array();
    _is_changing = true;
    _table->setRowCount(static_cast<int>(corners.size()));
    for (std::size_t row = 0; row < corners.size(); ++row) {
      const Value numbers = numbers_of(corners.at(row), 2);
      _table->set_cell(static_cast<int>(row), 0, numbers.at(0));
      _table->set_cell(static_cast<int>(row), 1, numbers.at(1));
    }
    _is_changing = false;
    _remove->setEnabled(corners.size() > fewest_corners);
  }
  void show_context() override { _pick->setEnabled(context().can_pick()); }

  void change(const Value& polygons, std::size_t polygon, std::size_t corner) {
    show_value(polygons);
    _chosen->setCurrentIndex(polygons.empty() ? -1 : static_cast<int>(std::min(polygon, polygons.size() - 1)));
    show_corners(polygons);
    if (_table->rowCount() > 0) {
      _table->setCurrentCell(std::min(static_cast<int>(corner), _table->rowCount() - 1), 0);
    }
    take(polygons);
  }

  void take_cell(int row, int column) {
    if (_is_changing) return;
    Value polygons = list_of(value());
    if (chosen() >= polygons.size()) return;
    Value& corner = polygons.at(chosen()).at(static_cast<std::size_t>(row));
    corner = numbers_of(corner, 2);
    corner.at(static_cast<std::size_t>(column)) = number_from_text(_table->item(row, column)->text(), false);
    take(polygons);
  }

  /// A corner in the middle of the picture; without a polygon the first triangle.
  void add() {
    Value polygons = list_of(value());
    if (polygons.empty()) {
      polygons.push_back(Value::array({Value::array({0.5, 0.4}), Value::array({0.6, 0.6}), Value::array({0.4, 0.6})}));
      change(polygons, 0, 0);
    } else {
      const std::size_t polygon = chosen();
      polygons.at(polygon).push_back(Value::array({0.5, 0.5}));
      change(polygons, polygon, polygons.at(polygon).size() - 1);
    }
    _table->setFocus();
  }

  void remove() {
    Value polygons = list_of(value());
    const std::size_t polygon = chosen();
    if (polygon >= polygons.size()) return;
    if (polygons.at(polygon).size() <= fewest_corners) {
      context().tell(tr("A polygon has at least three corners; remove the polygon instead."));
      return;
    }
    const std::size_t corner = _table->current();
    polygons.at(polygon).erase(corner);
    change(polygons, polygon, corner);
  }

  void remove_polygon() {
    Value polygons = list_of(value());
    const std::size_t polygon = chosen();
    if (polygon >= polygons.size()) return;
    polygons.erase(polygon);
    change(polygons, polygon, 0);
  }

  void pick_polygon() {
    if (info().interaction && context().can_pick()) pick(*info().interaction, 0);
  }

  void take_picked(const controller::PickGeometry& geometry) override {
    const Value corners = places_of(geometry);
    if (corners.size() < fewest_corners) {
      context().tell(tr("A polygon needs at least three corners; draw it again."));
      return;
    }
    Value polygons = list_of(value());
    polygons.push_back(corners);
    change(polygons, polygons.size() - 1, 0);
    _pick->setFocus();
  }

  QComboBox* _chosen;
  Table* _table;
  QToolButton* _pick;
  QToolButton* _add;
  QToolButton* _remove;
  QToolButton* _remove_polygon;
  bool _is_changing = false;
};

// ---- Palettes -------------------------------------------------------------------------------------------------------

class PaletteEditor final : public ParameterEditor {
 public:
  PaletteEditor(const model::ParameterInfo& info, EditorContext& context)
      : ParameterEditor(info, context),
        _table(new Table({tr("name"), "L", "a", "b"})),
        _add(button(tr("Add"), tr("Add a colour (Ins)"))),
        _remove(button(tr("Remove"), tr("Remove the selected colour (Del)"))),
        _clear(button(tr("Clear"), tr("Remove all colours (Ctrl+Del)"))) {
    set_large();
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(_table);
    auto* row = new QHBoxLayout;
    column->addLayout(row);
    for (QToolButton* one : {_add, _remove, _clear}) row->addWidget(one);
    row->addStretch(1);
    name_control(*_table);
    name_control(*_add, "add");
    name_control(*_remove, "remove");
    name_control(*_clear, "clear");
    setFocusProxy(_table);
    connect(_table, &QTableWidget::cellChanged, this, &PaletteEditor::take_cell);
    connect(_add, &QToolButton::clicked, this, [this] { add(); });
    connect(_remove, &QToolButton::clicked, this, [this] { remove(); });
    connect(_clear, &QToolButton::clicked, this, [this] { change(Value::array(), 0); });
    add_key(Qt::Key_Insert, *this, [this] { add(); });
    add_key(Qt::Key_Delete, *this, [this] { remove(); });
    add_key(Qt::CTRL | Qt::Key_Delete, *this, [this] { change(Value::array(), 0); });
  }

 private:
  static Value entry_of(const Value& value) {
    const bool is_entry = value.is_object() && value.contains("name") && value.contains("lab");
    return Value{{"name", is_entry ? value.at("name") : Value("")},
                 {"lab", numbers_of(is_entry ? value.at("lab") : Value(), 3)}};
  }

  void show_value(const Value& value) override {
    const Value list = list_of(value);
    _table->setRowCount(static_cast<int>(list.size()));
    for (std::size_t row = 0; row < list.size(); ++row) {
      const Value entry = entry_of(list.at(row));
      _table->set_cell(static_cast<int>(row), 0, entry.at("name"));
      for (std::size_t i = 0; i < 3; ++i) {
        _table->set_cell(static_cast<int>(row), static_cast<int>(i) + 1, entry.at("lab").at(i));
      }
    }
    _remove->setEnabled(!list.empty());
    _clear->setEnabled(!list.empty());
  }

  void change(const Value& list, std::size_t row) {
    if (list == value()) return;
    _is_changing = true;
    show_value(list);
    _is_changing = false;
    if (!list.empty()) _table->setCurrentCell(static_cast<int>(std::min(row, list.size() - 1)), 0);
    take(list);
  }

  void take_cell(int row, int column) {
    if (_is_changing) return;
    Value list = list_of(value());
    if (std::cmp_greater_equal(row, list.size())) return;
    Value entry = entry_of(list.at(static_cast<std::size_t>(row)));
    const QString text = _table->item(row, column)->text();
    if (column == 0) {
      entry.at("name") = from_qt(text.trimmed());
    } else {
      entry.at("lab").at(static_cast<std::size_t>(column - 1)) = number_from_text(text, false);
    }
    list.at(static_cast<std::size_t>(row)) = entry;
    take(list);
  }

  void add() {
    Value list = list_of(value());
    // Two colours of one name are refused, so each new one has its own.
    const auto has = [&list](const std::string& name) {
      return std::any_of(list.begin(), list.end(),
                         [&name](const Value& entry) { return entry_of(entry).at("name") == name; });
    };
    int number = 1;
    const auto name_now = [&number] { return from_qt(tr("colour %1").arg(number)); };
    while (has(name_now())) ++number;
    list.push_back(Value{{"name", name_now()}, {"lab", Value::array({50.0, 0.0, 0.0})}});
    change(list, list.size() - 1);
    _table->setFocus();
  }

  void remove() {
    Value list = list_of(value());
    const std::size_t row = _table->current();
    if (row >= list.size()) return;
    list.erase(row);
    change(list, row);
  }

  Table* _table;
  QToolButton* _add;
  QToolButton* _remove;
  QToolButton* _clear;
  bool _is_changing = false;
};

}  // namespace

ParameterEditor* make_place_editor(const model::ParameterInfo& info, EditorContext& context) {
  return new PlaceEditor(info, context);
}
ParameterEditor* make_places_editor(const model::ParameterInfo& info, EditorContext& context) {
  return new PlacesEditor(info, context);
}
ParameterEditor* make_polygons_editor(const model::ParameterInfo& info, EditorContext& context) {
  return new PolygonsEditor(info, context);
}
ParameterEditor* make_palette_editor(const model::ParameterInfo& info, EditorContext& context) {
  return new PaletteEditor(info, context);
}

}  // namespace orvexa::ui::editors
