#pragma once

#include <QObject>
#include <functional>
#include <memory>

namespace orvexa::ui {

/// Where other threads leave what the UI thread has to do. Letters are opened in the order in which they were posted,
/// on the thread that made the mailbox. A letter must own its data.
///
/// The hand-over goes through a mutex of our own rather than the toolkit's queue, so that the thread sanitizer sees it.
class Mailbox : public QObject {
  struct Slot;

 public:
  using Letter = std::function<void()>;

  Mailbox();
  /// Letters that were not opened are dropped.
  ~Mailbox() override;
  Mailbox(const Mailbox&) = delete;
  Mailbox& operator=(const Mailbox&) = delete;

  /// What another thread may hold for as long as it likes: a letter to a mailbox that is gone is dropped.
  class Address {
   public:
    void post(Letter letter) const;

   private:
    friend class Mailbox;
    explicit Address(std::shared_ptr<Slot> slot) : _slot(std::move(slot)) {}
    std::shared_ptr<Slot> _slot;
  };
  [[nodiscard]] Address address() const { return Address(_slot); }

 protected:
  bool event(QEvent* event) override;

 private:
  std::shared_ptr<Slot> _slot;
};

}  // namespace orvexa::ui
