#include "orvexa/model/workflow/results_folder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <optional>
#include <set>
#include <span>
#include <string>

#include "orvexa/common/files.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace orvexa::model {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

std::span<const std::byte> bytes(std::string_view text) {
  return common::as_byte_span(text);
}

/// The text of what a call throws; empty when it throws nothing.
template <typename Call>
std::string thrown(const Call& call) {
  try {
    call();
  } catch (const std::exception& failure) {
    return failure.what();
  }
  return {};
}

TEST(ResultsFolder, IsHiddenUntilItIsPublishedAndThenHoldsExactlyWhatWasWritten) {
  const test::TemporaryFolder place;
  ResultsFolder folder(place.path(), "plot_0007");
  folder.write("metrics.json", bytes("{}\n"), {});
  folder.write("masks/final.png", bytes("pixels"), {});
  ASSERT_EQ(place.entries().size(), 1u);
  EXPECT_THAT(place.entries().front(), StartsWith(".plot_0007.partial-"));

  EXPECT_EQ(folder.publish(), place / "plot_0007");
  EXPECT_THAT(place.entries(), ElementsAre("plot_0007"));
  EXPECT_EQ(test::read_all(place / "plot_0007/metrics.json"), "{}\n");
  EXPECT_EQ(test::read_all(place / "plot_0007/masks/final.png"), "pixels");
  EXPECT_EQ(std::distance(fs::recursive_directory_iterator(place / "plot_0007"), {}), 3);
}

TEST(ResultsFolder, LeavesNothingWhenItIsNotPublished) {
  const test::TemporaryFolder place;
  {
    ResultsFolder folder(place.path(), "plot");
    folder.write("masks/final.png", bytes("pixels"), {});
  }
  EXPECT_THAT(place.entries(), IsEmpty());
}

TEST(ResultsFolder, MakesMissingParentsAndTakesThemAwayAgainWhenTheRunFails) {
  const test::TemporaryFolder place;
  { const ResultsFolder folder(place / "new/deeper", "plot"); }
  EXPECT_THAT(place.entries(), IsEmpty());

  fs::create_directory(place / "was there");
  { const ResultsFolder folder(place / "was there/deeper/", "plot"); }
  EXPECT_THAT(place.entries(), ElementsAre("was there"));
  EXPECT_TRUE(fs::is_empty(place / "was there"));

  ResultsFolder kept(place / "new/deeper", "plot");
  EXPECT_EQ(kept.publish(), place / "new/deeper/plot");
  EXPECT_TRUE(fs::is_directory(place / "new/deeper/plot"));
}

TEST(ResultsFolder, KeepsAMissingParentWhereSomebodyElsePutSomethingMeanwhile) {
  const test::TemporaryFolder place;
  {
    const ResultsFolder folder(place / "new/deeper", "plot");
    place.write("new/notes.txt", "mine");
  }
  EXPECT_EQ(test::read_all(place / "new/notes.txt"), "mine");
  EXPECT_FALSE(fs::exists(place / "new/deeper"));
}

TEST(ResultsFolder, NumbersItsNameWhenItIsTakenAndNeverReplaces) {
  const test::TemporaryFolder place;
  place.write("plot/old.txt", "old");
  fs::create_directory(place / "plot_2");  // empty: a plain rename would replace it
  ResultsFolder folder(place.path(), "plot");
  EXPECT_EQ(folder.publish(), place / "plot_3");
  EXPECT_EQ(test::read_all(place / "plot/old.txt"), "old");
  ResultsFolder next(place.path(), "plot");
  EXPECT_EQ(next.publish(), place / "plot_4");
}

TEST(ResultsFolder, AFileOfTheNameCountsAsTakenToo) {
  const test::TemporaryFolder place;
  place.write("plot", "a file");
  ResultsFolder folder(place.path(), "plot");
  EXPECT_EQ(folder.publish(), place / "plot_2");
  EXPECT_EQ(test::read_all(place / "plot"), "a file");
}

TEST(ResultsFolder, MakesASafeNameOfAnyText) {
  const test::TemporaryFolder place;
  for (const std::string name : {"../../etc/passwd", "/", "..", "", "Pflänzchen 7 \xE6\xA4\x8D\xE7\x89\xA9", "a\nb"}) {
    SCOPED_TRACE(name);
    ResultsFolder folder(place.path(), name);
    const fs::path published = folder.publish();
    EXPECT_EQ(published.parent_path(), place.path());
    EXPECT_TRUE(fs::is_directory(published));
    EXPECT_NE(published.filename().native().front(), '.');
  }
  EXPECT_TRUE(fs::is_directory(place / "Pflänzchen 7 \xE6\xA4\x8D\xE7\x89\xA9"));
}

TEST(ResultsFolder, RemovesWhatADeadRunLeftAndKeepsWhatALivingOneHolds) {
  const test::TemporaryFolder place;
  place.write(".plot.partial-0123abcd/masks/final.png", "half");
  ResultsFolder living(place.path(), "plot");
  living.write("metrics.json", bytes("{}"), {});

  test::LogCapture log;
  { const ResultsFolder other(place.path(), "other"); }
  EXPECT_THAT(place.entries(), ElementsAre(living.partial().filename().string()));
  EXPECT_EQ(test::read_all(living.partial() / "metrics.json"), "{}");
  EXPECT_THAT(log.lines(), IsEmpty());  // the left-over went when `living` began

  place.write(".plot.partial-0123abcd/masks/final.png", "half");
  { const ResultsFolder other(place.path(), "other"); }
  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("the left-over of a run that did not end")));
  EXPECT_EQ(living.publish(), place / "plot");
}

TEST(ResultsFolder, RemovesOnlyFoldersThatAreNamedLikeAnUnfinishedRun) {
  const test::TemporaryFolder place;
  const test::TemporaryFolder elsewhere;
  elsewhere.write("precious.txt", "kept");
  place.write("plot.partial-0123abcd/kept", "");    // not hidden
  place.write(".plot.partial-0123abcg/kept", "");   // not hexadecimal
  place.write(".plot.partial-0123abc/kept", "");    // seven digits
  place.write(".partial-0123abcd/kept", "");        // no name
  place.write(".plot.partial-00000000", "a file");  // not a folder
  fs::create_directory_symlink(elsewhere.path(), place / ".plot.partial-11111111");
  const auto before = place.entries();
  { const ResultsFolder folder(place.path(), "plot"); }
  EXPECT_EQ(place.entries(), before);
  EXPECT_EQ(test::read_all(elsewhere / "precious.txt"), "kept");
}

TEST(ResultsFolder, AKilledProcessLeavesAFolderThatTheNextRunRemoves) {
  const test::TemporaryFolder place;
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ResultsFolder folder(place.path(), "plot");
    folder.write("metrics.json", bytes("{}"), {});
    raise(SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  ASSERT_EQ(place.entries().size(), 1u);
  { const ResultsFolder folder(place.path(), "plot"); }
  EXPECT_THAT(place.entries(), IsEmpty());
}

TEST(ResultsFolder, FourProcessesThatPublishTheSameNameAtOnceAllGetTheirOwnCompleteFolder) {
  const test::TemporaryFolder place;
  constexpr int processes = 4;
  constexpr int runs = 25;
  for (int process = 0; process < processes; ++process) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child != 0) continue;
    int failures = 0;
    for (int run = 0; run < runs; ++run) {
      try {
        { const ResultsFolder abandoned(place / "base", "plot"); }  // makes and removes the base folder too
        ResultsFolder folder(place / "base", "plot");
        folder.write("who.txt", bytes(std::to_string(process) + "." + std::to_string(run)), {});
        static_cast<void>(folder.publish());
      } catch (const std::exception&) {
        ++failures;
      }
    }
    _exit(failures);
  }
  for (int process = 0; process < processes; ++process) {
    int status = 0;
    ASSERT_GT(wait(&status), 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  std::set<std::string> names;
  std::set<std::string> authors;
  for (const auto& entry : fs::directory_iterator(place / "base")) {
    names.insert(entry.path().filename());
    authors.insert(test::read_all(entry.path() / "who.txt"));
  }
  std::set<std::string> expected{"plot"};
  for (int number = 2; number <= processes * runs; ++number) expected.insert("plot_" + std::to_string(number));
  EXPECT_EQ(names, expected);
  EXPECT_EQ(authors.size(), std::size_t{processes * runs});
}

TEST(ResultsFolder, SaysSoWhenTheOutputFolderIsAFileOrLiesInOne) {
  const test::TemporaryFolder place;
  place.write("a file", "");
  EXPECT_EQ(thrown([&] { const ResultsFolder folder(place / "a file", "plot"); }),
            "The folder \"" + (place / "a file").string() + "\" cannot be written to: Not a directory.");
  EXPECT_EQ(thrown([&] { const ResultsFolder folder(place / "a file/out", "plot"); }),
            "The folder \"" + (place / "a file/out").string() + "\" cannot be made: Not a directory.");
  EXPECT_THAT(place.entries(), ElementsAre("a file"));
}

TEST(ResultsFolder, SaysSoWhenTheOutputFolderMayNotBeWrittenTo) {
  // Root may write everywhere except into a file system of the kernel's own, which refuses folders.
  const fs::path forbidden = "/proc/self";
  if (!fs::is_directory(forbidden)) GTEST_SKIP() << "no /proc here";
  EXPECT_THAT(thrown([&] { const ResultsFolder folder(forbidden / "out", "plot"); }),
              StartsWith("The folder \"/proc/self/out\" cannot be made: "));
}

TEST(ResultsFolder, RefusesToBeginWritingWhenTheDiskHasTooLittleLeft) {
  const test::TemporaryFolder place;
  const ResultsFolder folder(place.path(), "plot");
  folder.expect_free_space(1);
  const std::string text = thrown([&] { folder.expect_free_space(std::uintmax_t{1} << 62); });
  EXPECT_THAT(text, StartsWith("The folder \"" + place.path().string() + "\" has "));
  EXPECT_THAT(text, HasSubstr(" left, and the results may need 4611686.0 TB."));  // 2^62 = 4.611686e18
}

TEST(ResultsFolder, AFileLargerThanTheSystemAllowsIsASentenceAndLeavesNothing) {
  const test::TemporaryFolder place;
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto previous = std::signal(SIGXFSZ, SIG_IGN);
  std::string text;
  {
    ResultsFolder folder(place.path(), "plot");
    const rlimit small{.rlim_cur = 1000, .rlim_max = before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    text = thrown([&] { folder.write("masks/final.png", bytes(std::string(5000, 'x')), {}); });
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  }
  std::signal(SIGXFSZ, previous);
  EXPECT_EQ(text, "masks/final.png cannot be written into \"" + place.path().string() + "\": File too large.");
  EXPECT_THAT(place.entries(), IsEmpty());
}

TEST(ResultsFolder, AFullDiskIsASentenceAndLeavesNothing) {
  // A child with a view of its own of what is mounted where gets a small disk; nobody else sees it.
  const test::TemporaryFolder place;
  const test::TemporaryFolder notes;
  constexpr int no_small_disk = 77;
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) _exit(no_small_disk);
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", place.path().c_str(), "tmpfs", 0, "size=256k") != 0) {
      _exit(no_small_disk);
    }
    {
      ResultsFolder folder(place.path(), "plot");
      notes.write("beforehand", thrown([&] { folder.expect_free_space(1'000'000); }));
      notes.write("write", thrown([&] { folder.write("metrics.json", bytes(std::string(1'000'000, 'x')), {}); }));
    }
    notes.write("left", std::to_string(place.entries().size()));
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == no_small_disk) GTEST_SKIP() << "this machine does not let the test make a small disk";
  ASSERT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(test::read_all(notes / "write"),
            "metrics.json cannot be written into \"" + place.path().string() + "\": No space left on device.");
  EXPECT_THAT(test::read_all(notes / "beforehand"), HasSubstr("kB left, and the results may need 1.0 MB."));
  EXPECT_EQ(test::read_all(notes / "left"), "0");
}

TEST(ResultsFolder, WritesNothingOnceCancelled) {
  const test::TemporaryFolder place;
  common::CancelEvent cancel;
  cancel.set();
  ResultsFolder folder(place.path(), "plot");
  EXPECT_THROW(folder.write("a", bytes("text"), {.cancel_event = &cancel, .progress = {}}), CancelledError);
  EXPECT_TRUE(fs::is_empty(folder.partial()));
}

TEST(ResultsFolder, NeverWritesAFileTwice) {
  const test::TemporaryFolder place;
  ResultsFolder folder(place.path(), "plot");
  folder.write("metrics.json", bytes("first"), {});
  EXPECT_THAT(thrown([&] { folder.write("metrics.json", bytes("second"), {}); }), HasSubstr("File exists."));
}

TEST(RenameToFreeName, BothWaysRenameToAFreeNameAndRefuseATakenOne) {
  for (const auto& rename : {&rename_to_free_name, &rename_over_own_empty_folder}) {
    const test::TemporaryFolder place;
    place.write("from/file", "content");
    fs::create_directory(place / "taken");
    EXPECT_FALSE(rename(place / "from", place / "taken"));
    EXPECT_TRUE(fs::is_empty(place / "taken"));
    EXPECT_TRUE(rename(place / "from", place / "to"));
    EXPECT_EQ(test::read_all(place / "to/file"), "content");
    EXPECT_THAT(place.entries(), ElementsAre("taken", "to"));
    EXPECT_THROW(static_cast<void>(rename(place / "not there", place / "new")), std::system_error);
    EXPECT_THAT(place.entries(), ElementsAre("taken", "to"));
  }
}

TEST(SizeText, ShowsPowersOfAThousand) {
  EXPECT_EQ(size_text(0), "0 bytes");
  EXPECT_EQ(size_text(999), "999 bytes");
  EXPECT_EQ(size_text(1500), "1.5 kB");
  EXPECT_EQ(size_text(12'300'000), "12.3 MB");
}

}  // namespace
}  // namespace orvexa::model
