// Ports beyond those with a socket of their own share one socket and ring: each hears exactly
// the frames of its interface, sends on it, leaves nothing behind when it goes, and a port
// with a socket of its own is left out of the shared ring. Needs root (CI runs it).
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cstring>

#include "HostFixture.h"
#include "linux/SharedRingPam.h"
#include "platform/Reactor.h"
#include "protocol/LldpProtocolSm.h"

namespace {

// Takes every frame offered and notes the marker byte at offset 20.
struct MarkerReader : Platform::Reactor {
  explicit MarkerReader(Platform::Ptr<Konet::Pam> pam) : pam_(std::move(pam)) {
    watch<&MarkerReader::handleReadableCount>(pam_, Konet::Pam::readableCountAttr);
  }
  void handleReadableCount() {
    if (Platform::PacketPtr pkt = pam_->rxPkt()) markers.push_back(pkt->data()[20]);
  }
  Platform::Ptr<Konet::Pam> pam_;
  std::vector<uint8_t> markers;
};

std::vector<uint8_t> lldpFrame(uint8_t marker) {
  std::vector<uint8_t> f(112, 0);
  const uint8_t header[14] = {0x01, 0x80, 0xc2, 0, 0, 0x0e, 2, 0, 0, 0, 0xcc, 1, 0x88, 0xcc};
  std::memcpy(f.data(), header, sizeof header);
  f[20] = marker;
  return f;
}

class SharedRingTest : public HostTest::HostNetnsFixture {
 protected:
  void SetUp() override {
    HostNetnsFixture::SetUp();
    if (IsSkipped()) return;
    desired = Platform::make<Interface::PamDesiredIntfDir>("desired");
    pams = Platform::make<Interface::EthDevPamCollection>("pams");
    devices = Platform::make<Interface::DeviceIntfStatusDir>("devices");
    manager = std::make_unique<Linux::RawSocketPamManager>(desired, pams, devices, s, "", 1);
    manager->ethProtocolIs(3);
    manager->listenAddrIs(Konet::kLldpMulticast);
    manager->filterProgramIs(Lldp::Agent::Protocol::lldpFilterProgram());
    manager->maxRxPktDataIs(10236);
  }
  void TearDown() override {
    readers.clear();
    manager.reset();
    HostNetnsFixture::TearDown();
  }
  // A veth pair whose first end becomes a port.
  void portIs(const std::string& name) {
    ASSERT_EQ(HostTest::sh("ip link add " + name + " type veth peer name " + name + "p && ip link set " + name +
                           " up && ip link set " + name + "p up"),
              0);
    devices->deviceIntfIs(name, Interface::DeviceIntf{name, 0, {}});
    desired->intfDesiredIs(name, true);
  }
  // Sends `count` frames from the far end of a port's pair; at least one must leave.
  static void sendFromPeer(const std::string& port, uint8_t marker, int count = 1) {
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    sockaddr_ll addr{};
    addr.sll_family = AF_PACKET;
    addr.sll_ifindex = static_cast<int>(if_nametoindex((port + "p").c_str()));
    const std::vector<uint8_t> frame = lldpFrame(marker);
    int sent = 0;
    for (int i = 0; i < count; ++i) {
      sent += sendto(fd, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&addr), sizeof addr) ==
              static_cast<ssize_t>(frame.size());
    }
    ::close(fd);
    ASSERT_GT(sent, 0);
  }
  // Frames the device received, from this namespace's /proc (sysfs shows another's).
  static uint64_t rxPackets(const std::string& dev) {
    std::ifstream in("/proc/self/net/dev");
    std::string line;
    while (std::getline(in, line)) {
      const size_t colon = line.find(':');
      if (colon == std::string::npos) continue;
      const size_t begin = line.find_first_not_of(' ');
      if (line.substr(begin, colon - begin) != dev) continue;
      std::istringstream fields(line.substr(colon + 1));
      uint64_t bytes = 0, packets = 0;
      fields >> bytes >> packets;
      return packets;
    }
    return 0;
  }
  MarkerReader& readerOf(const std::string& port) {
    readers.push_back(Platform::makeReactor<MarkerReader>(pams->intfPam(Konet::IntfId(port))));
    return *readers.back();
  }

  Platform::Ptr<Interface::PamDesiredIntfDir> desired;
  Platform::Ptr<Interface::EthDevPamCollection> pams;
  Platform::Ptr<Interface::DeviceIntfStatusDir> devices;
  std::unique_ptr<Linux::RawSocketPamManager> manager;
  std::vector<std::unique_ptr<MarkerReader>> readers;
};

TEST_F(SharedRingTest, PortsBeyondTheFirstShareOneSocketAndHearOnlyTheirOwnFrames) {
  for (const char* port : {"sr0", "sr1", "sr2"}) portIs(port);
  manager->enabledIs(true);
  ASSERT_EQ(pams->intfPams(), 3u);
  EXPECT_TRUE(dynamic_cast<Linux::RawSocketPam*>(pams->intfPam(Konet::IntfId("sr0")).get()));
  EXPECT_TRUE(dynamic_cast<Linux::SharedPortPam*>(pams->intfPam(Konet::IntfId("sr1")).get()));
  EXPECT_TRUE(dynamic_cast<Linux::SharedPortPam*>(pams->intfPam(Konet::IntfId("sr2")).get()));
  // Two packet sockets in all: sr0's own, and the shared one bound to no interface.
  const auto sockets = HostTest::packetSockets();
  EXPECT_EQ(sockets.size(), 2u);
  EXPECT_EQ(sockets.count(static_cast<int>(if_nametoindex("sr0"))), 1u);
  EXPECT_EQ(sockets.count(0), 1u);
  ASSERT_TRUE(manager->sharedRing());
  EXPECT_EQ(manager->sharedRing()->ports(), 2u);

  MarkerReader& r0 = readerOf("sr0");
  MarkerReader& r1 = readerOf("sr1");
  MarkerReader& r2 = readerOf("sr2");
  for (uint8_t i = 0; i < 3; ++i) {
    sendFromPeer("sr0", static_cast<uint8_t>(10 + i));
    sendFromPeer("sr1", static_cast<uint8_t>(20 + i));
    sendFromPeer("sr2", static_cast<uint8_t>(30 + i));
  }
  waitFor([&] { return r0.markers.size() == 3 && r1.markers.size() == 3 && r2.markers.size() == 3; });
  EXPECT_EQ(r0.markers, (std::vector<uint8_t>{10, 11, 12}));
  EXPECT_EQ(r1.markers, (std::vector<uint8_t>{20, 21, 22}));
  EXPECT_EQ(r2.markers, (std::vector<uint8_t>{30, 31, 32}));
  // sr0's frames never reached the shared ring: its filter leaves sr0 out.
  EXPECT_EQ(manager->sharedRing()->rxFrames(), 6u);
  EXPECT_EQ(manager->sharedRing()->rxUnclaimed(), 0u);

  // A shared port sends on its own interface.
  const uint64_t before = rxPackets("sr2p");
  const uint64_t otherBefore = rxPackets("sr1p");
  Platform::PacketPtr pkt = Platform::PacketPool::instance().alloc();
  const std::vector<uint8_t> frame = lldpFrame(99);
  std::memcpy(pkt->append(frame.size()), frame.data(), frame.size());
  pams->intfPam(Konet::IntfId("sr2"))->txPkt(std::move(pkt));
  EXPECT_EQ(pams->intfPam(Konet::IntfId("sr2"))->txFrames(), 1u);
  EXPECT_EQ(rxPackets("sr2p"), before + 1);
  EXPECT_EQ(rxPackets("sr1p"), otherBefore);

  // A shared port that goes leaves the group on its interface; the others keep hearing.
  readers.erase(readers.begin() + 1);
  desired->intfDesiredDel(Konet::IntfId("sr1"));
  EXPECT_EQ(manager->sharedRing()->ports(), 1u);
  sendFromPeer("sr2", 33);
  sendFromPeer("sr1", 23);
  waitFor([&] { return r2.markers.size() == 4; });
  s.runFor(0.05);
  EXPECT_EQ(r2.markers.back(), 33);
  // sr1's, no port's any more, and our own frame arriving at sr2's far end.
  EXPECT_EQ(manager->sharedRing()->rxUnclaimed(), 2u);
}

TEST_F(SharedRingTest, APortWithASocketOfItsOwnFreesItsPlaceWhenItGoes) {
  portIs("sf0");
  portIs("sf1");
  manager->enabledIs(true);
  EXPECT_EQ(manager->dedicatedPorts(), 1u);
  desired->intfDesiredDel(Konet::IntfId("sf0"));
  portIs("sf2");
  EXPECT_TRUE(dynamic_cast<Linux::RawSocketPam*>(pams->intfPam(Konet::IntfId("sf2")).get()));
  EXPECT_EQ(manager->dedicatedPorts(), 1u);
  // sf2's frames go to its own socket only.
  MarkerReader& r2 = readerOf("sf2");
  sendFromPeer("sf2", 7);
  waitFor([&] { return r2.markers.size() == 1; });
  s.runFor(0.05);
  EXPECT_EQ(r2.markers, std::vector<uint8_t>{7});
  EXPECT_EQ(manager->sharedRing()->rxFrames(), 0u);
}

// A burst the shared ring cannot hold: the kernel's drops are counted on the ring and on the
// port whose frames filled it; another port's frames after it still arrive.
TEST_F(SharedRingTest, DropsOfAFullSharedRingAreCountedOnTheFloodedPort) {
  for (const char* port : {"so0", "so1", "so2"}) portIs(port);
  manager->enabledIs(true);
  MarkerReader& flooded = readerOf("so1");
  MarkerReader& quiet = readerOf("so2");
  // Nobody reads while the frames arrive: some 40,000 fit in the ring.
  constexpr int kFrames = 80000;
  sendFromPeer("so1", 1, kFrames);
  waitFor([&] { return manager->sharedRing()->rxKernelDrops() > 0; }, 2);
  s.runFor(0.2);
  const auto* ring = manager->sharedRing();
  EXPECT_GT(ring->rxKernelDrops(), 0u);
  EXPECT_EQ(pams->intfPam(Konet::IntfId("so1"))->rxKernelDrops(), ring->rxKernelDrops());
  EXPECT_EQ(pams->intfPam(Konet::IntfId("so2"))->rxKernelDrops(), 0u);
  // (The veth may drop some before the ring under load: never more than were sent.)
  EXPECT_LE(flooded.markers.size() + ring->rxKernelDrops(), static_cast<size_t>(kFrames));
  EXPECT_GT(flooded.markers.size(), 0u);
  sendFromPeer("so2", 5);
  waitFor([&] { return quiet.markers.size() == 1; });
  EXPECT_EQ(quiet.markers, std::vector<uint8_t>{5});
}

TEST(SharedRingFilter, InterfacesLeftOutJumpToTheFinalDrop) {
  const std::vector<Interface::FilterInstruction> program = Lldp::Agent::Protocol::lldpFilterProgram();
  EXPECT_EQ(Linux::SharedRing::filterExcluding(program, {}).size(), program.size());
  const auto filter = Linux::SharedRing::filterExcluding(program, {4, 9});
  ASSERT_EQ(filter.size(), 1 + 2 + program.size() + 1);
  EXPECT_EQ(filter[0].k, static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_IFINDEX));
  // Each test's jump lands on the last instruction, which keeps nothing.
  for (size_t i = 1; i <= 2; ++i) EXPECT_EQ(i + 1 + filter[i].jt, filter.size() - 1) << i;
  EXPECT_EQ(filter[1].k, 4u);
  EXPECT_EQ(filter[2].k, 9u);
  EXPECT_EQ(filter.back().code, BPF_RET | BPF_K);
  EXPECT_EQ(filter.back().k, 0u);
}

}  // namespace
