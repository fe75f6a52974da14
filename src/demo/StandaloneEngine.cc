// Wiring of a protocol root with hand-filled records.
#include "demo/StandaloneEngine.h"

namespace Demo {

StandaloneEngine::StandaloneEngine(Platform::Scheduler& scheduler, const std::string& name,
                                   const Konet::EthAddr& chassisMac,
                                   Lldp::Agent::Protocol::PamManagerFactory pamManagerFactory)
    : scheduler_(scheduler) {
  localSystem->chassisIdentifierIs(Lldp::ChassisIdentifier{
      Lldp::chassisIdMacAddress,
      Lldp::ChassisId(std::string_view(reinterpret_cast<const char*>(chassisMac.data()), 6))});
  localSystem->sysNameIs(name);
  localSystem->sysDescIs("lldp-agent standalone engine");
  localSystem->sysCapSupportedIs(Lldp::SystemCapabilitiesMap{0x14});
  localSystem->sysCapEnabledIs(Lldp::SystemCapabilitiesMap{0x04});
  root = Lldp::Agent::Protocol::rootFactory(name, scheduler, std::move(pamManagerFactory));
  root->configIs(config);
  root->statusIs(status);
  root->localSystemIs(localSystem);
  root->ethPhyIntfStatusDirIs(phyDir);
  root->deviceIntfStatusDirIs("deviceIntfStatusDir");
  root->desiredIntfDirIs("desiredIntfDir");
  root->pamCollectionIs("pamCollection");
  root->doInitializePamMan();
  root->protocolSmIs();
  root->onOffSwitchSmIs(cliConfig, root->pamMan());
}

StandaloneEngine::~StandaloneEngine() { root.reset(); }

void StandaloneEngine::addPort(const std::string& device, const Konet::EthAddr& mac) {
  auto phy = phyDir->intfStatusIs(device);
  phy->linkStatusIs(Interface::LinkStatus::linkUp);
  phy->addrIs(mac);
  config->portConfigIs(device)->enabledTlvsIs(Lldp::PortConfig::EnabledTlvs{0x0f});
  localSystem->localPortIs(device)->portIdentifierIs(
      Lldp::PortIdentifier{Lldp::portIdInterfaceName, Lldp::PortId(device)});
  status->portStatusIs(device, scheduler_.now());
  root->deviceIntfStatusDir()->deviceIntfIs(device, Interface::DeviceIntf{device, 0, mac});
  root->desiredIntfDir()->intfDesiredIs(device, true);
}

}  // namespace Demo
