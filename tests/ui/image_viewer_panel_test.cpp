#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QSpinBox>
#include <QTest>
#include <QToolButton>
#include <QWheelEvent>

#include "orvexa/ui/analysis_mode/image_viewer_panel.h"
#include "support/captures.h"
#include "ui/support/desktop.h"

namespace orvexa::ui::analysis_mode {
namespace {

using test::wait_until;

/// The panel on a capture of one 16-bit image of 400 x 200 pixels: its left half has 10000 counts, its right half
/// 50000, and a single pixel (x 300, y 120) 65535.
class ImageViewerPanelTest : public test::DesktopTest {
 protected:
  ImageViewerPanelTest() {
    // Choices of a test before this one may still be remembered.
    workbench->memory().remember_choice("viewer/overlay", true);
    workbench->memory().remember_choice("viewer/overlay_color", 0);
    workbench->memory().remember_choice("viewer/overlay_opacity", 40);
    panel = std::make_unique<ImageViewerPanel>(*workbench);
    controller().register_panel(*panel);
    panel->resize(800, 600);
    panel->show();
    panel->activateWindow();
  }
  /// The panels of a window outlive its workbench.
  ~ImageViewerPanelTest() override { workbench.reset(); }

  static model::Image halves() {
    cv::Mat pixels(200, 400, CV_16UC1, cv::Scalar(10000));
    pixels.colRange(200, 400).setTo(50000);
    pixels.at<std::uint16_t>(120, 300) = 65535;
    return model::Image(pixels);
  }

  void open(const model::Image& image = halves()) {
    open_capture(write_image("halves.png", image));
    select("Raw Images > GRY");
  }
  /// What the panel of measurements does when somebody chooses the image.
  void select(const std::string& context) {
    const auto& images = state().current_capture->measurements.at("GRY")->images;
    controller().show_image_in_viewer(images.at("GRY"), context, "GRY", "GRY");
    wait_until_shown();
  }
  void wait_until_shown() const {
    ASSERT_TRUE(wait_until([this] { return is_idle() && view().is_complete(); }));
  }

  [[nodiscard]] viewer::ImageView& view() const { return *panel->findChild<viewer::ImageView*>("image_view"); }
  template <typename Widget>
  [[nodiscard]] Widget& find(const char* name) const {
    auto* found = panel->findChild<Widget*>(name);
    if (found == nullptr) throw std::runtime_error(std::string("no ") + name);
    return *found;
  }
  [[nodiscard]] QString text(const char* name) const { return find<QLabel>(name).text().replace(QChar::Nbsp, ' '); }
  void click(const char* name) const { QTest::mouseClick(&find<QToolButton>(name), Qt::LeftButton); }
  void choose(const char* combo, int index) const {
    auto& box = find<QComboBox>(combo);
    box.setFocus();
    while (box.currentIndex() < index) QTest::keyClick(&box, Qt::Key_Down);
    while (box.currentIndex() > index) QTest::keyClick(&box, Qt::Key_Up);
  }
  void enter(const char* spin_box, const QString& number) const {
    auto& box = find<QDoubleSpinBox>(spin_box);
    box.setFocus();
    box.selectAll();
    QTest::keyClicks(&box, number);
    QTest::keyClick(&box, Qt::Key_Return);
  }

  /// Where the middle of a pixel lies in the view.
  [[nodiscard]] QPoint place(int x, int y) const { return view().view().to_view({x + 0.5, y + 0.5}).toPoint(); }
  void point_at(int x, int y) const { QTest::mouseMove(&view(), place(x, y)); }
  [[nodiscard]] QRgb color_at(int x, int y) const {
    wait_until_shown();
    return view().grab().toImage().pixel(place(x, y));
  }
  [[nodiscard]] int grey_at(int x, int y) const { return qRed(color_at(x, y)); }

  /// Keeps the right half.
  void keep_bright() const {
    workbench->apply_mask("threshold_range", {{"low", 0.5}});
    ASSERT_TRUE(wait_until([this] { return is_idle() && !workbench->step_results().steps().empty(); }));
    wait_until_shown();
  }

  std::unique_ptr<ImageViewerPanel> panel;
};

TEST_F(ImageViewerPanelTest, ShowsTheSelectedImageUnderItsContext) {
  EXPECT_EQ(text("viewer_title"), "No image");
  open();
  EXPECT_EQ(text("viewer_title"), "Raw Images > GRY > GRY");
  EXPECT_EQ(view().image_size(), QSize(400, 200));
}

TEST_F(ImageViewerPanelTest, ReadsThePixelUnderThePointer) {
  open();
  point_at(300, 120);
  EXPECT_EQ(text("viewer_position"), "x 300, y 120");
  EXPECT_EQ(text("viewer_values"), "GRY 65535 (1.0000)");
  point_at(10, 120);
  EXPECT_EQ(text("viewer_values"), "GRY 10000 (0.1526)");
  QTest::mouseMove(&view(), QPoint(1, 1));  // beside the image
  EXPECT_EQ(text("viewer_values"), "");
}

TEST_F(ImageViewerPanelTest, ReadsPixelsByKeyboardAlone) {
  open();
  view().setFocus();
  QTest::keyClick(&view(), Qt::Key_X);
  EXPECT_EQ(text("viewer_position"), "x 200, y 100");
  for (int i = 0; i < 10; ++i) QTest::keyClick(&view(), Qt::Key_Right, Qt::ShiftModifier);
  for (int i = 0; i < 2; ++i) QTest::keyClick(&view(), Qt::Key_Down, Qt::ShiftModifier);
  EXPECT_EQ(text("viewer_values"), "GRY 65535 (1.0000)");
}

TEST_F(ImageViewerPanelTest, ReadsEveryBandOfTheCapture) {
  cv::Mat color(20, 40, CV_8UC3);
  color.setTo(cv::Scalar(51, 102, 204));  // red, green, blue
  const auto capture = test::capture(
      "plot",
      {{"CLR", {{"RGB", model::Image(color)}}},
       {"MSP",
        {{"RED", test::flat_image<std::uint16_t>(20, 40, 13107)}, {"NIR", test::flat_image<float>(20, 40, 0.25F)}}}});
  state().current_capture = capture;
  workbench->refresh();
  controller().show_image_in_viewer(capture->measurements.at("MSP")->images.at("NIR"), "Raw Images > MSP", "MSP",
                                    "NIR");
  wait_until_shown();
  point_at(5, 6);
  EXPECT_EQ(text("viewer_values"),
            "CLR RGB 51 102 204 (0.2000 0.4000 0.8000)   MSP RED 13107 (0.2000)   MSP NIR 0.25 (0.2500)");
}

TEST_F(ImageViewerPanelTest, ReadsAResultImageOfAnotherSize) {
  open();
  cv::Mat numbers(2, 2, CV_32FC1, cv::Scalar(-0.5));
  numbers.at<float>(0, 0) = std::numeric_limits<float>::quiet_NaN();
  controller().show_image_in_viewer(model::ImageEntry(model::Image(numbers)), "Results > NDVI", "NDVI", "map");
  wait_until_shown();
  point_at(1, 1);
  EXPECT_EQ(text("viewer_values"), "map -0.5 (-0.5000)");
  point_at(0, 0);
  EXPECT_EQ(text("viewer_values"), "map no value (–)");
}

TEST_F(ImageViewerPanelTest, ShowsTheRangeThatIsChosen) {
  open();
  // The quantiles of the image are 10000 and 50000.
  EXPECT_EQ(find<QComboBox>("viewer_range").currentIndex(), 0);
  EXPECT_EQ(find<QDoubleSpinBox>("viewer_range_low").value(), 10000);
  EXPECT_EQ(find<QDoubleSpinBox>("viewer_range_high").value(), 50000);
  EXPECT_EQ(grey_at(100, 50), 0);
  EXPECT_EQ(grey_at(250, 50), 255);
  choose("viewer_range", 1);
  QTest::keyClick(&find<QComboBox>("viewer_range"), Qt::Key_Return);
  wait_until_shown();
  EXPECT_EQ(find<QDoubleSpinBox>("viewer_range_high").value(), 65535);
  EXPECT_EQ(grey_at(100, 50), 39);   // 10000 / 257 = 38.9
  EXPECT_EQ(grey_at(250, 50), 195);  // 50000 / 257 = 194.6
  enter("viewer_range_high", "51000");
  EXPECT_EQ(find<QComboBox>("viewer_range").currentIndex(), 2);
  EXPECT_EQ(grey_at(100, 50), 50);   // 10000 / 200
  EXPECT_EQ(grey_at(250, 50), 250);  // 50000 / 200
  point_at(100, 50);
  EXPECT_EQ(text("viewer_values"), "GRY 10000 (0.1526)");  // the data is as it was
}

TEST_F(ImageViewerPanelTest, RemembersTheRangeOfEachImage) {
  open();
  enter("viewer_range_high", "60000");
  enter("viewer_range_low", "20000");
  controller().show_image_in_viewer(model::ImageEntry(test::flat_image<std::uint8_t>(200, 400, 77)), "Results > X", "X",
                                    "other");
  EXPECT_EQ(grey_at(100, 50), 77);
  EXPECT_EQ(find<QComboBox>("viewer_range").currentIndex(), 1);
  select("Raw Images > GRY");
  EXPECT_EQ(find<QComboBox>("viewer_range").currentIndex(), 2);
  EXPECT_EQ(find<QDoubleSpinBox>("viewer_range_low").value(), 20000);
  EXPECT_EQ(grey_at(100, 50), 0);
  EXPECT_EQ(grey_at(250, 50), 191);  // 30000 / 40000 of 255 is 191.25
}

TEST_F(ImageViewerPanelTest, ShowsOneBandInOtherColours) {
  open();
  view().setFocus();
  QTest::keyClick(&view(), Qt::Key_M);
  EXPECT_EQ(color_at(100, 50), qRgb(255, 255, 255));
  EXPECT_EQ(color_at(250, 50), qRgb(0, 0, 0));
  QTest::keyClick(&view(), Qt::Key_M);
  const QRgb low = color_at(100, 50);
  EXPECT_GT(qBlue(low), qRed(low));
}

TEST_F(ImageViewerPanelTest, ShowsTheMaskOfTheLastStep) {
  open();
  EXPECT_EQ(text("viewer_mask_size"), "No mask");
  keep_bright();
  EXPECT_EQ(text("viewer_mask_size"), "Mask: 40,000 pixels, 50.00 %");
  EXPECT_EQ(color_at(250, 50), qRgb(255, 153, 255));  // 0.6 * 255 + 0.4 * magenta
  EXPECT_EQ(color_at(100, 50), qRgb(0, 0, 0));
  point_at(250, 50);
  EXPECT_EQ(text("viewer_position"), "x 250, y 50   in the mask");
  point_at(100, 50);
  EXPECT_EQ(text("viewer_position"), "x 100, y 50   not in the mask");
  view().setFocus();
  QTest::keyClick(&view(), Qt::Key_BracketRight);     // 45 %
  EXPECT_EQ(color_at(250, 50), qRgb(255, 140, 255));  // 0.55 * 255 = 140.25
  QTest::keyClick(&view(), Qt::Key_C);
  EXPECT_EQ(color_at(250, 50), qRgb(248, 243, 170));  // 0.55 * 255 + 0.45 * (240, 228, 66), rounded
  click("viewer_overlay");
  EXPECT_EQ(color_at(250, 50), qRgb(255, 255, 255));
}

TEST_F(ImageViewerPanelTest, ForgetsTheMaskWhenItsStepIsUndone) {
  open();
  keep_bright();
  workbench->undo();
  wait_until_shown();
  EXPECT_EQ(text("viewer_mask_size"), "No mask");
  EXPECT_EQ(color_at(250, 50), qRgb(255, 255, 255));
}

TEST_F(ImageViewerPanelTest, ShowsWhatAStepLeftOfTheImage) {
  open();
  keep_bright();
  workbench->apply_mask("threshold_range", {{"low", 0.9}});
  ASSERT_TRUE(wait_until_idle());
  click("viewer_overlay");
  select("Mask 2: Value range > GRY");
  EXPECT_EQ(text("viewer_mask_size"), "Mask: 1 pixels, 0.00 %");
  EXPECT_EQ(color_at(250, 50), qRgb(0, 0, 0));
  select("Mask 1: Value range > GRY");
  EXPECT_EQ(text("viewer_mask_size"), "Mask: 40,000 pixels, 50.00 %");
  EXPECT_EQ(color_at(250, 50), qRgb(255, 255, 255));
}

TEST_F(ImageViewerPanelTest, ShowsThePreviewUntilItEnds) {
  open();
  workbench->preview(0, "threshold_range", {{"low", 0.9}});
  ASSERT_TRUE(wait_until([this] { return workbench->previewer().answer().has_value(); }));
  EXPECT_EQ(text("viewer_mask_size"), "Mask: 1 pixels, 0.00 %");
  EXPECT_EQ(color_at(250, 50), qRgb(255, 255, 255));
  workbench->preview(0, "threshold_range", {{"low", 0.5}});
  ASSERT_TRUE(wait_until([this] { return workbench->previewer().answer()->pixels == 40000; }));
  EXPECT_EQ(color_at(250, 50), qRgb(255, 153, 255));
  workbench->previewer().end();
  EXPECT_EQ(text("viewer_mask_size"), "No mask");
  EXPECT_EQ(color_at(250, 50), qRgb(255, 255, 255));
}

TEST_F(ImageViewerPanelTest, GivenAnotherCapture_ThenNothingOfTheOldOneRemains) {
  open();
  keep_bright();
  point_at(250, 50);
  workbench->open_capture(write_image("other.png", test::flat_image<std::uint8_t>(30, 30, 5)));
  // At once, while the other one is still being loaded.
  EXPECT_EQ(text("viewer_title"), "No image");
  EXPECT_EQ(text("viewer_values"), "");
  EXPECT_EQ(text("viewer_mask_size"), "");
  const QImage empty = view().grab().toImage();
  const QRgb nothing = view().palette().color(QPalette::Dark).rgb();
  EXPECT_EQ(empty.pixel(place(250, 50)), nothing);
  EXPECT_EQ(empty.pixel(place(100, 50)), nothing);
  ASSERT_TRUE(wait_until_idle());
}

TEST_F(ImageViewerPanelTest, StaysUsableWhileAWorkerRuns) {
  open();
  workbench->open_capture(write_image("other.png", halves()));
  ASSERT_TRUE(workbench->is_busy());
  EXPECT_TRUE(panel->isEnabled());
  ASSERT_TRUE(wait_until_idle());
}

TEST_F(ImageViewerPanelTest, ZoomsByItsButtonsAndTellsHowFar) {
  open();
  click("viewer_one_to_one");
  EXPECT_EQ(text("viewer_zoom"), "100 %");
  click("viewer_zoom_in");
  click("viewer_zoom_in");
  EXPECT_EQ(text("viewer_zoom"), "200 %");
  click("viewer_fit");
  EXPECT_EQ(view().view(), viewer::ViewTransform::fitting({400, 200}, view().size()));
}

// ---- Picking --------------------------------------------------------------------------------------------------------

TEST_F(ImageViewerPanelTest, GivenARectangleDrawnWithTheMouse_ThenItsFractionsAreHandedOver) {
  open();
  click("viewer_one_to_one");
  std::optional<model::PickRect> picked;
  controller().enter_pick_mode(
      {"rect"}, "roi_rect",
      [&picked](const std::string& operation, const model::Interaction&, const controller::PickGeometry& geometry) {
        EXPECT_EQ(operation, "roi_rect");
        picked = std::get<model::PickRect>(geometry);
      });
  EXPECT_EQ(view().cursor().shape(), Qt::CrossCursor);
  EXPECT_TRUE(view().hasFocus());
  const QPoint corner = view().view().to_view({100, 50}).toPoint();
  QTest::mousePress(&view(), Qt::LeftButton, {}, corner);
  QTest::mouseMove(&view(), corner + QPoint(100, 50));
  QTest::mouseRelease(&view(), Qt::LeftButton, {}, corner + QPoint(100, 50));
  QTest::keyClick(&view(), Qt::Key_Return);
  ASSERT_TRUE(picked);
  EXPECT_EQ(*picked, (model::PickRect{.cx_norm = 0.375, .cy_norm = 0.375, .w_norm = 0.25, .h_norm = 0.25}));
  EXPECT_FALSE(state().pick_mode.active);
  EXPECT_TRUE(view().drawing().is_empty());
  EXPECT_EQ(view().cursor().shape(), Qt::OpenHandCursor);
}

TEST_F(ImageViewerPanelTest, GivenEscape_ThenNothingIsHandedOver) {
  open();
  bool is_called = false;
  controller().enter_pick_mode({"points"}, "region_grow", [&is_called](auto&&...) { is_called = true; });
  QTest::mouseClick(&view(), Qt::LeftButton, {}, place(50, 50));
  QTest::keyClick(&view(), Qt::Key_Escape);
  EXPECT_FALSE(is_called);
  EXPECT_FALSE(state().pick_mode.active);
}

TEST_F(ImageViewerPanelTest, ShowsAnImageToDrawOnWhenNoneIsShown) {
  open_capture(write_image("halves.png", halves()));
  std::optional<model::PickPoint> picked;
  controller().enter_pick_mode(
      {"point"}, "keep_regions",
      [&picked](const std::string&, const model::Interaction&, const controller::PickGeometry& geometry) {
        picked = std::get<model::PickPoint>(geometry);
      });
  wait_until_shown();
  EXPECT_EQ(view().image_size(), QSize(400, 200));
  QTest::mouseClick(&view(), Qt::LeftButton, {}, place(99, 149));
  QTest::keyClick(&view(), Qt::Key_Return);
  ASSERT_TRUE(picked);
  EXPECT_EQ(*picked, (model::PickPoint{.x_norm = 99.5 / 400, .y_norm = 149.5 / 200}));
}

TEST_F(ImageViewerPanelTest, GivenAnotherCapture_ThenNothingIsPickedAnyMore) {
  open();
  controller().enter_pick_mode({"rect"}, "roi_rect", [](auto&&...) {});
  workbench->open_capture(write_image("other.png", halves()));
  EXPECT_FALSE(controller()._get_image_viewer() == nullptr);
  ASSERT_TRUE(wait_until_idle());
  EXPECT_FALSE(state().pick_mode.active);
}

}  // namespace
}  // namespace orvexa::ui::analysis_mode
