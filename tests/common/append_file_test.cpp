#include "orvexa/common/append_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/file_size_limit.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using common::AppendFile;
using testing::HasSubstr;

TEST(AppendFile, IsMadeAndGrowsAtItsEnd) {
  const TemporaryFolder folder;
  {
    AppendFile file(folder / "journal");
    EXPECT_EQ(file.size(), 0U);
    file.append("one\n");
    file.append("two\n");
    EXPECT_EQ(read_all(folder / "journal"), "one\ntwo\n");
  }
  AppendFile file(folder / "journal");
  EXPECT_EQ(file.size(), 8U);
  file.append("three\n");
  EXPECT_EQ(read_all(folder / "journal"), "one\ntwo\nthree\n");
}

TEST(AppendFile, GivenACut_ThenTheNextTextFollowsTheRest) {
  const TemporaryFolder folder;
  AppendFile file(folder.write("journal", "one\ntw"));
  file.cut(4);
  file.append("two\n");
  EXPECT_EQ(read_all(folder / "journal"), "one\ntwo\n");
  EXPECT_EQ(file.size(), 8U);
}

TEST(AppendFile, GivenATextOfWhichOnlyABeginningFits_ThenNothingOfItIsInTheFile) {
  const TemporaryFolder folder;
  AppendFile file(folder / "journal");
  file.append("one\n");
  std::string sentence;
  {
    const FileSizeLimit limit(10);
    try {
      file.append("two hundred\n");
    } catch (const std::runtime_error& failure) {
      sentence = failure.what();
    }
  }
  EXPECT_EQ(sentence, (folder / "journal").string() + ": cannot be written: File too large.");
  EXPECT_EQ(read_all(folder / "journal"), "one\n");
  file.append("two\n");
  EXPECT_EQ(read_all(folder / "journal"), "one\ntwo\n");
}

TEST(AppendFile, GivenAFolderOfThatNameOrNoFolderAround_ThenASentenceNamesTheFile) {
  const TemporaryFolder folder;
  std::filesystem::create_directories(folder / "journal");
  for (const std::string name : {"journal", "nowhere/journal"}) {
    try {
      const AppendFile file(folder / name);
      FAIL() << name;
    } catch (const std::runtime_error& failure) {
      EXPECT_THAT(failure.what(), HasSubstr(name + ": cannot be written: "));
    }
  }
}

}  // namespace
}  // namespace orvexa::test
