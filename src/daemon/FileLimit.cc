// Raising RLIMIT_NOFILE's soft limit within the hard one.
#include "daemon/FileLimit.h"

#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Daemon {

uint64_t openFileLimitRaise(uint64_t wanted, std::string& error) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
    error = std::string("getrlimit: ") + std::strerror(errno);
    return 0;
  }
  const rlim_t target = limit.rlim_max == RLIM_INFINITY ? wanted : std::min<rlim_t>(wanted, limit.rlim_max);
  if (limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur >= target) return limit.rlim_cur;
  limit.rlim_cur = target;
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
    error = std::string("setrlimit: ") + std::strerror(errno);
    getrlimit(RLIMIT_NOFILE, &limit);
  }
  return limit.rlim_cur;
}

}  // namespace Daemon
