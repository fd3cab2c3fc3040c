// A batch over real and over broken pictures, through the program as a person calls it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "cli/process.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

struct RealBatch {
  TemporaryFolder folder;
  fs::path workflow = folder.write("any.yaml",
                                   "title: Any picture\n"
                                   "mask_operations:\n"
                                   "  - op: threshold_auto\n"
                                   "result_operations:\n"
                                   "  - op: area\n"
                                   "  - op: region_count\n");

  [[nodiscard]] Outcome operator()(const std::vector<fs::path>& inputs) const {
    std::vector<std::string> words{"batch", workflow.string(), "-o", (folder / "out").string(), "--json"};
    for (const fs::path& input : inputs) words.push_back(input.string());
    return orvexa_command(words);
  }
};

std::vector<fs::path> everything_in(const fs::path& folder) {
  std::vector<fs::path> paths;
  for (const auto& entry : fs::directory_iterator(folder)) paths.push_back(entry.path());
  return paths;
}

/// Names of the files of a summary, those that succeeded and those that failed; each once.
std::set<std::string> accounted_for(const common::Value& summary) {
  std::set<std::string> names;
  for (const char* list : {"successful_files", "failed_files"}) {
    for (const common::Value& entry : summary.at(list)) {
      EXPECT_TRUE(names.insert(entry.at("file").get<std::string>()).second) << entry;
    }
  }
  EXPECT_EQ(names.size(), summary.at("total_files").get<std::size_t>());
  return names;
}

TEST(RealBatch, GivenAFolderOfPictures_ThenEachIsMeasured) {
  const auto data = real_data();
  if (!data) GTEST_SKIP() << "no folder shared/data beside the project";
  const Outcome outcome = RealBatch()({*data / "images"});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  std::size_t pictures = 0;
  for (const fs::path& path : everything_in(*data / "images")) pictures += fs::is_regular_file(path) ? 1 : 0;
  EXPECT_EQ(accounted_for(outcome.json()).size(), pictures);
}

TEST(RealBatch, GivenFoldersOfCaptures_ThenEachIsMeasured) {
  const auto data = real_data();
  if (!data) GTEST_SKIP() << "no folder shared/data beside the project";
  const std::vector<fs::path> folders = everything_in(*data / "captures");
  const Outcome outcome = RealBatch()(folders);
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(accounted_for(outcome.json()).size(), folders.size());
}

TEST(RealBatch, GivenOddAndBrokenFiles_ThenEachIsInTheSummaryAndEachFailureSaysWhatIsWrong) {
  const auto data = real_data();
  if (!data) GTEST_SKIP() << "no folder shared/data beside the project";
  const std::vector<fs::path> inputs = everything_in(*data / "odd");
  const Outcome outcome = RealBatch()(inputs);
  EXPECT_EQ(outcome.exit_code, 1) << outcome.err;
  const common::Value summary = outcome.json();
  EXPECT_EQ(accounted_for(summary).size(), inputs.size());  // a folder holds one capture each
  const std::map<std::string, std::string> reasons{
      {"HDR_broken_band_sizes.INF", "all images of a capture have one size."},
      {"HDR_broken_missing_band.INF", "there is no such file."},
      {"broken_bmp_shortfile.bmp", "it is cut off or damaged."},
      {"broken_text_inside.tif", "this is not a picture that can be read"},
      {"broken_truncated.jpg", "this JPEG file is cut off"},
      {"broken_truncated.png", "this PNG file is cut off."},
      {"broken_zero_bytes.png", "the file is empty."},
      {"pgm_16bit.pgm", "this is neither a capture header (HDR_*.INF) nor an image file"},
      {"tiff_6_bands.tif", "this TIFF file holds 6 bands"},
  };
  std::set<std::string> failed;
  for (const common::Value& failure : summary.at("failed_files")) {
    const std::string name = fs::path(failure.at("file").get<std::string>()).filename();
    failed.insert(name);
    ASSERT_TRUE(reasons.contains(name)) << failure;
    EXPECT_THAT(failure.at("reason").get<std::string>(), HasSubstr(reasons.at(name)));
  }
  EXPECT_EQ(failed.size(), reasons.size());
}

}  // namespace
}  // namespace orvexa::test
