// `lldp decode`: input parsing, frame selection, capture files, and the JSON shape.
#include <gmock/gmock.h>
#include <pcap/pcap.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <sstream>

#include "cli/Decode.h"
#include "cli/Render.h"

namespace Cli {
namespace {

const char* const kLldpdu =
    "02 07 04 00 11 22 33 44 55  04 05 05 65 74 68 31  06 02 00 78  0a 03 73 77 31  00 00";
const char* const kEthernet = "01 80 c2 00 00 0e  00 11 22 33 44 55  88 cc";
const char* const kTagged = "01 80 c2 00 00 0e  00 11 22 33 44 55  81 00 00 0a  88 cc";

Frame frameOf(const std::string& text) {
  std::string error;
  auto f = parseHexFrame(text, error);
  EXPECT_TRUE(f) << error;
  return f ? *f : Frame{};
}

TEST(DecodeTest, HexInputAcceptsCommonSpellingsAndRefusesTheRest) {
  std::string error;
  EXPECT_EQ(frameOf("0x02 0x07,04:00-11").bytes, (std::vector<uint8_t>{2, 7, 4, 0, 0x11}));
  EXPECT_FALSE(parseHexFrame("02 0", error));
  EXPECT_EQ(error, "odd number of hexadecimal digits");
  EXPECT_FALSE(parseHexFrame("02 zz", error));
  EXPECT_EQ(error, "not hexadecimal: 'z' at offset 3");
  EXPECT_FALSE(parseHexFrame("0 2", error));
  EXPECT_FALSE(parseHexFrame("  ", error));
  EXPECT_EQ(error, "no bytes given");
}

TEST(DecodeTest, BareLldpduAndEthernetFramesDecodeAlike) {
  const Frame bare = frameOf(kLldpdu);
  EXPECT_FALSE(bare.ethernet);
  const Frame eth = frameOf(std::string(kEthernet) + kLldpdu);
  EXPECT_TRUE(eth.ethernet);
  const Frame tagged = frameOf(std::string(kTagged) + kLldpdu);
  EXPECT_TRUE(tagged.ethernet);
  for (const Frame& f : {bare, eth, tagged}) {
    DecodeResult r = decodeFrames({f});
    ASSERT_EQ(r.portStatus->remoteSystems(), 1u);
    EXPECT_EQ(r.portStatus->remoteSystem().begin().value()->sysName(), "sw1");
  }
  DecodeResult r = decodeFrames({eth});
  EXPECT_EQ(r.portStatus->remoteSystem().begin().value()->ethAddr().toString(), "00:11:22:33:44:55");
}

TEST(DecodeTest, NonLldpAndRuntFramesAreSkipped) {
  Frame ipv4 = frameOf("ff ff ff ff ff ff 00 11 22 33 44 55 08 00 45 00");
  ipv4.ethernet = true;
  Frame runt;
  runt.bytes = {1, 2, 3};
  DecodeResult r = decodeFrames({ipv4, runt, frameOf(std::string(kEthernet) + kLldpdu)});
  EXPECT_EQ(r.framesRead, 3u);
  EXPECT_EQ(r.skippedFrames, 2u);
  EXPECT_EQ(r.lldpFrames, 1u);
}

TEST(DecodeTest, JsonShapeDoesNotDependOnCounts) {
  DecodeResult none = decodeFrames({});
  auto j = decodeJson(none);
  EXPECT_TRUE(j["neighbors"].is_array());
  EXPECT_EQ(j["portStatus"]["rxFramesTotal"], 0);
  EXPECT_FALSE(j["portStatus"].contains("remoteSystem"));

  auto one = decodeJson(decodeFrames({frameOf(kLldpdu)}));
  ASSERT_EQ(one["neighbors"].size(), 1u);
  EXPECT_EQ(one["neighbors"][0]["sysName"], "sw1");
  EXPECT_TRUE(one["neighbors"][0]["managementAddress"].is_array());
  EXPECT_EQ(one["neighbors"][0]["msap"]["chassisIdentifier"]["value"], "00:11:22:33:44:55");
}

// A capture file of these frames with the given link type.
void writeCapture(const std::filesystem::path& path, int linkType, const std::vector<std::vector<uint8_t>>& frames) {
  pcap_t* dead = pcap_open_dead(linkType, 65535);
  pcap_dumper_t* dumper = pcap_dump_open(dead, path.c_str());
  ASSERT_TRUE(dumper);
  for (const auto& f : frames) {
    pcap_pkthdr h{};
    h.ts.tv_sec = 100;
    h.caplen = h.len = static_cast<bpf_u_int32>(f.size());
    pcap_dump(reinterpret_cast<u_char*>(dumper), &h, f.data());
  }
  pcap_dump_close(dumper);
  pcap_close(dead);
}

TEST(DecodeTest, ReadsPcapCaptures) {
  const auto path = std::filesystem::temp_directory_path() / ("lldp-decode-test-" + std::to_string(getpid()) + ".pcap");
  writeCapture(path, DLT_EN10MB,
               {frameOf(std::string(kEthernet) + kLldpdu).bytes,
                frameOf(std::string("ff ff ff ff ff ff 00 11 22 33 44 55 08 06") + kLldpdu).bytes});
  std::string error;
  auto frames = readCapture(path.string(), error);
  ASSERT_TRUE(frames) << error;
  DecodeResult r = decodeFrames(*frames);
  EXPECT_EQ(r.lldpFrames, 1u);
  EXPECT_EQ(r.skippedFrames, 1u);
  EXPECT_EQ(r.portStatus->remoteSystem().begin().value()->expiryTime(), 100 + 120);
  std::ostringstream text;
  renderDecodeText(r, text);
  EXPECT_THAT(text.str(), testing::ContainsRegex("\n  System name +sw1\n"));

  // A capture on "any" interface: Linux cooked headers instead of Ethernet.
  writeCapture(path, DLT_LINUX_SLL, {frameOf(std::string("00 00 00 01 00 06 00 11 22 33 44 55 00 00 88 cc") + kLldpdu).bytes});
  frames = readCapture(path.string(), error);
  ASSERT_TRUE(frames) << error;
  r = decodeFrames(*frames);
  ASSERT_EQ(r.portStatus->remoteSystems(), 1u);
  EXPECT_EQ(r.portStatus->remoteSystem().begin().value()->ethAddr().toString(), "00:11:22:33:44:55");
  std::filesystem::remove(path);

  EXPECT_FALSE(readCapture("/nonexistent/capture.pcap", error));
  EXPECT_NE(error.find("cannot read capture file /nonexistent/capture.pcap"), std::string::npos);
  EXPECT_FALSE(readCapture("/etc/hostname", error));
}

}  // namespace
}  // namespace Cli
