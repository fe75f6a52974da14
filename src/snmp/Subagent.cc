// The subagent's session and its notification throttle.
#include "snmp/Subagent.h"

namespace Snmp {

const Platform::LogHandle<std::string_view> LLDP_SNMP_CONNECTED(
    {"LLDP_SNMP_CONNECTED", Platform::Severity::notice, "LLDP MIB registered with the SNMP master agent at %s",
     "The LLDP agent serves the LLDP MIB modules through the host's SNMP agent (AgentX).",
     Platform::kNoActionRequired, 0, {"AGENTX_SOCKET"}});
const Platform::LogHandle<std::string_view, std::string_view> LLDP_SNMP_DISCONNECTED(
    {"LLDP_SNMP_DISCONNECTED", Platform::Severity::warning,
     "LLDP MIB no longer served by the SNMP master agent at %s: %s; reconnecting",
     "The connection to the host's SNMP agent ended, typically because it restarted; the LLDP agent "
     "connects again as soon as it is back.",
     "None if the SNMP agent is being restarted; otherwise check that it runs with AgentX enabled.", 0,
     {"AGENTX_SOCKET", "REASON"}});

namespace {

// lldpRemTablesChange and the counters it carries.
const Oid kRemTablesChange{1, 0, 8802, 1, 1, 2, 0, 0, 1};
const Oid kStatsPrefix{1, 0, 8802, 1, 1, 2, 1, 2};

}  // namespace

Subagent::Subagent(Platform::Scheduler& scheduler, LldpMibRecords records, SubagentOptions options)
    : scheduler_(scheduler), options_(std::move(options)), mib_(records, options_.settings),
      notifyClock_(scheduler, [this] { handleNotifyClock(); }) {
  if (records.status) {
    watch<&Subagent::handleRemTablesLastChangeTime>(records.status, Lldp::Status::remTablesLastChangeTimeAttr);
  }
  doStartSession();
}

Subagent::~Subagent() = default;

void Subagent::doStartSession() {
  AgentxSession::Options o;
  o.socketPath = options_.socketPath;
  session_ = std::make_unique<AgentxSession>(scheduler_, mib_, o);
  session_->readyIs([this] { LLDP_SNMP_CONNECTED.emit(options_.socketPath); });
  session_->lostIs([this](const std::string& reason) { LLDP_SNMP_DISCONNECTED.emit(options_.socketPath, reason); });
  session_->walkingIs([this](bool walking) {
    if (onWalking_) onWalking_(walking);
  });
  session_->start();
}

void Subagent::optionsIs(const SubagentOptions& options) {
  if (options == options_) return;
  const bool reconnect = options.socketPath != options_.socketPath;
  options_ = options;
  mib_.data().settingsIs(options_.settings);
  if (reconnect) doStartSession();
  if (!options_.settings.notifications) {
    changePending_ = false;
    notifyClock_.timeMinIs(Platform::kNever);
  }
}

void Subagent::handleRemTablesLastChangeTime() {
  if (!options_.settings.notifications) return;
  changePending_ = true;
  // At most one notification per interval: the first change goes out at once, later ones
  // are summed into one at the end of the interval.
  const double due = lastNotifyTime_ + options_.settings.notificationInterval;
  if (scheduler_.now() >= due) {
    doNotify();
  } else if (!notifyClock_.armed()) {
    notifyClock_.timeMinIs(due);
  }
}

void Subagent::handleNotifyClock() {
  if (changePending_) doNotify();
}

void Subagent::doNotify() {
  changePending_ = false;
  lastNotifyTime_ = scheduler_.now();
  std::vector<Agentx::VarBind> objects;
  for (SubId counter = 2; counter <= 5; ++counter) {  // inserts, deletes, drops, ageouts
    Oid o = kStatsPrefix;
    o.push_back(counter);
    o.push_back(0);
    MibTree::Got got = mib_.get(o);
    if (got.value) objects.push_back({o, *got.value});
  }
  session_->notify(kRemTablesChange, objects);
}

}  // namespace Snmp
