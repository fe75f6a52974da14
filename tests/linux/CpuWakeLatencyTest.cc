// The CPU latency request against the kernel's own device: asked for, withdrawn, and withdrawn
// with the descriptor.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>

#include "linux/CpuWakeLatency.h"

namespace Linux {
namespace {

constexpr const char* kDevice = "/dev/cpu_dma_latency";

// The limit all requests together set, as the device reports it.
int32_t currentLimit() {
  const int fd = ::open(kDevice, O_RDONLY | O_CLOEXEC);
  int32_t value = -2;
  if (fd >= 0 && ::read(fd, &value, sizeof value) != static_cast<ssize_t>(sizeof value)) value = -3;
  if (fd >= 0) ::close(fd);
  return value;
}

TEST(CpuWakeLatencyTest, AsksForPromptWakeUpsOnlyWhileTold) {
  CpuWakeLatency missing("/nonexistent/cpu_dma_latency");
  EXPECT_FALSE(missing.available());
  EXPECT_THAT(missing.error(), testing::HasSubstr("/nonexistent/cpu_dma_latency: No such file"));
  missing.promptIs(true);
  EXPECT_FALSE(missing.prompt());

  if (::geteuid() != 0 || ::access(kDevice, W_OK) != 0) {
    GTEST_SKIP() << "needs root and " << kDevice;
  }
  const int32_t before = currentLimit();
  {
    CpuWakeLatency latency;
    ASSERT_TRUE(latency.available()) << latency.error();
    EXPECT_EQ(currentLimit(), before);  // holding the request asks for nothing yet
    latency.promptIs(true);
    EXPECT_TRUE(latency.prompt());
    EXPECT_EQ(currentLimit(), 0);
    latency.promptIs(false);
    EXPECT_EQ(currentLimit(), before);
    latency.promptIs(true);
  }
  EXPECT_EQ(currentLimit(), before);  // an agent that goes leaves nothing asked
}

}  // namespace
}  // namespace Linux
