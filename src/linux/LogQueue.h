// A bounded queue in front of a blocking log destination, drained by one writer thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/Log.h"

namespace Linux {

// One line as the writer thread sees it: copied out of the emission, owning everything.
struct LogLine {
  std::string id;
  Platform::Severity severity = Platform::Severity::notice;
  std::string text;  // the formatted message, with the held-back note
  std::vector<std::pair<std::string, std::string>> fields;  // the named arguments
  uint64_t heldBack = 0;
  uint64_t dropped = 0;  // lines lost to a full queue just before this one
};

LogLine logLineOf(const Platform::LogRecord& record);

// The event thread only ever takes a short lock to append; a writer stalled in the system
// logger costs at most `capacity` queued lines, and lines beyond it are dropped and counted.
// The writer thread only does the blocking I/O.
class LogQueue {
 public:
  using Writer = std::function<void(const LogLine&)>;
  static constexpr size_t kDefaultCapacity = 1024;
  // How long destruction waits for a slow writer to finish the queue before leaving it behind.
  static constexpr int kDrainMilliseconds = 1000;

  explicit LogQueue(Writer writer, size_t capacity = kDefaultCapacity);
  ~LogQueue();
  LogQueue(const LogQueue&) = delete;
  LogQueue& operator=(const LogQueue&) = delete;

  // Never waits for the writer; false when the line was dropped.
  bool push(LogLine line);
  void push(const Platform::LogRecord& record) { push(logLineOf(record)); }

  size_t capacity() const;
  size_t queued() const;
  uint64_t dropped() const;  // since start

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;
};

}  // namespace Linux
