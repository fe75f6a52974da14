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

// Writes the settings to the file at path, through a symbolic link to its target: the file's own
// text edited for the keys that changed (its comments stay; note says when they could not),
// written to a temporary file beside it with the file's owner, group and mode, synced, renamed
// over it and the directory synced, so that readers see the old or the new file, never a part,
// also after a crash. Returns an error text (the file left as it was), or "" on success.
std::string saveConfigFile(const std::string& path, const Settings& settings, std::string* note = nullptr);

}  // namespace Daemon
