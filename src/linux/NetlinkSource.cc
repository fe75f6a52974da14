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
    : scheduler_(scheduler), state_(state), options_(options), buffer_(64 * 1024) {}

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
  watch_ = scheduler_.readableWatchIs(nl_socket_get_fd(sock_), [this] { handleReadable(); });
  resyncIs();
  return true;
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
  if (!dumpQueue_.empty()) {
    sendDump();
    return;
  }
  if (resyncPending_) {
    resyncPending_ = false;
    resyncIs();
    return;
  }
  state_.flush();
  dumpApplied_ = true;
  if (onDumpComplete_) onDumpComplete_();
}

void NetlinkSource::handleReadable() {
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
      ++counters_.recvErrors;
      NETLINK_READ_FAILED.emit(std::strerror(errno));
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
}

void NetlinkSource::handleDatagram(const uint8_t* data, size_t len) {
  int remaining = static_cast<int>(len);
  auto* hdr = reinterpret_cast<nlmsghdr*>(const_cast<uint8_t*>(data));
  for (; nlmsg_ok(hdr, remaining); hdr = nlmsg_next(hdr, &remaining)) handleMessage(hdr);
}

void NetlinkSource::handleMessage(nlmsghdr* hdr) {
  const bool ours = dumpSeq_ != 0 && hdr->nlmsg_seq == dumpSeq_ && hdr->nlmsg_pid == nl_socket_get_local_port(sock_);
  // The kernel changed what it was dumping while it dumped: take it all again afterwards.
  if (ours && (hdr->nlmsg_flags & NLM_F_DUMP_INTR)) resyncPending_ = true;
  if (hdr->nlmsg_type == NLMSG_DONE) {
    if (ours) dumpDone(true);
    return;
  }
  if (hdr->nlmsg_type == NLMSG_ERROR) {
    if (ours) dumpDone(false);
    return;
  }
  if (hdr->nlmsg_type == NLMSG_NOOP || hdr->nlmsg_type == NLMSG_OVERRUN) return;
  switch (applyRtnlMessage(hdr, state_)) {
    case RtnlResult::applied: ++counters_.messages; break;
    case RtnlResult::invalid: ++counters_.invalidMessages; break;
    case RtnlResult::ignored: break;
  }
}

}  // namespace Linux
