// The system log catalogue: registered messages with severity, text, explanation, action and rate.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Platform {

enum class Severity { emergency, alert, critical, error, warning, notice, info, debug };

extern const char* const kNoActionRequired;

struct LogMessage {
  const char* id;
  Severity severity;
  const char* format;  // printf-style
  const char* explanation;
  const char* recommendedAction;
  double minInterval;  // seconds between two emissions of this message; 0 for none
};

// One registered message. Emission is rate limited by minInterval on the log clock.
class LogHandle {
 public:
  explicit LogHandle(const LogMessage& message);
  LogHandle(const LogHandle&) = delete;
  LogHandle& operator=(const LogHandle&) = delete;

  const LogMessage& message() const { return message_; }
  uint64_t suppressed() const { return suppressed_; }

  // Formats with the message's format and emits; returns false when rate limited.
  bool emit(...) const;

 private:
  LogMessage message_;
  mutable double lastEmitTime_ = 0;
  mutable bool emitted_ = false;
  mutable uint64_t suppressed_ = 0;
};

using LogSink = std::function<void(const LogMessage&, std::string_view text)>;

// Replaces the destination of log messages (standard error until the agent sets syslog).
LogSink logSinkIs(LogSink sink);

// The time source for rate limiting, in seconds; defaults to a monotonic clock.
void logClockIs(std::function<double()> clock);

std::vector<const LogMessage*> logCatalogue();
const char* severityName(Severity severity);

// Collects emitted messages for tests; restores the previous sink when destroyed.
class CapturingLogSink {
 public:
  struct Entry {
    std::string id;
    Severity severity;
    std::string text;
  };
  CapturingLogSink();
  ~CapturingLogSink();
  const std::vector<Entry>& entries() const { return entries_; }
  size_t count(std::string_view id) const;
  void clear() { entries_.clear(); }

 private:
  std::vector<Entry> entries_;
  LogSink previous_;
};

}  // namespace Platform
