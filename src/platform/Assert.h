// Always-on assertions for the agent's own invariants; the message is the condition's source text.
#pragma once

namespace Platform {

// Called with the condition text, file and line when an assertion fails.
using AssertHandler = void (*)(const char* text, const char* file, int line);

// Logs the failure, dumps the ring trace and aborts (the default handler).
[[noreturn]] void assertFailed(const char* text, const char* file, int line);

// Tests replace the handler to observe failures (for example by throwing AssertionFailure).
AssertHandler assertHandlerIs(AssertHandler handler);

struct AssertionFailure {
  const char* text;
};

// A handler for tests: throws AssertionFailure instead of aborting.
[[noreturn]] void throwingAssertHandler(const char* text, const char* file, int line);

}  // namespace Platform

#define LLDP_ASSERT(cond)                                   \
  do {                                                      \
    if (!(cond)) [[unlikely]]                               \
      ::Platform::assertFailed(#cond, __FILE__, __LINE__);  \
  } while (0)
