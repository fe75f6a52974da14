// Log catalogue registry, formatting, rate limiting and sinks.
#include "platform/Log.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>

namespace Platform {

const char* const kNoActionRequired = "No action is required.";

namespace {

struct LogState {
  std::vector<const LogMessage*> catalogue;
  LogSink sink;
  std::function<double()> clock;
};

LogState& state() {
  static LogState s;
  return s;
}

double monotonicSeconds() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

LogHandle::LogHandle(const LogMessage& message) : message_(message) {
  state().catalogue.push_back(&message_);
}

bool LogHandle::emit(...) const {
  LogState& s = state();
  const double now = s.clock ? s.clock() : monotonicSeconds();
  if (emitted_ && message_.minInterval > 0 && now - lastEmitTime_ < message_.minInterval) {
    ++suppressed_;
    return false;
  }
  emitted_ = true;
  lastEmitTime_ = now;

  char text[1024];
  va_list args;
  va_start(args, this);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::vsnprintf(text, sizeof text, message_.format, args);
#pragma GCC diagnostic pop
  va_end(args);

  if (s.sink) {
    s.sink(message_, text);
  } else {
    std::fprintf(stderr, "%%%s-%d: %s\n", message_.id, static_cast<int>(message_.severity), text);
  }
  return true;
}

LogSink logSinkIs(LogSink sink) {
  LogSink old = std::move(state().sink);
  state().sink = std::move(sink);
  return old;
}

void logClockIs(std::function<double()> clock) { state().clock = std::move(clock); }

std::vector<const LogMessage*> logCatalogue() { return state().catalogue; }

const char* severityName(Severity severity) {
  static const char* const names[] = {"emergency", "alert",  "critical", "error",
                                      "warning",   "notice", "info",     "debug"};
  return names[static_cast<int>(severity)];
}

CapturingLogSink::CapturingLogSink() {
  previous_ = logSinkIs([this](const LogMessage& m, std::string_view text) {
    entries_.push_back({m.id, m.severity, std::string(text)});
  });
}

CapturingLogSink::~CapturingLogSink() { logSinkIs(std::move(previous_)); }

size_t CapturingLogSink::count(std::string_view id) const {
  size_t n = 0;
  for (const Entry& e : entries_) n += e.id == id;
  return n;
}

}  // namespace Platform
