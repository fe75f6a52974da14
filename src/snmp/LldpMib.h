// The LLDP MIB modules as a view of the agent's records.
//
// Indexing:
// - A port number (lldpLocPortNum, lldpPortConfigPortNum, lldpRemLocalPortNum, ...) is the
//   kernel's interface index, so that IF-MIB served by the same master names the port
//   (ifDescr.<port number>). Ports the kernel has no index for are left out. An index above
//   4096 is served as it is, outside the port-number range the MIB suggests; such a port has no
//   bit in a port list (LldpPortList holds ports 1 to 4096).
// - lldpRemIndex is the neighbour's own index in its port's table (from 1, not reused soon).
// - lldpRemTimeMark is the master's sysUpTime when the neighbour last changed (0 when it changed
//   before the master started), following the TimeFilter convention: a walk shows each row
//   once, under its time mark, and a walk or GET from time mark t finds the rows changed at or
//   after t (so time mark 0 finds every row). A row that changes gets a larger time mark, so a
//   row seen in a walk is always all of one state.
// - Octet strings are the bytes as received; enumerations and BITS as the MIB numbers them.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "platform/Reactor.h"
#include "records/AgentRecords.h"
#include "records/LldpRecords.h"
#include "snmp/MibTree.h"

namespace Snmp {

// LLDP-MIB's root, 1.0.8802.1.1.2.
const Oid& lldpMibOid();

// The master agent's sysUpTime against the agent's clock: it reported `ticks` (hundredths of a
// second) at agent time `agentTime`.
struct MasterUptime {
  double agentTime = 0;
  uint32_t ticks = 0;
  // sysUpTime at the given agent time; 0 for times before the master started.
  uint32_t ticksAt(double time) const;
  bool operator==(const MasterUptime&) const = default;
};

struct LldpMibRecords {
  Lldp::Config::Ptr config;
  Lldp::LocalSystem::Ptr localSystem;
  Lldp::Status::Ptr status;
  KernelNetInfo::Status::Ptr kernelNetInfo;  // interface indexes by device name
};

struct LldpMibSettings {
  bool notifications = false;  // lldpRemTablesChange sent through the master
  uint32_t notificationInterval = 5;  // seconds; at most one notification per interval
  bool operator==(const LldpMibSettings&) const = default;
};

struct PortEntry {
  Oid index;  // {port number}
  uint32_t portNum = 0;
  Konet::IntfId intfId;
  Lldp::LocalPort::Ptr local;  // any of the three may be missing
  Lldp::PortConfig::Ptr config;
  Lldp::PortStatus::Ptr status;
};

struct NeighbourEntry {
  Oid index;  // {time mark, port number, remote index}
  const PortEntry* port = nullptr;
  Lldp::RemoteSystem::Ptr remote;
};

struct LocManAddrEntry {
  Oid index;  // {subtype, length, address octets}
  Lldp::ManagementAddress addr;
};

// The records, the settings and the rows the tables index. The rows are rebuilt on the next
// request after ports, neighbours or the advertised addresses change; values are read from
// the records at each request.
class LldpMibData : public Platform::Reactor {
 public:
  explicit LldpMibData(LldpMibRecords records, LldpMibSettings settings = {});

  void refresh();
  const std::vector<PortEntry>& ports() const { return ports_; }
  const std::vector<NeighbourEntry>& neighbours() const { return neighbours_; }
  const std::vector<LocManAddrEntry>& localManAddrs() const { return localManAddrs_; }
  const PortEntry* port(uint32_t portNum) const;

  const LldpMibRecords& records() const { return records_; }
  const LldpMibSettings& settings() const { return settings_; }
  void settingsIs(const LldpMibSettings& settings) { settings_ = settings; }
  const MasterUptime& uptime() const { return uptime_; }
  void uptimeIs(const MasterUptime& uptime);
  uint64_t rebuilds() const { return rebuilds_; }

 private:
  void handleChange() { dirty_ = true; }
  void handlePortStatus() {
    dirty_ = true;
    watchPorts_ = true;
  }
  void rebuild();
  uint32_t timeMarkOf(const PortEntry& port, const Lldp::RemoteSystem& remote);

  LldpMibRecords records_;
  LldpMibSettings settings_;
  MasterUptime uptime_;
  std::vector<PortEntry> ports_;
  std::vector<NeighbourEntry> neighbours_;
  std::vector<LocManAddrEntry> localManAddrs_;
  // The time mark each neighbour was last given, by (port number, index): a change within the
  // same hundredth of a second still moves the row.
  struct Mark {
    double lastChangeTime = 0;
    uint32_t timeMark = 0;
  };
  std::unordered_map<uint64_t, Mark> marks_;
  bool dirty_ = true;
  bool watchPorts_ = true;
  uint64_t rebuilds_ = 0;
};

// What a row of a port or neighbour table stands for.
inline const PortEntry& portOf(const Row& row) { return *static_cast<const PortEntry*>(row.parent); }
inline const NeighbourEntry& neighbourOf(const Row& row) { return *static_cast<const NeighbourEntry*>(row.parent); }
inline const Lldp::RemoteSystem& remoteOf(const Row& row) { return *neighbourOf(row).remote; }
template <class T>
const T& memberOf(const Row& row) {
  return *static_cast<const T*>(row.member);
}
using PortRows = ParentRows<PortEntry>;

// Rows of neighbours, indexed by time mark, port number and neighbour index. A GET follows the
// TimeFilter convention: the row is found under any time mark up to its own (so under 0 always).
class NeighbourRows : public ParentRows<NeighbourEntry> {
 public:
  using ParentRows<NeighbourEntry>::ParentRows;

 protected:
  const NeighbourEntry* parentAt(OidView head) const override;
};

// An extension module's objects: lldpExtensions.<oui>.1.<tail>.
Oid extensionOid(SubId oui, std::initializer_list<SubId> tail);

// Octet-string forms shared by the modules.
// BITS: bit n is the most significant bit of octet n / 8 onwards; at least one octet.
std::string bitsText(uint32_t value, int bits);
// BITS with the one bit n set (an index of BITS syntax).
std::string bitText(uint32_t n);
// LldpSystemCapabilitiesMap from the 16-bit capability map.
std::string capabilitiesBits(const Lldp::SystemCapabilitiesMap& caps);

// Each module's objects over the same data.
void addLldpMib(MibTree& tree, LldpMibData& data);
void addLldpDot1Mib(MibTree& tree, LldpMibData& data);
void addLldpDot3Mib(MibTree& tree, LldpMibData& data);
void addLldpMedMib(MibTree& tree, LldpMibData& data);

// The four modules: what the subagent serves.
class LldpMib {
 public:
  explicit LldpMib(LldpMibRecords records, LldpMibSettings settings = {});
  LldpMibData& data() { return *data_; }
  MibTree::Got get(OidView oid) {
    data_->refresh();
    return tree_.get(oid);
  }
  std::optional<MibTree::Found> next(OidView start, bool inclusive, OidView end = {}) {
    data_->refresh();
    return tree_.next(start, inclusive, end);
  }

 private:
  std::unique_ptr<LldpMibData> data_;
  MibTree tree_;
};

}  // namespace Snmp
