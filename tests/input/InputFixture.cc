// The Input root and protocol root shared by the local-information tests.
#include "InputFixture.h"

#include "codec/LldpProtocol.h"

namespace InputTest {

InputFixture::InputFixture() {
  previousSink = Platform::traceSinkIs([this](const Platform::TraceFacility&, int, std::string_view line) {
    traces.emplace_back(line);
  });
  Platform::traceLevelsIs("LldpInputSm/9");
  bridgingConfig->bridgeMacAddrIs(Konet::EthAddr(0x00, 0x1c, 0x73, 0xaa, 0xbb, 0x01));
  netStatus->hostnameIs("sw1");
  netStatus->domainNameIs("example.net");
  sysDescr->valueIs("Test switch");
}

InputFixture::~InputFixture() {
  if (inputRoot) stop();
  Platform::traceLevelsIs("");
  Platform::traceSinkIs(previousSink);
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

Lldp::RemoteSystem::PtrConst InputFixture::lastSent(const std::string& intf) const {
  const auto sent = wire.sentBy("dut:" + intf);
  if (sent.empty()) return nullptr;
  std::vector<uint8_t> frame = sent.back().frame;
  const size_t length = frame.size();
  frame.resize(length + Lldp::kRxSlack, 0);
  auto scratchStatus = Platform::make<Lldp::Status>();
  auto portStatus = Platform::make<Lldp::PortStatus>(intf, 0.0);
  auto portConfig = Platform::make<Lldp::PortConfig>(intf);
  return Lldp::processRxLldpdu(frame.data() + sizeof(Konet::EthHdr), frame.data() + length, *portConfig,
                               *scratchStatus, *portStatus, Konet::EthAddr(frame.data() + 6), scheduler.now());
}

void InputFixture::fromNeighbour(const std::string& intf, uint8_t chassis) {
  std::vector<uint8_t> f = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x00, 0x1c, 0x73, 0x00, 0x02, chassis, 0x88, 0xcc};
  auto tlv = [&f](int type, const std::string& value) {
    f.push_back(static_cast<uint8_t>(type << 1));
    f.push_back(static_cast<uint8_t>(value.size()));
    f.insert(f.end(), value.begin(), value.end());
  };
  tlv(1, std::string("\x04\x00\x1c\x73\x00\x02", 6) + char(chassis));
  tlv(2, "\x05" "Ethernet9");
  tlv(3, std::string("\x00\x78", 2));
  tlv(0, "");
  wire.inject("dut:" + intf, f);
  scheduler.runPending();
}

size_t InputFixture::tracedAt(const std::string& text) const {
  for (size_t i = 0; i < traces.size(); ++i) {
    if (traces[i].find(text) != std::string::npos) return i;
  }
  return traces.size();
}

}  // namespace InputTest
