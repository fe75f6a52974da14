// The fleet's topology from what its agents report: each neighbour a reporting host sees on a
// port is one observation; the two observations of one cable make one link. And the check of
// that topology against the intended wiring.
#pragma once

#include <string>
#include <vector>

namespace Cli {

// An agent of the fleet: where its reports come from, and who it is.
struct FleetAgent {
  std::string source;  // the scrape target ("instance" and "job"), or the socket
  std::string chassisId;
  std::string systemName;
};

// One neighbour as one agent reports it (the labels of one neighbour series).
struct Observation {
  std::string source;  // the reporting agent's source
  std::string localPort;
  std::string chassisId;
  std::string chassisIdSubtype;
  std::string portId;
  std::string portIdSubtype;
  std::string systemName;
  std::string portDescription;
  std::string managementAddress;
};

struct FleetReport {
  std::vector<FleetAgent> agents;
  std::vector<Observation> observations;
};

struct Host {
  std::string name;
  bool reports = false;  // an agent of the fleet; false: known only from its neighbours' reports
  std::string chassisId;
  std::string managementAddress;
};

struct LinkEnd {
  std::string host;
  std::string port;
  bool operator==(const LinkEnd&) const = default;
  auto operator<=>(const LinkEnd&) const = default;
};

// One cable, ends in order (a < b). both: each end's agent reports the other.
struct Link {
  LinkEnd a, b;
  bool both = false;
  bool operator==(const Link&) const = default;
};

struct Topology {
  std::vector<Host> hosts;  // by name
  std::vector<Link> links;  // by ends
};

// Hosts are named by system name, else by chassis id; a neighbour that is itself an agent of the
// fleet takes that agent's name. A neighbour's port is its port id, or its port description when
// the id is an address (a MAC or network address names no port).
Topology topologyOf(const FleetReport& report);

// The intended wiring: links as the operator wrote them (order of ends does not matter).
struct ExpectedLink {
  LinkEnd a, b;
};

enum class LinkVerdict { ok, missing, wrongPeer };

struct LinkCheck {
  ExpectedLink expected;
  LinkVerdict verdict = LinkVerdict::ok;
  // With wrongPeer: what each expected end is cabled to instead (empty host when nothing).
  LinkEnd aSees, bSees;
};

struct WiringCheck {
  std::vector<LinkCheck> links;      // one per expected link, in the file's order
  std::vector<Link> unexpected;      // links found that the wiring does not have
  bool ok() const;
};

WiringCheck checkWiring(const std::vector<ExpectedLink>& expected, const Topology& topology);

const char* verdictName(LinkVerdict verdict);

}  // namespace Cli
