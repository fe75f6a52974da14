// Packet access on Linux: an AF_PACKET raw socket per interface with a memory-mapped receive
// ring sized within a process-wide budget, optionally opened inside a named network namespace.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "linux/PacketSocket.h"
#include "platform/PamManager.h"

namespace Linux {

class RawSocketPam : public Konet::Pam {
 public:
  // Opens and configures the socket as the manager says, bound to the device's index (looked up
  // by name when ifIndex is 0); null with error set on failure.
  static Platform::Ptr<RawSocketPam> open(const Konet::IntfId& intfId, const std::string& device,
                                          int32_t ifIndex, const Interface::EthDevPamManager& config,
                                          Platform::Scheduler& scheduler, const std::string& netNs,
                                          std::string& error);
  ~RawSocketPam() override;

  Platform::PacketPtr rxPkt() override;
  void txPkt(Platform::PacketPtr pkt) override;
  int fd() const { return rx_.fd; }
  // Failed waits for frames (each is logged and the wait retried after a pause).
  uint64_t rxWaitErrors() const { return rxWaitErrors_; }
  // Receive passes run so far.
  uint64_t rxPasses() const { return rxPasses_; }
  // Errors the kernel left pending on the socket (ENETDOWN each time the link goes down), read
  // so that they stop waking the event thread.
  uint64_t rxSocketErrors() const { return rxSocketErrors_; }
  // Rings that could not be mapped again after a resize; the port then has no socket until a
  // reopen, retried with back-off, succeeds.
  uint64_t rxRingReopens() const { return rxRingReopens_; }
  bool ringOpen() const { return rx_.map != nullptr; }

  // The receive ring: blocks of whole pages, each holding at least one frame of the receive
  // size with the kernel's headers (16 KiB for 10236 bytes). A port opens with kRxRingBytes,
  // four such blocks, about 330 LLDPDUs of 112 bytes, so that opening many ports at once costs
  // little; right after the first ports open (later, once ports stop coming), every ring grows
  // to its share of the budget: kRxRingMaxBytes with up to 16 ports, halved as ports are added
  // down to kRxRingBytes (1,024 ports). Enough for a flood from the first frame: a 4 MiB ring
  // holds about 20 ms at what one sender reaches on a veth. A ring whose backlog reaches half
  // of it, or that overflowed, grows beyond its share into what the budget has left; when a
  // new port needs room, the largest rings come down to the share. So 1,000 ports never hold
  // more than 64 MiB of receive memory, besides a ring being replaced for a moment.
  static constexpr size_t kRxRingBytes = 64 * 1024;
  static constexpr size_t kRxRingMaxBytes = 4 * 1024 * 1024;
  static constexpr size_t kRxRingBudget = 64 * 1024 * 1024;
  // A block the kernel has begun is handed over after this long even when not full, so that
  // a lone LLDPDU waits at most this long in the ring.
  static constexpr unsigned kRxBlockTimeoutMs = 4;
  // A replaced ring is read until it is empty and at least this long has passed, several
  // block timeouts: by then the kernel has handed over every frame it put there.
  static constexpr double kRingRetireDelay = 0.05;
  // Ring sizes are decided right after the event that opened the first ports, then at most
  // this often; rings grow again only once no port has come or gone for this long. A host
  // bringing up a thousand ports over seconds then resizes a handful of rings, not one or two
  // per port (each resize costs a socket).
  static constexpr double kRingBudgetInterval = 0.5;
  static constexpr double kRewatchDelay = 5.0;
  // A ring that cannot be mapped is tried again after this long, doubling up to the most.
  static constexpr double kReopenDelay = 1.0;
  static constexpr double kReopenDelayMax = 60.0;

  using RingGeometry = PacketSocket::RingGeometry;
  static RingGeometry ringGeometry(size_t maxRxPktData);
  size_t ringBytes() const { return rx_.bytes(); }
  uint64_t rxRingResizes() const { return rxRingResizes_; }
  // Resizes that could not hand over without loss (the kernel lacks what it takes).
  uint64_t rxRingResizesLossy() const { return rxRingResizesLossy_; }
  // The rings of all ports of the process, replaced ones still being read included.
  static size_t ringBytesInUse();
  // What all rings together may hold (kRxRingBudget unless set), and a port's share of it when
  // there are `ports`: a power of two between the least and the largest ring.
  static size_t ringBudget();
  static void ringBudgetIs(size_t bytes);
  static size_t ringShare(size_t ports);

 private:
  // One socket and its mapped ring, and how far reading has got in it.
  struct Ring {
    int fd = -1;
    uint8_t* map = nullptr;
    RingGeometry geometry{0, 0};
    size_t block = 0;
    bool blockHeld = false;  // the block being read is ours while its frames are offered
    uint32_t framesLeft = 0;
    uint8_t* frame = nullptr;
    uint64_t lastSeq = 0;  // the kernel numbers the blocks it begins from 1
    size_t bytes() const { return map ? geometry.blockSize * geometry.blockCount : 0; }
  };
  // How a socket of this port is set up, kept to open the socket of a new ring.
  using Setup = PacketSocket::Setup;

  RawSocketPam(Konet::IntfId intfId, Ring ring, Setup setup, Platform::Scheduler& scheduler);
  void watchIs();
  void handleReadable();
  void socketErrorsRead();
  void ringClose();
  void handleReopenClock();
  void passRun();
  void handleWaitError(std::error_code error);
  bool rxWaiting() override;
  void rxSkip() override;
  bool ringWaiting(Ring& ring);
  // Frames in the block the kernel is filling, not yet handed over.
  static uint32_t framesFilling(const Ring& ring);
  void frameNext(Ring& ring);
  void blockRelease(Ring& ring);
  void rxKernelDropsRead();
  void ringGrow();
  bool ringResize(size_t bytes);
  bool ringReplace(const RingGeometry& geometry);
  bool ringResizeInPlace(const RingGeometry& geometry);
  void handleRetireClock();
  static void ringBudgetKeep(bool grow);
  static void ringBudgetPassPost(RawSocketPam& pam);
  void handleBudgetClock();

  Ring rx_;        // where the kernel puts new frames
  Ring retiring_;  // the ring rx_ replaced, read first until it is empty
  Ring* reading_ = &rx_;
  Setup setup_;
  uint16_t fanoutId_ = 0;  // the group that steers frames from one ring to the next; 0 without
  uint16_t fanoutFlags_ = 0;
  bool lossSeen_ = false;  // the kernel may have dropped frames since we last asked
  bool growDue_ = false;   // the ring is filling faster than it is read
  bool separateDot1QHdr_ = false;
  size_t maxRxPktData_ = 0;
  Platform::Scheduler& scheduler_;
  std::unique_ptr<Platform::FdWatch> watch_;
  std::unique_ptr<Platform::FdWatch> retireWatch_;
  Platform::Clock rewatchClock_;
  Platform::Clock retireClock_;
  Platform::Clock budgetClock_;  // armed on one port only, for the budget pass of all
  Platform::Clock reopenClock_;
  double reopenDelay_ = kReopenDelay;
  double retireBy_ = 0;  // frames the old ring still hides then are given up as dropped
  bool passPosted_ = false;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  uint64_t rxWaitErrors_ = 0;
  uint64_t rxPasses_ = 0;
  uint64_t rxRingResizes_ = 0;
  uint64_t rxRingResizesLossy_ = 0;
  uint64_t rxSocketErrors_ = 0;
  uint64_t rxRingReopens_ = 0;
};

// Opens raw sockets for the desired interfaces; netNs names a namespace under /var/run/netns
// to open them in (empty: the agent's own).
class RawSocketPamManager : public Interface::PamManagerBase {
 public:
  RawSocketPamManager(Platform::Ptr<Interface::PamDesiredIntfDir> desired,
                      Platform::Ptr<Interface::EthDevPamCollection> pams,
                      Platform::Ptr<Interface::DeviceIntfStatusDir> devices,
                      Platform::Scheduler& scheduler, std::string netNs = {})
      : PamManagerBase(std::move(desired), std::move(pams), std::move(devices), scheduler),
        netNs_(std::move(netNs)) {}

 protected:
  Platform::Ptr<Konet::Pam> openPam(const Konet::IntfId& intfId, const Interface::DeviceIntf& device,
                                    std::string& error) override;

 private:
  std::string netNs_;
};

}  // namespace Linux
