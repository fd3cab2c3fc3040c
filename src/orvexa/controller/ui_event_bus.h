#pragma once

#include <sigc++/connection.h>
#include <sigc++/signal.h>

#include <memory>
#include <string>
#include <utility>

#include "orvexa/model/entities/capture_set.h"
#include "orvexa/model/entities/image_entry.h"

namespace orvexa::controller {

/// What the Controller tells the UI. Each event is a signal with `connect(callable)` and `emit(...)`; receivers are
/// called at once, on the emitting thread, which is the UI thread. A failing receiver ends the emission.
struct UIEventBus {
  /// The workflow's list of result operations is another one.
  sigc::signal<void()> workflow_result_operations_changed;
  /// The index of the mask step that was removed.
  sigc::signal<void(int)> mask_operation_removed;
  /// The masked capture that `Controller::apply_mask_to_workflow` returned (empty without a capture). Emitted by the
  /// UI.
  sigc::signal<void(std::shared_ptr<model::CaptureSet>)> mask_operation_added;
  /// True on entering pick mode, false on leaving it.
  sigc::signal<void(bool)> pick_mode_changed;
  /// Context ("Raw Images > CLR"), name and pixels of the image to show.
  sigc::signal<void(const std::string& context_info, const std::string& image_key, const model::ImageEntry& image_data)>
      image_selected;
};

/// Keeps a receiver connected for as long as it lives. Owned by the receiver.
class EventConnection {
 public:
  EventConnection() = default;
  EventConnection(const sigc::connection& connection) : _connection(connection) {}
  ~EventConnection() { _connection.disconnect(); }
  EventConnection(EventConnection&& other) noexcept
      : _connection(std::exchange(other._connection, sigc::connection())) {}
  EventConnection& operator=(EventConnection&& other) noexcept {
    if (this != &other) {
      _connection.disconnect();
      _connection = std::exchange(other._connection, sigc::connection());
    }
    return *this;
  }
  EventConnection(const EventConnection&) = delete;
  EventConnection& operator=(const EventConnection&) = delete;

 private:
  sigc::connection _connection;
};

}  // namespace orvexa::controller
