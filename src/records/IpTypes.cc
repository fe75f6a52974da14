// IPv4 and IPv6 address parsing and printing.
#include "records/IpTypes.h"

#include <charconv>
#include <vector>

#include "records/LldpTypes.h"

namespace Arnet {

std::optional<IpAddr> IpAddr::parse(std::string_view text) {
  uint32_t value = 0;
  for (int i = 0; i < 4; ++i) {
    unsigned octet = 0;
    auto [p, ec] = std::from_chars(text.data(), text.data() + text.size(), octet);
    if (ec != std::errc{} || octet > 255 || p == text.data()) return std::nullopt;
    value = value << 8 | octet;
    text.remove_prefix(static_cast<size_t>(p - text.data()));
    if (i < 3) {
      if (text.empty() || text.front() != '.') return std::nullopt;
      text.remove_prefix(1);
    }
  }
  if (!text.empty()) return std::nullopt;
  return IpAddr{value};
}

std::array<uint8_t, 4> IpAddr::bytes() const {
  return {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
          static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

std::optional<Ip6Addr> Ip6Addr::parse(std::string_view text) {
  // Groups before and after a "::".
  std::vector<uint16_t> head, tail;
  bool compressed = false;
  std::vector<uint16_t>* out = &head;
  if (text.substr(0, 2) == "::") {
    compressed = true;
    out = &tail;
    text.remove_prefix(2);
  }
  while (!text.empty()) {
    unsigned group = 0;
    auto [p, ec] = std::from_chars(text.data(), text.data() + text.size(), group, 16);
    if (ec != std::errc{} || group > 0xffff || p - text.data() > 4) return std::nullopt;
    out->push_back(static_cast<uint16_t>(group));
    text.remove_prefix(static_cast<size_t>(p - text.data()));
    if (text.empty()) break;
    if (text.substr(0, 2) == "::") {
      if (compressed) return std::nullopt;
      compressed = true;
      out = &tail;
      text.remove_prefix(2);
      continue;
    }
    if (text.front() != ':') return std::nullopt;
    text.remove_prefix(1);
    if (text.empty()) return std::nullopt;
  }
  const size_t groups = head.size() + tail.size();
  if (groups > 8 || (!compressed && groups != 8) || (compressed && groups == 8)) return std::nullopt;
  Ip6Addr a;
  for (size_t i = 0; i < head.size(); ++i) {
    a.bytes[2 * i] = static_cast<uint8_t>(head[i] >> 8);
    a.bytes[2 * i + 1] = static_cast<uint8_t>(head[i]);
  }
  for (size_t i = 0; i < tail.size(); ++i) {
    const size_t at = 8 - tail.size() + i;
    a.bytes[2 * at] = static_cast<uint8_t>(tail[i] >> 8);
    a.bytes[2 * at + 1] = static_cast<uint8_t>(tail[i]);
  }
  return a;
}

std::string toString(const IpAddr& a) {
  const auto b = a.bytes();
  return Lldp::addressText(Lldp::afIpv4, std::string_view(reinterpret_cast<const char*>(b.data()), 4));
}

std::string toString(const Ip6Addr& a) {
  return Lldp::addressText(Lldp::afIpv6,
                           std::string_view(reinterpret_cast<const char*>(a.bytes.data()), 16));
}

std::ostream& operator<<(std::ostream& os, const IpAddr& a) { return os << toString(a); }
std::ostream& operator<<(std::ostream& os, const IpAddrWithMask& a) {
  return os << a.addr << "/" << int(a.len);
}
std::ostream& operator<<(std::ostream& os, const Ip6Addr& a) { return os << toString(a); }
std::ostream& operator<<(std::ostream& os, const Ip6AddrWithMask& a) {
  return os << a.addr << "/" << int(a.len);
}

}  // namespace Arnet
