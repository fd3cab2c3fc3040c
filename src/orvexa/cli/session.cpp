#include "orvexa/cli/session.h"

#include <fmt/format.h>

#include <stdexcept>
#include <string>

#include "orvexa/common/files.h"

namespace orvexa::cli {

void load_workflow(controller::Controller& controller, const std::filesystem::path& file) {
  if (!controller.load_workflow_from_file(file)) throw std::runtime_error(controller.state.error.value());
}

std::shared_ptr<model::Workflow> import_workflow(controller::Controller& controller,
                                                 const std::filesystem::path& file) {
  try {
    return controller.import_workflow_yaml(file);
  } catch (const std::exception& failure) {
    // A failure to read the file names it; one about what a workflow is does not.
    const std::string text = failure.what();
    if (text.starts_with(common::path_text(file))) throw;
    throw std::runtime_error(fmt::format("{}: {}", common::path_text(file), text));
  }
}

void save_workflow(controller::Controller& controller, const std::filesystem::path& file) {
  if (!controller.save_workflow_to_file(file)) throw std::runtime_error(controller.state.error.value());
}

void load_capture(controller::Controller& controller, const std::filesystem::path& file) {
  controller.load_capture_from_file(file);
  if (controller.state.current_capture) return;
  throw std::runtime_error(load_failure_sentence(file, controller.state.error.value()));
}

std::string sentence_naming(const std::filesystem::path& file, const std::string& sentence) {
  const std::string path = common::path_text(file);
  if (sentence.starts_with(path + ": ") || sentence.starts_with(path + ", line ")) return sentence;
  const std::string name = common::path_text(file.filename());
  const bool names_file = sentence.starts_with(name + ": ") || sentence.starts_with(name + ", line ");
  return path + (names_file ? sentence.substr(name.size()) : ": " + sentence);
}

std::string load_failure_sentence(const std::filesystem::path& file, const std::string& state_error) {
  const std::string prefix = fmt::format("Failed to load capture from {}: ", common::path_text(file));
  return sentence_naming(file, state_error.starts_with(prefix) ? state_error.substr(prefix.size()) : state_error);
}

LoggedFailure::LoggedFailure()
    : _observer([this](const common::LogRecord& record) {
        const std::lock_guard lock(_mutex);
        if (record.level == common::LogLevel::error && !_text) _text = record.text;
      }) {}

std::string LoggedFailure::cause() const {
  const std::lock_guard lock(_mutex);
  if (!_text) return "";
  // "Controller.<operation>: <what failed> - <cause>"
  const std::size_t dash = _text->find(" - ");
  return dash == std::string::npos ? *_text : _text->substr(dash + 3);
}

}  // namespace orvexa::cli
