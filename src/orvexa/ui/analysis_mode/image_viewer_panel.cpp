#include "orvexa/ui/analysis_mode/image_viewer_panel.h"

#include <QHBoxLayout>
#include <QPixmap>
#include <QResizeEvent>
#include <QShortcut>
#include <QSignalBlocker>
#include <QVBoxLayout>
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "orvexa/model/failure_text.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui::analysis_mode {

using viewer::ColorMap;
using viewer::DisplaySettings;
using viewer::ImageView;
using viewer::RangeMode;

namespace {

struct OverlayColor {
  const char* name;
  QRgb color;
};
/// Told apart by people who see few colours, and seldom the colour of what is measured.
/// Source of all but the first: M. Okabe, K. Ito, Color Universal Design, 2008.
constexpr std::array<OverlayColor, 5> overlay_colors{
    {{QT_TRANSLATE_NOOP("orvexa::ui::analysis_mode::ImageViewerPanel", "Magenta"), 0xffff00ff},
     {QT_TRANSLATE_NOOP("orvexa::ui::analysis_mode::ImageViewerPanel", "Yellow"), 0xfff0e442},
     {QT_TRANSLATE_NOOP("orvexa::ui::analysis_mode::ImageViewerPanel", "Sky blue"), 0xff56b4e9},
     {QT_TRANSLATE_NOOP("orvexa::ui::analysis_mode::ImageViewerPanel", "Orange"), 0xffe69f00},
     {QT_TRANSLATE_NOOP("orvexa::ui::analysis_mode::ImageViewerPanel", "Green"), 0xff009e73}}};
constexpr int opacity_step = 5;  // per cent

/// The same base pixels without a recipe. Only floats may be worked out late, and are not asked for here.
bool is_same_plain_image(const model::ImageEntry& a, const model::ImageEntry& b) {
  return !a.is_recipe() && !b.is_recipe() && a.base().type() == b.base().type() &&
         a.base().type() != model::PixelType::f32 && a.base().read_only().data == b.base().read_only().data;
}

/// The counts of one pixel, one a channel.
std::vector<double> counts_at(const model::Image& image, const QPoint& pixel) {
  const auto channels = static_cast<std::size_t>(image.channels());
  const std::size_t first = static_cast<std::size_t>(pixel.x()) * channels;
  std::vector<double> counts;
  for (std::size_t i = first; i < first + channels; ++i) {
    switch (image.type()) {
      case model::PixelType::u8:
        counts.push_back(image.row<std::uint8_t>(pixel.y())[i]);
        break;
      case model::PixelType::u16:
        counts.push_back(image.row<std::uint16_t>(pixel.y())[i]);
        break;
      case model::PixelType::f32:
        counts.push_back(double{image.row<float>(pixel.y())[i]});
        break;
    }
  }
  return counts;
}

/// "RED 1234 (0.0188)", "RGB 12 34 56 (0.0471 0.1333 0.2196)". Spaces inside do not break a line.
QString value_text(const std::string& name, const std::vector<double>& counts, double white_level) {
  QStringList raw;
  QStringList normalised;
  for (const double count : counts) {
    raw << (std::isfinite(count) ? QString::number(count, 'g', 7) : ImageViewerPanel::tr("no value"));
    normalised << (std::isfinite(count) ? QString::number(count / white_level, 'f', 4) : QStringLiteral("–"));
  }
  QString text = to_qt(name) + " " + raw.join(" ") + " (" + normalised.join(" ") + ")";
  return text.replace(' ', QChar::Nbsp);
}

bool contains(const model::Shape& shape, const QPoint& pixel) {
  return pixel.x() >= 0 && pixel.y() >= 0 && pixel.x() < shape.width && pixel.y() < shape.height;
}

QFrame* vertical_line() {
  auto* line = new QFrame;
  line->setFrameShape(QFrame::VLine);
  line->setFrameShadow(QFrame::Sunken);
  return line;
}

QLabel* named_label(const char* name) {
  auto* label = new QLabel;
  label->setObjectName(name);
  label->setTextFormat(Qt::PlainText);
  return label;
}

}  // namespace

ImageViewerPanel::ImageViewerPanel(Workbench& workbench, QWidget* parent)
    : PanelWidget(workbench, parent), _view(new ImageView(workbench.mailbox())) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(4, 4, 4, 4);
  column->setSpacing(4);
  column->addWidget(make_view_row());
  column->addWidget(make_display_row());
  column->addWidget(_view, 1);

  _position = named_label("viewer_position");
  _mask_size = named_label("viewer_mask_size");
  _values = named_label("viewer_values");
  _values->setWordWrap(true);
  _values->setAlignment(Qt::AlignLeft | Qt::AlignTop);
  _values->setToolTip(tr("Counts of every image of the capture, and in brackets as a share of its white level"));
  _values->setTextInteractionFlags(Qt::TextSelectableByMouse);
  auto* readout = new QHBoxLayout;
  readout->addWidget(_position);
  readout->addStretch(1);
  readout->addWidget(_mask_size);
  column->addLayout(readout);
  column->addWidget(_values);

  connect(_view, &ImageView::zoom_changed, this,
          [this](double scale) { _zoom->setText(tr("%1 %").arg(scale * 100, 0, 'f', scale < 0.1 ? 1 : 0)); });
  connect(_view, &ImageView::pointed_at, this, &ImageViewerPanel::show_pixel);
  connect(_view, &ImageView::range_found, this, &ImageViewerPanel::show_range);
  connect(_view, &ImageView::cross_hair_toggled, _cross_hair, &QToolButton::setChecked);
  connect(_view, &ImageView::accepted, this,
          [this](const controller::ViewerGeometry& geometry) { end_pick(geometry); });
  connect(_view, &ImageView::cancelled, this, [this] { end_pick(std::nullopt); });
  connect_workbench();
  _view->set_overlay_visible(_is_overlay_shown->isChecked());
  update_display_controls();
  update_title();
  update_readout();
}

// ---- Controls -------------------------------------------------------------------------------------------------------

void ImageViewerPanel::add_key(const QKeySequence& key, const std::function<void()>& work) {
  auto* shortcut = new QShortcut(key, this);
  shortcut->setContext(Qt::WidgetWithChildrenShortcut);
  connect(shortcut, &QShortcut::activated, this, work);
}

QToolButton* ImageViewerPanel::button(const QString& text, const char* name, const QString& tip,
                                      const QKeySequence& key) {
  auto* made = new QToolButton;
  made->setText(text);
  made->setObjectName(name);
  made->setToolTip(QString("%1 (%2)").arg(tip, key.toString(QKeySequence::NativeText)));
  made->setAccessibleName(tip);
  made->setFocusPolicy(Qt::TabFocus);
  add_key(key, [made] { made->click(); });
  return made;
}

QWidget* ImageViewerPanel::make_view_row() {
  _title = named_label("viewer_title");
  // A long name is cut by the panel rather than widening it.
  _title->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  QFont bold = font();
  bold.setBold(true);
  _title->setFont(bold);
  _zoom = named_label("viewer_zoom");
  _zoom->setAccessibleName(tr("Zoom"));
  _zoom->setAlignment(Qt::AlignCenter);
  _zoom->setMinimumWidth(_zoom->fontMetrics().horizontalAdvance("6400 %") + 6);

  auto* zoom_out = button("−", "viewer_zoom_out", tr("Zoom out"), Qt::Key_Minus);
  auto* zoom_in = button("+", "viewer_zoom_in", tr("Zoom in"), Qt::Key_Plus);
  auto* fit = button(tr("Fit"), "viewer_fit", tr("Show the whole image"), Qt::Key_F);
  auto* one_to_one =
      button("1:1", "viewer_one_to_one", tr("Show a pixel of the image as one of the screen"), Qt::Key_1);
  _cross_hair = button(tr("Cross-hair"), "viewer_cross_hair",
                       tr("Read pixels with a cross-hair that the arrow keys move"), Qt::Key_X);
  _split =
      button(tr("Split"), "viewer_split",
             tr("Show the image alone at the left of a divider, with the mask at its right; Ctrl and arrows move it"),
             Qt::Key_S);
  _cross_hair->setCheckable(true);
  _split->setCheckable(true);
  connect(zoom_out, &QToolButton::clicked, _view, &ImageView::zoom_out);
  connect(zoom_in, &QToolButton::clicked, _view, &ImageView::zoom_in);
  connect(fit, &QToolButton::clicked, _view, &ImageView::fit);
  connect(one_to_one, &QToolButton::clicked, _view, &ImageView::show_pixel_by_pixel);
  connect(_split, &QToolButton::toggled, _view, &ImageView::set_split);
  connect(_cross_hair, &QToolButton::clicked, this, [this](bool is_wanted) {
    _view->set_cross_hair(is_wanted);
    _cross_hair->setChecked(_view->cross_hair().has_value());
    if (is_wanted) _view->setFocus();  // that the arrows are for
  });

  auto* bar = new QWidget;
  auto* row = new QHBoxLayout(bar);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(4);
  row->addWidget(_title, 1);
  for (QWidget* part : std::initializer_list<QWidget*>{zoom_out, _zoom, zoom_in, fit, one_to_one, vertical_line(),
                                                       _split, _cross_hair}) {
    row->addWidget(part);
  }
  return bar;
}

QWidget* ImageViewerPanel::make_display_row() {
  _range = new QComboBox;
  _range->setObjectName("viewer_range");
  _range->setAccessibleName(tr("Display range"));
  _range->addItems({tr("Auto range"), tr("Full range"), tr("Manual range")});
  _range->setToolTip(
      tr("Which counts are shown dark and light: from the 0.5 % to the 99.5 % quantile, from 0 to the "
         "white level, or between two numbers. The data stays as it is. (R: the next one)"));
  add_key(Qt::Key_R, [this] { choose_range(static_cast<RangeMode>((_range->currentIndex() + 1) % _range->count())); });
  connect(_range, &QComboBox::activated, this, [this](int index) { choose_range(static_cast<RangeMode>(index)); });

  _low = new QDoubleSpinBox;
  _low->setObjectName("viewer_range_low");
  _low->setAccessibleName(tr("Shown dark, counts"));
  _low->setToolTip(tr("This count and less is shown dark; another number makes the range manual (L)"));
  _high = new QDoubleSpinBox;
  _high->setObjectName("viewer_range_high");
  _high->setAccessibleName(tr("Shown light, counts"));
  _high->setToolTip(tr("This count and more is shown light; another number makes the range manual (H)"));
  for (QDoubleSpinBox* box : {_low, _high}) {
    box->setKeyboardTracking(false);
    box->setButtonSymbols(QAbstractSpinBox::NoButtons);
    box->setFixedWidth(box->fontMetrics().horizontalAdvance("-00000.0000") + 14);
    add_key(box == _low ? Qt::Key_L : Qt::Key_H, [box] {
      box->setFocus(Qt::ShortcutFocusReason);
      box->selectAll();
    });
    connect(box, &QDoubleSpinBox::valueChanged, this, &ImageViewerPanel::choose_manual_range);
  }

  _color_map = new QComboBox;
  _color_map->setObjectName("viewer_color_map");
  _color_map->setAccessibleName(tr("Colour map"));
  _color_map->setToolTip(tr("What the counts of an image with one band are shown as (M: the next one)"));
  _color_map->addItems({tr("Grey"), tr("Inverted grey"), tr("Blue to yellow")});
  const auto choose_color_map = [this](int index) {
    if (!_chosen || !_color_map->isEnabled()) return;
    _color_map->setCurrentIndex(index);
    settings().color_map = static_cast<ColorMap>(index);
    update_picture();
  };
  connect(_color_map, &QComboBox::activated, this, choose_color_map);
  add_key(Qt::Key_M,
          [this, choose_color_map] { choose_color_map((_color_map->currentIndex() + 1) % _color_map->count()); });

  Memory& memory = workbench().memory();
  _is_overlay_shown = button(tr("Mask"), "viewer_overlay", tr("Show the mask over the image"), Qt::Key_O);
  _is_overlay_shown->setCheckable(true);
  _is_overlay_shown->setChecked(memory.choice("viewer/overlay", true).toBool());
  connect(_is_overlay_shown, &QToolButton::toggled, this, [this](bool is_shown) {
    workbench().memory().remember_choice("viewer/overlay", is_shown);
    _view->set_overlay_visible(is_shown);
  });
  _overlay_color = new QComboBox;
  _overlay_color->setObjectName("viewer_overlay_color");
  _overlay_color->setAccessibleName(tr("Colour of the mask"));
  _overlay_color->setToolTip(tr("Colour of the mask (C: the next one)"));
  for (const OverlayColor& choice : overlay_colors) {
    QPixmap swatch(14, 14);
    swatch.fill(QColor(choice.color));
    _overlay_color->addItem(swatch, tr(choice.name));
  }
  const int color = memory.choice("viewer/overlay_color", 0).toInt();
  _overlay_color->setCurrentIndex(std::clamp(color, 0, _overlay_color->count() - 1));
  connect(_overlay_color, &QComboBox::currentIndexChanged, this, [this](int index) {
    workbench().memory().remember_choice("viewer/overlay_color", index);
    update_overlay();
  });
  add_key(Qt::Key_C,
          [this] { _overlay_color->setCurrentIndex((_overlay_color->currentIndex() + 1) % _overlay_color->count()); });
  _overlay_opacity = new QSpinBox;
  _overlay_opacity->setObjectName("viewer_overlay_opacity");
  _overlay_opacity->setAccessibleName(tr("Opacity of the mask"));
  _overlay_opacity->setToolTip(tr("Opacity of the mask ([ less, ] more)"));
  _overlay_opacity->setRange(0, 100);
  _overlay_opacity->setSingleStep(opacity_step);
  _overlay_opacity->setSuffix(tr(" %"));
  _overlay_opacity->setValue(memory.choice("viewer/overlay_opacity", 40).toInt());
  connect(_overlay_opacity, &QSpinBox::valueChanged, this, [this](int percent) {
    workbench().memory().remember_choice("viewer/overlay_opacity", percent);
    update_overlay();
  });
  add_key(Qt::Key_BracketLeft, [this] { _overlay_opacity->stepDown(); });
  add_key(Qt::Key_BracketRight, [this] { _overlay_opacity->stepUp(); });
  _is_drawing_shown = button(tr("Drawing"), "viewer_drawing",
                             tr("Show what the mask step drew: what it kept, left out or divided"), Qt::Key_D);
  _is_drawing_shown->setCheckable(true);
  _is_drawing_shown->setChecked(memory.choice("viewer/drawing", true).toBool());
  connect(_is_drawing_shown, &QToolButton::toggled, this, [this](bool is_shown) {
    workbench().memory().remember_choice("viewer/drawing", is_shown);
    update_overlay();
  });

  auto* bar = new QWidget;
  auto* row = new QHBoxLayout(bar);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(4);
  auto* until = new QLabel("–");
  for (QWidget* part : std::initializer_list<QWidget*>{_range, _low, until, _high, _color_map}) row->addWidget(part);
  row->addStretch(1);
  for (QWidget* part :
       std::initializer_list<QWidget*>{_is_overlay_shown, _overlay_color, _overlay_opacity, _is_drawing_shown}) {
    row->addWidget(part);
  }
  return bar;
}

void ImageViewerPanel::connect_workbench() {
  Workbench& desk = workbench();
  connect(&desk, &Workbench::capture_changed, this, [this] {
    clear();
    // What was drawn belongs to an image that is gone.
    if (!workbench().is_busy() && controller().state.pick_mode.active) end_pick(std::nullopt);
  });
  connect(&desk.previewer(), &Previewer::answered, this, [this] {
    update_entry();
    update_overlay();
  });
  connect(&desk.previewer(), &Previewer::working_changed, _view, &ImageView::set_working);
  connect(&desk.step_results(), &StepResults::changed, this, [this] {
    update_entry();
    update_overlay();
  });
  _image_selected = controller().events.image_selected.connect(
      [this](const std::string& context, const std::string& key, const model::ImageEntry& entry) {
        show_image(context, key, entry);
      });
  _pick_mode_changed = controller().events.pick_mode_changed.connect([this](bool is_picking) {
    if (is_picking) show_image_to_draw_on();
  });
}

void ImageViewerPanel::show_busy(bool is_busy) {
  static_cast<void>(is_busy);  // looking at the image goes on: everything it needs is held here
}

// ---- What is shown --------------------------------------------------------------------------------------------------

void ImageViewerPanel::refresh() {
  const auto& capture = controller().state.current_capture;
  if (capture != _capture) {
    if (_capture) clear();
    _capture = capture;
    make_room_for_readout();
  }
  update_overlay();
}

void ImageViewerPanel::clear() {
  _capture.reset();
  _capture_of_step.reset();
  _chosen.reset();
  _entry.reset();
  _context.clear();
  _key.clear();
  _view->show_overlay(nullptr);
  _view->show_picture(nullptr);
  _mask = {};
  update_display_controls();
  update_title();
  update_readout();
}

void ImageViewerPanel::show_image(const std::string& context, const std::string& key, const model::ImageEntry& entry) {
  if (!entry.is_array()) return;
  if (!workbench().is_busy() && _capture != controller().state.current_capture) refresh();
  const bool is_as_before = _chosen && _entry == _chosen && is_same_plain_image(*_chosen, entry);
  _context = context;
  _key = key;
  _capture_of_step.reset();
  if (!is_as_before) {
    _chosen = std::make_shared<const model::ImageEntry>(entry);
    _entry = _chosen;
  }
  update_title();
  update_entry();
  update_picture();
  update_overlay();
}

void ImageViewerPanel::show_image_to_draw_on() {
  if (!_capture || workbench().is_busy()) return;
  if (_chosen && _chosen->shape() == _capture->get_shape()) return;
  for (const auto& [name, measurement] : _capture->measurements) {
    for (const auto& [image, entry] : measurement->images) {
      if (entry.is_array()) return show_image("Raw Images > " + name, image, entry);
    }
  }
}

void ImageViewerPanel::update_entry() {
  if (!_chosen) return;
  std::shared_ptr<const model::ImageEntry> entry = _chosen;
  if (workbench().previewer().answer()) {
    // A mask that moves is seen on all of the image, not on what an earlier mask left of it.
    if (_chosen->is_recipe()) entry = std::make_shared<const model::ImageEntry>(_chosen->base());
    _capture_of_step.reset();
  } else if (const auto index = step_shown()) {
    const auto& steps = workbench().step_results().steps();
    const auto capture = *index < steps.size() ? steps[*index].capture : nullptr;
    if (capture && capture == _capture_of_step) return;
    _capture_of_step = capture;
    entry = std::make_shared<const model::ImageEntry>(_chosen->base());  // until the step is worked out
    if (capture) {
      const auto found = capture->measurements.find(measurement());
      if (found != capture->measurements.end()) {
        const auto image = found->second->images.find(_key);
        if (image != found->second->images.end() && image->second.is_array()) {
          entry = std::make_shared<const model::ImageEntry>(image->second);
        }
      }
    }
  }
  if (entry == _entry || is_same_plain_image(*entry, *_entry)) return;
  _entry = entry;
  update_picture();
}

std::string ImageViewerPanel::measurement() const {
  const std::size_t separator = _context.rfind("> ");
  return separator == std::string::npos ? _context : _context.substr(separator + 2);
}

std::optional<std::size_t> ImageViewerPanel::step_shown() const {
  constexpr std::string_view beginning = "Mask ";
  if (!_context.starts_with(beginning)) return std::nullopt;
  std::size_t number = 0;
  const char* first = _context.data() + beginning.size();
  const auto [end, error] = std::from_chars(first, _context.data() + _context.size(), number);
  if (error != std::errc() || number == 0) return std::nullopt;
  return number - 1;
}

DisplaySettings& ImageViewerPanel::settings() {
  const auto [entry, is_new] = _settings.try_emplace(measurement() + "/" + _key);
  if (is_new) entry->second = viewer::first_settings(_chosen->base());
  return entry->second;
}

void ImageViewerPanel::update_picture() {
  update_display_controls();
  if (!_entry) return;
  double white_level = _entry->base().type_white_level();
  const std::string measured = measurement();
  if (_capture && _capture->find_image(measured, _key)) white_level = _capture->white_level(measured, _key).counts;
  _view->show_picture(std::make_shared<const viewer::Picture>(
      viewer::Picture{.entry = _entry, .white_level = white_level, .settings = settings()}));
}

ImageViewerPanel::ShownMask ImageViewerPanel::mask_to_show() const {
  if (!_chosen) return {};
  if (const auto& answer = workbench().previewer().answer()) {
    return {.mask = answer->mask, .drawing = answer->overlay, .pixels = answer->pixels};
  }
  const auto& steps = workbench().step_results().steps();
  const auto chosen_step = step_shown();
  if (steps.empty() || (chosen_step && *chosen_step >= steps.size())) return {};
  const StepResult& step = chosen_step ? steps[*chosen_step] : steps.back();
  if (!step.capture) return {};
  return {.mask = step.capture->mask,
          .drawing = chosen_step ? step.capture->viz_overlay : std::nullopt,
          .pixels = step.pixels};
}

void ImageViewerPanel::update_overlay() {
  _mask = mask_to_show();
  if (_mask.mask && _chosen && _mask.mask->shape() != _chosen->shape()) _mask = {};
  if (_mask.mask || _mask.drawing) {
    viewer::MaskOverlay overlay{.mask = _mask.mask,
                                .color = overlay_colors[static_cast<std::size_t>(_overlay_color->currentIndex())].color,
                                .opacity = _overlay_opacity->value() / 100.0};
    if (_is_drawing_shown->isChecked()) overlay.drawing = _mask.drawing;
    _view->show_overlay(std::make_shared<const viewer::MaskOverlay>(std::move(overlay)));
  } else {
    _view->show_overlay(nullptr);
  }
  update_readout();
}

void ImageViewerPanel::update_title() {
  const QString title = _chosen ? to_qt(_context + " > " + _key) : tr("No image");
  _title->setText(title);
  _title->setToolTip(title);
  _view->setAccessibleName(_chosen ? tr("Image: %1").arg(title) : tr("Image"));
}

// ---- Display range and colours --------------------------------------------------------------------------------------

void ImageViewerPanel::update_display_controls() {
  for (QWidget* control : std::initializer_list<QWidget*>{_range, _low, _high}) control->setEnabled(_chosen != nullptr);
  _color_map->setEnabled(_chosen && !_chosen->base().is_color());
  if (!_chosen) return;
  const DisplaySettings& shown = settings();
  _range->setCurrentIndex(static_cast<int>(shown.range));
  _color_map->setCurrentIndex(_color_map->isEnabled() ? static_cast<int>(shown.color_map) : 0);
  const bool is_float = _chosen->base().type() == model::PixelType::f32;
  for (QDoubleSpinBox* box : {_low, _high}) {
    const QSignalBlocker quiet(box);
    box->setDecimals(is_float ? 4 : 0);
    const double white = _chosen->base().type_white_level();
    box->setRange(is_float ? -1e9 : 0, is_float ? 1e9 : white);
  }
  if (shown.range == RangeMode::manual) show_range(shown.low, shown.high);
}

void ImageViewerPanel::show_range(double low, double high) {
  const QSignalBlocker quiet_low(_low);
  const QSignalBlocker quiet_high(_high);
  _low->setValue(low);
  _high->setValue(high);
}

void ImageViewerPanel::choose_range(RangeMode mode) {
  if (!_chosen) return;
  DisplaySettings& chosen = settings();
  chosen.range = mode;
  if (mode == RangeMode::manual) {
    chosen.low = _low->value();
    chosen.high = _high->value();
  }
  update_picture();
}

void ImageViewerPanel::choose_manual_range() {
  choose_range(RangeMode::manual);
}

// ---- Readout --------------------------------------------------------------------------------------------------------

void ImageViewerPanel::show_pixel(const QPoint& pixel) {
  if (pixel == _pixel) return;
  _pixel = pixel;
  update_readout();
}

QString ImageViewerPanel::values_at(const QPoint& pixel) const {
  QStringList values;
  const bool is_of_capture = _capture && _entry->shape() == _capture->get_shape();
  if (!is_of_capture || !_capture->find_image(measurement(), _key)) {
    const model::Image& image = _entry->base();
    values << value_text(_key, counts_at(image, pixel), image.type_white_level());
  }
  if (is_of_capture) {
    const std::vector<std::string> measurements = _capture->get_measurement_types();
    for (const std::string& name : measurements) {
      for (const std::string& image_name : _capture->image_names(name)) {
        const auto image = _capture->find_image(name, image_name);
        if (!image || !contains(image->shape(), pixel)) continue;
        const std::string label = measurements.size() == 1 ? image_name : name + " " + image_name;
        values << value_text(label, counts_at(*image, pixel), _capture->white_level(name, image_name).counts);
      }
    }
  }
  return values.join("   ");
}

void ImageViewerPanel::update_readout() {
  if (_mask.mask) {
    const auto all = static_cast<double>(_mask.mask->shape().pixels());
    _mask_size->setText(tr("Mask: %1 pixels, %2 %")
                            .arg(grouped(_mask.pixels))
                            .arg(100.0 * static_cast<double>(_mask.pixels) / all, 0, 'f', 2));
  } else {
    _mask_size->setText(_chosen ? tr("No mask") : QString());
  }
  if (!_entry || !contains(_entry->shape(), _pixel)) {
    _position->setText(_chosen ? tr("Point at a pixel to read it") : QString());
    _values->clear();
    return;
  }
  QString position = tr("x %1, y %2").arg(_pixel.x()).arg(_pixel.y());
  if (_mask.mask) {
    position += "   " + (_mask.mask->at(_pixel.y(), _pixel.x()) ? tr("in the mask") : tr("not in the mask"));
  }
  _position->setText(position);
  _values->setText(values_at(_pixel));
}

void ImageViewerPanel::resizeEvent(QResizeEvent* event) {
  PanelWidget::resizeEvent(event);
  make_room_for_readout();
}

/// The view must not jump when values become longer under the pointer.
void ImageViewerPanel::make_room_for_readout() {
  QStringList longest;
  if (_capture) {
    const std::vector<std::string> measurements = _capture->get_measurement_types();
    for (const std::string& name : measurements) {
      for (const std::string& image_name : _capture->image_names(name)) {
        const auto image = _capture->find_image(name, image_name);
        if (!image) continue;
        const std::string label = measurements.size() == 1 ? image_name : name + " " + image_name;
        const double count = image->type() == model::PixelType::f32 ? -0.8888888 : image->type_white_level();
        longest << value_text(label, std::vector(static_cast<std::size_t>(image->channels()), count), 1.0 / 88888);
      }
    }
  }
  const QRect room(0, 0, std::max(1, width() - 8), 10'000);
  const QString text = longest.isEmpty() ? QString("0") : longest.join("   ");
  _values->setFixedHeight(_values->fontMetrics().boundingRect(room, Qt::TextWordWrap, text).height() + 2);
}

// ---- Picking --------------------------------------------------------------------------------------------------------

void ImageViewerPanel::end_pick(const std::optional<controller::ViewerGeometry>& geometry) {
  if (workbench().is_busy()) return;  // the state is the worker's; the drawing stays until it has ended
  try {
    controller().exit_pick_mode(geometry);
  } catch (...) {
    workbench().tell_error(to_qt(model::failure_text()));
  }
}

}  // namespace orvexa::ui::analysis_mode
