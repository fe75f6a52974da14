// libFuzzer target: one input is a run of frames from a few senders into a port that keeps two
// neighbours, with the clock moving and expired neighbours aged between frames. Creation, the
// full table, refreshes by the unchanged-frame shortcut and by full parse, shutdowns and the
// carry-over all run under the sanitizers. A second port gets the same frames but never the
// shortcut; after every frame both must be indistinguishable and the table consistent.
#include <cstdint>
#include <vector>

#include "FuzzPort.h"
#include "FuzzSequence.h"

namespace {

constexpr uint32_t kMaxRemoteSystems = 2;
constexpr size_t kMaxFrames = 64;

struct Run {
  Fuzz::Port fast{kMaxRemoteSystems};
  Fuzz::Port full{kMaxRemoteSystems};
  double now = 1000;
  uint32_t delivered = 0;
  std::vector<uint8_t> frame;

  void deliver(const Fuzz::SeqFrame& f) {
    const Konet::EthAddr mac(0, 1, 2, 3, 4, static_cast<uint8_t>(f.sender()));
    Fuzz::tracingIs(f.traced());
    full.forgetLastFrames();
    const auto a = fast.receive(frame.data(), frame.size(), now, mac);
    const auto b = full.receive(frame.data(), frame.size(), now, mac);
    Fuzz::tracingIs(false);
    ++delivered;

    FUZZ_CHECK(!a == !b);
    if (a) {
      FUZZ_CHECK(fast.portStatus->remoteSystem(a->index()) == a);
      FUZZ_CHECK(a->lastRefreshTime() == now && a->expiryTime() == now + a->ttl());
      FUZZ_CHECK(a->ethAddr() == mac && a->ttl() > 0);
    }
    Fuzz::checkTable(fast);
    const Lldp::Status& status = *fast.status;
    FUZZ_CHECK(status.remTablesInserts() - status.remTablesDeletes() ==
               fast.portStatus->remoteSystems());
    FUZZ_CHECK(fast.portStatus->rxFramesTotal() == delivered);
    Fuzz::checkSamePorts(fast, full);
  }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Fuzz::quietSinks();
  Fuzz::tracingIs(false);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<Fuzz::SeqFrame> frames = Fuzz::seqFrames(data, size);
  if (frames.size() > kMaxFrames) frames.resize(kMaxFrames);
  Run run;
  for (const Fuzz::SeqFrame& f : frames) {
    run.now += f.step();
    run.fast.age(run.now);
    run.full.age(run.now);
    Fuzz::checkSamePorts(run.fast, run.full);
    Fuzz::seqRewriteChassis(f.sender(), f.data, f.size, run.frame);
    run.deliver(f);
    if (f.twice()) run.deliver(f);
  }
  return 0;
}
