// TLV framing: the only code that writes or reads a TLV header.
#include <cstring>

#include "codec/LldpProtocol.h"
#include "platform/Assert.h"

namespace Lldp {

uint8_t infoBuf[kInfoBufSize];
Platform::TraceFacility lldpProtocolTrace("LldpProtocol");

bool putTlv(uint8_t*& cursor, const uint8_t* end, int type, int infoLen, const uint8_t* info) {
  if (end - cursor < infoLen + 2) {
    TRACE(lldpProtocolTrace, 2) << "No room for TLV (type=" << type << ", infoLen=" << infoLen
                                << "); remaining space " << (end - cursor) << " bytes";
    return false;
  }
  LLDP_ASSERT(!( infoLen & ~0x1ff ));
  const int header = (type << 9) | infoLen;
  cursor[0] = static_cast<uint8_t>(header >> 8);
  cursor[1] = static_cast<uint8_t>(header);
  if (infoLen) std::memmove(cursor + 2, info, static_cast<size_t>(infoLen));
  cursor += infoLen + 2;
  TRACE(lldpProtocolTrace, 8) << "Added TLV (type=" << type << ", infoLen=" << infoLen
                              << "); remaining space " << (end - cursor) << " bytes";
  return true;
}

bool putOrgDefTlv(uint8_t*& cursor, const uint8_t* end, Oui oui, int subtype, int infoLen,
                  uint8_t* info) {
  info -= 4;
  LLDP_ASSERT(info == infoBuf);
  info[0] = static_cast<uint8_t>(oui.value >> 16);
  info[1] = static_cast<uint8_t>(oui.value >> 8);
  info[2] = static_cast<uint8_t>(oui.value);
  info[3] = static_cast<uint8_t>(subtype);
  return putTlv(cursor, end, kTlvOrgSpecific, infoLen + 4, info);
}

bool putManagementAddress(uint8_t*& cursor, const uint8_t* end, const ManagementAddress& manAddr) {
  if (manAddr == ManagementAddress()) return true;
  // Only the empty object identifier is ever advertised.
  const size_t oid = manAddr.oid().size();
  LLDP_ASSERT(!oid);
  const int oidLen = 0;
  const int infoLen = manAddr.manAddrLen() + oidLen + 7;
  if (infoLen >= 168) return false;
  LLDP_ASSERT(manAddr.ifId() >= 0);

  uint8_t info[168];
  uint8_t* tail = info;
  *tail++ = static_cast<uint8_t>(manAddr.manAddrLen());
  *tail++ = manAddr.addrSubtype();
  std::memcpy(tail, manAddr.address().data(), manAddr.address().size());
  tail += manAddr.address().size();
  *tail++ = manAddr.ifSubtype();
  const auto ifId = static_cast<uint32_t>(manAddr.ifId());
  *tail++ = static_cast<uint8_t>(ifId >> 24);
  *tail++ = static_cast<uint8_t>(ifId >> 16);
  *tail++ = static_cast<uint8_t>(ifId >> 8);
  *tail++ = static_cast<uint8_t>(ifId);
  *tail++ = static_cast<uint8_t>(oidLen);
  LLDP_ASSERT(tail - info == infoLen);

  const bool success = putTlv(cursor, end, kTlvManagementAddress, infoLen, info);
  if (success) {
    TRACE(lldpProtocolTrace, 6) << "Added Management Address: " << manAddr;
  } else {
    TRACE(lldpProtocolTrace, 4) << "Not enough space to add Management Address: " << manAddr;
  }
  return success;
}

bool extractTlv(const uint8_t*& cursor, const uint8_t* end, int& type, int& infoLen,
                const uint8_t*& info) {
  if (end - cursor < 2) {
    TRACE(lldpProtocolTrace, 0) << "Error: frame ended during (or before) TLV header";
    return false;
  }
  type = cursor[0] >> 1;
  infoLen = ((cursor[0] << 8) | cursor[1]) & 0x1ff;
  TRACE(lldpProtocolTrace, 8) << "TLV: type=" << type << ", infoLen=" << infoLen;
  info = cursor + 2;
  const bool fits = end - info >= infoLen;
  cursor += infoLen + 2;
  if (!fits) {
    TRACE(lldpProtocolTrace, 0) << "Error: frame ended during TLV information string (type="
                                << type << ", infoLen=" << infoLen << ")";
    return false;
  }
  return true;
}

bool extractMandatoryTlv(const uint8_t*& cursor, const uint8_t* end, int expectedType, int maxLen,
                         int& infoLen, const uint8_t*& info) {
  constexpr int kMinLen = 2;
  int type = 0;
  if (!extractTlv(cursor, end, type, infoLen, info)) {
    TRACE(lldpProtocolTrace, 0) << "Error: frame ended during mandatory TLV";
    return false;
  }
  if (type != expectedType) {
    TRACE(lldpProtocolTrace, 0) << "Error: TLV was not of the expected type (type=" << type << ")";
    return false;
  }
  if (infoLen < kMinLen || infoLen > maxLen) {
    TRACE(lldpProtocolTrace, 0) << "Error: size of TLV out of range (infoLen=" << infoLen << ")";
    return false;
  }
  return true;
}

}  // namespace Lldp
