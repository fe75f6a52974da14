// AF_PACKET sockets: bound to one interface, the LLDP filter attached, the group address
// joined, frames read from a memory-mapped ring in bounded passes, VLAN tags delivered beside
// the frame, our own transmissions never received, kernel drops counted.
#include "linux/RawSocketPam.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "platform/Log.h"

namespace Linux {
namespace {

const Platform::LogHandle<std::string_view, std::string_view> PAM_RECEIVE_FAILED(
    {"LLDP_PACKET_RECEIVE_FAILED", Platform::Severity::error,
     "Cannot wait for frames on interface %s: %s",
     "LLDP could not wait for received frames on the raw socket of an interface, so it hears no "
     "neighbours there for now. It tries again every few seconds.",
     "If the message repeats, disable and re-enable LLDP on the interface.", 60, {"INTERFACE", nullptr}});

const Platform::LogHandle<std::string_view, std::string_view> PAM_SEND_FAILED(
    {"LLDP_PACKET_SEND_FAILED", Platform::Severity::warning,
     "Cannot send an LLDPDU on interface %s: %s",
     "The kernel refused an LLDPDU on an interface (it went down, disappeared or is out of "
     "buffers). The failure is counted on the port; the next transmission tries again.",
     "If the message repeats while the interface is up, check the interface and its driver.", 60,
     {"INTERFACE", nullptr}});

// Nominal frame size the ring request needs; frames are packed in blocks whatever it is.
constexpr unsigned kRingFrameSize = 2048;

std::string systemError(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

// Runs fn inside the named network namespace (or here, when the name is empty).
template <class Fn>
bool inNetNs(const std::string& netNs, std::string& error, Fn&& fn) {
  if (netNs.empty()) return fn();
  const int target = ::open(("/var/run/netns/" + netNs).c_str(), O_RDONLY | O_CLOEXEC);
  if (target < 0) {
    error = systemError(("network namespace " + netNs).c_str());
    return false;
  }
  const int home = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
  if (home < 0 || setns(target, CLONE_NEWNET) != 0) {
    error = systemError("setns");
    ::close(target);
    if (home >= 0) ::close(home);
    return false;
  }
  const bool ok = fn();
  setns(home, CLONE_NEWNET);
  ::close(target);
  ::close(home);
  return ok;
}

// The rings of all ports of the process, in bytes: a port grows its ring only within the budget.
size_t gRingBytes = 0;
std::set<RawSocketPam*>& allPams() {
  static std::set<RawSocketPam*> pams;
  return pams;
}

bool ringRequest(int fd, const RawSocketPam::RingGeometry& ring) {
  tpacket_req3 req{};
  req.tp_block_size = static_cast<unsigned>(ring.blockSize);
  req.tp_block_nr = static_cast<unsigned>(ring.blockCount);
  req.tp_frame_size = kRingFrameSize;  // nominal with this version: frames are packed
  req.tp_frame_nr = static_cast<unsigned>(ring.blockSize / kRingFrameSize * ring.blockCount);
  req.tp_retire_blk_tov = RawSocketPam::kRxBlockTimeoutMs;
  return setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &req, sizeof req) == 0;
}

uint8_t* ringMap(int fd, const RawSocketPam::RingGeometry& ring) {
  void* map = mmap(nullptr, ring.blockSize * ring.blockCount, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  return map == MAP_FAILED ? nullptr : static_cast<uint8_t*>(map);
}

bool configure(int fd, const std::string& device, int32_t knownIfIndex,
               const Interface::EthDevPamManager& config, const RawSocketPam::RingGeometry& ring,
               std::string& error) {
  // Bound by index: a device made again under the same name is another socket's business.
  const unsigned ifIndex = knownIfIndex > 0 ? static_cast<unsigned>(knownIfIndex) : if_nametoindex(device.c_str());
  if (!ifIndex) {
    error = systemError(("interface " + device).c_str());
    return false;
  }
  std::vector<sock_filter> program;
  for (const auto& i : config.filterProgram()) program.push_back({i.code, i.jt, i.jf, i.k});
  if (!program.empty()) {
    sock_fprog fprog{static_cast<unsigned short>(program.size()), program.data()};
    if (setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &fprog, sizeof fprog) != 0) {
      error = systemError("SO_ATTACH_FILTER");
      return false;
    }
  }
  const int version = TPACKET_V3;
  if (setsockopt(fd, SOL_PACKET, PACKET_VERSION, &version, sizeof version) != 0) {
    error = systemError("PACKET_VERSION");
    return false;
  }
  if (!ringRequest(fd, ring)) {
    error = systemError("PACKET_RX_RING");
    return false;
  }
  // What this host transmits comes back on packet sockets: never a neighbour. Older kernels
  // lack the option; the receive path skips such frames too.
  const int on = 1;
  setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
  packet_mreq mreq{};
  mreq.mr_ifindex = static_cast<int>(ifIndex);
  mreq.mr_type = PACKET_MR_MULTICAST;
  mreq.mr_alen = 6;
  std::memcpy(mreq.mr_address, config.listenAddr().data(), 6);
  if (setsockopt(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &mreq, sizeof mreq) != 0) {
    error = systemError("PACKET_ADD_MEMBERSHIP");
    return false;
  }
  const int prio = config.sockPrio();
  if (setsockopt(fd, SOL_SOCKET, SO_PRIORITY, &prio, sizeof prio) != 0) {
    error = systemError("SO_PRIORITY");
    return false;
  }
  // Frames flow from here on, through the filter into the ring.
  sockaddr_ll addr{};
  addr.sll_family = AF_PACKET;
  addr.sll_protocol = htons(static_cast<uint16_t>(config.ethProtocol()));
  addr.sll_ifindex = static_cast<int>(ifIndex);
  if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    error = systemError("bind");
    return false;
  }
  return true;
}

tpacket_block_desc* blockAt(uint8_t* ring, const RawSocketPam::RingGeometry& geometry, size_t block) {
  return reinterpret_cast<tpacket_block_desc*>(ring + block * geometry.blockSize);
}

uint32_t blockStatus(const tpacket_block_desc* block) {
  // Acquire: the frames the kernel wrote before handing the block over are visible.
  return __atomic_load_n(&block->hdr.bh1.block_status, __ATOMIC_ACQUIRE);
}

const tpacket3_hdr* frameHdr(const uint8_t* frame) { return reinterpret_cast<const tpacket3_hdr*>(frame); }

const sockaddr_ll* frameAddr(const uint8_t* frame) {
  return reinterpret_cast<const sockaddr_ll*>(frame + TPACKET_ALIGN(sizeof(tpacket3_hdr)));
}

}  // namespace

RawSocketPam::RingGeometry RawSocketPam::ringGeometry(size_t maxRxPktData) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  // The block's own header, the frame's header and address, and the alignment of the frame.
  const size_t needed = std::max<size_t>(maxRxPktData, 1518) + 256;
  // A whole number of pages, and a power of two of them: the kernel allocates it so.
  size_t blockSize = page;
  while (blockSize < needed) blockSize *= 2;
  return {blockSize, std::max<size_t>(2, kRxRingBytes / blockSize)};
}

Platform::Ptr<RawSocketPam> RawSocketPam::open(const Konet::IntfId& intfId, const std::string& device,
                                              int32_t ifIndex, const Interface::EthDevPamManager& config,
                                              Platform::Scheduler& scheduler, const std::string& netNs,
                                              std::string& error) {
  const RingGeometry geometry = ringGeometry(config.maxRxPktData());
  int fd = -1;
  const bool ok = inNetNs(netNs, error, [&] {
    // No protocol yet: nothing is queued before the filter and the ring are in place.
    fd = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
      error = systemError("socket");
      return false;
    }
    return configure(fd, device, ifIndex, config, geometry, error);
  });
  uint8_t* ring = ok ? ringMap(fd, geometry) : nullptr;
  if (ok && !ring) error = systemError("mmap of the receive ring");
  if (!ring) {
    if (fd >= 0) ::close(fd);
    return nullptr;
  }
  Platform::Ptr<RawSocketPam> pam(new RawSocketPam(intfId, fd, ring, geometry, scheduler));
  pam->separateDot1QHdr_ = config.separateDot1QHdr();
  pam->maxRxPktData_ = config.maxRxPktData();
  pam->watchIs();
  ringBudgetKeep();
  return pam;
}

size_t RawSocketPam::ringBytesInUse() { return gRingBytes; }

void RawSocketPam::ringBudgetKeep() {
  // A new port always gets its least ring; grown rings give the room back, largest first.
  while (gRingBytes > kRxRingBudget) {
    RawSocketPam* largest = nullptr;
    for (RawSocketPam* pam : allPams()) {
      if (pam->ringBytes() > kRxRingBytes && (!largest || pam->ringBytes() > largest->ringBytes())) largest = pam;
    }
    if (!largest) return;
    largest->ringResize(kRxRingBytes);
  }
}

void RawSocketPam::ringGrow() {
  // Straight to the largest ring that the budget allows: each resize loses what the ring holds.
  const size_t bytes = ringBytes();
  size_t wanted = kRxRingMaxBytes;
  while (wanted > bytes && gRingBytes - bytes + wanted > kRxRingBudget) wanted /= 4;
  if (wanted <= bytes) return;
  ringResize(wanted);
}

void RawSocketPam::ringResize(size_t bytes) {
  // What the ring still holds is lost with it, as are the frames that arrive while there is
  // none (they wait in the socket's queue, which nobody reads): counted as dropped.
  uint64_t lost = framesLeft_;
  for (size_t b = 0; b < geometry_.blockCount; ++b) {
    if (blockHeld_ && b == block_) continue;
    const tpacket_block_desc* block = blockAt(ring_, geometry_, b);
    if (blockStatus(block) & TP_STATUS_USER) lost += block->hdr.bh1.num_pkts;
  }
  munmap(ring_, ringBytes());
  gRingBytes -= ringBytes();
  ring_ = nullptr;
  tpacket_req3 none{};
  setsockopt(fd_, SOL_PACKET, PACKET_RX_RING, &none, sizeof none);
  const RingGeometry wanted{geometry_.blockSize, std::max<size_t>(2, bytes / geometry_.blockSize)};
  const RingGeometry least = ringGeometry(maxRxPktData_);
  for (const RingGeometry& g : {wanted, geometry_, least}) {
    if (!ringRequest(fd_, g)) continue;
    if ((ring_ = ringMap(fd_, g))) {
      geometry_ = g;
      break;
    }
    setsockopt(fd_, SOL_PACKET, PACKET_RX_RING, &none, sizeof none);
  }
  block_ = 0;
  blockHeld_ = false;
  framesLeft_ = 0;
  char byte;
  while (recv(fd_, &byte, 1, MSG_DONTWAIT | MSG_TRUNC) >= 0) ++lost;
  rxKernelDropsInc(lost);
  if (!ring_) {
    PAM_RECEIVE_FAILED.emit(intfId().name(), "no memory for the receive ring");
    return;
  }
  gRingBytes += ringBytes();
  ++rxRingResizes_;
}

RawSocketPam::RawSocketPam(Konet::IntfId intfId, int fd, uint8_t* ring, RingGeometry geometry,
                           Platform::Scheduler& scheduler)
    : Pam(std::move(intfId)), fd_(fd), ring_(ring), geometry_(geometry), scheduler_(scheduler),
      rewatchClock_(scheduler, [this] { watchIs(); }) {
  allPams().insert(this);
  gRingBytes += ringBytes();
}

RawSocketPam::~RawSocketPam() {
  *alive_ = false;
  watch_.reset();
  allPams().erase(this);
  if (ring_) {
    munmap(ring_, ringBytes());
    gRingBytes -= ringBytes();
  }
  ::close(fd_);
}

void RawSocketPam::watchIs() {
  watch_ = scheduler_.readableWatchIs(
      fd_, [this] { handleReadable(); }, [this](std::error_code error) { handleWaitError(error); });
}

void RawSocketPam::handleReadable() {
  // A pass is already due: it takes what waits, after the other work of this turn.
  if (passPosted_) return;
  passRun();
}

void RawSocketPam::passRun() {
  const Platform::Ptr<RawSocketPam> self(this);  // a reader may remove the port during the pass
  ++rxPasses_;
  const bool more = rxPassRun();
  if (lossSeen_) {
    const uint64_t drops = rxKernelDrops();
    rxKernelDropsRead();
    // The ring overflowed: a flood that this port's ring cannot hold gets a larger one.
    if (rxKernelDrops() != drops) ringGrow();
  }
  if (!more || passPosted_) return;
  // Readiness would bring us back too; the posted pass does not depend on how the kernel
  // reports a ring that is partly read.
  passPosted_ = true;
  scheduler_.post([this, alive = alive_] {
    if (!*alive) return;
    passPosted_ = false;
    passRun();
  });
}

bool RawSocketPam::rxWaiting() {
  if (!ring_) return false;
  for (size_t tries = 0; tries <= geometry_.blockCount; ++tries) {
    while (framesLeft_ > 0) {
      // Our own transmissions, where the kernel could not be told to leave them out.
      if (frameAddr(frame_)->sll_pkttype != PACKET_OUTGOING) return true;
      frameNext();
    }
    if (blockHeld_) blockRelease();
    tpacket_block_desc* block = blockAt(ring_, geometry_, block_);
    const uint32_t status = blockStatus(block);
    if (!(status & TP_STATUS_USER)) return false;
    blockHeld_ = true;
    if (status & TP_STATUS_LOSING) lossSeen_ = true;
    const uint32_t first = block->hdr.bh1.offset_to_first_pkt;
    framesLeft_ = first < geometry_.blockSize ? block->hdr.bh1.num_pkts : 0;
    frame_ = reinterpret_cast<uint8_t*>(block) + first;
    if (framesLeft_ > 0 && !frameFits()) framesLeft_ = 0;
  }
  return false;
}

bool RawSocketPam::frameFits() const {
  const uint8_t* blockEnd = reinterpret_cast<const uint8_t*>(blockAt(ring_, geometry_, block_)) + geometry_.blockSize;
  const tpacket3_hdr* hdr = frameHdr(frame_);
  return frame_ + TPACKET3_HDRLEN <= blockEnd && frame_ + hdr->tp_mac + hdr->tp_snaplen <= blockEnd;
}

void RawSocketPam::frameNext() {
  const uint32_t next = frameHdr(frame_)->tp_next_offset;
  --framesLeft_;
  frame_ += next;
  // A frame that would leave the block ends it: the kernel never writes one.
  if (framesLeft_ > 0 && (next == 0 || !frameFits())) framesLeft_ = 0;
}

void RawSocketPam::blockRelease() {
  // Every block ours: the kernel had nowhere to put frames and may have dropped some.
  bool full = true;
  for (size_t b = 0; b < geometry_.blockCount && full; ++b) {
    full = blockStatus(blockAt(ring_, geometry_, b)) & TP_STATUS_USER;
  }
  if (full) lossSeen_ = true;
  __atomic_store_n(&blockAt(ring_, geometry_, block_)->hdr.bh1.block_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
  blockHeld_ = false;
  framesLeft_ = 0;
  block_ = (block_ + 1) % geometry_.blockCount;
}

void RawSocketPam::rxSkip() {
  if (rxWaiting()) frameNext();
}

void RawSocketPam::rxKernelDropsRead() {
  lossSeen_ = false;
  // Reading the statistics resets them: each read is a difference.
  tpacket_stats_v3 stats{};
  socklen_t length = sizeof stats;
  if (getsockopt(fd_, SOL_PACKET, PACKET_STATISTICS, &stats, &length) != 0) return;
  rxKernelDropsInc(stats.tp_drops);
}

void RawSocketPam::handleWaitError(std::error_code error) {
  ++rxWaitErrors_;
  PAM_RECEIVE_FAILED.emit(intfId().name(), error.message());
  watch_.reset();
  rewatchClock_.timeMinIs(scheduler_.now() + kRewatchDelay);
}

Platform::PacketPtr RawSocketPam::rxPkt() {
  rxTakenInc();
  if (!rxWaiting()) return nullptr;
  Platform::PacketPtr pkt = Platform::PacketPool::instance().alloc();
  if (!pkt) {
    frameNext();  // no buffer: the frame is lost, as when a socket's queue is full
    return nullptr;
  }
  const tpacket3_hdr* hdr = frameHdr(frame_);
  const size_t n = std::min<size_t>({hdr->tp_snaplen, maxRxPktData_, pkt->maxSharedData()});
  pkt->receivedIs(n);
  std::memcpy(pkt->data(), frame_ + hdr->tp_mac, n);
  if (separateDot1QHdr_ && (hdr->tp_status & TP_STATUS_VLAN_VALID)) {
    const uint16_t tpid = (hdr->tp_status & TP_STATUS_VLAN_TPID_VALID) ? hdr->hv1.tp_vlan_tpid : 0x8100;
    pkt->dot1QHdrIs(Platform::Packet::Dot1QTag{tpid, static_cast<uint16_t>(hdr->hv1.tp_vlan_tci)});
  }
  frameNext();
  rxFramesInc();
  return pkt;
}

void RawSocketPam::txPkt(Platform::PacketPtr pkt) {
  if (send(fd_, pkt->data(), pkt->bytes(), MSG_DONTWAIT) < 0) {
    // ENETDOWN, ENXIO, ENOBUFS and the like: counted per port, logged with the throttle.
    const int error = errno;
    txErrorsInc();
    PAM_SEND_FAILED.emit(intfId().name(), std::strerror(error));
    return;
  }
  txFramesInc();
}

Platform::Ptr<Konet::Pam> RawSocketPamManager::openPam(const Konet::IntfId& intfId,
                                                       const Interface::DeviceIntf& device,
                                                       std::string& error) {
  const std::string& name = device.deviceName.empty() ? intfId.name() : device.deviceName;
  return RawSocketPam::open(intfId, name, device.ifIndex, *this, scheduler(), netNs_, error);
}

}  // namespace Linux
