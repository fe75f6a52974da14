// The syslog destination of log messages: "%ID: text" at the message's severity.
#include "linux/SyslogSink.h"

#include <syslog.h>

#include "platform/Log.h"

namespace Linux {

void syslogSinkIs(const char* identity) {
  openlog(identity, LOG_PID | LOG_NDELAY, LOG_DAEMON);
  Platform::logSinkIs([](const Platform::LogRecord& r) {
    // Platform severities are numbered as syslog's.
    syslog(static_cast<int>(r.message.severity), "%%%s: %s", r.message.id, Platform::logLineText(r).c_str());
  });
}

}  // namespace Linux
