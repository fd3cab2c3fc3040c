#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/plot.h"
#include "cli/process.h"

namespace orvexa::test {
namespace {

using testing::HasSubstr;

TEST(Info, TellsEverythingThatTheHeaderSaysAndWhatTheImagesAre) {
  const TemporaryFolder folder;
  const auto header = write_plot(folder);
  const Outcome outcome = orvexa_command({"info", header.string(), "--json"});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  const common::Value document = outcome.json();
  EXPECT_EQ(document.at("capture"), "plot");
  EXPECT_EQ(document.at("date"), "2019-05-21");
  EXPECT_EQ(document.at("time"), "10:32:11");
  EXPECT_EQ(document.at("width"), 40);
  EXPECT_EQ(document.at("height"), 30);
  EXPECT_EQ(document.at("millimetres_per_pixel"), 0.5);
  const common::Value& measurement = document.at("measurements").at(0);
  EXPECT_EQ(measurement.at("name"), "MSP");
  const common::Value& nir = measurement.at("images").at(0);
  EXPECT_EQ(nir.at("name"), "NIR");
  EXPECT_EQ(nir.at("type"), "16-bit");
  EXPECT_EQ(nir.at("channels"), 1);
  EXPECT_EQ(nir.at("white_level"), 4000);
  EXPECT_EQ(nir.at("white_level_is_declared"), true);
  EXPECT_EQ(nir.at("band").at("centre_nm"), 842);
  EXPECT_FALSE(measurement.at("images").at(1).contains("band"));
  std::vector<std::string> files;
  for (const common::Value& file : document.at("files")) {
    files.push_back(std::filesystem::path(file.at("path").get<std::string>()).filename());
    EXPECT_EQ(file.at("sha256").get<std::string>().size(), 64u);
  }
  EXPECT_THAT(files, testing::IsSupersetOf({"plot_NIR.tif", "plot_RED.tif"}));

  const std::string text = orvexa_command({"info", header.string()}).out;
  for (const char* part : {"plot", "2019-05-21", "40 x 30", "0.5 mm per pixel", "NIR", "4000", "declared", "842 nm"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
}

TEST(Info, GivenFilesBelowTheCurrentFolder_ThenTheirPathsAreShort) {
  const TemporaryFolder folder;
  write_plot(folder);
  const Outcome below =
      Process({"sh", "-c", "cd \"$1\" && exec \"$2\" info HDR_plot.INF", "sh", folder.path().string(), test::program()})
          .wait();
  EXPECT_THAT(below.out, HasSubstr("\nplot_NIR.tif"));
  const TemporaryFolder another;
  const Outcome elsewhere = Process({"sh", "-c", "cd \"$3\" && exec \"$2\" info \"$1\"", "sh",
                                     (folder / "HDR_plot.INF").string(), test::program(), another.path().string()})
                                .wait();
  EXPECT_THAT(elsewhere.out, HasSubstr((folder / "plot_NIR.tif").string()));
}

TEST(Info, GivenAnOrdinaryImage_ThenTheWhiteLevelIsThatOfItsType) {
  const TemporaryFolder folder;
  const cv::Mat pixels(3, 5, CV_8UC3, cv::Scalar(10, 20, 30));
  const auto file = folder / "kühler tag.png";
  common::write_file_atomically(file, model::encode_png(model::Image(pixels.clone())));
  const common::Value document = orvexa_command({"info", file.string(), "--json"}).json();
  EXPECT_EQ(document.at("capture"), "kühler tag");
  EXPECT_FALSE(document.contains("date"));
  EXPECT_FALSE(document.contains("millimetres_per_pixel"));
  const common::Value& measurement = document.at("measurements").at(0);
  EXPECT_EQ(measurement.at("name"), "CLR");
  EXPECT_EQ(measurement.at("images").at(0).at("channels"), 3);
  EXPECT_EQ(measurement.at("images").at(0).at("white_level"), 255);
  EXPECT_EQ(measurement.at("images").at(0).at("white_level_is_declared"), false);
}

TEST(Info, GivenAFileThatIsNotThere_ThenOneSentenceNamesIt) {
  const TemporaryFolder folder;
  const Outcome outcome = orvexa_command({"info", (folder / "HDR_none.INF").string()});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("HDR_none.INF"));
}

TEST(Info, GivenJson_ThenAFailureIsADocumentAsWell) {
  const Outcome outcome = orvexa_command({"info", "none.png", "--json"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.json().at("error").get<std::string>(), HasSubstr("none.png"));
}

TEST(Info, GivenAFileNameWithALineBreak_ThenTheSentenceStaysOnOneLine) {
  const Outcome outcome = orvexa_command({"info", "two\nlines\x1b[2J.png"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("two\\nlines\\x1b[2J.png"));
}

TEST(Info, GivenAFileThatIsNotThere_ThenTheSentenceNamesItOnceAsDoThoseOfRunAndPreview) {
  const TemporaryFolder folder;
  const std::string missing = folder / "HDR_no.INF";
  const std::string workflow = write_leaf_workflow(folder);
  for (const std::vector<std::string>& words : {std::vector<std::string>{"info", missing},
                                                {"run", workflow, missing, "-o", folder / "out"},
                                                {"preview", missing, "--op", "erode", "--mask", folder / "m.png"}}) {
    const Outcome outcome = orvexa_command(words);
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err, missing + ": there is no such file.\n");
  }
}

}  // namespace
}  // namespace orvexa::test
