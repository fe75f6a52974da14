// The detail view of a neighbour: the record's JSON read defensively (another agent version may
// leave a field out) and every coded value spelled out by its name from the standards.
#include "cli/Detail.h"

#include <cmath>
#include <cstdio>
#include <iomanip>
#include <sstream>

#include "cli/Model.h"
#include "cli/Tables.h"

namespace Cli {

const char* chassisSubtypeName(uint8_t s) {
  static const char* const names[] = {"reserved",       "chassis component", "interface alias",
                                      "port component", "MAC address",       "network address",
                                      "interface name", "locally assigned"};
  return s < 8 ? names[s] : "unknown subtype";
}

const char* portSubtypeName(uint8_t s) {
  static const char* const names[] = {"reserved",        "interface alias",  "port component",
                                      "MAC address",     "network address",  "interface name",
                                      "agent circuit id", "locally assigned"};
  return s < 8 ? names[s] : "unknown subtype";
}

std::string capabilityNames(uint16_t caps) {
  static const char* const names[] = {"other",   "repeater",     "bridge",      "WLAN access point",
                                      "router",  "telephone",    "DOCSIS cable device",
                                      "station", "C-VLAN",       "S-VLAN",      "two-port MAC relay"};
  std::string out;
  for (int bit = 0; bit < 11; ++bit) {
    if (!(caps & (1 << bit))) continue;
    if (!out.empty()) out += ", ";
    out += names[bit];
  }
  return out.empty() ? "none" : out;
}

namespace {

const Json& field(const Json& j, const char* key) {
  static const Json none;
  if (!j.is_object()) return none;
  auto it = j.find(key);
  return it == j.end() ? none : *it;
}
uint64_t num(const Json& j, const char* key) {
  const Json& v = field(j, key);
  if (v.is_number_unsigned()) return v.get<uint64_t>();
  return v.is_number_integer() && v.get<int64_t>() > 0 ? static_cast<uint64_t>(v.get<int64_t>()) : 0;
}
double real(const Json& j, const char* key) {
  const Json& v = field(j, key);
  return v.is_number() ? v.get<double>() : 0;
}
std::string str(const Json& j, const char* key) {
  const Json& v = field(j, key);
  return v.is_string() ? v.get<std::string>() : std::string();
}
bool flag(const Json& j, const char* key) {
  const Json& v = field(j, key);
  return v.is_boolean() && v.get<bool>();
}
const Json& list(const Json& j, const char* key) {
  static const Json empty = Json::array();
  const Json& v = field(j, key);
  return v.is_array() ? v : empty;
}

std::string hex(uint64_t value, int digits) {
  std::ostringstream out;
  out << "0x" << std::hex << std::setw(digits) << std::setfill('0') << value;
  return out.str();
}

std::string fixed(double value, int decimals) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(decimals) << value;
  return out.str();
}

// Bit names of a mask, in bit order; unnamed bits as "bit N".
std::string bitNames(uint64_t mask, const std::vector<const char*>& names, bool msbFirst = false, int width = 16) {
  std::string out;
  for (int i = 0; i < width; ++i) {
    const uint64_t bit = msbFirst ? uint64_t{1} << (width - 1 - i) : uint64_t{1} << i;
    if (!(mask & bit)) continue;
    if (!out.empty()) out += ", ";
    out += static_cast<size_t>(i) < names.size() ? names[i] : "bit " + std::to_string(i);
  }
  return out.empty() ? "none" : out;
}

const char* named(uint64_t value, const std::vector<const char*>& names, const char* otherwise = "unknown") {
  return value < names.size() && names[value] ? names[value] : otherwise;
}

std::string addressFamilyName(uint64_t family) {
  switch (family) {
    case 1: return "IPv4";
    case 2: return "IPv6";
    case 6: return "MAC";
  }
  return "family " + std::to_string(family);
}

void basic(const Json& rs, double now, DetailGroup& g) {
  const Json& msap = field(rs, "msap");
  const Json& chassis = field(msap, "chassisIdentifier");
  const Json& port = field(msap, "portIdentifier");
  g.rows.emplace_back("Chassis ID", str(chassis, "value") + " (" +
                                        chassisSubtypeName(static_cast<uint8_t>(num(chassis, "subtype"))) + ")");
  g.rows.emplace_back("Port ID",
                      str(port, "value") + " (" + portSubtypeName(static_cast<uint8_t>(num(port, "subtype"))) + ")");
  if (const std::string mac = str(rs, "ethAddr"); !mac.empty()) g.rows.emplace_back("Source MAC", mac);
  g.rows.emplace_back("TTL", std::to_string(num(rs, "ttl")));
  if (now >= 0 && field(rs, "creationTime").is_number()) {
    g.rows.emplace_back("Age", ageText(now - real(rs, "creationTime")));
  }
  const std::pair<const char*, const char*> texts[] = {
      {"portDesc", "Port description"}, {"sysName", "System name"}, {"sysDesc", "System description"}};
  for (const auto& [key, label] : texts) {
    if (const std::string v = str(rs, key); !v.empty()) g.rows.emplace_back(label, v);
  }
  if (num(rs, "sysCapSupported") || num(rs, "sysCapEnabled")) {
    g.rows.emplace_back("Capabilities", capabilityNames(static_cast<uint16_t>(num(rs, "sysCapSupported"))));
    g.rows.emplace_back("Enabled capabilities", capabilityNames(static_cast<uint16_t>(num(rs, "sysCapEnabled"))));
  }
  for (const Json& entry : list(rs, "managementAddress")) {
    const Json& a = field(entry, "value");
    std::string v = str(a, "address") + " (" + addressFamilyName(num(a, "addrSubtype"));
    const uint64_t ifSubtype = num(a, "ifSubtype");
    v += ifSubtype == 2 ? ", ifIndex " : ifSubtype == 3 ? ", system port " : ", interface ";
    v += std::to_string(num(a, "ifId"));
    std::string oid;
    for (const Json& arc : list(a, "oid")) oid += (oid.empty() ? "" : ".") + (arc.is_number() ? arc.dump() : "?");
    if (!oid.empty()) v += ", OID " + oid;
    g.rows.emplace_back("Management address", v + ")");
  }
}

void dot1(const Json& rs, DetailGroup& g) {
  if (flag(rs, "portVlanIdTlvReceived")) g.rows.emplace_back("Port VLAN ID", std::to_string(num(rs, "portVlanId")));
  for (const Json& entry : list(rs, "portAndProtocolVlan")) {
    const Json& v = field(entry, "value");
    g.rows.emplace_back("Port and protocol VLAN", std::to_string(num(v, "ppvid")) +
                                                      (flag(v, "supported") ? ": supported" : ": not supported") +
                                                      (flag(v, "enabled") ? ", enabled" : ", not enabled"));
  }
  for (const Json& entry : list(rs, "vlanName")) {
    const Json& v = field(entry, "value");
    g.rows.emplace_back("VLAN name", std::to_string(num(v, "vlanId")) + " " + str(v, "name"));
  }
  for (const Json& entry : list(rs, "protocolIdentityInfo")) {
    g.rows.emplace_back("Protocol identity", str(field(entry, "value"), "identity"));
  }
  if (flag(rs, "vidUsageDigestTlvReceived")) g.rows.emplace_back("VID usage digest", hex(num(rs, "vidUsageDigest"), 8));
  if (flag(rs, "managementVidTlvReceived")) g.rows.emplace_back("Management VID", std::to_string(num(rs, "managementVid")));
  if (flag(rs, "linkAggregationTlvReceived")) {
    const Json& lag = field(rs, "linkAggregationInfo");
    g.rows.emplace_back("Link aggregation", std::string(flag(lag, "aggCapable") ? "capable" : "not capable") +
                                                (flag(lag, "aggEnabled") ? ", aggregated" : ", not aggregated") +
                                                ", port ID " + std::to_string(num(lag, "portId")));
  }
}

// The operational MAU types of the MAU MIB, by number.
const char* mauTypeName(uint64_t type) {
  static const std::vector<const char*> names = {
      nullptr,        "AUI",          "10BASE5",      "FOIRL",         "10BASE2",       "10BASE-T",
      "10BASE-FP",    "10BASE-FB",    "10BASE-FL",    "10BROAD36",     "10BASE-T half duplex",
      "10BASE-T full duplex",         "10BASE-FL half duplex",         "10BASE-FL full duplex",
      "100BASE-T4",   "100BASE-TX half duplex",       "100BASE-TX full duplex",
      "100BASE-FX half duplex",       "100BASE-FX full duplex",        "100BASE-T2 half duplex",
      "100BASE-T2 full duplex",       "1000BASE-X half duplex",        "1000BASE-X full duplex",
      "1000BASE-LX half duplex",      "1000BASE-LX full duplex",       "1000BASE-SX half duplex",
      "1000BASE-SX full duplex",      "1000BASE-CX half duplex",       "1000BASE-CX full duplex",
      "1000BASE-T half duplex",       "1000BASE-T full duplex",        "10GBASE-X",     "10GBASE-LX4",
      "10GBASE-R",    "10GBASE-ER",   "10GBASE-LR",   "10GBASE-SR",    "10GBASE-W",     "10GBASE-EW",
      "10GBASE-LW",   "10GBASE-SW",   "10GBASE-CX4",  "2BASE-TL",      "10PASS-TS",     "100BASE-BX10-D",
      "100BASE-BX10-U", "100BASE-LX10", "1000BASE-BX10-D", "1000BASE-BX10-U", "1000BASE-LX10",
      "1000BASE-PX10-D", "1000BASE-PX10-U", "1000BASE-PX20-D", "1000BASE-PX20-U", "10GBASE-T",
      "10GBASE-LRM",  "1000BASE-KX",  "10GBASE-KX4",  "10GBASE-KR"};
  return named(type, names, nullptr);
}

void dot3(const Json& rs, DetailGroup& g) {
  if (flag(rs, "macPhyConfigStatusTlvReceived")) {
    const Json& m = field(rs, "macPhyConfigStatusInfo");
    g.rows.emplace_back("Autonegotiation", std::string(flag(m, "autoNegSupported") ? "supported" : "not supported") +
                                               (flag(m, "autoNegEnabled") ? ", enabled" : ", disabled"));
    // The capability bits as the MAU MIB numbers them, bit 0 the most significant.
    static const std::vector<const char*> advertised = {
        "other",           "10BASE-T",        "10BASE-T full duplex", "100BASE-T4",   "100BASE-TX",
        "100BASE-TX full duplex", "100BASE-T2", "100BASE-T2 full duplex", "PAUSE",    "asymmetric PAUSE",
        "symmetric PAUSE", "asymmetric and symmetric PAUSE", "1000BASE-X", "1000BASE-X full duplex",
        "1000BASE-T",      "1000BASE-T full duplex"};
    const uint64_t cap = num(m, "autoNegAdvertisedCap");
    g.rows.emplace_back("Advertised", bitNames(cap, advertised, true) + " (" + hex(cap, 4) + ")");
    const uint64_t mau = num(m, "operMauType");
    const char* name = mauTypeName(mau);
    g.rows.emplace_back("MAU type", (name ? std::string(name) + " (" : std::string("(")) + std::to_string(mau) + ")");
  }
  if (flag(rs, "maximumFrameSizeTlvReceived")) {
    g.rows.emplace_back("Maximum frame size", std::to_string(num(rs, "maximumFrameSizeInfo")));
  }
}

void power(const Json& rs, DetailGroup& g) {
  if (!flag(rs, "powerViaMdiTlvReceived")) return;
  const Json& p = field(rs, "powerViaMdiInfo");
  const bool pse = num(p, "portClass") == 1;
  g.rows.emplace_back("Port class", pse ? "PSE" : "PD");
  g.rows.emplace_back("MDI power", std::string(flag(p, "pseMdiPowerSupported") ? "supported" : "not supported") +
                                       (flag(p, "pseMdiPowerEnabled") ? ", enabled" : ", disabled") +
                                       (flag(p, "psePairsControlAbility") ? ", pairs controllable"
                                                                         : ", pairs not controllable"));
  g.rows.emplace_back("Power pairs", named(num(p, "psePowerPair"), {nullptr, "signal", "spare"}));
  const uint64_t powerClass = num(p, "powerClass");
  g.rows.emplace_back("Power class", powerClass >= 1 && powerClass <= 5 ? "class " + std::to_string(powerClass - 1)
                                                                        : "unknown (" + std::to_string(powerClass) + ")");
  if (!flag(p, "dot3atExtension")) return;
  g.rows.emplace_back("Power type",
                      named(num(p, "powerType"), {"type 2 PSE", "type 2 PD", "type 1 PSE", "type 1 PD"}));
  const uint64_t source = num(p, "powerSource");
  g.rows.emplace_back("Power source", pse ? named(source, {"unknown", "primary", "backup", "reserved"})
                                          : named(source, {"unknown", "PSE", "reserved", "PSE and local"}));
  g.rows.emplace_back("Power priority", named(num(p, "powerPriority"), {"unknown", "critical", "high", "low"}));
  g.rows.emplace_back("Requested power", fixed(real(p, "pdRequestedPowerWatts"), 1) + " W");
  g.rows.emplace_back("Allocated power", fixed(real(p, "pseAllocatedPowerWatts"), 1) + " W");
}

const char* policyAppName(uint64_t app) {
  return named(app, {"reserved", "voice", "voice signaling", "guest voice", "guest voice signaling",
                     "softphone voice", "video conferencing", "streaming video", "video signaling"},
               "reserved");
}

// Civic address elements by their CA type.
std::string caTypeName(uint64_t type) {
  static const std::vector<const char*> names = {
      "language", "state", "county", "city", "city division", "neighborhood", "street", nullptr, nullptr,
      nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, "leading street direction",
      "trailing street suffix", "street suffix", "house number", "house number suffix", "landmark",
      "additional location", "name", "postal code", "building", "unit", "floor", "room", "place type",
      "postal community", "post office box", "additional code", "seat", "road", "road section", "road branch",
      "road sub-branch", "street name pre-modifier", "street name post-modifier"};
  if (type == 128) return "script";
  const char* name = named(type, names, nullptr);
  return name ? name : "CA type " + std::to_string(type);
}

void med(const Json& rs, DetailGroup& g) {
  if (flag(rs, "medCapabilitiesTlvReceived")) {
    const Json& c = field(rs, "medCapabilitiesInfo");
    g.rows.emplace_back("Capabilities", bitNames(num(c, "capabilities"),
                                                 {"LLDP-MED capabilities", "network policy", "location",
                                                  "extended power (PSE)", "extended power (PD)", "inventory"}));
    g.rows.emplace_back("Device type", named(num(c, "deviceType"),
                                             {"not defined", "endpoint class I", "endpoint class II",
                                              "endpoint class III", "network connectivity"},
                                             "reserved"));
  }
  for (const Json& entry : list(rs, "networkPolicyTlv")) {
    const Json& p = field(entry, "value");
    std::string v = policyAppName(num(p, "appType"));
    if (flag(p, "unknownPolicy")) {
      v += ": policy unknown";
    } else {
      v += flag(p, "tagged") ? ": VLAN " + std::to_string(num(p, "vlanId")) + " tagged" : std::string(": untagged");
      v += ", priority " + std::to_string(num(p, "l2Priority")) + ", DSCP " + std::to_string(num(p, "dscp"));
    }
    g.rows.emplace_back("Network policy", v);
  }
  const Json& loc = field(rs, "locationId");
  if (flag(loc, "coordinatePresent")) {
    const Json& c = field(loc, "coordinate");
    const uint64_t altitudeType = num(c, "altitudeType");
    std::string v = fixed(real(c, "latitudeDegrees"), 6) + ", " + fixed(real(c, "longitudeDegrees"), 6);
    if (altitudeType == 1 || altitudeType == 2) {
      v += ", altitude " + fixed(real(c, "altitudeValue"), 2) + (altitudeType == 1 ? " m" : " floors");
    }
    v += std::string(", datum ") + named(num(c, "datum"), {nullptr, "WGS84", "NAD83/NAVD88", "NAD83/MLLW"}, "unknown");
    g.rows.emplace_back("Location", v);
  }
  if (flag(loc, "civicAddressPresent")) {
    const Json& a = field(loc, "civicAddress");
    g.rows.emplace_back("Civic address", std::string("country ") + str(a, "countryCode") + ", of the " +
                                             named(num(a, "what"), {"DHCP server", "network element", "client"}));
    for (const Json& e : list(a, "caElements")) {
      g.rows.emplace_back("  " + caTypeName(num(e, "caType")), str(e, "caValue"));
    }
  }
  if (flag(loc, "elinPresent")) g.rows.emplace_back("ELIN", str(loc, "elin"));
  const std::pair<const char*, const char*> inventory[] = {
      {"hardwareRevisionTlvInfo", "Hardware revision"}, {"firmwareRevisionTlvInfo", "Firmware revision"},
      {"softwareRevisionTlvInfo", "Software revision"}, {"serialNumberTlvInfo", "Serial number"},
      {"manufacturerNameTlvInfo", "Manufacturer"},      {"modelNameTlvInfo", "Model"},
      {"assetIDTlvInfo", "Asset ID"}};
  for (const auto& [key, label] : inventory) {
    if (const std::string v = str(rs, key); !v.empty()) g.rows.emplace_back(label, v);
  }
}

void unknown(const Json& rs, DetailGroup& g) {
  for (const Json& entry : list(rs, "unknownTlv")) {
    const Json& t = field(entry, "value");
    g.rows.emplace_back("TLV type " + std::to_string(num(t, "type")), str(t, "value"));
  }
  for (const Json& entry : list(rs, "unknownOrgDefTlv")) {
    const Json& t = field(entry, "value");
    const Json& key = field(t, "key");
    g.rows.emplace_back("OUI " + str(key, "oui") + " subtype " + std::to_string(num(key, "subtype")),
                        str(t, "value"));
  }
}

}  // namespace

std::vector<DetailGroup> neighborDetail(const Json& rs, double now) {
  std::vector<DetailGroup> groups(6);
  groups[1].title = "IEEE 802.1";
  groups[2].title = "IEEE 802.3";
  groups[3].title = "Power via MDI";
  groups[4].title = "LLDP-MED";
  groups[5].title = "Unknown TLVs";
  basic(rs, now, groups[0]);
  dot1(rs, groups[1]);
  dot3(rs, groups[2]);
  power(rs, groups[3]);
  med(rs, groups[4]);
  unknown(rs, groups[5]);
  std::erase_if(groups, [](const DetailGroup& g) { return g.rows.empty(); });
  return groups;
}

void renderDetail(const std::vector<DetailGroup>& groups, std::ostream& out) {
  // One table for all groups, so that every value starts in one column.
  Table table;
  for (const DetailGroup& g : groups) {
    const std::string indent = g.title.empty() ? "  " : "    ";
    if (!g.title.empty()) table.rowIs({"  " + g.title});
    for (const auto& [label, value] : g.rows) table.rowIs({indent + label, value});
  }
  table.print(out);
}

}  // namespace Cli
