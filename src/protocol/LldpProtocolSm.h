// The protocol engine: the root with its packet access, the reactors that keep one port engine
// per LLDP port, and the port engine itself (transmit state machine, receive, ageing).
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/Log.h"
#include "platform/PacketAccess.h"
#include "platform/Reactor.h"
#include "platform/Scheduler.h"
#include "platform/Trace.h"
#include "records/AgentRecords.h"
#include "records/LldpRecords.h"

namespace Lldp::Agent::Protocol {

class Root;
class LldpPamSm;
class LocalPortSm;

extern Platform::TraceFacility protocolSmTrace;
extern const Platform::LogHandle<std::string_view, uint64_t, double> LLDP_RX_RATELIMIT;

// Makes the packet access manager; the agent picks Linux raw sockets, tests a simulated wire.
using PamManagerFactory = std::function<std::unique_ptr<Interface::EthDevPamManager>(Root&)>;

// The 11-instruction classic socket filter: LLDP frames to 01-80-C2-00-00-0E, untagged or with
// one 802.1Q tag.
std::vector<Interface::FilterInstruction> lldpFilterProgram();

class ProtocolSm : public Platform::Reactor {
 public:
  ProtocolSm(Platform::Ptr<Interface::EthDevPamCollection> pamCollection,
             Platform::Ptr<LocalSystem> localSystem, Root* root,
             Platform::Ptr<Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatusDir,
             Platform::Ptr<Config> config, Platform::Ptr<Status> status);
  ~ProtocolSm() override;

  void handleInitialized() override;
  void handlePam(const Konet::IntfId& intfId);
  void handleLocalPort(const Konet::IntfId& intfId);
  void handleLocalSystemAttrs();

  const Platform::Ptr<Interface::EthDevPamCollection>& pamCollection() const { return pamCollection_; }

  PLATFORM_REACTOR_COLL(lldpPamSm, Konet::IntfId, LldpPamSm)
  PLATFORM_REACTOR_COLL(localPortSm, Konet::IntfId, LocalPortSm)

 private:
  Platform::Ptr<Interface::EthDevPamCollection> pamCollection_;
  Platform::Ptr<LocalSystem> localSystem_;
  Root* root_;
  Platform::Ptr<Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatusDir_;
  Platform::Ptr<Config> config_;
  Platform::Ptr<Status> status_;
};

class LocalPortPoeInfoSm : public Platform::Reactor {
 public:
  LocalPortPoeInfoSm(Platform::Ptr<const LocalPortPoeInfo> info, Konet::IntfId intfId, Root* root);
  void handleAttrsChanged();

 private:
  Platform::Ptr<const LocalPortPoeInfo> info_;
  Konet::IntfId intfId_;
  Root* root_;
};

class LocalPortSm : public Platform::Reactor {
 public:
  LocalPortSm(Platform::Ptr<const LocalPort> localPort, Root* root);
  void handleInitialized() override;
  void handleLocalPortAttrs();
  void handleLocalPortPoE();
  const Platform::Ptr<const LocalPort>& localPort() const { return localPort_; }

  LocalPortPoeInfoSm* localPortPoeInfoSm() const { return localPortPoeInfoSm_.get(); }
  void localPortPoeInfoSmIs(Platform::Ptr<const LocalPortPoeInfo> info, Konet::IntfId intfId, Root* root);
  void localPortPoeInfoSmDel() { localPortPoeInfoSm_.reset(); }

 private:
  Platform::Ptr<const LocalPort> localPort_;
  Root* root_;
  std::unique_ptr<LocalPortPoeInfoSm> localPortPoeInfoSm_;
};

class OnOffSwitchSm : public Platform::Reactor {
 public:
  OnOffSwitchSm(Platform::Ptr<const CliConfig> cliConfig, Interface::EthDevPamManager* pamMan);
  ~OnOffSwitchSm() override;
  void handleInitialized() override;
  void handleEnabled();
  void doClose();

 private:
  Platform::Ptr<const CliConfig> cliConfig_;
  Interface::EthDevPamManager* pamMan_;
};

// The single path from a local-port change to the port's engine.
void handleLocalPortAttrsChanged(Root* root, const Konet::IntfId& intfId);

class Root {
 public:
  Root(std::string name, Platform::Scheduler& scheduler, PamManagerFactory pamManagerFactory);
  ~Root();

  const std::string& name() const { return name_; }
  Platform::Scheduler& scheduler() const { return scheduler_; }

  const Platform::Ptr<Config>& config() const { return config_; }
  void configIs(Platform::Ptr<Config> config) { config_ = std::move(config); }
  const Platform::Ptr<Status>& status() const { return status_; }
  void statusIs(Platform::Ptr<Status> status) { status_ = std::move(status); }
  const Platform::Ptr<LocalSystem>& localSystem() const { return localSystem_; }
  void localSystemIs(Platform::Ptr<LocalSystem> localSystem) { localSystem_ = std::move(localSystem); }
  const Platform::Ptr<Interface::AllEthPhyIntfStatusDir>& ethPhyIntfStatusDir() const { return ethPhyIntfStatusDir_; }
  void ethPhyIntfStatusDirIs(Platform::Ptr<Interface::AllEthPhyIntfStatusDir> dir) { ethPhyIntfStatusDir_ = std::move(dir); }

  const Platform::Ptr<Interface::PamDesiredIntfDir>& desiredIntfDir() const { return desiredIntfDir_; }
  void desiredIntfDirIs(const std::string& name);
  const Platform::Ptr<Interface::EthDevPamCollection>& pamCollection() const { return pamCollection_; }
  void pamCollectionIs(const std::string& name);
  const Platform::Ptr<Interface::DeviceIntfStatusDir>& deviceIntfStatusDir() const { return deviceIntfStatusDir_; }
  void deviceIntfStatusDirIs(const std::string& name);

  // Configures the packet pool and creates and configures the packet access manager.
  void doInitializePamMan();
  Interface::EthDevPamManager* pamMan() const { return pamMan_.get(); }

  ProtocolSm* protocolSm() const { return protocolSm_.get(); }
  void protocolSmIs();
  void protocolSmDel() { protocolSm_.reset(); }
  OnOffSwitchSm* onOffSwitchSm() const { return onOffSwitchSm_.get(); }
  void onOffSwitchSmIs(Platform::Ptr<const CliConfig> cliConfig, Interface::EthDevPamManager* pamMan);
  void onOffSwitchSmDel() { onOffSwitchSm_.reset(); }

 private:
  std::string name_;
  Platform::Scheduler& scheduler_;
  PamManagerFactory pamManagerFactory_;
  Platform::Ptr<Config> config_;
  Platform::Ptr<Status> status_;
  Platform::Ptr<LocalSystem> localSystem_;
  Platform::Ptr<Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatusDir_;
  Platform::Ptr<Interface::PamDesiredIntfDir> desiredIntfDir_;
  Platform::Ptr<Interface::EthDevPamCollection> pamCollection_;
  Platform::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir_;
  std::unique_ptr<Interface::EthDevPamManager> pamMan_;
  // Destroyed before the manager: engines hold its mechanisms.
  std::unique_ptr<ProtocolSm> protocolSm_;
  std::unique_ptr<OnOffSwitchSm> onOffSwitchSm_;
};

std::unique_ptr<Root> rootFactory(const std::string& name, Platform::Scheduler& scheduler,
                                  PamManagerFactory pamManagerFactory);

enum class TxFsmState : uint8_t {
  txFsmUninitialized = 0,
  txFsmDisabled = 1,
  txFsmTxWait = 2,
  txFsmTxDelay = 3,
  txFsmIdle = 4,
  txFsmReinitializing = 5,
};
std::ostream& operator<<(std::ostream& os, TxFsmState state);

// One LLDP port: the transmit state machine, the receive path with the tag rule and the rate
// limit, and the ageing of the port's neighbours.
class LldpPamSm : public Platform::Reactor {
 public:
  static constexpr TxFsmState txFsmUninitialized() { return TxFsmState::txFsmUninitialized; }
  static constexpr TxFsmState txFsmDisabled() { return TxFsmState::txFsmDisabled; }
  static constexpr TxFsmState txFsmTxWait() { return TxFsmState::txFsmTxWait; }
  static constexpr TxFsmState txFsmTxDelay() { return TxFsmState::txFsmTxDelay; }
  static constexpr TxFsmState txFsmIdle() { return TxFsmState::txFsmIdle; }
  static constexpr TxFsmState txFsmReinitializing() { return TxFsmState::txFsmReinitializing; }

  LldpPamSm(Konet::IntfId intfId, Platform::Ptr<Konet::Pam> pam, Root* root,
            Platform::Scheduler& clock);
  ~LldpPamSm() override;

  const Konet::IntfId& intfId() const { return intfId_; }
  const Platform::Ptr<Konet::Pam>& pam() const { return pam_; }
  Root* root() const { return root_; }
  const Platform::Ptr<const Interface::EthPhyIntfStatus>& ethPhyIntfStatus() const { return ethPhyIntfStatus_; }
  const Platform::Ptr<const PortConfig>& portConfig() const { return portConfig_; }
  const Platform::Ptr<PortStatus>& portStatus() const { return portStatus_; }
  const Platform::Ptr<const LocalSystem>& localSystem() const { return localSystem_; }
  const Platform::Ptr<const LocalPort>& localPort() const { return localPort_; }
  bool initialized() const { return initialized_; }
  TxFsmState txFsmState() const { return txFsmState_; }
  TxFsmState lastTxFsmState() const { return lastTxFsmState_; }
  uint64_t rxLldpdus() const { return rxLldpdus_; }
  uint64_t rxLldpdusRateLimited() const { return rxLldpdusRateLimited_; }
  const Platform::Clock& txClock() const { return txClock_; }
  const Platform::Clock& ageClock() const { return ageClock_; }
  const Platform::Clock& rxRateLimitClock() const { return rxRateLimitClock_; }

  void handleInitialized() override;

  // Transmit side.
  void txFsmStateIs(TxFsmState state);
  void handleTxFsmState();
  void handleTxClock();
  void doCheckPortEnabled();
  void handleLinkStatus();
  void handleLinkStatusTx();
  void handleAdminStatus();
  void doProcessSomethingChangedLocal();
  void handleRemoteSystem(const int32_t& index, Platform::ChangeKind kind);
  void doSendLldpdu();
  Platform::PacketPtr doBuildLldpdu();

  // Receive side.
  void handleReadableCount();
  void handleRxKernelDrops();
  void handleRxRateLimitClock();
  void handleAgeClock();
  void handleLinkStatusRx();
  void doDeleteAllRemoteSystems();
  void doClose();

 private:
  bool txEnabled() const;
  // A link or admin change: re-check a disabled port, reinitialize an active one that went down.
  void doReactToPortChange(bool stillUp, const char* downTrace);
  bool rxEnabled() const;
  double now() const { return clock_.now(); }

  Konet::IntfId intfId_;
  Platform::Ptr<Konet::Pam> pam_;
  Root* root_;
  Platform::Scheduler& clock_;
  Platform::Clock txClock_;
  Platform::Clock ageClock_;
  Platform::Clock rxRateLimitClock_;
  Platform::Ptr<const Interface::EthPhyIntfStatus> ethPhyIntfStatus_;
  Platform::Ptr<const PortConfig> portConfig_;
  Platform::Ptr<PortStatus> portStatus_;
  Platform::Ptr<const LocalSystem> localSystem_;
  Platform::Ptr<const LocalPort> localPort_;
  TxFsmState txFsmState_ = TxFsmState::txFsmUninitialized;
  TxFsmState lastTxFsmState_ = TxFsmState::txFsmUninitialized;
  bool initialized_ = false;
  uint64_t rxLldpdus_ = 0;
  uint64_t rxLldpdusRateLimited_ = 0;
  uint64_t rxKernelDropsSeen_ = 0;  // of the mechanism's count, what the port has counted
};

}  // namespace Lldp::Agent::Protocol
