#include "orvexa/ui/analysis_mode/measurements_panel.h"

#include <QIcon>

#include "orvexa/ui/text.h"
#include "support/captures.h"
#include "ui/support/desktop.h"

namespace orvexa::test {
namespace {

using ui::analysis_mode::MeasurementsPanel;

struct Shown {
  std::string context;
  std::string name;
  model::ImageEntry image;
};

class MeasurementsPanelTest : public DesktopTest {
 protected:
  MeasurementsPanelTest() : panel(std::make_unique<MeasurementsPanel>(*workbench)) {
    controller().register_panel(*panel);
    panel->resize(320, 480);
    panel->show();
    tabs = panel->findChild<QTabBar*>("measurement_tabs");
    tree = panel->findChild<QTreeWidget*>("measurement_images");
    EXPECT_TRUE(QTest::qWaitForWindowActive(panel.get()));
    connection = controller().events.image_selected.connect(
        [this](const std::string& context, const std::string& name, const model::ImageEntry& image) {
          shown.push_back({context, name, image});
        });
    // Left half dark, right half bright.
    cv::Mat grey(20, 40, CV_16UC1, cv::Scalar(1000));
    grey(cv::Rect(20, 0, 20, 20)).setTo(cv::Scalar(3000));
    write_image("nir.png", model::Image(grey.clone()));
    write_image("red.png", flat_image<std::uint16_t>(20, 40, 500));
    write_image("rgb.png", model::Image(cv::Mat(20, 40, CV_8UC3, cv::Scalar(200, 30, 10))));
    plot = folder.write(
        "HDR_plot.INF",
        "[Capture]\nName = plot\n[Measurement MSP]\nWhiteLevel = 4095\nImage NIR = nir.png\nImage RED = red.png\n"
        "[Measurement CLR]\nImage RGB = rgb.png\n");
  }
  ~MeasurementsPanelTest() override { workbench.reset(); }

  void apply_range(double low) {
    workbench->apply_mask("threshold_range", {{"band", "NIR"}, {"low", low}, {"high", 1.0}});
    ASSERT_TRUE(wait_until_idle());
    ASSERT_EQ(state().current_workflow->mask_operations.size(), 1U) << state().error.value_or("");
  }
  [[nodiscard]] QStringList tab_texts() const {
    QStringList texts;
    for (int i = 0; i < tabs->count(); ++i) texts << tabs->tabText(i);
    return texts;
  }
  [[nodiscard]] QTreeWidgetItem* item(const QString& name) const {
    for (QTreeWidgetItemIterator it(tree); *it != nullptr; ++it) {
      if ((*it)->text(0).section('\n', 0, 0) == name) return *it;
    }
    return nullptr;
  }
  void click_item(const QString& name) {
    ASSERT_NE(item(name), nullptr);
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, Qt::NoModifier, tree->visualItemRect(item(name)).center());
  }
  void click_tab(int index) { QTest::mouseClick(tabs, Qt::LeftButton, Qt::NoModifier, tabs->tabRect(index).center()); }

  std::filesystem::path plot;
  std::unique_ptr<MeasurementsPanel> panel;
  QTabBar* tabs = nullptr;
  QTreeWidget* tree = nullptr;
  std::vector<Shown> shown;
  controller::EventConnection connection;
};

TEST_F(MeasurementsPanelTest, TheFirstColourImageIsShownAfterLoading) {
  open_capture(plot);
  ASSERT_FALSE(shown.empty());
  EXPECT_EQ(shown.back().context, "Raw Images > CLR");
  EXPECT_EQ(shown.back().name, "RGB");
  EXPECT_EQ(state().selected_image_context, "Raw Images > CLR");
  EXPECT_EQ(state().selected_image_name, "RGB");
  EXPECT_EQ(tab_texts(), QStringList{"Raw Images"});
  ASSERT_NE(item("NIR"), nullptr);
  EXPECT_EQ(item("NIR")->text(0), "NIR\n40 × 20, 16-bit, white 4,095");
  EXPECT_EQ(item("NIR")->parent()->text(0), "MSP");
}

TEST_F(MeasurementsPanelTest, WithoutColourTheFirstImageIsShown) {
  open_capture(write_image("grey.png", flat_image<std::uint8_t>(5, 5, 7)));
  ASSERT_FALSE(shown.empty());
  EXPECT_EQ(shown.back().context, "Raw Images > GRY");
  EXPECT_EQ(shown.back().name, "GRY");
}

TEST_F(MeasurementsPanelTest, ClicksAndArrowsShowImages) {
  open_capture(plot);
  click_item("NIR");
  EXPECT_EQ(shown.back().context, "Raw Images > MSP");
  EXPECT_EQ(shown.back().name, "NIR");
  const std::size_t count = shown.size();
  QTest::keyClick(tree, Qt::Key_Down);
  EXPECT_EQ(shown.back().name, "RED");
  EXPECT_EQ(shown.size(), count + 1);
  EXPECT_EQ(state().selected_image_name, "RED");
}

TEST_F(MeasurementsPanelTest, AMaskStepGetsATabWithItsMaskedImages) {
  open_capture(plot);
  click_item("NIR");
  apply_range(0.5);
  ASSERT_EQ(tabs->count(), 2);
  EXPECT_TRUE(tabs->tabText(1).startsWith("Mask 1: ")) << tabs->tabText(1).toStdString();
  EXPECT_EQ(shown.back().context, "Raw Images > MSP") << "what was chosen stays";
  click_tab(1);
  EXPECT_EQ(shown.back().context, tabs->tabText(1).toStdString() + " > MSP");
  EXPECT_EQ(shown.back().name, "NIR");
  // 0.5 of 4095 keeps the right half of 3000 counts.
  const model::Image masked = shown.back().image.pixels();
  EXPECT_EQ(masked.row<std::uint16_t>(0)[19], 0);
  EXPECT_EQ(masked.row<std::uint16_t>(0)[20], 3000);
}

TEST_F(MeasurementsPanelTest, TheChosenImageIsShownAgainWhenItsStepChanges) {
  open_capture(plot);
  click_item("NIR");
  apply_range(0.5);
  click_tab(1);
  const std::size_t count = shown.size();
  ASSERT_FALSE(workbench->edit_mask(0, {{"band", "NIR"}, {"low", 0.1}, {"high", 1.0}}));
  ASSERT_TRUE(wait_until([&] { return shown.size() > count; }));
  EXPECT_EQ(shown.back().context, tabs->tabText(1).toStdString() + " > MSP");
  EXPECT_EQ(shown.back().image.pixels().row<std::uint16_t>(0)[19], 1000) << "0.1 of 4095 keeps the left half as well";
  EXPECT_EQ(tabs->currentIndex(), 1);
  workbench->remove_mask(0);
  ASSERT_TRUE(wait_until_idle());
  EXPECT_EQ(tabs->count(), 1);
  EXPECT_EQ(shown.back().context, "Raw Images > MSP");
  EXPECT_EQ(shown.back().name, "NIR");
}

TEST_F(MeasurementsPanelTest, TheTabFollowsWhatOthersShow) {
  open_capture(plot);
  apply_range(0.5);
  controller().show_image_in_viewer_without_refresh(flat_image<std::uint8_t>(20, 40, 1),
                                                    tabs->tabText(1).toStdString() + " > CLR", "CLR", "RGB");
  EXPECT_EQ(tabs->currentIndex(), 1);
  ASSERT_NE(tree->currentItem(), nullptr);
  EXPECT_EQ(tree->currentItem()->text(0).section('\n', 0, 0), "RGB");
}

TEST_F(MeasurementsPanelTest, SmallPicturesArriveAlsoOfMaskedImages) {
  open_capture(plot);
  const auto pixel = [&](const QString& name, int x) {
    return item(name)->icon(0).pixmap(40).toImage().pixelColor(x, 20);
  };
  EXPECT_TRUE(wait_until([&] { return pixel("RGB", 20) == QColor(200, 30, 10); }));
  apply_range(0.5);
  click_tab(1);
  EXPECT_TRUE(wait_until([&] { return pixel("RGB", 30) == QColor(200, 30, 10); }));
  EXPECT_EQ(pixel("RGB", 10), QColor(0, 0, 0)) << "outside the mask";
}

TEST_F(MeasurementsPanelTest, AnotherCaptureClearsAtOnceAndAFailureIsTold) {
  open_capture(plot);
  workbench->open_capture(folder.write("broken.png", "no picture"));
  EXPECT_EQ(tabs->count(), 0);
  EXPECT_EQ(tree->topLevelItemCount(), 0);
  ASSERT_TRUE(wait_until_idle());
  EXPECT_EQ(tabs->count(), 0);
  EXPECT_TRUE(panel->findChild<QLabel*>("measurement_sentence")->isVisible());
}

}  // namespace
}  // namespace orvexa::test
