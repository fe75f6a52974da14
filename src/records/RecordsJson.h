// JSON forms of the record value types, for record output through reflection.
#pragma once

#include "platform/Json.h"
#include "records/AgentRecords.h"
#include "records/LldpRecords.h"

namespace Units {
void to_json(nlohmann::ordered_json& j, const Watts& w);
}

namespace Arnet {
void to_json(nlohmann::ordered_json& j, const IpAddrWithMask& a);
void to_json(nlohmann::ordered_json& j, const Ip6AddrWithMask& a);
}  // namespace Arnet

namespace Lldp {
void to_json(nlohmann::ordered_json& j, const ChassisIdentifier& v);
void to_json(nlohmann::ordered_json& j, const PortIdentifier& v);
void to_json(nlohmann::ordered_json& j, const SystemCapabilitiesMap& v);
void to_json(nlohmann::ordered_json& j, const Oui& v);
void to_json(nlohmann::ordered_json& j, const ManagementAddress::Key& v);
void to_json(nlohmann::ordered_json& j, const ManagementAddress& v);
void to_json(nlohmann::ordered_json& j, const ManAddrPriority& v);
void to_json(nlohmann::ordered_json& j, const UnknownTlv& v);
void to_json(nlohmann::ordered_json& j, const UnknownOrgDefTlv::Key& v);
void to_json(nlohmann::ordered_json& j, const UnknownOrgDefTlv& v);
void to_json(nlohmann::ordered_json& j, const Msap& v);
void to_json(nlohmann::ordered_json& j, const PortAndProtocolVlan& v);
void to_json(nlohmann::ordered_json& j, const VlanName& v);
void to_json(nlohmann::ordered_json& j, const ProtocolIdentityInfo& v);
void to_json(nlohmann::ordered_json& j, const LinkAggregationInfo& v);
void to_json(nlohmann::ordered_json& j, const MacPhyConfigStatusInfo& v);
void to_json(nlohmann::ordered_json& j, const PowerViaMdiInfo& v);
void to_json(nlohmann::ordered_json& j, const MaximumFrameSizeInfo& v);
void to_json(nlohmann::ordered_json& j, const MedCapabilitiesInfo& v);
void to_json(nlohmann::ordered_json& j, const NetworkPolicyTlv& v);
void to_json(nlohmann::ordered_json& j, const NetworkPolicyConfig& v);
void to_json(nlohmann::ordered_json& j, const LocationId& v);
void to_json(nlohmann::ordered_json& j, const PortConfig::EnabledTlvs& v);
void to_json(nlohmann::ordered_json& j, const PortConfig::Dot3EnabledTlvs& v);
void to_json(nlohmann::ordered_json& j, const PortConfig::TiaEnabledTlvs& v);
void to_json(nlohmann::ordered_json& j, const MgmtAddrTxOption& v);
void to_json(nlohmann::ordered_json& j, const RemTablesClearRequest& v);
}  // namespace Lldp


namespace Identity::NbrClassification {
void to_json(nlohmann::ordered_json& j, const Neighbor& v);
}
