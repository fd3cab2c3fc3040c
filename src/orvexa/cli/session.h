#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "orvexa/common/logger.h"
#include "orvexa/controller/controller.h"

namespace orvexa::cli {

/// The controller's own operations, with what they report in its state turned into an exception.
/// @throws std::runtime_error with `state.error`.
void load_workflow(controller::Controller& controller, const std::filesystem::path& file);
/// Without anything else that loading does; what is wrong with the steps is not looked at.
/// @throws std::exception with a sentence that names the file when it is not a workflow at all.
std::shared_ptr<model::Workflow> import_workflow(controller::Controller& controller, const std::filesystem::path& file);
void save_workflow(controller::Controller& controller, const std::filesystem::path& file);
/// @throws std::runtime_error with a sentence that names the file once.
void load_capture(controller::Controller& controller, const std::filesystem::path& file);

/// A sentence about a file that names it by its whole path, once, whether or not the sentence names it already.
[[nodiscard]] std::string sentence_naming(const std::filesystem::path& file, const std::string& sentence);
/// The same of what the controller's state says of a capture that could not be loaded.
[[nodiscard]] std::string load_failure_sentence(const std::filesystem::path& file, const std::string& state_error);

/// Keeps what the controller logs as an error while this lives: some operations report a failure there and give nothing
/// back.
class LoggedFailure {
 public:
  LoggedFailure();
  /// The first one's cause; empty when there was none.
  [[nodiscard]] std::string cause() const;

 private:
  mutable std::mutex _mutex;
  std::optional<std::string> _text;
  common::LogObserver _observer;
};

}  // namespace orvexa::cli
