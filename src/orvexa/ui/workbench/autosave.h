#pragma once

#include <QLockFile>
#include <filesystem>
#include <memory>
#include <vector>

#include "orvexa/ui/workbench/history.h"
#include "orvexa/ui/workbench/worker.h"

namespace orvexa::ui {

/// Keeps a copy of a workflow with unsaved changes in a folder of the user's, so that a crash loses nothing. Each
/// running program writes a file of its own there and holds a lock beside it; a file whose program is gone was left
/// behind.
class Autosave {
 public:
  using Path = std::filesystem::path;

  /// @param folder  made when it is not there; where that fails nothing is kept, which is logged.
  Autosave(const Path& folder, Mailbox::Address mailbox);
  /// Nothing is left behind by a program that ends as it should.
  ~Autosave();

  /// Writes the copy in the background, in place of the one before; null removes it.
  void keep(const WorkflowCopy& unsaved);
  /// Workflows that were left behind, the newest first.
  [[nodiscard]] std::vector<Path> left_behind() const;
  void throw_away(const Path& left_behind);

 private:
  Path _folder;
  Path _own;
  std::unique_ptr<QLockFile> _lock;  ///< null where nothing can be kept
  Worker _worker;                    ///< last, so that it ends first
};

}  // namespace orvexa::ui
