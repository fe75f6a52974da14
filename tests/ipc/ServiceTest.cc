// The socket's requests against a whole agent in virtual time: reads, neighbour events with
// their reasons batched per pass, and writes of the input paths.
#include <gmock/gmock.h>

#include "agent/AgentFixture.h"
#include "ipc/Service.h"
#include "records/LldpRecords.h"
#include "records/RecordsJson.h"

namespace IpcTest {
namespace {

using Ipc::Json;

struct FakeSession : Ipc::Session {
  std::vector<Json> sent;
  Ipc::Peer peer_{0, 4242};
  void send(const Json& message) override { sent.push_back(message); }
  const Ipc::Peer& peer() const override { return peer_; }
  // Every change event sent so far, flattened.
  std::vector<Json> changes() const {
    std::vector<Json> out;
    for (const Json& m : sent) {
      if (m.value("event", "") != "changes") continue;
      for (const Json& c : m["changes"]) out.push_back(c);
    }
    return out;
  }
};

struct FakeConfig : Ipc::ConfigService {
  std::vector<std::string> calls;
  bool configKeyIs(const std::string& intf, const std::string& key, const std::string& value, bool,
                   std::string& error) override {
    if (key == "messageTxInterval" && (value == "0" || value.size() > 5)) {
      error = "messageTxInterval: " + value + " is out of range 5 to 32768";
      return false;
    }
    calls.push_back(intf + "|" + key + "=" + value);
    return true;
  }
  bool configKeyDel(const std::string& intf, const std::string& key, bool, std::string&) override {
    calls.push_back(intf + "|" + key + " deleted");
    return true;
  }
  std::string configText() const override { return "[lldp]\n"; }
  bool configSave(std::string& error, std::string&) override {
    error = "read-only file system";
    return false;
  }
};

struct ServiceTest : AgentTest::AgentFixture {
  Ipc::Service service{db};
  FakeSession session;
  FakeConfig config;

  ServiceTest() { service.configServiceIs(&config); }
  ~ServiceTest() override { service.sessionGone(session); }

  Json ask(const Json& request) { return service.handle(request.dump(), session); }
  std::vector<std::string> kindsAndReasons() const {
    std::vector<std::string> out;
    for (const Json& c : session.changes()) {
      if (c["type"] != "RemoteSystem") continue;
      out.push_back(c["kind"].get<std::string>() + ":" + c.value("reason", ""));
    }
    return out;
  }
};

TEST_F(ServiceTest, MalformedRequestsGetErrorRepliesAndTheIdComesBack) {
  const std::pair<std::string, const char*> cases[] = {
      {"{not json", "badRequest"},
      {"\x01\x02\xff\xfe", "badRequest"},
      {"[1,2]", "badRequest"},
      {std::string(1000, '[') + std::string(1000, ']'), "badRequest"},
      {R"({"op":42})", "badRequest"},
      {R"({"op":"get","path":5})", "badRequest"},
      {R"({"op":"nope"})", "unknownOp"},
      {R"({"op":"hello","v":2})", "unsupportedVersion"},
  };
  for (const auto& [request, code] : cases) {
    SCOPED_TRACE(request.substr(0, 40));
    EXPECT_EQ(service.handle(request, session)["error"]["code"], code);
  }
  EXPECT_EQ(ask({{"op", "nope"}, {"id", 7}})["id"], 7);
  EXPECT_TRUE(ask({{"op", "hello"}, {"v", 1}})["ok"]);
}

TEST_F(ServiceTest, GetReadsEntitiesListsPrefixesAndNeighboursByInterface) {
  addPort("Ethernet1", 1);
  addPort("Ethernet2", 2);
  startAgent();
  scheduler.runFor(5);
  Json reply = ask({{"op", "get"}, {"path", "l2discovery/lldp/cliConfig"}});
  EXPECT_EQ(reply["type"], "CliConfig");
  EXPECT_EQ(reply["value"]["messageTxInterval"], 30);
  EXPECT_TRUE(reply["value"]["portConfig"].is_array()) << "lists stay lists when empty";
  reply = ask({{"op", "get"}, {"path", "l2discovery/lldp"}});
  EXPECT_THAT(reply["children"].dump(), testing::HasSubstr("\"cliConfig\""));
  EXPECT_EQ(ask({{"op", "get"}, {"path", "no/such/path"}})["error"]["code"], "notFound");

  reply = ask({{"op", "neighbors"}, {"interfaces", {"Ethernet2"}}});
  ASSERT_EQ(reply["portStatus"].size(), 1u);
  EXPECT_EQ(reply["portStatus"][0]["intfId"], "Ethernet2");
  ASSERT_EQ(reply["portStatus"][0]["remoteSystem"].size(), 1u);
  EXPECT_EQ(reply["portStatus"][0]["remoteSystem"][0]["msap"]["chassisIdentifier"]["value"], "02:00:00:00:00:99");
  reply = ask({{"op", "neighbors"}, {"attributes", {"sysName", "msap", "noSuchAttribute"}}});
  ASSERT_EQ(reply["portStatus"].size(), 2u);
  const Json& few = reply["portStatus"][1]["remoteSystem"][0];
  ASSERT_EQ(few.size(), 2u) << few.dump();
  EXPECT_EQ(few.begin().key(), "msap") << "the record's order, not the request's";
  EXPECT_TRUE(few.contains("sysName"));
  EXPECT_EQ(ask({{"op", "neighbors"}, {"attributes", "sysName"}})["error"]["code"], "badRequest");

  reply = ask({{"op", "interfaces"}});
  ASSERT_EQ(reply["port"].size(), 2u);
  EXPECT_GT(reply["port"][0]["portStatus"]["txFramesTotal"].get<int>(), 0);
  EXPECT_FALSE(reply["port"][0]["portStatus"].contains("remoteSystem"));
  service.statusProviderIs([] { return Json{{"version", "9.9"}, {"netlinkResyncs", 3}}; });
  reply = ask({{"op", "status"}});
  EXPECT_EQ(reply["neighbors"], 2);
  EXPECT_EQ(reply["rxKernelDrops"], 0);
  EXPECT_EQ(reply["version"], "9.9");
}

TEST_F(ServiceTest, NeighbourEventsCarryKindsReasonsAndSequenceNumbersInOneBatchPerPass) {
  addPort("Ethernet1", 1);
  addPort("Ethernet2", 2);
  startAgent();
  Json reply = ask({{"op", "subscribe"}, {"path", "l2discovery/lldp/status/all"}, {"types", {"RemoteSystem"}}});
  ASSERT_TRUE(reply["ok"]) << reply.dump();
  scheduler.runFor(5);
  EXPECT_EQ(kindsAndReasons(), (std::vector<std::string>{"added:new", "added:new"}));
  EXPECT_EQ(session.changes()[0]["seq"], 1);
  EXPECT_EQ(session.changes()[1]["seq"], 2);
  session.sent.clear();

  scheduler.runFor(60);  // refreshes with the same content are no change
  EXPECT_TRUE(kindsAndReasons().empty());

  peer->localSystem->sysNameIs(Lldp::BoundedString255("renamed"));
  scheduler.runFor(5);
  ASSERT_EQ(kindsAndReasons(), (std::vector<std::string>{"changed:changed", "changed:changed"}));
  EXPECT_EQ(session.changes()[0]["value"]["sysName"], "renamed");
  EXPECT_EQ(session.changes()[0]["seq"], 3);
  session.sent.clear();

  wire.unlink("peer:Ethernet2");
  phyDir->intfStatus("Ethernet2")->linkStatusIs(Interface::LinkStatus::linkDown);
  scheduler.runPending();
  EXPECT_EQ(kindsAndReasons(), (std::vector<std::string>{"removed:link down"}));
  session.sent.clear();

  wire.unlink("peer:Ethernet1");
  scheduler.runFor(130);
  EXPECT_EQ(kindsAndReasons(), (std::vector<std::string>{"removed:aged out"}));
}

TEST_F(ServiceTest, ClearPortRemovalAndShutdownLldpduAreTheReasonsTheirNeighboursGo) {
  addPort("Ethernet1", 1);
  addPort("Ethernet2", 2);
  startAgent();
  scheduler.runFor(5);
  ASSERT_TRUE(ask({{"op", "subscribe"}, {"path", "l2discovery/lldp/status/all"}, {"types", {"RemoteSystem"}}})["ok"]);
  auto neighbours = [this](const char* intf) { return ask({{"op", "neighbors"}, {"interfaces", {intf}}})["portStatus"][0]["remoteSystem"].size(); };
  // One port: only its neighbours go, and the log names who and from where.
  Json reply = ask({{"op", "clear"}, {"interface", "Ethernet1"}, {"origin", "lldp clear neighbors Ethernet1"}});
  ASSERT_TRUE(reply["ok"]) << reply.dump();
  scheduler.runPending();
  EXPECT_EQ(kindsAndReasons(), (std::vector<std::string>{"removed:cleared"}));
  EXPECT_EQ(neighbours("Ethernet1"), 0u);
  EXPECT_EQ(neighbours("Ethernet2"), 1u);
  ASSERT_EQ(logs.count("LLDP_REMOTE_TABLES_CLEARED"), 1u);
  EXPECT_THAT(logs.entries().back().text,
              testing::MatchesRegex("LLDP neighbor table cleared by [^ ]+ on lldp clear neighbors Ethernet1 "
                                    "\\(state socket, pid 4242\\)"));
  EXPECT_EQ(ask({{"op", "clear"}, {"interface", "Ethernet7"}})["error"]["code"], "notFound");
  EXPECT_EQ(ask({{"op", "clear"}, {"interface", 7}})["error"]["code"], "badRequest");
  EXPECT_EQ(logs.count("LLDP_REMOTE_TABLES_CLEARED"), 1u) << "a refused request clears nothing";
  session.sent.clear();

  // Every port: a second request in the same instant is still carried out.
  reply = ask({{"op", "clear"}});
  ASSERT_TRUE(reply["ok"]) << reply.dump();
  scheduler.runPending();
  EXPECT_EQ(kindsAndReasons(), (std::vector<std::string>{"removed:cleared"}));
  EXPECT_EQ(neighbours("Ethernet2"), 0u);
  EXPECT_EQ(logs.count("LLDP_REMOTE_TABLES_CLEARED"), 2u);
  session.sent.clear();

  scheduler.runFor(35);  // learnt again
  session.sent.clear();
  phyDir->intfStatusDel("Ethernet1");
  scheduler.runFor(1);
  EXPECT_THAT(kindsAndReasons(), testing::Contains("removed:port removed"));
  session.sent.clear();

  // The peer's last word on Ethernet2: its MSAP with a time-to-live of 0.
  const Lldp::Msap msap = localStatus()->portStatus("Ethernet2")->remoteSystem().begin().value()->msap();
  receive("Ethernet2", AgentTest::NeighbourFrame(*Konet::EthAddr::parse(msap.chassisIdentifier.stringValue()),
                                                 msap.portIdentifier.stringValue(), 0));
  scheduler.runFor(1);
  EXPECT_EQ(kindsAndReasons(), (std::vector<std::string>{"removed:shutdown LLDPDU"}));
}

TEST_F(ServiceTest, WritesReachOnlyInputPathsAndConfigurationGoesThroughTheSchema) {
  addPort("Ethernet1", 1);
  startAgent();
  EXPECT_EQ(ask({{"op", "set"}, {"path", "l2discovery/lldp/config"}, {"value", Json::object()}})["error"]["code"],
            "notWritable");
  Json reply = ask({{"op", "set"}, {"path", "l2discovery/lldp/cliConfig"}, {"key", "messageTxInterval"}, {"value", 0}});
  EXPECT_EQ(reply["error"]["code"], "invalid");
  EXPECT_THAT(reply["error"]["message"].get<std::string>(), testing::HasSubstr("out of range"));
  EXPECT_TRUE(ask({{"op", "set"}, {"path", "l2discovery/lldp/cliConfig"}, {"key", "adminStatus"},
                   {"interface", "Ethernet1"}, {"value", "rxOnly"}})["ok"]);
  EXPECT_TRUE(ask({{"op", "delete"}, {"path", "l2discovery/lldp/cliConfig"}, {"key", "sysNameTlvEnabled"}})["ok"]);
  EXPECT_EQ(config.calls, (std::vector<std::string>{"Ethernet1|adminStatus=rxOnly", "|sysNameTlvEnabled deleted"}));
  EXPECT_EQ(ask({{"op", "save"}})["error"]["message"], "read-only file system");
  EXPECT_EQ(ask({{"op", "config"}})["config"], "[lldp]\n");

  reply = ask({{"op", "set"}, {"path", "identity/dot1x/status"}, {"value", {{"lldpBypass", "yes"}}}});
  EXPECT_EQ(reply["error"]["code"], "invalid");
  EXPECT_TRUE(ask({{"op", "set"}, {"path", "identity/dot1x/status"}, {"value", {{"lldpBypass", true}}}})["ok"]);
  EXPECT_TRUE(db.lookup<Identity::Dot1x::Status>("identity/dot1x/status")->lldpBypass());

  EXPECT_EQ(ask({{"op", "set"}, {"path", "environment/power/status/poePort/Ethernet1"},
                 {"value", {{"poweredDeviceClass", 99}}}})["error"]["code"],
            "invalid");
  EXPECT_FALSE(db.entity("environment/power/status/poePort/Ethernet1")) << "a refused write changes nothing";
  EXPECT_TRUE(ask({{"op", "set"}, {"path", "environment/power/status/poePort/Ethernet1"},
                   {"value", {{"grantedPower", 15.4}, {"poweredDeviceClass", 3}, {"lldpNegotiationSupported", true}}}})["ok"]);
  EXPECT_EQ(db.lookup<Environment::Power::PoePortStatus>("environment/power/status/poePort/Ethernet1")->poweredDeviceClass(), 3);
  EXPECT_TRUE(ask({{"op", "delete"}, {"path", "environment/power/status/poePort/Ethernet1"}})["ok"]);
  EXPECT_FALSE(db.entity("environment/power/status/poePort/Ethernet1"));
}

TEST_F(ServiceTest, UnsubscribeStopsEventsAndSubscriptionsAreLimited) {
  startAgent();
  Json reply = ask({{"op", "subscribe"}, {"path", "l2discovery/lldp/cliConfig"}, {"snapshot", true}});
  ASSERT_TRUE(reply["ok"]);
  EXPECT_EQ(reply["value"]["enabled"], true);
  cliConfig()->messageTxIntervalIs(10u);
  cliConfig()->messageTxIntervalIs(11u);
  scheduler.runPending();
  ASSERT_EQ(session.changes().size(), 1u) << "changes of one entity in one pass are one event";
  EXPECT_EQ(session.changes()[0]["value"]["messageTxInterval"], 11);
  EXPECT_TRUE(ask({{"op", "unsubscribe"}, {"subscription", reply["subscription"]}})["ok"]);
  cliConfig()->messageTxIntervalIs(12u);
  scheduler.runPending();
  EXPECT_EQ(session.changes().size(), 1u);
  for (int i = 0; i < 16; ++i) ask({{"op", "subscribe"}, {"path", "l2discovery/lldp/cliConfig"}});
  EXPECT_EQ(ask({{"op", "subscribe"}, {"path", "l2discovery/lldp/cliConfig"}})["error"]["code"], "limit");
  EXPECT_EQ(ask({{"op", "subscribe"}, {"path", "no/where"}})["error"]["code"], "notFound");
}

// Everything a refused request could have changed: the input records, the subscriptions, the
// configuration calls and the change log.
struct Snapshot {
  Json records;
  size_t subscriptions;
  size_t configCalls;
  size_t changeLogs;
  bool operator==(const Snapshot&) const = default;
};

TEST_F(ServiceTest, ARefusedRequestOfAnyKindChangesNothing) {
  addPort("Ethernet1", 1);
  startAgent();
  scheduler.runFor(5);
  Ipc::Service limited{db, {}, {2, 2, 2, 3}};
  limited.configServiceIs(&config);
  const auto ask2 = [&](const Json& r) { return limited.handle(r.dump(), session); };
  const std::string tlvs = "l2discovery/lldp/externalTlvs/";
  // Something in place to be changed: one client with two TLVs, one subscription.
  ASSERT_TRUE(ask2({{"op", "set"}, {"path", tlvs + "a"}, {"add", {{"intfId", "Ethernet1"}, {"oui", "00-11-22"}, {"subtype", 1}, {"value", "01"}}}})["ok"]);
  ASSERT_TRUE(ask2({{"op", "set"}, {"path", tlvs + "b"}, {"add", {{"intfId", "Ethernet1"}, {"oui", "00-11-22"}, {"subtype", 1}, {"value", "02"}}}})["ok"]);
  ASSERT_TRUE(ask2({{"op", "set"}, {"path", tlvs + "b"}, {"add", {{"intfId", "Ethernet2"}, {"oui", "00-11-22"}, {"subtype", 1}, {"value", "02"}}}})["ok"]);
  ASSERT_TRUE(ask2({{"op", "set"}, {"path", tlvs + "b"}, {"add", {{"intfId", "Ethernet1"}, {"oui", "00-11-22"}, {"subtype", 1}, {"value", "03"}}}})["ok"]);
  ASSERT_TRUE(ask2({{"op", "subscribe"}, {"path", "l2discovery/lldp/cliConfig"}})["ok"]);
  const auto snapshot = [&] {
    Json records;
    for (const char* path : {"l2discovery/lldp/cliConfig", "l2discovery/lldp/externalTlvs", "identity/dot1x/status",
                             "environment/power/status/poePort", "l2discovery/lldp/remTablesCliConfig"}) {
      records[path] = ask2({{"op", "get"}, {"path", path}});
    }
    records["local"] = Platform::recordToJson(*localSystem()->localPort("Ethernet1"));
    return Snapshot{records, limited.subscriptions(), config.calls.size(), logs.count("LLDP_CONFIG_CHANGED")};
  };
  const Snapshot before = snapshot();
  const Json tlv = {{"oui", "00-11-22"}, {"subtype", 1}, {"value", "01"}};
  const Json refused[] = {
      {{"op", "subscribe"}, {"path", "l2discovery/lldp/cliConfig"}, {"snapshot", "yes"}},
      {{"op", "subscribe"}, {"path", "l2discovery/lldp/cliConfig"}, {"values", 1}},
      {{"op", "subscribe"}, {"path", "l2discovery/lldp/cliConfig"}, {"types", "RemoteSystem"}},
      {{"op", "unsubscribe"}, {"subscription", 999}},
      {{"op", "set"}, {"path", "l2discovery/lldp/cliConfig"}, {"key", "messageTxInterval"}, {"value", 0}},
      {{"op", "set"}, {"path", "l2discovery/lldp/cliConfig"}, {"key", "enabled"}, {"value", Json::array()}},
      {{"op", "set"}, {"path", "l2discovery/lldp/cliConfig"}, {"value", 5}},
      {{"op", "delete"}, {"path", "l2discovery/lldp/cliConfig"}},
      {{"op", "set"}, {"path", tlvs + "c"}, {"value", {{"portConfig", Json::array()}, {"ephemeral", "yes"}}}},
      {{"op", "set"}, {"path", tlvs + "b"}, {"value", {{"portConfig", {{{"intfId", "Ethernet1"}, {"unknownOrgDefTlv", {tlv, {{"oui", "xx"}}}}}}}}}},
      {{"op", "set"}, {"path", tlvs + "b"}, {"value", {{"portConfig", {{{"intfId", "Ethernet1"}, {"unknownOrgDefTlv", {tlv}}}, {{"intfId", "Ethernet1"}, {"unknownOrgDefTlv", {tlv}}}}}}}},
      {{"op", "set"}, {"path", tlvs + "b"}, {"value", {{"portConfig", {{{"intfId", "Ethernet1"}, {"unknownOrgDefTlv", {tlv, tlv, tlv}}}}}}}},
      {{"op", "set"}, {"path", tlvs + "c"}, {"value", {{"portConfig", Json::array()}}}},
      {{"op", "set"}, {"path", tlvs + "config"}, {"value", {{"portConfig", Json::array()}}}},
      {{"op", "set"}, {"path", tlvs + "b"}, {"add", {{"intfId", "Ethernet3"}, {"oui", "00-11-22"}, {"subtype", 1}, {"value", "03"}}}},
      {{"op", "set"}, {"path", tlvs + "b"}, {"add", {{"intfId", "Ethernet1"}, {"oui", "00-11-22"}, {"subtype", 1}, {"value", "03"}}}},
      {{"op", "set"}, {"path", tlvs + "b"}, {"add", {{"intfId", "Ethernet2"}, {"oui", "00-11-22"}, {"subtype", 1}, {"value", "03"}}}},
      {{"op", "set"}, {"path", tlvs + "a"}, {"add", {{"intfId", "Ethernet1"}, {"oui", "00-11-22"}, {"subtype", 256}, {"value", "03"}}}},
      {{"op", "set"}, {"path", tlvs + "a"}, {"add", tlv}, {"ephemeral", "yes"}},
      {{"op", "delete"}, {"path", tlvs + "config"}},
      {{"op", "delete"}, {"path", tlvs + "nobody"}},
      {{"op", "delete"}, {"path", tlvs + "a"}, {"tlv", {{"intfId", "Ethernet1"}, {"oui", "00-11-22"}, {"subtype", 7}}}},
      {{"op", "set"}, {"path", "environment/power/status/poePort/Ethernet1"}, {"value", {{"grantedPower", 500}}}},
      {{"op", "set"}, {"path", "environment/power/status/poePort/bad name"}, {"value", Json::object()}},
      {{"op", "set"}, {"path", "identity/dot1x/status"}, {"value", {{"lldpBypass", true}, {"more", 1}}}},
      {{"op", "clear"}, {"interface", "Ethernet7"}},
      {{"op", "clear"}, {"origin", 5}},
      {{"op", "neighbors"}, {"interfaces", {"Ethernet7"}}},
      {{"op", "neighbors"}, {"interfaces", {1}}},
      {{"op", "interfaces"}, {"interfaces", {"Ethernet7"}}},
      {{"op", "get"}},
  };
  for (const Json& request : refused) {
    SCOPED_TRACE(request.dump());
    const Json reply = ask2(request);
    EXPECT_EQ(reply["ok"], false) << reply.dump();
    scheduler.runPending();
    EXPECT_TRUE(snapshot() == before);
  }
  // The refusals say which bound was met, and name the known interfaces.
  const auto why = [&](size_t i) { return ask2(refused[i])["error"]["message"].get<std::string>(); };
  EXPECT_EQ(why(11), "at most 2 TLVs per port");
  EXPECT_EQ(why(12), "at most 2 external TLV clients");
  EXPECT_EQ(why(14), "at most 2 ports per client");
  EXPECT_EQ(why(15), "at most 2 TLVs per port");
  EXPECT_EQ(why(16), "at most 3 TLVs per client");
  EXPECT_THAT(why(13), testing::HasSubstr("is the configuration file's"));
  EXPECT_EQ(why(27), "no LLDP interface Ethernet7; the LLDP interfaces are Ethernet1");
  limited.sessionGone(session);
}

TEST_F(ServiceTest, OneTlvComesAndGoesAloneAndShortLivedClientsAreKeptOnce) {
  addPort("Ethernet1", 1);
  startAgent();
  scheduler.runFor(5);
  const std::string path = "l2discovery/lldp/externalTlvs/probe";
  const Json add = {{"intfId", "Ethernet1"}, {"oui", "00-11-22"}, {"subtype", 9}, {"value", "aa"}};
  Json tooLong = add;
  tooLong["value"] = std::string(1016, 'a');
  EXPECT_EQ(ask({{"op", "set"}, {"path", path}, {"add", tooLong}})["error"]["code"], "invalid");
  EXPECT_EQ(ask({{"op", "set"}, {"path", path + "/b"}, {"add", add}})["error"]["code"], "invalid");
  EXPECT_EQ(ask({{"op", "set"}, {"path", path}, {"add", add}, {"ephemeral", true}})["index"], 1);
  EXPECT_EQ(ask({{"op", "set"}, {"path", path}, {"add", add}, {"ephemeral", true}})["index"], 2);
  EXPECT_EQ(ask({{"op", "delete"}, {"path", path}, {"tlv", {{"intfId", "Ethernet1"}, {"oui", "00-11-22"}, {"subtype", 9}, {"index", 1}}}})["removed"], 1);
  EXPECT_EQ(ask({{"op", "set"}, {"path", path}, {"add", add}})["index"], 1) << "the lowest free index";
  scheduler.runFor(5);
  EXPECT_EQ(heard("Ethernet1")->unknownOrgDefTlvs(), 2u);
  // Each change is logged with who made it.
  EXPECT_THAT(logs.entries().back().text,
              testing::MatchesRegex("LLDP configuration changed through the state socket by [^ ]+ \\(uid 0, pid 4242\\): "
                                    "external TLV client probe added OUI 00-11-22 subtype 9 index 1 on Ethernet1"));
  service.sessionGone(session);
  scheduler.runFor(5);
  EXPECT_EQ(heard("Ethernet1")->unknownOrgDefTlvs(), 0u) << "the client was short-lived once";
  EXPECT_EQ(logs.count("LLDP_CONFIG_CHANGED"), 5u) << "the last for the client going with its connection";
}

}  // namespace
}  // namespace IpcTest
