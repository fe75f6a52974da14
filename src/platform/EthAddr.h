// Konet::EthAddr: a 48-bit Ethernet MAC address.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace Konet {

class EthAddr {
 public:
  constexpr EthAddr() = default;
  constexpr EthAddr(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint8_t e, uint8_t f)
      : bytes_{a, b, c, d, e, f} {}
  explicit EthAddr(const uint8_t* bytes);

  // Accepts aa:bb:cc:dd:ee:ff, aa-bb-cc-dd-ee-ff and aabb.ccdd.eeff.
  static std::optional<EthAddr> parse(std::string_view text);

  const std::array<uint8_t, 6>& bytes() const { return bytes_; }
  const uint8_t* data() const { return bytes_.data(); }
  bool isZero() const;
  bool isMulticast() const { return bytes_[0] & 1; }
  // Lower-case hexadecimal pairs joined by the separator (none when it is '\0').
  std::string toString(char separator = ':') const;

  auto operator<=>(const EthAddr&) const = default;

 private:
  std::array<uint8_t, 6> bytes_{};
};

std::ostream& operator<<(std::ostream& os, const EthAddr& addr);

// The LLDP nearest-bridge group address.
inline constexpr EthAddr kLldpMulticast{0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e};

}  // namespace Konet

template <>
struct std::hash<Konet::EthAddr> {
  size_t operator()(const Konet::EthAddr& a) const {
    uint64_t v = 0;
    for (uint8_t b : a.bytes()) v = (v << 8) | b;
    return std::hash<uint64_t>()(v);
  }
};
