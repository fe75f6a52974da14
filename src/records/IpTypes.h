// IPv4 and IPv6 addresses as other agents publish them.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace Arnet {

struct IpAddr {
  uint32_t value = 0;  // host order
  static std::optional<IpAddr> parse(std::string_view text);
  std::array<uint8_t, 4> bytes() const;
  bool isZero() const { return value == 0; }
  auto operator<=>(const IpAddr&) const = default;
};

struct IpAddrWithMask {
  IpAddr addr;
  uint8_t len = 0;
  auto operator<=>(const IpAddrWithMask&) const = default;
};

struct Ip6Addr {
  std::array<uint8_t, 16> bytes{};
  static std::optional<Ip6Addr> parse(std::string_view text);
  bool isLinkLocal() const { return bytes[0] == 0xfe && (bytes[1] & 0xc0) == 0x80; }
  auto operator<=>(const Ip6Addr&) const = default;
};

struct Ip6AddrWithMask {
  Ip6Addr addr;
  uint8_t len = 0;
  auto operator<=>(const Ip6AddrWithMask&) const = default;
};

std::string toString(const IpAddr& a);
std::string toString(const Ip6Addr& a);
std::ostream& operator<<(std::ostream& os, const IpAddr& a);
std::ostream& operator<<(std::ostream& os, const IpAddrWithMask& a);
std::ostream& operator<<(std::ostream& os, const Ip6Addr& a);
std::ostream& operator<<(std::ostream& os, const Ip6AddrWithMask& a);

}  // namespace Arnet
