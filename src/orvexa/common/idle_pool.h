#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace orvexa::common {

/// Objects that serve one task after the other and no two at a time: at most as many are made as tasks run at once.
template <typename T>
class IdlePool {
 public:
  /// One that is idle, or one that `make` gives as a std::unique_ptr<T>.
  template <typename Make>
  [[nodiscard]] std::unique_ptr<T> take(const Make& make) {
    {
      const std::lock_guard lock(_guard);
      if (!_idle.empty()) {
        auto object = std::move(_idle.back());
        _idle.pop_back();
        return object;
      }
    }
    return make();
  }
  void give_back(std::unique_ptr<T> object) {
    const std::lock_guard lock(_guard);
    _idle.push_back(std::move(object));
  }
  /// After the last task: all that were made.
  [[nodiscard]] const std::vector<std::unique_ptr<T>>& all() const { return _idle; }

 private:
  std::mutex _guard;
  std::vector<std::unique_ptr<T>> _idle;
};

}  // namespace orvexa::common
