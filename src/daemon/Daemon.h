// The agent in a process: the operator's settings written into the records, the agent and the
// Linux host sources started in order, run-time changes and reloads applied by difference, and
// shutdown in order. The state socket reaches the configuration through this class only.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/LldpAgent.h"
#include "daemon/ConfigFile.h"
#include "platform/Log.h"
#include "platform/StateDb.h"

namespace Linux {
class CpuWakeLatency;
class HostSources;
}
namespace Snmp {
class Subagent;
}

namespace Daemon {

class NetStatusMirror;
class TxSettingsSm;

extern const Platform::LogHandle<std::string_view, std::string_view> LLDP_CONFIG_APPLIED;
extern const Platform::LogHandle<std::string_view, std::string_view> LLDP_CONFIG_REFUSED;
extern const Platform::LogHandle<std::string_view> LLDP_CONFIG_NEEDS_RESTART;
extern const Platform::LogHandle<std::string_view, std::string_view> LLDP_CONFIG_UNSAVED_REPLACED;

// The name under which the configuration file's own external TLVs are published.
inline constexpr const char* kConfigTlvClient = "config";

class LldpDaemon {
 public:
  struct Options {
    std::string configPath = kDefaultConfigPath;
    bool missingConfigIsDefault = true;
    // Run the Linux host sources; without them whoever builds the daemon fills the records.
    bool host = true;
    // Packet access; empty means raw sockets.
    Lldp::Agent::Protocol::PamManagerFactory pamManagerFactory;
    std::string cellId = "1";
  };
  struct Summary {
    size_t ports = 0;
    size_t neighbours = 0;
    uint64_t netlinkResyncs = 0;
  };

  LldpDaemon(Platform::Scheduler& scheduler, Options options, Settings settings);
  ~LldpDaemon();
  LldpDaemon(const LldpDaemon&) = delete;
  LldpDaemon& operator=(const LldpDaemon&) = delete;

  // Writes the configuration records and starts the agent; the host sources follow once the
  // mounts are complete. ready() (and the callback) once the host's first dump is applied;
  // a later failure to start is reported through the fatal callback.
  void start();
  bool ready() const { return ready_; }
  void readyIs(std::function<void()> fn) { onReady_ = std::move(fn); }
  void fatalIs(std::function<void(const std::string&)> fn) { onFatal_ = std::move(fn); }

  // The running configuration and changes to it; each change reaches the agent as the
  // difference from what runs. Refusals change nothing.
  const Settings& settings() const { return settings_; }
  std::optional<ConfigError> set(std::string_view intf, std::string_view key, const ConfigValue& value);
  // A client other than root (byRoot false) may not change where the agent writes files or
  // listens: the daemon runs as root, so such a key would let a member of the socket's group
  // replace any file root may write.
  std::optional<ConfigError> setText(std::string_view intf, std::string_view key, std::string_view text,
                                     bool byRoot = true);
  std::optional<ConfigError> unset(std::string_view intf, std::string_view key, bool byRoot = true);
  std::string renderConfig() const { return ConfigSchema::renderToml(settings_); }
  // Writes the running configuration to the configuration file; an error text or "". note, when
  // given, says what the operator should know of a save that succeeded.
  std::string save(std::string* note = nullptr);
  const std::string& configPath() const { return options_.configPath; }
  // Keys changed at run time (set, unset) since the file was last read or saved: a reload
  // replaces them with the file's, and says so.
  const std::set<std::string>& unsaved() const { return unsaved_; }

  // Re-reads the file (SIGHUP). A file with errors is refused and logged, and the running
  // configuration stays; returns false then, with the errors.
  bool reload(std::vector<std::string>* errors = nullptr);
  // Applies new settings by difference; returns the keys that changed, as "interface.eth1.x".
  std::vector<std::string> settingsIs(const Settings& next);
  // Called after each change of the running settings, however it came (reload, socket), and
  // after every reload: listeners apply only what differs from what they run with.
  void settingsChangedAdd(std::function<void()> fn) { onSettingsChanged_.push_back(std::move(fn)); }

  // Shutdown in order: the agent (packet access first), then the host sources. Idempotent.
  void shutdown();

  Platform::Scheduler& scheduler() const { return scheduler_; }
  Platform::StateDb& stateDb() { return stateDb_; }
  Lldp::Agent::Agent* agent() const { return agent_.get(); }
  Linux::HostSources* host() const { return host_.get(); }
  // The SNMP subagent while snmp.enabled is on.
  Snmp::Subagent* snmp() const { return snmp_.get(); }
  // Where the host's names are written before the system-name override applies.
  const System::NetStatus::Ptr& hostNetStatus() const { return hostNetStatus_; }
  Summary summary() const;
  // Seconds on the scheduler's clock since start().
  double uptime() const;

 private:
  void doMountsComplete();
  void doStartHost();
  void doApplyHostSettings(const Settings* previous);
  void doApplySnmpSettings();
  void doSnmpWalking(bool walking);
  void doReady();
  void doFatal(const std::string& error);

  Platform::Scheduler& scheduler_;
  Options options_;
  Settings settings_;
  Platform::StateDb stateDb_;
  Lldp::CliConfig::Ptr cliConfig_;
  Lldp::ExternalTlvConfig::Ptr externalTlvConfig_;
  // The host writes its host name here; the mirror writes the agent's copy, with the override.
  System::NetStatus::Ptr hostNetStatus_;
  std::unique_ptr<NetStatusMirror> netStatusMirror_;
  std::unique_ptr<TxSettingsSm> txSettingsSm_;
  std::unique_ptr<Lldp::Agent::Agent> agent_;
  std::unique_ptr<Linux::HostSources> host_;
  // Before the subagent, which reports the end of a walk as it goes.
  std::unique_ptr<Linux::CpuWakeLatency> cpuWakeLatency_;
  std::unique_ptr<Snmp::Subagent> snmp_;
  std::function<void()> onReady_;
  std::function<void(const std::string&)> onFatal_;
  std::vector<std::function<void()>> onSettingsChanged_;
  std::set<std::string> unsaved_;
  double startTime_ = 0;
  bool ready_ = false;
  bool stopped_ = false;
};

// Which keys differ between two settings, as labels ("transmit-interval", "interface.eth1").
std::vector<std::string> changedKeys(const Settings& before, const Settings& after);

}  // namespace Daemon
