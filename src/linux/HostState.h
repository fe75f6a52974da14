// The kernel's links and addresses as last reported, and the records they fill. Facts come in
// one at a time; flush() writes only what changed since the last flush, so a resync that finds
// the kernel as it was rewrites nothing.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "linux/HostMapping.h"
#include "linux/IntfSelection.h"
#include "platform/PacketAccess.h"
#include "platform/StateDb.h"
#include "records/AgentRecords.h"

namespace Linux {

// The records the host fills; a null one is not filled.
struct HostRecords {
  Interface::AllEthPhyIntfStatusDir::Ptr ethPhyIntfStatusDir;
  Interface::AllEthPhyIntfConfigDir::Ptr ethPhyIntfConfigDir;
  Interface::AllIntfStatusDir::Ptr allIntfStatusDir;
  Interface::AllIntfStatusLocalDir::Ptr allIntfStatusLocalDir;
  Interface::EthLagIntfStatusDir::Ptr ethLagIntfStatusDir;
  Bridging::Config::Ptr bridgingConfig;
  Bridging::HwCapabilities::Ptr bridgingHwCapabilities;
  Routing::Config::Ptr routingConfig;
  Ip::Status::Ptr ipStatus;
  Ip6::Status::Ptr ip6Status;
  KernelNetInfo::Status::Ptr kernelNetInfo;
  System::NetStatus::Ptr netStatus;
  EntityMib::Status::Ptr sysDescr;
  Redundancy::RedundancyStatus::Ptr redundancyStatus;
  Platform::Dir::Ptr cellInfoDir;
  std::string cellId = "1";
};

class HostState {
 public:
  explicit HostState(HostRecords records);
  ~HostState();
  HostState(const HostState&) = delete;
  HostState& operator=(const HostState&) = delete;

  // Facts from the kernel.
  void linkIs(const LinkFacts& facts);
  void linkDel(int32_t ifIndex);
  // A bridge port's VLANs (AF_BRIDGE messages); a port leaving its bridge has none.
  void bridgePortIs(int32_t ifIndex, uint16_t pvid, bool taggedVlans);
  void bridgePortDel(int32_t ifIndex);
  void ip4Is(int32_t ifIndex, const Ip4Fact& fact);
  void ip4Del(int32_t ifIndex, const Arnet::IpAddrWithMask& addr);
  void ip6Is(int32_t ifIndex, const Arnet::Ip6AddrWithMask& addr);
  void ip6Del(int32_t ifIndex, const Arnet::Ip6AddrWithMask& addr);
  void forwardingIs(bool forwarding);

  // A resync: only facts from the dump replies count as seen (markingIs(true) while one is
  // applied); a notification queued before the dump may be stale. What a complete dump did not
  // report is gone from the kernel and is swept.
  void resyncBegins() { ++generation_; }
  void markingIs(bool marking) { marking_ = marking; }
  void sweepLinks();
  void sweepBridgePorts();
  void sweepIp4();
  void sweepIp6();

  // Operator settings.
  void intfSelectionIs(const IntfSelection& selection);
  const IntfSelection& intfSelection() const { return selection_; }
  void bridgeMacAddrOverrideIs(std::optional<Konet::EthAddr> addr);

  // Writes the records of everything that changed.
  void flush();
  // Called after a flush that removed the records of links gone from the kernel, with their
  // number.
  void linksGoneIs(std::function<void(size_t)> fn) { onLinksGone_ = std::move(fn); }

  const HostRecords& records() const { return records_; }
  const LinkFacts* link(int32_t ifIndex) const;
  const LinkFacts* linkNamed(const std::string& name) const;
  size_t links() const { return links_.size(); }
  // Interfaces whose records were written by the flushes so far (a measure of churn).
  uint64_t intfWrites() const { return intfWrites_; }

 private:
  struct LinkEntry {
    LinkFacts facts;
    uint64_t generation = 0;
    uint64_t bridgeGeneration = 0;
    Konet::EthAddr formerAddr;  // the address before the last change outside a LAG
    bool management = false;    // as last published
  };
  struct Ip4Entry {
    bool secondary = false;
    uint64_t generation = 0;
  };
  struct Addrs {
    std::map<Arnet::IpAddrWithMask, Ip4Entry> ip4;
    std::map<Arnet::Ip6AddrWithMask, uint64_t> ip6;
  };

  const LinkFacts* master(const LinkFacts& link) const;
  void linkChanged(int32_t ifIndex);
  void unpublish(const std::string& name);
  void publish(const LinkFacts& link);
  void publishPort(const LinkFacts& link, const Konet::IntfId& id, const LinkFacts* master);
  void publishLag(const LinkFacts& link, const Konet::IntfId& id);
  void publishSwitching(const LinkFacts& link, const Konet::IntfId& id, const LinkFacts* master);
  void publishIp(const LinkFacts& link, const Konet::IntfId& id, const LinkFacts* master, bool ip4);
  void publishGlobals();

  HostRecords records_;
  std::map<int32_t, LinkEntry> links_;
  std::map<int32_t, Addrs> addrs_;
  std::map<int32_t, std::string> published_;  // ifindex -> name its records are under
  std::set<int32_t> dirty_;
  bool globalsDirty_ = true;
  uint64_t generation_ = 1;
  bool marking_ = true;
  IntfSelection selection_;
  std::optional<Konet::EthAddr> bridgeMacOverride_;
  uint64_t intfWrites_ = 0;
  size_t linksGone_ = 0;  // since the last flush
  std::function<void(size_t)> onLinksGone_;
};

}  // namespace Linux
