// Frame sources for `lldp decode` (libpcap captures, hexadecimal) and the decoding itself.
#include "cli/Decode.h"

#include <pcap/pcap.h>

#include <cctype>
#include <cstring>

#include "codec/LldpProtocol.h"

namespace Cli {
namespace {

constexpr size_t kEthHeader = 14;
constexpr uint16_t kVlanTpid = 0x8100;

uint16_t be16(const std::vector<uint8_t>& b, size_t at) {
  return static_cast<uint16_t>(b[at] << 8 | b[at + 1]);
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// An LLDPDU begins with a Chassis ID TLV (type 1); an Ethernet frame carrying LLDP has its
// EtherType, possibly behind one 802.1Q tag, at offset 12.
bool looksLikeEthernet(const std::vector<uint8_t>& b) {
  if (b.empty() || (b[0] >> 1) == Lldp::kTlvChassisId) return false;
  if (b.size() < kEthHeader) return false;
  const uint16_t type = be16(b, 12);
  return type == Lldp::kLldpEtherType || (type == kVlanTpid && b.size() >= 18);
}

// A Linux cooked capture ("tcpdump -i any") has no Ethernet header: rebuild one from the
// cooked header's source address and protocol, so the frame takes the usual path.
std::optional<std::vector<uint8_t>> fromCooked(int linkType, const u_char* data, size_t size) {
  size_t header = 0, protocolAt = 0, addrLenAt = 0, addrAt = 0;
  if (linkType == DLT_LINUX_SLL) {
    header = 16, protocolAt = 14, addrLenAt = 5, addrAt = 6;  // (low byte of the 2-byte length)
  } else {  // DLT_LINUX_SLL2
    header = 20, protocolAt = 0, addrLenAt = 11, addrAt = 12;
  }
  if (size < header) return std::nullopt;
  std::vector<uint8_t> frame(kEthHeader + size - header, 0);
  const auto& group = Konet::kLldpMulticast.bytes();
  std::copy(group.begin(), group.end(), frame.begin());
  if (data[addrLenAt] == 6) std::memcpy(frame.data() + 6, data + addrAt, 6);
  std::memcpy(frame.data() + 12, data + protocolAt, 2);
  std::memcpy(frame.data() + kEthHeader, data + header, size - header);
  return frame;
}

}  // namespace

std::optional<std::vector<Frame>> readCapture(const std::string& path, std::string& error) {
  char errbuf[PCAP_ERRBUF_SIZE] = {};
  pcap_t* pcap = pcap_open_offline(path.c_str(), errbuf);
  if (!pcap) {
    const std::string reason(errbuf);
    error = "cannot read capture file " +
            (reason.rfind(path, 0) == 0 ? reason : path + ": " + reason);
    return std::nullopt;
  }
  std::vector<Frame> frames;
  const int linkType = pcap_datalink(pcap);
  const bool cooked = linkType == DLT_LINUX_SLL || linkType == DLT_LINUX_SLL2;
  const bool ethernet = linkType == DLT_EN10MB || cooked;
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  int rc = 0;
  while (ethernet && (rc = pcap_next_ex(pcap, &header, &data)) == 1) {
    Frame f;
    f.time = static_cast<double>(header->ts.tv_sec) + header->ts.tv_usec / 1e6;
    if (!cooked) {
      f.bytes.assign(data, data + header->caplen);
    } else if (auto rebuilt = fromCooked(linkType, data, header->caplen)) {
      f.bytes = std::move(*rebuilt);
    }
    frames.push_back(std::move(f));
  }
  if (rc == PCAP_ERROR) {
    error = "error reading capture file " + path + ": " + pcap_geterr(pcap);
    pcap_close(pcap);
    return std::nullopt;
  }
  if (!ethernet) {
    error = "capture file " + path + " does not hold Ethernet frames (link type " +
            std::to_string(pcap_datalink(pcap)) + ")";
    pcap_close(pcap);
    return std::nullopt;
  }
  pcap_close(pcap);
  return frames;
}

std::optional<Frame> parseHexFrame(std::string_view text, std::string& error) {
  Frame f;
  int high = -1;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X') && high < 0) {
      ++i;
      continue;
    }
    const int v = hexValue(c);
    if (v >= 0) {
      if (high < 0) {
        high = v;
      } else {
        f.bytes.push_back(static_cast<uint8_t>(high << 4 | v));
        high = -1;
      }
      continue;
    }
    if (std::isspace(static_cast<unsigned char>(c)) || c == ':' || c == '-' || c == ',') {
      if (high >= 0) {
        error = "a byte needs two hexadecimal digits (at offset " + std::to_string(i) + ")";
        return std::nullopt;
      }
      continue;
    }
    error = std::string("not hexadecimal: '") + c + "' at offset " + std::to_string(i);
    return std::nullopt;
  }
  if (high >= 0) {
    error = "odd number of hexadecimal digits";
    return std::nullopt;
  }
  if (f.bytes.empty()) {
    error = "no bytes given";
    return std::nullopt;
  }
  f.ethernet = looksLikeEthernet(f.bytes);
  return f;
}

DecodeResult decodeFrames(const std::vector<Frame>& frames) {
  DecodeResult result;
  result.status = Platform::make<Lldp::Status>("decode");
  result.portStatus = result.status->portStatusIs(kDecodePort, 0.0);
  auto config = Platform::make<Lldp::Config>();
  auto portConfig = config->portConfigIs(kDecodePort);
  portConfig->maxRemoteSystemsIs(1u << 30);  // show every neighbour of the capture

  std::vector<uint8_t> buffer;
  for (const Frame& frame : frames) {
    ++result.framesRead;
    size_t offset = 0;
    Konet::EthAddr source;
    if (frame.ethernet) {
      if (frame.bytes.size() < kEthHeader) {
        ++result.skippedFrames;
        continue;
      }
      source = Konet::EthAddr(frame.bytes.data() + 6);
      uint16_t type = be16(frame.bytes, 12);
      offset = kEthHeader;
      if (type == kVlanTpid && frame.bytes.size() >= kEthHeader + 4) {
        type = be16(frame.bytes, 16);  // the tag is removed as the receive path does
        offset += 4;
      }
      if (type != Lldp::kLldpEtherType) {
        ++result.skippedFrames;
        continue;
      }
    }
    ++result.lldpFrames;
    buffer.assign(frame.bytes.begin() + static_cast<long>(offset), frame.bytes.end());
    const size_t size = buffer.size();
    buffer.resize(size + Lldp::kRxSlack, 0);
    Lldp::processRxLldpdu(buffer.data(), buffer.data() + size, *portConfig, *result.status,
                          *result.portStatus, source, frame.time);
  }
  return result;
}

}  // namespace Cli
