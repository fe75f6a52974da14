// Figures for the state socket: a socket serving many neighbours learnt through the receive path
// (for timing `lldp show neighbors`), the delay from a received frame to a subscriber's event,
// and the resident memory of the tables behind the socket.
//   lldp-ipc-bench serve SOCKET PORTS PER_PORT    serves until killed
//   lldp-ipc-bench latency FRAMES                 prints the frame-to-event delays
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <functional>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "codec/LldpProtocol.h"
#include "ipc/Client.h"
#include "ipc/Server.h"
#include "linux/AsioScheduler.h"
#include "platform/Log.h"

namespace {

void tlv(std::vector<uint8_t>& out, int type, const std::string& value) {
  const int header = type << 9 | static_cast<int>(value.size());
  out.push_back(static_cast<uint8_t>(header >> 8));
  out.push_back(static_cast<uint8_t>(header));
  out.insert(out.end(), value.begin(), value.end());
}

// An LLDPDU as a switch sends it: MAC chassis id, interface-name port id, TTL, names, description.
std::vector<uint8_t> lldpdu(uint32_t chassis, const std::string& port, const std::string& sysName) {
  std::vector<uint8_t> out;
  std::string mac = {4, 0x02, 0x00, static_cast<char>(chassis >> 24), static_cast<char>(chassis >> 16),
                     static_cast<char>(chassis >> 8), static_cast<char>(chassis)};
  tlv(out, 1, mac);
  tlv(out, 2, "\x05" + port);
  tlv(out, 3, std::string("\x00\x78", 2));
  tlv(out, 4, "uplink to " + port);
  tlv(out, 5, sysName);
  tlv(out, 6, "Linux 6.1 switch software, build 4711, a description of ordinary length");
  tlv(out, 7, std::string("\x00\x14\x00\x04", 4));
  tlv(out, 0, "");
  out.resize(out.size() + Lldp::kRxSlack, 0);
  return out;
}

struct Agentlike {
  Linux::AsioScheduler scheduler;
  Platform::StateDb db{scheduler, "1"};
  Lldp::Status::Ptr status = db.mountIs<Lldp::Status>("l2discovery/lldp/status/all", "w");
  std::vector<Lldp::PortConfig::Ptr> portConfigs;

  void learn(size_t ports, size_t perPort) {
    uint32_t chassis = 1;
    for (size_t p = 0; p < ports; ++p) {
      const std::string intf = "eth" + std::to_string(p);
      auto pc = Platform::make<Lldp::PortConfig>(Konet::IntfId(intf));
      pc->maxRemoteSystemsIs(static_cast<uint32_t>(perPort + 1));
      portConfigs.push_back(pc);
      auto ps = status->portStatusIs(Konet::IntfId(intf), 0.0);
      for (size_t n = 0; n < perPort; ++n, ++chassis) {
        const auto frame = lldpdu(chassis, "swp" + std::to_string(n), "leaf-" + std::to_string(chassis));
        Lldp::processRxLldpdu(frame.data(), frame.data() + frame.size() - Lldp::kRxSlack, *pc, *status, *ps,
                              Konet::EthAddr(2, 0, 0, 0, 0, 1), 0.0);
      }
    }
  }
};

long residentKb() {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  }
  return -1;
}

int serve(const std::string& socket, size_t ports, size_t perPort) {
  Agentlike agent;
  const long before = residentKb();
  agent.learn(ports, perPort);
  Ipc::Service service(agent.db);
  Ipc::ServerOptions options;
  options.socketPath = socket;
  Ipc::Server server(agent.scheduler, service, options);
  std::string error;
  if (!server.listen(error)) {
    std::fprintf(stderr, "lldp-ipc-bench: %s\n", error.c_str());
    return 1;
  }
  std::printf("serving %zu neighbours on %zu ports; resident memory %ld kB (tables %ld kB)\n", ports * perPort,
              ports, residentKb(), residentKb() - before);
  std::fflush(stdout);
  agent.scheduler.run();
  return 0;
}

int latency(size_t frames) {
  Agentlike agent;
  agent.learn(1, 0);
  Ipc::Service service(agent.db);
  Ipc::ServerOptions options;
  options.socketPath = "/tmp/lldp-ipc-bench-" + std::to_string(::getpid()) + ".sock";
  Ipc::Server server(agent.scheduler, service, options);
  std::string error;
  if (!server.listen(error)) {
    std::fprintf(stderr, "lldp-ipc-bench: %s\n", error.c_str());
    return 1;
  }
  std::vector<std::atomic<double>> sentAt(frames);
  std::vector<double> delays;
  std::atomic<bool> subscribed{false};
  std::thread subscriber([&] {
    Ipc::Client client;
    std::string e;
    if (!client.connect(options.socketPath, e)) return;
    client.request({{"op", "subscribe"}, {"path", "l2discovery/lldp/status/all"}, {"types", {"RemoteSystem"}}});
    subscribed = true;
    while (delays.size() < frames) {
      auto message = client.nextMessage(2.0);
      if (!message) break;
      const double now = Linux::AsioScheduler::monotonicNow();
      for (const auto& change : (*message)["changes"]) {
        const std::string name = change["value"].value("sysName", "");
        if (name.rfind("frame-", 0) != 0) continue;
        delays.push_back(now - sentAt[std::stoul(name.substr(6))].load());
      }
    }
  });
  size_t sent = 0;
  auto port = agent.status->portStatus(Konet::IntfId("eth0"));
  Platform::Clock* tick = nullptr;
  std::function<void()> step = [&] {
    if (subscribed && sent < frames) {
      // Each frame renames the neighbour, so each one is a change the subscriber hears of.
      const auto frame = lldpdu(1, "swp1", "frame-" + std::to_string(sent));
      sentAt[sent] = Linux::AsioScheduler::monotonicNow();
      Lldp::processRxLldpdu(frame.data(), frame.data() + frame.size() - Lldp::kRxSlack, *agent.portConfigs[0],
                            *agent.status, *port, Konet::EthAddr(2, 0, 0, 0, 0, 1), agent.scheduler.now());
      ++sent;
    } else if (sent >= frames) {
      agent.scheduler.stop();
      return;
    }
    tick->timeMinIs(agent.scheduler.now() + 0.005);
  };
  Platform::Clock ticker(agent.scheduler, [&] { step(); });
  tick = &ticker;
  ticker.timeMinIs(agent.scheduler.now());
  agent.scheduler.run();
  subscriber.join();
  if (delays.empty()) {
    std::fprintf(stderr, "lldp-ipc-bench: no events arrived\n");
    return 1;
  }
  std::sort(delays.begin(), delays.end());
  auto at = [&](double q) { return delays[std::min(delays.size() - 1, static_cast<size_t>(q * delays.size()))] * 1e3; };
  std::printf("frame to subscriber event over %zu frames: median %.3f ms, p99 %.3f ms, max %.3f ms\n", delays.size(),
              at(0.5), at(0.99), delays.back() * 1e3);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // Thousands of "neighbour added" messages are not what is measured.
  Platform::logSinkIs([](const Platform::LogRecord&) {});
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "serve" && argc == 5) return serve(argv[2], std::stoul(argv[3]), std::stoul(argv[4]));
  if (mode == "latency") return latency(argc > 2 ? std::stoul(argv[2]) : 1000);
  std::fprintf(stderr, "usage: lldp-ipc-bench serve SOCKET PORTS PER_PORT | latency [FRAMES]\n");
  return 2;
}
