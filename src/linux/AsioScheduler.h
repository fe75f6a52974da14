// The real scheduler: standalone Asio on the monotonic clock, one system timer for all clocks.
#pragma once

#include <functional>
#include <initializer_list>
#include <memory>

#include "platform/Scheduler.h"

namespace Linux {

class AsioScheduler : public Platform::Scheduler {
 public:
  // Expiries further away than this wake the loop once this far ahead and are looked at again
  // then: the system timer cannot represent every double, and a far clock is as good as never.
  static constexpr double kTimerHorizon = 365.0 * 24 * 3600;

  AsioScheduler();
  ~AsioScheduler() override;

  void post(std::function<void()> fn) override;
  // Calls handler on the event thread when one of the signals arrives.
  void signalHandlerIs(std::initializer_list<int> signals, std::function<void(int)> handler);

  // Runs events until stop(); returns the number handled.
  size_t run();
  // Runs events for at most `seconds` of real time.
  size_t runFor(double seconds);
  void stop();

  static double monotonicNow();
  // Events handled so far: each is one wake-up of the event thread (a due pass of clocks, a
  // ready descriptor, a posted call, a signal).
  uint64_t events() const { return events_; }

 protected:
  std::unique_ptr<Platform::FdWatch> fdWatchIs(int fd, FdReadiness readiness, std::function<void()> onReady,
                                               Platform::FdErrorHandler onError) override;

 private:
  struct Impl;
  struct FdEntry;
  struct WatchState;
  class AsioFdWatch;
  void earliestExpiryChanged() override;
  void clockEventBegins() override;
  void beginEvent();
  void endEvent();
  void rearm();
  void handleTimer();
  void fdWait(const std::shared_ptr<WatchState>& state);
  void signalWait();

  std::unique_ptr<Impl> impl_;
  bool inEvent_ = false;
  bool rearmNeeded_ = true;
  uint64_t events_ = 0;
};

}  // namespace Linux
