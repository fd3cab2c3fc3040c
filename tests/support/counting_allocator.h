#pragma once

#include <opencv2/core.hpp>

#include <atomic>
#include <cstdint>

namespace orvexa::test {

/// Counts the bytes of every array while it is OpenCV's default.
class CountingAllocator final : public cv::MatAllocator {
 public:
  CountingAllocator() : _plain(cv::Mat::getStdAllocator()) { cv::Mat::setDefaultAllocator(this); }
  ~CountingAllocator() override { cv::Mat::setDefaultAllocator(_plain); }
  CountingAllocator(const CountingAllocator&) = delete;
  CountingAllocator& operator=(const CountingAllocator&) = delete;

  cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, size_t* step, cv::AccessFlag flags,
                         cv::UMatUsageFlags usage) const override {
    cv::UMatData* made = _plain->allocate(dims, sizes, type, data, step, flags, usage);
    // The array asks this one to free it, so that the bytes are taken off again.
    made->prevAllocator = made->currAllocator = this;
    if (data == nullptr) {
      _live += static_cast<std::int64_t>(made->size);
      _made += static_cast<std::int64_t>(made->size);
    }
    return made;
  }
  bool allocate(cv::UMatData* data, cv::AccessFlag flags, cv::UMatUsageFlags usage) const override {
    return _plain->allocate(data, flags, usage);
  }
  void deallocate(cv::UMatData* data) const override {
    if ((data->flags & cv::UMatData::USER_ALLOCATED) == 0) _live -= static_cast<std::int64_t>(data->size);
    _plain->deallocate(data);
  }

  [[nodiscard]] std::int64_t live_bytes() const { return _live; }
  /// With those that were freed again.
  [[nodiscard]] std::int64_t made_bytes() const { return _made; }

 private:
  cv::MatAllocator* _plain;
  mutable std::atomic<std::int64_t> _live{0};
  mutable std::atomic<std::int64_t> _made{0};
};

}  // namespace orvexa::test
