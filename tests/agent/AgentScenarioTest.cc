// Whole-agent scenarios on the simulated wire: a telephone classified and removed on link down,
// and link aggregation advertised.
#include "AgentFixture.h"

namespace AgentTest {
namespace {

using AgentScenarioTest = AgentFixture;

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
