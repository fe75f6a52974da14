// Per-port command-line settings, the 802.1X LLDP bypass and clearing the neighbour tables.
#include "input/CliPortConfig.h"

#include "input/IntfTracking.h"

namespace Lldp::Agent::Input {

const Platform::LogHandle<std::string_view, std::string_view> LLDP_REMOTE_TABLES_CLEARED(
    {"LLDP_REMOTE_TABLES_CLEARED", Platform::Severity::notice, "LLDP neighbor table cleared by %s on %s",
     "An operator cleared the table of LLDP neighbors; the neighbors are learnt again from the LLDPDUs "
     "they send next.",
     Platform::kNoActionRequired, 0, {"REQUESTER", "ORIGIN"}});

CliPortConfigSm::CliPortConfigSm(CliPortConfig::Ptr cliPortConfig, Root* root)
    : cliPortConfig_(std::move(cliPortConfig)), root_(root) {
  watch<&CliPortConfigSm::handleAdminStatus>(cliPortConfig_, CliPortConfig::adminStatusAttr);
  watch<&CliPortConfigSm::handleNetworkPolicyCliConfig>(cliPortConfig_, CliPortConfig::networkPolicyConfigAttr);
  watch<&CliPortConfigSm::handleRxRateLimit>(cliPortConfig_, CliPortConfig::rxRateLimitingEnabledAttr);
  watch<&CliPortConfigSm::handleRxRateLimit>(cliPortConfig_, CliPortConfig::rxRateLimitMaxAttr);
  watch<&CliPortConfigSm::handleRxRateLimit>(cliPortConfig_, CliPortConfig::rxRateLimitPeriodAttr);
}

void CliPortConfigSm::handleInitialized() {
  handleAdminStatus();
  handleNetworkPolicyCliConfig();
  handleRxRateLimit();
}

void CliPortConfigSm::handleAdminStatus() {
  TRACE(inputSmTrace, 8) << "CliPortConfigSm::handleAdminStatus( " << cliPortConfig_->intfId() << " )";
  const PortConfig::Ptr& portConfig = root_->config()->portConfig(cliPortConfig_->intfId());
  if (!portConfig) return;
  const Bridging::Config::Ptr& bridgingConfig =
      root_->inputSm() ? root_->inputSm()->bridgingConfig() : root_->bridgingConfig();
  portAdminStatusIs(portConfig, cliPortConfig_->adminStatus(), bridgingConfig, root_);
}

void CliPortConfigSm::handleNetworkPolicyCliConfig() {
  TRACE(inputSmTrace, 8) << "CliPortConfigSm::handleNetworkPolicyCliConfig( " << cliPortConfig_->intfId() << " )";
  const PortConfig::Ptr& portConfig = root_->config()->portConfig(cliPortConfig_->intfId());
  if (!portConfig || !root_->inputSm()) return;
  root_->inputSm()->doSyncPortConfigNetworkPolicy(portConfig);
}

void CliPortConfigSm::handleRxRateLimit() {
  TRACE(inputSmTrace, 8) << "CliPortConfigSm::handleRxRateLimit( " << cliPortConfig_->intfId() << " )";
  const PortConfig::Ptr& portConfig = root_->config()->portConfig(cliPortConfig_->intfId());
  if (!portConfig || !root_->inputSm()) return;
  root_->inputSm()->doSyncPortConfigRxRateLimit(portConfig);
}

IdentityDot1xStatusSm::IdentityDot1xStatusSm(Identity::Dot1x::Status::Ptr dot1xStatus, Root* root)
    : dot1xStatus_(std::move(dot1xStatus)), root_(root) {
  watch<&IdentityDot1xStatusSm::handleLldpBypass>(dot1xStatus_, Identity::Dot1x::Status::lldpBypassAttr);
}

void IdentityDot1xStatusSm::handleLldpBypass() {
  TRACE(inputSmTrace, 8) << "IdentityDot1xStatusSm::handleLldpBypass() " << dot1xStatus_->lldpBypass();
  const ActiveEthIntfStatusDirSm* dirSm = root_->activeEthIntfStatusDirSm();
  if (!dirSm) return;
  for (auto it = dirSm->ethPhyIntfStatusSm().begin(); it; ++it) it.value()->handleForwardingModel();
}

RemTablesClearRequestSm::RemTablesClearRequestSm(RemTablesCliConfig::Ptr remTablesCliConfig, Root* root)
    : remTablesCliConfig_(std::move(remTablesCliConfig)), root_(root) {
  watch<&RemTablesClearRequestSm::handleRemTablesClearRequest>(remTablesCliConfig_,
                                                               RemTablesCliConfig::remTablesClearRequestAttr);
}

void RemTablesClearRequestSm::handleRemTablesClearRequest() {
  const RemTablesClearRequest& request = remTablesCliConfig_->remTablesClearRequest();
  TRACE(inputSmTrace, 8) << "RemTablesClearRequestSm::handleRemTablesClearRequest() time " << request.time;
  const RemTablesStatus::Ptr& remTablesStatus = root_->remTablesStatus();
  // The last clear time survives restarts, so each request is carried out once.
  if (!(request.time > remTablesStatus->remTablesLastClearTime())) return;
  for (auto it = root_->status()->portStatus().begin(); it; ++it) {
    if (!request.intfId.empty() && it.key() != request.intfId) continue;
    it.value()->remoteSystemDelReasonIs(RemoteSystemDelReason::cleared);
    it.value()->remoteSystemDelAll();
    it.value()->remoteSystemByMsapDelAll();
  }
  remTablesStatus->remTablesLastClearTimeIs(request.time);
  LLDP_REMOTE_TABLES_CLEARED.emit(request.requester, request.origin);
}

}  // namespace Lldp::Agent::Input
