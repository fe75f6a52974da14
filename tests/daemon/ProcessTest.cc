// The real lldp-agent binary: two agents in network namespaces joined by a veth pair learn each
// other, SIGHUP keeps the neighbours, SIGTERM exits 0 at once, a bad file exits 2 with its line;
// and the privileges left after start-up. These need root (CI runs them so).
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "daemon/Privileges.h"

namespace Daemon {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

size_t occurrences(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

bool run(const std::string& command) { return std::system(command.c_str()) == 0; }

// Runs argv with standard output and error in a file; returns the pid.
pid_t spawn(const std::vector<std::string>& argv, const std::string& output) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  const int fd = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  dup2(fd, 1);
  dup2(fd, 2);
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  execvp(args[0], args.data());
  _exit(127);
}

// Waits for the process; its exit status, or -1 when it did not end within the time.
int waitFor(pid_t pid, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < end) {
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
    std::this_thread::sleep_for(10ms);
  }
  return -1;
}

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < end) {
    if (condition()) return true;
    std::this_thread::sleep_for(50ms);
  }
  return condition();
}

class ProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() / ("lldp-process-test-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override {
    for (pid_t pid : pids_) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
    for (const std::string& ns : namespaces_) run("ip netns del " + ns + " 2>/dev/null");
    std::filesystem::remove_all(dir_);
  }
  bool needRoot() {
    if (geteuid() == 0 && run("ip netns list >/dev/null 2>&1")) return true;
    return false;
  }
  std::string file(const std::string& name) const { return (dir_ / name).string(); }

  std::filesystem::path dir_;
  std::vector<pid_t> pids_;
  std::vector<std::string> namespaces_;
};

TEST_F(ProcessTest, BadConfigurationFileExitsTwoNamingTheLine) {
  std::ofstream(file("bad.toml")) << "transmit-interval = 30\nhold-time = 5\n";
  const pid_t pid = spawn({LLDP_AGENT_BINARY, "--config", file("bad.toml"), "--log", "stderr"}, file("bad.out"));
  EXPECT_EQ(waitFor(pid, 5s), 2);
  EXPECT_THAT(readFile(file("bad.out")), HasSubstr(file("bad.toml") + ":2: hold-time: 5 is out of range"));

  const pid_t check = spawn({LLDP_AGENT_BINARY, "--config", file("none.toml"), "--check-config"}, file("none.out"));
  EXPECT_EQ(waitFor(check, 5s), 2);
  EXPECT_THAT(readFile(file("none.out")), HasSubstr("No such file"));
}

TEST_F(ProcessTest, TwoAgentsLearnEachOtherKeepThemOnReloadAndStopInOrder) {
  if (!needRoot()) GTEST_SKIP() << "needs root and iproute2 to make network namespaces";
  const std::string tag = std::to_string(::getpid() % 100000);
  const std::string a = "lldpA" + tag, b = "lldpB" + tag;
  namespaces_ = {a, b};
  ASSERT_TRUE(run("ip netns add " + a + " && ip netns add " + b));
  ASSERT_TRUE(run("ip -n " + a + " link add pa type veth peer name pb netns " + b + " && ip -n " + a +
                  " link set pa up && ip -n " + b + " link set pb up"));
  std::ofstream(file("a.toml")) << "transmit-interval = 5\nsystem.name = \"alpha\"\n";
  std::ofstream(file("b.toml")) << "transmit-interval = 5\nsystem.name = \"beta\"\n";
  const auto start = [&](const std::string& ns, const std::string& name) {
    pids_.push_back(spawn({"ip", "netns", "exec", ns, LLDP_AGENT_BINARY, "--config", file(name + ".toml"), "--log",
                           "stderr", "--socket", file(name + ".sock")},
                          file(name + ".log")));
    return pids_.back();
  };
  const pid_t pidA = start(a, "a");
  start(b, "b");
  ASSERT_TRUE(eventually(
      [&] {
        return readFile(file("a.log")).find("LLDP_NEIGHBOR_NEW") != std::string::npos &&
               readFile(file("b.log")).find("LLDP_NEIGHBOR_NEW") != std::string::npos;
      },
      10s))
      << readFile(file("a.log")) << readFile(file("b.log"));
  EXPECT_THAT(readFile(file("a.log")), HasSubstr("portId pb added on interface pa"));

  std::ofstream(file("a.toml")) << "transmit-interval = 5\nsystem.name = \"alpha2\"\nhold-time = 60\n";
  kill(pidA, SIGHUP);
  ASSERT_TRUE(eventually([&] { return readFile(file("a.log")).find("LLDP_CONFIG_APPLIED") != std::string::npos; }, 5s));
  EXPECT_THAT(readFile(file("a.log")), HasSubstr("changed: hold-time, system.name"));
  std::this_thread::sleep_for(1s);
  EXPECT_EQ(occurrences(readFile(file("a.log")), "LLDP_NEIGHBOR_NEW"), 1u);
  EXPECT_EQ(occurrences(readFile(file("b.log")), "LLDP_NEIGHBOR_NEW"), 1u);

  const auto stopAt = std::chrono::steady_clock::now();
  kill(pidA, SIGTERM);
  EXPECT_EQ(waitFor(pidA, 1s), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - stopAt, 1s);
  pids_.erase(pids_.begin());
  EXPECT_THAT(readFile(file("a.log")), HasSubstr("LLDP agent stopped on SIGTERM"));
}

TEST_F(ProcessTest, AnAgentRunningAsAnotherUserStillOpensPortsThatAppearLater) {
  if (!needRoot()) GTEST_SKIP() << "needs root and iproute2 to make network namespaces";
  const std::string ns = "lldpU" + std::to_string(::getpid() % 100000);
  namespaces_ = {ns};
  ASSERT_TRUE(run("ip netns add " + ns + " && ip -n " + ns + " link add ua type veth peer name ub && ip -n " + ns +
                  " link set ua up && ip -n " + ns + " link set ub up"));
  std::ofstream(file("u.toml")) << "transmit-interval = 5\n";
  pids_.push_back(spawn({"ip", "netns", "exec", ns, LLDP_AGENT_BINARY, "--config", file("u.toml"), "--log", "stderr",
                         "--user", "nobody", "--socket", file("u.sock")},
                        file("u.log")));
  const auto learnt = [&] { return occurrences(readFile(file("u.log")), "LLDP_NEIGHBOR_NEW"); };
  ASSERT_TRUE(eventually([&] { return learnt() == 2; }, 10s)) << readFile(file("u.log"));
  ASSERT_TRUE(run("ip -n " + ns + " link add uc type veth peer name ud && ip -n " + ns + " link set uc up && ip -n " +
                  ns + " link set ud up"));
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
}  // namespace Daemon
