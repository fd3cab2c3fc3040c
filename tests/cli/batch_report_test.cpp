#include "orvexa/cli/batch_report.h"

#include <gtest/gtest.h>

namespace orvexa::cli {
namespace {

std::string sentence_of(const std::string& load_error) {
  return failure_sentence({.file = "in/HDR_a.INF", .error = "Failed to load capture from: in/HDR_a.INF"},
                          "Failed to load capture from in/HDR_a.INF: " + load_error);
}

TEST(FailureSentence, GivenAReasonThatBeginsWithTheName_ThenThePathTakesItsPlace) {
  EXPECT_EQ(sentence_of("HDR_a.INF, line 2: no."), "in/HDR_a.INF, line 2: no.");
  EXPECT_EQ(sentence_of("HDR_a.INF: no."), "in/HDR_a.INF: no.");
}

TEST(FailureSentence, GivenAReasonThatBeginsWithThePath_ThenThePathDoesNotStandTwice) {
  EXPECT_EQ(sentence_of("in/HDR_a.INF: cannot be read: Permission denied."),
            "in/HDR_a.INF: cannot be read: Permission denied.");
}

TEST(FailureSentence, GivenAReasonThatNamesSomethingElse_ThenThePathStandsBeforeIt) {
  EXPECT_EQ(sentence_of("The disk is gone."), "in/HDR_a.INF: The disk is gone.");
}

}  // namespace
}  // namespace orvexa::cli
