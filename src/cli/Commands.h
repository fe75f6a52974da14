// The `lldp` commands that talk to the agent: each asks, builds its model and prints it as a
// table or as JSON, and returns the exit status.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "cli/Query.h"

namespace Cli {

inline constexpr int kExitOk = 0;
inline constexpr int kExitRefused = 1;  // the agent refused or cannot be reached
inline constexpr int kExitUsage = 2;

struct Context {
  AgentQuery& agent;
  std::ostream& out;
  std::ostream& err;
  bool json = false;
  bool pretty = true;  // indented JSON, for a terminal; compact for pipes (tens of megabytes less)
  // Local time in seconds since the epoch (tests set their own).
  std::function<double()> wallClock;
  double wallNow() const;
};

int showNeighbors(Context& c, const std::vector<std::string>& intfs, bool detail);
int showInterfaces(Context& c, const std::vector<std::string>& intfs);
int showStatistics(Context& c, const std::vector<std::string>& intfs);
int showLocal(Context& c);
int showConfig(Context& c);
int showClassification(Context& c);
int showStatus(Context& c);
// An empty interface names a global key.
int configure(Context& c, const std::string& intf, const std::string& key, const std::string& value);
int unconfigure(Context& c, const std::string& intf, const std::string& key);
int configSave(Context& c);
// One interface's neighbours, or every interface's when intf is empty.
int clearNeighbors(Context& c, const std::string& intf);
// One TLV added to the client's on one interface, as one request (two at once lose nothing).
int tlvAdd(Context& c, const std::string& client, const std::string& intf, const std::string& oui, unsigned subtype,
           const std::string& value);
// The client's TLVs of one OUI and subtype on an interface (only index when given), or the whole
// client when intf is empty.
int tlvDel(Context& c, const std::string& client, const std::string& intf = {}, const std::string& oui = {},
           unsigned subtype = 0, unsigned index = 0);
// Prints neighbour events as they come; stops after maxEvents (0: when the agent goes).
int watch(Context& c, size_t maxEvents = 0);

}  // namespace Cli
