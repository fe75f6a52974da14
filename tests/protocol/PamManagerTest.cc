// Packet access managers: which mechanisms exist, renames, and retrying failed opens.
#include <gtest/gtest.h>

#include "platform/Log.h"
#include "platform/PamManager.h"

namespace {

using namespace Interface;

// Fails its first `failures` opens, then opens a plain mechanism.
class FlakyManager : public PamManagerBase {
 public:
  using PamManagerBase::PamManagerBase;
  int failures = 0;
  int opens = 0;

 protected:
  Platform::Ptr<Konet::Pam> openPam(const Konet::IntfId& intfId, const DeviceIntf&, std::string& error) override {
    ++opens;
    if (failures-- > 0) {
      error = "Operation not permitted";
      return nullptr;
    }
    struct NullPam : Konet::Pam {
      using Pam::Pam;
      Platform::PacketPtr rxPkt() override { return nullptr; }
      void txPkt(Platform::PacketPtr) override {}
    };
    return Platform::make<NullPam>(intfId);
  }
};

struct PamManagerTest : ::testing::Test {
  Platform::VirtualScheduler s{0};
  Platform::Ptr<PamDesiredIntfDir> desired = Platform::make<PamDesiredIntfDir>();
  Platform::Ptr<EthDevPamCollection> pams = Platform::make<EthDevPamCollection>();
  Platform::Ptr<DeviceIntfStatusDir> devices = Platform::make<DeviceIntfStatusDir>();
  FlakyManager manager{desired, pams, devices, s};
  Platform::CapturingLogSink logs;
};

TEST_F(PamManagerTest, OpensDesiredInterfacesThatExistWhileEnabled) {
  desired->intfDesiredIs("eth1", true);
  devices->deviceIntfIs("eth1", DeviceIntf{"eth1", 3, {}});
  EXPECT_EQ(pams->intfPams(), 0u);  // not enabled yet
  manager.enabledIs(true);
  EXPECT_TRUE(pams->intfPamHas("eth1"));
  desired->intfDesiredIs("eth2", true);
  EXPECT_FALSE(pams->intfPamHas("eth2"));  // no such device yet
  devices->deviceIntfIs("eth2", DeviceIntf{"eth2", 4, {}});
  EXPECT_TRUE(pams->intfPamHas("eth2"));

  const auto before = pams->intfPam(Konet::IntfId("eth1"));
  devices->deviceIntfIs("eth1", DeviceIntf{"eth1-renamed", 3, {}});
  EXPECT_NE(pams->intfPam(Konet::IntfId("eth1")), before);  // reopened on the new device
  const auto renamed = pams->intfPam(Konet::IntfId("eth1"));
  devices->deviceIntfIs("eth1", DeviceIntf{"eth1-renamed", 3, Konet::EthAddr(2, 0, 0, 0, 0, 1)});
  EXPECT_EQ(pams->intfPam(Konet::IntfId("eth1")), renamed);  // a new MAC keeps the mechanism
  devices->deviceIntfIs("eth1", DeviceIntf{"eth1-renamed", 9, Konet::EthAddr(2, 0, 0, 0, 0, 1)});
  EXPECT_NE(pams->intfPam(Konet::IntfId("eth1")), renamed);  // made again: a new index

  devices->deviceIntfDel("eth2");
  EXPECT_FALSE(pams->intfPamHas("eth2"));
  manager.enabledIs(false);
  EXPECT_EQ(pams->intfPams(), 0u);
}

TEST_F(PamManagerTest, FailedOpensAreLoggedAndRetried) {
  manager.failures = 2;
  desired->intfDesiredIs("eth1", true);
  devices->deviceIntfIs("eth1", DeviceIntf{"eth1", 3, {}});
  desired->intfDesiredIs("eth2", true);
  manager.enabledIs(true);
  EXPECT_FALSE(pams->intfPamHas("eth1"));
  EXPECT_EQ(logs.count("LLDP_PACKET_ACCESS_FAILED"), 1u);  // rate limited per message
  EXPECT_EQ(logs.entries()[0].text, "Cannot open packet access on interface eth1: Operation not permitted");
  s.runFor(PamManagerBase::kRetryInterval);
  EXPECT_FALSE(pams->intfPamHas("eth1"));
  EXPECT_EQ(manager.opens, 2);
  // Failing again, it waits twice as long.
  s.runFor(PamManagerBase::kRetryInterval);
  EXPECT_EQ(manager.opens, 2);
  s.runFor(PamManagerBase::kRetryInterval);
  EXPECT_TRUE(pams->intfPamHas("eth1"));
  EXPECT_TRUE(manager.failed().empty());
  EXPECT_EQ(manager.opens, 3);
}

}  // namespace
