// The LLDP state records: configuration, local system and ports, status and remote systems.
#pragma once

#include <ostream>

#include "platform/Record.h"
#include "records/LldpExtTypes.h"
#include "records/LldpTypes.h"

namespace Lldp {

class PortConfig : public Platform::Entity {
 public:
  // Optional base TLVs to send.
  struct EnabledTlvs {
    static constexpr uint8_t kPortDesc = 1, kSysName = 2, kSysDesc = 4, kSysCap = 8;
    uint8_t value = 0;
    bool portDesc() const { return value & kPortDesc; }
    bool sysName() const { return value & kSysName; }
    bool sysDesc() const { return value & kSysDesc; }
    bool sysCap() const { return value & kSysCap; }
    auto operator<=>(const EnabledTlvs&) const = default;
  };
  // IEEE 802.3 TLVs to send.
  struct Dot3EnabledTlvs {
    static constexpr uint8_t kMacPhyConfigStatus = 1, kPowerViaMdi = 2, kLinkAggregation = 4,
                             kMaxFrameSize = 8;
    uint8_t value = 0;
    bool macPhyConfigStatus() const { return value & kMacPhyConfigStatus; }
    bool powerViaMdi() const { return value & kPowerViaMdi; }
    bool linkAggregation() const { return value & kLinkAggregation; }
    bool maxFrameSize() const { return value & kMaxFrameSize; }
    auto operator<=>(const Dot3EnabledTlvs&) const = default;
  };
  // LLDP-MED TLVs to send.
  struct TiaEnabledTlvs {
    static constexpr uint8_t kCapabilities = 1, kNetworkPolicy = 2, kLocation = 4,
                             kExtendedPowerViaMdi = 8, kInventory = 16;
    uint8_t value = 0;
    bool any() const { return value != 0; }
    bool networkPolicy() const { return value & kNetworkPolicy; }
    auto operator<=>(const TiaEnabledTlvs&) const = default;
  };

#define LLDP_PORT_CONFIG_ATTRS(X)                                         \
  X(Meta, intfId, Konet::IntfId, {})                                      \
  X(Attr, adminStatus, AdminStatus, {AdminStatus::txAndRx})               \
  X(Attr, enabledTlvs, EnabledTlvs, {})                                   \
  X(Attr, dot3EnabledTlvs, Dot3EnabledTlvs, {})                           \
  X(Attr, tiaEnabledTlvs, TiaEnabledTlvs, {})                             \
  X(Attr, mgmtAddrTxEnable, bool, {true})                                 \
  X(Attr, portVlanTxEnable, bool, {true})                                 \
  X(Attr, maxRemoteSystems, uint32_t, {64})                               \
  X(Attr, rxRateLimitingEnabled, bool, {false})                           \
  X(Attr, rxRateLimitMax, uint64_t, {100})                                \
  X(Attr, rxRateLimitPeriod, double, {1.0})                               \
  X(Coll, networkPolicyConfig, uint8_t, NetworkPolicyConfig)
  PLATFORM_RECORD(PortConfig, LLDP_PORT_CONFIG_ATTRS)
 public:
  explicit PortConfig(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
};

class Config : public Platform::Entity {
#define LLDP_CONFIG_ATTRS(X)                           \
  X(Attr, messageTxInterval, uint32_t, {30})           \
  X(Attr, messageTxHoldTime, uint32_t, {120})          \
  X(Attr, reinitDelay, uint32_t, {2})                  \
  X(Attr, txDelay, uint32_t, {2})                      \
  X(Attr, maxTxMgmtAddrs, uint32_t, {1})               \
  X(Attr, rxTaggedPacketsDrop, bool, {false})          \
  X(Meta, maxTxFrameSize, uint32_t, {1518})            \
  X(EntColl, portConfig, Konet::IntfId, PortConfig)
  PLATFORM_RECORD(Config, LLDP_CONFIG_ATTRS)
 public:
  Config() = default;
};

enum class MgmtAddrTxMode : uint8_t { best = 0, all = 1, intfName = 2 };
inline MgmtAddrTxMode mgmtAddrTxModeIntfName() { return MgmtAddrTxMode::intfName; }

struct MgmtAddrTxOption {
  MgmtAddrTxMode mode = MgmtAddrTxMode::best;
  Konet::IntfId intfName;
  MgmtAddrTxMode mgmtAddrTxMode() const { return mode; }
  bool operator==(const MgmtAddrTxOption&) const = default;
};

class CliPortConfig : public Platform::Entity {
#define LLDP_CLI_PORT_CONFIG_ATTRS(X)                         \
  X(Meta, intfId, Konet::IntfId, {})                          \
  X(Attr, adminStatus, AdminStatus, {AdminStatus::txAndRx})   \
  X(Coll, networkPolicyConfig, uint8_t, NetworkPolicyConfig)  \
  X(Attr, rxRateLimitingEnabled, bool, {false})               \
  X(Attr, rxRateLimitMax, uint64_t, {100})                    \
  X(Attr, rxRateLimitPeriod, double, {1.0})
  PLATFORM_RECORD(CliPortConfig, LLDP_CLI_PORT_CONFIG_ATTRS)
 public:
  explicit CliPortConfig(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
};

class CliConfig : public Platform::Entity {
#define LLDP_CLI_CONFIG_ATTRS(X)                              \
  X(Attr, enabled, bool, {true})                              \
  X(Attr, messageTxInterval, uint32_t, {30})                  \
  X(Attr, messageTxHoldTime, uint32_t, {120})                 \
  X(Attr, reinitDelay, uint32_t, {2})                         \
  X(Attr, rxTaggedPacketsDrop, bool, {false})                 \
  X(Attr, mgmtAddrVrf, VrfName, {"default"})                  \
  X(Attr, mgmtAddrTxOption, MgmtAddrTxOption, {})             \
  X(Attr, ip6MgmtAddrIntfName, Konet::IntfId, {})             \
  X(Attr, portDescTlvEnabled, bool, {true})                   \
  X(Attr, sysNameTlvEnabled, bool, {true})                    \
  X(Attr, sysDescTlvEnabled, bool, {true})                    \
  X(Attr, sysCapTlvEnabled, bool, {true})                     \
  X(Attr, mgmtAddrTlvEnabled, bool, {true})                   \
  X(Attr, portVlanIdTlvEnabled, bool, {true})                 \
  X(Attr, linkAggregationTlvEnabled, bool, {true})            \
  X(Attr, maxFrameSizeTlvEnabled, bool, {true})               \
  X(Attr, powerViaMdiTlvEnabled, bool, {true})                \
  X(Attr, medNetworkPolicyTlvEnabled, bool, {true})           \
  X(Attr, holdtimeDeprecatedCmd, bool, {false})               \
  X(Attr, reinitDelayDeprecatedCmd, bool, {false})            \
  X(Attr, tlvSelectDeprecatedCmd, bool, {false})              \
  X(EntColl, portConfig, Konet::IntfId, CliPortConfig)
  PLATFORM_RECORD(CliConfig, LLDP_CLI_CONFIG_ATTRS)
 public:
  CliConfig() = default;
};

class LocalPortPoeInfo : public Platform::Entity {
#define LLDP_LOCAL_PORT_POE_INFO_ATTRS(X)              \
  X(Attr, lldpPoeNegotiationSupported, bool, {false})  \
  X(Attr, pdClass, uint8_t, {})                        \
  X(Attr, poePortState, uint8_t, {})                   \
  X(Attr, powerType, uint8_t, {})                      \
  X(Attr, requestedPowerValue, Units::Watts, {})       \
  X(Attr, grantedPower, Units::Watts, {})
  PLATFORM_RECORD(LocalPortPoeInfo, LLDP_LOCAL_PORT_POE_INFO_ATTRS)
 public:
  LocalPortPoeInfo() = default;
};

class LocalPort : public Platform::Entity {
#define LLDP_LOCAL_PORT_ATTRS(X)                                              \
  X(Meta, intfId, Konet::IntfId, {})                                          \
  X(Attr, portIdentifier, PortIdentifier, {})                                 \
  X(Attr, portDesc, BoundedString255, {})                                     \
  X(Attr, portVlanId, Bridging::VlanIdOrNone, {})                             \
  X(Attr, linkAggregationInfo, LinkAggregationInfo, {})                       \
  X(Attr, maximumFrameSizeInfo, MaximumFrameSizeInfo, {})                     \
  X(Attr, medCapabilities, MedCapabilitiesInfo, {})                           \
  X(SmallColl, localNetworkPolicyTlv, uint8_t, NetworkPolicyTlv)              \
  X(SmallColl, unknownOrgDefTlv, UnknownOrgDefTlv::Key, UnknownOrgDefTlv)     \
  X(Attr, localPortPoeInfo, ::Platform::Ptr<::Lldp::LocalPortPoeInfo>, {})
  PLATFORM_RECORD(LocalPort, LLDP_LOCAL_PORT_ATTRS)
 public:
  explicit LocalPort(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
  // Gives the port PoE information (the name is spelled so on purpose).
  ::Platform::Ptr<LocalPortPoeInfo> initilizeLocalPortPoeInfo();
};

class LocalSystem : public Platform::Entity {
#define LLDP_LOCAL_SYSTEM_ATTRS(X)                                                    \
  X(Attr, chassisIdentifier, ChassisIdentifier, {})                                   \
  X(Attr, sysName, BoundedString255, {})                                              \
  X(Attr, sysDesc, BoundedString255, {})                                              \
  X(Attr, sysCapSupported, SystemCapabilitiesMap, {})                                 \
  X(Attr, sysCapEnabled, SystemCapabilitiesMap, {})                                   \
  X(EntColl, localPort, Konet::IntfId, LocalPort)                                     \
  X(HashColl, managementAddress, ManagementAddress::Key, ManagementAddress)           \
  X(Coll, managementAddressPrio, ManAddrPriority, ManagementAddress::Key)             \
  X(Attr, ip6ManagementAddress, ManagementAddress, {})
  PLATFORM_RECORD(LocalSystem, LLDP_LOCAL_SYSTEM_ATTRS)
 public:
  LocalSystem() = default;
};

// One neighbour on one port. The Meta attributes are identity and bookkeeping; the rest is what
// the neighbour advertised, in the order the receive path compares it. What only the extension
// TLVs carry is Rare: a neighbour that sends the basic TLVs alone has no room for it.
class RemoteSystem : public Platform::Entity {
#define LLDP_REMOTE_SYSTEM_ATTRS(X)                                                 \
  X(Meta, index, int32_t, {1})                                                      \
  X(Meta, msap, Msap, {})                                                           \
  X(Meta, ethAddr, Konet::EthAddr, {})                                              \
  X(Meta, ttl, uint16_t, {})                                                        \
  X(Meta, creationTime, double, {})                                                 \
  X(Meta, lastRefreshTime, double, {})                                              \
  X(Meta, lastChangeTime, double, {})                                               \
  X(Meta, expiryTime, double, {})                                                   \
  X(Attr, portDesc, BoundedString255, {})                                           \
  X(Attr, sysName, BoundedString255, {})                                            \
  X(Attr, sysDesc, BoundedString255, {})                                            \
  X(Attr, sysCapSupported, SystemCapabilitiesMap, {})                               \
  X(Attr, sysCapEnabled, SystemCapabilitiesMap, {})                                 \
  X(SmallColl, managementAddress, ManagementAddress::Key, ManagementAddress)        \
  X(RareColl, unknownTlv, uint32_t, UnknownTlv)                                         \
  X(RareColl, unknownOrgDefTlv, UnknownOrgDefTlv::Key, UnknownOrgDefTlv)                \
  X(Rare, portVlanId, Bridging::VlanIdOrNone, {})                                   \
  X(Rare, portVlanIdTlvReceived, bool, {false})                                     \
  X(RareColl, portAndProtocolVlan, uint16_t, PortAndProtocolVlan)                       \
  X(RareColl, vlanName, uint16_t, VlanName)                                             \
  X(RareColl, protocolIdentityInfo, uint32_t, ProtocolIdentityInfo)                     \
  X(Rare, vidUsageDigest, uint32_t, {})                                             \
  X(Rare, vidUsageDigestTlvReceived, bool, {false})                                 \
  X(Rare, managementVid, Bridging::VlanIdOrNone, {})                                \
  X(Rare, managementVidTlvReceived, bool, {false})                                  \
  X(Rare, linkAggregationInfo, LinkAggregationInfo, {})                             \
  X(Rare, linkAggregationTlvReceived, bool, {false})                                \
  X(Rare, macPhyConfigStatusInfo, MacPhyConfigStatusInfo, {})                       \
  X(Rare, macPhyConfigStatusTlvReceived, bool, {false})                             \
  X(Rare, powerViaMdiInfo, PowerViaMdiInfo, {})                                     \
  X(Rare, powerViaMdiTlvReceived, bool, {false})                                    \
  X(Rare, maximumFrameSizeInfo, MaximumFrameSizeInfo, {})                           \
  X(Rare, maximumFrameSizeTlvReceived, bool, {false})                               \
  X(Rare, medCapabilitiesInfo, MedCapabilitiesInfo, {})                             \
  X(Rare, medCapabilitiesTlvReceived, bool, {false})                                \
  X(RareColl, networkPolicyTlv, uint8_t, NetworkPolicyTlv)                              \
  X(Rare, locationId, LocationId, {})                                               \
  X(Rare, hardwareRevisionTlvInfo, BoundedString32, {})                             \
  X(Rare, firmwareRevisionTlvInfo, BoundedString32, {})                             \
  X(Rare, softwareRevisionTlvInfo, BoundedString32, {})                             \
  X(Rare, serialNumberTlvInfo, BoundedString32, {})                                 \
  X(Rare, manufacturerNameTlvInfo, BoundedString32, {})                             \
  X(Rare, modelNameTlvInfo, BoundedString32, {})                                    \
  X(Rare, assetIDTlvInfo, BoundedString32, {})                                     \
  X(Rare, lldpMedTlvReceived, bool, {false})
  PLATFORM_RECORD(RemoteSystem, LLDP_REMOTE_SYSTEM_ATTRS)
 public:
  // Indexes start at 1: "RemoteSystem::index < 1 not allowed".
  RemoteSystem(int32_t index, Msap msap);
  // Whether any TLV with the LLDP-MED OUI came from this neighbour.
  bool anyLldpMedReceived() const;

  // The receive path's memo of the last LLDPDU it applied: a byte-identical refresh needs no
  // parse, only what the parse would have counted. Not part of the record's state.
  struct LastFrame {
    uint64_t hash = 0;
    uint16_t length = 0;
    uint16_t unrecognizedTlvs = 0;
    uint16_t discardedTlvs = 0;
    bool hadError = false;
    bool reusable = false;
  };
  LastFrame& lastFrame() { return lastFrame_; }

 private:
  LastFrame lastFrame_;
};

// Why neighbours leave a port's table, for subscribers that report it.
enum class RemoteSystemDelReason : uint8_t { unknown, ageout, shutdown, linkDown, cleared, portRemoved };

class PortStatus : public Platform::Entity {
#define LLDP_PORT_STATUS_ATTRS(X)                                                 \
  X(Meta, intfId, Konet::IntfId, {})                                              \
  X(Meta, creationTime, double, {})                                               \
  X(Counter, txFramesTotal, uint32_t, {})                                         \
  X(Counter, txFramesLengthExceeded, uint32_t, {})                                \
  X(Counter, txFramesNoMemErrors, uint32_t, {})                                   \
  X(Attr, lastTxTime, double, {})                                                 \
  X(Counter, rxFramesTotal, uint32_t, {})                                         \
  X(Counter, rxFramesErrors, uint32_t, {})                                        \
  X(Counter, rxFramesDiscardedTotal, uint32_t, {})                                \
  X(Counter, rxTLVsDiscardedTotal, uint32_t, {})                                  \
  X(Counter, rxTLVsUnrecognizedTotal, uint32_t, {})                               \
  X(Counter, rxAgeoutsTotal, uint32_t, {})                                        \
  X(Counter, rxKernelDropsTotal, uint32_t, {})                                    \
  X(EntColl, remoteSystem, int32_t, RemoteSystem)                                 \
  X(HashColl, remoteSystemByMsap, Msap, ::Platform::Ptr<::Lldp::RemoteSystem>)    \
  X(Counter, nextRemoteSystemIndex, int32_t, {})                                  \
  X(Attr, ceeSeqNumToSend, uint32_t, {})                                          \
  X(Attr, ceeSeqNumToAck, uint32_t, {})
  PLATFORM_RECORD(PortStatus, LLDP_PORT_STATUS_ATTRS)
 public:
  PortStatus(Konet::IntfId intfId, double creationTime)
      : intfId_(std::move(intfId)), creationTime_(creationTime) {}
  bool anyLldpMedReceived() const;
  bool networkPolicyTlvReceived() const;
  bool powerViaMdiTlvReceived() const;

  // Set just before deleting neighbours; read by watchers during the deletion. Not state: it
  // notifies nobody.
  RemoteSystemDelReason remoteSystemDelReason() const { return remoteSystemDelReason_; }
  void remoteSystemDelReasonIs(RemoteSystemDelReason reason) { remoteSystemDelReason_ = reason; }

 private:
  RemoteSystemDelReason remoteSystemDelReason_ = RemoteSystemDelReason::unknown;
};

// Table-wide counters, shared by the per-cell status and the accumulated one.
#define LLDP_STATUS_BASE_ATTRS(X)                       \
  X(Counter, remTablesInserts, uint32_t, {})            \
  X(Counter, remTablesDeletes, uint32_t, {})            \
  X(Counter, remTablesDrops, uint32_t, {})              \
  X(Counter, remTablesAgeouts, uint32_t, {})            \
  X(Attr, remTablesLastChangeTime, double, {})          \
  X(Attr, lastPacketParsedTime, double, {})             \
  X(Attr, mgmtAddrVrf, VrfName, {})

class Status : public Platform::Entity {
#define LLDP_STATUS_ATTRS(X)      \
  X(Meta, name, std::string, {})  \
  LLDP_STATUS_BASE_ATTRS(X)       \
  X(EntColl, portStatus, Konet::IntfId, PortStatus)
  PLATFORM_RECORD(Status, LLDP_STATUS_ATTRS)
 public:
  Status() = default;
  explicit Status(std::string name) : name_(std::move(name)) {}
};

// Both supervisors' status combined: the port statuses are the cells' own records.
class AllStatus : public Platform::Entity {
#define LLDP_ALL_STATUS_ATTRS(X) \
  LLDP_STATUS_BASE_ATTRS(X)      \
  X(Coll, portStatus, Konet::IntfId, ::Platform::Ptr<::Lldp::PortStatus>)
  PLATFORM_RECORD(AllStatus, LLDP_ALL_STATUS_ATTRS)
 public:
  AllStatus() = default;
};

struct RemTablesClearRequest {
  double time = 0;
  std::string requester;
  std::string origin;
  Konet::IntfId intfId;  // one port's neighbours; empty for every port's
  bool operator==(const RemTablesClearRequest&) const = default;
};

class RemTablesCliConfig : public Platform::Entity {
#define LLDP_REM_TABLES_CLI_CONFIG_ATTRS(X) X(Attr, remTablesClearRequest, RemTablesClearRequest, {})
  PLATFORM_RECORD(RemTablesCliConfig, LLDP_REM_TABLES_CLI_CONFIG_ATTRS)
 public:
  RemTablesCliConfig() = default;
};

class RemTablesStatus : public Platform::Entity {
#define LLDP_REM_TABLES_STATUS_ATTRS(X) X(Attr, remTablesLastClearTime, double, {})
  PLATFORM_RECORD(RemTablesStatus, LLDP_REM_TABLES_STATUS_ATTRS)
 public:
  RemTablesStatus() = default;
};

// One client's external TLVs for one port.
class ExternalTlvPortConfig : public Platform::Entity {
#define LLDP_EXTERNAL_TLV_PORT_CONFIG_ATTRS(X) \
  X(Meta, intfId, Konet::IntfId, {})           \
  X(Coll, unknownOrgDefTlv, UnknownOrgDefTlv::Key, UnknownOrgDefTlv)
  PLATFORM_RECORD(ExternalTlvPortConfig, LLDP_EXTERNAL_TLV_PORT_CONFIG_ATTRS)
 public:
  explicit ExternalTlvPortConfig(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
};

class ExternalTlvConfig : public Platform::Entity {
#define LLDP_EXTERNAL_TLV_CONFIG_ATTRS(X) \
  X(Meta, name, std::string, {})          \
  X(EntColl, portConfig, Konet::IntfId, ExternalTlvPortConfig)
  PLATFORM_RECORD(ExternalTlvConfig, LLDP_EXTERNAL_TLV_CONFIG_ATTRS)
 public:
  explicit ExternalTlvConfig(std::string name) : name_(std::move(name)) {}
};

std::ostream& operator<<(std::ostream& os, const RemoteSystem& rs);
std::ostream& operator<<(std::ostream& os, const PortStatus& ps);
std::ostream& operator<<(std::ostream& os, const LocalPort& lp);

}  // namespace Lldp

