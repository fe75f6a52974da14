// The system log destination: a stalled logger never blocks emission, and the journal fields.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "linux/LogQueue.h"
#include "linux/SystemLogSink.h"

namespace {

using Linux::LogLine;
using Linux::LogQueue;

// A writer that blocks inside the "system logger" until released, recording what it wrote.
struct StalledWriter {
  std::mutex mutex;
  std::condition_variable changed;
  bool released = false;
  bool entered = false;
  std::vector<LogLine> written;

  LogQueue::Writer writer() {
    return [this](const LogLine& line) {
      std::unique_lock lock(mutex);
      entered = true;
      changed.notify_all();
      changed.wait(lock, [&] { return released; });
      written.push_back(line);
    };
  }
  void waitUntilEntered() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return entered; });
  }
  void release() {
    std::lock_guard lock(mutex);
    released = true;
    changed.notify_all();
  }
};

LogLine line(const std::string& text) {
  LogLine l;
  l.id = "TEST_LINE";
  l.text = text;
  return l;
}

const Platform::LogHandle<std::string_view> kQueued(
    {"TEST_QUEUED", Platform::Severity::notice, "line %s", "Explanation.", Platform::kNoActionRequired, 0,
     {"INTERFACE"}});

TEST(LogQueueTest, AStalledWriterCostsABoundedQueueAndCountedDrops) {
  StalledWriter stalled;
  {
    LogQueue queue(stalled.writer(), 8);
    ASSERT_TRUE(queue.push(line("first")));
    stalled.waitUntilEntered();  // the writer now hangs in the logger with "first"

    const auto previous = Platform::logSinkIs([&queue](const Platform::LogRecord& r) { queue.push(r); });
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 5000; ++i) EXPECT_TRUE(kQueued.emit("Ethernet" + std::to_string(i)));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    Platform::logSinkIs(previous);

    EXPECT_EQ(queue.queued(), 8u);
    EXPECT_EQ(queue.dropped(), 5000u - 8u);
    stalled.release();
    // Let the writer empty the queue so that the next line is accepted.
    while (queue.queued() != 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ASSERT_TRUE(queue.push(line("after")));
  }  // destruction lets the writer finish
  ASSERT_EQ(stalled.written.size(), 10u);
  EXPECT_EQ(stalled.written[0].text, "first");
  EXPECT_EQ(stalled.written[1].text, "line Ethernet0");
  EXPECT_EQ(stalled.written[1].fields,
            (std::vector<std::pair<std::string, std::string>>{{"INTERFACE", "Ethernet0"}}));
  EXPECT_EQ(stalled.written[8].dropped, 0u);
  EXPECT_EQ(stalled.written[9].text, "after");
  EXPECT_EQ(stalled.written[9].dropped, 5000u - 8u);
}

TEST(SystemLogSinkTest, JournalFieldsCarryIdPriorityNamedArgumentsAndCounts) {
  LogLine l = line("LLDP neighbor with chassisId 00:1c:73:00:00:01 and portId Ethernet9 added on interface "
                   "Ethernet1 (2 similar messages held back)");
  l.id = "LLDP_NEIGHBOR_NEW";
  l.severity = Platform::Severity::notice;
  l.fields = {{"CHASSIS_ID", "00:1c:73:00:00:01"}, {"PORT_ID", "Ethernet9"}, {"INTERFACE", "Ethernet1"}};
  l.heldBack = 2;
  l.dropped = 7;
  const std::vector<std::string> fields = Linux::journalFields(l, "lldp-agent");
  const std::vector<std::string> expected{
      "MESSAGE=%LLDP_NEIGHBOR_NEW: " + l.text + " (7 earlier log lines dropped: system logger too slow)",
      "MESSAGE_ID=a20516cf8b2b304a68b9dd40aa53b88d",  // pinned: journal catalogues and queries key on it
      "PRIORITY=5",
      "SYSLOG_IDENTIFIER=lldp-agent",
      "LLDP_MESSAGE=LLDP_NEIGHBOR_NEW",
      "CHASSIS_ID=00:1c:73:00:00:01",
      "PORT_ID=Ethernet9",
      "INTERFACE=Ethernet1",
      "LLDP_HELD_BACK=2",
      "LLDP_DROPPED=7"};
  EXPECT_EQ(fields, expected);
  l.dropped = 0;
  EXPECT_EQ(Linux::syslogText(l), "%LLDP_NEIGHBOR_NEW: " + l.text);
  EXPECT_EQ(Linux::journalMessageId("LLDP_RX_RATELIMIT"), "1cfb89c2d18c9c39d38a67568a575a35");
}

}  // namespace
