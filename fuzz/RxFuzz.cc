// libFuzzer target: any byte sequence through the receive path, tracing on, must only move
// counters: no crash, hang, leak or assertion.
#include <cstdint>
#include <vector>

#include "codec/LldpProtocol.h"
#include "platform/Log.h"
#include "platform/Trace.h"

namespace {

struct Port {
  Port() {
    Platform::traceSinkIs([](const Platform::TraceFacility&, int, std::string_view) {});
    Platform::traceLevelsIs("*/9");
    Platform::logSinkIs([](const Platform::LogRecord&) {});
    reset();
  }
  void reset() {
    config = Platform::make<Lldp::Config>();
    portConfig = config->portConfigIs("Ethernet1");
    portConfig->maxRemoteSystemsIs(16);
    status = Platform::make<Lldp::Status>("fuzz");
    portStatus = status->portStatusIs("Ethernet1", 0.0);
  }
  Lldp::Config::Ptr config;
  Lldp::PortConfig::Ptr portConfig;
  Lldp::Status::Ptr status;
  Lldp::PortStatus::Ptr portStatus;
  double now = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Port port;
  if (++port.now > 10000) {
    port.reset();
    port.now = 0;
  }
  // The receive buffer's zeroed slack sits behind the frame, as packet buffers provide it.
  std::vector<uint8_t> buffer(data, data + size);
  buffer.resize(size + Lldp::kRxSlack, 0);
  Lldp::processRxLldpdu(buffer.data(), buffer.data() + size, *port.portConfig, *port.status,
                        *port.portStatus, Konet::EthAddr(0, 1, 2, 3, 4, 5), port.now);
  return 0;
}
