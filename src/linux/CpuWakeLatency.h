// A request that the host's idle CPUs wake promptly, held only while something needs it.
#pragma once

#include <string>

namespace Linux {

// The kernel's CPU latency request (/dev/cpu_dma_latency): while it asks for 0 µs, idle CPUs
// poll instead of halting, so waking one costs nothing; on a virtual machine whose halted CPUs
// take tens of microseconds to wake, that is most of a round trip between two processes. The
// request is the open descriptor: closing it, or dying, withdraws it. Opened once (it needs
// root) and kept: asking and releasing later are plain writes.
class CpuWakeLatency {
 public:
  explicit CpuWakeLatency(const std::string& path = "/dev/cpu_dma_latency");
  ~CpuWakeLatency();
  CpuWakeLatency(const CpuWakeLatency&) = delete;
  CpuWakeLatency& operator=(const CpuWakeLatency&) = delete;

  // Without the device (no root, or a service's private /dev) every call is a no-op.
  bool available() const { return fd_ >= 0; }
  const std::string& error() const { return error_; }
  bool prompt() const { return prompt_; }
  // True: idle CPUs poll; false: the kernel's default again.
  void promptIs(bool prompt);

 private:
  int fd_ = -1;
  bool prompt_ = false;
  std::string error_;
};

}  // namespace Linux
