// The metrics endpoint over real loopback sockets on the real scheduler, its configuration keys,
// and the textfile in virtual time.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>

#include "daemon/ConfigSchema.h"
#include "linux/AsioScheduler.h"
#include "metrics/Endpoint.h"
#include "platform/Log.h"

namespace {

namespace fs = std::filesystem;

// Sends request to 127.0.0.1:port from `from` and reads until the server closes; "" when it
// cannot connect.
std::string exchange(uint16_t port, const std::string& request, const char* from = "127.0.0.1") {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in source{};
  source.sin_family = AF_INET;
  ::inet_pton(AF_INET, from, &source.sin_addr);
  ::bind(fd, reinterpret_cast<sockaddr*>(&source), sizeof source);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  timeval timeout{10, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  std::string reply;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
      ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size())) {
    char buf[65536];
    for (ssize_t n; (n = ::recv(fd, buf, sizeof buf, 0)) > 0;) reply.append(buf, static_cast<size_t>(n));
  }
  ::close(fd);
  return reply;
}

std::string get(const std::string& path, const std::string& method = "GET") {
  return method + " " + path + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n";
}

struct EndpointTest : ::testing::Test {
  Linux::AsioScheduler scheduler;
  std::string pageText = "lldp_agent_info{version=\"t\"} 1\n";
  int renders = 0;
  Metrics::Endpoint endpoint{scheduler, [this](std::string& page) {
                               ++renders;
                               page += pageText;
                             }};
  Platform::CapturingLogSink logs;

  // Runs the event loop until the exchange, made on another thread, is over.
  std::string ask(const std::string& request, const char* from = "127.0.0.1") {
    const uint16_t port = endpoint.server()->port();
    auto reply = std::async(std::launch::async, [=] { return exchange(port, request, from); });
    while (reply.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready) scheduler.runFor(0.005);
    return reply.get();
  }
};

TEST_F(EndpointTest, ServesThePageOnGetAndHeadAndRefusesTheRest) {
  ASSERT_TRUE(endpoint.settingsIs({"127.0.0.1:0", "", 15}).empty());
  ASSERT_NE(endpoint.server(), nullptr);
  EXPECT_NE(endpoint.server()->port(), 0);

  const std::string ok = ask(get("/metrics"));
  EXPECT_TRUE(ok.starts_with("HTTP/1.1 200")) << ok;
  EXPECT_NE(ok.find("Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n"), std::string::npos) << ok;
  EXPECT_TRUE(ok.ends_with("\r\n\r\n" + pageText)) << ok;
  EXPECT_EQ(renders, 1);

  const std::string head = ask(get("/metrics", "HEAD"));
  EXPECT_TRUE(head.starts_with("HTTP/1.1 200")) << head;
  EXPECT_TRUE(head.ends_with("\r\n\r\n")) << head;

  EXPECT_TRUE(ask(get("/other")).starts_with("HTTP/1.1 404")) ;
  const std::string post = ask("POST /metrics HTTP/1.1\r\nHost: x\r\nContent-Length: 3\r\nConnection: close\r\n\r\nabc");
  EXPECT_TRUE(post.starts_with("HTTP/1.1 405")) << post;
  EXPECT_NE(post.find("Allow: GET, HEAD"), std::string::npos) << post;
  EXPECT_EQ(endpoint.server()->counters().notFound, 1u);
  EXPECT_EQ(endpoint.server()->counters().badMethod, 1u);
  // Bytes that are not HTTP get an error from the library, and the endpoint goes on.
  EXPECT_TRUE(ask("\x01\x02 garbage\r\n\r\n").starts_with("HTTP/1.1 400"));
  EXPECT_TRUE(ask(get("/metrics")).starts_with("HTTP/1.1 200"));
}

TEST_F(EndpointTest, ALargePageArrivesWholeWhileAnIdleClientWaits) {
  ASSERT_TRUE(endpoint.settingsIs({"127.0.0.1:0", "", 15}).empty());
  // Clients that connect and say nothing must not hold up the scrape: past its share of the
  // connections, such a host is turned away, and a scraper from another address is served.
  std::vector<int> idle;
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(endpoint.server()->port());
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  for (int i = 0; i < 40; ++i) {
    idle.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::connect(idle.back(), reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  }
  scheduler.runFor(0.05);
  EXPECT_EQ(ask(get("/metrics")), "");  // the same host once more: closed at once

  // Far more than a socket buffer: the library writes it over many loop turns.
  pageText.clear();
  for (int i = 0; i < 40000; ++i) pageText += "lldp_port_tx_frames_total{interface=\"eth" + std::to_string(i) + "\"} 1\n";
  const std::string reply = ask(get("/metrics"), "127.0.0.2");
  EXPECT_TRUE(reply.ends_with(pageText)) << reply.size() << " bytes of " << pageText.size();
  for (const int fd : idle) ::close(fd);
}

TEST_F(EndpointTest, AddressesThatCannotBeUsedAreReportedAndTheNextChangeTriesAgain) {
  ASSERT_TRUE(endpoint.settingsIs({"127.0.0.1:0", "", 15}).empty());
  const uint16_t taken = endpoint.server()->port();

  Metrics::Endpoint second(scheduler, [](std::string&) {});
  const auto problems = second.settingsIs({"127.0.0.1:" + std::to_string(taken), "", 15});
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0], "metrics.listen: 127.0.0.1:" + std::to_string(taken) + ": Address already in use");
  EXPECT_EQ(second.server(), nullptr);
  EXPECT_TRUE(logs.count("LLDP_METRICS_LISTEN_FAILED") == 1u);

  // Moving the first endpoint frees the port; unsetting stops it.
  ASSERT_TRUE(endpoint.settingsIs({"[::1]:0", "", 15}).empty());
  EXPECT_TRUE(second.settingsIs({"127.0.0.1:" + std::to_string(taken), "", 15}).empty());
  EXPECT_NE(second.server(), nullptr);
  EXPECT_TRUE(endpoint.settingsIs({"", "", 15}).empty());
  EXPECT_EQ(endpoint.server(), nullptr);
}

TEST(MetricsConfigTest, ListenAddressesAndTextfilePaths) {
  Daemon::Settings s;
  using Daemon::ConfigSchema;
  for (const char* good : {"9100", "127.0.0.1:9100", "[::1]:9100", "[::]", "0.0.0.0", "::1", ""}) {
    EXPECT_FALSE(ConfigSchema::setText(s, "", "metrics.listen", good)) << good;
    EXPECT_EQ(s.metricsListen, good);
  }
  EXPECT_EQ([] { std::string w; return Metrics::listenAddressOf("127.0.0.1", w)->port(); }(), Metrics::kDefaultPort);
  std::string why;
  EXPECT_EQ(Metrics::listenAddressOf("[::]", why)->text(), "[::]:9808");
  EXPECT_TRUE(Metrics::listenAddressOf("[::]", why)->dualStack);
  EXPECT_FALSE(Metrics::listenAddressOf("[::1]", why)->dualStack);
  for (const char* bad : {"localhost:9100", "127.0.0.1:99999", "1.2.3.4:", "[::1", "[::1]x", "65536", "a:b:c:1"}) {
    const auto error = ConfigSchema::setText(s, "", "metrics.listen", bad);
    ASSERT_TRUE(error) << bad;
    EXPECT_TRUE(error->text().starts_with("metrics.listen: '")) << error->text();
  }
  EXPECT_TRUE(ConfigSchema::setText(s, "", "metrics.textfile", "lldp.prom")
                  ->text()
                  .starts_with("metrics.textfile: 'lldp.prom' is not an absolute path"));
  EXPECT_TRUE(ConfigSchema::setText(s, "", "metrics.textfile-interval", "0"));
  EXPECT_FALSE(ConfigSchema::setText(s, "", "metrics.textfile-interval", "60"));
  EXPECT_EQ(s.metricsTextfileInterval, 60);
  // They render into the file form and load back.
  EXPECT_FALSE(ConfigSchema::setText(s, "", "metrics.textfile", "/var/lib/node/lldp.prom"));
  EXPECT_NE(ConfigSchema::renderToml(s).find("textfile = \"/var/lib/node/lldp.prom\""), std::string::npos)
      << ConfigSchema::renderToml(s);
}

struct TextfileTest : ::testing::Test {
  Platform::VirtualScheduler scheduler{0};
  fs::path dir = fs::temp_directory_path() / ("lldp-metrics-" + std::to_string(::getpid()));
  int renders = 0;
  Platform::CapturingLogSink logs;
  TextfileTest() { fs::create_directories(dir); }
  ~TextfileTest() override { fs::remove_all(dir); }
  static std::string read(const fs::path& p) {
    std::ifstream in(p);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }
};

TEST_F(TextfileTest, WrittenAtOnceThenEveryIntervalAndRemovedWhenTheAgentStops) {
  const fs::path file = dir / "lldp.prom";
  {
    Metrics::Endpoint endpoint(scheduler, [&](std::string& page) { page += "x " + std::to_string(++renders) + "\n"; });
    ASSERT_TRUE(endpoint.settingsIs({"", file.string(), 10}).empty());
    EXPECT_EQ(read(file), "x 1\n");
    scheduler.runFor(9.9);
    EXPECT_EQ(read(file), "x 1\n");
    scheduler.runFor(0.2);
    EXPECT_EQ(read(file), "x 2\n");
    EXPECT_FALSE(fs::exists(dir / "lldp.prom.tmp"));
    // A new path: the old file goes, the new one is written at once.
    ASSERT_TRUE(endpoint.settingsIs({"", (dir / "other.prom").string(), 10}).empty());
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(read(dir / "other.prom"), "x 3\n");
  }
  EXPECT_FALSE(fs::exists(dir / "other.prom"));
}

TEST_F(TextfileTest, AnUnwritableDirectoryIsLoggedAndRetried) {
  Metrics::Endpoint endpoint(scheduler, [&](std::string& page) { page += "x\n"; });
  const auto problems = endpoint.settingsIs({"", (dir / "missing" / "lldp.prom").string(), 5});
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0], "metrics.textfile: No such file or directory");
  EXPECT_TRUE(logs.count("LLDP_METRICS_TEXTFILE_FAILED") == 1u);
  fs::create_directories(dir / "missing");
  scheduler.runFor(5);
  EXPECT_EQ(read(dir / "missing" / "lldp.prom"), "x\n");
}

}  // namespace
