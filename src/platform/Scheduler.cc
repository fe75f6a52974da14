// Clock heap shared by the real and virtual schedulers, and the virtual scheduler itself.
#include "platform/Scheduler.h"

#include <algorithm>
#include <cmath>

#include "platform/Assert.h"

namespace Platform {

Clock::Clock(Scheduler& scheduler, Handler handler)
    : scheduler_(&scheduler), handler_(std::move(handler)) {}

Clock::~Clock() {
  if (armed()) scheduler_->disarm(*this);
}

void Clock::timeMinIs(double time) {
  if (time == timeMin_ && (armed() || time == kNever)) return;
  if (std::isnan(time)) time = kNever;
  if (time == kNever) {
    timeMin_ = kNever;
    if (armed()) scheduler_->disarm(*this);
    return;
  }
  scheduler_->arm(*this, time);
}

Scheduler::~Scheduler() {
  for (Clock* c : heap_) c->heapIndex_ = Clock::kNotArmed;
}

void Scheduler::arm(Clock& clock, double time) {
  const bool wasFirst = clock.heapIndex_ == 0;
  clock.timeMin_ = time;
  clock.seq_ = nextSeq_++;
  if (!clock.armed()) {
    heap_.push_back(&clock);
    clock.heapIndex_ = heap_.size() - 1;
    siftUp(clock.heapIndex_);
  } else {
    siftUp(clock.heapIndex_);
    siftDown(clock.heapIndex_);
  }
  if (wasFirst || clock.heapIndex_ == 0) earliestExpiryChanged();
}

void Scheduler::disarm(Clock& clock) {
  const bool wasFirst = clock.heapIndex_ == 0;
  removeAt(clock.heapIndex_);
  if (wasFirst) earliestExpiryChanged();
}

void Scheduler::removeAt(size_t index) {
  Clock* leaving = heap_[index];
  leaving->heapIndex_ = Clock::kNotArmed;
  Clock* last = heap_.back();
  heap_.pop_back();
  if (last == leaving) return;
  place(last, index);
  siftUp(index);
  siftDown(last->heapIndex_);
}

void Scheduler::siftUp(size_t index) {
  Clock* c = heap_[index];
  while (index > 0) {
    size_t parent = (index - 1) / 2;
    if (!before(c, heap_[parent])) break;
    place(heap_[parent], index);
    index = parent;
  }
  place(c, index);
}

void Scheduler::siftDown(size_t index) {
  Clock* c = heap_[index];
  const size_t n = heap_.size();
  while (true) {
    size_t child = 2 * index + 1;
    if (child >= n) break;
    if (child + 1 < n && before(heap_[child + 1], heap_[child])) ++child;
    if (!before(heap_[child], c)) break;
    place(heap_[child], index);
    index = child;
  }
  place(c, index);
}

bool Scheduler::fireNextDue(double until, bool advanceNow) {
  if (heap_.empty() || heap_.front()->timeMin_ > until) return false;
  Clock* clock = heap_.front();
  if (advanceNow) now_ = std::max(now_, clock->timeMin_);
  removeAt(0);
  clock->timeMin_ = kNever;
  earliestExpiryChanged();
  clock->handler_();
  return true;
}

struct VirtualScheduler::VirtualFdWatch : FdWatch {
  VirtualFdWatch(VirtualScheduler& s, int f, std::function<void()> cb)
      : scheduler(s), fd(f), onReadable(std::move(cb)) {
    scheduler.fdWatches_.push_back(this);
  }
  ~VirtualFdWatch() override {
    auto& w = scheduler.fdWatches_;
    w.erase(std::remove(w.begin(), w.end(), this), w.end());
  }
  VirtualScheduler& scheduler;
  int fd;
  std::function<void()> onReadable;
};

VirtualScheduler::VirtualScheduler(double start) { nowIs(start); }

void VirtualScheduler::post(std::function<void()> fn) { posted_.push_back(std::move(fn)); }

std::unique_ptr<FdWatch> VirtualScheduler::readableWatchIs(int fd, std::function<void()> cb) {
  return std::make_unique<VirtualFdWatch>(*this, fd, std::move(cb));
}

void VirtualScheduler::readableIs(int fd) {
  post([this, fd] {
    for (size_t i = 0; i < fdWatches_.size(); ++i) {
      if (fdWatches_[i]->fd == fd) fdWatches_[i]->onReadable();
    }
  });
}

void VirtualScheduler::runPosted() {
  while (!posted_.empty()) {
    auto fn = std::move(posted_.front());
    posted_.pop_front();
    fn();
  }
}

void VirtualScheduler::runUntil(double time) {
  LLDP_ASSERT(time >= now());
  runPosted();
  while (fireNextDue(time, true)) runPosted();
  nowIs(time);
  runPosted();
}

}  // namespace Platform
