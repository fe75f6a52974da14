// The protocol root and the reactors that keep one port engine per LLDP port and route local
// changes to the engines.
#include "platform/Assert.h"
#include "platform/Packet.h"
#include "protocol/LldpProtocolSm.h"

namespace Lldp::Agent::Protocol {

Platform::TraceFacility protocolSmTrace("LldpProtocolSm");

std::vector<Interface::FilterInstruction> lldpFilterProgram() {
  // Classic BPF opcodes: load word/half-word at an absolute offset, jump if equal, return.
  constexpr uint16_t kLdW = 0x20, kLdH = 0x28, kJeq = 0x15, kRet = 0x06;
  return {
      {kLdW, 0, 0, 2},            // 0: destination MAC bytes 2..5
      {kJeq, 0, 8, 0xc200000e},   // 1: else drop (10)
      {kLdH, 0, 0, 0},            // 2: destination MAC bytes 0..1
      {kJeq, 0, 6, 0x0180},       // 3: else drop
      {kLdH, 0, 0, 12},           // 4: EtherType or TPID
      {kJeq, 3, 0, 0x88cc},       // 5: untagged LLDP: accept (9)
      {kJeq, 0, 3, 0x8100},       // 6: one 802.1Q tag, else drop
      {kLdH, 0, 0, 16},           // 7: inner EtherType
      {kJeq, 0, 1, 0x88cc},       // 8: accept, else drop
      {kRet, 0, 0, 0xffff},       // 9: accept up to 65535 bytes
      {kRet, 0, 0, 0},            // 10: drop
  };
}

Root::Root(std::string name, Platform::Scheduler& scheduler, PamManagerFactory pamManagerFactory)
    : name_(std::move(name)), scheduler_(scheduler), pamManagerFactory_(std::move(pamManagerFactory)) {}

Root::~Root() {
  onOffSwitchSm_.reset();
  protocolSm_.reset();
  pamMan_.reset();
}

void Root::desiredIntfDirIs(const std::string& name) {
  desiredIntfDir_ = Platform::make<Interface::PamDesiredIntfDir>(name);
}

void Root::pamCollectionIs(const std::string& name) {
  pamCollection_ = Platform::make<Interface::EthDevPamCollection>(name);
}

void Root::deviceIntfStatusDirIs(const std::string& name) {
  deviceIntfStatusDir_ = Platform::make<Interface::DeviceIntfStatusDir>(name);
}

void Root::doInitializePamMan() {
  TRACE(protocolSmTrace, 8) << "Root::doInitializePamMan()";
  constexpr size_t kPerPacketData = 10236;
  Platform::PacketPool::instanceIs(kPerPacketData, 512);
  pamMan_ = pamManagerFactory_(*this);
  pamMan_->ethProtocolIs(3);
  pamMan_->separateDot1QHdrIs(true);
  pamMan_->listenAddrIs(Konet::kLldpMulticast);
  pamMan_->filterProgramIs(lldpFilterProgram());
  pamMan_->maxRxPktDataIs(kPerPacketData);
  pamMan_->sockPrioIs(7);
}

void Root::protocolSmIs() {
  protocolSm_ = Platform::makeReactor<ProtocolSm>(pamCollection_, localSystem_, this,
                                                  ethPhyIntfStatusDir_, config_, status_);
}

void Root::onOffSwitchSmIs(Platform::Ptr<const CliConfig> cliConfig, Interface::EthDevPamManager* pamMan) {
  onOffSwitchSm_ = Platform::makeReactor<OnOffSwitchSm>(std::move(cliConfig), pamMan);
}

std::unique_ptr<Root> rootFactory(const std::string& name, Platform::Scheduler& scheduler,
                                  PamManagerFactory pamManagerFactory) {
  return std::make_unique<Root>(name, scheduler, std::move(pamManagerFactory));
}

ProtocolSm::ProtocolSm(Platform::Ptr<Interface::EthDevPamCollection> pamCollection,
                       Platform::Ptr<LocalSystem> localSystem, Root* root,
                       Platform::Ptr<Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatusDir,
                       Platform::Ptr<Config> config, Platform::Ptr<Status> status)
    : pamCollection_(std::move(pamCollection)), localSystem_(std::move(localSystem)), root_(root),
      ethPhyIntfStatusDir_(std::move(ethPhyIntfStatusDir)), config_(std::move(config)),
      status_(std::move(status)) {
  watch<&ProtocolSm::handlePam>(pamCollection_, Interface::EthDevPamCollection::intfPamAttr);
  watch<&ProtocolSm::handlePam>(ethPhyIntfStatusDir_, Interface::AllEthPhyIntfStatusDir::intfStatusAttr);
  watch<&ProtocolSm::handlePam>(config_, Config::portConfigAttr);
  watch<&ProtocolSm::handlePam>(status_, Status::portStatusAttr);
  watch<&ProtocolSm::handleLocalPort>(localSystem_, LocalSystem::localPortAttr);
  watch<&ProtocolSm::handleLocalSystemAttrs>(localSystem_, LocalSystem::chassisIdentifierAttr);
  watch<&ProtocolSm::handleLocalSystemAttrs>(localSystem_, LocalSystem::sysNameAttr);
  watch<&ProtocolSm::handleLocalSystemAttrs>(localSystem_, LocalSystem::sysDescAttr);
  watch<&ProtocolSm::handleLocalSystemAttrs>(localSystem_, LocalSystem::sysCapSupportedAttr);
  watch<&ProtocolSm::handleLocalSystemAttrs>(localSystem_, LocalSystem::sysCapEnabledAttr);
  watch<&ProtocolSm::handleLocalSystemAttrs>(localSystem_, LocalSystem::managementAddressAttr);
  watch<&ProtocolSm::handleLocalSystemAttrs>(localSystem_, LocalSystem::managementAddressPrioAttr);
}

ProtocolSm::~ProtocolSm() {
  // Engines first: their doClose runs while the records they clean are still watched.
  for (auto it = lldpPamSm().begin(); it != lldpPamSm().end(); ++it) it.value()->doClose();
  lldpPamSmDelAll();
  localPortSmDelAll();
}

void ProtocolSm::handleInitialized() {
  TRACE(protocolSmTrace, 8) << "ProtocolSm::handleInitialized()";
  LLDP_ASSERT(pamCollection()->intfPams() == 0);
  for (auto it = localSystem_->localPort().begin(); it != localSystem_->localPort().end(); ++it) {
    handleLocalPort(it.key());
  }
}

void ProtocolSm::handlePam(const Konet::IntfId& intfId) {
  TRACE(protocolSmTrace, 8) << "ProtocolSm::handlePam(" << intfId << ")";
  const Platform::Ptr<Konet::Pam>& pam = pamCollection_->intfPam(intfId);
  const bool wanted = pam && ethPhyIntfStatusDir_->intfStatusHas(intfId) &&
                      config_->portConfigHas(intfId) && status_->portStatusHas(intfId);
  LldpPamSm* engine = lldpPamSm(intfId);
  // A member that changed in place (a status, a configuration) leaves the engine as it is; only a
  // new packet access mechanism (the device was reopened) makes a new engine.
  if (wanted && engine && engine->pam() == pam) return;
  if (engine) {
    engine->doClose();
    lldpPamSmDel(intfId);
  }
  if (!wanted) return;
  LLDP_ASSERT(!lldpPamSmHas( intfId ));
  lldpPamSmIs(intfId, intfId, pam, root_, root_->scheduler());
}

void ProtocolSm::handleLocalPort(const Konet::IntfId& intfId) {
  TRACE(protocolSmTrace, 8) << "ProtocolSm::handleLocalPort(" << intfId << ")";
  const LocalPort::Ptr& localPort = localSystem_->localPort(intfId);
  if (LocalPortSm* sm = localPortSm(intfId)) {
    if (sm->localPort() == localPort) return;  // changed in place: its own watches see to it
    localPortSmDel(intfId);
  }
  if (!localPort) return;
  LLDP_ASSERT(!localPortSmHas( intfId ));
  localPortSmIs(intfId, localPort, root_);
}

void ProtocolSm::handleLocalSystemAttrs() {
  TRACE(protocolSmTrace, 8) << "ProtocolSm::handleLocalSystemAttrs()";
  for (auto it = lldpPamSm().begin(); it != lldpPamSm().end(); ++it) {
    it.value()->doProcessSomethingChangedLocal();
  }
}

LocalPortPoeInfoSm::LocalPortPoeInfoSm(Platform::Ptr<const LocalPortPoeInfo> info, Konet::IntfId intfId,
                                       Root* root)
    : info_(std::move(info)), intfId_(std::move(intfId)), root_(root) {
  watch<&LocalPortPoeInfoSm::handleAttrsChanged>(info_, LocalPortPoeInfo::poePortStateAttr);
  watch<&LocalPortPoeInfoSm::handleAttrsChanged>(info_, LocalPortPoeInfo::grantedPowerAttr);
}

void LocalPortPoeInfoSm::handleAttrsChanged() {
  TRACE(protocolSmTrace, 8) << "LocalPortPoeInfoSm::handleAttrsChanged()";
  handleLocalPortAttrsChanged(root_, intfId_);
}

LocalPortSm::LocalPortSm(Platform::Ptr<const LocalPort> localPort, Root* root)
    : localPort_(std::move(localPort)), root_(root) {
  for (uint16_t attr : {LocalPort::portIdentifierIdx, LocalPort::portDescIdx, LocalPort::portVlanIdIdx,
                        LocalPort::maximumFrameSizeInfoIdx, LocalPort::linkAggregationInfoIdx}) {
    watch<&LocalPortSm::handleLocalPortAttrs>(localPort_, Platform::AttrId<void>{attr});
  }
  watch<&LocalPortSm::handleLocalPortAttrs>(localPort_, LocalPort::unknownOrgDefTlvAttr);
  watch<&LocalPortSm::handleLocalPortAttrs>(localPort_, LocalPort::localNetworkPolicyTlvAttr);
  watch<&LocalPortSm::handleLocalPortPoE>(localPort_, LocalPort::localPortPoeInfoAttr);
}

void LocalPortSm::handleInitialized() {
  TRACE(protocolSmTrace, 8) << "LocalPortSm::handleInitialized(" << localPort_->intfId() << ")";
  handleLocalPortPoE();
}

void LocalPortSm::handleLocalPortAttrs() {
  TRACE(protocolSmTrace, 8) << "LocalPortSm::handleLocalPortAttrs()";
  handleLocalPortAttrsChanged(root_, localPort_->intfId());
}

void LocalPortSm::handleLocalPortPoE() {
  if (const auto& info = localPort_->localPortPoeInfo()) {
    localPortPoeInfoSmIs(info, localPort_->intfId(), root_);
    return;
  }
  localPortPoeInfoSmDel();
}

void LocalPortSm::localPortPoeInfoSmIs(Platform::Ptr<const LocalPortPoeInfo> info, Konet::IntfId intfId,
                                       Root* root) {
  localPortPoeInfoSm_ = Platform::makeReactor<LocalPortPoeInfoSm>(std::move(info), std::move(intfId), root);
}

void handleLocalPortAttrsChanged(Root* root, const Konet::IntfId& intfId) {
  TRACE(protocolSmTrace, 8) << "handleLocalPortAttrsChanged";
  if (!root->protocolSm()) return;
  if (LldpPamSm* engine = root->protocolSm()->lldpPamSm(intfId)) engine->doProcessSomethingChangedLocal();
}

OnOffSwitchSm::OnOffSwitchSm(Platform::Ptr<const CliConfig> cliConfig, Interface::EthDevPamManager* pamMan)
    : cliConfig_(std::move(cliConfig)), pamMan_(pamMan) {
  watch<&OnOffSwitchSm::handleEnabled>(cliConfig_, CliConfig::enabledAttr);
}

OnOffSwitchSm::~OnOffSwitchSm() { doClose(); }

void OnOffSwitchSm::handleInitialized() {
  TRACE(protocolSmTrace, 8) << "OnOffSwitchSm::handleInitialized()";
  handleEnabled();
}

void OnOffSwitchSm::handleEnabled() {
  TRACE(protocolSmTrace, 8) << "OnOffSwitchSm::handleEnabled()";
  pamMan_->enabledIs(cliConfig_->enabled());
}

void OnOffSwitchSm::doClose() {
  TRACE(protocolSmTrace, 8) << "OnOffSwitchSm::doClose()";
  pamMan_->enabledIs(false);
}

}  // namespace Lldp::Agent::Protocol
