// Figures for the SNMP subagent: an agent-like process with many neighbours learnt through the
// receive path, serving its state socket and the LLDP MIB over AgentX on one event thread, and
// a prober of that state socket.
//   lldp-snmp-bench serve STATE_SOCKET AGENTX_SOCKET PORTS PER_PORT [slow]   serves until killed
//                         (slow: without prompt CPU wake-ups during walks, as snmp.fast-walks = false)
//   lldp-snmp-bench probe STATE_SOCKET SECONDS                        prints reply times
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "NeighbourFrames.h"
#include "codec/LldpProtocol.h"
#include "ipc/Client.h"
#include "ipc/Server.h"
#include "linux/AsioScheduler.h"
#include "linux/CpuWakeLatency.h"
#include "platform/Log.h"
#include "snmp/Subagent.h"

namespace {

int serve(const std::string& stateSocket, const std::string& agentxSocket, size_t ports, size_t perPort,
          bool fastWalks) {
  Linux::AsioScheduler scheduler;
  Platform::StateDb db{scheduler, "1"};
  auto status = db.mountIs<Lldp::Status>("l2discovery/lldp/status/all", "w");
  auto config = Platform::make<Lldp::Config>();
  auto localSystem = Platform::make<Lldp::LocalSystem>();
  auto devices = Platform::make<KernelNetInfo::Status>("default");
  for (size_t p = 0; p < ports; ++p) {
    const Konet::IntfId intf("eth" + std::to_string(p));
    devices->deviceIs(intf.name(), KernelNetInfo::Device{static_cast<int32_t>(p + 2), {}});
    auto pc = config->portConfigIs(intf);
    pc->maxRemoteSystemsIs(static_cast<uint32_t>(perPort + 1));
    auto ps = status->portStatusIs(intf, 0.0);
    for (size_t n = 0; n < perPort; ++n) {
      auto frame = Bench::basicNeighbourFrame(static_cast<int>(p), static_cast<int>(n));
      const size_t length = frame.size();
      frame.resize(length + Lldp::kRxSlack);
      constexpr size_t kEthernetHeader = 14;
      Lldp::processRxLldpdu(frame.data() + kEthernetHeader, frame.data() + length, *pc, *status, *ps,
                            Konet::EthAddr(2, 0, 0, 0, 0, 1), 0.0);
    }
  }
  Ipc::Service service(db);
  Ipc::ServerOptions options;
  options.socketPath = stateSocket;
  Ipc::Server server(scheduler, service, options);
  std::string error;
  if (!server.listen(error)) {
    std::fprintf(stderr, "lldp-snmp-bench: %s\n", error.c_str());
    return 1;
  }
  Snmp::SubagentOptions subagentOptions;
  subagentOptions.socketPath = agentxSocket;
  // As the daemon does with snmp.fast-walks.
  Linux::CpuWakeLatency wakeLatency;
  Snmp::Subagent subagent(scheduler, Snmp::LldpMibRecords{config, localSystem, status, devices}, subagentOptions);
  if (fastWalks) subagent.walkingIs([&](bool walking) { wakeLatency.promptIs(walking); });
  std::printf("serving %zu neighbours on %zu ports; prompt CPU wake-ups during walks: %s\n", ports * perPort, ports,
              !fastWalks ? "off" : wakeLatency.available() ? "on" : wakeLatency.error().c_str());
  std::fflush(stdout);
  scheduler.run();
  return 0;
}

// Greets the agent every 50 ms on one connection (the lightest request: it measures how soon
// the event loop gets to it); prints the reply times.
int probe(const std::string& stateSocket, double seconds) {
  Ipc::Client client;
  std::string error;
  if (!client.connect(stateSocket, error)) {
    std::fprintf(stderr, "lldp-snmp-bench: %s\n", error.c_str());
    return 1;
  }
  std::vector<double> times;
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < end) {
    const auto before = std::chrono::steady_clock::now();
    if (!client.request({{"op", "hello"}}, 5)) {
      std::fprintf(stderr, "lldp-snmp-bench: no reply\n");
      return 1;
    }
    times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - before).count());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  std::sort(times.begin(), times.end());
  std::printf("state socket: %zu replies, median %.2f ms, p99 %.2f ms, max %.2f ms\n", times.size(),
              times[times.size() / 2], times[std::min(times.size() - 1, times.size() * 99 / 100)], times.back());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Platform::logSinkIs([](const Platform::LogRecord&) {});
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "serve" && (argc == 6 || (argc == 7 && std::string(argv[6]) == "slow"))) {
    return serve(argv[2], argv[3], std::stoul(argv[4]), std::stoul(argv[5]), argc == 6);
  }
  if (mode == "probe" && argc == 4) return probe(argv[2], std::stod(argv[3]));
  std::fprintf(stderr, "usage: lldp-snmp-bench serve STATE_SOCKET AGENTX_SOCKET PORTS PER_PORT [slow] | probe STATE_SOCKET SECONDS\n");
  return 2;
}
