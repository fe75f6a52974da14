// The rows of the LLDP tables and LLDP-MIB's own objects.
#include "snmp/LldpMib.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "platform/Trace.h"

namespace Snmp {

namespace {

Platform::TraceFacility lldpMibTrace("LldpMib");

using Lldp::ManagementAddress;
using Lldp::RemoteSystem;

constexpr uint32_t kMaxPortListPort = 4096;

Oid lldpOid(std::initializer_list<SubId> tail) {
  Oid oid = lldpMibOid();
  oid.insert(oid.end(), tail);
  return oid;
}

uint64_t markKey(uint32_t port, int32_t index) { return (uint64_t{port} << 32) | static_cast<uint32_t>(index); }

Oid manAddrIndex(const ManagementAddress& addr) {
  Oid index{addr.addrSubtype()};
  appendString(index, addr.address().view());
  return index;
}

// An object identifier value: the empty one is served as zeroDotZero.
Value oidValue(const std::vector<uint32_t>& oid) {
  if (oid.empty()) return Value::objectId({0, 0});
  return Value::objectId(Oid(oid.begin(), oid.end()));
}


}  // namespace

const Oid& lldpMibOid() {
  static const Oid oid{1, 0, 8802, 1, 1, 2};
  return oid;
}

uint32_t MasterUptime::ticksAt(double time) const {
  const double t = static_cast<double>(ticks) + (time - agentTime) * 100.0;
  if (!(t > 0)) return 0;
  return t >= 4294967295.0 ? 4294967295u : static_cast<uint32_t>(t);
}

std::string bitsText(uint32_t value, int bits) {
  int highest = bits - 1;
  for (int i = 31; i > highest; --i) {
    if (value & (1u << i)) highest = i;
  }
  std::string out(static_cast<size_t>(std::max(highest, 0) / 8 + 1), '\0');
  for (int i = 0; i <= highest; ++i) {
    if (value & (1u << i)) out[static_cast<size_t>(i / 8)] = static_cast<char>(out[static_cast<size_t>(i / 8)] | (0x80 >> (i % 8)));
  }
  return out;
}

std::string bitText(uint32_t n) {
  std::string out(n / 8 + 1, '\0');
  out[n / 8] = static_cast<char>(0x80 >> (n % 8));
  return out;
}

Oid extensionOid(SubId oui, std::initializer_list<SubId> tail) {
  Oid oid = lldpOid({1, 5, oui, 1});
  oid.insert(oid.end(), tail);
  return oid;
}

const NeighbourEntry* NeighbourRows::parentAt(OidView head) const {
  if (const NeighbourEntry* exact = ParentRows<NeighbourEntry>::parentAt(head)) return exact;
  if (head.size() != 3) return nullptr;
  // Under an earlier time mark: rows are ordered by time mark first, so look the row up by the
  // rest (GETs are few; walks go by GETNEXT).
  for (const NeighbourEntry& n : parents()) {
    if (n.index[1] == head[1] && n.index[2] == head[2]) return head[0] <= n.index[0] ? &n : nullptr;
  }
  return nullptr;
}

std::string capabilitiesBits(const Lldp::SystemCapabilitiesMap& caps) { return bitsText(caps.value, 8); }

LldpMibData::LldpMibData(LldpMibRecords records, LldpMibSettings settings)
    : records_(std::move(records)), settings_(settings) {
  if (records_.config) watch<&LldpMibData::handleChange>(records_.config, Lldp::Config::portConfigAttr);
  if (records_.config) watch<&LldpMibData::handleChange>(records_.config, Lldp::Config::maxTxMgmtAddrsAttr);
  if (const auto& ls = records_.localSystem) {
    watch<&LldpMibData::handleChange>(ls, Lldp::LocalSystem::localPortAttr);
    watch<&LldpMibData::handleChange>(ls, Lldp::LocalSystem::managementAddressAttr);
    watch<&LldpMibData::handleChange>(ls, Lldp::LocalSystem::managementAddressPrioAttr);
    watch<&LldpMibData::handleChange>(ls, Lldp::LocalSystem::ip6ManagementAddressAttr);
  }
  if (const auto& st = records_.status) {
    watch<&LldpMibData::handlePortStatus>(st, Lldp::Status::portStatusAttr);
    // Set whenever a neighbour's information changes.
    watch<&LldpMibData::handleChange>(st, Lldp::Status::remTablesLastChangeTimeAttr);
  }
  if (records_.kernelNetInfo) {
    watch<&LldpMibData::handleChange>(records_.kernelNetInfo, KernelNetInfo::Status::deviceAttr);
  }
}

void LldpMibData::uptimeIs(const MasterUptime& uptime) {
  if (uptime == uptime_) return;
  uptime_ = uptime;
  // Time marks from another master's time line mean nothing now.
  marks_.clear();
  dirty_ = true;
}

const PortEntry* LldpMibData::port(uint32_t portNum) const {
  auto it = std::lower_bound(ports_.begin(), ports_.end(), portNum,
                             [](const PortEntry& p, uint32_t n) { return p.portNum < n; });
  return it != ports_.end() && it->portNum == portNum ? &*it : nullptr;
}

void LldpMibData::refresh() {
  if (dirty_) rebuild();
}

uint32_t LldpMibData::timeMarkOf(const PortEntry& port, const RemoteSystem& remote) {
  uint32_t mark = uptime_.ticksAt(remote.lastChangeTime());
  auto [it, added] = marks_.try_emplace(markKey(port.portNum, remote.index()), Mark{remote.lastChangeTime(), mark});
  if (added) return mark;
  Mark& known = it->second;
  if (known.lastChangeTime == remote.lastChangeTime()) return known.timeMark;
  if (mark <= known.timeMark && known.timeMark < UINT32_MAX) mark = known.timeMark + 1;
  known = Mark{remote.lastChangeTime(), mark};
  return mark;
}

void LldpMibData::rebuild() {
  dirty_ = false;
  ++rebuilds_;
  const auto& status = records_.status;
  if (watchPorts_ && status) {
    watchPorts_ = false;
    // A neighbour that comes or goes changes its port's table, not always the table-wide time.
    unwatchIf([](const Platform::Entity* e) { return dynamic_cast<const Lldp::PortStatus*>(e) != nullptr; });
    for (const auto& [intf, ps] : status->portStatus()) {
      watch<&LldpMibData::handleChange>(ps, Lldp::PortStatus::remoteSystemAttr);
    }
  }

  ports_.clear();
  std::unordered_set<std::string> named;
  const auto ifIndexOf = [&](const Konet::IntfId& intf) -> int32_t {
    if (!records_.kernelNetInfo) return 0;
    const auto* device = records_.kernelNetInfo->device().find(intf.name());
    return device ? device->ifIndex : 0;
  };
  const auto portEntry = [&](const Konet::IntfId& intf) {
    const int32_t ifIndex = ifIndexOf(intf);
    if (ifIndex <= 0 || !named.insert(intf.name()).second) return;
    PortEntry entry;
    entry.portNum = static_cast<uint32_t>(ifIndex);
    entry.index = {entry.portNum};
    entry.intfId = intf;
    if (records_.config) entry.config = records_.config->portConfig(intf);
    if (records_.localSystem) entry.local = records_.localSystem->localPort(intf);
    if (status) entry.status = status->portStatus(intf);
    ports_.push_back(std::move(entry));
  };
  if (records_.config) {
    for (const auto& [intf, pc] : records_.config->portConfig()) portEntry(intf);
  }
  if (status) {
    for (const auto& [intf, ps] : status->portStatus()) portEntry(intf);
  }
  std::sort(ports_.begin(), ports_.end(), [](const PortEntry& a, const PortEntry& b) { return a.portNum < b.portNum; });
  // Two names with one index (a rename caught half way) keep the first.
  ports_.erase(std::unique(ports_.begin(), ports_.end(),
                           [](const PortEntry& a, const PortEntry& b) { return a.portNum == b.portNum; }),
               ports_.end());

  neighbours_.clear();
  std::unordered_map<uint64_t, Mark> seen;
  for (const PortEntry& port : ports_) {
    if (!port.status) continue;
    for (const auto& [index, remote] : port.status->remoteSystem()) {
      const uint32_t mark = timeMarkOf(port, *remote);
      seen[markKey(port.portNum, index)] = marks_[markKey(port.portNum, index)];
      neighbours_.push_back(NeighbourEntry{{mark, port.portNum, static_cast<SubId>(index)}, &port, remote});
    }
  }
  marks_.swap(seen);
  std::sort(neighbours_.begin(), neighbours_.end(),
            [](const NeighbourEntry& a, const NeighbourEntry& b) { return compare(a.index, b.index) < 0; });

  localManAddrs_.clear();
  if (const auto& ls = records_.localSystem) {
    // The addresses the agent advertises: the IPv6 one, then the priority list up to the limit.
    const auto add = [&](const ManagementAddress& addr) {
      if (addr == ManagementAddress()) return;
      Oid index = manAddrIndex(addr);
      for (const LocManAddrEntry& e : localManAddrs_) {
        if (e.index == index) return;
      }
      localManAddrs_.push_back(LocManAddrEntry{std::move(index), addr});
    };
    add(ls->ip6ManagementAddress());
    uint32_t places = records_.config ? records_.config->maxTxMgmtAddrs() : 1;
    for (const auto& [prio, key] : ls->managementAddressPrio()) {
      if (places == 0) break;
      add(ls->managementAddress(key));
      --places;
    }
    std::sort(localManAddrs_.begin(), localManAddrs_.end(),
              [](const LocManAddrEntry& a, const LocManAddrEntry& b) { return compare(a.index, b.index) < 0; });
  }
  TRACE(lldpMibTrace, 6) << "rows rebuilt: " << ports_.size() << " ports, " << neighbours_.size() << " neighbours, "
                         << localManAddrs_.size() << " local addresses";
}

void addLldpMib(MibTree& tree, LldpMibData& data) {
  LldpMibData* d = &data;
  const auto config = [d]() -> const Lldp::Config* { return d->records().config.get(); };
  const auto status = [d]() -> const Lldp::Status* { return d->records().status.get(); };
  const auto local = [d]() -> const Lldp::LocalSystem* { return d->records().localSystem.get(); };
  tree.scalarIs(lldpOid({1, 1, 1}), [config]() -> std::optional<Value> {
    if (!config()) return std::nullopt;
    return Value::integer(static_cast<int32_t>(config()->messageTxInterval()));
  });
  tree.scalarIs(lldpOid({1, 1, 2}), [config]() -> std::optional<Value> {
    // The hold time as a multiple of the interval, within the MIB's 2 to 10.
    if (!config() || config()->messageTxInterval() == 0) return std::nullopt;
    const double multiple = std::round(double(config()->messageTxHoldTime()) / config()->messageTxInterval());
    return Value::integer(static_cast<int32_t>(std::clamp(multiple, 2.0, 10.0)));
  });
  tree.scalarIs(lldpOid({1, 1, 3}), [config]() -> std::optional<Value> {
    if (!config()) return std::nullopt;
    return Value::integer(static_cast<int32_t>(config()->reinitDelay()));
  });
  tree.scalarIs(lldpOid({1, 1, 4}), [config]() -> std::optional<Value> {
    if (!config()) return std::nullopt;
    return Value::integer(static_cast<int32_t>(config()->txDelay()));
  });
  tree.scalarIs(lldpOid({1, 1, 5}), [d]() -> std::optional<Value> {
    return Value::integer(static_cast<int32_t>(d->settings().notificationInterval));
  });

  // lldpPortConfigTable and the per-port statistics: every port.
  auto configured = std::make_shared<ParentRows<PortEntry>>(&data.ports(), [](const PortEntry& p) { return bool(p.config); });
  tree.tableIs(lldpOid({1, 1, 6, 1}), configured,
               {{2, [](const Row& r) -> std::optional<Value> {
                   return Value::integer(static_cast<int32_t>(portOf(r).config->adminStatus()));
                 }},
                {3, [d](const Row&) -> std::optional<Value> { return Value::truth(d->settings().notifications); }},
                {4, [](const Row& r) -> std::optional<Value> {
                   // portDesc(0), sysName(1), sysDesc(2), sysCap(3): the record's bits in that order.
                   return Value::octets(bitsText(portOf(r).config->enabledTlvs().value, 4));
                 }}});
  // lldpConfigManAddrTable augments lldpLocManAddrTable: the ports that send each address.
  auto locManAddrs = std::make_shared<ParentRows<LocManAddrEntry>>(&data.localManAddrs());
  tree.tableIs(lldpOid({1, 1, 7, 1}), locManAddrs,
               {{1, [d](const Row&) -> std::optional<Value> {
                   std::string list;
                   for (const PortEntry& p : d->ports()) {
                     if (p.portNum > kMaxPortListPort) break;
                     const size_t octet = (p.portNum - 1) / 8;
                     if (list.size() <= octet) list.resize(octet + 1, '\0');
                     if (p.config && p.config->mgmtAddrTxEnable() && p.config->adminStatus() != Lldp::AdminStatus::rxOnly &&
                         p.config->adminStatus() != Lldp::AdminStatus::disabled) {
                       list[octet] = static_cast<char>(list[octet] | (0x80 >> ((p.portNum - 1) % 8)));
                     }
                   }
                   return Value::octets(list);
                 }}});

  // lldpStatistics.
  tree.scalarIs(lldpOid({1, 2, 1}), [d, status]() -> std::optional<Value> {
    if (!status()) return std::nullopt;
    const double t = status()->remTablesLastChangeTime();
    return Value::timeTicks(t > 0 ? d->uptime().ticksAt(t) : 0);
  });
  const auto tableCounter = [status](uint32_t (*get)(const Lldp::Status&)) -> ScalarFn {
    return [status, get]() -> std::optional<Value> {
      if (!status()) return std::nullopt;
      return Value::gauge32(get(*status()));
    };
  };
  tree.scalarIs(lldpOid({1, 2, 2}), tableCounter([](const Lldp::Status& s) { return s.remTablesInserts(); }));
  tree.scalarIs(lldpOid({1, 2, 3}), tableCounter([](const Lldp::Status& s) { return s.remTablesDeletes(); }));
  tree.scalarIs(lldpOid({1, 2, 4}), tableCounter([](const Lldp::Status& s) { return s.remTablesDrops(); }));
  tree.scalarIs(lldpOid({1, 2, 5}), tableCounter([](const Lldp::Status& s) { return s.remTablesAgeouts(); }));
  auto withStatus = std::make_shared<ParentRows<PortEntry>>(&data.ports(), [](const PortEntry& p) { return bool(p.status); });
  const auto portCounter = [](uint32_t (*get)(const Lldp::PortStatus&), bool gauge) -> ColumnFn {
    return [get, gauge](const Row& r) -> std::optional<Value> {
      const uint32_t v = get(*portOf(r).status);
      return gauge ? Value::gauge32(v) : Value::counter32(v);
    };
  };
  tree.tableIs(lldpOid({1, 2, 6, 1}), withStatus,
               {{2, portCounter([](const Lldp::PortStatus& s) { return s.txFramesTotal(); }, false)}});
  tree.tableIs(lldpOid({1, 2, 7, 1}), withStatus,
               {{2, portCounter([](const Lldp::PortStatus& s) { return s.rxFramesDiscardedTotal(); }, false)},
                {3, portCounter([](const Lldp::PortStatus& s) { return s.rxFramesErrors(); }, false)},
                {4, portCounter([](const Lldp::PortStatus& s) { return s.rxFramesTotal(); }, false)},
                {5, portCounter([](const Lldp::PortStatus& s) { return s.rxTLVsDiscardedTotal(); }, false)},
                {6, portCounter([](const Lldp::PortStatus& s) { return s.rxTLVsUnrecognizedTotal(); }, false)},
                {7, portCounter([](const Lldp::PortStatus& s) { return s.rxAgeoutsTotal(); }, true)}});

  // lldpLocalSystemData.
  tree.scalarIs(lldpOid({1, 3, 1}), [local]() -> std::optional<Value> {
    if (!local() || local()->chassisIdentifier().isDefault()) return std::nullopt;
    return Value::integer(local()->chassisIdentifier().subtype);
  });
  tree.scalarIs(lldpOid({1, 3, 2}), [local]() -> std::optional<Value> {
    if (!local() || local()->chassisIdentifier().isDefault()) return std::nullopt;
    return Value::octets(local()->chassisIdentifier().value.view());
  });
  tree.scalarIs(lldpOid({1, 3, 3}), [local]() -> std::optional<Value> {
    if (!local()) return std::nullopt;
    return Value::octets(local()->sysName().view());
  });
  tree.scalarIs(lldpOid({1, 3, 4}), [local]() -> std::optional<Value> {
    if (!local()) return std::nullopt;
    return Value::octets(local()->sysDesc().view());
  });
  tree.scalarIs(lldpOid({1, 3, 5}), [local]() -> std::optional<Value> {
    if (!local()) return std::nullopt;
    return Value::octets(capabilitiesBits(local()->sysCapSupported()));
  });
  tree.scalarIs(lldpOid({1, 3, 6}), [local]() -> std::optional<Value> {
    if (!local()) return std::nullopt;
    return Value::octets(capabilitiesBits(local()->sysCapEnabled()));
  });
  auto localPorts = std::make_shared<ParentRows<PortEntry>>(&data.ports(), [](const PortEntry& p) {
    return p.local && !p.local->portIdentifier().isDefault();
  });
  tree.tableIs(lldpOid({1, 3, 7, 1}), localPorts,
               {{2, [](const Row& r) -> std::optional<Value> {
                   return Value::integer(portOf(r).local->portIdentifier().subtype);
                 }},
                {3, [](const Row& r) -> std::optional<Value> {
                   return Value::octets(portOf(r).local->portIdentifier().value.view());
                 }},
                {4, [](const Row& r) -> std::optional<Value> { return Value::octets(portOf(r).local->portDesc().view()); }}});
  const auto locAddr = [](const Row& r) -> const ManagementAddress& {
    return static_cast<const LocManAddrEntry*>(r.parent)->addr;
  };
  tree.tableIs(lldpOid({1, 3, 8, 1}), locManAddrs,
               {{3, [locAddr](const Row& r) -> std::optional<Value> { return Value::integer(locAddr(r).manAddrLen()); }},
                {4, [locAddr](const Row& r) -> std::optional<Value> { return Value::integer(locAddr(r).ifSubtype()); }},
                {5, [locAddr](const Row& r) -> std::optional<Value> { return Value::integer(locAddr(r).ifId()); }},
                {6, [locAddr](const Row& r) -> std::optional<Value> { return oidValue(locAddr(r).oid()); }}});

  // lldpRemoteSystemsData.
  auto remotes = std::make_shared<NeighbourRows>(&data.neighbours());
  tree.tableIs(
      lldpOid({1, 4, 1, 1}), remotes,
      {{4, [](const Row& r) -> std::optional<Value> { return Value::integer(remoteOf(r).msap().chassisIdentifier.subtype); }},
       {5, [](const Row& r) -> std::optional<Value> { return Value::octets(remoteOf(r).msap().chassisIdentifier.value.view()); }},
       {6, [](const Row& r) -> std::optional<Value> { return Value::integer(remoteOf(r).msap().portIdentifier.subtype); }},
       {7, [](const Row& r) -> std::optional<Value> { return Value::octets(remoteOf(r).msap().portIdentifier.value.view()); }},
       {8, [](const Row& r) -> std::optional<Value> { return Value::octets(remoteOf(r).portDesc().view()); }},
       {9, [](const Row& r) -> std::optional<Value> { return Value::octets(remoteOf(r).sysName().view()); }},
       {10, [](const Row& r) -> std::optional<Value> { return Value::octets(remoteOf(r).sysDesc().view()); }},
       {11, [](const Row& r) -> std::optional<Value> { return Value::octets(capabilitiesBits(remoteOf(r).sysCapSupported())); }},
       {12, [](const Row& r) -> std::optional<Value> { return Value::octets(capabilitiesBits(remoteOf(r).sysCapEnabled())); }}});

  auto remManAddrs = std::make_shared<NeighbourRows>(
      &data.neighbours(), [](const NeighbourEntry& n) { return n.remote->managementAddresss() > 0; },
      [](const NeighbourEntry& n, NeighbourRows::Members& out) {
        for (const auto& [key, addr] : n.remote->managementAddress()) out.push_back({manAddrIndex(addr), &addr, 0});
      });
  const auto remAddr = [](const Row& r) -> const ManagementAddress& { return *static_cast<const ManagementAddress*>(r.member); };
  tree.tableIs(lldpOid({1, 4, 2, 1}), remManAddrs,
               {{3, [remAddr](const Row& r) -> std::optional<Value> { return Value::integer(remAddr(r).ifSubtype()); }},
                {4, [remAddr](const Row& r) -> std::optional<Value> { return Value::integer(remAddr(r).ifId()); }},
                {5, [remAddr](const Row& r) -> std::optional<Value> { return oidValue(remAddr(r).oid()); }}});

  auto unknownTlvs = std::make_shared<NeighbourRows>(
      &data.neighbours(), [](const NeighbourEntry& n) { return n.remote->unknownTlvs() > 0; },
      [](const NeighbourEntry& n, NeighbourRows::Members& out) {
        for (const auto& [type, tlv] : n.remote->unknownTlv()) out.push_back({{type}, &tlv, 0});
      });
  tree.tableIs(lldpOid({1, 4, 3, 1}), unknownTlvs,
               {{2, [](const Row& r) -> std::optional<Value> {
                   return Value::octets(static_cast<const Lldp::UnknownTlv*>(r.member)->value().view());
                 }}});

  auto orgDefs = std::make_shared<NeighbourRows>(
      &data.neighbours(), [](const NeighbourEntry& n) { return n.remote->unknownOrgDefTlvs() > 0; },
      [](const NeighbourEntry& n, NeighbourRows::Members& out) {
        for (const auto& [key, tlv] : n.remote->unknownOrgDefTlv()) {
          // The OUI is a fixed-size string: its three octets, without a length.
          const uint32_t oui = key.oui().value;
          out.push_back({{(oui >> 16) & 0xff, (oui >> 8) & 0xff, oui & 0xff, key.subtype(), key.index()}, &tlv, 0});
        }
      });
  tree.tableIs(lldpOid({1, 4, 4, 1}), orgDefs,
               {{4, [](const Row& r) -> std::optional<Value> {
                   return Value::octets(static_cast<const Lldp::UnknownOrgDefTlv*>(r.member)->value.view());
                 }}});
}

LldpMib::LldpMib(LldpMibRecords records, LldpMibSettings settings)
    : data_(Platform::makeReactor<LldpMibData>(std::move(records), settings)) {
  addLldpMib(tree_, *data_);
  addLldpDot1Mib(tree_, *data_);
  addLldpDot3Mib(tree_, *data_);
  addLldpMedMib(tree_, *data_);
}

}  // namespace Snmp
