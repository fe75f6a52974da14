// Set-up of AF_PACKET sockets with a memory-mapped receive ring, and the fanout group through
// which one port's frames move from one socket to another without loss.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/PamManager.h"

namespace Linux::PacketSocket {

// Blocks of whole pages, a power of two of them each, as the kernel allocates them.
struct RingGeometry {
  size_t blockSize;
  size_t blockCount;
};

std::string systemError(const char* what);

// Runs fn inside the named network namespace (or here, when the name is empty).
template <class Fn>
bool inNetNs(const std::string& netNs, std::string& error, Fn&& fn) {
  if (netNs.empty()) return fn();
  const int target = ::open(("/var/run/netns/" + netNs).c_str(), O_RDONLY | O_CLOEXEC);
  if (target < 0) {
    error = systemError(("network namespace " + netNs).c_str());
    return false;
  }
  const int home = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
  if (home < 0 || setns(target, CLONE_NEWNET) != 0) {
    error = systemError("setns");
    ::close(target);
    if (home >= 0) ::close(home);
    return false;
  }
  const bool ok = fn();
  setns(home, CLONE_NEWNET);
  ::close(target);
  ::close(home);
  return ok;
}

// A filter program that keeps no frame.
const std::vector<Interface::FilterInstruction>& dropAll();
// Attaches the program (an empty one takes every frame).
bool filterAttach(int fd, const std::vector<Interface::FilterInstruction>& program, std::string& error);

bool ringRequest(int fd, const RingGeometry& ring, unsigned blockTimeoutMs);
uint8_t* ringMap(int fd, const RingGeometry& ring);
// Makes the next `count` maps fail as when the system has no memory for them (tests).
void ringMapFailuresIs(int count);

struct Setup {
  std::vector<Interface::FilterInstruction> program;
  Konet::EthAddr listenAddr;
  int ethProtocol = 0;
  int sockPrio = 0;
  unsigned ifIndex = 0;
  std::string netNs;
};
// Joins (or leaves) the group address on one interface; the kernel counts joins.
bool membershipIs(int fd, unsigned ifIndex, const Konet::EthAddr& addr, bool member);
// Sets up a socket with its ring and binds it (ifIndex 0: to every interface), from which moment frames flow through `filter`
// (the set-up's program or another) into the ring.
bool configure(int fd, const Setup& setup, const std::vector<Interface::FilterInstruction>& filter,
               const RingGeometry& ring, unsigned blockTimeoutMs, std::string& error);

// A port's sockets form a fanout group whose program names the one socket that gets every
// frame: switching the program moves the flow from one socket to another at once, no frame lost
// and none received twice. fanoutCreate returns the new group's id (flags: what joining needs
// besides), 0 when the kernel cannot do this.
uint16_t fanoutCreate(int fd, uint16_t& flags);
bool fanoutJoin(int fd, uint16_t id, uint16_t flags);
// Sends every frame of the group to its member at `index` (members in the order they joined).
bool fanoutSteer(int fd, uint32_t index);

}  // namespace Linux::PacketSocket
