#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvexa/common/value.h"
#include "support/places.h"

extern char** environ;

namespace orvexa::test {

struct Outcome {
  int exit_code = -1;  ///< 128 + signal when a signal ended it
  std::string out;
  std::string err;

  /// The one JSON document on standard output.
  [[nodiscard]] common::Value json() const { return common::Value::parse(out); }
};

/// A program that runs beside the test, its outputs on pipes.
class Process {
 public:
  /// @param output_file  standard output goes there instead of to the test.
  explicit Process(const std::vector<std::string>& words, const std::string& output_file = {}) {
    std::array<int, 2> out{};
    std::array<int, 2> err{};
    if (::pipe2(out.data(), O_CLOEXEC) != 0 || ::pipe2(err.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (output_file.empty()) {
      posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    } else {
      posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output_file.c_str(), O_WRONLY, 0);
    }
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    // Whatever the caller of the tests ignores, the program under test starts with the signals a user's shell gives it.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t usual;
    sigemptyset(&usual);
    for (const int number : {SIGINT, SIGTERM, SIGPIPE}) sigaddset(&usual, number);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    std::vector<std::string> copies = words;
    std::vector<char*> arguments;
    for (std::string& word : copies) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const int failure = ::posix_spawnp(&_id, arguments.front(), &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    _out = out[0];
    _err = err[0];
    if (failure != 0) throw std::runtime_error("cannot start " + words.front());
  }
  ~Process() {
    close_output();
    if (_err >= 0) ::close(_err);
    if (_id > 0) {
      ::kill(_id, SIGKILL);
      ::waitpid(_id, nullptr, 0);
    }
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void send(int signal) const { ::kill(_id, signal); }

  /// Nobody reads standard output any more.
  void close_output() {
    if (_out >= 0) ::close(_out);
    _out = -1;
  }

  /// Reads until standard error holds the text; false when the program closed it before.
  bool wait_for_error_text(const std::string& text) {
    while (_outcome.err.find(text) == std::string::npos) {
      if (!read_some()) return false;
    }
    return true;
  }

  Outcome wait() {
    while (read_some()) {
    }
    int status = 0;
    ::waitpid(_id, &status, 0);
    _id = -1;
    _outcome.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return _outcome;
  }

 private:
  /// False when both pipes are at their end.
  bool read_some() {
    std::array<pollfd, 2> pipes{{{_out, POLLIN, 0}, {_err, POLLIN, 0}}};
    if (_out < 0 && _err < 0) return false;
    if (::poll(pipes.data(), pipes.size(), -1) < 0) return errno == EINTR;
    take(pipes[0], _out, _outcome.out);
    take(pipes[1], _err, _outcome.err);
    return true;
  }

  static void take(const pollfd& pipe, int& descriptor, std::string& text) {
    if (descriptor < 0 || pipe.revents == 0) return;
    std::array<char, 65536> buffer{};
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count > 0) {
      text.append(buffer.data(), static_cast<std::size_t>(count));
    } else {
      ::close(descriptor);
      descriptor = -1;
    }
  }

  pid_t _id = -1;
  int _out = -1;
  int _err = -1;
  Outcome _outcome;
};

/// Runs the real `orvexa` to its end.
inline Outcome orvexa_command(std::vector<std::string> arguments, const std::string& output_file = {}) {
  arguments.insert(arguments.begin(), program());
  return Process(arguments, output_file).wait();
}

/// Standard error is one line that is a sentence, and nothing but that.
inline testing::AssertionResult is_one_sentence(const std::string& text) {
  if (text.empty() || text.back() != '\n' || text.find('\n') != text.size() - 1) {
    return testing::AssertionFailure() << "not one line: \"" << text << "\"";
  }
  if (text.size() < 12 || text[text.size() - 2] != '.') {
    return testing::AssertionFailure() << "not a sentence: \"" << text << "\"";
  }
  for (const char* word : {"std::", "exception", "terminate", "cv::", "OpenCV", "YAML::", "yaml-cpp", "[json"}) {
    if (text.find(word) != std::string::npos) {
      return testing::AssertionFailure() << "a library speaks: \"" << text << "\"";
    }
  }
  return testing::AssertionSuccess();
}

}  // namespace orvexa::test
