// AF_PACKET sockets: bound to one interface, the LLDP filter attached, the group address
// joined, VLAN tags delivered as auxiliary data, our own transmissions never received.
#include "linux/RawSocketPam.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

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

bool configure(int fd, const std::string& device, int32_t knownIfIndex,
               const Interface::EthDevPamManager& config, std::string& error) {
  // Bound by index: a device made again under the same name is another socket's business.
  const unsigned ifIndex = knownIfIndex > 0 ? static_cast<unsigned>(knownIfIndex) : if_nametoindex(device.c_str());
  if (!ifIndex) {
    error = systemError(("interface " + device).c_str());
    return false;
  }
  sockaddr_ll addr{};
  addr.sll_family = AF_PACKET;
  addr.sll_protocol = htons(static_cast<uint16_t>(config.ethProtocol()));
  addr.sll_ifindex = static_cast<int>(ifIndex);
  if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    error = systemError("bind");
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
  packet_mreq mreq{};
  mreq.mr_ifindex = static_cast<int>(ifIndex);
  mreq.mr_type = PACKET_MR_MULTICAST;
  mreq.mr_alen = 6;
  std::memcpy(mreq.mr_address, config.listenAddr().data(), 6);
  if (setsockopt(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &mreq, sizeof mreq) != 0) {
    error = systemError("PACKET_ADD_MEMBERSHIP");
    return false;
  }
  const int on = 1;
  if (config.separateDot1QHdr() && setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) != 0) {
    error = systemError("PACKET_AUXDATA");
    return false;
  }
  const int prio = config.sockPrio();
  if (setsockopt(fd, SOL_SOCKET, SO_PRIORITY, &prio, sizeof prio) != 0) {
    error = systemError("SO_PRIORITY");
    return false;
  }
  // Room for a burst of the largest frames we accept.
  const int rcvbuf = static_cast<int>(std::max<size_t>(config.maxRxPktData(), 10236) * 32);
  if (setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &rcvbuf, sizeof rcvbuf) != 0) {
    error = systemError("SO_RCVBUF");
    return false;
  }
  return true;
}

}  // namespace

Platform::Ptr<RawSocketPam> RawSocketPam::open(const Konet::IntfId& intfId, const std::string& device,
                                              int32_t ifIndex, const Interface::EthDevPamManager& config,
                                              Platform::Scheduler& scheduler, const std::string& netNs,
                                              std::string& error) {
  int fd = -1;
  const bool ok = inNetNs(netNs, error, [&] {
    fd = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC,
                htons(static_cast<uint16_t>(config.ethProtocol())));
    if (fd < 0) {
      error = systemError("socket");
      return false;
    }
    return configure(fd, device, ifIndex, config, error);
  });
  if (!ok) {
    if (fd >= 0) ::close(fd);
    return nullptr;
  }
  Platform::Ptr<RawSocketPam> pam(new RawSocketPam(intfId, fd, scheduler));
  // Frames queued between socket() and the filter's attachment passed no filter: drop them.
  char byte;
  while (recv(fd, &byte, 1, MSG_DONTWAIT | MSG_TRUNC) >= 0) {
  }
  pam->watchIs();
  return pam;
}

RawSocketPam::RawSocketPam(Konet::IntfId intfId, int fd, Platform::Scheduler& scheduler)
    : Pam(std::move(intfId)), fd_(fd), scheduler_(scheduler),
      rewatchClock_(scheduler, [this] { watchIs(); }) {}

RawSocketPam::~RawSocketPam() {
  watch_.reset();
  ::close(fd_);
}

void RawSocketPam::watchIs() {
  watch_ = scheduler_.readableWatchIs(
      fd_, [this] { handleReadable(); }, [this](std::error_code error) { handleWaitError(error); });
}

void RawSocketPam::handleReadable() {
  // The port engine takes one frame per notification; readiness comes back for the rest.
  const uint64_t taken = rxTaken_;
  if (hasWatchers()) readableCountInc();
  if (rxTaken_ != taken) return;
  // Nobody read (no engine on the port): drop what waits, or readiness would call at once again.
  for (int i = 0; i < kMaxUnreadDrain; ++i) {
    char byte;
    if (recv(fd_, &byte, 1, MSG_DONTWAIT | MSG_TRUNC) < 0) return;
    ++rxUnread_;
  }
}

void RawSocketPam::handleWaitError(std::error_code error) {
  ++rxWaitErrors_;
  PAM_RECEIVE_FAILED.emit(intfId().name(), error.message());
  watch_.reset();
  rewatchClock_.timeMinIs(scheduler_.now() + kRewatchDelay);
}

Platform::PacketPtr RawSocketPam::rxPkt() {
  ++rxTaken_;
  Platform::PacketPtr pkt = Platform::PacketPool::instance().alloc();
  if (!pkt) {
    discardOne();  // no buffer: drop it, or readiness would call again at once
    return nullptr;
  }
  while (true) {
    sockaddr_ll from{};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(tpacket_auxdata))];
    iovec iov{pkt->data(), pkt->maxSharedData()};
    msghdr msg{};
    msg.msg_name = &from;
    msg.msg_namelen = sizeof from;
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;
    const ssize_t n = recvmsg(fd_, &msg, MSG_DONTWAIT | MSG_TRUNC);
    if (n < 0) return nullptr;
    // What this host transmitted comes back on packet sockets: never a neighbour.
    if (from.sll_pkttype == PACKET_OUTGOING) continue;
    pkt->receivedIs(static_cast<size_t>(n));
    for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c)) {
      if (c->cmsg_level != SOL_PACKET || c->cmsg_type != PACKET_AUXDATA) continue;
      tpacket_auxdata aux;
      std::memcpy(&aux, CMSG_DATA(c), sizeof aux);
      if (aux.tp_status & TP_STATUS_VLAN_VALID) {
        const uint16_t tpid = (aux.tp_status & TP_STATUS_VLAN_TPID_VALID) ? aux.tp_vlan_tpid : 0x8100;
        pkt->dot1QHdrIs(Platform::Packet::Dot1QTag{tpid, aux.tp_vlan_tci});
      }
    }
    rxFramesInc();
    return pkt;
  }
}

void RawSocketPam::discardOne() {
  char byte;
  recv(fd_, &byte, 1, MSG_DONTWAIT | MSG_TRUNC);
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
