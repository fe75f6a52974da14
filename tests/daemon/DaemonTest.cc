// The daemon around a whole agent in virtual time, with a peer on the simulated wire: settings
// reach the agent and the wire, reloads change only what differs and keep the neighbours, a bad
// file changes nothing, and shutdown leaves nothing running.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "daemon/Daemon.h"
#include "demo/StandaloneEngine.h"
#include "platform/SimPacketAccess.h"

namespace Daemon {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class DaemonTest : public ::testing::Test {
 protected:
  DaemonTest() {
    path_ = std::filesystem::temp_directory_path() / ("lldp-daemon-test-" + std::to_string(::getpid()) + ".toml");
    peer_ = std::make_unique<Demo::StandaloneEngine>(
        scheduler_, "peer", Konet::EthAddr(0x02, 0, 0, 0, 0, 0x99), [this](Lldp::Agent::Protocol::Root& r) {
          return std::make_unique<Platform::SimPamManager>(r.desiredIntfDir(), r.pamCollection(),
                                                           r.deviceIntfStatusDir(), r.scheduler(), wire_, "peer");
        });
  }
  ~DaemonTest() override {
    daemon_.reset();
    peer_.reset();
    std::filesystem::remove(path_);
  }

  void writeFile(const std::string& text) { std::ofstream(path_) << text; }

  // Starts the daemon on the file's settings, with one port eth1 wired to the peer; the host's
  // records are filled here as the Linux sources would.
  void start(const std::string& text) {
    writeFile(text);
    ConfigLoad load = loadConfigFile(path_, false);
    ASSERT_TRUE(load.ok()) << ::testing::PrintToString(load.errors);
    LldpDaemon::Options options;
    options.configPath = path_;
    options.host = false;
    options.pamManagerFactory = [this](Lldp::Agent::Protocol::Root& r) {
      return std::make_unique<Platform::SimPamManager>(r.desiredIntfDir(), r.pamCollection(),
                                                       r.deviceIntfStatusDir(), r.scheduler(), wire_, "dut");
    };
    daemon_ = std::make_unique<LldpDaemon>(scheduler_, options, std::move(*load.settings));
    Platform::StateDb& db = daemon_->stateDb();
    db.entityIs<Bridging::Config>("bridging/config")->bridgeMacAddrIs(Konet::EthAddr(0, 0x1c, 0x73, 1, 2, 3));
    db.entityIs<Platform::Dir>("hardware/cellInfo")->entryIs("1", Platform::make<Hardware::CellInfo>(1));
    auto phy = db.entityIs<Interface::AllEthPhyIntfStatusDir>("interface/status/eth/phy/all")->intfStatusIs("eth1");
    phy->addrIs(Konet::EthAddr(0, 0x1c, 0x73, 1, 2, 4));
    phy->linkStatusIs(Interface::LinkStatus::linkUp);
    phy->forwardingModelIs(Interface::ForwardingModel::bridged);
    db.entityIs<Interface::AllIntfStatusDir>("interface/status/all")->intfStatusIs("eth1")->ifIndexIs(5);
    db.entityIs<Interface::AllEthPhyIntfConfigDir>("interface/config/eth/phy/all")->intfConfigIs("eth1");
    peer_->addPort("eth1", Konet::EthAddr(2, 0, 0, 0, 1, 1));
    wire_.link("dut:eth1", "peer:eth1");
    daemon_->readyIs([this] { ++readyCalls_; });
    daemon_->start();
    scheduler_.runPending();
    daemon_->hostNetStatus()->hostnameIs("host1");
    scheduler_.runFor(5);
  }

  Lldp::RemoteSystem::Ptr heardByPeer() const {
    const Lldp::PortStatus::Ptr& ps = peer_->status->portStatus("eth1");
    if (!ps || ps->remoteSystem().empty()) return {};
    return ps->remoteSystem().begin().value();
  }
  Lldp::RemoteSystem::Ptr heardByAgent() const {
    const Lldp::PortStatus::Ptr& ps = daemon_->agent()->lldpStatusLocal()->portStatus("eth1");
    if (!ps || ps->remoteSystem().empty()) return {};
    return ps->remoteSystem().begin().value();
  }
  Lldp::PortConfig::Ptr portConfig() const { return daemon_->agent()->config()->portConfig("eth1"); }

  Platform::VirtualScheduler scheduler_{100};
  Platform::SimWire wire_{scheduler_};
  std::unique_ptr<Demo::StandaloneEngine> peer_;
  std::unique_ptr<LldpDaemon> daemon_;
  Platform::CapturingLogSink logs_;
  std::string path_;
  int readyCalls_ = 0;
};

TEST_F(DaemonTest, FileSettingsAreInForceFromTheFirstLldpdu) {
  start("transmit-interval = 7\nsystem.name = \"core1\"\n[interface.eth1]\nadmin-status = \"tx\"\n"
        "rx-rate-limit = { enabled = true, frames = 5, period = 2.5 }\n"
        "external-tlv.00-11-22.3.1 = \"cafe\"\n");
  EXPECT_EQ(readyCalls_, 1);
  EXPECT_EQ(daemon_->agent()->config()->messageTxInterval(), 7u);
  ASSERT_TRUE(portConfig());
  EXPECT_EQ(portConfig()->adminStatus(), Lldp::AdminStatus::txOnly);
  EXPECT_TRUE(portConfig()->rxRateLimitingEnabled());
  EXPECT_EQ(portConfig()->rxRateLimitMax(), 5u);
  EXPECT_EQ(portConfig()->rxRateLimitPeriod(), 2.5);
  const auto heard = heardByPeer();
  ASSERT_TRUE(heard);
  EXPECT_EQ(heard->sysName().view(), "core1");  // the override, never the host name first
  EXPECT_EQ(heard->unknownOrgDefTlvs(), 1u);
  EXPECT_EQ(heardByAgent(), nullptr);  // transmit only: the peer is not learnt
}

TEST_F(DaemonTest, RunTimeChangesReachThePeerPromptly) {
  start("transmit-interval = 30\n");
  ASSERT_TRUE(heardByPeer());
  EXPECT_EQ(heardByPeer()->sysName().view(), "host1");
  EXPECT_TRUE(heardByPeer()->sysCapSupported().value != 0);

  // Each on its own, with the transmit interval far away: a TLV switch or the hold time changes
  // no local record, yet must go out as promptly as a new name.
  const double txDelay = daemon_->agent()->config()->txDelay();
  ASSERT_FALSE(daemon_->setText("", "system.name", "renamed"));
  scheduler_.runFor(txDelay + 1);
  EXPECT_EQ(heardByPeer()->sysName().view(), "renamed");
  ASSERT_FALSE(daemon_->setText("", "tlv.system-capabilities", "false"));
  scheduler_.runFor(txDelay + 1);
  EXPECT_EQ(heardByPeer()->sysCapSupported().value, 0);
  ASSERT_FALSE(daemon_->setText("", "hold-time", "90"));
  scheduler_.runFor(txDelay + 1);
  EXPECT_EQ(heardByPeer()->ttl(), 90);

  // Unset, the name is the host's again.
  ASSERT_FALSE(daemon_->unset("", "system.name"));
  daemon_->hostNetStatus()->hostnameIs("host2");
  scheduler_.runFor(3);
  EXPECT_EQ(heardByPeer()->sysName().view(), "host2");
}

TEST_F(DaemonTest, ReloadAppliesOnlyTheDifferencesAndKeepsNeighbours) {
  start("transmit-interval = 10\n[interface.eth1]\n");
  const Lldp::RemoteSystem::Ptr neighbour = heardByAgent();
  ASSERT_TRUE(neighbour);
  const Lldp::PortConfig::Ptr port = portConfig();
  const uint32_t sentBefore = daemon_->agent()->lldpStatusLocal()->portStatus("eth1")->txFramesTotal();

  writeFile("transmit-interval = 10\nhold-time = 300\n[interface.eth1]\n");
  ASSERT_TRUE(daemon_->reload());
  EXPECT_EQ(logs_.count("LLDP_CONFIG_APPLIED"), 1u);
  EXPECT_THAT(logs_.entries().back().arguments, ElementsAre(path_, "hold-time"));
  EXPECT_EQ(daemon_->agent()->config()->messageTxHoldTime(), 300u);
  scheduler_.runFor(daemon_->agent()->config()->txDelay() + 1);  // not only with the next periodic LLDPDU
  EXPECT_EQ(heardByAgent(), neighbour);  // the same record: nothing was relearnt
  EXPECT_EQ(portConfig(), port);
  EXPECT_EQ(heardByPeer()->ttl(), 300);
  EXPECT_GT(daemon_->agent()->lldpStatusLocal()->portStatus("eth1")->txFramesTotal(), sentBefore);

  // The same file again changes nothing, but its listeners hear of it: a reload is how an
  // operator retries what failed with unchanged settings (a metrics port that was taken).
  int heard = 0;
  daemon_->settingsChangedAdd([&] { ++heard; });
  ASSERT_TRUE(daemon_->reload());
  EXPECT_THAT(logs_.entries().back().arguments, ElementsAre(path_, "nothing"));
  EXPECT_EQ(heard, 1);
}

TEST_F(DaemonTest, ReloadOfABadFileIsRefusedLoggedAndTheRunningConfigurationKept) {
  start("transmit-interval = 10\n");
  const Settings running = daemon_->settings();
  writeFile("transmit-interval = 20\n\nhold-time = 0\n");
  std::vector<std::string> errors;
  EXPECT_FALSE(daemon_->reload(&errors));
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_THAT(errors[0], HasSubstr(":3: hold-time"));
  EXPECT_EQ(logs_.count("LLDP_CONFIG_REFUSED"), 1u);
  EXPECT_TRUE(daemon_->settings() == running);
  EXPECT_EQ(daemon_->agent()->config()->messageTxInterval(), 10u);  // not even the good line
  EXPECT_TRUE(heardByAgent());
}

TEST_F(DaemonTest, SavedConfigurationReloadsToTheSameSettingsAndAReloadSaysWhatItReplaced) {
  start("# ours\n");
  ASSERT_FALSE(daemon_->setText("eth1", "network-policy.6.vlan", "100"));
  ASSERT_FALSE(daemon_->setText("", "interfaces.exclude", "docker*"));
  EXPECT_EQ(daemon_->unsaved(), (std::set<std::string>{"interface.eth1", "interfaces.exclude"}));
  ASSERT_EQ(daemon_->save(), "");
  EXPECT_TRUE(daemon_->unsaved().empty());
  const Settings saved = daemon_->settings();
  EXPECT_TRUE(daemon_->reload());
  EXPECT_TRUE(daemon_->settings() == saved);
  EXPECT_EQ(portConfig()->networkPolicyConfig(6).vlanId, 100);
  EXPECT_EQ(logs_.count("LLDP_CONFIG_UNSAVED_REPLACED"), 0u);

  // A change never saved is replaced by the file's value at the next reload, and the log says so.
  ASSERT_FALSE(daemon_->setText("", "transmit-interval", "15"));
  ASSERT_TRUE(daemon_->reload());
  ASSERT_EQ(logs_.count("LLDP_CONFIG_UNSAVED_REPLACED"), 1u);
  EXPECT_THAT(logs_.entries()[logs_.entries().size() - 2].arguments, ElementsAre(path_, "transmit-interval"));
  EXPECT_EQ(daemon_->settings().messageTxInterval, 30u);
  EXPECT_TRUE(daemon_->unsaved().empty());
}

TEST_F(DaemonTest, ShutdownStopsTheAgentOnceAndLaterChangesOnlyRecordSettings) {
  start("");
  daemon_->shutdown();
  EXPECT_EQ(daemon_->agent(), nullptr);
  daemon_->shutdown();
  EXPECT_FALSE(daemon_->setText("", "transmit-interval", "60", false));
  EXPECT_EQ(daemon_->settings().messageTxInterval, 60u);
  // Where the agent writes and listens is root's to say: the daemon runs as root.
  for (const auto& [key, value] : {std::pair{"metrics.textfile", "/etc/passwd"}, {"metrics.listen", "9808"},
                                   {"snmp.agentx-socket", "/run/x"}}) {
    const auto refused = daemon_->setText("", key, value, false);
    ASSERT_TRUE(refused) << key;
    EXPECT_THAT(refused->text(), testing::HasSubstr("only root")) << key;
    EXPECT_FALSE(daemon_->setText("", key, value)) << key;
    EXPECT_TRUE(daemon_->unset("", key, false)) << key;
  }
  EXPECT_EQ(daemon_->settings().metricsTextfile, "/etc/passwd");
  EXPECT_EQ(daemon_->agent(), nullptr) << "a change after shutdown starts nothing";
}

}  // namespace
}  // namespace Daemon
