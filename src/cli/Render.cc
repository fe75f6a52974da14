// Text and JSON views of decoded neighbours and counters.
#include "cli/Render.h"

#include <iomanip>

#include "records/RecordsJson.h"

namespace Cli {

const char* chassisSubtypeName(uint8_t s) {
  static const char* const names[] = {"reserved",     "chassis component", "interface alias",
                                      "port component", "MAC address",     "network address",
                                      "interface name", "locally assigned"};
  return s < 8 ? names[s] : "unknown subtype";
}

const char* portSubtypeName(uint8_t s) {
  static const char* const names[] = {"reserved",        "interface alias", "port component",
                                      "MAC address",     "network address", "interface name",
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

using namespace Lldp;

const char* medDeviceTypeName(uint8_t t) {
  static const char* const names[] = {"not defined", "endpoint class I", "endpoint class II",
                                      "endpoint class III", "network connectivity", "reserved"};
  return t < 6 ? names[t] : "reserved";
}

struct Row {
  std::ostream& out;
  template <class T>
  void operator()(const char* label, const T& value) {
    out << "  " << std::left << std::setw(24) << label << ": " << value << "\n";
  }
};

std::string hexBytes(std::string_view b) {
  return identifierText(0, b, false, false, MacSeparator::colon, true);
}

void renderDot1(const RemoteSystem& rs, Row& row) {
  if (rs.portVlanIdTlvReceived()) row("Port VLAN ID", rs.portVlanId().value());
  for (const auto& [vid, v] : rs.portAndProtocolVlan()) {
    row("Port and protocol VLAN", std::to_string(vid) + (v.supported ? " supported" : " not supported") +
                                      (v.enabled ? ", enabled" : ", not enabled"));
  }
  for (const auto& [vid, v] : rs.vlanName()) row("VLAN name", std::to_string(vid) + " " + v.name.str());
  for (const auto& [index, v] : rs.protocolIdentityInfo()) row("Protocol identity", hexBytes(v.identity().view()));
  if (rs.vidUsageDigestTlvReceived()) row("VID usage digest", rs.vidUsageDigest());
  if (rs.managementVidTlvReceived()) row("Management VID", rs.managementVid().value());
  if (rs.linkAggregationTlvReceived()) {
    const auto& lag = rs.linkAggregationInfo();
    row("Link aggregation", std::string(lag.aggCapable() ? "capable" : "not capable") +
                                (lag.aggEnabled() ? ", aggregated" : ", not aggregated") +
                                ", port id " + std::to_string(lag.portId));
  }
}

void renderDot3(const RemoteSystem& rs, Row& row) {
  if (rs.macPhyConfigStatusTlvReceived()) {
    const auto& m = rs.macPhyConfigStatusInfo();
    std::ostringstream v;
    v << "autonegotiation " << (m.autoNegSupported ? "supported" : "not supported") << ", "
      << (m.autoNegEnabled ? "enabled" : "disabled") << ", advertised 0x" << std::hex
      << std::setw(4) << std::setfill('0') << m.autoNegAdvertisedCap << std::dec
      << ", MAU type " << m.operMauType;
    row("MAC/PHY", v.str());
  }
  if (rs.powerViaMdiTlvReceived()) {
    const auto& p = rs.powerViaMdiInfo();
    std::ostringstream v;
    v << (p.portClass == 1 ? "PSE" : "PD") << ", power " << (p.pseMdiPowerSupported ? "supported" : "not supported")
      << ", " << (p.pseMdiPowerEnabled ? "enabled" : "disabled") << ", pair " << int(p.psePowerPair)
      << ", class " << int(p.powerClass);
    row("Power via MDI", v.str());
    if (p.dot3atExtension) {
      std::ostringstream at;
      at << "type " << int(p.powerType) << ", source " << int(p.powerSource) << ", priority "
         << int(p.powerPriority) << ", requested " << p.pdRequestedPower / 10.0 << " W ("
         << p.pdRequestedPower << "), allocated " << p.pseAllocatedPower / 10.0 << " W ("
         << p.pseAllocatedPower << ")";
      row("Power (802.3at)", at.str());
    }
  }
  if (rs.maximumFrameSizeTlvReceived()) row("Maximum frame size", rs.maximumFrameSizeInfo().value);
}

void renderMed(const RemoteSystem& rs, Row& row) {
  if (rs.medCapabilitiesTlvReceived()) {
    const auto& c = rs.medCapabilitiesInfo();
    std::ostringstream v;
    v << "0x" << std::hex << c.capabilities << std::dec << ", " << medDeviceTypeName(c.deviceType);
    row("MED capabilities", v.str());
  }
  for (const auto& [app, p] : rs.networkPolicyTlv()) {
    std::ostringstream v;
    v << "app " << int(app) << (p.unknownPolicy ? ", unknown policy" : "")
      << (p.tagged ? ", tagged vlan " + std::to_string(p.vlanId) : std::string(", untagged"))
      << ", priority " << int(p.l2Priority) << ", DSCP " << int(p.dscp);
    row("Network policy", v.str());
  }
  const LocationId& loc = rs.locationId();
  if (loc.coordinatePresent) {
    const auto& c = loc.coordinate;
    std::ostringstream v;
    v << std::setprecision(9) << c.latitudeDegrees() << " deg, " << c.longitudeDegrees()
      << " deg, altitude " << c.altitudeValue() << (c.altitudeType == 1 ? " m" : " floors")
      << ", datum " << int(c.datum);
    row("Location (coordinates)", v.str());
  }
  if (loc.civicAddressPresent) {
    std::ostringstream v;
    v << loc.civicAddress.countryCode;
    for (const auto& e : loc.civicAddress.caElements) v << "; " << int(e.caType) << "=" << e.caValue;
    row("Location (civic)", v.str());
  }
  if (loc.elinPresent) row("Location (ELIN)", loc.elin);
  const std::pair<const char*, const BoundedString32*> inventory[] = {
      {"Hardware revision", &rs.hardwareRevisionTlvInfo()}, {"Firmware revision", &rs.firmwareRevisionTlvInfo()},
      {"Software revision", &rs.softwareRevisionTlvInfo()}, {"Serial number", &rs.serialNumberTlvInfo()},
      {"Manufacturer", &rs.manufacturerNameTlvInfo()},      {"Model", &rs.modelNameTlvInfo()},
      {"Asset ID", &rs.assetIDTlvInfo()}};
  for (const auto& [label, value] : inventory) {
    if (!value->empty()) row(label, *value);
  }
}

}  // namespace

void renderRemoteSystemText(const RemoteSystem& rs, std::ostream& out) {
  Row row{out};
  const Msap& msap = rs.msap();
  row("Chassis ID", msap.chassisIdentifier.stringValue() + " (" +
                        chassisSubtypeName(msap.chassisIdentifier.subtype) + ")");
  row("Port ID", msap.portIdentifier.stringValue() + " (" + portSubtypeName(msap.portIdentifier.subtype) + ")");
  row("Source MAC", rs.ethAddr());
  row("TTL", rs.ttl());
  if (!rs.portDesc().empty()) row("Port description", rs.portDesc());
  if (!rs.sysName().empty()) row("System name", rs.sysName());
  if (!rs.sysDesc().empty()) row("System description", rs.sysDesc());
  if (rs.sysCapSupported().value || rs.sysCapEnabled().value) {
    row("Capabilities supported", capabilityNames(rs.sysCapSupported().value));
    row("Capabilities enabled", capabilityNames(rs.sysCapEnabled().value));
  }
  for (const auto& [key, addr] : rs.managementAddress()) {
    std::ostringstream v;
    v << key.stringValue() << " (interface " << (addr.ifSubtype() == ifNumberingIfIndex ? "ifIndex " : "number ")
      << addr.ifId() << ")";
    row("Management address", v.str());
  }
  renderDot1(rs, row);
  renderDot3(rs, row);
  renderMed(rs, row);
  for (const auto& [key, tlv] : rs.unknownOrgDefTlv()) {
    std::ostringstream v;
    v << key << " " << hexBytes(tlv.value.view());
    row("Unknown org TLV", v.str());
  }
  for (const auto& [type, tlv] : rs.unknownTlv()) row("Unknown TLV", std::to_string(type) + " " + hexBytes(tlv.value().view()));
}

nlohmann::ordered_json decodeJson(const DecodeResult& result) {
  nlohmann::ordered_json out;
  out["frames"] = {{"read", result.framesRead}, {"lldp", result.lldpFrames}, {"skipped", result.skippedFrames}};
  nlohmann::ordered_json neighbors = nlohmann::ordered_json::array();
  for (const auto& [index, rs] : result.portStatus->remoteSystem()) neighbors.push_back(Platform::recordToJson(*rs));
  out["neighbors"] = neighbors;
  nlohmann::ordered_json counters = Platform::recordToJson(*result.portStatus);
  counters.erase("remoteSystem");
  counters.erase("remoteSystemByMsap");
  out["portStatus"] = counters;
  nlohmann::ordered_json table = Platform::recordToJson(*result.status);
  table.erase("portStatus");
  out["status"] = table;
  return out;
}

void renderDecodeText(const DecodeResult& result, std::ostream& out) {
  out << "Frames: " << result.framesRead << " read, " << result.lldpFrames << " LLDP, "
      << result.skippedFrames << " skipped\n";
  const Lldp::PortStatus& ps = *result.portStatus;
  out << "Neighbors: " << ps.remoteSystems() << "\n";
  for (const auto& [index, rs] : ps.remoteSystem()) {
    out << "\nNeighbor " << index << "\n";
    renderRemoteSystemText(*rs, out);
  }
  out << "\nReceive counters: frames " << ps.rxFramesTotal() << ", errors " << ps.rxFramesErrors()
      << ", discarded " << ps.rxFramesDiscardedTotal() << ", TLVs discarded "
      << ps.rxTLVsDiscardedTotal() << ", TLVs unrecognized " << ps.rxTLVsUnrecognizedTotal() << "\n";
  if (ps.ceeSeqNumToAck()) out << "CEE sequence number to acknowledge: " << ps.ceeSeqNumToAck() << "\n";
  const Lldp::Status& st = *result.status;
  out << "Table counters: inserts " << st.remTablesInserts() << ", deletes " << st.remTablesDeletes()
      << ", drops " << st.remTablesDrops() << ", ageouts " << st.remTablesAgeouts() << "\n";
}

}  // namespace Cli
