// The CPU latency request, written as the 32-bit value the device takes.
#include "linux/CpuWakeLatency.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace Linux {

namespace {

// The kernel's own "no request" value: its default takes over.
constexpr int32_t kDefaultLatency = -1;

}  // namespace

CpuWakeLatency::CpuWakeLatency(const std::string& path) {
  fd_ = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
  if (fd_ < 0) error_ = path + ": " + std::strerror(errno);
}

CpuWakeLatency::~CpuWakeLatency() {
  if (fd_ >= 0) ::close(fd_);
}

void CpuWakeLatency::promptIs(bool prompt) {
  if (fd_ < 0 || prompt == prompt_) return;
  const int32_t value = prompt ? 0 : kDefaultLatency;
  if (::write(fd_, &value, sizeof value) != static_cast<ssize_t>(sizeof value)) {
    error_ = std::string("write: ") + std::strerror(errno);
    return;
  }
  prompt_ = prompt;
}

}  // namespace Linux
