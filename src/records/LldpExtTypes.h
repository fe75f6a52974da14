// Value types of the organisationally specific TLVs: IEEE 802.1, IEEE 802.3 and LLDP-MED.
#pragma once

#include <cstdint>
#include <vector>
#include <ostream>
#include <string>

#include "records/LldpTypes.h"

namespace Lldp {

// IEEE 802.1 Port And Protocol VLAN ID.
struct PortAndProtocolVlan {
  Bridging::VlanIdOrNone ppvid;
  bool supported = false;
  bool enabled = false;
  bool operator==(const PortAndProtocolVlan&) const = default;
};

struct VlanName {
  Bridging::VlanId vlanId;
  BoundedString32 name;
  bool operator==(const VlanName&) const = default;
};

struct ProtocolIdentityInfo {
  ProtocolIdentityInfo() = default;
  ProtocolIdentityInfo(uint32_t index, BoundedString255 identity);
  uint32_t index() const { return index_; }
  const BoundedString255& identity() const { return identity_; }
  bool operator==(const ProtocolIdentityInfo&) const = default;

 private:
  uint32_t index_ = 1;
  BoundedString255 identity_;
};

// Link aggregation status octet and aggregated port id (IEEE 802.1 and 802.3 forms).
struct LinkAggregationInfo {
  static constexpr uint8_t kAggCapable = 0x01, kAggEnabled = 0x02;
  uint8_t status = 0;
  uint32_t portId = 0;
  bool aggCapable() const { return status & kAggCapable; }
  bool aggEnabled() const { return status & kAggEnabled; }
  bool operator==(const LinkAggregationInfo&) const = default;
};

struct MacPhyConfigStatusInfo {
  bool autoNegSupported = false;
  bool autoNegEnabled = false;
  uint16_t autoNegAdvertisedCap = 0;  // the 16 capability flags, bit for bit
  uint16_t operMauType = 0;

  void autoNegAdvertisedCapAsU16Is(uint16_t v) { autoNegAdvertisedCap = v; }
  bool autoNegAdvertisedCapFlag(int bit) const { return (autoNegAdvertisedCap >> bit) & 1; }
  bool operator==(const MacPhyConfigStatusInfo&) const = default;
};

struct PowerViaMdiInfo {
  bool dot3atExtension = false;
  uint8_t portClass = 0;  // 1 PSE, 2 PD
  bool pseMdiPowerSupported = false;
  bool pseMdiPowerEnabled = false;
  bool psePairsControlAbility = false;
  uint8_t psePowerPair = 0;
  uint8_t powerClass = 0;
  uint8_t powerType = 0;
  uint8_t powerSource = 0;
  uint8_t powerPriority = 0;
  uint16_t pdRequestedPower = 0;  // tenths of a watt
  uint16_t pseAllocatedPower = 0;  // tenths of a watt
  bool operator==(const PowerViaMdiInfo&) const = default;
};

struct MaximumFrameSizeInfo {
  uint16_t value = 0;
  auto operator<=>(const MaximumFrameSizeInfo&) const = default;
};

struct MedCapabilitiesInfo {
  static constexpr uint16_t kCapabilities = 0x01, kNetworkPolicy = 0x02, kLocation = 0x04,
                            kExtendedPse = 0x08, kExtendedPd = 0x10, kInventory = 0x20;
  uint16_t capabilities = 0;
  uint8_t deviceType = 0;  // 0 not defined, 1-3 endpoint classes, 4 network connectivity
  bool operator==(const MedCapabilitiesInfo&) const = default;
};

struct NetworkPolicyTlv {
  uint8_t appType = 0;
  bool unknownPolicy = false;
  bool tagged = false;
  uint16_t vlanId = 0;
  uint8_t l2Priority = 0;
  uint8_t dscp = 0;
  bool operator==(const NetworkPolicyTlv&) const = default;
};

// The operator's network policy for one application (or, under key 0, for all).
struct NetworkPolicyConfig {
  bool tagged = false;
  uint16_t vlanId = 0;
  uint8_t l2Priority = 0;
  uint8_t dscp = 0;

  NetworkPolicyTlv toNetworkPolicyTlv(uint8_t appType) const {
    return {appType, false, tagged, vlanId, l2Priority, dscp};
  }
  bool equivalent(const NetworkPolicyConfig& o) const { return *this == o; }
  void copyFrom(const NetworkPolicyConfig& o) { *this = o; }
  bool operator==(const NetworkPolicyConfig&) const = default;
};

struct LocationId {
  struct CoordinateLci {  // (wide fields first: neighbours are many, padding adds up)
    int64_t latitude = 0;  // 34-bit two's complement fixed point, 25 fraction bits
    int64_t longitude = 0;
    int32_t altitude = 0;  // 30-bit two's complement fixed point, 8 fraction bits
    uint8_t latitudeResolution = 0;
    uint8_t longitudeResolution = 0;
    uint8_t altitudeType = 0;
    uint8_t altitudeResolution = 0;
    uint8_t datum = 0;
    double latitudeDegrees() const { return static_cast<double>(latitude) / (1 << 25); }
    double longitudeDegrees() const { return static_cast<double>(longitude) / (1 << 25); }
    double altitudeValue() const { return static_cast<double>(altitude) / (1 << 8); }
    bool operator==(const CoordinateLci&) const = default;
  };
  struct CivicAddressLCI {
    struct CaElement {
      uint8_t caType = 0;
      std::string caValue;
      bool operator==(const CaElement&) const = default;
    };
    std::vector<CaElement> caElements;  // element at position p (from 1) is caElements[p - 1]
    Platform::BoundedBytes<"CountryCode", 2> countryCode;
    uint8_t length = 0;
    uint8_t what = 0;
    bool operator==(const CivicAddressLCI&) const = default;
  };

  CoordinateLci coordinate;
  CivicAddressLCI civicAddress;
  Platform::BoundedBytes<"Elin", 25> elin;
  bool coordinatePresent = false;
  bool civicAddressPresent = false;
  bool elinPresent = false;

  // Back to no location, keeping buffers for the next value.
  void clear() {
    coordinatePresent = civicAddressPresent = elinPresent = false;
    coordinate = {};
    civicAddress.length = civicAddress.what = 0;
    civicAddress.countryCode.clear();
    civicAddress.caElements.clear();
    elin.clear();
  }
  bool operator==(const LocationId&) const = default;
};

std::ostream& operator<<(std::ostream& os, const PortAndProtocolVlan& v);
std::ostream& operator<<(std::ostream& os, const VlanName& v);
std::ostream& operator<<(std::ostream& os, const ProtocolIdentityInfo& v);
std::ostream& operator<<(std::ostream& os, const LinkAggregationInfo& v);
std::ostream& operator<<(std::ostream& os, const MacPhyConfigStatusInfo& v);
std::ostream& operator<<(std::ostream& os, const PowerViaMdiInfo& v);
std::ostream& operator<<(std::ostream& os, const MaximumFrameSizeInfo& v);
std::ostream& operator<<(std::ostream& os, const MedCapabilitiesInfo& v);
std::ostream& operator<<(std::ostream& os, const NetworkPolicyTlv& v);
std::ostream& operator<<(std::ostream& os, const NetworkPolicyConfig& v);
std::ostream& operator<<(std::ostream& os, const LocationId& v);

}  // namespace Lldp
