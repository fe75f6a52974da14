// The host's sources started in order: system facts, then netlink (subscribe, dump), then the
// host-name check on its clock.
#include "linux/HostSources.h"

#include <sys/utsname.h>

#include <fstream>
#include <sstream>

namespace Linux {

HostSources::HostSources(Platform::Scheduler& scheduler, HostRecords records, Options options)
    : scheduler_(scheduler), options_(std::move(options)), state_(std::move(records)),
      netlink_(scheduler, state_, options_.netlink), hostnameClock_(scheduler, [this] { handleHostnameClock(); }) {
  netlink_.dumpCompleteIs([this] {
    if (readyAnnounced_) return;
    readyAnnounced_ = true;
    if (onReady_) onReady_();
  });
}

HostSources::~HostSources() = default;

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

void HostSources::handleHostnameClock() {
  ++hostnameChecks_;
  hostnameClock_.timeMinIs(scheduler_.now() + options_.hostnameCheckInterval);
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
  return c;
}

}  // namespace Linux
