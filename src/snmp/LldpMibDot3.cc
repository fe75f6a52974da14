// LLDP-EXT-DOT3-MIB over the agent's records. The local tables hold what the agent advertises:
// power via MDI where it sends it, link aggregation and maximum frame size where enabled; it
// sends no MAC/PHY configuration, so the local port table has no rows.
#include "snmp/LldpMib.h"

#include <cstdint>

#include "codec/PoeUtils.h"

namespace Snmp {

namespace {

constexpr SubId kDot3 = 4623;  // 00-12-0F

// LldpLinkAggStatusMap: aggCapable(0), aggEnabled(1).
Value linkAggStatus(const Lldp::LinkAggregationInfo& lag) { return Value::octets(bitsText(lag.status & 0x3, 2)); }

// The MIB's ranges hold less than the TLVs carry: a value outside them is absent rather than
// served out of range.
std::optional<Value> linkAggPortId(uint32_t portId) {
  if (portId > INT32_MAX) return std::nullopt;
  return Value::integer(static_cast<int32_t>(portId));
}
std::optional<Value> powerPairs(uint8_t pairs) {  // signal(1), spare(2)
  if (pairs != 1 && pairs != 2) return std::nullopt;
  return Value::integer(pairs);
}
std::optional<Value> powerClass(uint8_t powerClass) {  // class 0 to 4 as 1 to 5
  if (powerClass < 1 || powerClass > 5) return std::nullopt;
  return Value::integer(powerClass);
}

// The first octets of the Power Via MDI TLV the agent sends on the port.
struct LocalPower {
  uint8_t support = 0;
  uint8_t pairs = 0;
  uint8_t powerClass = 0;
};

std::optional<LocalPower> localPower(const PortEntry& p) {
  if (!p.local || !p.config || !p.config->dot3EnabledTlvs().powerViaMdi()) return std::nullopt;
  const Lldp::LocalPortPoeInfo* poe = p.local->localPortPoeInfo().get();
  if (!PoeUtils::canWeSendPowerViaMdiTlv(poe)) return std::nullopt;
  uint8_t octets[16] = {};
  PoeUtils::buildPowerViaMdiTlv(octets, *poe, false);
  return LocalPower{octets[0], octets[1], octets[2]};
}

}  // namespace

void addLldpDot3Mib(MibTree& tree, LldpMibData& data) {
  auto configured = std::make_shared<PortRows>(&data.ports(), [](const PortEntry& p) { return bool(p.config); });
  tree.tableIs(extensionOid(kDot3, {1, 1, 1}), configured,
               {{1, [](const Row& r) -> std::optional<Value> {
                   // macPhyConfigStatus(0), powerViaMDI(1), linkAggregation(2), maxFrameSize(3): the
                   // record's bits in that order.
                   return Value::octets(bitsText(portOf(r).config->dot3EnabledTlvs().value, 4));
                 }}});

  auto power = std::make_shared<PortRows>(&data.ports(), [](const PortEntry& p) { return localPower(p).has_value(); });
  const auto powerColumn = [](auto get) -> ColumnFn {
    return [get](const Row& r) -> std::optional<Value> { return get(*localPower(portOf(r))); };
  };
  tree.tableIs(extensionOid(kDot3, {2, 2, 1}), power,
               {{1, powerColumn([](const LocalPower& p) { return Value::integer(p.support & 0x1 ? 1 : 2); })},
                {2, powerColumn([](const LocalPower& p) { return Value::truth(p.support & 0x2); })},
                {3, powerColumn([](const LocalPower& p) { return Value::truth(p.support & 0x4); })},
                {4, powerColumn([](const LocalPower& p) { return Value::truth(p.support & 0x8); })},
                {5, [](const Row& r) { return powerPairs(localPower(portOf(r))->pairs); }},
                {6, [](const Row& r) { return powerClass(localPower(portOf(r))->powerClass); }}});
  auto linkAgg = std::make_shared<PortRows>(&data.ports(), [](const PortEntry& p) {
    return p.local && p.config && p.config->dot3EnabledTlvs().linkAggregation();
  });
  tree.tableIs(extensionOid(kDot3, {2, 3, 1}), linkAgg,
               {{1, [](const Row& r) -> std::optional<Value> { return linkAggStatus(portOf(r).local->linkAggregationInfo()); }},
                {2, [](const Row& r) { return linkAggPortId(portOf(r).local->linkAggregationInfo().portId); }}});
  auto frameSize = std::make_shared<PortRows>(&data.ports(), [](const PortEntry& p) {
    return p.local && p.config && p.config->dot3EnabledTlvs().maxFrameSize();
  });
  tree.tableIs(extensionOid(kDot3, {2, 4, 1}), frameSize,
               {{1, [](const Row& r) -> std::optional<Value> { return Value::integer(portOf(r).local->maximumFrameSizeInfo().value); }}});

  auto macPhy = std::make_shared<NeighbourRows>(
      &data.neighbours(), [](const NeighbourEntry& n) { return n.remote->macPhyConfigStatusTlvReceived(); });
  const auto macPhyOf = [](const Row& r) -> const Lldp::MacPhyConfigStatusInfo& { return remoteOf(r).macPhyConfigStatusInfo(); };
  tree.tableIs(extensionOid(kDot3, {3, 1, 1}), macPhy,
               {{1, [macPhyOf](const Row& r) -> std::optional<Value> { return Value::truth(macPhyOf(r).autoNegSupported); }},
                {2, [macPhyOf](const Row& r) -> std::optional<Value> { return Value::truth(macPhyOf(r).autoNegEnabled); }},
                {3, [macPhyOf](const Row& r) -> std::optional<Value> {
                   // The two octets as received.
                   const uint16_t cap = macPhyOf(r).autoNegAdvertisedCap;
                   const char octets[2] = {static_cast<char>(cap >> 8), static_cast<char>(cap & 0xff)};
                   return Value::octets(std::string_view(octets, 2));
                 }},
                {4, [macPhyOf](const Row& r) -> std::optional<Value> { return Value::integer(macPhyOf(r).operMauType); }}});

  auto remPower = std::make_shared<NeighbourRows>(
      &data.neighbours(), [](const NeighbourEntry& n) { return n.remote->powerViaMdiTlvReceived(); });
  const auto powerOf = [](const Row& r) -> const Lldp::PowerViaMdiInfo& { return remoteOf(r).powerViaMdiInfo(); };
  tree.tableIs(extensionOid(kDot3, {3, 2, 1}), remPower,
               {{1, [powerOf](const Row& r) -> std::optional<Value> { return Value::integer(powerOf(r).portClass); }},
                {2, [powerOf](const Row& r) -> std::optional<Value> { return Value::truth(powerOf(r).pseMdiPowerSupported); }},
                {3, [powerOf](const Row& r) -> std::optional<Value> { return Value::truth(powerOf(r).pseMdiPowerEnabled); }},
                {4, [powerOf](const Row& r) -> std::optional<Value> { return Value::truth(powerOf(r).psePairsControlAbility); }},
                {5, [powerOf](const Row& r) { return powerPairs(powerOf(r).psePowerPair); }},
                {6, [powerOf](const Row& r) { return powerClass(powerOf(r).powerClass); }}});

  auto remLinkAgg = std::make_shared<NeighbourRows>(
      &data.neighbours(), [](const NeighbourEntry& n) { return n.remote->linkAggregationTlvReceived(); });
  tree.tableIs(extensionOid(kDot3, {3, 3, 1}), remLinkAgg,
               {{1, [](const Row& r) -> std::optional<Value> { return linkAggStatus(remoteOf(r).linkAggregationInfo()); }},
                {2, [](const Row& r) { return linkAggPortId(remoteOf(r).linkAggregationInfo().portId); }}});
  auto remFrameSize = std::make_shared<NeighbourRows>(
      &data.neighbours(), [](const NeighbourEntry& n) { return n.remote->maximumFrameSizeTlvReceived(); });
  tree.tableIs(extensionOid(kDot3, {3, 4, 1}), remFrameSize,
               {{1, [](const Row& r) -> std::optional<Value> { return Value::integer(remoteOf(r).maximumFrameSizeInfo().value); }}});
}

}  // namespace Snmp
