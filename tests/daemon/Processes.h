// Helpers for tests that run the real lldp-agent and lldp binaries: child processes with their
// output in files, waiting with a limit, and two agents in network namespaces joined by a veth pair.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace Daemon::Test {

using namespace std::chrono_literals;
using Json = nlohmann::ordered_json;

// An address-sanitised build runs some twenty times slower, beside other tests: the limits that
// hold a release build to what people are promised get room there.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kSlowdown = 3;
#else
constexpr int kSlowdown = 1;
#endif
// A change of what an agent sends reaches its peer within the transmit delay (2 s) and a second.
constexpr std::chrono::milliseconds kChangeLimit = 3s * kSlowdown;

inline std::string readFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

inline size_t occurrences(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

inline bool run(const std::string& command) { return std::system(command.c_str()) == 0; }

// Runs argv with standard output and error in a file; returns the pid. before() runs in the
// child just before exec (to change user, say).
inline pid_t spawn(const std::vector<std::string>& argv, const std::string& output,
                   const std::function<void()>& before = {}) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  const int fd = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  dup2(fd, 1);
  dup2(fd, 2);
  if (before) before();
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  execvp(args[0], args.data());
  _exit(127);
}

// Waits for the process; its exit status (128 + signal when killed), or -1 when it did not end
// within the time.
inline int waitFor(pid_t pid, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (true) {
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (std::chrono::steady_clock::now() >= end) return -1;
    std::this_thread::sleep_for(5ms);
  }
}

inline bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < end) {
    if (condition()) return true;
    std::this_thread::sleep_for(50ms);
  }
  return condition();
}

inline bool haveNamespaces() { return geteuid() == 0 && run("ip netns list >/dev/null 2>&1"); }

// One JSON value per line, as `lldp watch --json` prints them; lines that are no JSON are left out.
inline std::vector<Json> jsonLines(const std::string& text) {
  std::vector<Json> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    Json j = Json::parse(line, nullptr, false);
    if (!j.is_discarded()) out.push_back(std::move(j));
  }
  return out;
}

// A test directory, and every process and namespace the test made, removed at the end.
class ProcessFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    tag_ = std::to_string(::getpid() % 100000);
    dir_ = std::filesystem::temp_directory_path() / ("ee-process-test-" + tag_);
    std::filesystem::create_directories(dir_);
    std::filesystem::permissions(dir_, std::filesystem::perms(0755));
  }
  void TearDown() override {
    for (pid_t pid : pids_) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
    for (const std::string& ns : namespaces_) run("ip netns del " + ns + " 2>/dev/null");
    std::filesystem::remove_all(dir_);
  }
  std::string file(const std::string& name) const { return (dir_ / name).string(); }
  // A network namespace of this test, removed at the end; LLDP_TEST_NETNS_PREFIX tells runs apart
  // that share a machine.
  std::string netns(const std::string& role) {
    const char* prefix = std::getenv("LLDP_TEST_NETNS_PREFIX");
    namespaces_.push_back(std::string(prefix ? prefix : "ee") + tag_ + role);
    return namespaces_.back();
  }
  // A process the fixture kills at the end unless the test reaped it (forget()).
  pid_t started(pid_t pid) {
    pids_.push_back(pid);
    return pid;
  }
  void forget(pid_t pid) { std::erase(pids_, pid); }

  std::string tag_;
  std::filesystem::path dir_;
  std::vector<pid_t> pids_;
  std::vector<std::string> namespaces_;
};

// Two namespaces "ee<pid>a" and "ee<pid>b" joined by the veth pair eea0 - eeb0, each with an
// agent once started. Agents run with short intervals; `lldp` runs against either socket.
class PeersFixture : public ProcessFixture {
 protected:
  struct Peer {
    std::string name;  // "a" or "b"
    std::string ns;
    std::string intf;
    std::string socket;
    std::string log;
    pid_t pid = -1;
  };

  void SetUp() override {
    ProcessFixture::SetUp();
    if (!haveNamespaces()) GTEST_SKIP() << "needs root and iproute2 to make network namespaces";
    a_ = {"a", netns("a"), "eea0", file("a.sock"), file("a.log")};
    b_ = {"b", netns("b"), "eeb0", file("b.sock"), file("b.log")};
    ASSERT_TRUE(run("ip netns add " + a_.ns + " && ip netns add " + b_.ns));
    ASSERT_TRUE(run("ip -n " + a_.ns + " link add eea0 type veth peer name eeb0 netns " + b_.ns + " && ip -n " +
                    a_.ns + " link set eea0 up && ip -n " + b_.ns + " link set eeb0 up"));
  }

  // Starts the peer's agent with this configuration and waits until its socket answers.
  void start(Peer& peer, const std::string& config, const std::string& group = "root") {
    std::ofstream(file(peer.name + ".toml")) << config;
    peer.pid = started(spawn({"ip", "netns", "exec", peer.ns, LLDP_AGENT_BINARY, "--config",
                              file(peer.name + ".toml"), "--log", "stderr", "--socket", peer.socket,
                              "--socket-group", group, "--trace", "LldpAgent/8"},
                             peer.log));
    ASSERT_TRUE(eventually([&] { return lldp(peer, {"show", "status", "--json"}).first == 0; }, 10s))
        << readFile(peer.log);
  }

  // Runs `lldp --socket ... args`; its exit status and everything it printed.
  std::pair<int, std::string> lldp(const Peer& peer, const std::vector<std::string>& args) {
    std::vector<std::string> argv = {LLDP_CLI_BINARY, "--socket", peer.socket};
    argv.insert(argv.end(), args.begin(), args.end());
    const std::string out = file("lldp-" + std::to_string(++commands_) + ".out");
    const pid_t pid = spawn(argv, out);
    const int status = waitFor(pid, 10s);
    if (status < 0) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
    return {status, readFile(out)};
  }

  // `lldp watch --json` on the peer, printing into watch-<name>.jsonl; returns once subscribed.
  pid_t watch(const Peer& peer) {
    const int before = statusOf(peer).value("subscriptions", 0);
    const pid_t pid = started(
        spawn({LLDP_CLI_BINARY, "--socket", peer.socket, "watch", "--json"}, file("watch-" + peer.name + ".jsonl")));
    EXPECT_TRUE(eventually([&] { return statusOf(peer).value("subscriptions", 0) > before; }, 5s));
    return pid;
  }
  std::vector<Json> events(const Peer& peer) { return jsonLines(readFile(file("watch-" + peer.name + ".jsonl"))); }

  Json statusOf(const Peer& peer) {
    auto [status, out] = lldp(peer, {"show", "status", "--json"});
    Json j = Json::parse(out, nullptr, false);
    return status == 0 && j.is_object() ? j : Json::object();
  }
  Json localOf(const Peer& peer) {
    Json j = Json::parse(lldp(peer, {"show", "local", "--json"}).second, nullptr, false);
    return j.is_object() ? j.value("localSystem", Json::object()) : Json::object();
  }
  // The neighbours the peer learnt on its interface, as `lldp show neighbors --json` gives them.
  Json neighbours(const Peer& peer) {
    Json j = Json::parse(lldp(peer, {"show", "neighbors", "--json"}).second, nullptr, false);
    if (!j.is_object()) return Json::array();
    for (const Json& port : j.value("portStatus", Json::array())) {
      if (port.value("intfId", "") == peer.intf) return port.value("remoteSystem", Json::array());
    }
    return Json::array();
  }
  // The one neighbour on the peer's interface once it satisfies the condition, or null.
  Json neighbourOnceIt(const Peer& peer, const std::function<bool(const Json&)>& condition,
                       std::chrono::milliseconds limit) {
    Json found;
    eventually(
        [&] {
          const Json all = neighbours(peer);
          if (all.size() != 1 || !condition(all[0])) return false;
          found = all[0];
          return true;
        },
        limit);
    return found;
  }

  static bool anyone(const Json&) { return true; }
  // Whether the peer's one neighbour comes to satisfy the condition within the time.
  bool hears(const Peer& peer, const std::function<bool(const Json&)>& condition,
             std::chrono::milliseconds limit = 3s) {
    return neighbourOnceIt(peer, condition, limit).is_object();
  }

  Peer a_, b_;
  int commands_ = 0;
};

}  // namespace Daemon::Test
