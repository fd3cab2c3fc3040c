// Files beside a capture's own that its results depend on, after they changed: those that a step's parameter names, and
// the pictures of a reference.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "cli/batch_setup.h"
#include "orvexa/common/serialisation.h"

namespace orvexa::test {
namespace {

namespace fs = std::filesystem;

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

/// A picture of the plots' size, 30 rows of 40 columns.
void write_flat(const fs::path& file, int type, double value, int columns = 40) {
  cv::Mat pixels(30, 40, type, cv::Scalar(0));
  pixels.colRange(0, columns).setTo(value);
  const model::Image image(std::move(pixels));
  const bool is_png = file.extension() == ".png";
  common::write_file_atomically(file, is_png ? model::encode_png(image) : model::encode_tiff(image));
}

struct ChangedFile {
  const char* name;
  const char* step;
  const char* changed;  ///< the file that has another content when the variant is 2
  std::function<void(const TemporaryFolder& folder, int variant)> write;
};

void PrintTo(const ChangedFile& file, std::ostream* out) {
  *out << file.name;
}

/// One plot, and a workflow with a step that names a file beside the workflow.
class NamedFile : public testing::TestWithParam<ChangedFile> {
 protected:
  NamedFile() {
    batch.workflow = batch.folder.write("named.yaml", std::string("title: Named\nmask_operations:\n  - ") +
                                                          GetParam().step + "\nresult_operations:\n  - op: area\n");
    write(1);
  }
  void write(int variant) const { GetParam().write(batch.folder, variant); }
  [[nodiscard]] std::string changed() const { return (batch.folder / GetParam().changed).string(); }

  BatchSetup batch{1};
  fs::path output = batch.folder / "results";
};

INSTANTIATE_TEST_SUITE_P(
    Steps, NamedFile,
    testing::Values(ChangedFile{"MaskFromFile", "{op: mask_from_file, params: {file: marks.png}}", "marks.png",
                                [](const TemporaryFolder& folder, int variant) {
                                  write_flat(folder / "marks.png", CV_8UC1, 255, 4 * variant);
                                }},
                    ChangedFile{"BackgroundDifference",
                                "{op: background_difference, params: {reference: empty/HDR_empty.INF, band: MSP.NIR}}",
                                "empty/empty_NIR.tif",
                                [](const TemporaryFolder& folder, int variant) {
                                  write_plot(folder / "empty", "empty", 30, 40, variant - 1);
                                }}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(NamedFile, GivenThatItChanged_ThenABatchIsNotResumedUntilItHasItsOldContentAgain) {
  ASSERT_EQ(batch().exit_code, 0);
  const auto before = batch.set_aside_run_folder();
  const auto go_on = [&] { return orvexa_command({"batch", batch.workflow.string(), "--resume", before.string()}); };
  write(2);
  const Outcome refused = go_on();
  EXPECT_EQ(refused.exit_code, 2);
  EXPECT_TRUE(is_one_sentence(refused.err));
  EXPECT_THAT(refused.err, AllOf(HasSubstr(before.string()), HasSubstr("was changed since")));
  EXPECT_EQ(visible_in(batch.output).size(), 1u);
  write(1);
  const Outcome same = go_on();
  EXPECT_EQ(same.exit_code, 0);
  EXPECT_THAT(same.err, HasSubstr("1 of 1 files are done already.\n"));
}

TEST_P(NamedFile, GivenThatItChanged_ThenAWatcherDoesTheCapturesAgainAsWithAnotherWorkflow) {
  const std::vector<std::string> watch{
      "watch", batch.workflow.string(), batch.captures.string(), "-o", output.string(), "--once", "--poll", "0.05"};
  ASSERT_EQ(orvexa_command(watch).exit_code, 0);
  ASSERT_EQ(orvexa_command(watch).exit_code, 0);
  EXPECT_TRUE(fs::exists(output / "plot_0001"));
  EXPECT_FALSE(fs::exists(output / "plot_0001_2")) << "nothing has changed";
  write(2);
  ASSERT_EQ(orvexa_command(watch).exit_code, 0);
  EXPECT_TRUE(fs::exists(output / "plot_0001_2"));
}

TEST_P(NamedFile, GivenThatItChanged_ThenVerifyNamesIt) {
  const std::string capture = batch.captures / "HDR_plot_0001.INF";
  ASSERT_EQ(orvexa_command({"run", batch.workflow.string(), capture, "-o", output.string()}).exit_code, 0);
  const std::vector<std::string> verify{"verify", (output / "plot_0001").string()};
  EXPECT_EQ(orvexa_command(verify).exit_code, 0);
  write(2);
  const Outcome outcome = orvexa_command(verify);
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, changed() + ": this input has changed since the run.\n");
}

/// A plot whose NIR is reflectance by a white picture beside it. By white 4000 the leaf's 3000 are 0.75, which the
/// workflow keeps; by 8000 they are 0.375.
struct ReferencePicture : testing::Test {
  ReferencePicture() {
    const std::string header = read_all(capture);
    common::write_file_atomically(capture, header + "[Reference MSP.NIR]\nWhite = white.tif\n");
    write_white(4000);
  }
  void write_white(double counts) const { write_flat(white, CV_16UC1, counts); }

  BatchSetup batch{1};  // its leaf has 30 pixels
  fs::path capture = batch.captures / "HDR_plot_0001.INF";
  fs::path white = batch.captures / "white.tif";
  fs::path output = batch.folder / "results";
};

TEST_F(ReferencePicture, GivenThatItChanged_ThenAResumedBatchDoesTheCaptureAgainAndSaysSo) {
  ASSERT_EQ(batch().exit_code, 0);
  EXPECT_THAT(column_of(batch.run_folder(), "area"), ElementsAre("30"));
  const auto before = batch.set_aside_run_folder();
  write_white(8000);
  const Outcome outcome = orvexa_command({"batch", batch.workflow.string(), "--resume", before.string()});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err, HasSubstr("HDR_plot_0001.INF: its files changed or its results are gone, so it is done "
                                     "again.\n"));
  EXPECT_THAT(column_of(batch.run_folder(), "area"), ElementsAre("0"));
}

TEST_F(ReferencePicture, GivenThatItChanged_ThenAWatcherDoesTheCaptureAgain) {
  const std::vector<std::string> watch{
      "watch", batch.workflow.string(), batch.captures.string(), "-o", output.string(), "--once", "--poll", "0.05"};
  ASSERT_EQ(orvexa_command(watch).exit_code, 0);
  ASSERT_EQ(orvexa_command(watch).exit_code, 0);
  EXPECT_FALSE(fs::exists(output / "plot_0001_2")) << "nothing has changed";
  write_white(8000);
  ASSERT_EQ(orvexa_command(watch).exit_code, 0);
  const common::Value metrics = common::Value::parse(read_all(output / "plot_0001_2" / "metrics.json"));
  EXPECT_EQ(metrics.at("results").at("area").at("metrics").at("area"), 0);
}

TEST_F(ReferencePicture, GivenThatItChanged_ThenVerifyNamesIt) {
  ASSERT_EQ(orvexa_command({"run", batch.workflow.string(), capture.string(), "-o", output.string()}).exit_code, 0);
  write_white(8000);
  const Outcome outcome = orvexa_command({"verify", (output / "plot_0001").string()});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, white.string() + ": this input has changed since the run.\n");
}

TEST_F(ReferencePicture, IsNamedByInfoWithTheDigestOfItsContent) {
  for (const double counts : {4000.0, 8000.0}) {
    write_white(counts);
    const std::string digest = common::sha256_hex(common::read_file(white));
    const common::Value document = orvexa_command({"info", capture.string(), "--json"}).json();
    ASSERT_EQ(document.at("references").size(), 1u);
    EXPECT_EQ(document.at("references").at(0).at("image"), "MSP.NIR");
    EXPECT_EQ(document.at("references").at(0).at("white"),
              (common::Value{{"path", white.string()}, {"sha256", digest}}));
    EXPECT_EQ(document.at("files").back().at("path"), white.string());
    EXPECT_EQ(document.at("files").back().at("sha256"), digest);
    EXPECT_THAT(orvexa_command({"info", capture.string()}).out,
                AllOf(HasSubstr("\nReference  White"), HasSubstr(digest.substr(0, 16))));
  }
}

}  // namespace
}  // namespace orvexa::test
