#include "orvexa/ui/analysis_mode/result_operation_panel.h"

#include <gmock/gmock.h>

#include <QStyle>

#include "orvexa/ui/editors/number_box.h"
#include "orvexa/ui/text.h"
#include "ui/support/block_capture.h"

namespace orvexa::test {
namespace {

using testing::HasSubstr;
using ui::analysis_mode::ResultOperationPanel;
using Keys = std::vector<std::string>;

class ResultOperationPanelTest : public DesktopTest {
 protected:
  ResultOperationPanelTest() : panel(*workbench) {
    controller().register_panel(panel);
    panel.resize(380, 640);
    panel.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&panel));
    open_capture(write_block_capture(folder));
    workbench->apply_mask("threshold_auto", common::Value::object());  // shapes are measured of a mask
    EXPECT_TRUE(wait_until_idle());
    workbench->set_result_operations({"area"});
  }
  ~ResultOperationPanelTest() override { workbench.reset(); }

  template <typename Widget>
  Widget* find(const char* name) const {
    return panel.findChild<Widget*>(name);
  }
  QTreeWidget& list() const { return *find<QTreeWidget>("result_operations"); }
  QTreeWidgetItem& item(const std::string& key) const {
    for (QTreeWidgetItemIterator place(&list()); *place != nullptr; ++place) {
      if ((*place)->data(0, Qt::UserRole) == ui::to_qt(key)) return **place;
    }
    throw std::out_of_range(key);
  }
  bool is_ticked(const std::string& key) const { return item(key).checkState(0) == Qt::Checked; }

  /// Clicks on the box before the name.
  void click_box(const std::string& key) const {
    list().scrollToItem(&item(key));
    const QRect row = list().visualItemRect(&item(key));
    const int half_box = list().style()->pixelMetric(QStyle::PM_IndicatorWidth) / 2;
    QTest::mouseClick(list().viewport(), Qt::LeftButton, Qt::NoModifier,
                      QPoint(row.left() + half_box + 3, row.center().y()));
  }
  void click_name(const std::string& key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) const {
    list().scrollToItem(&item(key));
    const QRect row = list().visualItemRect(&item(key));
    QTest::mouseClick(list().viewport(), Qt::LeftButton, modifiers, QPoint(row.left() + 60, row.center().y()));
  }
  void click(const char* button) const { QTest::mouseClick(find<QToolButton>(button), Qt::LeftButton); }

  Keys measured() const {
    Keys keys;
    for (const auto& entry : state().current_workflow->result_operations) keys.push_back(entry.op);
    return keys;
  }

  ResultOperationPanel panel;
};

TEST_F(ResultOperationPanelTest, TicksAreThoseOfTheWorkflow) {
  EXPECT_TRUE(is_ticked("area"));
  EXPECT_FALSE(is_ticked("centroid"));
  workbench->set_result_operations({"centroid"});
  EXPECT_FALSE(is_ticked("area"));
  EXPECT_TRUE(is_ticked("centroid"));
  workbench->undo();
  EXPECT_TRUE(is_ticked("area"));
  EXPECT_FALSE(is_ticked("centroid"));
}

TEST_F(ResultOperationPanelTest, TickingWithTheMouseChangesTheWorkflowInTheOrderOfTheList) {
  click_box("band_statistics");
  click_box("perimeter");
  EXPECT_EQ(measured(), (Keys{"area", "perimeter", "band_statistics"}));
  click_box("area");
  EXPECT_EQ(measured(), (Keys{"perimeter", "band_statistics"}));
}

TEST_F(ResultOperationPanelTest, TickingWithTheKeyboardChangesTheWorkflow) {
  auto* search = find<QLineEdit>("find_operation");
  search->setFocus();
  QTest::keyClicks(search, "perimeter");
  EXPECT_TRUE(item("area").isHidden());
  QTest::keyClick(search, Qt::Key_Down);
  ASSERT_TRUE(list().hasFocus());
  while (list().currentItem() != &item("perimeter")) QTest::keyClick(&list(), Qt::Key_Down);
  QTest::keyClick(&list(), Qt::Key_Space);
  EXPECT_EQ(measured(), (Keys{"area", "perimeter"}));
}

TEST_F(ResultOperationPanelTest, AllTicksWhatCanBeMeasuredAndNoneTakesItBack) {
  click("tick_all");
  const Keys all = measured();
  EXPECT_THAT(all, testing::Contains("band_statistics"));
  EXPECT_THAT(all, testing::Not(testing::Contains("psii")));
  click("tick_none");
  EXPECT_EQ(measured(), Keys());
  workbench->undo();
  EXPECT_EQ(measured(), all);
}

TEST_F(ResultOperationPanelTest, GivenASearch_ThenAllMeansWhatIsListed) {
  QTest::keyClicks(find<QLineEdit>("find_operation"), "hull");
  click("tick_all");
  EXPECT_THAT(measured(), testing::AllOf(testing::Contains("area"), testing::Contains("convex_hull")));
  EXPECT_THAT(measured(), testing::Not(testing::Contains("band_statistics")));
}

TEST_F(ResultOperationPanelTest, OnlyTheSelectedLeavesTheSelectedLines) {
  click("tick_all");
  click_name("centroid");
  click_name("perimeter", Qt::ControlModifier);
  click("tick_selected");
  EXPECT_EQ(measured(), (Keys{"centroid", "perimeter"}));
}

TEST_F(ResultOperationPanelTest, WhatTheCaptureDoesNotAllowCannotBeTickedAndSaysWhy) {
  click_box("psii");
  EXPECT_FALSE(is_ticked("psii"));
  EXPECT_EQ(measured(), Keys{"area"});
  const auto* reason = find<QLabel>("operation_reason");
  EXPECT_TRUE(reason->isVisible());
  EXPECT_THAT(reason->text().toStdString(), testing::AllOf(HasSubstr("Not available"), HasSubstr("FLU")));
  EXPECT_THAT(item("psii").text(0).toStdString(), HasSubstr("FLU"));
}

TEST_F(ResultOperationPanelTest, RegionsAreAskedForUntilAStepMakesThem) {
  const auto needs_regions = [&] { return !item("neighbours").flags().testFlag(Qt::ItemIsUserCheckable); };
  EXPECT_TRUE(needs_regions());
  workbench->apply_mask("keep_regions", {{"make_regions", true}});
  ASSERT_TRUE(wait_until_idle());
  EXPECT_FALSE(needs_regions());
}

TEST_F(ResultOperationPanelTest, AParameterIsChangedAndAWrongOneRefused) {
  click_box("histogram");
  click_name("histogram");
  auto* bins = find<ui::NumberBox>("bins");
  ASSERT_NE(bins, nullptr);
  EXPECT_EQ(bins->text(), "256");
  const auto type = [&](const char* text) {
    bins->setFocus();
    bins->selectAll();
    QTest::keyClicks(bins, text);
  };
  const auto bins_of_workflow = [&] { return state().current_workflow->result_operations.back().params.at("bins"); };
  type("64");
  EXPECT_EQ(bins_of_workflow(), 64);
  EXPECT_EQ(item("histogram").text(0), "Histogram\nbins 64");
  workbench->undo();
  EXPECT_EQ(bins->text(), "256") << "figures typed in one go are one step";
  type("1");
  EXPECT_EQ(bins_of_workflow(), 256);
  const auto* problem = find<QLabel>("parameter_problem");
  EXPECT_TRUE(problem->isVisible());
  EXPECT_THAT(problem->text().toStdString(), HasSubstr("bins"));
  type("32");
  EXPECT_EQ(bins_of_workflow(), 32);
  EXPECT_FALSE(problem->isVisible());
}

TEST_F(ResultOperationPanelTest, AnUnknownOperationOfAFileIsKeptUntilItIsUnticked) {
  const auto file = folder.write(
      "new.yaml",
      "title: new\nmask_operations:\n  - op: threshold_auto\nresult_operations:\n  - op: area\n  - op: weight\n");
  ASSERT_TRUE(workbench->open_workflow(file)) << state().error.value_or("");
  click_box("perimeter");
  EXPECT_EQ(measured(), (Keys{"area", "perimeter", "weight"}));
  click_box("weight");
  EXPECT_EQ(measured(), (Keys{"area", "perimeter"}));
  EXPECT_TRUE(item("weight").isHidden());
  workbench->undo();
  EXPECT_FALSE(item("weight").isHidden());
  EXPECT_TRUE(is_ticked("weight"));
}

}  // namespace
}  // namespace orvexa::test
