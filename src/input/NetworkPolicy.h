// LLDP-MED network policy: the policies a port advertises, answering what its neighbours ask for,
// filtered by the port's configuration.
#pragma once

#include <map>

#include "platform/Reactor.h"
#include "records/LldpRecords.h"

namespace Lldp::Agent::Input {

class Root;
class NetworkPolicySm;

namespace NetworkPolicy {

// The configuration of app on the port, or its key-0 default; false when neither exists.
bool getAppConfig(const PortConfig& portConfig, uint8_t app, NetworkPolicyConfig& out);
// Recomputes the port's advertised policies from its configuration and its neighbours' requests;
// does nothing unless all three records exist.
void doSyncLocalNetworkPolicy(const Konet::IntfId& intf, const Platform::Ptr<const PortConfig>& portConfig,
                              const Platform::Ptr<const PortStatus>& portStatus,
                              const Platform::Ptr<LocalPort>& localPort);

}  // namespace NetworkPolicy

// One port's configuration: its policies and its enabled LLDP-MED TLVs.
class NetworkPolicyPortConfigSm : public Platform::Reactor {
 public:
  NetworkPolicyPortConfigSm(Konet::IntfId intfId, Platform::Ptr<const PortConfig> portConfig,
                            NetworkPolicySm* networkPolicySm);
  void handlePortConfig();
  const Platform::Ptr<const PortConfig>& portConfig() const { return portConfig_; }

 private:
  Konet::IntfId intfId_;
  Platform::Ptr<const PortConfig> portConfig_;
  NetworkPolicySm* networkPolicySm_;
};

// One port's neighbours: their network-policy requests.
class NetworkPolicyPortStatusSm : public Platform::Reactor {
 public:
  NetworkPolicyPortStatusSm(Konet::IntfId intfId, Platform::Ptr<const PortStatus> portStatus,
                            NetworkPolicySm* networkPolicySm);
  void handleInitialized() override;
  void handleRemoteSystem(const int32_t& index);
  void handleNetworkPolicyRequest(const Konet::IntfId& intf);
  const Platform::Ptr<const PortStatus>& portStatus() const { return portStatus_; }

 private:
  // Called for any application key of one neighbour's requests.
  void handleRemoteSystemPolicy();
  // Watches the neighbour's requests, or drops the watch of one that left; true unless the
  // neighbour was watched already. The watches themselves say who is watched: a map beside them
  // would cost every neighbour a node.
  bool doWatchRemoteSystem(int32_t index);

  Konet::IntfId intfId_;
  Platform::Ptr<const PortStatus> portStatus_;
  NetworkPolicySm* networkPolicySm_;
};

// The system-wide reactor: one NetworkPolicyPortConfigSm per port configuration and one
// NetworkPolicyPortStatusSm per port status.
class NetworkPolicySm : public Platform::Reactor {
 public:
  NetworkPolicySm(Platform::Ptr<const Config> config, Platform::Ptr<const Status> status,
                  Platform::Ptr<LocalSystem> localSystem, Root* root);
  void handleInitialized() override;

  void handlePortConfig(const Konet::IntfId& intf);
  void handleNetworkPolicyConfig(const Konet::IntfId& intf);
  void handleNetworkPolicyPortStatus(const Konet::IntfId& intf);

  const Platform::Ptr<const Config>& config() const { return config_; }
  const Platform::Ptr<LocalSystem>& localSystem() const { return localSystem_; }

  PLATFORM_REACTOR_COLL(networkPolicyPortConfigSm, Konet::IntfId, NetworkPolicyPortConfigSm)
  PLATFORM_REACTOR_COLL(networkPolicyPortStatusSm, Konet::IntfId, NetworkPolicyPortStatusSm)

 private:
  Platform::Ptr<const Config> config_;
  Platform::Ptr<const Status> status_;
  Platform::Ptr<LocalSystem> localSystem_;
  Root* root_;
};

}  // namespace Lldp::Agent::Input
