// Configuration keys and file: precise refusals, all-or-nothing loading, a saved file that loads
// back, and records written by difference.
#include <gtest/gtest.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "daemon/ConfigFile.h"

namespace Daemon {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

ConfigLoad parse(std::string_view text) { return parseConfig(text, "test.toml"); }

std::string onlyError(std::string_view text) {
  const ConfigLoad load = parse(text);
  EXPECT_FALSE(load.ok());
  EXPECT_EQ(load.errors.size(), 1u) << ::testing::PrintToString(load.errors);
  return load.errors.empty() ? "" : load.errors.front();
}

Settings everything() {
  Settings s;
  s.enabled = false;
  s.messageTxInterval = 5;
  s.messageTxHoldTime = 65535;
  s.reinitDelay = 10;
  s.rxTaggedPacketsDrop = true;
  s.mgmtAddrVrf = "mgmt";
  s.mgmtAddrTxMode = Lldp::MgmtAddrTxMode::intfName;
  s.mgmtAddrTxIntfName = "lo";
  s.ip6MgmtAddrIntfName = "eth0";
  s.sysCapTlvEnabled = false;
  s.medNetworkPolicyTlvEnabled = false;
  s.lldpMed = false;
  s.includeIntfs = {"eth*", "!eth9"};
  s.excludeIntfs = {"docker*"};
  s.chassisId = Konet::EthAddr(2, 0, 0, 0, 0, 1);
  s.sysName = "core \"one\"\n";
  s.sysDesc = "Rack 4 \\ row 2 \xc3\xa9";
  PortSettings& p = s.ports["eth1"];
  p.adminStatus = Lldp::AdminStatus::rxOnly;
  p.rxRateLimitingEnabled = true;
  p.rxRateLimitMax = 7;
  p.rxRateLimitPeriod = 0.25;
  p.networkPolicy[0] = {true, 100, 5, 46};
  p.networkPolicy[6] = {false, 0, 0, 0};
  p.externalTlv[Lldp::UnknownOrgDefTlv::Key(Lldp::Oui(0x0012bb), 9, 2)] = std::string("\x00\xff\x10", 3);
  s.ports["veth-peer.10"];
  return s;
}

TEST(ConfigTest, EmptyFileAndEmptyInterfaceSectionMeanDefaults) {
  EXPECT_TRUE(*parse("").settings == Settings{});
  const ConfigLoad load = parse("[interface.eth3]\n");
  ASSERT_TRUE(load.ok());
  EXPECT_EQ(load.settings->ports.size(), 1u);
  EXPECT_TRUE(load.settings->ports.at("eth3") == PortSettings{});
}

// Each file holds one bad value; its one error names the line and the key, and says why.
TEST(ConfigTest, EachBadValueIsRefusedNamingLineKeyAndWhy) {
  const std::string tooLongTlv = "[interface.eth1]\nexternal-tlv.00-12-bb.1.1 = \"" + std::string(1016, 'a') + "\"";
  const std::pair<std::string, std::string> cases[] = {
      // Outside the command line's ranges.
      {"\n\ntransmit-interval = 4\n",
       "test.toml:3: transmit-interval: 4 is out of range (allowed: an integer 5-32768 (seconds))"},
      {"transmit-interval = 32769", "5-32768"},
      {"hold-time = 9", "test.toml:1: hold-time: 9 is out of range (allowed: an integer 10-65535"},
      {"reinit-delay = 0", "1-10"},
      {"reinit-delay = -3", "1-10"},
      {"transmit-interval = 99999999999999999", "test.toml:1:"},
      {"[interface.eth1]\nnetwork-policy.6.vlan = 4095",
       "test.toml:2: interface.eth1.network-policy.6.vlan: 4095 is out of range (allowed: an integer 0-4094"},
      {"[interface.eth1]\nnetwork-policy.256.vlan = 1", "application '256'"},
      {"system.name = \"\"", "1 to 255 bytes"},
      {"system.name = \"" + std::string(256, 'x') + "\"", "256 bytes"},
      {"management-address.vrf = \"" + std::string(101, 'v') + "\"", "1 to 100"},
      {"[interface.eth1]\nrx-rate-limit.frames = 0", "1-100000"},
      // Wrong types, unknown keys and bad names.
      {"enabled = \"yes\"", "test.toml:1: enabled: expects true or false, got a text"},
      {"transmit-interval = 30.5", "expects an integer 5-32768"},
      {"\ntransmit-intervall = 30", "test.toml:2: transmit-intervall: unknown key"},
      {"[tlv]\nsystem-nam = true", "test.toml:2: tlv.system-nam: unknown key"},
      {"[interface.eth1]\nhold-time = 30", "unknown interface key"},
      {"[interface.\"has space\"]\n", "not an interface name"},
      {"[interface.\"waytoolonginterface\"]\n", "not an interface name"},
      {"interface = 3", "expects a table of interface sections"},
      {"[interface.eth1]\nadmin-status = \"both\"", "'both' is not allowed (allowed: one of tx-rx, tx, rx, disabled)"},
      {"interfaces.include = [\"eth*\", 3]", "expects a list of texts"},
      {"interfaces.exclude = [\"\"]", "interfaces.exclude"},
      {"system.chassis-id = \"01:00:5e:00:00:01\"", "not a unicast MAC"},
      {"system.chassis-id = \"nonsense\"", "not a MAC address"},
      {"management-address.transmit = \"two words\"", "neither best, all"},
      {"when = 1979-05-27", "dates and times"},
      {"[interface.eth1]\nexternal-tlv.00-12-bb.1.1 = \"abc\"", "odd number of hexadecimal digits"},
      {"[interface.eth1]\nexternal-tlv.00-12-bb.1.0 = \"ab\"", "index '0'"},
      {"[interface.eth1]\nexternal-tlv.0012.1.1 = \"ab\"", "not an OUI"},
      {tooLongTlv, "508 bytes is more than 507"},
      // Syntax errors and duplicates.
      {"enabled = true\nenabled = false\n", "test.toml:2:"},
      {"[tlv]\n[tlv]\n", "test.toml:2:"},
      {"a = [\n", "test.toml:"},
      {"x = \"\xff\"", "test.toml:1:"},
  };
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(text.substr(0, 60));
    const std::string error = onlyError(text);
    if (expected.starts_with("test.toml:")) {
      EXPECT_THAT(error, StartsWith(expected));
    } else {
      EXPECT_THAT(error, HasSubstr(expected));
    }
  }
  // A zero, negative, huge or non-finite rate-limit period.
  for (const char* period : {"0", "0.0", "-1.5", "3600.5", "1e300", "inf", "nan"}) {
    EXPECT_THAT(onlyError(std::string("[interface.eth1]\nrx-rate-limit.period = ") + period),
                AllOf(HasSubstr("rx-rate-limit.period"), HasSubstr("0.1-3600.0 (seconds)")))
        << period;
  }
}

TEST(ConfigTest, OneBadKeyRefusesTheWholeFileAndAllErrorsComeInLineOrder) {
  const ConfigLoad load = parse("transmit-interval = 60\nzeta = 1\nhold-time = 1\n[interface.eth1]\nadmin = 2\n");
  EXPECT_FALSE(load.ok());
  ASSERT_EQ(load.errors.size(), 3u);
  EXPECT_THAT(load.errors[0], StartsWith("test.toml:2: zeta"));
  EXPECT_THAT(load.errors[1], StartsWith("test.toml:3: hold-time"));
  EXPECT_THAT(load.errors[2], StartsWith("test.toml:5: interface.eth1.admin"));

  std::string many;
  for (int i = 0; i < 100; ++i) many += "k" + std::to_string(i) + " = 1\n";
  EXPECT_EQ(parse(many).errors.size(), kMaxReportedErrors);
}

TEST(ConfigTest, GarbageAndOversizedInputIsAnErrorNotACrash) {
  std::string garbage;
  uint32_t x = 12345;
  for (int i = 0; i < 4096; ++i) {
    x = x * 1103515245 + 12345;
    garbage += static_cast<char>(x >> 24);
  }
  EXPECT_FALSE(parse(garbage).ok());
  EXPECT_FALSE(parse(std::string(300, '[')).ok());
  const ConfigLoad big = parse("# " + std::string(kMaxConfigBytes, 'x'));
  ASSERT_EQ(big.errors.size(), 1u);
  EXPECT_THAT(big.errors[0], HasSubstr("larger than"));
}

TEST(ConfigTest, SetTakesFileKeysAndRecordAttributesAndChangesNothingOnRefusal) {
  Settings s;
  EXPECT_FALSE(ConfigSchema::setText(s, "", "transmit-interval", "60"));
  EXPECT_FALSE(ConfigSchema::setText(s, "", "messageTxHoldTime", "600"));
  EXPECT_FALSE(ConfigSchema::setText(s, "", "tlv.system-name", "off"));
  EXPECT_FALSE(ConfigSchema::setText(s, "", "interfaces.include", "eth*, !eth2"));
  EXPECT_FALSE(ConfigSchema::setText(s, "eth2", "rxRateLimitPeriod", "0.5"));
  EXPECT_EQ(s.messageTxInterval, 60u);
  EXPECT_EQ(s.messageTxHoldTime, 600u);
  EXPECT_FALSE(s.sysNameTlvEnabled);
  EXPECT_THAT(s.includeIntfs, ElementsAre("eth*", "!eth2"));
  EXPECT_EQ(s.ports.at("eth2").rxRateLimitPeriod, 0.5);

  const Settings before = s;
  auto error = ConfigSchema::setText(s, "", "transmit-interval", "abc");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->text(), "transmit-interval: 'abc' is not an integer 5-32768 (seconds)");
  EXPECT_TRUE(ConfigSchema::setText(s, "eth3", "rx-rate-limit.period", "0"));
  EXPECT_TRUE(ConfigSchema::setText(s, "eth3", "admin-status", "sideways"));
  EXPECT_TRUE(ConfigSchema::setText(s, "", "management-address.transmit", "a b"));
  EXPECT_TRUE(ConfigSchema::setText(s, "bad/name", "admin-status", "tx"));
  EXPECT_TRUE(ConfigSchema::setText(s, "", "admin-status", "tx"));
  EXPECT_TRUE(ConfigSchema::set(s, "", "system.name", ConfigValue(std::string("\xc3"))));
  EXPECT_TRUE(s == before);  // no port section appeared for eth3 either
}

TEST(ConfigTest, UnsetRestoresDefaultsAndRemovesPoliciesAndSections) {
  Settings s = everything();
  EXPECT_FALSE(ConfigSchema::unset(s, "", "transmit-interval"));
  EXPECT_FALSE(ConfigSchema::unset(s, "", "system.chassis-id"));
  EXPECT_FALSE(ConfigSchema::unset(s, "", "management-address.transmit"));
  EXPECT_EQ(s.messageTxInterval, 30u);
  EXPECT_FALSE(s.chassisId);
  EXPECT_EQ(s.mgmtAddrTxMode, Lldp::MgmtAddrTxMode::best);
  EXPECT_FALSE(ConfigSchema::unset(s, "eth1", "network-policy.6"));
  EXPECT_FALSE(ConfigSchema::unset(s, "eth1", "admin-status"));
  EXPECT_FALSE(ConfigSchema::unset(s, "eth1", "external-tlv.00-12-bb.9.2"));
  const PortSettings& p = s.ports.at("eth1");
  EXPECT_EQ(p.networkPolicy.count(6), 0u);
  EXPECT_EQ(p.networkPolicy.count(0), 1u);
  EXPECT_EQ(p.adminStatus, Lldp::AdminStatus::txAndRx);
  EXPECT_TRUE(p.externalTlv.empty());
  EXPECT_FALSE(ConfigSchema::unset(s, "eth1", ""));
  EXPECT_EQ(s.ports.count("eth1"), 0u);
  EXPECT_TRUE(ConfigSchema::unset(s, "eth1", "admin-status"));
  EXPECT_EQ(ConfigSchema::unset(s, "eth1", "")->text(), "interface.eth1: the interface has no configuration");
  EXPECT_TRUE(ConfigSchema::unset(s, "", "no-such-key"));
}

TEST(ConfigTest, EveryKeyIsDocumentedWithItsRangeAndDefault) {
  const std::string doc = ConfigSchema::renderDoc();
  for (const ConfigKey& key : ConfigSchema::keys()) {
    EXPECT_THAT(doc, HasSubstr(key.key));
    EXPECT_STRNE(key.doc, "");
  }
  EXPECT_THAT(doc, HasSubstr("transmit-interval\n    Seconds between two periodic LLDPDUs on a port.\n"
                             "    Allowed: an integer 5-32768 (seconds). Default: 30."));

  // The manual page lists the same keys with the same ranges.
  std::ifstream in(std::string(LLDP_SOURCE_DIR) + "/packaging/lldp-agent.8");
  std::string page((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  auto roff = [](std::string text) {
    std::string out;
    for (char c : text) out += c == '-' ? std::string("\\-") : std::string(1, c);
    return out;
  };
  for (const ConfigKey& key : ConfigSchema::keys()) {
    EXPECT_THAT(page, HasSubstr(roff(key.key))) << "regenerate the key list of packaging/lldp-agent.8";
    EXPECT_THAT(page, HasSubstr(roff(ConfigSchema::allowed(key)))) << key.key;
  }
}

// Counts notifications of one record, whatever the attribute.
struct NoticeCounter {
  explicit NoticeCounter(const Platform::Entity& entity) {
    watch.fn = [](void* context, uint16_t, const void*, Platform::ChangeKind) { ++*static_cast<int*>(context); };
    watch.context = &count;
    entity.watchIs(watch);
  }
  ~NoticeCounter() { Platform::Entity::unwatch(watch); }
  int count = 0;
  Platform::Watch watch;
};

TEST(ConfigTest, ApplyingWritesOnlyTheDifferences) {
  auto cli = Platform::make<Lldp::CliConfig>();
  Settings s = everything();
  applyCliConfig(s, *cli);
  EXPECT_FALSE(cli->enabled());
  EXPECT_EQ(cli->messageTxInterval(), 5u);
  EXPECT_EQ(cli->mgmtAddrTxOption().mode, Lldp::MgmtAddrTxMode::intfName);
  EXPECT_EQ(cli->mgmtAddrTxOption().intfName.name(), "lo");
  EXPECT_EQ(cli->ip6MgmtAddrIntfName().name(), "eth0");
  ASSERT_TRUE(cli->portConfig("eth1"));
  const Lldp::CliPortConfig::Ptr eth1 = cli->portConfig("eth1");
  EXPECT_EQ(eth1->adminStatus(), Lldp::AdminStatus::rxOnly);
  EXPECT_EQ(eth1->rxRateLimitMax(), 7u);
  EXPECT_EQ(eth1->networkPolicyConfig(0).vlanId, 100);
  EXPECT_TRUE(cli->portConfig("veth-peer.10"));

  NoticeCounter global(*cli);
  NoticeCounter port(*eth1);
  applyCliConfig(s, *cli);
  EXPECT_EQ(global.count, 0);
  EXPECT_EQ(port.count, 0);

  s.messageTxInterval = 60;
  s.ports["eth1"].networkPolicy.erase(6);
  s.ports.erase("veth-peer.10");
  applyCliConfig(s, *cli);
  EXPECT_EQ(global.count, 2);  // the interval and the removed port
  EXPECT_EQ(port.count, 1);    // the removed policy
  EXPECT_EQ(cli->portConfig("eth1"), eth1);  // the same entry: its reactor stays
}

TEST(ConfigTest, ExternalTlvsFollowTheSettings) {
  auto record = Platform::make<Lldp::ExternalTlvConfig>("config");
  Settings s = everything();
  applyExternalTlvs(s, *record);
  ASSERT_EQ(record->portConfigs(), 1u);
  const auto key = Lldp::UnknownOrgDefTlv::Key(Lldp::Oui(0x0012bb), 9, 2);
  EXPECT_EQ(record->portConfig("eth1")->unknownOrgDefTlv(key).value.view(), std::string_view("\x00\xff\x10", 3));

  NoticeCounter counter(*record->portConfig("eth1"));
  applyExternalTlvs(s, *record);
  EXPECT_EQ(counter.count, 0);
  s.ports["eth1"].externalTlv.clear();
  applyExternalTlvs(s, *record);
  EXPECT_EQ(record->portConfigs(), 0u);
}

class ConfigFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() / ("lldp-config-test-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }
  std::filesystem::path dir_;
};

TEST_F(ConfigFileTest, SavedFileLoadsBackAndAMissingFileIsDefaultOnlyWhenAllowed) {
  const std::string path = dir_ / "lldp-agent.toml";
  ConfigLoad missing = loadConfigFile(path, true);
  EXPECT_TRUE(missing.ok() && missing.missing);
  missing = loadConfigFile(path, false);
  ASSERT_EQ(missing.errors.size(), 1u);
  EXPECT_THAT(missing.errors[0], HasSubstr("No such file"));

  // Saved over the last one (leaving no temporary behind), each loads back to what was saved.
  for (const Settings& settings : {Settings{}, everything()}) {
    ASSERT_EQ(saveConfigFile(path, settings), "");
    const ConfigLoad load = loadConfigFile(path, false);
    ASSERT_TRUE(load.ok()) << ::testing::PrintToString(load.errors) << "\n" << ConfigSchema::renderToml(settings);
    EXPECT_TRUE(*load.settings == settings) << ConfigSchema::renderToml(settings);
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_), std::filesystem::directory_iterator()), 1);

  std::ofstream(path) << "hold-time = 5\n";
  EXPECT_THAT(loadConfigFile(path, true).errors, ElementsAre(StartsWith(path + ":1: hold-time:")));
  EXPECT_THAT(saveConfigFile((dir_ / "no/such/dir.toml").string(), Settings{}), HasSubstr("No such file"));
}

}  // namespace
}  // namespace Daemon
