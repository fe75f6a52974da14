// The configuration file's own text brought to new settings: only the keys that differ are
// edited, added or removed, so the operator's comments, order and spelling stay.
#pragma once

#include <string>
#include <string_view>

#include "daemon/ConfigSchema.h"

namespace Daemon {

// The text of a file that holds `original` edited to hold `target`. When the original has errors,
// or a change cannot be made in place (a key inside an inline table, say), the whole file is
// written anew from the settings and note says so (its comments are gone); otherwise note is
// empty. The result always loads back to exactly target.
std::string editConfigText(std::string_view original, const Settings& target, std::string& note);

}  // namespace Daemon
