#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace orvexa::test {

inline std::string shell_quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char character : text) quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
  return quoted + "'";
}

/// Runs a script with Debian's python3 (its standard library alone) and gives what it printed. What is printed on
/// standard error is part of it, so that a traceback shows up in the failed comparison.
inline std::string python(const std::string& script, const std::vector<std::string>& arguments = {}) {
  const TemporaryFolder folder;
  std::string command =
      "LC_ALL=C.UTF-8 /usr/bin/python3 -I " + shell_quoted(folder.write("script.py", script).string());
  for (const std::string& argument : arguments) command += " " + shell_quoted(argument);
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("no process could be started");
  std::string output;
  std::array<char, 4096> buffer{};
  std::size_t got = 0;
  while ((got = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) output.append(buffer.data(), got);
  const int status = pclose(pipe);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) output += "\n(python3 failed)";
  return output;
}

/// Runs a script whose argument is a file with `input`, and gives the lines that it printed: an independent second
/// opinion on many cases at once.
inline std::vector<std::string> python_lines(const std::string& script, const std::string& input) {
  const TemporaryFolder folder;
  std::istringstream output(python(script, {folder.write("input.txt", input).string()}));
  std::vector<std::string> lines;
  for (std::string line; std::getline(output, line);) lines.push_back(line);
  return lines;
}

}  // namespace orvexa::test
