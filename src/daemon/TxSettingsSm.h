// Settings that change what an LLDPDU carries without touching the local system attributes the
// engines watch: the TLV switches, the hold time, how many management addresses go out and the
// IPv6 management address. The port engines follow only the local records, so without
// this a change made at run time would wait for the next transmit interval to reach the peer.
#pragma once

#include "platform/Reactor.h"
#include "protocol/LldpProtocolSm.h"
#include "records/LldpRecords.h"

namespace Daemon {

// One port's TLV switches: a change is a local change of that port.
class TxSettingsPortSm : public Platform::Reactor {
 public:
  TxSettingsPortSm(Lldp::PortConfig::Ptr portConfig, Lldp::Agent::Protocol::Root* root);
  void handleTlvSwitches();
  const Lldp::PortConfig::Ptr& portConfig() const { return portConfig_; }

 private:
  Lldp::PortConfig::Ptr portConfig_;
  Lldp::Agent::Protocol::Root* root_;
};

// The global settings (every port) and one TxSettingsPortSm per port configuration.
class TxSettingsSm : public Platform::Reactor {
 public:
  TxSettingsSm(Lldp::Config::Ptr config, Lldp::LocalSystem::Ptr localSystem, Lldp::Agent::Protocol::Root* root);
  void handleInitialized() override;
  void handleGlobalSetting();
  void handlePortConfig(const Konet::IntfId& intfId);

  PLATFORM_REACTOR_COLL(portSm, Konet::IntfId, TxSettingsPortSm)

 private:
  Lldp::Config::Ptr config_;
  Lldp::LocalSystem::Ptr localSystem_;
  Lldp::Agent::Protocol::Root* root_;
};

}  // namespace Daemon
