// JSON forms of the record value types: names as in the records, raw wire values kept beside
// their readable forms.
#include "records/RecordsJson.h"

namespace Units {
void to_json(nlohmann::ordered_json& j, const Watts& w) { j = w.value; }
}  // namespace Units

namespace Arnet {
void to_json(nlohmann::ordered_json& j, const IpAddrWithMask& a) {
  j = toString(a.addr) + "/" + std::to_string(a.len);
}
void to_json(nlohmann::ordered_json& j, const Ip6AddrWithMask& a) {
  j = toString(a.addr) + "/" + std::to_string(a.len);
}
}  // namespace Arnet

namespace Lldp {

void to_json(nlohmann::ordered_json& j, const ChassisIdentifier& v) {
  j = {{"subtype", v.subtype}, {"value", v.stringValue()}};
}
void to_json(nlohmann::ordered_json& j, const PortIdentifier& v) {
  j = {{"subtype", v.subtype}, {"value", v.stringValue()}};
}
void to_json(nlohmann::ordered_json& j, const SystemCapabilitiesMap& v) { j = v.value; }
void to_json(nlohmann::ordered_json& j, const Oui& v) {
  std::ostringstream os;
  os << v;
  j = os.str();
}
void to_json(nlohmann::ordered_json& j, const ManagementAddress::Key& v) {
  j = {{"subtype", v.subtype}, {"address", v.stringValue()}};
}
void to_json(nlohmann::ordered_json& j, const ManagementAddress& v) {
  j = {{"addrSubtype", v.addrSubtype()},
       {"address", addressText(v.addrSubtype(), v.address().view())},
       {"ifSubtype", v.ifSubtype()},
       {"ifId", v.ifId()},
       {"oid", v.oid()}};
}
void to_json(nlohmann::ordered_json& j, const ManAddrPriority& v) {
  j = {{"type", static_cast<int>(v.type)},
       {"primaryPriority", v.primaryPriority},
       {"secondaryPriority", v.secondaryPriority},
       {"intfId", v.intfId.name()}};
}
void to_json(nlohmann::ordered_json& j, const UnknownTlv& v) {
  j = {{"type", v.type()}, {"value", identifierText(0, v.value().view(), false, false, MacSeparator::colon, true)}};
}
void to_json(nlohmann::ordered_json& j, const UnknownOrgDefTlv::Key& v) {
  j = {{"oui", v.oui()}, {"subtype", v.subtype()}, {"index", v.index()}};
}
void to_json(nlohmann::ordered_json& j, const UnknownOrgDefTlv& v) {
  j = {{"key", v.key}, {"value", identifierText(0, v.value.view(), false, false, MacSeparator::colon, true)}};
}
void to_json(nlohmann::ordered_json& j, const Msap& v) {
  j = {{"chassisIdentifier", v.chassisIdentifier}, {"portIdentifier", v.portIdentifier}};
}
void to_json(nlohmann::ordered_json& j, const PortAndProtocolVlan& v) {
  j = {{"ppvid", v.ppvid.value()}, {"supported", v.supported}, {"enabled", v.enabled}};
}
void to_json(nlohmann::ordered_json& j, const VlanName& v) {
  j = {{"vlanId", v.vlanId.value()}, {"name", v.name.str()}};
}
void to_json(nlohmann::ordered_json& j, const ProtocolIdentityInfo& v) {
  j = {{"index", v.index()},
       {"identity", identifierText(0, v.identity().view(), false, false, MacSeparator::colon, true)}};
}
void to_json(nlohmann::ordered_json& j, const LinkAggregationInfo& v) {
  j = {{"status", v.status}, {"aggCapable", v.aggCapable()}, {"aggEnabled", v.aggEnabled()}, {"portId", v.portId}};
}
void to_json(nlohmann::ordered_json& j, const MacPhyConfigStatusInfo& v) {
  j = {{"autoNegSupported", v.autoNegSupported},
       {"autoNegEnabled", v.autoNegEnabled},
       {"autoNegAdvertisedCap", v.autoNegAdvertisedCap},
       {"operMauType", v.operMauType}};
}
void to_json(nlohmann::ordered_json& j, const PowerViaMdiInfo& v) {
  j = {{"dot3atExtension", v.dot3atExtension},
       {"portClass", v.portClass},
       {"pseMdiPowerSupported", v.pseMdiPowerSupported},
       {"pseMdiPowerEnabled", v.pseMdiPowerEnabled},
       {"psePairsControlAbility", v.psePairsControlAbility},
       {"psePowerPair", v.psePowerPair},
       {"powerClass", v.powerClass},
       {"powerType", v.powerType},
       {"powerSource", v.powerSource},
       {"powerPriority", v.powerPriority},
       {"pdRequestedPower", v.pdRequestedPower},
       {"pdRequestedPowerWatts", v.pdRequestedPower / 10.0},
       {"pseAllocatedPower", v.pseAllocatedPower},
       {"pseAllocatedPowerWatts", v.pseAllocatedPower / 10.0}};
}
void to_json(nlohmann::ordered_json& j, const MaximumFrameSizeInfo& v) { j = v.value; }
void to_json(nlohmann::ordered_json& j, const MedCapabilitiesInfo& v) {
  j = {{"capabilities", v.capabilities}, {"deviceType", v.deviceType}};
}
void to_json(nlohmann::ordered_json& j, const NetworkPolicyTlv& v) {
  j = {{"appType", v.appType}, {"unknownPolicy", v.unknownPolicy}, {"tagged", v.tagged},
       {"vlanId", v.vlanId},   {"l2Priority", v.l2Priority},       {"dscp", v.dscp}};
}
void to_json(nlohmann::ordered_json& j, const NetworkPolicyConfig& v) {
  j = {{"tagged", v.tagged}, {"vlanId", v.vlanId}, {"l2Priority", v.l2Priority}, {"dscp", v.dscp}};
}
void to_json(nlohmann::ordered_json& j, const LocationId& v) {
  j = nlohmann::ordered_json::object();
  j["coordinatePresent"] = v.coordinatePresent;
  if (v.coordinatePresent) {
    const auto& c = v.coordinate;
    j["coordinate"] = {{"latitudeResolution", c.latitudeResolution},
                       {"latitude", c.latitude},
                       {"latitudeDegrees", c.latitudeDegrees()},
                       {"longitudeResolution", c.longitudeResolution},
                       {"longitude", c.longitude},
                       {"longitudeDegrees", c.longitudeDegrees()},
                       {"altitudeType", c.altitudeType},
                       {"altitudeResolution", c.altitudeResolution},
                       {"altitude", c.altitude},
                       {"altitudeValue", c.altitudeValue()},
                       {"datum", c.datum}};
  }
  j["civicAddressPresent"] = v.civicAddressPresent;
  if (v.civicAddressPresent) {
    nlohmann::ordered_json elements = nlohmann::ordered_json::array();
    for (size_t i = 0; i < v.civicAddress.caElements.size(); ++i) {
      const auto& e = v.civicAddress.caElements[i];
      elements.push_back({{"position", i + 1}, {"caType", e.caType}, {"caValue", e.caValue}});
    }
    j["civicAddress"] = {{"length", v.civicAddress.length},
                         {"what", v.civicAddress.what},
                         {"countryCode", v.civicAddress.countryCode.str()},
                         {"caElements", elements}};
  }
  j["elinPresent"] = v.elinPresent;
  if (v.elinPresent) j["elin"] = v.elin.str();
}
void to_json(nlohmann::ordered_json& j, const PortConfig::EnabledTlvs& v) { j = v.value; }
void to_json(nlohmann::ordered_json& j, const PortConfig::Dot3EnabledTlvs& v) { j = v.value; }
void to_json(nlohmann::ordered_json& j, const PortConfig::TiaEnabledTlvs& v) { j = v.value; }
void to_json(nlohmann::ordered_json& j, const MgmtAddrTxOption& v) {
  j = {{"mgmtAddrTxMode", static_cast<int>(v.mode)}, {"intfName", v.intfName.name()}};
}
void to_json(nlohmann::ordered_json& j, const RemTablesClearRequest& v) {
  j = {{"time", v.time}, {"requester", v.requester}, {"origin", v.origin}, {"intfId", v.intfId.name()}};
}

}  // namespace Lldp


namespace Identity::NbrClassification {
void to_json(nlohmann::ordered_json& j, const Neighbor& v) {
  j = {{"ethAddr", v.ethAddr}, {"intfId", v.intfId}, {"classification", toString(v.classification)},
       {"description", v.description}};
}
}  // namespace Identity::NbrClassification
