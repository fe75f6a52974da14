#include <gtest/gtest.h>
#include "platform/Json.h"
#include "platform/Reactor.h"
#include "platform/StateDb.h"
#include "platform/Trace.h"
#include "platform/Log.h"
#include "platform/Assert.h"
#include "platform/FeatureToggle.h"
TEST(Smoke, Builds) { SUCCEED(); }
