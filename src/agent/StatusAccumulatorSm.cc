// The accumulated status of both cells, the cell entries of the status directory and the
// standby mode.
#include "agent/StatusAccumulatorSm.h"

#include <algorithm>
#include <set>

#include "platform/Assert.h"

namespace Lldp::Agent {

Platform::TraceFacility lldpAgentTrace("LldpAgent");

StatusAccumulatorSm::StatusAccumulatorSm(Status::Ptr lldpStatusLocal, Platform::Dir::Ptr lldpStatusDir,
                                         AllStatus::Ptr allStatus, std::string cellId)
    : lldpStatusLocal_(std::move(lldpStatusLocal)), lldpStatusDir_(std::move(lldpStatusDir)),
      allStatus_(std::move(allStatus)), cellId_(std::move(cellId)) {
  doWatchStatus(lldpStatusLocal_);
  watch<&StatusAccumulatorSm::handlePeerLldpStatus>(lldpStatusDir_, Platform::Dir::entryAttr);
  lldpStatusRemote_ = doFindPeer();
  doWatchStatus(lldpStatusRemote_);
}

void StatusAccumulatorSm::doWatchStatus(const Status::Ptr& status) {
  if (!status) return;
  watch<&StatusAccumulatorSm::handleRemTablesInserts>(status, Status::remTablesInsertsAttr);
  watch<&StatusAccumulatorSm::handleRemTablesDeletes>(status, Status::remTablesDeletesAttr);
  watch<&StatusAccumulatorSm::handleRemTablesDrops>(status, Status::remTablesDropsAttr);
  watch<&StatusAccumulatorSm::handleRemTablesAgeouts>(status, Status::remTablesAgeoutsAttr);
  watch<&StatusAccumulatorSm::handleRemTablesLastChangeTime>(status, Status::remTablesLastChangeTimeAttr);
  watch<&StatusAccumulatorSm::handleMgmtAddrVrf>(status, Status::mgmtAddrVrfAttr);
  watch<&StatusAccumulatorSm::handleIntfId>(status, Status::portStatusAttr);
}

Status::Ptr StatusAccumulatorSm::doFindPeer() const {
  for (const auto& [name, entry] : lldpStatusDir_->entry()) {
    if (name == cellId_ || !entry) continue;
    Status::Ptr peer = Platform::ptrCast<Status>(entry);
    LLDP_ASSERT(peer);  // the directory holds only the cells' LLDP statuses
    return peer;
  }
  return {};
}

void StatusAccumulatorSm::handleInitialized() {
  TRACE(lldpAgentTrace, 8) << "StatusAccumulatorSm::handleInitialized()";
  for (auto it = allStatus_->portStatus().begin(); it != allStatus_->portStatus().end(); ++it) {
    const Konet::IntfId intf = it.key();
    if (!lldpStatusLocal_->portStatusHas(intf) && !(lldpStatusRemote_ && lldpStatusRemote_->portStatusHas(intf))) {
      allStatus_->portStatusDel(intf);
    }
  }
  handleLldpStatusRemote();
}

void StatusAccumulatorSm::handleRemTablesInserts() {
  TRACE(lldpAgentTrace, 8) << "StatusAccumulatorSm::handleRemTablesInserts()";
  allStatus_->remTablesInsertsIs(sum([](const Status& s) { return s.remTablesInserts(); }));
}

void StatusAccumulatorSm::handleRemTablesDeletes() {
  TRACE(lldpAgentTrace, 8) << "StatusAccumulatorSm::handleRemTablesDeletes()";
  allStatus_->remTablesDeletesIs(sum([](const Status& s) { return s.remTablesDeletes(); }));
}

void StatusAccumulatorSm::handleRemTablesDrops() {
  TRACE(lldpAgentTrace, 8) << "StatusAccumulatorSm::handleRemTablesDrops()";
  allStatus_->remTablesDropsIs(sum([](const Status& s) { return s.remTablesDrops(); }));
}

void StatusAccumulatorSm::handleRemTablesAgeouts() {
  TRACE(lldpAgentTrace, 8) << "StatusAccumulatorSm::handleRemTablesAgeouts()";
  allStatus_->remTablesAgeoutsIs(sum([](const Status& s) { return s.remTablesAgeouts(); }));
}

void StatusAccumulatorSm::handleRemTablesLastChangeTime() {
  TRACE(lldpAgentTrace, 8) << "StatusAccumulatorSm::handleRemTablesLastChangeTime()";
  double t = lldpStatusLocal_->remTablesLastChangeTime();
  if (lldpStatusRemote_) t = std::max(t, lldpStatusRemote_->remTablesLastChangeTime());
  allStatus_->remTablesLastChangeTimeIs(t);
}

void StatusAccumulatorSm::handleMgmtAddrVrf() {
  TRACE(lldpAgentTrace, 8) << "StatusAccumulatorSm::handleMgmtAddrVrf()";
  // The VRF is configuration, the same for both cells; the local cell's is current.
  allStatus_->mgmtAddrVrfIs(lldpStatusLocal_->mgmtAddrVrf());
}

void StatusAccumulatorSm::handleIntfId(const Konet::IntfId& intfId) {
  TRACE(lldpAgentTrace, 8) << "StatusAccumulatorSm::handleIntfId(" << intfId << ")";
  // The local cell's port status wins: it is the one this agent's engines keep current.
  if (const PortStatus::Ptr& local = lldpStatusLocal_->portStatus(intfId)) {
    allStatus_->portStatusIs(intfId, local);
    return;
  }
  if (lldpStatusRemote_) {
    if (const PortStatus::Ptr& remote = lldpStatusRemote_->portStatus(intfId)) {
      allStatus_->portStatusIs(intfId, remote);
      return;
    }
  }
  allStatus_->portStatusDel(intfId);
}

void StatusAccumulatorSm::handlePeerLldpStatus(const std::string& name) {
  TRACE(lldpAgentTrace, 8) << "StatusAccumulatorSm::handlePeerLldpStatus(" << name << ")";
  if (name == cellId_) return;
  Status::Ptr peer = doFindPeer();
  if (peer == lldpStatusRemote_) return;
  if (Status::Ptr gone = std::move(lldpStatusRemote_)) {
    unwatch(gone.get());
    for (auto it = allStatus_->portStatus().begin(); it != allStatus_->portStatus().end(); ++it) {
      if (gone->portStatus(it.key()) == it.value()) allStatus_->portStatusDel(it.key());
    }
  }
  lldpStatusRemote_ = std::move(peer);
  doWatchStatus(lldpStatusRemote_);
  handleLldpStatusRemote();
}

void StatusAccumulatorSm::handleLldpStatusRemote() {
  handleMgmtAddrVrf();
  handleRemTablesInserts();
  handleRemTablesDeletes();
  handleRemTablesDrops();
  handleRemTablesAgeouts();
  handleRemTablesLastChangeTime();
  std::set<Konet::IntfId> intfs;
  for (const auto& [intf, ps] : lldpStatusLocal_->portStatus()) intfs.insert(intf);
  if (lldpStatusRemote_) {
    for (const auto& [intf, ps] : lldpStatusRemote_->portStatus()) intfs.insert(intf);
  }
  for (const auto& [intf, ps] : allStatus_->portStatus()) intfs.insert(intf);
  for (const Konet::IntfId& intf : intfs) handleIntfId(intf);
}

StandbyCellDirSm::StandbyCellDirSm(Platform::Dir::PtrConst cellInfoDir, Platform::Dir::Ptr lldpStatusDir,
                                   std::string cellId)
    : cellInfoDir_(std::move(cellInfoDir)), lldpStatusDir_(std::move(lldpStatusDir)), cellId_(std::move(cellId)) {
  watch<&StandbyCellDirSm::handleStandbyCellDir>(cellInfoDir_, Platform::Dir::entryAttr);
}

void StandbyCellDirSm::handleInitialized() {
  std::set<std::string> names;
  for (const auto& [name, entry] : cellInfoDir_->entry()) names.insert(name);
  for (const auto& [name, entry] : lldpStatusDir_->entry()) names.insert(name);
  for (const std::string& name : names) handleStandbyCellDir(name);
}

void StandbyCellDirSm::handleStandbyCellDir(const std::string& name) {
  TRACE(lldpAgentTrace, 8) << "StandbyCellDirSm::handleStandbyCellDir(" << name << ")";
  const Platform::Ptr<Platform::Entity>& entry = cellInfoDir_->entry(name);
  if (!entry) {
    if (name == cellId_ || !lldpStatusDir_->entryHas(name)) return;
    TRACE(lldpAgentTrace, 6) << " Removing lldpStatusDir entry for cell: " << name;
    lldpStatusDir_->entryDel(name);
    return;
  }
  const auto cell = Platform::ptrCast<const Hardware::CellInfo>(entry);
  if (!cell || cell->cellType() != Hardware::CellType::supervisor) {
    TRACE(lldpAgentTrace, 6) << " Skipping lldpStatusDir for cell: " << name;
    return;
  }
  if (lldpStatusDir_->entryHas(name)) return;
  TRACE(lldpAgentTrace, 6) << " Adding lldpStatusDir entry for cell: " << name;
  lldpStatusDir_->entryIs(name, Platform::make<Status>(name));
}

StandbyLldpStatusDirSm::StandbyLldpStatusDirSm(Platform::Dir::PtrConst lldpStatusDir, std::string cellId,
                                               std::function<void()> onReady)
    : lldpStatusDir_(std::move(lldpStatusDir)), cellId_(std::move(cellId)), onReady_(std::move(onReady)) {
  watch<&StandbyLldpStatusDirSm::handleLldpStatusDirSm>(lldpStatusDir_, Platform::Dir::entryAttr);
}

void StandbyLldpStatusDirSm::handleInitialized() {
  if (lldpStatusDir_->entryHas(cellId_)) handleLldpStatusDirSm(cellId_);
}

void StandbyLldpStatusDirSm::handleLldpStatusDirSm(const std::string& name) {
  TRACE(lldpAgentTrace, 8) << "StandbyLldpStatusDirSm::handleLldpStatusDirSm( " << name;
  if (ready_ || name != cellId_) return;
  if (!Platform::ptrCast<const Status>(lldpStatusDir_->entry(name))) return;
  ready_ = true;
  onReady_();
}

RedundancyStatusSm::RedundancyStatusSm(Redundancy::RedundancyStatus::PtrConst redundancyStatus,
                                       std::function<void(bool)> standbyModeIs)
    : redundancyStatus_(std::move(redundancyStatus)), standbyModeIs_(std::move(standbyModeIs)) {
  watch<&RedundancyStatusSm::handleRedundancyStatus>(redundancyStatus_, Redundancy::RedundancyStatus::modeAttr);
}

void RedundancyStatusSm::handleRedundancyStatus() {
  TRACE(lldpAgentTrace, 8) << "RedundancyStatusSm::handleRedundancyStatus()";
  standbyModeIs_(standbyModeOf(redundancyStatus_->mode()));
}

}  // namespace Lldp::Agent
