#include "orvexa/ui/workbench/history.h"

#include <utility>

namespace orvexa::ui {

void History::push(Step step) {
  _steps.resize(_done);
  _steps.push_back(std::move(step));
  ++_done;
}

void History::prolong(const WorkflowCopy& after) {
  if (_done == 0) return;
  _steps.resize(_done);
  _steps.back().after = after;
}

void History::clear() {
  _steps.clear();
  _done = 0;
}

}  // namespace orvexa::ui
