// The real lldp-agent binary on its own: a bad file exits 2 naming the line, an agent running as
// another user still opens ports that appear later, the privileges every thread keeps, and one
// agent per socket.
// Most need root (CI runs them so).
#include <gmock/gmock.h>
#include <linux/capability.h>
#include <sys/socket.h>

#include <filesystem>
#include <map>

#include "daemon/Privileges.h"
#include "ipc/Client.h"
#include "Processes.h"

namespace Daemon::Test {
namespace {

using ::testing::HasSubstr;

class ProcessTest : public ProcessFixture {};

TEST_F(ProcessTest, BadConfigurationFileExitsTwoNamingTheLine) {
  std::ofstream(file("bad.toml")) << "transmit-interval = 30\nhold-time = 5\n";
  const pid_t pid = spawn({LLDP_AGENT_BINARY, "--config", file("bad.toml"), "--log", "stderr"}, file("bad.out"));
  EXPECT_EQ(waitFor(pid, 5s), 2);
  EXPECT_THAT(readFile(file("bad.out")), HasSubstr(file("bad.toml") + ":2: hold-time: 5 is out of range"));

  const pid_t check = spawn({LLDP_AGENT_BINARY, "--config", file("none.toml"), "--check-config"}, file("none.out"));
  EXPECT_EQ(waitFor(check, 5s), 2);
  EXPECT_THAT(readFile(file("none.out")), HasSubstr("No such file"));

  // An unknown user is a bad option too: the service manager must not restart it for ever.
  std::ofstream(file("empty.toml")) << "";
  const pid_t user = spawn({LLDP_AGENT_BINARY, "--config", file("empty.toml"), "--user", "no-such-user-lldp"},
                           file("user.out"));
  EXPECT_EQ(waitFor(user, 5s), 2);
  EXPECT_THAT(readFile(file("user.out")), HasSubstr("no user 'no-such-user-lldp'"));
}

TEST_F(ProcessTest, AnAgentRunningAsAnotherUserStillOpensPortsThatAppearLater) {
  if (!haveNamespaces()) GTEST_SKIP() << "needs root and iproute2 to make network namespaces";
  const std::string ns = netns("u");
  ASSERT_TRUE(run("ip netns add " + ns + " && ip -n " + ns + " link add eeua type veth peer name eeub && ip -n " + ns +
                  " link set eeua up && ip -n " + ns + " link set eeub up"));
  std::ofstream(file("u.toml")) << "transmit-interval = 5\n";
  started(spawn({"ip", "netns", "exec", ns, LLDP_AGENT_BINARY, "--config", file("u.toml"), "--log", "stderr",
                 "--user", "nobody", "--socket", file("u.sock")},
                file("u.log")));
  const auto learnt = [&] { return occurrences(readFile(file("u.log")), "LLDP_NEIGHBOR_NEW"); };
  ASSERT_TRUE(eventually([&] { return learnt() == 2; }, 10s)) << readFile(file("u.log"));
  ASSERT_TRUE(run("ip -n " + ns + " link add eeuc type veth peer name eeud && ip -n " + ns +
                  " link set eeuc up && ip -n " + ns + " link set eeud up"));
  EXPECT_TRUE(eventually([&] { return learnt() == 4; }, 10s)) << readFile(file("u.log"));
  std::ifstream status("/proc/" + std::to_string(pids_.back()) + "/status");
  std::string line, uid;
  while (std::getline(status, line)) {
    if (line.starts_with("Uid:")) uid = line;
  }
  EXPECT_THAT(uid, HasSubstr("65534"));
}

TEST_F(ProcessTest, AfterStartUpOnlyRawSocketsAndTheirPriorityRemain) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give up privileges";
  const pid_t pid = fork();
  if (pid == 0) {
    if (!dropPrivileges("nobody").empty()) _exit(1);
    if (geteuid() == 0 || getuid() == 0) _exit(2);
    const uint64_t wanted = (uint64_t{1} << CAP_NET_RAW) | (uint64_t{1} << CAP_NET_ADMIN);
    if (effectiveCapabilities() != wanted) _exit(3);
    const int fd = socket(AF_PACKET, SOCK_RAW, 0);
    if (fd < 0) _exit(4);
    int prio = 7;
    if (setsockopt(fd, SOL_SOCKET, SO_PRIORITY, &prio, sizeof prio) != 0) _exit(5);
    if (setuid(0) == 0) _exit(6);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_NE(dropPrivileges("no-such-user-here"), "");
}

// The capability sets of every thread of a process, as "CapEff:..." lines per task.
std::vector<std::map<std::string, uint64_t>> threadCapabilities(pid_t pid) {
  std::vector<std::map<std::string, uint64_t>> out;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    std::ifstream status(task.path() / "status");
    std::map<std::string, uint64_t> caps;
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("Cap")) caps[line.substr(0, line.find(':'))] = std::stoull(line.substr(line.find(':') + 1), nullptr, 16);
    }
    out.push_back(std::move(caps));
  }
  return out;
}

TEST_F(ProcessTest, EveryThreadOfTheRunningAgentKeepsOnlyRawSocketsAndTheirPriority) {
  if (!haveNamespaces()) GTEST_SKIP() << "needs root and iproute2 to make network namespaces";
  const uint64_t wanted = (uint64_t{1} << CAP_NET_RAW) | (uint64_t{1} << CAP_NET_ADMIN);
  const std::string ns = netns("c");
  ASSERT_TRUE(run("ip netns add " + ns + " && ip -n " + ns + " link add eeca type veth peer name eecb && ip -n " + ns +
                  " link set eeca up && ip -n " + ns + " link set eecb up"));
  // As root and as another user; with the system log, whose writer is a thread of its own.
  for (const std::vector<std::string>& extra : {std::vector<std::string>{}, std::vector<std::string>{"--user", "nobody"}}) {
    SCOPED_TRACE(extra.empty() ? "as root" : "as nobody");
    std::vector<std::string> argv = {"ip", "netns", "exec", ns, LLDP_AGENT_BINARY, "--config", file("none.toml"),
                                     "--log", "system", "--socket", file("c.sock")};
    argv.insert(argv.end(), extra.begin(), extra.end());
    std::ofstream(file("none.toml")) << "transmit-interval = 5\n";
    const pid_t pid = started(spawn(argv, file("c.log")));
    Ipc::Client client;
    ASSERT_TRUE(eventually([&] { std::string e; return client.connect(file("c.sock"), e); }, 10s)) << readFile(file("c.log"));
    const auto threads = threadCapabilities(pid);
    EXPECT_GE(threads.size(), 2u) << "the log writer runs beside the event thread";
    for (const auto& caps : threads) {
      EXPECT_EQ(caps.at("CapEff"), wanted);
      EXPECT_EQ(caps.at("CapPrm"), wanted);
      EXPECT_EQ(caps.at("CapBnd"), wanted);
      EXPECT_EQ(caps.at("CapInh"), 0u);
      EXPECT_EQ(caps.at("CapAmb"), 0u);
    }
    kill(pid, SIGTERM);
    EXPECT_EQ(waitFor(pid, 5s), 0);
    forget(pid);
  }
}

TEST_F(ProcessTest, ASecondAgentOnTheSameSocketStopsAndLeavesTheFirstServing) {
  if (!haveNamespaces()) GTEST_SKIP() << "needs root and iproute2 to make network namespaces";
  const std::string ns = netns("s");
  ASSERT_TRUE(run("ip netns add " + ns));
  std::ofstream(file("s.toml")) << "transmit-interval = 5\n";
  const auto agent = [&](const char* log) {
    return spawn({"ip", "netns", "exec", ns, LLDP_AGENT_BINARY, "--config", file("s.toml"), "--log", "stderr",
                  "--socket", file("s.sock")},
                 file(log));
  };
  const pid_t first = started(agent("first.log"));
  Ipc::Client client;
  ASSERT_TRUE(eventually([&] { std::string e; return client.connect(file("s.sock"), e); }, 10s)) << readFile(file("first.log"));
  const pid_t second = agent("second.log");
  EXPECT_EQ(waitFor(second, 5s), 1);
  EXPECT_THAT(readFile(file("second.log")),
              HasSubstr("another lldp-agent (pid " + std::to_string(first) + ") serves " + file("s.sock")));
  // The first agent's socket is still there and answers, old connections and new.
  auto reply = client.request({{"op", "hello"}}, 5);
  EXPECT_TRUE(reply && reply->value("ok", false));
  Ipc::Client again;
  std::string error;
  EXPECT_TRUE(again.connect(file("s.sock"), error)) << error;
}

}  // namespace
}  // namespace Daemon::Test
