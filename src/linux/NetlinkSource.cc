// Subscription, dumps, lost-notification resyncs and the reading of the rtnetlink socket.
#include "linux/NetlinkSource.h"

#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/socket.h>

#include <time.h>

#include <cerrno>
#include <cstring>

#include "linux/HostState.h"
#include "linux/NetlinkParse.h"
#include "platform/Log.h"

namespace Linux {
namespace {

const Platform::LogHandle<std::string_view> NETLINK_READ_FAILED(
    {"LLDP_NETLINK_READ_FAILED", Platform::Severity::error, "Cannot read kernel interface notifications: %s",
     "LLDP could not read the kernel's interface and address notifications; it reads the whole "
     "state again so that nothing is missed.",
     Platform::kNoActionRequired, 60});

// A dump request; family and filter as the kind needs.
nl_msg* dumpRequest(int type, int family, bool bridgeVlans) {
  nl_msg* msg = nlmsg_alloc_simple(type, NLM_F_REQUEST | NLM_F_DUMP);
  if (!msg) return nullptr;
  int err = 0;
  if (type == RTM_GETLINK) {
    ifinfomsg ifi{};
    ifi.ifi_family = static_cast<unsigned char>(family);
    err = nlmsg_append(msg, &ifi, sizeof ifi, NLMSG_ALIGNTO);
    if (!err && bridgeVlans) err = nla_put_u32(msg, IFLA_EXT_MASK, RTEXT_FILTER_BRVLAN);
  } else if (type == RTM_GETADDR) {
    ifaddrmsg ifa{};
    ifa.ifa_family = static_cast<unsigned char>(family);
    err = nlmsg_append(msg, &ifa, sizeof ifa, NLMSG_ALIGNTO);
  } else {
    netconfmsg ncm{};
    ncm.ncm_family = static_cast<unsigned char>(family);
    err = nlmsg_append(msg, &ncm, sizeof ncm, NLMSG_ALIGNTO);
  }
  if (err < 0) {
    nlmsg_free(msg);
    return nullptr;
  }
  return msg;
}

}  // namespace

NetlinkSource::NetlinkSource(Platform::Scheduler& scheduler, HostState& state, Options options)
    : scheduler_(scheduler), state_(state), options_(options), buffer_(64 * 1024),
      stallClock_(scheduler, [this] { handleStallClock(); }),
      rewatchClock_(scheduler, [this] {
        watchIs();
        resyncIs();
      }) {}

NetlinkSource::~NetlinkSource() {
  watch_.reset();
  if (sock_) nl_socket_free(sock_);
}

int NetlinkSource::fd() const { return sock_ ? nl_socket_get_fd(sock_) : -1; }

bool NetlinkSource::start(std::string& error) {
  sock_ = nl_socket_alloc();
  if (!sock_) {
    error = "cannot allocate a netlink socket";
    return false;
  }
  nl_socket_disable_auto_ack(sock_);
  int err = nl_connect(sock_, NETLINK_ROUTE);
  if (err >= 0) {
    // Subscribed before the dump: nothing that changes during it is missed.
    err = nl_socket_add_memberships(sock_, RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR,
                                    RTNLGRP_IPV4_NETCONF, 0);
  }
  if (err >= 0) err = nl_socket_set_nonblocking(sock_);
  if (err < 0) {
    error = std::string("netlink: ") + nl_geterror(err);
    nl_socket_free(sock_);
    sock_ = nullptr;
    return false;
  }
  if (options_.rcvBufBytes > 0) {
    const int fd = nl_socket_get_fd(sock_);
    // Beyond the system's limit when we may (CAP_NET_ADMIN), within it otherwise.
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &options_.rcvBufBytes, sizeof options_.rcvBufBytes) != 0) {
      setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &options_.rcvBufBytes, sizeof options_.rcvBufBytes);
    }
  }
  // Lost notifications must be reported, not hidden.
  const int off = 0;
  setsockopt(nl_socket_get_fd(sock_), SOL_NETLINK, NETLINK_NO_ENOBUFS, &off, sizeof off);
  watchIs();
  resyncIs();
  return true;
}

void NetlinkSource::watchIs() {
  watch_ = scheduler_.readableWatchIs(
      nl_socket_get_fd(sock_), [this] { handleReadable(); },
      [this](std::error_code error) { handleSocketError(error.message()); });
}

void NetlinkSource::handleSocketError(const std::string& what) {
  // Logged (within the throttle), then everything read again: a silent error would leave the
  // agent deaf to every later change.
  ++counters_.recvErrors;
  NETLINK_READ_FAILED.emit(what);
  if (!watch_) return;
  watch_.reset();
  rewatchClock_.timeMinIs(scheduler_.now() + options_.rewatchDelay);
}

void NetlinkSource::handleStallClock() {
  if (dumpQueue_.empty()) return;
  // The kernel never finished the dump (a reply lost, or never sent): without this, every
  // later resync would wait for it for ever.
  ++counters_.dumpStalls;
  NETLINK_READ_FAILED.emit("no reply to a dump request; reading everything again");
  dumpQueue_.clear();
  dumpSeq_ = 0;
  dumpInterrupted_ = false;
  resyncPending_ = false;
  resyncIs();
}

void NetlinkSource::resyncIs() {
  // A dump in progress runs to its end (the kernel allows one at a time) and sweeps what it
  // did not see; then everything is dumped again.
  if (!dumpQueue_.empty()) {
    resyncPending_ = true;
    return;
  }
  state_.resyncBegins();
  dumpQueue_ = {Dump::links, Dump::bridgePorts, Dump::ip4, Dump::ip6, Dump::netconf};
  sendDump();
}

void NetlinkSource::sendDump() {
  nl_msg* msg = nullptr;
  switch (dumpQueue_.front()) {
    case Dump::links: msg = dumpRequest(RTM_GETLINK, AF_UNSPEC, false); break;
    case Dump::bridgePorts: msg = dumpRequest(RTM_GETLINK, AF_BRIDGE, true); break;
    case Dump::ip4: msg = dumpRequest(RTM_GETADDR, AF_INET, false); break;
    case Dump::ip6: msg = dumpRequest(RTM_GETADDR, AF_INET6, false); break;
    case Dump::netconf: msg = dumpRequest(RTM_GETNETCONF, AF_INET, false); break;
  }
  const int err = msg ? nl_send_auto(sock_, msg) : -NLE_NOMEM;
  if (msg) {
    dumpSeq_ = nlmsg_hdr(msg)->nlmsg_seq;
    nlmsg_free(msg);
  }
  ++counters_.dumps;
  stallClock_.timeMinIs(scheduler_.now() + options_.dumpStallTimeout);
  if (err < 0) {
    // Not sent: skip this one rather than wait forever; the next resync asks again.
    NETLINK_READ_FAILED.emit(nl_geterror(err));
    dumpSeq_ = 0;
    scheduler_.post([this] { dumpDone(false); });
  }
}

void NetlinkSource::dumpDone(bool complete) {
  if (dumpQueue_.empty()) return;
  // Only a complete dump says what is gone.
  if (complete) switch (dumpQueue_.front()) {
    case Dump::links: state_.sweepLinks(); break;
    case Dump::bridgePorts: state_.sweepBridgePorts(); break;
    case Dump::ip4: state_.sweepIp4(); break;
    case Dump::ip6: state_.sweepIp6(); break;
    case Dump::netconf: break;
  }
  dumpQueue_.pop_front();
  dumpSeq_ = 0;
  dumpInterrupted_ = false;
  if (!dumpQueue_.empty()) {
    sendDump();
    return;
  }
  if (resyncPending_) {
    resyncPending_ = false;
    resyncIs();
    return;
  }
  stallClock_.timeMinIs(Platform::kNever);
  state_.flush();
  dumpApplied_ = true;
  if (onDumpComplete_) onDumpComplete_();
}

namespace {
double threadCpuNow() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}
}  // namespace

void NetlinkSource::handleReadable() {
  const double cpuBegin = threadCpuNow();
  const int fd = nl_socket_get_fd(sock_);
  for (int i = 0; i < options_.maxDatagramsPerCall; ++i) {
    const ssize_t n = recv(fd, buffer_.data(), buffer_.size(), MSG_DONTWAIT | MSG_TRUNC);
    if (n < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) break;
      if (errno == ENOBUFS) {
        ++counters_.resyncs;
        resyncIs();
        continue;
      }
      handleSocketError(std::strerror(errno));
      break;
    }
    if (static_cast<size_t>(n) > buffer_.size()) {
      // A datagram larger than the buffer lost its tail: grow, and read everything again.
      buffer_.resize(static_cast<size_t>(n));
      ++counters_.resyncs;
      resyncIs();
      continue;
    }
    handleDatagram(buffer_.data(), static_cast<size_t>(n));
  }
  state_.flush();
  counters_.cpuSeconds += threadCpuNow() - cpuBegin;
}

void NetlinkSource::handleDatagram(const uint8_t* data, size_t len) {
  int remaining = static_cast<int>(len);
  auto* hdr = reinterpret_cast<nlmsghdr*>(const_cast<uint8_t*>(data));
  for (; nlmsg_ok(hdr, remaining); hdr = nlmsg_next(hdr, &remaining)) handleMessage(hdr);
}

void NetlinkSource::handleMessage(nlmsghdr* hdr) {
  const bool ours = dumpSeq_ != 0 && hdr->nlmsg_seq == dumpSeq_ && hdr->nlmsg_pid == nl_socket_get_local_port(sock_);
  // A long dump that makes progress is no stall.
  if (ours) stallClock_.timeMinIs(scheduler_.now() + options_.dumpStallTimeout);
  // The late reply of a dump abandoned for a stall: facts of another moment, never applied.
  if (!ours && hdr->nlmsg_seq != 0 && hdr->nlmsg_pid == nl_socket_get_local_port(sock_)) return;
  // The kernel changed what it was dumping while it dumped: the dump may have missed entries,
  // so it sweeps nothing, and everything is taken again afterwards.
  if (ours && (hdr->nlmsg_flags & NLM_F_DUMP_INTR)) {
    resyncPending_ = true;
    dumpInterrupted_ = true;
  }
  if (hdr->nlmsg_type == NLMSG_DONE) {
    if (ours) dumpDone(!dumpInterrupted_);
    return;
  }
  if (hdr->nlmsg_type == NLMSG_ERROR) {
    if (!ours) return;
    // The kernel runs one dump at a time per socket: while an abandoned one is still being
    // delivered (and left aside), the request is made again until the kernel takes it.
    const auto* err = static_cast<const nlmsgerr*>(nlmsg_data(hdr));
    if (hdr->nlmsg_len >= NLMSG_LENGTH(sizeof(nlmsgerr)) && err->error == -EBUSY) {
      sendDump();
      return;
    }
    dumpDone(false);
    return;
  }
  if (hdr->nlmsg_type == NLMSG_NOOP || hdr->nlmsg_type == NLMSG_OVERRUN) return;
  state_.markingIs(ours);
  const RtnlResult result = applyRtnlMessage(hdr, state_);
  state_.markingIs(false);
  switch (result) {
    case RtnlResult::applied: ++counters_.messages; break;
    case RtnlResult::invalid: ++counters_.invalidMessages; break;
    case RtnlResult::ignored: break;
  }
}

}  // namespace Linux
