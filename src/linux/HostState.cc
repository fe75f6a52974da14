// Keeping the interface, address and bridging records in step with the kernel's facts.
#include "linux/HostState.h"

#include <algorithm>

namespace Linux {
namespace {

// Updates the member under the key in place, or publishes it once, filled.
template <class E, class Dir, class Find, class Insert, class Fill>
void upsert(Dir& dir, const Konet::IntfId& id, Find find, Insert insert, Fill fill) {
  if (Platform::Ptr<E> existing = (dir.*find)(id)) {
    fill(*existing);
    return;
  }
  Platform::Ptr<E> fresh = Platform::make<E>(id);
  fill(*fresh);
  (dir.*insert)(id, fresh);
}

bool ethernetKind(const Konet::IntfId::Numbering& n) {
  return n.kind == Konet::IntfId::Kind::ethernet || n.kind == Konet::IntfId::Kind::management;
}

}  // namespace

HostState::HostState(HostRecords records) : records_(std::move(records)) {
  if (records_.redundancyStatus) records_.redundancyStatus->modeIs(Redundancy::RedundancyMode::active);
  if (records_.cellInfoDir && !records_.cellInfoDir->entryHas(records_.cellId)) {
    auto cell = Platform::make<Hardware::CellInfo>(
        static_cast<uint32_t>(std::strtoul(records_.cellId.c_str(), nullptr, 10)));
    cell->cellTypeIs(Hardware::CellType::supervisor);
    records_.cellInfoDir->entryIs(records_.cellId, cell);
  }
}

HostState::~HostState() {
  for (const auto& [ifIndex, name] : published_) Konet::IntfPlatformTable::intfDel(name);
}

const LinkFacts* HostState::link(int32_t ifIndex) const {
  const auto it = links_.find(ifIndex);
  return it == links_.end() ? nullptr : &it->second.facts;
}

const LinkFacts* HostState::linkNamed(const std::string& name) const {
  for (const auto& [ifIndex, entry] : links_) {
    if (entry.facts.name == name) return &entry.facts;
  }
  return nullptr;
}

const LinkFacts* HostState::master(const LinkFacts& l) const {
  return l.master > 0 && l.master != l.ifIndex ? link(l.master) : nullptr;
}

// What depends on a link: its masters (membership) and its slaves (forwarding model, VRF).
void HostState::linkChanged(int32_t ifIndex) {
  dirty_.insert(ifIndex);
  globalsDirty_ = true;
  const LinkFacts* l = link(ifIndex);
  if (!l || l->kind.empty() || l->kind == "veth") return;
  for (const auto& [other, entry] : links_) {
    if (entry.facts.master == ifIndex) dirty_.insert(other);
  }
}

void HostState::linkIs(const LinkFacts& facts) {
  LinkEntry& entry = links_[facts.ifIndex];
  if (marking_) entry.generation = generation_;
  LinkFacts merged = facts;
  // The VLANs come from the bridge's own messages.
  merged.pvid = entry.facts.pvid;
  merged.taggedVlans = entry.facts.taggedVlans;
  // A member the kernel reports no permanent address for (a veth in a team: the team driver keeps
  // the original to itself) keeps the address it had before it joined, so members never share
  // the LAG's MAC. Some team modes give the port the team's MAC just before linking it.
  if (!isLagMember(entry.facts) && entry.facts.addr != merged.addr) entry.formerAddr = entry.facts.addr;
  if (isLagMember(merged) && merged.permAddr.isZero()) {
    const LinkFacts* lag = link(merged.master);
    if (isLagMember(entry.facts)) {
      merged.permAddr = entry.facts.permAddr;
    } else {
      merged.permAddr = lag && lag->addr == entry.facts.addr ? entry.formerAddr : entry.facts.addr;
    }
  }
  if (merged == entry.facts) return;
  if (entry.facts.master != merged.master) dirty_.insert(entry.facts.master);
  dirty_.insert(merged.master);
  entry.facts = std::move(merged);
  linkChanged(facts.ifIndex);
}

void HostState::linkDel(int32_t ifIndex) {
  const auto it = links_.find(ifIndex);
  if (it == links_.end()) return;
  dirty_.insert(it->second.facts.master);
  for (const auto& [other, entry] : links_) {
    if (entry.facts.master == ifIndex) dirty_.insert(other);
  }
  links_.erase(it);
  addrs_.erase(ifIndex);
  dirty_.insert(ifIndex);
  ++linksGone_;
  globalsDirty_ = true;
}

void HostState::bridgePortIs(int32_t ifIndex, uint16_t pvid, bool taggedVlans) {
  const auto it = links_.find(ifIndex);
  if (it == links_.end()) return;  // the link's own message comes first
  if (marking_) it->second.bridgeGeneration = generation_;
  LinkFacts& f = it->second.facts;
  if (f.pvid == pvid && f.taggedVlans == taggedVlans) return;
  f.pvid = pvid;
  f.taggedVlans = taggedVlans;
  linkChanged(ifIndex);
}

void HostState::bridgePortDel(int32_t ifIndex) { bridgePortIs(ifIndex, 0, false); }

void HostState::ip4Is(int32_t ifIndex, const Ip4Fact& fact) {
  auto [it, inserted] = addrs_[ifIndex].ip4.try_emplace(fact.addr, Ip4Entry{fact.secondary, 0});
  const bool changed = inserted || it->second.secondary != fact.secondary;
  it->second.secondary = fact.secondary;
  if (marking_) it->second.generation = generation_;
  if (changed) dirty_.insert(ifIndex);
}

void HostState::ip4Del(int32_t ifIndex, const Arnet::IpAddrWithMask& addr) {
  const auto it = addrs_.find(ifIndex);
  if (it == addrs_.end() || !it->second.ip4.erase(addr)) return;
  dirty_.insert(ifIndex);
}

void HostState::ip6Is(int32_t ifIndex, const Arnet::Ip6AddrWithMask& addr) {
  auto [it, inserted] = addrs_[ifIndex].ip6.try_emplace(addr, 0);
  if (marking_) it->second = generation_;
  if (inserted) dirty_.insert(ifIndex);
}

void HostState::ip6Del(int32_t ifIndex, const Arnet::Ip6AddrWithMask& addr) {
  const auto it = addrs_.find(ifIndex);
  if (it == addrs_.end() || !it->second.ip6.erase(addr)) return;
  dirty_.insert(ifIndex);
}

void HostState::forwardingIs(bool forwarding) {
  if (records_.routingConfig) records_.routingConfig->routingIs(forwarding);
}

void HostState::sweepLinks() {
  std::vector<int32_t> gone;
  for (const auto& [ifIndex, entry] : links_) {
    if (entry.generation < generation_) gone.push_back(ifIndex);
  }
  for (int32_t ifIndex : gone) linkDel(ifIndex);
}

void HostState::sweepBridgePorts() {
  for (auto& [ifIndex, entry] : links_) {
    if (entry.bridgeGeneration < generation_ && (entry.facts.pvid || entry.facts.taggedVlans)) {
      bridgePortIs(ifIndex, 0, false);
    }
  }
}

void HostState::sweepIp4() {
  for (auto& [ifIndex, a] : addrs_) {
    const size_t before = a.ip4.size();
    std::erase_if(a.ip4, [this](const auto& kv) { return kv.second.generation < generation_; });
    if (a.ip4.size() != before) dirty_.insert(ifIndex);
  }
}

void HostState::sweepIp6() {
  for (auto& [ifIndex, a] : addrs_) {
    const size_t before = a.ip6.size();
    std::erase_if(a.ip6, [this](const auto& kv) { return kv.second < generation_; });
    if (a.ip6.size() != before) dirty_.insert(ifIndex);
  }
}

void HostState::intfSelectionIs(const IntfSelection& selection) {
  if (selection == selection_) return;
  selection_ = selection;
  for (const auto& [ifIndex, entry] : links_) dirty_.insert(ifIndex);
  globalsDirty_ = true;
  flush();
}

void HostState::bridgeMacAddrOverrideIs(std::optional<Konet::EthAddr> addr) {
  bridgeMacOverride_ = addr;
  globalsDirty_ = true;
  flush();
}

void HostState::flush() {
  dirty_.erase(0);
  // Names first leave, then arrive: two links may swap their names in one batch.
  std::set<std::string> left;
  for (int32_t ifIndex : dirty_) {
    const auto pub = published_.find(ifIndex);
    if (pub == published_.end()) continue;
    const LinkFacts* l = link(ifIndex);
    if (l && l->name == pub->second) continue;
    unpublish(pub->second);
    left.insert(pub->second);
    published_.erase(pub);
  }
  // A name that left may already be another link's: one deleted and made again under the same
  // name while notifications were lost, filed by an earlier flush of the resync's dump before
  // the sweep found the old one gone. That link is published again under it.
  if (!left.empty()) {
    for (const auto& [ifIndex, name] : published_) {
      if (left.count(name)) dirty_.insert(ifIndex);
    }
  }
  for (int32_t ifIndex : dirty_) {
    if (const LinkFacts* l = link(ifIndex)) publish(*l);
  }
  dirty_.clear();
  if (globalsDirty_) publishGlobals();
  globalsDirty_ = false;
  if (linksGone_ != 0 && onLinksGone_) onLinksGone_(linksGone_);
  linksGone_ = 0;
}

void HostState::unpublish(const std::string& name) {
  const Konet::IntfId id(name);
  if (auto& r = records_.ethPhyIntfStatusDir) r->intfStatusDel(id);
  if (auto& r = records_.ethPhyIntfConfigDir) r->intfConfigDel(id);
  if (auto& r = records_.ethLagIntfStatusDir) r->intfStatusDel(id);
  if (auto& r = records_.bridgingConfig) r->switchIntfConfigDel(id);
  if (auto& r = records_.ipStatus) r->ipIntfStatusDel(id);
  if (auto& r = records_.ip6Status) r->intfDel(id);
  if (auto& r = records_.allIntfStatusDir) r->intfStatusDel(id);
  if (auto& r = records_.allIntfStatusLocalDir) r->intfStatusDel(id);
  if (auto& r = records_.kernelNetInfo) r->deviceDel(name);
  Konet::IntfPlatformTable::intfDel(name);
}

void HostState::publish(const LinkFacts& l) {
  ++intfWrites_;
  const LinkFacts* m = master(l);
  const Konet::IntfId::Numbering numbering = linkNumbering(l, m);
  LinkEntry& entry = links_[l.ifIndex];
  const bool management = numbering.kind == Konet::IntfId::Kind::management;
  if (published_.count(l.ifIndex) && entry.management != management) {
    // Into or out of the management VRF: the port's records are made again under the new
    // kind, which the agent reads when they appear.
    const Konet::IntfId before(l.name);
    if (auto& r = records_.ethPhyIntfStatusDir) r->intfStatusDel(before);
    if (auto& r = records_.ethPhyIntfConfigDir) r->intfConfigDel(before);
  }
  // The kind is known before any record under the name appears.
  Konet::IntfPlatformTable::intfIs(l.name, numbering);
  entry.management = management;
  published_[l.ifIndex] = l.name;
  const Konet::IntfId id(l.name);
  if (auto& r = records_.kernelNetInfo) r->deviceIs(l.name, KernelNetInfo::Device{l.ifIndex, l.addr});
  auto fillStatus = [&](Interface::IntfStatus& s) {
    s.ifIndexIs(l.ifIndex);
    s.operStatusIs(operStatusOf(l));
  };
  if (auto& r = records_.allIntfStatusDir) {
    upsert<Interface::IntfStatus>(*r, id, &Interface::AllIntfStatusDir::intfStatus<Konet::IntfId>,
                                  &Interface::AllIntfStatusDir::intfStatusInsert, fillStatus);
  }
  if (auto& r = records_.allIntfStatusLocalDir) {
    upsert<Interface::IntfStatus>(*r, id, &Interface::AllIntfStatusLocalDir::intfStatus<Konet::IntfId>,
                                  &Interface::AllIntfStatusLocalDir::intfStatusInsert, fillStatus);
  }
  publishPort(l, id, m);
  publishLag(l, id);
  publishSwitching(l, id, m);
  publishIp(l, id, m, ip4Published(numbering));
}

void HostState::publishPort(const LinkFacts& l, const Konet::IntfId& id, const LinkFacts* m) {
  const bool port = ethernetKind(id.numbering()) && selection_.selected(l.name);
  if (!port) {
    if (auto& r = records_.ethPhyIntfStatusDir) r->intfStatusDel(id);
    if (auto& r = records_.ethPhyIntfConfigDir) r->intfConfigDel(id);
    return;
  }
  if (auto& r = records_.ethPhyIntfStatusDir) {
    const LinkFacts* mm = m ? master(*m) : nullptr;
    upsert<Interface::EthPhyIntfStatus>(
        *r, id, &Interface::AllEthPhyIntfStatusDir::intfStatus<Konet::IntfId>,
        &Interface::AllEthPhyIntfStatusDir::intfStatusInsert, [&](Interface::EthPhyIntfStatus& s) {
          s.deviceNameIs(l.name);
          s.addrIs(portMacOf(l));
          s.maxMtuIs(l.mtu);
          s.forwardingModelIs(forwardingModelOf(l, m, mm));
          s.linkStatusIs(linkStatusOf(l));
        });
  }
  if (auto& r = records_.ethPhyIntfConfigDir) {
    upsert<Interface::EthPhyIntfConfig>(*r, id, &Interface::AllEthPhyIntfConfigDir::intfConfig<Konet::IntfId>,
                                        &Interface::AllEthPhyIntfConfigDir::intfConfigInsert,
                                        [&](Interface::EthPhyIntfConfig& c) {
                                          c.descriptionIs(l.alias);
                                          c.enabledIs(enabledOf(l));
                                        });
  }
}

void HostState::publishLag(const LinkFacts& l, const Konet::IntfId& id) {
  auto& r = records_.ethLagIntfStatusDir;
  if (!r) return;
  if (!isLag(l)) {
    r->intfStatusDel(id);
    return;
  }
  std::set<Konet::IntfId> members;
  for (const auto& [ifIndex, entry] : links_) {
    if (lagMemberOf(entry.facts, l)) members.insert(entry.facts.name);
  }
  upsert<Interface::EthLagIntfStatus>(*r, id, &Interface::EthLagIntfStatusDir::intfStatus<Konet::IntfId>,
                                      &Interface::EthLagIntfStatusDir::intfStatusInsert,
                                      [&](Interface::EthLagIntfStatus& lag) {
                                        std::vector<Konet::IntfId> gone;
                                        for (const auto& [member, on] : lag.member()) {
                                          if (!members.count(member)) gone.push_back(member);
                                        }
                                        for (const auto& member : gone) lag.memberDel(member);
                                        for (const auto& member : members) lag.memberIs(member, true);
                                      });
}

void HostState::publishSwitching(const LinkFacts& l, const Konet::IntfId& id, const LinkFacts* m) {
  auto& r = records_.bridgingConfig;
  if (!r) return;
  Bridging::SwitchportMode mode{};
  uint16_t nativeVlan = 0;
  if (!switchIntfConfigOf(l, m, mode, nativeVlan)) {
    r->switchIntfConfigDel(id);
    return;
  }
  upsert<Bridging::SwitchIntfConfig>(*r, id, &Bridging::Config::switchIntfConfig<Konet::IntfId>,
                                     &Bridging::Config::switchIntfConfigInsert, [&](Bridging::SwitchIntfConfig& c) {
                                       c.switchportModeIs(mode);
                                       c.nativeVlanIs(Bridging::VlanIdOrNone(nativeVlan));
                                     });
}

void HostState::publishIp(const LinkFacts& l, const Konet::IntfId& id, const LinkFacts* m, bool ip4) {
  const auto a = addrs_.find(l.ifIndex);
  const Addrs empty;
  const Addrs& addrs = a == addrs_.end() ? empty : a->second;
  if (auto& r = records_.ipStatus) {
    if (addrs.ip4.empty() || !ip4) {
      r->ipIntfStatusDel(id);
    } else {
      std::vector<Ip4Fact> sorted;
      sorted.reserve(addrs.ip4.size());
      for (const auto& [addr, e] : addrs.ip4) sorted.push_back({addr, e.secondary});
      const auto active = std::next(addrs.ip4.begin(), static_cast<std::ptrdiff_t>(activeIp4Of(sorted)));
      const Lldp::VrfName vrf(vrfNameOf(m));
      upsert<Ip::IpIntfStatus>(*r, id, &Ip::Status::ipIntfStatus<Konet::IntfId>, &Ip::Status::ipIntfStatusInsert,
                               [&](Ip::IpIntfStatus& s) {
                                 s.vrfIs(vrf);
                                 std::vector<Arnet::IpAddrWithMask> gone;
                                 for (const auto& [addr, on] : s.secondaryWithMask()) {
                                   if (addr == active->first || !addrs.ip4.count(addr)) gone.push_back(addr);
                                 }
                                 for (const auto& addr : gone) s.secondaryWithMaskDel(addr);
                                 s.activeAddrWithMaskIs(active->first);
                                 for (const auto& [addr, e] : addrs.ip4) {
                                   if (addr != active->first) s.secondaryWithMaskIs(addr, true);
                                 }
                               });
    }
  }
  if (auto& r = records_.ip6Status) {
    if (addrs.ip6.empty()) {
      r->intfDel(id);
    } else {
      upsert<Ip6::IntfStatus>(*r, id, &Ip6::Status::intf<Konet::IntfId>, &Ip6::Status::intfInsert,
                              [&](Ip6::IntfStatus& s) {
                                std::vector<Arnet::Ip6AddrWithMask> gone;
                                for (const auto& [addr, on] : s.addr()) {
                                  if (!addrs.ip6.count(addr)) gone.push_back(addr);
                                }
                                for (const auto& addr : gone) s.addrDel(addr);
                                for (const auto& [addr, g] : addrs.ip6) s.addrIs(addr, true);
                              });
    }
  }
}

void HostState::publishGlobals() {
  std::vector<const LinkFacts*> links, framePorts;
  links.reserve(links_.size());
  for (const auto& [ifIndex, entry] : links_) {
    links.push_back(&entry.facts);
    // Management ports advertise their own MTU; they must not lower everyone else's.
    if (isEthernetWire(entry.facts) && selection_.selected(entry.facts.name) && !entry.management) {
      framePorts.push_back(&entry.facts);
    }
  }
  const std::optional<Konet::EthAddr> chassisMac = chassisMacOf(links, bridgeMacOverride_);
  if (records_.bridgingConfig && chassisMac) records_.bridgingConfig->bridgeMacAddrIs(*chassisMac);
  if (records_.bridgingHwCapabilities) records_.bridgingHwCapabilities->maxFrameSizeIs(maxFrameSizeOf(framePorts));
}

}  // namespace Linux
