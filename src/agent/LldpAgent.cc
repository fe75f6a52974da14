// Agent start-up (mounts, the two paths to the second stage, the second stage in order), the
// standby mode, the clean-up of stale port statuses and shutdown.
#include "agent/LldpAgent.h"

#include <cstdlib>

#include "classification/LldpNbrClassificationSm.h"
#include "input/LldpInputSm.h"
#include "platform/Assert.h"

namespace Lldp::Agent {

Agent::Agent(std::string name, Platform::StateDb& stateDb, Protocol::PamManagerFactory pamManagerFactory,
             Options options)
    : name_(std::move(name)), stateDb_(stateDb), pamManagerFactory_(std::move(pamManagerFactory)),
      options_(std::move(options)) {}

Agent::~Agent() {
  doCleanup();
  inputRoot_.reset();
  intfStatusManagerSm_.reset();
  protocolRoot_.reset();
}

std::unique_ptr<Agent> agentFactory(const std::string& name, Platform::StateDb& stateDb,
                                    Protocol::PamManagerFactory pamManagerFactory, Agent::Options options) {
  return std::make_unique<Agent>(name, stateDb, std::move(pamManagerFactory), std::move(options));
}

void Agent::doInit() {
  TRACE(lldpAgentTrace, 8) << "Agent::doInit()";
  // Entries of directories resolve by path once their types are known.
  Platform::StateDb::typeIs<Status>();
  Platform::StateDb::typeIs<ExternalTlvConfig>();
  Platform::StateDb::typeIs<Environment::Power::PoePortStatus>();
  Platform::StateDb::typeIs<Hardware::CellInfo>();
  auto group = stateDb_.mountGroup();
  group.mount<CliConfig>(kCliConfigPath, "r")
      .mount<RemTablesCliConfig>(kRemTablesCliConfigPath, "r")
      .mount<RemTablesStatus>(kRemTablesStatusPath, "wf")
      .mount<Platform::Dir>(kExternalTlvsPath, "ri")
      .mount<Config>(kConfigPath, "w")
      .mount<Platform::Dir>(kStatusLocalPath, "wif")
      .mount<Platform::Dir>(kCellInfoPath, "r")
      .mount<AllStatus>(kStatusAllPath, "w")
      .mount<LocalSystem>(kLocalSystemPath, "wi")
      .mount<Bridging::Config>(kBridgingConfigPath, "r")
      .mount<Bridging::HwCapabilities>(kBridgingHwCapabilitiesPath, "r")
      .mount<Ip::Status>(kIpStatusPath, "r")
      .mount<Ip6::Status>(kIp6StatusPath, "r")
      .mount<Routing::Config>(kRoutingConfigPath, "r")
      .mount<System::NetStatus>(kNetStatusPath, "rf")
      .mount<EntityMib::Status>(kEntMibPath, "ri")
      .mount<Platform::Dir>(kPoePortPath, "ri")
      .mount<Identity::NbrClassification::Status>(kNbrClassificationPath, "w")
      .mount<Identity::Dot1x::Status>(kDot1xStatusPath, "ri");
  stateDb_.mountIs<Interface::AllIntfStatusDir>(kAllIntfStatusPath, "r");
  stateDb_.mountIs<Interface::AllIntfStatusLocalDir>(stateDb_.cellPath(kAllIntfStatusLocalPath), "rf");
  stateDb_.mountIs<Interface::AllEthPhyIntfStatusDir>(kEthPhyIntfStatusPath, "r");
  stateDb_.mountIs<Interface::AllEthPhyIntfConfigDir>(kEthPhyIntfConfigPath, "r");
  stateDb_.mountIs<Interface::EthLagIntfStatusDir>(kEthLagIntfStatusPath, "r");
  stateDb_.mountIs<Redundancy::RedundancyStatus>(stateDb_.cellPath(kRedundancyStatusPath), "rf");
  for (const char* input : {kCliConfigPath, kRemTablesCliConfigPath, kExternalTlvsPath, kPoePortPath,
                            kDot1xStatusPath}) {
    stateDb_.inputIs(input);
  }
  group.close([this](Statedb::MountStatus status, Platform::StateDb& db) { doMountsComplete(status, db); });
}

template <class T>
Platform::Ptr<T> Agent::doLookup(const std::string& path) const {
  Platform::Ptr<T> e = stateDb_.lookup<T>(path);
  LLDP_ASSERT(e);  // every path was mounted with this type
  return e;
}

void Agent::doMountsComplete(Statedb::MountStatus mountStatus, Platform::StateDb& entityManager) {
  TRACE(lldpAgentTrace, 8) << "Agent::doMountsComplete()";
  LLDP_ASSERT(mountStatus == Statedb::mountSuccess_);
  (void)entityManager;  // the same database the agent was made with
  mountsComplete_ = true;
  cliConfig_ = doLookup<CliConfig>(kCliConfigPath);
  remTablesCliConfig_ = doLookup<RemTablesCliConfig>(kRemTablesCliConfigPath);
  remTablesStatus_ = doLookup<RemTablesStatus>(stateDb_.cellPath(kRemTablesStatusPath));
  externalTlvs_ = doLookup<Platform::Dir>(kExternalTlvsPath);
  config_ = doLookup<Config>(kConfigPath);
  lldpStatusDir_ = doLookup<Platform::Dir>(kStatusLocalPath);
  cellInfoDir_ = doLookup<Platform::Dir>(kCellInfoPath);
  allStatus_ = doLookup<AllStatus>(kStatusAllPath);
  localSystem_ = doLookup<LocalSystem>(kLocalSystemPath);
  bridgingConfig_ = doLookup<Bridging::Config>(kBridgingConfigPath);
  bridgingHwCapabilities_ = doLookup<Bridging::HwCapabilities>(kBridgingHwCapabilitiesPath);
  ipStatus_ = doLookup<Ip::Status>(kIpStatusPath);
  ip6Status_ = doLookup<Ip6::Status>(kIp6StatusPath);
  routingConfig_ = doLookup<Routing::Config>(kRoutingConfigPath);
  netStatus_ = doLookup<System::NetStatus>(stateDb_.cellPath(kNetStatusPath));
  sysDescr_ = doLookup<EntityMib::Status>(kEntMibPath);
  poePortStatusDir_ = doLookup<Platform::Dir>(kPoePortPath);
  nbrClassficationStatus_ = doLookup<Identity::NbrClassification::Status>(kNbrClassificationPath);
  dot1xStatus_ = doLookup<Identity::Dot1x::Status>(kDot1xStatusPath);
  allIntfStatusDir_ = doLookup<Interface::AllIntfStatusDir>(kAllIntfStatusPath);
  allIntfStatusLocalDir_ = doLookup<Interface::AllIntfStatusLocalDir>(stateDb_.cellPath(kAllIntfStatusLocalPath));
  ethPhyIntfStatusDir_ = doLookup<Interface::AllEthPhyIntfStatusDir>(kEthPhyIntfStatusPath);
  ethPhyIntfConfigDir_ = doLookup<Interface::AllEthPhyIntfConfigDir>(kEthPhyIntfConfigPath);
  ethLagIntfStatusDir_ = doLookup<Interface::EthLagIntfStatusDir>(kEthLagIntfStatusPath);
  redundancyStatus_ = doLookup<Redundancy::RedundancyStatus>(stateDb_.cellPath(kRedundancyStatusPath));
  const std::string kniPath = "kni/ns/" + options_.netNsName + "/status";
  kernelNetInfo_ = stateDb_.mountIs<KernelNetInfo::Status>(kniPath, "r");
  LLDP_ASSERT(kernelNetInfo_);

  standbyMode_ = RedundancyStatusSm::standbyModeOf(redundancyStatus_->mode());
  if (standbyMode_) {
    // The active supervisor makes this cell's entry; the second stage waits for it.
    standbyLldpStatusDirSm_ = Platform::makeReactor<StandbyLldpStatusDirSm>(lldpStatusDir_, cellId(),
                                                                            [this] { doMountsCompleteStep2(); });
    return;
  }
  if (!lldpStatusDir_->entryHas(cellId())) {
    TRACE(lldpAgentTrace, 6) << " Creating lldpStatusDir entry for cell: " << cellId();
    lldpStatusDir_->entryIs(cellId(), Platform::make<Status>(cellId()));
  }
  doMountsCompleteStep2();
}

void Agent::doMountsCompleteStep2() {
  TRACE(lldpAgentTrace, 8) << "Agent::doMountsCompleteStep2()";
  lldpStatusLocal_ = Platform::ptrCast<Status>(lldpStatusDir_->entry(cellId()));
  LLDP_ASSERT(lldpStatusLocal_);
  Platform::Scheduler& scheduler = stateDb_.scheduler();

  // 1. The protocol root: device directory, interface status manager, desired interfaces,
  //    packet access, then the protocol state machine.
  protocolRoot_ = Protocol::rootFactory("protocolRoot", scheduler, pamManagerFactory_);
  protocolRoot_->configIs(config_);
  protocolRoot_->statusIs(lldpStatusLocal_);
  protocolRoot_->localSystemIs(localSystem_);
  protocolRoot_->ethPhyIntfStatusDirIs(ethPhyIntfStatusDir_);
  protocolRoot_->deviceIntfStatusDirIs("deviceIntfStatusDir");
  intfStatusManagerSm_ = Platform::makeReactor<IntfStatusManagerSm>(
      ethPhyIntfStatusDir_, allIntfStatusDir_, kernelNetInfo_, protocolRoot_->deviceIntfStatusDir(),
      options_.netNsName);
  protocolRoot_->desiredIntfDirIs("desiredIntfDir");
  protocolRoot_->pamCollectionIs("pamCollection");
  protocolRoot_->doInitializePamMan();
  protocolRoot_->protocolSmIs();

  // 2. The Input root with its records, then its reactors.
  inputRoot_ = Input::rootFactory("inputRoot", scheduler,
                                  static_cast<uint32_t>(std::strtoul(cellId().c_str(), nullptr, 10)));
  inputRoot_->localSystemIs(localSystem_);
  inputRoot_->configIs(config_);
  inputRoot_->statusIs(lldpStatusLocal_);
  inputRoot_->remTablesStatusIs(remTablesStatus_);
  inputRoot_->bridgingConfigIs(bridgingConfig_);
  inputRoot_->allIntfStatusDirIs(allIntfStatusDir_);
  inputRoot_->desiredIntfDirIs(protocolRoot_->desiredIntfDir());
  inputRoot_->inputSmIs(ethPhyIntfConfigDir_, bridgingConfig_, bridgingHwCapabilities_, ipStatus_, ip6Status_,
                        routingConfig_, sysDescr_, externalTlvs_, netStatus_, cliConfig_, allIntfStatusDir_,
                        inputRoot_.get());
  inputRoot_->activeEthIntfStatusDirSmIs(ethPhyIntfStatusDir_, ethLagIntfStatusDir_);
  inputRoot_->nbrClassificationSmIs(lldpStatusLocal_, nbrClassficationStatus_, ethPhyIntfStatusDir_, scheduler);
  inputRoot_->remTablesClearRequestSmIs(remTablesCliConfig_);
  inputRoot_->identityDot1xStatusSmIs(dot1xStatus_);

  // 3. The redundancy reactor; 4. the standby interface reactor; 5. packet access, last.
  redundancyStatusSm_ = Platform::makeReactor<RedundancyStatusSm>(redundancyStatus_,
                                                                     [this](bool standby) { standbyModeIs(standby); });
  inputRoot_->standbyEthIntfStatusDirSmIs(ethPhyIntfStatusDir_);
  protocolRoot_->onOffSwitchSmIs(cliConfig_, protocolRoot_->pamMan());

  // 6. Port statuses of an earlier run for interfaces no longer tracked.
  doCleanStaleLocalPortStatus();
  running_ = true;
  handleStandbyMode();
}

void Agent::doCleanStaleLocalPortStatus() {
  LLDP_ASSERT(lldpStatusLocal());
  const auto& portStatus = lldpStatusLocal()->portStatus();
  for (auto i = portStatus.begin(); i != portStatus.end(); ++i) {
    LLDP_ASSERT(Lldp::Agent::Input::lldpCapable( i.key() ));
    if (localSystem_->localPortHas(i.key()) || protocolRoot_->desiredIntfDir()->intfDesiredHas(i.key())) continue;
    TRACE(lldpAgentTrace, 6) << " Deleting lldpStatusLocal()->portStatus entry for: " << i.key();
    const Konet::IntfId intf = i.key();
    lldpStatusLocal()->portStatusDel(intf);
  }
}

void Agent::standbyModeIs(bool standbyMode) {
  if (standbyMode == standbyMode_) return;
  standbyMode_ = standbyMode;
  handleStandbyMode();
}

void Agent::handleStandbyMode() {
  TRACE(lldpAgentTrace, 8) << "Agent::handleStandbyMode() standbyMode: " << standbyMode_;
  if (!running()) return;  // the second stage evaluates the mode when it gets there
  if (standbyMode_) {
    statusAccumulatorSm_.reset();
    standbyCellDirSm_.reset();
    return;
  }
  if (!standbyCellDirSm_) {
    standbyCellDirSm_ = Platform::makeReactor<StandbyCellDirSm>(cellInfoDir_, lldpStatusDir_, cellId());
  }
  if (!statusAccumulatorSm_) {
    statusAccumulatorSm_ =
        Platform::makeReactor<StatusAccumulatorSm>(lldpStatusLocal_, lldpStatusDir_, allStatus_, cellId());
  }
}

void Agent::doCleanup() {
  TRACE(lldpAgentTrace, 8) << "Agent::doCleanup()";
  if (protocolRoot_) {
    protocolRoot_->onOffSwitchSmDel();
    protocolRoot_->protocolSmDel();
  }
  if (inputRoot_) {
    inputRoot_->activeEthIntfStatusDirSmDel();
    inputRoot_->standbyEthIntfStatusDirSmDel();
    inputRoot_->inputSmDel();
    inputRoot_->remTablesClearRequestSmDel();
    inputRoot_->identityDot1xStatusSmDel();
    inputRoot_->nbrClassificationSmDel();
    inputRoot_->poeSmDel();
    inputRoot_->networkPolicySmDel();
  }
  standbyCellDirSm_.reset();
  statusAccumulatorSm_.reset();
  redundancyStatusSm_.reset();
  standbyLldpStatusDirSm_.reset();
  running_ = false;
}

}  // namespace Lldp::Agent
