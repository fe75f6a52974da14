// The host's sources started in order: system facts, then netlink (subscribe, dump), then the
// host-name check on its clock.
#include "linux/HostSources.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "agent/LldpAgent.h"

namespace Linux {

HostRecords HostSources::recordsIn(Platform::StateDb& db, const std::string& netNsName) {
  using A = Lldp::Agent::Agent;
  HostRecords r;
  r.ethPhyIntfStatusDir = db.entityIs<Interface::AllEthPhyIntfStatusDir>(A::kEthPhyIntfStatusPath);
  r.ethPhyIntfConfigDir = db.entityIs<Interface::AllEthPhyIntfConfigDir>(A::kEthPhyIntfConfigPath);
  r.allIntfStatusDir = db.entityIs<Interface::AllIntfStatusDir>(A::kAllIntfStatusPath);
  r.allIntfStatusLocalDir = db.entityIs<Interface::AllIntfStatusLocalDir>(db.cellPath(A::kAllIntfStatusLocalPath));
  r.ethLagIntfStatusDir = db.entityIs<Interface::EthLagIntfStatusDir>(A::kEthLagIntfStatusPath);
  r.bridgingConfig = db.entityIs<Bridging::Config>(A::kBridgingConfigPath);
  r.bridgingHwCapabilities = db.entityIs<Bridging::HwCapabilities>(A::kBridgingHwCapabilitiesPath);
  r.routingConfig = db.entityIs<Routing::Config>(A::kRoutingConfigPath);
  r.ipStatus = db.entityIs<Ip::Status>(A::kIpStatusPath);
  r.ip6Status = db.entityIs<Ip6::Status>(A::kIp6StatusPath);
  r.kernelNetInfo = db.entityIs<KernelNetInfo::Status>("kni/ns/" + netNsName + "/status", netNsName);
  r.netStatus = db.entityIs<System::NetStatus>(db.cellPath(A::kNetStatusPath));
  r.sysDescr = db.entityIs<EntityMib::Status>(A::kEntMibPath);
  r.redundancyStatus = db.entityIs<Redundancy::RedundancyStatus>(db.cellPath(A::kRedundancyStatusPath));
  Platform::StateDb::typeIs<Hardware::CellInfo>();
  r.cellInfoDir = db.entityIs<Platform::Dir>(A::kCellInfoPath);
  r.cellId = db.cellId();
  return r;
}

HostSources::HostSources(Platform::Scheduler& scheduler, HostRecords records, Options options)
    : scheduler_(scheduler), options_(std::move(options)), state_(std::move(records)),
      netlink_(scheduler, state_, options_.netlink), hostnameClock_(scheduler, [this] { handleHostnameClock(); }),
      trimClock_(scheduler, [this] {
        linksGoneSinceTrim_ = 0;
        ++memoryTrims_;
        malloc_trim(0);
      }) {
  state_.linksGoneIs([this](size_t links) {
    linksGoneSinceTrim_ += links;
    if (linksGoneSinceTrim_ >= options_.trimAfterLinks) trimClock_.timeMinIs(scheduler_.now() + options_.trimDelay);
  });
  netlink_.dumpCompleteIs([this] {
    if (readyAnnounced_) return;
    readyAnnounced_ = true;
    if (onReady_) onReady_();
  });
}

HostSources::~HostSources() { utsNamesUnwatch(); }

bool HostSources::start(std::string& error) {
  utsname uts{};
  if (uname(&uts) == 0) {
    std::string prettyName;
    for (const std::string& path : options_.osReleasePaths) {
      std::ifstream in(path);
      if (!in) continue;
      std::stringstream text;
      text << in.rdbuf();
      prettyName = osReleasePrettyName(text.str());
      break;
    }
    kernelSysDescr_ = systemDescriptionOf(prettyName, uts.release, uts.machine);
  }
  doSyncSysDescr();
  utsNamesWatchIs();
  handleHostnameClock();
  return netlink_.start(error);
}

void HostSources::sysDescrIs(std::optional<std::string> text) {
  sysDescrOverride_ = std::move(text);
  doSyncSysDescr();
}

void HostSources::doSyncSysDescr() {
  if (!state_.records().sysDescr) return;
  state_.records().sysDescr->valueIs(sysDescrOverride_ ? *sysDescrOverride_ : kernelSysDescr_);
}

bool HostSources::utsNamesWatchIs() {
  for (const std::string& path : options_.utsNamePaths) {
    // The open takes the file's change count: the first change after it is signalled.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
      utsNamesUnwatch();
      return false;
    }
    utsFds_.push_back(fd);
    utsWatches_.push_back(scheduler_.exceptionWatchIs(
        fd, [this] { handleHostnameClock(); },
        [this](std::error_code) {
          // Not watchable after all (a file system without change signals): poll instead.
          scheduler_.post([this] {
            utsNamesUnwatch();
            handleHostnameClock();
          });
        }));
  }
  return !utsWatches_.empty();
}

void HostSources::utsNamesUnwatch() {
  utsWatches_.clear();
  for (const int fd : utsFds_) ::close(fd);
  utsFds_.clear();
}

void HostSources::handleHostnameClock() {
  ++hostnameChecks_;
  if (!utsNamesWatched()) hostnameClock_.timeMinIs(scheduler_.now() + options_.hostnameCheckInterval);
  const auto& netStatus = state_.records().netStatus;
  if (!netStatus) return;
  // uname() is a system call on the kernel's UTS names, not a read of the disk.
  utsname uts{};
  if (uname(&uts) != 0) return;
  std::string hostname, domain;
  netStatusOf(uts.nodename, uts.domainname, hostname, domain);
  netStatus->hostnameIs(hostname);
  netStatus->domainNameIs(domain);
}

HostSources::Counters HostSources::counters() const {
  Counters c;
  c.netlinkResyncs = netlink_.counters().resyncs;
  c.netlinkMessages = netlink_.counters().messages;
  c.netlinkInvalidMessages = netlink_.counters().invalidMessages;
  c.hostnameChecks = hostnameChecks_;
  c.memoryTrims = memoryTrims_;
  return c;
}

}  // namespace Linux
