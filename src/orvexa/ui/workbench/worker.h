#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "orvexa/common/cancel.h"
#include "orvexa/ui/workbench/mailbox.h"

namespace orvexa::ui {

/// A thread that does one job at a time. A newer job takes the place of the one before: that one is cancelled, and what
/// it still has to say is not heard, so an old answer never replaces a newer one. All operations belong to the UI
/// thread; only the job itself runs elsewhere.
class Worker {
 public:
  /// What a job sees of the outside.
  class Job {
   public:
    [[nodiscard]] const common::CancelEvent& cancel_event() const { return *_cancel_event; }
    /// Has something done on the UI thread, unless this job is no longer the newest when its turn comes. It must own
    /// its data.
    void deliver(std::function<void()> letter) const;

   private:
    friend class Worker;
    struct Desk;
    Job(std::shared_ptr<common::CancelEvent> cancel_event, std::shared_ptr<const Desk> desk)
        : _cancel_event(std::move(cancel_event)), _desk(std::move(desk)) {}
    std::shared_ptr<common::CancelEvent> _cancel_event;
    std::shared_ptr<const Desk> _desk;
  };
  /// Owns its data and throws nothing; what fails is delivered as a sentence.
  using Work = std::function<void(const Job&)>;

  /// @param mailbox  where answers go. @param name  for debuggers, at most 15 letters.
  Worker(Mailbox::Address mailbox, const char* name);
  ~Worker() { finish(); }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// @param at_end  called on the UI thread when the job has ended, unless a newer one or `drop` took its place.
  void start(Work work, std::function<void()> at_end = {});
  /// Sets the cancel flag of the running job; its answers are still heard.
  void cancel();
  /// Cancels, and no answer is heard any more.
  void drop();
  /// Does the same and waits for the thread; the next job begins another one.
  void finish();
  /// Whether somebody asked the newest job to end soon.
  [[nodiscard]] bool was_cancelled() const { return _newest_event && _newest_event->is_set(); }
  /// Whether the newest job has not ended yet.
  [[nodiscard]] bool is_running() const { return _is_running; }

 private:
  struct Order {
    Work work;
    std::shared_ptr<common::CancelEvent> cancel_event;
    std::shared_ptr<const Job::Desk> desk;
    std::function<void()> at_end;
  };
  void run();

  Mailbox::Address _mailbox;
  const char* _name;
  std::shared_ptr<common::CancelEvent> _newest_event;     ///< of the newest job; UI thread
  std::shared_ptr<std::optional<std::uint64_t>> _newest;  ///< number of the job that is heard; UI thread
  std::uint64_t _last_number = 0;
  bool _is_running = false;

  std::mutex _mutex;  ///< of the two below
  std::condition_variable _changed;
  std::optional<Order> _next;
  bool _is_ending = false;
  std::thread _thread;  ///< begun with the first job
};

}  // namespace orvexa::ui
