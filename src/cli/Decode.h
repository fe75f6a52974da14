// `lldp decode`: runs captured frames or LLDPDU bytes through the real receive path on a scratch
// port and keeps the records that result.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/LldpRecords.h"

namespace Cli {

struct Frame {
  std::vector<uint8_t> bytes;
  double time = 0;  // capture time stamp, seconds
  bool ethernet = true;  // false: bare LLDPDU bytes without an Ethernet header
};

// Reads every frame of a pcap or pcapng file; on failure returns nullopt with error set.
std::optional<std::vector<Frame>> readCapture(const std::string& path, std::string& error);

// Hexadecimal (white space, ':' and '-' between bytes allowed, "0x" prefixes ignored) into one
// frame: an Ethernet frame when it starts like one, otherwise a bare LLDPDU.
std::optional<Frame> parseHexFrame(std::string_view text, std::string& error);

struct DecodeResult {
  size_t framesRead = 0;
  size_t lldpFrames = 0;
  size_t skippedFrames = 0;  // not LLDP, or too short to be Ethernet
  Lldp::Status::Ptr status;
  Lldp::PortStatus::Ptr portStatus;
};

inline constexpr const char* kDecodePort = "capture";

DecodeResult decodeFrames(const std::vector<Frame>& frames);

}  // namespace Cli
