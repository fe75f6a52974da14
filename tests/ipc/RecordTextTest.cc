// Records written as text must be exactly the JSON the tree gives: the socket's replies keep
// their shape whichever way they are composed.
#include <gtest/gtest.h>

#include "cli/Decode.h"
#include "data/Hex.h"
#include "data/SampleFrames.h"
#include "ipc/RecordText.h"
#include "platform/Log.h"

namespace IpcTest {
namespace {

std::string tlv(int type, const std::string& value) {
  const int header = type << 9 | static_cast<int>(value.size());
  return std::string{static_cast<char>(header >> 8), static_cast<char>(header)} + value;
}

// A neighbour with text that needs escaping and bytes that are not UTF-8, a management address,
// IEEE 802.1 TLVs and a TLV type nobody defines.
Cli::Frame awkwardFrame(const std::string& chassis) {
  std::string pdu = tlv(1, "\x07" + chassis) + tlv(2, "\x05p\\1") + tlv(3, std::string("\x00\x78", 2)) +
                    tlv(4, "ctl\x01 and \xff\xfe end") + tlv(5, "caf\xc3\xa9 \"quoted\"") +
                    tlv(8, std::string("\x05\x01\x0a\x00\x00\x01\x02\x00\x00\x00\x07\x00", 12)) +
                    tlv(127, std::string("\x00\x80\xc2\x01\x00\x0a", 6)) +
                    tlv(127, std::string("\x00\x80\xc2\x03\x00\x0a\x04", 7) + "v\tl\n") +
                    tlv(42, "odd") + tlv(0, "");
  Cli::Frame frame;
  frame.bytes.assign(pdu.begin(), pdu.end());
  frame.ethernet = false;
  return frame;
}

template <class T>
std::string written(const T& record) {
  std::string out;
  Ipc::RecordText text(out);
  text.record(record);
  return out;
}

TEST(RecordTextTest, NeighboursTheirTableAndTheirCountersReadAsTheTreeDoes) {
  Platform::logSinkIs([](const Platform::LogRecord&) {});
  Cli::Frame phone;
  phone.bytes = SampleFrames::hexBytes(SampleFrames::kPhone);
  phone.ethernet = false;
  // Alternating kinds of neighbour: a value remembered from the last one must not leak into the next.
  const Cli::DecodeResult result =
      Cli::decodeFrames({awkwardFrame("a"), phone, awkwardFrame("b\"\\"), awkwardFrame("c")});
  ASSERT_EQ(result.portStatus->remoteSystems(), 4u);
  for (const auto& [index, rs] : result.portStatus->remoteSystem()) {
    EXPECT_EQ(written(*rs), Platform::jsonText(Platform::recordToJson(*rs), -1)) << "neighbour " << index;
  }
  EXPECT_EQ(written(*result.portStatus), Platform::jsonText(Platform::recordToJson(*result.portStatus), -1));
  EXPECT_EQ(written(*result.status), Platform::jsonText(Platform::recordToJson(*result.status), -1));
}

}  // namespace
}  // namespace IpcTest
