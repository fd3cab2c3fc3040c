#include "orvexa/model/workflow/parameter_files.h"

#include <gtest/gtest.h>

#include "orvexa/common/serialisation.h"
#include "orvexa/model/workflow/executor.h"
#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

namespace fs = std::filesystem;

std::string marks(const std::vector<std::vector<std::uint8_t>>& rows) {
  return std::string(common::as_text(encode_png(test::image<std::uint8_t>(rows))));
}

/// A workflow in a folder with the picture that it names.
struct Folder : test::TemporaryFolder {
  Folder() { write("masks/drawn.png", marks({{0, 1}, {1, 1}})); }

  [[nodiscard]] Workflow workflow(const std::string& file = "masks/drawn.png") const {
    Workflow workflow;
    workflow.folder = path();
    workflow.mask_operations = {mask_op("mask_from_file", {{"file", file}})};
    workflow.result_operations = {result_op("area")};
    return workflow;
  }
};

std::string file_of(const Workflow& workflow) {
  return workflow.mask_operations.at(0).params.at("file").get<std::string>();
}

TEST(ParameterFiles, AreRelativeToTheFolderOfTheWorkflow) {
  const Folder folder;
  const auto files = parameter_files(folder.workflow("masks/../masks/drawn.png"));
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0].parameter, "file");
  EXPECT_TRUE(files[0].place.is_mask);
  EXPECT_EQ(files[0].written, "masks/../masks/drawn.png");
  EXPECT_EQ(files[0].path, folder / "masks/drawn.png");
  EXPECT_EQ(file_of(with_resolved_files(folder.workflow())), (folder / "masks/drawn.png").string());
  EXPECT_EQ(file_of(with_resolved_files(folder.workflow("/data/x.png"))), "/data/x.png");
  EXPECT_TRUE(parameter_files(folder.workflow("")).empty()) << "no file is named";
}

TEST(ParameterFiles, MeanTheSameFilesInAnotherFolder) {
  const Folder folder;
  EXPECT_EQ(file_of(moved_to(folder.workflow(), folder.path())), "masks/drawn.png");
  EXPECT_EQ(file_of(moved_to(folder.workflow(), folder / "other")), "../masks/drawn.png");
  EXPECT_EQ(file_of(moved_to(folder.workflow("/data/x.png"), folder / "other")), "/data/x.png");
  EXPECT_EQ(path_in_workflow(folder / "masks/drawn.png", folder.path()), (folder / "masks/drawn.png").string());
  EXPECT_EQ(path_in_workflow("here.png", fs::current_path() / "below"), "../here.png");
}

TEST(ParameterFiles, OneThatIsMissingIsAProblemOfItsStep) {
  const Folder folder;
  EXPECT_TRUE(check_workflow(folder.workflow()).empty());
  const auto problems = check_workflow(folder.workflow("gone.png"));
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0].step, "mask step 1 (mask_from_file)");
  EXPECT_EQ(problems[0].text, "mask_from_file: parameter \"file\" is \"gone.png\", but there is no file " +
                                  (folder / "gone.png").string() + ".");
}

TEST(ParameterFiles, AreAPartOfWhatTellsWorkflowsApart) {
  const Folder folder;
  const Folder copy;
  const std::string before = workflow_sha256(folder.workflow());
  EXPECT_EQ(workflow_sha256(copy.workflow()), before) << "the same content elsewhere";
  EXPECT_EQ(workflow_sha256(with_resolved_files(folder.workflow())), before);
  folder.write("masks/drawn.png", marks({{1, 1}, {1, 1}}));
  EXPECT_NE(workflow_sha256(folder.workflow()), before);
  Workflow without = folder.workflow();
  without.mask_operations.clear();
  EXPECT_EQ(workflow_sha256(without), common::sha256_hex(common::as_byte_span(common::yaml_text(without.to_dict()))));
}

TEST(ParameterFiles, AreRecordedByARunWhoseWorkflowLoadsAgainFromItsResults) {
  const Folder folder;
  const auto workflow = std::make_shared<Workflow>(folder.workflow());
  const RunOutput output = Executor().run_and_save({.capture = test::blank_capture({2, 2}),
                                                    .wf = workflow,
                                                    .output_base_dir = folder / "results",
                                                    .capture_name = "blank"});
  EXPECT_EQ(output.bundle.results.at("area").metrics.at("area"), 3);
  EXPECT_EQ(file_of(*workflow), "masks/drawn.png") << "the workflow stays as it was";

  Workflow again(common::load_yaml(output.results_folder / "workflow.yaml"));
  again.folder = output.results_folder;
  EXPECT_TRUE(check_workflow(again).empty());
  EXPECT_EQ(workflow_sha256(again), workflow_sha256(*workflow));

  const Value record = Value::parse(test::read_all(output.results_folder / "provenance.json"));
  const std::string picture = test::read_all(folder / "masks/drawn.png");
  ASSERT_EQ(record.at("files").size(), 1u);
  EXPECT_EQ(record.at("files").at(0).at("path"), (folder / "masks/drawn.png").string());
  EXPECT_EQ(record.at("files").at(0).at("sha256"), common::sha256_hex(common::as_byte_span(picture)));
  EXPECT_EQ(record.at("workflow_sha256"), workflow_sha256(*workflow));
}

}  // namespace
}  // namespace orvexa::model
