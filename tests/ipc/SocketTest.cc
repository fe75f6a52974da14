// The state socket in real time: framing, oversized requests, the client limits, the file's
// mode, one server per path, running out of descriptors, and a subscriber that never reads.
#include <gmock/gmock.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "codec/LldpProtocol.h"
#include "data/Lldpdu.h"
#include "ipc/Client.h"
#include "ipc/Server.h"
#include "linux/AsioScheduler.h"
#include "platform/Log.h"
#include "records/LldpRecords.h"
#include "records/RecordsJson.h"

namespace IpcTest {
namespace {

using Ipc::Json;

struct SocketTest : ::testing::Test {
  Linux::AsioScheduler scheduler;
  Platform::StateDb db{scheduler, "1"};
  Ipc::Service service{db};
  std::string dir;
  Ipc::ServerOptions options;
  std::unique_ptr<Ipc::Server> server;
  Lldp::CliConfig::Ptr cliConfig;

  SocketTest() {
    char pattern[] = "/tmp/lldp-ipc-XXXXXX";
    dir = ::mkdtemp(pattern);
    options.socketPath = dir + "/lldp.sock";  // with the limits the agent runs with
    cliConfig = db.mountIs<Lldp::CliConfig>("l2discovery/lldp/cliConfig", "w");
    db.inputIs("l2discovery/lldp/cliConfig");
  }
  ~SocketTest() override {
    server.reset();
    std::filesystem::remove_all(dir);
  }

  void listen() {
    server = std::make_unique<Ipc::Server>(scheduler, service, options);
    std::string error;
    ASSERT_TRUE(server->listen(error)) << error;
  }
  std::unique_ptr<Ipc::Client> connect() {
    auto client = std::make_unique<Ipc::Client>();
    std::string error;
    EXPECT_TRUE(client->connect(options.socketPath, error)) << error;
    scheduler.runFor(0.02);
    return client;
  }
  // The next message, with the agent's loop turning meanwhile.
  std::optional<Json> next(Ipc::Client& client) {
    for (int i = 0; i < 100; ++i) {
      if (auto m = client.nextMessage(0)) return m;
      if (client.closed()) return std::nullopt;
      scheduler.runFor(0.01);
    }
    return std::nullopt;
  }
  std::optional<Json> ask(Ipc::Client& client, const std::string& line) {
    client.sendRaw(line + "\n");
    return next(client);
  }
};

TEST_F(SocketTest, OversizedAndSplitRequestsAreAnsweredAndTheConnectionStaysUsable) {
  listen();
  auto client = connect();
  auto reply = ask(*client, "{\"op\":\"get\",\"path\":\"" + std::string(70 * 1024, 'x') + "\"}");
  ASSERT_TRUE(reply);
  EXPECT_EQ((*reply)["error"]["code"], "tooLarge");
  // One request split over several writes, then two in one write.
  client->sendRaw("{\"op\":\"get\",");
  scheduler.runFor(0.02);
  reply = ask(*client, "\"path\":\"l2discovery/lldp/cliConfig\",\"id\":1}\n{\"op\":\"hello\",\"id\":2}");
  ASSERT_TRUE(reply);
  EXPECT_EQ((*reply)["id"], 1);
  EXPECT_EQ((*reply)["value"]["enabled"], true);
  reply = next(*client);
  ASSERT_TRUE(reply);
  EXPECT_EQ((*reply)["id"], 2);
  EXPECT_EQ(server->counters().oversized, 1u);
}

TEST_F(SocketTest, TheSocketFileIsForOwnerAndGroupAndClientsAreLimited) {
  options.maxClients = 2;
  listen();
  struct stat st{};
  ASSERT_EQ(::stat(options.socketPath.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0660u);
  auto a = connect();
  auto b = connect();
  auto c = connect();
  auto refusal = next(*c);
  ASSERT_TRUE(refusal);
  EXPECT_EQ((*refusal)["error"]["code"], "limit");
  EXPECT_EQ(server->clients(), 2u);
  a.reset();
  scheduler.runFor(0.05);
  EXPECT_EQ(server->clients(), 1u);
  auto d = connect();
  EXPECT_TRUE(ask(*d, "{\"op\":\"hello\"}"));
}

TEST_F(SocketTest, AStaleSocketIsReplacedButNoOtherFile) {
  listen();
  server.reset();  // removes its file
  const std::string path = options.socketPath;
  ASSERT_FALSE(std::filesystem::exists(path));
  // The file of an agent that died: a socket nobody answers on.
  const int stale = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  path.copy(addr.sun_path, sizeof addr.sun_path - 1);
  ASSERT_EQ(bind(stale, reinterpret_cast<const sockaddr*>(&addr), sizeof addr), 0);
  close(stale);
  listen();
  auto client = connect();
  auto reply = ask(*client, "{\"op\":\"get\",\"path\":\"l2discovery/lldp/cliConfig\"}");
  ASSERT_TRUE(reply);
  EXPECT_TRUE(reply->contains("value"));
  client.reset();
  server.reset();

  std::filesystem::remove(path + ".lock");
  FILE* f = std::fopen(path.c_str(), "w");
  std::fclose(f);
  server = std::make_unique<Ipc::Server>(scheduler, service, options);
  std::string error;
  EXPECT_FALSE(server->listen(error));
  EXPECT_THAT(error, testing::HasSubstr("not a socket"));
  EXPECT_FALSE(std::filesystem::exists(path + ".lock"));  // nothing made beside a file that is not ours
}

TEST_F(SocketTest, ASubscriberThatNeverReadsIsDisconnectedAndTheAgentGoesOn) {
  options.maxOutputBytes = 256 * 1024;
  listen();
  auto slow = connect();
  ASSERT_TRUE(ask(*slow, "{\"op\":\"subscribe\",\"path\":\"l2discovery/lldp/cliConfig\"}"));
  auto other = connect();
  // Many passes, each with a change: the slow client's backlog grows past its limit.
  uint32_t interval = 5;
  for (int i = 0; i < 20000 && server->counters().slowDisconnects == 0; ++i) {
    cliConfig->messageTxIntervalIs(interval++);
    scheduler.runFor(0.0001);
  }
  EXPECT_EQ(server->counters().slowDisconnects, 1u);
  scheduler.runFor(0.05);
  EXPECT_EQ(server->clients(), 1u);
  auto reply = ask(*other, "{\"op\":\"get\",\"path\":\"l2discovery/lldp/cliConfig\"}");
  ASSERT_TRUE(reply);
  EXPECT_EQ((*reply)["value"]["messageTxInterval"], interval - 1);
  // The slow client finds its backlog, then the end of the connection.
  while (slow->nextMessage(0.2)) {
  }
  EXPECT_TRUE(slow->closed());
}

TEST_F(SocketTest, OneServerPerPathAndALiveSocketIsNeverTakenOver) {
  listen();
  Ipc::Server second(scheduler, service, options);
  std::string error;
  EXPECT_FALSE(second.listen(error));
  EXPECT_THAT(error, testing::HasSubstr("another lldp-agent (pid " + std::to_string(::getpid()) + ") serves " +
                                        options.socketPath));
  auto client = connect();
  EXPECT_TRUE(ask(*client, "{\"op\":\"hello\"}")) << "the first server still serves its path";

  // A listener that holds no lock (another program, an older agent) keeps its file.
  const std::string other = dir + "/other.sock";
  const int live = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  other.copy(addr.sun_path, sizeof addr.sun_path - 1);
  ASSERT_EQ(::bind(live, reinterpret_cast<const sockaddr*>(&addr), sizeof addr), 0);
  ASSERT_EQ(::listen(live, 4), 0);
  Ipc::ServerOptions otherOptions = options;
  otherOptions.socketPath = other;
  Ipc::Server third(scheduler, service, otherOptions);
  EXPECT_FALSE(third.listen(error));
  EXPECT_THAT(error, testing::HasSubstr("holds no lock"));
  Ipc::Client probe;
  EXPECT_TRUE(probe.connect(other, error)) << "the file was left alone: " << error;
  ::close(live);

  // Once the first server goes, its path is free again; its lock file stays.
  client.reset();
  server.reset();
  EXPECT_TRUE(std::filesystem::exists(options.socketPath + ".lock"));
  listen();
}

TEST_F(SocketTest, OutOfDescriptorsAcceptingPausesAndIsLoggedOnce) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizers open a pipe for each check of an object's type, and no descriptor is left: the "
                  "release build runs this";
#endif
  Platform::CapturingLogSink logs;
  options.acceptBackoff = 0.2;
  listen();
  rlimit saved{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
  // Every descriptor taken but the two the clients need: the server's accept then fails.
  std::vector<int> held;
  rlimit low = saved;
  low.rlim_cur = 256;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
  for (int fd; (fd = ::dup(0)) >= 0;) held.push_back(fd);
  for (int i = 0; i < 2; ++i) {
    ::close(held.back());
    held.pop_back();
  }
  Ipc::Client client;
  Ipc::Client second;
  std::string error;
  const bool connected = client.connect(options.socketPath, error) && second.connect(options.socketPath, error);
  scheduler.runFor(0.5);  // some 30,000 turns of the loop if accepting spun
  // One descriptor freed while two connections wait: one is taken, the other still cannot be, and
  // that is the same spell.
  ::close(held.back());
  held.pop_back();
  scheduler.runFor(0.5);
  const uint64_t pauses = server->counters().acceptPauses;
  for (int fd : held) ::close(fd);
  ::setrlimit(RLIMIT_NOFILE, &saved);
  ASSERT_TRUE(connected) << error;
  EXPECT_GE(pauses, 1u);
  EXPECT_LE(pauses, 8u) << "accepting waits between tries";
  EXPECT_EQ(logs.count("LLDP_SOCKET_ACCEPT_PAUSED"), 1u);
  // Descriptors free again: the waiting client is served.
  client.sendRaw("{\"op\":\"hello\"}\n");
  std::optional<Json> reply;
  for (int i = 0; i < 100 && !reply; ++i) {
    scheduler.runFor(0.01);
    reply = client.nextMessage(0);
  }
  ASSERT_TRUE(reply);
  EXPECT_TRUE((*reply)["ok"]);
}

// A process of another user that opens connections until one is refused, reports how many it
// got and the refusal, and keeps them open until its pipe closes.
struct Stranger {
  pid_t pid = -1;
  int report = -1;  // read: the count, then the refusal text
  int hold = -1;    // closed to let it go
  Stranger(const std::string& path, uid_t uid, int most) {
    int up[2], down[2];
    if (::pipe(up) != 0 || ::pipe(down) != 0) return;
    pid = ::fork();
    if (pid == 0) {
      ::close(up[0]);
      ::close(down[1]);
      if (::setgid(uid) != 0 || ::setuid(uid) != 0) _exit(3);
      std::vector<std::unique_ptr<Ipc::Client>> clients;
      std::string refusal;
      for (int i = 0; i < most && refusal.empty(); ++i) {
        auto c = std::make_unique<Ipc::Client>();
        std::string error;
        if (!c->connect(path, error)) _exit(4);
        auto reply = c->request({{"op", "hello"}}, 5);
        if (reply && reply->value("ok", false)) {
          clients.push_back(std::move(c));
        } else {
          // The refusal comes unasked, before the connection closes.
          auto early = c->nextMessage(0);
          refusal = early ? early->dump() : reply ? reply->dump() : "closed";
        }
      }
      const std::string text = std::to_string(clients.size()) + " " + refusal;
      [[maybe_unused]] ssize_t n = ::write(up[1], text.data(), text.size());
      ::close(up[1]);
      char c;
      [[maybe_unused]] ssize_t r = ::read(down[0], &c, 1);
      _exit(0);
    }
    ::close(up[1]);
    ::close(down[0]);
    report = up[0];
    hold = down[1];
  }
  ~Stranger() {
    ::close(hold);
    ::close(report);
    if (pid > 0) ::waitpid(pid, nullptr, 0);
  }
};

TEST_F(SocketTest, NoUserCanTakeEveryConnectionAndTheLastAreRoots) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to connect as other users";
  options.maxClients = 6;
  options.maxClientsPerUid = 2;
  options.rootReserve = 2;
  options.mode = 0666;
  ::chmod(dir.c_str(), 0755);
  listen();
  // Each stranger's report, while the server turns.
  const auto reportOf = [&](Stranger& s) {
    ::fcntl(s.report, F_SETFL, O_NONBLOCK);
    std::string text;
    for (int i = 0; i < 500; ++i) {
      scheduler.runFor(0.01);
      char buffer[512];
      const ssize_t n = ::read(s.report, buffer, sizeof buffer);
      if (n > 0) text.append(buffer, static_cast<size_t>(n));
      if (n == 0) break;
    }
    return text;
  };
  Stranger first(options.socketPath, 65534, 5);
  EXPECT_THAT(reportOf(first), testing::MatchesRegex("2 .*too many clients of uid 65534 \\(2 per user\\).*"));
  Stranger second(options.socketPath, 65533, 5);
  EXPECT_THAT(reportOf(second), testing::StartsWith("2 "));
  Stranger third(options.socketPath, 65532, 5);
  EXPECT_THAT(reportOf(third), testing::MatchesRegex("0 .*kept for root.*"));
  auto root1 = connect();
  auto root2 = connect();
  EXPECT_TRUE(ask(*root1, "{\"op\":\"hello\"}"));
  EXPECT_TRUE(ask(*root2, "{\"op\":\"hello\"}"));
  EXPECT_EQ(server->clients(), 6u);
}

std::vector<uint8_t> lldpdu(uint32_t chassis, const std::string& sysDesc) {
  const Konet::EthAddr mac(2, 0, 0, 0, static_cast<uint8_t>(chassis >> 8), static_cast<uint8_t>(chassis));
  std::vector<uint8_t> out = TestSupport::Lldpdu(mac, "swp1", 120).tlv(6, sysDesc).pdu();
  out.resize(out.size() + Lldp::kRxSlack, 0);
  return out;
}

TEST_F(SocketTest, ALargeNeighbourTableArrivesInPiecesExactlyAsTheRecordsRead) {
  Platform::logSinkIs([](const Platform::LogRecord&) {});
  auto status = db.mountIs<Lldp::Status>("l2discovery/lldp/status/all", "w");
  auto pc = Platform::make<Lldp::PortConfig>(Konet::IntfId("eth1"));
  pc->maxRemoteSystemsIs(1000);
  auto ps = status->portStatusIs(Konet::IntfId("eth1"), 0.0);
  for (uint32_t n = 1; n <= 600; ++n) {
    const auto frame = lldpdu(n, "neighbour " + std::to_string(n) + " " + std::string(200, 'x'));
    Lldp::processRxLldpdu(frame.data(), frame.data() + frame.size() - Lldp::kRxSlack, *pc, *status, *ps,
                          Konet::EthAddr(2, 0, 0, 0, 0, 1), 0.0);
  }
  ASSERT_EQ(ps->remoteSystems(), 600u);
  listen();
  std::atomic<bool> done{false};
  size_t pieces = 0;
  std::string streamed;
  bool ended = false;
  std::thread reader([&] {
    Ipc::Client client;
    std::string error;
    if (client.connect(options.socketPath, error)) {
      ended = client.requestStream({{"op", "neighbors"}}, [&](std::string_view piece, bool last) {
        ++pieces;
        streamed += piece;
        ended = last;
      });
    }
    done = true;
  });
  while (!done) scheduler.runFor(0.005);
  reader.join();
  ASSERT_TRUE(ended);
  EXPECT_GT(pieces, 1u) << "a reply of " << streamed.size() << " bytes in one piece";
  Json reply = Json::parse(streamed);
  EXPECT_TRUE(reply["ok"]);
  Json neighbours = Json::array();
  for (const auto& [index, rs] : ps->remoteSystem()) neighbours.push_back(Platform::recordToJson(*rs));
  ASSERT_EQ(reply["portStatus"].size(), 1u);
  EXPECT_EQ(reply["portStatus"][0]["remoteSystem"], neighbours);
}

}  // namespace
}  // namespace IpcTest
