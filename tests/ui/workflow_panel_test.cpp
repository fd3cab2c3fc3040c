#include "orvexa/ui/analysis_mode/workflow_panel.h"

#include <gmock/gmock.h>

#include "orvexa/ui/analysis_mode/step_delegate.h"
#include "orvexa/ui/text.h"
#include "ui/support/block_capture.h"

namespace orvexa::test {
namespace {

using testing::HasSubstr;
using ui::analysis_mode::StepDelegate;
using ui::analysis_mode::WorkflowPanel;

class WorkflowPanelTest : public DesktopTest {
 protected:
  WorkflowPanelTest() : panel(*workbench) {
    controller().register_panel(panel);
    panel.resize(380, 320);
    panel.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&panel));
  }
  ~WorkflowPanelTest() override { workbench.reset(); }

  template <typename Widget>
  Widget* find(const char* name) const {
    return panel.findChild<Widget*>(name);
  }
  QListWidget& list() const { return *find<QListWidget>("workflow_steps"); }
  std::string text(int row) const { return list().item(row)->text().toStdString(); }
  QImage thumbnail(int row) const { return list().item(row)->data(StepDelegate::thumbnail_role).value<QImage>(); }
  std::string tip(const char* button) const { return find<QToolButton>(button)->toolTip().toStdString(); }
  std::string problems() const {
    const auto* label = find<QLabel>("workflow_problems");
    return label->isVisible() ? label->text().toStdString() : std::string();
  }
  void click_step(int row) const {
    QTest::mouseClick(list().viewport(), Qt::LeftButton, Qt::NoModifier,
                      list().visualItemRect(list().item(row)).center());
  }
  void click(const char* button) const { QTest::mouseClick(find<QToolButton>(button), Qt::LeftButton); }

  /// The block of 40 x 30 pixels, and 38 x 28 = 1,064 of it after a step that takes a pixel off each side.
  void open_block_and_erode() {
    open_capture(write_block_capture(folder));
    workbench->apply_mask("threshold_auto", common::Value::object());
    ASSERT_TRUE(wait_until_idle());
    workbench->apply_mask("erode", {{"shape", "square"}, {"radius", 1}});
    ASSERT_TRUE(wait_until_idle());
  }

  WorkflowPanel panel;
};

TEST_F(WorkflowPanelTest, StepsShowTheirNumberNameAndPixels) {
  EXPECT_TRUE(find<QLabel>("workflow_hint")->isVisible());
  open_block_and_erode();
  ASSERT_EQ(list().count(), 2);
  EXPECT_THAT(text(0), testing::StartsWith("1. Threshold: automatic, 1,200 px (15 %)"));
  EXPECT_THAT(text(1), testing::StartsWith("2. Erode, 1,064 px (13.3 %)"));
  // 96 x 76: the block begins at a fifth of the width and an eighth of the height.
  const QImage picture = thumbnail(0);
  ASSERT_EQ(picture.width(), 96);
  EXPECT_EQ(qGray(picture.pixel(40, 24)), 255);
  EXPECT_EQ(qGray(picture.pixel(5, 5)), 0);
  EXPECT_EQ(problems(), "");
}

TEST_F(WorkflowPanelTest, GivenAStepThatIsRemovedWithDelete_WhenUndone_ThenPicturesAndNumbersAreAsBefore) {
  open_block_and_erode();
  const std::string first = text(0);
  const std::string second = text(1);
  const QImage picture = thumbnail(0);
  click_step(0);
  QTest::keyClick(&list(), Qt::Key_Delete);
  ASSERT_TRUE(wait_until_idle());
  ASSERT_EQ(list().count(), 1);
  EXPECT_THAT(tip("undo"), testing::StartsWith("Undo: remove Threshold: automatic"));
  click("undo");
  ASSERT_TRUE(wait_until_idle());
  ASSERT_EQ(list().count(), 2);
  EXPECT_EQ(text(0), first);
  EXPECT_EQ(text(1), second);
  EXPECT_EQ(thumbnail(0), picture);
  EXPECT_THAT(tip("redo"), testing::StartsWith("Redo: remove Threshold: automatic"));
  click("redo");
  EXPECT_EQ(list().count(), 1);
}

TEST_F(WorkflowPanelTest, UndoingEverythingLeavesNothingToUndo) {
  open_block_and_erode();
  EXPECT_THAT(tip("undo"), testing::StartsWith("Undo: add Erode"));
  click("undo");
  EXPECT_THAT(tip("undo"), testing::StartsWith("Undo: add Threshold: automatic"));
  click("undo");
  EXPECT_EQ(list().count(), 0);
  EXPECT_FALSE(find<QToolButton>("undo")->isEnabled());
}

TEST_F(WorkflowPanelTest, ReturnAndADoubleClickAskForAnEditor) {
  open_block_and_erode();
  const QSignalSpy wanted(workbench.get(), &ui::Workbench::step_edit_wanted);
  click_step(1);
  QTest::keyClick(&list(), Qt::Key_Return);
  ASSERT_EQ(wanted.count(), 1);
  EXPECT_EQ(wanted[0][0].toInt(), 1);
  click_step(0);  // the first of the two clicks
  QTest::mouseDClick(list().viewport(), Qt::LeftButton, Qt::NoModifier, list().visualItemRect(list().item(0)).center());
  ASSERT_EQ(wanted.count(), 2);
  EXPECT_EQ(wanted[1][0].toInt(), 0);
}

TEST_F(WorkflowPanelTest, ASelectedStepIsShownInTheViewerAndAgainAfterItChanged) {
  open_block_and_erode();
  std::vector<std::string> contexts;
  std::optional<model::Image> shown;
  const controller::EventConnection connection = controller().events.image_selected.connect(
      [&](const std::string& context, const std::string&, const model::ImageEntry& entry) {
        contexts.push_back(context);
        shown = entry.pixels();
      });
  list().setFocus();
  click_step(0);
  EXPECT_EQ(contexts, std::vector<std::string>{"Mask 1: Threshold: automatic > GRY"});
  QTest::keyClick(&list(), Qt::Key_Down);
  ASSERT_EQ(contexts.size(), 2u);
  EXPECT_EQ(contexts.back(), "Mask 2: Erode > GRY");
  EXPECT_EQ(cv::countNonZero(shown->read_only()), 38 * 28);
  EXPECT_EQ(workbench->edit_mask(1, {{"shape", "square"}, {"radius", 2}}), std::nullopt);
  ASSERT_TRUE(wait_until_idle());
  EXPECT_EQ(contexts.back(), "Mask 2: Erode > GRY");
  EXPECT_EQ(cv::countNonZero(shown->read_only()), 36 * 26);
  EXPECT_THAT(text(1), HasSubstr("radius 2"));
}

TEST_F(WorkflowPanelTest, GivenACaptureOnWhichAStepFails_WhenOpened_ThenTheStepIsNamedAndSelected) {
  const auto file = folder.write("bands.yaml",
                                 "title: bands\nmask_operations:\n"
                                 "  - op: threshold_auto\n"
                                 "  - op: threshold_auto\n    params: {band: NIR}\n"
                                 "  - op: erode\n");
  ASSERT_TRUE(workbench->open_workflow(file)) << state().error.value_or("");
  open_capture(write_block_capture(folder));
  ASSERT_EQ(list().count(), 3);
  EXPECT_EQ(list().currentRow(), 1);
  EXPECT_THAT(text(1), testing::AllOf(HasSubstr("Failed"), HasSubstr("NIR")));
  EXPECT_THAT(text(2), HasSubstr("Not reached"));
  EXPECT_THAT(problems(), testing::AllOf(HasSubstr("Step 2, Threshold: automatic"), HasSubstr("NIR")));
}

TEST_F(WorkflowPanelTest, WhatIsWrongWithTheWorkflowItselfIsSaidWithoutACapture) {
  const auto file = folder.write("wrong.yaml",
                                 "title: wrong\nmask_operations:\n  - op: treshold_auto\n"
                                 "result_operations:\n  - op: aera\n");
  ASSERT_TRUE(workbench->open_workflow(file)) << state().error.value_or("");
  EXPECT_THAT(problems(), testing::AllOf(HasSubstr("threshold_auto"), HasSubstr("\"area\"")));
  EXPECT_THAT(text(0), HasSubstr("Wrong"));
}

TEST_F(WorkflowPanelTest, TheTitleIsTakenOverAndCanBeUndone) {
  open_capture(write_block_capture(folder));
  auto* title = find<QLineEdit>("workflow_title");
  const std::string before = state().current_workflow->title;
  title->selectAll();
  QTest::keyClicks(title, "leaves");
  QTest::keyClick(title, Qt::Key_Return);
  EXPECT_EQ(state().current_workflow->title, "leaves");
  EXPECT_THAT(tip("undo"), HasSubstr("leaves"));
  click("undo");
  EXPECT_EQ(title->text().toStdString(), before);
}

TEST_F(WorkflowPanelTest, OpenAndSaveAreAskedOfTheWindow) {
  open_capture(write_block_capture(folder));
  const QSignalSpy load(&panel, &WorkflowPanel::load_wanted);
  const QSignalSpy save(&panel, &WorkflowPanel::save_wanted);
  auto* title = find<QLineEdit>("workflow_title");
  title->selectAll();
  QTest::keyClicks(title, "typed");
  click("save_workflow");
  EXPECT_EQ(save.count(), 1);
  EXPECT_EQ(state().current_workflow->title, "typed");  // before the window writes the file
  click("load_workflow");
  EXPECT_EQ(load.count(), 1);
}

TEST_F(WorkflowPanelTest, GivenNew_ThenTheStepsAreGoneAndCanBeUndone) {
  open_block_and_erode();
  click("new_workflow");
  EXPECT_EQ(list().count(), 0);
  click("undo");
  EXPECT_EQ(list().count(), 2);
}

}  // namespace
}  // namespace orvexa::test
