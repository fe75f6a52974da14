// LLDP-EXT-MED-MIB over the agent's records. Locally the agent advertises its capabilities and
// network policies (to neighbours that speak LLDP-MED); it sends no inventory, location or
// extended power, so those local objects are absent. A neighbour's extended power comes from
// the TLV as the agent keeps it, among its organisationally specific TLVs.
#include "snmp/LldpMib.h"

namespace Snmp {

namespace {

constexpr SubId kMed = 4795;  // 00-12-BB
constexpr uint8_t kExtendedPowerSubtype = 4;

// PolicyAppType names application types 0 to 8: a policy of another type has no row.
constexpr uint8_t kMaxPolicyAppType = 8;

// Network policy rows: the application type as BITS with its one bit set.
Oid policyIndex(uint8_t appType) {
  Oid index;
  appendString(index, bitText(appType));
  return index;
}

ColumnFn policyColumns(SubId column) {
  return [column](const Row& r) -> std::optional<Value> {
    const auto& p = memberOf<Lldp::NetworkPolicyTlv>(r);
    switch (column) {
      case 2: return Value::integer(p.vlanId);
      case 3: return Value::integer(p.l2Priority);
      case 4: return Value::integer(p.dscp);
      case 5: return Value::truth(p.unknownPolicy);
      case 6: return Value::truth(p.tagged);
      default: return std::nullopt;
    }
  };
}

std::vector<std::pair<SubId, ColumnFn>> policyTable() {
  std::vector<std::pair<SubId, ColumnFn>> columns;
  for (SubId c = 2; c <= 6; ++c) columns.emplace_back(c, policyColumns(c));
  return columns;
}

// The neighbour's Extended Power-via-MDI TLV: power type, source and priority, then the power
// value in tenths of a watt.
struct ExtendedPower {
  uint8_t type = 0;      // 0 PSE, 1 PD
  uint8_t source = 0;    // 2 bits
  uint8_t priority = 0;  // 4 bits
  uint16_t value = 0;
};

std::optional<ExtendedPower> extendedPower(const Lldp::RemoteSystem& rs) {
  for (const auto& [key, tlv] : rs.unknownOrgDefTlv()) {
    if (key.oui() != Lldp::kOuiTia || key.subtype() != kExtendedPowerSubtype || tlv.value.size() < 3) continue;
    const auto* b = reinterpret_cast<const uint8_t*>(tlv.value.data());
    return ExtendedPower{static_cast<uint8_t>(b[0] >> 6), static_cast<uint8_t>((b[0] >> 4) & 0x3),
                         static_cast<uint8_t>(b[0] & 0xf), static_cast<uint16_t>(b[1] << 8 | b[2])};
  }
  return std::nullopt;
}

// unknown(1), critical(2), high(3), low(4).
Value powerPriority(uint8_t priority) { return Value::integer(priority <= 3 ? priority + 1 : 1); }

bool anyInventory(const Lldp::RemoteSystem& rs) {
  return !rs.hardwareRevisionTlvInfo().empty() || !rs.firmwareRevisionTlvInfo().empty() ||
         !rs.softwareRevisionTlvInfo().empty() || !rs.serialNumberTlvInfo().empty() ||
         !rs.manufacturerNameTlvInfo().empty() || !rs.modelNameTlvInfo().empty() || !rs.assetIDTlvInfo().empty();
}

// The location data of one format as it came in the TLV.
std::string coordinateOctets(const Lldp::LocationId::CoordinateLci& c) {
  std::string out(16, '\0');
  size_t bit = 0;
  const auto put = [&](uint64_t value, int width) {
    for (int i = width - 1; i >= 0; --i, ++bit) {
      if ((value >> i) & 1) out[bit / 8] = static_cast<char>(out[bit / 8] | (0x80 >> (bit % 8)));
    }
  };
  put(c.latitudeResolution, 6);
  put(static_cast<uint64_t>(c.latitude), 34);
  put(c.longitudeResolution, 6);
  put(static_cast<uint64_t>(c.longitude), 34);
  put(c.altitudeType, 4);
  put(c.altitudeResolution, 6);
  put(static_cast<uint64_t>(static_cast<int64_t>(c.altitude)), 30);
  put(c.datum, 8);
  return out;
}

std::string civicOctets(const Lldp::LocationId::CivicAddressLCI& c) {
  std::string elements;
  for (const auto& e : c.caElements) {
    elements += static_cast<char>(e.caType);
    elements += static_cast<char>(e.caValue.size());
    elements += e.caValue;
  }
  std::string out;
  out += static_cast<char>(std::min<size_t>(3 + elements.size(), 255));
  out += static_cast<char>(c.what);
  std::string country(c.countryCode.view());
  country.resize(2, '\0');
  return out + country + elements;
}

}  // namespace

void addLldpMedMib(MibTree& tree, LldpMibData& data) {
  LldpMibData* d = &data;
  tree.scalarIs(extensionOid(kMed, {1, 1}), [d]() -> std::optional<Value> {
    // One device class for the system: the one its ports advertise.
    for (const PortEntry& p : d->ports()) {
      if (p.local && p.local->medCapabilities().deviceType != 0) return Value::integer(p.local->medCapabilities().deviceType);
    }
    return std::nullopt;
  });
  auto configured = std::make_shared<PortRows>(&data.ports(), [](const PortEntry& p) { return p.config && p.local; });
  tree.tableIs(extensionOid(kMed, {1, 2, 1}), configured,
               {{1, [](const Row& r) -> std::optional<Value> {
                   return Value::octets(bitsText(portOf(r).local->medCapabilities().capabilities, 6));
                 }},
                {2, [](const Row& r) -> std::optional<Value> {
                   // capabilities, networkPolicy, location, extended power, inventory: the record's
                   // bits, with extended power as extendedPSE (the agent sends power as a PSE).
                   const uint8_t tia = portOf(r).config->tiaEnabledTlvs().value;
                   const uint32_t bits = (tia & 0x0f) | ((tia & 0x10) ? 0x20u : 0u);
                   return Value::octets(bitsText(bits, 6));
                 }},
                {3, [](const Row&) -> std::optional<Value> { return Value::truth(false); }}});
  auto localPolicies = std::make_shared<PortRows>(
      &data.ports(), [](const PortEntry& p) { return p.local && p.local->localNetworkPolicyTlvs() > 0; },
      [](const PortEntry& p, PortRows::Members& out) {
        for (const auto& [app, policy] : p.local->localNetworkPolicyTlv()) {
          if (app <= kMaxPolicyAppType) out.push_back({policyIndex(app), &policy, 0});
        }
      });
  tree.tableIs(extensionOid(kMed, {2, 1, 1}), localPolicies, policyTable());

  auto caps = std::make_shared<NeighbourRows>(
      &data.neighbours(), [](const NeighbourEntry& n) { return n.remote->medCapabilitiesTlvReceived(); });
  tree.tableIs(
      extensionOid(kMed, {3, 1, 1}), caps,
      {{1, [](const Row& r) -> std::optional<Value> {
          return Value::octets(bitsText(remoteOf(r).medCapabilitiesInfo().capabilities, 6));
        }},
       {2, [](const Row& r) -> std::optional<Value> {
          // The LLDP-MED TLVs this neighbour sent.
          const Lldp::RemoteSystem& rs = remoteOf(r);
          using C = Lldp::MedCapabilitiesInfo;
          uint32_t bits = C::kCapabilities;
          if (rs.networkPolicyTlvs() > 0) bits |= C::kNetworkPolicy;
          const Lldp::LocationId& loc = rs.locationId();
          if (loc.coordinatePresent || loc.civicAddressPresent || loc.elinPresent) bits |= C::kLocation;
          if (auto power = extendedPower(rs)) bits |= power->type == 0 ? C::kExtendedPse : C::kExtendedPd;
          if (anyInventory(rs)) bits |= C::kInventory;
          return Value::octets(bitsText(bits, 6));
        }},
       {3, [](const Row& r) -> std::optional<Value> { return Value::integer(remoteOf(r).medCapabilitiesInfo().deviceType); }}});

  auto policies = std::make_shared<NeighbourRows>(
      &data.neighbours(), [](const NeighbourEntry& n) { return n.remote->networkPolicyTlvs() > 0; },
      [](const NeighbourEntry& n, NeighbourRows::Members& out) {
        for (const auto& [app, policy] : n.remote->networkPolicyTlv()) {
          if (app <= kMaxPolicyAppType) out.push_back({policyIndex(app), &policy, 0});
        }
      });
  tree.tableIs(extensionOid(kMed, {3, 2, 1}), policies, policyTable());

  auto inventory = std::make_shared<NeighbourRows>(&data.neighbours(),
                                                   [](const NeighbourEntry& n) { return anyInventory(*n.remote); });
  using Inventory = const Lldp::BoundedString32& (Lldp::RemoteSystem::*)() const;
  static constexpr Inventory kInventory[] = {
      &Lldp::RemoteSystem::hardwareRevisionTlvInfo, &Lldp::RemoteSystem::firmwareRevisionTlvInfo,
      &Lldp::RemoteSystem::softwareRevisionTlvInfo, &Lldp::RemoteSystem::serialNumberTlvInfo,
      &Lldp::RemoteSystem::manufacturerNameTlvInfo, &Lldp::RemoteSystem::modelNameTlvInfo,
      &Lldp::RemoteSystem::assetIDTlvInfo};
  std::vector<std::pair<SubId, ColumnFn>> inventoryColumns;
  for (SubId c = 1; c <= 7; ++c) {
    const Inventory get = kInventory[c - 1];
    // An inventory TLV the neighbour did not send is absent, not an empty string.
    inventoryColumns.emplace_back(c, [get](const Row& r) -> std::optional<Value> {
      const Lldp::BoundedString32& text = (remoteOf(r).*get)();
      if (text.empty()) return std::nullopt;
      return Value::octets(text.view());
    });
  }
  tree.tableIs(extensionOid(kMed, {3, 3, 1}), inventory, std::move(inventoryColumns));

  // Location rows by LocationSubtype: coordinateBased(2), civicAddress(3), elin(4).
  auto location = std::make_shared<NeighbourRows>(
      &data.neighbours(),
      [](const NeighbourEntry& n) {
        const Lldp::LocationId& loc = n.remote->locationId();
        return loc.coordinatePresent || loc.civicAddressPresent || loc.elinPresent;
      },
      [](const NeighbourEntry& n, NeighbourRows::Members& out) {
        const Lldp::LocationId& loc = n.remote->locationId();
        if (loc.coordinatePresent) out.push_back({{2}, &loc, 2});
        if (loc.civicAddressPresent) out.push_back({{3}, &loc, 3});
        if (loc.elinPresent) out.push_back({{4}, &loc, 4});
      });
  tree.tableIs(extensionOid(kMed, {3, 4, 1}), location,
               {{2, [](const Row& r) -> std::optional<Value> {
                   const auto& loc = memberOf<Lldp::LocationId>(r);
                   switch (r.key) {
                     case 2: return Value::octets(coordinateOctets(loc.coordinate));
                     case 3: return Value::octets(civicOctets(loc.civicAddress));
                     default: return Value::octets(loc.elin.view());
                   }
                 }}});

  auto xpoe = std::make_shared<NeighbourRows>(&data.neighbours(),
                                              [](const NeighbourEntry& n) { return extendedPower(*n.remote).has_value(); });
  tree.tableIs(extensionOid(kMed, {3, 5, 1}), xpoe,
               {{1, [](const Row& r) -> std::optional<Value> {
                   // unknown(1), pseDevice(2), pdDevice(3)
                   const uint8_t type = extendedPower(remoteOf(r))->type;
                   return Value::integer(type == 0 ? 2 : type == 1 ? 3 : 1);
                 }}});
  const auto powerOf = [](const Row& r) { return *extendedPower(remoteOf(r)); };
  auto pse = std::make_shared<NeighbourRows>(&data.neighbours(), [](const NeighbourEntry& n) {
    auto power = extendedPower(*n.remote);
    return power && power->type == 0;
  });
  tree.tableIs(extensionOid(kMed, {3, 6, 1}), pse,
               {{1, [powerOf](const Row& r) -> std::optional<Value> { return Value::gauge32(powerOf(r).value); }},
                {2, [powerOf](const Row& r) -> std::optional<Value> {
                   // unknown(1), primary(2), backup(3)
                   const uint8_t source = powerOf(r).source;
                   return Value::integer(source <= 2 ? source + 1 : 1);
                 }},
                {3, [powerOf](const Row& r) -> std::optional<Value> { return powerPriority(powerOf(r).priority); }}});
  auto pd = std::make_shared<NeighbourRows>(&data.neighbours(), [](const NeighbourEntry& n) {
    auto power = extendedPower(*n.remote);
    return power && power->type == 1;
  });
  tree.tableIs(extensionOid(kMed, {3, 7, 1}), pd,
               {{1, [powerOf](const Row& r) -> std::optional<Value> { return Value::gauge32(powerOf(r).value); }},
                {2, [powerOf](const Row& r) -> std::optional<Value> {
                   // unknown(1), fromPSE(2), local(3), localAndPSE(4)
                   return Value::integer(powerOf(r).source + 1);
                 }},
                {3, [powerOf](const Row& r) -> std::optional<Value> { return powerPriority(powerOf(r).priority); }}});
}

}  // namespace Snmp
