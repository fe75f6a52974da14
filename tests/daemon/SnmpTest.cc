// The SNMP subagent with Debian's snmpd as its master, both in network namespace A: agent A
// learns agent B (an LLDP-MED endpoint with policies and inventory, and a management address);
// a bulk walk of the LLDP MIB through snmpd agrees with `lldp show neighbors --json`; IF-MIB
// names the port; a walk stays consistent while B changes; a restart of snmpd is followed; a
// neighbour that ages out leaves the walk; and snmpd stopped for 30 s delays nothing. These
// start snmpd and two agents, so they run as root in the release pass only.
#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <map>
#include <set>

#include "Processes.h"

namespace Daemon::Test {
namespace {

using Walk = std::map<std::string, std::string>;

const std::string kRem = ".1.0.8802.1.1.2.1.4";
const std::string kDot1 = ".1.0.8802.1.1.2.1.5.32962.1";
const std::string kDot3 = ".1.0.8802.1.1.2.1.5.4623.1";
const std::string kMed = ".1.0.8802.1.1.2.1.5.4795.1";

std::string num(int64_t v) { return std::to_string(v); }
std::string truth(bool v) { return v ? "1" : "2"; }
// BITS of one octet: bit 0 is the most significant.
std::string bitsOctet(unsigned v) {
  unsigned out = 0;
  for (int i = 0; i < 8; ++i) {
    if (v & (1u << i)) out |= 0x80u >> i;
  }
  return std::string(1, static_cast<char>(out));
}
// "aa:bb:cc" (as the JSON shows bytes) into bytes.
std::string hexPairs(const std::string& text) {
  std::string out;
  for (size_t i = 0; i + 1 < text.size() + 1; i += 3) out += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
  return text.empty() ? "" : out;
}
std::string addressBytes(int subtype, const std::string& text) {
  unsigned char buf[16];
  if (subtype == 1 && inet_pton(AF_INET, text.c_str(), buf) == 1) return std::string(reinterpret_cast<char*>(buf), 4);
  if (subtype == 2 && inet_pton(AF_INET6, text.c_str(), buf) == 1) return std::string(reinterpret_cast<char*>(buf), 16);
  return hexPairs(text);
}
std::string stringIndex(const std::string& bytes) {
  std::string out = "." + num(static_cast<int64_t>(bytes.size()));
  for (unsigned char c : bytes) out += "." + num(c);
  return out;
}

// The CPU wake-up latency all requests together ask for, as the kernel's device reports it.
int32_t cpuLatencyLimit() {
  int32_t value = -2;
  std::ifstream("/dev/cpu_dma_latency", std::ios::binary).read(reinterpret_cast<char*>(&value), sizeof value);
  return value;
}

class SnmpTest : public PeersFixture {
 protected:
  void SetUp() override {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "starts snmpd and two agents: runs in the release pass only";
#endif
    if (!run("command -v snmpd >/dev/null && command -v snmpbulkwalk >/dev/null")) {
      GTEST_SKIP() << "needs Debian's snmpd and snmp packages";
    }
    PeersFixture::SetUp();
    if (IsSkipped()) return;
    ASSERT_TRUE(run("ip -n " + a_.ns + " link set lo up"));
    agentx_ = file("agentx.sock");
  }

  void startSnmpd() {
    std::ofstream(file("snmpd.conf")) << "master agentx\nagentXSocket " << agentx_
                                      << "\nagentaddress udp:127.0.0.1:1161\nrocommunity public 127.0.0.1\n";
    std::filesystem::create_directories(file("snmp"));
    snmpd_ = started(spawn({"ip", "netns", "exec", a_.ns, "snmpd", "-f", "-Lo", "-C", "-c", file("snmpd.conf"), "-p",
                            file("snmpd.pid"), "--persistentDir=" + file("snmp")},
                           file("snmpd.log"), [] { setenv("MIBS", "", 1); }));
  }
  void stopSnmpd() {
    kill(snmpd_, SIGTERM);
    waitFor(snmpd_, 5s);
    forget(snmpd_);
  }

  // snmpbulkwalk through snmpd in A's namespace: every instance under the prefix, strings as
  // their bytes, numbers in decimal, object identifiers as dotted text.
  Walk walk(const std::string& prefix, const std::string& repetitions = "-Cr50") {
    const std::string out = file("walk-" + std::to_string(++walks_) + ".out");
    const pid_t pid = spawn({"ip", "netns", "exec", a_.ns, "snmpbulkwalk", "-v2c", "-c", "public", "-On", "-Ox", "-Oe",
                             "-Ot", repetitions, "-t", "2", "-r", "0", "127.0.0.1:1161", prefix},
                            out, [] { setenv("MIBS", "", 1); });
    if (waitFor(pid, 20s) < 0) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
    Walk result;
    std::istringstream in(readFile(out));
    std::string line, name;
    while (std::getline(in, line)) {
      const size_t eq = line.find(" = ");
      if (line.starts_with(".") && eq != std::string::npos) {
        name = line.substr(0, eq);
        std::string value = line.substr(eq + 3);
        if (value.starts_with("Hex-STRING: ")) {
          value = value.substr(12);
        } else if (value == "\"\"") {
          value.clear();
        } else {
          for (const char* type : {"INTEGER: ", "Gauge32: ", "Counter32: ", "Timeticks: ", "OID: ", "STRING: "}) {
            if (value.starts_with(type)) value = value.substr(std::strlen(type));
          }
          if (!value.starts_with("No Such") && !value.starts_with("No more")) result[name] = value;
          name.clear();
          continue;
        }
        result[name] = hexText(value);
      } else if (!name.empty()) {
        result[name] += hexText(line);  // a long string goes on over lines
      }
    }
    return result;
  }
  static std::string hexText(const std::string& text) {
    std::string out;
    std::istringstream in(text);
    for (std::string pair; in >> pair;) out += static_cast<char>(std::stoi(pair, nullptr, 16));
    return out;
  }
  int32_t ifIndexOf(const Peer& peer) {
    const std::string out = file("ifindex.out");
    run("ip -n " + peer.ns + " -o link show " + peer.intf + " > " + out);
    return std::atoi(readFile(out).c_str());
  }
  // Waits until the subagent serves A's system name through snmpd.
  bool served(std::chrono::milliseconds limit) {
    return eventually([&] { return walk(".1.0.8802.1.1.2.1.3.3").size() == 1; }, limit);
  }

  // Every attribute of every neighbour that `lldp show neighbors --json` shows has its value
  // in the walk; an attribute without an object in the MIB modules is named as such.
  void expectWalkShows(const Walk& w, const Json& neighbours, int32_t port) {
    static const std::set<std::string> kNoObject = {
        "index", "ethAddr", "ttl", "creationTime", "lastRefreshTime", "lastChangeTime", "expiryTime",
        "vidUsageDigest", "managementVid", "lldpMedTlvReceived"};
    for (const Json& n : neighbours) {
      const std::string tail = "." + num(port) + "." + num(n["index"].get<int64_t>());
      std::string row;
      for (const auto& [o, v] : w) {
        if (o.starts_with(kRem + ".1.1.4.") && o.ends_with(tail)) row = o.substr(kRem.size() + 6);
      }
      ASSERT_FALSE(row.empty()) << "no lldpRemTable row for port " << port << " index " << n["index"];
      const auto expect = [&](const std::string& what, const std::string& oid, const std::string& value) {
        const auto it = w.find(oid);
        if (it == w.end()) {
          ADD_FAILURE() << what << ": " << oid << " is not in the walk";
          return;
        }
        EXPECT_EQ(it->second, value) << what << " at " << oid;
      };
      const auto idText = [](const Json& id, int macSubtype) {
        const std::string v = id["value"].get<std::string>();
        return id["subtype"] == macSubtype ? hexPairs(v) : v;
      };
      const auto received = [&](const std::string& flag) { return n.value(flag, false); };
      std::set<std::string> seen;
      for (const auto& [key, value] : n.items()) {
        seen.insert(key);
        if (kNoObject.contains(key) || key.ends_with("TlvReceived")) continue;
        if (key == "msap") {
          const Json& c = value["chassisIdentifier"];
          const Json& p = value["portIdentifier"];
          expect(key, kRem + ".1.1.4" + row, num(c["subtype"]));
          expect(key, kRem + ".1.1.5" + row, idText(c, 4));
          expect(key, kRem + ".1.1.6" + row, num(p["subtype"]));
          expect(key, kRem + ".1.1.7" + row, idText(p, 3));
        } else if (key == "portDesc" || key == "sysName" || key == "sysDesc") {
          const std::string col = key == "portDesc" ? ".8" : key == "sysName" ? ".9" : ".10";
          expect(key, kRem + ".1.1" + col + row, value.get<std::string>());
        } else if (key == "sysCapSupported" || key == "sysCapEnabled") {
          expect(key, kRem + ".1.1" + (key == "sysCapSupported" ? ".11" : ".12") + row, bitsOctet(value.get<unsigned>()));
        } else if (key == "managementAddress") {
          for (const Json& m : value) {
            const Json& a = m["value"];
            const std::string index = row + "." + num(a["addrSubtype"]) +
                                      stringIndex(addressBytes(a["addrSubtype"], a["address"].get<std::string>()));
            expect(key, kRem + ".2.1.3" + index, num(a["ifSubtype"]));
            expect(key, kRem + ".2.1.4" + index, num(a["ifId"]));
            expect(key, kRem + ".2.1.5" + index, a["oid"].empty() ? ".0.0" : "?");
          }
        } else if (key == "unknownTlv") {
          for (const Json& t : value) expect(key, kRem + ".3.1.2" + row + "." + num(t["value"]["type"]), hexPairs(t["value"]["value"]));
        } else if (key == "unknownOrgDefTlv") {
          for (const Json& t : value) {
            const Json& k = t["key"];
            std::string oui;
            for (char ch : hexPairs(k["oui"].get<std::string>())) oui += "." + num(static_cast<unsigned char>(ch));
            expect(key, kRem + ".4.1.4" + row + oui + "." + num(k["subtype"]) + "." + num(k["index"]),
                   hexPairs(t["value"]["value"]));
          }
        } else if (key == "portVlanId") {
          if (received("portVlanIdTlvReceived")) expect(key, kDot1 + ".3.1.1.1" + row, num(value));
        } else if (key == "portAndProtocolVlan") {
          for (const Json& v : value) {
            expect(key, kDot1 + ".3.2.1.2" + row + "." + num(v["key"]), truth(v["value"]["supported"]));
            expect(key, kDot1 + ".3.2.1.3" + row + "." + num(v["key"]), truth(v["value"]["enabled"]));
          }
        } else if (key == "vlanName") {
          for (const Json& v : value) expect(key, kDot1 + ".3.3.1.2" + row + "." + num(v["key"]), v["value"]["name"]);
        } else if (key == "protocolIdentityInfo") {
          for (const Json& v : value) expect(key, kDot1 + ".3.4.1.2" + row + "." + num(v["key"]), hexPairs(v["value"]["identity"]));
        } else if (key == "linkAggregationInfo") {
          if (!received("linkAggregationTlvReceived")) continue;
          expect(key, kDot3 + ".3.3.1.1" + row, bitsOctet(value["status"].get<unsigned>() & 3));
          expect(key, kDot3 + ".3.3.1.2" + row, num(value["portId"]));
        } else if (key == "macPhyConfigStatusInfo") {
          if (!received("macPhyConfigStatusTlvReceived")) continue;
          const unsigned cap = value["autoNegAdvertisedCap"];
          expect(key, kDot3 + ".3.1.1.1" + row, truth(value["autoNegSupported"]));
          expect(key, kDot3 + ".3.1.1.2" + row, truth(value["autoNegEnabled"]));
          expect(key, kDot3 + ".3.1.1.3" + row, std::string{static_cast<char>(cap >> 8), static_cast<char>(cap & 0xff)});
          expect(key, kDot3 + ".3.1.1.4" + row, num(value["operMauType"]));
        } else if (key == "powerViaMdiInfo") {
          if (!received("powerViaMdiTlvReceived")) continue;
          expect(key, kDot3 + ".3.2.1.1" + row, num(value["portClass"]));
          expect(key, kDot3 + ".3.2.1.2" + row, truth(value["pseMdiPowerSupported"]));
          expect(key, kDot3 + ".3.2.1.3" + row, truth(value["pseMdiPowerEnabled"]));
          expect(key, kDot3 + ".3.2.1.4" + row, truth(value["psePairsControlAbility"]));
          expect(key, kDot3 + ".3.2.1.5" + row, num(value["psePowerPair"]));
          expect(key, kDot3 + ".3.2.1.6" + row, num(value["powerClass"]));
        } else if (key == "maximumFrameSizeInfo") {
          if (received("maximumFrameSizeTlvReceived")) expect(key, kDot3 + ".3.4.1.1" + row, num(value));
        } else if (key == "medCapabilitiesInfo") {
          if (!received("medCapabilitiesTlvReceived")) continue;
          expect(key, kMed + ".3.1.1.1" + row, bitsOctet(value["capabilities"].get<unsigned>()));
          expect(key, kMed + ".3.1.1.3" + row, num(value["deviceType"]));
        } else if (key == "networkPolicyTlv") {
          for (const Json& p : value) {
            const unsigned app = p["key"];
            ASSERT_LT(app, 8u) << "the test's policies use application types 1 to 7";
            const std::string index = row + ".1." + num(0x80 >> app);
            const Json& v = p["value"];
            expect(key, kMed + ".3.2.1.2" + index, num(v["vlanId"]));
            expect(key, kMed + ".3.2.1.3" + index, num(v["l2Priority"]));
            expect(key, kMed + ".3.2.1.4" + index, num(v["dscp"]));
            expect(key, kMed + ".3.2.1.5" + index, truth(v["unknownPolicy"]));
            expect(key, kMed + ".3.2.1.6" + index, truth(v["tagged"]));
          }
        } else if (key == "locationId") {
          if (value["elinPresent"]) expect(key, kMed + ".3.4.1.2" + row + ".4", value["elin"]);
          if (value["civicAddressPresent"] || value["coordinatePresent"]) ADD_FAILURE() << "the test sends no such location";
        } else if (key.ends_with("TlvInfo")) {
          static const std::vector<std::string> kInventory = {
              "hardwareRevisionTlvInfo", "firmwareRevisionTlvInfo", "softwareRevisionTlvInfo", "serialNumberTlvInfo",
              "manufacturerNameTlvInfo", "modelNameTlvInfo", "assetIDTlvInfo"};
          const auto it = std::find(kInventory.begin(), kInventory.end(), key);
          ASSERT_NE(it, kInventory.end()) << key;
          const std::string oid = kMed + ".3.3.1." + num(it - kInventory.begin() + 1) + row;
          if (value.get<std::string>().empty()) {
            EXPECT_FALSE(w.contains(oid)) << key << ": not sent, so absent";
          } else {
            expect(key, oid, value);
          }
        } else {
          ADD_FAILURE() << "the neighbour's attribute " << key << " has no place in this test: add it";
        }
      }
      EXPECT_TRUE(seen.contains("msap") && seen.contains("managementAddress") && seen.contains("networkPolicyTlv"));
    }
  }

  std::string agentxConfig() const {
    return "snmp.enabled = true\nsnmp.agentx-socket = \"" + agentx_ + "\"\n";
  }
  // B: an LLDP-MED endpoint (class 3) with a voice policy, inventory and extended power, a VLAN
  // name, an organisationally specific TLV of its own, and a management address.
  std::string endpointConfig(const std::string& name, const std::string& description) const {
    return "transmit-interval = 5\nhold-time = 10\nsystem.chassis-id = \"02:00:00:00:ee:0b\"\nsystem.name = \"" + name +
           "\"\nsystem.description = \"" + description + "\"\n[interface.\"" + b_.intf + "\"]\n" +
           "external-tlv.00-12-bb.1.1 = \"00 33 03\"\n"           // capabilities, endpoint class 3
           "external-tlv.00-12-bb.2.1 = \"01 40 c8 ae\"\n"        // voice: tagged, VLAN 100, priority 2, DSCP 46
           "external-tlv.00-12-bb.5.1 = \"31 2e 30\"\n"           // hardware revision "1.0"
           "external-tlv.00-12-bb.10.1 = \"70 68 6f 6e 65\"\n"    // model name "phone"
           "external-tlv.00-12-bb.4.1 = \"51 00 82\"\n"           // extended power: PD, from PSE, critical, 13 W
           "external-tlv.00-80-c2.3.1 = \"00 14 05 76 6f 69 63 65\"\n"  // VLAN 20 named "voice"
           "external-tlv.00-aa-bb.7.1 = \"01 02 03\"\n";
  }

  std::string agentx_;
  pid_t snmpd_ = -1;
  int walks_ = 0;
};

TEST_F(SnmpTest, WalkAgreesWithTheAgentFollowsChangesAndTheMaster) {
  ASSERT_TRUE(run("ip -n " + b_.ns + " addr add 192.0.2.2/24 dev " + b_.intf));
  startSnmpd();
  const int32_t latencyLimit = cpuLatencyLimit();
  ASSERT_NO_FATAL_FAILURE(start(a_, "transmit-interval = 5\n" + agentxConfig()));
  ASSERT_NO_FATAL_FAILURE(start(b_, endpointConfig("phone-0", "desc-0")));
  const Json fromB = neighbourOnceIt(
      a_, [](const Json& n) { return n["medCapabilitiesTlvReceived"] == true && !n["managementAddress"].empty(); }, 15s);
  ASSERT_TRUE(fromB.is_object()) << readFile(a_.log) << readFile(b_.log);
  ASSERT_TRUE(served(10s)) << readFile(a_.log) << readFile(file("snmpd.log"));

  // Everything A shows of B is in the walk, under the kernel's index of A's port.
  const int32_t port = ifIndexOf(a_);
  ASSERT_GT(port, 0);
  const Walk all = walk(".1.0.8802.1.1.2");
  expectWalkShows(all, neighbours(a_), port);
  EXPECT_EQ(all.at(".1.0.8802.1.1.2.1.3.7.1.3." + num(port)), a_.intf);
  EXPECT_EQ(walk(".1.3.6.1.2.1.2.2.1.2." + num(port)).at(".1.3.6.1.2.1.2.2.1.2." + num(port)), a_.intf) << "ifDescr";
  // snmp.fast-walks: A holds the kernel's CPU latency request, and asks nothing once walks end.
  if (::access("/dev/cpu_dma_latency", W_OK) == 0) {
    EXPECT_TRUE(run("ls -l /proc/" + num(a_.pid) + "/fd | grep -q /dev/cpu_dma_latency"));
    EXPECT_TRUE(eventually([&] { return cpuLatencyLimit() == latencyLimit; }, 2s));
  }
  // B's extended power, read from its TLV: a powered device asking for 13 W.
  bool pd = false;
  for (const auto& [o, v] : all) pd |= o.starts_with(kMed + ".3.7.1.1.") && v == "130";
  EXPECT_TRUE(pd);

  // B renames itself and changes its description in one go, again and again, while A is walked
  // slowly: no row of a walk has the name of one state and the description of another.
  int consistent = 0;
  for (int k = 1; k <= 6; ++k) {
    std::ofstream(file("b.toml")) << endpointConfig("phone-" + num(k), "desc-" + num(k));
    kill(b_.pid, SIGHUP);
    for (int w = 0; w < 3; ++w) {
      std::map<std::string, std::pair<std::string, std::string>> rows;
      for (const auto& [o, v] : walk(kRem + ".1", "-Cr1")) {
        if (o.starts_with(kRem + ".1.1.9.")) rows[o.substr(kRem.size() + 7)].first = v;
        if (o.starts_with(kRem + ".1.1.10.")) rows[o.substr(kRem.size() + 8)].second = v;
      }
      for (const auto& [index, row] : rows) {
        if (row.first.empty() || row.second.empty()) continue;
        EXPECT_EQ(row.first.substr(6), row.second.substr(5)) << "row " << index << " mixes two states";
        ++consistent;
      }
    }
  }
  EXPECT_GT(consistent, 0);

  // snmpd restarts: the subagent registers again.
  stopSnmpd();
  startSnmpd();
  EXPECT_TRUE(served(5s)) << readFile(a_.log);
  EXPECT_THAT(readFile(a_.log), ::testing::HasSubstr("LLDP_SNMP_DISCONNECTED"));

  // B dies without a word: once its 10 s run out, A's walk has no remote rows.
  kill(b_.pid, SIGKILL);
  waitFor(b_.pid, 1s);
  forget(b_.pid);
  EXPECT_TRUE(eventually([&] { return walk(kRem + ".1").empty(); }, 15s));
  EXPECT_TRUE(neighbours(a_).empty());
}

TEST_F(SnmpTest, AStoppedMasterDelaysNothing) {
  startSnmpd();
  ASSERT_NO_FATAL_FAILURE(start(a_, "transmit-interval = 5\nsnmp.notifications = true\n" + agentxConfig()));
  ASSERT_NO_FATAL_FAILURE(start(b_, "transmit-interval = 5\nsystem.name = \"beta\"\n"));
  ASSERT_TRUE(neighbourOnceIt(a_, anyone, 10s).is_object());
  ASSERT_TRUE(neighbourOnceIt(b_, anyone, 10s).is_object());
  ASSERT_TRUE(served(10s)) << readFile(a_.log);

  // snmpd stopped for 30 s while B renames itself (notifications for A to send): A's state
  // socket answers at once throughout, A keeps receiving, and B keeps hearing A every 5 s.
  kill(snmpd_, SIGSTOP);
  const auto stoppedAt = std::chrono::steady_clock::now();
  const auto elapsed = [&] { return std::chrono::steady_clock::now() - stoppedAt; };
  std::chrono::nanoseconds slowest{0};
  double heardEarly = 0, heardLate = 0;
  int renames = 0;
  while (elapsed() < 30s) {
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(lldp(a_, {"show", "status", "--json"}).first, 0);
    slowest = std::max(slowest, std::chrono::steady_clock::now() - before);
    if (renames < 5 && elapsed() > 1s * (renames + 1)) lldp(b_, {"configure", "system.name", "beta-" + num(++renames)});
    if (heardEarly == 0 && elapsed() > 5s) heardEarly = neighbourOnceIt(b_, anyone, 1s).value("lastRefreshTime", 0.0);
    if (elapsed() > 27s) heardLate = neighbourOnceIt(b_, anyone, 1s).value("lastRefreshTime", 0.0);
    std::this_thread::sleep_for(300ms);
  }
  EXPECT_TRUE(hears(a_, [](const Json& n) { return n["sysName"] == "beta-5"; }, 1s)) << "A kept receiving";
  kill(snmpd_, SIGCONT);
  // `lldp` is a process started each time: its own start-up is most of this.
  EXPECT_LT(slowest, 250ms * kSlowdown);
  EXPECT_GT(heardEarly, 0);
  EXPECT_GE(heardLate - heardEarly, 15) << "A kept sending every 5 s";
  // Back: the subagent answers again, on the same session.
  EXPECT_TRUE(served(5s));
  EXPECT_THAT(readFile(a_.log), ::testing::Not(::testing::HasSubstr("LLDP_SNMP_DISCONNECTED")));
}

}  // namespace
}  // namespace Daemon::Test
