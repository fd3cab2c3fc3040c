#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "cli/plot.h"
#include "cli/process.h"
#include "orvexa/common/serialisation.h"

namespace orvexa::test {
namespace {

using common::Value;
using testing::ElementsAre;
using testing::HasSubstr;
using Words = std::vector<std::string>;

struct Editor {
  TemporaryFolder folder;
  std::filesystem::path file = folder / "seeds & leaves.yaml";

  Outcome operator()(Words words) const {
    words.insert(words.begin(), "workflow");
    words.insert(words.begin() + 2, file.string());
    return orvexa_command(words);
  }
  /// Keys of the steps in the file, those of both kinds.
  [[nodiscard]] Words keys() const {
    Words found;
    const Value document = common::load_yaml(file);
    for (const char* list : {"mask_operations", "result_operations"}) {
      for (const Value& step : document.at(list)) found.push_back(step.at("op"));
    }
    return found;
  }
};

struct EditorOfFour : Editor {
  EditorOfFour() {
    file = folder.write("four.yaml",
                        "title: Four\n"
                        "mask_operations:\n"
                        "  - op: threshold_range\n"
                        "    params: {band: MSP.NIR, low: 0.5, high: 1.0}\n"
                        "  - op: open\n"
                        "    params: {radius: 2}\n"
                        "  - op: open\n"
                        "result_operations:\n"
                        "  - op: area\n"
                        "  - op: perimeter\n"
                        "outputs: [masks, numbers]\n");
  }
};

// ---- new ----

TEST(WorkflowNew, GivenATitle_ThenTheFileIsAWorkflowWithoutSteps) {
  const Editor edit;
  const Outcome outcome = edit({"new", "--title", "Seeds: \"2024\""});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(common::load_yaml(edit.file), (Value{{"format", 1},
                                                 {"title", "Seeds: \"2024\""},
                                                 {"mask_operations", Value::array()},
                                                 {"result_operations", Value::array()}}));
}

TEST(WorkflowNew, GivenNoTitle_ThenItIsTheNameOfTheFile) {
  const Editor edit;
  EXPECT_EQ(edit({"new"}).exit_code, 0);
  EXPECT_EQ(common::load_yaml(edit.file).at("title"), "seeds & leaves");
}

TEST(WorkflowNew, GivenAnEmptyTitle_ThenTheWorkflowHasNone) {
  const Editor edit;
  EXPECT_EQ(edit({"new", "--title", ""}).exit_code, 0);
  EXPECT_EQ(common::load_yaml(edit.file).at("title"), "");
}

TEST(WorkflowNew, GivenAFileThatIsThere_ThenItStaysWithoutForceAndGoesWithIt) {
  const Editor edit;
  edit.folder.write(edit.file.filename().string(), "precious");
  const Outcome refused = edit({"new"});
  EXPECT_EQ(refused.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(refused.err));
  EXPECT_THAT(refused.err, HasSubstr("seeds & leaves.yaml: it is there already"));
  EXPECT_EQ(read_all(edit.file), "precious");
  EXPECT_EQ(edit({"new", "--force"}).exit_code, 0);
  EXPECT_EQ(edit.keys(), Words{});
}

TEST(WorkflowNew, GivenALinkThatLeadsNowhere_ThenItIsAFileThatIsThere) {
  const Editor edit;
  std::filesystem::create_symlink("nowhere.yaml", edit.file);
  EXPECT_EQ(edit({"new"}).exit_code, 1);
  EXPECT_FALSE(std::filesystem::exists(edit.folder / "nowhere.yaml"));
}

TEST(WorkflowNew, GivenOutputs_ThenTheyAreInTheFileAndAMisspeltOneIsNot) {
  const Editor edit;
  const Outcome refused = edit({"new", "--outputs", "mask,numbers"});
  EXPECT_EQ(refused.exit_code, 2);
  EXPECT_THAT(refused.err, HasSubstr("(did you mean \"masks\"?)"));
  EXPECT_FALSE(std::filesystem::exists(edit.file));
  EXPECT_EQ(edit({"new", "--outputs", "masks, numbers"}).exit_code, 0);
  EXPECT_EQ(common::load_yaml(edit.file).at("outputs"), (Value{"masks", "numbers"}));
  EXPECT_THAT(edit({"show"}).out, HasSubstr("\nOutputs\n  masks,numbers\n"));
}

TEST(WorkflowNew, GivenAFolderThatIsNotThere_ThenTheSentenceNamesTheFile) {
  Editor edit;
  edit.file = edit.folder / "no such folder" / "a.yaml";
  const Outcome outcome = edit({"new"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("no such folder"));
}

// ---- add ----

TEST(WorkflowAdd, GivenStepsOfBothKinds_ThenEachIsTheLastOfItsKindWithTheTypesOfItsParameters) {
  const Editor edit;
  edit({"new", "--title", "Plot"});
  const Outcome first = edit({"add", "threshold_range", "-p", "band=MSP.NIR", "-p", "low=0.5", "-p", "high=1"});
  EXPECT_EQ(first.exit_code, 0) << first.err;
  EXPECT_EQ(first.out, "Mask step 1: threshold_range band=MSP.NIR low=0.5 high=1.0\n");
  EXPECT_EQ(first.err, "");
  EXPECT_EQ(edit({"add", "area"}).out, "Result operation 1: area\n");
  EXPECT_EQ(edit({"add", "erode", "--param", "radius=3", "-p", "iterations=2"}).out,
            "Mask step 2: erode radius=3.0 iterations=2\n");
  EXPECT_EQ(edit({"add", "index_statistics", "-p", "indices=ndvi,gndvi"}).exit_code, 0);
  const Value document = common::load_yaml(edit.file);
  EXPECT_EQ(document.at("mask_operations"),
            (Value{{{"op", "threshold_range"}, {"params", {{"band", "MSP.NIR"}, {"low", 0.5}, {"high", 1.0}}}},
                   {{"op", "erode"}, {"params", {{"radius", 3.0}, {"iterations", 2}}}}}));
  EXPECT_EQ(document.at("result_operations"),
            (Value{{{"op", "area"}, {"params", Value::object()}},
                   {{"op", "index_statistics"}, {"params", {{"indices", {"ndvi", "gndvi"}}}}}}));
}

TEST(WorkflowAdd, AWorkflowMadeOnlyWithCommandsRunsAndGivesTheKnownAnswer) {
  const Editor edit;
  const auto capture = write_plot(edit.folder);
  edit({"new"});
  edit({"add", "threshold_range", "-p", "band=MSP.NIR", "-p", "low=0.5"});
  edit({"add", "area"});
  const Outcome outcome =
      orvexa_command({"run", edit.file.string(), capture.string(), "-o", (edit.folder / "out").string(), "--json"});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.json().at("results").at("area").at("metrics").at("area"), 300);  // 10 of 40 columns, 30 rows
}

TEST(WorkflowAdd, GivenAPosition_ThenTheStepStandsThereAmongThoseOfItsKind) {
  const EditorOfFour edit;
  EXPECT_EQ(edit({"add", "roi_rect", "-p", "rect=0.5,0.5,0.8,0.8", "--at", "1"}).out,
            "Mask step 1: roi_rect rect=0.5,0.5,0.8,0.8\n");
  EXPECT_EQ(edit({"add", "region_count", "--at", "2"}).out, "Result operation 2: region_count\n");
  EXPECT_EQ(edit({"add", "close", "--at", "5"}).out, "Mask step 5: close\n");  // after the four that are there
  EXPECT_THAT(edit.keys(),
              ElementsAre("roi_rect", "threshold_range", "open", "open", "close", "area", "region_count", "perimeter"));
  EXPECT_EQ(common::load_yaml(edit.file).at("outputs"), (Value{"masks", "numbers"}));
}

TEST(WorkflowAdd, GivenJson_ThenTheWholeWorkflowIsTheAnswerCountedFromOne) {
  const EditorOfFour edit;
  const Value document = edit({"add", "close", "--json"}).json();
  EXPECT_EQ(document.at("title"), "Four");
  EXPECT_EQ(document.at("mask_operations").at(3), (Value{{"step", 4}, {"op", "close"}, {"params", Value::object()}}));
  EXPECT_EQ(document.at("result_operations").at(0).at("step"), 1);
  EXPECT_EQ(document.at("problems"), Value::array());
}

struct RefusedAddition {
  const char* name;
  Words words;
  std::vector<std::string> texts;
};

class WorkflowAddRefuses : public testing::TestWithParam<RefusedAddition> {};

TEST_P(WorkflowAddRefuses, WithOneSentenceExitCode2AndTheFileAsItWas) {
  const EditorOfFour edit;
  const std::string before = read_all(edit.file);
  Words words = GetParam().words;
  words.insert(words.begin(), "add");
  const Outcome outcome = edit(words);
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(is_one_sentence(outcome.err));
  for (const std::string& text : GetParam().texts) EXPECT_THAT(outcome.err, HasSubstr(text));
  EXPECT_EQ(read_all(edit.file), before);
}

INSTANTIATE_TEST_SUITE_P(
    Table, WorkflowAddRefuses,
    testing::Values(
        RefusedAddition{"AMisspeltOperation", {"threshold_atuo"}, {"(did you mean \"threshold_auto\"?)"}},
        RefusedAddition{"AMisspeltParameter", {"erode", "-p", "radis=3"}, {"erode", "(did you mean \"radius\"?)"}},
        RefusedAddition{"AValueOfAnotherType", {"erode", "-p", "radius=wide"}, {"radius", "\"wide\""}},
        RefusedAddition{"AValueOutsideItsRange", {"erode", "-p", "radius=-3"}, {"radius", "from 0 to 200"}},
        RefusedAddition{"ParametersThatContradictEachOther",
                        {"threshold_range", "-p", "low=0.8", "-p", "high=0.2"},
                        {"threshold_range", "low", "high"}},
        RefusedAddition{"AParameterWithoutAValue", {"erode", "-p", "radius"}, {"NAME=VALUE"}},
        RefusedAddition{"AParameterGivenTwice", {"erode", "-p", "radius=1", "-p", "radius=2"}, {"radius", "twice"}},
        RefusedAddition{"AnOptionWithoutItsWord", {"erode", "-p"}, {"--param needs a value;"}},
        RefusedAddition{"AFirstStepThatNeedsAMask", {"erode", "--at", "1"}, {"cannot be the first step"}},
        RefusedAddition{"AResultOperationThatIsThere", {"area"}, {"area stands twice"}},
        RefusedAddition{"PositionZero", {"erode", "--at", "0"}, {"--at is \"0\"; a whole number from 1 to 4"}},
        RefusedAddition{"APositionAfterTheEnd", {"erode", "--at", "5"}, {"--at is \"5\"; a whole number from 1 to 4"}},
        RefusedAddition{"APositionThatIsNoNumber", {"histogram", "--at", "last"}, {"a whole number from 1 to 3"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(WorkflowAdd, GivenAFileThatIsNotThereOrNoWorkflow_ThenTheSentenceNamesIt) {
  Editor edit;
  const Outcome missing = edit({"add", "area"});
  EXPECT_EQ(missing.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(missing.err));
  EXPECT_THAT(missing.err, HasSubstr("seeds & leaves.yaml"));
  edit.folder.write(edit.file.filename().string(), "- 1\n");
  const Outcome list = edit({"add", "area"});
  EXPECT_EQ(list.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(list.err));
  EXPECT_THAT(list.err, HasSubstr("seeds & leaves.yaml: A workflow is a map"));
  EXPECT_EQ(read_all(edit.file), "- 1\n");
}

TEST(WorkflowAdd, GivenAFileWithAnotherProblem_ThenTheStepIsAddedAndTheProblemNamed) {
  const Editor edit;
  edit.folder.write(edit.file.filename().string(), "mask_operations:\n  - op: threshold_atuo\n    note: mine\n");
  const Outcome outcome = edit({"add", "area"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_TRUE(is_one_sentence(outcome.err.substr(0, outcome.err.find(" (did")) + ".\n"));
  EXPECT_THAT(outcome.err, HasSubstr("mask step 1 (threshold_atuo)"));
  EXPECT_THAT(edit.keys(), ElementsAre("threshold_atuo", "area"));
  EXPECT_EQ(common::load_yaml(edit.file).at("mask_operations").at(0).at("note"), "mine");
  EXPECT_EQ(edit({"add", "perimeter", "--quiet"}).err, "");
}

// ---- remove ----

TEST(WorkflowRemove, GivenTheNumberOfAMaskStep_ThenThatStepGoes) {
  const EditorOfFour edit;
  EXPECT_EQ(edit({"remove", "2"}).out, "Removed mask step 2: open radius=2\n");
  EXPECT_THAT(edit.keys(), ElementsAre("threshold_range", "open", "area", "perimeter"));
  EXPECT_EQ(edit({"remove", "2"}).out, "Removed mask step 2: open\n");
}

TEST(WorkflowRemove, GivenTheNumberOfAResultOperation_ThenThatOneGoes) {
  const EditorOfFour edit;
  EXPECT_EQ(edit({"remove", "2", "--operation"}).out, "Removed result operation 2: perimeter\n");
  EXPECT_THAT(edit.keys(), ElementsAre("threshold_range", "open", "open", "area"));
}

TEST(WorkflowRemove, GivenAKeyThatStandsOnce_ThenThatStepGoes) {
  const EditorOfFour edit;
  EXPECT_EQ(edit({"remove", "area"}).out, "Removed result operation 1: area\n");
  const Outcome outcome = edit({"remove", "threshold_range"});
  EXPECT_EQ(outcome.out, "Removed mask step 1: threshold_range band=MSP.NIR low=0.5 high=1.0\n");
  EXPECT_THAT(outcome.err, HasSubstr("open works on a mask and cannot be the first step."));
  EXPECT_THAT(edit.keys(), ElementsAre("open", "open", "perimeter"));
}

TEST(WorkflowRemove, GivenAnUnknownOperationInTheFile_ThenItCanBeTakenOut) {
  const Editor edit;
  edit.folder.write(edit.file.filename().string(), "mask_operations:\n  - op: threshold_atuo\n");
  EXPECT_EQ(edit({"remove", "threshold_atuo"}).exit_code, 0);
  EXPECT_EQ(edit.keys(), Words{});
}

class WorkflowRemoveRefuses : public testing::TestWithParam<RefusedAddition> {};

TEST_P(WorkflowRemoveRefuses, WithOneSentenceExitCode2AndTheFileAsItWas) {
  const EditorOfFour edit;
  const std::string before = read_all(edit.file);
  Words words = GetParam().words;
  words.insert(words.begin(), "remove");
  const Outcome outcome = edit(words);
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_TRUE(is_one_sentence(outcome.err));
  for (const std::string& text : GetParam().texts) EXPECT_THAT(outcome.err, HasSubstr(text));
  EXPECT_EQ(read_all(edit.file), before);
}

INSTANTIATE_TEST_SUITE_P(
    Table, WorkflowRemoveRefuses,
    testing::Values(RefusedAddition{"NoStep", {}, {"STEP is missing"}},
                    RefusedAddition{"StepZero", {"0"}, {"STEP is \"0\"; a whole number from 1 to 3"}},
                    RefusedAddition{"AStepAfterTheEnd", {"4"}, {"STEP is \"4\"; a whole number from 1 to 3"}},
                    RefusedAddition{"AnOperationAfterTheEnd", {"3", "--operation"}, {"from 1 to 2"}},
                    RefusedAddition{"AMisspeltKey", {"aera"}, {"four.yaml has no step", "(did you mean \"area\"?)"}},
                    RefusedAddition{"AKeyThatStandsTwice", {"open"}, {"mask step 2, mask step 3", "give the number"}},
                    RefusedAddition{"AKeyCalledANumber", {"area", "--operation"}, {"needs a number"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(WorkflowRemove, GivenAWorkflowWithoutSteps_ThenThatIsSaid) {
  const Editor edit;
  edit({"new"});
  EXPECT_THAT(edit({"remove", "1"}).err, HasSubstr("has no mask steps."));
  EXPECT_THAT(edit({"remove", "1", "--operation"}).err, HasSubstr("has no result operations."));
}

// ---- show ----

TEST(WorkflowShow, ListsTheStepsInOrderWithTheirParameters) {
  const EditorOfFour edit;
  const Outcome outcome = edit({"show"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out,
            "Four\n"
            "\n"
            "Mask steps\n"
            "  1  threshold_range  band=MSP.NIR low=0.5 high=1.0\n"
            "  2  open             radius=2\n"
            "  3  open\n"
            "\n"
            "Result operations\n"
            "  1  area\n"
            "  2  perimeter\n"
            "\n"
            "Outputs\n"
            "  masks,numbers\n");
}

TEST(WorkflowShow, GivenProblems_ThenTheStepsAreShownAllTheSame) {
  const Editor edit;
  edit.folder.write(edit.file.filename().string(), "mask_operations:\n  - op: threshold_atuo\n    params: [1]\n");
  const Outcome outcome = edit({"show"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.out, HasSubstr("  1  threshold_atuo  [1]\n"));
  EXPECT_THAT(outcome.err, HasSubstr("(did you mean \"threshold_auto\"?)"));
  const Value document = edit({"show", "--json"}).json();
  EXPECT_EQ(document.at("problems").at(0).at("step"), "mask step 1 (threshold_atuo)");
  EXPECT_EQ(document.at("mask_operations").at(0).at("params"), Value{1});
}

TEST(WorkflowShow, EachParameterCanBeTypedIntoAShellAsItIsPrinted) {
  Editor edit;
  edit.file = edit.folder.write(
      "hard.yaml",
      "mask_operations:\n"
      "  - {op: roi_rects, params: {rects: [[0.25, 0.25, 0.5, 0.5], [0.75, 0.7, 0.4, 0.25]]}}\n"
      "  - {op: roi_rect, params: {rect: [0.5, 0.5, 1.0, 1.0]}}\n"
      "  - {op: threshold_range, params: {band: \"it's; a $band\", low: 0.0, high: 1e-05}}\n"
      "  - {op: threshold_auto, params: {band: \"null\"}}\n"
      "  - {op: threshold_index, params: {bands: [\"N=MSP.A B,C\", \"R=MSP.\\\"x\\\"\"], low: -0.5}}\n"
      "  - {op: keep_regions, params: {min: null, max: 7.5, reset_mask_chain: true}}\n"
      "result_operations:\n"
      "  - {op: index_statistics, params: {indices: [ndvi, gndvi], bands: [\"R=A.B\"]}}\n"
      "  - {op: histogram, params: {}}\n");
  const std::string copy = (edit.folder / "copy.yaml").string();
  ASSERT_EQ(orvexa_command({"workflow", "new", copy}).exit_code, 0);
  std::istringstream lines(edit({"show"}).out);
  int steps = 0;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("  ")) continue;
    const std::string step = line.substr(line.find_first_not_of(" 0123456789"));
    const std::string script =
        "add() { key=$1; shift; for word; do set -- \"$@\" -p \"$word\"; shift; done; \"$orvexa\" workflow add "
        "\"$copy\" "
        "\"$key\" \"$@\"; }; orvexa=$0 copy=$1; add " +
        step;
    const Outcome outcome = Process({"sh", "-c", script, test::program(), copy}).wait();
    EXPECT_EQ(outcome.exit_code, 0) << step << "\n" << outcome.err;
    ++steps;
  }
  EXPECT_EQ(steps, 8);
  const Value expected = common::load_yaml(edit.file);
  const Value found = common::load_yaml(copy);
  EXPECT_EQ(found.at("mask_operations"), expected.at("mask_operations"));
  EXPECT_EQ(found.at("result_operations"), expected.at("result_operations"));
}

}  // namespace
}  // namespace orvexa::test
