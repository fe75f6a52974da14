// The SNMP subagent of lldp-agent: the LLDP MIB modules served to the host's SNMP master agent
// over AgentX, and lldpRemTablesChange notifications, throttled to one per interval.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/Log.h"
#include "platform/Reactor.h"
#include "snmp/AgentxSession.h"
#include "snmp/LldpMib.h"

namespace Snmp {

extern const Platform::LogHandle<std::string_view> LLDP_SNMP_CONNECTED;
extern const Platform::LogHandle<std::string_view, std::string_view> LLDP_SNMP_DISCONNECTED;

struct SubagentOptions {
  std::string socketPath = "/var/agentx/master";
  LldpMibSettings settings;
  bool operator==(const SubagentOptions&) const = default;
};

class Subagent : public Platform::Reactor {
 public:
  Subagent(Platform::Scheduler& scheduler, LldpMibRecords records, SubagentOptions options);
  ~Subagent() override;

  // Applies changed options: notification settings at once, a new socket by reconnecting.
  void optionsIs(const SubagentOptions& options);
  const SubagentOptions& options() const { return options_; }
  // Called with true while the master walks the MIB and false after (AgentxSession::walkingIs).
  void walkingIs(std::function<void(bool)> fn) { onWalking_ = std::move(fn); }
  LldpMib& mib() { return mib_; }
  AgentxSession& session() { return *session_; }

 private:
  void handleRemTablesLastChangeTime();
  void handleNotifyClock();
  void doNotify();
  void doStartSession();

  Platform::Scheduler& scheduler_;
  SubagentOptions options_;
  LldpMib mib_;
  // Before the session: a session that ends while the subagent is destroyed still reports it.
  std::function<void(bool)> onWalking_;
  std::unique_ptr<AgentxSession> session_;
  Platform::Clock notifyClock_;
  double lastNotifyTime_ = -1e18;
  bool changePending_ = false;
};

}  // namespace Snmp
