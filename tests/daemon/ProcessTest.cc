// The real lldp-agent binary on its own: a bad file exits 2 naming the line, an agent running as
// another user still opens ports that appear later, and the privileges left after start-up.
// Most need root (CI runs them so).
#include <gmock/gmock.h>
#include <linux/capability.h>
#include <sys/socket.h>

#include "daemon/Privileges.h"
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

}  // namespace
}  // namespace Daemon::Test
