#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/process.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using testing::HasSubstr;
using testing::Not;

/// Every file under a folder, relative to it, with its content.
std::map<std::string, std::string> content_of(const std::filesystem::path& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) files[entry.path().lexically_relative(folder)] = read_all(entry.path());
  }
  return files;
}

TEST(Sample, WritesCapturesWorkflowsAndAnswersThatCanBeUsedAtOnce) {
  const TemporaryFolder folder;
  const auto samples = folder / "my samples";
  const Outcome outcome = orvexa_command({"sample", samples.string(), "--json"});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  const common::Value document = outcome.json();
  EXPECT_EQ(document.at("files_written"), content_of(samples).size());
  std::vector<std::string> names;
  for (const common::Value& sample : document.at("samples")) {
    names.push_back(sample.at("name"));
    EXPECT_EQ(orvexa_command({"workflow", "check", sample.at("workflow").get<std::string>()}).exit_code, 0) << sample;
    EXPECT_FALSE(common::Value::parse(read_all(sample.at("expected").get<std::string>())).at("captures").empty());
    for (const common::Value& capture : sample.at("captures")) {
      EXPECT_EQ(orvexa_command({"info", capture.get<std::string>()}).exit_code, 0) << sample;
    }
  }
  EXPECT_THAT(names, testing::IsSupersetOf({"leaf_tray", "plot_five_bands", "leaf_fluorescence", "dish_objects"}));
  EXPECT_THAT(folder.entries(), testing::ElementsAre("my samples"));
  for (const auto& [name, content] : content_of(samples)) EXPECT_THAT(name, Not(HasSubstr(".samples-")));
}

TEST(Sample, GivenASecondTime_ThenNothingIsWrittenAndTheBytesAreTheSame) {
  const TemporaryFolder folder;
  ASSERT_EQ(orvexa_command({"sample", folder.path().string()}).exit_code, 0);
  const auto before = content_of(folder.path());
  const Outcome again = orvexa_command({"sample", folder.path().string()});
  EXPECT_EQ(again.exit_code, 0) << again.err;
  EXPECT_THAT(again.out, HasSubstr("Everything was there already."));
  EXPECT_EQ(content_of(folder.path()), before);
}

TEST(Sample, GivenAFileOfAnotherContent_ThenItIsRefusedAndNothingChangesUnlessForced) {
  const TemporaryFolder folder;
  const auto samples = folder / "samples";
  const common::Value document = orvexa_command({"sample", samples.string(), "--json"}).json();
  const std::filesystem::path mine = document.at("samples").at(0).at("workflow").get<std::string>();
  const std::filesystem::path gone = document.at("samples").at(1).at("workflow").get<std::string>();
  const std::string drawn = read_all(mine);
  std::ofstream(mine, std::ios::binary) << "title: mine\n";
  std::filesystem::remove(gone);

  const Outcome refused = orvexa_command({"sample", samples.string()});
  EXPECT_EQ(refused.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(refused.err));
  EXPECT_THAT(refused.err, testing::AllOf(HasSubstr(mine.filename().string()), HasSubstr("--force")));
  EXPECT_EQ(read_all(mine), "title: mine\n");
  EXPECT_FALSE(std::filesystem::exists(gone));

  EXPECT_EQ(orvexa_command({"sample", samples.string(), "--force"}).exit_code, 0);
  EXPECT_EQ(read_all(mine), drawn);
  EXPECT_TRUE(std::filesystem::exists(gone));
}

TEST(Sample, GivenACount_ThenThatManySmallPlotsAreWrittenBesides) {
  const TemporaryFolder folder;
  ASSERT_EQ(orvexa_command({"sample", folder.path().string(), "--count", "3", "--quiet"}).exit_code, 0);
  int headers = 0;
  for (const auto& [name, content] : content_of(folder / "series")) {
    if (std::filesystem::path(name).filename().string().starts_with("HDR_")) ++headers;
  }
  EXPECT_EQ(headers, 3);
}

TEST(Sample, GivenAFolderThatCannotBeMade_ThenOneSentenceNamesIt) {
  const TemporaryFolder folder;
  const auto file = folder.write("a file", "precious");
  const Outcome outcome = orvexa_command({"sample", (file / "samples").string()});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("a file"));
  EXPECT_EQ(read_all(file), "precious");
}

}  // namespace
}  // namespace orvexa::test
