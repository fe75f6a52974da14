// Management-address selection: per-interface IPv4 addresses with skipping and take-over,
// secondaries, VRF, the bridge-MAC fallback, and the one IPv6 management address.
#include "input/MgmtAddr.h"

#include <vector>

#include "platform/Assert.h"

namespace Lldp::Agent::Input {

namespace {

const ManagementAddress nullManagementAddress{};

// A negative ifIndex may not be sent: such an address goes out unnumbered until it is known.
ManagementAddress numberedAddress(int32_t ifIndexValue, const ManagementAddress::Key& key) {
  if (ifIndexValue < 0) return ManagementAddress(key, ifNumberingUnknown, 0);
  return makeManagementAddress(ifIndexValue, key);
}

}  // namespace

ManagementAddress makeManagementAddress(int32_t ifIndexValue, const ManagementAddress::Key& key) {
  LLDP_ASSERT(ifIndexValue >= 0 && "pre-condition: validate ifIndexValue");
  return ManagementAddress(key, ifNumberingIfIndex, ifIndexValue);
}

ManagementAddress::Key ipv4ManagementAddressKey(const Arnet::IpAddr& addr) {
  const auto bytes = addr.bytes();
  return ManagementAddress::Key{afIpv4, ManAddress(bytes.data(), bytes.size())};
}

ManagementAddress::Key ip6ManagementAddressKey(const Arnet::Ip6Addr& addr) {
  return ManagementAddress::Key{afIpv6, ManAddress(addr.bytes.data(), addr.bytes.size())};
}

ManagementAddress makeIp6ManagementAddress(int32_t ifIndexValue, const Arnet::Ip6Addr& addr) {
  return makeManagementAddress(ifIndexValue, ip6ManagementAddressKey(addr));
}

void maybeAddFallbackManAddr(Root* root) {
  const LocalSystem::Ptr& localSystem = root->localSystem();
  if (!localSystem || !root->fallbackManagementAddressKeyPresent()) return;
  if (localSystem->managementAddressPrioHas(fallbackManAddrPriority())) return;
  if (localSystem->managementAddressPrios() != 0) return;
  if (!(localSystem->ip6ManagementAddress() == nullManagementAddress)) return;
  const ManagementAddress::Key& key = root->fallbackManagementAddressKey();
  if (!localSystem->managementAddressHas(key)) return;
  TRACE(inputSmTrace, 6) << "Adding fallback management address";
  localSystem->managementAddressPrioIs(fallbackManAddrPriority(), key);
}

void removeFallbackManAddr(Root* root) {
  const LocalSystem::Ptr& localSystem = root->localSystem();
  if (!localSystem || !localSystem->managementAddressPrioHas(fallbackManAddrPriority())) return;
  TRACE(inputSmTrace, 6) << "Deleting fallback management address";
  localSystem->managementAddressPrioDel(fallbackManAddrPriority());
}

void addSkippedAddr(const ManagementAddress::Key& key, const Konet::IntfId& intf, Root* root) {
  root->skippedAddrIs(key)->intfIs(intf, true);
}

void removeSkippedAddr(const ManagementAddress::Key& key, const Konet::IntfId& intf, Root* root) {
  const SkippedAddr::Ptr entry = root->skippedAddr(key);
  if (!entry) return;
  entry->intfDel(intf);
  if (entry->intfs() == 0) root->skippedAddrDel(key);
}

void handleSkippedManAddrs(const ManagementAddress::Key& key, Root* root) {
  const SkippedAddr::Ptr entry = root->skippedAddr(key);
  InputSm* inputSm = root->inputSm();
  if (!entry || !inputSm) return;
  const LocalSystem::Ptr& localSystem = root->localSystem();
  while (entry->intfs() != 0 && !localSystem->managementAddressHas(key)) {
    const Konet::IntfId intf = entry->intf().begin().key();
    if (IpIntfStatusSm* sm = inputSm->ipIntfStatusSm(intf)) {
      TRACE(inputSmTrace, 6) << "IpIntfStatusSm::TakingOver " << key << " by " << intf;
      sm->handleActiveAddrWithMask();
    }
    // An interface that did not take the address no longer carries it: it leaves the set, so
    // that the walk ends.
    if (!localSystem->managementAddressHas(key)) removeSkippedAddr(key, intf, root);
  }
}

std::optional<Arnet::Ip6Addr> getStableIp6Addr(const Ip6::IntfStatus& ip6IntfStatus) {
  std::optional<Arnet::Ip6Addr> best;
  for (auto it = ip6IntfStatus.addr().begin(); it != ip6IntfStatus.addr().end(); ++it) {
    const Arnet::Ip6Addr& addr = it.key().addr;
    if (addr.isLinkLocal()) continue;
    if (!best || addr < *best) best = addr;
  }
  return best;
}

void clearIp6ManagementAddress(Root* root) {
  const LocalSystem::Ptr& localSystem = root->localSystem();
  if (!localSystem || localSystem->ip6ManagementAddress() == nullManagementAddress) return;
  TRACE(inputSmTrace, 6) << "clearing ipv6 management address "
                         << localSystem->ip6ManagementAddress().key();
  localSystem->ip6ManagementAddressIs(nullManagementAddress);
  maybeAddFallbackManAddr(root);
}

IpIntfStatusSm::IpIntfStatusSm(Konet::IntfId intfId, Ip::IpIntfStatus::Ptr ipIntfStatus,
                               Interface::IntfStatus::Ptr intfStatus, Root* root)
    : intfId_(std::move(intfId)), ipIntfStatus_(std::move(ipIntfStatus)), intfStatus_(std::move(intfStatus)),
      root_(root) {
  isRoutedPortAddr_ = intfId_.isEthernet();
  intfNameToVlanIdAndManAddrPriority(intfId_, nullptr, &lastMgmtAddrKeyPriority_);
  watch<&IpIntfStatusSm::handleActiveAddrWithMask>(ipIntfStatus_, Ip::IpIntfStatus::activeAddrWithMaskAttr);
  watch<&IpIntfStatusSm::handleSecondaryWithMask>(ipIntfStatus_, Ip::IpIntfStatus::secondaryWithMaskAttr);
  watch<&IpIntfStatusSm::handleVrf>(ipIntfStatus_, Ip::IpIntfStatus::vrfAttr);
  watch<&IpIntfStatusSm::handleIfIndex>(intfStatus_, Interface::IntfStatus::ifIndexAttr);
}

IpIntfStatusSm::~IpIntfStatusSm() { doClose(); }

void IpIntfStatusSm::doClose() {
  TRACE(inputSmTrace, 8) << "IpIntfStatusSm::doClose( " << intfId_ << " )";
  closing_ = true;
  unwatchAll();
  if (lastMgmtAddrPresent_) doRemoveMgmtAddr();
}

bool IpIntfStatusSm::vrfMatches() const {
  const Status::Ptr& status = root_->status();
  return status && ipIntfStatus_->vrf() == status->mgmtAddrVrf();
}

ManagementAddress IpIntfStatusSm::addressFor(const ManagementAddress::Key& key) const {
  return numberedAddress(ifIndexVal(intfId_, root_), key);
}

void IpIntfStatusSm::handleActiveAddrWithMask() {
  TRACE(inputSmTrace, 8) << "IpIntfStatusSm::handleActiveAddrWithMask( " << intfId_ << " )";
  if (closing_) return;
  doMaybeDelOldMgmtAddr();
  doMaybeAddNewMgmtAddr();
  doMaybeAddSecMgmtAddrs();
}

void IpIntfStatusSm::handleSecondaryWithMask(const Arnet::IpAddrWithMask& addr) {
  TRACE(inputSmTrace, 8) << "IpIntfStatusSm::handleSecondaryWithMask( " << intfId_ << ", " << addr << " )";
  if (closing_) return;
  doMaybeAddSecMgmtAddrs();
}

void IpIntfStatusSm::handleVrf() {
  TRACE(inputSmTrace, 8) << "IpIntfStatusSm::handleVrf( " << intfId_ << " ) " << ipIntfStatus_->vrf();
  handleActiveAddrWithMask();
}

void IpIntfStatusSm::handleIfIndex() { handleActiveAddrWithMask(); }

void IpIntfStatusSm::doMaybeDelOldMgmtAddr() {
  if (!lastMgmtAddrPresent_) return;
  const Arnet::IpAddr& active = ipIntfStatus_->activeAddrWithMask().addr;
  const bool keep = !active.isZero() && vrfMatches() && ipIntfStatus_->vrf() == lastMgmtAddrVrf_ &&
                    ipv4ManagementAddressKey(active) == lastMgmtAddr_.key();
  if (!keep) doRemoveMgmtAddr();
}

void IpIntfStatusSm::doMaybeAddNewMgmtAddr() {
  const Arnet::IpAddr& active = ipIntfStatus_->activeAddrWithMask().addr;
  if (active.isZero() || !vrfMatches()) return;
  const ManagementAddress::Key key = ipv4ManagementAddressKey(active);
  const ManagementAddress addr = addressFor(key);
  const LocalSystem::Ptr& localSystem = root_->localSystem();
  if (lastMgmtAddrPresent_ && advertised_) {
    // Already ours: only the interface numbering may have changed.
    if (!(lastMgmtAddr_ == addr)) {
      lastMgmtAddr_ = addr;
      localSystem->managementAddressIs(key, addr);
    }
    return;
  }
  lastMgmtAddr_ = addr;
  lastMgmtAddrPresent_ = true;
  lastMgmtAddrVrf_ = ipIntfStatus_->vrf();
  // The address moved from secondary to primary: it is handled as the primary from now on (a
  // skipped secondary's record in skippedAddr stays, now for the primary).
  for (auto it = skippedSecondary_.begin(); it != skippedSecondary_.end(); ++it) {
    if (ipv4ManagementAddressKey(it->addr) == key) {
      skippedSecondary_.erase(it);
      break;
    }
  }
  for (const auto& [secondary, secAddr] : secondaryMgmtAddr_) {
    if (secAddr.key() == key) {
      doRemoveSecMgmtAddr(secondary);
      break;
    }
  }
  if (localSystem->managementAddressHas(key)) {
    TRACE(inputSmTrace, 6) << "IpIntfStatusSm::Skipping " << key << " on " << intfId_;
    addSkippedAddr(key, intfId_, root_);
    return;
  }
  doAddMgmtAddr();
}

void IpIntfStatusSm::doAddMgmtAddr() {
  const LocalSystem::Ptr& localSystem = root_->localSystem();
  const ManagementAddress::Key key = lastMgmtAddr_.key();
  removeFallbackManAddr(root_);
  TRACE(inputSmTrace, 6) << "IpIntfStatusSm::Adding " << key << " to VRF " << lastMgmtAddrVrf_;
  localSystem->managementAddressIs(key, lastMgmtAddr_);
  const bool named = lastMgmtAddrKeyPriority_ == root_->sourceIntfNamePriority();
  localSystem->managementAddressPrioIs(named ? reservedSourceIntfPriority() : lastMgmtAddrKeyPriority_, key);
  advertised_ = true;
  removeSkippedAddr(key, intfId_, root_);
}

void IpIntfStatusSm::doRemoveMgmtAddr() {
  const ManagementAddress::Key key = lastMgmtAddr_.key();
  const bool wasAdvertised = advertised_;
  lastMgmtAddrPresent_ = false;
  advertised_ = false;
  if (!wasAdvertised) {
    removeSkippedAddr(key, intfId_, root_);
    doRemoveSecondaryMgmtAddrs();
    return;
  }
  const LocalSystem::Ptr& localSystem = root_->localSystem();
  // The transmit option may have moved the address under the reserved priority meanwhile.
  if (localSystem->managementAddressPrio(lastMgmtAddrKeyPriority_) == key) {
    localSystem->managementAddressPrioDel(lastMgmtAddrKeyPriority_);
  } else if (localSystem->managementAddressPrio(reservedSourceIntfPriority()) == key) {
    localSystem->managementAddressPrioDel(reservedSourceIntfPriority());
  }
  localSystem->managementAddressDel(key);
  TRACE(inputSmTrace, 6) << "IpIntfStatusSm::Removing " << key << " from VRF " << lastMgmtAddrVrf_;
  doRemoveSecondaryMgmtAddrs();
  maybeAddFallbackManAddr(root_);
  handleSkippedManAddrs(key, root_);
}

void IpIntfStatusSm::doMaybeAddSecMgmtAddrs() {
  std::set<Arnet::IpAddrWithMask> wanted;
  if (advertised_) {
    const ManagementAddress::Key primary = lastMgmtAddr_.key();
    for (auto it = ipIntfStatus_->secondaryWithMask().begin(); it != ipIntfStatus_->secondaryWithMask().end(); ++it) {
      const Arnet::IpAddrWithMask& secondary = it.key();
      if (secondary.addr.isZero() || ipv4ManagementAddressKey(secondary.addr) == primary) continue;
      wanted.insert(secondary);
    }
  }
  std::vector<Arnet::IpAddrWithMask> gone;
  for (const auto& [secondary, addr] : secondaryMgmtAddr_) {
    if (!wanted.count(secondary)) gone.push_back(secondary);
  }
  for (const Arnet::IpAddrWithMask& secondary : skippedSecondary_) {
    if (!wanted.count(secondary)) gone.push_back(secondary);
  }
  for (const Arnet::IpAddrWithMask& secondary : gone) doRemoveSecMgmtAddr(secondary);
  const LocalSystem::Ptr& localSystem = root_->localSystem();
  for (const Arnet::IpAddrWithMask& secondary : wanted) {
    auto found = secondaryMgmtAddr_.find(secondary);
    if (found == secondaryMgmtAddr_.end()) {
      // A skipped secondary is tried again once nobody else advertises it (take-over).
      if (skippedSecondary_.count(secondary)) {
        if (localSystem->managementAddressHas(ipv4ManagementAddressKey(secondary.addr))) continue;
        skippedSecondary_.erase(secondary);
      }
      doMaybeAddSecMgmtAddr(secondary);
      continue;
    }
    const ManagementAddress addr = addressFor(found->second.key());
    if (found->second == addr) continue;
    found->second = addr;
    localSystem->managementAddressIs(addr.key(), addr);
  }
}

void IpIntfStatusSm::doMaybeAddSecMgmtAddr(const Arnet::IpAddrWithMask& secondary) {
  const ManagementAddress::Key key = ipv4ManagementAddressKey(secondary.addr);
  const LocalSystem::Ptr& localSystem = root_->localSystem();
  if (localSystem->managementAddressHas(key)) {
    TRACE(inputSmTrace, 6) << "IpIntfStatusSm::Skipping " << key << " on " << intfId_;
    skippedSecondary_.insert(secondary);
    addSkippedAddr(key, intfId_, root_);
    return;
  }
  ManAddrPriority priority = lastMgmtAddrKeyPriority_;
  priority.secondaryPriority = secondary.addr.value;
  secondaryMgmtAddrKeyPriorityIs(secondary, priority);
  const ManagementAddress addr = addressFor(key);
  secondaryMgmtAddr_[secondary] = addr;
  TRACE(inputSmTrace, 6) << "IpIntfStatusSm::Adding " << key << " to VRF " << lastMgmtAddrVrf_;
  localSystem->managementAddressIs(key, addr);
  localSystem->managementAddressPrioIs(priority, key);
  removeSkippedAddr(key, intfId_, root_);
}

void IpIntfStatusSm::doRemoveSecMgmtAddr(const Arnet::IpAddrWithMask& secondary) {
  const ManagementAddress::Key key = ipv4ManagementAddressKey(secondary.addr);
  if (skippedSecondary_.erase(secondary)) {
    removeSkippedAddr(key, intfId_, root_);
    return;
  }
  auto found = secondaryMgmtAddr_.find(secondary);
  if (found == secondaryMgmtAddr_.end()) return;
  secondaryMgmtAddr_.erase(found);
  const ManAddrPriority priority = secondaryMgmtAddrKeyPriority_[secondary];
  secondaryMgmtAddrKeyPriority_.erase(secondary);
  const LocalSystem::Ptr& localSystem = root_->localSystem();
  if (localSystem->managementAddressPrio(priority) == key) localSystem->managementAddressPrioDel(priority);
  localSystem->managementAddressDel(key);
  TRACE(inputSmTrace, 6) << "IpIntfStatusSm::Removing " << key << " from VRF " << lastMgmtAddrVrf_;
  handleSkippedManAddrs(key, root_);
}

void IpIntfStatusSm::doRemoveSecondaryMgmtAddrs() {
  std::vector<Arnet::IpAddrWithMask> all;
  for (const auto& [secondary, addr] : secondaryMgmtAddr_) all.push_back(secondary);
  all.insert(all.end(), skippedSecondary_.begin(), skippedSecondary_.end());
  for (const Arnet::IpAddrWithMask& secondary : all) doRemoveSecMgmtAddr(secondary);
}

Ip6IntfStatusSm::Ip6IntfStatusSm(Konet::IntfId intfId, Ip6::IntfStatus::Ptr ip6IntfStatus, InputSm* inputSm)
    : intfId_(std::move(intfId)), ip6IntfStatus_(std::move(ip6IntfStatus)), inputSm_(inputSm) {
  watch<&Ip6IntfStatusSm::handleAddr>(ip6IntfStatus_, Ip6::IntfStatus::addrAttr);
}

void Ip6IntfStatusSm::handleAddr() { inputSm_->handleIp6ManagementAddress(); }

void InputSm::handleIntfStatusOrIpIntfStatus(const Konet::IntfId& intf) {
  TRACE(inputSmTrace, 8) << "InputSm::handleIntfStatusOrIpIntfStatus( " << intf << " )";
  const Ip::IpIntfStatus::Ptr ipIntfStatus = ipStatus_ ? ipStatus_->ipIntfStatus(intf) : nullptr;
  const Interface::IntfStatus::Ptr intfStatus = allIntfStatusDir_ ? allIntfStatusDir_->intfStatus(intf) : nullptr;
  if (!ipIntfStatus || !intfStatus) {
    ipIntfStatusSmDel(intf);
  } else {
    IpIntfStatusSm* sm = ipIntfStatusSm(intf);
    if (sm && (sm->ipIntfStatus() != ipIntfStatus || sm->intfStatus() != intfStatus)) ipIntfStatusSmDel(intf);
    if (!ipIntfStatusSmHas(intf)) ipIntfStatusSmIs(intf, ipIntfStatus, intfStatus, root_);
  }
  // The IPv6 address is numbered with the named interface's index.
  if (intf == cliConfig_->ip6MgmtAddrIntfName()) handleIp6ManagementAddress();
}

void InputSm::doSyncMgmtAddrVrf() {
  ipIntfStatusSmForEach([](const Konet::IntfId&, IpIntfStatusSm& sm) { sm.handleVrf(); });
}

void InputSm::handleIp6IntfStatus(const Konet::IntfId& intf) {
  TRACE(inputSmTrace, 8) << "InputSm::handleIp6IntfStatus( " << intf << " )";
  if (intf != cliConfig_->ip6MgmtAddrIntfName()) return;
  handleIp6ManagementAddress();
}

void InputSm::handleIp6ManagementAddress() {
  TRACE(inputSmTrace, 8) << "InputSm::handleIp6ManagementAddress()";
  const Konet::IntfId named = cliConfig_->ip6MgmtAddrIntfName();
  const Ip6::IntfStatus::Ptr ip6IntfStatus = (ip6Status_ && !named.empty()) ? ip6Status_->intf(named) : nullptr;
  // Only the named interface's addresses are watched.
  std::vector<Konet::IntfId> stale;
  ip6IntfStatusForEach([&](const Konet::IntfId& intf, Ip6IntfStatusSm& sm) {
    if (intf != named || sm.ip6IntfStatus() != ip6IntfStatus) stale.push_back(intf);
  });
  for (const Konet::IntfId& intf : stale) ip6IntfStatusDel(intf);
  if (ip6IntfStatus) ip6IntfStatusIs(named, ip6IntfStatus, this);

  if (named.empty()) {
    clearIp6ManagementAddress(root_);
    return;
  }
  if (!ip6IntfStatus) {
    TRACE(inputSmTrace, 6) << named << " not found";
    clearIp6ManagementAddress(root_);
    return;
  }
  const std::optional<Arnet::Ip6Addr> addr = getStableIp6Addr(*ip6IntfStatus);
  if (!addr) {
    TRACE(inputSmTrace, 6) << named << " has no ipv6 address";
    clearIp6ManagementAddress(root_);
    return;
  }
  const int32_t ifIndex = ifIndexVal(named, root_);
  ManagementAddress manAddr;
  if (ifIndex < 0) {
    TRACE(inputSmTrace, 6) << named << ": status not found";
    manAddr = numberedAddress(ifIndex, ip6ManagementAddressKey(*addr));
  } else {
    manAddr = makeIp6ManagementAddress(ifIndex, *addr);
  }
  LLDP_ASSERT(manAddr != nullManagementAddress);
  TRACE(inputSmTrace, 6) << "new ipv6 management address " << manAddr.key();
  root_->localSystem()->ip6ManagementAddressIs(manAddr);
  removeFallbackManAddr(root_);
}

}  // namespace Lldp::Agent::Input
