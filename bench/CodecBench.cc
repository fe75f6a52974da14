// Codec costs on a typical LLDPDU (about 200 bytes) and on an IP phone's: building one, and
// receiving a new neighbour, an unchanged refresh and a refresh with one change, with the
// allocations each makes per frame.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "AllocCounter.h"
#include "codec/LldpProtocol.h"
#include "data/Hex.h"
#include "data/SampleFrames.h"
#include "platform/Log.h"

namespace {

using namespace Lldp;

std::vector<uint8_t> hex(const std::string& text) { return SampleFrames::hexBytes(text); }

// The local side of a typical switch port: what the builder turns into about 200 bytes.
struct Local {
  Config::Ptr config = Platform::make<Config>();
  LocalSystem::Ptr localSystem = Platform::make<LocalSystem>();
  PortConfig::Ptr portConfig = config->portConfigIs("Ethernet1");
  LocalPort::Ptr localPort = localSystem->localPortIs("Ethernet1");
  Status::Ptr status = Platform::make<Status>("bench");
  PortStatus::Ptr portStatus = status->portStatusIs("Ethernet1", 0.0);

  Local() {
    localSystem->chassisIdentifierIs(ChassisIdentifier{chassisIdMacAddress, ChassisId(std::string("\x00\x1c\x73\x12\x34\x56", 6))});
    localPort->portIdentifierIs(PortIdentifier{portIdInterfaceName, PortId("Ethernet1/1")});
    localPort->portDescIs("uplink to spine-1 Ethernet3/12");
    localSystem->sysNameIs("leaf-17.pod4.example.net");
    localSystem->sysDescIs("Network OS 4.31.2F running on a 48-port 25G, 8-port 100G leaf switch");
    localSystem->sysCapSupportedIs(SystemCapabilitiesMap{0x14});
    localSystem->sysCapEnabledIs(SystemCapabilitiesMap{0x14});
    portConfig->enabledTlvsIs(PortConfig::EnabledTlvs{0x0f});
    portConfig->portVlanTxEnableIs(false);
    config->maxTxMgmtAddrsIs(2);
    const ManagementAddress::Key v4{afIpv4, ManAddress(std::string("\x0a\x04\x11\x01", 4))};
    const ManagementAddress::Key v4b{afIpv4, ManAddress(std::string("\xc0\xa8\x01\x11", 4))};
    localSystem->managementAddressIs(v4, ManagementAddress(v4, ifNumberingIfIndex, 5000001));
    localSystem->managementAddressIs(v4b, ManagementAddress(v4b, ifNumberingIfIndex, 999999));
    localSystem->managementAddressPrioIs(ManAddrPriority{ManAddrType::intf, 2, 0, "Loopback0"}, v4);
    localSystem->managementAddressPrioIs(ManAddrPriority{ManAddrType::intf, 2104, 0, "Management1"}, v4b);
  }
  std::vector<uint8_t> build() {
    std::vector<uint8_t> area(kMaxLldpduSize);
    uint8_t* end = buildTxLldpdu(area.data(), area.data() + area.size(), *config, *localSystem,
                                 *localPort, *portConfig, *portStatus, 0);
    area.resize(static_cast<size_t>(end - area.data()));
    area.resize(area.size() + kRxSlack, 0);
    return area;
  }
};

struct Remote {
  Config::Ptr config = Platform::make<Config>();
  PortConfig::Ptr portConfig = config->portConfigIs("Ethernet2");
  Status::Ptr status = Platform::make<Status>("bench");
  PortStatus::Ptr portStatus = status->portStatusIs("Ethernet2", 0.0);
  Konet::EthAddr mac{0, 0x1c, 0x73, 0x12, 0x34, 0x56};
  double now = 0;

  Remote() {
    Platform::logSinkIs([](const Platform::LogRecord&) {});
    portConfig->maxRemoteSystemsIs(1u << 30);
  }
  bool receive(const std::vector<uint8_t>& frame) {
    return static_cast<bool>(processRxLldpdu(frame.data(), frame.data() + frame.size() - kRxSlack,
                                             *portConfig, *status, *portStatus, mac, ++now));
  }
};

void reportAllocations(benchmark::State& state, uint64_t before) {
  state.counters["allocs/frame"] = benchmark::Counter(
      static_cast<double>(Bench::allocations() - before) / static_cast<double>(state.iterations()));
}

void BM_BuildTypicalLldpdu(benchmark::State& state) {
  Local local;
  std::vector<uint8_t> area(kMaxLldpduSize);
  size_t size = 0;
  const uint64_t before = Bench::allocations();
  for (auto _ : state) {
    uint8_t* end = buildTxLldpdu(area.data(), area.data() + area.size(), *local.config,
                                 *local.localSystem, *local.localPort, *local.portConfig,
                                 *local.portStatus, 0);
    size = static_cast<size_t>(end - area.data());
    benchmark::DoNotOptimize(area.data());
  }
  reportAllocations(state, before);
  state.counters["bytes"] = static_cast<double>(size);
}
BENCHMARK(BM_BuildTypicalLldpdu);

void BM_ReceiveNewNeighbour(benchmark::State& state) {
  Local local;
  std::vector<std::vector<uint8_t>> frames;
  const std::vector<uint8_t> base = local.build();
  for (uint32_t i = 0; i < 4096; ++i) {
    frames.push_back(base);
    frames.back()[7] = static_cast<uint8_t>(i >> 8);  // last chassis bytes make each MSAP new
    frames.back()[8] = static_cast<uint8_t>(i);
  }
  auto remote = std::make_unique<Remote>();
  size_t next = 0;
  const uint64_t before = Bench::allocations();
  for (auto _ : state) {
    if (next == frames.size()) {
      state.PauseTiming();
      remote = std::make_unique<Remote>();
      next = 0;
      state.ResumeTiming();
    }
    benchmark::DoNotOptimize(remote->receive(frames[next++]));
  }
  reportAllocations(state, before);
}
BENCHMARK(BM_ReceiveNewNeighbour);

// fullParse defeats the memo of the last frame, so every refresh is parsed and compared.
void refresh(benchmark::State& state, const std::vector<uint8_t>& a, const std::vector<uint8_t>& b,
             bool fullParse = false) {
  Remote remote;
  remote.receive(a);
  remote.receive(b);
  remote.receive(a);
  RemoteSystem& rs = *remote.portStatus->remoteSystem().begin().value();
  bool flip = false;
  const uint64_t before = Bench::allocations();
  for (auto _ : state) {
    if (fullParse) rs.lastFrame().reusable = false;
    benchmark::DoNotOptimize(remote.receive(flip ? b : a));
    flip = !flip;
  }
  reportAllocations(state, before);
  state.counters["bytes"] = static_cast<double>(a.size() - kRxSlack);
}

void BM_ReceiveRefreshUnchanged(benchmark::State& state) {
  Local local;
  const auto frame = local.build();
  refresh(state, frame, frame);
}
BENCHMARK(BM_ReceiveRefreshUnchanged);

void BM_ReceiveRefreshUnchangedFullParse(benchmark::State& state) {
  Local local;
  const auto frame = local.build();
  refresh(state, frame, frame, true);
}
BENCHMARK(BM_ReceiveRefreshUnchangedFullParse);

void BM_ReceiveRefreshOneChange(benchmark::State& state) {
  Local local;
  const auto a = local.build();
  local.localSystem->sysNameIs("leaf-17.pod4.example.com");  // same length, one byte differs
  const auto b = local.build();
  refresh(state, a, b);
}
BENCHMARK(BM_ReceiveRefreshOneChange);

void BM_ReceivePhoneRefreshUnchanged(benchmark::State& state) {
  std::vector<uint8_t> frame = hex(SampleFrames::kPhone);
  frame.resize(frame.size() + kRxSlack, 0);
  refresh(state, frame, frame);
}
BENCHMARK(BM_ReceivePhoneRefreshUnchanged);

void BM_ReceivePhoneRefreshUnchangedFullParse(benchmark::State& state) {
  std::vector<uint8_t> frame = hex(SampleFrames::kPhone);
  frame.resize(frame.size() + kRxSlack, 0);
  refresh(state, frame, frame, true);
}
BENCHMARK(BM_ReceivePhoneRefreshUnchangedFullParse);

}  // namespace
