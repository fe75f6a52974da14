// Giving up what the agent no longer needs once it runs: every capability but the few it still
// uses, and root itself when a user is configured.
#pragma once

#include <string>
#include <vector>

namespace Daemon {

// The capabilities kept after start-up: CAP_NET_RAW opens a packet socket for each LLDP port,
// including ports that appear later. Those sockets send with priority 7: recent kernels (6.18
// here) accept that with CAP_NET_RAW alone, older ones (Debian 12's 6.1) want CAP_NET_ADMIN, so
// it is kept too. Netlink, the host name and the state socket already bound need none.
std::vector<int> keptCapabilities();

// Keeps only keptCapabilities() (effective, permitted and bounding sets; no inheritable or
// ambient ones) and, when user is not empty, switches to that user and its groups first.
// Refuses when the process has more than one thread: the others would keep everything.
// Returns an error text, or "" on success.
std::string dropPrivileges(const std::string& user);

// The process's effective capabilities as a bit mask (for tests and the status line).
uint64_t effectiveCapabilities();

}  // namespace Daemon
