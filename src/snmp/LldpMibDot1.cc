// LLDP-EXT-DOT1-MIB over the agent's records. Locally the agent advertises the port VLAN ID
// only, so the local protocol VLAN, VLAN name and protocol tables (and the configuration
// tables that augment them) have no rows.
#include "snmp/LldpMib.h"

namespace Snmp {

namespace {

constexpr SubId kDot1 = 32962;  // 00-80-C2

Value vlan(const Bridging::VlanIdOrNone& v) { return Value::integer(v.value()); }

}  // namespace

void addLldpDot1Mib(MibTree& tree, LldpMibData& data) {
  // lldpXdot1ConfigPortVlanTable augments lldpPortConfigTable.
  auto configured = std::make_shared<PortRows>(&data.ports(), [](const PortEntry& p) { return bool(p.config); });
  tree.tableIs(extensionOid(kDot1, {1, 1, 1}), configured,
               {{1, [](const Row& r) -> std::optional<Value> { return Value::truth(portOf(r).config->portVlanTxEnable()); }}});
  auto local = std::make_shared<PortRows>(&data.ports(), [](const PortEntry& p) { return bool(p.local); });
  tree.tableIs(extensionOid(kDot1, {2, 1, 1}), local,
               {{1, [](const Row& r) -> std::optional<Value> { return vlan(portOf(r).local->portVlanId()); }}});

  auto remotes = std::make_shared<NeighbourRows>(
      &data.neighbours(), [](const NeighbourEntry& n) { return n.remote->portVlanIdTlvReceived(); });
  tree.tableIs(extensionOid(kDot1, {3, 1, 1}), remotes,
               {{1, [](const Row& r) -> std::optional<Value> { return vlan(remoteOf(r).portVlanId()); }}});

  auto protoVlans = std::make_shared<NeighbourRows>(
      &data.neighbours(), [](const NeighbourEntry& n) { return n.remote->portAndProtocolVlans() > 0; },
      [](const NeighbourEntry& n, NeighbourRows::Members& out) {
        for (const auto& [id, v] : n.remote->portAndProtocolVlan()) out.push_back({{id}, &v, 0});
      });
  tree.tableIs(extensionOid(kDot1, {3, 2, 1}), protoVlans,
               {{2, [](const Row& r) -> std::optional<Value> { return Value::truth(memberOf<Lldp::PortAndProtocolVlan>(r).supported); }},
                {3, [](const Row& r) -> std::optional<Value> { return Value::truth(memberOf<Lldp::PortAndProtocolVlan>(r).enabled); }}});

  auto vlanNames = std::make_shared<NeighbourRows>(
      &data.neighbours(), [](const NeighbourEntry& n) { return n.remote->vlanNames() > 0; },
      [](const NeighbourEntry& n, NeighbourRows::Members& out) {
        for (const auto& [id, v] : n.remote->vlanName()) out.push_back({{id}, &v, 0});
      });
  tree.tableIs(extensionOid(kDot1, {3, 3, 1}), vlanNames,
               {{2, [](const Row& r) -> std::optional<Value> { return Value::octets(memberOf<Lldp::VlanName>(r).name.view()); }}});

  auto protocols = std::make_shared<NeighbourRows>(
      &data.neighbours(), [](const NeighbourEntry& n) { return n.remote->protocolIdentityInfos() > 0; },
      [](const NeighbourEntry& n, NeighbourRows::Members& out) {
        for (const auto& [index, v] : n.remote->protocolIdentityInfo()) out.push_back({{index}, &v, 0});
      });
  tree.tableIs(extensionOid(kDot1, {3, 4, 1}), protocols,
               {{2, [](const Row& r) -> std::optional<Value> {
                   return Value::octets(memberOf<Lldp::ProtocolIdentityInfo>(r).identity().view());
                 }}});
}

}  // namespace Snmp
