// Why an operation cannot be used, in words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "support/mask_operations.h"

namespace orvexa::test {
namespace {

using testing::Eq;
using testing::HasSubstr;
using testing::Optional;

/// A controller with a capture of MSP.RED and a workflow of these mask steps.
struct Prepared : Probe {
  explicit Prepared(const std::vector<model::MaskOperationConfig>& steps = {}) {
    state.current_capture = small_capture();
    state.current_workflow = workflow_of({});
    state.current_workflow->mask_operations = steps;
  }
};

TEST(ExplainAvailability, WithoutACaptureSaysSo) {
  const Probe controller;
  EXPECT_THAT(controller.explain_availability("area"), Optional(Eq("No capture is loaded.")));
  EXPECT_THAT(controller.explain_mask_availability("roi_rect"), Optional(Eq("No capture is loaded.")));
}

TEST(ExplainAvailability, OfWhatCanBeUsedGivesNoReason) {
  const Prepared controller({model::mask_op("threshold_auto", {})});
  EXPECT_EQ(controller.explain_availability("area"), std::nullopt);
  EXPECT_EQ(controller.explain_availability("perimeter"), std::nullopt);
  EXPECT_EQ(controller.explain_availability("region_count"), std::nullopt);
  EXPECT_EQ(controller.explain_mask_availability("erode"), std::nullopt);
}

TEST(ExplainAvailability, NamesTheMeasurementThatIsMissing) {
  EXPECT_THAT(Prepared().explain_availability("psii"), Optional(Eq("It needs the measurement FLU.")));
}

TEST(ExplainAvailability, NamesTheMaskStepThatIsMissing) {
  EXPECT_THAT(Prepared().explain_availability("perimeter"), Optional(Eq("It needs a mask step.")));
  EXPECT_THAT(Prepared({model::mask_op("roi_rect", {})}).explain_availability("region_count"),
              Optional(HasSubstr("It needs one of the mask steps threshold_*, ")));
  EXPECT_THAT(Prepared().explain_mask_availability("erode"), Optional(Eq("It needs a mask made by an earlier step.")));
}

/// An operation that compares regions, and one that complains about every capture.
class ExplainAvailabilityOfFakes : public testing::Test {
 protected:
  ExplainAvailabilityOfFakes() {
    neighbours.needs_labels = true;
    picky.parameters = {integer_parameter("level", 3)};
    picky.check_capture = [](const model::ImageSource& source, const Value& params) {
      throw std::runtime_error("There is no band at level " + params.at("level").dump() + " of " +
                               std::to_string(source.get_shape().width) + " columns.");
    };
  }
  static model::OperationResult nothing(FakeResult&, const model::CaptureSet&, const model::RegionSet&, const Value&) {
    return {};
  }
  model::ResultOperationInfo neighbours = fake_result("neighbours", nothing);
  model::ResultOperationInfo picky = fake_result("picky", nothing);
  model::ResultRegistryOverride registry{{&neighbours, &picky}};
};

TEST_F(ExplainAvailabilityOfFakes, NamesTheStepsThatMakeRegionsWhereNoneDoes) {
  EXPECT_THAT(Prepared({model::mask_op("threshold_auto", {})}).explain_availability("neighbours"),
              Optional(testing::StartsWith("It needs regions made by a mask step: roi_rects")));
  EXPECT_EQ(Prepared({model::mask_op("roi_rects", {})}).explain_availability("neighbours"), std::nullopt);
  EXPECT_TRUE(Prepared({model::mask_op("roi_rects", {{"rects", 5}})}).explain_availability("neighbours"))
      << "a step whose parameters are refused makes no regions";
}

TEST_F(ExplainAvailabilityOfFakes, PassesTheComplaintAboutTheCaptureOnWithTheParametersOfTheWorkflow) {
  Prepared controller;
  EXPECT_THAT(controller.explain_availability("picky"), Optional(Eq("There is no band at level 3 of 3 columns.")));
  controller.state.current_workflow->result_operations = {model::result_op("picky", {{"level", 8}})};
  EXPECT_THAT(controller.explain_availability("picky"), Optional(Eq("There is no band at level 8 of 3 columns.")));
  controller.state.current_workflow->result_operations = {model::result_op("picky", {{"level", "high"}})};
  EXPECT_THAT(controller.explain_availability("picky"), Optional(HasSubstr("\"level\"")));
}

/// A capture of a colour picture alone.
struct Photo : Prepared {
  explicit Photo(const std::vector<model::MaskOperationConfig>& steps = {}) : Prepared(steps) {
    state.current_capture = capture("photo", {{"CLR", {{"RGB", random_image<std::uint8_t>(1, 4, 5, 3, 255.9)}}}});
  }
};

TEST(ExplainAvailability, GivenThatOnlyTheDefaultsDoNotFitTheCapture_ThenTheSentenceSaysSo) {
  const Photo controller;
  const auto of_defaults = testing::StartsWith(
      "With its defaults: No measurement of this capture has a band for the role N (near infrared) together with R");
  EXPECT_THAT(controller.explain_mask_availability("threshold_index"), Optional(of_defaults));
  EXPECT_THAT(controller.explain_availability("custom_index"), Optional(testing::StartsWith("With its defaults: ")));
}

TEST(ExplainAvailability, AsksMaskStepsWithTheParametersOfTheWorkflow) {
  const auto exg = model::mask_op("threshold_index", {{"index", "exg"}, {"method", "otsu"}});
  const auto ndvi = model::mask_op("threshold_index", {{"index", "ndvi"}, {"method", "otsu"}});
  EXPECT_EQ(Photo({exg}).explain_mask_availability("threshold_index"), std::nullopt);
  EXPECT_EQ(Photo({ndvi, exg}).explain_mask_availability("threshold_index"), std::nullopt) << "one that fits is enough";
  EXPECT_THAT(Photo({ndvi}).explain_mask_availability("threshold_index"),
              Optional(testing::StartsWith("No measurement of this capture has a band for the role N")));
  EXPECT_THAT(Photo({exg}).explain_mask_availability("threshold_index", Value{{"index", "ndvi"}, {"method", "otsu"}}),
              Optional(testing::StartsWith("No measurement of this capture has a band for the role N")))
      << "what is asked about comes first";
}

TEST(ExplainAvailability, OneOfSeveralEntriesThatFitsIsEnough) {
  Photo controller;
  const auto ndvi = model::result_op("index_statistics", {{"indices", {"ndvi"}}});
  const auto gcc = model::result_op("index_statistics", {{"indices", {"gcc"}}});
  controller.state.current_workflow->result_operations = {ndvi};
  EXPECT_THAT(controller.explain_availability("index_statistics"),
              Optional(testing::StartsWith("ndvi: No measurement")));
  controller.state.current_workflow->result_operations = {ndvi, gcc};
  EXPECT_EQ(controller.explain_availability("index_statistics"), std::nullopt);
}

TEST(ExplainAvailability, RefusesAnUnknownKeyWithTheNearest) {
  EXPECT_THAT(refusal([] { static_cast<void>(Prepared().explain_availability("arae")); }), HasSubstr("\"area\""));
  EXPECT_THAT(refusal([] { static_cast<void>(Prepared().explain_mask_availability("erodee")); }),
              HasSubstr("\"erode\""));
}

}  // namespace
}  // namespace orvexa::test
