// Shared set-up for codec tests: annotated hexadecimal, records of one port, trace capture.
#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "codec/LldpProtocol.h"
#include "platform/Assert.h"
#include "platform/Log.h"
#include "data/Traces.h"

namespace CodecTest {

// Hex pairs with anything after '#' on a line ignored, so fixtures can name each field.
std::vector<uint8_t> hex(const std::string& text);
std::string toHex(const uint8_t* begin, const uint8_t* end);
inline std::string toHex(const std::vector<uint8_t>& v) { return toHex(v.data(), v.data() + v.size()); }

struct PortFixture : ::testing::Test {
  Lldp::Config::Ptr config = Platform::make<Lldp::Config>();
  Lldp::LocalSystem::Ptr localSystem = Platform::make<Lldp::LocalSystem>();
  Lldp::PortConfig::Ptr portConfig;
  Lldp::LocalPort::Ptr localPort;
  Lldp::Status::Ptr status = Platform::make<Lldp::Status>("1");
  Lldp::PortStatus::Ptr portStatus;
  Konet::EthAddr peerMac{0x00, 0x1c, 0x73, 0xaa, 0xbb, 0xcc};
  double now = 1000;

  TestSupport::TraceCapture traces{"*/9"};
  Platform::CapturingLogSink logs;

  PortFixture();

  // A local system and port as the Input subsystem would fill them.
  void fillLocal();
  // Builds one LLDPDU into a 1500-byte area and returns its bytes.
  std::vector<uint8_t> build();
  // Runs bytes through the receive path (with the receive buffer's zeroed slack behind them).
  Lldp::RemoteSystem::PtrConst receive(const std::vector<uint8_t>& lldpdu);
  bool traced(const std::string& text) const { return traces.has(text); }
};

// Runs one extension parser (subtype, length, information, record) over annotated hexadecimal.
template <class Parser>
Lldp::TlvParseResult parseHex(Parser parse, int subtype, const std::string& info, Lldp::RemoteSystem& rs) {
  const std::vector<uint8_t> b = hex(info);
  return parse(subtype, static_cast<int>(b.size()), b.data(), rs);
}

// Turns assertion failures into exceptions for the life of the object.
struct ThrowingAsserts {
  Platform::AssertHandler previous = Platform::assertHandlerIs(Platform::throwingAssertHandler);
  ~ThrowingAsserts() { Platform::assertHandlerIs(previous); }
};

// Matches an action that fails the assertion whose condition reads `text`.
inline auto failsAssertion(const char* text) {
  return ::testing::Throws<Platform::AssertionFailure>(::testing::Field(&Platform::AssertionFailure::text,
                                                                        ::testing::StrEq(text)));
}

}  // namespace CodecTest
