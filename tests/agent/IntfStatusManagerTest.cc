// Packet access is offered the interfaces of the agent's network namespace only, with the
// device name, index and address the interface and kernel records give.
#include <gmock/gmock.h>

#include <stdexcept>

#include "agent/IntfStatusManagerSm.h"

namespace {

using Lldp::Agent::IntfStatusManagerSm;

struct IntfStatusManagerTest : ::testing::Test {
  Interface::AllEthPhyIntfStatusDir::Ptr phyDir = Platform::make<Interface::AllEthPhyIntfStatusDir>();
  Interface::AllIntfStatusDir::Ptr intfDir = Platform::make<Interface::AllIntfStatusDir>();
  KernelNetInfo::Status::Ptr kernel = Platform::make<KernelNetInfo::Status>("blue");
  Interface::DeviceIntfStatusDir::Ptr devices = Platform::make<Interface::DeviceIntfStatusDir>("devices");

  std::unique_ptr<IntfStatusManagerSm> start(const std::string& ns) {
    return Platform::makeReactor<IntfStatusManagerSm>(phyDir, intfDir, kernel, devices, ns);
  }
};

TEST_F(IntfStatusManagerTest, OnlyTheAgentsNamespaceIsOfferedWithKernelDataFillingGaps) {
  phyDir->intfStatusIs("Ethernet1")->deviceNameIs("eth1");
  phyDir->intfStatusIs("Ethernet2");
  intfDir->intfStatusIs("Ethernet2")->netNsNameIs("red");
  kernel->deviceIs("eth1", KernelNetInfo::Device{7, Konet::EthAddr(2, 0, 0, 0, 0, 7)});
  intfDir->intfStatusIs("Ethernet1")->netNsNameIs("blue");
  auto sm = start("blue");
  ASSERT_TRUE(devices->deviceIntfHas("Ethernet1"));
  EXPECT_EQ(devices->deviceIntf("Ethernet1"), (Interface::DeviceIntf{"eth1", 7, Konet::EthAddr(2, 0, 0, 0, 0, 7)}));
  EXPECT_FALSE(devices->deviceIntfHas("Ethernet2"));

  intfDir->intfStatus("Ethernet2")->netNsNameIs("blue");
  intfDir->intfStatus("Ethernet2")->ifIndexIs(12);
  EXPECT_EQ(devices->deviceIntf("Ethernet2").deviceName, "Ethernet2");
  EXPECT_EQ(devices->deviceIntf("Ethernet2").ifIndex, 12);
  intfDir->intfStatus("Ethernet1")->netNsNameIs("red");
  EXPECT_FALSE(devices->deviceIntfHas("Ethernet1"));
  phyDir->intfStatusDel("Ethernet2");
  EXPECT_EQ(devices->deviceIntfs(), 0u);
}

TEST_F(IntfStatusManagerTest, ANamespaceNameAbove150BytesIsRefused) {
  EXPECT_NO_THROW(start(std::string(150, 'n')));
  EXPECT_THAT([this] { start(std::string(151, 'n')); },
              ::testing::ThrowsMessage<std::range_error>("NamespaceName::bytes > 150 not allowed"));
}

}  // namespace
