// Writes the receive fuzzers' seed corpora: LLDPDUs from the builder for varied local systems,
// frames of every TLV family and malformed ones for the single-frame targets, and runs of those
// frames from a few senders for the sequence target. Usage: lldp-fuzz-seeds FRAMEDIR SEQUENCEDIR
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "FuzzSequence.h"
#include "codec/LldpProtocol.h"
#include "data/Hex.h"
#include "data/SampleFrames.h"
#include "platform/Log.h"

namespace {

std::vector<uint8_t> hex(const std::string& text) { return SampleFrames::hexBytes(text); }

const char* const kHandWritten[] = {
    // mandatory only, no End
    "0207040011223344550405056574683106020078",
    // 802.1: PVID, PPVID, VLAN name, protocol identity, VID digest, management VID, LAG
    "0207040011223344550405056574683106020078fe060080c201000afe070080c2020600c8"
    "fe0c0080c203001405766f696365fe070080c204028e88fe0800806c205deadbeeffe0600806c20600"
    "01fe0900806c207031234567800000",
    // 802.3: MAC/PHY, power via MDI (802.3at), LAG, max frame size
    "0207040011223344550405056574683106020078fe09001206f01036c0001efe0c00120f020f01"
    "05510190e0fe0900120f0303000003e9fe0600120f0405ee0000",
    // LLDP-MED phone: capabilities, two policies, coordinate, civic, ELIN, inventory
    "0207040011223344550405056574683106020078fe0700120bb01003303fe0800120bb0201"
    "a0c2e0fe0800120bb0202a0c2a2fe1500120bb03010a00000000000000000000000000000001"
    "fe1500120bb030210020255530106416e79746f776efe1000120bb0303313233343536373839"
    "30fe0700120bb0531323366e0800120bb0a50686f6e650000",
    // CEE control TLV
    "0207040011223344550405056574683106020078fe1200121b20200010100000005000000070000",
    // shutdown
    "02070400112233445504050565746831060200000000",
    // malformed: short TTL, duplicate chassis, truncated optional, inconsistent capabilities
    "02070400112233445504050565746831060100",
    "0207040011223344550405056574683106020078020704001122334455",
    "02070400112233445504050565746831060200780a056162",
    "02070400112233445504050565746831060200780e04000400140000",
    // management address with an OID and one with a bad string length
    "020704001122334455040505657468310602007810 0f 05 01 0a 00 00 01 02 00 00 00 07 03 06 01 2b 0000",
    "0207040011223344550405056574683106020078100921010a0000010200000000",
};

void write(const std::string& dir, const std::string& name, const std::vector<uint8_t>& bytes) {
  std::ofstream(dir + "/" + name, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::vector<uint8_t> built(int variant) {
  using namespace Lldp;
  auto config = Platform::make<Config>();
  auto localSystem = Platform::make<LocalSystem>();
  auto portConfig = config->portConfigIs("Ethernet1");
  auto localPort = localSystem->localPortIs("Ethernet1");
  auto status = Platform::make<Status>("seed");
  auto portStatus = status->portStatusIs("Ethernet1", 0.0);
  localSystem->chassisIdentifierIs(ChassisIdentifier{chassisIdMacAddress, ChassisId(std::string("\x00\x1c\x73\x00\x00\x01", 6))});
  localPort->portIdentifierIs(PortIdentifier{static_cast<uint8_t>(variant % 2 ? portIdLocal : portIdInterfaceName), PortId("Ethernet1")});
  localSystem->sysNameIs(std::string(static_cast<size_t>(variant * 40 % 256), 'n'));
  localSystem->sysDescIs("seed switch");
  localPort->portDescIs(variant % 3 ? "to spine" : "");
  portConfig->enabledTlvsIs(PortConfig::EnabledTlvs{static_cast<uint8_t>(variant % 16)});
  portConfig->dot3EnabledTlvsIs(PortConfig::Dot3EnabledTlvs{static_cast<uint8_t>((variant % 8) << 1)});
  const ManagementAddress::Key key{afIpv4, ManAddress(std::string("\x0a\x00\x00\x01", 4))};
  localSystem->managementAddressIs(key, ManagementAddress(key, ifNumberingIfIndex, variant));
  localSystem->managementAddressPrioIs(ManAddrPriority{ManAddrType::intf, 1, 0, "Loopback0"}, key);
  for (int i = 0; i < variant; ++i) {
    const UnknownOrgDefTlv::Key k(Oui(0x00aabb), static_cast<uint8_t>(i + 1), 1);
    localPort->unknownOrgDefTlvIs(k, UnknownOrgDefTlv{k, BoundedString507(std::string(static_cast<size_t>(i * 30), 'x'))});
  }
  std::vector<uint8_t> area(kMaxLldpduSize);
  uint8_t* end = buildTxLldpdu(area.data(), area.data() + area.size(), *config, *localSystem,
                               *localPort, *portConfig, *portStatus, 0);
  area.resize(static_cast<size_t>(end - area.data()));
  return area;
}

// The frame with its TTL replaced (0 makes it a shutdown); unchanged when the third TLV is not
// where a well-formed frame has it.
std::vector<uint8_t> withTtl(std::vector<uint8_t> frame, uint16_t ttl) {
  size_t at = 0;
  for (int tlv = 0; tlv < 2 && at + 2 <= frame.size(); ++tlv) {
    at += 2 + ((frame[at] & 1u) << 8 | frame[at + 1]);
  }
  if (at + 4 > frame.size() || frame[at] >> 1 != Lldp::kTlvTtl) return frame;
  frame[at + 2] = static_cast<uint8_t>(ttl >> 8);
  frame[at + 3] = static_cast<uint8_t>(ttl);
  return frame;
}

// Runs that walk the table through its states: new neighbours up to the limit, a refused third,
// byte-identical refreshes (also once or twice, and after a traced full parse), changed content,
// shutdowns, expiry, and frames with errors refreshing a neighbour.
std::vector<std::vector<uint8_t>> sequences() {
  using Fuzz::seqAppend;
  using Fuzz::seqControl;
  const std::vector<uint8_t> phone = hex(SampleFrames::kPhone);
  const std::vector<uint8_t> phoneShort = withTtl(phone, 20);
  const std::vector<uint8_t> phoneGone = withTtl(phone, 0);
  std::vector<std::vector<uint8_t>> out;

  std::vector<uint8_t> s;
  seqAppend(s, seqControl(1, 1), phone);
  seqAppend(s, seqControl(2, 1), phoneShort);
  seqAppend(s, seqControl(3, 1), phone);  // table full
  seqAppend(s, seqControl(1, 1, false, true), phone);
  seqAppend(s, seqControl(1, 1), phoneGone);
  seqAppend(s, seqControl(3, 1), phone);
  seqAppend(s, seqControl(2, 2), phoneShort);  // aged out before it arrives again
  seqAppend(s, seqControl(2, 3), phone);
  out.push_back(s);

  s.clear();
  seqAppend(s, seqControl(1, 1), phone);
  seqAppend(s, seqControl(1, 1, true), phone);
  seqAppend(s, seqControl(1, 1, false, true), phone);
  seqAppend(s, seqControl(1, 0), built(3));
  seqAppend(s, seqControl(1, 1, false, true), built(3));
  out.push_back(s);

  s.clear();
  for (int v = 0; v < 12; ++v) {
    seqAppend(s, seqControl(1 + v % 2, v % 3, false, v % 4 == 0), built(v));
  }
  out.push_back(s);

  // Own chassis ids (sender 0) of the hand-written frames, each twice, errors included.
  s.clear();
  for (const char* text : kHandWritten) seqAppend(s, seqControl(0, 1, false, true), hex(text));
  out.push_back(s);

  s.clear();
  for (const char* text : kHandWritten) {
    const std::vector<uint8_t> frame = hex(text);
    seqAppend(s, seqControl(1, 1), frame);
    seqAppend(s, seqControl(2, 0, false, true), frame);
    seqAppend(s, seqControl(1, 1), withTtl(frame, 0));
  }
  out.push_back(s);
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s FRAMEDIR SEQUENCEDIR\n", argv[0]);
    return 2;
  }
  Platform::logSinkIs([](const Platform::LogRecord&) {});
  const std::string dir = argv[1];
  int n = 0;
  for (const char* text : kHandWritten) write(dir, "hand-" + std::to_string(n++), hex(text));
  for (int v = 0; v < 12; ++v) write(dir, "built-" + std::to_string(v), built(v));
  write(dir, "sample-phone", hex(SampleFrames::kPhone));
  const std::string seqDir = argv[2];
  const auto runs = sequences();
  for (size_t i = 0; i < runs.size(); ++i) write(seqDir, "seq-" + std::to_string(i), runs[i]);
  std::printf("%d frame seeds written to %s, %zu sequence seeds to %s\n", n + 13, dir.c_str(),
              runs.size(), seqDir.c_str());
  return 0;
}
