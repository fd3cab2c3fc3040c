#pragma once

#include <QString>
#include <cstddef>
#include <memory>
#include <vector>

#include "orvexa/model/workflow/model.h"

namespace orvexa::ui {

/// A workflow as it was, or null for none. Never changed once it is in a history.
using WorkflowCopy = std::shared_ptr<const model::Workflow>;

/// What was done to the workflow, step by step: each step holds the whole workflow before and after, so that going back
/// and forth is putting a copy in place.
class History {
 public:
  struct Step {
    QString text;  ///< "add Otsu threshold", for "Undo: add Otsu threshold"
    WorkflowCopy before;
    WorkflowCopy after;
  };

  /// Something was done: what had been undone can no longer be redone.
  void push(Step step);
  /// The last thing that was done goes on, as when a number is typed figure by figure: its step ends later. Does
  /// nothing when there is no step.
  void prolong(const WorkflowCopy& after);
  void clear();
  /// The step that would be undone or redone next, or null.
  [[nodiscard]] const Step* undo_step() const { return _done == 0 ? nullptr : &_steps[_done - 1]; }
  [[nodiscard]] const Step* redo_step() const { return _done == _steps.size() ? nullptr : &_steps[_done]; }
  /// There must be such a step.
  void step_back() { --_done; }
  void step_forward() { ++_done; }

 private:
  std::vector<Step> _steps;
  std::size_t _done = 0;  ///< how many of them are done, the others are undone
};

}  // namespace orvexa::ui
