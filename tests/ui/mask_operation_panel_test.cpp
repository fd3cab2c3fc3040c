#include "orvexa/ui/analysis_mode/mask_operation_panel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>
#include <optional>

#include "ui/support/desktop.h"
#include "ui/support/edit_parameter.h"

namespace orvexa::test {
namespace {

using common::Value;
using testing::HasSubstr;
using testing::StartsWith;

/// 100 x 100 pixels: 5000 of 10, 3000 of 100 and 2000 of 200.
model::Image three_levels() {
  cv::Mat pixels(100, 100, CV_8UC1, cv::Scalar(10));
  pixels(cv::Rect(0, 50, 100, 30)).setTo(100);
  pixels(cv::Rect(0, 80, 100, 20)).setTo(200);
  return model::Image(std::move(pixels));
}

class MaskOperationPanelTest : public DesktopTest {
 protected:
  MaskOperationPanelTest() {
    panel = std::make_unique<ui::analysis_mode::MaskOperationPanel>(*workbench);
    controller().register_panel(*panel);
    panel->resize(360, 800);
    panel->show();
    panel->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowActive(panel.get()));
    workbench->refresh();
  }
  // As in the window: the workbench goes before the panels.
  ~MaskOperationPanelTest() override { workbench.reset(); }

  template <typename T>
  T& find(const char* name) const {
    T* found = panel->findChild<T*>(name);
    if (found == nullptr) throw std::logic_error(std::string("There is no ") + name);
    return *found;
  }
  std::string text_of(const char* label) const { return find<QLabel>(label).text().toStdString(); }

  QTreeWidgetItem* item_of(const std::string& key) const {
    for (QTreeWidgetItemIterator each(&find<QTreeWidget>("mask_list")); *each != nullptr; ++each) {
      if ((*each)->data(0, Qt::UserRole).toString().toStdString() == key) return *each;
    }
    return nullptr;
  }
  void choose(const std::string& key) const {
    auto& list = find<QTreeWidget>("mask_list");
    QTreeWidgetItem* item = item_of(key);
    list.scrollToItem(item);
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, list.visualItemRect(item).center());
  }
  ui::ParameterEditor& editor(const std::string& parameter) const {
    return *find<ui::ParameterForm>("parameter_form").editor(parameter);
  }
  void type_number(const std::string& parameter, const QString& text) const {
    type_over(control<ui::NumberBox>(editor(parameter), QString::fromStdString(parameter)), text);
  }
  void click(const char* button) const { QTest::mouseClick(&find<QPushButton>(button), Qt::LeftButton); }
  [[nodiscard]] const auto& steps() const { return state().current_workflow->mask_operations; }
  [[nodiscard]] std::size_t step_count() const { return state().current_workflow ? steps().size() : 0; }
  void open_three_levels() const { open_capture(write_image("levels.png", three_levels())); }
  bool wait_for_histogram() const {
    return wait_until([this] { return find<ui::HistogramView>("histogram").data().has_value(); });
  }
  bool wait_for_answer(const std::string& text) const {
    return wait_until([&] { return text_of("mask_answer").starts_with(text); });
  }

  std::unique_ptr<ui::analysis_mode::MaskOperationPanel> panel;
};

TEST_F(MaskOperationPanelTest, EveryParameterOfEveryOperationReachesTheWorkflowAsItWasSet) {
  // Operations on a mask need a step before them.
  workbench->apply_mask("roi_rect", Value::object());
  ASSERT_TRUE(wait_until_idle());
  int applied = 0;
  for (const model::MaskOperationInfo* info : controller().get_mask_operation_infos()) {
    for (const model::ParameterInfo& parameter : info->all_parameters()) {
      SCOPED_TRACE(info->key + ": " + parameter.name);
      choose(info->key);
      click("parameter_defaults");
      const Value expected = change_by_keys(editor(parameter.name));
      auto& apply = find<QPushButton>("mask_apply");
      if (!apply.isEnabled()) {
        // It may not be changed on its own; the sentence says so.
        EXPECT_THAT(text_of("parameter_problem"), StartsWith(info->key));
        EXPECT_TRUE(find<QLabel>("parameter_problem").isVisible());
        continue;
      }
      const std::size_t before = step_count();
      QTest::keyClick(panel.get(), Qt::Key_Return, Qt::ControlModifier);
      ASSERT_TRUE(wait_until_idle());
      ASSERT_EQ(step_count(), before + 1) << state().error.value_or("");
      EXPECT_EQ(steps().back().op, info->key);
      EXPECT_EQ(steps().back().params.at(parameter.name), expected);
      ++applied;
    }
  }
  EXPECT_GT(applied, 100);
}

TEST_F(MaskOperationPanelTest, AnOperationIsFoundAndAppliedByKeysAlone) {
  open_three_levels();
  QTest::keyClick(panel.get(), Qt::Key_M, Qt::ControlModifier | Qt::ShiftModifier);
  type("threshold_range");
  EXPECT_TRUE(item_of("erode")->isHidden());
  EXPECT_TRUE(item_of("erode")->parent()->isHidden());
  EXPECT_FALSE(item_of("threshold_range")->isHidden());
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
  ASSERT_TRUE(panel->findChild<ui::ParameterForm*>("parameter_form"));
  for (int i = 0; i < 60 && QApplication::focusWidget()->objectName() != "low"; ++i) {
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
  }
  ASSERT_EQ(QApplication::focusWidget()->objectName(), "low");
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_A, Qt::ControlModifier);
  type("0.5");
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return, Qt::ControlModifier);
  ASSERT_TRUE(wait_until_idle());
  ASSERT_EQ(step_count(), 1U);
  EXPECT_EQ(steps().back().op, "threshold_range");
  EXPECT_EQ(steps().back().params.at("low"), 0.5);
  ASSERT_NE(workbench->history().undo_step(), nullptr);
  EXPECT_EQ(workbench->history().undo_step()->text.toStdString(), "add Threshold: range");
  EXPECT_FALSE(panel->findChild<ui::ParameterForm*>("parameter_form"));
}

TEST_F(MaskOperationPanelTest, TheSearchFindsAMethodByItsName) {
  type_over(find<QLineEdit>("mask_search"), "otsu");
  EXPECT_FALSE(item_of("threshold_auto")->isHidden());
  EXPECT_TRUE(item_of("roi_rect")->isHidden());
}

TEST_F(MaskOperationPanelTest, AnOperationThatCannotBeUsedSaysWhy) {
  open_three_levels();
  EXPECT_THAT(item_of("erode")->toolTip(0).toStdString(), HasSubstr("It needs"));
  EXPECT_TRUE(item_of("erode")->font(0).italic());
  EXPECT_FALSE(item_of("threshold_range")->font(0).italic());
  choose("erode");
  EXPECT_TRUE(find<QLabel>("mask_reason").isVisible());
  EXPECT_THAT(text_of("mask_reason"), StartsWith("It needs"));
  EXPECT_FALSE(find<QPushButton>("mask_apply").isEnabled());
  choose("threshold_range");
  EXPECT_FALSE(find<QLabel>("mask_reason").isVisible());
}

TEST_F(MaskOperationPanelTest, ALimitDraggedInTheHistogramIsTheCountUnderItAndThePreviewCounts) {
  open_three_levels();
  choose("threshold_range");
  ASSERT_TRUE(wait_for_histogram());
  auto& view = find<ui::HistogramView>("histogram");
  const auto& data = *view.data();
  ASSERT_EQ(data.whole.size(), 191U);  // counts 10 to 200
  EXPECT_EQ(data.whole[0], 5000);
  EXPECT_EQ(data.whole[90], 3000);
  EXPECT_EQ(data.whole[190], 2000);
  ASSERT_TRUE(wait_for_answer("10,000 pixels, 100.0 %"));

  // The lower limit is 0 and waits at the left end.
  const int y = view.height() / 2;
  const QPoint from(static_cast<int>(view.x_of(0.0)) + 1, y);
  const QPoint to(static_cast<int>(view.x_of(60 / 255.0)), y);
  QTest::mousePress(&view, Qt::LeftButton, {}, from);
  QTest::mouseMove(&view, (from + to) / 2);
  QTest::mouseMove(&view, to);
  QTest::mouseRelease(&view, Qt::LeftButton, {}, to);

  // A pixel of the view is less than a count's width away, and nothing has a count near 60.
  const double low = editor("low").value().get<double>();
  EXPECT_NEAR(low * 255, 60, 2);
  EXPECT_NEAR(low * 255, std::round(low * 255), 255e-6);
  EXPECT_TRUE(wait_for_answer("5,000 pixels, 50.0 %"));

  // By keys, past the second level: counts 101 and above.
  view.setFocus();
  for (int i = 0; i < 100 && editor("low").value().get<double>() < 100.5 / 255; ++i) {
    QTest::keyClick(&view, Qt::Key_Right);
  }
  EXPECT_TRUE(wait_for_answer("2,000 pixels, 20.0 %"));
}

TEST_F(MaskOperationPanelTest, TheHistogramCountsInsideTheMaskOfTheStepsBefore) {
  open_three_levels();
  workbench->apply_mask("roi_rect", Value{{"rect", {0.5, 0.25, 1.0, 0.5}}});  // the upper half: 5000 of 10
  ASSERT_TRUE(wait_until_idle());
  choose("threshold_range");
  ASSERT_TRUE(wait_for_histogram());
  const auto& data = *find<ui::HistogramView>("histogram").data();
  EXPECT_EQ(data.inside[0], 5000);
  EXPECT_EQ(data.inside[90], 0);
  EXPECT_EQ(data.whole[90], 3000);
}

TEST_F(MaskOperationPanelTest, AWrongValueIsNamedInASentenceAndNothingCanBeApplied) {
  open_three_levels();
  choose("threshold_range");
  type_number("low", "abc");
  EXPECT_THAT(text_of("parameter_problem"), HasSubstr("parameter \"low\" is \"abc\", but it must be a number"));
  EXPECT_FALSE(find<QPushButton>("mask_apply").isEnabled());
  type_number("low", "2");
  EXPECT_THAT(text_of("parameter_problem"), HasSubstr("must not be above \"high\""));
  type_number("low", "0.25");
  EXPECT_FALSE(find<QLabel>("parameter_problem").isVisible());
  EXPECT_TRUE(find<QPushButton>("mask_apply").isEnabled());
}

TEST_F(MaskOperationPanelTest, AStepIsEditedInPlaceAndUndone) {
  open_three_levels();
  choose("threshold_range");
  type_number("low", "0.25");
  click("mask_apply");
  ASSERT_TRUE(wait_until_idle());
  workbench->apply_mask("fill_holes", Value::object());
  ASSERT_TRUE(wait_until_idle());

  workbench->want_edit(0);
  EXPECT_EQ(text_of("mask_title"), "Edit step 1: Threshold: range");
  EXPECT_FALSE(find<QPushButton>("mask_apply").isVisible());
  EXPECT_EQ(editor("low").value(), 0.25);
  EXPECT_TRUE(wait_for_answer("5,000 pixels, 50.0 %"));
  type_number("low", "0.5");
  EXPECT_TRUE(wait_for_answer("2,000 pixels, 20.0 %"));
  click("mask_save");
  EXPECT_EQ(steps().at(0).params.at("low"), 0.5);
  EXPECT_EQ(step_count(), 2U);
  EXPECT_FALSE(panel->findChild<ui::ParameterForm*>("parameter_form"));
  EXPECT_FALSE(workbench->previewer().answer());

  workbench->undo();
  EXPECT_EQ(steps().at(0).params.at("low"), 0.25);
}

TEST_F(MaskOperationPanelTest, ACancelledEditLeavesTheStepAsItWas) {
  open_three_levels();
  workbench->apply_mask("threshold_range", Value{{"low", 0.25}});
  ASSERT_TRUE(wait_until_idle());
  workbench->want_edit(0);
  type_number("low", "0.5");
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
  EXPECT_EQ(steps().at(0).params.at("low"), 0.25);
  EXPECT_FALSE(panel->findChild<ui::ParameterForm*>("parameter_form"));
}

TEST_F(MaskOperationPanelTest, GivenAnEditedStep_WhenItIsGone_ThenTheEditEnds) {
  open_three_levels();
  workbench->apply_mask("threshold_range", Value::object());
  ASSERT_TRUE(wait_until_idle());
  workbench->want_edit(0);
  workbench->undo();
  EXPECT_FALSE(panel->findChild<ui::ParameterForm*>("parameter_form"));
  EXPECT_TRUE(find<QTreeWidget>("mask_list").isVisible());
}

TEST_F(MaskOperationPanelTest, WhatWasLastAppliedIsOfferedAgain) {
  open_three_levels();
  choose("threshold_range");
  type_number("low", "0.125");
  click("mask_apply");
  ASSERT_TRUE(wait_until_idle());
  choose("threshold_range");
  EXPECT_EQ(editor("low").value(), 0.125);
  click("parameter_defaults");
  EXPECT_EQ(editor("low").value(), 0.0);
  click("parameter_last_used");
  EXPECT_EQ(editor("low").value(), 0.125);
}

TEST_F(MaskOperationPanelTest, ThePreviewEndsWithItsTickAndWhenThePanelIsHidden) {
  open_three_levels();
  choose("threshold_range");
  ASSERT_TRUE(wait_for_answer("10,000 pixels"));
  auto& tick = find<QCheckBox>("mask_preview");
  QTest::keyClick(&tick, Qt::Key_Space);
  EXPECT_FALSE(workbench->previewer().answer());
  EXPECT_EQ(text_of("mask_answer"), "");
  QTest::keyClick(&tick, Qt::Key_Space);
  ASSERT_TRUE(wait_for_answer("10,000 pixels"));
  panel->hide();
  EXPECT_FALSE(workbench->previewer().answer());
  panel->show();
  EXPECT_TRUE(wait_for_answer("10,000 pixels"));
}

TEST_F(MaskOperationPanelTest, GivenAChosenOperation_WhenAnotherCaptureIsOpened_ThenItIsPreviewedAnew) {
  open_three_levels();
  choose("threshold_range");
  type_number("low", "0.5");
  ASSERT_TRUE(wait_for_answer("2,000 pixels, 20.0 %"));
  open_capture(write_image("bright.png", model::Image(cv::Mat(10, 10, CV_8UC1, cv::Scalar(200)))));
  EXPECT_TRUE(wait_for_answer("100 pixels, 100.0 %"));
  ASSERT_TRUE(wait_for_histogram());
  EXPECT_EQ(find<ui::HistogramView>("histogram").data()->whole, std::vector<std::int64_t>{100});
}

TEST_F(MaskOperationPanelTest, AFailingPreviewSaysWhy) {
  open_three_levels();
  choose("threshold_range");
  type_over(*control<QComboBox>(editor("band"), "band").lineEdit(), "MSP.NIR");
  EXPECT_TRUE(wait_for_answer("No preview: "));
}

}  // namespace
}  // namespace orvexa::test
