#include "platform/queues/mailbox.h"

#include <iterator>

namespace vantrell {

template <typename Change>
void Mailbox::changed(Change change) {
  {
    const std::lock_guard lock(mutex_);
    change();
    if (!isOpen_ || holds_ > 0 || events_.empty() || std::exchange(isScheduled_, true)) return;
  }
  main_.post([self = shared_from_this()] { self->drain(); });
}

void Mailbox::deliver(Work work, std::size_t bytes) {
  changed([&] {
    events_.push_back({std::move(work), bytes});
    bytes_ += bytes;
    if (isFull_ || bytes_ <= highWater) return;
    isFull_ = true;
    // Under the lock: outside it, this call could overtake the one that lifts the hold.
    if (onFullChanged_) onFullChanged_(true);
  });
}

void Mailbox::whenFullChanges(std::function<void(bool isFull)> handler) {
  const std::lock_guard lock(mutex_);
  onFullChanged_ = std::move(handler);
}

Mailbox::Hold::Hold(Mailbox& mailbox) : mailbox_(mailbox) {
  const std::lock_guard lock(mailbox_.mutex_);
  if (mailbox_.holds_++ == 0) mailbox_.freeEvents_ = mailbox_.events_.size();
}

Mailbox::Hold::~Hold() {
  mailbox_.changed([this] { --mailbox_.holds_; });
}

void Mailbox::setOpen(bool open) {
  changed([&] { isOpen_ = open; });
}

std::vector<Mailbox::Event> Mailbox::takeEvents() {
  std::vector<Event> events;
  const std::lock_guard lock(mutex_);
  isScheduled_ = false;
  if (!isOpen_) return events;
  if (holds_ == 0) {
    events.swap(events_);
  } else {
    // A hop that was under way when the hold began must not tear apart what is being held.
    const auto end = events_.begin() + static_cast<std::ptrdiff_t>(freeEvents_);
    events.assign(std::make_move_iterator(events_.begin()), std::make_move_iterator(end));
    events_.erase(events_.begin(), end);
    freeEvents_ = 0;
  }
  return events;
}

void Mailbox::drain() {
  auto events = takeEvents();
  std::size_t bytes = 0;
  auto next = events.begin();
  // isOpen_ changes on this queue only, so it may be read here without the lock.
  for (; next != events.end() && isOpen_; ++next) {
    next->work();
    next->work = nullptr;  // what it holds goes now, not at the end of a long batch
    bytes += next->bytes;
  }
  const std::lock_guard lock(mutex_);
  const auto left = events.end() - next;
  events_.insert(events_.begin(), std::make_move_iterator(next),
                 std::make_move_iterator(events.end()));
  if (holds_ > 0) freeEvents_ += static_cast<std::size_t>(left);
  bytes_ -= bytes;
  if (isFull_ && bytes_ <= lowWater) {
    isFull_ = false;
    if (onFullChanged_) onFullChanged_(false);
  }
}

}  // namespace vantrell
