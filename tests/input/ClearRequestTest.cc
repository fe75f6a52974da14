// Clearing the neighbour tables: carried out once per request, also across a new Input root.
#include "InputFixture.h"

namespace InputTest {
namespace {

using ClearRequestTest = InputFixture;

TEST_F(ClearRequestTest, RequestIsCarriedOutOnce) {
  start();
  addPhy("Ethernet1");
  addPhy("Ethernet2");
  scheduler.runFor(1);
  fromNeighbour("Ethernet1", 5);
  fromNeighbour("Ethernet2", 6);
  auto neighbours = [this](const char* intf) { return status->portStatus(intf)->remoteSystems(); };
  ASSERT_EQ(neighbours("Ethernet1"), 1u);
  ASSERT_EQ(neighbours("Ethernet2"), 1u);

  remTablesCliConfig->remTablesClearRequestIs(Lldp::RemTablesClearRequest{50, "admin", "ssh"});
  EXPECT_EQ(neighbours("Ethernet1"), 0u);
  EXPECT_EQ(neighbours("Ethernet2"), 0u);
  EXPECT_EQ(status->portStatus("Ethernet1")->remoteSystemByMsaps(), 0u);
  EXPECT_EQ(remTablesStatus->remTablesLastClearTime(), 50);
  ASSERT_EQ(logs.count("LLDP_REMOTE_TABLES_CLEARED"), 1u);
  EXPECT_EQ(logs.entries().back().text, "LLDP neighbor table cleared by admin on ssh");

  // A request that is not newer does nothing, also from a new Input root.
  fromNeighbour("Ethernet1", 5);
  remTablesCliConfig->remTablesClearRequestIs(Lldp::RemTablesClearRequest{50, "other", "console"});
  auto again = Input::rootFactory("inputRoot", scheduler, 1);
  again->statusIs(status);
  again->remTablesStatusIs(remTablesStatus);
  again->remTablesClearRequestSmIs(remTablesCliConfig);
  again.reset();
  EXPECT_EQ(neighbours("Ethernet1"), 1u);
  EXPECT_EQ(logs.count("LLDP_REMOTE_TABLES_CLEARED"), 1u);

  remTablesCliConfig->remTablesClearRequestIs(Lldp::RemTablesClearRequest{60, "ops", "api"});
  EXPECT_EQ(neighbours("Ethernet1"), 0u);
  EXPECT_EQ(logs.count("LLDP_REMOTE_TABLES_CLEARED"), 2u);
  EXPECT_EQ(remTablesStatus->remTablesLastClearTime(), 60);
}

}  // namespace
}  // namespace InputTest
