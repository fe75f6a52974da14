// Bounded values, interface names and MAC addresses.
#include <gmock/gmock.h>

#include "platform/Bounded.h"
#include "platform/EthAddr.h"
#include "platform/IntfId.h"

namespace {

using Konet::IntfId;
using Kind = IntfId::Kind;

TEST(BoundedTest, RefusesOversizedValuesWithTheTypeAndBound) {
  using B = Platform::BoundedBytes<"BoundedString507", 507>;
  EXPECT_NO_THROW(B(std::string(507, 'x')));
  EXPECT_THAT([] { B(std::string(508, 'x')); },
              ::testing::ThrowsMessage<std::range_error>("BoundedString507::value::bytes > 507 not allowed"));
  EXPECT_EQ(B::clipped(std::string(600, 'y')).size(), 507u);

  using V = Platform::BoundedInt<"VlanIdOrNone", uint16_t, 0, 4094>;
  EXPECT_EQ(V(4094).value(), 4094);
  EXPECT_THAT([] { V(4095); }, ::testing::ThrowsMessage<std::range_error>("VlanIdOrNone::value > 4094 not allowed"));
}

TEST(BoundedTest, CompactBytesSharesCopiesAndReusesItsBlock) {
  using B = Platform::BoundedBytes<"B", 255>;
  B a("hello world, longer than a short string");
  B b = a;
  EXPECT_EQ(b.data(), a.data());  // copies share the block
  b = std::string_view("another value of a fair length");
  EXPECT_EQ(a, "hello world, longer than a short string");  // copy on write
  B c = std::move(a);
  EXPECT_TRUE(a.empty());
  const uint8_t* block = c.data();
  c = std::string_view("short");
  EXPECT_EQ(c.data(), block);  // fits: same block
  c.clear();
  c = std::string_view("hello world, longer than");
  EXPECT_EQ(c.data(), block);
  c = c.view().substr(6);  // from itself
  EXPECT_EQ(c, "world, longer than");
  B small("abcdefg");  // seven bytes live in the word itself
  B copy = small;
  EXPECT_NE(copy.data(), small.data());
  EXPECT_EQ(copy, "abcdefg");
  small = small.view().substr(1, 3);
  EXPECT_EQ(small, "bcd");
  EXPECT_LT(B("a"), B("b"));
}

TEST(IntfIdTest, NamesGiveTheirKindAndNumbers) {
  struct NameCase {
    const char* name;
    Kind kind;
    uint32_t module, port, lane, number;
  };
  const NameCase cases[] = {
      {"Ethernet1", Kind::ethernet, 0, 1, 0, 0},        {"Ethernet3/1", Kind::ethernet, 3, 1, 0, 0},
      {"Ethernet3/1/2", Kind::ethernet, 3, 1, 2, 0},    {"Management1", Kind::management, 0, 1, 0, 0},
      {"Management1/1", Kind::management, 1, 1, 0, 0}, {"Port-Channel5", Kind::portChannel, 0, 0, 0, 5},
      {"Vlan10", Kind::vlan, 0, 0, 0, 10},              {"Loopback0", Kind::loopback, 0, 0, 0, 0},
      {"eth0", Kind::ethernet, 0, 0, 0, 0},             {"enp3s0", Kind::ethernet, 3, 0, 0, 0},
      {"enp3s0f1", Kind::ethernet, 3, 0, 1, 0},         {"swp1", Kind::ethernet, 0, 1, 0, 0},
      {"swp1s2", Kind::ethernet, 0, 1, 2, 0},           {"bond0", Kind::portChannel, 0, 0, 0, 0},
      {"team0", Kind::portChannel, 0, 0, 0, 0},         {"eth0.10", Kind::vlan, 0, 0, 0, 10},
      {"vlan10", Kind::vlan, 0, 0, 0, 10},              {"lo", Kind::loopback, 0, 0, 0, 0},
      {"mgmt0", Kind::management, 0, 0, 0, 0},          {"Ethernet1/2/3/4", Kind::other, 0, 0, 0, 0},
      {"Ethernet", Kind::other, 0, 0, 0, 0},            {"Management1/2/3", Kind::other, 0, 0, 0, 0},
      {"wlp2s0", Kind::other, 0, 0, 0, 0},              {"Ethernet99999999999", Kind::other, 0, 0, 0, 0},
      {"Vlan4095", Kind::other, 0, 0, 0, 0},            {"vlan4095", Kind::other, 0, 0, 0, 0},
  };
  for (const NameCase& c : cases) {
    SCOPED_TRACE(c.name);
    const IntfId id(c.name);
    EXPECT_EQ(id.kind(), c.kind);
    EXPECT_EQ(id.module(), c.module);
    EXPECT_EQ(id.port(), c.port);
    EXPECT_EQ(id.lane(), c.lane);
    EXPECT_EQ(id.number(), c.number);
    EXPECT_EQ(id.name(), c.name);
  }
  EXPECT_TRUE(IntfId("UnconnectedEthernet2").isUnconnectedEthernet());
  EXPECT_FALSE(IntfId("Ethernet2").isUnconnectedEthernet());
  EXPECT_TRUE(IntfId("Ethernet2").isEthernet());
  EXPECT_EQ(IntfId().kind(), Kind::none);
}

TEST(IntfIdTest, NaturalOrderByNameOnly) {
  EXPECT_LT(IntfId("Ethernet2"), IntfId("Ethernet10"));
  EXPECT_LT(IntfId("Ethernet10"), IntfId("Management1"));
  EXPECT_EQ(IntfId("Ethernet2"), IntfId(std::string("Ethernet2")));
  EXPECT_LT(IntfId("eth2"), IntfId("eth10"));
  EXPECT_LT(IntfId("Ethernet3/2"), IntfId("Ethernet3/10"));
  EXPECT_LT(IntfId("Ethernet3"), IntfId("Ethernet3/1"));
  EXPECT_LT(IntfId("Loopback0"), IntfId("Management1"));  // no longer by kind
  EXPECT_NE(IntfId("eth01"), IntfId("eth1"));
  EXPECT_NE(IntfId("eth01") <=> IntfId("eth1"), std::strong_ordering::equal);
  EXPECT_EQ(IntfId("eth1") <=> IntfId("eth1"), std::strong_ordering::equal);
  EXPECT_LT(IntfId("a"), IntfId("a0"));
}

TEST(IntfIdTest, PlatformDecidesTheKindAndNumbers) {
  IntfId uplink("uplink");
  EXPECT_EQ(uplink.kind(), Kind::other);
  Konet::IntfPlatformTable::intfIs("uplink", IntfId::Numbering{Kind::ethernet, false, 0, 7, 0, 0});
  EXPECT_TRUE(uplink.isEthernet());
  EXPECT_EQ(uplink.port(), 7u);
  // Out-of-band numbers are clamped when entered.
  Konet::IntfPlatformTable::intfIs("uplink", IntfId::Numbering{Kind::management, false, 500, 50, 0, 0});
  EXPECT_EQ(uplink.module(), IntfId::kMaxModule);
  EXPECT_EQ(uplink.port(), IntfId::kMaxManagementPort);
  Konet::IntfPlatformTable::intfDel("uplink");
  EXPECT_EQ(uplink.kind(), Kind::other);
  Konet::IntfPlatformTable::clear();
}

TEST(IntfIdTest, NumbersStayInTheirBands) {
  EXPECT_EQ(IntfId("eth200").port(), IntfId::kMaxEthernetPort);  // Linux names are clamped
  EXPECT_EQ(IntfId("mgmt20").port(), IntfId::kMaxManagementPort);
  EXPECT_EQ(IntfId("enp300s0f40").module(), IntfId::kMaxModule);
  EXPECT_EQ(IntfId("enp300s0f40").lane(), IntfId::kMaxLane);
  EXPECT_EQ(IntfId("bond9000").number(), IntfId::kMaxPortChannel);
  EXPECT_EQ(IntfId("vlan5000").kind(), Kind::other);  // no such VLAN
  EXPECT_EQ(IntfId("Ethernet1/200").port(), 200u);  // switch names say exactly where
  EXPECT_FALSE(IntfId::inBand(IntfId("Ethernet1/200").numbering()));
  EXPECT_TRUE(IntfId::inBand(IntfId("Ethernet128/128/31").numbering()));
}

TEST(EthAddrTest, ParsesCommonFormsAndPrintsColons) {
  auto a = Konet::EthAddr::parse("00:1C:73:aa:bb:cc");
  ASSERT_TRUE(a);
  EXPECT_EQ(a->toString(), "00:1c:73:aa:bb:cc");
  EXPECT_EQ(Konet::EthAddr::parse("001c.73aa.bbcc"), a);
  EXPECT_EQ(Konet::EthAddr::parse("00-1c-73-aa-bb-cc"), a);
  EXPECT_FALSE(Konet::EthAddr::parse("00:1c:73:aa:bb"));
  EXPECT_FALSE(Konet::EthAddr::parse("001c:73aa:bbcc"));
  EXPECT_FALSE(Konet::EthAddr::parse("00:1c-73:aa:bb:cc"));
  EXPECT_TRUE(Konet::kLldpMulticast.isMulticast());
  EXPECT_EQ(Konet::kLldpMulticast.toString('-'), "01-80-c2-00-00-0e");
}

}  // namespace
