// The LLDP agent: its mounts, the two-stage start-up that builds the protocol and Input roots in
// order, the standby mode, and shutdown in the reverse order.
//
// Decisions (what the start-up and accumulation rules leave open):
// - Mount modes: the PoE port statuses and the 802.1X status are read with immediate
//   notification ("ri"); the neighbour classification status is written ("w").
// - The IP and IPv6 statuses are plain read mounts; the supervisor's redundancy status is
//   mounted beside the group, per cell, at "redundancy/status" ("rf"), like the interface
//   directories.
// - Start-up path: a supervisor whose redundancy status says standby waits for its status entry
//   (made by the active supervisor's cell mirroring); every other mode creates its own entry and
//   goes on at once (see the redundancy record for the mapping).
// - handleStandbyMode: the active supervisor (standbyMode false) owns the accumulated status and
//   the cell entries, so it runs statusAccumulatorSm and standbyCellDirSm; a standby supervisor
//   runs neither, and they follow the mode when it changes. Both are created at the end of the
//   second stage, after packet access is switched on: they only read what the engines write.
// - No separate sysDescrSm: InputSm already follows the entity MIB description.
// - In the second stage the Input root, after its records, gets inputSm, the active interface
//   reactor, the neighbour classification reactor (watching this cell's status), then the
//   remote-tables clear request and 802.1X reactors. The interface status manager is owned by
//   the agent beside the protocol root; it fills the root's device directory.
// - A port status is stale when its interface is neither a local port nor a desired interface
//   once the Input reactors have synchronised.
// - Shutdown deletes, after the reactors the start-up order names, the agent-level reactors
//   (standby mirroring, accumulator, redundancy) and the Input root's remaining reactors.
// - Input paths (writable from outside): the command-line configuration, the remote-tables
//   clear request, the external TLV directory, the PoE port statuses and the 802.1X status.
#pragma once

#include <memory>
#include <string>

#include "agent/IntfStatusManagerSm.h"
#include "agent/StatusAccumulatorSm.h"
#include "platform/StateDb.h"
#include "protocol/LldpProtocolSm.h"

namespace Lldp::Agent {

namespace Input {
class Root;
}

class Agent {
 public:
  struct Options {
    std::string netNsName = "default";
  };

  Agent(std::string name, Platform::StateDb& stateDb, Protocol::PamManagerFactory pamManagerFactory,
        Options options);
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  const std::string& name() const { return name_; }
  Platform::StateDb& stateDb() const { return stateDb_; }
  const std::string& cellId() const { return stateDb_.cellId(); }

  void doInit();
  void doMountsComplete(Statedb::MountStatus mountStatus, Platform::StateDb& entityManager);
  void doMountsCompleteStep2();
  void doCleanup();

  bool standbyMode() const { return standbyMode_; }
  void standbyModeIs(bool standbyMode);
  void handleStandbyMode();
  bool mountsComplete() const { return mountsComplete_; }
  // Between the end of the second stage and shutdown.
  bool running() const { return running_; }

  // Roots and agent-level reactors.
  Protocol::Root* protocolRoot() const { return protocolRoot_.get(); }
  Input::Root* inputRoot() const { return inputRoot_.get(); }
  IntfStatusManagerSm* intfStatusManagerSm() const { return intfStatusManagerSm_.get(); }
  RedundancyStatusSm* redundancyStatusSm() const { return redundancyStatusSm_.get(); }
  StatusAccumulatorSm* statusAccumulatorSm() const { return statusAccumulatorSm_.get(); }
  StandbyCellDirSm* standbyCellDirSm() const { return standbyCellDirSm_.get(); }
  StandbyLldpStatusDirSm* standbyLldpStatusDirSm() const { return standbyLldpStatusDirSm_.get(); }

  // Mounted entities.
  const CliConfig::Ptr& cliConfig() const { return cliConfig_; }
  const RemTablesCliConfig::Ptr& remTablesCliConfig() const { return remTablesCliConfig_; }
  const RemTablesStatus::Ptr& remTablesStatus() const { return remTablesStatus_; }
  const Platform::Dir::Ptr& externalTlvs() const { return externalTlvs_; }
  const Config::Ptr& config() const { return config_; }
  const Platform::Dir::Ptr& lldpStatusDir() const { return lldpStatusDir_; }
  const Status::Ptr& lldpStatusLocal() const { return lldpStatusLocal_; }
  const Platform::Dir::Ptr& cellInfoDir() const { return cellInfoDir_; }
  const AllStatus::Ptr& allStatus() const { return allStatus_; }
  const LocalSystem::Ptr& localSystem() const { return localSystem_; }
  const EntityMib::Status::Ptr& sysDescr() const { return sysDescr_; }
  const Identity::NbrClassification::Status::Ptr& nbrClassficationStatus() const { return nbrClassficationStatus_; }

  // The mounted paths, as the daemon serves them.
  static constexpr const char* kCliConfigPath = "l2discovery/lldp/cliConfig";
  static constexpr const char* kRemTablesCliConfigPath = "l2discovery/lldp/remTablesCliConfig";
  static constexpr const char* kRemTablesStatusPath = "l2discovery/lldp/remTablesStatus";
  static constexpr const char* kExternalTlvsPath = "l2discovery/lldp/externalTlvs";
  static constexpr const char* kConfigPath = "l2discovery/lldp/config";
  static constexpr const char* kStatusLocalPath = "l2discovery/lldp/status/local";
  static constexpr const char* kCellInfoPath = "hardware/cellInfo";
  static constexpr const char* kStatusAllPath = "l2discovery/lldp/status/all";
  static constexpr const char* kLocalSystemPath = "l2discovery/lldp/localSystem";
  static constexpr const char* kBridgingConfigPath = "bridging/config";
  static constexpr const char* kBridgingHwCapabilitiesPath = "bridging/hwcapabilities";
  static constexpr const char* kIpStatusPath = "ip/status";
  static constexpr const char* kIp6StatusPath = "ip6/status";
  static constexpr const char* kRoutingConfigPath = "routing/config";
  static constexpr const char* kNetStatusPath = "sys/net/status";
  static constexpr const char* kEntMibPath = "hardware/entmib";
  static constexpr const char* kPoePortPath = "environment/power/status/poePort";
  static constexpr const char* kNbrClassificationPath = "identity/nbrClassification/status";
  static constexpr const char* kDot1xStatusPath = "identity/dot1x/status";
  static constexpr const char* kAllIntfStatusPath = "interface/status/all";
  static constexpr const char* kAllIntfStatusLocalPath = "interface/status/local";
  static constexpr const char* kEthPhyIntfStatusPath = "interface/status/eth/phy/all";
  static constexpr const char* kEthPhyIntfConfigPath = "interface/config/eth/phy/all";
  static constexpr const char* kEthLagIntfStatusPath = "interface/status/eth/lag";
  static constexpr const char* kRedundancyStatusPath = "redundancy/status";

 private:
  template <class T>
  Platform::Ptr<T> doLookup(const std::string& path) const;
  void doCleanStaleLocalPortStatus();

  std::string name_;
  Platform::StateDb& stateDb_;
  Protocol::PamManagerFactory pamManagerFactory_;
  Options options_;
  bool standbyMode_ = false;
  bool mountsComplete_ = false;
  bool running_ = false;

  CliConfig::Ptr cliConfig_;
  RemTablesCliConfig::Ptr remTablesCliConfig_;
  RemTablesStatus::Ptr remTablesStatus_;
  Platform::Dir::Ptr externalTlvs_;
  Config::Ptr config_;
  Platform::Dir::Ptr lldpStatusDir_;
  Status::Ptr lldpStatusLocal_;
  Platform::Dir::Ptr cellInfoDir_;
  AllStatus::Ptr allStatus_;
  LocalSystem::Ptr localSystem_;
  Bridging::Config::Ptr bridgingConfig_;
  Bridging::HwCapabilities::Ptr bridgingHwCapabilities_;
  Ip::Status::Ptr ipStatus_;
  Ip6::Status::Ptr ip6Status_;
  Routing::Config::Ptr routingConfig_;
  System::NetStatus::Ptr netStatus_;
  EntityMib::Status::Ptr sysDescr_;
  Platform::Dir::Ptr poePortStatusDir_;
  Identity::NbrClassification::Status::Ptr nbrClassficationStatus_;
  Identity::Dot1x::Status::Ptr dot1xStatus_;
  Interface::AllIntfStatusDir::Ptr allIntfStatusDir_;
  Interface::AllIntfStatusLocalDir::Ptr allIntfStatusLocalDir_;
  Interface::AllEthPhyIntfStatusDir::Ptr ethPhyIntfStatusDir_;
  Interface::AllEthPhyIntfConfigDir::Ptr ethPhyIntfConfigDir_;
  Interface::EthLagIntfStatusDir::Ptr ethLagIntfStatusDir_;
  Redundancy::RedundancyStatus::Ptr redundancyStatus_;
  KernelNetInfo::Status::Ptr kernelNetInfo_;

  // Declared in creation order; destroyed in reverse.
  std::unique_ptr<StandbyLldpStatusDirSm> standbyLldpStatusDirSm_;
  std::unique_ptr<Protocol::Root> protocolRoot_;
  std::unique_ptr<IntfStatusManagerSm> intfStatusManagerSm_;
  std::unique_ptr<Input::Root> inputRoot_;
  std::unique_ptr<RedundancyStatusSm> redundancyStatusSm_;
  std::unique_ptr<StatusAccumulatorSm> statusAccumulatorSm_;
  std::unique_ptr<StandbyCellDirSm> standbyCellDirSm_;
};

std::unique_ptr<Agent> agentFactory(const std::string& name, Platform::StateDb& stateDb,
                                    Protocol::PamManagerFactory pamManagerFactory, Agent::Options options = {});

}  // namespace Lldp::Agent
