// Log catalogue registry, our own typed formatting, rate limiting per message and key, and sinks.
#include "platform/Log.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <utility>

#include "platform/Assert.h"
#include "platform/Text.h"

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

bool isLengthModifier(char c) { return c == 'l' || c == 'h' || c == 'z' || c == 'j' || c == 't'; }

bool fits(char conversion, LogValue::Kind kind) {
  switch (conversion) {
    case 's':
      return kind == LogValue::Kind::text;
    case 'd':
    case 'i':
    case 'u':
    case 'x':
      return kind == LogValue::Kind::signedInteger || kind == LogValue::Kind::unsignedInteger;
    case 'f':
      return kind == LogValue::Kind::real;
    default:
      return false;
  }
}

// Splits a format into literal texts and conversion letters; false on a conversion we do not
// support. Literals get one more entry than conversions.
bool splitFormat(std::string_view format, std::vector<std::string>& literals,
                 std::vector<char>& conversions, std::string& error) {
  literals.assign(1, std::string());
  conversions.clear();
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') {
      literals.back() += format[i];
      continue;
    }
    size_t j = i + 1;
    while (j < format.size() && isLengthModifier(format[j])) ++j;
    if (j >= format.size()) {
      error = "format ends inside a conversion";
      return false;
    }
    const char c = format[j];
    if (c == '%' && j == i + 1) {
      literals.back() += '%';
    } else if (c == 's' || c == 'd' || c == 'i' || c == 'u' || c == 'x' || c == 'f') {
      conversions.push_back(c);
      literals.emplace_back();
    } else {
      error = "unsupported conversion \"" + std::string(format.substr(i, j + 1 - i)) + "\"";
      return false;
    }
    i = j;
  }
  return true;
}

const char* kindName(LogValue::Kind kind) {
  switch (kind) {
    case LogValue::Kind::text:
      return "text";
    case LogValue::Kind::signedInteger:
      return "signed integer";
    case LogValue::Kind::unsignedInteger:
      return "unsigned integer";
    case LogValue::Kind::real:
      return "floating-point number";
  }
  return "?";
}

// Journal field names: upper-case letters, digits and '_', not starting with '_' or a digit.
bool validFieldName(std::string_view name) {
  if (name.empty() || name.size() > 64 || name[0] == '_' || (name[0] >= '0' && name[0] <= '9')) {
    return false;
  }
  return std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  });
}

template <typename T>
void integerText(T value, int base, std::string& out) {
  char buf[72];
  const auto result = std::to_chars(buf, buf + sizeof buf, value, base);
  out.assign(buf, result.ptr);
}

void realText(double value, std::string& out) {
  // The largest finite double needs 309 digits before the point.
  char buf[400];
  const auto result = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::fixed, 6);
  if (result.ec != std::errc()) {
    out.assign("?");
    return;
  }
  out.assign(buf, result.ptr);
}

// The text of the line being emitted and of its arguments. Kept from one line to the next so
// that a line costs no allocation once they have grown; a sink that logs in turn gets its own.
struct EmitBuffers {
  std::string text;
  std::vector<std::string> arguments;
  bool busy = false;
};

class EmitBuffersLease {
 public:
  EmitBuffersLease() : buffers_(shared().busy ? own_ : shared()) { buffers_.busy = true; }
  ~EmitBuffersLease() { buffers_.busy = false; }
  EmitBuffersLease(const EmitBuffersLease&) = delete;
  EmitBuffersLease& operator=(const EmitBuffersLease&) = delete;
  EmitBuffers* operator->() { return &buffers_; }

 private:
  static EmitBuffers& shared() {
    thread_local EmitBuffers buffers;
    return buffers;
  }
  EmitBuffers own_;
  EmitBuffers& buffers_;
};

}  // namespace

std::string logFormatMismatch(std::string_view format, std::span<const LogValue::Kind> kinds) {
  std::vector<std::string> literals;
  std::vector<char> conversions;
  std::string error;
  if (!splitFormat(format, literals, conversions, error)) return error;
  if (conversions.size() != kinds.size()) {
    return "format has " + std::to_string(conversions.size()) + " conversions for " +
           std::to_string(kinds.size()) + " arguments";
  }
  for (size_t i = 0; i < kinds.size(); ++i) {
    if (!fits(conversions[i], kinds[i])) {
      return "conversion " + std::to_string(i + 1) + " \"%" + conversions[i] + "\" does not fit a " +
             kindName(kinds[i]);
    }
  }
  return {};
}

std::string logLineText(const LogRecord& record) {
  std::string line(record.text);
  if (record.heldBack == 1) {
    line += " (1 similar message held back)";
  } else if (record.heldBack > 1) {
    line += " (" + std::to_string(record.heldBack) + " similar messages held back)";
  }
  return line;
}

LogHandleBase::LogHandleBase(const LogMessage& message, std::span<const LogValue::Kind> kinds)
    : message_(message) {
  const std::string mismatch = logFormatMismatch(message.format, kinds);
  if (!mismatch.empty()) std::fprintf(stderr, "log message %s: %s\n", message.id, mismatch.c_str());
  LLDP_ASSERT(mismatch.empty());
  for (size_t i = 0; i < message.fields.size(); ++i) {
    const char* field = message.fields[i];
    LLDP_ASSERT(!field || (i < kinds.size() && validFieldName(field)));
  }
  std::string error;
  splitFormat(message.format, literals_, conversions_, error);
  state().catalogue.push_back(&message_);
}

void LogHandleBase::render(size_t index, const LogValue& value, std::string& out) const {
  const int base = conversions_[index] == 'x' ? 16 : 10;
  switch (value.kind) {
    case LogValue::Kind::text:
      // Names, descriptions and origins come from neighbours and clients: a line they could
      // end or colour would let them forge others.
      out.clear();
      appendPrintable(out, value.text);
      return;
    case LogValue::Kind::signedInteger:
      integerText(value.signedValue, base, out);
      return;
    case LogValue::Kind::unsignedInteger:
      integerText(value.unsignedValue, base, out);
      return;
    case LogValue::Kind::real:
      realText(value.realValue, out);
      return;
  }
  out.clear();
}

void LogHandleBase::forgetStaleKeys(double now) const {
  if (rate_.size() < sweepAt_) return;
  // A key whose interval has passed limits nothing any more; it stays only while it owes a
  // held-back count to its next line.
  std::erase_if(rate_, [&](const auto& entry) {
    return entry.second.heldBack == 0 && now - entry.second.lastEmitTime >= message_.minInterval;
  });
  if (rate_.size() >= kMaxRateKeys) {
    // Pathological key counts: forget the least recently emitted quarter.
    std::vector<double> times;
    times.reserve(rate_.size());
    for (const auto& [key, slot] : rate_) times.push_back(slot.lastEmitTime);
    const auto cut = times.begin() + static_cast<std::ptrdiff_t>(kMaxRateKeys / 4);
    std::nth_element(times.begin(), cut, times.end());
    const double oldest = *cut;
    std::erase_if(rate_, [&](const auto& entry) { return entry.second.lastEmitTime < oldest; });
    while (rate_.size() >= kMaxRateKeys) rate_.erase(rate_.begin());
  }
  sweepAt_ = std::clamp<size_t>(2 * rate_.size(), 64, kMaxRateKeys);
}

bool LogHandleBase::emitValues(std::span<const LogValue> values) const {
  LogState& s = state();
  EmitBuffersLease buffers;
  std::vector<std::string>& arguments = buffers->arguments;
  if (arguments.size() < values.size()) arguments.resize(values.size());
  if (!values.empty()) render(0, values[0], arguments[0]);

  uint64_t heldBack = 0;
  if (message_.minInterval > 0) {
    const double now = s.clock ? s.clock() : monotonicSeconds();
    const std::string_view key = values.empty() ? std::string_view() : std::string_view(arguments[0]);
    auto it = rate_.find(key);
    // A clock that went back (a replaced test clock) ends the interval rather than extend it.
    const auto limited = [&](const RateSlot& slot) {
      return now >= slot.lastEmitTime && now - slot.lastEmitTime < message_.minInterval;
    };
    if (it != rate_.end() && limited(it->second)) {
      ++it->second.heldBack;
      ++suppressed_;
      return false;
    }
    if (it == rate_.end()) {
      forgetStaleKeys(now);
      it = rate_.emplace(std::string(key), RateSlot{now, 0}).first;
    }
    heldBack = std::exchange(it->second.heldBack, 0);
    it->second.lastEmitTime = now;
  }

  for (size_t i = 1; i < values.size(); ++i) render(i, values[i], arguments[i]);
  std::string& text = buffers->text;
  text.assign(literals_[0]);
  for (size_t i = 0; i < values.size(); ++i) {
    text += arguments[i];
    text += literals_[i + 1];
  }

  const LogRecord record{message_, text, std::span<const std::string>(arguments.data(), values.size()),
                         heldBack};
  if (s.sink) {
    s.sink(record);
  } else {
    std::fprintf(stderr, "%%%s-%d: %s\n", message_.id, static_cast<int>(message_.severity),
                 logLineText(record).c_str());
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
  previous_ = logSinkIs([this](const LogRecord& r) {
    entries_.push_back({r.message.id, r.message.severity, std::string(r.text),
                        std::vector<std::string>(r.arguments.begin(), r.arguments.end()), r.heldBack});
  });
}

CapturingLogSink::~CapturingLogSink() { logSinkIs(std::move(previous_)); }

size_t CapturingLogSink::count(std::string_view id) const {
  size_t n = 0;
  for (const Entry& e : entries_) n += e.id == id;
  return n;
}

}  // namespace Platform
