// The real scheduler: standalone Asio on the monotonic clock, one system timer for all clocks.
#pragma once

#include <functional>
#include <initializer_list>
#include <memory>

#include "platform/Scheduler.h"

namespace Linux {

class AsioScheduler : public Platform::Scheduler {
 public:
  AsioScheduler();
  ~AsioScheduler() override;

  void post(std::function<void()> fn) override;
  std::unique_ptr<Platform::FdWatch> readableWatchIs(int fd,
                                                     std::function<void()> onReadable) override;
  // Calls handler on the event thread when one of the signals arrives.
  void signalHandlerIs(std::initializer_list<int> signals, std::function<void(int)> handler);

  // Runs events until stop(); returns the number handled.
  size_t run();
  // Runs events for at most `seconds` of real time.
  size_t runFor(double seconds);
  void stop();

  static double monotonicNow();

 private:
  struct Impl;
  void earliestExpiryChanged() override;
  void beginEvent();
  void endEvent();
  void rearm();

  std::unique_ptr<Impl> impl_;
  bool inEvent_ = false;
  bool rearmNeeded_ = true;
};

}  // namespace Linux
