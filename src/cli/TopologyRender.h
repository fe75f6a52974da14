// The topology and the wiring check for people (a table), programs (JSON) and pictures (DOT, SVG
// through Graphviz's library); and the intended wiring read from DOT by Graphviz's parser.
#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "cli/Query.h"
#include "cli/TopologyModel.h"

namespace Cli {

void renderTopologyTable(const Topology& t, std::ostream& out);
Json topologyJson(const Topology& t);
// Hosts are boxes (dashed: known only from a neighbour's report), links are edges with the port
// names at their ends (dashed: only one end reports the other).
std::string topologyDot(const Topology& t);
// The links in the form `topology check` reads: a snapshot of the cabling as the intended one.
std::string wiringDot(const Topology& t);
// Lays out and renders DOT as SVG; nothing with error set.
std::optional<std::string> svgOf(const std::string& dot, std::string& error);

void renderCheckText(const WiringCheck& check, std::ostream& out);
Json checkJson(const WiringCheck& check);

// Reads the intended wiring: every edge "host":"port" -- "host":"port" of a DOT graph; an edge
// without a port at both ends is an error, as is text that is not DOT.
std::optional<std::vector<ExpectedLink>> wiringOf(const std::string& dotText, std::string& error);

// A DOT identifier in double quotes, read back as it was (but for a backslash before a quote).
std::string dotQuoted(const std::string& id);

}  // namespace Cli
