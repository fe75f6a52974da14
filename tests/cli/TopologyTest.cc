// `lldp topology`: links from reports filled by hand, the two report sources' JSON, the wiring
// file, the check's verdicts, and the pictures.
#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "cli/TopologyQuery.h"
#include "cli/TopologyRender.h"
#include "linux/AsioScheduler.h"
#include "metrics/HttpServer.h"

// Graphviz keeps font and plugin tables for the life of the process (fontconfig's cache among
// them); those are the library's, not leaks of ours.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\nleak:libgvc.so\n"; }

namespace {

using namespace Cli;

// An agent of the fleet named after its host, with chassis "c-HOST".
FleetAgent agent(const std::string& host) { return {"lldp/" + host, "c-" + host, host}; }
// What `host` sees on `port`: `peer`'s port `peerPort`.
Observation sees(const std::string& host, const std::string& port, const std::string& peer, const std::string& peerPort) {
  return {"lldp/" + host, port, "c-" + peer, "local", peerPort, "interfaceName", peer, "", ""};
}

// Two spines, two leaves, each leaf cabled to each spine; both ends report.
FleetReport leafSpine() {
  FleetReport r;
  for (const char* h : {"spine1", "spine2", "leaf1", "leaf2"}) r.agents.push_back(agent(h));
  auto cable = [&](const std::string& a, const std::string& ap, const std::string& b, const std::string& bp) {
    r.observations.push_back(sees(a, ap, b, bp));
    r.observations.push_back(sees(b, bp, a, ap));
  };
  cable("leaf1", "swp1", "spine1", "swp1");
  cable("leaf1", "swp2", "spine2", "swp1");
  cable("leaf2", "swp1", "spine1", "swp2");
  cable("leaf2", "swp2", "spine2", "swp2");
  return r;
}

std::vector<ExpectedLink> leafSpineWiring() {
  std::string error;
  auto links = wiringOf(R"(graph fabric {
      // the intended cabling
      "leaf1":"swp1" -- "spine1":"swp1";
      "spine2":"swp1" -- "leaf1":"swp2";   /* either order */
      leaf2:swp1 -- spine1:swp2
      "leaf2":"swp2" -- "spine2":"swp2" [color=red];
    })",
                        error);
  EXPECT_TRUE(links) << error;
  return links.value_or(std::vector<ExpectedLink>{});
}

std::vector<std::string> linkTexts(const Topology& t) {
  std::vector<std::string> out;
  for (const Link& l : t.links) out.push_back(l.a.host + ":" + l.a.port + " " + l.b.host + ":" + l.b.port + (l.both ? "" : " one-sided"));
  return out;
}

TEST(TopologyModelTest, EachCableOnceWithBothEndsAndTheWiringMatches) {
  const Topology t = topologyOf(leafSpine());
  EXPECT_EQ(linkTexts(t), (std::vector<std::string>{"leaf1:swp1 spine1:swp1", "leaf1:swp2 spine2:swp1",
                                                    "leaf2:swp1 spine1:swp2", "leaf2:swp2 spine2:swp2"}));
  ASSERT_EQ(t.hosts.size(), 4u);
  for (const Host& h : t.hosts) EXPECT_TRUE(h.reports) << h.name;
  const WiringCheck c = checkWiring(leafSpineWiring(), t);
  EXPECT_TRUE(c.ok());
  ASSERT_EQ(c.links.size(), 4u);
  EXPECT_EQ(c.links[1].expected.a, (LinkEnd{"spine2", "swp1"}));  // as the file has it
  EXPECT_EQ(checkJson(c)["ok"], true);
}

TEST(TopologyModelTest, SilentHostsOneSidedLinksAndNamesFromChassisOrAddresses) {
  FleetReport r = leafSpine();
  // A server without an agent in the fleet, seen by leaf1; its port id is a MAC address, so its
  // port description names the port. A neighbour without a system name is named by its chassis.
  r.observations.push_back({"lldp/leaf1", "swp9", "aa:bb:cc:00:00:01", "macAddress", "aa:bb:cc:00:00:09",
                            "macAddress", "server9", "eno1", "198.18.0.9"});
  r.observations.push_back({"lldp/leaf2", "swp9", "c-anon", "local", "p1", "local", "", "", ""});
  // leaf1's own report of spine1 carries a stale system name: the fleet's agent names it.
  r.observations[0].systemName = "old-name";
  // A report whose agent said nothing of itself is left out.
  r.observations.push_back({"lldp/ghost", "swp1", "c-leaf1", "local", "swp7", "interfaceName", "leaf1", "", ""});
  const Topology t = topologyOf(r);
  const auto links = linkTexts(t);
  EXPECT_EQ(links.size(), 6u);
  EXPECT_NE(std::find(links.begin(), links.end(), "leaf1:swp9 server9:eno1 one-sided"), links.end());
  EXPECT_NE(std::find(links.begin(), links.end(), "c-anon:p1 leaf2:swp9 one-sided"), links.end());
  EXPECT_NE(std::find(links.begin(), links.end(), "leaf1:swp1 spine1:swp1"), links.end());
  const auto server = std::find_if(t.hosts.begin(), t.hosts.end(), [](const Host& h) { return h.name == "server9"; });
  ASSERT_NE(server, t.hosts.end());
  EXPECT_FALSE(server->reports);
  EXPECT_EQ(server->managementAddress, "198.18.0.9");
}

TEST(TopologyCheckTest, ACutLinkIsMissingAndNothingElse) {
  FleetReport r = leafSpine();
  r.observations.erase(r.observations.begin(), r.observations.begin() + 2);  // leaf1:swp1 -- spine1:swp1
  const WiringCheck c = checkWiring(leafSpineWiring(), topologyOf(r));
  EXPECT_FALSE(c.ok());
  EXPECT_EQ(c.links[0].verdict, LinkVerdict::missing);
  for (size_t i = 1; i < 4; ++i) EXPECT_EQ(c.links[i].verdict, LinkVerdict::ok);
  EXPECT_TRUE(c.unexpected.empty());
  std::ostringstream text;
  renderCheckText(c, text);
  EXPECT_NE(text.str().find("leaf1:swp1 -- spine1:swp1  missing"), std::string::npos) << text.str();
  EXPECT_NE(text.str().find("3 of 4 links as expected, 1 not, 0 not expected"), std::string::npos) << text.str();
}

TEST(TopologyCheckTest, TwoSwappedCablesAreWrongPeersWithWhatIsThereInstead) {
  // The cables of spine1's swp1 and swp2 swapped at the spine.
  FleetReport r;
  for (const char* h : {"spine1", "spine2", "leaf1", "leaf2"}) r.agents.push_back(agent(h));
  for (const auto& [a, ap, b, bp] : std::vector<std::array<std::string, 4>>{{"leaf1", "swp1", "spine1", "swp2"},
                                                                           {"leaf1", "swp2", "spine2", "swp1"},
                                                                           {"leaf2", "swp1", "spine1", "swp1"},
                                                                           {"leaf2", "swp2", "spine2", "swp2"}}) {
    r.observations.push_back(sees(a, ap, b, bp));
    r.observations.push_back(sees(b, bp, a, ap));
  }
  const WiringCheck c = checkWiring(leafSpineWiring(), topologyOf(r));
  EXPECT_FALSE(c.ok());
  EXPECT_EQ(c.links[0].verdict, LinkVerdict::wrongPeer);
  EXPECT_EQ(c.links[0].aSees, (LinkEnd{"spine1", "swp2"}));
  EXPECT_EQ(c.links[0].bSees, (LinkEnd{"leaf2", "swp1"}));
  EXPECT_EQ(c.links[2].verdict, LinkVerdict::wrongPeer);
  EXPECT_EQ(c.links[1].verdict, LinkVerdict::ok);
  EXPECT_EQ(c.links[3].verdict, LinkVerdict::ok);
  ASSERT_EQ(c.unexpected.size(), 2u);
  const Json j = checkJson(c);
  EXPECT_EQ(j["links"][0]["result"], "wrong-peer");
  EXPECT_EQ(j["links"][0]["aPeer"], (Json{{"host", "spine1"}, {"port", "swp2"}}));
  EXPECT_EQ(j["unexpected"][0]["a"], (Json{{"host", "leaf1"}, {"port", "swp1"}}));
}

TEST(WiringFileTest, RefusesWhatIsNotAWiring) {
  std::string error;
  EXPECT_FALSE(wiringOf("graph { a -- b }", error));
  EXPECT_EQ(error, "the edge a -- b needs a port at both ends, as \"a\":\"swp1\" -- \"b\":\"swp2\"");
  error.clear();
  EXPECT_FALSE(wiringOf("graph { \"a\":\"p\" -- ", error));
  EXPECT_TRUE(error.starts_with("not a DOT graph")) << error;
  error.clear();
  EXPECT_FALSE(wiringOf("", error));
  // Whatever follows the first graph is read too: garbage, or a nesting past the parser's
  // depth, is an error rather than a shorter wiring that passes.
  EXPECT_FALSE(wiringOf("graph { a:p1 -- b:p1 } garbage", error));
  EXPECT_FALSE(wiringOf("graph { " + std::string(20000, '{') + "a:p1 -- b:p1" + std::string(20000, '}') + " }", error));
  EXPECT_TRUE(error.starts_with("not a DOT graph: syntax error")) << error;
  // Two cables between the same two hosts are two links; the links of every graph count; a
  // byte order mark before the first is passed over.
  auto links = wiringOf("\xef\xbb\xbfgraph { a:p1 -- b:p1; a:p2 -- b:p2 }\r\ngraph { c:p1 -- d:p1 }", error);
  ASSERT_TRUE(links) << error;
  EXPECT_EQ(links->size(), 3u);
}

TEST(TopologyRenderTest, HostileNamesSurviveTheWiringRoundTripAndThePicture) {
  FleetReport r;
  r.agents.push_back({"x", "c1", "sw\"it\\ch \xe2\x82\xac"});
  // Backslashes before a quote and at the end: read as an escaped quote, they would let the
  // name out of its quotes and add a node.
  r.agents.push_back({"y", "c2", "b\\\\\" -- \"evil\\\\"});
  r.observations.push_back({"x", "eth0:1 \"q\"", "c2", "local", "e;1", "interfaceName", "b", "", ""});
  // A neighbour that is no agent, named with a terminal escape and a byte that is no UTF-8.
  r.observations.push_back({"y", "p2", "c3", "local", "p\x07", "local", "evil\x1b[2J\xff", "", ""});
  const Topology t = topologyOf(r);
  std::string error;
  auto back = wiringOf(wiringDot(t), error);
  ASSERT_TRUE(back) << error << "\n" << wiringDot(t);
  ASSERT_EQ(back->size(), 2u);
  EXPECT_EQ(back->front().a.host, "b\\\\\" -- \"evil\\\\");
  const WiringCheck c = checkWiring(*back, t);
  EXPECT_TRUE(c.ok());

  const std::string dot = topologyDot(t);
  EXPECT_NE(dot.find("style=dashed"), std::string::npos);  // only one end reports the link
  auto svg = svgOf(dot, error);
  ASSERT_TRUE(svg) << error;
  EXPECT_NE(svg->find("<svg"), std::string::npos);
  EXPECT_NE(svg->find("sw&quot;it\\ch"), std::string::npos);
  EXPECT_NE(svg->find("e;1"), std::string::npos);
  // Shown escaped: raw, they would reach a terminal, and no XML parser takes the picture.
  for (const std::string& text : {dot, wiringDot(t), *svg}) {
    EXPECT_EQ(text.find_first_of("\x1b\x07\xff"), std::string::npos) << text;
  }
  EXPECT_NE(svg->find("evil\\x1b[2J\\xff"), std::string::npos) << *svg;
  EXPECT_FALSE(svgOf("not dot {", error));
}

TEST(TopologyQueryTest, PrometheusRepliesAndAgentReplies) {
  const Json agents = Json::parse(R"({"status":"success","data":{"resultType":"vector","result":[
      {"metric":{"__name__":"lldp_agent_info","instance":"198.18.0.2:9808","job":"lldp","chassis_id":"c-leaf1",
                 "system_name":"leaf1","version":"1"},"value":[1,"1"]}]}})");
  const Json neighbors = Json::parse(R"({"status":"success","data":{"resultType":"vector","result":[
      {"metric":{"__name__":"lldp_neighbor_info","instance":"198.18.0.2:9808","job":"lldp","interface":"swp1",
                 "chassis_id":"c-spine1","chassis_id_subtype":"local","port_id":"swp3","port_id_subtype":"interfaceName",
                 "system_name":"spine1"},"value":[1,"1"]}]}})");
  std::string error;
  auto fleet = fleetFromPrometheus(agents, neighbors, error);
  ASSERT_TRUE(fleet) << error;
  EXPECT_EQ(linkTexts(topologyOf(*fleet)), std::vector<std::string>{"leaf1:swp1 spine1:swp3 one-sided"});

  EXPECT_FALSE(fleetFromPrometheus(Json::parse(R"({"status":"error","error":"bad query"})"), neighbors, error));
  EXPECT_EQ(error, "Prometheus answered: bad query");
  EXPECT_FALSE(fleetFromPrometheus(agents, Json::parse(R"({"status":"success","data":{"result":7}})"), error));
  EXPECT_FALSE(fleetFromPrometheus(Json::array(), neighbors, error));
  // Fields of the wrong type are missing fields, never an exception; series without the
  // labels of a cable are left out.
  EXPECT_FALSE(fleetFromPrometheus(Json::parse(R"({"status":1,"error":{"x":1}})"), neighbors, error));
  EXPECT_EQ(error, "Prometheus answered: no result");
  fleet = fleetFromPrometheus(agents, Json::parse(R"({"status":"success","data":{"result":[
      1, {"metric":{"job":"lldp","instance":"198.18.0.2:9808","interface":5}}, {"metric":7}]}})"), error);
  ASSERT_TRUE(fleet) << error;
  EXPECT_TRUE(topologyOf(*fleet).links.empty());

  const Json local = Json::parse(R"({"chassisIdentifier":{"subtype":4,"value":"02:00:00:00:00:01"},"sysName":"h1"})");
  const Json reply = Json::parse(R"({"portStatus":[{"intfId":"eth0","remoteSystem":[{"msap":{
      "chassisIdentifier":{"subtype":4,"value":"02:00:00:00:00:02"},"portIdentifier":{"subtype":5,"value":"eth9"}},
      "sysName":"h2","managementAddress":[{"key":{},"value":{"address":"198.18.0.3"}}]}]},{"intfId":"eth1"}]})");
  const FleetReport one = fleetFromAgent(reply, local, "sock");
  ASSERT_EQ(one.observations.size(), 1u);
  EXPECT_EQ(one.observations[0].portIdSubtype, "interfaceName");
  EXPECT_EQ(one.observations[0].managementAddress, "198.18.0.3");
  EXPECT_EQ(linkTexts(topologyOf(one)), std::vector<std::string>{"h1:eth0 h2:eth9 one-sided"});
}

TEST(TopologyQueryTest, ThePrometheusApiOverHttp) {
  // A stand-in for the server's API on a loopback port, on the real scheduler.
  Linux::AsioScheduler scheduler;
  std::string lastPath;
  Metrics::HttpServer server(scheduler, [&](std::string_view path, std::string& body, std::string& type) {
    lastPath = std::string(path);
    type = "application/json";
    body = R"({"status":"success","data":{"resultType":"vector","result":[]}})";
    return path == "/prom/api/v1/query";
  });
  std::string error;
  Metrics::ListenAddress address = *Metrics::listenAddressOf("127.0.0.1:0", error);
  ASSERT_TRUE(server.listen(address, error)) << error;
  const std::string base = "http://127.0.0.1:" + std::to_string(server.port());
  auto run = [&](std::string url) {
    auto done = std::async(std::launch::async, [url] {
      std::string e;
      auto fleet = prometheusFleet(url, "{job=\"lldp\"}", e);
      return fleet ? std::string("ok") : e;
    });
    while (done.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready) scheduler.runFor(0.005);
    return done.get();
  };
  EXPECT_EQ(run(base + "/prom/"), "ok");
  EXPECT_EQ(lastPath, "/prom/api/v1/query");
  EXPECT_EQ(run(base), base + ": HTTP 404 with a reply that is not JSON (is this a Prometheus server?)");
  EXPECT_TRUE(run("http://127.0.0.1:1").starts_with("http://127.0.0.1:1: ")) ;
  const std::string file = run("file:///etc");
  EXPECT_NE(file.find("not supported"), std::string::npos) << file;
}

}  // namespace
