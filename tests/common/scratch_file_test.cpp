#include "orvexa/common/scratch_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "support/file_size_limit.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using common::ScratchFile;
using testing::HasSubstr;
using testing::IsEmpty;

std::string text_at(const ScratchFile& file, std::uintmax_t offset, std::size_t bytes) {
  std::string text(bytes, '\0');
  file.read(offset, std::as_writable_bytes(std::span(text)));
  return text;
}

std::string failure_of(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
  return {};
}

TEST(ScratchFile, GivesBackWhatWasAppendedAndHasNoName) {
  const TemporaryFolder folder;
  ScratchFile file(folder.path());
  file.append(common::as_byte_span("one"));
  file.append(common::as_byte_span("two"));
  EXPECT_EQ(file.size(), 6U);
  EXPECT_EQ(text_at(file, 2, 3), "etw");
  file.append(common::as_byte_span("three"));
  EXPECT_EQ(text_at(file, 0, 11), "onetwothree");
  EXPECT_THAT(folder.entries(), IsEmpty());
}

TEST(ScratchFile, GivenARangeBeyondTheEnd_ThenASentenceSaysSo) {
  const TemporaryFolder folder;
  ScratchFile file(folder.path());
  file.append(common::as_byte_span("one"));
  EXPECT_EQ(failure_of([&] { static_cast<void>(text_at(file, 1, 3)); }),
            "A scratch file in the folder \"" + folder.path().string() +
                "\" cannot be read: it ends before what was asked for.");
}

TEST(ScratchFile, GivenNoSuchFolder_ThenASentenceNamesIt) {
  const TemporaryFolder folder;
  EXPECT_THAT(failure_of([&] { const ScratchFile file(folder / "nowhere"); }),
              HasSubstr("nowhere\" cannot be made: No such file or directory."));
}

TEST(ScratchFile, GivenBytesOfWhichOnlyABeginningFits_ThenThoseBeforeThemAreThereAndMoreCanFollow) {
  const TemporaryFolder folder;
  ScratchFile file(folder.path());
  file.append(common::as_byte_span("one"));
  {
    const FileSizeLimit limit(5);
    EXPECT_THAT(failure_of([&] { file.append(common::as_byte_span("two")); }),
                HasSubstr("cannot be written: File too large."));
  }
  EXPECT_EQ(file.size(), 3U);
  file.append(common::as_byte_span("four"));
  EXPECT_EQ(text_at(file, 0, 7), "onefour");
}

}  // namespace
}  // namespace orvexa::test
