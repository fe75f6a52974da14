// lldp-demo: a self-contained walk through the agent's state machinery in simulated time:
// mounts, records, a reactor that follows the neighbour table, and ageing on a clock.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>

#include "platform/Reactor.h"
#include "platform/StateDb.h"
#include "platform/Trace.h"
#include "records/LldpRecords.h"
#include "records/RecordsJson.h"

namespace {

using namespace Lldp;

// Prints the neighbour table as it changes and ages neighbours out at their expiry time.
class NeighbourWatchSm : public Platform::Reactor {
 public:
  NeighbourWatchSm(PortStatus::Ptr port, Status::Ptr status, Platform::Scheduler& s)
      : port_(std::move(port)), status_(std::move(status)), scheduler_(s),
        ageClock_(s, [this] { handleAgeClock(); }) {
    watch<&NeighbourWatchSm::handleRemoteSystem>(port_, PortStatus::remoteSystemAttr);
  }

  void handleRemoteSystem(const int32_t& index) {
    const RemoteSystem::Ptr& rs = port_->remoteSystem(index);
    if (rs && rs->ttl() == 0) return;  // created, not filled in yet
    std::printf("[t=%6.1f] %s: neighbour %d %s\n", scheduler_.now(), port_->intfId().name().c_str(),
                index, rs ? ("is " + rs->sysName().str() + ", expires at " + std::to_string(int(rs->expiryTime()))).c_str() : "removed");
    if (rs && rs->expiryTime() < ageClock_.timeMin()) ageClock_.timeMinIs(rs->expiryTime());
  }

  void handleAgeClock() {
    double next = Platform::kNever;
    for (auto it = port_->remoteSystem().begin(); it != port_->remoteSystem().end(); ++it) {
      const RemoteSystem::Ptr rs = it.value();
      if (scheduler_.now() < rs->expiryTime()) {
        next = std::min(next, rs->expiryTime());
        continue;
      }
      port_->remoteSystemByMsapDel(rs->msap());
      port_->remoteSystemDel(rs->index());
      port_->rxAgeoutsTotalInc();
      status_->remTablesAgeoutsInc();
    }
    ageClock_.timeMinIs(next);
  }

 private:
  PortStatus::Ptr port_;
  Status::Ptr status_;
  Platform::Scheduler& scheduler_;
  Platform::Clock ageClock_;
};

// What the receive path does for one LLDPDU, reduced to the fields the demo shows.
void learn(PortStatus& port, int32_t index, const char* chassis, const char* name, double now,
           uint16_t ttl) {
  Msap msap{{chassisIdLocal, ChassisId(chassis)}, {portIdInterfaceName, PortId("Ethernet1")}};
  RemoteSystem::Ptr rs = port.remoteSystem(index);
  if (!rs) {
    rs = port.remoteSystemIs(index, msap);
    port.remoteSystemByMsapIs(msap, rs);
  }
  rs->sysNameIs(name);
  rs->ttlIs(ttl);
  rs->expiryTimeIs(now + ttl);
  port.remoteSystemNotify(index);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Walks through the LLDP agent's state database, reactors and clocks in simulated time."};
  bool json = false;
  app.add_flag("--json", json, "Print the final status records as JSON");
  CLI11_PARSE(app, argc, argv);

  Platform::VirtualScheduler scheduler;
  Platform::StateDb db(scheduler, "1");
  db.mountGroup()
      .mount<Config>("l2discovery/lldp/config", "w")
      .mount<LocalSystem>("l2discovery/lldp/localSystem", "wi")
      .mount<Status>("l2discovery/lldp/status/all", "w")
      .close([](Statedb::MountStatus status, Platform::StateDb& mounted) {
        std::printf("mounts complete (%s): %zu paths\n",
                    status == Statedb::mountSuccess_ ? "success" : "failure", mounted.mounts().size());
      });
  scheduler.runPending();

  auto status = db.lookup<Status>("l2discovery/lldp/status/all");
  auto port = status->portStatusIs("Ethernet1", scheduler.now());
  auto sm = Platform::makeReactor<NeighbourWatchSm>(port, status, scheduler);

  learn(*port, 1, "spine-1", "spine-1.example.net", scheduler.now(), 120);
  scheduler.runUntil(30);
  learn(*port, 2, "leaf-7", "leaf-7.example.net", scheduler.now(), 60);
  scheduler.runUntil(100);
  learn(*port, 1, "spine-1", "spine-1.example.net", scheduler.now(), 120);  // refresh
  scheduler.runUntil(400);

  std::printf("after %.0f s: %zu neighbours, %u aged out\n", scheduler.now(), port->remoteSystems(),
              status->remTablesAgeouts());
  if (json) std::cout << Platform::jsonText(Platform::recordToJson(*status)) << "\n";
  return 0;
}
