// A neighbour whose identifiers and names carry terminal escapes, line breaks and bytes that are
// no UTF-8, heard by a real agent: what people read (tables, details, watch, the log) shows
// them escaped; JSON keeps them as JSON does. Needs root (CI runs it so).
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>

#include "Processes.h"
#include "ipc/Client.h"

namespace Daemon::Test {
namespace {

using ::testing::HasSubstr;

// Sends one Ethernet frame on an interface of a network namespace, from a child that enters it.
bool sendIn(const std::string& ns, const std::string& intf, const std::string& frame) {
  const pid_t pid = fork();
  if (pid == 0) {
    const int nsFd = ::open(("/var/run/netns/" + ns).c_str(), O_RDONLY | O_CLOEXEC);
    if (nsFd < 0 || ::setns(nsFd, CLONE_NEWNET) != 0) _exit(2);
    const int fd = ::socket(AF_PACKET, SOCK_RAW, 0);
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = static_cast<int>(::if_nametoindex(intf.c_str()));
    to.sll_halen = 6;
    if (fd < 0 || to.sll_ifindex == 0) _exit(3);
    const ssize_t n = ::sendto(fd, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    _exit(n == static_cast<ssize_t>(frame.size()) ? 0 : 4);
  }
  return waitFor(pid, 5s) == 0;
}

std::string tlv(int type, const std::string& value) {
  const size_t header = (static_cast<size_t>(type) << 9) | value.size();
  return std::string{static_cast<char>(header >> 8), static_cast<char>(header & 0xff)} + value;
}

class HostileTest : public PeersFixture {};

TEST_F(HostileTest, EscapesNewlinesAndBrokenUtf8FromTheWireNeverReachATerminalOrTheLogRaw) {
  ASSERT_NO_FATAL_FAILURE(start(a_, "transmit-interval = 5\n"));
  const pid_t watcher = watch(a_);
  const pid_t textWatcher =
      started(spawn({LLDP_CLI_BINARY, "--socket", a_.socket, "watch"}, file("watch-text.out")));
  ASSERT_TRUE(eventually([&] { return statusOf(a_).value("subscriptions", 0) >= 2; }, 5s));

  const std::string chassis = std::string("\x07") + "evil\x1b[2J\x1b[H\nLLDP_AGENT_STOPPED forged \xff";
  const std::string name = "\x1b]0;pwned\x07name\r\nsecond line \xfe\xc3";
  const std::string lldpdu = tlv(1, chassis) + tlv(2, std::string("\x05") + "p\x1b[31m1") +
                             tlv(3, std::string("\x00\x78", 2)) + tlv(4, "\xe2\x80\xae" "lanigiro") +
                             tlv(5, name) + tlv(0, "");
  const std::string frame = std::string("\x01\x80\xc2\x00\x00\x0e\x02\x00\x00\x00\x00\x42\x88\xcc", 14) + lldpdu;
  ASSERT_TRUE(sendIn(b_.ns, b_.intf, frame));
  ASSERT_TRUE(eventually([&] { return neighbours(a_).size() == 1; }, 5s)) << readFile(a_.log);

  // A client's free text reaches the log too.
  {
    Ipc::Client client;
    std::string error;
    ASSERT_TRUE(client.connect(a_.socket, error)) << error;
    auto reply = client.request({{"op", "clear"}, {"origin", "tty1\nLLDP_AGENT_STOPPED forged \x1b[8m"}}, 5);
    ASSERT_TRUE(reply && reply->value("ok", false));
    ASSERT_TRUE(eventually([&] { return readFile(a_.log).find("LLDP_REMOTE_TABLES_CLEARED") != std::string::npos; }, 5s));
    ASSERT_TRUE(sendIn(b_.ns, b_.intf, frame));  // learnt again
    ASSERT_TRUE(eventually([&] { return neighbours(a_).size() == 1; }, 5s));
  }
  const std::string table = lldp(a_, {"show", "neighbors"}).second;
  const std::string detail = lldp(a_, {"show", "neighbors", "--detail"}).second;
  ASSERT_TRUE(eventually([&] { return readFile(file("watch-text.out")).find("added") != std::string::npos; }, 5s));
  const std::string watched = readFile(file("watch-text.out"));
  const std::string log = readFile(a_.log);
  for (const auto& [view, text] : {std::pair{"table", table}, {"detail", detail}, {"watch", watched}, {"log", log}}) {
    SCOPED_TRACE(view);
    for (const char raw : {'\x1b', '\x07', '\r', '\xff', '\xfe'}) EXPECT_EQ(text.find(raw), std::string::npos) << text;
    EXPECT_EQ(text.find("\nLLDP_AGENT_STOPPED"), std::string::npos) << "no line begins with forged text";
    // Identifiers that are no text are shown as bytes.
    EXPECT_THAT(text, HasSubstr("65:76:69:6c:1b:5b:32:4a"));
  }
  // Names are shown escaped; bytes that are no UTF-8 arrive from the agent's JSON as U+FFFD.
  for (const std::string& text : {table, detail, watched}) {
    EXPECT_THAT(text, HasSubstr("\\x1b]0;pwned\\x07name\\r\\nsecond line \xef\xbf\xbd\xef\xbf\xbd"));
  }
  EXPECT_THAT(detail, HasSubstr("\\u202elanigiro"));
  EXPECT_THAT(log, HasSubstr("on tty1\\nLLDP_AGENT_STOPPED forged \\x1b[8m (state socket"));

  // JSON carries the names as JSON escapes them: control characters as \u001b and the like.
  const Json neighbour = neighbours(a_)[0];
  EXPECT_EQ(neighbour["sysName"].get<std::string>().substr(0, 10), "\x1b]0;pwned\x07");
  ASSERT_TRUE(eventually([&] { return !events(a_).empty(); }, 5s));
  EXPECT_EQ(events(a_)[0]["value"]["sysName"].get<std::string>().substr(0, 10), "\x1b]0;pwned\x07");
  kill(watcher, SIGTERM);
  kill(textWatcher, SIGTERM);
}

}  // namespace
}  // namespace Daemon::Test
