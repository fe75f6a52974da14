// Other software on the agent's socket, seen from the peer across a veth pair: external TLVs that
// come and go with their client, refused periods; and a socket that keeps out strangers and
// outlives clients that never read. These need root (CI runs them so).
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/socket.h>

#include "Processes.h"
#include "ipc/Client.h"

namespace Daemon::Test {
namespace {

using ::testing::HasSubstr;

// How soon the agent answers a new client while another floods it: some 70 ms in a release build.
constexpr double kAnswerLimit = 1.0 * kSlowdown * kSlowdown;
constexpr const char* kCliConfig = "l2discovery/lldp/cliConfig";

// The organisationally specific TLVs a neighbour sent with this OUI, as "subtype=value".
std::vector<std::string> orgTlvs(const Json& neighbour, const std::string& oui) {
  std::vector<std::string> out;
  for (const Json& tlv : neighbour.value("unknownOrgDefTlv", Json::array())) {
    const Json& value = tlv["value"];
    if (value["key"].value("oui", "") == oui) {
      out.push_back(std::to_string(value["key"].value("subtype", 0)) + "=" + value.value("value", ""));
    }
  }
  return out;
}

// Whether a process running as nobody (with only the given group) may connect to the socket.
bool strangerConnects(const std::string& socket, gid_t group) {
  const pid_t pid = fork();
  if (pid == 0) {
    if (setgroups(0, nullptr) != 0 || setgid(group) != 0 || setuid(65534) != 0) _exit(3);
    Ipc::Client client;
    std::string error;
    if (!client.connect(socket, error)) _exit(client.failure() == Ipc::Client::Failure::permissionDenied ? 1 : 2);
    auto reply = client.request({{"op", "hello"}}, 5);
    _exit(reply && reply->value("ok", false) ? 0 : 2);
  }
  return waitFor(pid, 10s) == 0;
}

class ClientsTest : public PeersFixture {
 protected:
  static std::function<bool(const Json&)> withOurTlv(size_t count) {
    return [count](const Json& n) { return orgTlvs(n, "ac-de-48").size() == count; };
  }
  Ipc::Client& connect(Ipc::Client& client, const Peer& peer) {
    std::string error;
    EXPECT_TRUE(client.connect(peer.socket, error)) << error;
    return client;
  }
  // The agent still answers a new client at once.
  bool answers(const Peer& peer) {
    Ipc::Client client;
    std::string error;
    if (!client.connect(peer.socket, error)) return false;
    auto reply = client.request({{"op", "hello"}}, kAnswerLimit);
    return reply && reply->value("ok", false);
  }
};

TEST_F(ClientsTest, ExternalTlvsReachThePeerAndBadPeriodsAreRefused) {
  ASSERT_NO_FATAL_FAILURE(start(a_, "transmit-interval = 5\n"));
  ASSERT_NO_FATAL_FAILURE(start(b_, "transmit-interval = 5\nsystem.name = \"beta\"\n"));
  ASSERT_TRUE(hears(a_, anyone, 10s)) << readFile(a_.log);

  // A client's TLV is on the wire while the client is connected, and leaves with it.
  {
    Ipc::Client client;
    auto reply =
        connect(client, b_)
            .request({{"op", "set"},
                      {"path", "l2discovery/lldp/externalTlvs/eetest"},
                      {"value",
                       {{"portConfig",
                         {{{"intfId", "eeb0"},
                           {"unknownOrgDefTlv", {{{"oui", "AC-DE-48"}, {"subtype", 7}, {"value", "cafe01"}}}}}}},
                        {"ephemeral", true}}}});
    ASSERT_TRUE(reply && reply->value("ok", false)) << (reply ? reply->dump() : "no reply");
    const Json withTlv = neighbourOnceIt(a_, withOurTlv(1), kChangeLimit);
    ASSERT_TRUE(withTlv.is_object()) << neighbours(a_).dump();
    EXPECT_THAT(orgTlvs(withTlv, "ac-de-48"), ::testing::ElementsAre("7=ca:fe:01"));
  }
  EXPECT_TRUE(hears(a_, withOurTlv(0), kChangeLimit));

  // The command is such a client too: its TLV stays until it deletes it.
  EXPECT_EQ(lldp(b_, {"tlv", "add", "eeb0", "AC-DE-48", "9", "beef"}).first, 0);
  EXPECT_TRUE(hears(a_, withOurTlv(1), kChangeLimit));
  EXPECT_EQ(lldp(b_, {"tlv", "del"}).first, 0);
  EXPECT_TRUE(hears(a_, withOurTlv(0), kChangeLimit));

  // Zero, huge and nonsense periods are refused, nothing changes, and the agent goes on.
  const std::vector<std::pair<std::string, Json>> refused = {
      {"transmit-interval", 0},    {"transmit-interval", 1e308}, {"transmit-interval", 18446744073709551615ull},
      {"transmit-interval", -5},   {"hold-time", 0},             {"transmit-interval", 4294967301ull},
      {"reinit-delay", 0},         {"rx-rate-limit.period", 0},  {"rx-rate-limit.period", 1e308},
      {"rx-rate-limit.period", 1e-320}, {"rx-rate-limit.period", "nan"}, {"rx-rate-limit.period", "inf"}};
  Ipc::Client operatorClient;
  connect(operatorClient, b_);
  for (const auto& [key, value] : refused) {
    Json request = {{"op", "set"}, {"path", kCliConfig}, {"key", key}, {"value", value}};
    if (key.starts_with("rx-")) request["interface"] = "eeb0";
    auto reply = operatorClient.request(request, 2);
    ASSERT_TRUE(reply) << key << " " << value.dump() << " got no answer";
    EXPECT_EQ(reply->value("ok", true), false) << key << " " << value.dump();
    EXPECT_EQ((*reply)["error"].value("code", ""), "invalid") << reply->dump();
    EXPECT_THAT((*reply)["error"].value("message", ""), HasSubstr(key)) << reply->dump();
  }
  EXPECT_EQ(lldp(b_, {"configure", "transmit-interval", "0"}).first, 1);
  EXPECT_THAT(lldp(b_, {"show", "config"}).second, HasSubstr("transmit-interval = 5\n"));
  EXPECT_TRUE(answers(b_));
  // A good value after all that is taken, and B still sends.
  EXPECT_EQ(lldp(b_, {"configure", "system.name", "beta-after"}).first, 0);
  EXPECT_TRUE(hears(a_, [](const Json& n) { return n["sysName"] == "beta-after"; }, kChangeLimit));
}

TEST_F(ClientsTest, SocketKeepsOutStrangersAndOutlivesClientsThatNeverRead) {
  ASSERT_NO_FATAL_FAILURE(start(a_, "transmit-interval = 5\n"));  // the socket is root's alone
  const group* nogroup = getgrnam("nogroup");
  if (nogroup == nullptr) GTEST_SKIP() << "needs the group nogroup";
  ASSERT_NO_FATAL_FAILURE(start(b_, "transmit-interval = 5\n", "nogroup"));

  // A process outside the group is refused; one in it gets in.
  EXPECT_FALSE(strangerConnects(a_.socket, nogroup->gr_gid));
  EXPECT_TRUE(strangerConnects(b_.socket, nogroup->gr_gid));

  // A subscriber that asks and asks but never reads is cut off; the agent never waits for it,
  // so others are answered meanwhile and the protocol goes on.
  Ipc::Client slow;
  ASSERT_TRUE(connect(slow, a_).request({{"op", "subscribe"}, {"path", "l2discovery/lldp/status/all"}}, 2));
  const int fd = slow.fd();
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
  std::string asks;
  for (int i = 0; i < 64; ++i) asks += "{\"op\":\"get\",\"path\":\"l2discovery/lldp/localSystem\"}\n";
  std::string pending;
  const auto floodEnd = std::chrono::steady_clock::now() + 20s * kSlowdown;
  auto nextCheck = std::chrono::steady_clock::now();
  bool cutOff = false;
  while (!cutOff && std::chrono::steady_clock::now() < floodEnd) {
    if (pending.empty()) pending = asks;
    const ssize_t n = ::send(fd, pending.data(), pending.size(), MSG_NOSIGNAL);
    if (n > 0) pending.erase(0, static_cast<size_t>(n));
    if (n < 0 && errno != EAGAIN) cutOff = true;  // the agent closed the connection
    if (n < 0 && errno == EAGAIN) std::this_thread::sleep_for(1ms);
    if (std::chrono::steady_clock::now() >= nextCheck) {
      ASSERT_TRUE(answers(a_)) << "the agent stopped answering while a client did not read";
      nextCheck = std::chrono::steady_clock::now() + 500ms;
    }
  }
  EXPECT_TRUE(cutOff) << "a client that never reads was never disconnected";
  // Its buffer is full, so the reason cannot reach it; the agent counts the cut-off instead.
  const Json socket = statusOf(a_).value("socket", Json::object());
  EXPECT_EQ(socket.value("slowDisconnects", 0), 1) << socket.dump();
  EXPECT_TRUE(answers(a_));
  EXPECT_TRUE(hears(a_, anyone, 10s));
}

}  // namespace
}  // namespace Daemon::Test
