#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/plot.h"
#include "cli/process.h"

namespace orvexa::test {
namespace {

using testing::HasSubstr;

TEST(WorkflowCheck, GivenAGoodFile_ThenItSaysSo) {
  const TemporaryFolder folder;
  const Outcome outcome = orvexa_command({"workflow", "check", write_leaf_workflow(folder).string()});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.out << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("leaf.yaml: nothing is wrong with it."));
  EXPECT_EQ(outcome.err, "");
}

TEST(WorkflowCheck, ListsEveryProblemOfEveryFileByStep) {
  const TemporaryFolder folder;
  const auto good = write_leaf_workflow(folder);
  const auto bad = folder.write("bad.yaml",
                                "mask_operations:\n"
                                "  - op: threshold_rnage\n"
                                "  - op: erode\n"
                                "    params: {radius: -3}\n"
                                "result_operations:\n"
                                "  - op: area\n"
                                "  - op: area\n");
  const Outcome outcome = orvexa_command({"workflow", "check", good.string(), bad.string()});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.out, HasSubstr("bad.yaml: mask step 1 (threshold_rnage): "));
  EXPECT_THAT(outcome.out, HasSubstr("(did you mean \"threshold_range\"?)"));
  EXPECT_THAT(outcome.out, HasSubstr("bad.yaml: mask step 2 (erode): "));
  EXPECT_THAT(outcome.out, HasSubstr("bad.yaml: result operation 2 (area): "));

  const Outcome as_json = orvexa_command({"workflow", "check", good.string(), bad.string(), "--json"});
  EXPECT_EQ(as_json.exit_code, 1);
  const common::Value document = as_json.json();
  EXPECT_EQ(document.at("ok"), false);
  EXPECT_EQ(document.at("files").at(0).at("problems").size(), 0u);
  EXPECT_EQ(document.at("files").at(1).at("problems").size(), 3u);
  EXPECT_EQ(document.at("files").at(1).at("problems").at(0).at("step"), "mask step 1 (threshold_rnage)");
}

TEST(WorkflowCheck, GivenAFileThatIsNoWorkflow_ThenTheOthersAreCheckedAllTheSame) {
  const TemporaryFolder folder;
  const auto list = folder.write("list.yaml", "- 1\n- 2\n");
  const Outcome outcome = orvexa_command({"workflow", "check", list.string(), write_leaf_workflow(folder).string()});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("list.yaml"));
  EXPECT_THAT(outcome.out, HasSubstr("leaf.yaml: nothing is wrong with it."));
}

TEST(WorkflowCheck, GivenAFileInAnotherFolder_ThenItIsNamedOnceByItsPath) {
  const TemporaryFolder folder;
  const std::string list = folder.write("list.yaml", "- erode\n").string();
  const std::string cut = folder.write("cut.yaml", "mask_operations: [\n").string();
  const Outcome outcome = orvexa_command({"workflow", "check", list, cut});
  EXPECT_EQ(outcome.err.find(list + ": A workflow is a map"), 0u) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("\n" + cut + ", line "));
}

TEST(WorkflowCheck, GivenANewerFormat_ThenItIsNamedBesideTheOtherProblems) {
  const TemporaryFolder folder;
  const std::string newer =
      folder.write("newer.yaml", "format: 99\nmask_operations: [{op: threshold_rnage}]\n").string();
  const Outcome outcome = orvexa_command({"workflow", "check", newer});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, testing::StartsWith(newer +
                                               ": format: The workflow has format 99; this program reads format 1 and "
                                               "older.\n" +
                                               newer + ": mask step 1 (threshold_rnage): "));
}

TEST(WorkflowCheck, GivenAFileThatIsNotThere_ThenTheSentenceNamesIt) {
  const Outcome outcome = orvexa_command({"workflow", "check", "no such.yaml"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("no such.yaml"));
}

}  // namespace
}  // namespace orvexa::test
