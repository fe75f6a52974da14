// Clock heap and passes shared by the real and virtual schedulers, and the virtual scheduler.
#include "platform/Scheduler.h"

#include <algorithm>
#include <cmath>

#include "platform/Assert.h"
#include "platform/Log.h"

namespace Platform {

namespace {

const LogHandle<int, std::string_view> FD_WAIT_FAILED(
    {"LLDP_EVENT_WAIT_FAILED", Severity::error, "Waiting for events on descriptor %d failed: %s",
     "The agent could not wait for events on one of its sockets, so it no longer handles what "
     "arrives there.",
     "Restart the agent if the condition persists.", 60});

}  // namespace

Clock::Clock(Scheduler& scheduler, Handler handler)
    : scheduler_(&scheduler), handler_(std::move(handler)) {}

Clock::~Clock() {
  if (armed()) scheduler_->disarm(*this);
}

void Clock::timeMinIs(double time) {
  if (std::isnan(time)) time = kNever;
  if (time == timeMin_ && (armed() || time == kNever)) return;
  if (time == kNever) {
    timeMin_ = kNever;
    dueAt_ = kNever;
    if (armed()) scheduler_->disarm(*this);
    return;
  }
  scheduler_->arm(*this, time);
}

Scheduler::~Scheduler() {
  for (Clock* c : heap_) c->heapIndex_ = Clock::kNotArmed;
}

void Scheduler::fdErrorLog(int fd, std::error_code error) {
  FD_WAIT_FAILED.emit(fd, error.message());
}

void Scheduler::arm(Clock& clock, double time) {
  const bool wasFirst = clock.heapIndex_ == 0;
  clock.timeMin_ = time;
  clock.dueAt_ = inPass_ && time < passTime_ ? passTime_ : time;
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

void Scheduler::passRun(double time) {
  LLDP_ASSERT(!inPass_);
  inPass_ = true;
  passTime_ = time;
  passSeq_ = nextSeq_;
  // Clocks armed during the pass for its time or earlier are due at its time with a later
  // sequence number, so they sort after every clock this pass may fire.
  while (!heap_.empty()) {
    Clock* clock = heap_.front();
    if (clock->dueAt_ > time || clock->seq_ >= passSeq_) break;
    removeAt(0);
    clock->timeMin_ = kNever;
    clock->dueAt_ = kNever;
    earliestExpiryChanged();
    clockEventBegins();
    clock->handler_();
  }
  inPass_ = false;
}

// Simulated readiness is delivered through shared state, so a watch may be destroyed inside
// its own callback (or after the scheduler) without anything touching freed memory.
struct VirtualScheduler::WatchState {
  int fd;
  FdReadiness readiness;
  std::function<void()> onReady;
  FdErrorHandler onError;
  bool live = true;
};

struct VirtualScheduler::VirtualFdWatch : FdWatch {
  VirtualFdWatch(std::shared_ptr<std::vector<std::shared_ptr<WatchState>>> registry,
                 std::shared_ptr<WatchState> state)
      : registry_(std::move(registry)), state_(std::move(state)) {
    registry_->push_back(state_);
  }
  ~VirtualFdWatch() override {
    state_->live = false;
    std::erase(*registry_, state_);
  }
  std::shared_ptr<std::vector<std::shared_ptr<WatchState>>> registry_;
  std::shared_ptr<WatchState> state_;
};

VirtualScheduler::VirtualScheduler(double start)
    : fdWatches_(std::make_shared<std::vector<std::shared_ptr<WatchState>>>()) {
  nowIs(start);
}

VirtualScheduler::~VirtualScheduler() {
  for (auto& w : *fdWatches_) w->live = false;
}

void VirtualScheduler::post(std::function<void()> fn) { posted_.push_back(std::move(fn)); }

std::unique_ptr<FdWatch> VirtualScheduler::fdWatchIs(int fd, FdReadiness readiness,
                                                     std::function<void()> onReady,
                                                     FdErrorHandler onError) {
  auto state = std::make_shared<WatchState>(WatchState{fd, readiness, std::move(onReady), std::move(onError)});
  return std::make_unique<VirtualFdWatch>(fdWatches_, std::move(state));
}

void VirtualScheduler::readyIs(int fd, FdReadiness readiness) {
  post([this, fd, readiness] {
    std::vector<std::shared_ptr<WatchState>> ready;
    for (const auto& w : *fdWatches_) {
      if (w->fd == fd && w->readiness == readiness) ready.push_back(w);
    }
    for (const auto& w : ready) {
      if (w->live) w->onReady();
    }
  });
}

void VirtualScheduler::readableIs(int fd) { readyIs(fd, FdReadiness::readable); }

void VirtualScheduler::writableIs(int fd) { readyIs(fd, FdReadiness::writable); }

void VirtualScheduler::exceptionIs(int fd) { readyIs(fd, FdReadiness::exception); }

void VirtualScheduler::fdErrorIs(int fd, std::error_code error) {
  post([this, fd, error] {
    std::vector<std::shared_ptr<WatchState>> failed;
    for (const auto& w : *fdWatches_) {
      if (w->fd == fd && w->live) failed.push_back(w);
    }
    for (const auto& w : failed) w->live = false;
    for (const auto& w : failed) {
      if (w->onError) {
        w->onError(error);
      } else {
        fdErrorLog(fd, error);
      }
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
  int passesAtNow = 0;
  while (true) {
    const double due = nextExpiry();
    if (due == kNever || due > time) break;
    double at = std::max(due, now());
    if (at == now() && passesAtNow >= kPassesPerInstant) {
      // nextafter keeps time moving where a millisecond is below the resolution of now.
      at = std::max(now() + kBusyPassDelay, std::nextafter(now(), kNever));
    }
    if (at > time) break;
    if (at > now()) passesAtNow = 0;
    ++passesAtNow;
    ++passes_;
    nowIs(at);
    passRun(at);
    runPosted();
  }
  nowIs(time);
  runPosted();
}

}  // namespace Platform
