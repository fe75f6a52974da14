// The agent under test, its neighbours' records and a peer on the simulated wire.
#include "AgentFixture.h"

#include <cstdio>

#include "codec/LldpProtocol.h"

namespace AgentTest {

NeighbourFrame::NeighbourFrame(const Konet::EthAddr& mac, const std::string& port, uint16_t ttl) : mac_(mac) {
  std::vector<uint8_t> chassis{Lldp::chassisIdMacAddress};
  chassis.insert(chassis.end(), mac.bytes().begin(), mac.bytes().end());
  std::vector<uint8_t> portId{5};  // interface name
  portId.insert(portId.end(), port.begin(), port.end());
  tlvs_ = {{Lldp::kTlvChassisId, chassis},
           {Lldp::kTlvPortId, portId},
           {Lldp::kTlvTtl, {static_cast<uint8_t>(ttl >> 8), static_cast<uint8_t>(ttl)}}};
}

NeighbourFrame& NeighbourFrame::org(uint32_t oui, uint8_t subtype, const std::vector<uint8_t>& info) {
  std::vector<uint8_t> v{static_cast<uint8_t>(oui >> 16), static_cast<uint8_t>(oui >> 8), static_cast<uint8_t>(oui),
                         subtype};
  v.insert(v.end(), info.begin(), info.end());
  tlvs_.push_back({Lldp::kTlvOrgSpecific, v});
  return *this;
}

std::vector<uint8_t> NeighbourFrame::frame() const {
  std::vector<uint8_t> out(Lldp::kMaxLldpduSize + 14);
  std::copy(Konet::kLldpMulticast.bytes().begin(), Konet::kLldpMulticast.bytes().end(), out.begin());
  std::copy(mac_.bytes().begin(), mac_.bytes().end(), out.begin() + 6);
  out[12] = Lldp::kLldpEtherType >> 8;
  out[13] = Lldp::kLldpEtherType & 0xff;
  uint8_t* cursor = out.data() + 14;
  const uint8_t* end = out.data() + out.size();
  for (const WireTlv& t : tlvs_) {
    EXPECT_TRUE(Lldp::putTlv(cursor, end, t.type, static_cast<int>(t.info.size()), t.info.data()));
  }
  EXPECT_TRUE(Lldp::putTlv(cursor, end, Lldp::kTlvEnd, 0, nullptr));
  out.resize(static_cast<size_t>(cursor - out.data()));
  return out;
}

AgentFixture::AgentFixture() {
  previousSink = Platform::traceSinkIs(
      [this](const Platform::TraceFacility&, int, std::string_view line) { traces.emplace_back(line); });
  Platform::traceLevelsIs("LldpAgent/9,LldpProtocolSm/8,LldpNbrClassificationSm/6");
  bridging = db.entityIs<Bridging::Config>("bridging/config");
  bridging->bridgeMacAddrIs(Konet::EthAddr(0x00, 0x1c, 0x73, 0x12, 0x34, 0x56));
  hwCapabilities = db.entityIs<Bridging::HwCapabilities>("bridging/hwcapabilities");
  routing = db.entityIs<Routing::Config>("routing/config");
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
  Platform::traceLevelsIs("");
  Platform::traceSinkIs(previousSink);
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

void AgentFixture::stopAgent() {
  agent->doCleanup();
  agent.reset();
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

std::vector<WireTlv> AgentFixture::lastSent(const std::string& intf) const {
  const auto sent = wire.sentBy("dut:" + intf);
  if (sent.empty()) return {};
  const std::vector<uint8_t>& frame = sent.back().frame;
  std::vector<WireTlv> tlvs;
  const uint8_t* cursor = frame.data() + 14;
  const uint8_t* end = frame.data() + frame.size();
  int type = 0, len = 0;
  const uint8_t* info = nullptr;
  while (cursor < end && Lldp::extractTlv(cursor, end, type, len, info) && type != Lldp::kTlvEnd) {
    tlvs.push_back({type, std::vector<uint8_t>(info, info + len)});
  }
  EXPECT_EQ(type, Lldp::kTlvEnd) << "the LLDPDU on " << intf << " is not well formed";
  return tlvs;
}

std::vector<std::string> AgentFixture::managementAddressesSent(const std::string& intf) const {
  std::vector<std::string> out;
  for (const WireTlv& t : lastSent(intf)) {
    if (t.type != Lldp::kTlvManagementAddress) continue;
    const std::vector<uint8_t>& v = t.info;
    EXPECT_GE(v.size(), 9u);
    if (v.size() < 9 || v.size() < size_t(v[0]) + 7u) continue;
    const int subtype = v[1];
    const uint8_t* addr = v.data() + 2;
    const size_t addrLen = v[0] - 1u;
    char part[8];
    std::string text;
    for (size_t i = 0; i < addrLen; ++i) {
      if (subtype == 1) {
        std::snprintf(part, sizeof(part), "%s%u", i ? "." : "", addr[i]);
      } else {
        std::snprintf(part, sizeof(part), "%s%02x", i && subtype == 6 ? ":" : "", addr[i]);
      }
      text += part;
    }
    const uint8_t* ifField = addr + addrLen;
    const uint32_t ifNumber = uint32_t(ifField[1]) << 24 | ifField[2] << 16 | ifField[3] << 8 | ifField[4];
    out.push_back(text + " #" + std::to_string(ifNumber));
  }
  return out;
}

std::vector<WireTlv> AgentFixture::orgTlvsSent(const std::string& intf, uint32_t oui, int subtype) const {
  std::vector<WireTlv> out;
  for (const WireTlv& t : lastSent(intf)) {
    if (t.type == Lldp::kTlvOrgSpecific && t.oui() == oui && t.subtype() == subtype) out.push_back(t);
  }
  return out;
}

bool AgentFixture::traced(const std::string& text) const { return tracedAt(text) != std::string::npos; }

size_t AgentFixture::tracedAt(const std::string& text, size_t from) const {
  for (size_t i = from; i < traces.size(); ++i) {
    if (traces[i].find(text) != std::string::npos) return i;
  }
  return std::string::npos;
}

}  // namespace AgentTest
