// Operator and other-agent inputs written from outside the agent through the state database:
// a clear request carried out once, also across a restart; the 802.1X bypass admitting and
// removing ports; the switchport-mode adjustment of a port and of a LAG member.
#include "AgentFixture.h"

namespace AgentTest {
namespace {

using AgentInputTest = AgentFixture;

TEST_F(AgentInputTest, AClearRequestIsCarriedOutOnceAlsoAcrossARestart) {
  addPort("Ethernet1", 1);
  startAgent();
  scheduler.runFor(5);
  ASSERT_EQ(localStatus()->portStatus("Ethernet1")->remoteSystems(), 1u);

  std::string error;
  auto request = Platform::ptrCast<Lldp::RemTablesCliConfig>(
      db.writableEntity("l2discovery/lldp/remTablesCliConfig", error));
  ASSERT_TRUE(request) << error;
  request->remTablesClearRequestIs(Lldp::RemTablesClearRequest{scheduler.now(), "admin", "console"});
  EXPECT_EQ(localStatus()->portStatus("Ethernet1")->remoteSystems(), 0u);
  EXPECT_EQ(logs.count("LLDP_REMOTE_TABLES_CLEARED"), 1u);

  stopAgent();
  startAgent();
  scheduler.runFor(35);
  EXPECT_EQ(logs.count("LLDP_REMOTE_TABLES_CLEARED"), 1u) << "the restarted agent remembers the request";
  EXPECT_EQ(localStatus()->portStatus("Ethernet1")->remoteSystems(), 1u);

  request->remTablesClearRequestIs(Lldp::RemTablesClearRequest{scheduler.now(), "admin", "console"});
  EXPECT_EQ(logs.count("LLDP_REMOTE_TABLES_CLEARED"), 2u);
}

TEST_F(AgentInputTest, TheDot1xBypassAdmitsDataLinkPortsWhileItIsOn) {
  addPort("Ethernet1", 1);
  addPort("Ethernet2", 2);
  phyDir->intfStatus("Ethernet2")->forwardingModelIs(Interface::ForwardingModel::dataLink);
  startAgent();
  scheduler.runFor(3);
  EXPECT_TRUE(engine("Ethernet1"));
  EXPECT_FALSE(engine("Ethernet2"));

  std::string error;
  auto dot1x = Platform::ptrCast<Identity::Dot1x::Status>(db.writableEntity("identity/dot1x/status", error));
  ASSERT_TRUE(dot1x) << error;
  dot1x->lldpBypassIs(true);
  scheduler.runFor(3);
  EXPECT_TRUE(engine("Ethernet2"));
  EXPECT_TRUE(heard("Ethernet2"));
  dot1x->lldpBypassIs(false);
  EXPECT_FALSE(engine("Ethernet2"));
  EXPECT_TRUE(engine("Ethernet1"));
}

TEST_F(AgentInputTest, TapAndToolPortsOnlyReceiveAndALagMemberFollowsItsLag) {
  addPort("Ethernet1", 1);
  addPort("Ethernet2", 2);
  intfStatusDir->intfStatusIs("Port-Channel7")->ifIndexIs(1007);
  startAgent();
  auto portConfig = [this](const char* intf) {
    return db.lookup<Lldp::PortConfig>(std::string("l2discovery/lldp/config/portConfig/") + intf);
  };
  EXPECT_EQ(portConfig("Ethernet1")->adminStatus(), Lldp::AdminStatus::txAndRx);

  bridging->switchIntfConfigIs("Ethernet1")->switchportModeIs(Bridging::SwitchportMode::tap);
  EXPECT_EQ(portConfig("Ethernet1")->adminStatus(), Lldp::AdminStatus::rxOnly);
  scheduler.runFor(5);
  const size_t sent = sentBy("Ethernet1");
  scheduler.runFor(60);
  EXPECT_EQ(sentBy("Ethernet1"), sent) << "a receive-only port sends nothing";

  bridging->switchIntfConfigIs("Port-Channel7")->switchportModeIs(Bridging::SwitchportMode::tool);
  EXPECT_EQ(portConfig("Ethernet2")->adminStatus(), Lldp::AdminStatus::txAndRx);
  lagDir->intfStatusIs("Port-Channel7")->memberIs("Ethernet2", true);
  EXPECT_EQ(portConfig("Ethernet2")->adminStatus(), Lldp::AdminStatus::rxOnly);
  lagDir->intfStatus("Port-Channel7")->memberDel("Ethernet2");
  EXPECT_EQ(portConfig("Ethernet2")->adminStatus(), Lldp::AdminStatus::txAndRx);
}

}  // namespace
}  // namespace AgentTest
