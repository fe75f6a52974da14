// Neighbour classification: LLDP neighbours that advertise the telephone capability are
// registered in the shared classification table for other agents, and removed when they go.
//
// Decisions:
// - A pass classifies the neighbours of the ports whose remote tables changed since the last
//   pass, not every neighbour of every port: an unchanged neighbour classifies as it did before,
//   so the outcome is the same, and a frame costs O(its port's neighbours) rather than O(all
//   neighbours). The pass still runs on each change of lastPacketParsedTime; changes parsed at
//   the time stamp of the previous frame (which does not change lastPacketParsedTime) are caught
//   by a pass posted to the scheduler.
// - At start-up the table may hold entries of an earlier run: their interfaces get link
//   watchers and the cleanup rules run once, so a telephone on a down port does not linger.
// - unregisterNeighbor looks for the interface's last entry only when it removed an entry: the
//   set of interfaces in the table changes only then.
#pragma once

#include <memory>
#include <set>

#include "platform/Reactor.h"
#include "platform/Scheduler.h"
#include "platform/Trace.h"
#include "records/AgentRecords.h"
#include "records/LldpRecords.h"

namespace Lldp::Agent {

extern Platform::TraceFacility nbrClassificationTrace;

class NbrClassificationSm;

// Removes the interface's classified neighbours when its link goes down.
class NbrClassificationIntfSm : public Platform::Reactor {
 public:
  NbrClassificationIntfSm(Konet::IntfId intf, Interface::EthPhyIntfStatus::PtrConst ethPhyIntfStatus,
                          NbrClassificationSm* owner);
  void handleLinkStatus();

 private:
  Konet::IntfId intf_;
  Interface::EthPhyIntfStatus::PtrConst ethPhyIntfStatus_;
  NbrClassificationSm* owner_;
};

// Marks its port dirty when the port's remote table changes.
class NbrClassificationPortSm : public Platform::Reactor {
 public:
  NbrClassificationPortSm(Konet::IntfId intf, PortStatus::PtrConst portStatus, NbrClassificationSm* owner);
  void handleRemoteSystem();

 private:
  Konet::IntfId intf_;
  PortStatus::PtrConst portStatus_;
  NbrClassificationSm* owner_;
};

class NbrClassificationSm : public Platform::Reactor {
 public:
  using Neighbor = Identity::NbrClassification::Neighbor;
  using Classification = Identity::NbrClassification::Classification;

  // Entries the shared table holds at most: source addresses come from the wire, and a sender
  // that keeps changing its own must not grow the table for ever. A full table first lets go
  // of entries LLDP no longer holds; a neighbour that still finds no room is not registered,
  // counted and logged.
  static constexpr size_t kMaxNeighbors = 8192;

  NbrClassificationSm(Status::PtrConst status, Identity::NbrClassification::Status::Ptr nbrClassficationStatus,
                      Interface::AllEthPhyIntfStatusDir::PtrConst ethPhyIntfStatusDir,
                      Platform::Scheduler& scheduler);
  ~NbrClassificationSm() override;

  void handleInitialized() override;
  void handleNbrClassification();
  void handlePortStatus(const Konet::IntfId& intf);

  void classifyNeighbor(const RemoteSystem::PtrConst& remoteSystem, const Konet::IntfId& intf);
  void registerNeighbor(const Konet::IntfId& intf, const Neighbor& neighbor);
  void unregisterNeighbor(const Konet::EthAddr& ethAddr, const Konet::IntfId& intf);
  bool lldpHasNeighbor(const Neighbor& neighbor) const;
  bool isIntfUp(const Konet::IntfId& intf) const;
  bool shouldNeighborBeRemoved(const Neighbor& neighbor) const;
  void doNeighborClassficationCleanup();
  void doNeighborClassficationCleanup(const Konet::IntfId& intf);
  void addNbrClassificationIntfSm(const Konet::IntfId& intf);
  void delNbrClassificationIntfSm(const Konet::IntfId& intf);

  // A port's remote table changed: classify it at the next pass.
  void doMarkDirty(const Konet::IntfId& intf);

  const Identity::NbrClassification::Status::Ptr& nbrClassficationStatus() const { return nbrClassficationStatus_; }
  // Neighbours not registered because the table was full, since start.
  uint64_t refusedNeighbors() const { return refusedNeighbors_; }

  PLATFORM_REACTOR_COLL(nbrClassificationIntfSm, Konet::IntfId, NbrClassificationIntfSm)
  PLATFORM_REACTOR_COLL(nbrClassificationPortSm, Konet::IntfId, NbrClassificationPortSm)

 private:
  Status::PtrConst status_;
  Identity::NbrClassification::Status::Ptr nbrClassficationStatus_;
  Interface::AllEthPhyIntfStatusDir::PtrConst ethPhyIntfStatusDir_;
  Platform::Scheduler& scheduler_;
  // Makes room in a full table; whether there is room now.
  bool doMakeRoom();

  std::set<Konet::IntfId> dirty_;
  bool passPosted_ = false;
  uint64_t refusedNeighbors_ = 0;
  // Posted passes check this before running: the reactor may be gone by then.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace Lldp::Agent
