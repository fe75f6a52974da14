// One neighbour as `lldp show neighbors --detail` and `lldp decode` print it: every attribute
// the agent holds, grouped by the TLV family that carried it, values decoded by name.
#pragma once

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "platform/Json.h"

namespace Cli {

using Json = nlohmann::ordered_json;

struct DetailGroup {
  std::string title;  // empty for the basic TLVs
  std::vector<std::pair<std::string, std::string>> rows;
};

// The groups of a neighbour (a RemoteSystem as JSON), only those it sent something for. now is
// the agent's clock, for the age; a negative now leaves the age out.
std::vector<DetailGroup> neighborDetail(const Json& remoteSystem, double now);
// The groups indented under their titles, each value's untrusted text escaped.
void renderDetail(const std::vector<DetailGroup>& groups, std::ostream& out);

// Names of wire values, shared by the tables.
const char* chassisSubtypeName(uint8_t subtype);
const char* portSubtypeName(uint8_t subtype);
// Capability bits by name, comma separated ("none" for none).
std::string capabilityNames(uint16_t caps);

}  // namespace Cli
