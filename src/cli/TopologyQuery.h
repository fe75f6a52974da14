// Where `lldp topology` gets its reports: the neighbour and agent series of a whole fleet from a
// Prometheus server's HTTP API, or one agent's neighbours from its socket.
#pragma once

#include <optional>
#include <string>

#include "cli/Query.h"
#include "cli/TopologyModel.h"

namespace Cli {

// The fleet from the replies of two instant queries: `lldp_agent_info` and `lldp_neighbor_info`
// (the API's JSON). A series belongs to the agent with the same instance and job labels.
std::optional<FleetReport> fleetFromPrometheus(const Json& agents, const Json& neighbors, std::string& error);

// One agent's view from its socket replies: `neighbors` and the local system's `get`.
FleetReport fleetFromAgent(const Json& neighbors, const Json& localSystem, const std::string& source);

// Runs an instant query at base URL (http://host:9090); the decoded reply, or nothing with error.
std::optional<Json> prometheusQuery(const std::string& baseUrl, const std::string& query, std::string& error);

// Both queries of a fleet; selector, when given, narrows them ({job="lldp"}).
std::optional<FleetReport> prometheusFleet(const std::string& baseUrl, const std::string& selector,
                                           std::string& error);
// One agent through its socket.
std::optional<FleetReport> agentFleet(AgentQuery& agent, const std::string& source, std::string& error);

}  // namespace Cli
