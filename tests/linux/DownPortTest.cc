// A port whose link is down, or whose peer's is, costs the event thread nothing beyond the
// agent's own clocks; the error the kernel leaves on the socket is read and counted, and the
// port hears its peer again once the link is back. Needs root (CI runs it); elsewhere it skips.
#include "HostFixture.h"
#include "linux/SharedRingPam.h"

namespace {

class DownPortTest : public HostTest::HostNetnsFixture {
 protected:
  // Wake-ups of the event thread while it runs for `seconds`.
  uint64_t wakeups(double seconds) {
    const uint64_t before = s.events();
    s.runFor(seconds);
    return s.events() - before;
  }

  std::function<bool()> linkIs(const std::string& intf, Interface::LinkStatus status) {
    return [=, this] {
      const auto& phy = r.ethPhyIntfStatusDir->intfStatus(Konet::IntfId(intf));
      return phy && phy->linkStatus() == status;
    };
  }

  // The kernel's link watch tells of a carrier change within a second or so.
  void linkStep(const std::string& cmd, const std::function<bool()>& records) {
    ASSERT_EQ(HostTest::sh(cmd), 0) << cmd;
    ASSERT_LE(waitFor(records, 2 * kLinkWatch), 2 * kLinkWatch) << cmd;
  }

  // The wake-ups of a second in each state, against those of the port at rest.
  void downAndUpCostNothing(const std::string& ours, const std::string& theirs) {
    linkStep("ip link set " + ours + " up", linkIs(ours, Interface::LinkStatus::linkUp));
    ASSERT_LE(waitFor(peerHears(theirs, ours), kTxDelay + kWireSlack), kTxDelay + kWireSlack);
    s.runFor(0.5);
    const uint64_t rest = wakeups(1.0);
    const std::string peerNs = peerNsName();

    linkStep("ip link set " + ours + " down", linkIs(ours, Interface::LinkStatus::linkDown));
    const uint64_t down = wakeups(1.0);
    linkStep("ip link set " + ours + " up", linkIs(ours, Interface::LinkStatus::linkUp));
    linkStep("ip -n " + peerNs + " link set " + theirs + " down", linkIs(ours, Interface::LinkStatus::linkDown));
    const uint64_t peerDown = wakeups(1.0);
    linkStep("ip -n " + peerNs + " link set " + theirs + " up", linkIs(ours, Interface::LinkStatus::linkUp));
    ASSERT_LE(waitFor(peerHears(theirs, ours), kTxDelay + kWireSlack), kTxDelay + kWireSlack);
    s.runFor(0.5);
    const uint64_t back = wakeups(1.0);
    std::printf("[ figures  ] wake-ups per second: at rest %.1f, port down %.1f, peer down %.1f, back up %.1f\n",
                double(rest), double(down), double(peerDown), double(back));
    // The agent's clocks (transmission, ageing, the peer's) wake it a few times a second at
    // most; a socket left readable would wake it thousands of times.
    constexpr uint64_t kSlack = 6;
    EXPECT_LE(down, rest + kSlack);
    EXPECT_LE(peerDown, rest + kSlack);
    EXPECT_LE(back, rest + kSlack);
  }

  std::string peerNsName() const { return HostTest::netnsName("peer"); }
};

// One port on a socket of its own, the next on the shared ring.
TEST_F(DownPortTest, ADownPortCostsNoWakeUpsOnItsOwnSocketOrTheSharedRing) {
  startAgent(1);
  peerLinkIs("dpa0", "dpb0");
  peerLinkIs("dps0", "dpt0");
  downAndUpCostNothing("dpa0", "dpb0");
  const auto& pams = *agent->protocolRoot()->pamCollection();
  const auto* raw = dynamic_cast<const Linux::RawSocketPam*>(pams.intfPam(Konet::IntfId("dpa0")).get());
  ASSERT_TRUE(raw);
  EXPECT_GE(raw->rxSocketErrors(), 1u);  // ENETDOWN, read once
  downAndUpCostNothing("dps0", "dpt0");
  EXPECT_TRUE(dynamic_cast<const Linux::SharedPortPam*>(pams.intfPam(Konet::IntfId("dps0")).get()));
}

}  // namespace
