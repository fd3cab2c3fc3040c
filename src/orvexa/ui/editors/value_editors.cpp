#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPlainTextEdit>
#include <QShortcut>
#include <QSignalBlocker>
#include <QSlider>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

#include "orvexa/model/measures/bands.h"
#include "orvexa/ui/editors/editor_makers.h"
#include "orvexa/ui/editors/number_box.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui::editors {

namespace {

QString text_of(const Value& value) {
  return value.is_string() ? to_qt(value.get_ref<const std::string&>()) : number_text_of(value);
}

QHBoxLayout* row_of(QWidget* widget) {
  auto* row = new QHBoxLayout(widget);
  row->setContentsMargins(0, 0, 0, 0);
  return row;
}

// ---- Numbers --------------------------------------------------------------------------------------------------------

class NumberEditor final : public ParameterEditor {
 public:
  NumberEditor(const model::ParameterInfo& info, EditorContext& context)
      : ParameterEditor(info, context), _box(new NumberBox(info)) {
    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setVerticalSpacing(2);
    grid->setColumnStretch(0, 1);
    grid->addWidget(_box, 0, 0);
    name_control(*_box);
    setFocusProxy(_box);
    // A slider shows where in its range a number is; in a very long range it could not be set to what is meant.
    if (info.min && info.max && *info.max - *info.min <= 1000) {
      _slider = new QSlider(Qt::Horizontal);
      const double step = std::pow(10.0, step_exponent(info));
      _slider->setRange(0, static_cast<int>(std::llround((*info.max - *info.min) / step)));
      _slider->setPageStep(std::max(1, _slider->maximum() / 10));
      name_control(*_slider, "slider", tr("slider"));
      grid->addWidget(_slider, 1, 0, 1, 2);
      connect(_slider, &QSlider::valueChanged, this, [this](int position) { take_position(position); });
    }
    if (!info.unit.empty()) {
      auto* unit = new QLabel(to_qt(info.unit));
      grid->addWidget(unit, 0, 1);
    }
    connect(_box, &NumberBox::edited, this, [this] {
      show_position(_box->value());
      take(_box->value());
    });
  }

 private:
  void show_value(const Value& value) override {
    _box->set_value(value);
    show_position(value);
  }

  void show_position(const Value& value) {
    if (_slider == nullptr || !value.is_number()) return;
    const QSignalBlocker blocker(_slider);
    const double step = std::pow(10.0, step_exponent(info()));
    const double number = std::clamp(value.get<double>(), *info().min, *info().max);
    _slider->setValue(static_cast<int>(std::lround((number - *info().min) / step)));
  }

  void take_position(int position) {
    const int exponent = step_exponent(info());
    const double units = std::pow(10.0, std::abs(exponent));
    double number = *info().min + (exponent < 0 ? position / units : position * units);
    if (exponent < 0) number = std::round(number * units) / units;
    number = std::clamp(number, *info().min, *info().max);
    const bool is_whole = info().type == model::ParameterType::integer;
    const Value value = is_whole ? Value(static_cast<std::int64_t>(std::llround(number))) : Value(number);
    _box->set_value(value);
    take(value);
  }

  NumberBox* _box;
  QSlider* _slider = nullptr;
};

// ---- Yes or no, texts -----------------------------------------------------------------------------------------------

class BooleanEditor final : public ParameterEditor {
 public:
  BooleanEditor(const model::ParameterInfo& info, EditorContext& context)
      : ParameterEditor(info, context), _box(new QCheckBox(tr("yes"))) {
    row_of(this)->addWidget(_box, 1);
    name_control(*_box);
    setFocusProxy(_box);
    if (info.default_value.is_null()) _box->setTristate();
    connect(_box, &QCheckBox::stateChanged, this,
            [this](int check) { take(check == Qt::PartiallyChecked ? Value(nullptr) : Value(check == Qt::Checked)); });
  }

 private:
  void show_value(const Value& value) override {
    _box->setCheckState(!value.is_boolean() && _box->isTristate() ? Qt::PartiallyChecked
                        : value.is_boolean() && value.get<bool>() ? Qt::Checked
                                                                  : Qt::Unchecked);
  }

  QCheckBox* _box;
};

class TextEditor final : public ParameterEditor {
 public:
  TextEditor(const model::ParameterInfo& info, EditorContext& context)
      : ParameterEditor(info, context), _line(new QLineEdit) {
    row_of(this)->addWidget(_line, 1);
    name_control(*_line);
    setFocusProxy(_line);
    if (info.default_value.is_null()) _line->setPlaceholderText(tr("no value"));
    connect(_line, &QLineEdit::textEdited, this, [this](const QString& text) {
      take(text.isEmpty() && this->info().default_value.is_null() ? Value(nullptr) : Value(from_qt(text)));
    });
  }

 private:
  void show_value(const Value& value) override {
    if (_line->text() != text_of(value)) _line->setText(text_of(value));
  }

  QLineEdit* _line;
};

// ---- Choices --------------------------------------------------------------------------------------------------------

/// A combo box that the wheel changes only when it was chosen: the wheel scrolls the form.
class CalmComboBox final : public QComboBox {
 public:
  CalmComboBox() {
    setFocusPolicy(Qt::StrongFocus);
    setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    setMinimumContentsLength(8);
  }

 protected:
  void wheelEvent(QWheelEvent* event) override {
    if (hasFocus()) {
      QComboBox::wheelEvent(event);
    } else {
      event->ignore();
    }
  }
};

class ChoiceEditor final : public ParameterEditor {
 public:
  ChoiceEditor(const model::ParameterInfo& info, EditorContext& context)
      : ParameterEditor(info, context), _box(new CalmComboBox) {
    row_of(this)->addWidget(_box, 1);
    name_control(*_box);
    setFocusProxy(_box);
    if (info.default_value.is_null()) _box->addItem(tr("(no value)"));
    for (const std::string& choice : info.choices) _box->addItem(to_qt(choice), to_qt(choice));
    connect(_box, &QComboBox::currentIndexChanged, this, [this](int index) {
      if (index < 0) return;
      const QVariant choice = _box->itemData(index);
      take(choice.isNull() ? Value(nullptr) : Value(from_qt(choice.toString())));
    });
  }

 private:
  void show_value(const Value& value) override {
    // Nothing is chosen for a value that is none of the choices.
    _box->setCurrentIndex(value.is_null() ? _box->findText(tr("(no value)")) : _box->findData(text_of(value)));
  }

  QComboBox* _box;
};

class ChoicesEditor final : public ParameterEditor {
 public:
  ChoicesEditor(const model::ParameterInfo& info, EditorContext& context)
      : ParameterEditor(info, context), _list(new QListWidget) {
    row_of(this)->addWidget(_list, 1);
    name_control(*_list);
    setFocusProxy(_list);
    for (const std::string& choice : info.choices) {
      auto* item = new QListWidgetItem(to_qt(choice), _list);
      item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
      item->setCheckState(Qt::Unchecked);
    }
    constexpr int rows_shown = 6;
    const int rows = std::min(rows_shown, std::max(1, _list->count()));
    _list->setFixedHeight(rows * std::max(_list->sizeHintForRow(0), 16) + 2 * _list->frameWidth() + 2);
    connect(_list, &QListWidget::itemChanged, this, [this] { take(checked()); });
  }

 private:
  void show_value(const Value& value) override {
    for (int row = 0; row < _list->count(); ++row) {
      const Value choice(from_qt(_list->item(row)->text()));
      const bool is_in = value.is_array() ? std::find(value.begin(), value.end(), choice) != value.end()
                                          : value.is_string() && value == choice;
      _list->item(row)->setCheckState(is_in ? Qt::Checked : Qt::Unchecked);
    }
    if (_list->currentRow() < 0) _list->setCurrentRow(0);
  }

  [[nodiscard]] Value checked() const {
    Value chosen = Value::array();
    for (int row = 0; row < _list->count(); ++row) {
      if (_list->item(row)->checkState() == Qt::Checked) chosen.push_back(from_qt(_list->item(row)->text()));
    }
    return chosen;
  }

  QListWidget* _list;
};

// ---- Bands ----------------------------------------------------------------------------------------------------------

/// Whether the parameter names whole images in colour rather than single planes.
bool is_of_colour_images(const model::ParameterInfo& info) {
  return info.name == "image";
}

/// Fills a box with names that the capture has, leaving what stands in its line.
void fill(QComboBox& box, const std::vector<std::string>& names) {
  const QSignalBlocker blocker(box);
  const QString text = box.currentText();
  box.clear();
  for (const std::string& name : names) box.addItem(to_qt(name));
  box.setCurrentIndex(-1);
  box.setEditText(text);
}

QComboBox* band_box() {
  auto* box = new CalmComboBox;
  box->setEditable(true);
  box->setInsertPolicy(QComboBox::NoInsert);
  return box;
}

class BandEditor final : public ParameterEditor {
 public:
  BandEditor(const model::ParameterInfo& info, EditorContext& context)
      : ParameterEditor(info, context), _box(band_box()) {
    row_of(this)->addWidget(_box, 1);
    name_control(*_box);
    setFocusProxy(_box);
    _box->lineEdit()->setPlaceholderText(info.default_value.is_null() ? tr("no value") : tr("the capture's default"));
    _box->lineEdit()->setClearButtonEnabled(true);
    connect(_box, &QComboBox::currentTextChanged, this, [this](const QString& text) {
      const QString name = text.trimmed();
      take(name.isEmpty() && this->info().default_value.is_null() ? Value(nullptr) : Value(from_qt(name)));
    });
  }

 private:
  void show_value(const Value& value) override {
    if (_box->currentText() != text_of(value)) _box->setEditText(text_of(value));
  }
  void show_context() override {
    fill(*_box, is_of_colour_images(info()) ? context().colour_image_names() : context().band_names());
  }

  QComboBox* _box;
};

class BandsEditor final : public ParameterEditor {
 public:
  BandsEditor(const model::ParameterInfo& info, EditorContext& context)
      : ParameterEditor(info, context),
        _list(new QListWidget),
        _band(band_box()),
        _add(new QToolButton),
        _remove(new QToolButton) {
    set_large();
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(_list);
    auto* row = new QHBoxLayout;
    column->addLayout(row);
    // The text of the description says which of the two kinds of lists this is.
    if (info.help.starts_with("Bands for roles")) {
      _role = new CalmComboBox;
      _role->setMinimumContentsLength(4);
      for (const std::string& role : model::role_names()) _role->addItem(to_qt(role));
      name_control(*_role, "role", tr("role"));
      row->addWidget(_role);
      row->addWidget(new QLabel("="));
    }
    row->addWidget(_band, 1);
    row->addWidget(_add);
    row->addWidget(_remove);
    name_control(*_list);
    name_control(*_band, "band", tr("band to add"));
    name_control(*_add, "add");
    name_control(*_remove, "remove");
    setFocusProxy(_band);
    _list->setFixedHeight(3 * fontMetrics().height() + 10);
    _band->lineEdit()->setPlaceholderText(tr("band to add"));
    _add->setText(tr("Add"));
    _add->setToolTip(tr("Add the band to the list (Return)"));
    _remove->setText(tr("Remove"));
    _remove->setToolTip(tr("Take the selected band out of the list (Del)"));
    connect(_add, &QToolButton::clicked, this, [this] { add(); });
    connect(_band->lineEdit(), &QLineEdit::returnPressed, this, [this] { add(); });
    connect(_remove, &QToolButton::clicked, this, [this] { remove(); });
    auto* delete_key = new QShortcut(QKeySequence(Qt::Key_Delete), _list);
    delete_key->setContext(Qt::WidgetShortcut);
    connect(delete_key, &QShortcut::activated, this, [this] { remove(); });
  }

 private:
  void show_value(const Value& value) override {
    _list->clear();
    if (value.is_string()) _list->addItem(text_of(value));
    if (!value.is_array()) return;
    for (const Value& entry : value) _list->addItem(text_of(entry));
  }
  void show_context() override { fill(*_band, context().band_names()); }

  void add() {
    const QString band = _band->currentText().trimmed();
    if (band.isEmpty()) return;
    _list->addItem(_role == nullptr ? band : _role->currentText() + '=' + band);
    _list->setCurrentRow(_list->count() - 1);
    _band->clearEditText();
    take(listed());
  }

  void remove() {
    delete _list->takeItem(_list->currentRow());
    take(listed());
  }

  [[nodiscard]] Value listed() const {
    Value names = Value::array();
    for (int row = 0; row < _list->count(); ++row) names.push_back(from_qt(_list->item(row)->text()));
    return names;
  }

  QListWidget* _list;
  QComboBox* _role = nullptr;
  QComboBox* _band;
  QToolButton* _add;
  QToolButton* _remove;
};

// ---- Expressions and files ------------------------------------------------------------------------------------------

class ExpressionEditor final : public ParameterEditor {
 public:
  ExpressionEditor(const model::ParameterInfo& info, EditorContext& context)
      : ParameterEditor(info, context), _text(new QPlainTextEdit), _insert(new QToolButton), _names(new QMenu(this)) {
    set_large();
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(_text);
    column->addWidget(_insert, 0, Qt::AlignLeft);
    name_control(*_text);
    name_control(*_insert, "insert");
    setFocusProxy(_text);
    _text->setTabChangesFocus(true);
    _text->setFixedHeight(3 * fontMetrics().height() + 12);
    _text->setPlaceholderText(info.default_value.is_null() ? tr("no value; for example (N - RE) / (N + RE)")
                                                           : tr("for example ratio = N / R"));
    _insert->setText(tr("Insert a band"));
    _insert->setToolTip(tr("Insert the name of a band or role into the expression (Ctrl+B)"));
    _insert->setPopupMode(QToolButton::InstantPopup);
    _insert->setMenu(_names);
    auto* key = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_B), this);
    key->setContext(Qt::WidgetWithChildrenShortcut);
    connect(key, &QShortcut::activated, _insert, &QToolButton::showMenu);
    connect(_text, &QPlainTextEdit::textChanged, this, [this] {
      const QString text = _text->toPlainText();
      take(text.trimmed().isEmpty() && this->info().default_value.is_null() ? Value(nullptr) : Value(from_qt(text)));
    });
  }

 private:
  void show_value(const Value& value) override {
    if (_text->toPlainText() != text_of(value)) _text->setPlainText(text_of(value));
  }

  void show_context() override {
    _names->clear();
    for (const std::string& role : model::role_names()) add_name(to_qt(role));
    _names->addSeparator();
    for (const std::string& band : context().band_names()) add_name(to_qt(band));
  }

  void add_name(const QString& name) {
    connect(_names->addAction(name), &QAction::triggered, this, [this, name] {
      _text->insertPlainText(name);
      _text->setFocus();
    });
  }

  QPlainTextEdit* _text;
  QToolButton* _insert;
  QMenu* _names;
};

class FileEditor final : public ParameterEditor {
 public:
  FileEditor(const model::ParameterInfo& info, EditorContext& context)
      : ParameterEditor(info, context), _line(new QLineEdit), _browse(new QToolButton) {
    auto* row = row_of(this);
    row->addWidget(_line, 1);
    row->addWidget(_browse);
    name_control(*_line);
    name_control(*_browse, "browse");
    setFocusProxy(_line);
    _line->setPlaceholderText(tr("no file yet"));
    _browse->setText(tr("Choose..."));
    _browse->setToolTip(tr("Choose the file (Ctrl+B)"));
    auto* key = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_B), this);
    key->setContext(Qt::WidgetWithChildrenShortcut);
    connect(key, &QShortcut::activated, this, [this] { browse(); });
    connect(_browse, &QToolButton::clicked, this, [this] { browse(); });
    connect(_line, &QLineEdit::textEdited, this, [this](const QString& text) { take_path(text); });
  }

 private:
  void show_value(const Value& value) override {
    if (_line->text() != text_of(value)) _line->setText(text_of(value));
    _line->setToolTip(text_of(value));
  }

  void take_path(const QString& path) {
    _line->setToolTip(path);
    take(path.isEmpty() && info().default_value.is_null() ? Value(nullptr) : Value(from_qt(path)));
  }

  void browse() {
    const std::filesystem::path folder = context().workflow_folder();
    const QString chosen =
        QFileDialog::getOpenFileName(this, parameter_label(info().name), qt_path(folder / path_from_qt(_line->text())));
    if (chosen.isEmpty()) return;
    // What lies beside the workflow moves with it.
    const std::filesystem::path relative = path_from_qt(chosen).lexically_relative(folder);
    const bool is_beside = !folder.empty() && !relative.empty() && *relative.begin() != "..";
    _line->setText(is_beside ? qt_path(relative) : chosen);
    take_path(_line->text());
  }

  QLineEdit* _line;
  QToolButton* _browse;
};

}  // namespace

ParameterEditor* make_number_editor(const model::ParameterInfo& info, EditorContext& context) {
  return new NumberEditor(info, context);
}
ParameterEditor* make_boolean_editor(const model::ParameterInfo& info, EditorContext& context) {
  return new BooleanEditor(info, context);
}
ParameterEditor* make_text_editor(const model::ParameterInfo& info, EditorContext& context) {
  return new TextEditor(info, context);
}
ParameterEditor* make_choice_editor(const model::ParameterInfo& info, EditorContext& context) {
  return new ChoiceEditor(info, context);
}
ParameterEditor* make_choices_editor(const model::ParameterInfo& info, EditorContext& context) {
  return new ChoicesEditor(info, context);
}
ParameterEditor* make_band_editor(const model::ParameterInfo& info, EditorContext& context) {
  return new BandEditor(info, context);
}
ParameterEditor* make_bands_editor(const model::ParameterInfo& info, EditorContext& context) {
  return new BandsEditor(info, context);
}
ParameterEditor* make_expression_editor(const model::ParameterInfo& info, EditorContext& context) {
  return new ExpressionEditor(info, context);
}
ParameterEditor* make_file_editor(const model::ParameterInfo& info, EditorContext& context) {
  return new FileEditor(info, context);
}

}  // namespace orvexa::ui::editors
