// Saving the running configuration into the operator's file: only changed keys are touched, so
// comments stay; the file keeps its owner, group and mode and stays behind its symbolic link;
// and the hold time may not be shorter than the transmit interval.
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "daemon/ConfigEdit.h"
#include "daemon/ConfigFile.h"

namespace Daemon {
namespace {

using ::testing::HasSubstr;

Settings loaded(std::string_view text) {
  ConfigLoad load = parseConfig(text, "test.toml");
  EXPECT_TRUE(load.ok()) << ::testing::PrintToString(load.errors) << "\n" << text;
  return load.ok() ? *load.settings : Settings{};
}

constexpr const char* kOperatorsFile = R"(# Leaf 7, rack 4: ask the network team before changing.
transmit-interval = 10   # fast, for the lab
system.name = "leaf7"

# Uplinks
[interface."eth1"]
admin-status = "rx"      # receive only: the spine speaks first

[interface."eth3"]
# retired port
admin-status = "disabled"
)";

TEST(ConfigSaveTest, OnlyChangedKeysAreEditedAndEveryCommentStays) {
  Settings target = loaded(kOperatorsFile);
  target.messageTxInterval = 15;                            // changed in place
  target.messageTxHoldTime = 60;                            // new, at the top
  target.sysName.reset();                                   // gone
  target.ports["eth1"].adminStatus = Lldp::AdminStatus::txAndRx;
  target.ports["eth1"].networkPolicy[1] = {true, 100, 5, 46};  // new, in its section
  target.ports.erase("eth3");                               // section gone
  target.ports["eth2"].adminStatus = Lldp::AdminStatus::txOnly;  // new section
  std::string note;
  const std::string text = editConfigText(kOperatorsFile, target, note);
  EXPECT_EQ(note, "");
  EXPECT_EQ(text, R"(# Leaf 7, rack 4: ask the network team before changing.
transmit-interval = 15   # fast, for the lab
hold-time = 60

# Uplinks
[interface."eth1"]
admin-status = "tx-rx"      # receive only: the spine speaks first
network-policy.1.vlan = 100
network-policy.1.priority = 5
network-policy.1.dscp = 46
network-policy.1.tagged = true

# retired port

[interface."eth2"]
admin-status = "tx"
)");
  EXPECT_TRUE(loaded(text) == target);
}

TEST(ConfigSaveTest, WhatCannotBeEditedInPlaceIsWrittenAnewAndSaysSo) {
  // A key to remove inside an inline table: its neighbours share the line.
  const std::string original = "# comment\ntlv = { system-name = false, port-vlan = false }\n";
  Settings target = loaded(original);
  target.sysNameTlvEnabled = true;
  std::string note;
  std::string text = editConfigText(original, target, note);
  EXPECT_TRUE(loaded(text) == target);
  EXPECT_EQ(text, "# comment\ntlv = { system-name = true, port-vlan = false }\n") << "a value changes in place";

  // A key to add to an inline table: TOML allows no addition outside its braces.
  const Settings before = loaded(original);
  text = editConfigText("tlv = { system-name = false }\n# keep\n", before, note);
  EXPECT_TRUE(loaded(text) == before);
  EXPECT_THAT(note, HasSubstr("comments are gone"));

  text = editConfigText("hold-time = \n# broken\n", before, note);
  EXPECT_TRUE(loaded(text) == before);
  EXPECT_THAT(note, HasSubstr("the file had errors"));
}

class ConfigSaveFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() / ("lldp-config-save-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_ / "etc");
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }
  std::string read(const std::filesystem::path& p) {
    std::stringstream text;
    text << std::ifstream(p).rdbuf();
    return text.str();
  }
  std::filesystem::path dir_;
};

TEST_F(ConfigSaveFileTest, TheFileKeepsItsOwnerGroupModeAndLinkAndNothingIsLeftBehind) {
  const auto real = dir_ / "etc" / "lldp-agent.toml";
  const auto link = dir_ / "lldp-agent.toml";
  std::ofstream(real) << "# mine\ntransmit-interval = 10\n";
  std::filesystem::create_symlink("etc/lldp-agent.toml", link);
  ASSERT_EQ(::chmod(real.c_str(), 0640), 0);
  const bool root = ::geteuid() == 0;
  if (root) {
    ASSERT_EQ(::chown(real.c_str(), 65534, 65534), 0);
  }
  Settings settings = loaded(read(real));
  settings.messageTxInterval = 20;
  std::string note = "stale";
  ASSERT_EQ(saveConfigFile(link.string(), settings, &note), "");
  EXPECT_EQ(note, "");
  EXPECT_TRUE(std::filesystem::is_symlink(link)) << "the link stays a link";
  EXPECT_EQ(read(real), "# mine\ntransmit-interval = 20\n");
  struct stat st{};
  ASSERT_EQ(::stat(real.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640u);
  if (root) {
    EXPECT_EQ(st.st_uid, 65534u);
    EXPECT_EQ(st.st_gid, 65534u);
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_ / "etc"), std::filesystem::directory_iterator()), 1)
      << "no temporary file left";

  // A file this process may not give its owner back is left as it was.
  if (root) {
    ::chmod(real.c_str(), 0644);
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::chmod((dir_ / "etc").c_str(), 0777);
      if (::setgid(65533) != 0 || ::setuid(65533) != 0) _exit(3);
      settings.messageTxInterval = 25;
      const std::string error = saveConfigFile(link.string(), settings);
      _exit(error.find("cannot keep its owner 65534 and group 65534") != std::string::npos ? 0 : 4);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(read(real), "# mine\ntransmit-interval = 20\n");

    // Its owner, in a group it may not give a new file (the service without CAP_CHOWN and a
    // root:root file), writes it where it lies.
    ASSERT_EQ(::chown(real.c_str(), 65533, 65534), 0);
    const pid_t owner = ::fork();
    if (owner == 0) {
      if (::setgroups(0, nullptr) != 0 || ::setgid(65533) != 0 || ::setuid(65533) != 0) _exit(3);
      settings.messageTxInterval = 25;
      _exit(saveConfigFile(link.string(), settings).empty() ? 0 : 4);
    }
    ::waitpid(owner, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(read(real), "# mine\ntransmit-interval = 25\n");
    ASSERT_EQ(::stat(real.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644u);
    EXPECT_EQ(st.st_uid, 65533u);
    EXPECT_EQ(st.st_gid, 65534u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_ / "etc"), std::filesystem::directory_iterator()), 1);
  }
}

TEST(ConfigSaveTest, TheHoldTimeMayNotBeShorterThanTheTransmitInterval) {
  ConfigLoad load = parseConfig("hold-time = 20\ntransmit-interval = 10\n", "a.toml");
  EXPECT_TRUE(load.ok()) << "keys are checked together once the file is read, in any order";
  load = parseConfig("transmit-interval = 30\nhold-time = 20\n", "a.toml");
  EXPECT_THAT(load.errors, ::testing::ElementsAre("a.toml:2: hold-time: 20 is shorter than transmit-interval 30: "
                                                   "neighbors would forget this system between two LLDPDUs"));
  load = parseConfig("\ntransmit-interval = 300\n", "a.toml");
  EXPECT_THAT(load.errors, ::testing::ElementsAre(::testing::StartsWith(
                               "a.toml:2: transmit-interval: 300 is longer than hold-time 120")));

  // One key at a time, as lldp configure changes them: refused, and nothing changes.
  Settings s;
  auto error = ConfigSchema::setText(s, "", "transmit-interval", "300");
  ASSERT_TRUE(error);
  EXPECT_THAT(error->text(), HasSubstr("raise hold-time first"));
  EXPECT_EQ(s.messageTxInterval, 30u);
  EXPECT_FALSE(ConfigSchema::setText(s, "", "hold-time", "600"));
  EXPECT_FALSE(ConfigSchema::setText(s, "", "transmit-interval", "300"));
  error = ConfigSchema::unset(s, "", "hold-time");
  ASSERT_TRUE(error);
  EXPECT_EQ(s.messageTxHoldTime, 600u);
}

}  // namespace
}  // namespace Daemon
