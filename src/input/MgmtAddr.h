// Management-address selection: which IPv4 and IPv6 addresses the switch advertises, in which
// priority order, with the bridge-MAC address as the fallback.
//
// Decisions of the management-address, network-policy, external-TLV and PoE reactors:
// - The reserved source-interface priority is ManAddrPriority{sourceIntf, 0, 0, no interface}:
//   its type sorts before the type of every name-derived priority, so it heads the table
//   whatever the name-derived numbers are; the fallback uses the type that sorts last.
// - Of the interfaces recorded as skipped for an address, the one that sorts first by interface
//   id takes it over: the choice is deterministic and does not depend on arrival order.
// - A secondary address's secondary priority is its IPv4 address as a 32-bit number: unique
//   per interface, stable while other secondaries come and go, never 0 (the primary's), and it
//   lists secondaries in address order independent of configuration order.
// - The skip rule applies to secondary addresses as to primaries, take-over included, so that
//   one address is never advertised twice and never lost while an interface still carries it.
//   Secondaries are advertised only while their interface advertises its primary address.
// - An interface without a known interface index (negative) still advertises its address, with
//   interface numbering "unknown" and number 0, for IPv4 and IPv6 alike: the address is right,
//   only the numbering is not known yet, and a negative number may never be sent.
// - The fallback is listed only while no other address is advertised at all, the IPv6
//   management address included: withdrawing the IPv6 address brings it back, and removing the
//   last IPv4 address while an IPv6 one is advertised does not.
// - An IpIntfStatusSm exists while its interface has both an IPv4 status and an interface
//   status (which gives the interface index); it also follows the interface index.
// - PoE: granted power, class, state and negotiation support are read from the power
//   subsystem's PoePortStatus attributes grantedPower, poweredDeviceClass, poePortState and
//   lldpNegotiationSupported. PoeUtils::getType yields the raw two-bit 802.3at power type, so
//   codes 1 and 3 (bit 0 set) are the powered devices, 0 and 2 power sourcing equipment.
// - PoE: the requested power of a port is recomputed whenever that port's neighbours change and
//   again at the next change of the remote tables (a neighbour's values may be written after
//   it is added); one port's change never walks the other ports. A replaced PoE port status
//   record gets a new PoeAgentPortSm, which writes the new values at once.
// - Network policy follows every neighbour's networkPolicyTlv through a watch on each remote
//   system, so that a request is seen however the remote system was filled.
// - Network policy record: two configurations are equivalent when every field (tagged, VLAN,
//   priority, DSCP) is equal; toNetworkPolicyTlv carries those fields with "unknown policy" clear.
// - External TLVs: a client is an ExternalTlvConfig entry of the external-TLV directory, holding one
//   ExternalTlvPortConfig per interface with its TLVs keyed by UnknownOrgDefTlv::Key.
// - External TLVs: a client's record replaced under the same name is not reused; the error text
//   is traced and the client's reactor is re-created (its TLVs withdrawn, the new ones added).
//   A port whose LocalPort is (re)created gets every client's TLVs again, clients in name order.
#pragma once

#include <map>
#include <optional>
#include <set>

#include "input/LldpInputSm.h"
#include "platform/Reactor.h"
#include "records/AgentRecords.h"
#include "records/LldpRecords.h"

namespace Lldp::Agent::Input {

// The address with interface numbering by ifIndex; ifIndexValue must not be negative.
ManagementAddress makeManagementAddress(int32_t ifIndexValue, const ManagementAddress::Key& key);
ManagementAddress makeIp6ManagementAddress(int32_t ifIndexValue, const Arnet::Ip6Addr& addr);
ManagementAddress::Key ipv4ManagementAddressKey(const Arnet::IpAddr& addr);
ManagementAddress::Key ip6ManagementAddressKey(const Arnet::Ip6Addr& addr);

// The bridge-MAC fallback is in the priority table only while no other address is advertised.
void maybeAddFallbackManAddr(Root* root);
void removeFallbackManAddr(Root* root);

// Interfaces that carry an address another interface already advertises.
void addSkippedAddr(const ManagementAddress::Key& key, const Konet::IntfId& intf, Root* root);
void removeSkippedAddr(const ManagementAddress::Key& key, const Konet::IntfId& intf, Root* root);
// The address is no longer advertised: the next interface that carries it takes it over.
void handleSkippedManAddrs(const ManagementAddress::Key& key, Root* root);

// The smallest address of the interface that is not link-local, if any.
std::optional<Arnet::Ip6Addr> getStableIp6Addr(const Ip6::IntfStatus& ip6IntfStatus);
void clearIp6ManagementAddress(Root* root);

// The primary and secondary IPv4 addresses of one interface.
class IpIntfStatusSm : public Platform::Reactor {
 public:
  IpIntfStatusSm(Konet::IntfId intfId, Ip::IpIntfStatus::Ptr ipIntfStatus,
                 Interface::IntfStatus::Ptr intfStatus, Root* root);
  ~IpIntfStatusSm() override;

  void handleInitialized() override { handleActiveAddrWithMask(); }
  // Brings the advertised primary and secondary addresses in line with the interface's status.
  void handleActiveAddrWithMask();
  void handleSecondaryWithMask(const Arnet::IpAddrWithMask& addr);
  void handleVrf();
  void handleIfIndex();
  // Withdraws everything this interface advertises.
  void doClose();

  const Konet::IntfId& intfId() const { return intfId_; }
  const Ip::IpIntfStatus::Ptr& ipIntfStatus() const { return ipIntfStatus_; }
  const Interface::IntfStatus::Ptr& intfStatus() const { return intfStatus_; }
  const ManagementAddress& lastMgmtAddr() const { return lastMgmtAddr_; }
  bool lastMgmtAddrPresent() const { return lastMgmtAddrPresent_; }
  const VrfName& lastMgmtAddrVrf() const { return lastMgmtAddrVrf_; }
  const ManAddrPriority& lastMgmtAddrKeyPriority() const { return lastMgmtAddrKeyPriority_; }
  const std::map<Arnet::IpAddrWithMask, ManagementAddress>& secondaryMgmtAddr() const { return secondaryMgmtAddr_; }
  const std::map<Arnet::IpAddrWithMask, ManAddrPriority>& secondaryMgmtAddrKeyPriority() const {
    return secondaryMgmtAddrKeyPriority_;
  }
  bool isRoutedPortAddr() const { return isRoutedPortAddr_; }
  // Whether the primary address is in the tables (not skipped for another interface).
  bool advertised() const { return advertised_; }

 private:
  bool vrfMatches() const;
  ManagementAddress addressFor(const ManagementAddress::Key& key) const;
  void doMaybeDelOldMgmtAddr();
  void doMaybeAddNewMgmtAddr();
  void doAddMgmtAddr();
  void doRemoveMgmtAddr();
  void doMaybeAddSecMgmtAddrs();
  void doMaybeAddSecMgmtAddr(const Arnet::IpAddrWithMask& addr);
  void doRemoveSecMgmtAddr(const Arnet::IpAddrWithMask& addr);
  void doRemoveSecondaryMgmtAddrs();
  void secondaryMgmtAddrKeyPriorityIs(const Arnet::IpAddrWithMask& addr, const ManAddrPriority& priority) {
    secondaryMgmtAddrKeyPriority_[addr] = priority;
  }

  Konet::IntfId intfId_;
  Ip::IpIntfStatus::Ptr ipIntfStatus_;
  Interface::IntfStatus::Ptr intfStatus_;
  Root* root_;
  ManagementAddress lastMgmtAddr_;
  bool lastMgmtAddrPresent_ = false;
  VrfName lastMgmtAddrVrf_;
  ManAddrPriority lastMgmtAddrKeyPriority_;
  bool advertised_ = false;
  std::map<Arnet::IpAddrWithMask, ManagementAddress> secondaryMgmtAddr_;
  std::map<Arnet::IpAddrWithMask, ManAddrPriority> secondaryMgmtAddrKeyPriority_;
  std::set<Arnet::IpAddrWithMask> skippedSecondary_;
  bool isRoutedPortAddr_ = false;
  bool closing_ = false;
};

// The IPv6 status of the interface named for the IPv6 management address: its address changes
// re-run the IPv6 selection.
class Ip6IntfStatusSm : public Platform::Reactor {
 public:
  Ip6IntfStatusSm(Konet::IntfId intfId, Ip6::IntfStatus::Ptr ip6IntfStatus, InputSm* inputSm);
  void handleAddr();
  const Ip6::IntfStatus::Ptr& ip6IntfStatus() const { return ip6IntfStatus_; }

 private:
  Konet::IntfId intfId_;
  Ip6::IntfStatus::Ptr ip6IntfStatus_;
  InputSm* inputSm_;
};

}  // namespace Lldp::Agent::Input
