// The journal and syslog writers behind the log queue.
#include "linux/SystemLogSink.h"

#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

namespace Linux {

namespace {

uint64_t fnv1a(std::string_view text, uint64_t hash) {
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3ULL;
  }
  return hash;
}

std::string droppedNote(uint64_t dropped) {
  if (dropped == 0) return {};
  return " (" + std::to_string(dropped) + (dropped == 1 ? " earlier log line" : " earlier log lines") +
         " dropped: system logger too slow)";
}

void writeJournal(const LogLine& line, const std::string& identity) {
  const std::vector<std::string> fields = journalFields(line, identity);
  std::vector<iovec> iov;
  iov.reserve(fields.size());
  for (const std::string& field : fields) {
    iov.push_back({const_cast<char*>(field.data()), field.size()});
  }
  sd_journal_sendv(iov.data(), static_cast<int>(iov.size()));
}

void writeSyslog(const LogLine& line) {
  // Platform severities are numbered as syslog's.
  syslog(static_cast<int>(line.severity), "%s", syslogText(line).c_str());
}

}  // namespace

std::string journalMessageId(std::string_view id) {
  // Two independent 64-bit FNV-1a hashes of the identifier under a fixed name space.
  const uint64_t high = fnv1a(id, fnv1a("lldp-agent log message ", 0xcbf29ce484222325ULL));
  const uint64_t low = fnv1a(id, fnv1a("lldp-agent log message ", high));
  char text[33];
  std::snprintf(text, sizeof text, "%016llx%016llx", static_cast<unsigned long long>(high),
                static_cast<unsigned long long>(low));
  return text;
}

std::vector<std::string> journalFields(const LogLine& line, std::string_view identity) {
  std::vector<std::string> fields;
  fields.push_back("MESSAGE=%" + line.id + ": " + line.text + droppedNote(line.dropped));
  fields.push_back("MESSAGE_ID=" + journalMessageId(line.id));
  fields.push_back("PRIORITY=" + std::to_string(static_cast<int>(line.severity)));
  fields.push_back("SYSLOG_IDENTIFIER=" + std::string(identity));
  fields.push_back("LLDP_MESSAGE=" + line.id);
  for (const auto& [name, value] : line.fields) fields.push_back(name + "=" + value);
  if (line.heldBack) fields.push_back("LLDP_HELD_BACK=" + std::to_string(line.heldBack));
  if (line.dropped) fields.push_back("LLDP_DROPPED=" + std::to_string(line.dropped));
  return fields;
}

std::string syslogText(const LogLine& line) {
  return "%" + line.id + ": " + line.text + droppedNote(line.dropped);
}

Platform::LogSink systemLogSink(const char* identity) {
  LogQueue::Writer writer;
  if (access(kJournalSocket, W_OK) == 0) {
    writer = [identity = std::string(identity)](const LogLine& line) { writeJournal(line, identity); };
  } else {
    openlog(identity, LOG_PID | LOG_NDELAY, LOG_DAEMON);
    writer = writeSyslog;
  }
  auto queue = std::make_shared<LogQueue>(std::move(writer));
  return [queue](const Platform::LogRecord& record) { queue->push(record); };
}

void systemLogSinkIs(const char* identity) { Platform::logSinkIs(systemLogSink(identity)); }

}  // namespace Linux
