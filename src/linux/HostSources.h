// The Linux host as the platform: everything that fills the interface, address, bridging,
// routing, system and redundancy records from the kernel, on the scheduler's thread.
//
// Use: construct with the scheduler and the records (as mounted), set the selection and the
// overrides, start(); ready() (and the readiness callback) once the first dump is applied.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "linux/HostState.h"
#include "linux/IntfSelection.h"
#include "linux/NetlinkSource.h"
#include "platform/Scheduler.h"

namespace Linux {

class HostSources {
 public:
  struct Options {
    NetlinkSource::Options netlink;
    // How often the UTS names are compared (netlink announces no host-name change).
    double hostnameCheckInterval = 2.0;
    // Where the OS release is read from (first readable one wins).
    std::vector<std::string> osReleasePaths = {"/etc/os-release", "/usr/lib/os-release"};
  };
  struct Counters {
    uint64_t netlinkResyncs = 0;
    uint64_t netlinkMessages = 0;
    uint64_t netlinkInvalidMessages = 0;
    uint64_t hostnameChecks = 0;
  };

  HostSources(Platform::Scheduler& scheduler, HostRecords records, Options options);
  HostSources(Platform::Scheduler& scheduler, HostRecords records) : HostSources(scheduler, std::move(records), Options{}) {}
  ~HostSources();
  HostSources(const HostSources&) = delete;
  HostSources& operator=(const HostSources&) = delete;

  // Subscribes, then dumps; false with error set when the kernel cannot be asked.
  bool start(std::string& error);
  bool ready() const { return netlink_.dumpApplied(); }
  // Called once, when the first complete dump has been applied.
  void readyIs(std::function<void()> fn) { onReady_ = std::move(fn); }
  Counters counters() const;

  // Operator settings; each applies at once.
  void intfSelectionIs(const IntfSelection& selection) { state_.intfSelectionIs(selection); }
  void bridgeMacAddrIs(std::optional<Konet::EthAddr> addr) { state_.bridgeMacAddrOverrideIs(addr); }
  void sysDescrIs(std::optional<std::string> text);

  // Compares the UTS names with what NetStatus holds now (the clock does it periodically).
  void handleHostnameClock();

  const HostState& state() const { return state_; }
  const NetlinkSource& netlink() const { return netlink_; }

 private:
  void doSyncSysDescr();

  Platform::Scheduler& scheduler_;
  Options options_;
  HostState state_;
  NetlinkSource netlink_;
  Platform::Clock hostnameClock_;
  std::optional<std::string> sysDescrOverride_;
  std::string kernelSysDescr_;
  std::function<void()> onReady_;
  bool readyAnnounced_ = false;
  uint64_t hostnameChecks_ = 0;
};

}  // namespace Linux
