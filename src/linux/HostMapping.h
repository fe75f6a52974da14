// How the Linux host's facts become the records other agents publish on a switch: the mapping
// table, the facts kept per link and address, and the pure decisions that apply the table.
//
// Record attribute                        Linux fact                                  Why
// --------------------------------------  ------------------------------------------  -----------------------------------------
// IntfId kind ethernet                    ARPHRD_ETHER link with no rtnl kind         Physical NICs, veth pairs and bond/team
//                                         (a NIC) or kind "veth"; bond and team       members are the wires LLDP talks on; the
//                                         members stay ethernet                       name never decides (a veth "uplink" is one)
// IntfId kind management                  such a link named mgmtN/ManagementN, or     The host's out-of-band port; it takes its
//                                         enslaved to the VRF named "mgmt"            frame size from its own MTU
// IntfId kind loopback                    ARPHRD_LOOPBACK (lo) and kind "dummy"       A dummy holds router-ID addresses, the role
//                                                                                     of a switch's Loopback
// IntfId kind portChannel                 kind "bond" or "team"                       The LAG itself never runs LLDP
// IntfId kind vlan                        kind "vlan" (number: its VLAN id); kind     A bridge's own address is the address of
//                                         "bridge" (number: its default PVID)         the VLAN interface of its default VLAN
// IntfId kind other                       everything else (vrf, tunnels, macvlan,     Never an LLDP port
//                                         tun/tap, wireguard, ...)
// IntfId kind management, again           a port's VRF master changing to or from     Its kind decides the port's frame size and
//                                         "mgmt": its port records are made again    management-address band; the agent reads
//                                         (and with them its engine)                 the kind when the port's records appear
// IntfId numbers                          the name's when in band, else from the      Management-address priorities must stay in
//                                         ifindex, clamped into the band              their bands whatever the name
// Interface::EthPhyIntfStatus             one per selected Ethernet/management link   Selection: IntfSelection (include/exclude)
//   linkStatus                            IF_OPER_UP -> linkUp; DOWN, LOWERLAYERDOWN,  An unknown operstate (drivers without
//                                         NOTPRESENT, DORMANT -> linkDown; UNKNOWN    carrier reporting) follows IFF_RUNNING
//                                         -> IFF_RUNNING; TESTING -> unknown
//   addr                                  IFLA_ADDRESS; for a bond/team member its   Members carry the LAG's MAC: the permanent
//                                         permanent MAC: IFLA_PERM_ADDRESS (a NIC's  one keeps port ids and source MACs unique
//                                         burnt-in MAC), else the bond's
//                                         IFLA_BOND_SLAVE_PERM_HWADDR, else the MAC
//                                         the link had when it joined (a veth in a
//                                         team: the kernel does not expose it)
//   forwardingModel                       bridged (3) when its master (or its        LLDP runs from 3 up; dataLink (2) and
//                                         bond's master) is a bridge or an OVS      discarded (1) are never given: an admin-
//                                         datapath; routed (4) otherwise             down port is link down, not discarded
//   maxMtu                                IFLA_MTU                                   The MTU in force, not the hardware maximum
//   deviceName                            the kernel name                            Packet access binds to the ifindex
// Interface::EthPhyIntfConfig             one per selected Ethernet/management link
//   description                           IFLA_IFALIAS                               The Port Description TLV
//   enabled (enabledOf)                   IFF_UP                                     The administrative state, not the link's
// Interface::IntfStatus (all, and local)  one per link                               ifIndex is the interface-details provider
//   operStatus (operStatusOf)             up exactly when linkStatus is linkUp       One reading of the link for every record
//   ifIndex                               the kernel ifindex
// Interface::EthLagIntfStatus             one per bond/team; member (lagMemberOf) =  Link Aggregation TLV; a VLAN or tunnel on
//                                         its Ethernet-wire slaves (IFLA_MASTER)     the bond is no member
// Bridging::Config.bridgeMacAddr          the configured value, else the lowest-     Chassis ID: stable across reboots (a
//   (chassisMacOf)                        ifindex VLAN-aware bridge's MAC, else the  permanent MAC, not one a bond lent)
//                                         permanent MAC of the lowest-ifindex NIC,
//                                         else of the lowest-ifindex Ethernet port
// Bridging::SwitchIntfConfig              one per port of a bridge (keyed by the
//                                         port: a bond when the bond is enslaved)
//   switchportMode                        trunk when a tagged VLAN is on the port,   Never tap/tool/routed: those would stop
//                                         else access                                transmission
//   nativeVlan                            the port's PVID on a VLAN-aware bridge,    Port VLAN ID TLV
//                                         else none
// Bridging::HwCapabilities.maxFrameSize   the smallest MTU + 18 over the selected    One value for every non-management port:
//   (maxFrameSizeOf)
//                                         Ethernet ports, management ports aside     the smallest one every port takes, never
//                                         (1518 when there is none)                  an overstatement; a management port's
//                                                                                    comes from its own maxMtu (+ 18)
// Routing::Config.routing                 net.ipv4.conf.all.forwarding (netconf)     Router capability bit
// Ip::IpIntfStatus                        one per link with a counted IPv4 address,  Counted: scope global (127.0.0.1 is host).
//   (ip4Published)                        except links of kind other (tunnels,       Left out: their addresses would rank first
//                                         tun/tap, macvlan, wireguard, vrf)          (kind other has no band and takes 0) and
//                                                                                    are not reachable over the wire LLDP talks
//                                                                                    on; a host with only such addresses sends
//                                                                                    the bridge-MAC fallback. IPv6 stays: only
//                                                                                    the interface the operator names counts
//   activeAddrWithMask (activeIp4Of)      the numerically smallest primary address,  Stable across resyncs and event order
//                                         else the smallest
//   secondaryWithMask                     the other addresses (IFA_F_SECONDARY and
//                                         further primaries)
//   vrf (vrfNameOf)                       the name of its "vrf" master, else         VRF membership is the l3mdev master
//                                         "default"
// Ip6::IntfStatus.addr                    scope-global addresses, without tentative, Only addresses a peer can use for long
//                                         dadfailed, deprecated or temporary ones
// KernelNetInfo::Status.device            name -> ifindex and MAC of every link      Packet access's namespace check
// Interface::DeviceIntfStatusDir          not written here: the agent's interface    One writer per record; packet access is
//                                         status manager derives it from deviceName  bound to the ifindex and reopened only
//                                         and ifIndex above                          when it changes (not on a MAC change)
// System::NetStatus                       uname(): nodename, domainname ("(none)"    Read again on each change the kernel
//                                         is empty)                                  signals (POLLPRI on /proc/sys/kernel/
//                                                                                    hostname and domainname; no netlink
//                                                                                    event); every 2 s where it cannot
// EntityMib::Status.value                 the configured text, else os-release       System Description TLV
//                                         PRETTY_NAME, "Linux", release, machine
// Redundancy::RedundancyStatus            active, one cell                           A host has one supervisor
// Hardware::CellInfo                      one supervisor entry named by the cell id
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/EthAddr.h"
#include "platform/IntfId.h"
#include "records/AgentRecords.h"

namespace Linux {

// What the kernel says of one link (RTM_NEWLINK), kept per ifindex.
struct LinkFacts {
  int32_t ifIndex = 0;
  std::string name;
  std::string kind;       // IFLA_INFO_KIND; empty for a physical NIC
  std::string slaveKind;  // IFLA_INFO_SLAVE_KIND
  uint32_t arpType = 0;
  uint32_t flags = 0;     // IFF_*
  uint8_t operState = 0;  // IF_OPER_*
  Konet::EthAddr addr;
  Konet::EthAddr permAddr;
  uint32_t mtu = 0;
  std::string alias;
  int32_t master = 0;
  uint16_t vlanId = 0;         // a VLAN device's id
  bool vlanFiltering = false;  // a bridge's VLAN awareness
  uint16_t defaultPvid = 0;    // a bridge's default PVID
  // The port's VLANs on its bridge (AF_BRIDGE messages).
  uint16_t pvid = 0;
  bool taggedVlans = false;
  bool operator==(const LinkFacts&) const = default;
};

// Links whose kernel kind makes them Ethernet wires (NICs, veth).
bool isEthernetWire(const LinkFacts& link);
// A physical NIC: an Ethernet wire without an rtnl kind.
bool isPhysicalNic(const LinkFacts& link);
bool isBridge(const LinkFacts& link);
bool isLag(const LinkFacts& link);
// A bond or team member.
bool isLagMember(const LinkFacts& link);
bool isVrf(const LinkFacts& link);

Interface::OperStatus operStatusOf(const LinkFacts& link);
bool enabledOf(const LinkFacts& link);
// The VRF a link's addresses are in, from its master (or null).
std::string vrfNameOf(const LinkFacts* master);
// Whether a link of this kind publishes its IPv4 addresses.
bool ip4Published(const Konet::IntfId::Numbering& numbering);
// Whether link is a member of lag as the LAG's record lists it.
bool lagMemberOf(const LinkFacts& link, const LinkFacts& lag);
// The chassis MAC: configured, else from the links (in ifindex order); none when no link has one.
std::optional<Konet::EthAddr> chassisMacOf(const std::vector<const LinkFacts*>& links,
                                           std::optional<Konet::EthAddr> configured);
// The frame size every non-management port takes: the smallest of theirs, 1518 with none.
uint16_t maxFrameSizeOf(const std::vector<const LinkFacts*>& ports);

// The interface kind and numbers of a link; master is the link's master or null.
Konet::IntfId::Numbering linkNumbering(const LinkFacts& link, const LinkFacts* master);

Interface::LinkStatus linkStatusOf(const LinkFacts& link);
// master and its own master (for a bond member) or null.
Interface::ForwardingModel forwardingModelOf(const LinkFacts& link, const LinkFacts* master,
                                             const LinkFacts* masterOfMaster);
// The MAC the port identifies itself with.
Konet::EthAddr portMacOf(const LinkFacts& link);
// Switching details of a bridge port; false when the link is no bridge port.
bool switchIntfConfigOf(const LinkFacts& link, const LinkFacts* master, Bridging::SwitchportMode& mode,
                        uint16_t& nativeVlan);
// The frame size a port takes: its MTU plus Ethernet header and FCS, at most 65535.
uint16_t frameSizeOf(const LinkFacts& link);

// IPv4 address flags and scope as the kernel gives them.
struct Ip4Fact {
  Arnet::IpAddrWithMask addr;
  bool secondary = false;
};
bool ip4Counts(uint8_t scope);
// Of a link's addresses in ascending order, the index of the active one (0 when all are
// secondary); the list must not be empty.
size_t activeIp4Of(const std::vector<Ip4Fact>& addrs);
bool ip6Counts(uint8_t scope, uint32_t flags);

// The UTS names as NetStatus carries them.
void netStatusOf(const char* nodeName, const char* domainName, std::string& hostname, std::string& domain);
// The system description from os-release's PRETTY_NAME and the kernel's release and machine.
std::string systemDescriptionOf(const std::string& prettyName, const std::string& release,
                                const std::string& machine);
// PRETTY_NAME of an os-release text (quotes removed), empty when absent.
std::string osReleasePrettyName(const std::string& osRelease);

}  // namespace Linux
