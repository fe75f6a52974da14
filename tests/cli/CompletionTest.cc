// Bash completion, run in bash as a shell would: commands at every level, interfaces, and the
// configuration keys exactly as the agent's key table has them.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>

#include "cli/Completion.h"
#include "daemon/ConfigKeys.h"

namespace CliTest {
namespace {

using testing::Contains;
using testing::Not;

struct CompletionTest : ::testing::Test {
  std::string script = "/tmp/lldp-completion-" + std::to_string(::getpid()) + ".sh";
  CompletionTest() { std::ofstream(script) << Cli::bashCompletion(); }
  ~CompletionTest() override { std::remove(script.c_str()); }

  // What bash offers after "lldp " + typed; the last word of typed is the one being completed.
  std::set<std::string> offered(const std::string& typed) {
    std::string words = "lldp";
    std::istringstream in(typed);
    int count = 1;
    for (std::string w; in >> w; ++count) words += " '" + w + "'";
    if (typed.empty() || typed.back() == ' ') {
      words += " ''";
    } else {
      --count;
    }
    const std::string driver = script + ".run";
    std::ofstream(driver) << "source " << script << "\nCOMP_WORDS=(" << words << ")\nCOMP_CWORD=" << count
                          << "\n_lldp\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n";
    FILE* pipe = ::popen(("bash " + driver).c_str(), "r");
    std::set<std::string> out;
    char line[512];
    while (pipe && std::fgets(line, sizeof line, pipe)) {
      std::string word(line);
      if (!word.empty() && word.back() == '\n') word.pop_back();
      if (!word.empty()) out.insert(word);
    }
    if (pipe) ::pclose(pipe);
    std::remove(driver.c_str());
    return out;
  }
};

TEST_F(CompletionTest, CommandsAtEveryLevel) {
  EXPECT_THAT(offered(""), testing::IsSupersetOf({"show", "configure", "unconfigure", "config", "clear", "tlv",
                                                  "watch", "decode", "topology", "completion"}));
  EXPECT_EQ(offered("sh"), std::set<std::string>{"show"});
  EXPECT_THAT(offered("show "), testing::IsSupersetOf({"neighbors", "interfaces", "local", "statistics", "config",
                                                       "classification", "status"}));
  EXPECT_THAT(offered("show neighbors "), testing::IsSupersetOf({"lo", "--json", "--detail"}));
  EXPECT_THAT(offered("--socket /tmp/x show "), Contains("neighbors")) << "options do not count as commands";
  EXPECT_THAT(offered("show status --json "), Contains("--help"));
  EXPECT_EQ(offered("config "), (std::set<std::string>{"save", "--help"}));
  EXPECT_THAT(offered("clear "), Contains("neighbors"));
  EXPECT_THAT(offered("clear neighbors "), Contains("lo"));
  EXPECT_THAT(offered("tlv "), testing::IsSupersetOf({"add", "del"}));
  EXPECT_THAT(offered("tlv add "), Contains("lo"));
  EXPECT_THAT(offered("topology "), testing::IsSupersetOf({"check", "--prometheus", "--format"}));
  EXPECT_EQ(offered("topology --format d"), std::set<std::string>{"dot"});
  EXPECT_THAT(offered("topology --format svg "), Contains("check")) << "an option's value is no command";
}

TEST_F(CompletionTest, KeysAndTheirValuesGlobalAndPerInterface) {
  const auto global = offered("configure ");
  const auto port = offered("configure interface lo ");
  EXPECT_THAT(global, Contains("interface"));
  EXPECT_THAT(offered("configure interface "), Contains("lo"));
  EXPECT_EQ(offered("unconfigure "), global);
  EXPECT_EQ(offered("unconfigure interface lo "), port);
  for (const auto& key : Daemon::configKeyTable()) {
    std::string typed = key.key;
    typed = typed.substr(0, typed.find('<'));  // up to the first parameter
    const bool forPort = key.scope == Daemon::ConfigScope::port;
    EXPECT_THAT(forPort ? port : global, Contains(typed)) << key.key;
    EXPECT_THAT(forPort ? global : port, Not(Contains(typed))) << key.key;
  }
  EXPECT_EQ(offered("configure enabled "), (std::set<std::string>{"true", "false"}));
  EXPECT_EQ(offered("configure interface lo admin-status "), (std::set<std::string>{"tx-rx", "tx", "rx", "disabled"}));
  EXPECT_EQ(offered("configure interface lo network-policy.1.tagged "), (std::set<std::string>{"true", "false"}));
  EXPECT_THAT(offered("configure management-address.transmit "), testing::IsSupersetOf({"best", "all", "lo"}));
  EXPECT_TRUE(offered("configure transmit-interval ").empty());
  EXPECT_TRUE(offered("unconfigure enabled ").empty());
}

// The completion's list offers what the agent accepts, and values only where the agent names them.
TEST(CompletionKeys, FollowTheAgentsKeyTable) {
  std::set<std::pair<std::string, bool>> agent, offered;
  for (const auto& key : Daemon::configKeyTable()) {
    agent.insert({key.key, key.scope == Daemon::ConfigScope::port});
    const auto* mine = [&]() -> const Cli::KeyCompletion* {
      for (const auto& k : Cli::completionKeys()) {
        if (std::string(k.key) == key.key) return &k;
      }
      return nullptr;
    }();
    if (!mine) continue;
    if (key.type == Daemon::ConfigType::boolean) {
      EXPECT_STREQ(mine->values, "true false") << key.key;
    }
    if (key.type == Daemon::ConfigType::choice) {
      std::string choices;
      for (const char* c : key.choices) choices += (choices.empty() ? "" : " ") + std::string(c);
      EXPECT_EQ(mine->values, choices) << key.key;
    }
  }
  for (const auto& k : Cli::completionKeys()) offered.insert({k.key, k.port});
  EXPECT_EQ(offered, agent);
}

}  // namespace
}  // namespace CliTest
