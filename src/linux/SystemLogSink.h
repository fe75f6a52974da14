// Sends the log catalogue's messages to the journal, or to syslog where no journal runs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "linux/LogQueue.h"
#include "platform/Log.h"

namespace Linux {

// Where the journal listens; without it lines go to syslog.
inline constexpr const char* kJournalSocket = "/run/systemd/journal/socket";

// Routes every log message to the system logger under the given identity, behind a LogQueue so
// that a stalled logger never stalls the caller. Replaces the current sink.
void systemLogSinkIs(const char* identity);

// The sink itself; it owns its queue, which lives as long as the sink.
Platform::LogSink systemLogSink(const char* identity);

// The journal's MESSAGE_ID for a catalogue identifier: 32 lower-case hexadecimal digits, the
// same in every build and on every machine.
std::string journalMessageId(std::string_view id);

// The "NAME=value" journal fields of one line.
std::vector<std::string> journalFields(const LogLine& line, std::string_view identity);

// The line as syslog gets it: "%ID: text", with a note on dropped lines.
std::string syslogText(const LogLine& line);

}  // namespace Linux
