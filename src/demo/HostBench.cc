// lldp-host-bench: the agent on the Linux host sources in a fresh network namespace; creates
// veth ports in bulk and reports how long until every port has an engine, the CPU the netlink
// source spent per message, receive ring memory, descriptors and resident memory.
#include <CLI/CLI.hpp>
#include <sched.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "agent/LldpAgent.h"
#include "linux/AsioScheduler.h"
#include "linux/HostSources.h"
#include "linux/RawSocketPam.h"
#include "platform/Log.h"

namespace {

double secondsSince(std::chrono::steady_clock::time_point t) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
}

double processCpu() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
         static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) * 1e-6;
}

size_t openFiles() {
  size_t n = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++n;
  return n;
}

// VmRSS of this process in KiB.
long residentKiB() {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Creates veth ports in a fresh network namespace under a running agent and measures it."};
  int ports = 1000;
  double limit = 30;
  app.add_option("--ports", ports, "Ports to create (veth ends; pairs are ports/2)")->capture_default_str();
  app.add_option("--limit", limit, "Seconds to wait for the engines")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  ports -= ports % 2;
  // As lldp-agent does at start (many ports may still come on sockets of their own).
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);

  if (unshare(CLONE_NEWNET) != 0) {
    std::fprintf(stderr, "lldp-host-bench: cannot create a network namespace (root needed)\n");
    return 2;
  }
  Platform::logSinkIs([](const Platform::LogRecord& r) { if (getenv("HB_LOG")) std::fprintf(stderr, "log: %.*s\n", int(r.text.size()), r.text.data()); });
  Linux::AsioScheduler s;
  Platform::StateDb db(s, "1");
  Linux::HostSources host(s, Linux::HostSources::recordsIn(db));
  std::string error;
  if (!host.start(error)) {
    std::fprintf(stderr, "lldp-host-bench: %s\n", error.c_str());
    return 2;
  }
  auto agent = Lldp::Agent::agentFactory("LldpAgent", db, [](Lldp::Agent::Protocol::Root& r) {
    return std::make_unique<Linux::RawSocketPamManager>(r.desiredIntfDir(), r.pamCollection(), r.deviceIntfStatusDir(),
                                                        r.scheduler());
  });
  agent->doInit();
  const auto startUp = std::chrono::steady_clock::now();
  while ((!host.ready() || !agent->running()) && secondsSince(startUp) < 5) s.runFor(0.01);
  if (!agent->running()) {
    std::fprintf(stderr, "lldp-host-bench: the agent did not start\n");
    return 1;
  }

  const std::string batch = "/tmp/lldp-host-bench-" + std::to_string(getpid());
  {
    std::ofstream out(batch);
    for (int i = 0; i < ports / 2; ++i) out << "link add p" << i << " type veth peer name q" << i << "\n";
    for (int i = 0; i < ports / 2; ++i) out << "link set p" << i << " up\nlink set q" << i << " up\n";
  }
  const size_t filesBefore = openFiles();
  const long rssBefore = residentKiB();
  const auto before = host.netlink().counters();
  const double cpuBefore = processCpu();
  const auto created = std::chrono::steady_clock::now();
  const int rc = std::system(("ip -batch " + batch + " >/dev/null").c_str());
  std::remove(batch.c_str());
  if (rc != 0) {
    std::fprintf(stderr, "lldp-host-bench: ip -batch failed\n");
    return 2;
  }
  const double createSeconds = secondsSince(created);
  auto engines = [&] { return agent->protocolRoot()->protocolSm()->lldpPamSms(); };
  double lastPrint = 0;
  while (engines() < static_cast<size_t>(ports) && secondsSince(created) < limit) {
    s.runFor(0.01);
    if (getenv("HB_LOG") && secondsSince(created) > lastPrint + 0.5) { lastPrint = secondsSince(created); std::fprintf(stderr, "%.2f engines %zu cpu %.2f\n", lastPrint, engines(), processCpu() - cpuBefore); }
  }
  const double allSeconds = secondsSince(created);
  s.runFor(0.2);  // the last notifications
  const auto after = host.netlink().counters();
  const double messages = static_cast<double>(after.messages - before.messages);
  const double cpu = after.cpuSeconds - before.cpuSeconds;
  std::printf("ports %d: kernel created them in %.2f s; every port had an engine %.2f s after creation began "
              "(%zu engines)\n",
              ports, createSeconds, allSeconds, engines());
  std::printf("netlink: %.0f messages, %llu resyncs, %.1f us CPU per message; agent process CPU %.2f s\n", messages,
              static_cast<unsigned long long>(after.resyncs - before.resyncs), messages ? cpu / messages * 1e6 : 0.0,
              processCpu() - cpuBefore);
  const auto* manager = dynamic_cast<const Linux::RawSocketPamManager*>(agent->protocolRoot()->pamMan());
  const size_t dedicated = manager ? manager->dedicatedPorts() : 0;
  std::printf("receive memory: %.1f MiB in rings (%zu ports with a ring of their own, %zu on the shared ring)\n",
              static_cast<double>(Linux::RawSocketPam::ringBytesInUse()) / (1 << 20), dedicated,
              engines() - std::min(engines(), dedicated));
  std::printf("descriptors: %zu open (%zu before the ports); resident memory %.1f MiB (%.1f MiB before)\n",
              openFiles(), filesBefore, residentKiB() / 1024.0, rssBefore / 1024.0);
  const bool all = engines() == static_cast<size_t>(ports);
  agent->doCleanup();
  return all ? 0 : 1;
}
