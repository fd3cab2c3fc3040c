#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/process.h"

namespace orvexa::test {
namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

struct HelpCase {
  const char* name;
  Words command;
};

class Help : public testing::TestWithParam<HelpCase> {};

TEST_P(Help, ShowsUsageTheCommonOptionsAndAnExample) {
  Words arguments = GetParam().command;
  std::string command = "orvexa";
  for (const std::string& word : arguments) command += " " + word;
  arguments.emplace_back("--help");
  const Outcome outcome = orvexa_command(arguments);
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, HasSubstr("Usage: " + command + " "));
  EXPECT_THAT(outcome.out, HasSubstr("Example:\n  " + command));
  for (const char* option : {"--json", "--quiet", "--log-level", "--threads", "--help"}) {
    EXPECT_THAT(outcome.out, HasSubstr(option));
  }
}

INSTANTIATE_TEST_SUITE_P(
    EveryCommand, Help,
    testing::Values(HelpCase{"TheProgram", {}}, HelpCase{"Run", {"run"}}, HelpCase{"Batch", {"batch"}},
                    HelpCase{"Watch", {"watch"}}, HelpCase{"Preview", {"preview"}}, HelpCase{"Info", {"info"}},
                    HelpCase{"Ops", {"ops"}}, HelpCase{"Workflow", {"workflow"}},
                    HelpCase{"WorkflowNew", {"workflow", "new"}}, HelpCase{"WorkflowAdd", {"workflow", "add"}},
                    HelpCase{"WorkflowRemove", {"workflow", "remove"}}, HelpCase{"WorkflowShow", {"workflow", "show"}},
                    HelpCase{"WorkflowCheck", {"workflow", "check"}}, HelpCase{"Verify", {"verify"}},
                    HelpCase{"Sample", {"sample"}}, HelpCase{"Completion", {"completion"}}, HelpCase{"Man", {"man"}}),
    [](const auto& test) { return std::string(test.param.name); });

struct UsageCase {
  const char* name;
  Words arguments;
  const char* sentence;
};

class WrongUsage : public testing::TestWithParam<UsageCase> {};

TEST_P(WrongUsage, IsOneSentenceAndExitCode2) {
  const Outcome outcome = orvexa_command(GetParam().arguments);
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr(GetParam().sentence));
}

INSTANTIATE_TEST_SUITE_P(
    Table, WrongUsage,
    testing::Values(
        UsageCase{"NoCommand", {}, "orvexa: a command is missing"},
        UsageCase{"MisspeltCommand", {"rum", "a", "b", "-o", "c"}, "no command \"orvexa rum\" (did you mean \"run\"?)"},
        UsageCase{"MisspeltSecondCommand", {"workflow", "chek", "a"}, "(did you mean \"check\"?)"},
        UsageCase{"HalfACommand", {"workflow"}, "orvexa workflow: a command is missing"},
        UsageCase{"MisspeltOption", {"info", "a.png", "--jsn"}, "no option \"--jsn\" (did you mean \"--json\"?)"},
        UsageCase{"NoWorkflow", {"run"}, "WORKFLOW is missing"},
        UsageCase{"NoCapture", {"run", "a.yaml", "-o", "out"}, "CAPTURE is missing"},
        UsageCase{"NoOutputFolder", {"run", "a.yaml", "b.png"}, "-o DIR is missing"},
        UsageCase{
            "EmptyOutputFolder", {"run", "a.yaml", "b.png", "-o", ""}, "orvexa run: the value of --output is empty"},
        UsageCase{"OptionWithoutItsValue", {"run", "a.yaml", "b.png", "-o"}, "--output needs one value"},
        UsageCase{"NoWorkflowForABatch", {"batch"}, "WORKFLOW is missing"},
        UsageCase{"NoInput", {"batch", "a.yaml", "-o", "out"}, "orvexa batch: INPUT is missing"},
        UsageCase{"NoOutputFolderForABatch", {"batch", "a.yaml", "b"}, "orvexa batch: the option -o DIR is missing"},
        UsageCase{"EmptyRunToGoOnWith",
                  {"batch", "a.yaml", "b", "-o", "out", "--resume", ""},
                  "orvexa batch: the value of --resume is empty; see orvexa batch --help."},
        UsageCase{"EmptyRunOfFailedFiles", {"batch", "a.yaml", "--failed-of", ""}, "the value of --failed-of is empty"},
        UsageCase{"EmptyStep", {"run", "a.yaml", "b.png", "-o", "out", "--step", ""}, "the value of --step is empty"},
        UsageCase{"EmptyOperation",
                  {"run", "a.yaml", "b.png", "-o", "out", "--operation", ""},
                  "the value of --operation is empty"},
        UsageCase{"EmptyTimeBetweenPolls",
                  {"watch", "a.yaml", "in", "-o", "out", "--poll", ""},
                  "the value of --poll is empty"},
        UsageCase{
            "EmptyRetries", {"watch", "a.yaml", "in", "-o", "out", "--retries", ""}, "the value of --retries is empty"},
        UsageCase{"EmptyStatus", {"watch", "--status", ""}, "the value of --status is empty"},
        UsageCase{"EmptyInputs", {"verify", "a", "--inputs", ""}, "the value of --inputs is empty"},
        UsageCase{"EmptyImage",
                  {"preview", "a.png", "--op", "erode", "--overlay", "b.png", "--image", ""},
                  "the value of --image is empty"},
        UsageCase{"EmptyParameter", {"workflow", "add", "a.yaml", "area", "-p", ""}, "the value of --param is empty"},
        UsageCase{"EmptyPlace", {"workflow", "add", "a.yaml", "area", "--at", ""}, "the value of --at is empty"},
        UsageCase{"EmptyOutputs", {"workflow", "new", "a.yaml", "--outputs", ""}, "the value of --outputs is empty"},
        UsageCase{"EmptyCount", {"sample", "a", "--count", ""}, "the value of --count is empty"},
        UsageCase{"EmptyThreads", {"--threads", "", "ops"}, "the value of --threads is empty"},
        UsageCase{"EmptyLogLevel", {"ops", "--log-level", ""}, "the value of --log-level is empty"},
        UsageCase{"TwoSearches",
                  {"batch", "a.yaml", "b", "-o", "out", "--images", "--captures"},
                  "--captures and --images cannot be given together"},
        UsageCase{"TwoRunsToGoOnWith",
                  {"batch", "a.yaml", "--resume", "b", "--failed-of", "c"},
                  "--resume and --failed-of cannot be given together"},
        UsageCase{"InputsBesideFailedOf",
                  {"batch", "a.yaml", "b.png", "--failed-of", "c"},
                  "with --failed-of the files come from the run folder"},
        UsageCase{"TooManyArguments", {"info", "a.png", "b.png"}, "\"b.png\" is one argument too many"},
        UsageCase{"NothingToWatch", {"watch", "a.yaml", "-o", "out"}, "INPUT_DIR is missing"},
        UsageCase{"NoOutputOfAWatcher", {"watch", "a.yaml", "in"}, "-o DIR is missing"},
        UsageCase{"NoTimeBetweenPolls",
                  {"watch", "a.yaml", "in", "-o", "out", "--poll", "0"},
                  "--poll is \"0\"; a number above 0"},
        UsageCase{"NegativeTimeBetweenPolls",
                  {"watch", "a.yaml", "in", "-o", "out", "--poll=-1"},
                  "--poll is \"-1\"; a number above 0"},
        UsageCase{"TimeBetweenPollsIsNoNumber",
                  {"watch", "a.yaml", "in", "-o", "out", "--poll", "nan"},
                  "--poll is \"nan\"; a number above 0"},
        UsageCase{"NegativeRetries", {"watch", "a.yaml", "in", "-o", "out", "--retries=-1"}, "--retries is \"-1\""},
        UsageCase{"ImagesAndCaptures",
                  {"watch", "a.yaml", "in", "-o", "out", "--images", "--captures"},
                  "--images and --captures exclude each other"},
        UsageCase{"StatusAndMore", {"watch", "a.yaml", "--status", "out"}, "--status DIR stands alone"},
        UsageCase{"NothingToCheck", {"workflow", "check"}, "FILE is missing"},
        UsageCase{"NothingToVerify", {"verify"}, "RESULTS_FOLDER is missing"},
        UsageCase{"NoSampleFolder", {"sample"}, "DIR is missing"},
        UsageCase{"NegativeCount", {"sample", "a", "--count", "-1"}, "--count is \"-1\"; a whole number from 0"},
        UsageCase{"ThreadsAreNotANumber", {"--threads", "two", "ops"}, "--threads is \"two\"; a whole number from 0"},
        UsageCase{"NegativeThreads", {"ops", "--threads=-1"}, "--threads is \"-1\""},
        UsageCase{"UnknownLogLevel", {"ops", "--log-level", "loud"}, "one of debug, info, warning, error, off"},
        UsageCase{"UnknownOperation", {"ops", "areaa"}, "no operation \"areaa\" (did you mean \"area\"?)"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(WrongUsageWithJson, IsOneDocumentWhereverTheOptionStands) {
  for (const Words& arguments : {Words{"--json", "rum"}, Words{"info", "a.png", "b.png", "--json"},
                                 Words{"run", "a.yaml", "--json", "b.png", "-o"}, Words{"ops", "areaa", "--json"}}) {
    const Outcome outcome = orvexa_command(arguments);
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.json().at("error").get<std::string>() + "\n", outcome.err);
  }
}

TEST(Options, MeanTheSameBeforeAndAfterTheCommand) {
  const Outcome before = orvexa_command({"--json", "ops", "area"});
  const Outcome after = orvexa_command({"ops", "area", "--json"});
  EXPECT_EQ(before.exit_code, 0);
  EXPECT_EQ(before.json().at("key"), "area");
  EXPECT_EQ(before.out, after.out);
}

TEST(Arguments, GivenAFileThatIsNamedLikeACommand_ThenItIsAFile) {
  const Outcome outcome = orvexa_command({"info", "run"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.err, testing::StartsWith("run: "));
  const Outcome checked = orvexa_command({"workflow", "check", "ops", "check"});
  EXPECT_EQ(checked.exit_code, 1);
  EXPECT_THAT(checked.err, testing::AllOf(HasSubstr("ops: "), HasSubstr("check: ")));
}

TEST(Version, IsOneLine) {
  EXPECT_THAT(orvexa_command({"--version"}).out, testing::MatchesRegex("orvexa [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(Output, GivenAReaderThatHasGone_ThenTheCommandEndsQuietly) {
  Process process({test::program(), "ops"});
  process.close_output();
  const Outcome outcome = process.wait();
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(Output, GivenAFullDisk_ThenThatIsSaid) {
  const Outcome outcome = orvexa_command({"ops", "--quiet"}, "/dev/full");
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, "The output cannot be written: No space left on device.\n");
}

}  // namespace
}  // namespace orvexa::test
