#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "support/mask_operations.h"
#include "support/result_operations.h"

namespace orvexa::model {
namespace {

using testing::HasSubstr;

std::shared_ptr<CaptureSet> plot() {
  return test::capture("plot", {{"MSP",
                                 {{"RED", test::image<std::uint16_t>({{600, 3000, 0, 1000}})},
                                  {"NIR", test::image<std::uint16_t>({{4500, 1000, 0, 3000}})}}}});
}

OperationResult custom(const CaptureSet& capture, const std::string& expressions,
                       const std::optional<Mask>& mask = std::nullopt) {
  return test::measured("custom_index", capture, mask, {{"expressions", expressions}});
}

double number(const OperationResult& result, const std::string& name) {
  return result.metrics.at(name).get<double>();
}

// N / R of the pixels: 7.5, 1 / 3, 0 / 0, 3. Mean of the three 10.8333 / 3; all but 1 / 3 lie above the limit 0.4.
// N - R in fractions of 65535: (3900 - 2000 + 0 + 2000) / 4 / 65535.
TEST(CustomIndex, DescribesEachExpressionUnderItsName) {
  const auto result = custom(*plot(), "ratio = N / R; difference = MSP.NIR - RED");
  EXPECT_NEAR(number(result, "custom_index.ratio.mean"), (7.5 + 1.0 / 3 + 3) / 3, 1e-14);
  EXPECT_EQ(result.metrics.at("custom_index.ratio.n"), 3);
  EXPECT_EQ(result.metrics.at("custom_index.ratio.n_invalid"), 1);
  EXPECT_NEAR(number(result, "custom_index.ratio.share_over_limit"), 2.0 / 3, 1e-15);
  EXPECT_EQ(result.units.at("custom_index.ratio.mean"), "");
  EXPECT_NEAR(number(result, "custom_index.difference.mean"), 3900.0 / 4 / 65535, 1e-15);
  EXPECT_EQ(result.units.at("custom_index.difference.mean"), "fraction of white");
  EXPECT_EQ(result.metrics.size(), 34u);
  EXPECT_EQ(result.chosen_bands.at("custom_index.ratio"), Value({"MSP.NIR", "MSP.RED"}));
  EXPECT_NEAR(result.images.at("ratio").numbers->row<float>(0)[0], 7.5F, 1e-5);
  EXPECT_EQ(result.tables.at("bands").rows.size(), 4u);
}

TEST(CustomIndex, IsTheIndexWhoseFormulaItHas) {
  const auto own = custom(*plot(), "same = (N - R) / (N + R)");
  const auto built_in = test::measured("index_statistics", *plot());
  for (const char* statistic : {"mean", "sd", "median", "p95", "share_over_limit"}) {
    EXPECT_EQ(own.metrics.at(std::string("custom_index.same.") + statistic),
              built_in.metrics.at(std::string("ndvi.") + statistic));
  }
}

// 1.5 * 0.39 / 1.01 with N = .45 and R = .06
TEST(CustomIndex, GivenConstantsThatDependOnTheScale_ThenReflectanceIsNeeded) {
  const std::string savi = "savi = 1.5 * (N - R) / (N + R + 0.5)";
  const auto capture = plot();
  EXPECT_EQ(test::refusal([&] { static_cast<void>(custom(*capture, savi)); }),
            "savi: needs reflectance: WhiteLevel or a reference is not declared");
  capture->measurements.at("MSP")->declared_white_level = 10000;
  EXPECT_NEAR(number(custom(*capture, savi, test::mask({"#..."})), "custom_index.savi.mean"), 1.5 * 0.39 / 1.01, 1e-14);
}

TEST(CustomIndex, GivenOneOfTwoThatCannotBeComputed_ThenTheOtherIsMeasuredAndTheReasonStandsBeside) {
  const auto result = custom(*plot(), "green = G / R; ratio = N / R", test::mask_of_regions({"12.."}));
  EXPECT_THAT(result.reasons.at("custom_index.green.mean").get<std::string>(), HasSubstr("role G (green)"));
  EXPECT_NEAR(result.regions.at("ROI_2").metrics.at("custom_index.ratio.mean").get<double>(), 1.0 / 3, 1e-15);
  EXPECT_EQ(test::refusal([] { static_cast<void>(custom(*plot(), "a = FLU.F0 / R")); }),
            "a: There is no band \"FLU.F0\" in this capture; it has MSP.RED, MSP.NIR.");
}

TEST(CustomIndex, RolesMayBeNamedByHand) {
  const auto result = test::measured("custom_index", *plot(), test::mask({"#..."}),
                                     {{"expressions", "ratio = N / R"}, {"bands", {"N=MSP.RED", "R=MSP.NIR"}}});
  EXPECT_NEAR(number(result, "custom_index.ratio.mean"), 600.0 / 4500, 1e-15);
}

TEST(CustomIndex, WhatCannotBeReadIsRefused) {
  const auto refused = [](const Value& params) {
    return test::refusal([&] { static_cast<void>(test::measured("custom_index", *plot(), {}, params)); });
  };
  EXPECT_EQ(refused({{"expressions", "ratio = N /"}}),
            "custom_index: ratio: The expression \"N /\" ends too early at character 4: expected a number, a band or a "
            "parenthesis.");
  EXPECT_THAT(refused({{"expressions", ""}}), HasSubstr("at least one expression"));
  EXPECT_THAT(refused({{"map_range", "fixed"}, {"map_low", 2}, {"map_high", 1}}),
              HasSubstr("\"map_low\" is 2.0, but it must be below"));
  EXPECT_THAT(refused({{"map_high", 3}}), HasSubstr("\"map_high\" is 3.0, but parameter \"map_range\" is \"data\""));
  EXPECT_THAT(refused({{"bands", {"G=MSP.RED"}}}),
              HasSubstr("no chosen index uses the role G: simple_ratio uses N, R"));
}

TEST(CustomIndex, ACaptureIsGoodEnoughWhenOneExpressionCanBeComputed) {
  const ResultOperationInfo& info = get_result_operation("custom_index");
  const auto check = [&](const std::string& expressions) {
    return test::refusal([&] { info.check_capture(*plot(), info()->validate_params({{"expressions", expressions}})); });
  };
  EXPECT_EQ(check("a = G; b = N / R"), "");
  EXPECT_THAT(check("a = G; b = 2 * N"), testing::AllOf(HasSubstr("a: No measurement"), HasSubstr("b: needs")));
}

}  // namespace
}  // namespace orvexa::model
