#include "orvexa/controller/folder_watch.h"
#include <fmt/format.h>

#include "controller/watch_fixture.h"
#include "orvexa/model/workflow/results_folder.h"
#include "support/log_capture.h"

namespace orvexa::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class FolderWatchTest : public WatchTest {};

// ---- Complete captures

TEST_F(FolderWatchTest, GivenACompleteCapture_ThenItIsTakenAtTheSecondPollThatSeesItUnchanged) {
  write_capture("plot", 5);
  EXPECT_FALSE(poll()) << "nobody knows yet whether it rests";
  EXPECT_THAT(results(), IsEmpty());
  EXPECT_TRUE(poll());
  EXPECT_THAT(results(), ElementsAre("plot"));
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_plot.INF"));
  EXPECT_EQ(events.back().folder, (out / "plot").string());
  EXPECT_THAT(read_all(out / "plot" / "metrics.tsv"), HasSubstr("\nplot\tROI_1\t\t\t5\t"));
}

TEST_F(FolderWatchTest, GivenFilesThatGrowByTheByte_ThenNothingIsTakenBeforeTwoPollsAgree) {
  const std::string bytes = picture(5);
  write_header("plot", {"plot_A.png"});
  for (std::size_t size = 1; size <= bytes.size(); ++size) {
    folder.write("in/plot_A.png", bytes.substr(0, size));
    poll();
    ASSERT_EQ(loads, 0);
  }
  poll();
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_plot.INF"));
  EXPECT_THAT(files_of(Kind::retry), IsEmpty());
}

TEST_F(FolderWatchTest, GivenOnlyAnotherTimeOfModification_ThenTheCaptureDoesNotRest) {
  write_capture("plot");
  for (const int seconds : {1000, 2000, 3000}) {
    set_time("plot_A.png", seconds);
    poll();
  }
  EXPECT_EQ(loads, 0);
  poll();
  EXPECT_THAT(results(), ElementsAre("plot"));
}

TEST_F(FolderWatchTest, GivenAHeaderBeforeItsImages_ThenItIsReportedOnceAndDoneWhenTheyAreThere) {
  write_header("plot", {"a.png", "sub/b.png", "stack.tif[2]"});
  poll(4);
  EXPECT_THAT(texts_of(Kind::incomplete),
              ElementsAre("It is not complete: it waits for a.png, sub/b.png and stack.tif."));
  ASSERT_THAT(status().incomplete, SizeIs(1));
  EXPECT_EQ(status().incomplete[0].file, "HDR_plot.INF");
  EXPECT_THAT(status().incomplete[0].missing, ElementsAre("a.png", "sub/b.png", "stack.tif"));
  EXPECT_EQ(status().waiting, 1U);

  write_header("plot", {"a.png", "sub/b.png"});
  write_picture("a.png");
  poll(2);
  EXPECT_THAT(texts_of(Kind::incomplete), Contains("It is not complete: it waits for sub/b.png."));
  EXPECT_EQ(loads, 0);
  write_picture("sub/b.png");
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_plot.INF"));
  EXPECT_THAT(status().incomplete, IsEmpty());
  EXPECT_EQ(status().waiting, 0U);
}

TEST_F(FolderWatchTest, GivenManyMissingImages_ThenTheSentenceCountsThemAndTheStatusHasThemAll) {
  write_header("plot", {"a.png", "b.png", "c.png", "d.png", "e.png"});
  poll(2);
  EXPECT_THAT(texts_of(Kind::incomplete),
              ElementsAre("It is not complete: it waits for a.png, b.png, c.png and 2 more files."));
  EXPECT_THAT(status().incomplete[0].missing, SizeIs(5));
}

TEST_F(FolderWatchTest, GivenAnIncompleteCapture_ThenItDoesNotHoldUpTheOthers) {
  write_header("a", {"nowhere.png"});
  write_capture("b");
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_b.INF"));
}

TEST_F(FolderWatchTest, GivenTwoImageLinesOfOneFile_ThenItIsOneFileOfTheCapture) {
  write_picture("a.png");
  write_header("plot", {"a.png", "./a.png"});
  poll(2);
  ASSERT_THAT(journal("started"), SizeIs(1));
  EXPECT_THAT(journal("started")[0].at("files"), SizeIs(2));
}

TEST_F(FolderWatchTest, GivenAFileThatChangesWhileItIsRead_ThenNothingIsRunAndTheNewContentIsDoneLater) {
  write_capture("plot", 5);
  on_load = [this](const auto&) {
    if (loads == 1) write_picture("plot_A.png", 7);
  };
  poll(2);
  EXPECT_EQ(loads, 1);
  EXPECT_THAT(results(), IsEmpty());
  EXPECT_THAT(journal("started"), IsEmpty());
  poll(2);
  EXPECT_THAT(results(), ElementsAre("plot"));
  EXPECT_THAT(read_all(out / "plot" / "metrics.tsv"), HasSubstr("\t7\t"));
}

// ---- Which files

TEST_F(FolderWatchTest, GivenHiddenFilesFoldersAndOtherNames_ThenTheyAreLeftAlone) {
  write_picture(".plot.png");
  write_picture("inner/plot.png");
  write_picture("plot.png.part");
  std::filesystem::create_directories(in / "HDR_folder.INF");
  folder.write("in/hdr_small.inf", header("small", {"x.png"}));
  write_picture("taken.PNG");
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("taken.PNG"));
}

TEST_F(FolderWatchTest, GivenCaptures_ThenTheyAreDoneInTheOrderInWhichTheyAppeared) {
  write_capture("z");
  poll();
  for (const char* name : {"a", "c", "b"}) write_capture(name);
  set_time("HDR_c.INF", 1000);
  set_time("HDR_a.INF", 2000);
  set_time("HDR_b.INF", 2000);
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_z.INF", "HDR_c.INF", "HDR_a.INF", "HDR_b.INF"))
      << "first what an earlier poll saw; of one poll by time, then by name";
}

TEST_F(FolderWatchTest, GivenOrdinaryImagesAndNoHeader_ThenTheyAreTaken) {
  write_picture("a.png");
  write_picture("b.png");
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("a.png", "b.png"));
  EXPECT_EQ(status().takes, "images");
  EXPECT_EQ(status().notice, std::nullopt);
}

TEST_F(FolderWatchTest, GivenAHeader_ThenOnlyCapturesAreTakenFromThenOnAndTheStatusSaysSo) {
  write_picture("photo.png");
  poll();
  write_capture("plot");
  poll(3);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_plot.INF"));
  EXPECT_EQ(status().takes, "captures");
  EXPECT_EQ(status().notice,
            "The input folder holds or has held headers HDR_*.INF, so ordinary images that no header names (1 now) are "
            "left alone; --images takes these instead.");
  EXPECT_THAT(texts_of(Kind::notice),
              ElementsAre("The input folder holds headers HDR_*.INF now: from here on only captures are taken.",
                          status().notice.value()));

  // Also when the header has gone, and over a restart.
  std::filesystem::remove(in / "HDR_plot.INF");
  poll(2);
  restart();
  poll(3);
  EXPECT_EQ(loads, 0);
  EXPECT_EQ(status().takes, "captures");
  EXPECT_THAT(texts_of(Kind::notice), ElementsAre(status().notice.value())) << "a new watch tells it too";
}

TEST_F(FolderWatchTest, GivenImagesThatAreLeftAlone_ThenItIsToldOnceWhateverTheirNumberAndAgainWhenItIsSoAgain) {
  write_capture("plot");
  write_picture("photo_1.png");
  EXPECT_FALSE(poll());
  EXPECT_THAT(texts_of(Kind::notice), IsEmpty()) << "its header may be on the way";
  poll();
  ASSERT_THAT(texts_of(Kind::notice), SizeIs(1));
  EXPECT_THAT(texts_of(Kind::notice)[0], HasSubstr("that no header names (1 now) are left alone"));
  write_picture("photo_2.png");
  poll(3);
  EXPECT_THAT(texts_of(Kind::notice), SizeIs(1));
  EXPECT_THAT(status().notice.value(), HasSubstr("(2 now)"));
  for (const char* name : {"photo_1.png", "photo_2.png"}) std::filesystem::remove(in / name);
  poll(2);
  write_picture("photo_1.png");
  poll(2);
  EXPECT_THAT(texts_of(Kind::notice), SizeIs(2));
}

TEST_F(FolderWatchTest, GivenAPictureThatLacksItsHeaderForOnePoll_ThenNothingIsSaidAboutIt) {
  write_capture("first");
  poll(2);
  write_picture("plot_A.png");
  poll();
  write_header("plot", {"plot_A.png"});
  poll(3);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_first.INF", "HDR_plot.INF"));
  EXPECT_THAT(texts_of(Kind::notice), IsEmpty());
}

TEST_F(FolderWatchTest, GivenOnceAndNothingButWhatIsLeftAlone_ThenItIsToldBeforeTheEnd) {
  arguments.once = true;
  arguments.search = controller::WatcherSearch::images;
  write_capture("plot");
  EXPECT_FALSE(poll());
  EXPECT_TRUE(poll());
  EXPECT_THAT(texts_of(Kind::notice),
              ElementsAre("Captures with a header HDR_*.INF and their images are left alone, because only images are "
                          "taken."));
}

TEST_F(FolderWatchTest, GivenAPictureThatArrivesBeforeItsHeader_ThenItIsNotRunAsAPhotograph) {
  write_capture("first");
  poll(2);
  write_picture("plot_A.png");
  poll(3);
  write_header("plot", {"plot_A.png"});
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_first.INF", "HDR_plot.INF"));
  EXPECT_EQ(status().notice, std::nullopt) << "every image belongs to a header";
}

TEST_F(FolderWatchTest, GivenAHeaderThatAppearsWhileImagesAreWorkedOn_ThenTheNextImageIsNotTaken) {
  write_picture("a.png");
  write_picture("plot_A.png");
  on_load = [this](const auto&) {
    if (loads == 1) write_header("plot", {"plot_A.png"});
  };
  poll(4);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("a.png", "HDR_plot.INF"));
}

TEST_F(FolderWatchTest, GivenOnlyImagesAreWanted_ThenThoseThatNoHeaderNamesAreTaken) {
  arguments.search = controller::WatcherSearch::images;
  write_capture("plot");
  write_picture("photo.png");
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("photo.png"));
  EXPECT_EQ(status().takes, "images");
  EXPECT_EQ(status().notice,
            "Captures with a header HDR_*.INF and their images are left alone, because only images are taken.");
}

TEST_F(FolderWatchTest, GivenOnlyCapturesAreWanted_ThenImagesAreLeftAloneAlsoWithoutAHeader) {
  arguments.search = controller::WatcherSearch::captures;
  write_picture("photo.png");
  EXPECT_TRUE(poll(3));
  EXPECT_EQ(loads, 0);
  EXPECT_EQ(status().takes, "captures");
  write_capture("plot");
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_plot.INF"));
}

// ---- Failures

TEST_F(FolderWatchTest, GivenABrokenPicture_ThenItIsRetriedAtLaterPollsThenListedAndTheWatcherGoesOn) {
  folder.write("in/broken.png", "no picture");
  poll(2);
  EXPECT_EQ(loads, 1) << "one try a poll";
  write_picture("good.png");
  poll();
  EXPECT_EQ(loads, 2);
  EXPECT_THAT(status().failed, IsEmpty());
  EXPECT_EQ(status().waiting, 2U);
  poll();
  EXPECT_THAT(files_of(Kind::retry), ElementsAre("broken.png", "broken.png"));
  EXPECT_THAT(files_of(Kind::failed), ElementsAre("broken.png"));
  EXPECT_THAT(files_of(Kind::done), ElementsAre("good.png"));
  ASSERT_THAT(status().failed, SizeIs(1));
  EXPECT_EQ(status().failed[0].file, "broken.png");
  EXPECT_THAT(status().failed[0].error, HasSubstr("broken.png"));
  EXPECT_EQ(status().last_error, status().failed[0].error);
  EXPECT_TRUE(status().last_error_time);
  EXPECT_EQ(status().waiting, 0U);
  ASSERT_THAT(journal("failed"), SizeIs(3));
  EXPECT_EQ(journal("failed")[2].at("attempt"), 3);
  EXPECT_EQ(journal("failed")[2].at("is_last"), true);
  poll(3);
  EXPECT_EQ(loads, 4) << "listed, it is left alone";
}

TEST_F(FolderWatchTest, GivenNoRetries_ThenTheFirstFailureIsTheLast) {
  arguments.retries = 0;
  folder.write("in/broken.png", "no picture");
  poll(3);
  EXPECT_EQ(loads, 1);
  EXPECT_THAT(files_of(Kind::retry), IsEmpty());
  EXPECT_THAT(files_of(Kind::failed), ElementsAre("broken.png"));
}

TEST_F(FolderWatchTest, GivenAFailureThatPasses_ThenTheCaptureIsDone) {
  write_capture("plot");
  on_load = [this](const auto&) {
    if (loads < 3) throw std::runtime_error("The network is away.");
  };
  poll(4);
  EXPECT_THAT(texts_of(Kind::retry), ElementsAre("The network is away.", "The network is away."));
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_plot.INF"));
}

TEST_F(FolderWatchTest, GivenAFailedCaptureWhoseFilesChange_ThenItIsTriedAfresh) {
  arguments.retries = 0;
  folder.write("in/plot.png", "half");
  poll(2);
  EXPECT_THAT(files_of(Kind::failed), ElementsAre("plot.png"));
  write_picture("plot.png");
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("plot.png"));
  EXPECT_THAT(status().failed, IsEmpty());
}

TEST_F(FolderWatchTest, GivenAFailedCaptureAndAnotherWorkflow_ThenItIsTriedAfresh) {
  arguments.retries = 0;
  write_capture("plot");
  on_load = [this](const auto&) {
    if (loads == 1) throw std::runtime_error("The network is away.");
  };
  poll(4);
  EXPECT_EQ(loads, 1);
  write_workflow("region_count");
  poll(3);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_plot.INF"));
  EXPECT_THAT(status().failed, IsEmpty());
}

TEST_F(FolderWatchTest, GivenAFailedCapture_ThenTheNextStartTriesItAgain) {
  arguments.retries = 0;
  write_capture("plot");
  on_load = [](const auto&) { throw std::runtime_error("The network is away."); };
  poll(3);
  EXPECT_THAT(status().failed, SizeIs(1));
  on_load = {};
  restart();
  poll(2);
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_plot.INF"));
}

TEST_F(FolderWatchTest, GivenAHeaderThatIsNone_ThenItsSentenceIsListed) {
  arguments.retries = 0;
  folder.write("in/HDR_odd.INF", "no header");
  poll(2);
  ASSERT_THAT(status().failed, SizeIs(1));
  EXPECT_THAT(status().failed[0].error, HasSubstr("HDR_odd.INF, line 1"));
}

TEST_F(FolderWatchTest, GivenAnOperationThatFails_ThenTheCaptureIsDoneAndTheSentenceIsTold) {
  write_workflow("psii");
  write_capture("plot");
  poll(2);
  ASSERT_EQ(events.back().kind, Kind::done);
  EXPECT_THAT(events.back().details.at("operation_errors").at("psii").get<std::string>(), HasSubstr("FLU"));
  EXPECT_EQ(journal("done")[0].at("operation_errors"), events.back().details.at("operation_errors"));
  EXPECT_EQ(status().with_operation_errors, 1U);
  EXPECT_TRUE(status().last_operation_error.value().starts_with("HDR_plot.INF: psii: "));
  restart();
  poll(2);
  EXPECT_EQ(status().with_operation_errors, 0U) << "since the start";
  EXPECT_EQ(status().last_operation_error, std::nullopt);
}

TEST_F(FolderWatchTest, GivenResultsThatCannotBeWritten_ThenCapturesWaitAndNoTryIsCounted) {
  arguments.retries = 0;
  write_capture("a");
  write_capture("b");
  bool is_full = true;
  on_load = [&](const auto&) {
    if (is_full) throw model::ResultsFolderError("The folder \"out\" has 4 bytes left.");
  };
  EXPECT_TRUE(poll(4)) << "nothing to do until it is solved";
  EXPECT_EQ(loads, 3) << "one attempt a poll tells whether it is";
  const std::string problem = "Results cannot be written, so captures wait: The folder \"out\" has 4 bytes left.";
  EXPECT_THAT(texts_of(Kind::problem), ElementsAre(problem));
  EXPECT_THAT(status().problems, ElementsAre(problem));
  EXPECT_EQ(status().waiting, 2U);
  EXPECT_THAT(status().failed, IsEmpty());
  is_full = false;
  poll();
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_a.INF", "HDR_b.INF"));
  EXPECT_THAT(texts_of(Kind::solved), ElementsAre("Results can be written again."));
  EXPECT_THAT(status().problems, IsEmpty());
}

TEST_F(FolderWatchTest, GivenADiskWhoseFreeSpaceChanges_ThenTheProblemIsToldOnceAndTheStatusHasTheLatestNumber) {
  write_capture("a");
  int kilobytes = 400;
  on_load = [&](const auto&) {
    throw model::ResultsFolderError(fmt::format("The folder \"out\" has {}.5 kB left.", kilobytes--));
  };
  poll(4);
  const std::string problem = "Results cannot be written, so captures wait: The folder \"out\" has {}.5 kB left.";
  EXPECT_THAT(texts_of(Kind::problem), ElementsAre(fmt::format(fmt::runtime(problem), 400)));
  EXPECT_THAT(status().problems, ElementsAre(fmt::format(fmt::runtime(problem), 398)));
  on_load = [&](const auto&) { throw model::ResultsFolderError("The folder \"out\" cannot be written to."); };
  poll();
  EXPECT_EQ(texts_of(Kind::problem).size(), 2U) << "another cause is told";
}

TEST_F(FolderWatchTest, GivenResultsThatCannotBeWrittenPollAfterPoll_ThenTheStartStandsOnceInTheJournal) {
  write_capture("a");
  poll();
  const std::filesystem::path away = folder / "away";
  on_load = [&](const auto&) {  // no folder can be made in a file
    std::filesystem::rename(out, away);
    folder.write("out", "");
  };
  for (int i = 0; i < 3; ++i) {
    poll();
    ASSERT_TRUE(std::filesystem::is_regular_file(out));
    std::filesystem::remove(out);
    std::filesystem::rename(away, out);
  }
  EXPECT_EQ(loads, 3);
  EXPECT_EQ(journal("started").size(), 1U);
  on_load = nullptr;
  poll();
  EXPECT_EQ(journal("started").size(), 1U);
  EXPECT_EQ(journal("done").size(), 1U);
}

TEST_F(FolderWatchTest, GivenAnOutputFolderThatIsEmptied_ThenCapturesWaitAndNothingIsWrittenThere) {
  write_capture("a");
  poll(2);
  std::filesystem::remove_all(out);
  std::filesystem::create_directory(out);
  write_capture("b");
  EXPECT_TRUE(poll(3));
  EXPECT_THAT(texts_of(Kind::problem),
              ElementsAre("The output folder \"" + out.string() +
                          "\" is not the one any more that this watcher began with: it was removed, emptied or "
                          "replaced, so captures wait. A watcher that is started anew begins afresh there."));
  EXPECT_TRUE(std::filesystem::is_empty(out));
  end();
  EXPECT_TRUE(std::filesystem::is_empty(out));
}

TEST_F(FolderWatchTest, GivenAnOutputFolderThatIsMovedAwayAndBack_ThenTheWatchGoesOn) {
  write_capture("a");
  poll(2);
  std::filesystem::rename(out, folder / "away");
  write_capture("b");
  poll(2);
  EXPECT_FALSE(std::filesystem::exists(out));
  std::filesystem::rename(folder / "away", out);
  poll(2);
  EXPECT_THAT(texts_of(Kind::solved), ElementsAre("The output folder is there again."));
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_a.INF", "HDR_b.INF"));
}

TEST_F(FolderWatchTest, GivenAWorkflowThatBecomesUnreadable_ThenItIsReportedAndCapturesWait) {
  poll(2);
  folder.write("workflow.yaml", "mask_operations: [");
  write_capture("plot");
  poll(3);
  EXPECT_EQ(loads, 0);
  ASSERT_THAT(texts_of(Kind::problem), SizeIs(1)) << "told once";
  EXPECT_THAT(texts_of(Kind::problem)[0],
              testing::StartsWith("The workflow cannot run, so captures wait: workflow.yaml"));
  EXPECT_EQ(status().waiting, 1U);
  EXPECT_EQ(status().last_error, texts_of(Kind::problem)[0]);
  write_workflow("area");
  poll(2);
  EXPECT_THAT(texts_of(Kind::solved), ElementsAre("The workflow can be read again."));
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_plot.INF"));
}

TEST_F(FolderWatchTest, GivenAWorkflowThatCannotRun_ThenCapturesWait) {
  write_workflow("aera");
  write_capture("plot");
  poll(3);
  EXPECT_EQ(loads, 0);
  ASSERT_THAT(texts_of(Kind::problem), SizeIs(1));
  EXPECT_THAT(texts_of(Kind::problem)[0], HasSubstr("result operation 1 (aera)"));
  EXPECT_THAT(texts_of(Kind::problem)[0], HasSubstr("(did you mean \"area\"?)"));
  EXPECT_THAT(texts_of(Kind::incomplete), IsEmpty());
}

TEST_F(FolderWatchTest, GivenAWorkflowThatIsBeingWritten_ThenItIsTakenOnlyWhenItRests) {
  poll(2);
  write_capture("plot");
  poll();
  write_workflow("region_count");
  poll();
  EXPECT_EQ(loads, 0);
  write_workflow("perimeter");
  EXPECT_FALSE(poll());
  EXPECT_EQ(loads, 0);
  poll();
  EXPECT_THAT(read_all(out / "plot" / "workflow.yaml"), HasSubstr("perimeter"));
  EXPECT_THAT(files_of(Kind::done), SizeIs(1));
}

TEST_F(FolderWatchTest, GivenAnInputFolderThatGoesAway_ThenItIsReportedAndTheWatchGoesOnWhenItIsBack) {
  write_capture("a");
  poll(2);
  std::filesystem::rename(in, folder / "away");
  poll(2);
  EXPECT_THAT(texts_of(Kind::problem),
              ElementsAre("The input folder \"" + in.string() + "\" cannot be read: No such file or directory."));
  std::filesystem::rename(folder / "away", in);
  write_capture("b");
  poll(3);
  EXPECT_THAT(texts_of(Kind::solved), ElementsAre("The input folder can be read again."));
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_a.INF", "HDR_b.INF"));
}

TEST_F(FolderWatchTest, GivenNoInputFolder_ThenThereIsNoWatchAndNoOutputFolder) {
  arguments.input_dir = (folder / "nowhere").string();
  try {
    poll();
    FAIL();
  } catch (const std::runtime_error& failure) {
    EXPECT_EQ(failure.what(), "The input folder \"" + arguments.input_dir + "\" is not there.");
  }
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(FolderWatchTest, GivenAFileInPlaceOfTheInputFolder_ThenTheSentenceSaysSo) {
  arguments.input_dir = write_picture("plot.png").string();
  try {
    poll();
    FAIL();
  } catch (const std::runtime_error& failure) {
    EXPECT_EQ(failure.what(), "The input folder \"" + arguments.input_dir + "\" is a file and no folder.");
  }
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(FolderWatchTest, GivenACallbackThatFails_ThenTheWorkGoesOn) {
  arguments.on_event = [](const WatcherEvent&) { throw std::runtime_error("nobody listens"); };
  write_capture("plot");
  poll(2);
  EXPECT_THAT(results(), ElementsAre("plot"));
}

TEST_F(FolderWatchTest, LogsWhatHappensWithItsLevel) {
  arguments.retries = 1;
  arguments.capture_loader = [](const auto&) -> std::shared_ptr<model::CaptureSet> {
    throw std::runtime_error("It is broken.");
  };
  write_header("plot", {"plot_A.png"});
  const LogCapture log;
  poll(2);
  write_picture("plot_A.png");
  poll(3);
  EXPECT_THAT(
      log.lines_without_debug(),
      ElementsAre("info: FileWatcher: Watching " + in.string() + ", results go to " + out.string() + ".",
                  "warning: FileWatcher: incomplete HDR_plot.INF: It is not complete: it waits for plot_A.png.",
                  "info: FileWatcher: running HDR_plot.INF", "warning: FileWatcher: retry HDR_plot.INF: It is broken.",
                  "info: FileWatcher: running HDR_plot.INF", "error: FileWatcher: failed HDR_plot.INF: It is broken."));
}

// ---- A long queue

TEST_F(FolderWatchTest, GivenMoreWorkThanFitsBetweenTwoPolls_ThenThePollEndsEarlyAndTheNextGoesOn) {
  for (const char* name : {"a", "b", "c"}) write_capture(name);
  on_load = [this](const auto&) { time += std::chrono::milliseconds(1500); };
  EXPECT_FALSE(poll(2));
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_a.INF", "HDR_b.INF")) << "3 seconds of 2";
  EXPECT_EQ(status().waiting, 1U);
  EXPECT_TRUE(poll());
  EXPECT_THAT(files_of(Kind::done), SizeIs(3));
}

TEST_F(FolderWatchTest, GivenACancellation_ThenNothingMoreIsTaken) {
  for (const char* name : {"a", "b"}) write_capture(name);
  on_load = [this](const auto&) { cancel.set(); };
  poll(3);
  EXPECT_EQ(loads, 1);
  EXPECT_THAT(results(), IsEmpty());
  EXPECT_THAT(journal("cancelled"), SizeIs(1));
  EXPECT_THAT(journal("failed"), IsEmpty());
}

// ---- Once

TEST_F(FolderWatchTest, GivenOnce_ThenWhatAppearsAfterTheFirstPollIsNotTaken) {
  arguments.once = true;
  write_capture("a");
  EXPECT_FALSE(poll());
  write_capture("b");
  EXPECT_TRUE(poll());
  EXPECT_TRUE(poll());
  EXPECT_THAT(files_of(Kind::done), ElementsAre("HDR_a.INF"));
}

TEST_F(FolderWatchTest, GivenAnIncompleteCaptureOnly_ThenNothingIsLeftToDoOnceItRests) {
  write_header("a", {"nowhere.png"});
  EXPECT_FALSE(poll());
  EXPECT_TRUE(poll());
}

TEST_F(FolderWatchTest, GivenARetryToCome_ThenSomethingIsLeftToDo) {
  arguments.retries = 1;
  folder.write("in/broken.png", "no picture");
  EXPECT_FALSE(poll(2));
  EXPECT_TRUE(poll());
}

// ---- Status

TEST_F(FolderWatchTest, TheStatusSaysHowItStands) {
  write_capture("a");
  poll();
  EXPECT_EQ(status().waiting, 1U);
  poll(2);
  const controller::WatchStatus while_it_runs = status();
  EXPECT_EQ(while_it_runs.input_folder, in.string());
  EXPECT_EQ(while_it_runs.workflow_file, workflow.string());
  EXPECT_EQ(while_it_runs.poll_seconds, 2.0);
  EXPECT_EQ(while_it_runs.running_since,
            common::time_stamp_text(common::TimePoint(std::chrono::seconds(1'700'000'000))));
  EXPECT_EQ(while_it_runs.done, 1U);
  EXPECT_EQ(while_it_runs.done_since_start, 1U);
  EXPECT_EQ(while_it_runs.waiting, 0U);
  EXPECT_EQ(while_it_runs.stopped, std::nullopt);
  EXPECT_EQ(while_it_runs.last_error, std::nullopt);
  restart();
  write_capture("b");
  poll(2);
  EXPECT_EQ(status().done, 2U);
  EXPECT_EQ(status().done_since_start, 1U);
  const std::string stop_time = common::time_stamp_text(time);
  end();
  EXPECT_EQ(status().stopped, stop_time);
  EXPECT_EQ(events.back().kind, Kind::stopped);
  EXPECT_EQ(events.back().details, (Value{{"done", 1}, {"failed", 0}, {"waiting", 0}, {"incomplete", 0}}));
}

TEST_F(FolderWatchTest, WhenNothingHappens_ThenTheStatusIsRenewedOnceAMinute) {
  poll(2);
  const std::string before = read_all(out / "watch_status.json");
  poll(28);
  EXPECT_EQ(read_all(out / "watch_status.json"), before);
  poll(3);
  EXPECT_NE(read_all(out / "watch_status.json"), before);
}

TEST_F(FolderWatchTest, GivenDraftsThatAKilledWatcherLeft_ThenTheyAreRemoved) {
  folder.write("out/.watch_status.json.0123abcd.partial", "{");
  folder.write("out/.watch_table.tsv.0123abcd.partial", "Key");
  folder.write("out/.plot.partial-0123abcd/metrics.json", "{");
  folder.write("out/.other.partial", "not ours");
  poll();
  EXPECT_THAT(results(), ElementsAre(".other.partial"));
}

}  // namespace
}  // namespace orvexa::test
