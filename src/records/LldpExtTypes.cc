// Printable forms of the organisationally specific TLV values.
#include "records/LldpExtTypes.h"

#include <cstdio>
#include <stdexcept>

namespace Lldp {
namespace {
std::string hex(unsigned v, int width) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%0*x", width, v);
  return buf;
}
}  // namespace

ProtocolIdentityInfo::ProtocolIdentityInfo(uint32_t index, BoundedString255 identity)
    : index_(index), identity_(std::move(identity)) {
  if (index < 1) throw std::range_error("ProtocolIdentityInfo::index < 1 not allowed");
}

std::ostream& operator<<(std::ostream& os, const PortAndProtocolVlan& v) {
  return os << "{ppvid " << v.ppvid.value() << ", supported " << v.supported << ", enabled "
            << v.enabled << "}";
}

std::ostream& operator<<(std::ostream& os, const VlanName& v) {
  return os << "{vlan " << v.vlanId.value() << ", name " << v.name << "}";
}

std::ostream& operator<<(std::ostream& os, const ProtocolIdentityInfo& v) {
  return os << "{index " << v.index() << ", " << v.identity().size() << " bytes}";
}

std::ostream& operator<<(std::ostream& os, const LinkAggregationInfo& v) {
  return os << "{status " << hex(v.status, 2) << ", portId " << v.portId << "}";
}

std::ostream& operator<<(std::ostream& os, const MacPhyConfigStatusInfo& v) {
  return os << "{autoNeg supported " << v.autoNegSupported << ", enabled " << v.autoNegEnabled
            << ", advertised " << hex(v.autoNegAdvertisedCap, 4) << ", MAU type " << v.operMauType
            << "}";
}

std::ostream& operator<<(std::ostream& os, const PowerViaMdiInfo& v) {
  os << "{portClass " << int(v.portClass) << ", supported " << v.pseMdiPowerSupported
     << ", enabled " << v.pseMdiPowerEnabled << ", pairsControl " << v.psePairsControlAbility
     << ", pair " << int(v.psePowerPair) << ", class " << int(v.powerClass);
  if (v.dot3atExtension) {
    os << ", type " << int(v.powerType) << ", source " << int(v.powerSource) << ", priority "
       << int(v.powerPriority) << ", requested " << v.pdRequestedPower << ", allocated "
       << v.pseAllocatedPower;
  }
  return os << "}";
}

std::ostream& operator<<(std::ostream& os, const MaximumFrameSizeInfo& v) { return os << v.value; }

std::ostream& operator<<(std::ostream& os, const MedCapabilitiesInfo& v) {
  return os << "{capabilities " << hex(v.capabilities, 2) << ", deviceType " << int(v.deviceType)
            << "}";
}

std::ostream& operator<<(std::ostream& os, const NetworkPolicyTlv& v) {
  return os << "{app " << int(v.appType) << ", unknown " << v.unknownPolicy << ", tagged "
            << v.tagged << ", vlan " << v.vlanId << ", priority " << int(v.l2Priority)
            << ", dscp " << int(v.dscp) << "}";
}

std::ostream& operator<<(std::ostream& os, const NetworkPolicyConfig& v) {
  return os << "{tagged " << v.tagged << ", vlan " << v.vlanId << ", priority "
            << int(v.l2Priority) << ", dscp " << int(v.dscp) << "}";
}

std::ostream& operator<<(std::ostream& os, const LocationId& v) {
  os << "{";
  if (v.coordinatePresent) {
    os << "coordinate " << v.coordinate.latitudeDegrees() << ", " << v.coordinate.longitudeDegrees()
       << ", altitude " << v.coordinate.altitudeValue() << "; ";
  }
  if (v.civicAddressPresent) {
    os << "civic " << v.civicAddress.countryCode << " (" << v.civicAddress.caElements.size()
       << " elements); ";
  }
  if (v.elinPresent) os << "elin " << v.elin;
  return os << "}";
}

}  // namespace Lldp
