// TLV framing: bounds of put and extract, the Management Address layout.
#include "CodecFixture.h"

namespace CodecTest {
namespace {

using namespace Lldp;

struct TlvFramingTest : PortFixture {};

TEST_F(TlvFramingTest, PutTlvFitsExactlyOrWritesNothingAndRefusesLengthsBeyondNineBits) {
  uint8_t buf[5] = {0xee, 0xee, 0xee, 0xee, 0xee};
  const uint8_t info[3] = {1, 2, 3};
  uint8_t* cursor = buf;
  EXPECT_TRUE(putTlv(cursor, buf + 5, 5, 3, info));
  EXPECT_EQ(cursor, buf + 5);
  EXPECT_EQ(toHex(buf, buf + 5), "0a 03 01 02 03");

  cursor = buf + 1;
  EXPECT_FALSE(putTlv(cursor, buf + 5, 5, 3, info));
  EXPECT_EQ(cursor, buf + 1);
  EXPECT_EQ(buf[1], 0x03);  // untouched
  EXPECT_TRUE(traced("No room for TLV (type=5, infoLen=3); remaining space 4 bytes"));

  cursor = buf;
  EXPECT_TRUE(putTlv(cursor, buf + 2, 0, 0, nullptr));  // End of LLDPDU
  EXPECT_EQ(toHex(buf, buf + 2), "00 00");

  ThrowingAsserts asserts;  // a length beyond nine bits is our own fault
  std::vector<uint8_t> big(600), bigInfo(512);
  cursor = big.data();
  EXPECT_THAT([&] { putTlv(cursor, big.data() + big.size(), 127, 512, bigInfo.data()); },
              failsAssertion("!( infoLen & ~0x1ff )"));
}

TEST_F(TlvFramingTest, PutOrgDefTlvWritesOuiAndSubtypeInPlace) {
  uint8_t buf[16];
  uint8_t* cursor = buf;
  orgDefInfo()[0] = 0xab;
  EXPECT_TRUE(putOrgDefTlv(cursor, buf + sizeof buf, kOuiDot1, 9, 1, orgDefInfo()));
  EXPECT_EQ(toHex(buf, cursor), "fe 05 00 80 c2 09 ab");

  ThrowingAsserts asserts;
  uint8_t elsewhere[8];
  EXPECT_THROW(putOrgDefTlv(cursor, buf + sizeof buf, kOuiDot1, 9, 1, elsewhere + 4),
               Platform::AssertionFailure);
}

TEST_F(TlvFramingTest, ManagementAddressLayoutAndEmptyAddress) {
  uint8_t buf[32];
  uint8_t* cursor = buf;
  EXPECT_TRUE(putManagementAddress(cursor, buf + sizeof buf, ManagementAddress()));
  EXPECT_EQ(cursor, buf);

  const ManagementAddress::Key key{afIpv4, ManAddress(std::string("\x0a\x01\x02\x03", 4))};
  EXPECT_TRUE(putManagementAddress(cursor, buf + sizeof buf, ManagementAddress(key, ifNumberingIfIndex, 0x01020304)));
  EXPECT_EQ(toHex(buf, cursor), toHex(hex(R"(
      10 0c        # type 8, length 12
      05           # address string length: subtype + 4 bytes
      01           # IPv4
      0a 01 02 03  # 10.1.2.3
      02           # interface numbering: ifIndex
      01 02 03 04  # interface number
      00           # OID string length
  )")));
  EXPECT_TRUE(traced("Added Management Address: 10.1.2.3"));

  cursor = buf;
  EXPECT_FALSE(putManagementAddress(cursor, buf + 13, ManagementAddress(key, 2, 1)));
  EXPECT_TRUE(traced("Not enough space to add Management Address: 10.1.2.3"));

  ThrowingAsserts asserts;
  EXPECT_THROW(putManagementAddress(cursor, buf + sizeof buf, ManagementAddress(key, 2, -1)),
               Platform::AssertionFailure);
  EXPECT_THROW(putManagementAddress(cursor, buf + sizeof buf, ManagementAddress(key, 2, 1, {1, 3, 6})),
               Platform::AssertionFailure);
}

TEST_F(TlvFramingTest, ExtractTlvStopsAtTheHeaderOrTheInformation) {
  const auto frame = hex("0a 03 01 02");  // System Name claims 3 bytes, 2 present
  const uint8_t* cursor = frame.data();
  int type = -1, len = -1;
  const uint8_t* info = nullptr;
  EXPECT_FALSE(extractTlv(cursor, frame.data() + 1, type, len, info));
  EXPECT_TRUE(traced("Error: frame ended during (or before) TLV header"));
  EXPECT_FALSE(extractTlv(cursor, frame.data() + frame.size(), type, len, info));
  EXPECT_TRUE(traced("Error: frame ended during TLV information string (type=5, infoLen=3)"));
  EXPECT_EQ(cursor, frame.data() + 5);  // past the end: the caller must stop
  EXPECT_EQ(type, 5);
  EXPECT_EQ(info, frame.data() + 2);

  const auto ok = hex("fe 04 00 80 c2 01 ff");
  cursor = ok.data();
  EXPECT_TRUE(extractTlv(cursor, ok.data() + ok.size(), type, len, info));
  EXPECT_EQ(type, 127);
  EXPECT_EQ(len, 4);
}

}  // namespace
}  // namespace CodecTest
