#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

namespace orvexa::test {

/// For as long as it lives no file may grow beyond so many bytes: stands for a disk that gets full in the middle of a
/// write. Nothing else may write meanwhile.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : _previous(std::signal(SIGXFSZ, SIG_IGN)) {
    EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &_before), 0);
    rlimit small = _before;
    small.rlim_cur = bytes;
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &_before);
    std::signal(SIGXFSZ, _previous);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*_previous)(int);
  rlimit _before{};
};

}  // namespace orvexa::test
