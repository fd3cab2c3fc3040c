#include "orvexa/model/workflow/model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvexa/common/serialisation.h"
#include "orvexa/model/mask_operations/registry.h"
#include "orvexa/model/result_operations/registry.h"
#include "support/temporary_folder.h"

namespace orvexa::model {

void PrintTo(const WorkflowProblem& problem, std::ostream* out) {
  *out << problem.step << ": " << problem.text;
}

bool operator==(const WorkflowProblem& a, const WorkflowProblem& b) {
  return a.step == b.step && a.text == b.text;
}

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

template <typename Action>
std::string refusal_of(const Action& action) {
  try {
    action();
  } catch (const std::invalid_argument& failure) {
    return failure.what();
  }
  return "nothing was thrown";
}

/// The two doors in.
struct Door {
  const char* name;
  Workflow (*open)(const Value&);
};

class WorkflowFrom : public testing::TestWithParam<Door> {
 protected:
  static Workflow read(const Value& entries) { return GetParam().open(entries); }
  static Workflow read_yaml(std::string_view text) { return read(common::parse_yaml(text, "w.yaml")); }
  static std::string refusal(const Value& entries) {
    return refusal_of([&] { static_cast<void>(read(entries)); });
  }
};

INSTANTIATE_TEST_SUITE_P(Doors, WorkflowFrom,
                         testing::Values(Door{"Entries", [](const Value& entries) { return Workflow(entries); }},
                                         Door{"Dict", [](const Value& map) { return Workflow::from_dict(map); }}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(WorkflowFrom, GivenAFile_ThenAllItsEntriesAreThere) {
  const Workflow workflow = read_yaml(
      "format: 1\ntitle: Leaf tray\n"
      "mask_operations:\n  - op: roi_rect\n    params: {rect: [0.5, 0.5, 1, 1]}\n  - op: erode\n"
      "result_operations:\n  - {op: area, params: {}}\n"
      "outputs: [masks]\n");
  EXPECT_EQ(workflow.title, "Leaf tray");
  ASSERT_EQ(workflow.mask_operations.size(), 2u);
  EXPECT_EQ(workflow.mask_operations[0].op, "roi_rect");
  EXPECT_EQ(workflow.mask_operations[0].params, Value::parse(R"({"rect": [0.5, 0.5, 1, 1]})"));
  EXPECT_EQ(workflow.mask_operations[1].op, "erode");
  EXPECT_EQ(workflow.mask_operations[1].params, Value::object()) << "missing parameters are none";
  ASSERT_EQ(workflow.result_operations.size(), 1u);
  EXPECT_EQ(workflow.result_operations[0].op, "area");
  EXPECT_EQ(workflow.outputs, Value::array({"masks"}));
}

TEST_P(WorkflowFrom, GivenAnEmptyMap_ThenItIsAnEmptyWorkflow) {
  const Workflow workflow = read(Value::object());
  EXPECT_EQ(workflow, Workflow());
  EXPECT_EQ(workflow.title, "");
  EXPECT_FALSE(workflow.outputs.has_value());
}

TEST_P(WorkflowFrom, GivenNoFormatOrAnOlderOne_ThenItIsRead) {
  EXPECT_EQ(read_yaml("title: old\n").title, "old");
  EXPECT_EQ(read_yaml("format: 0\ntitle: old\n").title, "old");
  EXPECT_EQ(read_yaml("title: old\n").to_dict().at("format"), 1);
}

TEST_P(WorkflowFrom, GivenANewerFormat_WhenWrittenBack_ThenItsNumberAndAllItBringsAreKept) {
  const Value entries = common::parse_yaml(
      "format: 2\n"
      "title: from the future\n"
      "mask_operations:\n"
      "  - {op: invented_later, params: {a: 1}, when: always}\n"
      "result_operations: []\n"
      "outputs: everything\n"
      "invented_later: {deep: [1, '2', null]}\n"
      "mask_operation: text\n",
      "w.yaml");
  EXPECT_EQ(read(entries).to_dict().dump(), entries.dump());
  EXPECT_EQ(read(Value::parse(R"({"format": 18446744073709551615})")).to_dict().at("format").dump(),
            "18446744073709551615");
}

TEST_P(WorkflowFrom, GivenANewerFormat_ThenWhatIsNoStepIsRefusedAllTheSame) {
  EXPECT_EQ(refusal(Value::parse(R"({"format": 2, "mask_operations": [{"params": {}}]})")),
            "The workflow's mask step 1 has no \"op\", the key of its operation.");
}

TEST_P(WorkflowFrom, GivenAFormatThatIsNoWholeNumber_ThenItIsKeptAsItWas) {
  for (const Value& format : {Value("2"), Value(1.5), Value(nullptr)}) {
    EXPECT_EQ(read({{"format", format}}).to_dict().at("format"), format);
    EXPECT_EQ(refusal({{"format", format}, {"colour", "red"}}), "A workflow has no entry \"colour\".");
  }
}

TEST_P(WorkflowFrom, GivenNoMap_ThenItIsRefused) {
  EXPECT_EQ(refusal(nullptr), "The document is empty: a workflow is a map with \"title\" and lists of steps.");
  EXPECT_EQ(refusal(Value::array()), "A workflow is a map with \"title\" and lists of steps; this document is a list.");
  EXPECT_EQ(refusal("title"), "A workflow is a map with \"title\" and lists of steps; this document is a text.");
}

TEST_P(WorkflowFrom, GivenAnUnknownEntry_ThenItIsRefusedWithTheNearestKnownName) {
  EXPECT_EQ(refusal({{"mask_operation", Value::array()}}),
            "A workflow has no entry \"mask_operation\" (did you mean \"mask_operations\"?).");
  EXPECT_EQ(refusal({{"title", "x"}, {"colour", "red"}}), "A workflow has no entry \"colour\".");
}

TEST_P(WorkflowFrom, GivenAListThatIsNone_ThenItIsRefused) {
  EXPECT_EQ(refusal({{"mask_operations", "erode"}}),
            "The workflow's \"mask_operations\" must be a list of steps; it is a text.");
  EXPECT_EQ(refusal({{"result_operations", Value::object()}}),
            "The workflow's \"result_operations\" must be a list of steps; it is a map.");
}

TEST_P(WorkflowFrom, GivenAListWithNothingInIt_ThenThereAreNoSteps) {
  EXPECT_THAT(read_yaml("mask_operations:\nresult_operations: []\n").mask_operations, IsEmpty());
}

TEST_P(WorkflowFrom, GivenAStepThatIsNone_ThenTheSentenceNamesIt) {
  EXPECT_EQ(refusal(Value::parse(R"({"mask_operations": [{"op": "erode"}, "dilate"]})")),
            "The workflow's mask step 2 must be a map with \"op\" and \"params\"; it is a text.");
  EXPECT_EQ(refusal(Value::parse(R"({"result_operations": [null]})")),
            "The workflow's result operation 1 must be a map with \"op\" and \"params\"; it is nothing.");
  EXPECT_EQ(refusal(Value::parse(R"({"mask_operations": [{"params": {}}]})")),
            "The workflow's mask step 1 has no \"op\", the key of its operation.");
  EXPECT_EQ(refusal(Value::parse(R"({"mask_operations": [{"op": 3}]})")),
            "The \"op\" of the workflow's mask step 1 must be a text; it is a number.");
}

TEST_P(WorkflowFrom, GivenATitleThatIsNoText_ThenAScalarIsTakenAsWrittenAndTheRestRefused) {
  EXPECT_EQ(read_yaml("title: 2024\n").title, "2024");
  EXPECT_EQ(read_yaml("title:\n").title, "");
  EXPECT_EQ(refusal({{"title", Value::array({"a"})}}), "The workflow's title must be a text; it is a list.");
}

TEST_P(WorkflowFrom, GivenWhatThisProgramDoesNotKnow_WhenWrittenBack_ThenNothingIsLostOrMoved) {
  const Value entries = common::parse_yaml(
      "format: 1\n"
      "title: from elsewhere\n"
      "mask_operations:\n"
      "  - op: invented_later\n"
      "    params: {z: 1, a: {deep: [1, 2.0, '3']}, m: null}\n"
      "    note: keep me\n"
      "    colour: [red, green]\n"
      "  - op: erode\n"
      "    params: {radius: -5, no_such: yes}\n"
      "  - op: ''\n"
      "    params: [not, a, map]\n"
      "  - op: erode\n"
      "    params: null\n"
      "  - op: erode\n"
      "    params: {}\n"
      "result_operations:\n"
      "  - op: area\n"
      "    params: {}\n"
      "  - op: area\n"
      "    params: text\n"
      "outputs: {no: list}\n",
      "w.yaml");
  EXPECT_EQ(read(entries).to_dict().dump(), entries.dump());
}

TEST_P(WorkflowFrom, GivenRandomWorkflows_WhenSavedAndLoaded_ThenTheyAreTheSame) {
  const test::TemporaryFolder folder;
  std::mt19937 random(7);
  const std::vector<std::string> names = {"erode", "no", "1", "", "a: b", "roi_rect", "\xC3\xA4"};
  const std::vector<Value> values = {nullptr, true, 3, 2.5, "yes", Value::parse("[0.5, 1, [2.0]]"), Value::object()};
  const auto any = [&](const auto& list) { return list[random() % list.size()]; };
  for (int i = 0; i < 50; ++i) {
    Workflow workflow;
    workflow.title = any(names);
    for (auto n = random() % 4; n > 0; --n) {
      workflow.mask_operations.push_back(mask_op(any(names), {{any(names), any(values)}}));
      if (random() % 2 == 0) workflow.mask_operations.back().others["extra"] = any(values);
    }
    for (auto n = random() % 4; n > 0; --n) workflow.result_operations.push_back(result_op(any(names), any(values)));
    if (random() % 2 == 0) workflow.outputs = any(values);
    common::save_yaml(folder / "w.yaml", workflow.to_dict());
    const Value loaded = common::load_yaml(folder / "w.yaml");
    EXPECT_EQ(loaded, workflow.to_dict());
    EXPECT_EQ(read(loaded), workflow) << workflow.to_dict().dump(2);
  }
}

TEST(Workflow, IsWrittenWithFormatAndTitleFirst) {
  Workflow workflow = *new_workflow("Leaf");
  workflow.mask_operations.push_back(mask_op("erode", {{"radius", 2}}));
  workflow.result_operations.push_back(result_op("area"));
  EXPECT_EQ(common::yaml_text(workflow.to_dict()),
            "format: 1\n"
            "title: Leaf\n"
            "mask_operations:\n"
            "  - op: erode\n"
            "    params:\n"
            "      radius: 2\n"
            "result_operations:\n"
            "  - op: area\n"
            "    params: {}\n");
}

TEST(Workflow, GivenACopy_WhenItIsChanged_ThenTheOriginalIsNot) {
  Workflow original = *new_workflow("a");
  original.mask_operations.push_back(mask_op("erode", {{"radius", 2}}));
  Workflow copy = original;
  copy.title = "b";
  copy.mask_operations[0].params["radius"] = 3;
  copy.mask_operations.push_back(mask_op("dilate"));
  EXPECT_EQ(original.title, "a");
  EXPECT_EQ(original.mask_operations.size(), 1u);
  EXPECT_EQ(original.mask_operations[0].params.at("radius"), 2);
}

TEST(Workflow, GivenANewOne_ThenItIsEmptyButForItsTitle) {
  const auto workflow = new_workflow("plot_0007");
  EXPECT_EQ(workflow->title, "plot_0007");
  EXPECT_THAT(workflow->mask_operations, IsEmpty());
  EXPECT_THAT(workflow->result_operations, IsEmpty());
  EXPECT_EQ(mask_op("erode").params, Value::object());
  EXPECT_EQ(result_op("area").params, Value::object());
}

// The check, with operations of its own

class CheckWorkflow : public testing::Test {
 protected:
  struct PairCheck final : MaskOperation {
    std::optional<Mask> compute(const ImageSource& /*source*/, const Mask* /*current*/,
                                const Value& /*params*/) override {
      return std::nullopt;
    }
    void check(const Value& params) const override {
      if (params.at("low") > params.at("high")) throw std::invalid_argument("level: low is above high.");
    }
  };
  struct Nothing final : ResultOperation {
    OperationResult compute(const CaptureSet& /*capture*/, const RegionSet& /*regions*/,
                            const Value& /*params*/) override {
      return {};
    }
  };

  static ParameterInfo number(const std::string& name, double highest) {
    return {.name = name,
            .type = ParameterType::integer,
            .default_value = 1,
            .min = 0,
            .max = highest,
            .help = "A number."};
  }

  const MaskOperationInfo _level{
      .key = "level", .display_name = "Level", .parameters = {number("low", 10), number("high", 10)}, .make = [] {
        return std::make_unique<PairCheck>();
      }};
  const MaskOperationInfo _grow{.key = "grow",
                                .display_name = "Grow",
                                .parameters = {number("low", 10), number("high", 10)},
                                .needs_mask = true,
                                .make = [] { return std::make_unique<PairCheck>(); }};
  const ResultOperationInfo _count{.key = "count",
                                   .display_name = "Count",
                                   .category = "Counts",
                                   .parameters = {number("least", 5)},
                                   .operation_class = {.make = [] { return std::make_unique<Nothing>(); }}};
  const MaskRegistryOverride _masks{{&_level, &_grow}};
  const ResultRegistryOverride _results{{&_count}};

  static std::vector<WorkflowProblem> problems(std::string_view yaml) {
    return check_workflow(Workflow(common::parse_yaml(yaml, "w.yaml")));
  }
};

TEST_F(CheckWorkflow, GivenAGoodWorkflow_ThenThereIsNothingToReport) {
  EXPECT_THAT(check_workflow(Workflow()), IsEmpty());
  EXPECT_THAT(problems("mask_operations:\n"
                       "  - {op: level, params: {low: 1, high: 2, reset_mask_chain: true}}\n"
                       "  - {op: grow}\n"
                       "  - {op: level, params: null}\n"
                       "result_operations: [{op: count, params: {least: 2.0}}]\n"
                       "outputs: [masks, overlays, images, numbers]\n"),
              IsEmpty());
}

TEST_F(CheckWorkflow, GivenUnknownOperations_ThenEachIsNamedWithItsStepAndTheNearestKey) {
  EXPECT_THAT(
      problems("mask_operations: [{op: level}, {op: levle}, {op: xyzzy_plugh}]\nresult_operations: [{op: coun}]\n"),
      ElementsAre(
          WorkflowProblem{"mask step 2 (levle)", "There is no mask operation \"levle\" (did you mean \"level\"?)."},
          WorkflowProblem{"mask step 3 (xyzzy_plugh)", "There is no mask operation \"xyzzy_plugh\"."},
          WorkflowProblem{"result operation 1 (coun)",
                          "There is no result operation \"coun\" (did you mean \"count\"?)."}));
}

TEST_F(CheckWorkflow, GivenSeveralBadParametersInOneStep_ThenEachIsReported) {
  const auto found = problems("mask_operations: [{op: level, params: {low: 11, high: many, lwo: 1}}]\n");
  ASSERT_EQ(found.size(), 3u);
  for (const WorkflowProblem& problem : found) EXPECT_EQ(problem.step, "mask step 1 (level)");
  EXPECT_THAT(found[0].text, HasSubstr("\"low\" is 11"));
  EXPECT_THAT(found[1].text, HasSubstr("\"high\" is \"many\""));
  EXPECT_THAT(found[2].text, HasSubstr("(did you mean \"low\"?)"));
}

TEST_F(CheckWorkflow, GivenParametersThatDoNotFitTogether_ThenTheOperationSaysSo) {
  EXPECT_THAT(problems("mask_operations: [{op: level, params: {low: 3, high: 2}}]\n"),
              ElementsAre(WorkflowProblem{"mask step 1 (level)", "level: low is above high."}));
  // high is 1 by default
  EXPECT_THAT(problems("mask_operations: [{op: level, params: {low: 3}}]\n"),
              ElementsAre(WorkflowProblem{"mask step 1 (level)", "level: low is above high."}));
}

TEST_F(CheckWorkflow, GivenParametersThatAreNoMap_ThenTheStepIsReported) {
  for (const char* params : {"[1]", "text", "3", "true"}) {
    const auto found = problems("mask_operations: [{op: level, params: " + std::string(params) + "}]\n" +
                                "result_operations: [{op: count, params: " + std::string(params) + "}]\n");
    ASSERT_EQ(found.size(), 2u) << params;
    EXPECT_EQ(found[0].step, "mask step 1 (level)");
    EXPECT_THAT(found[0].text, HasSubstr("must be a map"));
    EXPECT_EQ(found[1].step, "result operation 1 (count)");
    EXPECT_THAT(found[1].text, HasSubstr("must be a map"));
  }
}

TEST_F(CheckWorkflow, GivenAFirstStepThatNeedsAMask_ThenItIsReported) {
  EXPECT_THAT(problems("mask_operations: [{op: grow}, {op: grow}]\n"),
              ElementsAre(WorkflowProblem{"mask step 1 (grow)", "grow works on a mask and cannot be the first step."}));
  EXPECT_THAT(problems("mask_operations: [{op: level}, {op: grow}]\n"), IsEmpty());
}

TEST_F(CheckWorkflow, GivenAResultOperationThatStandsTwice_ThenTheLaterOneIsReported) {
  EXPECT_THAT(problems("result_operations: [{op: count}, {op: count, params: {least: 2}}]\n"),
              ElementsAre(WorkflowProblem{"result operation 2 (count)",
                                          "count stands twice, first as result operation 1; a result operation stands "
                                          "once, its bands, indices and methods are lists."}));
}

TEST_F(CheckWorkflow, GivenAMaskOperationThatStandsTwice_ThenThatIsFine) {
  EXPECT_THAT(problems("mask_operations: [{op: level}, {op: level}]\n"), IsEmpty());
}

TEST_F(CheckWorkflow, GivenANewerFormat_ThenItIsReportedFirstAndWhatItBringsLast) {
  EXPECT_THAT(
      problems("colour: red\nformat: 2\nmask_operations: [{op: levle}]\n"),
      ElementsAre(
          WorkflowProblem{"format", "The workflow has format 2; this program reads format 1 and older."},
          WorkflowProblem{"mask step 1 (levle)", "There is no mask operation \"levle\" (did you mean \"level\"?)."},
          WorkflowProblem{"colour", "A workflow has no entry \"colour\"."}));
  EXPECT_THAT(problems("format: 18446744073709551615\n"),
              ElementsAre(WorkflowProblem{
                  "format", "The workflow has format 18446744073709551615; this program reads format 1 and older."}));
}

TEST_F(CheckWorkflow, GivenAFormatThatIsNoWholeNumber_ThenItIsReported) {
  EXPECT_THAT(problems("format: '1'\n"),
              ElementsAre(WorkflowProblem{"format", "The workflow's format must be a whole number; it is a text."}));
  EXPECT_THAT(problems("format: 1.5\n"),
              ElementsAre(WorkflowProblem{"format", "The workflow's format must be a whole number; it is 1.5."}));
  EXPECT_THAT(problems("format:\n"),
              ElementsAre(WorkflowProblem{"format", "The workflow's format must be a whole number; it is nothing."}));
}

TEST_F(CheckWorkflow, GivenAnOlderFormatOrNone_ThenThereIsNothingToReport) {
  for (const char* text : {"format: 1\n", "format: 0\n", "format: -7\n", "title: old\n"}) {
    EXPECT_THAT(problems(text), IsEmpty()) << text;
  }
}

TEST_F(CheckWorkflow, GivenBadOutputs_ThenEachIsReported) {
  EXPECT_THAT(problems("outputs: [mask, 3, images]\n"),
              ElementsAre(WorkflowProblem{"outputs",
                                          "There is no output \"mask\" (did you mean \"masks\"?); there are "
                                          "masks, overlays, images, numbers."},
                          WorkflowProblem{"outputs",
                                          "\"outputs\" must hold names (masks, overlays, images, numbers); one "
                                          "of them is a number."}));
  EXPECT_THAT(problems("outputs: masks\n"),
              ElementsAre(WorkflowProblem{
                  "outputs", "\"outputs\" must be a list of masks, overlays, images, numbers; it is a text."}));
  EXPECT_THAT(problems("outputs:\n"), testing::SizeIs(1));
  EXPECT_THAT(problems("outputs: []\n"), IsEmpty());
}

TEST_F(CheckWorkflow, GivenProblemsEverywhere_ThenTheyComeInTheOrderOfTheFile) {
  std::vector<std::string> steps;
  for (const auto& problem : problems("outputs: 1\n"
                                      "result_operations: [{op: x}, {op: count, params: {least: 9}}]\n"
                                      "mask_operations: [{op: grow, params: {low: 99}}, {op: y}]\n")) {
    steps.push_back(problem.step);
  }
  EXPECT_THAT(steps, ElementsAre("mask step 1 (grow)", "mask step 1 (grow)", "mask step 2 (y)",
                                 "result operation 1 (x)", "result operation 2 (count)", "outputs"));
}

TEST(CheckWorkflowOfTheRealRegistry, NamesWhatIsWrong) {
  const auto found =
      check_workflow(Workflow(common::parse_yaml("mask_operations:\n"
                                                 "  - {op: erode, params: {radius: 2}}\n"
                                                 "  - {op: threshold_range, params: {low: 0.9, high: 0.1}}\n"
                                                 "result_operations: [{op: aera}]\n",
                                                 "w.yaml")));
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[0].text, "erode works on a mask and cannot be the first step.");
  EXPECT_EQ(found[1].step, "mask step 2 (threshold_range)");
  EXPECT_THAT(found[1].text, HasSubstr("low"));
  EXPECT_EQ(found[2].text, "There is no result operation \"aera\" (did you mean \"area\"?).");
}

}  // namespace
}  // namespace orvexa::model
