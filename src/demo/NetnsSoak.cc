// lldp-netns-soak: two protocol engines in two network namespaces, joined by a veth pair made
// by scripts/netns-soak.sh, exchanging LLDPDUs for a while; reports every flap.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>

#include "demo/StandaloneEngine.h"
#include "linux/AsioScheduler.h"
#include "linux/RawSocketPam.h"
#include "platform/Log.h"

namespace {

Lldp::Agent::Protocol::PamManagerFactory rawSockets(const std::string& netNs) {
  return [netNs](Lldp::Agent::Protocol::Root& r) {
    return std::make_unique<Linux::RawSocketPamManager>(r.desiredIntfDir(), r.pamCollection(),
                                                        r.deviceIntfStatusDir(), r.scheduler(), netNs);
  };
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Runs two LLDP engines in two network namespaces and reports neighbour flaps."};
  std::string nsA, nsB, devA = "lldpa", devB = "lldpb";
  double seconds = 3600;
  app.add_option("--ns-a", nsA, "First namespace (under /var/run/netns)")->required();
  app.add_option("--ns-b", nsB, "Second namespace")->required();
  app.add_option("--dev-a", devA, "Device in the first namespace")->capture_default_str();
  app.add_option("--dev-b", devB, "Device in the second namespace")->capture_default_str();
  app.add_option("--seconds", seconds, "How long to run")->capture_default_str();
  CLI11_PARSE(app, argc, argv);

  Linux::AsioScheduler s;
  int flaps = 0;
  Platform::logSinkIs([&](const Platform::LogRecord& r) {
    std::printf("[%.1f] %%%s: %s\n", s.now(), r.message.id, Platform::logLineText(r).c_str());
    std::fflush(stdout);
    if (std::string_view(r.message.id) != "LLDP_NEIGHBOR_NEW") ++flaps;
  });
  const auto macA = *Konet::EthAddr::parse("02:00:00:00:0a:01");
  const auto macB = *Konet::EthAddr::parse("02:00:00:00:0b:01");
  Demo::StandaloneEngine a(s, "soak-a", macA, rawSockets(nsA));
  Demo::StandaloneEngine b(s, "soak-b", macB, rawSockets(nsB));
  a.addPort(devA, macA);
  b.addPort(devB, macB);
  if (!a.root->pamCollection()->intfPamHas(devA) || !b.root->pamCollection()->intfPamHas(devB)) {
    std::fprintf(stderr, "lldp-netns-soak: cannot open packet access (root and the namespaces needed)\n");
    return 2;
  }
  s.signalHandlerIs({SIGINT, SIGTERM}, [&](int) { s.stop(); });
  s.runFor(seconds);

  const auto& pa = *a.status->portStatus(devA);
  const auto& pb = *b.status->portStatus(devB);
  std::printf("after %.0f s: a has %zu neighbour(s), %u inserts, %u ageouts; b has %zu, %u inserts, %u ageouts; "
              "frames sent a %u b %u; flaps %d\n",
              seconds, pa.remoteSystems(), a.status->remTablesInserts(), a.status->remTablesAgeouts(),
              pb.remoteSystems(), b.status->remTablesInserts(), b.status->remTablesAgeouts(), pa.txFramesTotal(),
              pb.txFramesTotal(), flaps);
  const bool steady = flaps == 0 && pa.remoteSystems() == 1 && pb.remoteSystems() == 1 &&
                      a.status->remTablesInserts() == 1 && b.status->remTablesInserts() == 1;
  std::printf("%s\n", steady ? "steady: no flap" : "FLAPPED");
  return steady ? 0 : 1;
}
