// The `lldp` command as a person meets it: help at every level, exit status 2 for a wrong command
// line and 1 when the agent cannot be asked, each time one line on standard error saying why
// and what to do.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace CliTest {
namespace {

using testing::HasSubstr;

struct Outcome {
  int status = -1;
  std::string out, err;
};

struct UsageTest : ::testing::Test {
  std::string dir;
  UsageTest() {
    char pattern[] = "/tmp/lldp-usage-XXXXXX";
    dir = ::mkdtemp(pattern);
    ::chmod(dir.c_str(), 0755);
  }
  ~UsageTest() override { std::filesystem::remove_all(dir); }

  // The command run with LLDP_SOCKET at an absent socket unless the arguments name another.
  Outcome lldp(const std::string& args, const std::string& prefix = "", const std::string& binary = LLDP_CLI_BINARY) {
    const std::string command = prefix + "env LLDP_SOCKET=" + dir + "/absent.sock " + binary + " " + args +
                                " >" + dir + "/out 2>" + dir + "/err </dev/null";
    Outcome run;
    const int raw = std::system(command.c_str());
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    std::ostringstream out, err;
    out << std::ifstream(dir + "/out").rdbuf();
    err << std::ifstream(dir + "/err").rdbuf();
    run.out = out.str();
    run.err = err.str();
    return run;
  }
};

size_t lines(const std::string& text) { return static_cast<size_t>(std::count(text.begin(), text.end(), '\n')); }

TEST_F(UsageTest, HelpAtEveryLevel) {
  for (const char* command : {"", "show", "show neighbors", "show interfaces", "show local", "show statistics",
                              "show config", "show classification", "show status", "configure", "unconfigure",
                              "config", "config save", "clear", "clear neighbors", "tlv", "tlv add", "tlv del",
                              "watch", "decode", "completion"}) {
    const Outcome run = lldp(std::string(command) + " --help");
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_THAT(run.out, HasSubstr("Usage:")) << command;
    EXPECT_TRUE(run.err.empty()) << command << ": " << run.err;
  }
}

TEST_F(UsageTest, AWrongCommandLineIsStatusTwoWithOneLineNamingTheCommandAndItsHelp) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "lldp: a command is needed: show, configure"},
      {"bogus", "lldp: unknown command 'bogus'"},
      {"show", "lldp show: a command is needed: neighbors"},
      {"show bogus", "lldp show: unknown command 'bogus'"},
      {"show neighbors --bogus", "lldp show neighbors: "},
      {"configure", "lldp configure: expected [interface IFACE] KEY VALUE"},
      {"configure interface Ethernet1 enabled", "lldp configure: expected [interface IFACE] KEY VALUE"},
      {"unconfigure a b", "lldp unconfigure: expected [interface IFACE] KEY"},
      {"unconfigure interface", "lldp unconfigure: expected [interface IFACE] KEY"},
      {"clear neighbors a b", "lldp clear neighbors: "},
      {"tlv add Ethernet1 00-11-22 256 0a", "lldp tlv add: "},
      {"decode", "lldp decode: give either a capture file or --hex"},
  };
  for (const auto& [args, start] : cases) {
    const Outcome run = lldp(args);
    EXPECT_EQ(run.status, 2) << args;
    EXPECT_THAT(run.err, testing::StartsWith(start)) << args;
    EXPECT_THAT(run.err, HasSubstr("--help')")) << args;
    EXPECT_EQ(lines(run.err), 1u) << args << ": " << run.err;
    EXPECT_TRUE(run.out.empty()) << args;
  }
}

// `lldp decode` hands the request to lldp-decode: every form of it must arrive whole.
TEST_F(UsageTest, DecodeRunsTheDecoderWithTheRequestAsGiven) {
  const std::string lldpdu = "02 07 04 02 00 00 00 00 01 04 05 05 65 74 68 30 06 02 00 78 00 00";
  Outcome run = lldp("decode --hex '" + lldpdu + "'");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("Neighbors: 1"));
  run = lldp("--socket x decode --hex - --json");  // standard input, here empty
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "lldp decode: no bytes given\n");
  std::ofstream(dir + "/-not-an-option") << "not a capture";
  run = lldp("decode --json -- " + dir + "/-not-an-option");
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, testing::StartsWith("lldp decode: "));
  EXPECT_THAT(run.err, HasSubstr("-not-an-option"));
  EXPECT_EQ(lines(run.err), 1u) << run.err;
}

TEST_F(UsageTest, NoAgentIsStatusOneWithOneLineSayingWhatToDo) {
  for (const char* args : {"show neighbors", "show status --json", "configure enabled false", "clear neighbors Ethernet1",
                           "watch", "config save", "tlv del"}) {
    const Outcome run = lldp(args);
    EXPECT_EQ(run.status, 1) << args;
    EXPECT_EQ(lines(run.err), 1u) << args << ": " << run.err;
    EXPECT_THAT(run.err, HasSubstr("not running")) << args;
    EXPECT_THAT(run.err, HasSubstr("start it")) << args;
    EXPECT_TRUE(run.out.empty()) << args;
  }
  // --socket after the command counts as well as before it.
  const Outcome run = lldp("show status --socket " + dir + "/other.sock");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr(dir + "/other.sock"));
  // `lldp topology` is a program of its own: the options given before the word reach it.
  const Outcome topology = lldp("--json --socket " + dir + "/other.sock topology");
  EXPECT_EQ(topology.status, 2);
  EXPECT_THAT(topology.err, HasSubstr(dir + "/other.sock"));
}

TEST_F(UsageTest, PermissionDeniedIsStatusOneWithOneLineSayingWhatToDo) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to run lldp as an unprivileged user against root's socket";
  const std::string path = dir + "/lldp.sock";
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path.c_str());
  ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  ASSERT_EQ(::listen(fd, 4), 0);
  ::chmod(path.c_str(), 0660);
  // A copy the other user may run: the checkout may lie where only root can enter.
  const std::string copy = dir + "/lldp";
  std::filesystem::copy_file(LLDP_CLI_BINARY, copy);
  ::chmod(copy.c_str(), 0755);
  const Outcome run =
      lldp("--socket " + path + " show status", "setpriv --reuid=65534 --regid=65534 --clear-groups ", copy);
  ::close(fd);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(lines(run.err), 1u) << run.err;
  EXPECT_THAT(run.err, HasSubstr("permission denied"));
  EXPECT_THAT(run.err, HasSubstr("member of the socket's group"));
}

}  // namespace
}  // namespace CliTest
