// Assertion failure path: log, dump the recent lifecycle events, stop.
#include "platform/Assert.h"

#include <cstdio>
#include <cstdlib>

#include "platform/Trace.h"

namespace Platform {
namespace {
AssertHandler gHandler = nullptr;
}

void assertFailed(const char* text, const char* file, int line) {
  if (gHandler) {
    gHandler(text, file, line);
  }
  std::fprintf(stderr, "assertion failed: %s (%s:%d)\n", text, file, line);
  RingTrace::instance().dump(stderr);
  std::fflush(stderr);
  std::abort();
}

AssertHandler assertHandlerIs(AssertHandler handler) {
  AssertHandler old = gHandler;
  gHandler = handler;
  return old;
}

void throwingAssertHandler(const char* text, const char*, int) { throw AssertionFailure{text}; }

}  // namespace Platform
