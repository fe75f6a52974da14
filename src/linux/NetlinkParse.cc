// rtnetlink messages parsed by libnl-route into links, bridge ports, addresses and netconf.
#include "linux/NetlinkParse.h"

#include <arpa/inet.h>
#include <linux/if_link.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/object.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/link/bridge.h>
#include <netlink/route/link/vlan.h>
#include <netlink/route/netconf.h>
#include <sys/socket.h>

#include <cstring>
#include <string_view>

#include "linux/HostState.h"

namespace Linux {
namespace {

Konet::EthAddr ethAddrOf(const nlattr* attr) {
  if (!attr || nla_len(attr) != 6) return {};
  return Konet::EthAddr(static_cast<const uint8_t*>(nla_data(attr)));
}

Konet::EthAddr ethAddrOf(nl_addr* addr) {
  if (!addr || nl_addr_get_len(addr) != 6) return {};
  return Konet::EthAddr(static_cast<const uint8_t*>(nl_addr_get_binary_addr(addr)));
}

// What libnl's link object does not keep: the permanent MAC (the device's, or the one its bond
// remembers), and a bridge's VLAN awareness and default PVID.
void rawLinkAttrs(nlmsghdr* hdr, LinkFacts& facts) {
  nlattr* tb[IFLA_MAX + 1] = {};
  if (nlmsg_parse(hdr, sizeof(ifinfomsg), tb, IFLA_MAX, nullptr) < 0) return;
  facts.permAddr = ethAddrOf(tb[IFLA_PERM_ADDRESS]);
  if (!tb[IFLA_LINKINFO]) return;
  nlattr* li[IFLA_INFO_MAX + 1] = {};
  if (nla_parse_nested(li, IFLA_INFO_MAX, tb[IFLA_LINKINFO], nullptr) < 0) return;
  if (facts.kind.empty() && li[IFLA_INFO_KIND]) facts.kind = nla_get_string(li[IFLA_INFO_KIND]);
  if (facts.slaveKind.empty() && li[IFLA_INFO_SLAVE_KIND]) facts.slaveKind = nla_get_string(li[IFLA_INFO_SLAVE_KIND]);
  if (facts.slaveKind == "bond" && li[IFLA_INFO_SLAVE_DATA] && facts.permAddr.isZero()) {
    nlattr* sd[IFLA_BOND_SLAVE_MAX + 1] = {};
    if (nla_parse_nested(sd, IFLA_BOND_SLAVE_MAX, li[IFLA_INFO_SLAVE_DATA], nullptr) == 0) {
      facts.permAddr = ethAddrOf(sd[IFLA_BOND_SLAVE_PERM_HWADDR]);
    }
  }
  if (facts.kind == "bridge" && li[IFLA_INFO_DATA]) {
    nlattr* bd[IFLA_BR_MAX + 1] = {};
    if (nla_parse_nested(bd, IFLA_BR_MAX, li[IFLA_INFO_DATA], nullptr) == 0) {
      if (bd[IFLA_BR_VLAN_FILTERING] && nla_len(bd[IFLA_BR_VLAN_FILTERING]) >= 1) {
        facts.vlanFiltering = nla_get_u8(bd[IFLA_BR_VLAN_FILTERING]) != 0;
      }
      if (bd[IFLA_BR_VLAN_DEFAULT_PVID] && nla_len(bd[IFLA_BR_VLAN_DEFAULT_PVID]) >= 2) {
        facts.defaultPvid = nla_get_u16(bd[IFLA_BR_VLAN_DEFAULT_PVID]);
      }
    }
  }
}

struct ParseContext {
  nlmsghdr* hdr;
  HostState& state;
  RtnlResult result = RtnlResult::ignored;
};

void applyBridgePort(rtnl_link* link, ParseContext& ctx) {
  const int32_t ifIndex = rtnl_link_get_ifindex(link);
  if (ctx.hdr->nlmsg_type == RTM_DELLINK) {
    ctx.state.bridgePortDel(ifIndex);
    ctx.result = RtnlResult::applied;
    return;
  }
  uint16_t pvid = 0;
  bool tagged = false;
  if (rtnl_link_bridge_has_vlan(link) > 0) {
    if (const rtnl_link_bridge_vlan* v = rtnl_link_bridge_get_port_vlan(link)) {
      pvid = v->pvid;
      for (int i = 0; i < RTNL_LINK_BRIDGE_VLAN_BITMAP_LEN; ++i) {
        if (v->vlan_bitmap[i] & ~v->untagged_bitmap[i]) tagged = true;
      }
    }
  }
  ctx.state.bridgePortIs(ifIndex, pvid, tagged);
  ctx.result = RtnlResult::applied;
}

void applyLink(rtnl_link* link, ParseContext& ctx) {
  const int family = rtnl_link_get_family(link);
  if (family == AF_BRIDGE) {
    applyBridgePort(link, ctx);
    return;
  }
  if (family != AF_UNSPEC) return;
  const int32_t ifIndex = rtnl_link_get_ifindex(link);
  if (ifIndex <= 0) return;
  ctx.result = RtnlResult::applied;
  if (ctx.hdr->nlmsg_type == RTM_DELLINK) {
    ctx.state.linkDel(ifIndex);
    return;
  }
  LinkFacts facts;
  linkFactsOf(link, ctx.hdr, facts);
  if (facts.name.empty()) {
    ctx.result = RtnlResult::invalid;
    return;
  }
  ctx.state.linkIs(facts);
}

void applyAddr(rtnl_addr* addr, ParseContext& ctx) {
  nl_addr* local = rtnl_addr_get_local(addr);
  if (!local) return;
  const int family = rtnl_addr_get_family(addr);
  const int32_t ifIndex = rtnl_addr_get_ifindex(addr);
  const uint8_t len = static_cast<uint8_t>(rtnl_addr_get_prefixlen(addr));
  const uint8_t scope = static_cast<uint8_t>(rtnl_addr_get_scope(addr));
  const uint32_t flags = rtnl_addr_get_flags(addr);
  const bool del = ctx.hdr->nlmsg_type == RTM_DELADDR;
  if (family == AF_INET && nl_addr_get_len(local) == 4) {
    uint32_t raw;
    std::memcpy(&raw, nl_addr_get_binary_addr(local), 4);
    const Arnet::IpAddrWithMask a{Arnet::IpAddr{ntohl(raw)}, len};
    if (del || !ip4Counts(scope)) {
      ctx.state.ip4Del(ifIndex, a);
    } else {
      ctx.state.ip4Is(ifIndex, Ip4Fact{a, (flags & IFA_F_SECONDARY) != 0});
    }
    ctx.result = RtnlResult::applied;
    return;
  }
  if (family == AF_INET6 && nl_addr_get_len(local) == 16) {
    Arnet::Ip6AddrWithMask a;
    std::memcpy(a.addr.bytes.data(), nl_addr_get_binary_addr(local), 16);
    a.len = len;
    if (del || !ip6Counts(scope, flags)) {
      ctx.state.ip6Del(ifIndex, a);
    } else {
      ctx.state.ip6Is(ifIndex, a);
    }
    ctx.result = RtnlResult::applied;
  }
}

void applyNetconf(rtnl_netconf* nc, ParseContext& ctx) {
  int family = 0, ifIndex = 0, forwarding = 0;
  if (rtnl_netconf_get_family(nc, &family) < 0 || family != AF_INET) return;
  if (rtnl_netconf_get_ifindex(nc, &ifIndex) < 0 || ifIndex != NETCONFA_IFINDEX_ALL) return;
  if (rtnl_netconf_get_forwarding(nc, &forwarding) < 0) return;
  ctx.state.forwardingIs(forwarding != 0);
  ctx.result = RtnlResult::applied;
}

void parsed(nl_object* obj, void* arg) {
  auto& ctx = *static_cast<ParseContext*>(arg);
  const std::string_view type = nl_object_get_type(obj);
  if (type == "route/link") {
    applyLink(reinterpret_cast<rtnl_link*>(obj), ctx);
  } else if (type == "route/addr") {
    applyAddr(reinterpret_cast<rtnl_addr*>(obj), ctx);
  } else if (type == "route/netconf") {
    applyNetconf(reinterpret_cast<rtnl_netconf*>(obj), ctx);
  }
}

}  // namespace

void linkFactsOf(rtnl_link* link, nlmsghdr* hdr, LinkFacts& facts) {
  facts.ifIndex = rtnl_link_get_ifindex(link);
  if (const char* name = rtnl_link_get_name(link)) facts.name = name;
  if (const char* kind = rtnl_link_get_type(link)) facts.kind = kind;
  if (const char* slave = rtnl_link_get_slave_type(link)) facts.slaveKind = slave;
  facts.arpType = rtnl_link_get_arptype(link);
  facts.flags = rtnl_link_get_flags(link);
  facts.operState = rtnl_link_get_operstate(link);
  facts.addr = ethAddrOf(rtnl_link_get_addr(link));
  facts.mtu = rtnl_link_get_mtu(link);
  if (const char* alias = rtnl_link_get_ifalias(link)) facts.alias = alias;
  facts.master = rtnl_link_get_master(link);
  if (rtnl_link_is_vlan(link)) facts.vlanId = static_cast<uint16_t>(rtnl_link_vlan_get_id(link));
  if (hdr) rawLinkAttrs(hdr, facts);
}

RtnlResult applyRtnlMessage(nlmsghdr* hdr, HostState& state) {
  nl_msg* msg = nlmsg_convert(hdr);
  if (!msg) return RtnlResult::invalid;
  nlmsg_set_proto(msg, NETLINK_ROUTE);
  ParseContext ctx{nlmsg_hdr(msg), state};
  const int err = nl_msg_parse(msg, &parsed, &ctx);
  nlmsg_free(msg);
  if (err < 0 && err != -NLE_MSGTYPE_NOSUPPORT) return RtnlResult::invalid;
  return ctx.result;
}

}  // namespace Linux
