#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/common/value.h"
#include "orvexa/model/source_file.h"
#include "orvexa/model/workflow/model.h"

namespace orvexa::model {

/// A file that a parameter of a workflow's step names (ParameterType::file). In a workflow it is written relative to
/// the folder of the workflow file, or absolute; operations get the absolute path.
struct ParameterFile {
  StepPlace place;
  std::string parameter;
  std::string written;
  std::filesystem::path path;  ///< absolute; with the page, `stack.tif[2]`, where one was written
};

/// Parameters of a mask operation, or of a result operation, with their files as absolute paths. What is no text, names
/// no file, or belongs to an unknown operation stays as it is.
/// @param folder  that relative ones are relative to; empty means the current folder.
[[nodiscard]] Value resolved_mask_params(std::string_view op, const Value& params, const std::filesystem::path& folder);
[[nodiscard]] Value resolved_result_params(std::string_view op, const Value& params,
                                           const std::filesystem::path& folder);

/// Every file of a workflow, in the order of its steps.
[[nodiscard]] std::vector<ParameterFile> parameter_files(const Workflow& workflow);

/// The workflow with absolute paths: it means the same wherever it is saved.
[[nodiscard]] Workflow with_resolved_files(const Workflow& workflow);

/// The workflow as it is written into a file in another folder: paths that are not absolute are relative to that one,
/// and mean the same files. In its own folder it stays as it is.
[[nodiscard]] Workflow moved_to(const Workflow& workflow, const std::filesystem::path& folder);

/// A path as a workflow in `workflow_folder` writes it: relative to that folder unless it was given as absolute.
/// @param given  relative to the current folder, or absolute.
[[nodiscard]] std::string path_in_workflow(const std::filesystem::path& given,
                                           const std::filesystem::path& workflow_folder);

/// A sentence about a file that is not there, to follow "parameter ... is ..."; absent when it is.
[[nodiscard]] std::optional<std::string> missing_file_problem(const ParameterFile& file);

/// The files with the SHA-256 of their content, each once, those of a capture with all its parts. One that cannot be
/// read is left out: the step that needs it fails with the reason.
[[nodiscard]] std::vector<SourceFile> hashed_parameter_files(const Workflow& workflow);

/// What tells two workflows apart: the SHA-256 of the workflow as its file would be written, with the SHA-256 of its
/// content in the place of each file that a parameter names. So a file that changed makes another workflow, and one
/// that moved together with it does not.
[[nodiscard]] std::string workflow_sha256(const Workflow& workflow);

}  // namespace orvexa::model
