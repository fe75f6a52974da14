// Status of two cells accumulated, the cell entries of the status directory, and the standby
// start-up path's wait for this cell's entry.
#include <gtest/gtest.h>

#include "agent/StatusAccumulatorSm.h"

namespace {

using Lldp::Agent::StandbyCellDirSm;
using Lldp::Agent::StandbyLldpStatusDirSm;
using Lldp::Agent::StatusAccumulatorSm;

struct StatusAccumulatorTest : ::testing::Test {
  Platform::Dir::Ptr dir = Platform::make<Platform::Dir>("local");
  Lldp::Status::Ptr local = Platform::make<Lldp::Status>("1");
  Lldp::AllStatus::Ptr all = Platform::make<Lldp::AllStatus>();

  StatusAccumulatorTest() { dir->entryIs("1", local); }
  std::unique_ptr<StatusAccumulatorSm> start() {
    return Platform::makeReactor<StatusAccumulatorSm>(local, dir, all, "1");
  }
};

TEST_F(StatusAccumulatorTest, TwoCellsSumWrappingAndThePeerLeavingTakesItsPortsAlong) {
  local->remTablesInsertsInc(3);
  local->remTablesAgeoutsInc(0xfffffffe);
  local->remTablesLastChangeTimeIs(10);
  local->mgmtAddrVrfIs("mgmt");
  auto localPort = local->portStatusIs("Ethernet1", 0.0);
  all->portStatusIs("Ethernet7", localPort);  // stale, from an earlier run
  auto sm = start();
  EXPECT_EQ(all->remTablesInserts(), 3u);
  EXPECT_EQ(all->mgmtAddrVrf(), "mgmt");
  EXPECT_FALSE(all->portStatusHas("Ethernet7"));

  auto peer = Platform::make<Lldp::Status>("2");
  peer->remTablesInsertsInc(4);
  peer->remTablesAgeoutsInc(3);
  peer->remTablesLastChangeTimeIs(20);
  peer->portStatusIs("Management2/1", 0.0);
  auto peerCopy = peer->portStatusIs("Ethernet1", 0.0);
  dir->entryIs("2", peer);
  EXPECT_EQ(sm->lldpStatusRemote(), peer);
  EXPECT_EQ(all->remTablesInserts(), 7u);
  EXPECT_EQ(all->remTablesAgeouts(), 1u) << "32-bit wrap";
  EXPECT_EQ(all->remTablesLastChangeTime(), 20);
  EXPECT_EQ(all->portStatus("Ethernet1"), localPort) << "the local cell's port status wins";
  EXPECT_TRUE(all->portStatusHas("Management2/1"));

  peer->remTablesDeletesInc(2);
  local->remTablesDropsInc(1);
  local->remTablesLastChangeTimeIs(30);
  local->portStatusDel("Ethernet1");
  EXPECT_EQ(all->remTablesDeletes(), 2u);
  EXPECT_EQ(all->remTablesDrops(), 1u);
  EXPECT_EQ(all->remTablesLastChangeTime(), 30);
  EXPECT_EQ(all->portStatus("Ethernet1"), peerCopy) << "the peer's stands in";

  dir->entryDel("2");
  EXPECT_FALSE(sm->lldpStatusRemote());
  EXPECT_EQ(all->remTablesInserts(), 3u);
  EXPECT_EQ(all->remTablesDeletes(), 0u);
  EXPECT_EQ(all->portStatus().size(), 0u);
  peer->remTablesInsertsInc(100);
  EXPECT_EQ(all->remTablesInserts(), 3u) << "a departed peer is no longer watched";
}

TEST(StandbyCellDirTest, SupervisorsGetEntriesLineCardsAreSkippedDepartedCellsLoseTheirs) {
  auto cells = Platform::make<Platform::Dir>("cellInfo");
  auto statusDir = Platform::make<Platform::Dir>("local");
  statusDir->entryIs("1", Platform::make<Lldp::Status>("1"));
  statusDir->entryIs("7", Platform::make<Lldp::Status>("7"));  // a cell that has left
  cells->entryIs("1", Platform::make<Hardware::CellInfo>(1));
  auto sm = Platform::makeReactor<StandbyCellDirSm>(cells, statusDir, "1");
  EXPECT_FALSE(statusDir->entryHas("7"));

  cells->entryIs("2", Platform::make<Hardware::CellInfo>(2));
  auto card = Platform::make<Hardware::CellInfo>(3);
  card->cellTypeIs(Hardware::CellType::linecard);
  cells->entryIs("3", card);
  EXPECT_TRUE(Platform::ptrCast<Lldp::Status>(statusDir->entry("2")));
  EXPECT_FALSE(statusDir->entryHas("3"));

  cells->entryDel("2");
  cells->entryDel("1");
  EXPECT_FALSE(statusDir->entryHas("2"));
  EXPECT_TRUE(statusDir->entryHas("1")) << "the agent's own entry stays";
}

TEST(StandbyLldpStatusDirTest, TheSecondStageRunsOnceWhenThisCellsEntryAppears) {
  auto statusDir = Platform::make<Platform::Dir>("local");
  int runs = 0;
  auto sm = Platform::makeReactor<StandbyLldpStatusDirSm>(statusDir, "2", [&runs] { ++runs; });
  statusDir->entryIs("1", Platform::make<Lldp::Status>("1"));
  statusDir->entryIs("2", Platform::make<Hardware::CellInfo>(2));  // not a status: ignored
  EXPECT_EQ(runs, 0);
  statusDir->entryIs("2", Platform::make<Lldp::Status>("2"));
  statusDir->entryDel("2");
  statusDir->entryIs("2", Platform::make<Lldp::Status>("2"));
  EXPECT_EQ(runs, 1);
  EXPECT_TRUE(sm->lldpStatusLocalReady());
}

}  // namespace
