// Whole-agent scenarios on the simulated wire: two cells' status accumulated, a telephone
// classified and removed on link down, and link aggregation advertised.
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

  scheduler.runFor(5);  // the peer switch is learnt on Ethernet1
  auto all = db.lookup<Lldp::AllStatus>("l2discovery/lldp/status/all");
  ASSERT_EQ(localStatus()->remTablesInserts(), 1u);
  peerCell->remTablesInsertsInc(2);  // the other supervisor's agent learnt two
  EXPECT_EQ(all->remTablesInserts(), 3u);
  EXPECT_TRUE(all->portStatusHas("Ethernet1"));
}

TEST_F(AgentScenarioTest, ATelephoneIsClassifiedAndRemovedOnLinkDown) {
  addPort("Ethernet1", 1);
  peer->localSystem->sysCapSupportedIs(Lldp::SystemCapabilitiesMap{0x24});  // telephone, bridge
  startAgent();
  scheduler.runFor(5);
  auto table = db.lookup<Identity::NbrClassification::Status>("identity/nbrClassification/status");
  const Konet::EthAddr phone(0x02, 0, 0, 0, 1, 1);
  ASSERT_TRUE(table->neighborHas(phone));
  EXPECT_EQ(table->neighbor(phone).intfId, Konet::IntfId("Ethernet1"));
  EXPECT_EQ(table->neighbor(phone).description, "Chassis ID 02:00:00:00:00:99");

  phyDir->intfStatus("Ethernet1")->linkStatusIs(Interface::LinkStatus::linkDown);
  EXPECT_FALSE(table->neighborHas(phone));
}

TEST_F(AgentScenarioTest, LinkAggregationReachesThePeer) {
  addPort("Ethernet1", 1);
  intfStatusDir->intfStatusIs("Port-Channel5")->ifIndexIs(1005);
  startAgent();
  scheduler.runFor(5);
  ASSERT_TRUE(heard("Ethernet1"));
  EXPECT_FALSE(heard("Ethernet1")->linkAggregationInfo().aggEnabled());

  lagDir->intfStatusIs("Port-Channel5")->memberIs("Ethernet1", true);
  scheduler.runFor(5);
  EXPECT_TRUE(heard("Ethernet1")->linkAggregationInfo().aggEnabled());
  EXPECT_EQ(heard("Ethernet1")->linkAggregationInfo().portId, 1005u);
}

}  // namespace
}  // namespace AgentTest
