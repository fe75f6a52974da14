// The decisions of the Linux mapping table, on kernel facts already parsed.
#include "linux/HostMapping.h"

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_arp.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <sstream>

namespace Linux {
namespace {

using Kind = Konet::IntfId::Kind;
using Numbering = Konet::IntfId::Numbering;

bool startsWith(const std::string& s, const char* prefix) { return s.rfind(prefix, 0) == 0; }

// Numbers from the ifindex when the name gives none in band: ports count from 1.
Numbering ethernetFromIndex(int32_t ifIndex) {
  const uint32_t i = static_cast<uint32_t>(std::max(ifIndex, 1) - 1);
  Numbering n{Kind::ethernet};
  n.module = std::min(i / Konet::IntfId::kMaxEthernetPort, Konet::IntfId::kMaxModule);
  n.port = i % Konet::IntfId::kMaxEthernetPort + 1;
  return n;
}

Numbering managementFromIndex(int32_t ifIndex) {
  const uint32_t i = static_cast<uint32_t>(std::max(ifIndex, 0));
  const uint32_t perModule = Konet::IntfId::kMaxManagementPort + 1;
  Numbering n{Kind::management};
  n.module = std::min(i / perModule, Konet::IntfId::kMaxModule);
  n.port = i % perModule;
  return n;
}

Numbering numbered(Kind kind, uint32_t number) {
  Numbering n{kind};
  n.number = number;
  return n;
}

// The name's numbering when it names the same kind inside the band.
bool nameFits(const LinkFacts& link, Kind kind, Numbering& out) {
  const Numbering byName = Konet::IntfId(link.name).nameNumbering();
  if (byName.kind != kind || !Konet::IntfId::inBand(byName)) return false;
  out = byName;
  out.unconnected = false;
  return true;
}

}  // namespace

bool isEthernetWire(const LinkFacts& link) {
  return link.arpType == ARPHRD_ETHER && (link.kind.empty() || link.kind == "veth");
}

bool isPhysicalNic(const LinkFacts& link) { return link.arpType == ARPHRD_ETHER && link.kind.empty(); }
bool isBridge(const LinkFacts& link) { return link.kind == "bridge"; }
bool isLag(const LinkFacts& link) { return link.kind == "bond" || link.kind == "team"; }
bool isVrf(const LinkFacts& link) { return link.kind == "vrf"; }
bool isLagMember(const LinkFacts& link) { return link.slaveKind == "bond" || link.slaveKind == "team"; }

Interface::OperStatus operStatusOf(const LinkFacts& link) {
  return linkStatusOf(link) == Interface::LinkStatus::linkUp ? Interface::OperStatus::up : Interface::OperStatus::down;
}

bool enabledOf(const LinkFacts& link) { return (link.flags & IFF_UP) != 0; }

std::string vrfNameOf(const LinkFacts* master) { return master && isVrf(*master) ? master->name : "default"; }

bool ip4Published(const Konet::IntfId::Numbering& numbering) { return numbering.kind != Kind::other; }

bool lagMemberOf(const LinkFacts& link, const LinkFacts& lag) {
  return link.master == lag.ifIndex && isEthernetWire(link);
}

std::optional<Konet::EthAddr> chassisMacOf(const std::vector<const LinkFacts*>& links,
                                           std::optional<Konet::EthAddr> configured) {
  if (configured) return configured;
  const LinkFacts* nic = nullptr;
  const LinkFacts* wire = nullptr;
  for (const LinkFacts* l : links) {
    if (isBridge(*l) && l->vlanFiltering && !l->addr.isZero()) return l->addr;
    if (!isEthernetWire(*l)) continue;
    if (!nic && isPhysicalNic(*l)) nic = l;
    if (!wire) wire = l;
  }
  auto stableMac = [](const LinkFacts& l) { return l.permAddr.isZero() ? l.addr : l.permAddr; };
  if (nic) return stableMac(*nic);
  if (wire) return stableMac(*wire);
  return std::nullopt;
}

uint16_t maxFrameSizeOf(const std::vector<const LinkFacts*>& ports) {
  uint16_t size = 0;
  for (const LinkFacts* l : ports) size = size ? std::min(size, frameSizeOf(*l)) : frameSizeOf(*l);
  return size ? size : 1518;
}

size_t activeIp4Of(const std::vector<Ip4Fact>& addrs) {
  const auto primary = std::find_if(addrs.begin(), addrs.end(), [](const Ip4Fact& a) { return !a.secondary; });
  return primary == addrs.end() ? 0 : static_cast<size_t>(primary - addrs.begin());
}

Numbering linkNumbering(const LinkFacts& link, const LinkFacts* master) {
  Numbering n;
  if (link.arpType == ARPHRD_LOOPBACK || link.kind == "dummy") {
    if (nameFits(link, Kind::loopback, n)) return n;
    return numbered(Kind::loopback, static_cast<uint32_t>(std::max(link.ifIndex, 0)));
  }
  if (isLag(link)) {
    if (nameFits(link, Kind::portChannel, n)) return n;
    return numbered(Kind::portChannel, static_cast<uint32_t>(std::max(link.ifIndex, 0)));
  }
  if (link.kind == "vlan") return numbered(Kind::vlan, link.vlanId);
  if (isBridge(link)) return numbered(Kind::vlan, link.defaultPvid);
  if (!isEthernetWire(link)) return Numbering{Kind::other};
  const bool management = startsWith(link.name, "mgmt") || startsWith(link.name, "Management") ||
                          (master && isVrf(*master) && master->name == "mgmt");
  if (management) {
    if (nameFits(link, Kind::management, n)) return n;
    return managementFromIndex(link.ifIndex);
  }
  if (nameFits(link, Kind::ethernet, n)) return n;
  return ethernetFromIndex(link.ifIndex);
}

Interface::LinkStatus linkStatusOf(const LinkFacts& link) {
  using S = Interface::LinkStatus;
  switch (link.operState) {
    case IF_OPER_UP: return S::linkUp;
    case IF_OPER_DOWN:
    case IF_OPER_LOWERLAYERDOWN:
    case IF_OPER_NOTPRESENT:
    case IF_OPER_DORMANT: return S::linkDown;
    case IF_OPER_UNKNOWN: return (link.flags & IFF_UP) && (link.flags & IFF_RUNNING) ? S::linkUp : S::linkDown;
    default: return S::unknown;
  }
}

Interface::ForwardingModel forwardingModelOf(const LinkFacts& link, const LinkFacts* master,
                                             const LinkFacts* masterOfMaster) {
  (void)link;
  auto bridging = [](const LinkFacts* m) { return m && (isBridge(*m) || m->kind == "openvswitch"); };
  if (bridging(master)) return Interface::ForwardingModel::bridged;
  if (master && isLag(*master) && bridging(masterOfMaster)) return Interface::ForwardingModel::bridged;
  return Interface::ForwardingModel::routed;
}

Konet::EthAddr portMacOf(const LinkFacts& link) {
  if (isLagMember(link) && !link.permAddr.isZero()) return link.permAddr;
  return link.addr;
}

bool switchIntfConfigOf(const LinkFacts& link, const LinkFacts* master, Bridging::SwitchportMode& mode,
                        uint16_t& nativeVlan) {
  if (!master || !isBridge(*master)) return false;
  const bool vlanAware = master->vlanFiltering;
  mode = vlanAware && link.taggedVlans ? Bridging::SwitchportMode::trunk : Bridging::SwitchportMode::access;
  nativeVlan = vlanAware && link.pvid <= Konet::IntfId::kMaxVlan ? link.pvid : 0;
  return true;
}

uint16_t frameSizeOf(const LinkFacts& link) {
  return static_cast<uint16_t>(std::min<uint32_t>(link.mtu + 18, 65535));
}

bool ip4Counts(uint8_t scope) { return scope == RT_SCOPE_UNIVERSE; }

bool ip6Counts(uint8_t scope, uint32_t flags) {
  const uint32_t notCounted = IFA_F_TENTATIVE | IFA_F_DADFAILED | IFA_F_DEPRECATED | IFA_F_TEMPORARY;
  return scope == RT_SCOPE_UNIVERSE && !(flags & notCounted);
}

void netStatusOf(const char* nodeName, const char* domainName, std::string& hostname, std::string& domain) {
  hostname = nodeName ? nodeName : "";
  domain = domainName ? domainName : "";
  if (domain == "(none)") domain.clear();
}

std::string systemDescriptionOf(const std::string& prettyName, const std::string& release,
                                const std::string& machine) {
  std::string text = prettyName.empty() ? "Linux" : prettyName + " Linux";
  if (!release.empty()) text += " " + release;
  if (!machine.empty()) text += " " + machine;
  return text;
}

std::string osReleasePrettyName(const std::string& osRelease) {
  std::istringstream in(osRelease);
  std::string line;
  while (std::getline(in, line)) {
    if (!startsWith(line, "PRETTY_NAME=")) continue;
    std::string value = line.substr(12);
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front()) {
      value = value.substr(1, value.size() - 2);
    }
    return value;
  }
  return {};
}

}  // namespace Linux
