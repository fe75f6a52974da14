// The rtnetlink source: one socket watched by the scheduler that subscribes to link, address
// and IPv4 netconf notifications, then dumps everything; when the kernel says notifications
// were lost (ENOBUFS) it dumps again and the state converges by difference.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Scheduler.h"

struct nl_sock;
struct nlmsghdr;

namespace Linux {

class HostState;

class NetlinkSource {
 public:
  struct Options {
    // Receive buffer of the socket; 0 keeps the system's default.
    int rcvBufBytes = 8 << 20;
    // Datagrams read per readiness call before others get the thread.
    int maxDatagramsPerCall = 64;
    // A dump with no reply for this long is abandoned and everything dumped again.
    double dumpStallTimeout = 5.0;
    // After the socket fails, it is watched again (and everything dumped) this much later.
    double rewatchDelay = 1.0;
  };
  struct Counters {
    uint64_t resyncs = 0;         // dumps forced by lost notifications
    uint64_t messages = 0;        // messages applied
    uint64_t invalidMessages = 0; // messages libnl could not parse
    uint64_t dumps = 0;           // dump requests sent
    uint64_t recvErrors = 0;      // failed reads other than lost notifications
    uint64_t dumpStalls = 0;      // dumps abandoned for want of a reply
    double cpuSeconds = 0;        // thread CPU spent reading and applying
  };

  NetlinkSource(Platform::Scheduler& scheduler, HostState& state, Options options);
  ~NetlinkSource();
  NetlinkSource(const NetlinkSource&) = delete;
  NetlinkSource& operator=(const NetlinkSource&) = delete;

  // Opens and subscribes, then dumps; false with error set when the socket cannot be opened.
  bool start(std::string& error);
  // Called each time a complete set of dumps has been applied (the first time: ready).
  void dumpCompleteIs(std::function<void()> fn) { onDumpComplete_ = std::move(fn); }
  bool dumpApplied() const { return dumpApplied_; }
  bool dumping() const { return !dumpQueue_.empty(); }
  const Counters& counters() const { return counters_; }
  int fd() const;

 private:
  enum class Dump { links, bridgePorts, ip4, ip6, netconf };
  void handleReadable();
  void handleDatagram(const uint8_t* data, size_t len);
  void handleMessage(nlmsghdr* hdr);
  void resyncIs();
  void sendDump();
  void dumpDone(bool complete);
  void handleStallClock();
  void handleSocketError(const std::string& what);
  void watchIs();

  Platform::Scheduler& scheduler_;
  HostState& state_;
  Options options_;
  nl_sock* sock_ = nullptr;
  std::unique_ptr<Platform::FdWatch> watch_;
  std::vector<uint8_t> buffer_;
  std::deque<Dump> dumpQueue_;
  uint32_t dumpSeq_ = 0;
  bool resyncPending_ = false;
  bool dumpInterrupted_ = false;
  bool dumpApplied_ = false;
  std::function<void()> onDumpComplete_;
  Counters counters_;
  Platform::Clock stallClock_;
  Platform::Clock rewatchClock_;
};

}  // namespace Linux
