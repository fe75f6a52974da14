// Status accumulation and standby mirroring: the accumulated status of both supervisor cells,
// the per-cell entries of the status directory, and the agent's standby mode.
#pragma once

#include <functional>
#include <string>

#include "platform/Reactor.h"
#include "platform/StateDb.h"
#include "platform/Trace.h"
#include "records/AgentRecords.h"
#include "records/LldpRecords.h"

namespace Lldp::Agent {

extern Platform::TraceFacility lldpAgentTrace;

// Sums the table counters of the local and the peer cell into the accumulated status and lists
// the port statuses of both.
class StatusAccumulatorSm : public Platform::Reactor {
 public:
  StatusAccumulatorSm(Status::Ptr lldpStatusLocal, Platform::Dir::Ptr lldpStatusDir, AllStatus::Ptr allStatus,
                      std::string cellId);

  void handleInitialized() override;
  void handleRemTablesInserts();
  void handleRemTablesDeletes();
  void handleRemTablesDrops();
  void handleRemTablesAgeouts();
  void handleRemTablesLastChangeTime();
  void handleMgmtAddrVrf();
  void handleIntfId(const Konet::IntfId& intfId);
  void handlePeerLldpStatus(const std::string& name);
  void handleLldpStatusRemote();

  const Status::Ptr& lldpStatusLocal() const { return lldpStatusLocal_; }
  const Status::Ptr& lldpStatusRemote() const { return lldpStatusRemote_; }
  const AllStatus::Ptr& allStatus() const { return allStatus_; }

 private:
  void doWatchStatus(const Status::Ptr& status);
  // The peer's status, if any other cell's entry in the directory is one.
  Status::Ptr doFindPeer() const;
  template <class Get>
  uint32_t sum(Get get) const {
    return get(*lldpStatusLocal_) + (lldpStatusRemote_ ? get(*lldpStatusRemote_) : 0u);
  }

  Status::Ptr lldpStatusLocal_;
  Status::Ptr lldpStatusRemote_;
  Platform::Dir::Ptr lldpStatusDir_;
  AllStatus::Ptr allStatus_;
  std::string cellId_;
};

// On the active supervisor: one status entry per supervisor cell of the cell directory.
class StandbyCellDirSm : public Platform::Reactor {
 public:
  StandbyCellDirSm(Platform::Dir::PtrConst cellInfoDir, Platform::Dir::Ptr lldpStatusDir, std::string cellId);
  void handleInitialized() override;
  void handleStandbyCellDir(const std::string& name);

 private:
  Platform::Dir::PtrConst cellInfoDir_;
  Platform::Dir::Ptr lldpStatusDir_;
  std::string cellId_;
};

// On a standby supervisor: waits for this cell's status entry, then runs the second start-up
// stage once.
class StandbyLldpStatusDirSm : public Platform::Reactor {
 public:
  StandbyLldpStatusDirSm(Platform::Dir::PtrConst lldpStatusDir, std::string cellId, std::function<void()> onReady);
  void handleInitialized() override;
  void handleLldpStatusDirSm(const std::string& name);
  bool lldpStatusLocalReady() const { return ready_; }

 private:
  Platform::Dir::PtrConst lldpStatusDir_;
  std::string cellId_;
  std::function<void()> onReady_;
  bool ready_ = false;
};

// Turns the supervisor's redundancy status into the agent's standby mode.
class RedundancyStatusSm : public Platform::Reactor {
 public:
  // standbyModeIs is the agent's setter of its standby mode.
  RedundancyStatusSm(Redundancy::RedundancyStatus::PtrConst redundancyStatus, std::function<void(bool)> standbyModeIs);
  void handleInitialized() override { handleRedundancyStatus(); }
  void handleRedundancyStatus();
  // The mapping documented with the redundancy record.
  static bool standbyModeOf(Redundancy::RedundancyMode mode) { return mode == Redundancy::RedundancyMode::standby; }

 private:
  Redundancy::RedundancyStatus::PtrConst redundancyStatus_;
  std::function<void(bool)> standbyModeIs_;
};

}  // namespace Lldp::Agent
