#include "orvexa/ui/filewatcher_mode/watcher_panel.h"

#include "orvexa/ui/text.h"
#include "support/captures.h"
#include "ui/support/panel_test.h"
#include "ui/support/typing.h"

namespace orvexa::test {
namespace {

using ui::filewatcher_mode::WatcherPanel;
namespace fs = std::filesystem;

class WatcherPanelTest : public PanelTest<WatcherPanel> {
 protected:
  WatcherPanelTest() : input(folder / "arriving"), output(folder / "results") {
    fs::create_directories(input);
    workflow = folder.write("bright.yaml",
                            "title: Bright half\n"
                            "mask_operations:\n"
                            "  - {op: threshold_range, params: {low: 0.5, high: 1.0}}\n"
                            "result_operations:\n"
                            "  - op: area\n");
    make_panel();
    workbench->set_mode("watcher");
  }
  void make_panel() {
    panel = std::make_unique<WatcherPanel>(*workbench);
    panel->opener = [this](const fs::path& path) {
      opened.push_back(path);
      return true;
    };
    controller().register_panel(*panel);
    panel->resize(1100, 700);
    panel->show();
    EXPECT_TRUE(QTest::qWaitForWindowActive(panel.get()));
  }
  void type(const char* name, const QString& text) const { paste_and_return(part<QLineEdit>(name), text); }
  void prepare() const {
    type("watcher_input_edit", ui::qt_path(input));
    type("watcher_output_edit", ui::qt_path(output));
    type("watcher_workflow_edit", ui::qt_path(workflow));
    auto* poll = part<QDoubleSpinBox>("watcher_poll_seconds");
    poll->setFocus();
    poll->selectAll();
    QTest::keyClicks(poll, "0.1");
    QTest::keyClick(poll, Qt::Key_Return);
  }
  /// As a camera's computer would: under another name first.
  void let_arrive(const std::string& name, const std::string& content) const {
    fs::rename(folder.write("draft", content), input / name);
  }
  static std::string picture() {
    cv::Mat pixels(6, 10, CV_8UC1, cv::Scalar(0));
    pixels.colRange(0, 4).setTo(cv::Scalar(255));
    const common::Bytes bytes = model::encode_png(model::Image(std::move(pixels)));
    return std::string(common::as_text(bytes));
  }
  [[nodiscard]] int row_of(const QString& file) const {
    auto* table = part<QTableWidget>("watcher_table");
    for (int row = 0; row < table->rowCount(); ++row) {
      if (table->item(row, 1)->text() == file) return row;
    }
    return -1;
  }
  [[nodiscard]] QString text(const QString& file, int column) const {
    const int row = row_of(file);
    return row < 0 ? QString() : part<QTableWidget>("watcher_table")->item(row, column)->text();
  }
  [[nodiscard]] QString label(const char* name) const { return part<QLabel>(name)->text(); }

  fs::path input;
  fs::path output;
  fs::path workflow;
  std::vector<fs::path> opened;
};

TEST_F(WatcherPanelTest, SaysWhatIsMissing) {
  workbench->refresh();
  EXPECT_FALSE(part<QPushButton>("watcher_start")->isEnabled());
  EXPECT_TRUE(label("watcher_missing").contains("Choose the folder to watch"));
  type("watcher_input_edit", ui::qt_path(folder / "nowhere"));
  EXPECT_TRUE(label("watcher_missing").contains("is not there")) << label("watcher_missing").toStdString();
  prepare();
  EXPECT_TRUE(label("watcher_missing").isEmpty()) << label("watcher_missing").toStdString();
  EXPECT_TRUE(part<QPushButton>("watcher_start")->isEnabled());
  EXPECT_FALSE(part<QPushButton>("watcher_stop")->isEnabled());
}

TEST_F(WatcherPanelTest, APictureThatArrivesIsMeasuredAndTheWatcherStops) {
  prepare();
  click("watcher_start");
  ASSERT_TRUE(wait_until([&] { return label("watcher_state").startsWith("Watching since"); }));
  ASSERT_TRUE(wait_until_idle());
  EXPECT_TRUE(state().watcher_running);
  EXPECT_FALSE(part<QLineEdit>("watcher_input_edit")->isEnabled());
  let_arrive("leaf.png", picture());
  ASSERT_TRUE(wait_until([&] { return text("leaf.png", 2) == "✓ Done"; })) << text("leaf.png", 2).toStdString();
  EXPECT_EQ(text("leaf.png", 4), "leaf");
  EXPECT_TRUE(fs::exists(output / "leaf" / "metrics.json"));
  let_arrive("torn.png", "no picture");
  ASSERT_TRUE(wait_until([&] { return text("torn.png", 2) == "✗ Failed"; })) << text("torn.png", 2).toStdString();
  EXPECT_TRUE(text("torn.png", 3).contains("torn.png"));
  EXPECT_TRUE(wait_until([&] { return label("watcher_numbers").startsWith("1 done, 1 failed"); }))
      << label("watcher_numbers").toStdString();
  EXPECT_EQ(QApplication::activeModalWidget(), nullptr);

  auto* table = part<QTableWidget>("watcher_table");
  const int row = row_of("leaf.png");
  table->setFocus();
  QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier,
                    table->visualItemRect(table->item(row, 1)).center());
  click("watcher_open_results");
  EXPECT_EQ(opened.back(), output / "leaf");

  click("watcher_stop");
  ASSERT_TRUE(wait_until_idle());
  EXPECT_FALSE(state().watcher_running);
  EXPECT_EQ(label("watcher_state"), "Not watching.");
  EXPECT_TRUE(part<QPushButton>("watcher_start")->isEnabled());
}

TEST_F(WatcherPanelTest, AFolderThatAnotherWatcherHasIsTold) {
  prepare();
  click("watcher_start");
  ASSERT_TRUE(wait_until_idle());
  ui::Workbench other;
  WatcherPanel second(other);
  other.controller().register_panel(second);
  other.set_mode("watcher");
  other.refresh();
  second.show();
  auto* start = second.findChild<QPushButton*>("watcher_start");
  ASSERT_TRUE(start->isEnabled()) << "the settings are remembered";
  QTest::mouseClick(start, Qt::LeftButton);
  ASSERT_TRUE(wait_until([&] { return !other.is_busy(); }));
  EXPECT_TRUE(second.findChild<QLabel*>("watcher_problem")->text().startsWith("It could not be started: "))
      << second.findChild<QLabel*>("watcher_problem")->text().toStdString();
  EXPECT_FALSE(other.controller().state.watcher_running);
}

TEST_F(WatcherPanelTest, TheCurrentWorkflowIsSavedAndUsed) {
  ASSERT_TRUE(workbench->open_workflow(workflow));
  workbench->set_title("Changed");
  click("watcher_use_current");
  EXPECT_EQ(part<QLineEdit>("watcher_workflow_edit")->text(), ui::qt_path(workflow));
  EXPECT_NE(read_all(workflow).find("Changed"), std::string::npos);
  EXPECT_FALSE(workbench->has_unsaved_changes());
}

TEST_F(WatcherPanelTest, AWorkflowWithoutAFileIsAskedAbout) {
  workbench->new_workflow();
  panel->ask_where_to_save = [&]() -> std::optional<fs::path> { return folder / "fresh.yaml"; };
  click("watcher_use_current");
  EXPECT_TRUE(fs::exists(folder / "fresh.yaml"));
  EXPECT_EQ(part<QLineEdit>("watcher_workflow_edit")->text(), ui::qt_path(folder / "fresh.yaml"));
}

TEST_F(WatcherPanelTest, AProblemIsShownUntilItIsSolved) {
  prepare();
  click("watcher_start");
  ASSERT_TRUE(wait_until_idle());
  const fs::path away = folder / "away.yaml";
  fs::rename(workflow, away);
  ASSERT_TRUE(wait_until([&] { return label("watcher_problem").contains("captures wait"); }));
  fs::rename(away, workflow);
  EXPECT_TRUE(wait_until([&] { return label("watcher_problem").isEmpty(); }));
}

}  // namespace
}  // namespace orvexa::test
