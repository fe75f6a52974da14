// The Prometheus page from records filled by hand: the exact text of a small switch, label
// escaping of hostile neighbour text, and the guards that keep one neighbour from spoiling a scrape.
#include <gtest/gtest.h>

#include "metrics/Exposition.h"

namespace {

using namespace Lldp;

struct ExpositionTest : ::testing::Test {
  Status::Ptr status = Platform::make<Status>("1");
  LocalSystem::Ptr local = Platform::make<LocalSystem>();

  RemoteSystem::Ptr neighbour(const std::string& intf, int32_t index, ChassisIdentifier chassis,
                              PortIdentifier port) {
    auto ps = status->portStatus(Konet::IntfId(intf));
    if (!ps) ps = status->portStatusIs(Konet::IntfId(intf), 0.0);
    Msap msap{std::move(chassis), std::move(port)};
    auto rs = ps->remoteSystemIs(index, msap);
    ps->remoteSystemByMsapIs(msap, rs);
    return rs;
  }
  std::string page() const {
    std::string out;
    Metrics::exposition({status.get(), local.get(), "1.2.3"}, out);
    return out;
  }
  // The page's lines that start with a metric name (samples only).
  std::vector<std::string> samples(const std::string& name) const {
    std::vector<std::string> lines;
    const std::string text = page();
    size_t at = 0;
    while (at < text.size()) {
      const size_t end = text.find('\n', at);
      const std::string line = text.substr(at, end - at);
      if (line.starts_with(name + "{") || line.starts_with(name + " ")) lines.push_back(line);
      at = end + 1;
    }
    return lines;
  }
};

TEST_F(ExpositionTest, OneSwitchPortWithANeighbourInFull) {
  local->chassisIdentifierIs({chassisIdMacAddress, ChassisId(std::string("\x02\x00\x00\x00\x00\x01", 6))});
  local->sysNameIs(BoundedString255("leaf1"));
  auto rs = neighbour("swp1", 1, {chassisIdMacAddress, ChassisId(std::string("\x02\x00\x00\x00\x00\x02", 6))},
                      {portIdInterfaceName, PortId("swp3")});
  rs->sysNameIs(BoundedString255("spine1"));
  rs->portDescIs(BoundedString255("to leaf1"));
  const ManagementAddress::Key v6{afIpv6, ManAddress(std::string(15, '\0') + "\x01")};
  const ManagementAddress::Key v4{afIpv4, ManAddress(std::string("\xc6\x12\x00\x02", 4))};
  rs->managementAddressIs(v6, ManagementAddress(v6, ifNumberingIfIndex, 7));
  rs->managementAddressIs(v4, ManagementAddress(v4, ifNumberingIfIndex, 7));
  auto ps = status->portStatus(Konet::IntfId("swp1"));
  ps->txFramesTotalInc(12);
  ps->rxFramesTotalInc(11);
  ps->rxKernelDropsTotalInc(3);
  status->remTablesInsertsInc(1);

  const std::string text = page();
  // Every family has its help and type once, before its samples.
  EXPECT_NE(text.find("# HELP lldp_port_tx_frames_total LLDPDUs sent on the port.\n"
                      "# TYPE lldp_port_tx_frames_total counter\n"
                      "lldp_port_tx_frames_total{interface=\"swp1\"} 12\n"),
            std::string::npos);
  EXPECT_NE(text.find("lldp_port_rx_frames_total{interface=\"swp1\"} 11\n"), std::string::npos);
  EXPECT_NE(text.find("lldp_port_rx_kernel_drops_total{interface=\"swp1\"} 3\n"), std::string::npos);
  EXPECT_NE(text.find("# TYPE lldp_port_neighbors gauge\nlldp_port_neighbors{interface=\"swp1\"} 1\n"),
            std::string::npos);
  EXPECT_NE(text.find("# TYPE lldp_remote_table_inserts_total counter\nlldp_remote_table_inserts_total 1\n"),
            std::string::npos);
  // The first management address in address order: IPv4 before IPv6.
  EXPECT_EQ(samples("lldp_neighbor_info"),
            std::vector<std::string>{
                "lldp_neighbor_info{interface=\"swp1\",chassis_id=\"02:00:00:00:00:02\",chassis_id_subtype=\"macAddress\","
                "port_id=\"swp3\",port_id_subtype=\"interfaceName\",system_name=\"spine1\",port_description=\"to leaf1\","
                "management_address=\"198.18.0.2\"} 1"});
  EXPECT_EQ(samples("lldp_agent_info"),
            std::vector<std::string>{"lldp_agent_info{version=\"1.2.3\",chassis_id=\"02:00:00:00:00:01\","
                                     "chassis_id_subtype=\"macAddress\",system_name=\"leaf1\"} 1"});
  EXPECT_EQ(text.back(), '\n');
}

TEST_F(ExpositionTest, NeighbourTextIsEscapedAndKeptValidUtf8) {
  auto rs = neighbour("eth0", 1, {chassisIdLocal, ChassisId("c\"1")}, {chassisIdLocal, PortId("p\\1")});
  // A quote, a backslash and a newline are escaped; a lone continuation byte, a truncated
  // sequence and an overlong encoding are each replaced by U+FFFD; valid UTF-8 passes as it is.
  rs->sysNameIs(BoundedString255("a\"b\\c\nd\x80" "e\xc3" "f\xc0\xaf" "g\xe2\x82\xac\xf0\x9f\x98\x80"));
  rs->portDescIs(BoundedString255(std::string("tab\there\0nul", 12)));
  const auto lines = samples("lldp_neighbor_info");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("chassis_id=\"c\\\"1\""), std::string::npos) << lines[0];
  EXPECT_NE(lines[0].find("port_id=\"p\\\\1\",port_id_subtype=\"local\""), std::string::npos) << lines[0];
  EXPECT_NE(lines[0].find("system_name=\"a\\\"b\\\\c\\nd\xef\xbf\xbd" "e\xef\xbf\xbd" "f\xef\xbf\xbd\xef\xbf\xbd"
                          "g\xe2\x82\xac\xf0\x9f\x98\x80\""),
            std::string::npos)
      << lines[0];
  EXPECT_NE(lines[0].find(std::string("port_description=\"tab\there\0nul\"", 31)), std::string::npos);
}

TEST_F(ExpositionTest, NeighboursThatPrintAlikeOnOnePortAreWrittenOnce) {
  // The bytes 01 02 print as hexadecimal, exactly as the text "01:02" does: two MSAPs, one label
  // set. A scraper refuses a page with a repeated series, so the second is left out; on another
  // port the same labels differ by interface and stay.
  neighbour("eth0", 1, {chassisIdLocal, ChassisId(std::string("\x01\x02", 2))}, {portIdLocal, PortId("p")});
  neighbour("eth0", 2, {chassisIdLocal, ChassisId("01:02")}, {portIdLocal, PortId("p")});
  neighbour("eth1", 1, {chassisIdLocal, ChassisId("01:02")}, {portIdLocal, PortId("p")});
  EXPECT_EQ(samples("lldp_neighbor_info").size(), 2u);
  EXPECT_EQ(samples("lldp_port_neighbors"),
            (std::vector<std::string>{"lldp_port_neighbors{interface=\"eth0\"} 2",
                                      "lldp_port_neighbors{interface=\"eth1\"} 1"}));
}

// The names themselves show on the pages above; a subtype without one is its number.
TEST_F(ExpositionTest, UnknownSubtypesAreTheirNumbers) {
  EXPECT_EQ(Metrics::portIdSubtypeLabel(0), "0");
  EXPECT_EQ(Metrics::chassisIdSubtypeLabel(200), "200");
}

TEST_F(ExpositionTest, WithoutAgentRecordsOnlyTheAgentInfo) {
  std::string out;
  Metrics::exposition({nullptr, nullptr, "1.2.3"}, out);
  EXPECT_EQ(out,
            "# HELP lldp_agent_info This LLDP agent, with its version and identity as labels; always 1.\n"
            "# TYPE lldp_agent_info gauge\n"
            "lldp_agent_info{version=\"1.2.3\"} 1\n");
}

}  // namespace
