// Management-address selection through the Input root: band order, the bridge-MAC fallback,
// skipping and take-over, secondary addresses, VRF, the transmit option's interface and IPv6.
#include <string>
#include <vector>

#include "InputFixture.h"
#include "input/MgmtAddr.h"

namespace Lldp::Agent::Input {
namespace {

using InputTest::InputFixture;

using Strings = std::vector<std::string>;

struct MgmtAddrTest : InputFixture {
  const std::string bridgeMac = "00:1c:73:00:00:99";

  MgmtAddrTest() { bridgingConfig->bridgeMacAddrIs(*Konet::EthAddr::parse(bridgeMac)); }

  // An interface with an interface index and (unless empty) a primary IPv4 address.
  Ip::IpIntfStatus::Ptr intf(const std::string& name, int32_t ifIndex, const std::string& addr,
                             const std::string& vrf = "default") {
    allIntfStatusDir->intfStatusIs(name)->ifIndexIs(ifIndex);
    Ip::IpIntfStatus::Ptr ip = ipStatus->ipIntfStatusIs(name);
    ip->vrfIs(Lldp::VrfName(vrf));
    address(name, addr);
    return ip;
  }
  void address(const std::string& name, const std::string& addr) {
    Arnet::IpAddrWithMask a;
    if (!addr.empty()) a = {*Arnet::IpAddr::parse(addr), 24};
    ipStatus->ipIntfStatus(name)->activeAddrWithMaskIs(a);
  }
  void secondary(const std::string& name, const std::string& addr, bool present = true) {
    const Arnet::IpAddrWithMask a{*Arnet::IpAddr::parse(addr), 24};
    if (present) {
      ipStatus->ipIntfStatus(name)->secondaryWithMaskIs(a, true);
    } else {
      ipStatus->ipIntfStatus(name)->secondaryWithMaskDel(a);
    }
  }
  // The priority table as the transmit builder walks it.
  Strings prio() const {
    Strings out;
    for (auto it = localSystem->managementAddressPrio().begin(); it != localSystem->managementAddressPrio().end();
         ++it) {
      out.push_back(it.value().stringValue());
    }
    return out;
  }
  // Every listed key has its address, numbered by the interface that advertises it.
  int32_t ifIdOf(const std::string& addr) const {
    const auto key = ipv4ManagementAddressKey(*Arnet::IpAddr::parse(addr));
    EXPECT_TRUE(localSystem->managementAddressHas(key)) << addr;
    return localSystem->managementAddress(key).ifId();
  }
};

TEST_F(MgmtAddrTest, BandOrderWithTheFallbackOnlyWhileNoAddressIsAdvertised) {
  start();
  EXPECT_EQ(prio(), Strings{bridgeMac});

  intf("Vlan10", 110, "10.0.10.1");
  EXPECT_TRUE(traced("Deleting fallback management address"));
  EXPECT_TRUE(traced("IpIntfStatusSm::Adding 10.0.10.1 to VRF default"));
  intf("Port-Channel1", 101, "10.0.1.1");
  intf("Ethernet3", 3, "10.0.3.1");
  intf("Management1", 999, "172.16.0.1");
  intf("Loopback0", 500, "1.1.1.1");
  intf("Ethernet4", 4, "");  // no address
  EXPECT_EQ(prio(), (Strings{"1.1.1.1", "172.16.0.1", "10.0.3.1", "10.0.1.1", "10.0.10.1"}));
  EXPECT_EQ(ifIdOf("10.0.3.1"), 3);

  allIntfStatusDir->intfStatus("Ethernet3")->ifIndexIs(-1);  // not known: sent unnumbered
  EXPECT_EQ(ifIdOf("10.0.3.1"), 0);
  EXPECT_EQ(localSystem->managementAddress(ipv4ManagementAddressKey(*Arnet::IpAddr::parse("10.0.3.1"))).ifSubtype(),
            ifNumberingUnknown);
  allIntfStatusDir->intfStatus("Ethernet3")->ifIndexIs(33);
  EXPECT_EQ(ifIdOf("10.0.3.1"), 33);

  traces.clear();
  for (const char* name : {"Loopback0", "Management1", "Ethernet3", "Port-Channel1"}) address(name, "");
  ipStatus->ipIntfStatusDel("Vlan10");
  EXPECT_TRUE(traced("IpIntfStatusSm::Removing 10.0.10.1 from VRF default"));
  EXPECT_TRUE(traced("Adding fallback management address"));
  EXPECT_EQ(prio(), Strings{bridgeMac});
  EXPECT_EQ(localSystem->managementAddresss(), 1u);
}

TEST_F(MgmtAddrTest, ASharedAddressIsAdvertisedOnceAndTakenOverWhenItsInterfaceLosesIt) {
  intf("Vlan30", 130, "10.0.0.5");
  start();
  intf("Vlan20", 120, "10.0.0.5");
  intf("Vlan10", 110, "10.0.0.5");
  EXPECT_EQ(prio(), Strings{"10.0.0.5"});
  EXPECT_EQ(ifIdOf("10.0.0.5"), 130);  // the first to come keeps it
  EXPECT_TRUE(traced("IpIntfStatusSm::Skipping"));
  const auto key = ipv4ManagementAddressKey(*Arnet::IpAddr::parse("10.0.0.5"));
  ASSERT_TRUE(inputRoot->skippedAddr(key));
  EXPECT_EQ(inputRoot->skippedAddr(key)->intfs(), 2u);

  address("Vlan30", "10.0.0.6");  // the smallest interface id takes over
  EXPECT_EQ(prio(), (Strings{"10.0.0.5", "10.0.0.6"}));
  EXPECT_EQ(ifIdOf("10.0.0.5"), 110);
  EXPECT_EQ(inputRoot->skippedAddr(key)->intfs(), 1u);

  ipStatus->ipIntfStatusDel("Vlan10");  // the interface itself goes
  EXPECT_EQ(ifIdOf("10.0.0.5"), 120);
  EXPECT_FALSE(inputRoot->skippedAddr(key));

  address("Vlan20", "");
  address("Vlan30", "");
  EXPECT_EQ(prio(), Strings{bridgeMac});
}

TEST_F(MgmtAddrTest, SecondaryAddressesFollowTheirPrimaryInAddressOrder) {
  start();
  intf("Vlan10", 110, "10.0.0.1");
  secondary("Vlan10", "10.0.0.30");
  secondary("Vlan10", "10.0.0.20");
  intf("Vlan5", 105, "10.0.5.1");
  EXPECT_EQ(prio(), (Strings{"10.0.5.1", "10.0.0.1", "10.0.0.20", "10.0.0.30"}));
  EXPECT_EQ(ifIdOf("10.0.0.20"), 110);

  secondary("Vlan10", "10.0.0.30", false);
  EXPECT_EQ(prio(), (Strings{"10.0.5.1", "10.0.0.1", "10.0.0.20"}));

  // A secondary that another interface advertises as its primary waits for it.
  secondary("Vlan10", "10.0.5.1");
  EXPECT_EQ(ifIdOf("10.0.5.1"), 105);
  address("Vlan5", "");
  EXPECT_EQ(prio(), (Strings{"10.0.0.1", "10.0.0.20", "10.0.5.1"}));
  EXPECT_EQ(ifIdOf("10.0.5.1"), 110);

  // The primary becomes one of its own secondaries: listed once, as the primary.
  address("Vlan10", "10.0.0.20");
  EXPECT_EQ(prio(), (Strings{"10.0.0.20", "10.0.5.1"}));

  address("Vlan10", "");  // secondaries go with the primary
  EXPECT_EQ(prio(), Strings{bridgeMac});
  EXPECT_EQ(localSystem->managementAddresss(), 1u);
}

TEST_F(MgmtAddrTest, OnlyAddressesInTheManagementVrfAreAdvertised) {
  start();
  intf("Vlan10", 110, "10.0.0.1");
  intf("Vlan20", 120, "10.0.0.2", "red");
  EXPECT_EQ(prio(), Strings{"10.0.0.1"});

  cliConfig->mgmtAddrVrfIs(Lldp::VrfName("red"));
  EXPECT_EQ(prio(), Strings{"10.0.0.2"});
  EXPECT_TRUE(traced("IpIntfStatusSm::Adding 10.0.0.2 to VRF red"));

  ipStatus->ipIntfStatus("Vlan20")->vrfIs(Lldp::VrfName("blue"));
  EXPECT_EQ(prio(), Strings{bridgeMac});
  ipStatus->ipIntfStatus("Vlan10")->vrfIs(Lldp::VrfName("red"));
  EXPECT_EQ(prio(), Strings{"10.0.0.1"});
}

// The transmit option's interface takes the reserved head of the table and sends its address
// alone; naming another interface, or none, gives it its own priority back.
TEST_F(MgmtAddrTest, TheNamedInterfacesAddressIsFiledFirstAndSentAlone) {
  cliConfig->mgmtAddrTxOptionIs(MgmtAddrTxOption{MgmtAddrTxMode::intfName, "Vlan20"});  // before start-up
  start();
  intf("Loopback0", 500, "1.1.1.1");
  intf("Vlan10", 110, "10.0.0.1");
  EXPECT_EQ(config->maxTxMgmtAddrs(), 1u);
  intf("Vlan20", 120, "10.0.0.2");  // added after the option names it
  EXPECT_EQ(prio(), (Strings{"10.0.0.2", "1.1.1.1", "10.0.0.1"}));
  EXPECT_TRUE(localSystem->managementAddressPrioHas(reservedSourceIntfPriority()));

  address("Vlan20", "10.0.0.3");
  EXPECT_EQ(prio(), (Strings{"10.0.0.3", "1.1.1.1", "10.0.0.1"}));
  address("Vlan20", "");
  EXPECT_EQ(prio(), (Strings{"1.1.1.1", "10.0.0.1"}));
  address("Vlan20", "10.0.0.2");

  cliConfig->mgmtAddrTxOptionIs(MgmtAddrTxOption{MgmtAddrTxMode::intfName, "Vlan10"});
  EXPECT_EQ(prio(), (Strings{"10.0.0.1", "1.1.1.1", "10.0.0.2"}));
  cliConfig->mgmtAddrTxOptionIs(MgmtAddrTxOption{MgmtAddrTxMode::all, {}});
  EXPECT_EQ(config->maxTxMgmtAddrs(), 4294967295u);
  EXPECT_EQ(prio(), (Strings{"1.1.1.1", "10.0.0.1", "10.0.0.2"}));
  EXPECT_FALSE(localSystem->managementAddressPrioHas(reservedSourceIntfPriority()));
  EXPECT_EQ(inputRoot->sourceIntfNamePriority(), ManAddrPriority{});
}

TEST_F(MgmtAddrTest, OneStableIpv6AddressOfTheNamedInterface) {
  start();
  cliConfig->ip6MgmtAddrIntfNameIs("Management1");
  EXPECT_TRUE(traced("Management1 not found"));
  EXPECT_EQ(localSystem->ip6ManagementAddress(), ManagementAddress{});

  allIntfStatusDir->intfStatusIs("Management1")->ifIndexIs(999);
  Ip6::IntfStatus::Ptr six = ip6Status->intfIs("Management1");
  auto add = [&](const char* text) { six->addrIs({*Arnet::Ip6Addr::parse(text), 64}, true); };
  add("fe80::1");
  EXPECT_TRUE(traced("Management1 has no ipv6 address"));
  EXPECT_EQ(prio(), Strings{bridgeMac});

  add("2001:db8::20");
  add("2001:db8::3");
  const ManagementAddress chosen = localSystem->ip6ManagementAddress();
  EXPECT_EQ(chosen.key().stringValue(), "2001:db8::3");
  EXPECT_EQ(chosen.ifId(), 999);
  EXPECT_TRUE(prio().empty());  // the fallback is withdrawn

  // The choice does not depend on the order the addresses came in.
  auto other = Platform::make<Ip6::IntfStatus>("Management1");
  for (const char* text : {"2001:db8::3", "fe80::1", "2001:db8::20"}) other->addrIs({*Arnet::Ip6Addr::parse(text), 64}, true);
  EXPECT_EQ(*getStableIp6Addr(*other), *getStableIp6Addr(*six));

  six->addrDel({*Arnet::Ip6Addr::parse("2001:db8::3"), 64});
  EXPECT_EQ(localSystem->ip6ManagementAddress().key().stringValue(), "2001:db8::20");

  cliConfig->ip6MgmtAddrIntfNameIs(Konet::IntfId());
  EXPECT_EQ(localSystem->ip6ManagementAddress(), ManagementAddress{});
  EXPECT_EQ(prio(), Strings{bridgeMac});
}

}  // namespace
}  // namespace Lldp::Agent::Input
