#pragma once

#include <sys/mman.h>
#include <unistd.h>
#include <csignal>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

#include "orvexa/model/image.h"

namespace orvexa::test {

/// Makes images that tell how many of their bytes were looked at, in whole pages of memory: while they are watched,
/// their pages are closed, and the first access opens a page again and counts it. One at a time; it outlives its
/// images.
class WatchedImages final : public cv::MatAllocator {
 public:
  WatchedImages() {
    if (_current.exchange(this) != nullptr) throw std::logic_error("Images are watched already.");
    struct sigaction action = {};
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = &WatchedImages::on_closed_page;
    sigemptyset(&action.sa_mask);
    sigaction(SIGSEGV, &action, &_previous_action);
  }
  ~WatchedImages() override {
    sigaction(SIGSEGV, &_previous_action, nullptr);
    _current = nullptr;
  }
  WatchedImages(const WatchedImages&) = delete;
  WatchedImages& operator=(const WatchedImages&) = delete;

  template <typename T>
  model::Image flat(int height, int width, T value) {
    cv::Mat pixels;
    pixels.allocator = this;
    pixels.create(height, width, cv::DataType<T>::type);
    pixels.setTo(cv::Scalar::all(double(value)));
    return model::Image(std::move(pixels));
  }

  /// Closes all images made so far and begins to count anew.
  void watch() {
    for (const auto& block : _blocks) {
      for (auto& is_read : block->is_read) is_read = false;
      if (mprotect(block->begin, block->is_read.size() * _page, PROT_NONE) != 0) throw std::runtime_error("mprotect");
    }
  }
  [[nodiscard]] std::size_t bytes_read(const model::Image& image) const {
    for (const auto& block : _blocks) {
      if (block->begin != image.read_only().data) continue;
      const auto pages = std::ranges::count_if(block->is_read, [](const auto& is_read) { return is_read.load(); });
      return std::min(static_cast<std::size_t>(pages) * _page, image.bytes());
    }
    throw std::logic_error("The image is not watched.");
  }

  // ---- What OpenCV calls
  // ---------------------------------------------------------------------------------------------

  cv::UMatData* allocate(int dims, const int* sizes, int type, void* /*data*/, size_t* step, cv::AccessFlag /*flags*/,
                         cv::UMatUsageFlags /*usage*/) const override {
    std::size_t bytes = static_cast<std::size_t>(CV_ELEM_SIZE(type));
    for (int i = dims - 1; i >= 0; --i) {
      step[i] = bytes;
      bytes *= static_cast<std::size_t>(sizes[i]);
    }
    const std::size_t pages = (bytes + _page - 1) / _page;
    void* begin = mmap(nullptr, pages * _page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (begin == MAP_FAILED) throw std::bad_alloc();
    _blocks.push_back(std::make_unique<Block>(static_cast<uchar*>(begin), pages));
    auto* made = new cv::UMatData(this);
    made->data = made->origdata = static_cast<uchar*>(begin);
    made->size = bytes;
    return made;
  }
  bool allocate(cv::UMatData* data, cv::AccessFlag /*flags*/, cv::UMatUsageFlags /*usage*/) const override {
    return data != nullptr;
  }
  void deallocate(cv::UMatData* data) const override {
    const auto found = std::ranges::find_if(_blocks, [&](const auto& block) { return block->begin == data->origdata; });
    munmap((*found)->begin, (*found)->is_read.size() * _page);
    _blocks.erase(found);
    delete data;
  }

 private:
  struct Block {
    Block(uchar* begin_, std::size_t pages) : begin(begin_), is_read(pages) {}
    uchar* begin;
    std::vector<std::atomic<bool>> is_read;  // a page each
  };

  static void on_closed_page(int, siginfo_t* info, void*) {
    const WatchedImages* self = _current;
    const auto* address = static_cast<const uchar*>(info->si_addr);
    for (const auto& block : self->_blocks) {
      if (address < block->begin || address >= block->begin + block->is_read.size() * self->_page) continue;
      const std::size_t page = static_cast<std::size_t>(address - block->begin) / self->_page;
      mprotect(block->begin + page * self->_page, self->_page, PROT_READ | PROT_WRITE);
      block->is_read[page] = true;
      return;
    }
    sigaction(SIGSEGV, &self->_previous_action, nullptr);  // not ours: the access fails again, as it would have
  }

  inline static std::atomic<WatchedImages*> _current{nullptr};
  const std::size_t _page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  mutable std::vector<std::unique_ptr<Block>> _blocks;
  struct sigaction _previous_action = {};
};

}  // namespace orvexa::test
