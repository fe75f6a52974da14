// Printable forms and checks of the LLDP value types.
#include "records/LldpTypes.h"

#include <cstdio>
#include <stdexcept>

namespace Units {
std::ostream& operator<<(std::ostream& os, const Watts& w) { return os << w.value << " W"; }
}  // namespace Units

namespace Lldp {
namespace {

std::string hexPairs(std::string_view bytes, char sep) {
  static const char* const kHex = "0123456789abcdef";
  std::string out;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i && sep) out.push_back(sep);
    const auto b = static_cast<uint8_t>(bytes[i]);
    out.push_back(kHex[b >> 4]);
    out.push_back(kHex[b & 0xf]);
  }
  return out;
}

std::string macText(std::string_view b, MacSeparator sep) {
  switch (sep) {
    case MacSeparator::colon: return hexPairs(b, ':');
    case MacSeparator::dash: return hexPairs(b, '-');
    case MacSeparator::none: return hexPairs(b, 0);
    case MacSeparator::dot: {
      std::string plain = hexPairs(b, 0);
      std::string out;
      for (size_t i = 0; i < plain.size(); ++i) {
        if (i && i % 4 == 0) out.push_back('.');
        out.push_back(plain[i]);
      }
      return out;
    }
  }
  return hexPairs(b, ':');
}

bool printable(std::string_view bytes) {
  if (bytes.empty()) return false;
  for (char c : bytes) {
    if (c < 0x20 || c > 0x7e) return false;
  }
  return true;
}

std::string ipv6Text(std::string_view b) {
  uint16_t groups[8];
  for (int i = 0; i < 8; ++i) {
    groups[i] = static_cast<uint16_t>(static_cast<uint8_t>(b[2 * i]) << 8 | static_cast<uint8_t>(b[2 * i + 1]));
  }
  // Compress the longest run of two or more zero groups (RFC 5952).
  int bestStart = -1, bestLen = 0;
  for (int i = 0; i < 8;) {
    int j = i;
    while (j < 8 && groups[j] == 0) ++j;
    if (j - i > bestLen && j - i >= 2) {
      bestStart = i;
      bestLen = j - i;
    }
    i = j == i ? i + 1 : j;
  }
  std::string out;
  char buf[8];
  for (int i = 0; i < 8; ++i) {
    if (i == bestStart) {
      out += "::";
      i += bestLen - 1;
      continue;
    }
    if (!out.empty() && out.back() != ':') out.push_back(':');
    std::snprintf(buf, sizeof buf, "%x", groups[i]);
    out += buf;
  }
  return out;
}

}  // namespace

std::string addressText(uint8_t family, std::string_view bytes) {
  if (family == afIpv4 && bytes.size() == 4) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "%u.%u.%u.%u", static_cast<uint8_t>(bytes[0]),
                  static_cast<uint8_t>(bytes[1]), static_cast<uint8_t>(bytes[2]),
                  static_cast<uint8_t>(bytes[3]));
    return buf;
  }
  if (family == afIpv6 && bytes.size() == 16) return ipv6Text(bytes);
  if (family == afIeee802 && bytes.size() == 6) return macText(bytes, MacSeparator::colon);
  return hexPairs(bytes, ':');
}

std::string identifierText(uint8_t, std::string_view bytes, bool macSubtype, bool networkSubtype,
                           MacSeparator sep, bool forceHex) {
  if (forceHex) return hexPairs(bytes, ':');
  if (macSubtype && bytes.size() == 6) return macText(bytes, sep);
  if (networkSubtype && !bytes.empty()) {
    return addressText(static_cast<uint8_t>(bytes[0]), bytes.substr(1));
  }
  if (printable(bytes)) return std::string(bytes);
  return hexPairs(bytes, ':');
}

UnknownTlv::UnknownTlv(uint32_t type, BoundedString511 value) : type_(type), value_(std::move(value)) {
  if (type < 9 || type > 126) throw std::range_error("UnknownTlv::type < 9 or > 126 not allowed");
}

UnknownOrgDefTlv::Key::Key(Oui oui, uint8_t subtype, uint32_t index)
    : oui_(oui), subtype_(subtype), index_(index) {
  if (index < 1) throw std::range_error("Key::index < 1 not allowed");
}

bool operator==(const Msap& a, const MsapView& b) {
  return a.chassisIdentifier.subtype == b.chassisSubtype &&
         a.portIdentifier.subtype == b.portSubtype && a.chassisIdentifier.value == b.chassisId &&
         a.portIdentifier.value == b.portId;
}

size_t msapHash(uint8_t chassisSubtype, std::string_view chassisId, uint8_t portSubtype,
                std::string_view portId) {
  const std::hash<std::string_view> h;
  size_t seed = h(chassisId);
  seed ^= h(portId) + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
  return seed ^ (static_cast<size_t>(chassisSubtype) << 8 | portSubtype);
}

std::ostream& operator<<(std::ostream& os, const ChassisIdentifier& id) { return os << id.stringValue(); }
std::ostream& operator<<(std::ostream& os, const PortIdentifier& id) { return os << id.stringValue(); }

std::ostream& operator<<(std::ostream& os, const SystemCapabilitiesMap& caps) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "0x%04x", caps.value);
  return os << buf;
}

std::ostream& operator<<(std::ostream& os, const Oui& oui) {
  char buf[12];
  std::snprintf(buf, sizeof buf, "%02x-%02x-%02x", (oui.value >> 16) & 0xff, (oui.value >> 8) & 0xff,
                oui.value & 0xff);
  return os << buf;
}

std::ostream& operator<<(std::ostream& os, const ManagementAddress::Key& key) {
  return os << key.stringValue();
}

std::ostream& operator<<(std::ostream& os, const ManagementAddress& addr) {
  return os << addr.key() << " (ifSubtype " << int(addr.ifSubtype()) << ", ifId " << addr.ifId() << ")";
}

std::ostream& operator<<(std::ostream& os, const ManAddrPriority& p) {
  return os << "{type " << int(p.type) << ", " << p.primaryPriority << ", " << p.secondaryPriority
            << ", " << p.intfId << "}";
}

std::ostream& operator<<(std::ostream& os, const UnknownTlv& tlv) {
  return os << "type " << tlv.type() << " (" << tlv.value().size() << " bytes)";
}

std::ostream& operator<<(std::ostream& os, const UnknownOrgDefTlv::Key& key) {
  return os << key.oui() << "/" << int(key.subtype()) << "/" << key.index();
}

std::ostream& operator<<(std::ostream& os, const UnknownOrgDefTlv& tlv) {
  return os << tlv.key << " (" << tlv.value.size() << " bytes)";
}

std::ostream& operator<<(std::ostream& os, const Msap& msap) {
  return os << "(" << msap.chassisIdentifier << ", " << msap.portIdentifier << ")";
}

std::ostream& operator<<(std::ostream& os, AdminStatus status) {
  switch (status) {
    case AdminStatus::txOnly: return os << "txOnly";
    case AdminStatus::rxOnly: return os << "rxOnly";
    case AdminStatus::txAndRx: return os << "txAndRx";
    case AdminStatus::disabled: return os << "disabled";
  }
  return os << "adminStatus(" << int(status) << ")";
}

}  // namespace Lldp
