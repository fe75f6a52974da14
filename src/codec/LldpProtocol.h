// LLDPDU codec: TLV framing, the transmit builder and the receive path with its remote-system
// table update. Functions work on raw bytes with a cursor and an end pointer, never throw on
// received data and allocate nothing per frame in the steady state.
#pragma once

#include <cstdint>

#include "codec/TlvParseResult.h"
#include "platform/EthAddr.h"
#include "platform/Log.h"
#include "platform/Trace.h"
#include "records/LldpRecords.h"

namespace Lldp {

inline constexpr int kTlvEnd = 0, kTlvChassisId = 1, kTlvPortId = 2, kTlvTtl = 3,
                     kTlvPortDesc = 4, kTlvSysName = 5, kTlvSysDesc = 6, kTlvSysCap = 7,
                     kTlvManagementAddress = 8, kTlvOrgSpecific = 127;
inline constexpr int kMaxLldpduSize = 1500;
inline constexpr uint16_t kLldpEtherType = 0x88cc;
// Receive buffers keep this many readable zero bytes after a frame's end: the CEE parser reads
// its sequence number without a length check.
inline constexpr int kRxSlack = 8;

// The codec's one shared information buffer: organisationally specific payloads are composed at
// infoBuf + 4 so that putOrgDefTlv can write OUI and subtype in front of them in place.
inline constexpr int kInfoBufSize = 4 + 507;
extern uint8_t infoBuf[kInfoBufSize];
inline uint8_t* orgDefInfo() { return infoBuf + 4; }

extern Platform::TraceFacility lldpProtocolTrace;

// Chassis identifier, port identifier and interface, as texts.
using NeighbourLogHandle = Platform::LogHandle<std::string_view, std::string_view, std::string_view>;
extern const NeighbourLogHandle LLDP_NEIGHBOR_NEW;
extern const NeighbourLogHandle LLDP_NEIGHBOR_TIMEOUT;
extern const NeighbourLogHandle LLDP_NEIGHBOR_GONE;

// Transmit framing: false (frame untouched, cursor unmoved) when the TLV does not fit.
bool putTlv(uint8_t*& cursor, const uint8_t* end, int type, int infoLen, const uint8_t* info);
bool putOrgDefTlv(uint8_t*& cursor, const uint8_t* end, Oui oui, int subtype, int infoLen,
                  uint8_t* info);
bool putManagementAddress(uint8_t*& cursor, const uint8_t* end, const ManagementAddress& manAddr);

// Receive framing. extractTlv advances the cursor past the TLV even when it overruns the end.
bool extractTlv(const uint8_t*& cursor, const uint8_t* end, int& type, int& infoLen,
                const uint8_t*& info);
bool extractMandatoryTlv(const uint8_t*& cursor, const uint8_t* end, int expectedType, int maxLen,
                         int& infoLen, const uint8_t*& info);

// Writes a whole LLDPDU for the port into [start, end) and returns the position after it.
uint8_t* buildTxLldpdu(uint8_t* start, uint8_t* end, const Config& config,
                       const LocalSystem& localSystem, const LocalPort& localPort,
                       const PortConfig& portConfig, PortStatus& portStatus, double now);

// Appends the port's external organisationally specific TLVs; false when one did not fit.
bool addExternalTlvs(uint8_t*& cursor, const uint8_t* end, const LocalPort& localPort,
                     uint8_t* info, PortStatus& portStatus);

// Validates and applies one received LLDPDU (the bytes after the Ethernet header, followed by
// kRxSlack readable bytes). Returns the
// neighbour it created or refreshed; null for a shutdown LLDPDU, a full table or a discarded frame.
RemoteSystem::PtrConst processRxLldpdu(const uint8_t* start, const uint8_t* end,
                                       const PortConfig& portConfig, Status& status,
                                       PortStatus& portStatus, const Konet::EthAddr& sourceMac,
                                       double now);

}  // namespace Lldp
