// Start-up order, configuration changes by difference, the host-name override and shutdown.
#include "daemon/Daemon.h"

#include "daemon/TxSettingsSm.h"
#include "linux/CpuWakeLatency.h"
#include "linux/HostSources.h"
#include "linux/RawSocketPam.h"
#include "platform/FeatureToggle.h"
#include "platform/Reactor.h"
#include "snmp/Subagent.h"

namespace Daemon {

const Platform::LogHandle<std::string_view, std::string_view> LLDP_CONFIG_APPLIED(
    {"LLDP_CONFIG_APPLIED", Platform::Severity::notice, "LLDP configuration from %s applied; changed: %s",
     "The LLDP agent applied a new configuration; only the settings listed changed, and neighbors were kept.",
     Platform::kNoActionRequired, 0, {"CONFIG_SOURCE", "CHANGED_KEYS"}});
const Platform::LogHandle<std::string_view, std::string_view> LLDP_CONFIG_REFUSED(
    {"LLDP_CONFIG_REFUSED", Platform::Severity::error,
     "LLDP configuration file %s refused, running configuration kept: %s",
     "The configuration file could not be read or has invalid settings; the LLDP agent goes on with the "
     "configuration it was running.",
     "Correct the file as the message says (lldp-agent --check-config shows every error), then reload.", 0,
     {"CONFIG_FILE", "CONFIG_ERROR"}});
const Platform::LogHandle<std::string_view> LLDP_CONFIG_NEEDS_RESTART(
    {"LLDP_CONFIG_NEEDS_RESTART", Platform::Severity::warning,
     "LLDP setting %s changed; it takes effect when the agent restarts",
     "The setting is read once at start-up, so the running agent keeps its previous value.",
     "Restart the LLDP agent when convenient.", 0, {"CONFIG_KEY"}});

const Platform::LogHandle<std::string_view, std::string_view> LLDP_CONFIG_UNSAVED_REPLACED(
    {"LLDP_CONFIG_UNSAVED_REPLACED", Platform::Severity::warning,
     "LLDP settings changed at run time and never saved were replaced by the file %s: %s",
     "The configuration file was read again (a reload) while settings changed through lldp configure or the "
     "state socket had not been saved to it; the file's values now run instead.",
     "Make the change again and save it with 'lldp config save', or write it into the file.", 0,
     {"CONFIG_FILE", "CHANGED_KEYS"}});
const Platform::LogHandle<std::string_view> LLDP_SNMP_FAST_WALKS_UNAVAILABLE(
    {"LLDP_SNMP_FAST_WALKS_UNAVAILABLE", Platform::Severity::info,
     "LLDP MIB walks without prompt CPU wake-ups: %s",
     "The agent could not ask the kernel to keep idle CPUs awake while the SNMP agent walks the LLDP MIB "
     "(it needs root and /dev/cpu_dma_latency); walks work, only more slowly where waking a CPU is slow.",
     "None, or set snmp.fast-walks = false to do without.", 0, {"REASON"}});

// Copies the host's names into the record the agent reads, or the operator's system name
// instead: the host sources rewrite their record on every host-name check, so the override
// cannot live there.
class NetStatusMirror : public Platform::Reactor {
 public:
  NetStatusMirror(System::NetStatus::Ptr from, System::NetStatus::Ptr to)
      : from_(std::move(from)), to_(std::move(to)) {
    watch<&NetStatusMirror::handleNames>(from_, System::NetStatus::hostnameAttr);
    watch<&NetStatusMirror::handleNames>(from_, System::NetStatus::domainNameAttr);
  }
  void handleInitialized() override { handleNames(); }
  void overrideIs(std::optional<std::string> name) {
    override_ = std::move(name);
    handleNames();
  }
  void handleNames() {
    if (override_) {
      to_->hostnameIs(*override_);
      to_->domainNameIs(std::string());
      return;
    }
    to_->hostnameIs(from_->hostname());
    to_->domainNameIs(from_->domainName());
  }

 private:
  System::NetStatus::Ptr from_;
  System::NetStatus::Ptr to_;
  std::optional<std::string> override_;
};

namespace {

constexpr const char* kMedToggle = "LldpMedToggle";

}  // namespace

LldpDaemon::LldpDaemon(Platform::Scheduler& scheduler, Options options, Settings settings)
    : scheduler_(scheduler), options_(std::move(options)), settings_(std::move(settings)),
      stateDb_(scheduler, options_.cellId) {}

LldpDaemon::~LldpDaemon() { shutdown(); }

void LldpDaemon::start() {
  startTime_ = scheduler_.now();
  Platform::featureEnabledIs(kMedToggle, settings_.lldpMed);
  // The configuration is in place before the agent mounts it, so that its first
  // synchronisation already sees the operator's settings and nothing runs on defaults first.
  cliConfig_ = stateDb_.entityIs<Lldp::CliConfig>(Lldp::Agent::Agent::kCliConfigPath);
  applyCliConfig(settings_, *cliConfig_);
  Platform::StateDb::typeIs<Lldp::ExternalTlvConfig>();
  const auto tlvDir = stateDb_.entityIs<Platform::Dir>(Lldp::Agent::Agent::kExternalTlvsPath);
  externalTlvConfig_ = Platform::make<Lldp::ExternalTlvConfig>(kConfigTlvClient);
  applyExternalTlvs(settings_, *externalTlvConfig_);
  tlvDir->entryIs(kConfigTlvClient, externalTlvConfig_);

  Lldp::Agent::Protocol::PamManagerFactory factory = options_.pamManagerFactory;
  if (!factory) {
    factory = [](Lldp::Agent::Protocol::Root& r) {
      return std::make_unique<Linux::RawSocketPamManager>(r.desiredIntfDir(), r.pamCollection(),
                                                          r.deviceIntfStatusDir(), r.scheduler());
    };
  }
  agent_ = Lldp::Agent::agentFactory("LldpAgent", stateDb_, std::move(factory));
  agent_->doInit();
  // Mount groups complete on a posted call; this one runs after it.
  scheduler_.post([this] { doMountsComplete(); });
}

void LldpDaemon::doMountsComplete() {
  if (stopped_) return;
  if (!agent_->running()) {
    doFatal("the agent did not start: this cell has no LLDP status entry");
    return;
  }
  // The agent's own references: the operator's records are the ones it mounted.
  cliConfig_ = agent_->cliConfig();
  hostNetStatus_ = Platform::make<System::NetStatus>();
  netStatusMirror_ = Platform::makeReactor<NetStatusMirror>(
      hostNetStatus_,
      stateDb_.lookup<System::NetStatus>(stateDb_.cellPath(Lldp::Agent::Agent::kNetStatusPath)));
  netStatusMirror_->overrideIs(settings_.sysName);
  txSettingsSm_ = Platform::makeReactor<TxSettingsSm>(agent_->config(), agent_->localSystem(), agent_->protocolRoot());
  doApplySnmpSettings();
  if (!options_.host) {
    doReady();
    return;
  }
  doStartHost();
}

void LldpDaemon::doStartHost() {
  using A = Lldp::Agent::Agent;
  Linux::HostRecords records;
  records.ethPhyIntfStatusDir = stateDb_.lookup<Interface::AllEthPhyIntfStatusDir>(A::kEthPhyIntfStatusPath);
  records.ethPhyIntfConfigDir = stateDb_.lookup<Interface::AllEthPhyIntfConfigDir>(A::kEthPhyIntfConfigPath);
  records.allIntfStatusDir = stateDb_.lookup<Interface::AllIntfStatusDir>(A::kAllIntfStatusPath);
  records.allIntfStatusLocalDir =
      stateDb_.lookup<Interface::AllIntfStatusLocalDir>(stateDb_.cellPath(A::kAllIntfStatusLocalPath));
  records.ethLagIntfStatusDir = stateDb_.lookup<Interface::EthLagIntfStatusDir>(A::kEthLagIntfStatusPath);
  records.bridgingConfig = stateDb_.lookup<Bridging::Config>(A::kBridgingConfigPath);
  records.bridgingHwCapabilities = stateDb_.lookup<Bridging::HwCapabilities>(A::kBridgingHwCapabilitiesPath);
  records.routingConfig = stateDb_.lookup<Routing::Config>(A::kRoutingConfigPath);
  records.ipStatus = stateDb_.lookup<Ip::Status>(A::kIpStatusPath);
  records.ip6Status = stateDb_.lookup<Ip6::Status>(A::kIp6StatusPath);
  records.kernelNetInfo = stateDb_.lookup<KernelNetInfo::Status>("kni/ns/default/status");
  records.sysDescr = agent_->sysDescr();
  records.redundancyStatus =
      stateDb_.lookup<Redundancy::RedundancyStatus>(stateDb_.cellPath(A::kRedundancyStatusPath));
  records.cellInfoDir = agent_->cellInfoDir();
  records.cellId = options_.cellId;
  records.netStatus = hostNetStatus_;

  host_ = std::make_unique<Linux::HostSources>(scheduler_, std::move(records));
  doApplyHostSettings(nullptr);
  host_->readyIs([this] { doReady(); });
  std::string error;
  if (!host_->start(error)) {
    doFatal("the kernel's interface information cannot be read: " + error);
    return;
  }
  if (host_->ready()) doReady();
}

void LldpDaemon::doApplyHostSettings(const Settings* previous) {
  const Settings& s = settings_;
  if (netStatusMirror_ && previous && previous->sysName != s.sysName) netStatusMirror_->overrideIs(s.sysName);
  if (!host_) return;
  if (!previous || previous->includeIntfs != s.includeIntfs || previous->excludeIntfs != s.excludeIntfs) {
    host_->intfSelectionIs(Linux::IntfSelection(s.includeIntfs, s.excludeIntfs));
  }
  if (!previous || previous->chassisId != s.chassisId) host_->bridgeMacAddrIs(s.chassisId);
  if (!previous || previous->sysDesc != s.sysDesc) host_->sysDescrIs(s.sysDesc);
}

void LldpDaemon::doApplySnmpSettings() {
  if (!agent_ || !agent_->running()) return;
  if (!settings_.snmpEnabled) {
    snmp_.reset();
    return;
  }
  if (!settings_.snmpFastWalks && cpuWakeLatency_) cpuWakeLatency_->promptIs(false);
  if (settings_.snmpFastWalks && !cpuWakeLatency_) {
    // Opened once and kept (it needs root, which a configured user has given up); it asks for
    // nothing until a walk.
    cpuWakeLatency_ = std::make_unique<Linux::CpuWakeLatency>();
    if (!cpuWakeLatency_->available()) LLDP_SNMP_FAST_WALKS_UNAVAILABLE.emit(cpuWakeLatency_->error());
  }
  Snmp::SubagentOptions options;
  options.socketPath = settings_.snmpAgentxSocket;
  options.settings.notifications = settings_.snmpNotifications;
  options.settings.notificationInterval = settings_.snmpNotificationInterval;
  if (snmp_) {
    snmp_->optionsIs(options);
    return;
  }
  Snmp::LldpMibRecords records;
  records.config = agent_->config();
  records.localSystem = agent_->localSystem();
  records.status = agent_->lldpStatusLocal();
  records.kernelNetInfo = stateDb_.lookup<KernelNetInfo::Status>("kni/ns/default/status");
  snmp_ = std::make_unique<Snmp::Subagent>(scheduler_, std::move(records), options);
  snmp_->walkingIs([this](bool walking) { doSnmpWalking(walking); });
}

void LldpDaemon::doSnmpWalking(bool walking) {
  if (cpuWakeLatency_) cpuWakeLatency_->promptIs(walking && settings_.snmpFastWalks);
}

void LldpDaemon::doReady() {
  if (ready_ || stopped_) return;
  ready_ = true;
  if (onReady_) onReady_();
}

void LldpDaemon::doFatal(const std::string& error) {
  if (onFatal_) onFatal_(error);
}

std::optional<ConfigError> LldpDaemon::set(std::string_view intf, std::string_view key, const ConfigValue& value) {
  Settings next = settings_;
  if (auto error = ConfigSchema::set(next, intf, key, value)) return error;
  for (std::string& changed : settingsIs(next)) unsaved_.insert(std::move(changed));
  return std::nullopt;
}

namespace {

std::optional<ConfigError> rootOnly(const Settings& now, const Settings& next, std::string_view key) {
  if (now.metricsListen == next.metricsListen && now.metricsTextfile == next.metricsTextfile &&
      now.snmpAgentxSocket == next.snmpAgentxSocket) {
    return std::nullopt;
  }
  return ConfigError{std::string(key), "only root may change where the agent writes files or listens"};
}

}  // namespace

std::optional<ConfigError> LldpDaemon::setText(std::string_view intf, std::string_view key, std::string_view text,
                                               bool byRoot) {
  Settings next = settings_;
  if (auto error = ConfigSchema::setText(next, intf, key, text)) return error;
  if (!byRoot) {
    if (auto error = rootOnly(settings_, next, key)) return error;
  }
  for (std::string& changed : settingsIs(next)) unsaved_.insert(std::move(changed));
  return std::nullopt;
}

std::optional<ConfigError> LldpDaemon::unset(std::string_view intf, std::string_view key, bool byRoot) {
  Settings next = settings_;
  if (auto error = ConfigSchema::unset(next, intf, key)) return error;
  if (!byRoot) {
    if (auto error = rootOnly(settings_, next, key)) return error;
  }
  for (std::string& changed : settingsIs(next)) unsaved_.insert(std::move(changed));
  return std::nullopt;
}

std::string LldpDaemon::save(std::string* note) {
  std::string error = saveConfigFile(options_.configPath, settings_, note);
  if (error.empty()) unsaved_.clear();
  return error;
}

bool LldpDaemon::reload(std::vector<std::string>* errors) {
  ConfigLoad load = loadConfigFile(options_.configPath, options_.missingConfigIsDefault);
  if (!load.ok()) {
    std::string joined;
    for (const std::string& e : load.errors) joined += (joined.empty() ? "" : "; ") + e;
    LLDP_CONFIG_REFUSED.emit(options_.configPath, joined);
    if (errors) *errors = std::move(load.errors);
    return false;
  }
  const std::vector<std::string> changed = settingsIs(*load.settings);
  // A reload is also how an operator retries what failed with the same settings (a metrics port
  // that was taken is free now): the listeners run even when nothing changed.
  if (changed.empty() && !stopped_) {
    for (const auto& fn : onSettingsChanged_) fn();
  }
  std::string lost;
  for (const std::string& key : changed) {
    if (unsaved_.contains(key)) lost += (lost.empty() ? "" : ", ") + key;
  }
  if (!lost.empty()) LLDP_CONFIG_UNSAVED_REPLACED.emit(options_.configPath, lost);
  unsaved_.clear();
  std::string list;
  for (const std::string& key : changed) list += (list.empty() ? "" : ", ") + key;
  LLDP_CONFIG_APPLIED.emit(options_.configPath, list.empty() ? "nothing" : list);
  return true;
}

std::vector<std::string> LldpDaemon::settingsIs(const Settings& next) {
  std::vector<std::string> changed = changedKeys(settings_, next);
  if (changed.empty()) return changed;
  const Settings previous = std::move(settings_);
  settings_ = next;
  if (previous.lldpMed != next.lldpMed) LLDP_CONFIG_NEEDS_RESTART.emit("med");
  if (stopped_) return changed;
  // The setters notify only on a real change, so the agent sees just the differences.
  if (cliConfig_) applyCliConfig(settings_, *cliConfig_);
  if (externalTlvConfig_) applyExternalTlvs(settings_, *externalTlvConfig_);
  doApplyHostSettings(&previous);
  for (const auto& fn : onSettingsChanged_) fn();
  doApplySnmpSettings();
  return changed;
}

void LldpDaemon::shutdown() {
  if (stopped_) return;
  stopped_ = true;
  // The agent first: its clean-up closes packet access before anything it reads goes away.
  // The subagent's views of its records go before it.
  snmp_.reset();
  txSettingsSm_.reset();
  if (agent_) agent_->doCleanup();
  host_.reset();
  netStatusMirror_.reset();
  agent_.reset();
}

LldpDaemon::Summary LldpDaemon::summary() const {
  Summary s;
  if (agent_ && agent_->lldpStatusLocal()) {
    const auto& portStatus = agent_->lldpStatusLocal()->portStatus();
    s.ports = portStatus.size();
    for (auto it = portStatus.begin(); it; ++it) s.neighbours += it.value()->remoteSystems();
  }
  if (host_) s.netlinkResyncs = host_->counters().netlinkResyncs;
  return s;
}

double LldpDaemon::uptime() const { return scheduler_.now() - startTime_; }

std::vector<std::string> changedKeys(const Settings& before, const Settings& after) {
  std::vector<std::string> changed;
  for (const ConfigKey& key : ConfigSchema::keys()) {
    if (key.scope != ConfigScope::global) continue;
    if (key.get(before, nullptr, {}) != key.get(after, nullptr, {})) changed.emplace_back(key.key);
  }
  for (const auto& [intf, port] : before.ports) {
    auto it = after.ports.find(intf);
    if (it == after.ports.end() || !(it->second == port)) changed.push_back("interface." + intf);
  }
  for (const auto& [intf, port] : after.ports) {
    if (!before.ports.contains(intf)) changed.push_back("interface." + intf);
  }
  return changed;
}

}  // namespace Daemon
