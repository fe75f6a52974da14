// The whole agent at scale in virtual time: start-up with 1,000 Ethernet ports, 100 VLAN
// interfaces with addresses and 50 LAGs until every port has sent its first LLDPDU; then one
// global change (the host name) reaching every port engine, and one port change (a
// description). The CPU column is what the targets are about. Then the heap and allocations
// each basic neighbour costs once the agent has learnt 10,000 of them.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <set>
#include <string>

#include "AllocCounter.h"
#include "NeighbourFrames.h"
#include "agent/LldpAgent.h"
#include "platform/Log.h"
#include "platform/SimPacketAccess.h"
#include "platform/StateDb.h"
#include "protocol/LldpProtocolSm.h"

namespace {

constexpr int kPorts = 1000;
constexpr int kVlans = 100;
constexpr int kLags = 50;
constexpr int kMembersPerLag = 4;
constexpr int kNeighboursPerPort = 10;

std::string portName(int p) { return "Ethernet" + std::to_string(p / 48 + 1) + "/" + std::to_string(p % 48 + 1); }

// A switch's records as the other agents publish them, and the agent on top.
struct Switch {
  Platform::VirtualScheduler scheduler{0};
  Platform::SimWire wire{scheduler};
  Platform::StateDb db{scheduler, "1"};
  std::unique_ptr<Lldp::Agent::Agent> agent;
  System::NetStatus::Ptr netStatus;
  Interface::AllEthPhyIntfConfigDir::Ptr phyConfigDir;

  Switch() {
    wire.recordIs(false);
    db.entityIs<Bridging::Config>("bridging/config")->bridgeMacAddrIs(Konet::EthAddr(0, 0x1c, 0x73, 1, 2, 3));
    netStatus = db.entityIs<System::NetStatus>(db.cellPath("sys/net/status"));
    netStatus->hostnameIs("leaf1");
    netStatus->domainNameIs("example.net");
    db.entityIs<EntityMib::Status>("hardware/entmib")->valueIs("Switch OS");
    auto phyDir = db.entityIs<Interface::AllEthPhyIntfStatusDir>("interface/status/eth/phy/all");
    phyConfigDir = db.entityIs<Interface::AllEthPhyIntfConfigDir>("interface/config/eth/phy/all");
    auto intfStatusDir = db.entityIs<Interface::AllIntfStatusDir>("interface/status/all");
    auto lagDir = db.entityIs<Interface::EthLagIntfStatusDir>("interface/status/eth/lag");
    auto ipStatus = db.entityIs<Ip::Status>("ip/status");
    for (int p = 0; p < kPorts; ++p) {
      const std::string name = portName(p);
      auto phy = phyDir->intfStatusIs(name);
      phy->addrIs(Konet::EthAddr(0, 0x1c, 0x73, 2, static_cast<uint8_t>(p >> 8), static_cast<uint8_t>(p)));
      phy->linkStatusIs(Interface::LinkStatus::linkUp);
      phy->forwardingModelIs(Interface::ForwardingModel::bridged);
      intfStatusDir->intfStatusIs(name)->ifIndexIs(p + 1);
      phyConfigDir->intfConfigIs(name)->descriptionIs("server " + std::to_string(p));
    }
    for (int v = 1; v <= kVlans; ++v) {
      const std::string name = "Vlan" + std::to_string(v);
      intfStatusDir->intfStatusIs(name)->ifIndexIs(100000 + v);
      Arnet::IpAddrWithMask addr{Arnet::IpAddr{(10u << 24) | (static_cast<uint32_t>(v) << 8) | 1u}, 24};
      ipStatus->ipIntfStatusIs(name)->activeAddrWithMaskIs(addr);
    }
    for (int l = 1; l <= kLags; ++l) {
      const std::string name = "Port-Channel" + std::to_string(l);
      intfStatusDir->intfStatusIs(name)->ifIndexIs(200000 + l);
      auto lag = lagDir->intfStatusIs(name);
      for (int m = 0; m < kMembersPerLag; ++m) lag->memberIs(portName((l - 1) * kMembersPerLag + m), true);
    }
  }

  void start() {
    agent = Lldp::Agent::agentFactory("LldpAgent", db, [this](Lldp::Agent::Protocol::Root& r) {
      return std::make_unique<Platform::SimPamManager>(r.desiredIntfDir(), r.pamCollection(),
                                                       r.deviceIntfStatusDir(), r.scheduler(), wire, "dut");
    });
    agent->doInit();
    scheduler.runPending();
  }

  // Runs virtual time until every port has sent; the number of ports that have.
  int runUntilEveryPortSent() {
    int sent = 0;
    for (int step = 0; step < 100 && sent < kPorts; ++step) {
      scheduler.runFor(0.25);
      sent = 0;
      for (const auto& [intf, ps] : agent->lldpStatusLocal()->portStatus()) sent += ps->txFramesTotal() > 0;
    }
    return sent;
  }
};

void BM_AgentStartUpToFirstLldpduOnEveryPort(benchmark::State& state) {
  Platform::logSinkIs([](const Platform::LogRecord&) {});
  int sent = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto sw = std::make_unique<Switch>();
    state.ResumeTiming();
    sw->start();
    sent = sw->runUntilEveryPortSent();
    state.PauseTiming();
    sw.reset();
    state.ResumeTiming();
  }
  state.counters["ports_sent"] = sent;
}
BENCHMARK(BM_AgentStartUpToFirstLldpduOnEveryPort)->Iterations(3)->Unit(benchmark::kMillisecond);

Switch& running() {
  static std::unique_ptr<Switch> sw = [] {
    auto s = std::make_unique<Switch>();
    s->start();
    s->runUntilEveryPortSent();
    return s;
  }();
  return *sw;
}

// Engines that will send on their own: every one idle, its last LLDPDU well behind it.
void letEveryEngineSettle(Switch& sw) { sw.scheduler.runFor(3); }

size_t enginesIn(Switch& sw, Lldp::Agent::Protocol::TxFsmState state) {
  size_t n = 0;
  const auto& engines = sw.agent->protocolRoot()->protocolSm()->lldpPamSm();
  for (auto it = engines.begin(); it != engines.end(); ++it) n += it.value()->txFsmState() == state;
  return n;
}

// Ports whose last LLDPDU carried the text (recorded for one change, outside the timing).
int portsThatSent(Switch& sw, const std::string& name) {
  sw.wire.sentClear();
  sw.wire.recordIs(true);
  sw.netStatus->hostnameIs(name);
  sw.scheduler.runFor(3);
  sw.wire.recordIs(false);
  std::set<std::string> ports;
  for (const auto& sent : sw.wire.sent()) {
    if (std::search(sent.frame.begin(), sent.frame.end(), name.begin(), name.end()) != sent.frame.end()) {
      ports.insert(sent.from);
    }
  }
  sw.wire.sentClear();
  return static_cast<int>(ports.size());
}

// The change reaching every port engine: from the write of the host name until each of the
// 1,000 engines has been told (and has scheduled its LLDPDU). Every iteration starts with the
// engines idle, so each one really moves.
void BM_AgentHostNameChangeReachesEngines(benchmark::State& state) {
  Switch& sw = running();
  size_t moved = 0;
  int i = 0;
  for (auto _ : state) {
    state.PauseTiming();
    letEveryEngineSettle(sw);
    state.ResumeTiming();
    sw.netStatus->hostnameIs(++i % 2 ? "leaf2" : "leaf1");
    sw.scheduler.runPending();
    state.PauseTiming();
    moved = enginesIn(sw, Lldp::Agent::Protocol::LldpPamSm::txFsmTxDelay());
    state.ResumeTiming();
  }
  state.counters["engines"] = static_cast<double>(sw.agent->protocolRoot()->protocolSm()->lldpPamSms());
  state.counters["engines_told"] = static_cast<double>(moved);
}
BENCHMARK(BM_AgentHostNameChangeReachesEngines)->Unit(benchmark::kMicrosecond);

// The whole of a host-name change: the write, every engine told, and the next LLDPDU built and
// sent on all 1,000 ports once the transmit delay has passed.
void BM_AgentHostNameChange(benchmark::State& state) {
  Switch& sw = running();
  letEveryEngineSettle(sw);
  int i = 0;
  for (auto _ : state) {
    sw.netStatus->hostnameIs(++i % 2 ? "leaf2" : "leaf1");
    sw.scheduler.runFor(3);
  }
  state.counters["engines"] = static_cast<double>(sw.agent->protocolRoot()->protocolSm()->lldpPamSms());
  state.counters["ports_sent_new_name"] = portsThatSent(sw, "leaf-checked");
}
BENCHMARK(BM_AgentHostNameChange)->Unit(benchmark::kMillisecond);

void BM_AgentPortDescriptionChange(benchmark::State& state) {
  Switch& sw = running();
  auto config = sw.phyConfigDir->intfConfig(portName(500));
  int i = 0;
  for (auto _ : state) {
    config->descriptionIs(++i % 2 ? "server 500 (moved)" : "server 500");
    sw.scheduler.runPending();
  }
  const auto& localPort = sw.agent->localSystem()->localPort(portName(500));
  state.counters["reached_local_port"] = localPort->portDesc().str() == config->description();
  // The port's next LLDPDU carries it (checked outside the timing).
  letEveryEngineSettle(sw);
  sw.wire.sentClear();
  sw.wire.recordIs(true);
  const std::string checked = "server 500 (checked)";
  config->descriptionIs(checked);
  sw.scheduler.runFor(3);
  sw.wire.recordIs(false);
  int carried = 0, ports = 0;
  for (const auto& sent : sw.wire.sent()) {
    ++ports;
    carried += std::search(sent.frame.begin(), sent.frame.end(), checked.begin(), checked.end()) != sent.frame.end();
  }
  sw.wire.sentClear();
  state.counters["port_sent_it"] = carried;
  state.counters["ports_that_sent"] = ports;
}
BENCHMARK(BM_AgentPortDescriptionChange)->Unit(benchmark::kMicrosecond);

// One external TLV client's set of N TLVs on one port of the running agent, written TLV by TLV as
// the state socket writes them, reaching the port's LocalPort, and then the client removed. Each
// write is reconciled alone (a keyed step), so the cost per TLV stays flat as N grows.
void BM_AgentExternalTlvClient(benchmark::State& state) {
  Switch& sw = running();
  const auto n = static_cast<uint32_t>(state.range(0));
  const std::string port = portName(7);
  const auto localPort = sw.agent->localSystem()->localPort(Konet::IntfId(port));
  size_t reached = 0;
  for (auto _ : state) {
    auto client = Platform::make<Lldp::ExternalTlvConfig>("bench");
    sw.agent->externalTlvs()->entryIs("bench", client);
    auto portConfig = client->portConfigIs(Konet::IntfId(port));
    for (uint32_t i = 1; i <= n; ++i) {
      const Lldp::UnknownOrgDefTlv tlv{Lldp::UnknownOrgDefTlv::Key(Lldp::Oui(0x001c73), 1, i),
                                       Lldp::BoundedString507("payload")};
      portConfig->unknownOrgDefTlvIs(tlv.key, tlv);
    }
    sw.scheduler.runPending();
    reached = localPort->unknownOrgDefTlv().size();
    sw.agent->externalTlvs()->entryDel("bench");
    sw.scheduler.runPending();
  }
  state.counters["tlvs_on_port"] = static_cast<double>(reached);
  state.counters["ns_per_tlv"] = benchmark::Counter(static_cast<double>(n) * static_cast<double>(state.iterations()),
                                                    benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.SetComplexityN(n);
}
BENCHMARK(BM_AgentExternalTlvClient)->RangeMultiplier(4)->Range(64, 4096)->Complexity()->Unit(benchmark::kMicrosecond);

// Learns kNeighboursPerPort basic neighbours on every port of a running agent and divides the
// heap growth (malloc's in-use bytes, block overhead included) and the allocations by their
// number. Each port first hears a shutdown LLDPDU from nobody, so that what the packet path
// keeps per port whatever it hears is not counted as neighbour cost.
void BM_AgentLearnBasicNeighbours(benchmark::State& state) {
  Platform::logSinkIs([](const Platform::LogRecord&) {});
  for (auto _ : state) {
    state.PauseTiming();
    auto sw = std::make_unique<Switch>();
    sw->start();
    sw->runUntilEveryPortSent();
    std::vector<Platform::SimPam*> pams;
    std::vector<std::vector<std::vector<uint8_t>>> frames(kPorts);
    for (int p = 0; p < kPorts; ++p) {
      const auto& pam = sw->agent->protocolRoot()->pamCollection()->intfPam(Konet::IntfId(portName(p)));
      pams.push_back(static_cast<Platform::SimPam*>(pam.get()));
      pams.back()->deliver(Bench::basicNeighbourFrame(p, kNeighboursPerPort, 0));
      for (int n = 0; n < kNeighboursPerPort; ++n) frames[p].push_back(Bench::basicNeighbourFrame(p, n));
    }
    sw->scheduler.runPending();
    state.ResumeTiming();

    const size_t heapBefore = mallinfo2().uordblks;
    const uint64_t allocsBefore = Bench::allocations();
    const auto start = std::chrono::steady_clock::now();
    for (int n = 0; n < kNeighboursPerPort; ++n) {
      for (int p = 0; p < kPorts; ++p) pams[p]->deliver(frames[p][n]);
    }
    sw->scheduler.runPending();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const uint64_t allocs = Bench::allocations() - allocsBefore;
    const size_t heapAfter = mallinfo2().uordblks;

    state.PauseTiming();
    size_t neighbours = 0;
    for (const auto& [intf, ps] : sw->agent->lldpStatusLocal()->portStatus()) neighbours += ps->remoteSystems();
    const double n = neighbours ? static_cast<double>(neighbours) : 1;
    state.counters["neighbours"] = static_cast<double>(neighbours);
    state.counters["heap_bytes_per_neighbour"] = (static_cast<double>(heapAfter) - static_cast<double>(heapBefore)) / n;
    state.counters["allocs_per_neighbour"] = static_cast<double>(allocs) / n;
    state.counters["ns_per_neighbour"] = seconds * 1e9 / n;
    sw.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_AgentLearnBasicNeighbours)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
