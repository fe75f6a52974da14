// libFuzzer target: any byte sequence through the receive path must only move counters: no
// crash, hang, leak or assertion. Built twice: with every trace on (lldp-fuzz-rx), and with
// tracing off (lldp-fuzz-rx-quiet), where a repeated frame takes the unchanged-refresh shortcut
// and must leave the port exactly as a full parse of it would.
#include <cstdint>

#include "FuzzPort.h"

#ifndef LLDP_FUZZ_TRACE
#error "LLDP_FUZZ_TRACE must be 0 or 1"
#endif

namespace {

// One long-lived port: the table fills and neighbours refresh across inputs.
void tracedInput(const uint8_t* data, size_t size) {
  static Fuzz::Port port(16);
  static double now = 0;
  if (++now > 10000) {
    port = Fuzz::Port(16);
    now = 0;
  }
  port.receive(data, size, now);
  Fuzz::checkTable(port);
}

// Fresh ports, so that a finding replays from its input alone: the frame twice on each, the
// second time by the shortcut on one port and by a full parse on the other.
void quietInput(const uint8_t* data, size_t size) {
  Fuzz::Port fast(2);
  Fuzz::Port full(2);
  for (double now : {1.0, 2.0}) {
    // The second copy comes from another MAC: the shortcut must still record the sender.
    const Konet::EthAddr mac(0, 1, 2, 3, 4, static_cast<uint8_t>(now > 1 ? 6 : 5));
    full.forgetLastFrames();
    const auto a = fast.receive(data, size, now, mac);
    const auto b = full.receive(data, size, now, mac);
    FUZZ_CHECK(!a == !b);
    Fuzz::checkTable(fast);
    Fuzz::checkSamePorts(fast, full);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Fuzz::quietSinks();
  Fuzz::tracingIs(LLDP_FUZZ_TRACE);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (LLDP_FUZZ_TRACE) {
    tracedInput(data, size);
  } else {
    quietInput(data, size);
  }
  return 0;
}
