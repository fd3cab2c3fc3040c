#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QToolButton>
#include <optional>

#include "orvexa/controller/controller.h"
#include "orvexa/ui/editors/parameter_form.h"
#include "ui/support/edit_parameter.h"

namespace orvexa::test {
namespace {

using common::Value;
using model::ParameterInfo;
using model::ParameterType;
using testing::HasSubstr;

/// A world with three bands and an image on which a test draws.
class DrawnWorld final : public ui::EditorContext {
 public:
  [[nodiscard]] std::vector<std::string> band_names() const override { return {"MSP.RED", "MSP.NIR", "CLR.RGB.G"}; }
  [[nodiscard]] std::vector<std::string> colour_image_names() const override { return {"CLR.RGB"}; }
  [[nodiscard]] std::filesystem::path workflow_folder() const override { return {}; }
  [[nodiscard]] bool can_pick() const override { return true; }
  void pick(const model::Interaction& interaction, int existing_count, Picked on_picked) override {
    mode = interaction.mode;
    existing = existing_count;
    picked = std::move(on_picked);
  }
  void tell(const QString& sentence) override { told = sentence.toStdString(); }

  std::string mode;
  int existing = -1;
  Picked picked;
  std::string told;
};

class Editors : public testing::Test {
 protected:
  /// A form with the focus.
  std::unique_ptr<ui::ParameterForm> form_of(const model::ParameterList& parameters) {
    auto form = std::make_unique<ui::ParameterForm>(parameters, world);
    form->resize(340, 600);
    form->show();
    form->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowActive(form.get()));
    return form;
  }

  /// Changes each parameter of an operation on its own and reads it back.
  void expect_all_can_be_changed(const std::string& key, const model::ParameterList& parameters) {
    for (const ParameterInfo& changed : parameters) {
      SCOPED_TRACE(key + ": " + changed.name);
      const auto form = form_of(parameters);
      const Value defaults = model::default_parameters(parameters);
      ASSERT_EQ(form->values(), defaults);
      int edits = 0;
      QObject::connect(form.get(), &ui::ParameterForm::edited, form.get(), [&](const std::string& name) {
        EXPECT_EQ(name, changed.name);
        ++edits;
      });

      const Value expected = change_by_keys(*form->editor(changed.name));

      EXPECT_GT(edits, 0);
      Value values = defaults;
      values[changed.name] = expected;
      EXPECT_EQ(form->values(), values);
      EXPECT_NE(expected, changed.default_value);
      EXPECT_NO_THROW(
          static_cast<void>(model::validate_parameters(key, std::span(&changed, 1), Value{{changed.name, expected}})));

      // The same values in another form: what is shown is what was set.
      ui::ParameterForm other(parameters, world);
      other.set_values(values);
      EXPECT_EQ(other.values(), values);
    }
  }

  DrawnWorld world;
  controller::Controller controller;
};

TEST_F(Editors, EveryParameterOfEveryMaskOperationCanBeChangedByKeysAndReadBack) {
  for (const model::MaskOperationInfo* info : controller.get_mask_operation_infos()) {
    expect_all_can_be_changed(info->key, info->all_parameters());
  }
}

TEST_F(Editors, EveryParameterOfEveryResultOperationCanBeChangedByKeysAndReadBack) {
  for (const auto& [category, infos] : controller.get_result_operations_by_category()) {
    for (const model::ResultOperationInfo* info : infos) expect_all_can_be_changed(info->key, info->parameters);
  }
}

TEST_F(Editors, GivenValuesThatNobodyEdits_ThenTheyStayAsTheyWereToTheLastDigit) {
  const model::ParameterList parameters{
      {.name = "radius", .type = ParameterType::real, .default_value = 1.0},
      {.name = "points", .type = ParameterType::points, .default_value = Value::array()}};
  const auto form = form_of(parameters);
  const Value values{{"radius", 0.1234567890123}, {"points", {{1.0 / 3.0, 2.0 / 3.0}}}};
  form->set_values(values);
  EXPECT_EQ(form->values(), values);
}

TEST_F(Editors, ArrowKeysStepANumberByRoundStepsAndStopAtItsLimits) {
  const auto form =
      form_of({{.name = "share", .type = ParameterType::real, .default_value = 0.1, .min = 0.0, .max = 1.0}});
  auto& box = control<ui::NumberBox>(*form->editor("share"), "share");
  box.setFocus();
  QTest::keyClick(&box, Qt::Key_Up);
  QTest::keyClick(&box, Qt::Key_Up);
  EXPECT_EQ(form->values().at("share"), 0.12);
  for (int i = 0; i < 15; ++i) QTest::keyClick(&box, Qt::Key_Down);
  EXPECT_EQ(form->values().at("share"), 0.0);
}

TEST_F(Editors, ASliderSetsANumberByKeys) {
  const auto form =
      form_of({{.name = "count", .type = ParameterType::integer, .default_value = 3, .min = 2, .max = 12}});
  auto& slider = control<QWidget>(*form->editor("count"), "count_slider");
  QTest::keyClick(&slider, Qt::Key_Right);
  EXPECT_EQ(form->values().at("count"), 4);
  QTest::keyClick(&slider, Qt::Key_End);
  EXPECT_EQ(form->values().at("count"), 12);
}

TEST_F(Editors, AnEmptyNumberIsNoValueWhereThatIsAllowed) {
  const auto form = form_of({{.name = "low", .type = ParameterType::real, .default_value = nullptr}});
  auto& box = control<ui::NumberBox>(*form->editor("low"), "low");
  type_over(box, "0,5");  // a comma is as good as a point
  EXPECT_EQ(form->values().at("low"), 0.5);
  type_over(box, "");
  EXPECT_TRUE(form->values().at("low").is_null());
}

TEST_F(Editors, WhatIsNoNumberStaysSoThatItCanBeNamed) {
  const auto form = form_of({{.name = "low", .type = ParameterType::real, .default_value = 0.0}});
  type_over(control<ui::NumberBox>(*form->editor("low"), "low"), "1.x");
  EXPECT_EQ(form->values().at("low"), "1.x");
}

TEST_F(Editors, DrawnRectanglesReplaceTheDefaultAndThenJoinThoseDrawnBefore) {
  const auto form = form_of({{.name = "rects",
                              .type = ParameterType::rects,
                              .default_value = Value::array({{0.5, 0.5, 1.0, 1.0}}),
                              .interaction = model::Interaction{"rects"}}});
  auto& pick = control<QToolButton>(*form->editor("rects"), "rects_pick");
  QTest::mouseClick(&pick, Qt::LeftButton);
  EXPECT_EQ(world.mode, "rects");
  EXPECT_EQ(world.existing, 0);
  world.picked(model::PickRects{.rects = {{0.2, 0.2, 0.1, 0.1}, {0.4, 0.4, 0.1, 0.1}}});
  QTest::keyClick(&pick, Qt::Key_P, Qt::ControlModifier);
  EXPECT_EQ(world.existing, 2);
  world.picked(model::PickRects{.rects = {{0.8, 0.8, 0.2, 0.2}}});
  const Value expected = Value::array({{0.2, 0.2, 0.1, 0.1}, {0.4, 0.4, 0.1, 0.1}, {0.8, 0.8, 0.2, 0.2}});
  EXPECT_EQ(form->values().at("rects"), expected);
}

TEST_F(Editors, ADrawnRectangleReplacesTheOneBefore) {
  const auto form = form_of({{.name = "rect",
                              .type = ParameterType::rect,
                              .default_value = {0.5, 0.5, 1.0, 1.0},
                              .interaction = model::Interaction{"rect"}}});
  QTest::mouseClick(&control<QToolButton>(*form->editor("rect"), "rect_pick"), Qt::LeftButton);
  world.picked(model::PickRect{.cx_norm = 0.25, .cy_norm = 0.5, .w_norm = 0.125, .h_norm = 0.25});
  EXPECT_EQ(form->values().at("rect"), Value::array({0.25, 0.5, 0.125, 0.25}));
}

TEST_F(Editors, APolygonOfTwoCornersIsRefusedWithASentence) {
  const auto form = form_of({{.name = "add",
                              .type = ParameterType::polygons,
                              .default_value = Value::array(),
                              .interaction = model::Interaction{"points"}}});
  auto& pick = control<QToolButton>(*form->editor("add"), "add_pick");
  QTest::mouseClick(&pick, Qt::LeftButton);
  world.picked(model::PickPoints{.points = {{0.1, 0.1}, {0.2, 0.2}}});
  EXPECT_EQ(form->values().at("add"), Value::array());
  EXPECT_THAT(world.told, HasSubstr("at least three corners"));
  QTest::mouseClick(&pick, Qt::LeftButton);
  world.picked(model::PickPoints{.points = {{0.1, 0.1}, {0.2, 0.2}, {0.1, 0.3}}});
  EXPECT_EQ(form->values().at("add"), Value::array({Value::array({{0.1, 0.1}, {0.2, 0.2}, {0.1, 0.3}})}));
}

TEST_F(Editors, WhatIsDrawnAfterTheFormIsGoneIsForgotten) {
  auto form = form_of({{.name = "point",
                        .type = ParameterType::point,
                        .default_value = {0.5, 0.5},
                        .interaction = model::Interaction{"point"}}});
  QTest::mouseClick(&control<QToolButton>(*form->editor("point"), "point_pick"), Qt::LeftButton);
  form.reset();
  world.picked(model::PickPoint{.x_norm = 0.1, .y_norm = 0.2});
}

TEST_F(Editors, RowsOfAListAreRemovedByKeys) {
  const auto form = form_of({{.name = "points",
                              .type = ParameterType::points,
                              .default_value = Value::array({{0.1, 0.1}, {0.2, 0.2}, {0.3, 0.3}})}});
  auto& table = control<QTableWidget>(*form->editor("points"), "points");
  table.setFocus();
  QTest::keyClick(&table, Qt::Key_Down);
  table.setCurrentCell(1, 0);
  QTest::keyClick(&table, Qt::Key_Delete);
  EXPECT_EQ(form->values().at("points"), Value::array({{0.1, 0.1}, {0.3, 0.3}}));
  QTest::keyClick(&table, Qt::Key_Delete, Qt::ControlModifier);
  EXPECT_EQ(form->values().at("points"), Value::array());
}

TEST_F(Editors, DefaultsAndLastUsedComeBackByTheirButtons) {
  const auto form = form_of({{.name = "k", .type = ParameterType::integer, .default_value = 3, .min = 2, .max = 12}});
  auto* last_used = form->findChild<QPushButton*>("parameter_last_used");
  EXPECT_FALSE(last_used->isEnabled());
  form->set_last_used(Value{{"k", 7}});
  QTest::mouseClick(last_used, Qt::LeftButton);
  EXPECT_EQ(form->values().at("k"), 7);
  QTest::mouseClick(form->findChild<QPushButton*>("parameter_defaults"), Qt::LeftButton);
  EXPECT_EQ(form->values().at("k"), 3);
}

TEST_F(Editors, TheHelpOfTheFocusedParameterIsShown) {
  const auto form = form_of({{.name = "min_area",
                              .type = ParameterType::real,
                              .default_value = 64.0,
                              .unit = "px",
                              .help = "The smallest area that is kept."}});
  form->focus_first();
  EXPECT_EQ(form->findChild<QLabel*>("parameter_help")->text().toStdString(),
            "Min area: The smallest area that is kept.");
}

}  // namespace
}  // namespace orvexa::test
