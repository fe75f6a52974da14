// `lldp` commands against a fake agent: tables and JSON from one model, error lines and exit
// statuses, and the requests each command sends.
#include <gmock/gmock.h>

#include <deque>
#include <sstream>

#include "cli/Commands.h"
#include "cli/Model.h"

namespace CliTest {
namespace {

using Cli::Json;
using testing::HasSubstr;

struct FakeAgent : Cli::AgentQuery {
  std::vector<Json> requests;
  std::deque<Json> replies;
  std::deque<Json> events;
  std::optional<Json> ask(const Json& request, std::string&) override {
    requests.push_back(request);
    if (replies.empty()) return Json{{"ok", false}, {"error", {{"code", "x"}, {"message", "no reply scripted"}}}};
    Json reply = replies.front();
    replies.pop_front();
    return reply;
  }
  // Replies as text in the pieces a socket would hand over; the connection breaks after them
  // unless the last one ends the reply.
  std::vector<std::string> pieces;
  bool lastEndsReply = true;
  bool askStream(const Json& request, const Sink& sink, std::string& error) override {
    if (pieces.empty()) return AgentQuery::askStream(request, sink, error);
    requests.push_back(request);
    for (size_t i = 0; i < pieces.size(); ++i) sink(pieces[i], lastEndsReply && i + 1 == pieces.size());
    if (!lastEndsReply) error = "the LLDP agent closed the connection or did not answer";
    return lastEndsReply;
  }
  std::optional<Json> nextEvent() override {
    if (events.empty()) return std::nullopt;
    Json e = events.front();
    events.pop_front();
    return e;
  }
};

Json neighbour(const char* chassis, const char* sysName, double created) {
  return {{"msap", {{"chassisIdentifier", {{"subtype", 4}, {"value", chassis}}},
                    {"portIdentifier", {{"subtype", 5}, {"value", "swp1"}}}}},
          {"ttl", 120},
          {"creationTime", created},
          {"sysName", sysName},
          {"sysCapSupported", 20},
          {"sysCapEnabled", 4},
          {"managementAddress", Json::array()}};
}

struct CommandsTest : ::testing::Test {
  FakeAgent agent;
  std::ostringstream out, err;
  // Local time is UTC here, and the clock stands at 2025-01-02 03:04:05.25.
  Cli::Context context{agent, out, err, false, true, [] { return 1735787045.25; }};
  CommandsTest() {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
  }
  Json neighbours = {{"ok", true},
                     {"now", 1000.0},
                     {"portStatus",
                      {{{"intfId", "Ethernet1"}, {"remoteSystem", {neighbour("02:00:00:00:00:99", "spine-a", 917)}}},
                       {{"intfId", "Ethernet2"}, {"remoteSystem", Json::array()}}}}};
};

TEST_F(CommandsTest, NeighboursPrintAsAnAlignedTableWithAgesAndCapabilityNames) {
  agent.replies.push_back(neighbours);
  EXPECT_EQ(Cli::showNeighbors(context, {"Ethernet1"}, false), Cli::kExitOk);
  EXPECT_EQ(agent.requests[0]["interfaces"], Json::array({"Ethernet1"}));
  EXPECT_THAT(agent.requests[0]["attributes"], testing::Contains("sysName")) << "a table asks for its columns only";
  const std::string text = out.str();
  EXPECT_THAT(text, HasSubstr("Interface  Chassis ID         Port ID  System name  Capabilities  TTL  Age"));
  EXPECT_THAT(text, HasSubstr("Ethernet1  02:00:00:00:00:99  swp1     spine-a      bridge        120  1m23s"));
  EXPECT_THAT(text, HasSubstr("Neighbors: 1"));

  out.str("");
  agent.replies.push_back(neighbours);
  Cli::showNeighbors(context, {}, true);
  EXPECT_THAT(out.str(), HasSubstr("(MAC address)"));
  EXPECT_THAT(out.str(), HasSubstr("bridge, router"));
}

// Indented for a terminal or compact for a pipe (passed on as it arrives): the reply's fields.
TEST_F(CommandsTest, JsonIsTheRepliesFieldsIndentedOrCompact) {
  context.json = true;
  for (const bool pretty : {true, false}) {
    SCOPED_TRACE(pretty);
    context.pretty = pretty;
    out.str("");
    agent.replies.push_back(neighbours);
    EXPECT_EQ(Cli::showNeighbors(context, {}, false), Cli::kExitOk);
    const Json doc = Json::parse(out.str());
    EXPECT_EQ(doc["schema"], Cli::kJsonSchema);
    EXPECT_EQ(doc["portStatus"], neighbours["portStatus"]);
    EXPECT_FALSE(doc.contains("ok"));
  }

  // A reply whose start comes in small pieces, and one with nothing after "ok".
  out.str("");
  agent.pieces = {"{\"v\":1,\"id\":3,\"ok\":tr", "ue,\"now\":2.5,\"portSta", "tus\":[]}"};
  EXPECT_EQ(Cli::showNeighbors(context, {}, false), Cli::kExitOk);
  EXPECT_EQ(out.str(), "{\"schema\":1,\"now\":2.5,\"portStatus\":[]}\n");

  // A refusal is read and reported as from any other command.
  out.str("");
  agent.pieces = {"{\"v\":1,\"id\":4,\"ok\":false,\"error\":{\"code\":\"x\",\"message\":\"not ready\"}}"};
  EXPECT_EQ(Cli::showNeighbors(context, {}, false), Cli::kExitRefused);
  EXPECT_EQ(err.str(), "lldp: the agent refused: not ready\n");
  EXPECT_TRUE(out.str().empty());

  // The agent going away halfway: what came is printed, and the failure is said and returned.
  err.str("");
  agent.pieces = {"{\"v\":1,\"id\":5,\"ok\":true,\"now\":1,\"portStatus\":[{\"intfId\":\"Ethernet1\",\"remoteSystem\":[", "{"};
  agent.lastEndsReply = false;
  EXPECT_EQ(Cli::showNeighbors(context, {}, false), Cli::kExitRefused);
  EXPECT_EQ(err.str(), "lldp: the LLDP agent closed the connection or did not answer\n");
}

TEST(DocumentFieldsAt, OnlyASuccessReplyLaidOutAsTheAgentWritesIt) {
  EXPECT_EQ(Cli::documentFieldsAt("{\"v\":1,\"id\":7,\"ok\":true,\"now\":1}"), 23u);
  EXPECT_EQ(Cli::documentFieldsAt("{\"v\":1,\"id\":7,\"ok\":true}"), 23u);
  EXPECT_EQ(Cli::documentFieldsAt("{\"ok\":true,\"a\":1}"), 10u);
  EXPECT_FALSE(Cli::documentFieldsAt("{\"v\":1,\"id\":7,\"ok\":false,\"error\":{}}"));
  EXPECT_FALSE(Cli::documentFieldsAt("{\"v\":1,\"id\":\"a\",\"ok\":true,\"now\":1}"));
  EXPECT_FALSE(Cli::documentFieldsAt("{\"v\":1,\"id\":,\"ok\":true}"));
  EXPECT_FALSE(Cli::documentFieldsAt("{\"v\":1,\"id\":7,\"ok\":trueish}"));
  EXPECT_FALSE(Cli::documentFieldsAt("{\"now\":1,\"ok\":true}"));
  EXPECT_FALSE(Cli::documentFieldsAt(""));
}

TEST_F(CommandsTest, InterfacesAndStatisticsComeFromOneReply) {
  const Json reply = {{"ok", true},
                      {"port",
                       {{{"intfId", "Ethernet1"},
                         {"portConfig", {{"adminStatus", 3}, {"enabledTlvs", 3}, {"dot3EnabledTlvs", 0},
                                         {"mgmtAddrTxEnable", true}, {"portVlanTxEnable", false}}},
                         {"localPort", {{"portIdentifier", {{"subtype", 5}, {"value", "Ethernet1"}}}}},
                         {"portStatus", {{"txFramesTotal", 7}, {"rxFramesTotal", 5}, {"rxAgeoutsTotal", 2},
                                         {"rxKernelDropsTotal", 3}}}},
                        {{"intfId", "Ethernet9"}, {"portConfig", {{"adminStatus", 4}}}, {"localPort", nullptr},
                         {"portStatus", nullptr}}}}};
  agent.replies.push_back(reply);
  agent.replies.push_back(reply);
  Cli::showInterfaces(context, {});
  EXPECT_THAT(out.str(), HasSubstr("Ethernet1  tx-rx"));
  EXPECT_THAT(out.str(), HasSubstr("port-description,system-name,management-address"));
  EXPECT_THAT(out.str(), HasSubstr("Ethernet9  disabled (inactive)"));
  out.str("");
  Cli::showStatistics(context, {});
  EXPECT_THAT(out.str(), HasSubstr("Ageouts"));
  EXPECT_THAT(out.str(), HasSubstr("Rx kernel drops"));
  EXPECT_THAT(out.str(), testing::MatchesRegex("(.|\n)*Ethernet1 +7 +0 +5 +0 +0 +0 +0 +2 +3\n(.|\n)*"));
  // The classification as the agent spells it in its JSON.
  out.str("");
  agent.replies.push_back({{"ok", true},
                           {"value",
                            {{"neighbor",
                              {{{"key", "02:00:00:00:00:42"},
                                {"value", {{"intfId", "Ethernet1"}, {"classification", "phone"},
                                           {"description", "Chassis ID 02:00:00:00:00:42"}}}}}}}}});
  Cli::showClassification(context);
  EXPECT_THAT(out.str(), testing::MatchesRegex("(.|\n)*02:00:00:00:00:42 +Ethernet1 +phone +Chassis ID(.|\n)*"));
}

TEST_F(CommandsTest, WatchPrintsEachNeighbourEventWithItsReason) {
  agent.replies.push_back({{"ok", true}, {"subscription", 1}});
  agent.events.push_back(
      {{"event", "changes"},
       {"changes",
        {{{"seq", 1}, {"kind", "added"}, {"path", "l2discovery/lldp/status/all/portStatus/Ethernet3/1/remoteSystem/1"},
          {"type", "RemoteSystem"}, {"reason", "new"}, {"value", neighbour("02:00:00:00:00:99", "spine-a", 1)}},
         {{"seq", 2}, {"kind", "removed"}, {"path", "l2discovery/lldp/status/all/portStatus/Ethernet3/1/remoteSystem/1"},
          {"type", "RemoteSystem"}, {"reason", "aged out"}, {"value", neighbour("02:00:00:00:00:99", "spine-a", 1)}}}}});
  agent.events.push_back({{"event", "disconnected"}, {"reason", "output not read"}});
  const std::deque<Json> events = agent.events;
  EXPECT_EQ(Cli::watch(context), Cli::kExitRefused);
  EXPECT_EQ(agent.requests[0]["types"], Json::array({"RemoteSystem"}));
  EXPECT_EQ(out.str(),
            "2025-01-02 03:04:05 added Ethernet3/1 chassis 02:00:00:00:00:99 port swp1 (spine-a): new\n"
            "2025-01-02 03:04:05 removed Ethernet3/1 chassis 02:00:00:00:00:99 port swp1 (spine-a): aged out\n");
  EXPECT_THAT(err.str(), HasSubstr("output not read"));

  // As JSON, each change is the agent's object with the time it came.
  out.str("");
  context.json = true;
  agent.replies.push_back({{"ok", true}, {"subscription", 2}});
  agent.events = events;
  Cli::watch(context);
  const Json first = Json::parse(out.str().substr(0, out.str().find('\n')));
  EXPECT_EQ(first["time"], "2025-01-02T03:04:05.250+00:00");
  EXPECT_EQ(first["reason"], "new");
}

TEST_F(CommandsTest, StatusShowsAgesAndLocalTimes) {
  agent.replies.push_back({{"ok", true}, {"now", 5000.0}, {"version", "9.9"}, {"uptime", 4000.0},
                           {"status", {{"remTablesLastChangeTime", 4688.0}, {"lastPacketParsedTime", 0.0}}},
                           {"unsavedChanges", {"transmit-interval"}}});
  EXPECT_EQ(Cli::showStatus(context), Cli::kExitOk);
  const std::string text = out.str();
  EXPECT_THAT(text, HasSubstr("uptime                          1h06m (since 2025-01-02 01:57:25)"));
  EXPECT_THAT(text, HasSubstr("status.remTablesLastChangeTime  5m12s ago (2025-01-02 02:58:53)"));
  EXPECT_THAT(text, HasSubstr("status.lastPacketParsedTime     never"));
  EXPECT_THAT(text, HasSubstr("unsavedChanges                  transmit-interval"));
}

TEST_F(CommandsTest, ChangesAreOneRequestEachAndSayHowLongTheyLast) {
  // A TLV added or removed alone: nothing is read and written back, so two at once lose nothing.
  agent.replies.push_back({{"ok", true}, {"index", 2}});
  EXPECT_EQ(Cli::tlvAdd(context, "probe", "Ethernet1", "00-11-22", 2, "0a0b"), Cli::kExitOk);
  agent.replies.push_back({{"ok", true}, {"removed", 1}});
  EXPECT_EQ(Cli::tlvDel(context, "probe", "Ethernet1", "00-11-22", 2, 2), Cli::kExitOk);
  ASSERT_EQ(agent.requests.size(), 2u);
  EXPECT_EQ(agent.requests[0]["add"],
            (Json{{"intfId", "Ethernet1"}, {"oui", "00-11-22"}, {"subtype", 2}, {"value", "0a0b"}}));
  EXPECT_EQ(agent.requests[1]["tlv"], (Json{{"intfId", "Ethernet1"}, {"oui", "00-11-22"}, {"subtype", 2}, {"index", 2}}));
  EXPECT_THAT(out.str(), HasSubstr("added on Ethernet1 as index 2"));

  // A setting lasts until a reload unless saved, and the command says so.
  out.str("");
  agent.replies.push_back({{"ok", true}});
  EXPECT_EQ(Cli::unconfigure(context, "Ethernet1", ""), Cli::kExitOk);
  EXPECT_FALSE(agent.requests[2].contains("key")) << "an interface alone is its whole section";
  EXPECT_THAT(out.str(), HasSubstr("'lldp config save' keeps it"));
  context.json = true;
  out.str("");
  agent.replies.push_back({{"ok", true}});
  EXPECT_EQ(Cli::configure(context, "", "transmit-interval", "10"), Cli::kExitOk);
  EXPECT_EQ(agent.requests[3]["path"], "l2discovery/lldp/cliConfig");
  EXPECT_FALSE(agent.requests[3].contains("interface"));
  EXPECT_EQ(Json::parse(out.str())["saved"], false);

  // A refusal quoting what it was given is shown on one line, escaped.
  agent.replies.push_back({{"ok", false}, {"error", {{"code", "invalid"}, {"message", "bad \x1b[2J\nname"}}}});
  EXPECT_EQ(Cli::configure(context, "", "system.name", "x"), Cli::kExitRefused);
  EXPECT_EQ(err.str(), "lldp: the agent refused: bad \\x1b[2J\\nname\n");
}

// Minutes and hours show in the table and status above.
TEST(AgeText, ReadsLikeAClock) {
  EXPECT_EQ(Cli::ageText(5), "5s");
  EXPECT_EQ(Cli::ageText(2 * 86400 + 3 * 3600), "2d03h");
  EXPECT_EQ(Cli::ageText(-1), "-");
}

}  // namespace
}  // namespace CliTest
