// The bounded log queue and its writer thread.
#include "linux/LogQueue.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace Linux {

LogLine logLineOf(const Platform::LogRecord& record) {
  LogLine line;
  line.id = record.message.id;
  line.severity = record.message.severity;
  line.text = Platform::logLineText(record);
  line.heldBack = record.heldBack;
  for (size_t i = 0; i < record.arguments.size() && i < record.message.fields.size(); ++i) {
    if (record.message.fields[i]) line.fields.emplace_back(record.message.fields[i], record.arguments[i]);
  }
  return line;
}

// Shared with the writer thread so that a writer stuck past destruction still has valid state.
struct LogQueue::Shared {
  Writer writer;
  size_t capacity;
  mutable std::mutex mutex;
  std::condition_variable wake;
  std::condition_variable finished;
  std::deque<LogLine> lines;
  uint64_t droppedSinceLast = 0;
  uint64_t droppedTotal = 0;
  bool stopping = false;
  bool done = false;

  void run() {
    std::unique_lock lock(mutex);
    for (;;) {
      wake.wait(lock, [&] { return stopping || !lines.empty(); });
      if (lines.empty()) break;
      LogLine line = std::move(lines.front());
      lines.pop_front();
      lock.unlock();
      writer(line);
      lock.lock();
    }
    done = true;
    finished.notify_all();
  }
};

LogQueue::LogQueue(Writer writer, size_t capacity) : shared_(std::make_shared<Shared>()) {
  shared_->writer = std::move(writer);
  shared_->capacity = capacity;
  std::thread([shared = shared_] { shared->run(); }).detach();
}

LogQueue::~LogQueue() {
  std::unique_lock lock(shared_->mutex);
  shared_->stopping = true;
  shared_->wake.notify_all();
  // A writer still stuck after the grace period keeps its own reference to the shared state.
  shared_->finished.wait_for(lock, std::chrono::milliseconds(kDrainMilliseconds),
                             [&] { return shared_->done; });
}

bool LogQueue::push(LogLine line) {
  std::lock_guard lock(shared_->mutex);
  if (shared_->stopping || shared_->lines.size() >= shared_->capacity) {
    ++shared_->droppedSinceLast;
    ++shared_->droppedTotal;
    return false;
  }
  line.dropped = std::exchange(shared_->droppedSinceLast, 0);
  shared_->lines.push_back(std::move(line));
  shared_->wake.notify_one();
  return true;
}

size_t LogQueue::capacity() const { return shared_->capacity; }

size_t LogQueue::queued() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->lines.size();
}

uint64_t LogQueue::dropped() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->droppedTotal;
}

}  // namespace Linux
