// The agent from its factory: mounts, the order of start-up, what the first LLDPDUs say, the
// standby path, stale port statuses, outside writes through the state database (the command
// line's switch, the 802.1X bypass), shutdown.
#include "AgentFixture.h"
#include "input/LldpInputSm.h"

namespace AgentTest {
namespace {

using AgentStartTest = AgentFixture;

TEST_F(AgentStartTest, StartsInOrderAndItsFirstLldpdusDescribeTheSwitch) {
  addPort("Ethernet1", 1);
  addPort("Ethernet2", 2);
  startAgent();
  ASSERT_TRUE(agent->running());

  // The second stage in its order; packet access is switched on last.
  size_t at = 0;
  for (const char* step : {"Agent::doInit()", "Agent::doMountsComplete()", " Creating lldpStatusDir entry for cell: 1",
                           "Agent::doMountsCompleteStep2()", "Root::doInitializePamMan()",
                           "ProtocolSm::handleInitialized()", "RedundancyStatusSm::handleRedundancyStatus()",
                           "OnOffSwitchSm::handleInitialized()", "StatusAccumulatorSm::handleInitialized()"}) {
    at = tracedAt(step, at);
    ASSERT_NE(at, std::string::npos) << step;
  }

  // The group's mounts in their order, every one resolvable by path.
  std::vector<std::string> paths;
  for (const auto& m : db.mounts()) paths.push_back(m.path);
  const std::vector<std::string> group = {
      "l2discovery/lldp/cliConfig", "l2discovery/lldp/remTablesCliConfig", "cell/1/l2discovery/lldp/remTablesStatus",
      "l2discovery/lldp/externalTlvs", "l2discovery/lldp/config", "l2discovery/lldp/status/local",
      "hardware/cellInfo", "l2discovery/lldp/status/all", "l2discovery/lldp/localSystem", "bridging/config",
      "bridging/hwcapabilities", "ip/status", "ip6/status", "routing/config", "cell/1/sys/net/status",
      "hardware/entmib", "environment/power/status/poePort", "identity/nbrClassification/status",
      "identity/dot1x/status"};
  ASSERT_GE(paths.size(), group.size());
  EXPECT_EQ(std::vector<std::string>(paths.end() - static_cast<long>(group.size()) - 1, paths.end() - 1), group);
  for (const auto& m : db.mounts()) EXPECT_TRUE(db.entity(m.path)) << m.path;
  EXPECT_EQ(db.mounts().back().path, "kni/ns/default/status");

  scheduler.runFor(3);
  ASSERT_TRUE(engine("Ethernet1"));
  ASSERT_TRUE(heard("Ethernet1"));
  ASSERT_TRUE(heard("Ethernet2"));
  const auto nbr = heard("Ethernet1");
  EXPECT_EQ(nbr->msap().chassisIdentifier.subtype, Lldp::chassisIdMacAddress);
  EXPECT_EQ(nbr->msap().chassisIdentifier.stringValue(), "00:1c:73:12:34:56");
  EXPECT_EQ(nbr->msap().portIdentifier.stringValue(), "Ethernet1");
  EXPECT_EQ(nbr->sysName().str(), "leaf1.example.net");
  EXPECT_EQ(nbr->sysDesc().str(), "Switch OS 4.0");
  EXPECT_EQ(nbr->sysCapSupported().value, 0x14);
  EXPECT_EQ(nbr->sysCapEnabled().value, 0x04);
}

TEST_F(AgentStartTest, ShutdownSwitchesPacketAccessOffFirstAndLeavesNothingRunning) {
  addPort("Ethernet1", 1);
  startAgent();
  scheduler.runFor(3);
  ASSERT_TRUE(engine("Ethernet1"));
  auto pams = agent->protocolRoot()->pamCollection();
  traces.clear();
  agent->doCleanup();
  const size_t off = tracedAt("OnOffSwitchSm::doClose()");
  ASSERT_NE(off, std::string::npos);
  EXPECT_EQ(pams->intfPams(), 0u);
  EXPECT_FALSE(agent->protocolRoot()->protocolSm());
  EXPECT_FALSE(agent->inputRoot()->inputSm());
  EXPECT_FALSE(agent->running());
  const size_t sent = sentBy("Ethernet1");
  scheduler.runFor(120);
  EXPECT_EQ(sentBy("Ethernet1"), sent) << "nothing is sent after shutdown";
  agent.reset();  // a second clean-up is harmless
}

TEST_F(AgentStartTest, AStandbySupervisorWaitsForItsStatusEntryThenFollowsTheRedundancyMode) {
  addPort("Ethernet1", 1);
  redundancy->modeIs(Redundancy::RedundancyMode::standby);
  startAgent();
  EXPECT_TRUE(agent->mountsComplete());
  EXPECT_FALSE(agent->running());
  EXPECT_FALSE(statusDir->entryHas("1"));

  statusDir->entryIs("1", Platform::make<Lldp::Status>("1"));  // the active supervisor's mirroring
  ASSERT_TRUE(agent->running());
  EXPECT_TRUE(agent->standbyLldpStatusDirSm()->lldpStatusLocalReady());
  EXPECT_TRUE(agent->standbyMode());
  EXPECT_FALSE(agent->statusAccumulatorSm());
  EXPECT_FALSE(agent->standbyCellDirSm());

  redundancy->modeIs(Redundancy::RedundancyMode::active);
  EXPECT_FALSE(agent->standbyMode());
  EXPECT_TRUE(agent->statusAccumulatorSm());
  EXPECT_TRUE(agent->standbyCellDirSm());
  redundancy->modeIs(Redundancy::RedundancyMode::standby);
  EXPECT_FALSE(agent->statusAccumulatorSm());
}

TEST_F(AgentStartTest, PortStatusesOfAnEarlierRunGoUnlessTheirPortIsStillThere) {
  addPort("Ethernet1", 1);
  auto old = Platform::make<Lldp::Status>("1");
  old->portStatusIs("Ethernet1", 0.0);
  old->portStatusIs("Ethernet9", 0.0);
  statusDir->entryIs("1", old);
  startAgent();
  EXPECT_EQ(localStatus(), old);
  EXPECT_TRUE(old->portStatusHas("Ethernet1"));
  EXPECT_FALSE(old->portStatusHas("Ethernet9"));
  EXPECT_TRUE(traced(" Deleting lldpStatusLocal()->portStatus entry for: Ethernet9"));
  EXPECT_FALSE(traced(" Creating lldpStatusDir entry"));
}

TEST_F(AgentStartTest, OutsideWritesToInputPathsTakeEffectAndStatusResolvesByPath) {
  addPort("Ethernet1", 1);
  addPort("Ethernet2", 2);
  phyDir->intfStatus("Ethernet2")->forwardingModelIs(Interface::ForwardingModel::dataLink);
  startAgent();
  scheduler.runFor(5);
  ASSERT_TRUE(engine("Ethernet1"));
  EXPECT_FALSE(engine("Ethernet2"));

  EXPECT_TRUE(db.lookup<Lldp::PortStatus>("l2discovery/lldp/status/local/1/portStatus/Ethernet1"));
  EXPECT_TRUE(db.lookup<Lldp::PortConfig>("l2discovery/lldp/config/portConfig/Ethernet1"));
  EXPECT_TRUE(db.lookup<Lldp::LocalPort>("l2discovery/lldp/localSystem/localPort/Ethernet1"));
  std::vector<Platform::PathEntry> listing;
  ASSERT_TRUE(db.list("l2discovery/lldp/status/local/1/portStatus", listing));
  EXPECT_EQ(listing, (std::vector<Platform::PathEntry>{{"Ethernet1", "PortStatus"}}));
  ASSERT_TRUE(db.list("l2discovery/lldp/status/all/portStatus", listing));
  EXPECT_EQ(listing.size(), 1u);

  std::string error;
  EXPECT_FALSE(db.writableEntity("l2discovery/lldp/config", error)) << "the agent's own output";
  auto cli = Platform::ptrCast<Lldp::CliConfig>(db.writableEntity("l2discovery/lldp/cliConfig", error));
  ASSERT_TRUE(cli) << error;
  cli->enabledIs(false);
  EXPECT_FALSE(engine("Ethernet1"));
  EXPECT_EQ(db.lookup<Lldp::PortConfig>("l2discovery/lldp/config/portConfig/Ethernet1")->adminStatus(),
            Lldp::AdminStatus::disabled);
  cli->enabledIs(true);
  EXPECT_TRUE(engine("Ethernet1"));

  // The 802.1X bypass admits data-link ports while it is on.
  auto dot1x = Platform::ptrCast<Identity::Dot1x::Status>(db.writableEntity("identity/dot1x/status", error));
  ASSERT_TRUE(dot1x) << error;
  dot1x->lldpBypassIs(true);
  EXPECT_TRUE(engine("Ethernet2"));
  dot1x->lldpBypassIs(false);
  EXPECT_FALSE(engine("Ethernet2"));
}

}  // namespace
}  // namespace AgentTest
