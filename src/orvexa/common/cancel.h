#pragma once

#include <atomic>

namespace orvexa::common {

/// A cancellation flag shared between the one who wants a run to end and the one who runs it. Lock-free, so `set()` may
/// be called from a signal handler.
class CancelEvent {
 public:
  virtual ~CancelEvent() = default;

  void set() noexcept { _flag.store(true, std::memory_order_relaxed); }
  /// Virtual so that a test can count the looks at the flag.
  [[nodiscard]] virtual bool is_set() const noexcept { return _flag.load(std::memory_order_relaxed); }

 private:
  std::atomic<bool> _flag{false};
  static_assert(std::atomic<bool>::is_always_lock_free);
};

}  // namespace orvexa::common
