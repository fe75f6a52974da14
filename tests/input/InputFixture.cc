// The Input root and protocol root shared by the local-information tests.
#include "InputFixture.h"

#include "input/Poe.h"

#include "data/Lldpdu.h"

namespace InputTest {

InputFixture::InputFixture() {
  bridgingConfig->bridgeMacAddrIs(Konet::EthAddr(0x00, 0x1c, 0x73, 0xaa, 0xbb, 0x01));
  netStatus->hostnameIs("sw1");
  netStatus->domainNameIs("example.net");
  sysDescr->valueIs("Test switch");
}

InputFixture::~InputFixture() {
  if (inputRoot) stop();
}

void InputFixture::start(uint32_t cellId) {
  protocolRoot = Lldp::Agent::Protocol::rootFactory("protocolRoot", scheduler, [this](Lldp::Agent::Protocol::Root& r) {
    return std::make_unique<Platform::SimPamManager>(r.desiredIntfDir(), r.pamCollection(), r.deviceIntfStatusDir(),
                                                     r.scheduler(), wire, "dut");
  });
  protocolRoot->configIs(config);
  protocolRoot->statusIs(status);
  protocolRoot->localSystemIs(localSystem);
  protocolRoot->ethPhyIntfStatusDirIs(phyDir);
  protocolRoot->deviceIntfStatusDirIs("deviceIntfStatusDir");
  protocolRoot->desiredIntfDirIs("desiredIntfDir");
  protocolRoot->pamCollectionIs("pamCollection");
  protocolRoot->doInitializePamMan();
  protocolRoot->protocolSmIs();
  for (const std::string& name : devices_) deviceIs(name);

  inputRoot = Input::rootFactory("inputRoot", scheduler, cellId);
  inputRoot->localSystemIs(localSystem);
  inputRoot->configIs(config);
  inputRoot->statusIs(status);
  inputRoot->remTablesStatusIs(remTablesStatus);
  inputRoot->bridgingConfigIs(bridgingConfig);
  inputRoot->allIntfStatusDirIs(allIntfStatusDir);
  inputRoot->desiredIntfDirIs(protocolRoot->desiredIntfDir());
  inputRoot->inputSmIs(phyConfigDir, bridgingConfig, hwCapabilities, ipStatus, ip6Status, routingConfig, sysDescr,
                       externalTlvs, netStatus, cliConfig, allIntfStatusDir, inputRoot.get());
  inputRoot->activeEthIntfStatusDirSmIs(phyDir, lagDir);
  inputRoot->poeSmIs(poeDir, status, localSystem, inputRoot.get());
  inputRoot->remTablesClearRequestSmIs(remTablesCliConfig);
  inputRoot->identityDot1xStatusSmIs(dot1xStatus);
  protocolRoot->onOffSwitchSmIs(cliConfig, protocolRoot->pamMan());
  scheduler.runPending();
}

void InputFixture::stop() {
  protocolRoot->onOffSwitchSmDel();
  protocolRoot->protocolSmDel();
  inputRoot->activeEthIntfStatusDirSmDel();
  inputRoot->standbyEthIntfStatusDirSmDel();
  inputRoot->inputSmDel();
  inputRoot->poeSmDel();
  inputRoot->remTablesClearRequestSmDel();
  inputRoot.reset();
  protocolRoot.reset();
}

void InputFixture::deviceIs(const std::string& name) {
  if (!protocolRoot) return;
  const Interface::DeviceIntf device{name, 0, Konet::EthAddr(0, 0x1c, 0x73, 0, 1, 1)};
  protocolRoot->deviceIntfStatusDir()->deviceIntfIs(name, device);
}

Interface::EthPhyIntfStatus::Ptr InputFixture::addPhy(const std::string& name, ForwardingModel model) {
  devices_.push_back(name);
  deviceIs(name);
  wire.link("dut:" + name, "peer:" + name);
  auto phy = phyDir->intfStatusIs(name);
  phy->linkStatusIs(Interface::LinkStatus::linkUp);
  phy->forwardingModelIs(model);
  return phy;
}

void InputFixture::fromNeighbour(const std::string& intf, uint8_t chassis) {
  wire.inject("dut:" + intf, TestSupport::Lldpdu(Konet::EthAddr(0, 0x1c, 0x73, 0, 2, chassis), "Ethernet9", 120).frame());
  scheduler.runPending();
}

}  // namespace InputTest
