// Two real agents on a veth pair between network namespaces, driven with the real `lldp`: what
// each learns of the other, run-time changes reaching the peer, clearing, reload, shutdown, and
// the reasons `lldp watch` gives for a real link and a real time-out. These need root (CI runs them so).
#include <gmock/gmock.h>

#include "Processes.h"

namespace Daemon::Test {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

class PeersTest : public PeersFixture {};

TEST_F(PeersTest, AgentsLearnEachOtherFollowChangesKeepNeighboursOnReloadAndStopInOrder) {
  ASSERT_NO_FATAL_FAILURE(start(a_, "transmit-interval = 5\nsystem.name = \"alpha\"\n"));
  const pid_t watchA = watch(a_);
  ASSERT_NO_FATAL_FAILURE(start(b_, "transmit-interval = 5\nhold-time = 40\nsystem.name = \"beta\"\n"
                                    "system.chassis-id = \"02:00:00:00:ee:0b\"\n"));

  // Each learns the other with the fields the other says of itself.
  const Json fromB = neighbourOnceIt(a_, anyone, 10s);
  ASSERT_TRUE(fromB.is_object()) << readFile(a_.log) << readFile(b_.log);
  const Json localB = localOf(b_);
  EXPECT_EQ(fromB["msap"]["chassisIdentifier"], Json({{"subtype", 4}, {"value", "02:00:00:00:ee:0b"}}));
  EXPECT_EQ(fromB["msap"]["portIdentifier"], Json({{"subtype", 5}, {"value", "eeb0"}}));
  EXPECT_EQ(fromB["sysName"], "beta");
  EXPECT_EQ(fromB["ttl"], 40);
  EXPECT_EQ(fromB["sysDesc"], localB["sysDesc"]);
  EXPECT_NE(fromB["sysDesc"], "");
  EXPECT_EQ(fromB["sysCapSupported"], localB["sysCapSupported"]);
  EXPECT_EQ(fromB["sysCapEnabled"], localB["sysCapEnabled"]);
  EXPECT_NE(fromB["sysCapSupported"], 0);
  const Json fromA = neighbourOnceIt(b_, anyone, 10s);
  ASSERT_TRUE(fromA.is_object()) << readFile(b_.log);
  EXPECT_EQ(fromA["msap"]["chassisIdentifier"], localOf(a_)["chassisIdentifier"]);
  EXPECT_EQ(fromA["msap"]["portIdentifier"]["value"], "eea0");
  EXPECT_EQ(fromA["sysName"], "alpha");
  EXPECT_EQ(fromA["ttl"], 120);

  // The table people read: one row per neighbour, capabilities by name.
  const auto [shown, table] = lldp(a_, {"show", "neighbors"});
  EXPECT_EQ(shown, 0);
  EXPECT_THAT(table, ContainsRegex("eea0 +02:00:00:00:ee:0b +eeb0 +beta +bridge"));
  EXPECT_THAT(table, HasSubstr("Neighbors: 1"));

  // A run-time change on B reaches A within the transmit delay.
  EXPECT_EQ(lldp(b_, {"configure", "system.name", "beta-renamed"}).first, 0);
  EXPECT_TRUE(hears(a_, [](const Json& n) { return n["sysName"] == "beta-renamed"; }, kChangeLimit));

  // SIGHUP reloads the changed file and keeps what A learnt.
  const Json before = neighbours(a_);
  std::ofstream(file("a.toml")) << "transmit-interval = 5\nsystem.name = \"alpha2\"\nhold-time = 60\n";
  kill(a_.pid, SIGHUP);
  ASSERT_TRUE(eventually([&] { return readFile(a_.log).find("LLDP_CONFIG_APPLIED") != std::string::npos; }, 5s));
  EXPECT_THAT(readFile(a_.log), HasSubstr("changed: hold-time, system.name"));
  // The hold time is no local record, yet goes out as promptly as the name.
  EXPECT_TRUE(hears(b_, [](const Json& n) { return n["sysName"] == "alpha2" && n["ttl"] == 60; }, kChangeLimit));
  EXPECT_EQ(occurrences(readFile(a_.log), "LLDP_NEIGHBOR_NEW"), 1u);

  // Clearing empties A's table at once and is logged once, with who asked.
  EXPECT_EQ(lldp(a_, {"clear", "neighbors"}).first, 0);
  for (const Json& n : neighbours(a_)) EXPECT_NE(n["index"], before[0]["index"]) << "not cleared";
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(occurrences(readFile(a_.log), "LLDP_REMOTE_TABLES_CLEARED"), 1u) << readFile(a_.log);
  EXPECT_THAT(readFile(a_.log), HasSubstr("LLDP neighbor table cleared by root on lldp clear neighbors"));

  // SIGTERM: the socket closes first (the watch ends), then the agent, and the process exits 0
  // within a second with the stop as its last word.
  const auto stopAt = std::chrono::steady_clock::now();
  kill(a_.pid, SIGTERM);
  EXPECT_EQ(waitFor(a_.pid, 1s * kSlowdown), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - stopAt, 1s * kSlowdown);
  forget(a_.pid);
  EXPECT_EQ(waitFor(watchA, 1s * kSlowdown), 1);
  forget(watchA);
  EXPECT_THAT(readFile(file("watch-a.jsonl")), HasSubstr("the agent went away"));
  EXPECT_FALSE(std::filesystem::exists(a_.socket));
  const std::string log = readFile(a_.log);
  const size_t cleanup = log.rfind("Agent::doCleanup()");
  const size_t stopped = log.rfind("LLDP agent stopped on SIGTERM");
  ASSERT_NE(cleanup, std::string::npos);
  ASSERT_NE(stopped, std::string::npos);
  EXPECT_LT(cleanup, stopped);
  EXPECT_THAT(log.substr(stopped), Not(HasSubstr("\n%")));
}

TEST_F(PeersTest, WatchSaysWhyNeighboursGo) {
  ASSERT_NO_FATAL_FAILURE(start(a_, "transmit-interval = 5\n"));
  const pid_t watchA = watch(a_);
  ASSERT_NO_FATAL_FAILURE(start(b_, "transmit-interval = 5\nhold-time = 10\nsystem.name = \"beta\"\n"));
  ASSERT_TRUE(neighbourOnceIt(a_, anyone, 10s).is_object()) << readFile(a_.log);

  // B's side of the link goes down: A's side loses its carrier and its neighbour with it.
  ASSERT_TRUE(run("ip -n " + b_.ns + " link set eeb0 down"));
  EXPECT_TRUE(eventually([&] { return neighbours(a_).empty(); }, 2s));
  ASSERT_TRUE(run("ip -n " + b_.ns + " link set eeb0 up"));
  // Both ports wait out their re-initialisation and transmit delays before B is back.
  ASSERT_TRUE(neighbourOnceIt(a_, anyone, 10s).is_object()) << readFile(a_.log);

  // B dies without a word: A forgets it when its time to live (10 s) runs out.
  const auto killedAt = std::chrono::steady_clock::now();
  kill(b_.pid, SIGKILL);
  waitFor(b_.pid, 1s);
  forget(b_.pid);
  EXPECT_TRUE(eventually([&] { return neighbours(a_).empty(); }, 12s));
  EXPECT_GT(std::chrono::steady_clock::now() - killedAt, 4s);  // not before B's last frame ran out

  ASSERT_TRUE(eventually([&] { return events(a_).size() >= 4; }, 2s)) << readFile(file("watch-a.jsonl"));
  std::vector<std::string> seen;
  for (const Json& e : events(a_)) {
    seen.push_back(e.value("kind", "") + "/" + e.value("reason", "") + "/" + e["value"].value("sysName", ""));
  }
  EXPECT_THAT(seen, ::testing::ElementsAre("added/new/beta", "removed/link down/beta", "added/new/beta",
                                           "removed/aged out/beta"));
  EXPECT_EQ(occurrences(readFile(a_.log), "LLDP_NEIGHBOR_TIMEOUT"), 1u);
  kill(watchA, SIGTERM);
}

}  // namespace
}  // namespace Daemon::Test
