// Trace lines caught for the life of a test at the levels it names; the sink and levels it found
// are put back afterwards.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/Trace.h"

namespace TestSupport {

class TraceCapture {
 public:
  explicit TraceCapture(const char* levels)
      : previous_(Platform::traceSinkIs(
            [this](const Platform::TraceFacility&, int, std::string_view line) { lines_.emplace_back(line); })) {
    Platform::traceLevelsIs(levels);
  }
  ~TraceCapture() {
    Platform::traceLevelsIs("");
    Platform::traceSinkIs(previous_);
  }
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  // Index of the first line at or after from that contains text; npos when none does.
  size_t at(std::string_view text, size_t from = 0) const {
    for (size_t i = from; i < lines_.size(); ++i) {
      if (lines_[i].find(text) != std::string::npos) return i;
    }
    return std::string::npos;
  }
  bool has(std::string_view text) const { return at(text) != std::string::npos; }
  void clear() { lines_.clear(); }

 private:
  std::vector<std::string> lines_;
  Platform::TraceSink previous_;
};

}  // namespace TestSupport
