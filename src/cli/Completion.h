// The bash completion script of `lldp` (install it with: lldp completion > /etc/bash_completion.d/lldp).
#pragma once

#include <string>

namespace Cli {
std::string bashCompletion();
}
