#include "orvexa/controller/file_watcher.h"

#include <fmt/format.h>

#include <chrono>
#include <stdexcept>
#include <utility>

#include "orvexa/common/memory.h"
#include "orvexa/common/text.h"

namespace orvexa::controller {

FileWatcher::FileWatcher(WatcherArguments arguments) : _arguments(std::move(arguments)) {
  constexpr double day = 24 * 60 * 60;
  if (!(_arguments.poll_seconds > 0 && _arguments.poll_seconds <= day)) {
    throw std::invalid_argument(
        fmt::format("The time between polls is {} seconds; a number above 0 and at most {} (a day) is expected.",
                    common::number_text(_arguments.poll_seconds), day));
  }
  if (_arguments.retries < 0) {
    throw std::invalid_argument(
        fmt::format("The number of retries is {}; a number of at least 0 is expected.", _arguments.retries));
  }
  if (!_arguments.capture_loader || !_arguments.image_loader) {
    throw std::invalid_argument("A watcher needs a loader of captures and a loader of images.");
  }
}

FileWatcher::~FileWatcher() {
  stop();
}

void FileWatcher::start() {
  if (_thread.joinable()) throw std::logic_error("The watcher runs already.");
  auto cancel_event = std::make_unique<common::CancelEvent>();
  _watch = std::make_unique<FolderWatch>(_arguments, *cancel_event);
  _cancel_event = std::move(cancel_event);
  _is_stopping = false;
  _thread = std::thread([this] { run(); });
}

void FileWatcher::run() {
  for (;;) {
    const auto began = std::chrono::steady_clock::now();
    const bool is_idle = _watch->poll_once();
    if (_arguments.once && is_idle) break;
    if (is_idle) common::give_back_free_memory();
    const auto next = began + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                  std::chrono::duration<double>(_arguments.poll_seconds));
    std::unique_lock lock(_mutex);
    if (_wake.wait_until(lock, next, [this] { return _is_stopping; })) break;
  }
  _watch->end();
}

void FileWatcher::stop() {
  if (!_thread.joinable()) return;
  _cancel_event->set();
  {
    const std::lock_guard lock(_mutex);
    _is_stopping = true;
  }
  _wake.notify_all();
  _thread.join();
  _watch.reset();
}

}  // namespace orvexa::controller
