// The LLDPDU of a basic neighbour as the scale benchmarks send it: chassis, port, TTL, port
// description, system name and description, capabilities and one IPv4 management address.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Bench {

// Ethernet header included; each (port, neighbour) pair has its own chassis and management
// address. A TTL of 0 makes a shutdown LLDPDU.
inline std::vector<uint8_t> basicNeighbourFrame(int port, int neighbour, uint16_t ttl = 120) {
  std::vector<uint8_t> f = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x88, 0xcc};
  auto tlv = [&f](int type, const std::string& v) {
    f.push_back(static_cast<uint8_t>(type << 1 | (v.size() >> 8)));
    f.push_back(static_cast<uint8_t>(v.size()));
    f.insert(f.end(), v.begin(), v.end());
  };
  const std::string mac = {0x02, 0x10, char(port >> 8), char(port), char(neighbour), 0x01};
  tlv(1, "\x04" + mac);
  tlv(2, "\x05" "Ethernet" + std::to_string(neighbour + 1) + "/1");
  tlv(3, std::string{char(ttl >> 8), char(ttl)});
  tlv(4, "to leaf port " + std::to_string(port));
  tlv(5, "server-" + std::to_string(port) + "-" + std::to_string(neighbour) + ".example.net");
  tlv(6, "Linux 6.1.0 x86_64 with an LLDP agent");
  tlv(7, std::string("\x00\x80\x00\x80", 4));
  tlv(8, std::string("\x05\x01\x0a\x01", 4) + char(port % 250) + char(neighbour) + std::string("\x02\x00\x00\x00\x02\x00", 6));
  tlv(0, "");
  return f;
}

}  // namespace Bench
