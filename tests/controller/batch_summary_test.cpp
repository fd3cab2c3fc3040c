#include "orvexa/controller/batch_summary.h"

#include <gtest/gtest.h>

#include "orvexa/common/serialisation.h"

namespace orvexa::test {
namespace {

TEST(BatchSummary, IsAMapWithItsNamesInTheirOrder) {
  controller::BatchSummary summary;
  summary.total_files = 3;
  summary.successful_files = {
      {.file = "in/a.png", .output_folder = "out/run/a", .operation_errors = {}},
      {.file = "in/b.png", .output_folder = "out/run/b", .operation_errors = {{"psii", "no image FM"}, {"area", ""}}}};
  summary.failed_files = {{.file = "in/c.png", .error = "it is torn"}};
  summary.errors = {"Batch processing cancelled by user"};
  summary.batch_folder = "out/run";
  summary.workflow_title = "Leaves";
  EXPECT_EQ(common::json_line(summary.to_value()),
            R"({"total_files": 3, "successful_files": [)"
            R"({"file": "in/a.png", "output_folder": "out/run/a", "operation_errors": {}}, )"
            R"({"file": "in/b.png", "output_folder": "out/run/b", )"
            R"("operation_errors": {"psii": "no image FM", "area": ""}}], )"
            R"("failed_files": [{"file": "in/c.png", "error": "it is torn"}], )"
            R"("errors": ["Batch processing cancelled by user"], )"
            R"("batch_folder": "out/run", "workflow_title": "Leaves"})");
}

TEST(BatchSummary, GivenARefusedRun_ThenTheMapHasTheFirstFourNamesAlone) {
  controller::BatchSummary summary;
  summary.total_files = 2;
  summary.errors = {"refused"};
  EXPECT_EQ(common::json_line(summary.to_value()),
            R"({"total_files": 2, "successful_files": [], "failed_files": [], "errors": ["refused"]})");
}

}  // namespace
}  // namespace orvexa::test
