// AF_PACKET sockets: bound to one interface, the LLDP filter attached, the group address
// joined, frames read from a memory-mapped ring in bounded passes, VLAN tags delivered beside
// the frame, our own transmissions never received, kernel drops counted; rings sized within a
// budget and replaced without losing a frame.
#include "linux/RawSocketPam.h"

#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "linux/SharedRingPam.h"
#include "platform/Log.h"

namespace Linux {

const Platform::LogHandle<std::string_view, std::string_view> PAM_SEND_FAILED(
    {"LLDP_PACKET_SEND_FAILED", Platform::Severity::warning,
     "Cannot send an LLDPDU on interface %s: %s",
     "The kernel refused an LLDPDU on an interface (it went down, disappeared or is out of "
     "buffers). The failure is counted on the port; the next transmission tries again.",
     "If the message repeats while the interface is up, check the interface and its driver.", 60,
     {"INTERFACE", nullptr}});

namespace {

using namespace PacketSocket;

const Platform::LogHandle<std::string_view, std::string_view> PAM_RECEIVE_FAILED(
    {"LLDP_PACKET_RECEIVE_FAILED", Platform::Severity::error,
     "Cannot wait for frames on interface %s: %s",
     "LLDP could not wait for received frames on the raw socket of an interface, so it hears no "
     "neighbours there for now. It tries again every few seconds.",
     "If the message repeats, disable and re-enable LLDP on the interface.", 60, {"INTERFACE", nullptr}});

// The rings of all ports of the process, in bytes: the current ones, which the budget governs,
// and replaced ones still being read.
size_t gRingBytes = 0;
size_t gRetiringBytes = 0;
size_t gRingBudget = RawSocketPam::kRxRingBudget;
size_t gSharedBytes = 0;    // the rings shared by the ports without a socket of their own
size_t gReservedBytes = 0;  // room kept for shared rings not yet opened

// What the budget leaves for the rings of ports with a socket of their own.
size_t dedicatedBudget() {
  const size_t shared = std::max(gSharedBytes, gReservedBytes);
  return gRingBudget > shared ? gRingBudget - shared : 0;
}
// One budget pass at a time, due on the clock of the port that asked for it: a batch of ports
// opened together is sized once, with the number of ports known.
RawSocketPam* gBudgetPassOwner = nullptr;
bool gBudgetPassRun = false;  // since the first port of the process (again) was opened
double gBudgetPassLast = 0;
double gPortsChangedLast = 0;

std::set<RawSocketPam*>& allPams() {
  static std::set<RawSocketPam*> pams;
  return pams;
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

namespace {

// A socket bound to the port with a mapped ring of the geometry; false with error set (and
// nothing left open) when the kernel refuses any step.
bool socketWithRingOpen(PacketSocket::Setup& setup, const std::string& device, int32_t ifIndex,
              RawSocketPam::RingGeometry geometry, unsigned blockTimeoutMs, int& fd, uint8_t*& map,
              std::string& error) {
  fd = -1;
  map = nullptr;
  const bool ok = inNetNs(setup.netNs, error, [&] {
    // Bound by index: a device made again under the same name is another socket's business.
    setup.ifIndex = ifIndex > 0 ? static_cast<unsigned>(ifIndex) : if_nametoindex(device.c_str());
    if (!setup.ifIndex) {
      error = systemError(("interface " + device).c_str());
      return false;
    }
    // No protocol yet: nothing is queued before the filter and the ring are in place.
    fd = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
      error = systemError("socket");
      return false;
    }
    return configure(fd, setup, setup.program, geometry, blockTimeoutMs, error);
  });
  map = ok ? ringMap(fd, geometry) : nullptr;
  if (ok && !map) error = systemError("mmap of the receive ring");
  if (map) return true;
  if (fd >= 0) ::close(fd);
  fd = -1;
  return false;
}

}  // namespace

Platform::Ptr<RawSocketPam> RawSocketPam::open(const Konet::IntfId& intfId, const std::string& device,
                                              int32_t ifIndex, const Interface::EthDevPamManager& config,
                                              Platform::Scheduler& scheduler, const std::string& netNs,
                                              std::string& error, size_t ringBytes) {
  Ring ring;
  ring.geometry = ringGeometry(config.maxRxPktData());
  ring.geometry.blockCount = std::max(ring.geometry.blockCount, ringBytes / ring.geometry.blockSize);
  Setup setup{config.filterProgram(), config.listenAddr(), config.ethProtocol(), config.sockPrio(), 0, netNs};
  if (!socketWithRingOpen(setup, device, ifIndex, ring.geometry, kRxBlockTimeoutMs, ring.fd, ring.map, error)) return nullptr;
  Platform::Ptr<RawSocketPam> pam(new RawSocketPam(intfId, ring, std::move(setup), scheduler));
  pam->fanoutId_ = fanoutCreate(pam->rx_.fd, pam->fanoutFlags_);
  pam->separateDot1QHdr_ = config.separateDot1QHdr();
  pam->maxRxPktData_ = config.maxRxPktData();
  pam->watchIs();
  ringBudgetPassPost(*pam);
  return pam;
}

size_t RawSocketPam::ringBytesInUse() { return gRingBytes + gRetiringBytes + gSharedBytes; }
void RawSocketPam::sharedRingBytesAdd(size_t bytes) { gSharedBytes += bytes; }
void RawSocketPam::sharedRingBytesRemove(size_t bytes) { gSharedBytes -= bytes; }
size_t RawSocketPam::ringBudget() { return gRingBudget; }
void RawSocketPam::ringBudgetIs(size_t bytes) { gRingBudget = bytes; }

size_t RawSocketPam::ringShare(size_t ports) { return ringShareOf(dedicatedBudget(), ports); }

size_t RawSocketPam::ringShareOf(size_t budget, size_t ports) {
  size_t share = kRxRingMaxBytes;
  while (share > kRxRingBytes && share * ports > budget) share /= 2;
  return share;
}

void RawSocketPam::ringBudgetReserve(size_t bytes) { gReservedBytes += bytes; }
void RawSocketPam::ringBudgetRelease(size_t bytes) { gReservedBytes -= bytes; }

void RawSocketPam::ringBudgetPassPost(RawSocketPam& pam) {
  gPortsChangedLast = pam.scheduler_.now();
  if (gBudgetPassOwner) return;
  gBudgetPassOwner = &pam;
  const double now = pam.scheduler_.now();
  pam.budgetClock_.timeMinIs(gBudgetPassRun ? std::max(now, gBudgetPassLast + kRingBudgetInterval) : now);
}

void RawSocketPam::handleBudgetClock() {
  gBudgetPassOwner = nullptr;
  const double now = scheduler_.now();
  // Rings grow on the first pass, which sizes the ports the agent starts with, and later only
  // once ports have stopped coming: a ring grown while more ports arrive would soon have to
  // come down again, each resize costing a socket.
  const bool settled = !gBudgetPassRun || now >= gPortsChangedLast + kRingBudgetInterval;
  gBudgetPassRun = true;
  gBudgetPassLast = now;
  ringBudgetKeep(settled);
  if (settled) return;
  gBudgetPassOwner = this;
  budgetClock_.timeMinIs(gPortsChangedLast + kRingBudgetInterval);
}

void RawSocketPam::ringBudgetKeep(bool grow) {
  const size_t share = ringShare(allPams().size());
  // Over the budget: the largest rings above the share come down to it, largest first.
  while (gRingBytes > dedicatedBudget()) {
    RawSocketPam* largest = nullptr;
    for (RawSocketPam* pam : allPams()) {
      if (pam->retiring_.map || pam->ringBytes() <= share) continue;
      if (!largest || pam->ringBytes() > largest->ringBytes()) largest = pam;
    }
    if (!largest || !largest->ringResize(share)) break;
  }
  if (!grow) return;
  // Room left: rings below the share grow to it.
  for (RawSocketPam* pam : allPams()) {
    if (pam->retiring_.map || pam->ringBytes() >= share) continue;
    if (gRingBytes - pam->ringBytes() + share > dedicatedBudget()) break;
    pam->ringResize(share);
  }
}

void RawSocketPam::ringGrow() {
  // Straight to the largest ring that the budget allows, beyond the share if there is room.
  if (retiring_.map || !rx_.map) return;
  const size_t bytes = ringBytes();
  size_t wanted = kRxRingMaxBytes;
  while (wanted > bytes && gRingBytes - bytes + wanted > dedicatedBudget()) wanted /= 2;
  if (wanted <= bytes) return;
  ringResize(wanted);
}

bool RawSocketPam::ringResize(size_t bytes) {
  const size_t blockSize = rx_.geometry.blockSize;
  const RingGeometry wanted{blockSize, std::max<size_t>(2, bytes / blockSize)};
  if (!rx_.map || wanted.blockCount == rx_.geometry.blockCount || retiring_.map) return false;
  if (fanoutId_ && ringReplace(wanted)) return true;
  return ringResizeInPlace(wanted);
}

bool RawSocketPam::ringReplace(const RingGeometry& geometry) {
  // The new socket joins the group as its second member while the program still names the
  // first, takes its filter, and only then is named: the old socket gets every frame before
  // that moment, the new one every frame after.
  if (!fanoutSteer(rx_.fd, 0)) return false;
  Ring ring;
  ring.geometry = geometry;
  std::string error;
  bool ok = inNetNs(setup_.netNs, error, [&] {
    ring.fd = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (ring.fd < 0) return false;
    return configure(ring.fd, setup_, dropAll(), geometry, kRxBlockTimeoutMs, error);
  });
  ok = ok && fanoutJoin(ring.fd, fanoutId_, fanoutFlags_) && filterAttach(ring.fd, setup_.program, error);
  ring.map = ok ? ringMap(ring.fd, geometry) : nullptr;
  if (!ring.map || !fanoutSteer(ring.fd, 1)) {
    if (ring.map) munmap(ring.map, ring.bytes());
    if (ring.fd >= 0) ::close(ring.fd);
    return false;
  }
  gRingBytes -= rx_.bytes();
  gRetiringBytes += rx_.bytes();
  retiring_ = rx_;
  rx_ = ring;
  gRingBytes += rx_.bytes();
  // The old socket is still watched: the kernel hands over its last block by the timeout.
  retireWatch_ = std::move(watch_);
  watchIs();
  retireClock_.timeMinIs(scheduler_.now() + kRingRetireDelay);
  retireBy_ = scheduler_.now() + 20 * kRingRetireDelay;
  ++rxRingResizes_;
  return true;
}

bool RawSocketPam::ringResizeInPlace(const RingGeometry& geometry) {
  // What the ring still holds is lost with it, as are the frames that arrive while there is
  // none (they wait in the socket's queue, which nobody reads): counted as dropped.
  uint64_t lost = rx_.framesHeld();
  const size_t before = rx_.bytes();
  munmap(rx_.map, before);
  gRingBytes -= before;
  rx_.map = nullptr;
  tpacket_req3 none{};
  setsockopt(rx_.fd, SOL_PACKET, PACKET_RX_RING, &none, sizeof none);
  const RingGeometry least = ringGeometry(maxRxPktData_);
  for (const RingGeometry& g : {geometry, rx_.geometry, least}) {
    if (!ringRequest(rx_.fd, g, kRxBlockTimeoutMs)) continue;
    if ((rx_.map = ringMap(rx_.fd, g))) {
      rx_.geometry = g;
      break;
    }
    setsockopt(rx_.fd, SOL_PACKET, PACKET_RX_RING, &none, sizeof none);
  }
  rx_.block = 0;
  rx_.blockHeld = false;
  rx_.framesLeft = 0;
  char byte;
  while (recv(rx_.fd, &byte, 1, MSG_DONTWAIT | MSG_TRUNC) >= 0) ++lost;
  rxKernelDropsInc(lost);
  if (!rx_.map) {
    // A socket without a ring is readable for ever and nobody reads it: closed, and opened
    // again later.
    PAM_RECEIVE_FAILED.emit(intfId().name(), "no memory for the receive ring");
    ringClose();
    return true;
  }
  gRingBytes += rx_.bytes();
  ++rxRingResizes_;
  ++rxRingResizesLossy_;
  return rx_.bytes() != before;
}

void RawSocketPam::handleRetireClock() {
  if (!retiring_.map) return;
  if (ringWaiting(retiring_)) {
    // Frames still to offer, in order before the new ring's: a pass takes them (last, as a
    // reader may remove the port).
    retireClock_.timeMinIs(scheduler_.now() + kRxBlockTimeoutMs / 1000.0);
    passRun();
    return;
  }
  uint64_t lost = retiring_.framesFilling();
  if (lost != 0 && scheduler_.now() < retireBy_) {
    // The kernel hands that block over within its timeout.
    retireClock_.timeMinIs(scheduler_.now() + kRxBlockTimeoutMs / 1000.0);
    return;
  }
  tpacket_stats_v3 stats{};
  socklen_t length = sizeof stats;
  if (getsockopt(retiring_.fd, SOL_PACKET, PACKET_STATISTICS, &stats, &length) == 0) lost += stats.tp_drops;
  rxKernelDropsInc(lost);
  retireWatch_.reset();
  munmap(retiring_.map, retiring_.bytes());
  gRetiringBytes -= retiring_.bytes();
  ::close(retiring_.fd);
  retiring_ = Ring{};
  reading_ = &rx_;
}

RawSocketPam::RawSocketPam(Konet::IntfId intfId, Ring ring, Setup setup, Platform::Scheduler& scheduler)
    : Pam(std::move(intfId)), rx_(ring), setup_(std::move(setup)), scheduler_(scheduler),
      rewatchClock_(scheduler, [this] { watchIs(); }), retireClock_(scheduler, [this] { handleRetireClock(); }),
      budgetClock_(scheduler, [this] { handleBudgetClock(); }),
      reopenClock_(scheduler, [this] { handleReopenClock(); }) {
  allPams().insert(this);
  gRingBytes += ringBytes();
}

RawSocketPam::~RawSocketPam() {
  *alive_ = false;
  if (gBudgetPassOwner == this) gBudgetPassOwner = nullptr;  // its clock goes with it
  watch_.reset();
  retireWatch_.reset();
  allPams().erase(this);
  // The room this port leaves may let the others grow.
  if (!allPams().empty()) ringBudgetPassPost(**allPams().begin());
  if (allPams().empty()) gBudgetPassRun = false;
  for (Ring* ring : {&rx_, &retiring_}) {
    if (ring->map) munmap(ring->map, ring->bytes());
    if (ring->fd >= 0) ::close(ring->fd);
  }
  gRingBytes -= rx_.bytes();
  gRetiringBytes -= retiring_.bytes();
}

void RawSocketPam::watchIs() {
  if (rx_.fd < 0) return;  // closed until the reopen clock opens it again
  watch_ = scheduler_.readableWatchIs(
      rx_.fd, [this] { handleReadable(); }, [this](std::error_code error) { handleWaitError(error); });
}

void RawSocketPam::handleReadable() {
  // A pass is already due: it takes what waits, after the other work of this turn.
  if (passPosted_) return;
  // Woken with no frame: the socket carries an error (ENETDOWN once the link went down),
  // which keeps it readable until someone reads it. The port keeps its socket while the link
  // is down: reopening on every flap would cost two kernel grace periods and frames.
  if (!rxWaiting()) {
    socketErrorsRead();
    return;
  }
  passRun();
}

void RawSocketPam::socketErrorsRead() {
  for (const Ring* ring : {&rx_, &retiring_}) {
    if (ring->fd < 0) continue;
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(ring->fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error != 0) ++rxSocketErrors_;
  }
}

void RawSocketPam::ringClose() {
  watch_.reset();
  if (rx_.map) {
    munmap(rx_.map, rx_.bytes());
    gRingBytes -= rx_.bytes();
  }
  if (rx_.fd >= 0) ::close(rx_.fd);
  rx_.fd = -1;
  rx_.map = nullptr;
  rx_.block = 0;
  rx_.blockHeld = false;
  rx_.framesLeft = 0;
  fanoutId_ = 0;
  reopenClock_.timeMinIs(scheduler_.now() + reopenDelay_);
  reopenDelay_ = std::min(reopenDelay_ * 2, kReopenDelayMax);
}

void RawSocketPam::handleReopenClock() {
  if (rx_.map) return;
  Ring ring;
  ring.geometry = ringGeometry(maxRxPktData_);
  std::string error;
  if (!socketWithRingOpen(setup_, intfId().name(), static_cast<int32_t>(setup_.ifIndex), ring.geometry, kRxBlockTimeoutMs,
                ring.fd, ring.map, error)) {
    PAM_RECEIVE_FAILED.emit(intfId().name(), error);
    reopenClock_.timeMinIs(scheduler_.now() + reopenDelay_);
    reopenDelay_ = std::min(reopenDelay_ * 2, kReopenDelayMax);
    return;
  }
  rx_ = ring;
  gRingBytes += rx_.bytes();
  reopenDelay_ = kReopenDelay;
  ++rxRingReopens_;
  fanoutId_ = fanoutCreate(rx_.fd, fanoutFlags_);
  watchIs();
}

void RawSocketPam::passRun() {
  const Platform::Ptr<RawSocketPam> self(this);  // a reader may remove the port during the pass
  ++rxPasses_;
  const bool more = rxPassRun();
  if (lossSeen_) {
    const uint64_t drops = rxKernelDrops();
    rxKernelDropsRead();
    // The ring overflowed: a flood that this port's ring cannot hold gets a larger one.
    if (rxKernelDrops() != drops) growDue_ = true;
  }
  if (growDue_) {
    growDue_ = false;
    ringGrow();
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
  if (retiring_.map) {
    reading_ = &retiring_;
    if (ringWaiting(retiring_)) return true;
    // Frames in the block the kernel is still filling there come before the new ring's: it
    // hands that block over within its timeout, and the old socket's watch brings us back.
    if (retiring_.framesFilling() != 0) return false;
  }
  reading_ = &rx_;
  return rx_.map && ringWaiting(rx_);
}

bool RawSocketPam::ringWaiting(Ring& ring) {
  const bool waiting = ring.waiting();
  lossSeen_ = lossSeen_ || ring.lossSeen;
  ring.lossSeen = false;
  // Half of the current ring waits: grow before it overflows.
  if (&ring == &rx_ && ring.halfFull) growDue_ = true;
  ring.halfFull = false;
  return waiting;
}

void RawSocketPam::rxSkip() {
  if (rxWaiting()) reading_->frameNext();
}

void RawSocketPam::rxKernelDropsRead() {
  lossSeen_ = false;
  // Reading the statistics resets them: each read is a difference.
  for (const Ring* ring : {&retiring_, &rx_}) {
    if (ring->fd < 0) continue;
    tpacket_stats_v3 stats{};
    socklen_t length = sizeof stats;
    if (getsockopt(ring->fd, SOL_PACKET, PACKET_STATISTICS, &stats, &length) != 0) continue;
    rxKernelDropsInc(stats.tp_drops);
  }
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
  Ring& ring = *reading_;
  Platform::PacketPtr pkt = ring.framePacket(maxRxPktData_, separateDot1QHdr_);
  // No buffer: the frame is lost, as when a socket's queue is full.
  ring.frameNext();
  if (!pkt) return nullptr;
  rxFramesInc();
  return pkt;
}

void RawSocketPam::txPkt(Platform::PacketPtr pkt) {
  if (rx_.fd < 0) {
    txErrorsInc();  // no socket until the ring is opened again
    return;
  }
  if (send(rx_.fd, pkt->data(), pkt->bytes(), MSG_DONTWAIT) < 0) {
    // ENETDOWN, ENXIO, ENOBUFS and the like: counted per port, logged with the throttle.
    const int error = errno;
    txErrorsInc();
    PAM_SEND_FAILED.emit(intfId().name(), std::strerror(error));
    return;
  }
  txFramesInc();
}

RawSocketPamManager::RawSocketPamManager(Platform::Ptr<Interface::PamDesiredIntfDir> desired,
                                         Platform::Ptr<Interface::EthDevPamCollection> pams,
                                         Platform::Ptr<Interface::DeviceIntfStatusDir> devices,
                                         Platform::Scheduler& scheduler, std::string netNs, size_t dedicatedPortsMax)
    : PamManagerBase(std::move(desired), std::move(pams), std::move(devices), scheduler), netNs_(std::move(netNs)),
      dedicatedPortsMax_(std::min(dedicatedPortsMax, SharedRing::kExcludedMax)) {
  RawSocketPam::ringBudgetReserve(SharedRing::kRingBytes);
}

RawSocketPamManager::~RawSocketPamManager() {
  *alive_ = false;
  RawSocketPam::ringBudgetRelease(SharedRing::kRingBytes);
}

void RawSocketPamManager::dedicatedPrune() {
  const size_t before = dedicated_.size();
  std::erase_if(dedicated_, [this](const auto& entry) { return pams()->intfPam(entry.first).get() != entry.second.pam; });
  if (dedicated_.size() != before) exclusionsSync();
}

void RawSocketPamManager::exclusionsSync() {
  if (!shared_) return;
  std::set<int32_t> ifIndexes;
  for (const auto& [intfId, entry] : dedicated_) ifIndexes.insert(entry.ifIndex);
  std::string error;
  // Cannot fail within kExcludedMax; if it did, those frames would reach no port twice.
  shared_->excludedIs(ifIndexes, error);
}

Platform::Ptr<Konet::Pam> RawSocketPamManager::openPam(const Konet::IntfId& intfId,
                                                       const Interface::DeviceIntf& device,
                                                       std::string& error) {
  const std::string& name = device.deviceName.empty() ? intfId.name() : device.deviceName;
  dedicatedPrune();
  if (dedicated_.size() < dedicatedPortsMax_) {
    // Each opens at the share it would have with every such port open: no ring is replaced
    // while ports come, each replacement costing kernel grace periods on the event thread.
    const size_t ringBytes = RawSocketPam::ringShareOf(
        RawSocketPam::ringBudget() - std::min(RawSocketPam::ringBudget(), SharedRing::kRingBytes), dedicatedPortsMax_);
    Platform::Ptr<RawSocketPam> pam =
        RawSocketPam::open(intfId, name, device.ifIndex, *this, scheduler(), netNs_, error, ringBytes);
    if (!pam) return nullptr;
    dedicated_[intfId] = Dedicated{pam.get(), pam->ifIndex()};
    exclusionsSync();
    return pam;
  }
  int32_t ifIndex = device.ifIndex;
  if (ifIndex <= 0 && !PacketSocket::inNetNs(netNs_, error, [&] {
        ifIndex = static_cast<int32_t>(if_nametoindex(name.c_str()));
        if (ifIndex == 0) error = PacketSocket::systemError(("interface " + name).c_str());
        return ifIndex != 0;
      })) {
    return nullptr;
  }
  if (!shared_) {
    shared_ = SharedRing::open(*this, scheduler(), netNs_, error);
    if (!shared_) return nullptr;
    exclusionsSync();
    // Closed when its last port has gone: churn leaves no socket and no ring memory behind.
    shared_->emptyIs([this, alive = alive_] {
      if (*alive && shared_ && shared_->ports() == 0) shared_.reset();
    });
  }
  Platform::Ptr<SharedPortPam> pam(new SharedPortPam(intfId, ifIndex, shared_));
  if (!shared_->portIs(*pam, error)) return nullptr;
  return pam;
}

}  // namespace Linux
