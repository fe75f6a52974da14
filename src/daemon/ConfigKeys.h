// Shared between the key table and the schema's checks and writers.
#pragma once

#include <vector>

#include "daemon/ConfigSchema.h"

namespace Daemon {

const std::vector<ConfigKey>& configKeyTable();
int hexDigit(char c);
// The information bytes of a configured external TLV, in hexadecimal.
std::optional<ConfigValue> getExternalTlv(const Settings&, const PortSettings* p, const ConfigKeyParams& params);

}  // namespace Daemon
