// The metrics page of a large switch: 1,000 ports with 8 neighbours each, every neighbour with a
// system name, port description and management address. Reports the CPU per scrape (rendering
// the page, which is all the agent does per scrape besides the library's copy to the socket)
// and the page's bytes.
#include <benchmark/benchmark.h>

#include "metrics/Exposition.h"

namespace {

constexpr int kPorts = 1000;
constexpr int kNeighboursPerPort = 8;

struct LargeSwitch {
  Lldp::Status::Ptr status = Platform::make<Lldp::Status>("1");
  Lldp::LocalSystem::Ptr local = Platform::make<Lldp::LocalSystem>();
  LargeSwitch() {
    local->chassisIdentifierIs({Lldp::chassisIdMacAddress, Lldp::ChassisId(std::string("\x00\x1c\x73\x00\x00\x01", 6))});
    local->sysNameIs(Lldp::BoundedString255("leaf-1.example.net"));
    for (int p = 0; p < kPorts; ++p) {
      const Konet::IntfId intf("Ethernet" + std::to_string(p / 48 + 1) + "/" + std::to_string(p % 48 + 1));
      auto ps = status->portStatusIs(intf, 0.0);
      ps->txFramesTotalInc(1234567);
      ps->rxFramesTotalInc(7654321);
      for (int n = 0; n < kNeighboursPerPort; ++n) {
        const int id = p * kNeighboursPerPort + n;
        std::string mac = {0x02, 0, 0, static_cast<char>(id >> 16), static_cast<char>(id >> 8), static_cast<char>(id)};
        Lldp::Msap msap{{Lldp::chassisIdMacAddress, Lldp::ChassisId(mac)},
                        {Lldp::portIdInterfaceName, Lldp::PortId("Ethernet" + std::to_string(n + 1) + "/1")}};
        auto rs = ps->remoteSystemIs(n + 1, msap);
        rs->sysNameIs(Lldp::BoundedString255("server-" + std::to_string(id) + ".rack12.example.net"));
        rs->portDescIs(Lldp::BoundedString255("uplink to leaf-1 port " + intf.name()));
        const Lldp::ManagementAddress::Key key{Lldp::afIpv4, Lldp::ManAddress(std::string{10, 1, static_cast<char>(id >> 8), static_cast<char>(id)})};
        rs->managementAddressIs(key, Lldp::ManagementAddress(key, Lldp::ifNumberingIfIndex, 3));
      }
    }
  }
};

void BM_MetricsPage1000Ports8Neighbours(benchmark::State& state) {
  static LargeSwitch sw;
  size_t bytes = 0;
  for (auto _ : state) {
    std::string page;
    Metrics::exposition({sw.status.get(), sw.local.get(), "0.3.0"}, page);
    bytes = page.size();
    benchmark::DoNotOptimize(page.data());
  }
  state.counters["bytesPerScrape"] = static_cast<double>(bytes);
  state.counters["neighbours"] = kPorts * kNeighboursPerPort;
}
BENCHMARK(BM_MetricsPage1000Ports8Neighbours)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

}  // namespace
