#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using common::Path;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

std::string refreshed(int panels) {
  return "info: Refreshed " + std::to_string(panels) + " panels, skipped 0 for mode 'batch'";
}

class BatchInputs : public testing::Test {
 protected:
  BatchInputs() {
    state.processing_mode = "batch";
    state.on_reset = [this](ScriptedState&) { ++resets; };
    controller.register_panel(panel);
  }

  TemporaryFolder folder;
  int resets = 0;
  std::unique_ptr<ScriptedState> made = std::make_unique<ScriptedState>();
  ScriptedState& state = *made;
  Probe controller{std::move(made)};
  RefreshedPanel panel{"BatchPanel", batch_module};
};

// ---- The folder of captures and the folder of images
// -----------------------------------------------------------------

struct Kind {
  std::string name;
  void (controller::Controller::*set)(const std::optional<Path>&);
  std::string first_line;
  std::string files;
  std::string missed;
  std::string file;  ///< one that is found
};

class BatchInputFolder : public BatchInputs, public testing::WithParamInterface<Kind> {
 protected:
  void set(const std::optional<Path>& chosen) { (controller.*GetParam().set)(chosen); }
};

INSTANTIATE_TEST_SUITE_P(
    Kinds, BatchInputFolder,
    testing::Values(Kind{"Captures", &controller::Controller::set_batch_input_folder,
                         "info: Controller.set_batch_input_folder: Setting batch input folder to ", "HDR_*.INF files",
                         "HDR files", "HDR_0001.INF"},
                    Kind{"Images", &controller::Controller::set_batch_input_image_folder,
                         "info: Controller.set_batch_input_image_folder: Setting batch input image folder to ",
                         "image files", "image files", "a.png"}),
    [](const testing::TestParamInfo<Kind>& kind) { return kind.param.name; });

TEST_P(BatchInputFolder, ListsItsFilesAndReportsThem) {
  const Path file = folder.write(GetParam().file, "");
  state.message = "older message";
  state.error = "older error";
  const LogCapture log;
  state.on_reset = [&](ScriptedState& at_reset) {
    ++resets;
    EXPECT_THAT(log.lines_without_debug(), ElementsAre(GetParam().first_line + folder.path().string()));
    EXPECT_EQ(at_reset.batch_input_folder, std::nullopt) << "the selection goes before the folder is stored";
    EXPECT_EQ(at_reset.message, "older message");
    EXPECT_EQ(at_reset.error, "older error");
  };
  panel.on_refresh = [&] {
    EXPECT_THAT(state.batch_file_list, Optional(ElementsAre(file)));
    EXPECT_EQ(state.message, "Batch input folder set: " + folder.path().string());
    EXPECT_EQ(state.error, std::nullopt);
  };
  set(folder.path());
  EXPECT_EQ(state.batch_input_folder, folder.path());
  EXPECT_EQ(resets, 1);
  EXPECT_EQ(panel.refreshes, 1);
  EXPECT_THAT(
      log.lines_without_debug(),
      ElementsAre(GetParam().first_line + folder.path().string(),
                  "info: Found 1 " + GetParam().files + " in batch folder: " + folder.path().string(), refreshed(1)));
}

TEST_P(BatchInputFolder, GivenTheFolderOfTheStateThatTheResetClears_ThenItIsStoredAndSearched) {
  const Path file = folder.write(GetParam().file, "");
  state.current_folder = folder.path();
  set(state.current_folder);
  EXPECT_EQ(state.current_folder, std::nullopt);
  EXPECT_EQ(state.batch_input_folder, folder.path());
  EXPECT_THAT(state.batch_file_list, Optional(ElementsAre(file)));
  EXPECT_EQ(state.message, "Batch input folder set: " + folder.path().string());
}

TEST_P(BatchInputFolder, GivenTheSameFolderAgain_ThenNothingIsReset) {
  set(folder.path());
  resets = 0;
  set(folder.path());
  EXPECT_EQ(resets, 0);
}

TEST_P(BatchInputFolder, GivenTheSameFolderAgainAfterAFileOrFolderWasSelected_ThenTheSelectionIsCleared) {
  set(folder.path());
  for (const bool is_file : {true, false}) {
    (is_file ? state.current_file : state.current_folder) = folder / "selected";
    resets = 0;
    set(folder.path());
    EXPECT_EQ(resets, 1);
    EXPECT_EQ(state.current_file, std::nullopt);
    EXPECT_EQ(state.current_folder, std::nullopt);
  }
}

TEST_P(BatchInputFolder, GivenAStateWhoseResetKeepsTheSelection_ThenAnotherFolderResetsItTwice) {
  class KeepingState final : public controller::AppState {
   public:
    void reset_system_state() override { ++resets; }
    int resets = 0;
  };
  auto keeping = std::make_unique<KeepingState>();
  KeepingState& kept = *keeping;
  kept.current_folder = folder.path();
  Probe other(std::move(keeping));
  (other.*GetParam().set)(folder.path());
  EXPECT_EQ(kept.resets, 2);
}

TEST_P(BatchInputFolder, GivenNoFolder_ThenTheListIsEmptyAndNothingIsSearched) {
  set(folder.path());
  state.batch_file_list = std::vector<Path>{"older"};
  const LogCapture log;
  set(std::nullopt);
  EXPECT_EQ(state.batch_input_folder, std::nullopt);
  EXPECT_THAT(state.batch_file_list, Optional(IsEmpty()));
  EXPECT_EQ(state.message, "No batch input folder selected");
  EXPECT_THAT(log.lines_without_debug(), ElementsAre(GetParam().first_line + "None", refreshed(1)));
}

TEST_P(BatchInputFolder, GivenAnEmptyPath_ThenNothingIsSearched) {
  const LogCapture log;
  set(Path());
  EXPECT_THAT(state.batch_file_list, Optional(IsEmpty()));
  EXPECT_EQ(state.message, "No batch input folder selected");
  EXPECT_THAT(log.lines_without_debug(), ElementsAre(GetParam().first_line, refreshed(1)));
}

TEST_P(BatchInputFolder, GivenAFolderThatIsNotThere_ThenTheListIsEmptyAndTheSearchLogsWhy) {
  const Path missing = folder / "missing";
  const LogCapture log;
  set(missing);
  EXPECT_EQ(state.batch_input_folder, missing);
  EXPECT_THAT(state.batch_file_list, Optional(IsEmpty()));
  EXPECT_EQ(state.error, std::nullopt);
  EXPECT_THAT(log.lines_without_debug(),
              ElementsAre(GetParam().first_line + missing.string(),
                          "error: Error scanning folder " + missing.string() + " for " + GetParam().missed +
                              ": The folder cannot be read: No such file or directory.",
                          "info: Found 0 " + GetParam().files + " in batch folder: " + missing.string(), refreshed(1)));
}

TEST_P(BatchInputFolder, GivenAFailureAfterTheSearch_ThenTheListIsEmptyAndOneErrorLineSaysSo) {
  folder.write(GetParam().file, "");
  const LogCapture log;
  const common::LogObserver failing([](const common::LogRecord& record) {
    if (record.text.starts_with("Found ")) throw std::runtime_error("no room for the list");
  });
  set(folder.path());
  EXPECT_THAT(state.batch_file_list, Optional(IsEmpty()));
  EXPECT_EQ(log.lines_without_debug()[2], "error: Error finding " + GetParam().missed + " in batch folder " +
                                              folder.path().string() + ": no room for the list");
  EXPECT_EQ(panel.refreshes, 1);
}

TEST_P(BatchInputFolder, AFailingResetOrPanelReachesTheCaller) {
  panel.on_refresh = [] { throw std::runtime_error("panel"); };
  EXPECT_THROW(set(folder.path()), std::runtime_error);
  EXPECT_EQ(state.batch_input_folder, folder.path());
  state.on_reset = [](ScriptedState&) { throw std::runtime_error("reset"); };
  EXPECT_THROW(set(std::nullopt), std::runtime_error);
  EXPECT_EQ(state.batch_input_folder, folder.path());
}

// ---- The searches
// --------------------------------------------------------------------------------------------------

TEST_F(BatchInputs, HeaderFilesAreFoundInAscendingOrderAndNotInSubfolders) {
  folder.write("HDR_0002.INF", "");
  folder.write("HDR_0001.INF", "");
  folder.write("hdr_0003.txt", "");
  folder.write("hdr_0004.INF", "");
  folder.write("HDR_0005.inf", "");
  folder.write("HDR_0006.INF.bak", "");
  folder.write("sub/HDR_0007.INF", "");
  std::filesystem::create_directory(folder / "HDR_0008.INF");
  EXPECT_THAT(controller._find_batch_hdr_files(folder.path()),
              ElementsAre(folder / "HDR_0001.INF", folder / "HDR_0002.INF"));
}

TEST_F(BatchInputs, ImagesOfEverySuffixInLowerAndUpperCaseAreFoundOnceInOrder) {
  const std::vector<std::string> found{"B.PNG", "C.JPG", "D.JPEG", "E.TIF", "F.TIFF", "G.BMP", "H.GIF",
                                       "a.png", "c.jpg", "d.jpeg", "e.tif", "f.tiff", "g.bmp", "h.gif"};
  std::vector<Path> expected;
  for (const std::string& name : found) expected.push_back(folder.write(name, ""));
  for (const char* name : {"i.Png", "j.webp", "k.INF", "png", "sub/l.png"}) folder.write(name, "");
  std::filesystem::create_directory(folder / "x.png");
  EXPECT_EQ(controller._find_batch_image_files(folder.path()), expected);
}

TEST_F(BatchInputs, GivenAPngAndAnUpperCasePng_ThenBothAreFoundOnce) {
  folder.write("a.png", "");
  folder.write("B.PNG", "");
  EXPECT_THAT(controller._find_batch_image_files(folder.path()), ElementsAre(folder / "B.PNG", folder / "a.png"));
}

TEST_F(BatchInputs, GivenAFileInPlaceOfAFolder_ThenTheSearchesFindNothingAndLogWhy) {
  const Path file = folder.write("a.png", "");
  const LogCapture log;
  EXPECT_THAT(controller._find_batch_hdr_files(file), IsEmpty());
  EXPECT_THAT(controller._find_batch_image_files(file), IsEmpty());
  EXPECT_THAT(log.lines(), ElementsAre("error: Error scanning folder " + file.string() +
                                           " for HDR files: The folder cannot be read: Not a directory.",
                                       "error: Error scanning folder " + file.string() +
                                           " for image files: The folder cannot be read: Not a directory."));
}

// ---- Output folder and file list
// -----------------------------------------------------------------------------------

TEST_F(BatchInputs, TheOutputFolderIsStoredAndThenShown) {
  state.error = "older";
  panel.on_refresh = [&] {
    EXPECT_EQ(state.batch_output_folder, folder.path());
    EXPECT_EQ(state.message, "Batch output folder set: " + folder.path().string());
    EXPECT_EQ(state.error, std::nullopt);
  };
  controller.set_batch_output_folder(folder.path());
  EXPECT_EQ(panel.refreshes, 1);
  EXPECT_EQ(resets, 0);
}

TEST_F(BatchInputs, GivenNoOutputFolder_ThenItIsStoredAbsentAndThenShown) {
  state.batch_output_folder = folder.path();
  state.error = "older";
  panel.on_refresh = [&] {
    EXPECT_EQ(state.batch_output_folder, std::nullopt);
    EXPECT_EQ(state.message, "No batch output folder selected");
    EXPECT_EQ(state.error, std::nullopt);
  };
  controller.set_batch_output_folder(std::nullopt);
  EXPECT_EQ(panel.refreshes, 1);
}

TEST_F(BatchInputs, AFileListIsStoredUnchangedAndCountedAndThenShown) {
  state.error = "older";
  panel.on_refresh = [&] {
    EXPECT_THAT(state.batch_file_list, Optional(ElementsAre("b.png", "a.png", "b.png")));
    EXPECT_EQ(state.message, "Batch file list set: 3 files");
    EXPECT_EQ(state.error, std::nullopt);
  };
  controller.set_batch_file_list(std::vector<Path>{"b.png", "a.png", "b.png"});
  EXPECT_EQ(panel.refreshes, 1);
}

TEST_F(BatchInputs, GivenAnEmptyFileList_ThenItIsStoredEmptyAndThenShown) {
  state.error = "older";
  panel.on_refresh = [&] {
    EXPECT_THAT(state.batch_file_list, Optional(IsEmpty()));
    EXPECT_EQ(state.message, "Batch file list cleared");
    EXPECT_EQ(state.error, std::nullopt);
  };
  controller.set_batch_file_list(std::vector<Path>{});
  EXPECT_EQ(panel.refreshes, 1);
}

TEST_F(BatchInputs, GivenNoFileList_ThenItIsStoredAbsentAndThenShown) {
  state.batch_file_list = std::vector<Path>{"a.png"};
  state.error = "older";
  panel.on_refresh = [&] {
    EXPECT_EQ(state.batch_file_list, std::nullopt);
    EXPECT_EQ(state.message, "Batch file list cleared");
    EXPECT_EQ(state.error, std::nullopt);
  };
  controller.set_batch_file_list();
  EXPECT_EQ(panel.refreshes, 1);
}

}  // namespace
}  // namespace orvexa::test
