// Packet access on Linux: an AF_PACKET raw socket per interface with a memory-mapped receive
// ring sized within a process-wide budget, optionally opened inside a named network namespace.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "linux/PacketSocket.h"
#include "linux/RxRing.h"
#include "platform/PamManager.h"

namespace Linux {

class SharedRing;

// An LLDPDU the kernel refused, on any kind of port.
extern const Platform::LogHandle<std::string_view, std::string_view> PAM_SEND_FAILED;

class RawSocketPam : public Konet::Pam {
 public:
  // Opens and configures the socket as the manager says, bound to the device's index (looked up
  // by name when ifIndex is 0); null with error set on failure.
  static Platform::Ptr<RawSocketPam> open(const Konet::IntfId& intfId, const std::string& device,
                                          int32_t ifIndex, const Interface::EthDevPamManager& config,
                                          Platform::Scheduler& scheduler, const std::string& netNs,
                                          std::string& error, size_t ringBytes = kRxRingBytes);
  ~RawSocketPam() override;

  Platform::PacketPtr rxPkt() override;
  void txPkt(Platform::PacketPtr pkt) override;
  int fd() const { return rx_.fd; }
  int32_t ifIndex() const { return static_cast<int32_t>(setup_.ifIndex); }
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
  // The rings of all ports of the process, replaced ones and shared ones included.
  static size_t ringBytesInUse();
  // A ring shared by many ports takes its room in the budget before the ports' own rings.
  static void sharedRingBytesAdd(size_t bytes);
  static void sharedRingBytesRemove(size_t bytes);
  // Room kept in the budget for a shared ring before it is opened, so that the rings of the
  // first ports need not come down when it opens.
  static void ringBudgetReserve(size_t bytes);
  static void ringBudgetRelease(size_t bytes);
  // The largest ring, a power of two between the least and the largest, that `ports` rings
  // may each have within `budget`.
  static size_t ringShareOf(size_t budget, size_t ports);
  // What all rings together may hold (kRxRingBudget unless set), and a port's share of it when
  // there are `ports`: a power of two between the least and the largest ring.
  static size_t ringBudget();
  static void ringBudgetIs(size_t bytes);
  static size_t ringShare(size_t ports);

 private:
  using Ring = PacketSocket::RxRing;
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

// Opens packet access for the desired interfaces; netNs names a namespace under /var/run/netns
// to open it in (empty: the agent's own). The first ports to open get a socket and ring of
// their own (a flood on one then never crowds out another's frames); ports beyond
// dedicatedPortsMax share one socket and ring. A socket of its own costs two kernel grace
// periods over its life (ring set-up and close, some 15 ms each on this kind of host) and
// 64 KiB to 4 MiB of ring; a shared port costs a group join. So a thousand ports appear within
// a second, and receive memory and descriptors stay bounded for any number of ports.
class RawSocketPamManager : public Interface::PamManagerBase {
 public:
  static constexpr size_t kDedicatedPortsMax = 16;

  RawSocketPamManager(Platform::Ptr<Interface::PamDesiredIntfDir> desired,
                      Platform::Ptr<Interface::EthDevPamCollection> pams,
                      Platform::Ptr<Interface::DeviceIntfStatusDir> devices,
                      Platform::Scheduler& scheduler, std::string netNs = {},
                      size_t dedicatedPortsMax = kDedicatedPortsMax);
  ~RawSocketPamManager() override;

  // The ring of the ports without a socket of their own (null until the first such port).
  const SharedRing* sharedRing() const { return shared_.get(); }
  size_t dedicatedPorts() const { return dedicated_.size(); }

 protected:
  Platform::Ptr<Konet::Pam> openPam(const Konet::IntfId& intfId, const Interface::DeviceIntf& device,
                                    std::string& error) override;

 private:
  struct Dedicated {
    const Konet::Pam* pam;
    int32_t ifIndex;
  };
  // Forgets ports whose socket of their own has left the collection.
  void dedicatedPrune();
  void exclusionsSync();

  std::string netNs_;
  size_t dedicatedPortsMax_;
  std::map<Konet::IntfId, Dedicated> dedicated_;
  std::shared_ptr<SharedRing> shared_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace Linux
