// Value types shared by the LLDP records: bounded strings, identifiers, capabilities, management
// addresses and priorities, unknown TLVs, and the MSAP.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Bounded.h"
#include "platform/EthAddr.h"
#include "platform/IntfId.h"
#include "platform/Record.h"

namespace Bridging {
using VlanIdOrNone = Platform::BoundedInt<"VlanIdOrNone", uint16_t, 0, 4094>;
using VlanId = Platform::BoundedInt<"VlanId", uint16_t, 1, 4094>;
}  // namespace Bridging

namespace Units {
struct Watts {
  double value = 0;
  auto operator<=>(const Watts&) const = default;
};
std::ostream& operator<<(std::ostream& os, const Watts& w);
}  // namespace Units

namespace Lldp {

using BoundedString32 = Platform::BoundedBytes<"BoundedString32", 32>;
using BoundedString255 = Platform::BoundedBytes<"BoundedString255", 255>;
using BoundedString507 = Platform::BoundedBytes<"BoundedString507", 507>;
using BoundedString511 = Platform::BoundedBytes<"BoundedString511", 511>;
using ChassisId = Platform::BoundedBytes<"ChassisId", 255>;
using PortId = Platform::BoundedBytes<"PortId", 255>;
using ManAddress = Platform::BoundedBytes<"ManAddress", 31>;
using NamespaceName = Platform::BoundedBytes<"NamespaceName", 150>;
using VrfName = Platform::BoundedBytes<"VrfName", 100>;

enum class MacSeparator { colon, dash, dot, none };

// Chassis ID subtypes (IEEE 802.1AB).
enum ChassisIdSubtype : uint8_t {
  chassisIdChassisComponent = 1,
  chassisIdInterfaceAlias = 2,
  chassisIdPortComponent = 3,
  chassisIdMacAddress = 4,
  chassisIdNetworkAddress = 5,
  chassisIdInterfaceName = 6,
  chassisIdLocal = 7,
};

// Port ID subtypes (IEEE 802.1AB).
enum PortIdSubtype : uint8_t {
  portIdInterfaceAlias = 1,
  portIdPortComponent = 2,
  portIdMacAddress = 3,
  portIdNetworkAddress = 4,
  portIdInterfaceName = 5,
  portIdAgentCircuitId = 6,
  portIdLocal = 7,
};

// How an identifier's bytes print: a MAC address as a MAC address, a network address as an
// address, printable text as text, anything else as hexadecimal pairs. forceHex prints hex always.
std::string identifierText(uint8_t subtype, std::string_view bytes, bool macSubtype,
                           bool networkSubtype, MacSeparator sep, bool forceHex);
// "192.0.2.1", "2001:db8::1", or hex pairs for other families.
std::string addressText(uint8_t family, std::string_view bytes);

struct ChassisIdentifier {
  uint8_t subtype = 0;
  ChassisId value;

  std::string stringValue(MacSeparator sep = MacSeparator::colon, bool forceHex = false) const {
    return identifierText(subtype, value.view(), subtype == chassisIdMacAddress,
                          subtype == chassisIdNetworkAddress, sep, forceHex);
  }
  bool isDefault() const { return subtype == 0 && value.empty(); }
  bool operator==(const ChassisIdentifier&) const = default;
  auto operator<=>(const ChassisIdentifier&) const = default;
};

struct PortIdentifier {
  uint8_t subtype = 0;
  PortId value;

  std::string stringValue(MacSeparator sep = MacSeparator::colon, bool forceHex = false) const {
    return identifierText(subtype, value.view(), subtype == portIdMacAddress,
                          subtype == portIdNetworkAddress, sep, forceHex);
  }
  bool isDefault() const { return subtype == 0 && value.empty(); }
  bool operator==(const PortIdentifier&) const = default;
  auto operator<=>(const PortIdentifier&) const = default;
};

// IEEE 802.1AB system capability bits.
struct SystemCapabilitiesMap {
  static constexpr uint16_t other = 0x01, repeater = 0x02, bridge = 0x04, wlanAccessPoint = 0x08,
                            router = 0x10, telephone = 0x20, docsisCableDevice = 0x40,
                            stationOnly = 0x80, cVlanComponent = 0x100, sVlanComponent = 0x200,
                            twoPortMacRelay = 0x400;
  uint16_t value = 0;

  bool has(uint16_t bits) const { return (value & bits) == bits; }
  auto operator<=>(const SystemCapabilitiesMap&) const = default;
};

struct Oui {
  uint32_t value = 0;  // 24 bits
  constexpr Oui() = default;
  constexpr explicit Oui(uint32_t v) : value(v & 0xffffff) {}
  auto operator<=>(const Oui&) const = default;
};

inline constexpr Oui kOuiDot1{0x0080c2};
inline constexpr Oui kOuiDot3{0x00120f};
inline constexpr Oui kOuiTia{0x0012bb};
inline constexpr Oui kOuiCee{0x001b21};

// IANA address family numbers used as management address subtypes.
enum AddressFamily : uint8_t { afIpv4 = 1, afIpv6 = 2, afIeee802 = 6 };

// Management-address interface numbering subtypes.
enum IfNumbering : uint8_t { ifNumberingUnknown = 1, ifNumberingIfIndex = 2, ifNumberingSysPort = 3 };

struct ManagementAddress {
  // What identifies an address: its family and bytes.
  struct Key {
    uint8_t subtype = 0;
    ManAddress address;  // (order fixed by aggregate initialisation {subtype, address})
    std::string stringValue() const { return addressText(subtype, address.view()); }
    bool operator==(const Key&) const = default;
    auto operator<=>(const Key&) const = default;
  };

  ManagementAddress() = default;
  ManagementAddress(const Key& key, uint8_t ifSubtype, int32_t ifId, std::vector<uint32_t> oid = {})
      : address_(key.address),
        oid_(oid.empty() ? nullptr : Platform::make<const Oid>(std::move(oid))),
        ifId_(ifId), addrSubtype_(key.subtype), ifSubtype_(ifSubtype) {}

  uint8_t addrSubtype() const { return addrSubtype_; }
  const ManAddress& address() const { return address_; }
  uint8_t ifSubtype() const { return ifSubtype_; }
  int32_t ifId() const { return ifId_; }
  const std::vector<uint32_t>& oid() const { return oid_ ? oid_->subids : kNoOid; }
  Key key() const { return Key{addrSubtype_, address_}; }
  // The LLDP management address string length: the subtype byte and the address.
  int manAddrLen() const { return 1 + static_cast<int>(address_.size()); }
  bool operator==(const ManagementAddress& o) const {
    return addrSubtype_ == o.addrSubtype_ && address_ == o.address_ && ifSubtype_ == o.ifSubtype_ &&
           ifId_ == o.ifId_ && oid() == o.oid();
  }

 private:
  // Shared by copies; one word, as neighbours' addresses are many and their OIDs nearly always empty.
  struct Oid : Platform::RefCounted {
    explicit Oid(std::vector<uint32_t> s) : subids(std::move(s)) {}
    std::vector<uint32_t> subids;
  };
  static inline const std::vector<uint32_t> kNoOid;
  ManAddress address_;
  Platform::Ptr<const Oid> oid_;  // null for the usual empty OID
  int32_t ifId_ = 0;
  uint8_t addrSubtype_ = 0;
  uint8_t ifSubtype_ = 0;
};

enum class ManAddrType : uint8_t { sourceIntf = 0, intf = 1, fallback = 2 };

// Smaller is preferred: type, then primary, then secondary, then interface.
struct ManAddrPriority {
  ManAddrType type = ManAddrType::intf;
  uint32_t primaryPriority = 0;
  uint32_t secondaryPriority = 0;
  Konet::IntfId intfId;
  auto operator<=>(const ManAddrPriority&) const = default;
};

struct UnknownTlv {
  UnknownTlv() = default;
  UnknownTlv(uint32_t type, BoundedString511 value);
  uint32_t type() const { return type_; }
  const BoundedString511& value() const { return value_; }
  bool operator==(const UnknownTlv&) const = default;

 private:
  uint32_t type_ = 9;
  BoundedString511 value_;
};

struct UnknownOrgDefTlv {
  struct Key {
    Key() = default;
    Key(Oui oui, uint8_t subtype, uint32_t index);
    Oui oui() const { return oui_; }
    uint8_t subtype() const { return subtype_; }
    uint32_t index() const { return index_; }
    auto operator<=>(const Key&) const = default;

   private:
    Oui oui_;
    uint8_t subtype_ = 0;
    uint32_t index_ = 1;
  };

  Key key;
  BoundedString507 value;
  bool operator==(const UnknownOrgDefTlv&) const = default;
};

// An LLDP neighbour's identity on one port: its chassis and port identifiers.
struct Msap {
  ChassisIdentifier chassisIdentifier;
  PortIdentifier portIdentifier;
  bool operator==(const Msap&) const = default;
  auto operator<=>(const Msap&) const = default;
};

// The same identity as it lies in a received frame, for look-ups that copy nothing.
struct MsapView {
  uint8_t chassisSubtype;
  std::string_view chassisId;
  uint8_t portSubtype;
  std::string_view portId;
};

bool operator==(const Msap& a, const MsapView& b);
size_t msapHash(uint8_t chassisSubtype, std::string_view chassisId, uint8_t portSubtype,
                std::string_view portId);

struct MsapHash {
  using is_transparent = void;
  size_t operator()(const Msap& m) const {
    return msapHash(m.chassisIdentifier.subtype, m.chassisIdentifier.value.view(),
                    m.portIdentifier.subtype, m.portIdentifier.value.view());
  }
  size_t operator()(const MsapView& m) const {
    return msapHash(m.chassisSubtype, m.chassisId, m.portSubtype, m.portId);
  }
};

// Administrative status, numbered as in the LLDP MIB.
enum class AdminStatus : uint8_t { txOnly = 1, rxOnly = 2, txAndRx = 3, disabled = 4 };

std::ostream& operator<<(std::ostream& os, const ChassisIdentifier& id);
std::ostream& operator<<(std::ostream& os, const PortIdentifier& id);
std::ostream& operator<<(std::ostream& os, const SystemCapabilitiesMap& caps);
std::ostream& operator<<(std::ostream& os, const Oui& oui);
std::ostream& operator<<(std::ostream& os, const ManagementAddress::Key& key);
std::ostream& operator<<(std::ostream& os, const ManagementAddress& addr);
std::ostream& operator<<(std::ostream& os, const ManAddrPriority& prio);
std::ostream& operator<<(std::ostream& os, const UnknownTlv& tlv);
std::ostream& operator<<(std::ostream& os, const UnknownOrgDefTlv::Key& key);
std::ostream& operator<<(std::ostream& os, const UnknownOrgDefTlv& tlv);
std::ostream& operator<<(std::ostream& os, const Msap& msap);
std::ostream& operator<<(std::ostream& os, AdminStatus status);

}  // namespace Lldp

namespace Platform {
template <>
struct HashOf<Lldp::Msap> : Lldp::MsapHash {};
template <>
struct HashOf<Lldp::ManagementAddress::Key> {
  size_t operator()(const Lldp::ManagementAddress::Key& k) const {
    return std::hash<std::string_view>()(k.address.view()) * 31 + k.subtype;
  }
};
}  // namespace Platform
