#include "orvexa/ui/analysis_mode/results_panel.h"

#include <gmock/gmock.h>

#include <QClipboard>
#include <QGuiApplication>
#include <QScrollBar>
#include <atomic>
#include <thread>

#include "orvexa/ui/text.h"
#include "ui/support/block_capture.h"

namespace orvexa::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using ui::analysis_mode::ResultsPanel;

class ResultsPanelTest : public DesktopTest {
 protected:
  ResultsPanelTest() : panel(*workbench), output(folder / "results") {
    std::filesystem::create_directories(output);
    controller().register_panel(panel);
    panel.resize(900, 320);
    panel.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&panel));
  }
  ~ResultsPanelTest() override { workbench.reset(); }

  template <typename Widget>
  Widget* find(const char* name) const {
    return panel.findChild<Widget*>(name);
  }
  QTableView& table() const { return *find<QTableView>("results_table"); }

  /// The block, its automatic threshold and what is measured.
  void open_block(const std::vector<std::string>& operations) {
    open_capture(write_block_capture(folder));
    workbench->apply_mask("threshold_auto", common::Value::object());
    ASSERT_TRUE(wait_until_idle());
    workbench->set_result_operations(operations);
  }
  /// Pasted, since the keys of a test have no umlauts.
  void enter_folder(const QString& text) const {
    QLineEdit* line = find<QComboBox>("results_folder")->lineEdit();
    line->selectAll();
    QGuiApplication::clipboard()->setText(text);
    QTest::keyClick(line, Qt::Key_V, Qt::ControlModifier);
  }
  void click_run() {
    enter_folder(ui::qt_path(output));
    QTest::mouseClick(find<QPushButton>("run_results"), Qt::LeftButton);
    ASSERT_TRUE(wait_until_idle());
  }
  /// A cell by the names that a person reads.
  QModelIndex cell(const QString& row, const QString& column) const {
    const QAbstractItemModel& model = *table().model();
    for (int y = 0; y < model.rowCount(); ++y) {
      if (model.headerData(y, Qt::Vertical) != row) continue;
      for (int x = 0; x < model.columnCount(); ++x) {
        if (model.headerData(x, Qt::Horizontal).toString() == column) return model.index(y, x);
      }
    }
    ADD_FAILURE() << "no cell " << row.toStdString() << ", " << column.toStdString();
    return {};
  }
  std::string shown(const QString& row, const QString& column) const {
    return cell(row, column).data().toString().toStdString();
  }
  std::string tip(const QString& row, const QString& column) const {
    return cell(row, column).data(Qt::ToolTipRole).toString().toStdString();
  }
  static std::string clipboard() { return QGuiApplication::clipboard()->text().toStdString(); }

  ResultsPanel panel;
  std::filesystem::path output;
};

TEST_F(ResultsPanelTest, ARunWritesAFolderAndTheTableShowsTheKnownArea) {
  open_block({"area"});
  click_run();
  EXPECT_TRUE(std::filesystem::exists(output / "block" / "metrics.tsv"));
  for (const char* row : {"Whole mask", "ROI_1"}) {
    EXPECT_EQ(shown(row, "area\npx"), "1,200") << row;
    EXPECT_EQ(shown(row, "area_mm2\nmm²"), "300") << row;                          // 1200 * 0.5 mm * 0.5 mm
    EXPECT_EQ(shown(row, "area_fraction\nfraction of the image"), "0.15") << row;  // of 100 * 80
    EXPECT_EQ(tip(row, "area\npx"), "1200 px") << row;
  }
  EXPECT_EQ(table().model()->rowCount(), 2);
}

TEST_F(ResultsPanelTest, GivenThirds_WhenShown_ThenSixDigitsAreSeenAndTheTipHasAll) {
  cv::Mat pixels = cv::Mat::zeros(1, 3, CV_8UC1);
  pixels.at<std::uint8_t>(0, 1) = 200;
  open_capture(write_image("third.png", model::Image(pixels)));
  workbench->apply_mask("threshold_auto", common::Value::object());
  ASSERT_TRUE(wait_until_idle());
  workbench->set_result_operations({"area"});
  click_run();
  EXPECT_EQ(shown("Whole mask", "area_fraction\nfraction of the image"), "0.333333");
  EXPECT_EQ(tip("Whole mask", "area_fraction\nfraction of the image"), "0.3333333333333333 fraction of the image");
}

TEST_F(ResultsPanelTest, TheWholeTableIsCopiedWithHeaderAndUnits) {
  open_block({"area"});
  click_run();
  table().setFocus();
  QTest::keyClick(&table(), Qt::Key_C, Qt::ControlModifier);
  const std::string expected =
      "Capture\tRegion\tDate\tTime\tarea (px)\tarea_mm2 (mm²)\tarea_fraction (fraction of the image)\t"
      "area_fraction_of_roi (fraction of the region of interest)\n"
      "block\tWhole mask\t2024-05-21\t10:32:11\t1200\t300.0\t0.15\t0.15\n"
      "block\tROI_1\t2024-05-21\t10:32:11\t1200\t300.0\t0.15\t0.15\n";
  EXPECT_TRUE(wait_until([&] { return clipboard() == expected; })) << clipboard();
}

TEST_F(ResultsPanelTest, GivenTwoSelectedCells_WhenCopied_ThenTheyAloneAreCopied) {
  open_block({"area"});
  click_run();
  const auto click = [&](const QString& column, Qt::KeyboardModifiers modifiers) {
    QTest::mouseClick(table().viewport(), Qt::LeftButton, modifiers,
                      table().visualRect(cell("ROI_1", column)).center());
  };
  click("area\npx", Qt::NoModifier);
  click("area_mm2\nmm²", Qt::ShiftModifier);
  QTest::keyClick(&table(), Qt::Key_C, Qt::ControlModifier);
  const std::string expected =
      "Capture\tRegion\tDate\tTime\tarea (px)\tarea_mm2 (mm²)\nblock\tROI_1\t2024-05-21\t10:32:11\t1200\t300.0\n";
  EXPECT_TRUE(wait_until([&] { return clipboard() == expected; })) << clipboard();
}

TEST_F(ResultsPanelTest, AnUndefinedMetricIsAnEmptyCellWithItsReason) {
  open_capture(write_block_capture(folder));
  workbench->apply_mask("threshold_range", {{"low", 0.9}, {"high", 1.0}});  // 200 / 255 is below it
  ASSERT_TRUE(wait_until_idle());
  workbench->set_result_operations({"area"});
  click_run();
  EXPECT_EQ(shown("Whole mask", "area\npx"), "0");
  EXPECT_EQ(shown("Whole mask", "area_mm2\nmm²"), "");
  EXPECT_EQ(tip("Whole mask", "area_mm2\nmm²"), "The mask has no pixel.");
}

TEST_F(ResultsPanelTest, AnOperationThatFailsSaysWhy) {
  open_block({"area", "psii"});  // which needs the measurement FLU
  click_run();
  const auto* notice = find<QLabel>("results_notice");
  EXPECT_TRUE(notice->isVisible());
  EXPECT_THAT(notice->text().toStdString(), testing::StartsWith("Photosystem II failed: "));
  EXPECT_THAT(notice->text().toStdString(), HasSubstr("FLU"));
  const auto* remarks = find<QListWidget>("result_remarks");
  ASSERT_GE(remarks->count(), 1);
  EXPECT_EQ(remarks->item(0)->text(), notice->text());
  EXPECT_EQ(shown("ROI_1", "area\npx"), "1,200");  // the others went on
}

TEST_F(ResultsPanelTest, GivenAWorkflowThatWasChangedSince_ThenTheResultsSaySo) {
  open_block({"area"});
  click_run();
  const auto* notice = find<QLabel>("results_notice");
  EXPECT_FALSE(notice->isVisible());
  workbench->set_result_operations({"area", "centroid"});
  EXPECT_TRUE(notice->isVisible());
  EXPECT_THAT(notice->text().toStdString(), HasSubstr("changed"));
  workbench->undo();
  EXPECT_FALSE(notice->isVisible());
}

TEST_F(ResultsPanelTest, GivenAnotherCapture_ThenTheOldNumbersAreGone) {
  open_block({"area"});
  click_run();
  open_capture(write_image("other.png", block_image()));
  EXPECT_EQ(table().model()->rowCount(), 0);
  EXPECT_TRUE(find<QLabel>("results_hint")->isVisible());
}

TEST_F(ResultsPanelTest, PicturesAndTablesOfOperationsAreShown) {
  open_block({"histogram"});
  click_run();
  auto* tabs = find<QTabWidget>("results_tabs");
  QTest::mouseClick(tabs->tabBar(), Qt::LeftButton, Qt::NoModifier, tabs->tabBar()->tabRect(1).center());
  auto* names = find<QListWidget>("result_pictures");
  ASSERT_EQ(names->count(), 1);
  EXPECT_EQ(names->item(0)->text(), "Histogram: GRY.GRY");
  const auto* view = find<ui::analysis_mode::PictureView>("result_picture");
  EXPECT_TRUE(wait_until([&] { return !view->picture().isNull(); }));

  std::string context;
  std::string name;
  std::optional<model::Image> image;
  const controller::EventConnection connection = controller().events.image_selected.connect(
      [&](const std::string& to, const std::string& key, const model::ImageEntry& entry) {
        context = to;
        name = key;
        image = entry.pixels();
      });
  QTest::mouseClick(find<QPushButton>("show_result_picture"), Qt::LeftButton);
  EXPECT_EQ(context, "Results > histogram");
  EXPECT_EQ(name, "GRY.GRY");
  ASSERT_TRUE(image);
  EXPECT_EQ(image->shape(), state().last_results->at("histogram").images.at("GRY.GRY").picture.shape());
  EXPECT_FALSE(find<QPushButton>("show_result_numbers")->isEnabled());  // a drawing has no values behind it

  // 8,000 pixels of two values, of which the mask leaves those of 200: one bin has them all.
  auto* listed = find<QTableView>("result_table");
  ASSERT_EQ(find<QListWidget>("result_tables")->count(), 1);
  ASSERT_EQ(listed->model()->rowCount(), 256);
  int found = 0;
  for (int column = 0; column < listed->model()->columnCount(); ++column) {
    found += listed->model()->index(200, column).data() == "1,200" ? 1 : 0;
  }
  EXPECT_EQ(found, 1);
}

TEST_F(ResultsPanelTest, FindingAMetricHidesTheOthers) {
  open_block({"area", "centroid"});
  click_run();
  QTest::keyClicks(find<QLineEdit>("find_metric"), "MM2");
  for (int column = 0; column < table().model()->columnCount(); ++column) {
    const QString name = table().model()->headerData(column, Qt::Horizontal).toString();
    EXPECT_EQ(table().isColumnHidden(column), !name.contains("mm2")) << name.toStdString();
  }
}

TEST_F(ResultsPanelTest, RegionsAreSortedBelowTheWholeMask) {
  // Two blocks of 20 and 6 pixels, which become two regions.
  cv::Mat pixels(20, 30, CV_8UC1, cv::Scalar(10));
  pixels(cv::Rect(2, 2, 5, 4)).setTo(200);
  pixels(cv::Rect(15, 10, 3, 2)).setTo(200);
  open_capture(write_image("two.png", model::Image(pixels)));
  workbench->apply_mask("threshold_auto", common::Value::object());
  ASSERT_TRUE(wait_until_idle());
  workbench->apply_mask("keep_regions", {{"make_regions", true}});
  ASSERT_TRUE(wait_until_idle());
  workbench->set_result_operations({"area"});
  click_run();
  ASSERT_EQ(table().model()->rowCount(), 3);
  const auto areas = [&] {
    std::vector<std::string> texts;
    for (int row = 0; row < 3; ++row) {
      texts.push_back(table().model()->index(row, 0).data().toString().toStdString());
    }
    return texts;
  };
  table().setFocus();
  table().setCurrentIndex(table().model()->index(1, 0));
  QTest::keyClick(&table(), Qt::Key_L, Qt::ControlModifier);
  EXPECT_EQ(areas(), (std::vector<std::string>{"26", "6", "20"}));
  QTest::keyClick(&table(), Qt::Key_L, Qt::ControlModifier);
  EXPECT_EQ(areas(), (std::vector<std::string>{"26", "20", "6"}));
}

/// Tells that it began, and begins in truth only when it is told to end.
class WaitingExecutor final : public model::Executor {
 public:
  model::RunOutput run_and_save(const Run& run) override {
    run.progress_cb("Halfway");
    while (!run.cancel_event->is_set()) std::this_thread::yield();
    return Executor::run_and_save(run);
  }
};

TEST_F(ResultsPanelTest, CancelEndsARunWithoutAFolder) {
  open_block({"area"});
  controller().executor = std::make_unique<WaitingExecutor>();
  enter_folder(ui::qt_path(output));
  auto* run = find<QPushButton>("run_results");
  auto* cancel = find<QPushButton>("cancel_results");
  EXPECT_FALSE(cancel->isVisible());
  QTest::mouseClick(run, Qt::LeftButton);
  EXPECT_TRUE(cancel->isVisible());
  EXPECT_FALSE(run->isEnabled());
  const auto* text = find<QLabel>("results_progress_text");
  EXPECT_TRUE(wait_until([&] { return text->text() == "Halfway"; }));
  QTest::mouseClick(cancel, Qt::LeftButton);
  ASSERT_TRUE(wait_until_idle());
  EXPECT_FALSE(cancel->isVisible());
  EXPECT_TRUE(run->isEnabled());
  EXPECT_TRUE(std::filesystem::is_empty(output));
  EXPECT_FALSE(state().last_results);
  EXPECT_EQ(table().model()->rowCount(), 0);
}

TEST_F(ResultsPanelTest, WithoutACaptureOrFolderASentenceSaysWhatIsMissing) {
  EXPECT_FALSE(find<QPushButton>("run_results")->isEnabled());
  panel.run();
  EXPECT_THAT(state().error.value_or(""), HasSubstr("open a capture"));
  open_block({"area"});
  QLineEdit* line = find<QComboBox>("results_folder")->lineEdit();
  line->selectAll();
  QTest::keyClick(line, Qt::Key_Delete);
  QTest::mouseClick(find<QPushButton>("run_results"), Qt::LeftButton);
  EXPECT_FALSE(workbench->is_busy());
  EXPECT_THAT(state().error.value_or(""), HasSubstr("Choose the folder"));
}

TEST_F(ResultsPanelTest, TheFolderUsedLastIsOfferedNextTime) {
  open_block({"area"});
  click_run();
  const ResultsPanel next(*workbench);
  EXPECT_EQ(next.findChild<QComboBox*>("results_folder")->currentText(), ui::qt_path(output));
}

TEST(MetricsTable, TwoOperationsWithAMetricOfOneNameHaveAColumnEach) {
  model::ResultMap results;
  results["first"].metrics = {{"n", 1}, {"x.histogram.bins", {1, 2}}};
  results["first"].units = {{"n", "px"}, {"x.histogram.bins", "px"}};
  results["second"].metrics = {{"n", 2}};
  results["second"].regions["A"].metrics = {{"n", 3}};
  results["second"].regions["A"].reasons = {{"m", "None here."}};
  const ui::MetricsTable table(results);
  ASSERT_EQ(table.columns().size(), 3u);
  EXPECT_EQ(table.columns()[0].metric, "n");
  EXPECT_EQ(table.columns()[0].unit, "px");
  EXPECT_EQ(table.columns()[1].metric, "second.n");
  EXPECT_EQ(table.columns()[2].metric, "m");
  ASSERT_EQ(table.row_count(), 2u);
  EXPECT_EQ(table.value(0, 0), 1);
  EXPECT_EQ(table.value(0, 1), 2);
  EXPECT_TRUE(table.value(1, 0).is_null());
  EXPECT_THAT(table.reason(1, 0), IsEmpty());
  EXPECT_EQ(table.value(1, 1), 3);
  EXPECT_EQ(table.reason(1, 2), "None here.");
}

}  // namespace
}  // namespace orvexa::test
