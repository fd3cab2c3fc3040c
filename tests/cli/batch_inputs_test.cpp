#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/batch_setup.h"

namespace orvexa::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Words = std::vector<std::string>;

/// A tree of inputs; the contents do not matter where nothing is run.
struct Tree {
  TemporaryFolder folder;
  std::filesystem::path workflow = write_leaf_workflow(folder);

  Tree() {
    for (const char* name :
         {"both/HDR_b.INF", "both/HDR_a.INF", "both/photo.png", "pictures/B.PNG", "pictures/a.jpg", "pictures/x.txt",
          "pictures/deeper/c.tif", "nested/one/HDR_1.INF", "notes/readme.txt", "stack.tif", "strange.xyz"}) {
      folder.write(name, "");
    }
    std::filesystem::create_directories(folder / "empty");
  }

  /// @param inputs  relative to the tree.
  [[nodiscard]] Outcome dry_run(const Words& inputs, const Words& options = {}) const {
    Words words{"batch", workflow.string(), "--dry-run"};
    for (const std::string& input : inputs) words.push_back(folder / input);
    words.insert(words.end(), options.begin(), options.end());
    return orvexa_command(words);
  }
  /// The files that would be run, relative to the tree.
  [[nodiscard]] Words selected(const Words& inputs, const Words& options = {}) const {
    const Outcome outcome = dry_run(inputs, options);
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    Words files = split(outcome.out, '\n');
    for (std::string& file : files) file = file.substr(folder.path().string().size() + 1);
    return files;
  }
};

TEST(BatchInputs, GivenAFolderWithCapturesAndImages_ThenTheCapturesAreTakenInOrder) {
  EXPECT_THAT(Tree().selected({"both"}), ElementsAre("both/HDR_a.INF", "both/HDR_b.INF"));
}

TEST(BatchInputs, GivenAFolderWithoutCaptures_ThenItsImagesAreTakenButNotThoseOfItsFolders) {
  EXPECT_THAT(Tree().selected({"pictures"}), ElementsAre("pictures/B.PNG", "pictures/a.jpg"));
}

TEST(BatchInputs, GivenSeveralFolders_ThenEachIsLookedAtByItself) {
  EXPECT_THAT(Tree().selected({"pictures", "both"}),
              ElementsAre("pictures/B.PNG", "pictures/a.jpg", "both/HDR_a.INF", "both/HDR_b.INF"));
}

TEST(BatchInputs, GivenTheOptionImages_ThenTheImagesAreTakenAlsoBesideCaptures) {
  EXPECT_THAT(Tree().selected({"both"}, {"--images"}), ElementsAre("both/photo.png"));
}

TEST(BatchInputs, GivenTheOptionCaptures_ThenAFolderOfImagesGivesNothing) {
  const Outcome outcome = Tree().dry_run({"pictures"}, {"--captures"});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("pictures: there is no capture (HDR_*.INF) directly in this folder."));
}

TEST(BatchInputs, GivenSingleFiles_ThenTheyAreTakenAsTheyAreWhateverTheirNames) {
  EXPECT_THAT(Tree().selected({"strange.xyz", "both/photo.png"}), ElementsAre("strange.xyz", "both/photo.png"));
  EXPECT_THAT(Tree().selected({"both/photo.png"}, {"--captures"}), ElementsAre("both/photo.png"));
}

TEST(BatchInputs, GivenAnEmptyName_ThenThatIsSaid) {
  const Tree tree;
  const Outcome outcome = orvexa_command({"batch", tree.workflow.string(), tree.folder / "both", "", "--dry-run"});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.err, "orvexa batch: an INPUT is empty; see orvexa batch --help.\n");
}

TEST(BatchInputs, GivenAPageOfAnImage_ThenItIsTaken) {
  EXPECT_THAT(Tree().selected({"stack.tif[2]", "stack.tif"}), ElementsAre("stack.tif[2]", "stack.tif"));
  EXPECT_EQ(Tree().dry_run({"no_stack.tif[2]"}).exit_code, 2);
}

TEST(BatchInputs, GivenAFileTwice_ThenItIsTakenOnceHoweverItWasNamed) {
  const Tree tree;
  std::filesystem::create_directory_symlink(tree.folder / "both", tree.folder / "link");
  EXPECT_THAT(tree.selected({"both/HDR_b.INF", "both", "both/../both/HDR_a.INF", "link"}),
              ElementsAre("both/HDR_b.INF", "both/HDR_a.INF"));
}

TEST(BatchInputs, GivenALinkToAFile_ThenItIsAFileOfItsOwnName) {
  const Tree tree;
  std::filesystem::create_symlink(tree.folder / "both/HDR_a.INF", tree.folder / "both/HDR_c.INF");
  EXPECT_THAT(tree.selected({"both"}), ElementsAre("both/HDR_a.INF", "both/HDR_b.INF", "both/HDR_c.INF"));
}

TEST(BatchInputs, GivenAnEmptyFolderAmongOthers_ThenARemarkNamesIt) {
  const Outcome outcome = Tree().dry_run({"empty", "both"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err,
              HasSubstr("empty: there is no capture (HDR_*.INF) and no image file directly in this folder.\n"));
  EXPECT_EQ(Tree().dry_run({"empty", "both"}, {"--quiet"}).err, "");
}

struct NothingCase {
  const char* name;
  Words inputs;
  Words options;
  const char* words;
};

class NothingToDo : public testing::TestWithParam<NothingCase> {};

TEST_P(NothingToDo, IsOneSentenceExitCode2AndNoFolder) {
  const Tree tree;
  for (const bool is_dry_run : {true, false}) {
    Words options = GetParam().options;
    // The option stands first, and a run that would begin all the same has a place to show itself.
    options.insert(options.end(), {"-o", tree.folder / "out"});
    Words words{"batch", tree.workflow.string()};
    if (is_dry_run) words.emplace_back("--dry-run");
    for (const std::string& input : GetParam().inputs) words.push_back(tree.folder / input);
    words.insert(words.end(), options.begin(), options.end());
    const Outcome outcome = orvexa_command(words);
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(is_one_sentence(outcome.err));
    EXPECT_THAT(outcome.err, HasSubstr(GetParam().words));
    EXPECT_FALSE(std::filesystem::exists(tree.folder / "out"));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, NothingToDo,
    testing::Values(
        NothingCase{"EmptyFolder", {"empty"}, {}, "empty: there is no capture (HDR_*.INF) and no image file directly"},
        NothingCase{"FolderOfOtherFiles", {"notes"}, {}, "notes: there is no capture (HDR_*.INF) and no image file"},
        NothingCase{"FolderOfFolders", {"nested"}, {}, "folders inside it are searched when they are given, as with"},
        NothingCase{"NoImages", {"nested"}, {"--images"}, "nested: there is no image file directly in this folder."},
        NothingCase{"SeveralFolders", {"empty", "notes"}, {}, "in the 2 folders that were given."},
        NothingCase{"MissingFile", {"both", "both/HDR_z.INF"}, {}, "both/HDR_z.INF."},
        NothingCase{"TwoMissing", {"gone", "both", "lost.png"}, {}, "There is no file or folder "}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(BatchInputs, GivenAFolderThatCannotBeRead_ThenTheSystemsReasonIsSaid) {
  if (::geteuid() == 0) GTEST_SKIP() << "root may read every folder";
  const Tree tree;
  std::filesystem::permissions(tree.folder / "both", std::filesystem::perms::none);
  const Outcome outcome = tree.dry_run({"both"});
  std::filesystem::permissions(tree.folder / "both", std::filesystem::perms::owner_all);
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("both: this folder cannot be searched: Permission denied."));
}

TEST(BatchInputs, GivenADryRun_ThenNothingIsWrittenAndTheDocumentListsTheFiles) {
  const Tree tree;
  const auto before = tree.folder.entries();
  const Outcome outcome = tree.dry_run({"both"}, {"--json", "-o", tree.folder / "out"});
  EXPECT_EQ(outcome.exit_code, 0);
  const common::Value document = outcome.json();
  EXPECT_EQ(document.at("workflow_title"), "Leaf");
  EXPECT_EQ(document.at("output_folder"), (tree.folder / "out").string());
  EXPECT_EQ(document.at("done_before"), 0);
  EXPECT_EQ(document.at("files"),
            (common::Value{(tree.folder / "both/HDR_a.INF").string(), (tree.folder / "both/HDR_b.INF").string()}));
  EXPECT_EQ(tree.folder.entries(), before);
  EXPECT_EQ(tree.dry_run({"both"}).err, "Files to run: 2; nothing was written.\n");
}

}  // namespace
}  // namespace orvexa::test
