// Neighbour classification: telephones registered from the remote tables, moved, and removed by
// the capability going, link down, or the cleanup rules.
#include <gtest/gtest.h>

#include "classification/LldpNbrClassificationSm.h"
#include "data/Traces.h"
#include "platform/Log.h"

namespace {

using Lldp::Agent::NbrClassificationSm;
using Identity::NbrClassification::Classification;

const Konet::EthAddr kPhone(0x00, 0x1c, 0x73, 0xaa, 0x00, 0x01);
const Konet::EthAddr kServer(0x00, 0x1c, 0x73, 0xbb, 0x00, 0x02);

struct NbrClassificationTest : ::testing::Test {
  Platform::VirtualScheduler scheduler{0};
  Lldp::Status::Ptr status = Platform::make<Lldp::Status>("1");
  Identity::NbrClassification::Status::Ptr table = Platform::make<Identity::NbrClassification::Status>();
  Interface::AllEthPhyIntfStatusDir::Ptr phyDir = Platform::make<Interface::AllEthPhyIntfStatusDir>();
  std::unique_ptr<NbrClassificationSm> sm;
  TestSupport::TraceCapture traces{"LldpNbrClassificationSm/9"};
  int32_t nextIndex = 1;

  NbrClassificationTest() {
    for (const char* intf : {"Ethernet1", "Ethernet2"}) {
      phyDir->intfStatusIs(intf)->linkStatusIs(Interface::LinkStatus::linkUp);
      status->portStatusIs(intf, 0.0);
    }
  }
  ~NbrClassificationTest() override { sm.reset(); }
  void start() { sm = Platform::makeReactor<NbrClassificationSm>(status, table, phyDir, scheduler); }

  // A neighbour learnt (or changed) on a port, as the receive path leaves it.
  Lldp::RemoteSystem::Ptr learn(const std::string& intf, const Konet::EthAddr& mac, uint16_t caps) {
    auto ps = status->portStatus(intf);
    Lldp::RemoteSystem::Ptr rs;
    for (const auto& [index, r] : ps->remoteSystem()) {
      if (r->ethAddr() == mac) rs = r;
    }
    if (!rs) {
      Lldp::Msap msap{{Lldp::chassisIdMacAddress, Lldp::ChassisId(std::string(reinterpret_cast<const char*>(mac.data()), 6))},
                      {Lldp::portIdInterfaceName, Lldp::PortId("port")}};
      rs = ps->remoteSystemIs(nextIndex++, msap);
    }
    rs->ethAddrIs(mac);
    rs->sysCapSupportedIs(Lldp::SystemCapabilitiesMap{caps});
    ps->remoteSystemNotify(rs->index());
    parsed();
    return rs;
  }
  void forget(const std::string& intf, const Lldp::RemoteSystem::Ptr& rs) {
    status->portStatus(intf)->remoteSystemDel(rs->index());
    parsed();
  }
  void parsed() {
    scheduler.runFor(1);  // a new time stamp for each frame
    status->lastPacketParsedTimeIs(scheduler.now());
  }
  bool traced(const std::string& text) const { return traces.has(text); }
};

TEST_F(NbrClassificationTest, TelephoneCapabilitySupportedIsEnoughAndItsLossUnregisters) {
  start();
  auto phone = learn("Ethernet1", kPhone, Lldp::SystemCapabilitiesMap::telephone);  // supported, not enabled
  learn("Ethernet1", kServer, Lldp::SystemCapabilitiesMap::router);
  ASSERT_EQ(table->neighbors(), 1u);
  const auto& entry = table->neighbor(kPhone);
  EXPECT_EQ(entry.intfId, Konet::IntfId("Ethernet1"));
  EXPECT_EQ(entry.classification, Classification::phone);
  EXPECT_EQ(entry.description, "Chassis ID 00:1c:73:aa:00:01");
  EXPECT_TRUE(sm->nbrClassificationIntfSmHas("Ethernet1"));
  EXPECT_TRUE(traced("is telephone"));
  EXPECT_TRUE(traced("is not telephone"));

  learn("Ethernet1", kPhone, Lldp::SystemCapabilitiesMap::bridge);
  EXPECT_EQ(table->neighbors(), 0u);
  EXPECT_FALSE(sm->nbrClassificationIntfSmHas("Ethernet1"));
}

TEST_F(NbrClassificationTest, MovedTelephoneReplacesItsEntryAndTheOldPortsWatcherGoes) {
  start();
  auto old = learn("Ethernet1", kPhone, Lldp::SystemCapabilitiesMap::telephone);
  forget("Ethernet1", old);
  EXPECT_EQ(table->neighbors(), 1u) << "an up port keeps its telephone until something says otherwise";
  learn("Ethernet2", kPhone, Lldp::SystemCapabilitiesMap::telephone);
  EXPECT_TRUE(traced("WARNING! Neighbor change: current:"));
  EXPECT_EQ(table->neighbor(kPhone).intfId, Konet::IntfId("Ethernet2"));
  EXPECT_FALSE(sm->nbrClassificationIntfSmHas("Ethernet1"));
  EXPECT_TRUE(sm->nbrClassificationIntfSmHas("Ethernet2"));
}

TEST_F(NbrClassificationTest, OnlyAnExplicitLinkDownRemovesAPortsTelephonesAtOnce) {
  start();
  learn("Ethernet1", kPhone, Lldp::SystemCapabilitiesMap::telephone);
  learn("Ethernet1", kServer, Lldp::SystemCapabilitiesMap::telephone | Lldp::SystemCapabilitiesMap::bridge);
  learn("Ethernet2", Konet::EthAddr(0, 0x1c, 0x73, 0xcc, 0, 3), Lldp::SystemCapabilitiesMap::telephone);
  ASSERT_EQ(table->neighbors(), 3u);

  phyDir->intfStatus("Ethernet1")->linkStatusIs(Interface::LinkStatus::unknown);
  EXPECT_EQ(table->neighbors(), 3u);
  phyDir->intfStatus("Ethernet1")->linkStatusIs(Interface::LinkStatus::linkDown);
  EXPECT_EQ(table->neighbors(), 1u) << "both of Ethernet1's, though LLDP still holds them";
  EXPECT_FALSE(sm->nbrClassificationIntfSmHas("Ethernet1"));
  EXPECT_TRUE(sm->nbrClassificationIntfSmHas("Ethernet2"));
}

TEST_F(NbrClassificationTest, CleanupKeepsATelephoneOnADownPortOnlyWhileLldpHoldsIt) {
  start();
  auto phone = learn("Ethernet1", kPhone, Lldp::SystemCapabilitiesMap::telephone);
  // Down in a state the link watcher ignores, so only the cleanup rules apply.
  phyDir->intfStatus("Ethernet1")->linkStatusIs(Interface::LinkStatus::unknown);
  parsed();
  EXPECT_EQ(table->neighbors(), 1u);
  EXPECT_TRUE(traced("LLDP has neighbor on port Ethernet1"));
  forget("Ethernet1", phone);  // aged out
  EXPECT_EQ(table->neighbors(), 0u);
  EXPECT_TRUE(traced("LLDP does not have neighbor with addr"));
}

TEST_F(NbrClassificationTest, StartUpAdoptsEntriesOfAnEarlierRun) {
  const Konet::EthAddr gone(0, 0x1c, 0x73, 0xdd, 0, 4);
  table->neighborIs(kPhone, {kPhone, "Ethernet1", Classification::phone, "Chassis ID x"});
  table->neighborIs(gone, {gone, "Ethernet9", Classification::phone, "Chassis ID y"});
  table->neighborIs(kServer, {kServer, "Ethernet2", Classification::unclassified, ""});
  start();
  EXPECT_EQ(table->neighbors(), 1u);
  EXPECT_TRUE(table->neighborHas(kPhone));
  EXPECT_TRUE(traced("Could not find interface Ethernet9"));
  EXPECT_TRUE(traced("Neighbor is not classified - should be removed"));
  phyDir->intfStatus("Ethernet1")->linkStatusIs(Interface::LinkStatus::linkDown);
  EXPECT_EQ(table->neighbors(), 0u) << "the adopted entry got a link watcher";
}

TEST_F(NbrClassificationTest, AChangeParsedAtAnUnchangedTimeStampIsStillClassified) {
  start();
  auto ps = status->portStatus("Ethernet1");
  status->lastPacketParsedTimeIs(5.0);
  auto rs = ps->remoteSystemIs(1, Lldp::Msap{});
  rs->ethAddrIs(kPhone);
  rs->sysCapSupportedIs(Lldp::SystemCapabilitiesMap{Lldp::SystemCapabilitiesMap::telephone});
  ps->remoteSystemNotify(1);
  status->lastPacketParsedTimeIs(5.0);  // the same instant: no notification
  EXPECT_EQ(table->neighbors(), 0u);
  scheduler.runPending();
  EXPECT_EQ(table->neighbors(), 1u);
}

TEST_F(NbrClassificationTest, AFullTableLetsGoOfWhatLldpForgotAndOtherwiseRefusesNewcomers) {
  // As many telephones as the table holds, all on one port, and LLDP holds every one.
  auto ps = status->portStatus("Ethernet2");
  for (uint32_t n = 0; n < NbrClassificationSm::kMaxNeighbors; ++n) {
    const Konet::EthAddr mac(2, 0, 0, static_cast<uint8_t>(n >> 16), static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n));
    auto rs = ps->remoteSystemIs(nextIndex++, Lldp::Msap{});
    rs->ethAddrIs(mac);
    rs->sysCapSupportedIs(Lldp::SystemCapabilitiesMap{Lldp::SystemCapabilitiesMap::telephone});
  }
  Platform::traceLevelsIs("LldpNbrClassificationSm/2");  // one line per entry at 6 and above
  Platform::CapturingLogSink logs;
  start();
  scheduler.runPending();
  ASSERT_EQ(table->neighbors(), NbrClassificationSm::kMaxNeighbors);

  learn("Ethernet1", kPhone, Lldp::SystemCapabilitiesMap::telephone);
  EXPECT_FALSE(table->neighborHas(kPhone));
  EXPECT_EQ(table->neighbors(), NbrClassificationSm::kMaxNeighbors);
  EXPECT_EQ(sm->refusedNeighbors(), 1u);
  ASSERT_EQ(logs.count("LLDP_CLASSIFICATION_FULL"), 1u);
  EXPECT_EQ(logs.entries()[0].text,
            "Neighbor classification table full (8192 entries): telephone 00:1c:73:aa:00:01 on Ethernet1 not classified");

  // LLDP forgets a few of them (their port stays up, so the entries stay): room for the phone.
  for (int32_t index = 1; index <= 3; ++index) ps->remoteSystemDel(index);
  learn("Ethernet1", kPhone, Lldp::SystemCapabilitiesMap::telephone);
  EXPECT_TRUE(table->neighborHas(kPhone));
  EXPECT_EQ(table->neighbors(), NbrClassificationSm::kMaxNeighbors - 2);
}

}  // namespace
