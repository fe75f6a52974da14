// The version both programs report.
#pragma once

namespace Daemon {
inline constexpr const char* kVersion = "0.3.0";
}
