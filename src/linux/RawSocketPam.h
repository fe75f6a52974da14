// Packet access on Linux: an AF_PACKET raw socket per interface with a memory-mapped receive
// ring, optionally opened inside a named network namespace.
#pragma once

#include <memory>
#include <string>

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
  int fd() const { return fd_; }
  // Failed waits for frames (each is logged and the wait retried after a pause).
  uint64_t rxWaitErrors() const { return rxWaitErrors_; }
  // Receive passes run so far.
  uint64_t rxPasses() const { return rxPasses_; }

  // The receive ring: blocks of whole pages, each holding at least one frame of the receive
  // size with the kernel's headers (16 KiB for 10236 bytes). A port starts with kRxRingBytes,
  // four such blocks, about 330 LLDPDUs of 112 bytes: more than a millisecond of a flood at
  // what one sender reaches on a veth, while the event thread drains a block in tens of
  // microseconds. A port whose ring overflowed grows it to kRxRingMaxBytes, or the largest
  // quarter of it that keeps all rings together within kRxRingBudget; a new port takes its least ring back from
  // the largest grown ones. So 1,000 ports never hold more than 64 MiB of receive memory.
  static constexpr size_t kRxRingBytes = 64 * 1024;
  static constexpr size_t kRxRingMaxBytes = 4 * 1024 * 1024;
  static constexpr size_t kRxRingBudget = 64 * 1024 * 1024;
  // A block the kernel has begun is handed over after this long even when not full, so that
  // a lone LLDPDU waits at most this long in the ring.
  static constexpr unsigned kRxBlockTimeoutMs = 4;
  static constexpr double kRewatchDelay = 5.0;

  struct RingGeometry {
    size_t blockSize;
    size_t blockCount;
  };
  static RingGeometry ringGeometry(size_t maxRxPktData);
  size_t ringBytes() const { return ring_ ? geometry_.blockSize * geometry_.blockCount : 0; }
  uint64_t rxRingResizes() const { return rxRingResizes_; }
  // The rings of all ports of the process.
  static size_t ringBytesInUse();

 private:
  RawSocketPam(Konet::IntfId intfId, int fd, uint8_t* ring, RingGeometry geometry,
               Platform::Scheduler& scheduler);
  void watchIs();
  void handleReadable();
  void passRun();
  void handleWaitError(std::error_code error);
  bool rxWaiting() override;
  void rxSkip() override;
  bool frameFits() const;
  void frameNext();
  void blockRelease();
  void rxKernelDropsRead();
  void ringGrow();
  void ringResize(size_t bytes);
  static void ringBudgetKeep();

  int fd_;
  uint8_t* ring_;
  RingGeometry geometry_;
  // The block being read (owned by us while its frames are offered) and the frame in it.
  size_t block_ = 0;
  bool blockHeld_ = false;
  uint32_t framesLeft_ = 0;
  uint8_t* frame_ = nullptr;
  bool lossSeen_ = false;  // the kernel may have dropped frames since we last asked
  bool separateDot1QHdr_ = false;
  size_t maxRxPktData_ = 0;
  Platform::Scheduler& scheduler_;
  std::unique_ptr<Platform::FdWatch> watch_;
  Platform::Clock rewatchClock_;
  bool passPosted_ = false;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  uint64_t rxWaitErrors_ = 0;
  uint64_t rxPasses_ = 0;
  uint64_t rxRingResizes_ = 0;
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
