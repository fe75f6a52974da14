// Records of the other agents that LLDP reads or writes: interfaces, bridging, routing, IP,
// system, entity MIB, power, 802.1X, redundancy, cells, kernel network information and
// neighbour classification. The values LLDP relies on are explained with each record.
#pragma once

#include <string>

#include "platform/EthAddr.h"
#include "platform/IntfId.h"
#include "platform/Record.h"
#include "records/IpTypes.h"
#include "records/LldpTypes.h"

namespace Interface {

// Link status of a physical port. LLDP uses two values: linkUp (a port is up only then) and
// linkDown (the one value that removes a port's classified neighbours at once); unknown is
// neither, so a port in an unknown state keeps its neighbours until the next classification pass.
enum class LinkStatus : uint8_t { unknown = 0, linkDown = 1, linkUp = 2 };
std::ostream& operator<<(std::ostream& os, LinkStatus s);

// How a physical port forwards; LLDP runs from `routed` up (or `dataLink` with 802.1X bypass).
enum class ForwardingModel : uint8_t { unknown = 0, discarded = 1, dataLink = 2, bridged = 3, routed = 4 };

class EthPhyIntfStatus : public Platform::Entity {
#define INTF_ETH_PHY_STATUS_ATTRS(X)                          \
  X(Meta, intfId, Konet::IntfId, {})                          \
  X(Attr, linkStatus, LinkStatus, {LinkStatus::unknown})      \
  X(Attr, addr, Konet::EthAddr, {})                           \
  X(Attr, forwardingModel, ForwardingModel, {})               \
  X(Attr, maxMtu, uint32_t, {1500})                           \
  X(Attr, deviceName, std::string, {})
  PLATFORM_RECORD(EthPhyIntfStatus, INTF_ETH_PHY_STATUS_ATTRS)
 public:
  explicit EthPhyIntfStatus(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
};

class AllEthPhyIntfStatusDir : public Platform::Entity {
#define INTF_ALL_ETH_PHY_STATUS_ATTRS(X) X(EntColl, intfStatus, Konet::IntfId, EthPhyIntfStatus)
  PLATFORM_RECORD(AllEthPhyIntfStatusDir, INTF_ALL_ETH_PHY_STATUS_ATTRS)
 public:
  AllEthPhyIntfStatusDir() = default;
};

class EthPhyIntfConfig : public Platform::Entity {
#define INTF_ETH_PHY_CONFIG_ATTRS(X)   \
  X(Meta, intfId, Konet::IntfId, {})   \
  X(Attr, description, std::string, {}) \
  X(Attr, enabled, bool, {true})
  PLATFORM_RECORD(EthPhyIntfConfig, INTF_ETH_PHY_CONFIG_ATTRS)
 public:
  explicit EthPhyIntfConfig(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
};

class AllEthPhyIntfConfigDir : public Platform::Entity {
#define INTF_ALL_ETH_PHY_CONFIG_ATTRS(X) X(EntColl, intfConfig, Konet::IntfId, EthPhyIntfConfig)
  PLATFORM_RECORD(AllEthPhyIntfConfigDir, INTF_ALL_ETH_PHY_CONFIG_ATTRS)
 public:
  AllEthPhyIntfConfigDir() = default;
};

enum class OperStatus : uint8_t { unknown = 0, up = 1, down = 2 };

// Any interface's status, with the interface index the interface-details provider answers.
class IntfStatus : public Platform::Entity {
#define INTF_STATUS_ATTRS(X)                            \
  X(Meta, intfId, Konet::IntfId, {})                    \
  X(Attr, operStatus, OperStatus, {OperStatus::unknown}) \
  X(Attr, ifIndex, int32_t, {-1})                       \
  X(Attr, netNsName, std::string, {})
  PLATFORM_RECORD(IntfStatus, INTF_STATUS_ATTRS)
 public:
  explicit IntfStatus(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
};

class AllIntfStatusDir : public Platform::Entity {
#define INTF_ALL_STATUS_ATTRS(X) X(EntColl, intfStatus, Konet::IntfId, IntfStatus)
  PLATFORM_RECORD(AllIntfStatusDir, INTF_ALL_STATUS_ATTRS)
 public:
  AllIntfStatusDir() = default;
};

class AllIntfStatusLocalDir : public Platform::Entity {
#define INTF_ALL_STATUS_LOCAL_ATTRS(X) X(EntColl, intfStatus, Konet::IntfId, IntfStatus)
  PLATFORM_RECORD(AllIntfStatusLocalDir, INTF_ALL_STATUS_LOCAL_ATTRS)
 public:
  AllIntfStatusLocalDir() = default;
};

class EthLagIntfStatus : public Platform::Entity {
#define INTF_ETH_LAG_STATUS_ATTRS(X)  \
  X(Meta, intfId, Konet::IntfId, {})  \
  X(Coll, member, Konet::IntfId, bool)
  PLATFORM_RECORD(EthLagIntfStatus, INTF_ETH_LAG_STATUS_ATTRS)
 public:
  explicit EthLagIntfStatus(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
};

class EthLagIntfStatusDir : public Platform::Entity {
#define INTF_ETH_LAG_STATUS_DIR_ATTRS(X) X(EntColl, intfStatus, Konet::IntfId, EthLagIntfStatus)
  PLATFORM_RECORD(EthLagIntfStatusDir, INTF_ETH_LAG_STATUS_DIR_ATTRS)
 public:
  EthLagIntfStatusDir() = default;
};

}  // namespace Interface

namespace Bridging {

// Switchport modes; 3 to 5 carry no LLDP transmission.
enum class SwitchportMode : uint8_t { access = 0, trunk = 1, dot1qTunnel = 2, tap = 3, tool = 4, routed = 5 };

class SwitchIntfConfig : public Platform::Entity {
#define BRIDGING_SWITCH_INTF_CONFIG_ATTRS(X)                    \
  X(Meta, intfId, Konet::IntfId, {})                            \
  X(Attr, switchportMode, SwitchportMode, {SwitchportMode::access}) \
  X(Attr, nativeVlan, VlanIdOrNone, {})
  PLATFORM_RECORD(SwitchIntfConfig, BRIDGING_SWITCH_INTF_CONFIG_ATTRS)
 public:
  explicit SwitchIntfConfig(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
};

class Config : public Platform::Entity {
#define BRIDGING_CONFIG_ATTRS(X)                 \
  X(Attr, bridgeMacAddr, Konet::EthAddr, {})     \
  X(EntColl, switchIntfConfig, Konet::IntfId, SwitchIntfConfig)
  PLATFORM_RECORD(Config, BRIDGING_CONFIG_ATTRS)
 public:
  Config() = default;
};

class HwCapabilities : public Platform::Entity {
#define BRIDGING_HW_CAPABILITIES_ATTRS(X) X(Attr, maxFrameSize, uint16_t, {9236})
  PLATFORM_RECORD(HwCapabilities, BRIDGING_HW_CAPABILITIES_ATTRS)
 public:
  HwCapabilities() = default;
};

}  // namespace Bridging

namespace Routing {
class Config : public Platform::Entity {
#define ROUTING_CONFIG_ATTRS(X) X(Attr, routing, bool, {false})
  PLATFORM_RECORD(Config, ROUTING_CONFIG_ATTRS)
 public:
  Config() = default;
};
}  // namespace Routing

namespace Ip {

class IpIntfStatus : public Platform::Entity {
#define IP_INTF_STATUS_ATTRS(X)                                      \
  X(Meta, intfId, Konet::IntfId, {})                                 \
  X(Attr, activeAddrWithMask, Arnet::IpAddrWithMask, {})             \
  X(Coll, secondaryWithMask, Arnet::IpAddrWithMask, bool)            \
  X(Attr, vrf, Lldp::VrfName, {"default"})
  PLATFORM_RECORD(IpIntfStatus, IP_INTF_STATUS_ATTRS)
 public:
  explicit IpIntfStatus(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
};

class Status : public Platform::Entity {
#define IP_STATUS_ATTRS(X) X(EntColl, ipIntfStatus, Konet::IntfId, IpIntfStatus)
  PLATFORM_RECORD(Status, IP_STATUS_ATTRS)
 public:
  Status() = default;
};

}  // namespace Ip

namespace Ip6 {

class IntfStatus : public Platform::Entity {
#define IP6_INTF_STATUS_ATTRS(X)      \
  X(Meta, intfId, Konet::IntfId, {})  \
  X(Coll, addr, Arnet::Ip6AddrWithMask, bool)
  PLATFORM_RECORD(IntfStatus, IP6_INTF_STATUS_ATTRS)
 public:
  explicit IntfStatus(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
};

class Status : public Platform::Entity {
#define IP6_STATUS_ATTRS(X) X(EntColl, intf, Konet::IntfId, IntfStatus)
  PLATFORM_RECORD(Status, IP6_STATUS_ATTRS)
 public:
  Status() = default;
};

}  // namespace Ip6

namespace System {
class NetStatus : public Platform::Entity {
#define SYSTEM_NET_STATUS_ATTRS(X)       \
  X(Attr, hostname, std::string, {})     \
  X(Attr, domainName, std::string, {})
  PLATFORM_RECORD(NetStatus, SYSTEM_NET_STATUS_ATTRS)
 public:
  NetStatus() = default;
};
}  // namespace System

namespace EntityMib {
// The system description of the entity MIB.
class Status : public Platform::Entity {
#define ENTITY_MIB_STATUS_ATTRS(X) X(Attr, value, std::string, {})
  PLATFORM_RECORD(Status, ENTITY_MIB_STATUS_ATTRS)
 public:
  Status() = default;
};
}  // namespace EntityMib

namespace Environment::Power {
class PoePortStatus : public Platform::Entity {
#define POE_PORT_STATUS_ATTRS(X)                         \
  X(Meta, name, std::string, {})                         \
  X(Attr, grantedPower, Units::Watts, {})                \
  X(Attr, poweredDeviceClass, uint8_t, {})               \
  X(Attr, poePortState, uint8_t, {})                     \
  X(Attr, lldpNegotiationSupported, bool, {false})
  PLATFORM_RECORD(PoePortStatus, POE_PORT_STATUS_ATTRS)
 public:
  explicit PoePortStatus(std::string name) : name_(std::move(name)) {}
};
}  // namespace Environment::Power

namespace Identity::Dot1x {
class Status : public Platform::Entity {
#define DOT1X_STATUS_ATTRS(X) X(Attr, lldpBypass, bool, {false})
  PLATFORM_RECORD(Status, DOT1X_STATUS_ATTRS)
 public:
  Status() = default;
};
}  // namespace Identity::Dot1x

namespace Redundancy {
// The supervisor's redundancy mode. The LLDP agent is in standby mode exactly when the mode is
// standby: active, disabled (a single supervisor) and unknown (redundancy not yet decided, as
// at start-up of a single-supervisor system) all run the agent as the active supervisor, so a
// switch without a redundancy agent still runs LLDP. The agent reads it from the per-cell path
// "redundancy/status".
enum class RedundancyMode : uint8_t { unknown = 0, active = 1, standby = 2, disabled = 3 };

class RedundancyStatus : public Platform::Entity {
#define REDUNDANCY_STATUS_ATTRS(X)                              \
  X(Attr, mode, RedundancyMode, {RedundancyMode::active})      \
  X(Attr, peerCellId, uint32_t, {})
  PLATFORM_RECORD(RedundancyStatus, REDUNDANCY_STATUS_ATTRS)
 public:
  RedundancyStatus() = default;
};
}  // namespace Redundancy

namespace Hardware {
// One entry per cell (named by its cell id) in "hardware/cellInfo". The active supervisor keeps
// one LLDP status entry per supervisor cell in "l2discovery/lldp/status/local": a supervisor
// cell gets an entry, a line card is skipped (it runs no LLDP agent), and a cell that leaves the
// directory loses its entry, except the agent's own cell, whose entry it never removes.
enum class CellType : uint8_t { unknown = 0, supervisor = 1, linecard = 2 };

class CellInfo : public Platform::Entity {
#define HARDWARE_CELL_INFO_ATTRS(X)                   \
  X(Meta, cellId, uint32_t, {})                       \
  X(Attr, cellType, CellType, {CellType::supervisor})
  PLATFORM_RECORD(CellInfo, HARDWARE_CELL_INFO_ATTRS)
 public:
  explicit CellInfo(uint32_t cellId) : cellId_(cellId) {}
};
}  // namespace Hardware

namespace KernelNetInfo {
// The kernel's network information of one network namespace ("kni/ns/<name>/status"): the
// devices by name with their interface index and address. Packet access opens a device only
// when it is in the agent's namespace.
struct Device {
  int32_t ifIndex = 0;
  Konet::EthAddr addr;
  bool operator==(const Device&) const = default;
};

class Status : public Platform::Entity {
#define KERNEL_NET_INFO_STATUS_ATTRS(X)        \
  X(Meta, nsName, std::string, {})             \
  X(Coll, device, std::string, ::KernelNetInfo::Device)
  PLATFORM_RECORD(Status, KERNEL_NET_INFO_STATUS_ATTRS)
 public:
  Status() = default;
  explicit Status(std::string nsName) : nsName_(std::move(nsName)) {}
};
}  // namespace KernelNetInfo

namespace Identity::NbrClassification {

// 0 means not classified; LLDP writes phone (1) for a neighbour that advertises the telephone
// capability as supported, and no other value. A Neighbor carries the MAC address (the key),
// the interface, the classification and the description "Chassis ID <chassis id>".
enum class Classification : uint8_t { unclassified = 0, phone = 1 };
const char* toString(Classification c);

struct Neighbor {
  Konet::EthAddr ethAddr;
  Konet::IntfId intfId;
  Classification classification = Classification::unclassified;
  std::string description;
  bool operator==(const Neighbor&) const = default;
};
std::ostream& operator<<(std::ostream& os, const Neighbor& n);

class Status : public Platform::Entity {
#define NBR_CLASSIFICATION_STATUS_ATTRS(X) X(Coll, neighbor, Konet::EthAddr, Neighbor)
  PLATFORM_RECORD(Status, NBR_CLASSIFICATION_STATUS_ATTRS)
 public:
  Status() = default;
};

}  // namespace Identity::NbrClassification
