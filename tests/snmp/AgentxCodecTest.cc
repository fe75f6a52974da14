// AgentX packets through the codec: a GetNext as a master sends it (annotated bytes), and the
// packets the subagent writes read back as they were meant.
#include <gtest/gtest.h>

#include "MibFixture.h"
#include "data/Hex.h"
#include "snmp/AgentxCodec.h"

namespace Snmp::Test {
namespace {

using namespace Agentx;

std::string hexBytes(std::string_view text) {
  const std::vector<uint8_t> b = SampleFrames::hexBytes(text);
  return std::string(b.begin(), b.end());
}

std::string roundTrip(const Pdu& in, Pdu& out) {
  std::string wire;
  EXPECT_TRUE(encode(in, wire));
  EXPECT_EQ(packetLength(reinterpret_cast<const uint8_t*>(wire.data()), wire.size()), wire.size());
  EXPECT_TRUE(decode(reinterpret_cast<const uint8_t*>(wire.data()), wire.size(), out));
  return wire;
}

TEST(AgentxCodecTest, AGetNextFromTheMasterHasItsSearchRange) {
  const std::string packet = hexBytes(
      "01 06 10 00"               // version 1, GetNext, network byte order
      "00 00 00 05 00 00 00 01"   // session 5, transaction 1
      "00 00 00 02 00 00 00 40"   // packet 2, 64 bytes follow
      "08 00 01 00"               // start: 8 sub-identifiers, no prefix, include
      "00 00 00 01 00 00 00 00 00 00 22 62 00 00 00 01 00 00 00 01 00 00 00 02 00 00 00 01 00 00 00 04"
      "06 00 00 00"               // end: 6 sub-identifiers
      "00 00 00 01 00 00 00 00 00 00 22 62 00 00 00 01 00 00 00 01 00 00 00 03");
  const auto* data = reinterpret_cast<const uint8_t*>(packet.data());
  EXPECT_EQ(packetLength(data, 19), 0u);  // the header is not complete yet
  EXPECT_EQ(packetLength(data, 20), packet.size());
  Pdu pdu;
  ASSERT_TRUE(decode(data, packet.size(), pdu));
  EXPECT_EQ(pdu.type, kGetNext);
  EXPECT_EQ(pdu.sessionId, 5u);
  EXPECT_EQ(pdu.transactionId, 1u);
  EXPECT_EQ(pdu.packetId, 2u);
  ASSERT_EQ(pdu.ranges.size(), 1u);
  EXPECT_EQ(pdu.ranges[0].start, (Oid{1, 0, 8802, 1, 1, 2, 1, 4}));
  EXPECT_TRUE(pdu.ranges[0].include);
  EXPECT_EQ(pdu.ranges[0].end, (Oid{1, 0, 8802, 1, 1, 3}));

  // A packet cut short does not parse, and says nothing about what follows it.
  EXPECT_FALSE(decode(data, packet.size() - 4, pdu));
}

TEST(AgentxCodecTest, WhatTheSubagentWritesReadsBack) {
  Pdu response;
  response.type = kResponse;
  response.flags = 0x10;
  response.sessionId = 7;
  response.transactionId = 8;
  response.packetId = 9;
  response.sysUpTime = 4242;
  response.varBinds = {{{1, 0, 8802, 1, 1, 2, 1, 3, 3, 0}, Value::octets(std::string("a\0b", 3))},
                       {{1, 2}, Value::integer(-3)},
                       {{1, 3}, Value::counter32(4000000000u)},
                       {{1, 4}, Value::gauge32(7)},
                       {{1, 5}, Value::timeTicks(99)},
                       {{1, 6}, Value::objectId({1, 3, 6, 1, 4, 1, 9})},
                       {{1, 7}, {}, Exception::endOfMibView},
                       {{1, 8}, {}, Exception::noSuchInstance}};
  Pdu back;
  const std::string wire = roundTrip(response, back);
  EXPECT_EQ(wire.substr(0, 4), hexBytes("01 12 10 00"));  // version 1, Response, network byte order
  EXPECT_EQ(back.sysUpTime, 4242u);
  EXPECT_EQ(back.packetId, 9u);
  ASSERT_EQ(back.varBinds.size(), response.varBinds.size());
  for (size_t i = 0; i < back.varBinds.size(); ++i) {
    EXPECT_EQ(back.varBinds[i].name, response.varBinds[i].name) << i;
    EXPECT_EQ(back.varBinds[i].value, response.varBinds[i].value) << i;
    EXPECT_EQ(back.varBinds[i].exception, response.varBinds[i].exception) << i;
  }
}

}  // namespace
}  // namespace Snmp::Test
