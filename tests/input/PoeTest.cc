// Power over Ethernet both ways: the grant into each port's PoE information, and the power the
// neighbours request summed back into it as the remote tables change.
#include <gtest/gtest.h>

#include "input/Poe.h"
#include "platform/Reactor.h"

namespace Lldp::Agent::Input {
namespace {

using Environment::Power::PoePortStatus;

struct PoeTest : ::testing::Test {
  Platform::Dir::Ptr poeDir = Platform::make<Platform::Dir>("poePort");
  Status::Ptr status = Platform::make<Status>("1");
  LocalSystem::Ptr localSystem = Platform::make<LocalSystem>();
  std::unique_ptr<PoeSm> poeSm;
  double now = 100;

  PoeTest() {
    for (const char* intf : {"Ethernet1", "Ethernet2"}) {
      localSystem->localPortIs(intf)->initilizeLocalPortPoeInfo();
      status->portStatusIs(intf, 0.0);
    }
    localSystem->localPortIs("Ethernet3");  // no PoE on this one
    status->portStatusIs("Ethernet3", 0.0);
    poeSm = Platform::makeReactor<PoeSm>(poeDir, status, localSystem, nullptr);
  }

  LocalPortPoeInfo::Ptr poe(const char* intf) { return localSystem->localPort(intf)->localPortPoeInfo(); }
  double requested(const char* intf) { return poe(intf)->requestedPowerValue().value; }

  // A neighbour whose Power Via MDI TLV is written after it is added, as a hand-filled record
  // would be; the remote tables' change time then moves.
  RemoteSystem::Ptr neighbour(const char* intf, int32_t index, uint16_t deciWatts, uint8_t powerType = 1,
                              bool dot3at = true) {
    Msap msap;
    msap.chassisIdentifier = {chassisIdMacAddress, ChassisId(std::string(6, char(index)))};
    RemoteSystem::Ptr rs = status->portStatus(intf)->remoteSystemIs(index, msap);
    PowerViaMdiInfo info;
    info.dot3atExtension = dot3at;
    info.powerType = powerType;
    info.pdRequestedPower = deciWatts;
    rs->powerViaMdiInfoIs(info);
    rs->powerViaMdiTlvReceivedIs(true);
    tablesChanged();
    return rs;
  }
  void gone(const char* intf, int32_t index) {
    status->portStatus(intf)->remoteSystemDel(index);
    tablesChanged();
  }
  void tablesChanged() { status->remTablesLastChangeTimeIs(now += 1); }
};

TEST_F(PoeTest, RequestedPowerIsTheSumOfThePoweredDevicesOnThePort) {
  neighbour("Ethernet1", 1, 125);
  neighbour("Ethernet1", 2, 40, 3);  // type code 3: also a powered device
  EXPECT_DOUBLE_EQ(requested("Ethernet1"), 16.5);
  EXPECT_DOUBLE_EQ(requested("Ethernet2"), 0);

  neighbour("Ethernet1", 3, 300, 1, false);  // basic TLV only: no 802.3at part
  neighbour("Ethernet1", 4, 300, 0);         // power sourcing equipment
  neighbour("Ethernet1", 5, 300, 2);
  EXPECT_DOUBLE_EQ(requested("Ethernet1"), 16.5);

  gone("Ethernet1", 1);
  EXPECT_DOUBLE_EQ(requested("Ethernet1"), 4.0);
  gone("Ethernet1", 2);
  EXPECT_DOUBLE_EQ(requested("Ethernet1"), 0);

  neighbour("Ethernet3", 1, 125);  // a port without PoE information is never written
  poeDir->entryIs("Ethernet3", Platform::make<PoePortStatus>("Ethernet3"));
  EXPECT_FALSE(localSystem->localPort("Ethernet3")->localPortPoeInfo());
}

TEST_F(PoeTest, ARefreshedRequestIsSeenWhicheverComesFirstTimeOrNotification) {
  RemoteSystem::Ptr rs = neighbour("Ethernet2", 1, 125);
  // The receive path moves the change time first and tells the port's table after.
  PowerViaMdiInfo more = rs->powerViaMdiInfo();
  more.pdRequestedPower = 255;
  rs->powerViaMdiInfoIs(more);
  tablesChanged();
  status->portStatus("Ethernet2")->remoteSystemNotify(1);
  EXPECT_DOUBLE_EQ(requested("Ethernet2"), 25.5);

  // Two changes in one event leave the change time where it was: the notification suffices.
  more.pdRequestedPower = 100;
  rs->powerViaMdiInfoIs(more);
  status->portStatus("Ethernet2")->remoteSystemNotify(1);
  EXPECT_DOUBLE_EQ(requested("Ethernet2"), 10.0);

  // Clearing the tables removes the neighbours without moving the change time.
  status->portStatus("Ethernet2")->remoteSystemDelAll();
  EXPECT_DOUBLE_EQ(requested("Ethernet2"), 0);
}

TEST_F(PoeTest, GrantFollowsThePowerManagerAndARemovedStatusResetsThePort) {
  auto ps = Platform::make<PoePortStatus>("Ethernet1");
  ps->grantedPowerIs(Units::Watts{15.4});
  ps->poweredDeviceClassIs(3);
  ps->poePortStateIs(2);
  ps->lldpNegotiationSupportedIs(true);
  poeDir->entryIs("Ethernet1", ps);
  ASSERT_TRUE(poeSm->poeAgentPortSmHas("Ethernet1"));
  EXPECT_DOUBLE_EQ(poe("Ethernet1")->grantedPower().value, 15.4);
  EXPECT_EQ(poe("Ethernet1")->pdClass(), 3);
  EXPECT_EQ(poe("Ethernet1")->poePortState(), 2);
  EXPECT_TRUE(poe("Ethernet1")->lldpPoeNegotiationSupported());

  ps->grantedPowerIs(Units::Watts{30});
  EXPECT_DOUBLE_EQ(poe("Ethernet1")->grantedPower().value, 30);

  // A record of another type under the name counts as no status.
  poeDir->entryIs("Ethernet1", localSystem);
  EXPECT_FALSE(poeSm->poeAgentPortSmHas("Ethernet1"));
  EXPECT_DOUBLE_EQ(poe("Ethernet1")->grantedPower().value, 0);
  EXPECT_EQ(poe("Ethernet1")->pdClass(), 0);
  EXPECT_EQ(poe("Ethernet1")->poePortState(), 0);
  EXPECT_FALSE(poe("Ethernet1")->lldpPoeNegotiationSupported());

  poeDir->entryIs("Ethernet1", ps);
  poeDir->entryDel("Ethernet1");
  EXPECT_DOUBLE_EQ(poe("Ethernet1")->grantedPower().value, 0);
  EXPECT_FALSE(poeSm->poeAgentPortSmHas("Ethernet1"));
}

TEST_F(PoeTest, PresentStatusesAndNeighboursAreTakenAtStart) {
  poeSm.reset();
  auto ps = Platform::make<PoePortStatus>("Ethernet2");
  ps->grantedPowerIs(Units::Watts{7});
  poeDir->entryIs("Ethernet2", ps);
  neighbour("Ethernet1", 1, 125);
  poeSm = Platform::makeReactor<PoeSm>(poeDir, status, localSystem, nullptr);
  EXPECT_DOUBLE_EQ(poe("Ethernet2")->grantedPower().value, 7);
  EXPECT_DOUBLE_EQ(requested("Ethernet1"), 12.5);
}

}  // namespace
}  // namespace Lldp::Agent::Input
