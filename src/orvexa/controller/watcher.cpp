#include "orvexa/controller/watcher.h"

#include "orvexa/common/text.h"

namespace orvexa::controller {

std::string_view event_name(WatcherEvent::Kind kind) {
  switch (kind) {
    case WatcherEvent::Kind::watching:
      return "watching";
    case WatcherEvent::Kind::taken_over:
      return "taken_over";
    case WatcherEvent::Kind::notice:
      return "notice";
    case WatcherEvent::Kind::incomplete:
      return "incomplete";
    case WatcherEvent::Kind::running:
      return "running";
    case WatcherEvent::Kind::done:
      return "done";
    case WatcherEvent::Kind::recovered:
      return "recovered";
    case WatcherEvent::Kind::retry:
      return "retry";
    case WatcherEvent::Kind::failed:
      return "failed";
    case WatcherEvent::Kind::problem:
      return "problem";
    case WatcherEvent::Kind::solved:
      return "solved";
    case WatcherEvent::Kind::stopped:
      return "stopped";
  }
  return "";
}

common::Value event_document(const WatcherEvent& event) {
  common::Value document = {{"event", event_name(event.kind)}, {"time", common::time_stamp_text(event.time)}};
  for (const auto& [name, text] : {std::pair{"file", &event.file}, {"folder", &event.folder}, {"text", &event.text}}) {
    if (!text->empty()) document[name] = common::to_valid_utf8(*text);
  }
  document.update(event.details);
  return document;
}

}  // namespace orvexa::controller
