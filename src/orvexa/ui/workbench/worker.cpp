#include "orvexa/ui/workbench/worker.h"

#include <pthread.h>

#include <cassert>
#include <utility>

namespace orvexa::ui {

struct Worker::Job::Desk {
  Mailbox::Address mailbox;
  std::weak_ptr<const std::optional<std::uint64_t>> newest;  ///< looked at on the UI thread only
  std::uint64_t number;
};

void Worker::Job::deliver(std::function<void()> letter) const {
  _desk->mailbox.post([desk = _desk, letter = std::move(letter)] {
    const auto newest = desk->newest.lock();
    if (newest && *newest == desk->number) letter();
  });
}

Worker::Worker(Mailbox::Address mailbox, const char* name)
    : _mailbox(std::move(mailbox)), _name(name), _newest(std::make_shared<std::optional<std::uint64_t>>()) {}

void Worker::finish() {
  drop();
  {
    const std::lock_guard lock(_mutex);
    _is_ending = true;
    _next.reset();
  }
  _changed.notify_all();
  if (_thread.joinable()) _thread.join();
  _thread = {};
  _is_ending = false;
}

void Worker::start(Work work, std::function<void()> at_end) {
  drop();
  _newest_event = std::make_shared<common::CancelEvent>();
  *_newest = ++_last_number;
  _is_running = true;
  {
    const std::lock_guard lock(_mutex);
    _next = Order{.work = std::move(work),
                  .cancel_event = _newest_event,
                  .desk = std::make_shared<const Job::Desk>(
                      Job::Desk{.mailbox = _mailbox, .newest = _newest, .number = _last_number}),
                  .at_end = [this, at_end = std::move(at_end)] {
                    _is_running = false;
                    if (at_end) at_end();
                  }};
  }
  _changed.notify_all();
  if (!_thread.joinable()) _thread = std::thread([this] { run(); });
}

void Worker::cancel() {
  if (_newest_event) _newest_event->set();
}

void Worker::drop() {
  cancel();
  _newest->reset();
  _is_running = false;
}

void Worker::run() {
  pthread_setname_np(pthread_self(), _name);
  while (true) {
    Order order;
    {
      std::unique_lock lock(_mutex);
      _changed.wait(lock, [this] { return _is_ending || _next; });
      if (_is_ending) return;
      order = std::move(*_next);
      _next.reset();
    }
    const Job job(order.cancel_event, order.desk);
    if (!order.cancel_event->is_set()) order.work(job);
    order.work = nullptr;  // its data goes here, where it can take its time
    job.deliver(std::move(order.at_end));
  }
}

}  // namespace orvexa::ui
