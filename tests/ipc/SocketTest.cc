// The state socket in real time: framing, garbage and oversized requests, the client limit,
// the file's mode, and a subscriber that never reads.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "ipc/Client.h"
#include "ipc/Server.h"
#include "linux/AsioScheduler.h"
#include "records/LldpRecords.h"

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

TEST_F(SocketTest, GarbageAndOversizedRequestsAreAnsweredAndTheConnectionStaysUsable) {
  listen();
  auto client = connect();
  auto reply = ask(*client, "\x01\x02 garbage");
  ASSERT_TRUE(reply);
  EXPECT_EQ((*reply)["error"]["code"], "badRequest");
  reply = ask(*client, "{\"op\":\"get\",\"path\":\"" + std::string(5000, 'x') + "\"}");
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

TEST_F(SocketTest, ConnectingWithoutAnAgentSaysSo) {
  Ipc::Client client;
  std::string error;
  EXPECT_FALSE(client.connect(dir + "/absent.sock", error));
  EXPECT_EQ(client.failure(), Ipc::Client::Failure::notRunning);
  EXPECT_THAT(error, testing::HasSubstr("not running"));
}

}  // namespace
}  // namespace IpcTest
