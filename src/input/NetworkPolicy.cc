// LLDP-MED network policy: a port answers the applications its neighbours ask about with the
// policies configured for them.
#include "input/NetworkPolicy.h"

#include <set>
#include <vector>

#include "input/LldpInputSm.h"

namespace Lldp::Agent::Input {

namespace {

constexpr uint8_t kVideoApp = 6;           // its policy may make the signalling one redundant
constexpr uint8_t kVideoSignalingApp = 8;

const void* identity(const void* p) { return p; }

}  // namespace

namespace NetworkPolicy {

bool getAppConfig(const PortConfig& portConfig, uint8_t app, NetworkPolicyConfig& out) {
  if (const NetworkPolicyConfig* found = portConfig.networkPolicyConfig().find(app)) {
    out.copyFrom(*found);
    return true;
  }
  if (const NetworkPolicyConfig* fallback = portConfig.networkPolicyConfig().find(uint8_t{0})) {
    out.copyFrom(*fallback);
    return true;
  }
  return false;
}

void doSyncLocalNetworkPolicy(const Konet::IntfId& intf, const Platform::Ptr<const PortConfig>& portConfig,
                              const Platform::Ptr<const PortStatus>& portStatus,
                              const Platform::Ptr<LocalPort>& localPort) {
  TRACE(inputSmTrace, 8) << "doSyncLocalNetworkPolicy intf " << intf << " portConfig " << identity(portConfig.get())
                         << " portStatus " << identity(portStatus.get()) << " localPort "
                         << identity(localPort.get());
  if (!portConfig || !portStatus || !localPort) return;

  // Computed whole, then written as a difference: unchanged policies raise no notification.
  std::map<uint8_t, NetworkPolicyTlv> policies;
  auto apply = [&]() {
    std::vector<uint8_t> gone;
    for (auto it = localPort->localNetworkPolicyTlv().begin(); it != localPort->localNetworkPolicyTlv().end(); ++it) {
      if (!policies.count(it.key())) gone.push_back(it.key());
    }
    for (uint8_t app : gone) localPort->localNetworkPolicyTlvDel(app);
    for (const auto& [app, tlv] : policies) localPort->localNetworkPolicyTlvIs(app, tlv);
  };

  if (!portConfig->tiaEnabledTlvs().networkPolicy()) {
    TRACE(inputSmTrace, 6) << "Not adding LLDP-MED Network Policy TLV - TLV disabled in CLI for intf " << intf;
    apply();
    return;
  }
  if (!portStatus->networkPolicyTlvReceived()) {
    TRACE(inputSmTrace, 6) << "Not adding LLDP-MED Network Policy TLV - no request received in intf " << intf;
    apply();
    return;
  }
  std::set<uint8_t> requested;
  for (auto it = portStatus->remoteSystem().begin(); it != portStatus->remoteSystem().end(); ++it) {
    const RemoteSystem& rs = *it.value();
    for (auto app = rs.networkPolicyTlv().begin(); app != rs.networkPolicyTlv().end(); ++app) {
      requested.insert(app.key());
    }
  }
  for (uint8_t app : requested) {
    if (app >= 1 && app <= 5) {
      TRACE(inputSmTrace, 6) << "Skipping unsupported LLDP-MED Network Policy app " << int(app) << " in intf "
                             << intf;
      continue;
    }
    NetworkPolicyConfig config;
    if (!getAppConfig(*portConfig, app, config)) continue;
    NetworkPolicyConfig videoConfig;
    if (app == kVideoSignalingApp && getAppConfig(*portConfig, kVideoApp, videoConfig) &&
        videoConfig.equivalent(config)) {
      TRACE(inputSmTrace, 6) << "Skipping signaling application " << int(app) << " because policy " << config
                             << " equivalent to corresponding streaming application in intf " << intf;
      continue;
    }
    TRACE(inputSmTrace, 6) << "Add application " << int(app) << " to list with config " << config << " in intf "
                           << intf;
    policies[app] = config.toNetworkPolicyTlv(app);
  }
  apply();
}

}  // namespace NetworkPolicy

NetworkPolicyPortConfigSm::NetworkPolicyPortConfigSm(Konet::IntfId intfId, Platform::Ptr<const PortConfig> portConfig,
                                                     NetworkPolicySm* networkPolicySm)
    : intfId_(std::move(intfId)), portConfig_(std::move(portConfig)), networkPolicySm_(networkPolicySm) {
  watch<&NetworkPolicyPortConfigSm::handlePortConfig>(portConfig_, PortConfig::networkPolicyConfigAttr);
  watch<&NetworkPolicyPortConfigSm::handlePortConfig>(portConfig_, PortConfig::tiaEnabledTlvsAttr);
}

void NetworkPolicyPortConfigSm::handlePortConfig() { networkPolicySm_->handleNetworkPolicyConfig(intfId_); }

NetworkPolicyPortStatusSm::NetworkPolicyPortStatusSm(Konet::IntfId intfId, Platform::Ptr<const PortStatus> portStatus,
                                                     NetworkPolicySm* networkPolicySm)
    : intfId_(std::move(intfId)), portStatus_(std::move(portStatus)), networkPolicySm_(networkPolicySm) {
  watch<&NetworkPolicyPortStatusSm::handleRemoteSystem>(portStatus_, PortStatus::remoteSystemAttr);
}

void NetworkPolicyPortStatusSm::handleInitialized() {
  for (auto it = portStatus_->remoteSystem().begin(); it != portStatus_->remoteSystem().end(); ++it) {
    doWatchRemoteSystem(it.key());
  }
}

bool NetworkPolicyPortStatusSm::doWatchRemoteSystem(int32_t index) {
  const RemoteSystem::Ptr& rs = portStatus_->remoteSystem(index);
  if (rs) {
    if (watching(rs.get())) return false;
    watch<&NetworkPolicyPortStatusSm::handleRemoteSystemPolicy>(rs, RemoteSystem::networkPolicyTlvAttr);
    return true;
  }
  // A departed neighbour's watch usually ends with it; not when someone else still holds it.
  unwatchIf([this](const Platform::Entity* watched) {
    if (watched == portStatus_.get()) return false;
    for (const auto& [i, member] : portStatus_->remoteSystem()) {
      if (member.get() == watched) return false;
    }
    return true;
  });
  return true;
}

void NetworkPolicyPortStatusSm::handleRemoteSystem(const int32_t& index) {
  // A neighbour's own requests are watched directly; its arrival or departure changes the union.
  if (doWatchRemoteSystem(index)) handleNetworkPolicyRequest(intfId_);
}

void NetworkPolicyPortStatusSm::handleRemoteSystemPolicy() { handleNetworkPolicyRequest(intfId_); }

void NetworkPolicyPortStatusSm::handleNetworkPolicyRequest(const Konet::IntfId& intf) {
  TRACE(inputSmTrace, 8) << "NetworkPolicyPortStatusSm::handleNetworkPolicyRequest intf " << intf;
  const Platform::Ptr<LocalPort> localPort = networkPolicySm_->localSystem()->localPort(intf);
  const Platform::Ptr<const PortConfig> portConfig = networkPolicySm_->config()->portConfig(intf);
  NetworkPolicy::doSyncLocalNetworkPolicy(intf, portConfig, portStatus_, localPort);
}

NetworkPolicySm::NetworkPolicySm(Platform::Ptr<const Config> config, Platform::Ptr<const Status> status,
                                 Platform::Ptr<LocalSystem> localSystem, Root* root)
    : config_(std::move(config)), status_(std::move(status)), localSystem_(std::move(localSystem)), root_(root) {
  watch<&NetworkPolicySm::handlePortConfig>(config_, Config::portConfigAttr);
  watch<&NetworkPolicySm::handleNetworkPolicyPortStatus>(status_, Status::portStatusAttr);
  watch<&NetworkPolicySm::handleNetworkPolicyConfig>(localSystem_, LocalSystem::localPortAttr);
}

void NetworkPolicySm::handleInitialized() {
  for (auto it = config_->portConfig().begin(); it != config_->portConfig().end(); ++it) handlePortConfig(it.key());
  for (auto it = status_->portStatus().begin(); it != status_->portStatus().end(); ++it) {
    handleNetworkPolicyPortStatus(it.key());
  }
}

void NetworkPolicySm::handlePortConfig(const Konet::IntfId& intf) {
  const PortConfig::Ptr& portConfig = config_->portConfig(intf);
  NetworkPolicyPortConfigSm* sm = networkPolicyPortConfigSm(intf);
  if (sm && sm->portConfig() != portConfig) networkPolicyPortConfigSmDel(intf);
  if (portConfig) networkPolicyPortConfigSmIs(intf, intf, portConfig, this);
  handleNetworkPolicyConfig(intf);
}

void NetworkPolicySm::handleNetworkPolicyConfig(const Konet::IntfId& intf) {
  TRACE(inputSmTrace, 8) << "NetworkPolicyConfigSm::handleNetworkPolicyConfig intf " << intf;
  NetworkPolicy::doSyncLocalNetworkPolicy(intf, config_->portConfig(intf), status_->portStatus(intf),
                                          localSystem_->localPort(intf));
}

void NetworkPolicySm::handleNetworkPolicyPortStatus(const Konet::IntfId& intf) {
  TRACE(inputSmTrace, 8) << "NetworkPolicyConfigSm::handleNetworkPolicyPortStatus intf " << intf;
  const PortStatus::Ptr& portStatus = status_->portStatus(intf);
  NetworkPolicyPortStatusSm* sm = networkPolicyPortStatusSm(intf);
  if (sm && portStatus && sm->portStatus() != portStatus) {
    networkPolicyPortStatusSmDel(intf);  // a new record for the port: start over with it
    sm = nullptr;
  }
  if (bool(sm) == bool(portStatus)) {
    TRACE(inputSmTrace, 8) << "handleNetworkPolicyPortStatus intf " << intf << " portStatus "
                           << identity(portStatus.get()) << " config " << identity(sm) << " portConfig "
                           << identity(config_->portConfig(intf).get()) << " already present ";
    return;
  }
  if (portStatus) {
    networkPolicyPortStatusSmIs(intf, intf, portStatus, this);
    const LocalPort::Ptr& localPort = localSystem_->localPort(intf);
    const PortConfig::Ptr& portConfig = config_->portConfig(intf);
    if (localPort && portConfig) NetworkPolicy::doSyncLocalNetworkPolicy(intf, portConfig, portStatus, localPort);
    return;
  }
  networkPolicyPortStatusSmDel(intf);
}

}  // namespace Lldp::Agent::Input
