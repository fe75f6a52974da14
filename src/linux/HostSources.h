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
    // The kernel signals each change of the UTS names as an exceptional condition on these
    // files; where they cannot be watched, the names are compared every hostnameCheckInterval.
    std::vector<std::string> utsNamePaths = {"/proc/sys/kernel/hostname", "/proc/sys/kernel/domainname"};
    double hostnameCheckInterval = 2.0;
    // Once this many links have gone and none has for trimDelay, the memory their records
    // held goes back to the system (the allocator keeps freed memory otherwise, so a host
    // whose containers come and go would only ever grow).
    size_t trimAfterLinks = 64;
    double trimDelay = 2.0;
    // Where the OS release is read from (first readable one wins).
    std::vector<std::string> osReleasePaths = {"/etc/os-release", "/usr/lib/os-release"};
  };
  struct Counters {
    uint64_t netlinkResyncs = 0;
    uint64_t netlinkMessages = 0;
    uint64_t netlinkInvalidMessages = 0;
    uint64_t hostnameChecks = 0;
    uint64_t memoryTrims = 0;
  };

  // The records at the paths the agent mounts, made in the database when not there yet
  // (make it before the agent mounts them, or after: the entities are the same).
  static HostRecords recordsIn(Platform::StateDb& db, const std::string& netNsName = "default");

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

  // Compares the UTS names with what NetStatus holds now (on each change the kernel signals,
  // or periodically where it cannot).
  void handleHostnameClock();
  // Whether the names are watched as events (no periodic check).
  bool utsNamesWatched() const { return !utsWatches_.empty(); }

  const HostState& state() const { return state_; }
  const NetlinkSource& netlink() const { return netlink_; }

 private:
  void doSyncSysDescr();
  bool utsNamesWatchIs();
  void utsNamesUnwatch();

  Platform::Scheduler& scheduler_;
  Options options_;
  HostState state_;
  NetlinkSource netlink_;
  Platform::Clock hostnameClock_;
  Platform::Clock trimClock_;
  size_t linksGoneSinceTrim_ = 0;
  uint64_t memoryTrims_ = 0;
  std::vector<int> utsFds_;
  std::vector<std::unique_ptr<Platform::FdWatch>> utsWatches_;
  std::optional<std::string> sysDescrOverride_;
  std::string kernelSysDescr_;
  std::function<void()> onReady_;
  bool readyAnnounced_ = false;
  uint64_t hostnameChecks_ = 0;
};

}  // namespace Linux
