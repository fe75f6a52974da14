// The global configuration and the local-system record: chassis id, names, capabilities,
// timers, TLV selection and the management-address priorities.
#include "InputFixture.h"

namespace InputTest {
namespace {

using LocalSystemTest = InputFixture;

std::string bytes(const Konet::EthAddr& mac) { return std::string(reinterpret_cast<const char*>(mac.data()), 6); }

Lldp::ManagementAddress::Key ipv4Key(uint8_t last) {
  const uint8_t address[4] = {10, 0, 0, last};
  return {Lldp::afIpv4, Lldp::ManAddress(address, 4)};
}

TEST_F(LocalSystemTest, ChassisNameDescriptionAndCapabilities) {
  start();
  EXPECT_EQ(localSystem->chassisIdentifier().subtype, Lldp::chassisIdMacAddress);
  EXPECT_EQ(localSystem->chassisIdentifier().value.view(), bytes(bridgingConfig->bridgeMacAddr()));
  EXPECT_EQ(localSystem->sysName(), "sw1.example.net");
  EXPECT_EQ(localSystem->sysDesc(), "Test switch");
  EXPECT_EQ(localSystem->sysCapSupported().value, 0x14);
  EXPECT_EQ(localSystem->sysCapEnabled().value, 0x04);

  // Routing toggles the router bit only.
  routingConfig->routingIs(true);
  EXPECT_EQ(localSystem->sysCapEnabled().value, 0x14);
  routingConfig->routingIs(false);
  EXPECT_EQ(localSystem->sysCapEnabled().value, 0x04);

  // No trailing dot without a domain; long names and descriptions are cut at 255.
  netStatus->domainNameIs("");
  EXPECT_EQ(localSystem->sysName(), "sw1");
  netStatus->hostnameIs(std::string(200, 'h'));
  netStatus->domainNameIs(std::string(100, 'd'));
  EXPECT_EQ(localSystem->sysName().str(), std::string(200, 'h') + "." + std::string(54, 'd'));
  sysDescr->valueIs(std::string(300, 'x'));
  EXPECT_EQ(localSystem->sysDesc().size(), 255u);

  const Konet::EthAddr newMac(0x00, 0x1c, 0x73, 0xcc, 0xdd, 0x02);
  bridgingConfig->bridgeMacAddrIs(newMac);
  EXPECT_EQ(localSystem->chassisIdentifier().value.view(), bytes(newMac));
}

TEST_F(LocalSystemTest, FallbackAddressFollowsTheBridgeMacAndYieldsToListedAddresses) {
  start();
  const Lldp::ManagementAddress::Key first{Lldp::afIeee802,
                                           Lldp::ManAddress(bridgingConfig->bridgeMacAddr().data(), 6)};
  ASSERT_TRUE(inputRoot->fallbackManagementAddressKeyPresent());
  EXPECT_EQ(inputRoot->fallbackManagementAddressKey(), first);
  EXPECT_EQ(localSystem->managementAddress(first).ifSubtype(), Lldp::ifNumberingUnknown);
  EXPECT_EQ(localSystem->managementAddressPrio(Input::fallbackManAddrPriority()), first);

  // With an address listed, a new bridge MAC replaces the fallback address but does not list it.
  Lldp::ManAddrPriority vlanPriority;
  Input::intfNameToVlanIdAndManAddrPriority("Vlan10", nullptr, &vlanPriority);
  localSystem->managementAddressPrioDel(Input::fallbackManAddrPriority());
  localSystem->managementAddressPrioIs(vlanPriority, ipv4Key(1));
  bridgingConfig->bridgeMacAddrIs(Konet::EthAddr(0, 0x1c, 0x73, 0, 0, 9));
  const Lldp::ManagementAddress::Key second = inputRoot->fallbackManagementAddressKey();
  EXPECT_NE(second, first);
  EXPECT_FALSE(localSystem->managementAddressHas(first));
  EXPECT_TRUE(localSystem->managementAddressHas(second));
  EXPECT_FALSE(localSystem->managementAddressPrioHas(Input::fallbackManAddrPriority()));
}

TEST_F(LocalSystemTest, TimersAreCopiedAndTheTransmitDelayOnlyShrinks) {
  start();
  const std::pair<uint32_t, uint32_t> intervalToDelay[] = {{0, 0}, {1, 1}, {2, 2}, {30, 2}, {3600, 2}};
  for (auto [interval, delay] : intervalToDelay) {
    cliConfig->messageTxIntervalIs(interval);
    EXPECT_EQ(config->messageTxInterval(), interval);
    EXPECT_EQ(config->txDelay(), delay) << "interval " << interval;
  }
  cliConfig->messageTxHoldTimeIs(7u);
  cliConfig->reinitDelayIs(9u);
  cliConfig->rxTaggedPacketsDropIs(true);
  EXPECT_EQ(config->messageTxHoldTime(), 7u);
  EXPECT_EQ(config->reinitDelay(), 9u);
  EXPECT_TRUE(config->rxTaggedPacketsDrop());
  cliConfig->mgmtAddrVrfIs(Lldp::VrfName("mgmt"));
  EXPECT_EQ(status->mgmtAddrVrf(), "mgmt");
}

TEST_F(LocalSystemTest, TlvSelectionSetsSingleBitsAndLeavesTheRest) {
  cliConfig->sysNameTlvEnabledIs(false);
  start();
  addPhy("Ethernet1");
  Lldp::PortConfig::Ptr pc = portConfig("Ethernet1");
  ASSERT_TRUE(pc);
  // A new port gets the selection at once.
  EXPECT_EQ(pc->enabledTlvs().value, 0x0d);
  EXPECT_EQ(pc->dot3EnabledTlvs().value, 0x0e);
  EXPECT_EQ(pc->tiaEnabledTlvs().value, 0x02);

  // MAC/PHY status (dot3 bit 0) and the other MED bits belong to the port, not the selection.
  pc->dot3EnabledTlvsIs(Lldp::PortConfig::Dot3EnabledTlvs{0x0f});
  pc->tiaEnabledTlvsIs(Lldp::PortConfig::TiaEnabledTlvs{0x1f});
  cliConfig->powerViaMdiTlvEnabledIs(false);
  cliConfig->linkAggregationTlvEnabledIs(false);
  cliConfig->maxFrameSizeTlvEnabledIs(false);
  cliConfig->medNetworkPolicyTlvEnabledIs(false);
  EXPECT_EQ(pc->dot3EnabledTlvs().value, 0x01);
  EXPECT_EQ(pc->tiaEnabledTlvs().value, 0x1d);
  cliConfig->portDescTlvEnabledIs(false);
  cliConfig->sysDescTlvEnabledIs(false);
  cliConfig->sysCapTlvEnabledIs(false);
  cliConfig->sysNameTlvEnabledIs(true);
  EXPECT_EQ(pc->enabledTlvs().value, 0x02);
  cliConfig->mgmtAddrTlvEnabledIs(false);
  cliConfig->portVlanIdTlvEnabledIs(false);
  EXPECT_FALSE(pc->mgmtAddrTxEnable());
  EXPECT_FALSE(pc->portVlanTxEnable());
  cliConfig->medNetworkPolicyTlvEnabledIs(true);
  cliConfig->powerViaMdiTlvEnabledIs(true);
  EXPECT_EQ(pc->tiaEnabledTlvs().value, 0x1f);
  EXPECT_EQ(pc->dot3EnabledTlvs().value, 0x03);
}

TEST_F(LocalSystemTest, NameDerivedPrioritiesFormDisjointBands) {
  auto primary = [](const char* name, Bridging::VlanIdOrNone* vlan = nullptr) {
    Lldp::ManAddrPriority p;
    Input::intfNameToVlanIdAndManAddrPriority(name, vlan, &p);
    EXPECT_EQ(p.secondaryPriority, 0u);
    EXPECT_EQ(p.intfId, Konet::IntfId(name));
    return p.primaryPriority;
  };
  EXPECT_EQ(primary("Loopback0"), 2u);
  EXPECT_EQ(primary("Management1"), 2104u);
  EXPECT_EQ(primary("Management1/2"), 2115u);
  EXPECT_EQ(primary("Ethernet1"), 3394u);
  EXPECT_EQ(primary("Ethernet2/3/4"), 3394u + 32 * (128 * 2 + 3 - 1) + 4);
  // Host names never abort the agent: they are held inside their band.
  EXPECT_EQ(primary("eth0"), 3394u);
  EXPECT_EQ(primary("ens160"), 3394u + 32 * 127);
  EXPECT_EQ(primary("bond3000"), 533779u);
  EXPECT_EQ(primary("Port-Channel1"), 531780u);
  Bridging::VlanIdOrNone vlan;
  EXPECT_EQ(primary("Vlan1", &vlan), 533781u);
  EXPECT_EQ(vlan.value(), 1);
  vlan = Bridging::VlanIdOrNone(7);
  primary("Ethernet1", &vlan);
  EXPECT_EQ(vlan.value(), 0);  // not a VLAN interface
  EXPECT_EQ(primary("Tunnel3"), 0u);

  // Names beyond the switch layout (a host may call its ports Ethernet256) are held too.
  EXPECT_EQ(primary("Ethernet256"), 3394u + 32 * 127);
  EXPECT_EQ(primary("Ethernet1/129"), 3394u + 32 * (128 + 128 - 1));
  EXPECT_EQ(primary("Management129/11"), 2103u + 10 * 128 + 10);
  EXPECT_EQ(primary("Loopback2101"), 2102u);
  EXPECT_EQ(primary("Port-Channel2001"), 533779u);
  EXPECT_EQ(primary("Vlan5000", &vlan), 0u);  // no VLAN: any other name
  EXPECT_EQ(vlan.value(), 0);
}

}  // namespace
}  // namespace InputTest
