#include "general/foundation/execution/internal/LoopInbox.h"

#include <utility>

namespace foundation {

/// Tells who waits, however the work ends.
class LoopInbox::Completion {
 public:
  Completion(LoopInbox& inbox, Item& item) : inbox_(inbox), item_(item) {}
  ~Completion() {
    const MutexLock lock(inbox_.mutex_);
    item_.state = State::Done;
    inbox_.changed_.notifyAll();
  }
  Completion(const Completion&) = delete;
  Completion& operator=(const Completion&) = delete;

 private:
  LoopInbox& inbox_;
  Item& item_;
};

bool LoopInbox::add(Work work, bool wait, const LoopWaker& waker) {
  const auto item = std::make_shared<Item>(Item{std::move(work), State::Waiting});
  const MutexLock lock(mutex_);
  if (ended_) {
    return false;
  }
  items_.push_back(item);
  waker.wake();
  while (wait && item->state == State::Waiting) {
    changed_.wait(mutex_);
  }
  return item->state != State::Dropped;
}

std::size_t LoopInbox::size() {
  const MutexLock lock(mutex_);
  return items_.size();
}

void LoopInbox::serveOne() {
  std::shared_ptr<Item> item;
  {
    const MutexLock lock(mutex_);
    if (items_.empty()) {
      return;
    }
    item = std::move(items_.front());
    items_.pop_front();
  }
  const Completion completion(*this, *item);
  // Gone before its owner goes on: what it holds may belong to the owner.
  const Work work = std::move(item->work);
  if (work) {
    work();
  }
}

void LoopInbox::end() noexcept {
  // One by one, which needs no memory. What the work holds is given up without the lock.
  while (const std::shared_ptr<Item> dropped = dropOne()) {
  }
}

std::shared_ptr<LoopInbox::Item> LoopInbox::dropOne() {
  const MutexLock lock(mutex_);
  ended_ = true;
  if (items_.empty()) {
    return nullptr;
  }
  std::shared_ptr<Item> item = std::move(items_.front());
  items_.pop_front();
  item->state = State::Dropped;
  changed_.notifyAll();
  return item;
}

bool LoopInbox::hasEnded() {
  const MutexLock lock(mutex_);
  return ended_;
}

}  // namespace foundation
