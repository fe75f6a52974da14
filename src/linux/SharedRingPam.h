// Packet access for the ports beyond those with a socket of their own: one packet socket of
// the namespace, bound to no interface, with one receive ring for all of them. Frames go to
// the port of the interface the kernel reports them on; a port sends with its interface named.
// Opening or closing such a port costs one group-address join or leave: no socket, no ring,
// none of the kernel grace periods that creating and closing packet sockets wait for.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>

#include "linux/PacketSocket.h"
#include "linux/RxRing.h"
#include "platform/PamManager.h"

namespace Linux {

class SharedRing;

class SharedPortPam : public Konet::Pam {
 public:
  SharedPortPam(Konet::IntfId intfId, int32_t ifIndex, std::shared_ptr<SharedRing> ring);
  ~SharedPortPam() override;

  Platform::PacketPtr rxPkt() override;
  void txPkt(Platform::PacketPtr pkt) override;
  int32_t ifIndex() const { return ifIndex_; }

 private:
  friend class SharedRing;
  // Offers the ring's current frame, which arrived on this port's interface.
  void offer();
  bool rxWaiting() override { return offering_; }
  void rxSkip() override;

  std::shared_ptr<SharedRing> ring_;
  int32_t ifIndex_;
  bool offering_ = false;
};

class SharedRing : public std::enable_shared_from_this<SharedRing> {
 public:
  // Room for about 40 ms of a flood at what one sender reaches on a veth; its place in the
  // receive memory budget is taken before the rings of ports with sockets of their own.
  static constexpr size_t kRingBytes = 8 * 1024 * 1024;
  // Frames one pass takes before other events have their turn.
  static constexpr size_t kFramesPerPass = 256;

  // Opens the socket inside the named namespace (empty: ours); null with error set on failure.
  static std::shared_ptr<SharedRing> open(const Interface::EthDevPamManager& config, Platform::Scheduler& scheduler,
                                          const std::string& netNs, std::string& error);
  ~SharedRing();
  SharedRing(const SharedRing&) = delete;
  SharedRing& operator=(const SharedRing&) = delete;

  // Joins the group address on the port's interface and hands it that interface's frames.
  bool portIs(SharedPortPam& port, std::string& error);
  void portDel(SharedPortPam& port);
  // Called (later, on the event thread) when the last port has gone, so that the owner may
  // close the ring and return its memory and descriptor.
  void emptyIs(std::function<void()> fn) { onEmpty_ = std::move(fn); }
  // Interfaces whose frames a socket of their own receives: the ring's filter leaves them out.
  bool excludedIs(const std::set<int32_t>& ifIndexes, std::string& error);

  int fd() const { return ring_.fd; }
  size_t ringBytes() const { return ring_.bytes(); }
  size_t ports() const { return ports_.size(); }
  uint64_t rxFrames() const { return rxFrames_; }
  // Frames of interfaces that are no port (yet, or any more).
  uint64_t rxUnclaimed() const { return rxUnclaimed_; }
  uint64_t rxKernelDrops() const { return rxKernelDrops_; }
  uint64_t rxSocketErrors() const { return rxSocketErrors_; }

  // The port filter program with the interfaces left out in front.
  static std::vector<Interface::FilterInstruction> filterExcluding(
      const std::vector<Interface::FilterInstruction>& program, const std::set<int32_t>& ifIndexes);
  // The most interfaces a filter can leave out (its jumps reach 255 instructions at most).
  static constexpr size_t kExcludedMax = 200;

 private:
  friend class SharedPortPam;
  SharedRing(Platform::Scheduler& scheduler, PacketSocket::Setup setup);
  void handleReadable();
  void passRun();
  void send(const SharedPortPam& port, const Platform::PacketPtr& pkt, int& error);

  Platform::Scheduler& scheduler_;
  PacketSocket::Setup setup_;
  PacketSocket::RxRing ring_;
  size_t maxRxPktData_ = 0;
  bool separateDot1QHdr_ = false;
  std::unordered_map<int32_t, SharedPortPam*> ports_;
  std::unique_ptr<Platform::FdWatch> watch_;
  bool passPosted_ = false;
  std::function<void()> onEmpty_;
  uint64_t rxFrames_ = 0;
  uint64_t rxUnclaimed_ = 0;
  uint64_t rxKernelDrops_ = 0;
  uint64_t rxSocketErrors_ = 0;
};

}  // namespace Linux
