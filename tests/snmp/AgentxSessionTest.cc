// The AgentX session against a master played by the test on a real UNIX socket: opening and
// registering, answers to GET, GETNEXT and GETBULK, refused SETs, a master that closes or never
// answers, and lldpRemTablesChange throttled to one per interval.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "MibFixture.h"
#include "linux/AsioScheduler.h"
#include "snmp/AgentxSession.h"
#include "snmp/Subagent.h"

namespace Snmp::Test {
namespace {

using namespace Agentx;

// The master's end: a listening socket, and one connection at a time read and written with
// short waits.
class FakeMaster {
 public:
  explicit FakeMaster(std::string path) : path_(std::move(path)) {
    std::filesystem::remove(path_);
    listen_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path_.c_str(), sizeof addr.sun_path - 1);
    EXPECT_EQ(::bind(listen_, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    EXPECT_EQ(::listen(listen_, 4), 0);
  }
  ~FakeMaster() {
    dropClient();
    ::close(listen_);
    std::filesystem::remove(path_);
  }
  bool accept() {
    dropClient();
    client_ = ::accept(listen_, nullptr, nullptr);
    return client_ >= 0;
  }
  void dropClient() {
    if (client_ >= 0) ::close(client_);
    client_ = -1;
    in_.clear();
  }
  // The next packet from the subagent, or nothing within the time.
  std::optional<Pdu> read(int ms = 500) {
    while (true) {
      const size_t length = packetLength(reinterpret_cast<const uint8_t*>(in_.data()), in_.size());
      if (length > 0 && length <= in_.size()) {
        Pdu pdu;
        EXPECT_TRUE(decode(reinterpret_cast<const uint8_t*>(in_.data()), length, pdu));
        in_.erase(0, length);
        return pdu;
      }
      pollfd p{client_, POLLIN, 0};
      if (::poll(&p, 1, ms) <= 0) return std::nullopt;
      char buffer[65536];
      const ssize_t n = ::recv(client_, buffer, sizeof buffer, 0);
      if (n <= 0) return std::nullopt;
      in_.append(buffer, static_cast<size_t>(n));
    }
  }
  void write(const Pdu& pdu) {
    std::string wire;
    ASSERT_TRUE(encode(pdu, wire));
    ASSERT_EQ(::send(client_, wire.data(), wire.size(), MSG_NOSIGNAL), static_cast<ssize_t>(wire.size()));
  }
  void writeRaw(const std::string& bytes) {
    ASSERT_EQ(::send(client_, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  }
  void answer(const Pdu& request, uint16_t error = kNoError) {
    Pdu response;
    response.type = kResponse;
    response.sessionId = request.type == kOpen ? 9 : request.sessionId;
    response.packetId = request.packetId;
    response.sysUpTime = 1000;
    response.error = error;
    write(response);
  }
  Pdu request(PduType type, std::vector<SearchRange> ranges, uint32_t packetId) {
    Pdu pdu;
    pdu.type = type;
    pdu.sessionId = 9;
    pdu.transactionId = packetId;
    pdu.packetId = packetId;
    pdu.ranges = std::move(ranges);
    return pdu;
  }

 private:
  std::string path_;
  int listen_ = -1;
  int client_ = -1;
  std::string in_;
};

class AgentxSessionTest : public MibFixture {
 protected:
  AgentxSessionTest()
      : path_(std::filesystem::temp_directory_path() / ("lldp-agentx-test-" + std::to_string(::getpid()) + ".sock")) {}

  // Runs the event loop until the master has a connection to accept.
  bool accepted(FakeMaster& master) {
    for (int i = 0; i < 50; ++i) {
      scheduler_.runFor(0.02);
      if (master.accept()) return true;
    }
    return false;
  }
  // Connects, opens and registers; the session is ready afterwards.
  void openSession(FakeMaster& master) {
    ASSERT_TRUE(accepted(master));
    const auto open = master.read();
    ASSERT_TRUE(open);
    EXPECT_EQ(open->type, kOpen);
    EXPECT_EQ(open->id, lldpMibOid());
    master.answer(*open);
    scheduler_.runFor(0.05);
    const auto reg = master.read();
    ASSERT_TRUE(reg);
    EXPECT_EQ(reg->type, kRegister);
    EXPECT_EQ(reg->sessionId, 9u);
    EXPECT_EQ(reg->subtree, lldpMibOid());
    master.answer(*reg);
    scheduler_.runFor(0.05);
  }
  std::optional<Pdu> ask(FakeMaster& master, const Pdu& request) {
    master.write(request);
    scheduler_.runFor(0.05);
    return master.read();
  }

  Linux::AsioScheduler scheduler_;
  std::string path_;
};

TEST_F(AgentxSessionTest, OpensRegistersAndAnswersFromTheMib) {
  portIs("eth1", 3);
  neighbourIs("eth1", 1, "a")->sysNameIs(Lldp::BoundedString255("alpha"));
  neighbourIs("eth1", 2, "b")->sysNameIs(Lldp::BoundedString255("beta"));
  FakeMaster master(path_);
  AgentxSession::Options options;
  options.socketPath = path_;
  AgentxSession session(scheduler_, mib(), options);
  int readies = 0;
  session.readyIs([&] { ++readies; });
  session.start();
  ASSERT_NO_FATAL_FAILURE(openSession(master));
  EXPECT_TRUE(session.ready());
  EXPECT_EQ(readies, 1);

  const Oid name = oid("1.0.8802.1.1.2.1.4.1.1.9");
  auto got = ask(master, master.request(kGetNext, {{name, oid("1.0.8802.1.1.3"), false}}, 10));
  ASSERT_TRUE(got);
  EXPECT_EQ(got->type, kResponse);
  EXPECT_EQ(got->packetId, 10u);
  ASSERT_EQ(got->varBinds.size(), 1u);
  EXPECT_EQ(got->varBinds[0].name, oid("1.0.8802.1.1.2.1.4.1.1.9.0.3.1"));
  EXPECT_EQ(got->varBinds[0].value, Value::octets("alpha"));

  // The search range ends before the next instance: end of the view.
  got = ask(master, master.request(kGetNext, {{oid("1.0.8802.1.1.2.1.4.1.1.9.0.3.2"), oid("1.0.8802.1.1.2.1.4.1.1.10"), false}}, 11));
  ASSERT_TRUE(got);
  ASSERT_EQ(got->varBinds.size(), 1u);
  EXPECT_EQ(got->varBinds[0].exception, Exception::endOfMibView);

  auto bulk = master.request(kGetBulk, {{oid("1.0.8802.1.1.2.1.1.1"), {}, false}, {name, {}, false}}, 12);
  bulk.nonRepeaters = 1;
  bulk.maxRepetitions = 3;
  got = ask(master, bulk);
  ASSERT_TRUE(got);
  ASSERT_EQ(got->varBinds.size(), 4u);
  EXPECT_EQ(got->varBinds[0].name, oid("1.0.8802.1.1.2.1.1.1.0"));
  EXPECT_EQ(got->varBinds[2].value, Value::octets("beta"));
  EXPECT_EQ(got->varBinds[3].name, oid("1.0.8802.1.1.2.1.4.1.1.10.0.3.1"));

  got = ask(master, master.request(kGet, {{oid("1.0.8802.1.1.2.1.4.1.1.9.0.3.7"), {}, false}, {oid("1.0.8802.1.1.2.9"), {}, false}}, 13));
  ASSERT_TRUE(got);
  ASSERT_EQ(got->varBinds.size(), 2u);
  EXPECT_EQ(got->varBinds[0].exception, Exception::noSuchInstance);
  EXPECT_EQ(got->varBinds[1].exception, Exception::noSuchObject);

  Pdu set;
  set.type = kTestSet;
  set.sessionId = 9;
  set.packetId = 14;
  set.varBinds = {{oid("1.0.8802.1.1.2.1.1.1.0"), Value::integer(10)}};
  got = ask(master, set);
  ASSERT_TRUE(got);
  EXPECT_EQ(got->error, kNotWritable);
  EXPECT_EQ(session.counters().refusedSets, 1u);

  // The master goes away; the subagent is back as soon as it is.
  std::string lost;
  session.lostIs([&](const std::string& reason) { lost = reason; });
  master.dropClient();
  scheduler_.runFor(0.05);
  EXPECT_FALSE(session.ready());
  EXPECT_EQ(lost, "the master closed the connection");
  ASSERT_NO_FATAL_FAILURE(openSession(master));
  EXPECT_TRUE(session.ready());
  EXPECT_EQ(session.counters().connects, 2u);

  // A packet that does not parse is counted and passed over; the next one is answered.
  std::string garbage(20, '\0');
  garbage[0] = 1;
  garbage[1] = kGetNext;
  garbage[2] = 0x10;  // network byte order
  garbage[19] = 3;    // three bytes of payload: no search range fits
  master.writeRaw(garbage + "xyz");
  got = ask(master, master.request(kGetNext, {{name, {}, false}}, 15));
  ASSERT_TRUE(got);
  EXPECT_EQ(got->packetId, 15u);
  EXPECT_EQ(session.counters().badPackets, 1u);
  EXPECT_TRUE(session.ready());
}

TEST_F(AgentxSessionTest, AMasterThatDoesNotAnswerIsDroppedWithoutWaiting) {
  FakeMaster master(path_);
  AgentxSession::Options options;
  options.socketPath = path_;
  options.answerTimeout = 0.2;
  options.retryInterval = 0.1;
  AgentxSession session(scheduler_, mib(), options);
  session.start();
  ASSERT_TRUE(accepted(master));
  ASSERT_TRUE(master.read());  // the open, never answered
  // The loop is never held up: a tenth of a second of it takes about that.
  const double before = Linux::AsioScheduler::monotonicNow();
  scheduler_.runFor(0.1);
  EXPECT_LT(Linux::AsioScheduler::monotonicNow() - before, 0.09 + 0.5);
  EXPECT_EQ(session.state(), AgentxSession::State::opening);
  scheduler_.runFor(0.15);
  EXPECT_EQ(session.lastError(), "the master did not answer");
  // And tried again (a connection waits in the backlog).
  ASSERT_TRUE(accepted(master));
  const auto open = master.read();
  ASSERT_TRUE(open);
  EXPECT_EQ(open->type, kOpen);
}

TEST_F(AgentxSessionTest, RemTablesChangeIsSentAtMostOncePerInterval) {
  portIs("eth1", 3);
  FakeMaster master(path_);
  SubagentOptions options;
  options.socketPath = path_;
  options.settings.notifications = true;
  options.settings.notificationInterval = 1;
  Subagent subagent(scheduler_, records_, options);
  ASSERT_NO_FATAL_FAILURE(openSession(master));
  ASSERT_TRUE(subagent.session().ready());

  const auto notification = [&]() -> std::optional<Pdu> {
    scheduler_.runFor(0.02);
    return master.read(50);
  };
  neighbourIs("eth1", 1, "a", scheduler_.now());
  auto first = notification();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->type, kNotify);
  ASSERT_EQ(first->varBinds.size(), 6u);  // sysUpTime, snmpTrapOID, the four table counters
  EXPECT_EQ(first->varBinds[1].value, Value::objectId(oid("1.0.8802.1.1.2.0.0.1")));
  EXPECT_EQ(first->varBinds[2].name, oid("1.0.8802.1.1.2.1.2.2.0"));
  master.answer(*first);

  // Two more changes within the interval: one notification, at its end.
  records_.status->remTablesLastChangeTimeIs(scheduler_.now() + 0.001);
  records_.status->remTablesLastChangeTimeIs(scheduler_.now() + 0.002);
  EXPECT_FALSE(notification());
  const double start = Linux::AsioScheduler::monotonicNow();
  std::optional<Pdu> second;
  while (!second && Linux::AsioScheduler::monotonicNow() - start < 2) second = notification();
  ASSERT_TRUE(second);
  EXPECT_EQ(second->type, kNotify);
  scheduler_.runFor(0.2);
  EXPECT_FALSE(master.read(50));
  EXPECT_EQ(subagent.session().counters().notifications, 2u);

  // Off: nothing more.
  options.settings.notifications = false;
  subagent.optionsIs(options);
  records_.status->remTablesLastChangeTimeIs(scheduler_.now() + 5);
  EXPECT_FALSE(notification());
}

TEST_F(AgentxSessionTest, AWalkIsReportedWhileRequestsComeBackToBack) {
  portIs("eth1", 3);
  neighbourIs("eth1", 1, "a");
  FakeMaster master(path_);
  AgentxSession::Options options;
  options.socketPath = path_;
  options.walkQuiet = 0.2;  // far longer than the loop takes to see a lost master
  options.retryInterval = 0.05;
  std::vector<bool> walking;
  const Oid column = oid("1.0.8802.1.1.2.1.4.1.1.9");
  const auto burst = [&](uint32_t firstId) {
    for (uint32_t id = firstId; id < firstId + 4; ++id) master.write(master.request(kGetNext, {{column, {}, false}}, id));
    scheduler_.runFor(0.01);
  };
  {
    AgentxSession session(scheduler_, mib(), options);
    session.walkingIs([&](bool w) { walking.push_back(w); });
    session.start();
    ASSERT_NO_FATAL_FAILURE(openSession(master));
    // Requests far apart, as a poller of a few objects sends them: no walk.
    ASSERT_TRUE(ask(master, master.request(kGetNext, {{column, {}, false}}, 10)));
    ASSERT_TRUE(ask(master, master.request(kGetNext, {{column, {}, false}}, 11)));
    EXPECT_TRUE(walking.empty());
    // Back to back: one walk however many requests, over once the master has been quiet.
    burst(20);
    EXPECT_EQ(walking, (std::vector<bool>{true}));
    scheduler_.runFor(0.3);
    EXPECT_EQ(walking, (std::vector<bool>{true, false}));
    // A walk ends with the session, and with the session's owner.
    burst(30);
    master.dropClient();
    scheduler_.runFor(0.05);
    EXPECT_EQ(walking, (std::vector<bool>{true, false, true, false}));
    ASSERT_NO_FATAL_FAILURE(openSession(master));
    burst(40);
    EXPECT_EQ(walking.size(), 5u);
  }
  EXPECT_EQ(walking, (std::vector<bool>{true, false, true, false, true, false}));
}

}  // namespace
}  // namespace Snmp::Test
