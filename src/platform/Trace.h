// Levelled per-facility trace (0 errors in received data ... 9 most verbose) and the ring trace.
#pragma once

#include <cstdio>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace Platform {

// One facility per source unit. The level is the most verbose level that is emitted; -1 is off.
class TraceFacility {
 public:
  explicit TraceFacility(const char* name);
  TraceFacility(const TraceFacility&) = delete;
  TraceFacility& operator=(const TraceFacility&) = delete;
  ~TraceFacility();

  bool enabled(int level) const { return level <= level_; }
  int level() const { return level_; }
  void levelIs(int level);
  const char* name() const { return name_; }

 private:
  friend bool traceLevelsIs(std::string_view text);
  const char* name_;
  int level_ = -1;
};

using TraceSink = std::function<void(const TraceFacility&, int level, std::string_view line)>;

// Whether any facility emits at any level (lets hot paths skip work that exists only to trace).
extern bool gAnyTraceEnabled;
inline bool anyTraceEnabled() { return gAnyTraceEnabled; }

// Replaces where trace lines go (standard error by default); returns the previous sink.
TraceSink traceSinkIs(TraceSink sink);

// Applies "Facility/level,Other/level,*/level" to every facility, present and future.
// Returns false (and changes nothing) when the text is malformed.
bool traceLevelsIs(std::string_view text);

// Composes one line by streaming and hands it to the sink when it goes out of scope.
class TraceLine {
 public:
  TraceLine(const TraceFacility& facility, int level) : facility_(facility), level_(level) {}
  TraceLine(const TraceLine&) = delete;
  ~TraceLine();

  template <class T>
  TraceLine& operator<<(const T& value) {
    out_ << value;
    return *this;
  }

 private:
  const TraceFacility& facility_;
  int level_;
  std::ostringstream out_;
};

// Keeps the most recent lifecycle events; dumped when an assertion fails.
class RingTrace {
 public:
  static constexpr size_t kCapacity = 512;
  // Room each slot keeps: a line is copied into its slot, so the ring allocates once, at its
  // start, and the lines of thousands of ports coming and going pin no pages across the heap.
  static constexpr size_t kLineBytes = 128;
  static RingTrace& instance();

  void add(std::string_view line);
  std::vector<std::string> entries() const;
  void dump(FILE* out) const;
  void clear();

 private:
  RingTrace();
  std::vector<std::string> lines_;  // kCapacity slots, the oldest at next_ once full
  size_t next_ = 0;
  size_t count_ = 0;
};

class RingTraceLine {
 public:
  RingTraceLine() = default;
  RingTraceLine(const RingTraceLine&) = delete;
  ~RingTraceLine() { RingTrace::instance().add(out_.str()); }

  template <class T>
  RingTraceLine& operator<<(const T& value) {
    out_ << value;
    return *this;
  }

 private:
  std::ostringstream out_;
};

}  // namespace Platform

// Nothing after TRACE(...) is evaluated or formatted unless the level is enabled.
// (A for statement rather than if/else, so that it nests under an unbraced if.)
#define TRACE(facility, level)                                                        \
  for (bool traceOnce_ = (facility).enabled(level); traceOnce_; traceOnce_ = false) \
  ::Platform::TraceLine((facility), (level))

#define RING_TRACE ::Platform::RingTraceLine()
