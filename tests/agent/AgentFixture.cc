// The agent under test, its neighbours' records and a peer on the simulated wire.
#include "AgentFixture.h"

namespace AgentTest {

AgentFixture::AgentFixture() {
  bridging = db.entityIs<Bridging::Config>("bridging/config");
  bridging->bridgeMacAddrIs(Konet::EthAddr(0x00, 0x1c, 0x73, 0x12, 0x34, 0x56));
  hwCapabilities = db.entityIs<Bridging::HwCapabilities>("bridging/hwcapabilities");
  db.entityIs<Routing::Config>("routing/config");
  netStatus = db.entityIs<System::NetStatus>(db.cellPath("sys/net/status"));
  netStatus->hostnameIs("leaf1");
  netStatus->domainNameIs("example.net");
  entMib = db.entityIs<EntityMib::Status>("hardware/entmib");
  entMib->valueIs("Switch OS 4.0");
  phyDir = db.entityIs<Interface::AllEthPhyIntfStatusDir>("interface/status/eth/phy/all");
  phyConfigDir = db.entityIs<Interface::AllEthPhyIntfConfigDir>("interface/config/eth/phy/all");
  intfStatusDir = db.entityIs<Interface::AllIntfStatusDir>("interface/status/all");
  lagDir = db.entityIs<Interface::EthLagIntfStatusDir>("interface/status/eth/lag");
  redundancy = db.entityIs<Redundancy::RedundancyStatus>(db.cellPath("redundancy/status"));
  statusDir = db.entityIs<Platform::Dir>("l2discovery/lldp/status/local");
  cellDir = db.entityIs<Platform::Dir>("hardware/cellInfo");
  cellDir->entryIs("1", Platform::make<Hardware::CellInfo>(1));

  peer = std::make_unique<Demo::StandaloneEngine>(
      scheduler, "peer", Konet::EthAddr(0x02, 0, 0, 0, 0, 0x99), [this](Lldp::Agent::Protocol::Root& r) {
        return std::make_unique<Platform::SimPamManager>(r.desiredIntfDir(), r.pamCollection(), r.deviceIntfStatusDir(),
                                                         r.scheduler(), wire, "peer");
      });
}

AgentFixture::~AgentFixture() {
  agent.reset();
  peer.reset();
}

void AgentFixture::addPort(const std::string& intf, int32_t ifIndex) {
  auto phy = phyDir->intfStatusIs(intf);
  phy->addrIs(Konet::EthAddr(0x00, 0x1c, 0x73, 0x12, 0x35, static_cast<uint8_t>(ifIndex)));
  phy->linkStatusIs(Interface::LinkStatus::linkUp);
  phy->forwardingModelIs(Interface::ForwardingModel::bridged);
  intfStatusDir->intfStatusIs(intf)->ifIndexIs(ifIndex);
  phyConfigDir->intfConfigIs(intf);
  peer->addPort(intf, Konet::EthAddr(0x02, 0, 0, 0, 1, static_cast<uint8_t>(ifIndex)));
  wire.link("dut:" + intf, "peer:" + intf);
}

void AgentFixture::startAgent() {
  agent = Lldp::Agent::agentFactory("LldpAgent", db, [this](Lldp::Agent::Protocol::Root& r) {
    return std::make_unique<Platform::SimPamManager>(r.desiredIntfDir(), r.pamCollection(), r.deviceIntfStatusDir(),
                                                     r.scheduler(), wire, "dut");
  });
  agent->doInit();
  scheduler.runPending();
}

Lldp::Agent::Protocol::LldpPamSm* AgentFixture::engine(const std::string& intf) const {
  if (!agent || !agent->protocolRoot() || !agent->protocolRoot()->protocolSm()) return nullptr;
  return agent->protocolRoot()->protocolSm()->lldpPamSm(intf);
}

Lldp::RemoteSystem::Ptr AgentFixture::heard(const std::string& intf) const {
  const Lldp::PortStatus::Ptr& ps = peer->status->portStatus(intf);
  if (!ps || ps->remoteSystem().empty()) return {};
  return ps->remoteSystem().begin().value();
}

}  // namespace AgentTest
