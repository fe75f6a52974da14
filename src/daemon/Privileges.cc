// Capability and user switching through the kernel's interfaces (capset, prctl, setuid).
#include "daemon/Privileges.h"

#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <cstdlib>
#include <fstream>
#include <string>

namespace Daemon {
namespace {

int lastCapability() {
  int last = CAP_LAST_CAP;
  std::ifstream in("/proc/sys/kernel/cap_last_cap");
  if (in) in >> last;
  return last;
}

// Threads of this process as /proc counts them; 0 when it cannot tell.
size_t threadCount() {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("Threads:")) return std::strtoul(line.c_str() + 8, nullptr, 10);
  }
  return 0;
}

std::string systemError(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

bool capGet(__user_cap_data_struct (&data)[2]) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  return syscall(SYS_capget, &header, data) == 0;
}

}  // namespace

std::vector<int> keptCapabilities() { return {CAP_NET_RAW, CAP_NET_ADMIN}; }

uint64_t effectiveCapabilities() {
  __user_cap_data_struct data[2]{};
  if (!capGet(data)) return 0;
  return (static_cast<uint64_t>(data[1].effective) << 32) | data[0].effective;
}

std::string dropPrivileges(const std::string& user) {
  // Capabilities and user ids belong to each thread: one already running would keep them all.
  if (threadCount() > 1) return "another thread already runs and would keep every privilege";
  // The user first: an unknown one must fail before anything is given up.
  uid_t uid = 0;
  gid_t gid = 0;
  if (!user.empty()) {
    errno = 0;
    const passwd* pw = getpwnam(user.c_str());
    if (!pw) return "user '" + user + "' " + (errno ? std::strerror(errno) : "does not exist");
    uid = pw->pw_uid;
    gid = pw->pw_gid;
  }
  uint64_t keep = 0;
  for (int cap : keptCapabilities()) keep |= uint64_t{1} << cap;

  // The bounding set first, while CAP_SETPCAP is still effective; an unprivileged process
  // cannot and need not do it.
  for (int cap = 0; cap <= lastCapability(); ++cap) {
    if (keep & (uint64_t{1} << cap)) continue;
    if (prctl(PR_CAPBSET_READ, cap, 0, 0, 0) != 1) continue;
    if (prctl(PR_CAPBSET_DROP, cap, 0, 0, 0) != 0 && errno != EPERM && errno != EINVAL) {
      return systemError("PR_CAPBSET_DROP");
    }
  }

  if (!user.empty()) {
    if (prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) != 0) return systemError("PR_SET_KEEPCAPS");
    if (initgroups(user.c_str(), gid) != 0) return systemError("initgroups");
    if (setgid(gid) != 0) return systemError("setgid");
    if (setuid(uid) != 0) return systemError("setuid");
    prctl(PR_SET_KEEPCAPS, 0, 0, 0, 0);
  }

  __user_cap_data_struct data[2]{};
  if (!capGet(data)) return systemError("capget");
  const uint64_t permitted = (static_cast<uint64_t>(data[1].permitted) << 32) | data[0].permitted;
  const uint64_t wanted = keep & permitted;
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  for (int i = 0; i < 2; ++i) {
    data[i].effective = data[i].permitted = static_cast<uint32_t>(wanted >> (32 * i));
    data[i].inheritable = 0;
  }
  if (syscall(SYS_capset, &header, data) != 0) return systemError("capset");
  prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
  return {};
}

}  // namespace Daemon
