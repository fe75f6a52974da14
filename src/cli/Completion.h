// The bash completion script of `lldp` (install it with: lldp completion > /etc/bash_completion.d/lldp).
#pragma once

#include <string>
#include <vector>

namespace Cli {

// A configuration key as `lldp configure` takes it: for an interface or global, and the words
// its value may be ("" for free text; $intfs for the interfaces).
struct KeyCompletion {
  const char* key;  // parameters as <app>, <oui>, <subtype>, <index>
  bool port;
  const char* values;
};
const std::vector<KeyCompletion>& completionKeys();

std::string bashCompletion();

}  // namespace Cli
