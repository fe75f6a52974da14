// Asio binding of the scheduler: clocks fire in passes through one steady_timer set to the
// earliest expiry; descriptor readiness uses one non-owning stream descriptor per descriptor.
#include "linux/AsioScheduler.h"

#include <asio.hpp>
#include <algorithm>
#include <chrono>
#include <map>

namespace Linux {

// One registration with the reactor per descriptor, shared by all its watches (a socket can
// be watched for reading and writing at once).
struct AsioScheduler::FdEntry {
  FdEntry(asio::io_context& io, int f) : descriptor(io), fd(f) {}
  asio::posix::stream_descriptor descriptor;
  int fd;
  size_t watches = 0;
};

// What a pending wait needs; completion handlers hold it, so the watch may die at any time.
struct AsioScheduler::WatchState {
  std::shared_ptr<FdEntry> entry;
  FdReadiness readiness;
  std::function<void()> onReady;
  Platform::FdErrorHandler onError;
  bool live = true;
};

struct AsioScheduler::Impl {
  asio::io_context io;
  asio::steady_timer timer{io};
  bool timerArmed = false;
  double armedFor = Platform::kNever;
  uint64_t timerGeneration = 0;  // a completion of an older arming is stale
  std::unique_ptr<asio::signal_set> signals;
  std::function<void(int)> signalHandler;
  std::map<int, std::shared_ptr<FdEntry>> fdEntries;
};

class AsioScheduler::AsioFdWatch : public Platform::FdWatch {
 public:
  AsioFdWatch(Impl& impl, std::shared_ptr<WatchState> state) : impl_(impl), state_(std::move(state)) {}
  ~AsioFdWatch() override {
    state_->live = false;
    FdEntry& entry = *state_->entry;
    if (--entry.watches > 0) return;
    // The last watch: leave the reactor now, so that the owner may close the descriptor and
    // its number may be watched again. Pending waits complete as aborted and find us gone.
    entry.descriptor.release();
    impl_.fdEntries.erase(entry.fd);
  }

 private:
  Impl& impl_;
  std::shared_ptr<WatchState> state_;
};

double AsioScheduler::monotonicNow() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

AsioScheduler::AsioScheduler() : impl_(std::make_unique<Impl>()) { nowIs(monotonicNow()); }

AsioScheduler::~AsioScheduler() = default;

void AsioScheduler::beginEvent() {
  inEvent_ = true;
  ++events_;
  nowIs(monotonicNow());
}

void AsioScheduler::endEvent() {
  inEvent_ = false;
  if (rearmNeeded_) rearm();
}

void AsioScheduler::clockEventBegins() { nowIs(monotonicNow()); }

void AsioScheduler::post(std::function<void()> fn) {
  asio::post(impl_->io, [this, fn = std::move(fn)] {
    beginEvent();
    fn();
    endEvent();
  });
}

std::unique_ptr<Platform::FdWatch> AsioScheduler::fdWatchIs(int fd, FdReadiness readiness,
                                                            std::function<void()> onReady,
                                                            Platform::FdErrorHandler onError) {
  std::shared_ptr<FdEntry>& entry = impl_->fdEntries[fd];
  asio::error_code error;
  if (!entry) {
    entry = std::make_shared<FdEntry>(impl_->io, fd);
    entry->descriptor.assign(fd, error);
  }
  ++entry->watches;
  auto state = std::make_shared<WatchState>(WatchState{entry, readiness, std::move(onReady), std::move(onError)});
  auto watch = std::make_unique<AsioFdWatch>(*impl_, state);
  if (!error) {
    fdWait(state);
    return watch;
  }
  // Not watchable (a closed descriptor, say): the owner hears it as an event, not as an
  // exception out of its constructor.
  asio::post(impl_->io, [this, state, error] {
    if (!state->live) return;
    state->live = false;
    beginEvent();
    if (state->onError) {
      state->onError(error);
    } else {
      fdErrorLog(state->entry->fd, error);
    }
    endEvent();
  });
  return watch;
}

void AsioScheduler::fdWait(const std::shared_ptr<WatchState>& state) {
  // An exceptional condition is EPOLLPRI to the reactor.
  const auto type = state->readiness == FdReadiness::readable   ? asio::posix::stream_descriptor::wait_read
                    : state->readiness == FdReadiness::writable ? asio::posix::stream_descriptor::wait_write
                                                                : asio::posix::stream_descriptor::wait_error;
  state->entry->descriptor.async_wait(type, [this, state](const asio::error_code& ec) {
    if (!state->live) return;
    beginEvent();
    if (ec) {
      // Waiting again would fail again at once: the watch ends and its owner decides.
      state->live = false;
      if (state->onError) {
        state->onError(ec);
      } else {
        fdErrorLog(state->entry->fd, ec);
      }
    } else {
      state->onReady();
      // Waiting again re-reads the readiness, so what is left unread comes back on the next
      // turn of the reactor, after the events already pending.
      if (state->live) fdWait(state);
    }
    endEvent();
  });
}

void AsioScheduler::signalHandlerIs(std::initializer_list<int> signals, std::function<void(int)> handler) {
  impl_->signals = std::make_unique<asio::signal_set>(impl_->io);
  for (int s : signals) impl_->signals->add(s);
  impl_->signalHandler = std::move(handler);
  signalWait();
}

void AsioScheduler::signalWait() {
  impl_->signals->async_wait([this](const asio::error_code& ec, int signal) {
    if (ec) return;
    beginEvent();
    impl_->signalHandler(signal);
    endEvent();
    signalWait();
  });
}

void AsioScheduler::earliestExpiryChanged() {
  rearmNeeded_ = true;
  if (!inEvent_) rearm();
}

void AsioScheduler::rearm() {
  rearmNeeded_ = false;
  const double next = nextExpiry();
  if (impl_->timerArmed && next == impl_->armedFor) return;
  ++impl_->timerGeneration;
  if (next == Platform::kNever) {
    impl_->timerArmed = false;
    impl_->timer.cancel();
    return;
  }
  impl_->timerArmed = true;
  impl_->armedFor = next;
  using namespace std::chrono;
  // Also keeps the conversion to the system clock's integer ticks in range.
  const double at = std::clamp(next, 0.0, monotonicNow() + kTimerHorizon);
  impl_->timer.expires_at(steady_clock::time_point(duration_cast<steady_clock::duration>(duration<double>(at))));
  impl_->timer.async_wait([this, generation = impl_->timerGeneration](const asio::error_code& ec) {
    if (ec || generation != impl_->timerGeneration) return;
    handleTimer();
  });
}

void AsioScheduler::handleTimer() {
  impl_->timerArmed = false;
  beginEvent();
  // A clock this pass arms for now goes to the next one: re-arming the timer for a time
  // already past goes through the reactor, which hands out the descriptor events and signals
  // already pending before expired timers.
  passRun(now());
  rearmNeeded_ = true;
  endEvent();
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
