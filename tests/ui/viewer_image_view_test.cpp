#include <gtest/gtest.h>

#include <QApplication>
#include <QLabel>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>
#include <optional>

#include "orvexa/ui/viewer/image_view.h"
#include "support/captures.h"
#include "ui/support/desktop.h"

namespace orvexa::ui::viewer {
namespace {

using controller::ViewerGeometry;
using controller::ViewerPoint;
using controller::ViewerRect;
using test::wait_until;

/// A view of 400 x 300 pixels on an image of 800 x 600, which it shows in half its size, without a margin.
class ImageViewTest : public testing::Test {
 protected:
  ImageViewTest() : view(mailbox.address()) {
    view.resize(400, 300);
    view.show();
    view.activateWindow();
    view.setFocus();
    QObject::connect(&view, &ImageView::accepted, &view,
                     [this](const ViewerGeometry& geometry) { accepted = geometry; });
    QObject::connect(&view, &ImageView::cancelled, &view, [this] { ++cancellations; });
    QObject::connect(&view, &ImageView::pointed_at, &view, [this](const QPoint& at) { pixel = at; });
    show(model::Image(chequered()));
  }

  /// Squares of 100 x 100 pixels: 40 and 200 in turn.
  static cv::Mat chequered() {
    cv::Mat pixels(600, 800, CV_8UC1);
    for (int y = 0; y < pixels.rows; ++y) {
      for (int x = 0; x < pixels.cols; ++x) {
        pixels.at<std::uint8_t>(y, x) = (x / 100 + y / 100) % 2 == 0 ? 40 : 200;
      }
    }
    return pixels;
  }

  void show(const model::ImageEntry& entry) {
    view.show_picture(std::make_shared<const Picture>(Picture{.entry = std::make_shared<const model::ImageEntry>(entry),
                                                              .white_level = 255,
                                                              .settings = {.range = RangeMode::full}}));
    ASSERT_TRUE(wait_until([this] { return view.is_complete(); }));
  }
  void lay_over(const model::Mask& mask, double opacity = 0.4) {
    view.show_overlay(
        std::make_shared<const MaskOverlay>(MaskOverlay{.mask = mask, .color = Qt::magenta, .opacity = opacity}));
    ASSERT_TRUE(wait_until([this] { return view.is_complete(); }));
  }

  void drag(QPoint from, QPoint to, Qt::MouseButton button = Qt::LeftButton, Qt::KeyboardModifiers modifiers = {}) {
    QTest::mousePress(&view, button, modifiers, from);
    QTest::mouseMove(&view, (from + to) / 2);
    QTest::mouseMove(&view, to);
    QTest::mouseRelease(&view, button, modifiers, to);
  }
  void wheel(QPoint at, int eighths_of_degrees) {
    QWheelEvent event(at, view.mapToGlobal(at), {}, {0, eighths_of_degrees}, Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    QApplication::sendEvent(&view, &event);
  }
  void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) { QTest::keyClick(&view, key, modifiers); }
  void press_often(Qt::Key key, int times) {
    for (int i = 0; i < times; ++i) press(key);
  }
  [[nodiscard]] QRgb color_at(QPoint at) { return view.grab().toImage().pixel(at); }
  [[nodiscard]] QString hint() const { return view.findChild<QLabel*>("viewer_hint")->text(); }

  void expect_rect(double x, double y, double width, double height) const {
    ASSERT_TRUE(accepted);
    const auto* rect = std::get_if<ViewerRect>(&*accepted);
    ASSERT_TRUE(rect);
    expect_equal(*rect, x, y, width, height);
  }
  static void expect_equal(const ViewerRect& rect, double x, double y, double width, double height) {
    EXPECT_EQ(rect.x(), x);
    EXPECT_EQ(rect.y(), y);
    EXPECT_EQ(rect.width(), width);
    EXPECT_EQ(rect.height(), height);
  }
  [[nodiscard]] std::vector<QPointF> accepted_points() const {
    std::vector<QPointF> points;
    if (!accepted) return points;
    for (const ViewerPoint& point : std::get<std::vector<ViewerPoint>>(*accepted))
      points.emplace_back(point.x(), point.y());
    return points;
  }

  Mailbox mailbox;
  ImageView view;
  std::optional<ViewerGeometry> accepted;
  int cancellations = 0;
  QPoint pixel;
};

// ---- Looking --------------------------------------------------------------------------------------------------------

TEST_F(ImageViewTest, ShowsTheWholeImageFirst) {
  EXPECT_EQ(view.view(), (ViewTransform{.scale = 0.5, .origin = {0, 0}}));
  EXPECT_EQ(color_at({25, 25}), qRgb(40, 40, 40));
  EXPECT_EQ(color_at({75, 25}), qRgb(200, 200, 200));
  EXPECT_EQ(color_at({375, 275}), qRgb(40, 40, 40));
}

TEST_F(ImageViewTest, GivenAWheelTurned_ThenThePixelUnderThePointerStays) {
  const QPoint at(120, 90);
  wheel(at, 120);
  EXPECT_NEAR(view.view().scale, 0.5946, 0.0001);  // a notch is a quarter of doubling
  EXPECT_NEAR(view.view().to_image(at).x(), 240, 1e-9);
  EXPECT_NEAR(view.view().to_image(at).y(), 180, 1e-9);
  for (int i = 0; i < 9; ++i) wheel(at, 120);
  EXPECT_NEAR(view.view().to_image(at).x(), 240, 1e-9);
  QTest::mouseMove(&view, at);
  EXPECT_EQ(pixel, QPoint(240, 180));
}

TEST_F(ImageViewTest, ZoomsAndFitsByKeyboard) {
  press_often(Qt::Key_Plus, 2);
  EXPECT_NEAR(view.view().scale, 1, 1e-9);
  press_often(Qt::Key_Minus, 2);
  EXPECT_NEAR(view.view().scale, 0.5, 1e-9);
  press(Qt::Key_1);
  EXPECT_EQ(view.view().scale, 1);
  EXPECT_EQ(view.view().to_image({200, 150}), QPointF(400, 300));  // the middle stayed
  press(Qt::Key_F);
  EXPECT_EQ(view.view(), (ViewTransform{.scale = 0.5, .origin = {0, 0}}));
}

TEST_F(ImageViewTest, ShowsEachPixelOnceWhenPixelsAreOneToOne) {
  cv::Mat pixels(600, 800, CV_8UC1);
  for (int y = 0; y < pixels.rows; ++y) {
    for (int x = 0; x < pixels.cols; ++x)
      pixels.at<std::uint8_t>(y, x) = static_cast<std::uint8_t>((x * 7 + y * 3) % 256);
  }
  show(model::Image(pixels.clone()));
  press(Qt::Key_1);
  ASSERT_TRUE(wait_until([this] { return view.is_complete(); }));
  const QImage shown = view.grab().toImage();
  for (int y = 50; y < 250; ++y) {
    for (int x = 50; x < 350; ++x) {
      ASSERT_EQ(qRed(shown.pixel(x, y)), pixels.at<std::uint8_t>(y + 150, x + 200)) << x << ", " << y;
    }
  }
}

TEST_F(ImageViewTest, GivenADrag_ThenTheImageMovesWithIt) {
  press(Qt::Key_1);
  const QPointF before = view.view().origin;
  drag({200, 150}, {150, 130});
  EXPECT_EQ(view.view().origin, before + QPointF(-50, -20));
  drag({150, 130}, {200, 150}, Qt::MiddleButton);
  EXPECT_EQ(view.view().origin, before);
}

TEST_F(ImageViewTest, PansWithArrowKeys) {
  press(Qt::Key_1);
  const QPointF before = view.view().to_image({0, 0});
  press(Qt::Key_Right);
  press(Qt::Key_Down);
  const QPointF after = view.view().to_image({0, 0});
  EXPECT_GT(after.x(), before.x());
  EXPECT_GT(after.y(), before.y());
  press(Qt::Key_Left);
  press(Qt::Key_Up);
  EXPECT_EQ(view.view().to_image({0, 0}), before);
}

TEST_F(ImageViewTest, StaysFittedWhenTheWindowGrows) {
  view.resize(800, 600);
  EXPECT_EQ(view.view(), (ViewTransform{.scale = 1, .origin = {0, 0}}));
}

TEST_F(ImageViewTest, ShowsAnotherImageOfTheSameSizeAtTheSamePlace) {
  press(Qt::Key_1);
  const ViewTransform before = view.view();
  show(test::flat_image<std::uint8_t>(600, 800, 9));
  EXPECT_EQ(view.view(), before);
  EXPECT_EQ(color_at({200, 150}), qRgb(9, 9, 9));
  show(test::flat_image<std::uint8_t>(300, 400, 9));
  EXPECT_EQ(view.view(), (ViewTransform{.scale = 1, .origin = {0, 0}}));
}

TEST_F(ImageViewTest, GivenNoPicture_ThenNothingOfTheOldOneRemains) {
  view.show_picture(nullptr);
  EXPECT_TRUE(view.findChild<QLabel*>("viewer_empty")->isVisible());
  EXPECT_EQ(color_at({25, 25}), view.palette().color(QPalette::Dark).rgb());
  EXPECT_EQ(color_at({375, 275}), view.palette().color(QPalette::Dark).rgb());
}

TEST_F(ImageViewTest, ReadsPixelsWithACrossHair) {
  view.set_cross_hair(true);
  EXPECT_EQ(pixel, QPoint(400, 300));
  press(Qt::Key_Left);
  press(Qt::Key_Down, Qt::ShiftModifier);
  EXPECT_EQ(pixel, QPoint(399, 310));
  press(Qt::Key_Escape);
  EXPECT_FALSE(view.cross_hair());
}

TEST_F(ImageViewTest, MovesTheImageWhenTheCrossHairLeavesTheView) {
  press(Qt::Key_1);
  view.set_cross_hair(true);
  for (int i = 0; i < 30; ++i) press(Qt::Key_Right, Qt::ShiftModifier);
  EXPECT_EQ(pixel, QPoint(700, 300));
  EXPECT_LE(view.view().to_view({700.5, 300.5}).x(), 400);
}

TEST_F(ImageViewTest, TellsThatSomethingTakesItsTime) {
  const auto* mark = view.findChild<QLabel*>("viewer_working");
  EXPECT_FALSE(mark->isVisible());
  view.set_working(true);
  EXPECT_TRUE(mark->isVisible());
  EXPECT_TRUE(view.rect().contains(mark->geometry()));
  view.set_working(false);
  EXPECT_FALSE(mark->isVisible());
}

// ---- Mask -----------------------------------------------------------------------------------------------------------

model::Mask left_half() {
  cv::Mat pixels(600, 800, CV_8UC1, cv::Scalar(0));
  pixels.colRange(0, 400).setTo(255);
  return model::Mask(pixels);
}

TEST_F(ImageViewTest, TintsThePixelsOfTheMask) {
  lay_over(left_half());
  EXPECT_EQ(color_at({75, 25}), qRgb(222, 120, 222));  // 0.6 * 200 + 0.4 * (255, 0, 255)
  EXPECT_EQ(color_at({275, 25}), qRgb(200, 200, 200));
  view.set_overlay_visible(false);
  ASSERT_TRUE(wait_until([this] { return view.is_complete(); }));
  EXPECT_EQ(color_at({75, 25}), qRgb(200, 200, 200));
}

TEST_F(ImageViewTest, ShowsTheNewestOfManyMasks) {
  for (int width = 1; width <= 40; ++width) {
    cv::Mat pixels(600, 800, CV_8UC1, cv::Scalar(0));
    pixels.colRange(0, width * 20).setTo(255);
    view.show_overlay(std::make_shared<const MaskOverlay>(
        MaskOverlay{.mask = model::Mask(pixels), .color = Qt::magenta, .opacity = 1}));
    QApplication::processEvents();
  }
  ASSERT_TRUE(wait_until([this] { return view.is_complete(); }));
  EXPECT_EQ(color_at({395, 295}), qRgb(255, 0, 255));
}

TEST_F(ImageViewTest, SplitsBetweenTheImageAloneAndTheImageWithItsMask) {
  lay_over(model::Mask::full({600, 800}));
  view.set_split(true);
  ASSERT_TRUE(wait_until([this] { return view.is_complete(); }));
  EXPECT_EQ(color_at({75, 25}), qRgb(200, 200, 200));
  EXPECT_EQ(color_at({275, 25}), qRgb(222, 120, 222));
  drag({200, 100}, {50, 100});
  EXPECT_EQ(color_at({75, 25}), qRgb(222, 120, 222));
  EXPECT_EQ(color_at({25, 75}), qRgb(200, 200, 200));
  for (int i = 0; i < 7; ++i) press(Qt::Key_Right, Qt::ControlModifier | Qt::ShiftModifier);  // 70 pixels
  EXPECT_EQ(color_at({75, 25}), qRgb(200, 200, 200));
}

// ---- Drawing --------------------------------------------------------------------------------------------------------

TEST_F(ImageViewTest, DrawsARectangle) {
  view.set_active_tool("rectangle");
  EXPECT_TRUE(hint().startsWith("Drag a rectangle; Enter accepts, Escape cancels"));
  drag({50, 40}, {150, 140});
  press(Qt::Key_Return);
  expect_rect(100, 80, 200, 200);
}

TEST_F(ImageViewTest, DrawsARectangleFromAnyCornerAndInsideTheImage) {
  view.set_active_tool("rectangle");
  drag({390, 290}, {500, 400});
  drag({150, 140}, {50, 40});  // takes the place of the one before
  press(Qt::Key_Enter);
  expect_rect(100, 80, 200, 200);
  drag({390, 290}, {450, 350});
  press(Qt::Key_Enter);
  expect_rect(780, 580, 20, 20);
}

TEST_F(ImageViewTest, CorrectsARectangleByItsHandles) {
  view.set_active_tool("rectangle");
  drag({50, 40}, {150, 140});
  drag({150, 140}, {160, 145});  // lower right corner
  drag({50, 92}, {40, 100});     // left edge
  press(Qt::Key_Return);
  expect_rect(80, 80, 240, 210);
}

TEST_F(ImageViewTest, MovesARectangleButNotBeyondTheBorder) {
  view.set_active_tool("rectangle");
  drag({50, 40}, {150, 140});
  drag({100, 60}, {110, 65});
  press(Qt::Key_Return);
  expect_rect(120, 90, 200, 200);
  drag({100, 60}, {390, 290});
  press(Qt::Key_Return);
  expect_rect(600, 400, 200, 200);
}

TEST_F(ImageViewTest, GivenAClickOnly_ThenTheRectangleStaysAsItWas) {
  view.set_active_tool("rectangle");
  drag({50, 40}, {150, 140});
  QTest::mouseClick(&view, Qt::LeftButton, {}, {300, 200});
  press(Qt::Key_Return);
  expect_rect(100, 80, 200, 200);
}

TEST_F(ImageViewTest, GivenNothingDrawn_WhenEnterIsPressed_ThenTheHintSaysSo) {
  view.set_active_tool("rectangle");
  press(Qt::Key_Return);
  EXPECT_FALSE(accepted);
  EXPECT_TRUE(hint().startsWith("There is no rectangle yet"));
}

TEST_F(ImageViewTest, CancelsWithEscape) {
  view.set_active_tool("rects");
  drag({50, 40}, {150, 140});
  press(Qt::Key_Escape);
  EXPECT_EQ(cancellations, 1);
  EXPECT_FALSE(accepted);
}

TEST_F(ImageViewTest, PansAndZoomsWhileDrawing) {
  view.set_active_tool("rectangle");
  wheel({200, 150}, 480);  // doubles: 1:1, the middle of the image in the middle of the view
  drag({200, 150}, {180, 140}, Qt::MiddleButton);
  drag({180, 140}, {280, 190});
  press(Qt::Key_Return);
  expect_rect(400, 300, 100, 50);
}

TEST_F(ImageViewTest, AcceptsWithADoubleClick) {
  view.set_active_tool("rectangle");
  drag({50, 40}, {150, 140});
  QTest::mouseDClick(&view, Qt::LeftButton, {}, {100, 70});
  expect_rect(100, 80, 200, 200);
}

TEST_F(ImageViewTest, DrawsRectanglesAndRemovesThem) {
  view.set_active_tool("rects");
  drag({10, 10}, {60, 60});
  drag({100, 100}, {150, 150});
  drag({110, 110}, {120, 120}, Qt::LeftButton, Qt::ShiftModifier);  // inside the second
  drag({200, 200}, {250, 250});
  press(Qt::Key_Backspace);                                // the last
  QTest::mouseClick(&view, Qt::LeftButton, {}, {30, 40});  // selects the first
  press(Qt::Key_Delete);
  press(Qt::Key_Return);
  ASSERT_TRUE(accepted);
  const auto& rects = std::get<std::vector<ViewerRect>>(*accepted);
  ASSERT_EQ(rects.size(), 2U);
  expect_equal(rects[0], 200, 200, 100, 100);
  expect_equal(rects[1], 220, 220, 20, 20);
}

TEST_F(ImageViewTest, DrawsOnePointInTheMiddleOfAPixel) {
  view.set_active_tool("point");
  QTest::mouseClick(&view, Qt::LeftButton, {}, {50, 40});
  QTest::mouseClick(&view, Qt::LeftButton, {}, {100, 40});
  drag({100, 40}, {110, 45});
  press(Qt::Key_Return);
  ASSERT_TRUE(accepted);
  const auto& point = std::get<ViewerPoint>(*accepted);
  EXPECT_EQ(point.x(), 220.5);
  EXPECT_EQ(point.y(), 90.5);
}

TEST_F(ImageViewTest, DrawsPointsInTheirOrder) {
  view.set_active_tool("points");
  for (const QPoint at : {QPoint(50, 40), QPoint(100, 40), QPoint(150, 140)}) {
    QTest::mouseClick(&view, Qt::LeftButton, {}, at);
  }
  drag({100, 40}, {100, 60});
  press(Qt::Key_Return);
  EXPECT_EQ(accepted_points(), (std::vector<QPointF>{{100.5, 80.5}, {200.5, 120.5}, {300.5, 280.5}}));
}

TEST_F(ImageViewTest, NumbersPointsAfterThoseThatExist) {
  const QRect label(205, 105, 30, 30);
  view._pick_existing_count = 0;
  view.set_active_tool("points");
  for (const QPoint at : {QPoint(50, 200), QPoint(100, 200), QPoint(200, 100)}) {
    QTest::mouseClick(&view, Qt::LeftButton, {}, at);
  }
  const QImage third = view.grab(label).toImage();
  view._pick_existing_count = 2;
  view.set_active_tool("points");
  QTest::mouseClick(&view, Qt::LeftButton, {}, {200, 100});
  EXPECT_EQ(view.grab(label).toImage(), third);
  view._pick_existing_count = 3;
  view.update();
  EXPECT_NE(view.grab(label).toImage(), third);
}

TEST_F(ImageViewTest, DrawsACircleFromItsCentre) {
  view.set_active_tool("circle");
  drag({100, 100}, {130, 140});  // 30 and 40 in the view: a radius of 50, in the image 100
  press(Qt::Key_Return);
  expect_rect(100, 100, 200, 200);
  drag({150, 100}, {140, 100});  // the right handle
  press(Qt::Key_Return);
  expect_rect(120, 120, 160, 160);
}

TEST_F(ImageViewTest, DrawsAPolygonOfThreeCornersAtLeast) {
  view.set_active_tool("polygon");
  QTest::mouseClick(&view, Qt::LeftButton, {}, {50, 50});
  QTest::mouseClick(&view, Qt::LeftButton, {}, {100, 50});
  press(Qt::Key_Return);
  EXPECT_FALSE(accepted);
  EXPECT_TRUE(hint().startsWith("A polygon has at least three corners"));
  QTest::mouseClick(&view, Qt::LeftButton, {}, {100, 100});
  press(Qt::Key_Return);
  EXPECT_EQ(accepted_points(), (std::vector<QPointF>{{100.5, 100.5}, {200.5, 100.5}, {200.5, 200.5}}));
}

TEST_F(ImageViewTest, DrawsByKeyboardAlone) {
  view.set_active_tool("rects");
  press(Qt::Key_Right);  // shows the cross-hair in the middle: 400, 300
  press(Qt::Key_Space);
  press(Qt::Key_Right, Qt::ShiftModifier);
  press_often(Qt::Key_Down, 4);
  press(Qt::Key_Space);  // covers the pixels 400..410 and 300..304
  press(Qt::Key_Right, Qt::ControlModifier | Qt::ShiftModifier);
  press(Qt::Key_Down, Qt::AltModifier);
  press(Qt::Key_Space);
  press(Qt::Key_Up);
  press(Qt::Key_Space);
  press(Qt::Key_PageUp);  // the first one again
  press(Qt::Key_Left, Qt::ControlModifier);
  press(Qt::Key_Return);
  ASSERT_TRUE(accepted);
  const auto& rects = std::get<std::vector<ViewerRect>>(*accepted);
  ASSERT_EQ(rects.size(), 2U);
  expect_equal(rects[0], 409, 300, 11, 6);
  expect_equal(rects[1], 410, 303, 1, 2);
}

TEST_F(ImageViewTest, RefusesAToolThatItDoesNotHave) {
  EXPECT_THROW(view.set_active_tool("lasso"), std::invalid_argument);
}

}  // namespace
}  // namespace orvexa::ui::viewer
