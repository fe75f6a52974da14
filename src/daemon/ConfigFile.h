// Reading the TOML configuration file into settings (all or nothing, every error with its file
// and line) and writing the running configuration back atomically.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/ConfigSchema.h"

namespace Daemon {

// The build names the configuration directory of its install prefix.
#ifndef LLDP_SYSCONFDIR
#define LLDP_SYSCONFDIR "/etc"
#endif
inline constexpr const char* kDefaultConfigPath = LLDP_SYSCONFDIR "/lldp-agent/lldp-agent.toml";
inline constexpr size_t kMaxConfigBytes = 1 << 20;
inline constexpr size_t kMaxReportedErrors = 20;

struct ConfigLoad {
  std::optional<Settings> settings;  // set only when there is no error
  std::vector<std::string> errors;   // "FILE:LINE: KEY: MESSAGE", at most kMaxReportedErrors
  bool missing = false;              // the file does not exist (the settings are the defaults)
  bool ok() const { return settings.has_value(); }
};

// Parses a document; sourceName prefixes every error.
ConfigLoad parseConfig(std::string_view text, const std::string& sourceName);

// Reads a file. A missing file gives the defaults when missingIsDefault, an error otherwise.
ConfigLoad loadConfigFile(const std::string& path, bool missingIsDefault);

// Writes the settings as TOML to path through a temporary file and a rename, so that readers see
// the old or the new file, never a part. Returns an error text, or "" on success.
std::string saveConfigFile(const std::string& path, const Settings& settings);

}  // namespace Daemon
