#pragma once

#include <atomic>
#include <limits>

#include "orvexa/common/cancel.h"

namespace orvexa::test {

/// A cancellation flag that counts the looks at it and is set from the one after `looks_before` on: how dense the looks
/// are can be told without a clock.
class CountingEvent final : public common::CancelEvent {
 public:
  explicit CountingEvent(int looks_before = std::numeric_limits<int>::max()) : _looks_before(looks_before) {}
  [[nodiscard]] bool is_set() const noexcept override { return ++_looks > _looks_before; }
  [[nodiscard]] int looks() const { return _looks; }

 private:
  int _looks_before;
  mutable std::atomic<int> _looks{0};
};

}  // namespace orvexa::test
