// Sends the log catalogue's messages to the system log.
#pragma once

namespace Linux {

// Opens the system log under the given identity and routes every log message there.
void syslogSinkIs(const char* identity);

}  // namespace Linux
