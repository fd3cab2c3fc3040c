#include "orvexa/model/workflow/parameter_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "orvexa/common/files.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"
#include "orvexa/model/entities/capture_files.h"
#include "orvexa/model/entities/capture_loader.h"
#include "orvexa/model/mask_operations/registry.h"
#include "orvexa/model/result_operations/registry.h"

namespace orvexa::model {

namespace {

using Path = std::filesystem::path;

/// An operation of a step; keys of mask and result operations may be the same.
struct StepOperation {
  bool is_mask = false;
  std::string_view key;

  [[nodiscard]] ParameterList parameters() const {
    if (is_mask) {
      const MaskOperationInfo* info = find_mask_operation(key);
      return info == nullptr ? ParameterList() : info->parameters;
    }
    const ResultOperationInfo* info = get_result_operation_info(key);
    return info == nullptr ? ParameterList() : info->parameters;
  }
};

/// Calls `use(name, text)` for the parameters that name a file.
void for_each_file(const StepOperation& operation, const Value& params,
                   const std::function<void(const std::string&, const std::string&)>& use) {
  if (!params.is_object()) return;
  for (const ParameterInfo& parameter : operation.parameters()) {
    if (parameter.type != ParameterType::file) continue;
    const auto value = params.find(parameter.name);
    if (value == params.end() || !value->is_string()) continue;
    const auto& text = value->get_ref<const std::string&>();
    if (!text.empty()) use(parameter.name, text);
  }
}

Path resolved(const std::string& written, const Path& folder) {
  std::error_code unknown;
  const Path path = folder / written;
  const Path absolute = std::filesystem::absolute(path, unknown);
  return (unknown ? path : absolute).lexically_normal();
}

using Rewrite = std::function<std::string(const std::string& written)>;

Value rewritten(const StepOperation& operation, const Value& params, const Rewrite& rewrite) {
  Value result = params;
  for_each_file(operation, params,
                [&](const std::string& name, const std::string& text) { result[name] = rewrite(text); });
  return result;
}

Workflow rewritten(const Workflow& workflow, const Rewrite& rewrite) {
  Workflow result = workflow;
  for (auto& step : result.mask_operations) step.params = rewritten({true, step.op}, step.params, rewrite);
  for (auto& step : result.result_operations) step.params = rewritten({false, step.op}, step.params, rewrite);
  return result;
}

/// The content of a file or capture as a word that stands for it.
std::string content_word(const Path& path) {
  try {
    std::string digests;
    for (const SourceFile& file : hashed_capture_files(path)) digests += file.sha256 + "\n";
    const Path file = file_of_image_name(path);
    const std::string page = path.filename().string().substr(file.filename().string().size());
    return "sha256:" + common::sha256_hex(common::as_byte_span(digests)) + page;
  } catch (const std::runtime_error&) {
    return "unreadable";
  }
}

}  // namespace

Value resolved_mask_params(std::string_view op, const Value& params, const Path& folder) {
  return rewritten({true, op}, params, [&](const std::string& written) { return resolved(written, folder).string(); });
}

Value resolved_result_params(std::string_view op, const Value& params, const Path& folder) {
  return rewritten({false, op}, params, [&](const std::string& written) { return resolved(written, folder).string(); });
}

std::vector<ParameterFile> parameter_files(const Workflow& workflow) {
  std::vector<ParameterFile> files;
  const auto add = [&](const auto& steps, bool is_mask) {
    for (std::size_t index = 0; index < steps.size(); ++index) {
      const OperationConfig& step = steps[index];
      for_each_file({is_mask, step.op}, step.params, [&](const std::string& name, const std::string& text) {
        files.push_back({.place = {.is_mask = is_mask, .index = index},
                         .parameter = name,
                         .written = text,
                         .path = resolved(text, workflow.folder)});
      });
    }
  };
  add(workflow.mask_operations, true);
  add(workflow.result_operations, false);
  return files;
}

Workflow with_resolved_files(const Workflow& workflow) {
  return rewritten(workflow, [&](const std::string& written) { return resolved(written, workflow.folder).string(); });
}

std::string path_in_workflow(const Path& given, const Path& workflow_folder) {
  if (given.empty() || given.is_absolute()) return given.string();
  const Path folder = resolved("", workflow_folder);
  return resolved(given.string(), {}).lexically_proximate(folder).string();
}

Workflow moved_to(const Workflow& workflow, const Path& folder) {
  if (resolved("", workflow.folder) == resolved("", folder)) return workflow;
  return rewritten(workflow, [&](const std::string& written) {
    if (Path(written).is_absolute()) return written;
    return resolved(written, workflow.folder).lexically_proximate(resolved("", folder)).string();
  });
}

std::optional<std::string> missing_file_problem(const ParameterFile& file) {
  std::error_code unknown;
  const Path path = file_of_image_name(file.path);
  if (std::filesystem::is_regular_file(path, unknown)) return std::nullopt;
  const std::string name = common::path_text(path);
  return std::filesystem::exists(path, unknown) ? fmt::format("{} is not a file", name)
                                                : fmt::format("there is no file {}", name);
}

std::vector<SourceFile> hashed_parameter_files(const Workflow& workflow) {
  std::vector<SourceFile> files;
  for (const ParameterFile& file : parameter_files(workflow)) {
    try {
      for (SourceFile& part : hashed_capture_files(file.path)) {
        const auto is_same = [&](const SourceFile& other) { return other.path == part.path; };
        if (std::none_of(files.begin(), files.end(), is_same)) files.push_back(std::move(part));
      }
    } catch (const std::runtime_error&) {
      continue;  // the step says what is wrong with it
    }
  }
  return files;
}

std::string workflow_sha256(const Workflow& workflow) {
  const Workflow identified =
      rewritten(workflow, [&](const std::string& written) { return content_word(resolved(written, workflow.folder)); });
  return common::sha256_hex(common::as_byte_span(common::yaml_text(identified.to_dict())));
}

}  // namespace orvexa::model
