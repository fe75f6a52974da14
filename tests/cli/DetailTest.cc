// A neighbour shown in full, grouped by TLV family with coded values by name, only the groups it
// sent; and names from the wire that try to steer the terminal shown escaped in every text view.
#include <gmock/gmock.h>

#include <regex>
#include <sstream>

#include "cli/Decode.h"
#include "cli/Detail.h"
#include "cli/Model.h"
#include "cli/Tables.h"
#include "data/Hex.h"
#include "data/SampleFrames.h"
#include "records/RecordsJson.h"

namespace Cli {
namespace {

using testing::HasSubstr;
using testing::Not;

// IEEE 802.1 and 802.3 TLVs and two unknown ones, no LLDP-MED and no power.
const char* const kSwitch = R"(
  02 07 04 02 00 00 00 00 01              # Chassis ID: MAC 02:00:00:00:00:01
  04 05 05 73 77 70 31                    # Port ID: interface name "swp1"
  06 02 00 78                             # TTL 120
  fe 06 00 80 c2 01 00 64                 # 802.1 port VLAN 100
  fe 0c 00 80 c2 03 00 64 05 75 73 65 72 73  # 802.1 VLAN 100 named "users"
  fe 09 00 80 c2 07 03 00 00 00 07        # 802.1 link aggregation: capable, aggregated, port 7
  fe 09 00 12 0f 01 03 6c 00 00 1e        # 802.3 MAC/PHY: autonegotiation on, advertised 0x6c00, MAU 30
  fe 06 00 12 0f 04 23 f0                 # 802.3 maximum frame size 9200
  12 02 ab cd                             # TLV type 9, which nobody defines
  fe 06 00 00 5e 01 01 02                 # OUI 00-00-5e subtype 1
  00 00
)";

Json decoded(const char* annotatedHex) {
  const DecodeResult r = decodeFrames({Frame{SampleFrames::hexBytes(annotatedHex), 0, false}});
  EXPECT_EQ(r.portStatus->remoteSystems(), 1u);
  return Platform::recordToJson(*r.portStatus->remoteSystem().begin().value());
}

// Runs of spaces as two: the column widths depend on the longest label.
std::string squeezed(const std::string& text) { return std::regex_replace(text, std::regex(" {2,}"), "  "); }

std::string detailText(const Json& rs) {
  std::ostringstream out;
  renderDetail(neighborDetail(rs, -1), out);
  return squeezed(out.str());
}

TEST(DetailTest, EachFamilyIsAGroupWithItsValuesByName) {
  const std::string sw = detailText(decoded(kSwitch));
  for (const char* line : {"  IEEE 802.1\n", "    Port VLAN ID          100\n", "    VLAN name             100 users\n",
                           "    Link aggregation      capable, aggregated, port ID 7\n", "  IEEE 802.3\n",
                           "    Autonegotiation       supported, enabled\n",
                           "    Advertised            10BASE-T, 10BASE-T full duplex, 100BASE-TX, 100BASE-TX full "
                           "duplex (0x6c00)\n",
                           "    MAU type              1000BASE-T full duplex (30)\n",
                           "    Maximum frame size    9200\n", "  Unknown TLVs\n", "    TLV type 9            ab:cd\n",
                           "    OUI 00-00-5e subtype 1  01:02\n"}) {
    EXPECT_THAT(sw, HasSubstr(squeezed(line))) << sw;
  }
  EXPECT_THAT(sw, Not(HasSubstr("LLDP-MED")));
  EXPECT_THAT(sw, Not(HasSubstr("Power via MDI")));

  const std::string phone = detailText(decoded(SampleFrames::kPhone));
  for (const char* line : {"  Power via MDI\n", "    Port class", "PD\n", "Power type", "type 2 PD\n",
                           "Power priority", "critical\n", "Requested power", "13.0 W\n", "  LLDP-MED\n",
                           "Device type", "endpoint class III\n",
                           "voice: VLAN 100 tagged, priority 5, DSCP 46\n",
                           "voice signaling: VLAN 100 tagged, priority 4, DSCP 24\n",
                           "37.386100, -122.083900, altitude 15.50 m, datum WGS84\n", "country US, of the client\n",
                           "city", "San Jose\n", "Model", "Phone 79\n"}) {
    EXPECT_THAT(phone, HasSubstr(squeezed(line))) << phone;
  }
  EXPECT_THAT(phone, Not(HasSubstr("IEEE 802.1")));
  EXPECT_TRUE(neighborDetail(Json::object(), 5).size() == 1) << "a record without fields is no crash";
}

TEST(DetailTest, NamesThatSteerTheTerminalAreShownEscapedInEveryView) {
  Json rs = decoded(kSwitch);
  rs["sysName"] = "evil\x1b[2J\x1b[H\nforged line \xff\xfe";
  rs["portDesc"] = "\xe2\x80\xae" "1pws";
  rs["msap"]["chassisIdentifier"]["value"] = "a\rb";
  const Json reply = {{"now", 10.0}, {"portStatus", {{{"intfId", "eth1"}, {"remoteSystem", {rs}}}}}};
  std::ostringstream table, detail;
  renderNeighbors(neighborRows(reply), table);
  renderNeighborDetails(reply, detail);
  const std::string line = watchLine({{"kind", "added"},
                                      {"path", "l2discovery/lldp/status/all/portStatus/eth1/remoteSystem/1"},
                                      {"reason", "new"},
                                      {"value", rs}},
                                     0);
  for (const std::string& text : {table.str(), detail.str(), line}) {
    EXPECT_THAT(text, HasSubstr("evil\\x1b[2J\\x1b[H\\nforged line \\xff\\xfe")) << text;
    EXPECT_THAT(text, HasSubstr("a\\rb"));
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
    EXPECT_EQ(text.find('\r'), std::string::npos);
  }
  EXPECT_THAT(detail.str(), HasSubstr("\\u202e1pws"));
  EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 0);
  // One row per neighbour: the table has its header, the row and the count.
  const std::string rows = table.str();
  EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), 3);
}

}  // namespace
}  // namespace Cli
