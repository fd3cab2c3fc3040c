#include "orvexa/ui/workbench/mailbox.h"

#include <QCoreApplication>
#include <QEvent>
#include <deque>
#include <mutex>
#include <utility>

namespace orvexa::ui {

struct Mailbox::Slot {
  std::mutex mutex;
  std::deque<Letter> letters;
  Mailbox* box = nullptr;  ///< null when the mailbox is gone
};

Mailbox::Mailbox() : _slot(std::make_shared<Slot>()) {
  _slot->box = this;
}

Mailbox::~Mailbox() {
  std::deque<Letter> unopened;  // let go of after the lock: what a letter holds may post when it goes
  const std::lock_guard lock(_slot->mutex);
  _slot->box = nullptr;
  unopened.swap(_slot->letters);
}

void Mailbox::Address::post(Letter letter) const {
  const std::lock_guard lock(_slot->mutex);
  if (_slot->box == nullptr) return;
  _slot->letters.push_back(std::move(letter));
  if (_slot->letters.size() == 1) QCoreApplication::postEvent(_slot->box, new QEvent(QEvent::User));
}

bool Mailbox::event(QEvent* event) {
  if (event->type() != QEvent::User) return QObject::event(event);
  std::deque<Letter> letters;
  {
    const std::lock_guard lock(_slot->mutex);
    letters.swap(_slot->letters);
  }
  const std::shared_ptr<Slot> slot = _slot;  // a letter may close the window, and this mailbox with it
  for (const Letter& letter : letters) {
    letter();
    const std::lock_guard lock(slot->mutex);
    if (slot->box == nullptr) break;
  }
  return true;
}

}  // namespace orvexa::ui
