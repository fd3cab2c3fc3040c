#pragma once

#include <cstddef>
#include <functional>

namespace orvexa::common {

/// How many threads `parallel_for` may use, the caller's included; 0 = as many as the machine has cores. Results never
/// depend on it.
void set_thread_count(int count);
[[nodiscard]] int thread_count();

/// Calls `task(i)` once for each i in [0, count), in any order and perhaps at the same time, and returns when all are
/// done. The first failure is rethrown after the running calls have ended; calls not begun by then may be left out. May
/// be nested.
void parallel_for(std::size_t count, const std::function<void(std::size_t)>& task);

}  // namespace orvexa::common
