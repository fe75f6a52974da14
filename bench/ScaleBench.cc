// The protocol engine at scale in virtual time: 1,000 ports, each with 8 neighbours sending
// every 30 seconds, for one simulated hour. Reports CPU seconds per simulated hour and heap
// bytes per neighbour.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <ctime>

#include "NeighbourFrames.h"
#include "platform/Log.h"
#include "platform/SimPacketAccess.h"
#include "protocol/LldpProtocolSm.h"

namespace {

using Lldp::Agent::Protocol::Root;

constexpr int kPorts = 1000;
constexpr int kNeighboursPerPort = 8;
constexpr double kNeighbourInterval = 30;

void BM_ScaleOneSimulatedHour(benchmark::State& state) {
  Platform::logSinkIs([](const Platform::LogRecord&) {});
  for (auto _ : state) {
    Platform::VirtualScheduler s{0};
    Platform::SimWire wire{s};
    wire.recordIs(false);
    auto config = Platform::make<Lldp::Config>();
    auto cliConfig = Platform::make<Lldp::CliConfig>();
    auto status = Platform::make<Lldp::Status>("1");
    auto localSystem = Platform::make<Lldp::LocalSystem>();
    auto phyDir = Platform::make<Interface::AllEthPhyIntfStatusDir>();
    localSystem->chassisIdentifierIs(Lldp::ChassisIdentifier{Lldp::chassisIdMacAddress, Lldp::ChassisId(std::string("\x00\x1c\x73\x00\x00\x01", 6))});
    localSystem->sysNameIs("leaf-1.example.net");
    auto root = Lldp::Agent::Protocol::rootFactory("scale", s, [&wire](Root& r) {
      return std::make_unique<Platform::SimPamManager>(r.desiredIntfDir(), r.pamCollection(),
                                                       r.deviceIntfStatusDir(), r.scheduler(), wire, "dut");
    });
    root->configIs(config);
    root->statusIs(status);
    root->localSystemIs(localSystem);
    root->ethPhyIntfStatusDirIs(phyDir);
    root->deviceIntfStatusDirIs("devices");
    root->desiredIntfDirIs("desired");
    root->pamCollectionIs("pams");
    root->doInitializePamMan();
    root->protocolSmIs();
    root->onOffSwitchSmIs(cliConfig, root->pamMan());

    std::vector<std::vector<std::vector<uint8_t>>> frames(kPorts);
    std::vector<Platform::SimPam*> pams;
    for (int p = 0; p < kPorts; ++p) {
      const Konet::IntfId intf("Ethernet" + std::to_string(p / 48 + 1) + "/" + std::to_string(p % 48 + 1));
      auto phy = phyDir->intfStatusIs(intf);
      phy->linkStatusIs(Interface::LinkStatus::linkUp);
      config->portConfigIs(intf)->enabledTlvsIs(Lldp::PortConfig::EnabledTlvs{0x0f});
      localSystem->localPortIs(intf)->portIdentifierIs(Lldp::PortIdentifier{Lldp::portIdInterfaceName, Lldp::PortId(intf.name())});
      status->portStatusIs(intf, 0.0);
      root->deviceIntfStatusDir()->deviceIntfIs(intf, Interface::DeviceIntf{intf.name(), p, {}});
      root->desiredIntfDir()->intfDesiredIs(intf, true);
      pams.push_back(static_cast<Platform::SimPam*>(root->pamCollection()->intfPam(intf).get()));
      for (int n = 0; n < kNeighboursPerPort; ++n) frames[p].push_back(Bench::basicNeighbourFrame(p, n));
    }

    // Each port hears its next neighbour every 30/8 s, staggered across ports.
    constexpr double kStep = kNeighbourInterval / kNeighboursPerPort;
    struct Sender {
      Sender(Platform::VirtualScheduler& sched, Platform::SimPam* pam,
             const std::vector<std::vector<uint8_t>>& portFrames, double first)
          : clock(sched, [this, &sched, pam, &portFrames] {
              pam->deliver(portFrames[static_cast<size_t>(next)]);
              next = (next + 1) % kNeighboursPerPort;
              clock.timeMinIs(sched.now() + kStep);
            }) {
        clock.timeMinIs(first);
      }
      Platform::Clock clock;
      int next = 0;
    };
    std::vector<std::unique_ptr<Sender>> senders;
    for (size_t p = 0; p < kPorts; ++p) {
      senders.push_back(std::make_unique<Sender>(s, pams[p], frames[p], kStep * static_cast<double>(p) / kPorts));
    }

    const size_t heapBefore = mallinfo2().uordblks;
    s.runUntil(kNeighbourInterval + 1);  // every neighbour learnt once
    const size_t heapAfter = mallinfo2().uordblks;
    size_t neighbours = 0;
    for (const auto& [intf, ps] : status->portStatus()) neighbours += ps->remoteSystems();

    const std::clock_t cpuBefore = std::clock();
    s.runUntil(kNeighbourInterval + 1 + 3600);
    const double cpu = static_cast<double>(std::clock() - cpuBefore) / CLOCKS_PER_SEC;

    size_t rxFrames = 0, txFrames = 0;
    for (const auto& [intf, ps] : status->portStatus()) {
      rxFrames += ps->rxFramesTotal();
      txFrames += ps->txFramesTotal();
    }
    state.counters["neighbours"] = static_cast<double>(neighbours);
    state.counters["cpu_s_per_sim_hour"] = cpu;
    state.counters["heap_bytes_per_neighbour"] =
        neighbours ? static_cast<double>(heapAfter - heapBefore) / static_cast<double>(neighbours) : 0;
    state.counters["rx_frames"] = static_cast<double>(rxFrames);
    state.counters["tx_frames"] = static_cast<double>(txFrames);
    state.counters["ageouts"] = status->remTablesAgeouts();
    senders.clear();
    root.reset();
  }
}
BENCHMARK(BM_ScaleOneSimulatedHour)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
