// One packet socket and ring for many ports: demultiplexing by the receiving interface,
// sending with the interface named, group membership per port.
#include "linux/SharedRingPam.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "linux/RawSocketPam.h"
#include "platform/Log.h"

namespace Linux {
namespace {

using namespace PacketSocket;

}  // namespace

SharedPortPam::SharedPortPam(Konet::IntfId intfId, int32_t ifIndex, std::shared_ptr<SharedRing> ring)
    : Pam(std::move(intfId)), ring_(std::move(ring)), ifIndex_(ifIndex) {}

SharedPortPam::~SharedPortPam() { ring_->portDel(*this); }

void SharedPortPam::offer() {
  const Platform::Ptr<SharedPortPam> self(this);  // a reader may remove the port
  offering_ = true;
  rxPassRun();
  offering_ = false;
}

void SharedPortPam::rxSkip() {
  offering_ = false;
  ring_->ring_.frameNext();
}

Platform::PacketPtr SharedPortPam::rxPkt() {
  rxTakenInc();
  if (!offering_) return nullptr;
  offering_ = false;
  PacketSocket::RxRing& ring = ring_->ring_;
  Platform::PacketPtr pkt = ring.framePacket(ring_->maxRxPktData_, ring_->separateDot1QHdr_);
  ring.frameNext();
  if (!pkt) return nullptr;  // no buffer: lost, as when a socket's queue is full
  rxFramesInc();
  return pkt;
}

void SharedPortPam::txPkt(Platform::PacketPtr pkt) {
  int error = 0;
  ring_->send(*this, pkt, error);
  if (error == 0) {
    txFramesInc();
    return;
  }
  txErrorsInc();
  PAM_SEND_FAILED.emit(intfId().name(), std::strerror(error));
}

std::shared_ptr<SharedRing> SharedRing::open(const Interface::EthDevPamManager& config,
                                             Platform::Scheduler& scheduler, const std::string& netNs,
                                             std::string& error) {
  Setup setup{config.filterProgram(), config.listenAddr(), config.ethProtocol(), config.sockPrio(), 0, netNs};
  std::shared_ptr<SharedRing> ring(new SharedRing(scheduler, setup));
  RingGeometry geometry = RawSocketPam::ringGeometry(config.maxRxPktData());
  geometry.blockCount = std::max<size_t>(2, kRingBytes / geometry.blockSize);
  int fd = -1;
  const bool ok = inNetNs(netNs, error, [&] {
    fd = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
      error = systemError("socket");
      return false;
    }
    return configure(fd, setup, setup.program, geometry, RawSocketPam::kRxBlockTimeoutMs, error);
  });
  uint8_t* map = ok ? ringMap(fd, geometry) : nullptr;
  if (ok && !map) error = systemError("mmap of the shared receive ring");
  if (!map) {
    if (fd >= 0) ::close(fd);
    return nullptr;
  }
  ring->ring_.fd = fd;
  ring->ring_.map = map;
  ring->ring_.geometry = geometry;
  ring->maxRxPktData_ = config.maxRxPktData();
  ring->separateDot1QHdr_ = config.separateDot1QHdr();
  RawSocketPam::sharedRingBytesAdd(ring->ringBytes());
  ring->watch_ = scheduler.readableWatchIs(fd, [weak = std::weak_ptr<SharedRing>(ring)] {
    if (const auto self = weak.lock()) self->handleReadable();
  });
  return ring;
}

SharedRing::SharedRing(Platform::Scheduler& scheduler, PacketSocket::Setup setup)
    : scheduler_(scheduler), setup_(std::move(setup)) {}

SharedRing::~SharedRing() {
  watch_.reset();
  if (ring_.map) {
    RawSocketPam::sharedRingBytesRemove(ring_.bytes());
    munmap(ring_.map, ring_.bytes());
  }
  if (ring_.fd >= 0) ::close(ring_.fd);
}

bool SharedRing::portIs(SharedPortPam& port, std::string& error) {
  if (!membershipIs(ring_.fd, static_cast<unsigned>(port.ifIndex()), setup_.listenAddr, true)) {
    error = systemError("PACKET_ADD_MEMBERSHIP");
    return false;
  }
  ports_[port.ifIndex()] = &port;
  return true;
}

void SharedRing::portDel(SharedPortPam& port) {
  const auto it = ports_.find(port.ifIndex());
  // A port made again on the interface has taken the entry already.
  if (it != ports_.end() && it->second == &port) ports_.erase(it);
  // Fails when the interface is gone, which left the group with it.
  membershipIs(ring_.fd, static_cast<unsigned>(port.ifIndex()), setup_.listenAddr, false);
  if (ports_.empty() && onEmpty_) scheduler_.post(onEmpty_);
}

std::vector<Interface::FilterInstruction> SharedRing::filterExcluding(
    const std::vector<Interface::FilterInstruction>& program, const std::set<int32_t>& ifIndexes) {
  if (ifIndexes.empty()) return program;
  std::vector<Interface::FilterInstruction> out;
  out.push_back({BPF_LD | BPF_W | BPF_ABS, 0, 0, static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_IFINDEX)});
  // Each test jumps to the final drop when the interface matches.
  const size_t n = ifIndexes.size();
  size_t i = 0;
  for (const int32_t ifIndex : ifIndexes) {
    const auto toDrop = static_cast<uint8_t>(n - 1 - i + program.size());
    out.push_back({BPF_JMP | BPF_JEQ | BPF_K, toDrop, 0, static_cast<uint32_t>(ifIndex)});
    ++i;
  }
  out.insert(out.end(), program.begin(), program.end());
  out.push_back({BPF_RET | BPF_K, 0, 0, 0});
  return out;
}

bool SharedRing::excludedIs(const std::set<int32_t>& ifIndexes, std::string& error) {
  if (ifIndexes.size() > kExcludedMax || ifIndexes.size() + setup_.program.size() > 255) {
    error = "too many interfaces to leave out of the shared ring's filter";
    return false;
  }
  return filterAttach(ring_.fd, filterExcluding(setup_.program, ifIndexes), error);
}

void SharedRing::send(const SharedPortPam& port, const Platform::PacketPtr& pkt, int& error) {
  sockaddr_ll addr{};
  addr.sll_family = AF_PACKET;
  addr.sll_ifindex = port.ifIndex();
  addr.sll_halen = 6;
  if (pkt->bytes() >= 14) {
    std::memcpy(addr.sll_addr, pkt->data(), 6);
    std::memcpy(&addr.sll_protocol, pkt->data() + 12, 2);  // the frame's EtherType, as on the wire
  }
  if (sendto(ring_.fd, pkt->data(), pkt->bytes(), MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&addr),
             sizeof addr) < 0) {
    error = errno;
  }
}

void SharedRing::handleReadable() {
  if (passPosted_) return;
  if (ring_.waiting()) {
    passRun();
    return;
  }
  // Woken with no frame: an error the kernel left on the socket keeps it readable.
  int error = 0;
  socklen_t length = sizeof error;
  if (getsockopt(ring_.fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error != 0) ++rxSocketErrors_;
}

void SharedRing::passRun() {
  const std::shared_ptr<SharedRing> self = shared_from_this();  // readers may drop every port
  int32_t lastPort = 0;
  for (size_t n = 0; n < kFramesPerPass; ++n) {
    if (!ring_.waiting()) break;
    ++rxFrames_;
    const int32_t ifIndex = ring_.frameIfIndex();
    const auto port = ports_.find(ifIndex);
    if (port == ports_.end()) {
      ++rxUnclaimed_;
      ring_.frameNext();
      continue;
    }
    lastPort = ifIndex;
    port->second->offer();
  }
  if (ring_.lossSeen) {
    ring_.lossSeen = false;
    tpacket_stats_v3 stats{};
    socklen_t length = sizeof stats;
    if (getsockopt(ring_.fd, SOL_PACKET, PACKET_STATISTICS, &stats, &length) == 0 && stats.tp_drops != 0) {
      rxKernelDrops_ += stats.tp_drops;
      // The kernel does not say whose frames it dropped: they are counted on the port whose
      // frames filled the ring, which in a flood is the port read last.
      if (const auto port = ports_.find(lastPort); port != ports_.end()) port->second->rxKernelDropsInc(stats.tp_drops);
    }
  }
  ring_.halfFull = false;
  if (!ring_.waiting() || passPosted_) return;
  // More than a pass: the rest after the other events of this turn.
  passPosted_ = true;
  scheduler_.post([weak = weak_from_this()] {
    const auto ring = weak.lock();
    if (!ring) return;
    ring->passPosted_ = false;
    ring->passRun();
  });
}

}  // namespace Linux
