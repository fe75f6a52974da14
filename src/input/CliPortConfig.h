// Operator actions carried into the effective records: per-port command-line settings, the
// 802.1X LLDP bypass and the clearing of the neighbour tables.
#pragma once

#include "input/LldpInputSm.h"
#include "platform/Log.h"

namespace Lldp::Agent::Input {

extern const Platform::LogHandle<std::string_view, std::string_view> LLDP_REMOTE_TABLES_CLEARED;

// One port's command-line entry: its admin status, network policies and receive rate limit.
class CliPortConfigSm : public Platform::Reactor {
 public:
  CliPortConfigSm(CliPortConfig::Ptr cliPortConfig, Root* root);
  const CliPortConfig::Ptr& cliPortConfig() const { return cliPortConfig_; }
  void handleInitialized() override;
  void handleAdminStatus();
  void handleNetworkPolicyCliConfig();
  void handleRxRateLimit();

 private:
  CliPortConfig::Ptr cliPortConfig_;
  Root* root_;
};

class IdentityDot1xStatusSm : public Platform::Reactor {
 public:
  IdentityDot1xStatusSm(Identity::Dot1x::Status::Ptr dot1xStatus, Root* root);
  const Identity::Dot1x::Status::Ptr& dot1xStatus() const { return dot1xStatus_; }
  // Ports seen before this reactor existed were judged without the bypass.
  void handleInitialized() override { handleLldpBypass(); }
  void handleLldpBypass();

 private:
  Identity::Dot1x::Status::Ptr dot1xStatus_;
  Root* root_;
};

class RemTablesClearRequestSm : public Platform::Reactor {
 public:
  RemTablesClearRequestSm(RemTablesCliConfig::Ptr remTablesCliConfig, Root* root);
  void handleInitialized() override { handleRemTablesClearRequest(); }
  void handleRemTablesClearRequest();

 private:
  RemTablesCliConfig::Ptr remTablesCliConfig_;
  Root* root_;
};

}  // namespace Lldp::Agent::Input
