// AF_PACKET socket set-up: filter, TPACKET_V3 ring, group address, priority, binding, fanout.
#include "linux/PacketSocket.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#ifndef PACKET_FANOUT_FLAG_IGNORE_OUTGOING
#define PACKET_FANOUT_FLAG_IGNORE_OUTGOING 0x4000
#endif

namespace Linux::PacketSocket {
namespace {

// Nominal frame size the ring request needs; frames are packed in blocks whatever it is.
constexpr unsigned kRingFrameSize = 2048;

}  // namespace

std::string systemError(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

const std::vector<Interface::FilterInstruction>& dropAll() {
  static const std::vector<Interface::FilterInstruction> program{{BPF_RET | BPF_K, 0, 0, 0}};
  return program;
}

bool filterAttach(int fd, const std::vector<Interface::FilterInstruction>& program, std::string& error) {
  if (program.empty()) {
    // Nothing to detach is fine.
    const int unused = 0;
    if (setsockopt(fd, SOL_SOCKET, SO_DETACH_FILTER, &unused, sizeof unused) != 0 && errno != ENOENT) {
      error = systemError("SO_DETACH_FILTER");
      return false;
    }
    return true;
  }
  std::vector<sock_filter> filter;
  for (const auto& i : program) filter.push_back({i.code, i.jt, i.jf, i.k});
  sock_fprog fprog{static_cast<unsigned short>(filter.size()), filter.data()};
  if (setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &fprog, sizeof fprog) != 0) {
    error = systemError("SO_ATTACH_FILTER");
    return false;
  }
  return true;
}

bool ringRequest(int fd, const RingGeometry& ring, unsigned blockTimeoutMs) {
  tpacket_req3 req{};
  req.tp_block_size = static_cast<unsigned>(ring.blockSize);
  req.tp_block_nr = static_cast<unsigned>(ring.blockCount);
  req.tp_frame_size = kRingFrameSize;  // nominal with this version: frames are packed
  req.tp_frame_nr = static_cast<unsigned>(ring.blockSize / kRingFrameSize * ring.blockCount);
  req.tp_retire_blk_tov = blockTimeoutMs;
  return setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &req, sizeof req) == 0;
}

namespace {
int gRingMapFailures = 0;
}  // namespace

void ringMapFailuresIs(int count) { gRingMapFailures = count; }

uint8_t* ringMap(int fd, const RingGeometry& ring) {
  if (gRingMapFailures > 0) {
    --gRingMapFailures;
    errno = ENOMEM;
    return nullptr;
  }
  void* map = mmap(nullptr, ring.blockSize * ring.blockCount, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  return map == MAP_FAILED ? nullptr : static_cast<uint8_t*>(map);
}

bool membershipIs(int fd, unsigned ifIndex, const Konet::EthAddr& addr, bool member) {
  packet_mreq mreq{};
  mreq.mr_ifindex = static_cast<int>(ifIndex);
  mreq.mr_type = PACKET_MR_MULTICAST;
  mreq.mr_alen = 6;
  std::memcpy(mreq.mr_address, addr.data(), 6);
  return setsockopt(fd, SOL_PACKET, member ? PACKET_ADD_MEMBERSHIP : PACKET_DROP_MEMBERSHIP, &mreq, sizeof mreq) == 0;
}

bool configure(int fd, const Setup& setup, const std::vector<Interface::FilterInstruction>& filter,
               const RingGeometry& ring, unsigned blockTimeoutMs, std::string& error) {
  if (!filterAttach(fd, filter, error)) return false;
  const int version = TPACKET_V3;
  if (setsockopt(fd, SOL_PACKET, PACKET_VERSION, &version, sizeof version) != 0) {
    error = systemError("PACKET_VERSION");
    return false;
  }
  if (!ringRequest(fd, ring, blockTimeoutMs)) {
    error = systemError("PACKET_RX_RING");
    return false;
  }
  // What this host transmits comes back on packet sockets: never a neighbour. Older kernels
  // lack the option; the receive path skips such frames too.
  const int on = 1;
  setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
  // A socket of all interfaces joins the group on each port's interface as the port comes.
  if (setup.ifIndex != 0 && !membershipIs(fd, setup.ifIndex, setup.listenAddr, true)) {
    error = systemError("PACKET_ADD_MEMBERSHIP");
    return false;
  }
  if (setsockopt(fd, SOL_SOCKET, SO_PRIORITY, &setup.sockPrio, sizeof setup.sockPrio) != 0) {
    error = systemError("SO_PRIORITY");
    return false;
  }
  sockaddr_ll addr{};
  addr.sll_family = AF_PACKET;
  addr.sll_protocol = htons(static_cast<uint16_t>(setup.ethProtocol));
  addr.sll_ifindex = static_cast<int>(setup.ifIndex);
  if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    error = systemError("bind");
    return false;
  }
  return true;
}

uint16_t fanoutCreate(int fd, uint16_t& flags) {
  // Our own transmissions left out by the group too, where the kernel knows how.
  for (const uint16_t extra : {uint16_t(PACKET_FANOUT_FLAG_IGNORE_OUTGOING), uint16_t(0)}) {
    const uint32_t arg = static_cast<uint32_t>(PACKET_FANOUT_CBPF | PACKET_FANOUT_FLAG_UNIQUEID | extra) << 16;
    if (setsockopt(fd, SOL_PACKET, PACKET_FANOUT, &arg, sizeof arg) != 0) continue;
    uint32_t group = 0;
    socklen_t length = sizeof group;
    if (getsockopt(fd, SOL_PACKET, PACKET_FANOUT, &group, &length) != 0) return 0;
    flags = extra;
    return static_cast<uint16_t>(group & 0xffff);
  }
  return 0;
}

bool fanoutJoin(int fd, uint16_t id, uint16_t flags) {
  const uint32_t arg = id | (static_cast<uint32_t>(PACKET_FANOUT_CBPF | flags) << 16);
  return setsockopt(fd, SOL_PACKET, PACKET_FANOUT, &arg, sizeof arg) == 0;
}

bool fanoutSteer(int fd, uint32_t index) {
  sock_filter code[] = {{BPF_RET | BPF_K, 0, 0, index}};
  sock_fprog prog{1, code};
  return setsockopt(fd, SOL_PACKET, PACKET_FANOUT_DATA, &prog, sizeof prog) == 0;
}

}  // namespace Linux::PacketSocket
