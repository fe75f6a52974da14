// The scheduler: one event thread's time, clocks (timers with an absolute earliest expiry),
// deferred calls and descriptor readiness. VirtualScheduler runs it in simulated time.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

namespace Platform {

class Scheduler;

inline constexpr double kNever = std::numeric_limits<double>::infinity();

// A timer: fires its handler once the scheduler's time reaches timeMin (seconds on the
// scheduler's monotonic time line). +infinity disarms. A fired clock is disarmed until re-armed.
class Clock {
 public:
  using Handler = std::function<void()>;
  Clock(Scheduler& scheduler, Handler handler);
  Clock(const Clock&) = delete;
  Clock& operator=(const Clock&) = delete;
  ~Clock();

  double timeMin() const { return timeMin_; }
  void timeMinIs(double time);
  bool armed() const { return heapIndex_ != kNotArmed; }
  Scheduler& scheduler() const { return *scheduler_; }

 private:
  friend class Scheduler;
  static constexpr size_t kNotArmed = std::numeric_limits<size_t>::max();
  Scheduler* scheduler_;
  Handler handler_;
  double timeMin_ = kNever;
  uint64_t seq_ = 0;  // arming order; breaks ties between equal expiries
  size_t heapIndex_ = kNotArmed;
};

// Keep it alive to keep getting readiness calls for a descriptor.
class FdWatch {
 public:
  virtual ~FdWatch() = default;
};

class Scheduler {
 public:
  Scheduler() = default;
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;
  virtual ~Scheduler();

  // The time of the event being handled: read once per event, so every time stamp one event
  // writes is the same.
  double now() const { return now_; }

  // Runs fn later on the event thread, after the current event.
  virtual void post(std::function<void()> fn) = 0;

  // Calls onReadable each time the descriptor has data to read, while the watch lives.
  virtual std::unique_ptr<FdWatch> readableWatchIs(int fd, std::function<void()> onReadable) = 0;

  size_t armedClocks() const { return heap_.size(); }
  double nextExpiry() const { return heap_.empty() ? kNever : heap_.front()->timeMin_; }

 protected:
  void nowIs(double time) { now_ = time; }
  // Fires the earliest clock if it is due at or before `until`; moves the time forward to its
  // expiry when advanceNow is set. Returns false when none was due.
  bool fireNextDue(double until, bool advanceNow);
  // The earliest expiry may have moved (the real scheduler re-arms its one system timer).
  virtual void earliestExpiryChanged() {}

 private:
  friend class Clock;
  void arm(Clock& clock, double time);
  void disarm(Clock& clock);
  bool before(const Clock* a, const Clock* b) const {
    return a->timeMin_ < b->timeMin_ || (a->timeMin_ == b->timeMin_ && a->seq_ < b->seq_);
  }
  void place(Clock* clock, size_t index) {
    heap_[index] = clock;
    clock->heapIndex_ = index;
  }
  void siftUp(size_t index);
  void siftDown(size_t index);
  void removeAt(size_t index);

  double now_ = 0;
  uint64_t nextSeq_ = 0;
  std::vector<Clock*> heap_;
};

// Simulated time for tests and benchmarks: nothing happens until the test advances time, and
// everything happens in a fixed order.
class VirtualScheduler : public Scheduler {
 public:
  explicit VirtualScheduler(double start = 0);

  void post(std::function<void()> fn) override;
  std::unique_ptr<FdWatch> readableWatchIs(int fd, std::function<void()> onReadable) override;

  // Runs posted calls and every clock due up to `time`, in time order, then sets the time.
  void runUntil(double time);
  void runFor(double seconds) { runUntil(now() + seconds); }
  // Runs posted calls and clocks already due, without moving time.
  void runPending() { runUntil(now()); }
  // Makes the descriptor's watchers run (simulated packet access).
  void readableIs(int fd);
  size_t pendingCalls() const { return posted_.size(); }

 private:
  struct VirtualFdWatch;
  void runPosted();

  std::deque<std::function<void()>> posted_;
  std::vector<VirtualFdWatch*> fdWatches_;
};

}  // namespace Platform
