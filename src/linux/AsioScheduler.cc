// Asio binding of the scheduler: timers fire through one steady_timer set to the earliest
// expiry; descriptor readiness uses non-owning stream descriptors.
#include "linux/AsioScheduler.h"

#include <asio.hpp>
#include <chrono>

namespace Linux {

struct AsioScheduler::Impl {
  asio::io_context io;
  asio::steady_timer timer{io};
  std::unique_ptr<asio::signal_set> signals;
  double armedFor = Platform::kNever;
};

namespace {

struct AsioFdWatch : Platform::FdWatch {
  AsioFdWatch(asio::io_context& io, int fd, std::function<void()> cb, std::function<void()> begin,
              std::function<void()> end)
      : descriptor(io, fd), onReadable(std::move(cb)), beginEvent(std::move(begin)),
        endEvent(std::move(end)), alive(std::make_shared<bool>(true)) {
    wait();
  }
  ~AsioFdWatch() override {
    *alive = false;
    asio::error_code ignored;
    descriptor.cancel(ignored);
    descriptor.release();  // the descriptor belongs to its owner, not to us
  }
  void wait() {
    descriptor.async_wait(asio::posix::stream_descriptor::wait_read,
                          [this, alive = alive](const asio::error_code& ec) {
                            if (!*alive || ec) return;
                            beginEvent();
                            onReadable();
                            // The callback may have destroyed this watch.
                            if (*alive) wait();
                            endEvent();
                          });
  }
  asio::posix::stream_descriptor descriptor;
  std::function<void()> onReadable;
  std::function<void()> beginEvent;
  std::function<void()> endEvent;
  std::shared_ptr<bool> alive;
};

}  // namespace

double AsioScheduler::monotonicNow() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

AsioScheduler::AsioScheduler() : impl_(std::make_unique<Impl>()) { nowIs(monotonicNow()); }

AsioScheduler::~AsioScheduler() = default;

void AsioScheduler::beginEvent() {
  inEvent_ = true;
  nowIs(monotonicNow());
}

void AsioScheduler::endEvent() {
  inEvent_ = false;
  if (rearmNeeded_) rearm();
}

void AsioScheduler::post(std::function<void()> fn) {
  asio::post(impl_->io, [this, fn = std::move(fn)] {
    beginEvent();
    fn();
    endEvent();
  });
}

std::unique_ptr<Platform::FdWatch> AsioScheduler::readableWatchIs(int fd,
                                                                  std::function<void()> cb) {
  return std::make_unique<AsioFdWatch>(
      impl_->io, fd, std::move(cb), [this] { beginEvent(); }, [this] { endEvent(); });
}

void AsioScheduler::signalHandlerIs(std::initializer_list<int> signals,
                                    std::function<void(int)> handler) {
  impl_->signals = std::make_unique<asio::signal_set>(impl_->io);
  for (int s : signals) impl_->signals->add(s);
  auto wait = std::make_shared<std::function<void()>>();
  *wait = [this, handler = std::move(handler), wait]() {
    impl_->signals->async_wait([this, handler, wait](const asio::error_code& ec, int signal) {
      if (ec) return;
      beginEvent();
      handler(signal);
      endEvent();
      (*wait)();
    });
  };
  (*wait)();
}

void AsioScheduler::earliestExpiryChanged() {
  rearmNeeded_ = true;
  if (!inEvent_) rearm();
}

void AsioScheduler::rearm() {
  rearmNeeded_ = false;
  const double next = nextExpiry();
  if (next == impl_->armedFor) return;
  impl_->armedFor = next;
  if (next == Platform::kNever) {
    impl_->timer.cancel();
    return;
  }
  using namespace std::chrono;
  const auto when = steady_clock::time_point(duration_cast<steady_clock::duration>(duration<double>(next)));
  impl_->timer.expires_at(when);
  impl_->timer.async_wait([this](const asio::error_code& ec) {
    if (ec) return;
    impl_->armedFor = Platform::kNever;
    beginEvent();
    // Fire everything due by now, one clock per pass so each sees its own event time.
    while (fireNextDue(now(), false)) nowIs(monotonicNow());
    rearmNeeded_ = true;
    endEvent();
  });
}

size_t AsioScheduler::run() {
  rearm();
  impl_->io.restart();
  return impl_->io.run();
}

size_t AsioScheduler::runFor(double seconds) {
  rearm();
  impl_->io.restart();
  return impl_->io.run_for(std::chrono::duration_cast<std::chrono::nanoseconds>(
      std::chrono::duration<double>(seconds)));
}

void AsioScheduler::stop() { impl_->io.stop(); }

}  // namespace Linux
