#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "cli/process.h"
#include "support/temporary_folder.h"

namespace orvexa::test {

/// Runs a command inside a mount namespace of its own in which `folder` is a small file system with these mount options
/// ("size=64k"), then `look`, a shell command that gets the folder and writes to standard error. Exit code 77: this
/// machine does not allow that.
inline Outcome on_a_file_system(const std::filesystem::path& folder, const std::string& options,
                                const std::vector<std::string>& command, const std::string& look) {
  std::filesystem::create_directories(folder);
  const std::string script =
      "options=$1 folder=$2 look=$3; shift 3\n"
      "mount -t tmpfs -o \"$options\" none \"$folder\" 2>/dev/null || exit 77\n"
      "\"$@\"; code=$?\n"
      "$look \"$folder\" >&2\n"
      "exit $code";
  std::vector<std::string> words{"unshare", "--mount", "--map-root-user", "sh", "-c", script,
                                 "sh",      options,   folder.string(),   look};
  words.insert(words.end(), command.begin(), command.end());
  return Process(words).wait();
}

inline bool has_namespaces() {
  const TemporaryFolder folder;
  return Process({"sh", "-c",
                  "command -v unshare >/dev/null && unshare --mount --map-root-user "
                  "mount -t tmpfs -o size=64k none \"$1\" 2>/dev/null",
                  "sh", folder.path().string()})
             .wait()
             .exit_code == 0;
}

}  // namespace orvexa::test
