#include "orvexa/common/logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"

namespace orvexa::common {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class LoggerTest : public testing::Test {
 protected:
  LoggerTest() : _before(logger.level()) {}
  ~LoggerTest() override { logger.set_level(_before); }

  template <typename Action>
  static std::string standard_error_of(const Action& action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
  }

 private:
  LogLevel _before;
};

void log_at_every_level() {
  logger.debug("d-line");
  logger.info("i-line");
  logger.warning("w-line");
  logger.error("e-line");
}

TEST_F(LoggerTest, ShowsWarningsAndErrorsByDefault) {
  EXPECT_EQ(logger.level(), LogLevel::warning);
}

struct LevelCase {
  LogLevel level;
  const char* shown;
};

TEST_F(LoggerTest, ShowsLinesAtOrAboveTheLevel) {
  for (const auto& [level, shown] :
       {LevelCase{LogLevel::debug, "diwe"}, LevelCase{LogLevel::info, "iwe"}, LevelCase{LogLevel::warning, "we"},
        LevelCase{LogLevel::error, "e"}, LevelCase{LogLevel::off, ""}}) {
    logger.set_level(level);
    EXPECT_EQ(logger.level(), level);
    const std::string text = standard_error_of(log_at_every_level);
    std::string seen;
    for (const char c : std::string("diwe")) {
      if (text.find(std::string(1, c) + "-line") != std::string::npos) seen += c;
    }
    EXPECT_EQ(seen, shown);
  }
}

TEST_F(LoggerTest, GivenAnObserver_WhenTheLevelHidesALine_ThenTheObserverSeesIt) {
  logger.set_level(LogLevel::off);
  const test::LogCapture capture;
  log_at_every_level();
  EXPECT_THAT(capture.lines(), ElementsAre("debug: d-line", "info: i-line", "warning: w-line", "error: e-line"));
}

TEST_F(LoggerTest, GivenTwoObservers_WhenOneEnds_ThenTheOtherStillSees) {
  logger.set_level(LogLevel::off);
  std::vector<std::string> first;
  std::vector<std::string> second;
  const LogObserver outer([&](const LogRecord& record) { first.push_back(record.text); });
  {
    const LogObserver inner([&](const LogRecord& record) { second.push_back(record.text); });
    logger.info("both");
  }
  logger.info("one");
  EXPECT_THAT(first, ElementsAre("both", "one"));
  EXPECT_THAT(second, ElementsAre("both"));
}

TEST_F(LoggerTest, GivenATextWithLineBreaks_WhenWritten_ThenItCannotForgeALine) {
  logger.set_level(LogLevel::warning);
  const std::string text = standard_error_of([] { logger.warning("a\nb\r\x1B[31m\tc\x7F"); });
  EXPECT_THAT(text, HasSubstr("a\\nb\\x0d\\x1b[31m\\x09c\\x7f"));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
}

TEST_F(LoggerTest, GivenATextWithLineBreaks_WhenObserved_ThenItIsAsTheCallerGaveIt) {
  logger.set_level(LogLevel::off);
  const test::LogCapture capture;
  logger.info("a\nb");
  EXPECT_THAT(capture.lines(), ElementsAre("info: a\nb"));
}

TEST_F(LoggerTest, GivenATextWithBraces_WhenWritten_ThenItIsNoFormat) {
  logger.set_level(LogLevel::warning);
  EXPECT_THAT(standard_error_of([] { logger.warning("{} {0} {x"); }), HasSubstr("{} {0} {x"));
}

TEST_F(LoggerTest, GivenAFailureBeingHandled_WhenLogged_ThenItsTypeAndTextAreAttached) {
  logger.set_level(LogLevel::error);
  std::vector<LogRecord> records;
  const LogObserver observer([&](const LogRecord& record) { records.push_back(record); });
  const std::string text = standard_error_of([] {
    try {
      throw std::invalid_argument("level too high");
    } catch (const std::exception&) {
      logger.exception("Threshold failed");
    }
  });
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].level, LogLevel::error);
  EXPECT_EQ(records[0].text, "Threshold failed");
  EXPECT_EQ(records[0].trace, "std::invalid_argument: level too high");
  EXPECT_THAT(text, HasSubstr("Threshold failed\n"));
  EXPECT_THAT(text, HasSubstr("std::invalid_argument: level too high\n"));
}

TEST_F(LoggerTest, GivenNestedFailures_WhenLogged_ThenTheTraceNamesThemFromTheOutermostIn) {
  logger.set_level(LogLevel::off);
  std::string trace;
  const LogObserver observer([&](const LogRecord& record) { trace = record.trace; });
  try {
    try {
      try {
        throw 42;
      } catch (...) {
        std::throw_with_nested(std::runtime_error("inner"));
      }
    } catch (...) {
      std::throw_with_nested(std::logic_error("outer"));
    }
  } catch (...) {
    logger.exception("x");
  }
  const auto at = [&](const char* part) { return trace.find(part); };
  ASSERT_NE(at("outer"), std::string::npos);
  ASSERT_NE(at("\ncaused by "), std::string::npos);
  EXPECT_LT(at("outer"), at("inner"));
  EXPECT_LT(at("inner"), at("caused by something that is not a std::exception"));
}

TEST_F(LoggerTest, GivenNoFailureBeingHandled_WhenLoggedAsException_ThenThereIsNoTrace) {
  logger.set_level(LogLevel::off);
  std::vector<LogRecord> records;
  const LogObserver observer([&](const LogRecord& record) { records.push_back(record); });
  logger.exception("nothing is wrong");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_THAT(records[0].trace, IsEmpty());
}

TEST_F(LoggerTest, GivenSomethingThrownThatIsNoException_WhenLogged_ThenTheTraceSaysSo) {
  logger.set_level(LogLevel::off);
  std::string trace;
  const LogObserver observer([&](const LogRecord& record) { trace = record.trace; });
  try {
    throw 42;
  } catch (...) {
    logger.exception("x");
  }
  EXPECT_EQ(trace, "something that is not a std::exception");
}

TEST_F(LoggerTest, GivenManyThreads_WhenTheyLog_ThenNoLineIsLost) {
  logger.set_level(LogLevel::off);
  const test::LogCapture capture;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 100; ++i) logger.info("line");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(capture.lines().size(), 400u);
}

}  // namespace
}  // namespace orvexa::common
