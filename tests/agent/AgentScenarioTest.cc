// Whole-agent scenarios on the simulated wire: two cells' status accumulated, a telephone
// classified, moved and removed on link down, and the port details the agent advertises.
#include "AgentFixture.h"

namespace AgentTest {
namespace {

using AgentScenarioTest = AgentFixture;

TEST_F(AgentScenarioTest, TwoCellsStatusIsAccumulatedAndTheSecondSupervisorGetsItsEntry) {
  addPort("Ethernet1", 1);
  startAgent();
  cellDir->entryIs("2", Platform::make<Hardware::CellInfo>(2));
  auto peerCell = Platform::ptrCast<Lldp::Status>(statusDir->entry("2"));
  ASSERT_TRUE(peerCell) << "the active supervisor makes the standby's entry";
  auto card = Platform::make<Hardware::CellInfo>(5);
  card->cellTypeIs(Hardware::CellType::linecard);
  cellDir->entryIs("5", card);
  EXPECT_FALSE(statusDir->entryHas("5"));

  scheduler.runFor(5);  // the peer switch is learnt on Ethernet1
  auto all = db.lookup<Lldp::AllStatus>("l2discovery/lldp/status/all");
  ASSERT_EQ(localStatus()->remTablesInserts(), 1u);
  peerCell->remTablesInsertsInc(2);  // the other supervisor's agent learnt two
  peerCell->portStatusIs("Management2/1", 1.0);
  EXPECT_EQ(all->remTablesInserts(), 3u);
  EXPECT_TRUE(all->portStatusHas("Ethernet1"));
  EXPECT_TRUE(all->portStatusHas("Management2/1"));

  cellDir->entryDel("2");
  EXPECT_FALSE(statusDir->entryHas("2"));
  EXPECT_EQ(all->remTablesInserts(), 1u);
  EXPECT_FALSE(all->portStatusHas("Management2/1"));
}

TEST_F(AgentScenarioTest, ATelephoneIsClassifiedMovedAndRemovedOnLinkDown) {
  addPort("Ethernet1", 1);
  addPort("Ethernet2", 2);
  peer->localSystem->sysCapSupportedIs(Lldp::SystemCapabilitiesMap{0x24});  // telephone, bridge
  startAgent();
  scheduler.runFor(5);
  auto table = db.lookup<Identity::NbrClassification::Status>("identity/nbrClassification/status");
  const Konet::EthAddr phone1(0x02, 0, 0, 0, 1, 1);
  ASSERT_TRUE(table->neighborHas(phone1));
  EXPECT_EQ(table->neighbor(phone1).intfId, Konet::IntfId("Ethernet1"));
  EXPECT_EQ(table->neighbor(phone1).description, "Chassis ID 02:00:00:00:00:99");
  EXPECT_EQ(table->neighbors(), 2u);

  // The phone's cable moves from Ethernet1 to Ethernet2.
  wire.unlink("peer:Ethernet1");
  wire.unlink("peer:Ethernet2");
  wire.link("peer:Ethernet1", "dut:Ethernet2");
  scheduler.runFor(35);
  EXPECT_EQ(table->neighbor(phone1).intfId, Konet::IntfId("Ethernet2"));
  EXPECT_TRUE(traced("WARNING! Neighbor change: current:"));

  phyDir->intfStatus("Ethernet2")->linkStatusIs(Interface::LinkStatus::linkDown);
  EXPECT_FALSE(table->neighborHas(phone1));
  EXPECT_EQ(table->neighbors(), 0u) << "both phones were last seen on Ethernet2";
}

TEST_F(AgentScenarioTest, PortDetailsFollowTheInterfacesAndLinkAggregation) {
  addPort("Ethernet1", 1);
  addPort("Management1", 99);
  phyDir->intfStatus("Management1")->maxMtuIs(1500);
  phyConfigDir->intfConfig("Ethernet1")->descriptionIs("to spine-1");
  intfStatusDir->intfStatusIs("Port-Channel5")->ifIndexIs(1005);
  startAgent();
  scheduler.runFor(5);
  auto eth = heard("Ethernet1");
  ASSERT_TRUE(eth);
  EXPECT_EQ(eth->portDesc().str(), "to spine-1");
  EXPECT_EQ(eth->maximumFrameSizeInfo().value, 9236);
  EXPECT_FALSE(eth->linkAggregationInfo().aggEnabled());
  ASSERT_TRUE(heard("Management1"));
  EXPECT_EQ(heard("Management1")->maximumFrameSizeInfo().value, 1518);

  lagDir->intfStatusIs("Port-Channel5")->memberIs("Ethernet1", true);
  phyConfigDir->intfConfig("Ethernet1")->descriptionIs("to spine-2");
  scheduler.runFor(5);
  eth = heard("Ethernet1");
  EXPECT_EQ(eth->portDesc().str(), "to spine-2");
  EXPECT_TRUE(eth->linkAggregationInfo().aggEnabled());
  EXPECT_EQ(eth->linkAggregationInfo().portId, 1005u);

  lagDir->intfStatus("Port-Channel5")->memberDel("Ethernet1");
  scheduler.runFor(5);
  EXPECT_FALSE(heard("Ethernet1")->linkAggregationInfo().aggEnabled());
  EXPECT_EQ(heard("Ethernet1")->linkAggregationInfo().portId, 0u);
}

}  // namespace
}  // namespace AgentTest
