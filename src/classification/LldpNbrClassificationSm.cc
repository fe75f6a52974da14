// Classification passes over changed remote tables, the shared table's upkeep, and link-down
// removal.
#include "classification/LldpNbrClassificationSm.h"

#include <vector>

#include "platform/Log.h"

namespace Lldp::Agent {

Platform::TraceFacility nbrClassificationTrace("LldpNbrClassificationSm");

namespace {

const Platform::LogHandle<uint64_t, std::string_view, std::string_view> LLDP_CLASSIFICATION_FULL(
    {"LLDP_CLASSIFICATION_FULL", Platform::Severity::warning,
     "Neighbor classification table full (%u entries): telephone %s on %s not classified",
     "The table of neighbors LLDP identified as telephones holds as many entries as it may, all of them "
     "still known to LLDP; further telephones are not classified until entries go.",
     "Look for a neighbor that sends LLDPDUs from ever-changing source addresses, or clear the neighbor "
     "tables (lldp clear neighbors).",
     60, {nullptr, "MAC_ADDRESS", "INTERFACE"}});

constexpr const char* kSetTelephone =
    "void Lldp::Agent::setTelephoneClassification(const PtrConst&, "
    "Identity::NbrClassification::Classification&)";
}  // namespace

NbrClassificationIntfSm::NbrClassificationIntfSm(Konet::IntfId intf,
                                                 Interface::EthPhyIntfStatus::PtrConst ethPhyIntfStatus,
                                                 NbrClassificationSm* owner)
    : intf_(std::move(intf)), ethPhyIntfStatus_(std::move(ethPhyIntfStatus)), owner_(owner) {
  watch<&NbrClassificationIntfSm::handleLinkStatus>(ethPhyIntfStatus_, Interface::EthPhyIntfStatus::linkStatusAttr);
}

void NbrClassificationIntfSm::handleLinkStatus() {
  TRACE(nbrClassificationTrace, 8) << "NbrClassificationIntfSm::handleLinkStatus( " << intf_ << " )";
  // Only an explicit link-down cleans up; an unknown state waits for the next pass.
  if (ethPhyIntfStatus_->linkStatus() != Interface::LinkStatus::linkDown) return;
  // The cleanup deletes this reactor: nothing may touch it afterwards.
  NbrClassificationSm* owner = owner_;
  const Konet::IntfId intf = intf_;
  owner->doNeighborClassficationCleanup(intf);
}

NbrClassificationPortSm::NbrClassificationPortSm(Konet::IntfId intf, PortStatus::PtrConst portStatus,
                                                 NbrClassificationSm* owner)
    : intf_(std::move(intf)), portStatus_(std::move(portStatus)), owner_(owner) {
  watch<&NbrClassificationPortSm::handleRemoteSystem>(portStatus_, PortStatus::remoteSystemAttr);
}

void NbrClassificationPortSm::handleRemoteSystem() { owner_->doMarkDirty(intf_); }

NbrClassificationSm::NbrClassificationSm(Status::PtrConst status,
                                         Identity::NbrClassification::Status::Ptr nbrClassficationStatus,
                                         Interface::AllEthPhyIntfStatusDir::PtrConst ethPhyIntfStatusDir,
                                         Platform::Scheduler& scheduler)
    : status_(std::move(status)), nbrClassficationStatus_(std::move(nbrClassficationStatus)),
      ethPhyIntfStatusDir_(std::move(ethPhyIntfStatusDir)), scheduler_(scheduler) {
  watch<&NbrClassificationSm::handleNbrClassification>(status_, Status::lastPacketParsedTimeAttr);
  watch<&NbrClassificationSm::handlePortStatus>(status_, Status::portStatusAttr);
}

NbrClassificationSm::~NbrClassificationSm() {
  *alive_ = false;
  nbrClassificationIntfSmDelAll();
  nbrClassificationPortSmDelAll();
}

void NbrClassificationSm::handleInitialized() {
  TRACE(nbrClassificationTrace, 8) << "NbrClassificationSm::handleInitialized()";
  for (const auto& [intf, portStatus] : status_->portStatus()) handlePortStatus(intf);
  for (const auto& [addr, neighbor] : nbrClassficationStatus_->neighbor()) addNbrClassificationIntfSm(neighbor.intfId);
  handleNbrClassification();
}

void NbrClassificationSm::handlePortStatus(const Konet::IntfId& intf) {
  if (const PortStatus::Ptr& portStatus = status_->portStatus(intf)) {
    nbrClassificationPortSmIs(intf, portStatus, this);
  } else {
    nbrClassificationPortSmDel(intf);
  }
  doMarkDirty(intf);
}

void NbrClassificationSm::doMarkDirty(const Konet::IntfId& intf) {
  dirty_.insert(intf);
  if (passPosted_) return;
  passPosted_ = true;
  scheduler_.post([this, alive = alive_] {
    if (!*alive) return;
    passPosted_ = false;
    if (!dirty_.empty()) handleNbrClassification();
  });
}

void NbrClassificationSm::handleNbrClassification() {
  TRACE(nbrClassificationTrace, 8) << "NbrClassificationSm::handleNbrClassification()";
  std::set<Konet::IntfId> ports;
  ports.swap(dirty_);
  for (const Konet::IntfId& intf : ports) {
    const PortStatus::Ptr& portStatus = status_->portStatus(intf);
    if (!portStatus) continue;
    for (auto it = portStatus->remoteSystem().begin(); it != portStatus->remoteSystem().end(); ++it) {
      classifyNeighbor(it.value(), intf);
    }
  }
  doNeighborClassficationCleanup();
}

void NbrClassificationSm::classifyNeighbor(const RemoteSystem::PtrConst& remoteSystem, const Konet::IntfId& intf) {
  // Supported is enough: a phone may not have the capability enabled yet.
  if (!remoteSystem->sysCapSupported().has(SystemCapabilitiesMap::telephone)) {
    TRACE(nbrClassificationTrace, 6) << kSetTelephone << ": " << remoteSystem->ethAddr() << " is not telephone";
    unregisterNeighbor(remoteSystem->ethAddr(), intf);
    return;
  }
  TRACE(nbrClassificationTrace, 5) << kSetTelephone << ": " << remoteSystem->ethAddr() << " is telephone";
  Neighbor neighbor;
  neighbor.ethAddr = remoteSystem->ethAddr();
  neighbor.intfId = intf;
  neighbor.classification = Classification::phone;
  neighbor.description = "Chassis ID " + remoteSystem->msap().chassisIdentifier.stringValue();
  registerNeighbor(intf, neighbor);
}

void NbrClassificationSm::registerNeighbor(const Konet::IntfId& intf, const Neighbor& neighbor) {
  if (const Neighbor* current = nbrClassficationStatus_->neighbor().find(neighbor.ethAddr)) {
    if (!(*current == neighbor)) {
      TRACE(nbrClassificationTrace, 2) << "WARNING! Neighbor change: current:" << *current << " new:" << neighbor;
      const Konet::IntfId oldIntf = current->intfId;
      nbrClassficationStatus_->neighborIs(neighbor.ethAddr, neighbor);
      if (oldIntf != intf) delNbrClassificationIntfSm(oldIntf);
    }
  } else {
    if (nbrClassficationStatus_->neighbor().size() >= kMaxNeighbors && !doMakeRoom()) {
      ++refusedNeighbors_;
      TRACE(nbrClassificationTrace, 2) << "Neighbor classification table full: " << neighbor.ethAddr << " on "
                                       << intf << " not registered";
      LLDP_CLASSIFICATION_FULL.emit(uint64_t{kMaxNeighbors}, neighbor.ethAddr.toString(), intf.name());
      return;
    }
    nbrClassficationStatus_->neighborIs(neighbor.ethAddr, neighbor);
  }
  addNbrClassificationIntfSm(intf);
}

bool NbrClassificationSm::doMakeRoom() {
  // A walk of the remote tables, one of the table to find what LLDP no longer holds, and one to
  // see which interfaces keep entries: asking per entry would walk a port's table per entry.
  std::set<std::pair<Konet::IntfId, Konet::EthAddr>> held;
  for (const auto& [intf, portStatus] : status_->portStatus()) {
    for (const auto& [index, rs] : portStatus->remoteSystem()) held.emplace(intf, rs->ethAddr());
  }
  std::vector<Konet::EthAddr> stale;
  std::set<Konet::IntfId> touched, kept;
  for (const auto& [addr, entry] : nbrClassficationStatus_->neighbor()) {
    if (held.contains({entry.intfId, addr})) continue;
    stale.push_back(addr);
    touched.insert(entry.intfId);
  }
  for (const Konet::EthAddr& addr : stale) nbrClassficationStatus_->neighborDel(addr);
  for (const auto& [addr, entry] : nbrClassficationStatus_->neighbor()) kept.insert(entry.intfId);
  for (const Konet::IntfId& intf : touched) {
    if (!kept.contains(intf)) nbrClassificationIntfSmDel(intf);
  }
  return nbrClassficationStatus_->neighbor().size() < kMaxNeighbors;
}

void NbrClassificationSm::unregisterNeighbor(const Konet::EthAddr& ethAddr, const Konet::IntfId& intf) {
  const Neighbor* current = nbrClassficationStatus_->neighbor().find(ethAddr);
  if (!current) return;
  // The entry's own interface may lose its last neighbour too (a phone seen elsewhere).
  const Konet::IntfId entryIntf = current->intfId;
  nbrClassficationStatus_->neighborDel(ethAddr);
  delNbrClassificationIntfSm(intf);
  if (entryIntf != intf) delNbrClassificationIntfSm(entryIntf);
}

bool NbrClassificationSm::lldpHasNeighbor(const Neighbor& neighbor) const {
  const PortStatus::Ptr& portStatus = status_->portStatus(neighbor.intfId);
  if (!portStatus) {
    TRACE(nbrClassificationTrace, 6) << "LLDP does not have any neighbor on port " << neighbor.intfId;
    return false;
  }
  for (const auto& [index, rs] : portStatus->remoteSystem()) {
    if (rs->ethAddr() != neighbor.ethAddr) continue;
    TRACE(nbrClassificationTrace, 6) << "LLDP has neighbor on port " << neighbor.intfId;
    return true;
  }
  TRACE(nbrClassificationTrace, 6) << "LLDP does not have neighbor with addr " << neighbor.ethAddr << " on port "
                                   << neighbor.intfId;
  return false;
}

bool NbrClassificationSm::isIntfUp(const Konet::IntfId& intf) const {
  const Interface::EthPhyIntfStatus::Ptr& phy = ethPhyIntfStatusDir_->intfStatus(intf);
  if (!phy) {
    TRACE(nbrClassificationTrace, 6) << "Could not find interface " << intf;
    return false;
  }
  TRACE(nbrClassificationTrace, 6) << "Interface " << intf << " linkStatus is " << phy->linkStatus();
  return phy->linkStatus() == Interface::LinkStatus::linkUp;
}

bool NbrClassificationSm::shouldNeighborBeRemoved(const Neighbor& neighbor) const {
  if (neighbor.classification == Classification::unclassified) {
    TRACE(nbrClassificationTrace, 6) << "Neighbor is not classified - should be removed";
    return true;
  }
  if (isIntfUp(neighbor.intfId)) return false;
  return !lldpHasNeighbor(neighbor);
}

void NbrClassificationSm::doNeighborClassficationCleanup() {
  const auto& table = nbrClassficationStatus_->neighbor();
  for (auto it = table.begin(); it != table.end(); ++it) {
    const Neighbor neighbor = it.value();
    if (shouldNeighborBeRemoved(neighbor)) unregisterNeighbor(neighbor.ethAddr, neighbor.intfId);
  }
}

void NbrClassificationSm::doNeighborClassficationCleanup(const Konet::IntfId& intf) {
  TRACE(nbrClassificationTrace, 8) << "NbrClassificationSm::doNeighborClassficationCleanup( " << intf << " )";
  const auto& table = nbrClassficationStatus_->neighbor();
  for (auto it = table.begin(); it != table.end(); ++it) {
    if (it.value().intfId != intf) continue;
    const Konet::EthAddr addr = it.key();
    unregisterNeighbor(addr, intf);
  }
}

void NbrClassificationSm::addNbrClassificationIntfSm(const Konet::IntfId& intf) {
  if (nbrClassificationIntfSmHas(intf)) return;
  nbrClassificationIntfSmIs(intf, ethPhyIntfStatusDir_->intfStatus(intf), this);
}

void NbrClassificationSm::delNbrClassificationIntfSm(const Konet::IntfId& intf) {
  if (!nbrClassificationIntfSmHas(intf)) return;
  for (const auto& [addr, neighbor] : nbrClassficationStatus_->neighbor()) {
    if (neighbor.intfId == intf) return;
  }
  nbrClassificationIntfSmDel(intf);
}

}  // namespace Lldp::Agent
