// The agent's records as Prometheus text exposition: per-port counters, the remote-table
// counters, one info series per neighbour and one for the agent. The names, types and help texts
// below are the published interface: dashboards and `lldp topology` read them.
#pragma once

#include <string>
#include <string_view>

#include "records/LldpRecords.h"

namespace Metrics {

// The content type of the text format this writes.
inline constexpr const char* kContentType = "text/plain; version=0.0.4; charset=utf-8";

// Series names `lldp topology` relies on, and their labels.
inline constexpr const char* kNeighborInfo = "lldp_neighbor_info";
inline constexpr const char* kAgentInfo = "lldp_agent_info";

struct Source {
  const Lldp::Status* status = nullptr;            // counters and neighbours; none: only the agent info
  const Lldp::LocalSystem* localSystem = nullptr;  // chassis id and system name
  std::string_view version;
};

// Appends the exposition of everything in source to out. Label values are the exact strings
// (escaped as the format wants); bytes that are not UTF-8 become U+FFFD, since a scraper refuses
// the whole page over one bad label. A neighbour whose labels repeat another's on the same port
// (two identifiers that print alike) is written once, for the same reason.
void exposition(const Source& source, std::string& out);

// Appends value as a label value: backslash, double quote and newline escaped, bytes that are
// not UTF-8 replaced.
void appendLabelValue(std::string& out, std::string_view value);

// Names of identifier subtypes as the LLDP MIB spells them ("macAddress", "interfaceName"); the
// number for values it does not name.
std::string chassisIdSubtypeLabel(uint8_t subtype);
std::string portIdSubtypeLabel(uint8_t subtype);

}  // namespace Metrics
