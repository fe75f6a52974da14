// Counts heap allocations made by this process (the benchmark binary replaces operator new).
#pragma once

#include <cstdint>

namespace Bench {
uint64_t allocations();
}
