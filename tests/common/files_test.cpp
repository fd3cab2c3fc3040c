#include "orvexa/common/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>

#include "orvexa/common/text.h"
#include "support/file_size_limit.h"
#include "support/temporary_folder.h"

namespace orvexa::common {
namespace {

using test::FileSizeLimit;
using test::read_all;
using test::TemporaryFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

template <typename Action>
std::string sentence_of(const Action& action) {
  try {
    action();
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
  return "nothing was thrown";
}

/// While it lives, a test that root runs has no more rights than the user nobody.
class OrdinaryUser {
 public:
  OrdinaryUser() : _before(::geteuid()) {
    constexpr uid_t nobody = 65534;
    if (_before == 0) static_cast<void>(::seteuid(nobody) == 0);
  }
  ~OrdinaryUser() {
    if (::geteuid() != _before && ::seteuid(_before) != 0) std::abort();
  }
  OrdinaryUser(const OrdinaryUser&) = delete;
  OrdinaryUser& operator=(const OrdinaryUser&) = delete;

 private:
  uid_t _before;
};

// Reading

TEST(ReadFile, GivesTheWholeContent) {
  const TemporaryFolder folder;
  const std::string content("a\0b\n\xFF", 5);
  const Path file = folder.write("bl\xC3\xBCte 1.bin", content);
  EXPECT_EQ(as_text(read_file(file)), content);
  EXPECT_EQ(read_text_file(file, 5), content);
  EXPECT_THAT(read_file(folder.write("empty", "")), IsEmpty());
}

TEST(ReadFile, GivesALargeFileWhole) {
  const TemporaryFolder folder;
  std::string content;
  for (int i = 0; i < 300'000; ++i) content += static_cast<char>(i * 7 % 256);
  EXPECT_EQ(as_text(read_file(folder.write("large", content))), content);
}

TEST(ReadFile, GivenAFileWhoseSizeTheSystemDoesNotTell_ThenItsContentIsStillRead) {
  EXPECT_THAT(read_text_file("/proc/self/status", 1 << 20), HasSubstr("Pid:"));
}

TEST(ReadFile, GivenNoFile_ThenTheSentenceSaysSo) {
  EXPECT_EQ(sentence_of([] { static_cast<void>(read_file("/nowhere/at all.yaml")); }),
            "/nowhere/at all.yaml: there is no such file.");
}

TEST(ReadFile, GivenAFolder_ThenTheSentenceSaysSo) {
  const TemporaryFolder folder;
  EXPECT_EQ(sentence_of([&] { static_cast<void>(read_file(folder.path())); }),
            folder.path().string() + ": this is a folder, not a file.");
}

TEST(ReadFile, GivenAPathThroughAFile_ThenTheSentenceGivesTheSystemsReason) {
  const TemporaryFolder folder;
  const Path file = folder.write("file", "x") / "below";
  EXPECT_EQ(sentence_of([&] { static_cast<void>(read_file(file)); }),
            file.string() + ": cannot be read: Not a directory.");
}

TEST(ReadFile, GivenAPipeThatNobodyWritesTo_ThenItIsRefusedAtOnce) {
  const TemporaryFolder folder;
  const Path pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(sentence_of([&] { static_cast<void>(read_file(pipe)); }),
            pipe.string() + ": this is not an ordinary file.");
}

TEST(ReadFile, GivenAFileAboveTheLimit_ThenTheSentenceNamesTheLimit) {
  const TemporaryFolder folder;
  const Path file = folder.write("file", std::string(1235, 'x'));
  EXPECT_EQ(read_file(file, 1235).size(), 1235u);
  EXPECT_EQ(sentence_of([&] { static_cast<void>(read_file(file, 1234)); }),
            file.string() + ": the file is larger than 1,234 bytes, the most that is read of it.");
}

TEST(ReadFile, GivenAnEndlessFile_ThenItIsRefused) {
  EXPECT_EQ(sentence_of([] { static_cast<void>(read_file("/dev/zero", 100)); }),
            "/dev/zero: this is not an ordinary file.");
}

// Writing

TEST(AtomicFile, WritesAFileAndLeavesNothingElse) {
  const TemporaryFolder folder;
  write_file_atomically(folder / "metrics \xC3\xBC.json", "{}\n");
  EXPECT_EQ(read_all(folder / "metrics \xC3\xBC.json"), "{}\n");
  EXPECT_THAT(folder.entries(), ElementsAre("metrics \xC3\xBC.json"));
}

TEST(AtomicFile, WritesInSeveralParts) {
  const TemporaryFolder folder;
  AtomicFile file(folder / "a");
  file.write("one ");
  file.write("");
  file.write(as_byte_span("two"));
  file.commit();
  EXPECT_EQ(read_all(folder / "a"), "one two");
}

TEST(AtomicFile, ReplacesAnOldFile) {
  const TemporaryFolder folder;
  const Path file = folder.write("a", "a much longer old content");
  write_file_atomically(file, "new");
  EXPECT_EQ(read_all(file), "new");
}

TEST(AtomicFile, GivenAnOldFile_WhenNotYetCommitted_ThenReadersSeeTheOldContent) {
  const TemporaryFolder folder;
  const Path target = folder.write("a", "old");
  AtomicFile file(target);
  file.write("new");
  EXPECT_EQ(read_all(target), "old");
  for (const std::string& name : folder.entries()) {
    if (name == "a") continue;
    EXPECT_THAT(name, StartsWith(".")) << "the unfinished file is not hidden";
  }
  file.commit();
  EXPECT_EQ(read_all(target), "new");
}

TEST(AtomicFile, GivenNoCommit_WhenItEnds_ThenTheOldFileIsUntouchedAndNothingIsLeft) {
  const TemporaryFolder folder;
  const Path target = folder.write("a", "old");
  {
    AtomicFile file(target);
    file.write("half of");
  }
  EXPECT_EQ(read_all(target), "old");
  EXPECT_THAT(folder.entries(), ElementsAre("a"));
}

TEST(AtomicFile, GivenAWriteThatFailsHalfWay_ThenTheOldFileIsUntouchedAndTheSentenceNamesFileAndReason) {
  const TemporaryFolder folder;
  const Path target = folder.write("metrics.json", "old");
  const FileSizeLimit limit(10'000);
  EXPECT_EQ(sentence_of([&] { write_file_atomically(target, std::string(1'000'000, 'x')); }),
            target.string() + ": cannot be written: File too large.");
  EXPECT_EQ(read_all(target), "old");
  EXPECT_THAT(folder.entries(), ElementsAre("metrics.json"));
}

TEST(AtomicFile, GivenTwoWritersOfOneFile_ThenTheLastToCommitWinsWhole) {
  const TemporaryFolder folder;
  AtomicFile first(folder / "a");
  AtomicFile second(folder / "a");
  first.write("first");
  second.write("second");
  second.commit();
  first.commit();
  EXPECT_EQ(read_all(folder / "a"), "first");
  EXPECT_THAT(folder.entries(), ElementsAre("a"));
}

TEST(AtomicFile, GivenNoFolder_ThenTheSentenceNamesIt) {
  const TemporaryFolder folder;
  const Path target = folder / "missing" / "a.yaml";
  EXPECT_EQ(sentence_of([&] { AtomicFile file(target); }),
            target.string() + ": cannot be written: there is no folder " + (folder / "missing").string() + ".");
}

TEST(AtomicFile, GivenAFileInPlaceOfTheFolder_ThenTheSentenceGivesTheReason) {
  const TemporaryFolder folder;
  const Path target = folder.write("file", "x") / "a.yaml";
  EXPECT_EQ(sentence_of([&] { AtomicFile file(target); }), target.string() + ": cannot be written: Not a directory.");
}

TEST(AtomicFile, GivenAFolderOfThatName_ThenItIsRefusedAndStays) {
  const TemporaryFolder folder;
  folder.write("a/inside", "x");
  EXPECT_EQ(sentence_of([&] { AtomicFile file(folder / "a"); }),
            (folder / "a").string() + ": cannot be written: there is a folder of that name.");
  EXPECT_THAT(folder.entries(), ElementsAre("a"));
}

TEST(AtomicFile, GivenADevice_ThenItIsRefusedAndStays) {
  EXPECT_EQ(sentence_of([] { AtomicFile file("/dev/full"); }),
            "/dev/full: cannot be written: this is not an ordinary file.");
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
}

TEST(AtomicFile, GivenAPathThatEndsInASlash_ThenItIsRefused) {
  const TemporaryFolder folder;
  EXPECT_THAT(sentence_of([&] { AtomicFile file(folder.path() / ""); }), HasSubstr("this is not the name of a file"));
}

TEST(AtomicFile, GivenAFolderThatMayNotBeWrittenTo_ThenTheSentenceSaysSo) {
  const TemporaryFolder folder;
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0555));
  std::string sentence;
  {
    const OrdinaryUser user;
    if (::geteuid() == 0) GTEST_SKIP() << "root may write anywhere, and cannot become somebody else here";
    sentence = sentence_of([&] { AtomicFile file(folder / "a"); });
  }
  std::filesystem::permissions(folder.path(), std::filesystem::perms::owner_all);
  EXPECT_EQ(sentence, (folder / "a").string() + ": cannot be written: Permission denied.");
}

TEST(AtomicFile, GivenALinkToAFile_ThenTheLinkStaysAndTheFileIsReplaced) {
  const TemporaryFolder folder;
  const Path file = folder.write("real/a", "old");
  std::filesystem::create_symlink(file, folder / "link");
  write_file_atomically(folder / "link", "new");
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_EQ(read_all(file), "new");
}

TEST(AtomicFile, GivenAFileThatOnlyItsOwnerMayRead_ThenTheNewOneIsLikewise) {
  const TemporaryFolder folder;
  const Path file = folder.write("a", "old");
  std::filesystem::permissions(file, std::filesystem::perms(0600));
  write_file_atomically(file, "new");
  EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
}

TEST(AtomicFile, GivenANewFile_ThenItHasTheUsualPermissions) {
  const TemporaryFolder folder;
  const mode_t mask = ::umask(0022);
  write_file_atomically(folder / "a", "x");
  ::umask(mask);
  EXPECT_EQ(std::filesystem::status(folder / "a").permissions(), std::filesystem::perms(0644));
}

TEST(AtomicFile, GivenTheLongestNameThatTheSystemAllows_ThenItWorks) {
  const TemporaryFolder folder;
  const std::string name(255, 'n');
  write_file_atomically(folder / name, "x");
  EXPECT_THAT(folder.entries(), ElementsAre(name));
}

TEST(AtomicFile, GivenANameWithoutFolder_ThenItIsWrittenToTheCurrentOne) {
  const TemporaryFolder folder;
  const Path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  write_file_atomically("a", "x");
  std::filesystem::current_path(before);
  EXPECT_EQ(read_all(folder / "a"), "x");
}

TEST(FlushFolder, GivenNoFolder_ThenTheSentenceSaysSo) {
  EXPECT_EQ(sentence_of([] { flush_folder("/nowhere"); }),
            "/nowhere: the folder cannot be flushed to disk: No such file or directory.");
}

// Names

struct SafeNameCase {
  const char* name;
  std::string given;
  std::string safe;
};

class SafeFileName : public testing::TestWithParam<SafeNameCase> {};

TEST_P(SafeFileName, IsASinglePathComponent) {
  EXPECT_EQ(safe_file_name(GetParam().given), GetParam().safe);
}

INSTANTIATE_TEST_SUITE_P(
    Table, SafeFileName,
    testing::Values(SafeNameCase{"Plain", "plot_0007", "plot_0007"}, SafeNameCase{"Blank", "plot 7", "plot 7"},
                    SafeNameCase{"Umlaut", "Bl\xC3\xBCte", "Bl\xC3\xBCte"},
                    SafeNameCase{"Separators", "a/b\\c", "a_b_c"}, SafeNameCase{"Upwards", "../../etc", "_.._etc"},
                    SafeNameCase{"Dots", "..", "_"}, SafeNameCase{"Empty", "", "_"},
                    SafeNameCase{"OnlyBlanks", "   ", "_"}, SafeNameCase{"Hidden", ".hidden", "hidden"},
                    SafeNameCase{"TrailingDotsAndBlanks", "a. . ", "a"},
                    SafeNameCase{"Refused", "<a>:\"b\"|?*", "_a___b____"},
                    SafeNameCase{"Control", std::string("a\0b\n\x7F\xC2\x85", 7), "a_b___"},
                    SafeNameCase{"NotUtf8", "caf\xE9", "caf\xEF\xBF\xBD"},
                    SafeNameCase{"Long", std::string(200, 'x'), std::string(120, 'x')},
                    // 119 bytes and one character of two bytes: it does not fit and is not cut in half
                    SafeNameCase{"LongAtAnUmlaut", std::string(119, 'x') + "\xC3\xBCy", std::string(119, 'x')},
                    SafeNameCase{"LongWithABlankAtTheCut", std::string(119, 'x') + "  y", std::string(119, 'x')}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(RandomSuffix, IsEightHexadecimalDigitsAndDiffers) {
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    const std::string suffix = random_suffix();
    EXPECT_TRUE(std::regex_match(suffix, std::regex("[0-9a-f]{8}"))) << suffix;
    seen.insert(suffix);
  }
  // The chance that two of 100 random 32-bit numbers are equal is about one in 870,000; three pairs never happen.
  EXPECT_GE(seen.size(), 98u);
}

TEST(PathText, GivenBytesThatAreNotUtf8_ThenTheyAreReplaced) {
  EXPECT_EQ(path_text("/a b/\xC3\xBC"), "/a b/\xC3\xBC");
  EXPECT_EQ(path_text("/caf\xE9"), "/caf\xEF\xBF\xBD");
}

// FIPS 180-4's published examples.
TEST(Sha256, EqualsThePublishedExamples) {
  const auto of = [](std::string_view text) { return sha256_hex(as_byte_span(text)); };
  EXPECT_EQ(of(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(of("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(of(std::string(1'000'000, 'a')), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

}  // namespace
}  // namespace orvexa::common
