#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "cli/plot.h"
#include "cli/process.h"
#include "orvexa/model/mask_operations/registry.h"
#include "orvexa/model/result_operations/registry.h"
#include "support/places.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using testing::HasSubstr;

TEST(Ops, ListsEveryOperationOfBothRegistriesOnceWithItsSummary) {
  const Outcome outcome = orvexa_command({"ops", "--json"});
  ASSERT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  const common::Value document = outcome.json();
  std::vector<std::string> masks;
  for (const common::Value& operation : document.at("mask_operations")) {
    masks.push_back(operation.at("key"));
    EXPECT_NE(operation.at("summary"), "") << operation;
    EXPECT_NE(operation.at("category"), "") << operation;
  }
  std::vector<std::string> known_masks;
  for (const model::MaskOperationInfo* info : model::get_all_mask_operation_infos()) known_masks.push_back(info->key);
  EXPECT_EQ(masks, known_masks);

  std::multiset<std::string> results;
  for (const common::Value& operation : document.at("result_operations")) results.insert(operation.at("key"));
  std::multiset<std::string> known_results;
  for (const auto& [key, info] : model::get_available_result_operations()) known_results.insert(key);
  EXPECT_EQ(results, known_results);

  const std::string text = orvexa_command({"ops"}).out;
  for (const std::string& key : masks) EXPECT_THAT(text, HasSubstr("    " + key + "  "));
  for (const std::string& key : results) EXPECT_THAT(text, HasSubstr("    " + key + "  "));
}

TEST(Ops, ThePageInTheDocumentsIsWhatTheProgramSays) {
  const Outcome outcome = orvexa_command({"ops", "--markdown"});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_TRUE(outcome.out == read_all(source_folder() / "docs" / "operations.md"))
      << "docs/operations.md is stale: orvexa ops --markdown > docs/operations.md makes it anew.";
}

TEST(Ops, ThePageHasEveryOperationWithEveryParameterOnce) {
  const std::string page = orvexa_command({"ops", "--markdown"}).out;
  const auto count = [](const std::string& text, const std::string& part) {
    int found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
    return found;
  };
  const auto expect_section = [&](const std::string& key, const model::ParameterList& parameters) {
    const std::string heading = "\n#### " + key + "\n";
    ASSERT_EQ(count(page, heading), 1) << key;
    const std::size_t begin = page.find(heading) + heading.size();
    const std::string section = page.substr(begin, page.find("\n##", begin) - begin);
    EXPECT_THAT(section, HasSubstr("Source: ")) << key;
    for (const model::ParameterInfo& parameter : parameters) {
      EXPECT_EQ(count(section, "| `" + parameter.name + "` | "), 1) << key << ": " << parameter.name;
    }
  };
  for (const model::MaskOperationInfo* info : model::get_all_mask_operation_infos()) {
    expect_section((info->key == "convex_hull" ? "mask/" : "") + info->key, info->all_parameters());
  }
  for (const auto& [key, info] : model::get_available_result_operations()) {
    expect_section((key == "convex_hull" ? "result/" : "") + key, info->parameters);
  }
}

TEST(Ops, GivenThePageTogetherWithAKeyOrJson_ThenThatIsRefused) {
  for (const char* other : {"area", "--json"}) {
    const Outcome outcome = orvexa_command({"ops", "--markdown", other});
    EXPECT_EQ(outcome.exit_code, 2) << other;
    EXPECT_THAT(outcome.err, HasSubstr("--markdown"));
  }
}

TEST(Ops, GivenAnOperation_ThenEachParameterHasTypeDefaultRangeAndHelp) {
  const common::Value document = orvexa_command({"ops", "threshold_auto", "--json"}).json();
  EXPECT_EQ(document.at("kind"), "mask");
  EXPECT_NE(document.at("source"), "");
  const model::MaskOperationInfo& info = model::get_mask_operation("threshold_auto");
  ASSERT_EQ(document.at("parameters").size(), info.parameters.size() + 1);  // reset_mask_chain is common to all
  bool has_choices = false;
  bool has_range = false;
  for (const common::Value& parameter : document.at("parameters")) {
    EXPECT_NE(parameter.at("help"), "") << parameter;
    EXPECT_TRUE(parameter.contains("default")) << parameter;
    EXPECT_NE(parameter.at("type"), "") << parameter;
    if (parameter.at("name") == "method") {
      has_choices = true;
      EXPECT_THAT(parameter.at("choices").get<std::vector<std::string>>(),
                  testing::IsSupersetOf({"otsu", "triangle", "li"}));
    }
    if (parameter.at("name") == "factor") {
      has_range = true;
      EXPECT_EQ(parameter.at("min"), 0.1);
      EXPECT_EQ(parameter.at("max"), 10);
      EXPECT_EQ(parameter.at("default"), 1.0);
    }
  }
  EXPECT_TRUE(has_choices);
  EXPECT_TRUE(has_range);
}

TEST(Ops, SaysWhatAnOperationNeeds) {
  EXPECT_THAT(orvexa_command({"ops", "psii"}).out, HasSubstr("Needs the measurement FLU."));
  EXPECT_THAT(orvexa_command({"ops", "erode"}).out, HasSubstr("Needs a mask made by an earlier step."));
}

TEST(Ops, AKeyOfTwoOperationsShowsBothAndIsNamedWithItsKindWhereOneIsMeant) {
  const std::string both = orvexa_command({"ops", "convex_hull"}).out;
  EXPECT_THAT(both, HasSubstr("convex_hull (Convex hull, mask operation)"));
  EXPECT_THAT(both, HasSubstr("convex_hull (Convex hull, result operation)"));
  EXPECT_EQ(orvexa_command({"ops", "result/convex_hull", "--json"}).json().at("kind"), "result");
  const Outcome unclear = orvexa_command({"ops", "convex_hull", "--json"});
  EXPECT_EQ(unclear.exit_code, 2);
  EXPECT_THAT(unclear.err, HasSubstr("say mask/convex_hull or result/convex_hull"));
}

TEST(Ops, AStepOfASharedKeyIsAddedToTheKindThatItsWordSays) {
  const TemporaryFolder folder;
  const std::string file = write_leaf_workflow(folder).string();
  EXPECT_EQ(orvexa_command({"workflow", "add", file, "convex_hull"}).exit_code, 2);
  ASSERT_EQ(orvexa_command({"workflow", "add", file, "mask/convex_hull"}).exit_code, 0);
  ASSERT_EQ(orvexa_command({"workflow", "add", file, "result/convex_hull"}).exit_code, 0);
  const common::Value shown = orvexa_command({"workflow", "show", file, "--json"}).json();
  EXPECT_EQ(shown.at("mask_operations").back().at("op"), "convex_hull");
  EXPECT_EQ(shown.at("result_operations").back().at("op"), "convex_hull");
  EXPECT_EQ(orvexa_command({"preview", write_plot(folder).string(), "--op", "convex_hull", "-w", file, "--mask",
                            (folder / "m.png").string()})
                .exit_code,
            0);
}

/// Key to reason, null where the operation can be used.
std::map<std::string, common::Value> reasons_of(const common::Value& list) {
  std::map<std::string, common::Value> reasons;
  for (const common::Value& operation : list) {
    EXPECT_EQ(operation.at("available"), operation.at("reason").is_null()) << operation;
    reasons[operation.at("key")] = operation.at("reason");
  }
  return reasons;
}

TEST(Ops, GivenACapture_ThenSaysWhatItDoesNotAllowAndWhy) {
  const TemporaryFolder folder;
  const std::string plot = write_plot(folder).string();
  const common::Value bare = orvexa_command({"ops", "--capture", plot, "--json"}).json();
  EXPECT_EQ(reasons_of(bare.at("mask_operations")).at("erode"), "It needs a mask made by an earlier step.");
  EXPECT_EQ(reasons_of(bare.at("mask_operations")).at("roi_rect"), nullptr);
  auto results = reasons_of(bare.at("result_operations"));
  EXPECT_EQ(results.at("psii"), "It needs the measurement FLU.");
  EXPECT_EQ(results.at("perimeter"), "It needs a mask step.");
  EXPECT_EQ(results.at("area"), nullptr);

  const std::string leaf = write_leaf_workflow(folder).string();
  const common::Value masked = orvexa_command({"ops", "--capture", plot, "-w", leaf, "--json"}).json();
  EXPECT_EQ(reasons_of(masked.at("mask_operations")).at("erode"), nullptr);
  EXPECT_EQ(reasons_of(masked.at("result_operations")).at("perimeter"), nullptr);

  const std::string text = orvexa_command({"ops", "--capture", plot}).out;
  EXPECT_THAT(text, testing::ContainsRegex("psii +Not here: It needs the measurement FLU\\."));
}

TEST(Ops, GivenACapture_ThenAnOperationThatIsUsedByTheWorkflowIsAskedWithItsParameters) {
  const TemporaryFolder folder;
  ASSERT_EQ(orvexa_command({"sample", folder.path().string()}).exit_code, 0);
  const std::string tray = (folder / "leaf_tray" / "HDR_leaf_tray.INF").string();
  const std::string greenness = (source_folder() / "examples" / "workflows" / "leaf_area_and_greenness.yaml").string();
  const common::Value asked = orvexa_command({"ops", "--capture", tray, "-w", greenness, "--json"}).json();
  EXPECT_EQ(reasons_of(asked.at("mask_operations")).at("threshold_index"), nullptr);
  EXPECT_EQ(reasons_of(asked.at("result_operations")).at("index_statistics"), nullptr);
  EXPECT_THAT(reasons_of(asked.at("result_operations")).at("custom_index").get<std::string>(),
              testing::StartsWith("With its defaults: simple_ratio: No measurement"))
      << "the workflow does not name it";

  const std::string bare = orvexa_command({"ops", "--capture", tray}).out;
  EXPECT_THAT(bare, testing::ContainsRegex("threshold_index +With its defaults: No measurement"));
  EXPECT_THAT(bare, testing::ContainsRegex("erode +Not here: It needs a mask made by an earlier step\\."));
}

TEST(Ops, ACaptureIsForTheListAndAWorkflowForACapture) {
  for (const auto& words : std::vector<std::vector<std::string>>{{"ops", "--workflow", "w.yaml"},
                                                                 {"ops", "area", "--capture", "c.png"},
                                                                 {"ops", "--markdown", "--capture", "c.png"}}) {
    EXPECT_EQ(orvexa_command(words).exit_code, 2) << words.back();
  }
  EXPECT_EQ(orvexa_command({"ops", "--capture", "not_there.png"}).exit_code, 1);
}

TEST(Ops, GivenAnOperation_ThenItsTextNamesEveryParameterAndItsSource) {
  const std::string text = orvexa_command({"ops", "threshold_auto"}).out;
  for (const model::ParameterInfo& parameter : model::get_mask_operation("threshold_auto").all_parameters()) {
    EXPECT_THAT(text, HasSubstr("\n  " + parameter.name + ": "));
  }
  EXPECT_THAT(text, HasSubstr("Otsu"));
  EXPECT_THAT(text, HasSubstr("\nSource\n"));
}

}  // namespace
}  // namespace orvexa::test
