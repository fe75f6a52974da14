// Which interfaces are LLDP ports, their identity, description, frame size, aggregation and
// admin status, and the 802.1X bypass.
#include "InputFixture.h"

namespace InputTest {
namespace {

using PortTest = InputFixture;

TEST_F(PortTest, PortsFollowTheForwardingModelAndCarryTheirIdentity) {
  phyConfigDir->intfConfigIs("Ethernet1")->descriptionIs("uplink to core");
  start();
  addPhy("Ethernet1");
  addPhy("UnconnectedEthernet2");
  auto discarded = addPhy("Ethernet3", ForwardingModel::discarded);
  addPhy("Ethernet4", ForwardingModel::dataLink);

  EXPECT_TRUE(portConfig("Ethernet1"));
  EXPECT_FALSE(portConfig("UnconnectedEthernet2"));
  EXPECT_FALSE(portConfig("Ethernet3"));
  EXPECT_FALSE(portConfig("Ethernet4"));
  ASSERT_TRUE(localPort("Ethernet1"));
  EXPECT_EQ(localPort("Ethernet1")->portIdentifier(), (Lldp::PortIdentifier{Lldp::portIdInterfaceName, "Ethernet1"}));
  EXPECT_TRUE(localPort("Ethernet1")->localPortPoeInfo());
  EXPECT_TRUE(status->portStatusHas("Ethernet1"));
  EXPECT_TRUE(protocolRoot->desiredIntfDir()->intfDesiredHas("Ethernet1"));

  EXPECT_EQ(localPort("Ethernet1")->portDesc(), "uplink to core");

  // Descriptions are cut at 255 and go with their configuration.
  phyConfigDir->intfConfig("Ethernet1")->descriptionIs(std::string(300, 'd'));
  EXPECT_EQ(localPort("Ethernet1")->portDesc().size(), 255u);
  phyConfigDir->intfConfigDel("Ethernet1");
  EXPECT_TRUE(localPort("Ethernet1")->portDesc().empty());

  discarded->forwardingModelIs(ForwardingModel::routed);
  EXPECT_TRUE(portConfig("Ethernet3"));

  // A port that stops qualifying keeps its status (and counters) but nothing else.
  phyDir->intfStatus("Ethernet1")->forwardingModelIs(ForwardingModel::discarded);
  EXPECT_FALSE(portConfig("Ethernet1"));
  EXPECT_FALSE(localPort("Ethernet1"));
  EXPECT_FALSE(protocolRoot->desiredIntfDir()->intfDesiredHas("Ethernet1"));
  EXPECT_FALSE(protocolRoot->protocolSm()->lldpPamSmHas("Ethernet1"));
  EXPECT_TRUE(status->portStatusHas("Ethernet1"));

  phyDir->intfStatusDel("Ethernet3");
  EXPECT_FALSE(portConfig("Ethernet3"));
  EXPECT_FALSE(inputRoot->activeEthIntfStatusDirSm()->ethPhyIntfStatusSmHas("Ethernet3"));
  // The status goes with the interface, whether the port still qualified or not.
  EXPECT_FALSE(status->portStatusHas("Ethernet3"));
  phyDir->intfStatusDel("Ethernet1");
  EXPECT_FALSE(status->portStatusHas("Ethernet1"));
}

// The power subsystem's grant reaches a port whose record is made again after it was given.
TEST_F(PortTest, APortMadeAgainTakesThePowerGrantedBefore) {
  start();
  auto phy = addPhy("Ethernet1");
  auto grant = Platform::make<Environment::Power::PoePortStatus>("Ethernet1");
  grant->grantedPowerIs(Units::Watts{15.4});
  grant->poweredDeviceClassIs(3);
  poeDir->entryIs("Ethernet1", grant);
  ASSERT_DOUBLE_EQ(localPort("Ethernet1")->localPortPoeInfo()->grantedPower().value, 15.4);
  phy->forwardingModelIs(ForwardingModel::discarded);
  ASSERT_FALSE(localPort("Ethernet1"));
  phy->forwardingModelIs(ForwardingModel::routed);
  ASSERT_TRUE(localPort("Ethernet1"));
  EXPECT_DOUBLE_EQ(localPort("Ethernet1")->localPortPoeInfo()->grantedPower().value, 15.4);
  EXPECT_EQ(localPort("Ethernet1")->localPortPoeInfo()->pdClass(), 3);
}

TEST_F(PortTest, FrameSizeComesFromTheHardwareOrTheManagementMtu) {
  start(1);
  addPhy("Ethernet1");
  auto ownMgmt = addPhy("Management1/1", ForwardingModel::routed);
  addPhy("Management2/1", ForwardingModel::routed);

  EXPECT_EQ(localPort("Ethernet1")->maximumFrameSizeInfo().value, 9236);
  EXPECT_EQ(localPort("Management1/1")->maximumFrameSizeInfo().value, 1518);
  ownMgmt->maxMtuIs(9000u);
  EXPECT_EQ(localPort("Management1/1")->maximumFrameSizeInfo().value, 9018);
  hwCapabilities->maxFrameSizeIs(uint16_t{10000});
  EXPECT_EQ(localPort("Ethernet1")->maximumFrameSizeInfo().value, 10000);
  EXPECT_EQ(localPort("Management1/1")->maximumFrameSizeInfo().value, 9018);

  // The other supervisor's management port is listed but has no status or packet access here.
  EXPECT_TRUE(localPort("Management2/1"));
  EXPECT_TRUE(status->portStatusHas("Management1/1"));
  EXPECT_FALSE(status->portStatusHas("Management2/1"));
  EXPECT_FALSE(protocolRoot->desiredIntfDir()->intfDesiredHas("Management2/1"));
}

TEST_F(PortTest, LinkAggregationFollowsMembership) {
  allIntfStatusDir->intfStatusIs("Port-Channel10")->ifIndexIs(1000010);
  allIntfStatusDir->intfStatusIs("Port-Channel20")->ifIndexIs(1000020);
  // A LAG that exists at start-up claims its members at once.
  lagDir->intfStatusIs("Port-Channel10")->memberIs("Ethernet1", true);
  addPhy("Ethernet1");
  addPhy("Ethernet2");
  start();
  auto lagInfo = [this](const char* intf) { return localPort(intf)->linkAggregationInfo(); };
  EXPECT_EQ(lagInfo("Ethernet1"), (Lldp::LinkAggregationInfo{3, 1000010}));
  EXPECT_EQ(lagInfo("Ethernet2"), (Lldp::LinkAggregationInfo{1, 0}));

  // Moving between LAGs: the port stays with its first LAG until it leaves it.
  auto lag20 = lagDir->intfStatusIs("Port-Channel20");
  lag20->memberIs("Ethernet1", true);
  EXPECT_EQ(Input::portToLag("Ethernet1", inputRoot.get()), Konet::IntfId("Port-Channel10"));
  lagDir->intfStatus("Port-Channel10")->memberDel("Ethernet1");
  EXPECT_EQ(lagInfo("Ethernet1"), (Lldp::LinkAggregationInfo{3, 1000020}));

  lag20->memberIs("Ethernet2", true);
  lag20->memberDel("Ethernet1");
  EXPECT_EQ(lagInfo("Ethernet1"), (Lldp::LinkAggregationInfo{1, 0}));
  EXPECT_FALSE(inputRoot->portToLagsMapHas("Ethernet1"));
  EXPECT_TRUE(Input::portToLag("Ethernet1", inputRoot.get()).empty());

  // A LAG that goes releases its members.
  lagDir->intfStatusDel("Port-Channel20");
  EXPECT_EQ(lagInfo("Ethernet2"), (Lldp::LinkAggregationInfo{1, 0}));
  EXPECT_EQ(inputRoot->portToLagsMaps(), 0u);
  EXPECT_EQ(inputRoot->lagss(), 0u);
}

TEST_F(PortTest, AdminStatusFollowsCommandLineSwitchportModeAndLag) {
  start();
  addPhy("Ethernet1");
  addPhy("Ethernet2");
  addPhy("Ethernet3");
  auto admin = [this](const char* intf) { return portConfig(intf)->adminStatus(); };
  EXPECT_EQ(admin("Ethernet1"), AdminStatus::txAndRx);

  auto e1Switch = bridgingConfig->switchIntfConfigIs("Ethernet1");
  e1Switch->switchportModeIs(Bridging::SwitchportMode::tap);
  EXPECT_EQ(admin("Ethernet1"), AdminStatus::rxOnly);
  e1Switch->nativeVlanIs(Bridging::VlanIdOrNone(42));
  EXPECT_EQ(localPort("Ethernet1")->portVlanId().value(), 42);

  auto e2Cli = cliConfig->portConfigIs("Ethernet2");
  e2Cli->adminStatusIs(AdminStatus::txOnly);
  EXPECT_EQ(admin("Ethernet2"), AdminStatus::txOnly);
  bridgingConfig->switchIntfConfigIs("Ethernet2")->switchportModeIs(Bridging::SwitchportMode::routed);
  EXPECT_EQ(admin("Ethernet2"), AdminStatus::disabled);
  const Lldp::NetworkPolicyConfig voice{true, 100, 5, 46};
  e2Cli->networkPolicyConfigIs(7, voice);
  EXPECT_EQ(portConfig("Ethernet2")->networkPolicyConfig(7), voice);

  // A LAG member follows the LAG's switchport mode.
  auto lagSwitch = bridgingConfig->switchIntfConfigIs("Port-Channel5");
  lagSwitch->switchportModeIs(Bridging::SwitchportMode::tool);
  auto lag = lagDir->intfStatusIs("Port-Channel5");
  lag->memberIs("Ethernet3", true);
  EXPECT_EQ(admin("Ethernet3"), AdminStatus::rxOnly);
  lagSwitch->switchportModeIs(Bridging::SwitchportMode::trunk);
  EXPECT_EQ(admin("Ethernet3"), AdminStatus::txAndRx);
  lagSwitch->switchportModeIs(Bridging::SwitchportMode::tap);
  EXPECT_EQ(admin("Ethernet3"), AdminStatus::rxOnly);
  lag->memberDel("Ethernet3");
  EXPECT_EQ(admin("Ethernet3"), AdminStatus::txAndRx);

  bridgingConfig->switchIntfConfigDel("Ethernet1");
  EXPECT_EQ(admin("Ethernet1"), AdminStatus::txAndRx);
  EXPECT_EQ(localPort("Ethernet1")->portVlanId().value(), 0);

  // Disabling LLDP disables every port and drops the per-port command-line reactors.
  cliConfig->enabledIs(false);
  for (const char* intf : {"Ethernet1", "Ethernet2", "Ethernet3"}) EXPECT_EQ(admin(intf), AdminStatus::disabled);
  EXPECT_EQ(inputSm()->cliPortConfigSms(), 0u);
  EXPECT_EQ(portConfig("Ethernet2")->networkPolicyConfigs(), 0u);
  e2Cli->adminStatusIs(AdminStatus::rxOnly);  // not watched while disabled
  EXPECT_EQ(admin("Ethernet2"), AdminStatus::disabled);

  cliConfig->enabledIs(true);
  EXPECT_EQ(admin("Ethernet1"), AdminStatus::txAndRx);
  EXPECT_EQ(admin("Ethernet2"), AdminStatus::rxOnly);
  EXPECT_EQ(portConfig("Ethernet2")->networkPolicyConfig(7), voice);

  cliConfig->portConfigDel("Ethernet2");
  EXPECT_EQ(admin("Ethernet2"), AdminStatus::rxOnly);  // routed switchport: receive only
  EXPECT_EQ(portConfig("Ethernet2")->networkPolicyConfigs(), 0u);
  bridgingConfig->switchIntfConfigDel("Ethernet2");
  EXPECT_EQ(admin("Ethernet2"), AdminStatus::txAndRx);
}

TEST_F(PortTest, Dot1xBypassAdmitsAndRemovesDataLinkPorts) {
  // A bypass that is on at start-up admits its ports, whatever the order the reactors come in.
  dot1xStatus->lldpBypassIs(true);
  addPhy("Ethernet3", ForwardingModel::dataLink);
  start();
  EXPECT_TRUE(portConfig("Ethernet3"));
  dot1xStatus->lldpBypassIs(false);
  EXPECT_FALSE(portConfig("Ethernet3"));

  addPhy("Ethernet1", ForwardingModel::dataLink);
  addPhy("Ethernet2");
  EXPECT_FALSE(portConfig("Ethernet1"));

  dot1xStatus->lldpBypassIs(true);
  ASSERT_TRUE(portConfig("Ethernet1"));
  EXPECT_TRUE(traced("Dot1x's LLDP bypass enabled, using interface ( Ethernet1 ) with forwardingModel: 2"));
  EXPECT_TRUE(protocolRoot->protocolSm()->lldpPamSmHas("Ethernet1"));

  dot1xStatus->lldpBypassIs(false);
  EXPECT_FALSE(portConfig("Ethernet1"));
  EXPECT_FALSE(protocolRoot->protocolSm()->lldpPamSmHas("Ethernet1"));
  EXPECT_TRUE(portConfig("Ethernet2"));
}

TEST_F(PortTest, StandbySupervisorDrivesOnlyItsOwnManagementPorts) {
  addPhy("Management2/1", ForwardingModel::routed);
  addPhy("Management1/1", ForwardingModel::routed);
  addPhy("Ethernet1");
  start(2);
  inputRoot->activeEthIntfStatusDirSmDel();
  inputRoot->standbyEthIntfStatusDirSmIs(phyDir);
  EXPECT_TRUE(protocolRoot->desiredIntfDir()->intfDesiredHas("Management2/1"));
  EXPECT_TRUE(status->portStatusHas("Management2/1"));
  EXPECT_FALSE(protocolRoot->desiredIntfDir()->intfDesiredHas("Management1/1"));
  EXPECT_FALSE(protocolRoot->desiredIntfDir()->intfDesiredHas("Ethernet1"));
  phyDir->intfStatusDel("Management2/1");
  EXPECT_FALSE(protocolRoot->desiredIntfDir()->intfDesiredHas("Management2/1"));
  EXPECT_FALSE(status->portStatusHas("Management2/1"));
}

}  // namespace
}  // namespace InputTest
