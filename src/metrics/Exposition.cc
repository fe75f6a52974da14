// Prometheus text exposition of the LLDP records. A scrape of a large switch writes tens of
// thousands of lines, so everything is appended to one reserved buffer without temporaries.
#include "metrics/Exposition.h"

#include <charconv>
#include <vector>

namespace Metrics {

namespace {

struct PortCounter {
  const char* name;
  const char* type;
  const char* help;
  uint64_t (*value)(const Lldp::PortStatus&);
};

const PortCounter kPortCounters[] = {
    {"lldp_port_tx_frames_total", "counter", "LLDPDUs sent on the port.",
     [](const Lldp::PortStatus& p) -> uint64_t { return p.txFramesTotal(); }},
    {"lldp_port_tx_length_exceeded_total", "counter",
     "LLDPDUs sent without some TLVs because the local information did not fit in one frame.",
     [](const Lldp::PortStatus& p) -> uint64_t { return p.txFramesLengthExceeded(); }},
    {"lldp_port_tx_no_buffer_total", "counter", "LLDPDUs not sent for lack of a packet buffer.",
     [](const Lldp::PortStatus& p) -> uint64_t { return p.txFramesNoMemErrors(); }},
    {"lldp_port_rx_frames_total", "counter", "LLDPDUs received on the port.",
     [](const Lldp::PortStatus& p) -> uint64_t { return p.rxFramesTotal(); }},
    {"lldp_port_rx_errors_total", "counter", "Received LLDPDUs that had one or more errors.",
     [](const Lldp::PortStatus& p) -> uint64_t { return p.rxFramesErrors(); }},
    {"lldp_port_rx_discarded_total", "counter",
     "Received LLDPDUs discarded whole (malformed, or the port's neighbour table was full).",
     [](const Lldp::PortStatus& p) -> uint64_t { return p.rxFramesDiscardedTotal(); }},
    {"lldp_port_rx_tlvs_discarded_total", "counter", "Received TLVs discarded as malformed.",
     [](const Lldp::PortStatus& p) -> uint64_t { return p.rxTLVsDiscardedTotal(); }},
    {"lldp_port_rx_tlvs_unrecognized_total", "counter", "Received TLVs of a type or organisation not known.",
     [](const Lldp::PortStatus& p) -> uint64_t { return p.rxTLVsUnrecognizedTotal(); }},
    {"lldp_port_rx_ageouts_total", "counter", "Neighbours removed from the port because their time to live ran out.",
     [](const Lldp::PortStatus& p) -> uint64_t { return p.rxAgeoutsTotal(); }},
    {"lldp_port_rx_kernel_drops_total", "counter",
     "LLDP frames the kernel dropped before the agent read them (receive buffer full).",
     [](const Lldp::PortStatus& p) -> uint64_t { return p.rxKernelDropsTotal(); }},
    {"lldp_port_neighbors", "gauge", "Neighbours currently known on the port.",
     [](const Lldp::PortStatus& p) -> uint64_t { return p.remoteSystems(); }},
};

struct TableCounter {
  const char* name;
  const char* help;
  uint64_t (*value)(const Lldp::Status&);
};

const TableCounter kTableCounters[] = {
    {"lldp_remote_table_inserts_total", "Neighbours added to the remote table.",
     [](const Lldp::Status& s) -> uint64_t { return s.remTablesInserts(); }},
    {"lldp_remote_table_deletes_total", "Neighbours removed from the remote table, for any reason.",
     [](const Lldp::Status& s) -> uint64_t { return s.remTablesDeletes(); }},
    {"lldp_remote_table_drops_total", "Neighbours that could not be added to the remote table.",
     [](const Lldp::Status& s) -> uint64_t { return s.remTablesDrops(); }},
    {"lldp_remote_table_ageouts_total", "Neighbours removed from the remote table because their time to live ran out.",
     [](const Lldp::Status& s) -> uint64_t { return s.remTablesAgeouts(); }},
};

void appendNumber(std::string& out, uint64_t value) {
  char buf[24];
  const auto r = std::to_chars(buf, buf + sizeof buf, value);
  out.append(buf, r.ptr);
}

void appendHeader(std::string& out, const char* name, const char* type, const char* help) {
  out += "# HELP ";
  out += name;
  out += ' ';
  out += help;
  out += "\n# TYPE ";
  out += name;
  out += ' ';
  out += type;
  out += '\n';
}

// Length of the UTF-8 sequence at s (1 to 4), or 0 when it is not one: overlong forms,
// surrogates and values past U+10FFFF are refused as a strict decoder refuses them.
size_t utf8Length(std::string_view s) {
  const auto c0 = static_cast<unsigned char>(s[0]);
  if (c0 < 0x80) return 1;
  size_t n = 0;
  unsigned lo = 0x80, hi = 0xbf;
  if (c0 >= 0xc2 && c0 <= 0xdf) {
    n = 2;
  } else if (c0 >= 0xe0 && c0 <= 0xef) {
    n = 3;
    if (c0 == 0xe0) lo = 0xa0;
    if (c0 == 0xed) hi = 0x9f;
  } else if (c0 >= 0xf0 && c0 <= 0xf4) {
    n = 4;
    if (c0 == 0xf0) lo = 0x90;
    if (c0 == 0xf4) hi = 0x8f;
  } else {
    return 0;
  }
  if (s.size() < n) return 0;
  const auto c1 = static_cast<unsigned char>(s[1]);
  if (c1 < lo || c1 > hi) return 0;
  for (size_t i = 2; i < n; ++i) {
    const auto c = static_cast<unsigned char>(s[i]);
    if (c < 0x80 || c > 0xbf) return 0;
  }
  return n;
}

void appendLabel(std::string& out, const char* name, std::string_view value, bool first = false) {
  if (!first) out += ',';
  out += name;
  out += "=\"";
  appendLabelValue(out, value);
  out += '"';
}

const char* const kChassisSubtypes[] = {nullptr,        "chassisComponent", "interfaceAlias", "portComponent",
                                        "macAddress",   "networkAddress",   "interfaceName",  "local"};
const char* const kPortSubtypes[] = {nullptr,          "interfaceAlias", "portComponent", "macAddress",
                                     "networkAddress", "interfaceName",  "agentCircuitId", "local"};

void appendNeighbor(std::string& out, std::string_view intf, const Lldp::RemoteSystem& rs) {
  const Lldp::Msap& msap = rs.msap();
  out += kNeighborInfo;
  out += '{';
  appendLabel(out, "interface", intf, true);
  appendLabel(out, "chassis_id", msap.chassisIdentifier.stringValue());
  appendLabel(out, "chassis_id_subtype", chassisIdSubtypeLabel(msap.chassisIdentifier.subtype));
  appendLabel(out, "port_id", msap.portIdentifier.stringValue());
  appendLabel(out, "port_id_subtype", portIdSubtypeLabel(msap.portIdentifier.subtype));
  appendLabel(out, "system_name", rs.sysName().view());
  appendLabel(out, "port_description", rs.portDesc().view());
  const auto& addresses = rs.managementAddress();
  const auto first = addresses.begin();
  appendLabel(out, "management_address", first != addresses.end() ? first->first.stringValue() : std::string());
  out += "} 1\n";
}

}  // namespace

void appendLabelValue(std::string& out, std::string_view value) {
  while (!value.empty()) {
    const char c = value[0];
    if (c == '\\' || c == '"') {
      out += '\\';
      out += c;
      value.remove_prefix(1);
      continue;
    }
    if (c == '\n') {
      out += "\\n";
      value.remove_prefix(1);
      continue;
    }
    const size_t n = utf8Length(value);
    if (n == 0) {
      out += "\xef\xbf\xbd";  // U+FFFD
      value.remove_prefix(1);
      continue;
    }
    out.append(value.data(), n);
    value.remove_prefix(n);
  }
}

std::string chassisIdSubtypeLabel(uint8_t subtype) {
  return subtype < 8 && kChassisSubtypes[subtype] ? kChassisSubtypes[subtype] : std::to_string(subtype);
}

std::string portIdSubtypeLabel(uint8_t subtype) {
  return subtype < 8 && kPortSubtypes[subtype] ? kPortSubtypes[subtype] : std::to_string(subtype);
}

void exposition(const Source& source, std::string& out) {
  const Lldp::Status* status = source.status;
  if (status) {
    // About 60 bytes a counter line and 250 a neighbour: one allocation for the whole page.
    size_t neighbours = 0;
    for (auto it = status->portStatus().begin(); it; ++it) neighbours += it.value()->remoteSystems();
    out.reserve(out.size() + 4096 + status->portStatus().size() * 64 * std::size(kPortCounters) + neighbours * 320);

    for (const PortCounter& counter : kPortCounters) {
      appendHeader(out, counter.name, counter.type, counter.help);
      for (auto it = status->portStatus().begin(); it; ++it) {
        out += counter.name;
        out += "{interface=\"";
        appendLabelValue(out, it.key().name());
        out += "\"} ";
        appendNumber(out, counter.value(*it.value()));
        out += '\n';
      }
    }
    for (const TableCounter& counter : kTableCounters) {
      appendHeader(out, counter.name, "counter", counter.help);
      out += counter.name;
      out += ' ';
      appendNumber(out, counter.value(*status));
      out += '\n';
    }

    appendHeader(out, kNeighborInfo, "gauge",
                 "A neighbour learnt on a local port, with its identity as labels; always 1.");
    std::vector<std::pair<size_t, size_t>> lines;  // where this port's neighbour lines are in out
    for (auto port = status->portStatus().begin(); port; ++port) {
      lines.clear();
      const std::string_view intf = port.key().name();
      for (auto it = port.value()->remoteSystem().begin(); it; ++it) {
        const size_t start = out.size();
        appendNeighbor(out, intf, *it.value());
        const std::string_view line = std::string_view(out).substr(start);
        bool repeated = false;
        for (const auto& [at, size] : lines) repeated = repeated || std::string_view(out).substr(at, size) == line;
        if (repeated) {
          out.resize(start);
          continue;
        }
        lines.emplace_back(start, line.size());
      }
    }
  }

  appendHeader(out, kAgentInfo, "gauge", "This LLDP agent, with its version and identity as labels; always 1.");
  out += kAgentInfo;
  out += '{';
  appendLabel(out, "version", source.version, true);
  if (const Lldp::LocalSystem* local = source.localSystem) {
    appendLabel(out, "chassis_id", local->chassisIdentifier().stringValue());
    appendLabel(out, "chassis_id_subtype", chassisIdSubtypeLabel(local->chassisIdentifier().subtype));
    appendLabel(out, "system_name", local->sysName().view());
  }
  out += "} 1\n";
}

}  // namespace Metrics
