// lldp-demo: the agent's main job without a real network. Two switches' protocol engines are
// joined port to port by a simulated wire and run for an hour of virtual time; the demo prints
// what each side learnt, then the neighbour table once a cable is pulled.
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/Render.h"
#include "demo/StandaloneEngine.h"
#include "platform/Log.h"
#include "platform/SimPacketAccess.h"
#include "records/RecordsJson.h"

namespace {

Lldp::Agent::Protocol::PamManagerFactory simulated(Platform::SimWire& wire, const std::string& node) {
  return [&wire, node](Lldp::Agent::Protocol::Root& r) {
    return std::make_unique<Platform::SimPamManager>(r.desiredIntfDir(), r.pamCollection(),
                                                     r.deviceIntfStatusDir(), r.scheduler(), wire, node);
  };
}

void showNeighbours(const Demo::StandaloneEngine& e, const std::string& name, bool json) {
  for (const auto& [intf, port] : e.status->portStatus()) {
    if (json) {
      nlohmann::ordered_json out = nlohmann::ordered_json::array();
      for (const auto& [index, rs] : port->remoteSystem()) out.push_back(Platform::recordToJson(*rs));
      std::cout << Platform::jsonText({{"switch", name}, {"interface", intf.name()}, {"neighbors", out}}) << "\n";
      continue;
    }
    std::cout << name << " " << intf << ": " << port->remoteSystems() << " neighbour(s), "
              << port->txFramesTotal() << " LLDPDUs sent, " << port->rxFramesTotal() << " received\n";
    for (const auto& [index, rs] : port->remoteSystem()) Cli::renderRemoteSystemText(*rs, std::cout);
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Two LLDP engines on a simulated wire, an hour of protocol time in milliseconds."};
  bool json = false;
  double minutes = 60;
  app.add_flag("--json", json, "Print the neighbour tables as JSON");
  app.add_option("--minutes", minutes, "Simulated minutes to run")->capture_default_str()->check(CLI::Range(1.0, 10000.0));
  CLI11_PARSE(app, argc, argv);

  Platform::VirtualScheduler s;
  Platform::SimWire wire(s);
  Platform::logSinkIs([&s](const Platform::LogRecord& r) {
    std::cout << "[t=" << s.now() << "s] %" << r.message.id << ": " << Platform::logLineText(r) << "\n";
  });

  Demo::StandaloneEngine spine(s, "spine-1", *Konet::EthAddr::parse("00:1c:73:00:00:01"), simulated(wire, "spine-1"));
  Demo::StandaloneEngine leaf(s, "leaf-7", *Konet::EthAddr::parse("00:1c:73:00:00:07"), simulated(wire, "leaf-7"));
  spine.addPort("Ethernet1", *Konet::EthAddr::parse("00:1c:73:00:01:01"));
  spine.addPort("Ethernet2", *Konet::EthAddr::parse("00:1c:73:00:01:02"));
  leaf.addPort("Ethernet49/1", *Konet::EthAddr::parse("00:1c:73:00:07:31"));
  leaf.addPort("Ethernet50/1", *Konet::EthAddr::parse("00:1c:73:00:07:32"));
  leaf.localSystem->localPort("Ethernet49/1")->portDescIs("uplink to spine-1");
  wire.link("spine-1:Ethernet1", "leaf-7:Ethernet49/1");
  wire.link("spine-1:Ethernet2", "leaf-7:Ethernet50/1");
  wire.recordIs(false);

  s.runFor(minutes * 60);
  std::cout << "--- after " << minutes << " simulated minutes ---\n";
  showNeighbours(spine, "spine-1", json);
  showNeighbours(leaf, "leaf-7", json);

  std::cout << "--- leaf-7 Ethernet50/1 is unplugged; its neighbour on spine-1 ages out ---\n";
  wire.unlink("leaf-7:Ethernet50/1");
  s.runFor(180);
  showNeighbours(spine, "spine-1", json);
  return 0;
}
