#include "orvexa/controller/controller.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>

#include "controller/fakes.h"
#include "support/log_capture.h"

namespace orvexa::test {
namespace {

using controller::Phase;
using testing::ElementsAre;
using testing::IsEmpty;

std::string text_of_failure(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
  return "no failure";
}

TEST(Controller, FreshlyBuiltHasNoPanelsNoCacheAndNoWatcher) {
  const LogCapture log;
  Probe controller;
  EXPECT_THAT(controller._ui_panels, IsEmpty());
  EXPECT_THAT(controller._mask_result_cache, IsEmpty());
  EXPECT_EQ(controller._watcher, nullptr);
  EXPECT_NE(controller.executor, nullptr);
  EXPECT_TRUE(controller.capture_loader);
  EXPECT_TRUE(controller.image_loader);
  EXPECT_EQ(controller.state.current_capture, nullptr);
  EXPECT_EQ(controller.state.current_workflow, nullptr);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Controller, FreshlyBuiltFailsWithNoWorkflowLoadedAndNoCaptureLoaded) {
  Probe controller;
  EXPECT_EQ(text_of_failure([&] { static_cast<void>(controller._wf()); }), "No workflow loaded");
  EXPECT_EQ(text_of_failure([&] { static_cast<void>(controller._cap()); }), "No capture loaded");
  EXPECT_EQ(controller.state.current_workflow, nullptr);
}

TEST(Controller, GivesTheCurrentWorkflowAlsoWhenItIsEmptyAndTheCurrentCapture) {
  Probe controller;
  controller.state.current_workflow = workflow_of({});
  controller.state.current_capture = small_capture();
  EXPECT_EQ(controller._wf(), controller.state.current_workflow);
  EXPECT_EQ(controller._cap(), controller.state.current_capture);
}

TEST(Controller, DerivesNoPhaseAndResetsNothingWhileItIsBuilt) {
  auto state = std::make_unique<ScriptedState>();
  int calls = 0;
  state->on_derive = state->on_reset = [&](ScriptedState&) { ++calls; };
  const auto* given = state.get();
  Probe controller(std::move(state));
  EXPECT_EQ(&controller.state, given);
  EXPECT_EQ(calls, 0);
}

TEST(Controller, SetErrorSetsPhaseAndTextAndClearsTheMessageWhateverTheyWere) {
  Probe controller;
  for (const Phase before : {Phase::EMPTY, Phase::RESULTS_READY, Phase::ERROR}) {
    controller.state.phase = before;
    controller.state.error = "older";
    controller.state.message = "fine";
    const LogCapture log;
    controller._set_error("x");
    EXPECT_EQ(controller.state.error, "x");
    EXPECT_EQ(controller.state.phase, Phase::ERROR);
    EXPECT_EQ(controller.state.message, std::nullopt);
    EXPECT_THAT(log.lines(), IsEmpty());
  }
}

TEST(Controller, GivesTheParameterTypeItselfSoThatAPanelCanCompareMembers) {
  Probe controller;
  using Kinds = decltype(controller.get_parameter_type_enum())::type;
  static_assert(std::is_same_v<Kinds, model::ParameterType>);
  static_assert(
      std::is_same_v<decltype(controller.get_result_operation_info_class())::type, model::ResultOperationInfo>);
  EXPECT_EQ(integer_parameter("radius", 1).type, Kinds::integer);
}

TEST(Controller, PassesOnWhatTheMaskRegistryAnswers) {
  const auto level = mask_operation("level", gives(mask({"#"})));
  const auto grow = mask_operation("grow", gives(mask({"#"})));
  const model::MaskRegistryOverride registry({&level, &grow});
  Probe controller;
  for (const auto& listed : {controller.get_mask_operations_list(), controller.get_available_mask_operations()}) {
    ASSERT_EQ(listed.size(), 2U);
    EXPECT_EQ(listed.begin()->first, "level");
    EXPECT_EQ(listed.find("grow")->second, &grow);
  }
  EXPECT_EQ(&controller.get_mask_operation_class("grow"), &grow);
  EXPECT_THAT(controller.get_mask_operation_infos(), ElementsAre(&level, &grow));
  EXPECT_THROW(static_cast<void>(controller.get_mask_operation_class("grew")), std::invalid_argument);
}

TEST(Controller, PassesOnWhatTheResultRegistryAnswers) {
  const auto area = result_operation("area", "Shape");
  const auto ndvi = result_operation("ndvi", "Spectral");
  const auto holes = result_operation("holes", "Shape");
  const model::ResultRegistryOverride registry({&area, &ndvi, &holes});
  Probe controller;
  const auto categories = controller.get_result_operations_by_category();
  ASSERT_EQ(categories.size(), 2U);
  EXPECT_EQ(categories.begin()->first, "Shape");
  EXPECT_THAT(categories.find("Shape")->second, ElementsAre(&area, &holes));
  EXPECT_THAT(categories.find("Spectral")->second, ElementsAre(&ndvi));
  EXPECT_EQ(controller.get_result_operation_info("holes"), &holes);
  EXPECT_EQ(controller.get_result_operation_info("hole"), nullptr);
  EXPECT_EQ(controller.get_available_result_operations().size(), 3U);
}

TEST(Controller, IsBuiltWhileTheRegistriesCannotBeReachedAndTheirFailureSurfacesAtTheCall) {
  const auto unreachable = [](std::string_view) { throw std::runtime_error("registry not there"); };
  const model::MaskRegistryOverride masks({}, unreachable);
  const model::ResultRegistryOverride results({}, unreachable);
  Probe controller;
  const std::string expected = "registry not there";
  EXPECT_EQ(text_of_failure([&] { static_cast<void>(controller.get_mask_operations_list()); }), expected);
  EXPECT_EQ(text_of_failure([&] { static_cast<void>(controller.get_available_mask_operations()); }), expected);
  EXPECT_EQ(text_of_failure([&] { static_cast<void>(controller.get_mask_operation_class("level")); }), expected);
  EXPECT_EQ(text_of_failure([&] { static_cast<void>(controller.get_mask_operation_infos()); }), expected);
  EXPECT_EQ(text_of_failure([&] { static_cast<void>(controller.get_result_operations_by_category()); }), expected);
  EXPECT_EQ(text_of_failure([&] { static_cast<void>(controller.get_result_operation_info("area")); }), expected);
  EXPECT_EQ(text_of_failure([&] { static_cast<void>(controller.get_available_result_operations()); }), expected);
  EXPECT_EQ(controller.state.error, std::nullopt);
}

TEST(UIEventBus, AReceiverIsConnectedForAsLongAsItsConnectionLives) {
  controller::UIEventBus events;
  std::vector<int> heard;
  {
    controller::EventConnection outer;
    {
      controller::EventConnection inner(
          events.mask_operation_removed.connect([&](int index) { heard.push_back(index); }));
      events.mask_operation_removed.emit(1);
      outer = std::move(inner);
    }
    events.mask_operation_removed.emit(2);
  }
  events.mask_operation_removed.emit(3);
  EXPECT_THAT(heard, ElementsAre(1, 2));
}

TEST(UIEventBus, AConnectionMayOutliveTheBus) {
  controller::EventConnection connection;
  {
    controller::UIEventBus events;
    connection = events.pick_mode_changed.connect([](bool) {});
  }
  connection = {};
}

TEST(UIEventBus, CarriesTheArgumentsOfEachEvent) {
  controller::UIEventBus events;
  std::vector<std::string> heard;
  const auto added = small_capture("added");
  const std::vector<sigc::connection> connections{
      events.workflow_result_operations_changed.connect([&] { heard.push_back("changed"); }),
      events.mask_operation_added.connect(
          [&](const std::shared_ptr<model::CaptureSet>& masked) { heard.push_back(masked->name); }),
      events.pick_mode_changed.connect([&](bool is_active) { heard.push_back(is_active ? "picking" : "not picking"); }),
      events.image_selected.connect(
          [&](const std::string& context, const std::string& key, const model::ImageEntry& pixels) {
            heard.push_back(context + "|" + key + "|" + std::to_string(pixels.shape().width));
          })};
  events.workflow_result_operations_changed.emit();
  events.mask_operation_added.emit(added);
  events.pick_mode_changed.emit(true);
  events.image_selected.emit("Raw Images > MSP", "RED", flat_image<std::uint8_t>(1, 9, 0));
  EXPECT_THAT(heard, ElementsAre("changed", "added", "picking", "Raw Images > MSP|RED|9"));
}

}  // namespace
}  // namespace orvexa::test
