#include "orvexa/controller/controller.h"

#include <stdexcept>
#include <utility>

#include "orvexa/controller/file_watcher.h"
#include "orvexa/model/mask_operations/registry.h"
#include "orvexa/model/result_operations/registry.h"

namespace orvexa::controller {

Controller::Controller(std::unique_ptr<AppState> own_state)
    : _state(std::move(own_state)),
      state(*_state),
      executor(std::make_unique<model::Executor>()),
      capture_loader(model::get_default_capture_loader()),
      image_loader(model::load_capture_from_image),
      watcher_maker([](const WatcherArguments& arguments) { return std::make_unique<FileWatcher>(arguments); }) {}

std::shared_ptr<model::Workflow> Controller::_wf() {
  if (!_state->current_workflow) throw std::runtime_error("No workflow loaded");
  return _state->current_workflow;
}

std::shared_ptr<model::CaptureSet> Controller::_cap() {
  if (!_state->current_capture) throw std::runtime_error("No capture loaded");
  return _state->current_capture;
}

void Controller::_set_error(const std::string& msg) {
  state.phase = Phase::ERROR;
  state.error = msg;
  state.message.reset();
}

common::OrderedMap<const model::MaskOperationInfo*> Controller::get_mask_operations_list() const {
  return model::get_available_mask_operations();
}

common::OrderedMap<const model::MaskOperationInfo*> Controller::get_available_mask_operations() const {
  return model::get_available_mask_operations();
}

const model::MaskOperationInfo& Controller::get_mask_operation_class(std::string_view _operation_key) const {
  return model::get_mask_operation(_operation_key);
}

std::vector<const model::MaskOperationInfo*> Controller::get_mask_operation_infos() const {
  return model::get_all_mask_operation_infos();
}

common::OrderedMap<std::vector<const model::ResultOperationInfo*>> Controller::get_result_operations_by_category()
    const {
  return model::get_operations_by_category();
}

const model::ResultOperationInfo* Controller::get_result_operation_info(std::string_view _operation_key) const {
  return model::get_result_operation_info(_operation_key);
}

common::OrderedMap<const model::ResultOperationInfo*> Controller::get_available_result_operations() const {
  return model::get_available_result_operations();
}

std::type_identity<model::ParameterType> Controller::get_parameter_type_enum() const {
  return {};
}

std::type_identity<model::ResultOperationInfo> Controller::get_result_operation_info_class() const {
  return {};
}

}  // namespace orvexa::controller
