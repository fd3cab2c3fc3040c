#include "orvexa/model/result_operations/registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <set>

#include "support/mask_operations.h"
#include "support/operations.h"

namespace orvexa::model {
namespace {

using testing::ElementsAre;

std::vector<std::string> all_keys() {
  std::vector<std::string> keys;
  for (const auto& [key, info] : get_available_result_operations()) keys.push_back(key);
  return keys;
}

TEST(ResultRegistry, HoldsTheOperationsInTheOrderOfMenus) {
  // clang-format off
  const std::vector<std::string> expected{
      "area",
      "bounding_box",
      "centroid",
      "perimeter",
      "shape_factors",
      "convex_hull",
      "ellipse_fit",
      "feret",
      "enclosing",
      "moments_hu",
      "holes",
      "thickness",
      "skeleton",
      "symmetry",
      "region_count",
      "neighbours",
      "band_statistics",
      "histogram",
      "image_quality",
      "band_correlation",
      "texture_glcm",
      "texture_lbp",
      "color_statistics",
      "color_difference",
      "color_classes",
      "index_statistics",
      "custom_index",
      "psii",
  };
  // clang-format on
  EXPECT_EQ(all_keys(), expected);
}

TEST(ResultRegistry, CategoriesHoldEveryOperationOnceInTheSameOrder) {
  std::vector<std::string> keys;
  for (const auto& [category, operations] : get_operations_by_category()) {
    for (const ResultOperationInfo* info : operations) {
      EXPECT_EQ(info->category, category);
      keys.push_back(info->key);
    }
  }
  EXPECT_EQ(keys, all_keys());
}

TEST(ResultRegistry, EveryRowIsComplete) {
  const auto is_sentence = [](const std::string& text) {
    return !text.empty() && std::isupper(static_cast<unsigned char>(text.front())) != 0 && text.back() == '.';
  };
  for (const auto& [key, info] : get_available_result_operations()) {
    SCOPED_TRACE(key);
    EXPECT_EQ(info->key, key);
    EXPECT_FALSE(info->display_name.empty());
    EXPECT_TRUE(is_sentence(info->summary)) << info->summary;
    EXPECT_GT(info->description.size(), 100u);
    EXPECT_TRUE(info->description.ends_with('.'));
    EXPECT_FALSE(info->source.empty());
    EXPECT_NE((*info)(), nullptr);
    std::set<std::string> names;
    for (const ParameterInfo& parameter : info->parameters) {
      SCOPED_TRACE(parameter.name);
      EXPECT_TRUE(names.insert(parameter.name).second);
      EXPECT_TRUE(is_sentence(parameter.help)) << parameter.help;
    }
    // Checking refuses what lies outside a parameter's own range, so this is the promise that defaults lie inside.
    EXPECT_EQ((*info)()->validate_params(Value::object()), default_parameters(info->parameters));
  }
}

TEST(ResultRegistry, AvailabilityHasSomethingToDecide) {
  const auto psii = get_result_operation_info("psii");
  ASSERT_TRUE(psii->required_measurements.has_value());
  EXPECT_EQ(psii->required_measurements->front(), MeasurementRequirement(std::string("FLU")));
  EXPECT_FALSE(get_result_operation_info("area")->operation_class._requires_mask_operation.has_value());
  EXPECT_EQ(get_result_operation_info("perimeter")->operation_class._requires_mask_operation,
            std::vector<std::string>{"*"});
  const auto count = get_result_operation_info("region_count")->operation_class._requires_mask_operation;
  ASSERT_TRUE(count.has_value());
  EXPECT_NE(std::find(count->begin(), count->end(), "threshold_*"), count->end());
  EXPECT_EQ(std::find(count->begin(), count->end(), "*"), count->end());
}

TEST(ResultRegistry, AnUnknownKeyIsRefusedWithTheNearest) {
  EXPECT_EQ(get_result_operation_info("arae"), nullptr);
  EXPECT_EQ(test::refusal([] { static_cast<void>(get_result_operation("arae")); }),
            "There is no result operation \"arae\" (did you mean \"area\"?).");
}

TEST(ResultRegistry, AnOverrideReplacesItWhileItLives) {
  const auto fake =
      test::fake_result("fake", [](auto&, const auto&, const auto&, const auto&) { return OperationResult{}; });
  const std::vector<std::string> built_in = all_keys();
  std::vector<std::string> asked;
  {
    const ResultRegistryOverride outer({&fake}, [&](std::string_view key) { asked.emplace_back(key); });
    EXPECT_THAT(all_keys(), ElementsAre("fake"));
    EXPECT_EQ(get_result_operation_info("area"), nullptr);
    EXPECT_EQ(&get_result_operation("fake"), &fake);
    {
      const ResultRegistryOverride inner({});
      EXPECT_TRUE(all_keys().empty());
      EXPECT_TRUE(get_operations_by_category().empty());
    }
    EXPECT_EQ(get_operations_by_category().size(), 1u);
  }
  EXPECT_EQ(asked, (std::vector<std::string>{"", "area", "fake", ""}));
  EXPECT_EQ(all_keys(), built_in);
}

TEST(ResultRegistry, ARegistryThatCannotBeBuiltSaysSoAtTheCall) {
  const ResultRegistryOverride broken({},
                                      [](std::string_view) { throw std::runtime_error("The registry is broken."); });
  EXPECT_THROW(static_cast<void>(get_available_result_operations()), std::runtime_error);
  EXPECT_THROW(static_cast<void>(get_operations_by_category()), std::runtime_error);
  EXPECT_THROW(static_cast<void>(get_result_operation_info("area")), std::runtime_error);
}

}  // namespace
}  // namespace orvexa::model
