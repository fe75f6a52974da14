// Framework costs: attribute writes with a watcher, collection churn, clock re-arming, and a
// virtual-time run of a million expiries.
#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <vector>

#include "platform/Reactor.h"
#include "platform/Record.h"
#include "platform/Scheduler.h"

namespace {

class Gauge : public Platform::Entity {
#define BENCH_GAUGE_ATTRS(X)          \
  X(Attr, level, uint32_t, {})        \
  X(Coll, reading, uint32_t, uint64_t)
  PLATFORM_RECORD(Gauge, BENCH_GAUGE_ATTRS)
 public:
  Gauge() = default;
};

class GaugeSm : public Platform::Reactor {
 public:
  explicit GaugeSm(Gauge::Ptr g) : g_(std::move(g)) {
    watch<&GaugeSm::handleLevel>(g_, Gauge::levelAttr);
    watch<&GaugeSm::handleReading>(g_, Gauge::readingAttr);
  }
  void handleLevel() { sum_ += g_->level(); }
  void handleReading(const uint32_t& key) { sum_ += key; }
  uint64_t sum_ = 0;

 private:
  Gauge::Ptr g_;
};

void BM_AttributeWriteOneWatcher(benchmark::State& state) {
  auto g = Platform::make<Gauge>();
  auto sm = Platform::makeReactor<GaugeSm>(g);
  uint32_t v = 0;
  for (auto _ : state) g->levelIs(++v);
  benchmark::DoNotOptimize(sm->sum_);
}
BENCHMARK(BM_AttributeWriteOneWatcher);

void BM_CollectionInsertDelete(benchmark::State& state) {
  auto g = Platform::make<Gauge>();
  auto sm = Platform::makeReactor<GaugeSm>(g);
  for (uint32_t k = 0; k < 1000; k += 2) g->readingIs(k, k);
  uint32_t k = 1;
  for (auto _ : state) {
    g->readingIs(k, 42);
    g->readingDel(k);
    k = (k + 2) % 1000;
  }
  benchmark::DoNotOptimize(sm->sum_);
}
BENCHMARK(BM_CollectionInsertDelete);

void BM_ClockRearmAmong10000(benchmark::State& state) {
  Platform::VirtualScheduler s;
  std::vector<std::unique_ptr<Platform::Clock>> clocks;
  std::mt19937 rng(1);
  std::uniform_real_distribution<double> when(1, 1000);
  for (int i = 0; i < 10000; ++i) {
    clocks.push_back(std::make_unique<Platform::Clock>(s, [] {}));
    clocks.back()->timeMinIs(when(rng));
  }
  std::vector<std::pair<size_t, double>> moves(4096);
  for (auto& m : moves) m = {rng() % clocks.size(), when(rng)};
  size_t i = 0;
  for (auto _ : state) {
    const auto& [index, time] = moves[i++ & 4095];
    clocks[index]->timeMinIs(time);
  }
}
BENCHMARK(BM_ClockRearmAmong10000);

void BM_VirtualMillionExpiriesOver10000Clocks(benchmark::State& state) {
  for (auto _ : state) {
    Platform::VirtualScheduler s;
    uint64_t expiries = 0;
    struct Ticker {
      Ticker(Platform::VirtualScheduler& s, uint64_t& n, double period)
          : clock(s, [this, &s, &n, period] {
              ++n;
              clock.timeMinIs(s.now() + period);
            }) {}
      Platform::Clock clock;
    };
    std::vector<std::unique_ptr<Ticker>> tickers;
    for (int i = 0; i < 10000; ++i) {
      const double period = 1.0 + (i % 97) * 0.01;
      tickers.push_back(std::make_unique<Ticker>(s, expiries, period));
      tickers.back()->clock.timeMinIs(period * (i % 13) / 13.0);
    }
    while (expiries < 1000000) s.runFor(1.0);
    state.counters["expiries"] = static_cast<double>(expiries);
  }
}
BENCHMARK(BM_VirtualMillionExpiriesOver10000Clocks)->Unit(benchmark::kMillisecond);

}  // namespace
