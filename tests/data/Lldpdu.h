// LLDPDUs of test neighbours written TLV by TLV, independently of the codec: the three mandatory
// TLVs, whatever the test adds, and End of LLDPDU.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/EthAddr.h"

namespace TestSupport {

class Lldpdu {
 public:
  // Chassis ID: the MAC address (also the frame's source); Port ID: an interface name.
  Lldpdu(const Konet::EthAddr& chassis, std::string_view port, uint16_t ttl) : chassis_(chassis) {
    tlv(1, "\x04" + std::string(reinterpret_cast<const char*>(chassis.data()), 6));
    tlv(2, "\x05" + std::string(port));
    tlv(3, std::string{static_cast<char>(ttl >> 8), static_cast<char>(ttl)});
  }
  Lldpdu& tlv(int type, std::string_view info) {
    pdu_.push_back(static_cast<uint8_t>(type << 1 | static_cast<int>(info.size() >> 8)));
    pdu_.push_back(static_cast<uint8_t>(info.size()));
    pdu_.insert(pdu_.end(), info.begin(), info.end());
    return *this;
  }
  // An organisationally specific TLV: OUI and subtype, then the information.
  Lldpdu& org(uint32_t oui, uint8_t subtype, const std::vector<uint8_t>& info) {
    std::string v{static_cast<char>(oui >> 16), static_cast<char>(oui >> 8), static_cast<char>(oui),
                  static_cast<char>(subtype)};
    v.append(info.begin(), info.end());
    return tlv(127, v);
  }
  std::vector<uint8_t> pdu() const {
    std::vector<uint8_t> out = pdu_;
    out.insert(out.end(), {0, 0});
    return out;
  }
  // The Ethernet frame to the LLDP address.
  std::vector<uint8_t> frame() const {
    std::vector<uint8_t> out(Konet::kLldpMulticast.bytes().begin(), Konet::kLldpMulticast.bytes().end());
    out.insert(out.end(), chassis_.bytes().begin(), chassis_.bytes().end());
    out.insert(out.end(), {0x88, 0xcc});
    const std::vector<uint8_t> body = pdu();
    out.insert(out.end(), body.begin(), body.end());
    return out;
  }

 private:
  Konet::EthAddr chassis_;
  std::vector<uint8_t> pdu_;
};

}  // namespace TestSupport
