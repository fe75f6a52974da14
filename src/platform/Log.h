// The system log catalogue: registered messages with severity, text, explanation, action and rate.
#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Platform {

enum class Severity { emergency, alert, critical, error, warning, notice, info, debug };

extern const char* const kNoActionRequired;

inline constexpr size_t kMaxLogArguments = 6;

struct LogMessage {
  const char* id;
  Severity severity;
  // printf-style, limited to %s %d %i %u %x %f and %%; an integer prints in full whatever its
  // width (length modifiers such as "l" are accepted and change nothing).
  const char* format;
  const char* explanation;
  const char* recommendedAction;
  // Seconds between two emissions with the same first argument (the interface); 0 for none.
  double minInterval;
  // A structured field name per argument ("INTERFACE", "CHASSIS_ID", ...) for destinations that
  // keep fields; null for an argument that only appears in the text.
  std::array<const char*, kMaxLogArguments> fields{};
};

// One argument of an emission, before formatting.
struct LogValue {
  enum class Kind : uint8_t { text, signedInteger, unsignedInteger, real };

  LogValue(std::string_view value) : kind(Kind::text), text(value) {}
  template <std::signed_integral T>
  LogValue(T value) : kind(Kind::signedInteger), signedValue(value) {}
  template <std::unsigned_integral T>
  LogValue(T value) : kind(Kind::unsignedInteger), unsignedValue(value) {}
  template <std::floating_point T>
  LogValue(T value) : kind(Kind::real), realValue(static_cast<double>(value)) {}

  template <typename T>
  static constexpr Kind kindOf() {
    if constexpr (std::same_as<T, std::string_view>) return Kind::text;
    else if constexpr (std::signed_integral<T>) return Kind::signedInteger;
    else if constexpr (std::unsigned_integral<T>) return Kind::unsignedInteger;
    else return Kind::real;
  }

  Kind kind;
  std::string_view text;
  int64_t signedValue = 0;
  uint64_t unsignedValue = 0;
  double realValue = 0;
};

// The argument types a message may declare: texts, integers and floating-point numbers.
template <typename T>
concept LogArgument = std::same_as<T, std::string_view> || std::floating_point<T> ||
                      (std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char>);

// Why a format does not fit the declared argument kinds; empty when it does.
std::string logFormatMismatch(std::string_view format, std::span<const LogValue::Kind> kinds);

// What a destination receives for one emitted line.
struct LogRecord {
  const LogMessage& message;
  std::string_view text;                   // the format filled in
  std::span<const std::string> arguments;  // each argument as it appears in text
  // Lines of this message and first argument held back by the rate limit since the last one.
  uint64_t heldBack = 0;
};

// The text plus a note on held-back lines: what a plain-text destination writes.
std::string logLineText(const LogRecord& record);

// The untyped part of a registered message: format, rate limiting and delivery.
class LogHandleBase {
 public:
  // Rate-limit keys kept per message; beyond it the least recently emitted keys are forgotten.
  static constexpr size_t kMaxRateKeys = 4096;

  LogHandleBase(const LogHandleBase&) = delete;
  LogHandleBase& operator=(const LogHandleBase&) = delete;

  const LogMessage& message() const { return message_; }
  // Lines held back by the rate limit, over all keys, since start.
  uint64_t suppressed() const { return suppressed_; }
  size_t rateKeys() const { return rate_.size(); }

 protected:
  LogHandleBase(const LogMessage& message, std::span<const LogValue::Kind> kinds);
  bool emitValues(std::span<const LogValue> values) const;

 private:
  struct RateSlot {
    double lastEmitTime;
    uint64_t heldBack;
  };

  void render(size_t index, const LogValue& value, std::string& out) const;
  void forgetStaleKeys(double now) const;

  LogMessage message_;
  std::vector<std::string> literals_;  // the text around the conversions, one more than them
  std::vector<char> conversions_;
  mutable std::map<std::string, RateSlot, std::less<>> rate_;
  mutable size_t sweepAt_ = 64;
  mutable uint64_t suppressed_ = 0;
};

// One registered message whose arguments are the declared types, checked against the format at
// registration. Emission is rate limited per first argument by minInterval on the log clock.
template <LogArgument... Args>
class LogHandle : public LogHandleBase {
 public:
  explicit LogHandle(const LogMessage& message) : LogHandleBase(message, kinds_) {}

  // Formats and emits; returns false when rate limited.
  bool emit(const Args&... args) const {
    const std::array<LogValue, sizeof...(Args)> values{LogValue(args)...};
    return emitValues(values);
  }

 private:
  static constexpr std::array<LogValue::Kind, sizeof...(Args)> kinds_{LogValue::kindOf<Args>()...};
};

using LogSink = std::function<void(const LogRecord&)>;

// Replaces the destination of log messages (standard error until the agent sets the system log).
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
    std::vector<std::string> arguments;
    uint64_t heldBack;
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
