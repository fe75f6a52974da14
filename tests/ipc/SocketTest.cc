// The state socket in real time: framing, oversized requests, the client limit,
// the file's mode, and a subscriber that never reads.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
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
    options.socketPath = dir + "/lldp.sock";
    options.maxRequestBytes = 1024;
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
  auto reply = ask(*client, "{\"op\":\"get\",\"path\":\"" + std::string(5000, 'x') + "\"}");
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

  FILE* f = std::fopen(path.c_str(), "w");
  std::fclose(f);
  server = std::make_unique<Ipc::Server>(scheduler, service, options);
  std::string error;
  EXPECT_FALSE(server->listen(error));
  EXPECT_THAT(error, testing::HasSubstr("not a socket"));
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
