#include "orvexa/common/logger.h"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <cxxabi.h>

#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <typeinfo>

#include "orvexa/common/text.h"

namespace orvexa::common {

namespace {

struct Observers {
  std::mutex mutex;
  int next_id = 0;
  std::map<int, std::function<void(const LogRecord&)>> callbacks;
};

Observers& observers() {
  static Observers all;
  return all;
}

spdlog::logger& backend() {
  static const std::shared_ptr<spdlog::logger> instance = [] {
    auto made = std::make_shared<spdlog::logger>("orvexa", std::make_shared<spdlog::sinks::stderr_sink_mt>());
    made->set_pattern("%H:%M:%S.%e %-7l %v");
    made->set_level(spdlog::level::warn);
    return made;
  }();
  return *instance;
}

spdlog::level::level_enum backend_level(LogLevel level) {
  switch (level) {
    case LogLevel::debug:
      return spdlog::level::debug;
    case LogLevel::info:
      return spdlog::level::info;
    case LogLevel::warning:
      return spdlog::level::warn;
    case LogLevel::error:
      return spdlog::level::err;
    case LogLevel::off:
      break;
  }
  return spdlog::level::off;
}

std::string type_name(const std::exception& failure) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(typeid(failure).name(), nullptr, nullptr, &status), std::free);
  return status == 0 ? name.get() : typeid(failure).name();
}

void append_chain(std::string& trace, const std::exception& failure) {
  trace += (trace.empty() ? "" : "\ncaused by ") + type_name(failure) + ": " + failure.what();
  try {
    std::rethrow_if_nested(failure);
  } catch (const std::exception& cause) {
    append_chain(trace, cause);
  } catch (...) {
    trace += "\ncaused by something that is not a std::exception";
  }
}

std::string current_trace() {
  const std::exception_ptr current = std::current_exception();
  if (!current) return {};
  std::string trace;
  try {
    std::rethrow_exception(current);
  } catch (const std::exception& failure) {
    append_chain(trace, failure);
  } catch (...) {
    trace = "something that is not a std::exception";
  }
  return trace;
}

}  // namespace

void Logger::debug(std::string_view text) const {
  write({LogLevel::debug, std::string(text), {}});
}
void Logger::info(std::string_view text) const {
  write({LogLevel::info, std::string(text), {}});
}
void Logger::warning(std::string_view text) const {
  write({LogLevel::warning, std::string(text), {}});
}
void Logger::error(std::string_view text) const {
  write({LogLevel::error, std::string(text), {}});
}
void Logger::exception(std::string_view text) const {
  write({LogLevel::error, std::string(text), current_trace()});
}

void Logger::set_level(LogLevel level) const {
  backend().set_level(backend_level(level));
}

LogLevel Logger::level() const {
  for (const LogLevel level : {LogLevel::debug, LogLevel::info, LogLevel::warning, LogLevel::error}) {
    if (backend().level() <= backend_level(level)) return level;
  }
  return LogLevel::off;
}

void Logger::write(const LogRecord& record) const {
  {
    Observers& all = observers();
    const std::lock_guard lock(all.mutex);
    for (const auto& [id, callback] : all.callbacks) callback(record);
  }
  const auto level = backend_level(record.level);
  if (!backend().should_log(level)) return;
  backend().log(level, "{}", visible_text(record.text));
  if (!record.trace.empty()) backend().log(level, "{}", visible_text(record.trace));
}

LogObserver::LogObserver(std::function<void(const LogRecord&)> callback) {
  Observers& all = observers();
  const std::lock_guard lock(all.mutex);
  _id = all.next_id++;
  all.callbacks.emplace(_id, std::move(callback));
}

LogObserver::~LogObserver() {
  Observers& all = observers();
  const std::lock_guard lock(all.mutex);
  all.callbacks.erase(_id);
}

}  // namespace orvexa::common
