// A parent reactor whose children are of a type only declared here: the parent is held, looked
// up in and torn down by code that never sees the child's definition (see LaterChild.cc).
#pragma once

#include <string>
#include <vector>

#include "platform/Reactor.h"

namespace PlatformTest {

class LaterChildSm;

class LaterParentSm : public Platform::Reactor {
  PLATFORM_REACTOR_COLL(laterChildSm, int, LaterChildSm)
};

// Defined with the child: creates one, which logs "init:<key>" and, when destroyed, "gone:<key>".
void laterChildIs(LaterParentSm& parent, int key, std::vector<std::string>& log);
// Reads the child's key through its full type.
int laterChildKey(const LaterChildSm& child);

}  // namespace PlatformTest
