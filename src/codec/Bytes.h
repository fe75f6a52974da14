// Big-endian field access and small print helpers shared by the TLV parsers.
#pragma once

#include <cstdint>
#include <ostream>
#include <string_view>

namespace Lldp {

inline uint16_t be16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
inline uint32_t be32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
         static_cast<uint32_t>(p[2]) << 8 | p[3];
}
inline void putBe16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v >> 8);
  p[1] = static_cast<uint8_t>(v);
}
inline void putBe32(uint8_t* p, uint32_t v) {
  putBe16(p, static_cast<uint16_t>(v >> 16));
  putBe16(p + 2, static_cast<uint16_t>(v));
}
inline std::string_view bytesOf(const uint8_t* p, int len) {
  return std::string_view(reinterpret_cast<const char*>(p), static_cast<size_t>(len));
}

// Streams a number in hexadecimal without changing the stream's base.
struct Hex {
  unsigned value;
};
inline std::ostream& operator<<(std::ostream& os, Hex h) {
  return os << std::hex << h.value << std::dec;
}

}  // namespace Lldp
