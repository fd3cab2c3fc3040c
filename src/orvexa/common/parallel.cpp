#include "orvexa/common/parallel.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>

#ifdef ORVEXA_PLAIN_THREADS
  #include <exception>
  #include <mutex>
  #include <system_error>
  #include <thread>
  #include <utility>
  #include <vector>
#else
  #include <tbb/blocked_range.h>
  #include <tbb/global_control.h>
  #include <tbb/info.h>
  #include <tbb/parallel_for.h>
  #include <tbb/task_arena.h>

  #include <memory>
  #include <mutex>
#endif

namespace orvexa::common {

namespace {

std::atomic<int> wanted_threads{0};

int core_count() {
#ifdef ORVEXA_PLAIN_THREADS
  return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
#else
  return std::max(1, tbb::info::default_concurrency());
#endif
}

#ifdef ORVEXA_PLAIN_THREADS

// A thread that already works for a parallel_for runs an inner one by itself: threads do not multiply with depth.
thread_local bool is_worker = false;

void run(std::size_t count, int threads, const std::function<void(std::size_t)>& task) {
  std::atomic<std::size_t> next{0};
  std::mutex mutex;
  std::exception_ptr failure;
  const auto work = [&] {
    const bool was_worker = std::exchange(is_worker, true);
    try {
      for (std::size_t i = next++; i < count; i = next++) task(i);
    } catch (...) {
      next = count;
      const std::lock_guard lock(mutex);
      if (!failure) failure = std::current_exception();
    }
    is_worker = was_worker;
  };
  std::vector<std::thread> helpers;
  const std::size_t helper_count = std::min(count, static_cast<std::size_t>(threads)) - 1;
  helpers.reserve(helper_count);
  try {
    while (helpers.size() < helper_count) helpers.emplace_back(work);
  } catch (const std::system_error&) {
    // The system gives no more threads: those there are do all the work.
  }
  work();
  for (std::thread& helper : helpers) helper.join();
  if (failure) std::rethrow_exception(failure);
}

bool runs_alone(int threads) {
  return threads == 1 || is_worker;
}

#else

/// The threads of one setting. The control is what allows more threads than cores.
struct Workers {
  explicit Workers(int threads)
      : control(tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(threads)), arena(threads) {}
  tbb::global_control control;
  tbb::task_arena arena;
};

std::shared_ptr<Workers> workers(int threads) {
  static std::mutex mutex;
  static std::shared_ptr<Workers> current;
  const std::lock_guard lock(mutex);
  if (!current || current->arena.max_concurrency() != threads) {
    current.reset();  // of two controls the smaller one would win
    current = std::make_shared<Workers>(threads);
  }
  return current;
}

void run(std::size_t count, int threads, const std::function<void(std::size_t)>& task) {
  const auto crew = workers(threads);
  // Isolated: while a thread waits for an inner loop it must not begin another turn of an outer one, whose caller may
  // hold a lock.
  crew->arena.execute([&] {
    tbb::this_task_arena::isolate([&] {
      tbb::parallel_for(
          tbb::blocked_range<std::size_t>(0, count, 1),
          [&](const tbb::blocked_range<std::size_t>& range) {
            for (std::size_t i = range.begin(); i != range.end(); ++i) task(i);
          },
          tbb::simple_partitioner());
    });
  });
}

bool runs_alone(int threads) {
  return threads == 1;
}

#endif

}  // namespace

void set_thread_count(int count) {
  if (count < 0) throw std::invalid_argument("The number of threads must be 0 (one a core) or more.");
  wanted_threads = count;
}

int thread_count() {
  const int wanted = wanted_threads;
  return wanted > 0 ? wanted : core_count();
}

void parallel_for(std::size_t count, const std::function<void(std::size_t)>& task) {
  if (count == 0) return;
  const int threads = thread_count();
  if (count == 1 || runs_alone(threads)) {
    for (std::size_t i = 0; i < count; ++i) task(i);
    return;
  }
  run(count, threads, task);
}

}  // namespace orvexa::common
