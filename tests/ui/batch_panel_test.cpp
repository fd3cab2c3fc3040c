#include "orvexa/ui/batchprocessing_mode/batch_panel.h"

#include <future>

#include "orvexa/ui/text.h"
#include "support/captures.h"
#include "ui/support/panel_test.h"
#include "ui/support/typing.h"

namespace orvexa::test {
namespace {

using ui::batchprocessing_mode::BatchPanel;
namespace fs = std::filesystem;

class BatchPanelTest : public PanelTest<BatchPanel> {
 protected:
  BatchPanelTest() : input(folder / "input"), output(folder / "output") {
    fs::create_directories(input);
    panel = std::make_unique<BatchPanel>(*workbench);
    controller().register_panel(*panel);
    panel->resize(1200, 800);
    panel->show();
    panel->set_opener([this](const fs::path& path) {
      opened.push_back(path);
      return true;
    });
    EXPECT_TRUE(QTest::qWaitForWindowActive(panel.get()));
    workbench->set_mode("batch");
  }
  void type(const char* name, const fs::path& path) const {
    paste_and_return(part<QLineEdit>(name), ui::qt_path(path));
  }
  void open_workflow() const {
    ASSERT_TRUE(workbench->open_workflow(folder.write("bright.yaml",
                                                      "title: Bright half\n"
                                                      "mask_operations:\n"
                                                      "  - {op: threshold_range, params: {low: 0.5, high: 1.0}}\n"
                                                      "result_operations:\n"
                                                      "  - op: area\n")));
  }
  /// 10 x 6 pixels of which `bright` columns are white.
  void write_picture(const std::string& name, int bright) const {
    cv::Mat pixels(6, 10, CV_8UC1, cv::Scalar(0));
    pixels.colRange(0, bright).setTo(cv::Scalar(255));
    write_image("input/" + name, model::Image(std::move(pixels)));
  }
  /// Images, workflow and output folder are chosen.
  void prepare() const {
    open_workflow();
    click("batch_images");
    type("batch_input_edit", input);
    type("batch_output_edit", output);
  }
  [[nodiscard]] QString text(int row, int column) const {
    return part<QTableWidget>("batch_table")->item(row, column)->text();
  }
  [[nodiscard]] QString label(const char* name) const { return part<QLabel>(name)->text(); }

  fs::path input;
  fs::path output;
  std::vector<fs::path> opened;
};

TEST_F(BatchPanelTest, SaysWhatIsMissingUntilItCanStart) {
  auto* start = part<QPushButton>("batch_start");
  workbench->refresh();
  EXPECT_FALSE(start->isEnabled());
  EXPECT_TRUE(label("batch_missing").contains("input folder"));
  EXPECT_TRUE(label("batch_missing").contains("workflow"));
  EXPECT_TRUE(label("batch_missing").contains("output folder"));
  write_picture("a.png", 5);
  type("batch_input_edit", input);
  EXPECT_TRUE(label("batch_input_sentence").contains("1 images")) << label("batch_input_sentence").toStdString();
  click("batch_images");
  EXPECT_EQ(state().batch_file_list, std::vector<fs::path>{input / "a.png"});
  open_workflow();
  const QString words = part<QTextBrowser>("batch_workflow")->toPlainText();
  EXPECT_TRUE(words.contains("Bright half") && words.contains("low 0.5")) << words.toStdString();
  EXPECT_FALSE(start->isEnabled());
  type("batch_output_edit", output);
  EXPECT_TRUE(start->isEnabled()) << label("batch_missing").toStdString();
}

TEST_F(BatchPanelTest, AWorkflowThatCannotRunIsNamedAndNotStarted) {
  write_picture("a.png", 5);
  prepare();
  ASSERT_TRUE(workbench->open_workflow(folder.write("wrong.yaml", "title: Wrong\nmask_operations:\n  - op: errode\n")));
  EXPECT_FALSE(part<QPushButton>("batch_start")->isEnabled());
  EXPECT_TRUE(label("batch_missing").contains("errode")) << label("batch_missing").toStdString();
}

TEST_F(BatchPanelTest, FilesAreTickedByTheSpaceBarByFilterAndAllAtOnce) {
  for (const char* name : {"a1.png", "a2.png", "b1.png"}) write_picture(name, 3);
  prepare();
  auto* list = part<QListView>("batch_files");
  ASSERT_EQ(list->model()->rowCount(), 3);
  list->setFocus();
  QTest::keyClick(list, Qt::Key_Home);
  QTest::keyClick(list, Qt::Key_Space);
  EXPECT_EQ(state().batch_file_list, (std::vector<fs::path>{input / "a2.png", input / "b1.png"}));
  EXPECT_TRUE(label("batch_count").startsWith("2 of 3"));
  QTest::keyClicks(part<QLineEdit>("batch_filter"), "b");
  EXPECT_EQ(list->model()->rowCount(), 1);
  click("batch_tick_none");
  EXPECT_EQ(state().batch_file_list, std::vector<fs::path>{input / "a2.png"});
  QTest::keyClick(part<QLineEdit>("batch_filter"), Qt::Key_Escape);
  click("batch_tick_all");
  EXPECT_EQ(state().batch_file_list->size(), 3U);
}

TEST_F(BatchPanelTest, OneBrokenFileIsToldAndTheOthersAreDone) {
  for (const char* name : {"a.png", "c.png", "d.png"}) write_picture(name, 4);
  folder.write("input/b.png", "this is no picture");
  prepare();
  part<QCheckBox>("batch_open_at_end")->setFocus();
  QTest::keyClick(part<QCheckBox>("batch_open_at_end"), Qt::Key_Space);
  click("batch_start");
  EXPECT_FALSE(part<QPushButton>("batch_start")->isEnabled());
  EXPECT_FALSE(part<QLineEdit>("batch_input_edit")->isEnabled());
  ASSERT_TRUE(wait_until_idle());
  ASSERT_EQ(part<QTableWidget>("batch_table")->rowCount(), 4);
  int done = 0;
  for (int row = 0; row < 4; ++row) done += text(row, 2) == "✓ Done" ? 1 : 0;
  EXPECT_EQ(done, 3);
  EXPECT_EQ(text(1, 1), "b.png");
  EXPECT_EQ(text(1, 2), "✗ Failed");
  EXPECT_TRUE(text(1, 3).contains("b.png")) << text(1, 3).toStdString();
  EXPECT_TRUE(label("batch_state").startsWith("Ended: 3 of 4 files done, 1 failed."))
      << label("batch_state").toStdString();
  EXPECT_EQ(part<QProgressBar>("batch_overall")->value(), 4);
  ASSERT_EQ(opened.size(), 1U);
  EXPECT_EQ(opened.front().filename(), "batch_summary.txt");
  EXPECT_TRUE(fs::exists(opened.front()));
  EXPECT_TRUE(fs::exists(opened.front().parent_path() / "a" / "metrics.json"));
  EXPECT_EQ(QApplication::activeModalWidget(), nullptr);

  QTest::keyClick(panel.get(), Qt::Key_J, Qt::ControlModifier);
  EXPECT_TRUE(wait_until([&] { return part<QTableWidget>("batch_table")->isRowHidden(0); }));
  EXPECT_FALSE(part<QTableWidget>("batch_table")->isRowHidden(1));
  click("batch_open_folder");
  EXPECT_EQ(opened.back(), opened.front().parent_path());
}

TEST_F(BatchPanelTest, ACancelledBatchKeepsWhatIsDoneAndSaysWhatIsNot) {
  for (const char* name : {"a.png", "b.png", "c.png"}) write_picture(name, 4);
  prepare();
  std::promise<void> go;
  controller().image_loader = [gone = go.get_future().share(),
                               load = model::load_capture_from_image](const fs::path& file) {
    if (file.filename() == "b.png") gone.wait();
    return load(file);
  };
  click("batch_start");
  ASSERT_TRUE(wait_until([&] { return part<QTableWidget>("batch_table")->rowCount() == 1; }));
  EXPECT_TRUE(workbench->is_busy());
  EXPECT_EQ(text(0, 1), "a.png");
  EXPECT_TRUE(label("batch_remaining").contains("left")) << label("batch_remaining").toStdString();
  click("batch_cancel");
  EXPECT_FALSE(part<QPushButton>("batch_cancel")->isEnabled());
  go.set_value();
  ASSERT_TRUE(wait_until_idle());
  EXPECT_TRUE(label("batch_state").startsWith("Cancelled: 1 of 3 files done, 2 not finished."))
      << label("batch_state").toStdString();
  EXPECT_TRUE(part<QPushButton>("batch_start")->isEnabled());
  EXPECT_TRUE(opened.empty());
}

TEST_F(BatchPanelTest, AnOutputFolderThatCannotBeMadeIsTold) {
  write_picture("a.png", 4);
  prepare();
  type("batch_output_edit", folder.write("file", "no folder") / "below");
  click("batch_start");
  ASSERT_TRUE(wait_until_idle());
  EXPECT_TRUE(label("batch_state").startsWith("The batch did not run: No folder for the run"))
      << label("batch_state").toStdString();
}

TEST_F(BatchPanelTest, AFailedCaptureIsOpenedAtItsFailingStep) {
  write_picture("a.png", 4);
  ASSERT_TRUE(
      workbench->open_workflow(folder.write("needs_nir.yaml",
                                            "title: Needs NIR\n"
                                            "mask_operations:\n"
                                            "  - {op: threshold_range, params: {low: 0.5, high: 1.0}}\n"
                                            "  - {op: threshold_range, params: {band: NIR, low: 0.5, high: 1.0}}\n"
                                            "result_operations:\n"
                                            "  - op: area\n")));
  click("batch_images");
  type("batch_input_edit", input);
  type("batch_output_edit", output);
  click("batch_start");
  ASSERT_TRUE(wait_until_idle());
  ASSERT_EQ(text(0, 2), "✗ Failed");
  std::vector<int> wanted;
  QObject::connect(workbench.get(), &ui::Workbench::step_edit_wanted, panel.get(),
                   [&](int index) { wanted.push_back(index); });
  auto* table = part<QTableWidget>("batch_table");
  QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier,
                    table->visualItemRect(table->item(0, 1)).center());
  EXPECT_TRUE(part<QLabel>("batch_table_sentence")->text().contains("NIR"));
  click("batch_look");
  ASSERT_TRUE(wait_until([&] { return !wanted.empty(); }));
  EXPECT_EQ(wanted, std::vector<int>{1}) << "the second step fails";
  EXPECT_EQ(state().processing_mode, "analysis");
  EXPECT_EQ(state().current_file, input / "a.png");
}

}  // namespace
}  // namespace orvexa::test
