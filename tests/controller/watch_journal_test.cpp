#include "orvexa/controller/watch_journal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orvexa/model/workflow/results_folder.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using controller::CaptureIdentity;
using controller::WatchJournal;
using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

std::string hash_of(char digit) {
  return std::string(64, digit);
}

CaptureIdentity identity(const std::string& name, char content = 'a', char workflow = 'c') {
  CaptureIdentity::File file;
  file.name = name;
  file.stamp = {.bytes = 1, .modified_ns = 2, .inode = 3};
  file.sha256 = hash_of(content);
  return controller::identity_of({file}, hash_of(workflow));
}

TEST(CaptureIdentity, TheKeyIsTheNameAndADigestOverNameContentsAndWorkflow) {
  const std::string key = identity("HDR_a.INF").key;
  // printf 'HDR_a.INF\n%064d\n%064d' 0 0 | tr 0 ... : the SHA-256 of "HDR_a.INF\naaaa...\ncccc..."
  const std::string text = "HDR_a.INF\n" + hash_of('a') + "\n" + hash_of('c');
  EXPECT_EQ(key, "HDR_a.INF#" + common::sha256_hex(common::as_byte_span(text)).substr(0, 16));
  EXPECT_EQ(key, identity("HDR_a.INF").key);
  EXPECT_NE(key, identity("HDR_b.INF").key);
  EXPECT_NE(key.substr(10), identity("HDR_b.INF").key.substr(10)) << "the name is part of the digest";
  EXPECT_NE(key, identity("HDR_a.INF", 'b').key);
  EXPECT_NE(key, identity("HDR_a.INF", 'a', 'd').key);
}

TEST(CaptureIdentity, GivenANameWithATabOrALineFeed_ThenTheKeyHasNeither) {
  const std::string key = identity("a\tb\nc.png").key;
  EXPECT_THAT(key, StartsWith("a\\x09b\\nc.png#"));
}

TEST(WatchJournal, GivenAJournalOfANewerProgram_ThenItIsRefused) {
  const TemporaryFolder folder;
  folder.write("watch_journal.jsonl", "{\"journal\": \"orvexa watch\", \"format\": 2}\n");
  try {
    const WatchJournal journal(folder.path());
    FAIL();
  } catch (const std::runtime_error& failure) {
    EXPECT_EQ(failure.what(), (folder / "watch_journal.jsonl").string() +
                                  ": this journal was written by a newer version of the program.");
  }
}

TEST(WatchJournal, GivenAnotherFileOfThatName_ThenItIsRefusedAndStaysAsItIs) {
  const TemporaryFolder folder;
  for (const char* text : {"some notes\n", "[]\n", "{\"journal\": \"x\"}\n"}) {
    folder.write("watch_journal.jsonl", text);
    try {
      const WatchJournal journal(folder.path());
      FAIL() << text;
    } catch (const std::runtime_error& failure) {
      EXPECT_THAT(failure.what(), HasSubstr("watch_journal.jsonl: this is not the journal of a watcher."));
    }
    EXPECT_EQ(read_all(folder / "watch_journal.jsonl"), text);
  }
}

TEST(WatchJournal, GivenADamagedLineInTheMiddle_ThenItIsLoggedAndTheOthersStand) {
  const TemporaryFolder folder;
  const CaptureIdentity a = identity("a.png");
  const CaptureIdentity b = identity("b.png");
  {
    WatchJournal journal(folder.path());
    journal.record_started(a, "a", 1);
    journal.record_done(a.key, "a", 1, common::Value::object());
  }
  folder.write("watch_journal.jsonl", read_all(folder / "watch_journal.jsonl") + "{\"event\": \"started\"}\nnoise\n");
  {
    WatchJournal journal(folder.path());
    journal.record_started(b, "b", 1);
  }
  const LogCapture log;
  const WatchJournal journal(folder.path());
  EXPECT_THAT(log.lines(),
              Contains("warning: FileWatcher: line 4 of watch_journal.jsonl cannot be read and was passed over."));
  EXPECT_THAT(log.lines(),
              Contains("warning: FileWatcher: line 5 of watch_journal.jsonl cannot be read and was passed over."));
  EXPECT_TRUE(journal.find(a.key)->is_done);
  EXPECT_FALSE(journal.find(b.key)->is_done);
  EXPECT_EQ(journal.find(b.key)->unfinished_starts, 1);
  EXPECT_EQ(journal.done_count(), 1U);
  EXPECT_TRUE(journal.is_claimed("a"));
  EXPECT_FALSE(journal.is_claimed("b"));
}

TEST(WatchJournal, GivenEverythingThatIsRecorded_ThenItIsThereAfterReading) {
  const TemporaryFolder folder;
  const CaptureIdentity a = identity("ä\nb.png");
  {
    WatchJournal journal(folder.path());
    journal.record_captures_only();
    journal.record_started(a, "a capture", 3);
    journal.record_cancelled(a.key);
    journal.record_failed(a.name, a.key, "It failed.", 1, false);
    journal.record_started(a, "a capture", 4);
    journal.record_done(a.key, "a capture_4", 7, common::Value{{"area", "It failed."}});
  }
  const WatchJournal journal(folder.path());
  EXPECT_TRUE(journal.takes_captures_only());
  const controller::JournalEntry* entry = journal.find_last(a.name, a.workflow_hash);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->identity.name, a.name);
  EXPECT_EQ(entry->identity.files.at(0).sha256, hash_of('a'));
  EXPECT_EQ(entry->identity.files.at(0).stamp, a.files.at(0).stamp);
  EXPECT_EQ(entry->capture, "a capture");
  EXPECT_EQ(entry->folder, "a capture_4");
  EXPECT_EQ(entry->rows, 7U);
  EXPECT_EQ(entry->unfinished_starts, 0);
  EXPECT_TRUE(entry->is_done);
  EXPECT_EQ(journal.find_last(a.name, hash_of('d')), nullptr);
}

TEST(WatchJournal, GivenAnUnsafeCaptureName_ThenThePromisedFolderIsTheSafeOne) {
  const TemporaryFolder folder;
  WatchJournal journal(folder.path());
  journal.record_started(identity("a.png"), "a/b", 2);
  EXPECT_THAT(read_all(folder / "watch_journal.jsonl"),
              HasSubstr("\"capture\": \"a/b\", \"number\": 2, \"folder\": \"a_b_2\""));
}

}  // namespace
}  // namespace orvexa::test
