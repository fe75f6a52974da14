// The scheduler: one event thread's time, clocks (timers with an absolute earliest expiry),
// deferred calls and descriptor readiness. VirtualScheduler runs it in simulated time.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <system_error>
#include <vector>

namespace Platform {

class Scheduler;

inline constexpr double kNever = std::numeric_limits<double>::infinity();

// A timer: fires its handler once the scheduler's time reaches timeMin (seconds on the
// scheduler's monotonic time line). +infinity and NaN disarm; a time in the past fires on the
// next pass. A fired clock is disarmed until re-armed.
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
  // When a pass may fire it: timeMin, but never earlier than the pass that armed it.
  double dueAt_ = kNever;
  uint64_t seq_ = 0;  // arming order; breaks ties between equal expiries
  size_t heapIndex_ = kNotArmed;
};

// Keep it alive to keep getting readiness calls for a descriptor. Destroying it stops them at
// once, also from inside its own callback.
class FdWatch {
 public:
  virtual ~FdWatch() = default;
};

// Why waiting on a descriptor failed; the watch delivers nothing after it.
using FdErrorHandler = std::function<void(std::error_code)>;

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

  // Calls onReadable each time the descriptor has data to read, while the watch lives. The
  // callback should consume what it was woken for: readiness is reported again while it lasts.
  // A failed wait goes to onError; without one, it is logged.
  std::unique_ptr<FdWatch> readableWatchIs(int fd, std::function<void()> onReadable,
                                           FdErrorHandler onError = {}) {
    return fdWatchIs(fd, FdReadiness::readable, std::move(onReadable), std::move(onError));
  }
  // Calls onWritable each time the descriptor can take more data: create it when a write
  // would block, destroy it once the backlog is written.
  std::unique_ptr<FdWatch> writableWatchIs(int fd, std::function<void()> onWritable,
                                           FdErrorHandler onError = {}) {
    return fdWatchIs(fd, FdReadiness::writable, std::move(onWritable), std::move(onError));
  }

  // Calls onException each time the descriptor signals an exceptional condition (POLLPRI):
  // how the kernel announces a change of some /proc/sys files, such as the host name.
  std::unique_ptr<FdWatch> exceptionWatchIs(int fd, std::function<void()> onException,
                                            FdErrorHandler onError = {}) {
    return fdWatchIs(fd, FdReadiness::exception, std::move(onException), std::move(onError));
  }

  size_t armedClocks() const { return heap_.size(); }
  // When the next pass is due (+infinity with no clock armed).
  double nextExpiry() const { return heap_.empty() ? kNever : heap_.front()->dueAt_; }

 protected:
  enum class FdReadiness { readable, writable, exception };
  virtual std::unique_ptr<FdWatch> fdWatchIs(int fd, FdReadiness readiness, std::function<void()> onReady,
                                             FdErrorHandler onError) = 0;
  // What a watch without an error handler does with a failed wait.
  static void fdErrorLog(int fd, std::error_code error);

  void nowIs(double time) { now_ = time; }
  // One pass at `time`: fires, in expiry order, each clock that is due at `time` and was armed
  // before the pass began. A clock armed during the pass for `time` or earlier waits for the
  // next pass, so a clock that keeps re-arming itself for now cannot keep the thread to itself.
  void passRun(double time);
  // Called before each clock of a pass fires (the real scheduler reads its clock here).
  virtual void clockEventBegins() {}
  // The earliest expiry may have moved (the real scheduler re-arms its one system timer).
  virtual void earliestExpiryChanged() {}

 private:
  friend class Clock;
  void arm(Clock& clock, double time);
  void disarm(Clock& clock);
  bool before(const Clock* a, const Clock* b) const {
    return a->dueAt_ < b->dueAt_ || (a->dueAt_ == b->dueAt_ && a->seq_ < b->seq_);
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
  bool inPass_ = false;
  double passTime_ = 0;
  uint64_t passSeq_ = 0;  // clocks armed from this sequence number on wait for the next pass
  std::vector<Clock*> heap_;
};

// Simulated time for tests and benchmarks: nothing happens until the test advances time, and
// everything happens in a fixed order. Passes run at the expiry times of the clocks; posted
// calls and simulated readiness run between passes.
class VirtualScheduler : public Scheduler {
 public:
  // Passes in a row that may run at one instant while clocks keep coming due at it: enough
  // for a short chain of zero-delay steps (an interval equal to the delay) to keep exact times.
  static constexpr int kPassesPerInstant = 2;
  // Beyond those, each further pass costs this much virtual time, as a real pass costs real
  // time, so a clock re-armed for now forever still lets time advance.
  static constexpr double kBusyPassDelay = 1e-3;

  explicit VirtualScheduler(double start = 0);
  ~VirtualScheduler() override;

  void post(std::function<void()> fn) override;

  // Runs posted calls and every clock due up to `time`, in time order, then sets the time.
  void runUntil(double time);
  void runFor(double seconds) { runUntil(now() + seconds); }
  // Runs posted calls and clocks already due, without moving time.
  void runPending() { runUntil(now()); }
  // Makes the descriptor's readable (or writable) watchers run (simulated packet access).
  void readableIs(int fd);
  void writableIs(int fd);
  void exceptionIs(int fd);
  // Makes waiting on the descriptor fail: its watchers get the error and then nothing more.
  void fdErrorIs(int fd, std::error_code error);
  size_t pendingCalls() const { return posted_.size(); }
  size_t passes() const { return passes_; }

 protected:
  std::unique_ptr<FdWatch> fdWatchIs(int fd, FdReadiness readiness, std::function<void()> onReady,
                                     FdErrorHandler onError) override;

 private:
  struct WatchState;
  struct VirtualFdWatch;
  void runPosted();
  void readyIs(int fd, FdReadiness readiness);

  std::deque<std::function<void()>> posted_;
  // Shared with the watches, which may outlive the scheduler or die inside their callbacks.
  std::shared_ptr<std::vector<std::shared_ptr<WatchState>>> fdWatches_;
  size_t passes_ = 0;
};

}  // namespace Platform
