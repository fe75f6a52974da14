// The open-file limit the agent raises at start: a socket and a ring being replaced for each
// port with a socket of its own, the shared ring, netlink, and every client of the state socket.
#pragma once

#include <cstdint>
#include <string>

namespace Daemon {

// What the agent asks for: far above what it holds (a few dozen descriptors besides clients),
// so that a burst of clients never meets EMFILE; the unit's LimitNOFILE grants the same.
inline constexpr uint64_t kOpenFilesWanted = 65536;

// Raises the soft limit towards `wanted`, never beyond the hard limit; the limit in force
// afterwards, or 0 with error set when it cannot be read.
uint64_t openFileLimitRaise(uint64_t wanted, std::string& error);

}  // namespace Daemon
