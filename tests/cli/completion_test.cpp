#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "cli/process.h"
#include "orvexa/model/mask_operations/registry.h"
#include "orvexa/model/result_operations/registry.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;
using Words = std::vector<std::string>;

/// Loads the script into a real bash and asks it what could follow. `words` are split as bash splits them.
Words completions(Words words, const std::string& folder = "/") {
  const std::string script =
      "cd \"$1\" && shift && source <(\"$0\" completion bash) && COMP_WORDS=(orvexa \"$@\") && COMP_CWORD=$# && "
      "complete -p orvexa >/dev/null && _orvexa && [[ ${#COMPREPLY[@]} == 0 ]] || printf '%s\\n' \"${COMPREPLY[@]}\"";
  words.insert(words.begin(), {"bash", "--norc", "-c", script, test::program(), folder});
  const Outcome outcome = Process(words).wait();
  EXPECT_EQ(outcome.err, "");
  Words found;
  std::istringstream lines(outcome.out);
  for (std::string line; std::getline(lines, line);) found.push_back(line);
  return found;
}

TEST(Completion, IsAScriptThatBashUnderstandsWithoutARemark) {
  const Outcome outcome =
      Process(
          {"bash", "-c", "\"$0\" completion bash | bash --posix -n; \"$0\" completion bash | bash -n", test::program()})
          .wait();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
}

TEST(Completion, GivenNothing_ThenEveryCommandIsOffered) {
  EXPECT_THAT(completions({""}), IsSupersetOf({"run", "preview", "info", "ops", "workflow", "verify", "sample"}));
  EXPECT_THAT(completions({"wo"}), ElementsAre("workflow"));
  EXPECT_THAT(completions({""}), Not(Contains("check"))) << "that is a command of workflow";
}

TEST(Completion, GivenAGroup_ThenItsCommandsAreOffered) {
  EXPECT_THAT(completions({"workflow", ""}), ElementsAre("new", "add", "remove", "show", "check"));
  EXPECT_THAT(completions({"--json", "workflow", "s"}), ElementsAre("show"));
}

TEST(Completion, GivenADash_ThenTheOptionsOfTheCommandAreOffered) {
  EXPECT_THAT(completions({"run", "--"}),
              IsSupersetOf({"--output", "--step", "--operation", "--json", "--quiet", "--threads", "--help"}));
  EXPECT_THAT(completions({"run", "--"}), Not(Contains("--count")));
  EXPECT_THAT(completions({"sample", "--c"}), ElementsAre("--count"));
}

TEST(Completion, GivenOps_ThenEveryOperationIsOfferedInTheOrderOfTheRegistries) {
  Words known;
  for (const model::MaskOperationInfo* info : model::get_all_mask_operation_infos()) {
    known.push_back((info->key == "convex_hull" ? "mask/" : "") + info->key);
  }
  for (const auto& [key, info] : model::get_available_result_operations()) {
    known.push_back((key == "convex_hull" ? "result/" : "") + key);
  }
  EXPECT_EQ(completions({"ops", ""}), known);
  EXPECT_THAT(completions({"ops", "region_c"}), ElementsAre("region_count"));
  EXPECT_THAT(completions({"ops", "area", ""}), ElementsAre()) << "ops takes one word";
}

TEST(Completion, GivenTheOperationOfAPreview_ThenMaskOperationsAreOffered) {
  EXPECT_THAT(completions({"preview", "a.png", "--op", "thr"}),
              IsSupersetOf({"threshold_auto", "threshold_range", "threshold_hsv", "threshold_index"}));
  EXPECT_THAT(completions({"preview", "a.png", "--op", "ar"}), ElementsAre()) << "area is no mask operation";
}

TEST(Completion, GivenAStepToAdd_ThenOperationsAndTheirParametersAreOffered) {
  EXPECT_THAT(completions({"workflow", "add", "a.yaml", "er"}), ElementsAre("erode"));
  EXPECT_THAT(completions({"workflow", "add", "a.yaml", "erode", "-p", ""}),
              IsSupersetOf({"radius=", "unit=", "shape=", "iterations=", "reset_mask_chain="}));
  EXPECT_THAT(completions({"preview", "a.png", "--op", "threshold_auto", "--param", "me"}), ElementsAre("method="));
  EXPECT_THAT(completions({"workflow", "add", "a.yaml", "erode", "-p", "radius", "=", "2", "-p", "it"}),
              ElementsAre("iterations="));
}

TEST(Completion, GivenAParameterWithChoices_ThenTheyAreOfferedAfterTheEqualsSign) {
  EXPECT_THAT(completions({"workflow", "add", "a.yaml", "threshold_auto", "-p", "method", "=", "o"}),
              ElementsAre("otsu"));
  EXPECT_THAT(completions({"workflow", "add", "a.yaml", "threshold_auto", "-p", "method", "="}),
              IsSupersetOf({"otsu", "triangle", "li"}));
  EXPECT_THAT(completions({"workflow", "add", "a.yaml", "erode", "-p", "reset_mask_chain", "=", ""}),
              ElementsAre("true", "false"));
  EXPECT_THAT(completions({"workflow", "add", "a.yaml", "erode", "-p", "radius", "=", ""}), ElementsAre());
}

TEST(Completion, GivenAnOptionWithChoices_ThenTheyAreOfferedInEitherSpelling) {
  EXPECT_THAT(completions({"--log-level", "w"}), ElementsAre("warning"));
  EXPECT_THAT(completions({"info", "a.png", "--log-level", "=", "d"}), ElementsAre("debug"));
  EXPECT_THAT(completions({"completion", ""}), ElementsAre("bash"));
}

TEST(Completion, GivenAFileOrAFolder_ThenThoseOfTheFolderAreOfferedWithBlanksInTheirNames) {
  const TemporaryFolder folder;
  folder.write("my leaves.yaml", "");
  folder.write("my results/x", "");
  const std::string place = folder.path().string();
  EXPECT_THAT(completions({"run", "m"}, place), testing::UnorderedElementsAre("my leaves.yaml", "my results"));
  EXPECT_THAT(completions({"run", "a.yaml", "b.png", "-o", "m"}, place), ElementsAre("my results"));
  EXPECT_THAT(completions({"run", "a.yaml", "b.png", "--output", "=", "m"}, place), ElementsAre("my results"));
  EXPECT_THAT(completions({"workflow", "check", "a.yaml", "b.yaml", "my l"}, place), ElementsAre("my leaves.yaml"))
      << "check takes any number of files";
}

TEST(Completion, GivenTheNumberOfAnOption_ThenNothingIsOffered) {
  EXPECT_THAT(completions({"sample", "--count", ""}), ElementsAre());
}

TEST(Completion, GivenAnUnknownShell_ThenASentenceSaysWhichThereIs) {
  const Outcome outcome = orvexa_command({"completion", "bsh"});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("(did you mean \"bash\"?)"));
}

// ---- Man page

bool has_groff() {
  return Process({"sh", "-c", "command -v groff >/dev/null"}).wait().exit_code == 0;
}

TEST(ManPage, IsRenderedWithoutAWarning) {
  if (!has_groff()) GTEST_SKIP() << "this machine has no groff (package groff-base)";
  const Outcome outcome = Process({"sh", "-c", "\"$0\" man | groff -man -Tutf8 -ww", test::program()}).wait();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_FALSE(outcome.out.empty());
}

TEST(ManPage, SaysWhatTheHelpSays) {
  if (!has_groff()) GTEST_SKIP() << "this machine has no groff (package groff-base)";
  // Lines as long as they need to be, no bold and no underlining.
  const std::string text =
      Process({"sh", "-c", "\"$0\" man | groff -man -Tutf8 -P-c -P-b -P-u -P-o -rLL=2000n -rHY=0", test::program()})
          .wait()
          .out;
  for (const char* section : {"NAME", "SYNOPSIS", "OPTIONS", "COMMANDS", "OPERATIONS", "EXIT STATUS", "EXAMPLES"}) {
    EXPECT_THAT(text, HasSubstr(std::string("\n") + section + "\n"));
  }
  EXPECT_THAT(text, HasSubstr("orvexa run WORKFLOW CAPTURE -o DIR [OPTIONS]"));
  EXPECT_THAT(text, HasSubstr("orvexa workflow check FILE... [OPTIONS]"));
  EXPECT_THAT(text, HasSubstr("-o, --output DIR"));
  EXPECT_THAT(text, HasSubstr("Files of another content are never overwritten without --force."));
  EXPECT_THAT(text, HasSubstr("orvexa workflow new leaves.yaml --title \"Leaves on a tray\""));
  for (const model::MaskOperationInfo* info : model::get_all_mask_operation_infos()) {
    EXPECT_THAT(text, HasSubstr(info->key)) << "in the list of operations";
    EXPECT_THAT(text, HasSubstr(info->summary));
  }
  for (const auto& [key, info] : model::get_available_result_operations()) EXPECT_THAT(text, HasSubstr(info->summary));
}

TEST(ManPage, IsAsciiSoThatEveryLocaleReadsItAlike) {
  for (const char c : orvexa_command({"man"}).out) {
    ASSERT_TRUE(c == '\n' || (c >= ' ' && c <= '~')) << static_cast<int>(c);
  }
}

}  // namespace
}  // namespace orvexa::test
